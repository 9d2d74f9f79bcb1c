// builtins.cpp: the built-in filter names. "passthrough" is the filter library's pass-through
// (XpsFilterBase with nothing overridden: tickets installed in the ticket manager, every part
// forwarded unchanged); "rawpassthrough" forwards parts at the interface level without the
// library, which helps tell a library problem from a host problem.
#include "builtins.h"

#include "filters/passthrough/passthroughfilter.h"
#include "filters/setticket/setticketfilter.h"
#include "filters/stamp/stampfilter.h"
#include "pipelinehost/rawpassthroughfilter.h"
#ifdef XPSFILTER_HAS_WATERMARK
#include "filters/watermark/watermarkfilter.h"
#endif

namespace xpsfilter {

void RegisterBuiltinFilters(pipelinehost::FilterRegistry& registry) {
    registry.AddBuiltin("passthrough", &CreatePassThroughFilter);
    registry.AddBuiltin("rawpassthrough", &pipelinehost::CreateRawPassThroughFilter);
    registry.AddBuiltin("setticket", &CreateSetTicketFilter);
    registry.AddBuiltin("stamp", &CreateStampFilter);
#ifdef XPSFILTER_HAS_WATERMARK
    registry.AddBuiltin("watermark", &CreateWatermarkFilter);
#endif
}

}  // namespace xpsfilter
