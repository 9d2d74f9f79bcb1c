// ticket.cpp: `xpsfilter ticket merge BASE DELTA [--scope S] [-o OUT]` merges a delta PrintTicket
// onto a base one through the platform's PrintTicket provider, and `xpsfilter ticket show TICKET
// [--json]` prints what the filter library's typed ticket view reads from a ticket (orientation,
// media size, n-up, binding, scaling, output paper size, watermark) and the features, parameters
// and properties the ticket holds.
#include <unistd.h>

#include <algorithm>
#include <cstdio>
#include <filesystem>
#include <fstream>
#include <iostream>
#include <memory>
#include <sstream>
#include <string>
#include <vector>

#include "commandline.h"
#include "inputsource.h"
#include "outputtarget.h"
#include "ticketcontents.h"
#include "filterpipeline/filterutilities/printreadstreamtoistream.h"
#include "filterpipeline/filterutilities/printschema.h"
#include "filterpipeline/filterutilities/printticketmanager.h"
#include "filterpipeline/filterutilities/printticketxmldocument.h"
#include "filterpipeline/filterutilities/xpsfilterprintticket.h"
#include "platform/com/unicode.h"
#include "platform/printpipeline/printstreams.h"
#include "platform/prntvpt/prntvpt.h"
#include "platform/win32/kernel.h"
#include "platform/win32/security.h"
#include "support/utilities/exceptions.h"

namespace {

namespace fs = std::filesystem;

struct MergeOptions {
    std::string base;
    std::string delta;
    std::string scope = "job";
    std::string output;
};

struct ShowOptions {
    std::string ticket;
    bool json = false;
};

// A failure that ends a ticket subcommand: the message for stderr and the exit code.
struct TicketError {
    int exitCode;
    std::string message;
};

using xpsfilter::Hex;

std::string Narrow(const wchar_t* text) {
    return text == nullptr ? std::string() : platform::WideToUtf8(text);
}

// The exit code for a failure of the provider or of reading a ticket file.
int ExitCodeForTicketFailure(HRESULT hr) {
    if (hr == HRESULT_FROM_WIN32(ERROR_FILE_NOT_FOUND) || hr == E_ACCESSDENIED ||
        hr == STG_E_READFAULT) {
        return xpsfilter::kExitInputMissing;
    }
    if (hr == E_PRINTTICKET_FORMAT || hr == E_DELTA_PRINTTICKET_FORMAT) {
        return xpsfilter::kExitBadTicket;
    }
    return xpsfilter::kExitInternal;
}

int Merge(const MergeOptions& options) {
    const xpsfilter::OutputTarget target = xpsfilter::OutputTarget::Resolve(options.output);
    EPrintTicketScope scope = kPTJobScope;
    if (!platform::ParsePrintTicketScope(options.scope, &scope)) {
        std::cerr << "xpsfilter: --scope must be page, document or job\n";
        return xpsfilter::kExitUsage;
    }
    std::string merged;
    std::string error;
    const HRESULT hr = platform::MergePrintTicketFiles(xpsfilter::InputSource::Path(options.base),
                                                       xpsfilter::InputSource::Path(options.delta),
                                                       scope, merged, error);
    if (FAILED(hr)) {
        std::cerr << "xpsfilter: ticket error: "
                  << xpsfilter::InputSource::Readable(
                         error.empty() ? "the merge failed (" + Hex(hr) + ")" : error)
                  << "\n";
        return ExitCodeForTicketFailure(hr);
    }
    target.WriteText(merged);
    return xpsfilter::kExitOk;
}

// --- show ---

}  // namespace

