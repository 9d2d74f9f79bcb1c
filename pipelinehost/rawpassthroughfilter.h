// rawpassthroughfilter.h: a pass-through filter written directly against the pipeline
// interfaces: it forwards every part unchanged, by kind, then closes its output. The host uses
// it where a filter is needed without the filter library (tests, benchmarks, the default
// "passthrough" until the library's own pass-through filter is registered in its place).
#pragma once

#include "platform/printpipeline/filterpipeline.h"

namespace pipelinehost {

HRESULT CreateRawPassThroughFilter(IPrintPipelineFilter** filter);

}  // namespace pipelinehost
