// main.cpp: filterutilities-xps, a CUPS filter. CUPS runs it as
//     filterutilities-xps job-id user title copies options [file]
// with the job (XPS or OpenXPS) in `file` or on standard input and the queue's PPD named by the
// PPD environment variable. It runs the pipeline configuration the PPD names, with the user's
// print options merged into the job ticket, and writes the resulting XPS job to standard output,
// all of it or, when the job fails, nothing. Messages go to standard error with the CUPS
// prefixes; the exit status is 0 when the job went through and 1 otherwise. SIGTERM stops the
// job; the temporary files are removed either way. docs/cups.md describes it.
#include <atomic>
#include <cerrno>
#include <csignal>
#include <cstdlib>
#include <cstring>
#include <filesystem>
#include <string>
#include <vector>

#include "cupsarguments.h"
#include "filters/passthrough/passthroughfilter.h"
#include "filters/setticket/setticketfilter.h"
#include "filters/stamp/stampfilter.h"
#include "filtermessages.h"
#include "jobticketfilter.h"
#include "optionsticket.h"
#include "pipelinehost/allocatortuning.h"
#include "pipelinehost/jobrunner.h"
#include "pipelinehost/rawpassthroughfilter.h"
#include "ppdsettings.h"
#include "scratchfolder.h"
#ifdef FU_CUPS_HAS_WATERMARK
#include "filters/watermark/watermarkfilter.h"
#endif
// After the platform headers: <fcntl.h> defines LOCK_WRITE, a name the COM stand-ins use.
#include <fcntl.h>
#include <unistd.h>

