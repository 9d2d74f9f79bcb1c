// devmode.cpp: `xpsfilter devmode decode TICKET` prints the driver device modes a PrintTicket
// carries (the PageDevmodeSnapshot the filters read, and JobZorunDriverData when present) as
// readable descriptions: public fields, the plug-in part's header and CRC check, the attribute
// lists and other records. `xpsfilter devmode encode DESCRIPTION` builds a PrintTicket carrying
// the device mode a description stands for. The description format is in docs/privatedata.md.
#include <cstdio>
#include <fstream>
#include <iostream>
#include <iterator>
#include <memory>
#include <sstream>
#include <string>

#include "commandline.h"
#include "inputsource.h"
#include "outputtarget.h"
#include "devmodedescription.h"
#include "filterpipeline/filterutilities/printticketxmldocument.h"
#include "platform/com/com.h"
#include "platform/com/unicode.h"
#include "platform/msxml/msxml6.h"
#include "support/utilities/exceptions.h"
#include "support/utilities/zorunutilities.h"
#include "ticketcontents.h"

namespace {

// Descriptions and tickets are small; anything larger is refused rather than read.
constexpr std::size_t kMaxInputBytes = 16u << 20;

struct DecodeOptions {
    std::string ticket;
    std::string which = "all";
    bool json = false;
};

struct EncodeOptions {
    std::string description;
    std::string ticket;
    std::string output;
    std::string as = "page";
};

class InputError : public std::runtime_error {
public:
    InputError(int code, const std::string& message) : std::runtime_error(message), m_code(code) {}
    int Code() const { return m_code; }

private:
    int m_code;
};

std::string ReadInput(const std::string& path) {
    std::ifstream in(path, std::ios::binary);
    if (!in) throw InputError(xpsfilter::kExitInputMissing, "cannot read " + path);
    std::string bytes;
    char buffer[65536];
    while (in.read(buffer, sizeof buffer) || in.gcount() > 0) {
        bytes.append(buffer, static_cast<std::size_t>(in.gcount()));
        if (bytes.size() > kMaxInputBytes) {
            throw InputError(xpsfilter::kExitBadTicket, path + " is larger than 16 MiB");
        }
    }
    return bytes;
}

// The PrintTicket in `bytes` (its encoding declaration applies).
CComPtr<IXMLDOMDocument2> LoadTicket(const std::string& bytes, const std::string& name) {
    CComPtr<IXMLDOMDocument2> dom;
    HRESULT hr = dom.CoCreateInstance(CLSID_DOMDocument60);
    if (FAILED(hr)) throw InputError(xpsfilter::kExitInternal, "no XML DOM available");
    CComPtr<IStream> stream;
    if (FAILED(platform::CreateMemoryStream(bytes.data(), bytes.size(), &stream))) {
        throw InputError(xpsfilter::kExitInternal, "out of memory");
    }
    VARIANT_BOOL loaded = VARIANT_FALSE;
    hr = dom->load(CComVariant(static_cast<IUnknown*>(stream.p)), &loaded);
    if (FAILED(hr) || loaded != VARIANT_TRUE) {
        std::string reason;
        CComPtr<IXMLDOMParseError> error;
        CComBSTR text;
        if (SUCCEEDED(dom->get_parseError(&error)) && error &&
            SUCCEEDED(error->get_reason(&text)) && text.Length() > 0) {
            reason = ": " + platform::WideToUtf8(static_cast<const wchar_t*>(text));
        }
        throw InputError(xpsfilter::kExitBadTicket, name + " is not well-formed XML" + reason);
    }
    return dom;
}

std::unique_ptr<PrintTicketXmlDocument> WrapTicket(IXMLDOMDocument2* dom, const std::string& name) {
    try {
        return std::make_unique<PrintTicketXmlDocument>(dom);
    } catch (const ZorunComException&) {
        throw InputError(xpsfilter::kExitBadTicket, name + " is not a PrintTicket");
    }
}

// One device mode as a JSON object: its name, size, defects, attributes with the data model's
// names, and the whole description text.
std::string DevmodeJson(const char* title, const ByteBuffer& devmode, const std::string& text,
                        const std::vector<std::string>& problems,
                        const std::vector<xpsfilter::DescribedAttribute>& attributes) {
    using xpsfilter::JsonString;
    std::string json = "{\"name\": " + JsonString(title) +
                       ", \"bytes\": " + std::to_string(devmode.size()) + ", \"problems\": [";
    for (std::size_t i = 0; i < problems.size(); ++i) {
        json += (i > 0 ? ", " : "") + JsonString(problems[i]);
    }
    json += "],\n     \"attributes\": [";
    for (std::size_t i = 0; i < attributes.size(); ++i) {
        const xpsfilter::DescribedAttribute& a = attributes[i];
        json += std::string(i > 0 ? "," : "") +
                "\n       {\"namespace\": " + std::to_string(a.nameSpace) +
                ", \"path\": " + JsonString(a.path) + ", \"type\": " + JsonString(a.type) +
                ", \"value\": " + JsonString(a.value) +
                ", \"specified\": " + (a.specified ? "true" : "false") +
                ", \"feature\": " + (a.feature.empty() ? "null" : JsonString(a.feature)) +
                ", \"option\": " + (a.option.empty() ? "null" : JsonString(a.option)) + "}";
    }
    return json + "],\n     \"description\": " + JsonString(text) + "}";
}

// Prints one device mode (or, for --json, adds its object to `json`); returns false when it has
// defects.
bool PrintDevmode(const char* title, const ByteBuffer& devmode, std::vector<std::string>* json) {
    std::vector<std::string> problems;
    std::vector<xpsfilter::DescribedAttribute> attributes;
    std::string text = xpsfilter::DescribeDevmode(devmode, problems, &attributes);
    if (json != nullptr) {
        json->push_back(DevmodeJson(title, devmode, text, problems, attributes));
    } else {
        std::cout << "# " << title << "\n" << text;
    }
    for (const std::string& problem : problems) {
        std::cerr << "xpsfilter: " << title << ": " << problem << "\n";
    }
    return problems.empty();
}

int Decode(const DecodeOptions& options) {
    try {
        std::unique_ptr<PrintTicketXmlDocument> ticket = WrapTicket(
            LoadTicket(ReadInput(xpsfilter::InputSource::Path(options.ticket)), options.ticket),
            options.ticket);
        bool clean = true;
        bool any = false;
        std::vector<std::string> objects;
        std::vector<std::string>* json = options.json ? &objects : nullptr;
        if (options.which != "job") {
            ByteBuffer page;
            try {
                ticket->GetPageDevmodeSnapshotFromPrintTicket(page);
            } catch (const ZorunComException&) {
                std::cerr << "xpsfilter: PageDevmodeSnapshot is not valid base64\n";
                clean = false;
            }
            if (!page.empty()) {
                any = true;
                clean = PrintDevmode("PageDevmodeSnapshot", page, json) && clean;
            }
        }
        if (options.which != "page") {
            ByteBuffer job;
            try {
                ticket->GetJobZorunDriverDataFromPrintTicket(job);
                if (!job.empty()) {
                    if (any && !json) std::cout << "\n";
                    any = true;
                    clean =
                        PrintDevmode("JobZorunDriverData (CRC frame checked)", job, json) && clean;
                }
            } catch (const ZorunComException&) {
                std::cerr << "xpsfilter: JobZorunDriverData is damaged: not base64, or its CRC "
                             "frame does not match\n";
                clean = false;
            }
        }
        if (json) {
            std::cout << "{\n  \"ticket\": " << xpsfilter::JsonString(options.ticket)
                      << ",\n  \"devmodes\": [";
            for (std::size_t i = 0; i < objects.size(); ++i) {
                std::cout << (i > 0 ? ",\n    " : "\n    ") << objects[i];
            }
            std::cout << (objects.empty() ? "]" : "\n  ]") << "\n}\n";
        }
        if (!any) {
            if (!json) std::cout << "# the ticket carries no driver device mode\n";
            std::cerr << "xpsfilter: " << options.ticket << ": no "
                      << (options.which == "job"    ? "JobZorunDriverData"
                          : options.which == "page" ? "PageDevmodeSnapshot"
                                                    : "PageDevmodeSnapshot or JobZorunDriverData")
                      << "\n";
        }
        return clean ? xpsfilter::kExitOk : xpsfilter::kExitBadTicket;
    } catch (const InputError& error) {
        std::cerr << "xpsfilter: " << xpsfilter::InputSource::Readable(error.what()) << "\n";
        return error.Code();
    } catch (const std::exception& error) {
        std::cerr << "xpsfilter: internal error: " << error.what() << "\n";
        return xpsfilter::kExitInternal;
    }
}

// The ticket a device mode is written into when no base ticket is given.
constexpr char kEmptyTicket[] =
    "<?xml version=\"1.0\" encoding=\"UTF-8\"?>\n"
    "<psf:PrintTicket xmlns:psf=\"http://schemas.microsoft.com/windows/2003/08/printing/"
    "printschemaframework\" xmlns:psk=\"http://schemas.microsoft.com/windows/2003/08/printing/"
    "printschemakeywords\" xmlns:xsi=\"http://www.w3.org/2001/XMLSchema-instance\" "
    "xmlns:xsd=\"http://www.w3.org/2001/XMLSchema\" "
    "xmlns:zk=\"http://schemas.zorun.example/enterprise/print/driver/native/"
    "printSchemaPrivateKeywords/2006/11\" version=\"1\"/>\n";

std::string Serialise(IXMLDOMDocument2* dom) {
    CComQIPtr<IStream> stream(dom);
    std::string bytes;
    if (!stream) return bytes;
    char buffer[65536];
    ULONG got = 0;
    while (SUCCEEDED(stream->Read(buffer, sizeof buffer, &got)) && got > 0)
        bytes.append(buffer, got);
    return bytes;
}

int Encode(const EncodeOptions& options) {
    const xpsfilter::OutputTarget target = xpsfilter::OutputTarget::Resolve(options.output);
    try {
        xpsfilter::DevmodeDescription description;
        ByteBuffer devmode;
        try {
            description = xpsfilter::ParseDevmodeDescription(
                ReadInput(xpsfilter::InputSource::Path(options.description)));
            devmode = xpsfilter::BuildDevmode(description);
        } catch (const xpsfilter::DescriptionError& error) {
            throw InputError(xpsfilter::kExitBadTicket, options.description + ": " + error.what());
        }

        std::string base = options.ticket.empty()
                               ? std::string(kEmptyTicket)
                               : ReadInput(xpsfilter::InputSource::Path(options.ticket));
        std::string baseName = options.ticket.empty() ? "the empty ticket" : options.ticket;
        CComPtr<IXMLDOMDocument2> dom = LoadTicket(base, baseName);
        std::unique_ptr<PrintTicketXmlDocument> ticket = WrapTicket(dom, baseName);
        CComBSTR prefix = ticket->GetUserKeywordsNsPrefix();
        if (options.as == "job") {
            HRESULT hr = ticket->SetJobZorunDriverDataInPrintTicket(
                reinterpret_cast<DEVMODEW*>(devmode.data()), static_cast<DWORD>(devmode.size()));
            if (FAILED(hr)) {
                throw InputError(xpsfilter::kExitInternal, "cannot write JobZorunDriverData");
            }
        } else {
            int length = ZorunUtilities::Base64EncodeGetRequiredLength(
                static_cast<int>(devmode.size()), ZorunUtilities::ATL_BASE64_FLAG_NOCRLF);
            std::wstring text(static_cast<std::size_t>(length), L'\0');
            if (!ZorunUtilities::Base64Encode(devmode.data(), static_cast<int>(devmode.size()),
                                              text.data(), &length,
                                              ZorunUtilities::ATL_BASE64_FLAG_NOCRLF)) {
                throw InputError(xpsfilter::kExitInternal, "cannot encode the device mode");
            }
            text.resize(static_cast<std::size_t>(length));
            ticket->DeleteParameterInitNodeIfExists(prefix, L"PageDevmodeSnapshot");
            ticket->AppendStringParameterInit(prefix, L"PageDevmodeSnapshot", text.c_str());
        }

        std::string xml = Serialise(dom);
        if (xml.empty()) throw InputError(xpsfilter::kExitInternal, "cannot serialise the ticket");
        target.WriteText(xml);
        return xpsfilter::kExitOk;
    } catch (const InputError& error) {
        std::cerr << "xpsfilter: " << xpsfilter::InputSource::Readable(error.what()) << "\n";
        return error.Code();
    } catch (const ZorunComException& error) {
        std::cerr << "xpsfilter: the ticket cannot be edited: "
                  << platform::WideToUtf8(static_cast<const wchar_t*>(error.Describe())) << "\n";
        return xpsfilter::kExitBadTicket;
    } catch (const std::exception& error) {
        std::cerr << "xpsfilter: internal error: " << error.what() << "\n";
        return xpsfilter::kExitInternal;
    }
}

}  // namespace

