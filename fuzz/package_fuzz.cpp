// package_fuzz.cpp: libFuzzer target over the XPS package reader, driven through the host the
// way `xpsfilter run` drives it: the input is the job file, the pipeline the library's
// pass-through filter, so ZIP, OPC (content types, relationships, part names, interleaved
// pieces), the markup references followed to find resources, and the tickets the filter
// installs are all read.
//
// A bad job must fail with a classified error (not "internal") and leave no output file; a
// good one leaves the output. Anything else is a finding.
#include <cstddef>
#include <cstdint>
#include <filesystem>
#include <string_view>

#include "filters/passthrough/passthroughfilter.h"
#include "fuzz/fuzzinput.h"
#include "pipelinehost/jobrunner.h"

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, std::size_t size) {
    using namespace pipelinehost;
    static const FilterRegistry registry = [] {
        FilterRegistry made;
        made.AddBuiltin("passthrough", &CreatePassThroughFilter);
        return made;
    }();
    static const PipelineConfig config = DefaultPipelineConfig();

    JobOptions job;
    job.input =
        fuzzinput::WriteFile("in.xps", std::string_view(reinterpret_cast<const char*>(data), size));
    job.output = fuzzinput::PrivateFolder() + "/out.xps";
    job.limits.maxPartSize = 8u << 20;
    job.limits.maxMarkupSize = 8u << 20;
    job.queueCapacity = 2;

    const JobResult result = RunJob(config, registry, job);
    std::error_code ec;
    const bool written = std::filesystem::exists(job.output, ec);
    if (result.succeeded != written) __builtin_trap();
    if (!result.succeeded && result.error->Kind() == ErrorKind::Internal) __builtin_trap();
    std::filesystem::remove(job.output, ec);
    return 0;
}
