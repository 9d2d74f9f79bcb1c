// ticketmanager_bench.cpp: the per-page cost of the ticket manager on a 1,000-page job in which
// every page carries its own ticket (InitializeWithPrintTicket for the page, GetTicket, and the
// six typed getters of the page view), against a raw libxml2 parse of the same page tickets,
// measured in one run. The stages are also timed on their own to show where the time goes.
// Prints the ratios at the end.
#include <benchmark/benchmark.h>
#include <libxml/parser.h>
#include <libxml/tree.h>

#include <cstdio>
#include <fstream>
#include <map>
#include <optional>
#include <sstream>
#include <string>
#include <vector>

#include "bench/filterpipeline/bestcpureporter.h"
#include "filterpipeline/filterutilities/printticketmanager.h"
#include "platform/com/comruntime.h"
#include "platform/printpipeline/printstreams.h"
#include "tests/filterpipeline/filterutilities/pipelinefakes.h"

namespace {

constexpr int kPages = 1000;

std::string ReadFile(const std::string& path) {
    std::ifstream in(path, std::ios::binary);
    std::ostringstream text;
    text << in.rdbuf();
    return text.str();
}

// A real page ticket (the platform writer's, with its device mode snapshot), made distinct per
// page by its media width.
const std::string& PageTicketTemplate() {
    static const std::string ticket =
        ReadFile(std::string(FU_CORPUS_DIR) +
                 "/tickets/wpftest_word.xps__Documents_1_Metadata_Page1_PT.xml");
    return ticket;
}

struct Job {
    Job() {
        const std::string& base = PageTicketTemplate();
        const std::string width = ">215900<";
        const std::size_t at = base.find(width);
        for (int i = 0; i < kPages; ++i) {
            std::string ticket = base;
            if (at != std::string::npos) {
                ticket.replace(at, width.size(), ">" + std::to_string(215900 + i) + "<");
            }
            tickets.push_back(ticket);
            CComPtr<fakes::Page> page;
            page.Attach(new fakes::Page());
            page->ticket = fakes::MakeTicket(
                L"/Documents/1/Metadata/Page" + std::to_wstring(i + 1) + L"_PT.xml", ticket);
            pages.push_back(page);
        }
        defaultTicket = ReadFile(std::string(FU_CORPUS_DIR) +
                                 "/tickets/winprintrs_test_document.xps__Metadata_Job_PT.xml");
    }

