// builtins.cpp: the built-in filter names. "passthrough" forwards every part unchanged; it is
// the host's interface-level pass-through until the filter library's own pass-through filter
// (built on XpsFilterBase) is registered here in its place.
#include "builtins.h"

#include "pipelinehost/rawpassthroughfilter.h"
#ifdef XPSFILTER_HAS_WATERMARK
#include "filters/watermark/watermarkfilter.h"
#endif

namespace xpsfilter {

void RegisterBuiltinFilters(pipelinehost::FilterRegistry& registry) {
    registry.AddBuiltin("passthrough", &pipelinehost::CreateRawPassThroughFilter);
#ifdef XPSFILTER_HAS_WATERMARK
    registry.AddBuiltin("watermark", &CreateWatermarkFilter);
#endif
}

}  // namespace xpsfilter
