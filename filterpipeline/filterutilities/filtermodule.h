// filtermodule.h: the entry point of a filter module, the shared object a pipeline
// configuration names with dll="...". The pipeline host opens the module and calls its one
// exported function:
//
//   #include <filterutilities.h>
//
//   extern "C" FU_FILTER_MODULE_EXPORT HRESULT CreatePipelineFilter(
//       const wchar_t* filterClass, IPrintPipelineFilter** filter) { ... }
//
// filterClass is the configuration's class attribute (empty when the configuration names none);
// the function stores a new filter with one reference in *filter and returns S_OK, or returns a
// failure (E_INVALIDARG for a class the module does not make) and leaves *filter null.
// The declaration below carries the export attribute, so a module built with hidden symbols
// (-fvisibility=hidden) still exports the function once it includes this header.
#pragma once

#include "platform/com/wintypes.h"
#include "platform/printpipeline/filterpipeline.h"

#if defined(_WIN32)
#define FU_FILTER_MODULE_EXPORT __declspec(dllexport)
#else
#define FU_FILTER_MODULE_EXPORT __attribute__((visibility("default")))
#endif

// The name the host looks the entry point up by.
#define FU_PIPELINE_FILTER_FACTORY "CreatePipelineFilter"

extern "C" {
FU_FILTER_MODULE_EXPORT HRESULT CreatePipelineFilter(const wchar_t* filterClass,
                                                     IPrintPipelineFilter** filter);
// The type of the entry point, for hosts that look it up with dlsym.
using CreatePipelineFilterFunction = HRESULT (*)(const wchar_t* filterClass,
                                                 IPrintPipelineFilter** filter);
}