    std::vector<std::string> tickets;
    std::vector<CComPtr<fakes::Page>> pages;
    std::string defaultTicket;
};

const Job& TheJob() {
    static const Job job;
    return job;
}

// A manager initialised with the default ticket, the sequence and the document (which carry
// none of their own, so they inherit it).
void Prepare(PrintTicketManager& manager, benchmark::State& state) {
    CComPtr<IPrintReadStream> stream;
    const std::string& ticket = TheJob().defaultTicket;
    platform::CreatePrintReadStreamOnBytes(ticket.data(), ticket.size(), &stream);
    CComBSTR printer(L"bench");
    if (FAILED(manager.Initialise(stream, printer, nullptr)) ||
        FAILED(manager.InitializeWithPrintTicket(kPTJobScope, nullptr)) ||
        FAILED(manager.InitializeWithPrintTicket(kPTDocumentScope, nullptr))) {
        state.SkipWithError("the manager cannot be initialised");
    }
}

// The whole per-page work a filter does: the page's ticket into the manager, the page view,
// and every typed getter.
void ManagerPerPage(benchmark::State& state) {
    const Job& job = TheJob();
    PrintTicketManager manager;
    Prepare(manager, state);
    for (auto _ : state) {
        for (const auto& page : job.pages) {
            if (FAILED(manager.InitializeWithPrintTicket(static_cast<const IFixedPage*>(page.p)))) {
                state.SkipWithError("InitializeWithPrintTicket failed");
                return;
            }
            XpsFilterPrintTicket* view = nullptr;
            if (FAILED(manager.GetTicket(kPTPageScope, &view)) || view == nullptr) {
                state.SkipWithError("GetTicket failed");
                return;
            }
            bool found = false;
            HRESULT status = S_OK;
            benchmark::DoNotOptimize(view->GetOrientation(&found, &status));
            benchmark::DoNotOptimize(view->GetPageScaling(&found, &status).scaleWidth);
            benchmark::DoNotOptimize(view->GetPageMediaSize(&found, &status).width);
            benchmark::DoNotOptimize(view->GetBookletBinding(&found, &status).bindingOption);
            benchmark::DoNotOptimize(view->GetNUp(&found, &status).pagesPerSheet);
            benchmark::DoNotOptimize(view->GetOutputPaperSize(&found, &status).width);
        }
    }
    state.SetItemsProcessed(state.iterations() * kPages);
}

// The stages on their own: the page's ticket into the manager only.
void ManagerInitializeOnly(benchmark::State& state) {
    const Job& job = TheJob();
    PrintTicketManager manager;
    Prepare(manager, state);
    for (auto _ : state) {
        for (const auto& page : job.pages) {
            benchmark::DoNotOptimize(
                manager.InitializeWithPrintTicket(static_cast<const IFixedPage*>(page.p)));
        }
    }
    state.SetItemsProcessed(state.iterations() * kPages);
}

// ... plus GetTicket (the view wraps the four tickets it is given), without the getters.
void ManagerInitializeAndView(benchmark::State& state) {
    const Job& job = TheJob();
    PrintTicketManager manager;
    Prepare(manager, state);
    for (auto _ : state) {
        for (const auto& page : job.pages) {
            manager.InitializeWithPrintTicket(static_cast<const IFixedPage*>(page.p));
            XpsFilterPrintTicket* view = nullptr;
            benchmark::DoNotOptimize(manager.GetTicket(kPTPageScope, &view));
        }
    }
    state.SetItemsProcessed(state.iterations() * kPages);
}

// The baseline: libxml2 parses each page ticket from memory into a tree, and frees it.
void RawPageTicketParse(benchmark::State& state) {
    const Job& job = TheJob();
    for (auto _ : state) {
        for (const std::string& ticket : job.tickets) {
            xmlDocPtr doc = xmlReadMemory(ticket.data(), static_cast<int>(ticket.size()), nullptr,
                                          nullptr, XML_PARSE_NONET);
            benchmark::DoNotOptimize(doc);
            xmlFreeDoc(doc);
        }
    }
    state.SetItemsProcessed(state.iterations() * kPages);
}

BENCHMARK(ManagerPerPage)->Unit(benchmark::kMillisecond);
BENCHMARK(ManagerInitializeOnly)->Unit(benchmark::kMillisecond);
BENCHMARK(ManagerInitializeAndView)->Unit(benchmark::kMillisecond);
BENCHMARK(RawPageTicketParse)->Unit(benchmark::kMillisecond);

// Prints measured / baseline and CPU time per page; `target` adds the verdict against 1.2x.
void PrintRatio(const BestCpuReporter& reporter, const char* what, const char* measured,
                const char* baseline, bool target) {
    const std::optional<double> ratio = reporter.Ratio(measured, baseline);
    if (!ratio) return;
    std::printf("%-46s %6.2fx  %8.1f us CPU/page%s\n", what, *ratio,
                *reporter.Best(measured) / kPages * 1e6,
                !target         ? ""
                : *ratio <= 1.2 ? "  (target <= 1.20x: met)"
                                : "  (target <= 1.20x: ABOVE TARGET)");
}

}  // namespace

int main(int argc, char** argv) {
    CoInitializeEx(nullptr, COINIT_APARTMENTTHREADED);
    benchmark::Initialize(&argc, argv);
    if (benchmark::ReportUnrecognizedArguments(argc, argv)) return 1;
    BestCpuReporter reporter;
    benchmark::RunSpecifiedBenchmarks(&reporter);
    std::printf(
        "\n%d pages, each with its own %zu-byte ticket. CPU time per page, against a raw\n"
        "libxml2 parse of the same ticket in this run:\n",
        kPages, PageTicketTemplate().size());
    PrintRatio(reporter, "Raw libxml2 parse (baseline)", "RawPageTicketParse", "RawPageTicketParse",
               false);
    PrintRatio(reporter, "InitializeWithPrintTicket", "ManagerInitializeOnly", "RawPageTicketParse",
               false);
    PrintRatio(reporter, "... + GetTicket", "ManagerInitializeAndView", "RawPageTicketParse",
               false);
    PrintRatio(reporter, "... + the six typed getters (the whole page)", "ManagerPerPage",
               "RawPageTicketParse", true);
    benchmark::Shutdown();
    CoUninitialize();
    return 0;
}