// What `ticket show` reads from a ticket and how it prints it, shared with `ticket effective`
// (declared in ticketcontents.h).
namespace xpsfilter {

std::string JsonString(const std::string& text) {
    std::string out = "\"";
    for (unsigned char c : text) {
        switch (c) {
            case '"':
                out += "\\\"";
                break;
            case '\\':
                out += "\\\\";
                break;
            case '\n':
                out += "\\n";
                break;
            case '\r':
                out += "\\r";
                break;
            case '\t':
                out += "\\t";
                break;
            default:
                if (c < 0x20) {
                    char escaped[8];
                    std::snprintf(escaped, sizeof escaped, "\\u%04x", c);
                    out += escaped;
                } else {
                    out += static_cast<char>(c);
                }
        }
    }
    return out + "\"";
}

const char* Keyword(const char* const* table, std::size_t count, LONG value) {
    return value >= 0 && static_cast<std::size_t>(value) < count ? table[value] : "unknown";
}

template <std::size_t N>
const char* Keyword(const char* const (&table)[N], LONG value) {
    return Keyword(table, N, value);
}

constexpr const char* kOrientations[] = {"Landscape", "Portrait", "ReverseLandscape",
                                         "ReversePortrait"};
constexpr const char* kScalings[] = {"Custom",
                                     "CustomSquare",
                                     "FitApplicationBleedSizeToPageImageableSize",
                                     "FitApplicationContentSizeToPageImageableSize",
                                     "FitApplicationMediaSizeToPageImageableSize",
                                     "FitApplicationMediaSizeToPageMediaSize",
                                     "None"};
constexpr const char* kBindings[] = {"Bale",
                                     "BindBottom",
                                     "BindLeft",
                                     "BindRight",
                                     "BindTop",
                                     "Booklet",
                                     "EdgeStitchBottom",
                                     "EdgeStitchLeft",
                                     "EdgeStitchRight",
                                     "EdgeStitchTop",
                                     "Fold",
                                     "JogOffset",
                                     "Trim",
                                     "None"};
constexpr const char* kWatermarkTypes[] = {"text", "text and time stamp", "bitmap", "unknown",
                                           "none"};

std::string Microns(LONG width, LONG height) {
    return std::to_string(width) + " x " + std::to_string(height) + " micrometres";
}

std::vector<ViewSetting> ReadView(XpsFilterPrintTicket& view) {
    std::vector<ViewSetting> settings;
    // A getter reports S_FALSE for an absent feature, and S_OK with its defaults when the
    // driver's private data it reads is not in the ticket at all: neither is a value found.
    const bool hasDriverData = !view.GetAttributeBytesIndexedListRef().IsEmpty();
    auto add = [&](ViewSetting setting, bool found, HRESULT status, bool readsDriverData) {
        setting.found = found && status == S_OK && (hasDriverData || !readsDriverData);
        setting.status = status;
        settings.push_back(std::move(setting));
    };
    bool found = false;
    HRESULT status = S_OK;

    const auto orientation = view.GetOrientation(&found, &status);
    add({"orientation",
         "orientation",
         Keyword(kOrientations, orientation),
         {{"value", JsonString(Keyword(kOrientations, orientation))}}},
        found, status, false);

    const auto& media = view.GetPageMediaSize(&found, &status);
    add({"media size",
         "mediaSize",
         Microns(media.width, media.height),
         {{"width", std::to_string(media.width)}, {"height", std::to_string(media.height)}}},
        found, status, true);

    const auto& nUp = view.GetNUp(&found, &status);
    add({"n-up",
         "nUp",
         std::to_string(nUp.pagesPerSheet) + " per sheet",
         {{"pagesPerSheet", std::to_string(nUp.pagesPerSheet)}}},
        found, status, true);

    const auto& binding = view.GetBookletBinding(&found, &status);
    add({"binding",
         "binding",
         Keyword(kBindings, binding.bindingOption),
         {{"option", JsonString(Keyword(kBindings, binding.bindingOption))},
          {"gutter", std::to_string(binding.gutter)},
          {"creep", std::to_string(binding.creep)}}},
        found, status, true);

    const auto& scaling = view.GetPageScaling(&found, &status);
    add({"scaling",
         "scaling",
         std::string(Keyword(kScalings, scaling.option)) + ", " +
             std::to_string(scaling.scaleWidth) + "% x " + std::to_string(scaling.scaleHeight) +
             "%",
         {{"option", JsonString(Keyword(kScalings, scaling.option))},
          {"scaleWidth", std::to_string(scaling.scaleWidth)},
          {"scaleHeight", std::to_string(scaling.scaleHeight)}}},
        found, status, true);

    const auto& paper = view.GetOutputPaperSize(&found, &status);
    add({"output paper size",
         "outputPaperSize",
         paper.fitToOutputPaper ? Microns(paper.width, paper.height) : "none chosen",
         {{"width", std::to_string(paper.width)},
          {"height", std::to_string(paper.height)},
          {"paperSize", std::to_string(paper.paperSize)},
          {"fitToOutputPaper", paper.fitToOutputPaper ? "true" : "false"}}},
        found, status, true);

    const auto& watermark = view.GetWatermark(&found, &status);
    std::string watermarkText = Keyword(kWatermarkTypes, watermark.type);
    const std::string text = Narrow(watermark.text.text.m_str);
    if (!text.empty()) watermarkText += " \"" + text + "\"";
    add({"watermark",
         "watermark",
         watermarkText,
         {{"type", JsonString(Keyword(kWatermarkTypes, watermark.type))},
          {"number", std::to_string(watermark.number)},
          {"text", JsonString(text)}}},
        found, status, false);
    return settings;
}

// --- the items of the ticket, read from its DOM ---

std::string Attribute(IXMLDOMNode* node, const wchar_t* name) {
    CComQIPtr<IXMLDOMElement> element(node);
    if (!element) return "";
    CComVariant value;
    if (element->getAttribute(CComBSTR(name), &value) != S_OK || value.vt != VT_BSTR) return "";
    return Narrow(value.bstrVal);
}

std::string LocalName(IXMLDOMNode* node) {
    CComBSTR name;
    if (FAILED(node->get_baseName(&name))) return "";
    return Narrow(name.m_str);
}

std::string NamespaceOf(IXMLDOMNode* node) {
    CComBSTR uri;
    if (FAILED(node->get_namespaceURI(&uri))) return "";
    return Narrow(uri.m_str);
}

std::vector<CComPtr<IXMLDOMNode>> FrameworkChildren(IXMLDOMNode* parent, const char* localName) {
    static const std::string framework = Narrow(PrintSchema::FrameworkNamespaceUri);
    std::vector<CComPtr<IXMLDOMNode>> found;
    CComPtr<IXMLDOMNode> child;
    parent->get_firstChild(&child);
    while (child) {
        DOMNodeType type = NODE_INVALID;
        child->get_nodeType(&type);
        if (type == NODE_ELEMENT && LocalName(child) == localName &&
            NamespaceOf(child) == framework) {
            found.push_back(child);
        }
        CComPtr<IXMLDOMNode> next;
        child->get_nextSibling(&next);
        child = next;
    }
    return found;
}

// The text of a Value child (trimmed as the DOM gives it), or of the node itself.
std::string ValueText(IXMLDOMNode* node) {
    std::vector<CComPtr<IXMLDOMNode>> values = FrameworkChildren(node, "Value");
    IXMLDOMNode* source = values.empty() ? node : values.front().p;
    CComBSTR text;
    if (FAILED(source->get_text(&text))) return "";
    return Narrow(text.m_str);
}

Item ReadFeature(IXMLDOMNode* feature) {
    Item item;
    item.name = Attribute(feature, L"name");
    std::vector<CComPtr<IXMLDOMNode>> options = FrameworkChildren(feature, "Option");
    if (!options.empty()) {
        item.value = Attribute(options.front(), L"name");
        for (const auto& scored : FrameworkChildren(options.front(), "ScoredProperty")) {
            std::vector<CComPtr<IXMLDOMNode>> refs = FrameworkChildren(scored, "ParameterRef");
            item.details.emplace_back(
                Attribute(scored, L"name"),
                refs.empty() ? ValueText(scored) : "-> " + Attribute(refs.front(), L"name"));
        }
    }
    for (const auto& sub : FrameworkChildren(feature, "Feature")) {
        item.children.push_back(ReadFeature(sub));
    }
    return item;
}

TicketContents ReadContents(PrintTicketXmlDocument& ticket) {
    TicketContents contents;
    IXMLDOMNode* root = ticket.GetRootNode();
    for (const auto& feature : FrameworkChildren(root, "Feature")) {
        contents.features.push_back(ReadFeature(feature));
    }
    for (const auto& init : FrameworkChildren(root, "ParameterInit")) {
        contents.parameters.push_back({Attribute(init, L"name"), ValueText(init), {}, {}});
    }
    for (const auto& property : FrameworkChildren(root, "Property")) {
        contents.properties.push_back({Attribute(property, L"name"), ValueText(property), {}, {}});
    }
    return contents;
}

// Long values (a device mode in base64, say) are cut in the text output; --json keeps them whole.
std::string Shortened(const std::string& value) {
    constexpr std::size_t kLongest = 72;
    if (value.size() <= kLongest) return value;
    return value.substr(0, kLongest) + "... (" + std::to_string(value.size()) + " characters)";
}

void PrintItemText(std::ostream& out, const Item& item, const std::string& indent) {
    out << indent << item.name;
    if (!item.value.empty()) out << " = " << Shortened(item.value);
    if (!item.origin.empty()) out << "  (" << item.origin << ")";
    out << "\n";
    for (const auto& [name, value] : item.details) {
        out << indent << "    " << name << " = " << value << "\n";
    }
    for (const Item& child : item.children) PrintItemText(out, child, indent + "  ");
}

std::string ItemJson(const Item& item) {
    std::string json =
        "{\"name\": " + JsonString(item.name) + ", \"value\": " + JsonString(item.value);
    if (!item.origin.empty()) json += ", \"from\": " + JsonString(item.origin);
    if (!item.details.empty()) {
        json += ", \"scoredProperties\": {";
        for (std::size_t i = 0; i < item.details.size(); ++i) {
            if (i > 0) json += ", ";
            json += JsonString(item.details[i].first) + ": " + JsonString(item.details[i].second);
        }
        json += "}";
    }
    if (!item.children.empty()) {
        json += ", \"features\": [";
        for (std::size_t i = 0; i < item.children.size(); ++i) {
            if (i > 0) json += ", ";
            json += ItemJson(item.children[i]);
        }
        json += "]";
    }
    return json + "}";
}

std::string ItemsJson(const std::vector<Item>& items) {
    std::string json = "[";
    for (std::size_t i = 0; i < items.size(); ++i) {
        json += (i > 0 ? ",\n    " : "\n    ") + ItemJson(items[i]);
    }
    return json + (items.empty() ? "]" : "\n  ]");
}

std::string FormatShow(const std::string& title, const TicketContents& contents, bool json,
                       const std::string& extraJson) {
    std::ostringstream out;
    if (json) {
        out << "{\n  \"ticket\": " << JsonString(title) << ",\n" << extraJson << "  \"view\": {";
        for (std::size_t i = 0; i < contents.view.size(); ++i) {
            const ViewSetting& setting = contents.view[i];
            out << (i > 0 ? ",\n    " : "\n    ") << JsonString(setting.key) << ": {";
            for (const auto& [name, value] : setting.json)
                out << JsonString(name) << ": " << value << ", ";
            out << "\"found\": " << (setting.found ? "true" : "false");
            if (FAILED(setting.status)) out << ", \"error\": " << JsonString(Hex(setting.status));
            out << "}";
        }
        out << "\n  },\n  \"features\": " << ItemsJson(contents.features)
            << ",\n  \"parameters\": " << ItemsJson(contents.parameters)
            << ",\n  \"properties\": " << ItemsJson(contents.properties) << "\n}\n";
        return out.str();
    }
    out << "Ticket: " << title << "\n\nTyped view:\n";
    for (const ViewSetting& setting : contents.view) {
        std::string label = setting.label + ":";
        label.resize(std::max<std::size_t>(label.size(), 20), ' ');
        out << "  " << label << setting.text << "  ("
            << (FAILED(setting.status) ? "error " + Hex(setting.status)
                : setting.found        ? std::string("found")
                                       : std::string("absent, default"))
            << ")\n";
    }
    out << "\nFeatures:\n";
    if (contents.features.empty()) out << "  (none)\n";
    for (const Item& item : contents.features) PrintItemText(out, item, "  ");
    out << "\nParameters:\n";
    if (contents.parameters.empty()) out << "  (none)\n";
    for (const Item& item : contents.parameters) PrintItemText(out, item, "  ");
    if (!contents.properties.empty()) {
        out << "\nProperties:\n";
        for (const Item& item : contents.properties) PrintItemText(out, item, "  ");
    }
    return out.str();
}

}  // namespace xpsfilter