void AddDevmodeCommand(xpsfilter::CommandLine& commands) {
    CLI::App* devmode = commands.App().add_subcommand(
        "devmode", "Decode or encode the driver device mode a PrintTicket carries");
    devmode->require_subcommand(1);

    auto decode = std::make_shared<DecodeOptions>();
    CLI::App* decodeCommand = devmode->add_subcommand(
        "decode", "Print the driver device modes of a PrintTicket as readable descriptions");
    decodeCommand
        ->add_option("--which", decode->which,
                     "Which device mode: page (PageDevmodeSnapshot), job "
                     "(JobZorunDriverData) or all")
        ->capture_default_str()
        ->check(CLI::IsMember({"page", "job", "all"}));
    decodeCommand
        ->add_option("TICKET", decode->ticket, "The PrintTicket file; - reads standard input")
        ->required();
    decodeCommand->add_flag("--json", decode->json,
                            "Print JSON: each device mode's attributes with their names, its "
                            "defects and its description");
    decodeCommand->callback([&commands, decode] { commands.SetExitCode(Decode(*decode)); });

    auto encode = std::make_shared<EncodeOptions>();
    CLI::App* encodeCommand = devmode->add_subcommand(
        "encode", "Build a PrintTicket carrying the device mode a description stands for");
    encodeCommand
        ->add_option("--as", encode->as,
                     "Write it as PageDevmodeSnapshot (page) or as the CRC-framed "
                     "JobZorunDriverData (job)")
        ->capture_default_str()
        ->check(CLI::IsMember({"page", "job"}));
    encodeCommand->add_option("--ticket", encode->ticket,
                              "The PrintTicket to add it to (default: an empty ticket)");
    encodeCommand->add_option("-o,--output", encode->output,
                              "Where to write the ticket (default: standard output)");
    encodeCommand
        ->add_option("DESCRIPTION", encode->description,
                     "The device mode description file; - reads standard input")
        ->required();
    encodeCommand->callback([&commands, encode] { commands.SetExitCode(Encode(*encode)); });
}
