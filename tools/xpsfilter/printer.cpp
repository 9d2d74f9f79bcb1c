// printer.cpp: `xpsfilter printer forms NAME [--postscript]` lists the printer's form list as a
// filter sees it (filtered for PrintTickets): each form's kind, paper id, size in tenths of a
// millimetre and in microns, data-model value, and the PageMediaSize option it becomes in a
// ticket with its namespace. Also the checks of a printer's configuration that the media size
// commands share (printer.h).
#include "printer.h"

#include <cstdio>
#include <filesystem>
#include <fstream>
#include <iostream>
#include <memory>
#include <sstream>

#include "commandline.h"
#include "inputsource.h"
#include "ticketcontents.h"
#include "platform/com/unicode.h"
#include "platform/win32/kernel.h"
#include "platform/win32/printers.h"
#include "platform/win32/security.h"
#include "platform/win32/winspool.h"
#include "support/core/zoruncoreapi.h"
#include "support/utilities/exceptions.h"
#include "utilitiesstaticlib/pagesizedictionary.h"

namespace xpsfilter {

namespace {

namespace fs = std::filesystem;
using FormsInfoRec = PageMediaSizePtPcHelper::FormsInfoRec;

using xpsfilter::Hex;

// A file that is not text: NUL bytes without the byte-order mark of UTF-16.
bool LooksBinary(const std::string& bytes) {
    const bool utf16 = bytes.size() >= 2 && ((bytes[0] == '\xFF' && bytes[1] == '\xFE') ||
                                             (bytes[0] == '\xFE' && bytes[1] == '\xFF'));
    return !utf16 && bytes.find('\0') != std::string::npos;
}

const char* KindLabel(DWORD kind) {
    switch (kind) {
        case MSDeviceCapabilities::FormKindPredefined:
            return "predefined";
        case MSDeviceCapabilities::FormKindKnownToDictionary:
            return "dictionary";
        case MSDeviceCapabilities::FormKindDriverCustomSize:
            return "driver-custom";
        case MSDeviceCapabilities::FormKindStandard:
            return "standard";
        case MSDeviceCapabilities::FormKindUser:
            return "user";
        case MSDeviceCapabilities::FormKindCustomSizeEntry:
            return "custom-entry";
        default:
            return "unknown";
    }
}

struct FormsOptions {
    std::string printer;
    bool postScript = false;
    bool json = false;
};

// The form list as one JSON object: the printer and one member per column of the text form.
std::string FormsJson(const std::string& printer,
                      const PageMediaSizePtPcHelper::FormsInfoList& forms,
                      PageSizeDictionary& dictionary, bool postScript) {
    std::string json = "{\n  \"printer\": " + JsonString(printer) + ",\n  \"forms\": [";
    bool first = true;
    for (const FormsInfoRec& form : forms) {
        const OptionName name = NameOf(dictionary, form, postScript);
        json +=
            std::string(first ? "" : ",") + "\n    {\"kind\": " + std::to_string(form.kind) +
            ", \"kindLabel\": " + JsonString(KindLabel(form.kind)) +
            ", \"paperSize\": " + std::to_string(form.paperId) +
            ", \"width\": " + std::to_string(static_cast<unsigned long long>(form.width) * 100) +
            ", \"height\": " + std::to_string(static_cast<unsigned long long>(form.height) * 100) +
            ", \"value\": " + std::to_string(static_cast<int>(form.dataModelValue)) +
            ", \"namespace\": " +
            (name.error.empty() ? JsonString(NamespaceLabel(name.ns)) : std::string("null")) +
            ", \"option\": " +
            (name.error.empty() && !name.name.empty() ? JsonString(platform::WideToUtf8(name.name))
                                                      : std::string("null")) +
            (name.error.empty() ? "" : ", \"error\": " + JsonString(name.error)) +
            ", \"name\": " + JsonString(platform::WideToUtf8(platform::FormName(form))) + "}";
        first = false;
    }
    return json + (forms.empty() ? "]" : "\n  ]") + "\n}\n";
}

int ListForms(const FormsOptions& options) {
    CheckPrinterConfiguration(options.printer);
    const PageMediaSizePtPcHelper::FormsInfoList forms = FilteredForms(options.printer);
    PageSizeDictionary dictionary(nullptr);
    if (options.json) {
        std::cout << FormsJson(options.printer, forms, dictionary, options.postScript);
        std::cout.flush();
        return std::cout.good() ? kExitOk : kExitOutput;
    }

    std::ostringstream out;
    char line[512];
    std::snprintf(line, sizeof line, "%-20s %6s %-15s %-21s %7s %-4s %s\n", "KIND", "PAPER",
                  "SIZE (0.1 MM)", "SIZE (MICRONS)", "VALUE", "NS", "OPTION");
    out << line;
    for (const FormsInfoRec& form : forms) {
        const OptionName name = NameOf(dictionary, form, options.postScript);
        const std::string tenths = std::to_string(form.width) + "x" + std::to_string(form.height);
        const std::string microns =
            std::to_string(static_cast<unsigned long long>(form.width) * 100) + "x" +
            std::to_string(static_cast<unsigned long long>(form.height) * 100);
        std::string option = !name.error.empty() ? "(" + name.error + ")"
                             : name.name.empty() ? "(not in the dictionary)"
                                                 : platform::WideToUtf8(name.name);
        std::string kind = std::to_string(form.kind) + " " + KindLabel(form.kind);
        std::snprintf(line, sizeof line, "%-20s %6u %-15s %-21s %7d %-4s %s", kind.c_str(),
                      static_cast<unsigned>(form.paperId), tenths.c_str(), microns.c_str(),
                      static_cast<int>(form.dataModelValue),
                      name.error.empty() ? NamespaceLabel(name.ns) : "-", option.c_str());
        out << line << "  " << platform::WideToUtf8(platform::FormName(form)) << "\n";
    }
    std::cout << out.str();
    std::cout.flush();
    return std::cout.good() ? kExitOk : kExitOutput;
}

}  // namespace

const char* NamespaceLabel(PrintSchema::MsPrintTicketNamespacesEnum ns) {
    return ns == PrintSchema::MsPrintTicketUserKeywordsNamespace ? "zk" : "psk";
}

void CheckPrinterConfiguration(const std::string& printer) {
    const std::string registry = platform::PrinterRegistryDirectory();
    std::error_code error;
    if (!fs::is_directory(registry, error)) {
        throw CommandError(kExitPrinterConfig,
                           "the printer registry " + registry +
                               " does not exist (FU_PRINTER_REGISTRY names it; see "
                               "docs/printers.md)");
    }
    const std::wstring wide = platform::Utf8ToWide(printer);
    const std::string directory = platform::FindPrinterDirectory(wide.c_str());
    if (directory.empty()) {
        throw CommandError(kExitUnknownPrinter, "the printer registry " + registry +
                                                    " has no printer \"" + printer + "\"");
    }
    const fs::path ini = fs::path(directory) / "printer.ini";
    if (!fs::is_regular_file(ini, error)) {
        throw CommandError(kExitPrinterConfig,
                           "the printer configuration " + ini.string() + " is missing");
    }
    std::ifstream in(ini, std::ios::binary);
    std::ostringstream bytes;
    bytes << in.rdbuf();
    if (!in.good() && !in.eof()) {
        throw CommandError(kExitPrinterConfig,
                           "the printer configuration " + ini.string() + " cannot be read");
    }
    if (LooksBinary(bytes.str())) {
        throw CommandError(kExitPrinterConfig,
                           "the printer configuration " + ini.string() + " is not a text file");
    }
    const platform::PrinterConfiguration configuration =
        platform::ReadPrinterConfiguration(wide.c_str());
    if (!configuration.rejectedForms.empty()) {
        std::string message = "the printer configuration " + ini.string() +
                              " has form lines that are not kind,paper id,width,height,value:";
        for (const std::wstring& rejected : configuration.rejectedForms) {
            message += "\n  " + platform::WideToUtf8(rejected);
        }
        throw CommandError(kExitPrinterConfig, message);
    }
}

PageMediaSizePtPcHelper::FormsInfoList FilteredForms(const std::string& printer) {
    HANDLE token = nullptr;
    if (!OpenProcessToken(GetCurrentProcess(), TOKEN_ALL_ACCESS, &token)) {
        throw CommandError(kExitInternal, "cannot open the process token");
    }
    std::unique_ptr<void, BOOL (*)(HANDLE)> closeToken(token, &CloseHandle);
    CXString name(printer.c_str());
    PageMediaSizePtPcHelper::FormsInfoList forms =
        PageMediaSizePtPcHelper::GetFilteredPaperInfoForAnXpsFilter(name, token);
    if (forms.empty()) {
        throw CommandError(kExitPrinterConfig,
                           "the printer \"" + printer + "\" lists no form a PrintTicket can use");
    }
    return forms;
}

OptionName NameOf(PageSizeDictionary& dictionary, const FormsInfoRec& form, bool isPostScript) {
    OptionName result;
    CXString name;
    try {
        PageMediaSizePtPcHelper::GetMsPageMediaSizeOptionName(form.paperId == 256, isPostScript,
                                                              dictionary, form, &name, &result.ns);
        result.name = name.Str();
    } catch (const ZorunComException& error) {
        result.error = "cannot be named: kind " + std::to_string(form.kind) + ", paper id " +
                       std::to_string(form.paperId) + " (" + Hex(error.GetHresult()) + ")";
    }
    return result;
}

int RunGuarded(const std::function<int()>& body) {
    try {
        return body();
    } catch (const CommandError& error) {
        std::cerr << "xpsfilter: " << InputSource::Readable(error.what()) << "\n";
        return error.ExitCode();
    } catch (const ExceptionDelayLoadDllLoadFailure&) {
        std::string directory(1024, '\0');
        DWORD needed = 0;
        if (GetPrinterDriverDirectoryA(nullptr, nullptr, 1,
                                       reinterpret_cast<LPBYTE>(directory.data()),
                                       static_cast<DWORD>(directory.size()), &needed)) {
            directory.resize(directory.find('\0'));
        } else {
            directory = "the printer driver directory";
        }
        std::cerr << "xpsfilter: the core library " << ZORUNCORE_LIBRARY_FILE_NAME
                  << " (the page size dictionary) cannot be loaded: it is neither beside "
                     "libfilterutilities nor in "
                  << directory << "/3\n";
        return kExitCoreLibrary;
    } catch (const ZorunComException& error) {
        std::cerr << "xpsfilter: " << error.Describe().ToUtf8() << "\n";
    } catch (const std::bad_alloc&) {
        std::cerr << "xpsfilter: internal error: out of memory\n";
    } catch (const std::exception& error) {
        std::cerr << "xpsfilter: internal error: " << error.what() << "\n";
    }
    return kExitInternal;
}

}  // namespace xpsfilter

void AddPrinterCommand(xpsfilter::CommandLine& commands) {
    CLI::App* printer = commands.App().add_subcommand(
        "printer", "Show what a printer of the printer registry reports to filters");
    printer->require_subcommand(1);

    auto forms = std::make_shared<xpsfilter::FormsOptions>();
    CLI::App* formsCommand = printer->add_subcommand(
        "forms",
        "List the printer's forms as a filter sees them, with their PageMediaSize options");
    formsCommand->add_option("NAME", forms->printer, "The printer's name")->required();
    formsCommand->add_flag("--postscript", forms->postScript,
                           "Name custom sizes as a PostScript driver does (PSCustomMediaSize)");
    formsCommand->add_flag("--json", forms->json,
                           "Print JSON (sizes in micrometres) instead of the table");
    formsCommand->callback([&commands, forms] {
        commands.SetExitCode(xpsfilter::RunGuarded([&] { return xpsfilter::ListForms(*forms); }));
    });
}
