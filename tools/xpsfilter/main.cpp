// main.cpp: the xpsfilter command. Each subcommand comes from its own source file and is listed
// here by one line.
#include "commandline.h"

#include <iostream>

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

int main(int argc, char** argv) {
    CLI::App app{"Runs XPS print filter pipelines and works with PrintTickets.", "xpsfilter"};
    app.set_version_flag("--version", std::string("xpsfilter ") + FU_VERSION);
    app.require_subcommand(1);
    xpsfilter::CommandLine commands(app);
    for (xpsfilter::CommandLine::Adder adder : xpsfilter::CommandLine::Adders()) adder(commands);
    try {
        app.parse(argc, argv);
    } catch (const CLI::ParseError& error) {
        int code = app.exit(error);
        return code == 0 ? xpsfilter::kExitOk : xpsfilter::kExitUsage;
    }
    return commands.ExitCode();
}
