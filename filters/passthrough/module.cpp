// module.cpp: the pass-through filter as a loadable filter module: the pipeline host opens the
// shared object and calls CreatePipelineFilter.
#include <cwchar>

#include "filterpipeline/filterutilities/filtermodule.h"
#include "filters/passthrough/passthroughfilter.h"

extern "C" FU_FILTER_MODULE_EXPORT HRESULT CreatePipelineFilter(const wchar_t* filterClass,
                                                                IPrintPipelineFilter** filter) {
    if (filter == nullptr) return E_POINTER;
    *filter = nullptr;
    // The module has one filter class; it answers to no class name or to its own.
    if (filterClass != nullptr && *filterClass != L'\0' &&
        std::wcscmp(filterClass, L"PassThroughFilter") != 0) {
        return E_INVALIDARG;
    }
    return CreatePassThroughFilter(filter);
}
