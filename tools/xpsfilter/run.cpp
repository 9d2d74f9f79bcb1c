// run.cpp: `xpsfilter run [--pipeline FILE] [--ticket FILE] [--printer NAME] IN OUT` runs a
// filter pipeline over an XPS job. It shows a progress line when stderr is a terminal, prints
// a one-line summary, and exits with a code that tells what went wrong. IN and OUT may be "-"
// (standard input and output); OUT is handled as OutputTarget describes.
#include <unistd.h>

#include <cstdio>
#include <iostream>
#include <memory>
#include <string>
#include <string_view>

#include "builtins.h"
#include "commandline.h"
#include "datafiles.h"
#include "debuglog.h"
#include "inputsource.h"
#include "outputtarget.h"
#include "pipelinehost/jobrunner.h"
#include "ticketfile.h"
#include "runsummary.h"

namespace {

struct RunOptions {
    std::string pipeline;
    std::string ticket;
    std::string printer = "xpsfilter";
    std::string input;
    std::string output;
    std::uint64_t maxPartMiB = 1024;
    std::size_t queue = 4;
    unsigned threads = 0;
    bool quiet = false;
    bool json = false;
};

// Kinds of error about the job file itself: their message is prefixed with IN.
bool AboutInput(pipelinehost::ErrorKind kind) {
    using pipelinehost::ErrorKind;
    return kind == ErrorKind::InputMissing || kind == ErrorKind::NotZip ||
           kind == ErrorKind::BadPackage || kind == ErrorKind::LimitExceeded;
}

// `inputFile`: the file read for IN (the spooled copy for "-"). A message about the job that
// does not name it already is prefixed with IN.
int Report(const RunOptions& options, const std::string& inputFile,
           const pipelinehost::JobError& error) {
    using pipelinehost::ErrorKind;
    std::string message = "xpsfilter: ";
    if (AboutInput(error.Kind()) &&
        std::string_view(error.what()).find(inputFile) == std::string_view::npos)
        message += options.input + ": ";
    message += std::string(KindLabel(error.Kind())) + " error: " + error.what();
    const std::string debug = xpsfilter::DebugLog::LastLine();
    if ((error.Kind() == ErrorKind::Filter || error.Kind() == ErrorKind::Config) && !debug.empty())
        message += " (last debug message: " + debug + ")";
    std::cerr << xpsfilter::InputSource::Readable(message) << "\n";
    return xpsfilter::ExitCodeFor(error.Kind());
}

int Run(const RunOptions& options) {
    using namespace pipelinehost;
    std::string inputFile = options.input;
    // OUT first: a folder or a missing folder is refused before anything is read.
    const xpsfilter::OutputTarget target = xpsfilter::OutputTarget::Resolve(options.output);
    try {
        const std::string pipeline = xpsfilter::DataFiles::Pipeline(options.pipeline);
        PipelineConfig config =
            pipeline.empty() ? DefaultPipelineConfig() : LoadPipelineConfig(pipeline);
        FilterRegistry registry;
        xpsfilter::RegisterBuiltinFilters(registry);

        JobOptions job;
        job.ticketFile =
            options.ticket.empty() ? xpsfilter::DataFiles::DefaultTicket() : options.ticket;
        if (!options.ticket.empty()) xpsfilter::CheckPrintTicketFile(options.ticket);
        job.input = inputFile = xpsfilter::InputSource::Path(options.input);
        // A stream (standard output, a FIFO, a device) gets the package as it is made, its ZIP
        // items followed by data descriptors; a file is written beside OUT and renamed into place.
        job.output = target.IsStream() ? target.Name() : target.Path();
        job.printerName = options.printer;
        job.limits.maxPartSize = options.maxPartMiB << 20;
        job.queueCapacity = options.queue;
        job.threads = options.threads;
        bool terminal = !options.quiet && ::isatty(STDERR_FILENO) == 1;
        auto started = std::chrono::steady_clock::now();
        if (terminal) {
            job.progress = [started](std::uint64_t pages) {
                double seconds =
                    std::chrono::duration<double>(std::chrono::steady_clock::now() - started)
                        .count();
                std::fprintf(stderr, "\r%llu pages, %.1f pages/s   ",
                             static_cast<unsigned long long>(pages),
                             seconds > 0 ? static_cast<double>(pages) / seconds : 0.0);
                std::fflush(stderr);
            };
        }
        struct StreamGuard {
            int fd = -1;
            ~StreamGuard() {
                if (fd >= 0 && fd != STDOUT_FILENO) ::close(fd);
            }
        } stream;
        if (target.IsStream()) job.outputFd = stream.fd = target.OpenStream();
        JobResult result = RunJob(config, registry, job);
        if (terminal) std::fprintf(stderr, "\r\033[K");
        for (const std::string& warning : result.warnings) {
            std::cerr << "xpsfilter: " << options.input << ": warning: " << warning << "\n";
        }
        if (!result.succeeded) return Report(options, job.input, *result.error);
        if (options.json) {
            // Never into the package when the package goes to standard output.
            (target.IsStandardOutput() ? std::cerr : std::cout)
                << xpsfilter::RunSummaryJson(options.input, target.Name(), result);
        } else if (!options.quiet) {
            double rate =
                result.seconds > 0 ? static_cast<double>(result.pages) / result.seconds : 0;
            // The summary goes to stderr, as a message, when the package goes to stdout.
            const bool toStderr = target.IsStandardOutput();
            std::fprintf(toStderr ? stderr : stdout,
                         "%s%s -> %s: %llu pages through %zu filter%s in %.2f s (%.1f pages/s)\n",
                         toStderr ? "xpsfilter: " : "", options.input.c_str(),
                         target.Name().c_str(), static_cast<unsigned long long>(result.pages),
                         config.filters.size(), config.filters.size() == 1 ? "" : "s",
                         result.seconds, rate);
        }
        return xpsfilter::kExitOk;
    } catch (const JobError& error) {
        return Report(options, inputFile, error);
    } catch (const std::exception& error) {
        std::cerr << "xpsfilter: internal error: " << error.what() << "\n";
        return xpsfilter::kExitInternal;
    }
}

}  // namespace

