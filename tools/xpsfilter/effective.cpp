// effective.cpp: `xpsfilter ticket effective IN --page N [--ticket FILE] [--json]` prints the
// PrintTicket page N of the job IN is printed with: the user's default ticket, the job's, the
// page's document's and the page's own ticket merged through the PrintTicket provider, exactly
// as a filter's PrintTicketManager merges them when merging is enabled, shown as `ticket show`
// shows a ticket, with where each setting came from.
#include <fstream>
#include <iostream>
#include <memory>
#include <sstream>
#include <string>

#include "commandline.h"
#include "filterpipeline/filterutilities/printreadstreamtoistream.h"
#include "filterpipeline/filterutilities/printticketmanager.h"
#include "jobparts.h"
#include "pipelinehost/defaultticket.h"
#include "platform/printpipeline/printstreams.h"
#include "platform/prntvpt/prntvpt.h"
#include "platform/win32/kernel.h"
#include "platform/win32/security.h"
#include "support/utilities/exceptions.h"
#include "ticketcontents.h"

namespace {

using pipelinehost::ErrorKind;
using pipelinehost::JobError;
using xpsfilter::Item;
using xpsfilter::TicketContents;

struct EffectiveOptions {
    std::string input;
    unsigned page = 0;
    std::string ticketFile;  // empty: the embedded default ticket, as `run` uses
    bool json = false;
};

// A failure with its own exit code (bad page number, bad ticket).
struct EffectiveError {
    int exitCode;
    std::string message;
};

using xpsfilter::Hex;

std::string ReadDefaultTicket(const std::string& path) {
    if (path.empty()) return std::string(pipelinehost::DefaultPrintTicket());
    std::ifstream in(path, std::ios::binary);
    if (!in)
        throw EffectiveError{xpsfilter::kExitInputMissing, "cannot open the ticket file " + path};
    std::ostringstream bytes;
    bytes << in.rdbuf();
    if (bytes.str().size() > platform::kMaxPrintTicketBytes) {
        throw EffectiveError{xpsfilter::kExitBadTicket,
                             "the ticket file " + path + " is too large"};
    }
    return bytes.str();
}

// The local name of a Print Schema name ("psk:PageMediaSize" -> "PageMediaSize").
std::string LocalPart(const std::string& name) {
    const auto colon = name.find(':');
    return colon == std::string::npos ? name : name.substr(colon + 1);
}

// Which settings of a ticket at a level survive the merge: a page's ticket gives its Page...
// settings, a document's its Document... and Page... ones, the job's and the default all.
bool LevelGives(const std::string& level, const std::string& name) {
    const std::string local = LocalPart(name);
    const bool page = local.rfind("Page", 0) == 0;
    const bool document = local.rfind("Document", 0) == 0;
    if (level == "page") return page;
    if (level == "document") return page || document;
    return true;
}

bool SameItem(const Item& a, const Item& b) {
    if (a.name != b.name || a.value != b.value || a.details != b.details) return false;
    if (a.children.size() != b.children.size()) return false;
    for (std::size_t i = 0; i < a.children.size(); ++i) {
        if (!SameItem(a.children[i], b.children[i])) return false;
    }
    return true;
}

struct Level {
    std::string name;  // "page", "document", "job", "default"
    std::string part;  // the ticket part ("" for the default ticket)
    TicketContents contents;
};

// Marks each merged item with the lowest level whose ticket gives it as merged; "merged" when
// none does (the provider changed it, say a ParameterInit a constraint dropped).
void MarkOrigins(std::vector<Item>& merged, const std::vector<Level>& levels,
                 std::vector<Item> TicketContents::*list) {
    for (Item& item : merged) {
        item.origin = "merged";
        for (const Level& level : levels) {
            if (!LevelGives(level.name, item.name)) continue;
            bool found = false;
            for (const Item& candidate : level.contents.*list) {
                if (SameItem(candidate, item)) found = true;
            }
            if (found) {
                item.origin = level.name;
                break;
            }
        }
    }
}

TicketContents ContentsOf(IXMLDOMDocument2* dom) {
    PrintTicketXmlDocument document(dom);
    return xpsfilter::ReadContents(document);
}

// Loads a ticket part into a DOM of its own; null when it does not parse.
CComPtr<IXMLDOMDocument2> LoadPart(IPartPrintTicket* part) {
    CComPtr<IPrintReadStream> read;
    if (FAILED(part->GetStream(&read))) return nullptr;
    CComPtr<IStream> stream;
    stream.Attach(new CPrintReadStreamToIStream(read));
    CComPtr<IXMLDOMDocument2> dom;
    if (FAILED(dom.CoCreateInstance(CLSID_DOMDocument60))) return nullptr;
    VARIANT_BOOL loaded = VARIANT_FALSE;
    if (FAILED(dom->load(CComVariant(static_cast<IUnknown*>(stream.p)), &loaded)) ||
        loaded != VARIANT_TRUE) {
        return nullptr;
    }
    return dom;
}

std::string JsonOrNull(const std::string& text) {
    return text.empty() ? "null" : xpsfilter::JsonString(text);
}

// The manager a filter that merges has: merging on, the default ticket installed. Returns how
// messages name the default ticket.
std::string InitialiseMergingManager(PrintTicketManager& manager, const EffectiveOptions& options,
                                     HANDLE token) {
    const std::string defaultTicket = ReadDefaultTicket(options.ticketFile);
    manager.m_mergeEnabled = true;
    CComPtr<IPrintReadStream> stream;
    if (FAILED(platform::CreatePrintReadStreamOnBytes(defaultTicket.data(), defaultTicket.size(),
                                                      &stream))) {
        throw std::bad_alloc();
    }
    CComBSTR printer(L"xpsfilter");
    const std::string defaultName =
        options.ticketFile.empty() ? "the embedded default ticket" : options.ticketFile;
    bool isTicket = SUCCEEDED(manager.Initialise(stream, printer, token));
    try {
        if (isTicket) PrintTicketXmlDocument check(manager.GetPtrToDefaultPrintTicket());
    } catch (const ZorunComException&) {
        isTicket = false;
    }
    if (!isTicket) {
        throw EffectiveError{xpsfilter::kExitBadTicket,
                             defaultName + " is not a well-formed PrintTicket"};
    }
    return defaultName;
}

// The tickets of the sequence, the document and the page the walk stopped at.
struct PageTickets {
    CComPtr<IPartPrintTicket> tickets[3];  // job, document, page
    std::string partNames[3];              // sequence, document, page
};

// The walk a filter makes: each part's ticket installed in the manager as the part arrives, up
// to the page asked for.
PageTickets WalkToPage(PrintTicketManager& manager, const EffectiveOptions& options) {
    xpsfilter::JobParts parts(options.input);
    PageTickets found;
    unsigned pages = 0;
    auto install = [&](int level, HRESULT hr) {
        if (FAILED(hr)) {
            throw EffectiveError{
                xpsfilter::kExitBadTicket,
                "the ticket of " + found.partNames[level] + " cannot be merged (" + Hex(hr) + ")"};
        }
    };
    while (CComPtr<IUnknown> part = parts.Next()) {
        if (CComQIPtr<IFixedDocumentSequence> sequence = part) {
            found.partNames[0] = xpsfilter::PartUri(sequence.p);
            found.tickets[0] = xpsfilter::PartTicket(sequence.p);
            install(0, manager.InitializeWithPrintTicket(sequence.p));
        } else if (CComQIPtr<IFixedDocument> document = part) {
            found.partNames[1] = xpsfilter::PartUri(document.p);
            found.tickets[1] = xpsfilter::PartTicket(document.p);
            install(1, manager.InitializeWithPrintTicket(document.p));
        } else if (CComQIPtr<IFixedPage> page = part) {
            if (++pages != options.page) continue;
            found.partNames[2] = xpsfilter::PartUri(page.p);
            found.tickets[2] = xpsfilter::PartTicket(page.p);
            install(2, manager.InitializeWithPrintTicket(page.p));
            return found;
        }
    }
    throw EffectiveError{xpsfilter::kExitUsage, options.input + " has " + std::to_string(pages) +
                                                    " page" + (pages == 1 ? "" : "s") +
                                                    ", no page " + std::to_string(options.page)};
}

constexpr const char* kLevelNames[] = {"job", "document", "page"};

// The merged page ticket as `ticket show` shows it, each item marked with the level it came
// from (the lowest level that brings it; a part without a ticket brings none).
TicketContents EffectiveContents(PrintTicketManager& manager, const PageTickets& page) {
    XpsFilterPrintTicket* view = nullptr;
    HRESULT hr = manager.GetTicket(kPTPageScope, &view);
    if (FAILED(hr) || view == nullptr || view->GetMergedTicket() == nullptr) {
        throw EffectiveError{xpsfilter::kExitInternal,
                             "the ticket manager has no merged page ticket (" + Hex(hr) + ")"};
    }
    TicketContents contents = xpsfilter::ReadContents(*view->GetMergedTicket());
    contents.view = xpsfilter::ReadView(*view);
    std::vector<Level> levels;
    for (int i = 2; i >= 0; --i) {
        if (!page.tickets[i]) continue;
        CComPtr<IXMLDOMDocument2> dom = LoadPart(page.tickets[i]);
        if (!dom) continue;
        levels.push_back({kLevelNames[i], xpsfilter::PartUri(page.tickets[i].p), ContentsOf(dom)});
    }
    levels.push_back({"default", "", ContentsOf(manager.GetPtrToDefaultPrintTicket())});
    MarkOrigins(contents.features, levels, &TicketContents::features);
    MarkOrigins(contents.parameters, levels, &TicketContents::parameters);
    MarkOrigins(contents.properties, levels, &TicketContents::properties);
    return contents;
}

void PrintEffective(const EffectiveOptions& options, const TicketContents& contents,
                    const PageTickets& page, const std::string& defaultName) {
    auto ticketOf = [&](int i) {
        return page.tickets[i] ? xpsfilter::PartUri(page.tickets[i].p) : std::string();
    };
    const std::string title = "page " + std::to_string(options.page) + " of " + options.input;
    if (options.json) {
        const std::string extra =
            "  \"page\": " + std::to_string(options.page) +
            ",\n  \"pagePart\": " + xpsfilter::JsonString(page.partNames[2]) +
            ",\n  \"sources\": {\"default\": " + xpsfilter::JsonString(defaultName) +
            ", \"job\": " + JsonOrNull(ticketOf(0)) + ", \"document\": " + JsonOrNull(ticketOf(1)) +
            ", \"page\": " + JsonOrNull(ticketOf(2)) + "},\n";
        std::cout << xpsfilter::FormatShow(title, contents, true, extra);
        return;
    }
    std::cout << xpsfilter::FormatShow(title, contents, false);
    std::cout << "\nMerged, each level onto the one above:\n";
    std::cout << "  default   " << defaultName << "\n";
    for (int i = 0; i < 3; ++i) {
        std::string label = kLevelNames[i];
        label.resize(10, ' ');
        std::cout << "  " << label
                  << (page.tickets[i] ? ticketOf(i)
                                      : "(none: " + page.partNames[i] + " has no ticket)")
                  << "\n";
    }
}

int Effective(const EffectiveOptions& options) {
    if (options.page == 0) throw EffectiveError{xpsfilter::kExitUsage, "pages are counted from 1"};
    HANDLE token = nullptr;
    if (!OpenProcessToken(GetCurrentProcess(), TOKEN_ALL_ACCESS, &token)) {
        throw EffectiveError{xpsfilter::kExitInternal, "cannot open the process token"};
    }
    std::unique_ptr<void, BOOL (*)(HANDLE)> closeToken(token, &CloseHandle);
    PrintTicketManager manager;
    const std::string defaultName = InitialiseMergingManager(manager, options, token);
    const PageTickets page = WalkToPage(manager, options);
    PrintEffective(options, EffectiveContents(manager, page), page, defaultName);
    return xpsfilter::kExitOk;
}

}  // namespace

