// main.cpp: the xpsfilter command. Each subcommand comes from its own source file and is listed
// here by one line.
#include "commandline.h"

#include <algorithm>
#include <cstdlib>
#include <iostream>
#include <string>
#include <vector>

#include "datafiles.h"
#include "debuglog.h"
#include "inputsource.h"
#include "pipelinehost/allocatortuning.h"
#include "pipelinehost/temporaryfiles.h"
#include "platform/win32/kernel.h"
#include "signalcleanup.h"
#include "toolerror.h"

XPSFILTER_SUBCOMMAND(Run);
XPSFILTER_SUBCOMMAND(Ticket);
XPSFILTER_SUBCOMMAND(Devmode);

namespace xpsfilter {

namespace {
std::vector<CommandLine::Adder>& Registered() {
    static std::vector<CommandLine::Adder> adders;
    return adders;
}
}  // namespace

bool CommandLine::Register(Adder adder) {
    Registered().push_back(adder);
    return true;
}

const std::vector<CommandLine::Adder>& CommandLine::Adders() {
    return Registered();
}

int ExitCodeFor(pipelinehost::ErrorKind kind) {
    using pipelinehost::ErrorKind;
    switch (kind) {
        case ErrorKind::InputMissing:
            return kExitInputMissing;
        case ErrorKind::NotZip:
            return kExitNotZip;
        case ErrorKind::BadPackage:
            return kExitBadPackage;
        case ErrorKind::LimitExceeded:
            return kExitLimit;
        case ErrorKind::BadTicket:
            return kExitBadTicket;
        case ErrorKind::Config:
            return kExitPipeline;
        case ErrorKind::Filter:
            return kExitFilter;
        case ErrorKind::Output:
            return kExitOutput;
        case ErrorKind::Internal:
            return kExitInternal;
    }
    return kExitInternal;
}

}  // namespace xpsfilter

// Listed after every other subcommand: `ticket set-media` joins the `ticket` group, which must
// exist by then when another subcommand makes it.
XPSFILTER_SUBCOMMAND(Printer);
XPSFILTER_SUBCOMMAND(TicketSetMedia);
XPSFILTER_SUBCOMMAND(TicketEffective);
XPSFILTER_SUBCOMMAND(Inspect);
XPSFILTER_SUBCOMMAND(Caps);
XPSFILTER_SUBCOMMAND(TicketValidate);

namespace {

std::size_t EditDistance(const std::string& a, const std::string& b) {
    std::vector<std::size_t> row(b.size() + 1);
    for (std::size_t j = 0; j <= b.size(); ++j) row[j] = j;
    for (std::size_t i = 1; i <= a.size(); ++i) {
        std::size_t diagonal = row[0];
        row[0] = i;
        for (std::size_t j = 1; j <= b.size(); ++j) {
            const std::size_t above = row[j];
            const bool transposed = i > 1 && j > 1 && a[i - 1] == b[j - 2] && a[i - 2] == b[j - 1];
            row[j] = std::min({row[j] + 1, row[j - 1] + 1,
                               diagonal + (a[i - 1] == b[j - 1] || transposed ? 0 : 1)});
            diagonal = above;
        }
    }
    return row[b.size()];
}

// Walks the command words of the command line (options of the command groups take no values)
// and returns the message for the first word that names no subcommand of its group, or "".
std::string UnknownCommand(CLI::App& app, int argc, char** argv) {
    CLI::App* group = &app;
    std::string path = "xpsfilter";
    for (int i = 1; i < argc; ++i) {
        const std::string word = argv[i];
        if (word == "--") break;
        if (!word.empty() && word[0] == '-') continue;
        const std::vector<CLI::App*> commands = group->get_subcommands({});
        if (commands.empty()) break;
        CLI::App* next = nullptr;
        for (CLI::App* command : commands) {
            if (command->check_name(word)) next = command;
        }
        if (next != nullptr) {
            group = next;
            path += " " + word;
            continue;
        }
        std::string nearest;
        std::size_t best = std::max<std::size_t>(2, word.size() / 2) + 1;
        for (const CLI::App* command : commands) {
            const std::size_t distance = EditDistance(word, command->get_name());
            if (distance < best) {
                best = distance;
                nearest = command->get_name();
            }
        }
        const std::string prefix = group == &app ? "" : path.substr(10) + " ";
        std::string message = "unknown command \"" + prefix + word + "\"";
        if (!nearest.empty()) return message + "; did you mean \"" + prefix + nearest + "\"?";
        std::string names;
        for (const CLI::App* command : commands) {
            names += (names.empty() ? "" : ", ") + command->get_name();
        }
        return message + " (the commands are " + names + ")";
    }
    return {};
}

// Turns on reproducible output: SOURCE_DATE_EPOCH dates the ZIP items (1980-01-01, the first
// date a ZIP item can carry, when --reproducible is given without it) and GetTickCount counts
// calls, so that part names made unique with it repeat from run to run.
void MakeReproducible() {
    const char* epoch = std::getenv("SOURCE_DATE_EPOCH");
    if (epoch == nullptr || *epoch == '\0') ::setenv("SOURCE_DATE_EPOCH", "315532800", 1);
    platform::SetReproducibleTicks(true);
}

}  // namespace