namespace {

using namespace xpsfilter;

std::string ReadTicketBytes(const std::string& path) {
    std::ifstream in(path, std::ios::binary);
    std::error_code ec;
    if (!in || fs::is_directory(path, ec)) {
        throw TicketError{xpsfilter::kExitInputMissing, "cannot open the ticket file " + path};
    }
    std::string bytes;
    char buffer[64 * 1024];
    while (in.read(buffer, sizeof buffer) || in.gcount() > 0) {
        bytes.append(buffer, static_cast<std::size_t>(in.gcount()));
        if (bytes.size() > platform::kMaxPrintTicketBytes) {
            throw TicketError{xpsfilter::kExitBadTicket,
                              "the ticket file " + path + " is larger than the limit of " +
                                  std::to_string(platform::kMaxPrintTicketBytes) + " bytes"};
        }
    }
    if (in.bad()) {
        throw TicketError{xpsfilter::kExitInputMissing, "cannot read the ticket file " + path};
    }
    return bytes;
}

// Why the DOM refuses the bytes, from its parse error ("" when it says nothing).
std::string ParseFailure(const std::string& bytes) {
    CComPtr<IPrintReadStream> read;
    if (FAILED(platform::CreatePrintReadStreamOnBytes(bytes.data(), bytes.size(), &read)))
        return "";
    CComPtr<IXMLDOMDocument2> document;
    if (FAILED(CoCreateInstance(CLSID_DOMDocument60, nullptr, CLSCTX_ALL, IID_IXMLDOMDocument2,
                                reinterpret_cast<void**>(&document)))) {
        return "";
    }
    CComPtr<IStream> stream;
    stream.Attach(new CPrintReadStreamToIStream(read));
    VARIANT_BOOL loaded = VARIANT_FALSE;
    document->load(CComVariant(static_cast<IUnknown*>(stream.p)), &loaded);
    CComPtr<IXMLDOMParseError> error;
    if (loaded != VARIANT_FALSE || FAILED(document->get_parseError(&error)) || !error) return "";
    CComBSTR reason;
    LONG line = 0;
    error->get_reason(&reason);
    error->get_line(&line);
    std::string text = Narrow(reason.m_str);
    if (text.empty()) return "";
    if (line > 0) text += " (line " + std::to_string(line) + ")";
    return ": " + text;
}

// Loads the ticket as the default ticket of a ticket manager and reads the page-scope view,
// which sees the ticket at every scope.
TicketContents LoadTicket(const std::string& path) {
    const std::string bytes = ReadTicketBytes(path);
    CComPtr<IPrintReadStream> stream;
    if (FAILED(platform::CreatePrintReadStreamOnBytes(bytes.data(), bytes.size(), &stream))) {
        throw TicketError{xpsfilter::kExitInternal, "out of memory"};
    }
    HANDLE token = nullptr;
    if (!OpenProcessToken(GetCurrentProcess(), TOKEN_ALL_ACCESS, &token)) {
        throw TicketError{xpsfilter::kExitInternal, "cannot open the process token"};
    }
    std::unique_ptr<void, BOOL (*)(HANDLE)> closeToken(token, &CloseHandle);

    PrintTicketManager manager;
    CComBSTR printer(L"xpsfilter");
    HRESULT hr = manager.Initialise(stream, printer, token);
    if (FAILED(hr)) {
        throw TicketError{xpsfilter::kExitBadTicket,
                          path + " is not well-formed XML" + ParseFailure(bytes)};
    }
    TicketContents contents;
    try {
        PrintTicketXmlDocument ticket(manager.GetPtrToDefaultPrintTicket());
        contents = ReadContents(ticket);
        XpsFilterPrintTicket* view = nullptr;
        hr = manager.GetTicket(kPTPageScope, &view);
        if (FAILED(hr) || view == nullptr) {
            throw TicketError{xpsfilter::kExitInternal, "the ticket view failed (" + Hex(hr) + ")"};
        }
        contents.view = ReadView(*view);
    } catch (const ZorunComException& e) {
        throw TicketError{xpsfilter::kExitBadTicket,
                          path + " is not a PrintTicket (" + Hex(e.GetHresult()) + ")"};
    }
    return contents;
}

int Show(const ShowOptions& options) {
    const TicketContents contents = LoadTicket(xpsfilter::InputSource::Path(options.ticket));
    xpsfilter::OutputTarget::Resolve("-").WriteText(
        FormatShow(options.ticket, contents, options.json));
    return xpsfilter::kExitOk;
}

// Runs a subcommand body, turning its failures into a message and an exit code.
template <class Body>
int Guarded(Body body) {
    try {
        return body();
    } catch (const TicketError& error) {
        std::cerr << "xpsfilter: ticket error: " << xpsfilter::InputSource::Readable(error.message)
                  << "\n";
        return error.exitCode;
    } catch (const std::bad_alloc&) {
        std::cerr << "xpsfilter: internal error: out of memory\n";
    } catch (const std::exception& error) {
        std::cerr << "xpsfilter: internal error: " << error.what() << "\n";
    }
    return xpsfilter::kExitInternal;
}

}  // namespace

