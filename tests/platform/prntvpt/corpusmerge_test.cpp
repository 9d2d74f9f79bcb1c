// Merges every real-world ticket of the corpus onto every other at each scope, through the
// provider API, and checks the result with an independent reader: well-formed with namespaces,
// every base item kept unless an in-scope delta item of the same expanded name replaced it, every
// in-scope delta item present as the delta has it, nothing out of scope taken from the delta.
#include <gtest/gtest.h>

#include <algorithm>
#include <filesystem>
#include <string>
#include <vector>

#include "platform/com/com.h"
#include "platform/prntvpt/prntvpt.h"
#include "platform/prntvpt/ticketcheck.h"

namespace {

struct CorpusTicket {
    std::string name;
    std::string bytes;
    ticketcheck::Doc doc;
};

std::vector<CorpusTicket> LoadCorpus() {
    std::vector<CorpusTicket> tickets;
    for (const auto& entry :
         std::filesystem::directory_iterator(std::string(FU_CORPUS_DIR) + "/tickets")) {
        if (entry.path().extension() != ".xml") continue;
        CorpusTicket ticket;
        ticket.name = entry.path().filename().string();
        ticket.bytes = ticketcheck::ReadFile(entry.path().string());
        ticket.doc = ticketcheck::ParseStrict(ticket.bytes);
        tickets.push_back(std::move(ticket));
    }
    std::sort(tickets.begin(), tickets.end(),
              [](const auto& a, const auto& b) { return a.name < b.name; });
    return tickets;
}

bool InScope(const std::string& local, EPrintTicketScope scope) {
    if (scope == kPTJobScope) return true;
    if (local.rfind("Page", 0) == 0) return true;
    return scope == kPTDocumentScope && local.rfind("Document", 0) == 0;
}

CComPtr<IStream> StreamOf(const std::string& bytes) {
    CComPtr<IStream> stream;
    EXPECT_EQ(platform::CreateMemoryStream(bytes.data(), bytes.size(), &stream), S_OK);
    return stream;
}

std::string Contents(IStream* stream) {
    LARGE_INTEGER zero{};
    stream->Seek(zero, STREAM_SEEK_SET, nullptr);
    std::string bytes;
    char buffer[4096];
    ULONG got = 0;
    while (SUCCEEDED(stream->Read(buffer, sizeof buffer, &got)) && got != 0) {
        bytes.append(buffer, got);
    }
    return bytes;
}

TEST(CorpusTicketMerge, EveryTicketOntoEveryOtherAtEveryScope) {
    const std::vector<CorpusTicket> corpus = LoadCorpus();
    ASSERT_GE(corpus.size(), 10u) << "the corpus tickets are missing";
    for (const auto& ticket : corpus) ASSERT_NE(ticket.doc, nullptr) << ticket.name;

    HPTPROVIDER provider = nullptr;
    ASSERT_EQ(PTOpenProvider(L"Corpus Printer", 1, &provider), S_OK);
    int merges = 0;
    int replaced = 0;
    int renamedPrefixes = 0;
    for (const auto& base : corpus) {
        const auto baseItems = ticketcheck::ItemSignatures(base.doc.get());
        for (const auto& delta : corpus) {
            const auto deltaItems = ticketcheck::ItemSignatures(delta.doc.get());
            for (EPrintTicketScope scope : {kPTPageScope, kPTDocumentScope, kPTJobScope}) {
                SCOPED_TRACE(base.name + " <- " + delta.name + " at " +
                             platform::PrintTicketScopeName(scope));
                auto baseStream = StreamOf(base.bytes);
                auto deltaStream = StreamOf(delta.bytes);
                CComPtr<IStream> result;
                ASSERT_EQ(CreateStreamOnHGlobal(nullptr, TRUE, &result), S_OK);
                BSTR error = nullptr;
                ASSERT_EQ(PTMergeAndValidatePrintTicket(provider, baseStream, deltaStream, scope,
                                                        result, &error),
                          S_PT_NO_CONFLICT);
                ASSERT_EQ(error, nullptr);
                ++merges;

                const std::string xml = Contents(result);
                std::string problem;
                auto merged = ticketcheck::ParseStrict(xml, &problem);
                ASSERT_NE(merged, nullptr) << problem << "\n" << xml;
                std::string bad;
                EXPECT_TRUE(ticketcheck::AllQNamesResolve(xmlDocGetRootElement(merged.get()), &bad))
                    << bad;
                if (xml.find("xmlns:ns0000_1=") != std::string::npos) ++renamedPrefixes;
                const auto items = ticketcheck::ItemSignatures(merged.get());

                // In-scope delta items win, whatever prefixes either ticket used.
                std::size_t expected = baseItems.size();
                for (const auto& [key, signature] : deltaItems) {
                    const std::string local = key.substr(key.find('}') + 1);
                    const bool inBase = baseItems.count(key) != 0;
                    if (InScope(local, scope)) {
                        ASSERT_TRUE(items.count(key)) << key;
                        EXPECT_EQ(items.at(key), signature) << key;
                        if (inBase) ++replaced;
                        if (!inBase) ++expected;
                    } else if (!inBase) {
                        EXPECT_EQ(items.count(key), 0u) << "out of scope, yet taken: " << key;
                    }
                }
                // Everything else of the base, private features included, is kept as it was.
                for (const auto& [key, signature] : baseItems) {
                    ASSERT_TRUE(items.count(key)) << "lost " << key;
                    const std::string local = key.substr(key.find('}') + 1);
                    if (!(deltaItems.count(key) && InScope(local, scope))) {
                        EXPECT_EQ(items.at(key), signature) << key;
                    }
                }
                EXPECT_EQ(items.size(), expected);
                EXPECT_EQ(ticketcheck::RootItems(merged.get()).size(), items.size())
                    << "no item appears twice";
            }
        }
    }
    EXPECT_EQ(PTCloseProvider(provider), S_OK);
    EXPECT_EQ(merges, static_cast<int>(corpus.size() * corpus.size() * 3));
    EXPECT_GT(replaced, 0) << "the corpus exercises replacement";
    EXPECT_GT(renamedPrefixes, 0) << "the corpus binds ns0000 to two namespaces";
}

TEST(CorpusTicketMerge, PrivateFeaturesOfBothTicketsSurvive) {
    const std::string dir = std::string(FU_CORPUS_DIR) + "/tickets/";
    // The 3D ticket binds ns0000 to its own driver namespace and has vendor ParameterInits; the
    // MXDW job ticket binds ns0000 to the XPS Document Writer's.
    const std::string base =
        ticketcheck::ReadFile(dir + "winprintrs_test_document.xps__Metadata_Job_PT.xml");
    const std::string delta =
        ticketcheck::ReadFile(dir + "msdocs-wdd_example-printticket-document.xml");
    std::string merged;
    std::string error;
    ASSERT_EQ(platform::MergePrintTicketXml(base, delta, kPTJobScope, merged, error),
              S_PT_NO_CONFLICT)
        << error;
    auto doc = ticketcheck::ParseStrict(merged);
    ASSERT_NE(doc, nullptr);
    const auto items = ticketcheck::ItemSignatures(doc.get());
    const std::string mxdw =
        "http://schemas.microsoft.com/windows/2006/06/printing/printschemakeywords/"
        "microsoftxpsdocumentwriter";
    EXPECT_TRUE(items.count("Feature{" + mxdw + "}JobInterleaving"));
    EXPECT_TRUE(items.count("ParameterInit{" + mxdw + "}PageDevmodeSnapshot"));
    EXPECT_TRUE(items.count("ParameterInit{http://foo}Job3DAMap"));
    const std::string support =
        "ParameterInit{http://schemas.microsoft.com/3dmanufacturing/2013/01/pskeywords3d}"
        "Job3DSupportsMaterial";
    ASSERT_TRUE(items.count(support));
    EXPECT_NE(items.at(support).find("{http://foo}B"), std::string::npos)
        << "the QName value still names the vendor's B";
}

}  // namespace
