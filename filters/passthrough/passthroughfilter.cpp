// passthroughfilter.cpp: construction of the pass-through filter.
#include "filters/passthrough/passthroughfilter.h"

#include <new>

HRESULT CreatePassThroughFilter(IPrintPipelineFilter** filter) {
    if (filter == nullptr) return E_POINTER;
    *filter = new (std::nothrow) PassThroughFilter();
    return *filter == nullptr ? E_OUTOFMEMORY : S_OK;
}
