// builtins.cpp: the built-in filter names. "passthrough" forwards every part unchanged; it is
// the host's interface-level pass-through until the filter library's own pass-through filter
// (built on XpsFilterBase) is registered here in its place.
#include "builtins.h"

#include "filters/setticket/setticketfilter.h"
#include "filters/stamp/stampfilter.h"
#include "pipelinehost/rawpassthroughfilter.h"

namespace xpsfilter {

void RegisterBuiltinFilters(pipelinehost::FilterRegistry& registry) {
    registry.AddBuiltin("passthrough", &pipelinehost::CreateRawPassThroughFilter);
    registry.AddBuiltin("setticket", &CreateSetTicketFilter);
    registry.AddBuiltin("stamp", &CreateStampFilter);
}

}  // namespace xpsfilter
