// module.cpp: the filter module: the pipeline host opens libproofmarkfilter.so and calls its
// CreatePipelineFilter for each <Filter dll="libproofmarkfilter.so"> of a configuration.
#include <filterutilities.h>

#include <cwchar>
#include <new>

#include "proofmarkfilter.h"

extern "C" FU_FILTER_MODULE_EXPORT HRESULT CreatePipelineFilter(const wchar_t* filterClass,
                                                                IPrintPipelineFilter** filter) {
    if (filter == nullptr) return E_POINTER;
    *filter = nullptr;
    // One filter class: the module answers to no class name or to its own.
    if (filterClass != nullptr && *filterClass != L'\0' &&
        std::wcscmp(filterClass, L"ProofMarkFilter") != 0) {
        return E_INVALIDARG;
    }
    // The filter starts with one reference, which the host takes over.
    *filter = new (std::nothrow) ProofMarkFilter();
    return *filter != nullptr ? S_OK : E_OUTOFMEMORY;
}
