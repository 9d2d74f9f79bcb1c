// jobrunner.h: runs one XPS job through a filter chain. It opens the job, creates the filters
// in configuration order, links filter N's consumer to filter N+1's provider through a bounded
// queue (the first filter reads the job, the last one writes the output), fills the property
// bag, calls InitializeFilter on every filter and then StartOperation on a thread per filter.
// A RequestShutdown from any filter, or a filter that fails or stops without closing its
// output, stops the job: every filter receives ShutdownOperation and the queues are cancelled.
// The job succeeds only when every filter succeeded and reported FilterFinished and the
// output package was completed; only then is the output file put in place.
#pragma once

#include <chrono>
#include <cstdint>
#include <functional>
#include <optional>
#include <string>
#include <vector>

#include "platform/com/wintypes.h"
#include "pipelinehost/filterregistry.h"
#include "pipelinehost/hosterror.h"
#include "pipelinehost/pipelineconfig.h"
#include "pipelinehost/sourcepackage.h"

namespace pipelinehost {

// The "PrinterHandle" value: Linux has no printer handles, so the host passes an opaque
// placeholder (non-null, not INVALID_HANDLE_VALUE) that filters only pass on.
HANDLE PlaceholderPrinterHandle();

struct JobOptions {
    std::string input;
    std::string output;
    // Not negative: the package goes to this open stream (a pipe, a FIFO, a device) as it is made,
    // and `output` only names it. Nothing written to a stream can be taken back: a job that
    // fails leaves what was written.
    int outputFd = -1;
    std::string ticketFile;  // empty: the embedded default ticket
    std::string printerName = "xpsfilter";
    DWORD jobId = 1;
    ReaderLimits limits;
    std::size_t queueCapacity = 4;
    // Threads for the job's parallel work: the writer's compression workers, and the page
    // threads of filters that opt in (the "PageThreads" property). 0: one per core, at most 8.
    unsigned threads = 0;
    // Called on the calling thread about ten times a second while the job runs.
    std::function<void(std::uint64_t pagesWritten)> progress;
};

struct FilterReport {
    std::string name;
    HRESULT initializeResult = S_OK;
    HRESULT startResult = S_OK;
    std::optional<std::string> exception;  // what a throwing StartOperation threw
    unsigned filterFinishedCalls = 0;
    unsigned shutdownOperationCalls = 0;
    std::optional<HRESULT> shutdownRequest;  // the first RequestShutdown reason
};

struct JobResult {
    bool succeeded = false;
    std::optional<JobError> error;
    std::uint64_t pages = 0;
    double seconds = 0;
    std::vector<FilterReport> filters;
    std::vector<std::size_t> queueHighWater;  // per link between filters
    // Input the job went on with but a user should hear of (a part with a second PrintTicket,
    // a document without pages), each naming the part.
    std::vector<std::string> warnings;
};

// Never throws for job problems: they are reported in JobResult::error.
JobResult RunJob(const PipelineConfig& config, const FilterRegistry& registry,
                 const JobOptions& options);

}  // namespace pipelinehost
