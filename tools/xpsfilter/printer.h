// printer.h: what the `printer` and `ticket set-media` subcommands share: their exit codes, the
// check of a printer's configuration in the printer registry, the printer's filtered form list
// and the PageMediaSize option name of a form.
#pragma once

#include <functional>
#include <stdexcept>
#include <string>
#include <vector>

#include "filterpipeline/filterutilities/pagemediasizeptpchelper.h"
#include "filterpipeline/filterutilities/printschema.h"

class PageSizeDictionary;

namespace xpsfilter {

// Exit codes of the printer and media size commands, following those of commandline.h
// (documented in docs/xpsfilter.md).
enum PrinterExitCode : int {
    kExitPrinterConfig = 11,   // the printer registry or the printer's printer.ini is missing or
                               // damaged, or the printer lists no usable form
    kExitUnknownPrinter = 12,  // the registry has no printer of that name
    kExitBadSize = 13,         // a size of zero, below zero or too large
    kExitNoMatchingForm = 14,  // no form of the size, and no custom-size entry to fall back on
    kExitCoreLibrary = 15,     // the core library (page size dictionary) cannot be loaded
};

// A failure that ends one of these commands: the exit code and the message for stderr.
class CommandError : public std::runtime_error {
public:
    CommandError(int exitCode, const std::string& message)
        : std::runtime_error(message), m_exitCode(exitCode) {}
    int ExitCode() const { return m_exitCode; }

private:
    int m_exitCode;
};

// Throws a CommandError unless the printer registry has the printer and its printer.ini is
// readable text whose every form line is understood.
void CheckPrinterConfiguration(const std::string& printer);

// The printer's form list as a filter sees it (impersonating the process's user, filtered for
// PrintTickets). Throws a CommandError when it is empty.
PageMediaSizePtPcHelper::FormsInfoList FilteredForms(const std::string& printer);

// A form's PageMediaSize option name and namespace; `error` gets why a form has none.
struct OptionName {
    std::wstring name;  // "" when the dictionary has no entry for the form
    PrintSchema::MsPrintTicketNamespacesEnum ns = PrintSchema::MsPrintTicketKeywordsNamespace;
    std::string error;  // "" unless the form cannot be named at all
};
OptionName NameOf(PageSizeDictionary& dictionary, const PageMediaSizePtPcHelper::FormsInfoRec& form,
                  bool isPostScript);

// Runs a command body: CommandError, the core library's load failure and other exceptions
// become a message on stderr and an exit code.
int RunGuarded(const std::function<int()>& body);

// "psk" or "zk": the prefix a ticket of this tool gives the namespace.
const char* NamespaceLabel(PrintSchema::MsPrintTicketNamespacesEnum ns);

}  // namespace xpsfilter
