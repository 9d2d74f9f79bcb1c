// commandline.h: what the xpsfilter subcommands share: the registration of subcommands, the
// process exit codes and how a job error maps onto them. A subcommand lives in its own source
// file, defines `void Add<Name>Command(xpsfilter::CommandLine&)` and is listed in main.cpp by
// one XPSFILTER_SUBCOMMAND(<Name>) line.
#pragma once

#include <CLI/CLI.hpp>

#include <cstdio>
#include <string>
#include <vector>

#include "pipelinehost/hosterror.h"

namespace xpsfilter {

// Exit codes of the xpsfilter command (documented in docs/xpsfilter.md).
enum ExitCode : int {
    kExitOk = 0,
    kExitInternal = 1,      // an unexpected failure
    kExitUsage = 2,         // bad command line
    kExitInputMissing = 3,  // the input file does not exist or cannot be read
    kExitNotZip = 4,        // the input is not a ZIP archive, or is truncated or damaged
    kExitBadPackage = 5,    // the input is not a valid XPS package
    kExitLimit = 6,         // a part inflates beyond the allowed size
    kExitBadTicket = 7,     // the ticket file is missing or not well-formed
    kExitPipeline = 8,      // bad pipeline configuration, or a filter cannot be created
    kExitFilter = 9,        // a filter failed, threw, stopped the job or did not finish
    kExitOutput = 10,       // the output cannot be written
};

int ExitCodeFor(pipelinehost::ErrorKind kind);

// An HRESULT as messages show it: 0x80070057.
inline std::string Hex(HRESULT hr) {
    char text[16];
    std::snprintf(text, sizeof text, "0x%08X", static_cast<unsigned>(hr));
    return text;
}

class CommandLine {
public:
    using Adder = void (*)(CommandLine&);
    static bool Register(Adder adder);
    static const std::vector<Adder>& Adders();

    explicit CommandLine(CLI::App& app) : m_app(app) {}
    CLI::App& App() { return m_app; }
    // The group of subcommands `name` (`ticket`, `devmode` ...), made by whichever command file
    // adds to it first and joined by the others; it requires one of its subcommands.
    CLI::App* Group(const std::string& name, const std::string& description) {
        try {
            return m_app.get_subcommand(name);
        } catch (const CLI::OptionNotFound&) {
            CLI::App* group = m_app.add_subcommand(name, description);
            group->require_subcommand(1);
            return group;
        }
    }
    // A subcommand's callback stores the code the process exits with.
    void SetExitCode(int code) { m_exitCode = code; }
    int ExitCode() const { return m_exitCode; }

private:
    CLI::App& m_app;
    int m_exitCode = kExitOk;
};

}  // namespace xpsfilter

#define XPSFILTER_SUBCOMMAND(Name)                             \
    void Add##Name##Command(xpsfilter::CommandLine& commands); \
    static const bool kRegistered##Name = xpsfilter::CommandLine::Register(&Add##Name##Command)