void AddRunCommand(xpsfilter::CommandLine& commands) {
    auto options = std::make_shared<RunOptions>();
    CLI::App* run = commands.App().add_subcommand(
        "run", "Run a filter pipeline over an XPS job and write the resulting XPS file");
    run->add_option("--pipeline", options->pipeline,
                    "Pipeline configuration file, or the name of an installed sample pipeline "
                    "(default: the built-in pass-through filter)");
    run->add_option("--ticket", options->ticket,
                    "Per-user default PrintTicket (default: the installed default ticket)");
    run->add_option("--printer", options->printer, "Printer name given to the filters")
        ->capture_default_str();
    run->add_option("--max-part-size", options->maxPartMiB,
                    "Largest inflated size of one part, in MiB")
        ->capture_default_str()
        ->check(CLI::Range(1, 1 << 20));
    run->add_option("--queue", options->queue, "Parts queued between two filters")
        ->capture_default_str()
        ->check(CLI::Range(1, 1024));
    run->add_option("--threads", options->threads,
                    "Threads for compressing and for filters that work on pages in parallel "
                    "(default: one per core, at most 8)")
        ->check(CLI::Range(1, 64));
    run->add_flag("-q,--quiet", options->quiet, "No progress line and no summary");
    run->add_flag("--json", options->json, "Print the summary as JSON (also with -q)");
    run->add_option("IN", options->input, "The XPS job to read; - reads standard input")
        ->required();
    run->add_option("OUT", options->output, "The XPS file to write; - writes standard output")
        ->required();
    run->callback([&commands, options] { commands.SetExitCode(Run(*options)); });
}