int main(int argc, char** argv) {
    pipelinehost::TuneAllocatorForJobs();
    xpsfilter::SignalCleanup::Start();
    xpsfilter::DebugLog::Install(false);
    xpsfilter::DataFiles::UseSamplePrinters();
    const char* epoch = std::getenv("SOURCE_DATE_EPOCH");
    if (epoch != nullptr && *epoch != '\0') MakeReproducible();

    CLI::App app{"Runs XPS print filter pipelines and works with PrintTickets.", "xpsfilter"};
    // Set before the subcommands are added: they inherit both.
    app.failure_message([](const CLI::App* failed, const CLI::Error& error) {
        std::string what = error.what();
        std::replace(what.begin(), what.end(), '\n', ' ');
        // The help of the innermost command given.
        std::string command = failed->get_name();
        for (std::vector<CLI::App*> given = failed->get_subcommands(); !given.empty();
             given = given.front()->get_subcommands()) {
            command += " " + given.front()->get_name();
        }
        return "xpsfilter: " + what + " (see '" + command + " --help')\n";
    });
    app.fallthrough();
    app.set_version_flag("--version", std::string("xpsfilter ") + FU_VERSION);
    app.add_flag_callback(
           "-v,--verbose", [] { xpsfilter::DebugLog::Install(true); },
           "Show the library's debug output on stderr")
        ->trigger_on_parse();
    app.add_flag_callback("--reproducible", &MakeReproducible,
                          "Byte-identical output from run to run (as with SOURCE_DATE_EPOCH)")
        ->trigger_on_parse();
    app.require_subcommand(1);
    xpsfilter::CommandLine commands(app);
    for (xpsfilter::CommandLine::Adder adder : xpsfilter::CommandLine::Adders()) adder(commands);

    int code = xpsfilter::kExitOk;
    const std::string unknown = UnknownCommand(app, argc, argv);
    if (!unknown.empty()) {
        std::cerr << "xpsfilter: " << unknown << "\n";
        code = xpsfilter::kExitUsage;
    } else {
        try {
            app.parse(argc, argv);
            code = commands.ExitCode();
        } catch (const CLI::ParseError& error) {
            code = app.exit(error) == 0 ? xpsfilter::kExitOk : xpsfilter::kExitUsage;
        } catch (const xpsfilter::ToolError& error) {
            std::cerr << "xpsfilter: " << xpsfilter::InputSource::Readable(error.message) << "\n";
            code = error.exitCode;
        }
    }
    std::cout.flush();
    pipelinehost::TemporaryFiles::RemoveAll();
    return code;
}
