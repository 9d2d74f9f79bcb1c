// run.cpp: `xpsfilter run [--pipeline FILE] [--ticket FILE] [--printer NAME] IN OUT` runs a
// filter pipeline over an XPS job. It shows a progress line when stderr is a terminal, prints
// a one-line summary, and exits with a code that tells what went wrong.
#include <unistd.h>

#include <cstdio>
#include <iostream>
#include <memory>
#include <string>

#include "builtins.h"
#include "commandline.h"
#include "pipelinehost/jobrunner.h"
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
    bool quiet = false;
    bool json = false;
};

int Run(const RunOptions& options) {
    using namespace pipelinehost;
    try {
        PipelineConfig config = options.pipeline.empty() ? DefaultPipelineConfig()
                                                         : LoadPipelineConfig(options.pipeline);
        FilterRegistry registry;
        xpsfilter::RegisterBuiltinFilters(registry);

        JobOptions job;
        job.input = options.input;
        job.output = options.output;
        job.ticketFile = options.ticket;
        job.printerName = options.printer;
        job.limits.maxPartSize = options.maxPartMiB << 20;
        job.queueCapacity = options.queue;
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
        JobResult result = RunJob(config, registry, job);
        if (terminal) std::fprintf(stderr, "\r\033[K");
        for (const std::string& warning : result.warnings) {
            std::cerr << "xpsfilter: " << options.input << ": warning: " << warning << "\n";
        }
        if (!result.succeeded) {
            const JobError& error = *result.error;
            std::cerr << "xpsfilter: " << KindLabel(error.Kind()) << " error: " << error.what()
                      << "\n";
            return xpsfilter::ExitCodeFor(error.Kind());
        }
        if (options.json) {
            std::cout << xpsfilter::RunSummaryJson(options.input, options.output, result);
        } else if (!options.quiet) {
            double rate =
                result.seconds > 0 ? static_cast<double>(result.pages) / result.seconds : 0;
            std::printf("%s -> %s: %llu pages through %zu filter%s in %.2f s (%.1f pages/s)\n",
                        options.input.c_str(), options.output.c_str(),
                        static_cast<unsigned long long>(result.pages), config.filters.size(),
                        config.filters.size() == 1 ? "" : "s", result.seconds, rate);
        }
        return xpsfilter::kExitOk;
    } catch (const JobError& error) {
        std::cerr << "xpsfilter: " << KindLabel(error.Kind()) << " error: " << error.what() << "\n";
        return xpsfilter::ExitCodeFor(error.Kind());
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
                    "Pipeline configuration file (default: the built-in pass-through filter)");
    run->add_option("--ticket", options->ticket,
                    "Per-user default PrintTicket (default: the embedded default ticket)");
    run->add_option("--printer", options->printer, "Printer name given to the filters")
        ->capture_default_str();
    run->add_option("--max-part-size", options->maxPartMiB,
                    "Largest inflated size of one part, in MiB")
        ->capture_default_str()
        ->check(CLI::Range(1, 1 << 20));
    run->add_option("--queue", options->queue, "Parts queued between two filters")
        ->capture_default_str()
        ->check(CLI::Range(1, 1024));
    run->add_flag("-q,--quiet", options->quiet, "No progress line and no summary");
    run->add_flag("--json", options->json, "Print the summary as JSON (also with -q)");
    run->add_option("IN", options->input, "The XPS job to read")->required();
    run->add_option("OUT", options->output, "The XPS file to write")->required();
    run->callback([&commands, options] { commands.SetExitCode(Run(*options)); });
}