namespace {

namespace fs = std::filesystem;
using namespace cupsfilter;

constexpr int kExitOk = 0;
constexpr int kExitFailed = 1;
// The name under which the options filter heads every chain.
constexpr char kOptionsFilterName[] = "cups-options";

std::atomic<bool> g_terminate{false};
static_assert(std::atomic<bool>::is_always_lock_free, "the signal handler sets the flag");

extern "C" void OnTerminate(int) {
    g_terminate = true;
}

void InstallSignalHandlers() {
    struct sigaction action {};
    action.sa_handler = OnTerminate;
    sigemptyset(&action.sa_mask);
    // No SA_RESTART: a read of standard input returns so that the flag is seen.
    sigaction(SIGTERM, &action, nullptr);
    std::signal(SIGPIPE, SIG_IGN);
}

// share/filterutilities of the prefix the filter is installed in (lib/cups/filter of it).
fs::path DataFolder() {
    std::error_code error;
    fs::path program = fs::read_symlink("/proc/self/exe", error);
    if (error) return fs::path(FU_CUPS_DATA_RELATIVE);
    return (program.parent_path() / FU_CUPS_DATA_RELATIVE).lexically_normal();
}

void RegisterFilters(pipelinehost::FilterRegistry& registry) {
    registry.AddBuiltin("passthrough", &CreatePassThroughFilter);
    registry.AddBuiltin("rawpassthrough", &pipelinehost::CreateRawPassThroughFilter);
    registry.AddBuiltin("setticket", &CreateSetTicketFilter);
    registry.AddBuiltin("stamp", &CreateStampFilter);
#ifdef FU_CUPS_HAS_WATERMARK
    registry.AddBuiltin("watermark", &CreateWatermarkFilter);
#endif
}

// Copies the finished job to standard output. Returns the errno of a failed read or write, 0 when
// the job was copied (or a SIGTERM stopped the copy: the caller looks at the flag).
int CopyToStandardOutput(const fs::path& file) {
    int fd = ::open(file.c_str(), O_RDONLY | O_CLOEXEC);
    if (fd < 0) return errno;
    std::vector<char> buffer(1 << 16);
    int error = 0;
    while (error == 0 && !g_terminate) {
        ssize_t got = ::read(fd, buffer.data(), buffer.size());
        if (got < 0 && errno == EINTR) continue;
        if (got < 0) error = errno;
        if (got <= 0) break;
        for (ssize_t done = 0; error == 0 && done < got;) {
            ssize_t written =
                ::write(STDOUT_FILENO, buffer.data() + done, static_cast<std::size_t>(got - done));
            if (written < 0 && errno == EINTR) continue;
            if (written <= 0) error = written < 0 ? errno : EIO;
            done += written > 0 ? written : 0;
        }
    }
    ::close(fd);
    return error;
}

// A message about the job names it as the user knows it: the spool file of a job read from
// standard input is "standard input".
std::string NameInput(std::string message, const fs::path& input, bool spooled) {
    if (!spooled) return message;
    const std::string path = input.string();
    for (std::size_t at = message.find(path); at != std::string::npos;
         at = message.find(path, at)) {
        message.replace(at, path.size(), "standard input");
    }
    return message;
}

void ReportOptions(const OptionsTicket& ticket) {
    for (const std::string& taken : ticket.taken) ReportDebug("option " + taken);
    for (const std::string& ignored : ticket.ignored) {
        ReportDebug("option " + ignored + " has no PrintTicket setting, ignored");
    }
    for (const std::string& refused : ticket.refused) {
        ReportWarning("option " + refused + "; ignored");
    }
}

// What the printer's PPD (named by the PPD variable CUPS sets) says: the pipeline, the printer,
// its registry (made the printer registry of this process).
PpdSettings PrinterSettings() {
    PpdSettings ppd;
    if (const char* ppdPath = std::getenv("PPD"); ppdPath != nullptr && *ppdPath != '\0') {
        ppd = ReadPpdSettings(ppdPath, DataFolder());
    } else {
        ReportDebug("no PPD: the built-in pass-through pipeline runs");
    }
    if (!ppd.printerRegistry.empty()) setenv("FU_PRINTER_REGISTRY", ppd.printerRegistry.c_str(), 1);
    return ppd;
}

// The printer's pipeline with the filter that merges the options into the job ticket in front.
pipelinehost::PipelineConfig PipelineWithOptionsFilter(
    const PpdSettings& ppd, const CComPtr<JobTicketFilter>& optionsFilter,
    pipelinehost::FilterRegistry& registry) {
    using namespace pipelinehost;
    PipelineConfig config =
        ppd.pipeline.empty() ? DefaultPipelineConfig() : LoadPipelineConfig(ppd.pipeline);
    registry.AddBuiltin(kOptionsFilterName, [optionsFilter](IPrintPipelineFilter** filter) {
        if (filter == nullptr) return E_POINTER;
        *filter = optionsFilter;
        (*filter)->AddRef();
        return S_OK;
    });
    FilterEntry optionsEntry;
    optionsEntry.name = kOptionsFilterName;
    optionsEntry.builtin = kOptionsFilterName;
    config.filters.insert(config.filters.begin(), optionsEntry);
    return config;
}

int RunFilter(const CupsArguments& arguments) {
    using namespace pipelinehost;
    ScratchFolder scratch;

    fs::path input;
    if (arguments.file) {
        input = *arguments.file;
    } else {
        ReportDebug("spooling the job from standard input into " + scratch.Path().string());
        input = scratch.SpoolStandardInput(g_terminate);
    }
    if (g_terminate) {
        ReportInfo("job stopped (SIGTERM) before it ran");
        return kExitFailed;
    }

    const PpdSettings ppd = PrinterSettings();

    OptionsTicket options = BuildOptionsTicket(arguments.options, arguments.copies, ppd.pageSizes);
    ReportOptions(options);

    FilterRegistry registry;
    RegisterFilters(registry);
    CComPtr<JobTicketFilter> optionsFilter;
    optionsFilter.Attach(new JobTicketFilter(options.delta));
    PipelineConfig config = PipelineWithOptionsFilter(ppd, optionsFilter, registry);

    JobOptions job;
    job.input = input.string();
    job.output = (scratch.Path() / "out.xps").string();
    const char* queue = std::getenv("PRINTER");
    job.printerName = !ppd.printerName.empty()             ? ppd.printerName
                      : queue != nullptr && *queue != '\0' ? queue
                                                           : "filterutilities-xps";
    job.jobId = static_cast<DWORD>(arguments.jobId);
    std::uint64_t pagesReported = 0;
    bool stopSent = false;
    job.progress = [&](std::uint64_t pages) {
        for (; pagesReported < pages; ++pagesReported) {
            ReportPage(pagesReported + 1, arguments.copies);
        }
        if (g_terminate && !stopSent) stopSent = optionsFilter->Stop();
    };
    ReportInfo("running the pipeline " + (ppd.pipeline.empty() ? "passthrough" : ppd.pipeline) +
               " for printer \"" + job.printerName + "\"");

    JobResult result = g_terminate ? JobResult{} : RunJob(config, registry, job);
    for (const std::string& warning : result.warnings) {
        ReportWarning(NameInput(warning, input, !arguments.file));
    }
    if (g_terminate) {
        ReportInfo("job stopped (SIGTERM)");
        return kExitFailed;
    }
    if (!result.succeeded) {
        std::string failure = optionsFilter->MergeFailure();
        if (failure.empty()) {
            failure = std::string(KindLabel(result.error->Kind())) +
                      " error: " + NameInput(result.error->what(), input, !arguments.file);
        }
        ReportError(failure);
        return kExitFailed;
    }
    const int copyError = CopyToStandardOutput(job.output);
    if (g_terminate) {
        ReportInfo("job stopped (SIGTERM)");
        return kExitFailed;
    }
    if (copyError != 0) {
        ReportError(std::string("cannot write the job to standard output: ") +
                    std::strerror(copyError));
        return kExitFailed;
    }
    ReportInfo("printed " + std::to_string(result.pages) + " page" +
               (result.pages == 1 ? "" : "s"));
    return kExitOk;
}

}  // namespace

int main(int argc, char** argv) {
    pipelinehost::TuneAllocatorForJobs();
    InstallSignalHandlers();
    std::string error;
    std::optional<CupsArguments> arguments = ParseCupsArguments(argc, argv, error);
    if (!arguments) {
        ReportError(error);
        ReportInfo(std::string("usage: ") + (argc > 0 ? argv[0] : "filterutilities-xps") +
                   " job-id user title copies options [file]");
        return kExitFailed;
    }
    try {
        return RunFilter(*arguments);
    } catch (const pipelinehost::JobError& failure) {
        ReportError(std::string(pipelinehost::KindLabel(failure.Kind())) +
                    " error: " + failure.what());
    } catch (const std::exception& failure) {
        ReportError(failure.what());
    }
    return kExitFailed;
}