void AddTicketCommand(xpsfilter::CommandLine& commands) {
    CLI::App* ticket = commands.Group("ticket", "Work with PrintTickets");

    auto merge = std::make_shared<MergeOptions>();
    CLI::App* mergeCommand = ticket->add_subcommand(
        "merge", "Merge the DELTA ticket onto the BASE ticket and write the result");
    mergeCommand->add_option("BASE", merge->base, "The base PrintTicket; - reads standard input")
        ->required();
    mergeCommand->add_option("DELTA", merge->delta, "The delta PrintTicket; - reads standard input")
        ->required();
    mergeCommand
        ->add_option("--scope", merge->scope,
                     "Which of the delta's settings apply: page (Page... features only), "
                     "document (Document... and Page...) or job (all)")
        ->capture_default_str()
        ->check(CLI::IsMember({"page", "document", "job"}, CLI::ignore_case));
    mergeCommand->add_option("-o,--output", merge->output,
                             "Where to write the merged ticket (default: standard output)");
    mergeCommand->callback(
        [&commands, merge] { commands.SetExitCode(Guarded([&] { return Merge(*merge); })); });

    auto show = std::make_shared<ShowOptions>();
    CLI::App* showCommand = ticket->add_subcommand(
        "show", "Print the typed settings of a PrintTicket and the features it holds");
    showCommand->add_option("TICKET", show->ticket, "The PrintTicket file; - reads standard input")
        ->required();
    showCommand->add_flag("--json", show->json, "Print JSON instead of text");
    showCommand->callback(
        [&commands, show] { commands.SetExitCode(Guarded([&] { return Show(*show); })); });
}
