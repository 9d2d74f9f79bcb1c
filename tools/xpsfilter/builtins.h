// builtins.h: the built-in filters the xpsfilter command offers to pipeline configurations.
#pragma once

#include "pipelinehost/filterregistry.h"

namespace xpsfilter {

void RegisterBuiltinFilters(pipelinehost::FilterRegistry& registry);

}  // namespace xpsfilter
