// pipelineconfig_fuzz.cpp: libFuzzer target over pipeline configuration files. A bad file must
// be refused with the host's configuration error; any other exception, a crash or a sanitizer
// report is a finding. Module paths are only resolved, never loaded.
#include <cstddef>
#include <cstdint>
#include <string>

#include "pipelinehost/hosterror.h"
#include "pipelinehost/pipelineconfig.h"

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, std::size_t size) {
    const std::string xml(reinterpret_cast<const char*>(data), size);
    try {
        const pipelinehost::PipelineConfig config =
            pipelinehost::ParsePipelineConfig(xml, "/nonexistent/pipelines");
        if (config.filters.empty()) __builtin_trap();  // a pipeline has at least one filter
    } catch (const pipelinehost::JobError& error) {
        if (error.Kind() != pipelinehost::ErrorKind::Config) __builtin_trap();
    }
    return 0;
}
