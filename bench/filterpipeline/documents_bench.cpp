// documents_bench.cpp: the cost of the Print Schema document layer against raw libxml2, measured
// in one run: a feature lookup (GetFeatureOption of PageMediaSize on a ~5 KB ticket of ~25
// Features) against the same compiled XPath on a libxml2 document, and a ticket load through
// the MSXML stand-in against a plain libxml2 parse. Prints the ratios at the end.
#include <benchmark/benchmark.h>
#include <libxml/parser.h>
#include <libxml/tree.h>
#include <libxml/xpath.h>
#include <libxml/xpathInternals.h>

#include <cstdio>
#include <cstring>
#include <map>
#include <optional>
#include <string>

#include "bench/filterpipeline/bestcpureporter.h"
#include "filterpipeline/filterutilities/printticketxmldocument.h"
#include "platform/com/comruntime.h"
#include "platform/com/unicode.h"

namespace {

// A job ticket of the size and shape real drivers write: ~25 Features, some with
// ScoredProperties, a sub-Feature, parameter initialisers, PageMediaSize in the middle.
std::string MakeTicket() {
    std::string features;
    const char* simple[][2] = {
        {"JobCollateAllDocuments", "Collated"},
        {"JobDuplexAllDocumentsContiguously", "OneSided"},
        {"JobInputBin", "AutoSelect"},
        {"JobOutputBin", "AutoSelect"},
        {"JobStapleAllDocuments", "None"},
        {"JobHolePunch", "None"},
        {"JobBindAllDocuments", "None"},
        {"DocumentCollate", "Collated"},
        {"DocumentDuplex", "OneSided"},
        {"DocumentInputBin", "AutoSelect"},
        {"DocumentStaple", "None"},
        {"PageOrientation", "Portrait"},
    };
    for (const auto& [feature, option] : simple) {
        features += std::string("<psf:Feature name=\"psk:") + feature +
                    "\"><psf:Option name=\"psk:" + option + "\"/></psf:Feature>";
    }
    features +=
        "<psf:Feature name=\"psk:JobNUpAllDocumentsContiguously\"><psf:Option>"
        "<psf:ScoredProperty name=\"psk:PagesPerSheet\"><psf:Value xsi:type=\"xsd:integer\">1"
        "</psf:Value></psf:ScoredProperty></psf:Option>"
        "<psf:Feature name=\"psk:PresentationDirection\"><psf:Option name=\"psk:RightBottom\"/>"
        "</psf:Feature></psf:Feature>"
        "<psf:Feature name=\"psk:PageMediaSize\"><psf:Option name=\"psk:ISOA4\">"
        "<psf:ScoredProperty name=\"psk:MediaSizeWidth\"><psf:Value xsi:type=\"xsd:integer\">"
        "210000</psf:Value></psf:ScoredProperty>"
        "<psf:ScoredProperty name=\"psk:MediaSizeHeight\"><psf:Value xsi:type=\"xsd:integer\">"
        "297000</psf:Value></psf:ScoredProperty></psf:Option></psf:Feature>";
    const char* more[][2] = {
        {"PageOutputColor", "Color"},
        {"PageMediaType", "Plain"},
        {"PageOutputQuality", "Normal"},
        {"PageBorderless", "None"},
        {"PageBlackGenerationProcessing", "Automatic"},
        {"PageColorManagement", "System"},
        {"PageDeviceFontSubstitution", "On"},
        {"PageTrueTypeFontMode", "Automatic"},
        {"PageScaling", "None"},
    };
    for (const auto& [feature, option] : more) {
        features += std::string("<psf:Feature name=\"psk:") + feature +
                    "\"><psf:Option name=\"psk:" + option + "\"/></psf:Feature>";
    }
    features +=
        "<psf:Feature name=\"psk:PageResolution\"><psf:Option name=\"ns0000:Option1\">"
        "<psf:ScoredProperty name=\"psk:ResolutionX\"><psf:Value xsi:type=\"xsd:integer\">600"
        "</psf:Value></psf:ScoredProperty>"
        "<psf:ScoredProperty name=\"psk:ResolutionY\"><psf:Value xsi:type=\"xsd:integer\">600"
        "</psf:Value></psf:ScoredProperty></psf:Option></psf:Feature>"
        "<psf:Feature name=\"ns0000:JobCompression\"><psf:Option name=\"ns0000:Medium\"/>"
        "</psf:Feature>";
    // The base64 devmode snapshot the platform's writer puts into every ticket.
    std::string devmode;
    const char alphabet[] = "ABCDEFGHIJKLMNOPQRSTUVWXYZabcdefghijklmnopqrstuvwxyz0123456789+/";
    for (int i = 0; i < 1600; ++i) devmode += alphabet[(i * 7 + i / 64) % 64];
    return "<?xml version=\"1.0\" encoding=\"UTF-8\"?>\n"
           "<psf:PrintTicket xmlns:psf=\"http://schemas.microsoft.com/windows/2003/08/printing/"
           "printschemaframework\" xmlns:xsi=\"http://www.w3.org/2001/XMLSchema-instance\" "
           "xmlns:xsd=\"http://www.w3.org/2001/XMLSchema\" version=\"1\" "
           "xmlns:ns0000=\"http://schemas.microsoft.com/windows/2006/06/printing/"
           "printschemakeywords/microsoftxpsdocumentwriter\" "
           "xmlns:psk=\"http://schemas.microsoft.com/windows/2003/08/printing/"
           "printschemakeywords\">"
           "<psf:ParameterInit name=\"ns0000:PageDevmodeSnapshot\"><psf:Value "
           "xsi:type=\"xsd:string\">" +
           devmode +
           "</psf:Value></psf:ParameterInit>"
           "<psf:ParameterInit name=\"psk:JobCopiesAllDocuments\"><psf:Value "
           "xsi:type=\"xsd:integer\">1</psf:Value></psf:ParameterInit>" +
           features + "</psf:PrintTicket>";
}

const std::string& Ticket() {
    static const std::string ticket = MakeTicket();
    return ticket;
}

// The query PrintTicketXmlDocument::GetFeatureOption builds for PageMediaSize.
const char kFeatureQuery[] =
    "//psf:Feature[@name = \"psk:PageMediaSize\"]/psf:Option | "
    "//psf:Feature[@name = \"psk:PageMediaSize\"]/psf:ScoredProperty[@name = "
    "\"psk:OptionName\"]/psf:Value";

constexpr int kParseOptions = XML_PARSE_NONET | XML_PARSE_NOBLANKS;

CComPtr<IXMLDOMDocument2> LoadDom(const std::string& bytes) {
    CComPtr<IXMLDOMDocument2> dom;
    if (FAILED(dom.CoCreateInstance(CLSID_DOMDocument60))) return nullptr;
    CComPtr<IStream> stream;
    if (FAILED(platform::CreateMemoryStream(bytes.data(), bytes.size(), &stream))) return nullptr;
    VARIANT_BOOL loaded = VARIANT_FALSE;
    if (dom->load(CComVariant(static_cast<IUnknown*>(stream.p)), &loaded) != S_OK ||
        loaded != VARIANT_TRUE) {
        return nullptr;
    }
    return dom;
}

void DomFeatureLookup(benchmark::State& state) {
    CComPtr<IXMLDOMDocument2> dom = LoadDom(Ticket());
    if (!dom) {
        state.SkipWithError("the DOM does not load the ticket");
        return;
    }
    PrintTicketXmlDocument ticket(dom);
    for (auto _ : state) {
        CComBSTR option;
        CComBSTR prefix;
        if (ticket.GetFeatureOption(L"PageMediaSize", &option, &prefix) != S_OK) {
            state.SkipWithError("PageMediaSize not found");
            break;
        }
        benchmark::DoNotOptimize(option.m_str);
    }
    state.counters["ticket_bytes"] = static_cast<double>(Ticket().size());
}
BENCHMARK(DomFeatureLookup);

void RawFeatureLookup(benchmark::State& state) {
    const std::string& bytes = Ticket();
    xmlDocPtr doc = xmlReadMemory(bytes.data(), static_cast<int>(bytes.size()), nullptr, nullptr,
                                  kParseOptions);
    xmlXPathContextPtr context = xmlXPathNewContext(doc);
    xmlXPathRegisterNs(context, BAD_CAST "psf",
                       BAD_CAST
                       "http://schemas.microsoft.com/windows/2003/08/printing/"
                       "printschemaframework");
    xmlXPathCompExprPtr query = xmlXPathCtxtCompile(context, BAD_CAST kFeatureQuery);
    for (auto _ : state) {
        // Evaluate, take the first node in document order, read and split its name.
        xmlXPathObjectPtr result = xmlXPathCompiledEval(query, context);
        std::string local;
        if (result != nullptr && result->nodesetval != nullptr && result->nodesetval->nodeNr > 0) {
            xmlChar* name = xmlGetProp(result->nodesetval->nodeTab[0], BAD_CAST "name");
            if (name != nullptr) {
                const char* colon = std::strchr(reinterpret_cast<const char*>(name), ':');
                if (colon != nullptr) local = colon + 1;
                xmlFree(name);
            }
        }
        xmlXPathFreeObject(result);
        if (local != "ISOA4") {
            state.SkipWithError("PageMediaSize not found");
            break;
        }
        benchmark::DoNotOptimize(local.data());
    }
    xmlXPathFreeCompExpr(query);
    xmlXPathFreeContext(context);
    xmlFreeDoc(doc);
}
BENCHMARK(RawFeatureLookup);

void DomTicketLoad(benchmark::State& state) {
    for (auto _ : state) {
        CComPtr<IXMLDOMDocument2> dom = LoadDom(Ticket());
        if (!dom) {
            state.SkipWithError("the DOM does not load the ticket");
            break;
        }
        benchmark::DoNotOptimize(dom.p);
    }
}
BENCHMARK(DomTicketLoad);

void DomTicketLoadAndWrap(benchmark::State& state) {
    for (auto _ : state) {
        CComPtr<IXMLDOMDocument2> dom = LoadDom(Ticket());
        if (!dom) {
            state.SkipWithError("the DOM does not load the ticket");
            break;
        }
        PrintTicketXmlDocument ticket(dom);
        benchmark::DoNotOptimize(ticket.GetRootNode());
    }
}
BENCHMARK(DomTicketLoadAndWrap);

void RawTicketParse(benchmark::State& state) {
    const std::string& bytes = Ticket();
    for (auto _ : state) {
        xmlDocPtr doc = xmlReadMemory(bytes.data(), static_cast<int>(bytes.size()), nullptr,
                                      nullptr, kParseOptions);
        benchmark::DoNotOptimize(doc);
        xmlFreeDoc(doc);
    }
}
BENCHMARK(RawTicketParse);

// Prints measured / baseline; a target of 0 prints the ratio for information only.
void PrintRatio(const BestCpuReporter& reporter, const char* what, const char* measured,
                const char* baseline, double target) {
    const std::optional<double> ratio = reporter.Ratio(measured, baseline);
    if (!ratio) return;
    std::printf("%-40s %6.2fx  (%s / %s", what, *ratio, measured, baseline);
    if (target > 0) {
        std::printf(", target <= %.2fx)%s\n", target, *ratio <= target ? "" : "  ABOVE TARGET");
    } else {
        std::printf(")\n");
    }
}

}  // namespace

int main(int argc, char** argv) {
    benchmark::Initialize(&argc, argv);
    if (benchmark::ReportUnrecognizedArguments(argc, argv)) return 1;
    BestCpuReporter reporter;
    benchmark::RunSpecifiedBenchmarks(&reporter);
    std::printf("\nTicket: %zu bytes. Ratios of CPU time against raw libxml2 in this run:\n",
                Ticket().size());
    PrintRatio(reporter, "Feature lookup (GetFeatureOption)", "DomFeatureLookup",
               "RawFeatureLookup", 1.5);
    PrintRatio(reporter, "Ticket load (DOM)", "DomTicketLoad", "RawTicketParse", 1.5);
    PrintRatio(reporter, "Ticket load, then PrintTicketXmlDocument", "DomTicketLoadAndWrap",
               "RawTicketParse", 0);
    benchmark::Shutdown();
    return 0;
}
