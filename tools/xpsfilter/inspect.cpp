// inspect.cpp: `xpsfilter inspect IN [--json]` prints an XPS job as the first filter of a
// pipeline receives it: the fixed document sequence, its documents and their pages (part name,
// page size, markup size), the PrintTicket of each level with its scope and the pages sharing
// it, each page's resources with their content types and sizes, and warnings about the package:
// parts without a content type, parts nothing refers to, duplicated tickets.
#include <algorithm>
#include <cctype>
#include <cstdio>
#include <iostream>
#include <map>
#include <memory>
#include <optional>
#include <set>
#include <sstream>
#include <string>
#include <vector>

#include "commandline.h"
#include "jobparts.h"
#include "pipelinehost/xpsnames.h"
#include "platform/com/unicode.h"
#include "ticketcontents.h"

namespace {

using pipelinehost::ErrorKind;
using pipelinehost::JobError;
using pipelinehost::SourcePackage;
using pipelinehost::SourcePart;
using xpsfilter::JsonString;

struct InspectOptions {
    std::string input;
    bool json = false;
};

struct Resource {
    std::string part;
    std::string kind;  // font, image, color profile, resource dictionary, other
    std::string contentType;
    std::uint64_t size = 0;
};

struct Page {
    unsigned number = 0;  // across the job, from 1
    std::string part;
    std::optional<double> width, height;  // FixedPage Width and Height, 1/96 inch
    std::uint64_t size = 0;
    std::string ticket;
    std::vector<Resource> resources;
};

struct Document {
    unsigned number = 0;
    std::string part;
    std::string ticket;
    std::vector<Page> pages;
};

// A ticket part and every part that carries it.
struct Ticket {
    std::string part;
    std::uint64_t size = 0;
    std::set<std::string> scopes;     // job, document, page
    std::vector<unsigned> pages;      // pages carrying it
    std::vector<unsigned> documents;  // documents carrying it
    bool sequence = false;
};

struct Report {
    std::string path;
    bool openXps = false;
    std::string sequence;
    std::string sequenceTicket;
    std::vector<Document> documents;
    std::map<std::string, Ticket> tickets;
    std::vector<std::string> warnings;
};

// Part names compare without regard to ASCII case, as package part names do.
std::string Key(std::string name) {
    std::transform(name.begin(), name.end(), name.begin(),
                   [](unsigned char c) { return static_cast<char>(std::tolower(c)); });
    return name;
}

std::uint64_t SizeOf(const SourcePackage& package, const std::string& part) {
    const SourcePart* found = package.Find(part);
    return found == nullptr ? 0 : found->size;
}

// The value of attribute `name` in a start tag, if present.
std::optional<std::string> TagAttribute(const std::string& tag, const std::string& name) {
    std::size_t at = 0;
    while ((at = tag.find(name, at)) != std::string::npos) {
        const bool boundary = at > 0 && std::isspace(static_cast<unsigned char>(tag[at - 1]));
        std::size_t i = at + name.size();
        while (i < tag.size() && std::isspace(static_cast<unsigned char>(tag[i]))) ++i;
        if (boundary && i < tag.size() && tag[i] == '=') {
            ++i;
            while (i < tag.size() && std::isspace(static_cast<unsigned char>(tag[i]))) ++i;
            if (i < tag.size() && (tag[i] == '"' || tag[i] == '\'')) {
                const std::size_t end = tag.find(tag[i], i + 1);
                if (end != std::string::npos) return tag.substr(i + 1, end - i - 1);
            }
        }
        at += name.size();
    }
    return std::nullopt;
}

// The start of a page's markup as narrow text: UTF-8 as it is; UTF-16 (told by its byte order
// mark) with each code unit above ASCII as '?', which keeps element and attribute names and
// numbers intact.
std::string MarkupHead(IPrintReadStream* stream) {
    constexpr std::size_t kHead = 64 * 1024;
    std::string bytes;
    char buffer[16 * 1024];
    while (bytes.size() < kHead) {
        ULONG read = 0;
        BOOL end = FALSE;
        if (FAILED(stream->ReadBytes(buffer, sizeof buffer, &read, &end))) break;
        bytes.append(buffer, read);
        if (end || read == 0) break;
    }
    const bool little = bytes.size() >= 2 && bytes[0] == '\xFF' && bytes[1] == '\xFE';
    const bool big = bytes.size() >= 2 && bytes[0] == '\xFE' && bytes[1] == '\xFF';
    if (!little && !big) return bytes;
    std::string text;
    for (std::size_t i = 2; i + 1 < bytes.size(); i += 2) {
        const unsigned unit = little ? static_cast<unsigned char>(bytes[i]) |
                                           static_cast<unsigned char>(bytes[i + 1]) << 8
                                     : static_cast<unsigned char>(bytes[i]) << 8 |
                                           static_cast<unsigned char>(bytes[i + 1]);
        text += unit < 0x80 ? static_cast<char>(unit) : '?';
    }
    return text;
}

// Width and Height of the page's root element, read from the start of its markup.
void ReadPageSize(IFixedPage* fixedPage, Page& page) {
    CComPtr<IPrintReadStream> stream;
    if (FAILED(fixedPage->GetStream(&stream))) return;
    const std::string head = MarkupHead(stream);
    // The root's start tag: after the XML declaration, comments and processing instructions.
    std::size_t at = 0;
    while ((at = head.find('<', at)) != std::string::npos && at + 1 < head.size() &&
           (head[at + 1] == '?' || head[at + 1] == '!')) {
        at = head.find('>', at);
    }
    if (at == std::string::npos) return;
    const std::size_t close = head.find('>', at);
    if (close == std::string::npos) return;
    const std::string tag = head.substr(at, close - at);
    auto number = [](const std::optional<std::string>& text) -> std::optional<double> {
        if (!text) return std::nullopt;
        try {
            return std::stod(*text);
        } catch (const std::exception&) {
            return std::nullopt;
        }
    };
    page.width = number(TagAttribute(tag, "Width"));
    page.height = number(TagAttribute(tag, "Height"));
}

const char* KindOf(IUnknown* part) {
    if (CComQIPtr<IPartFont> font = part) return "font";
    if (CComQIPtr<IPartImage> image = part) return "image";
    if (CComQIPtr<IPartColorProfile> profile = part) return "color profile";
    if (CComQIPtr<IPartResourceDictionary> dictionary = part) return "resource dictionary";
    return "other";
}

std::vector<Resource> ReadResources(IFixedPage* page, const SourcePackage& package) {
    std::vector<Resource> resources;
    CComPtr<IXpsPartIterator> iterator;
    if (FAILED(page->GetXpsPartIterator(&iterator)) || !iterator) return resources;
    for (iterator->Reset(); !iterator->IsDone(); iterator->Next()) {
        CComBSTR uri;
        CComPtr<IUnknown> part;
        if (FAILED(iterator->Current(&uri, &part))) continue;
        Resource resource;
        resource.part = platform::WideToUtf8(std::wstring_view(uri.m_str, uri.Length()));
        resource.kind = KindOf(part);
        resource.contentType = package.ContentTypeOf(resource.part);
        resource.size = SizeOf(package, resource.part);
        resources.push_back(std::move(resource));
    }
    return resources;
}

Ticket& NoteTicket(Report& report, const SourcePackage& package, const std::string& part,
                   const char* scope) {
    Ticket& ticket = report.tickets[part];
    ticket.part = part;
    ticket.size = SizeOf(package, part);
    ticket.scopes.insert(scope);
    return ticket;
}

std::string Joined(const std::vector<unsigned>& numbers) {
    std::string text;
    for (unsigned n : numbers) text += (text.empty() ? "" : ", ") + std::to_string(n);
    return text;
}

// The package checks: content types, parts nothing reaches, ticket parts that copy each other.
// (A part with two PrintTicket relationships is the reader's own warning.)
void Check(const SourcePackage& package, const std::set<std::string>& walked, Report& report) {
    // Reachable: the parts the walk met, and whatever a relationship of the package or of a
    // reachable part points to, transitively (thumbnails, core properties, signatures...).
    std::set<std::string> reached;
    std::vector<std::string> pending{"/"};
    for (const std::string& part : walked) {
        if (reached.insert(Key(part)).second) pending.push_back(part);
    }
    while (!pending.empty()) {
        const std::string source = pending.back();
        pending.pop_back();
        for (const pipelinehost::Relationship& relationship : package.ReadRelationships(source)) {
            if (relationship.external || !relationship.part) continue;
            if (reached.insert(Key(*relationship.part)).second) {
                pending.push_back(*relationship.part);
            }
        }
    }
    for (const SourcePart& part : package.Parts()) {
        const std::string key = Key(part.name);
        const bool bookkeeping = key == "/[content_types].xml" ||
                                 (key.size() > 5 && key.compare(key.size() - 5, 5, ".rels") == 0);
        if (bookkeeping) continue;
        if (package.ContentTypeOf(part.name).empty()) {
            report.warnings.push_back(part.name +
                                      ": no content type (no Override, no Default for "
                                      "its extension)");
        }
        if (reached.count(key) == 0) {
            report.warnings.push_back(part.name + ": not referenced by any part or relationship");
        }
    }
    // Ticket parts of the same level with the same bytes: one shared part would do.
    std::map<std::pair<std::string, std::string>, std::string> seen;  // (scope, bytes) -> part
    for (const auto& [name, ticket] : report.tickets) {
        const SourcePart* part = package.Find(name);
        if (part == nullptr || part->size > (std::uint64_t{1} << 20)) continue;
        std::string bytes;
        try {
            bytes = package.ReadMarkup(*part);
        } catch (const JobError&) {
            continue;
        }
        for (const std::string& scope : ticket.scopes) {
            auto [at, inserted] = seen.emplace(std::make_pair(scope, bytes), name);
            if (!inserted) {
                report.warnings.push_back(name + ": duplicate " + scope +
                                          " ticket, the same bytes as " + at->second);
            }
        }
    }
}

Report Inspect(const std::string& path) {
    xpsfilter::JobParts parts(path);
    const SourcePackage& package = parts.Package();
    Report report;
    report.path = path;
    report.openXps = package.OpenXps();
    std::set<std::string> walked;
    unsigned pages = 0;
    auto noteTicket = [&](CComPtr<IPartPrintTicket> ticket) -> std::string {
        if (!ticket) return "";
        std::string name = xpsfilter::PartUri(ticket.p);
        walked.insert(name);
        return name;
    };
    while (CComPtr<IUnknown> part = parts.Next()) {
        if (CComQIPtr<IFixedDocumentSequence> sequence = part) {
            report.sequence = xpsfilter::PartUri(sequence.p);
            walked.insert(report.sequence);
            report.sequenceTicket = noteTicket(xpsfilter::PartTicket(sequence.p));
            if (!report.sequenceTicket.empty()) {
                NoteTicket(report, package, report.sequenceTicket, "job").sequence = true;
            }
        } else if (CComQIPtr<IFixedDocument> fixedDocument = part) {
            Document document;
            document.number = static_cast<unsigned>(report.documents.size() + 1);
            document.part = xpsfilter::PartUri(fixedDocument.p);
            walked.insert(document.part);
            document.ticket = noteTicket(xpsfilter::PartTicket(fixedDocument.p));
            if (!document.ticket.empty()) {
                NoteTicket(report, package, document.ticket, "document")
                    .documents.push_back(document.number);
            }
            report.documents.push_back(std::move(document));
        } else if (CComQIPtr<IFixedPage> fixedPage = part) {
            if (report.documents.empty()) continue;  // the reader never does this
            Page page;
            page.number = ++pages;
            page.part = xpsfilter::PartUri(fixedPage.p);
            walked.insert(page.part);
            page.size = SizeOf(package, page.part);
            ReadPageSize(fixedPage, page);
            page.ticket = noteTicket(xpsfilter::PartTicket(fixedPage.p));
            if (!page.ticket.empty()) {
                NoteTicket(report, package, page.ticket, "page").pages.push_back(page.number);
            }
            page.resources = ReadResources(fixedPage, package);
            for (const Resource& resource : page.resources) walked.insert(resource.part);
            report.documents.back().pages.push_back(std::move(page));
        }
    }
    // The reader's own warnings first, as `run` prints them, then the package checks.
    report.warnings = parts.Warnings();
    Check(package, walked, report);
    return report;
}

std::string Number(double value) {
    char text[32];
    std::snprintf(text, sizeof text, "%.6g", value);
    return text;
}

std::string SizeText(const Page& page) {
    if (!page.width || !page.height) return "size unknown";
    char mm[64];
    std::snprintf(mm, sizeof mm, " (%.1f x %.1f mm)", *page.width * 25.4 / 96.0,
                  *page.height * 25.4 / 96.0);
    return Number(*page.width) + " x " + Number(*page.height) + mm;
}

std::string TicketText(const Report& report, const std::string& name) {
    const Ticket& ticket = report.tickets.at(name);
    std::string text = name + ", " + std::to_string(ticket.size) + " bytes";
    if (ticket.pages.size() > 1) text += ", shared by pages " + Joined(ticket.pages);
    if (ticket.documents.size() > 1) text += ", shared by documents " + Joined(ticket.documents);
    return text;
}

std::string FormatText(const Report& report) {
    std::ostringstream out;
    unsigned pageCount = 0;
    for (const Document& document : report.documents) pageCount += document.pages.size();
    out << "Package: " << report.path << " (" << (report.openXps ? "OpenXPS" : "Microsoft XPS")
        << ", " << report.documents.size() << " document"
        << (report.documents.size() == 1 ? "" : "s") << ", " << pageCount << " page"
        << (pageCount == 1 ? "" : "s") << ")\n\n";
    out << "Sequence " << report.sequence << "\n";
    if (!report.sequenceTicket.empty()) {
        out << "  job ticket " << TicketText(report, report.sequenceTicket) << "\n";
    }
    for (const Document& document : report.documents) {
        out << "  Document " << document.number << " " << document.part << "\n";
        if (!document.ticket.empty()) {
            out << "    document ticket " << TicketText(report, document.ticket) << "\n";
        }
        for (const Page& page : document.pages) {
            out << "    Page " << page.number << " " << page.part << "  " << SizeText(page) << ", "
                << page.size << " bytes\n";
            if (!page.ticket.empty()) {
                out << "      page ticket " << TicketText(report, page.ticket) << "\n";
            }
            for (const Resource& resource : page.resources) {
                out << "      " << resource.kind << " " << resource.part << "  "
                    << (resource.contentType.empty() ? "(no content type)" : resource.contentType)
                    << ", " << resource.size << " bytes\n";
            }
        }
    }
    out << "\nWarnings:\n";
    if (report.warnings.empty()) out << "  (none)\n";
    for (const std::string& warning : report.warnings) out << "  " << warning << "\n";
    return out.str();
}

std::string NumbersJson(const std::vector<unsigned>& numbers) {
    return "[" + Joined(numbers) + "]";
}

std::string FormatJson(const Report& report) {
    std::ostringstream out;
    auto ticketJson = [&](const std::string& name) {
        return name.empty() ? std::string("null") : JsonString(name);
    };
    out << "{\n  \"package\": " << JsonString(report.path)
        << ",\n  \"flavour\": " << JsonString(report.openXps ? "OpenXPS" : "Microsoft XPS")
        << ",\n  \"sequence\": {\"part\": " << JsonString(report.sequence)
        << ", \"ticket\": " << ticketJson(report.sequenceTicket) << "},\n  \"documents\": [";
    for (std::size_t d = 0; d < report.documents.size(); ++d) {
        const Document& document = report.documents[d];
        out << (d > 0 ? "," : "") << "\n    {\"number\": " << document.number
            << ", \"part\": " << JsonString(document.part)
            << ", \"ticket\": " << ticketJson(document.ticket) << ", \"pages\": [";
        for (std::size_t p = 0; p < document.pages.size(); ++p) {
            const Page& page = document.pages[p];
            out << (p > 0 ? "," : "") << "\n      {\"number\": " << page.number
                << ", \"part\": " << JsonString(page.part)
                << ", \"width\": " << (page.width ? Number(*page.width) : "null")
                << ", \"height\": " << (page.height ? Number(*page.height) : "null")
                << ", \"bytes\": " << page.size << ", \"ticket\": " << ticketJson(page.ticket)
                << ", \"resources\": [";
            for (std::size_t r = 0; r < page.resources.size(); ++r) {
                const Resource& resource = page.resources[r];
                out << (r > 0 ? ", " : "") << "{\"part\": " << JsonString(resource.part)
                    << ", \"kind\": " << JsonString(resource.kind)
                    << ", \"contentType\": " << JsonString(resource.contentType)
                    << ", \"bytes\": " << resource.size << "}";
            }
            out << "]}";
        }
        out << (document.pages.empty() ? "]}" : "\n    ]}");
    }
    out << (report.documents.empty() ? "]" : "\n  ]") << ",\n  \"tickets\": [";
    std::size_t t = 0;
    for (const auto& [name, ticket] : report.tickets) {
        std::string scopes;
        for (const std::string& scope : ticket.scopes) {
            scopes += (scopes.empty() ? "" : ", ") + JsonString(scope);
        }
        out << (t++ > 0 ? "," : "") << "\n    {\"part\": " << JsonString(name)
            << ", \"bytes\": " << ticket.size << ", \"scopes\": [" << scopes
            << "], \"documents\": " << NumbersJson(ticket.documents)
            << ", \"pages\": " << NumbersJson(ticket.pages) << "}";
    }
    out << (report.tickets.empty() ? "]" : "\n  ]") << ",\n  \"warnings\": [";
    for (std::size_t w = 0; w < report.warnings.size(); ++w) {
        out << (w > 0 ? "," : "") << "\n    " << JsonString(report.warnings[w]);
    }
    out << (report.warnings.empty() ? "]" : "\n  ]") << "\n}\n";
    return out.str();
}

}  // namespace

void AddInspectCommand(xpsfilter::CommandLine& commands) {
    auto options = std::make_shared<InspectOptions>();
    CLI::App* command = commands.App().add_subcommand(
        "inspect",
        "Print an XPS job as a filter sees it: documents, pages, tickets, resources, warnings");
    command->add_option("IN", options->input, "The XPS job")->required();
    command->add_flag("--json", options->json, "Print JSON instead of text");
    command->callback([&commands, options] {
        int code = xpsfilter::kExitInternal;
        try {
            const Report report = Inspect(options->input);
            std::cout << (options->json ? FormatJson(report) : FormatText(report));
            code = xpsfilter::kExitOk;
        } catch (const JobError& error) {
            std::cerr << "xpsfilter: " << pipelinehost::KindLabel(error.Kind())
                      << " error: " << error.what() << "\n";
            code = xpsfilter::ExitCodeFor(error.Kind());
        } catch (const std::exception& error) {
            std::cerr << "xpsfilter: internal error: " << error.what() << "\n";
        }
        commands.SetExitCode(code);
    });
}