void AddTicketEffectiveCommand(xpsfilter::CommandLine& commands) {
    CLI::App* ticket = commands.Group("ticket", "Work with PrintTickets");
    auto options = std::make_shared<EffectiveOptions>();
    CLI::App* command = ticket->add_subcommand(
        "effective",
        "Print the ticket a page of a job is printed with: the default, job, document and page "
        "tickets merged as a filter's ticket manager merges them");
    command->add_option("IN", options->input, "The XPS job")->required();
    command->add_option("--page", options->page, "The page, counted from 1 across the job")
        ->required();
    command->add_option("--ticket", options->ticketFile,
                        "The user's default ticket (default: the embedded one, as run uses)");
    command->add_flag("--json", options->json, "Print JSON instead of text");
    command->callback([&commands, options] {
        int code = xpsfilter::kExitInternal;
        try {
            code = Effective(*options);
        } catch (const EffectiveError& error) {
            std::cerr << "xpsfilter: ticket error: " << error.message << "\n";
            code = error.exitCode;
        } catch (const JobError& error) {
            std::cerr << "xpsfilter: " << pipelinehost::KindLabel(error.Kind())
                      << " error: " << error.what() << "\n";
            code = xpsfilter::ExitCodeFor(error.Kind());
        } catch (const ZorunComException& error) {
            std::cerr << "xpsfilter: ticket error: a ticket is not a PrintTicket ("
                      << Hex(error.GetHresult()) << ")\n";
            code = xpsfilter::kExitBadTicket;
        } catch (const std::exception& error) {
            std::cerr << "xpsfilter: internal error: " << error.what() << "\n";
        }
        commands.SetExitCode(code);
    });
}
