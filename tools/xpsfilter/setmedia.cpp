// setmedia.cpp: `xpsfilter ticket set-media TICKET --printer NAME --size WxH [--postscript]
// [-o OUT]` rewrites a PrintTicket's PageMediaSize from the printer's form of that size (or from
// its custom-size entry when it has no form of the size), as a driver's filter does with the
// page media size helper. Sizes are microns unless a unit follows: um, mm or in ("210x297mm",
// "8.5x11in", "210000x297000"). The command joins the `ticket` group.
#include <unistd.h>

#include <cerrno>
#include <climits>
#include <cmath>
#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <iostream>
#include <memory>
#include <string>

#include "commandline.h"
#include "inputsource.h"
#include "outputtarget.h"
#include "filterpipeline/filterutilities/pagemediasizeptpchelper.h"
#include "filterpipeline/filterutilities/printticketxmldocument.h"
#include "platform/com/atl.h"
#include "platform/com/comruntime.h"
#include "platform/com/unicode.h"
#include "platform/msxml/msxml6.h"
#include "platform/prntvpt/prntvpt.h"
#include "printer.h"
#include "support/utilities/exceptions.h"
#include "utilitiesstaticlib/pagesizedictionary.h"

namespace xpsfilter {

namespace {

namespace fs = std::filesystem;
using FormsInfoRec = PageMediaSizePtPcHelper::FormsInfoRec;

struct SetMediaOptions {
    std::string ticket;
    std::string printer;
    std::string size;
    std::string output;
    bool postScript = false;
};

struct SizeMicrons {
    int width = 0;
    int height = 0;
};

// One length of a size: the number and its unit ("" when none was written).
struct Length {
    double value = 0;
    std::string unit;
};

CommandError SizeUsageError(const std::string& whole) {
    return CommandError(kExitUsage, "--size " + whole +
                                        ": expected WIDTHxHEIGHT, in microns or with a unit um, "
                                        "mm or in (210x297mm, 8.5x11in)");
}

Length ParseLength(const std::string& text, const std::string& whole) {
    std::size_t begin = text.find_first_not_of(' ');
    if (begin == std::string::npos) throw SizeUsageError(whole);
    const char* start = text.c_str() + begin;
    char* end = nullptr;
    errno = 0;
    Length length;
    length.value = std::strtod(start, &end);
    if (end == start || errno == ERANGE || !std::isfinite(length.value)) {
        throw SizeUsageError(whole);
    }
    std::string unit(end);
    while (!unit.empty() && unit.back() == ' ') unit.pop_back();
    while (!unit.empty() && unit.front() == ' ') unit.erase(0, 1);
    for (char& c : unit) c = static_cast<char>(std::tolower(static_cast<unsigned char>(c)));
    if (!unit.empty() && unit != "um" && unit != "mm" && unit != "in") {
        throw SizeUsageError(whole);
    }
    length.unit = unit;
    return length;
}

int ToMicrons(const Length& length, const std::string& whole) {
    const double perUnit = length.unit == "mm" ? 1000.0 : length.unit == "in" ? 25400.0 : 1.0;
    const double microns = std::round(length.value * perUnit);
    if (microns <= 0) {
        throw CommandError(kExitBadSize, "--size " + whole +
                                             ": the width and the height must be greater than "
                                             "zero (at least one micron)");
    }
    if (microns > INT_MAX) {
        throw CommandError(kExitBadSize, "--size " + whole + ": a length is larger than " +
                                             std::to_string(INT_MAX) + " microns");
    }
    return static_cast<int>(microns);
}

// "WxH": a unit written once applies to both lengths.
SizeMicrons ParseSize(const std::string& text) {
    const std::size_t separator = text.find_first_of("xX");
    if (separator == std::string::npos || text.find_first_of("xX", separator + 1) != text.npos) {
        throw SizeUsageError(text);
    }
    Length width = ParseLength(text.substr(0, separator), text);
    Length height = ParseLength(text.substr(separator + 1), text);
    if (width.unit.empty()) width.unit = height.unit;
    if (height.unit.empty()) height.unit = width.unit;
    return {ToMicrons(width, text), ToMicrons(height, text)};
}

std::string ReadTicketBytes(const std::string& path) {
    std::error_code error;
    if (fs::is_directory(path, error)) {
        throw CommandError(kExitInputMissing, "cannot open the ticket file " + path);
    }
    std::ifstream in(path, std::ios::binary);
    if (!in) throw CommandError(kExitInputMissing, "cannot open the ticket file " + path);
    std::string bytes;
    char buffer[64 * 1024];
    while (in.read(buffer, sizeof buffer) || in.gcount() > 0) {
        bytes.append(buffer, static_cast<std::size_t>(in.gcount()));
        if (bytes.size() > platform::kMaxPrintTicketBytes) {
            throw CommandError(kExitBadTicket,
                               "the ticket file " + path + " is larger than the limit of " +
                                   std::to_string(platform::kMaxPrintTicketBytes) + " bytes");
        }
    }
    if (in.bad()) throw CommandError(kExitInputMissing, "cannot read the ticket file " + path);
    return bytes;
}

CComPtr<IXMLDOMDocument2> LoadTicket(const std::string& path) {
    const std::string bytes = ReadTicketBytes(path);
    CComPtr<IXMLDOMDocument2> document;
    if (FAILED(document.CoCreateInstance(CLSID_DOMDocument60))) {
        throw CommandError(kExitInternal, "no XML DOM available");
    }
    CComPtr<IStream> stream;
    if (FAILED(platform::CreateMemoryStream(bytes.data(), bytes.size(), &stream))) {
        throw CommandError(kExitInternal, "out of memory");
    }
    VARIANT_BOOL loaded = VARIANT_FALSE;
    const HRESULT hr = document->load(CComVariant(static_cast<IUnknown*>(stream.p)), &loaded);
    if (FAILED(hr) || loaded != VARIANT_TRUE) {
        std::string reason;
        CComPtr<IXMLDOMParseError> parseError;
        CComBSTR text;
        if (SUCCEEDED(document->get_parseError(&parseError)) && parseError &&
            SUCCEEDED(parseError->get_reason(&text)) && text.Length() > 0) {
            reason = ": " + platform::WideToUtf8(text.m_str);
        }
        throw CommandError(kExitBadTicket, path + " is not well-formed XML" + reason);
    }
    return document;
}

// The document's UTF-8 serialisation, with its XML declaration.
std::string Serialise(IXMLDOMDocument2* document) {
    CComPtr<IStream> stream;
    if (FAILED(document->QueryInterface(IID_IStream, reinterpret_cast<void**>(&stream)))) {
        throw CommandError(kExitInternal, "cannot serialise the ticket");
    }
    std::string text;
    char buffer[64 * 1024];
    for (;;) {
        ULONG read = 0;
        const HRESULT hr = stream->Read(buffer, sizeof buffer, &read);
        if (FAILED(hr)) throw CommandError(kExitInternal, "cannot serialise the ticket");
        text.append(buffer, read);
        if (read == 0 || hr == S_FALSE) break;
    }
    return text;
}

std::unique_ptr<PrintTicketXmlDocument> WrapTicket(IXMLDOMDocument2* document,
                                                   const std::string& path) {
    try {
        return std::make_unique<PrintTicketXmlDocument>(document);
    } catch (const ZorunComException&) {
        throw CommandError(kExitBadTicket, path + " is not a PrintTicket");
    }
}

std::wstring Text(const CComBSTR& text) {
    return text.m_str == nullptr ? std::wstring() : std::wstring(text.m_str);
}

// Declares `uri` on the root element, as `preferred` or, when the root already declares that
// prefix, as the first of preferred1, preferred2, ... that it does not.
void DeclareNamespace(IXMLDOMElement* root, const std::wstring& preferred, const wchar_t* uri) {
    for (int suffix = 0; suffix < 100; ++suffix) {
        const std::wstring prefix = suffix == 0 ? preferred : preferred + std::to_wstring(suffix);
        const CComBSTR attribute((L"xmlns:" + prefix).c_str());
        CComVariant existing;
        if (root->getAttribute(attribute, &existing) == S_OK) continue;
        if (SUCCEEDED(root->setAttribute(attribute, CComVariant(uri)))) return;
        break;
    }
    throw CommandError(kExitInternal, "cannot declare the namespace " + platform::WideToUtf8(uri) +
                                          " in the ticket");
}

// The ticket, with the namespaces the new PageMediaSize is written in declared on its root
// element when it does not declare them yet: the Print Schema keywords, XML Schema and its
// instance namespace, and (for a private option) the driver's private keywords. Undeclared, the
// names would be written without a prefix, or with one the ticket does not bind.
std::unique_ptr<PrintTicketXmlDocument> PrepareTicket(
    IXMLDOMDocument2* document, std::unique_ptr<PrintTicketXmlDocument> ticket, bool privateOption,
    const std::string& path) {
    struct Namespace {
        bool missing;
        const wchar_t* preferred;
        const wchar_t* uri;
    };
    const Namespace namespaces[] = {
        {ticket->GetKeywordsNsPrefix().m_str == nullptr, L"psk", PrintSchema::KeywordsNamespaceUri},
        {ticket->GetXmlSchemaNsPrefix().m_str == nullptr, L"xsd",
         PrintSchema::XmlSchemaNamespaceUri},
        {ticket->GetXmlSchemaInstanceNsPrefix().m_str == nullptr, L"xsi",
         PrintSchema::XmlSchemaInstanceNamespaceUri},
        {privateOption &&
             Text(ticket->GetUserKeywordsNsPrefix()) != PrintSchema::PrivateKeywordsPrefix,
         L"zk", PrintSchema::PrivateKeywordsNamespaceUri},
    };
    bool declared = false;
    for (const Namespace& ns : namespaces) {
        if (!ns.missing) continue;
        CComPtr<IXMLDOMElement> root;
        if (FAILED(document->get_documentElement(&root)) || !root) {
            throw CommandError(kExitInternal, "the ticket has no root element");
        }
        DeclareNamespace(root, ns.preferred, ns.uri);
        declared = true;
    }
    return declared ? WrapTicket(document, path) : std::move(ticket);
}

int SetMedia(const SetMediaOptions& options) {
    const OutputTarget target = OutputTarget::Resolve(options.output);
    const SizeMicrons size = ParseSize(options.size);
    CheckPrinterConfiguration(options.printer);
    CComPtr<IXMLDOMDocument2> document = LoadTicket(InputSource::Path(options.ticket));
    std::unique_ptr<PrintTicketXmlDocument> ticket = WrapTicket(document, options.ticket);

    const PageMediaSizePtPcHelper::FormsInfoList forms = FilteredForms(options.printer);
    FormsInfoRec form{};
    const HRESULT match = PageMediaSizePtPcHelper::FindFormInfoRect(forms, size.width, size.height,
                                                                    DataModelIds::ValueAny, &form);
    if (match != S_OK && form.kind != MSDeviceCapabilities::FormKindCustomSizeEntry) {
        throw CommandError(kExitNoMatchingForm,
                           "the printer \"" + options.printer + "\" has no form of " +
                               std::to_string(size.width / 100) + "x" +
                               std::to_string(size.height / 100) +
                               " tenths of a millimetre and no custom-size entry");
    }

    PageSizeDictionary dictionary(nullptr);
    const OptionName name = NameOf(dictionary, form, options.postScript);
    if (!name.error.empty()) {
        throw CommandError(kExitPrinterConfig, "the printer's form " +
                                                   platform::WideToUtf8(platform::FormName(form)) +
                                                   " " + name.error);
    }
    ticket =
        PrepareTicket(document, std::move(ticket),
                      name.ns == PrintSchema::MsPrintTicketUserKeywordsNamespace, options.ticket);
    PageMediaSizePtPcHelper::AddOrReplacePageMediaSize(*ticket, options.postScript, dictionary,
                                                       form);
    target.WriteText(Serialise(document));

    const std::wstring prefix = Text(name.ns == PrintSchema::MsPrintTicketUserKeywordsNamespace
                                         ? ticket->GetUserKeywordsNsPrefix()
                                         : ticket->GetKeywordsNsPrefix());
    std::cerr << "xpsfilter: PageMediaSize "
              << (name.name.empty() ? std::string("(unnamed option)")
                                    : platform::WideToUtf8(prefix + name.name))
              << ", " << form.width << "x" << form.height << " tenths of a millimetre"
              << (match == S_OK
                      ? ", form \"" + platform::WideToUtf8(platform::FormName(form)) + "\""
                      : std::string(", the printer's custom size"))
              << "\n";
    return kExitOk;
}

}  // namespace

}  // namespace xpsfilter

// Joins the `ticket` group when another subcommand made it, else makes it.
void AddTicketSetMediaCommand(xpsfilter::CommandLine& commands) {
    CLI::App* ticket = commands.Group("ticket", "Work with PrintTickets");

    auto options = std::make_shared<xpsfilter::SetMediaOptions>();
    CLI::App* command = ticket->add_subcommand(
        "set-media", "Set the ticket's PageMediaSize to the printer's form of a size");
    command->add_option("TICKET", options->ticket, "The PrintTicket file; - reads standard input")
        ->required();
    command->add_option("--printer", options->printer, "The printer whose forms are used")
        ->required();
    command
        ->add_option("--size", options->size,
                     "WIDTHxHEIGHT in microns, or with a unit: 210x297mm, 8.5x11in")
        ->required();
    command->add_flag("--postscript", options->postScript,
                      "Write custom sizes as a PostScript driver does (PSCustomMediaSize)");
    command->add_option("-o,--output", options->output,
                        "Where to write the ticket (default: standard output)");
    command->callback([&commands, options] {
        commands.SetExitCode(xpsfilter::RunGuarded([&] { return xpsfilter::SetMedia(*options); }));
    });
}
