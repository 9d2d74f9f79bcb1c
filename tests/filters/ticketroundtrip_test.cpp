// Real tickets edited through PrintTicketEditor inside the pipeline host, and read back by what
// reads them next. Every corpus package, and the sample job carrying each corpus ticket at job,
// document and page level, runs through a filter that edits the ticket of every part the way a
// driver's filter does: a feature, an integer parameter, the driver's private data and a user
// form as the media size. Each ticket the output attaches is then read with a fresh
// namespace-aware parse in which a namespace error is fatal (every QName declared), with the
// merge provider, and with the library's documents and typed view: every value written comes
// back, and every item of the input ticket that was not rewritten is still there, unchanged.
#include <gtest/gtest.h>
#include <libxml/parser.h>
#include <libxml/tree.h>

#include <cstring>
#include <filesystem>
#include <map>
#include <string>
#include <vector>

#include "filterpipeline/filterutilities/pagemediasizeptpchelper.h"
#include "filterpipeline/filterutilities/printschema.h"
#include "filterpipeline/filterutilities/printticketeditor.h"
#include "filterpipeline/filterutilities/xpsfilterbase.h"
#include "filtertesting.h"
#include "hostjob.h"
#include "platform/com/com.h"
#include "platform/com/unicode.h"
#include "platform/prntvpt/prntvpt.h"
#include "platform/prntvpt/ticketcheck.h"

namespace {

namespace fs = std::filesystem;
namespace tp = testpackages;

const std::string kKeywords =
    "http://schemas.microsoft.com/windows/2003/08/printing/printschemakeywords";
const std::string kPrivate = platform::WideToUtf8(PrintSchema::PrivateKeywordsNamespaceUri);

// The driver's private data the filter stores: a device mode with a private part of
// recognisable bytes.
ByteBuffer DriverData() {
    constexpr WORD kPrivateBytes = 24;
    DEVMODEW devmode{};
    devmode.dmSize = sizeof(DEVMODEW);
    devmode.dmDriverExtra = kPrivateBytes;
    devmode.dmFields = DM_ORIENTATION;
    devmode.dmOrientation = DMORIENT_LANDSCAPE;
    ByteBuffer bytes(sizeof(DEVMODEW) + kPrivateBytes);
    std::memcpy(bytes.data(), &devmode, sizeof devmode);
    for (std::size_t i = sizeof devmode; i < bytes.size(); ++i) bytes[i] = static_cast<BYTE>(i * 7);
    return bytes;
}

// Edits the ticket of every sequence, document and page as the editor's calling order says.
class EditingFilter final : public XpsFilterBase {
protected:
    HRESULT OnFixedDocumentSequence(IFixedDocumentSequence* sequence) override {
        PrintTicketEditor editor(m_pXpsConsumer, sequence, m_printTicketManager);
        RETURN_IF_FAILED(Edit(editor));
        return XpsFilterBase::OnFixedDocumentSequence(sequence);
    }
    HRESULT OnFixedDocument(IFixedDocument* document) override {
        PrintTicketEditor editor(m_pXpsConsumer, document, m_documentCount, m_printTicketManager);
        RETURN_IF_FAILED(Edit(editor));
        return XpsFilterBase::OnFixedDocument(document);
    }
    HRESULT OnFixedPage(IFixedPage* page) override {
        PrintTicketEditor editor(m_pXpsConsumer, page, m_pageCount, m_printTicketManager);
        RETURN_IF_FAILED(Edit(editor));
        return XpsFilterBase::OnFixedPage(page);
    }

private:
    static HRESULT Edit(PrintTicketEditor& editor) {
        if (editor.HasPrintTicketAlreadyBeenUpdatedForThisUri()) {
            return editor.TryToSynchAndCommitThisPrintTicketWithMatchFromMap();
        }
        PrintTicketXmlDocument* ticket = nullptr;
        RETURN_IF_FAILED(editor.DoesPartHaveExistingPrintTicket()
                             ? editor.TryToGetPointerToPrintTicketXmlDocument(&ticket)
                             : editor.GetPointerToNewEmptyPrintTicketXmlDocument(&ticket));
        if (ticket == nullptr) return E_UNEXPECTED;
        try {
            const CComBSTR keywords =
                ticket->PrefixForWriting(PrintSchema::MsPrintTicketKeywordsNamespace);
            while (ticket->DeleteFeatureNodeIfExists(keywords, L"PageOrientation") == S_OK) {
            }
            CComPtr<IXMLDOMElement> feature;
            CComPtr<IXMLDOMElement> option;
            ticket->CreateFeatureOptionPair(true, L"PageOrientation", true, L"Landscape", &feature,
                                            &option);
            ticket->AppendChildToRootNode(feature);
            while (ticket->DeleteParameterInitNodeIfExists(keywords, L"JobCopiesAllDocuments") ==
                   S_OK) {
            }
            ticket->AppendIntegerParameterInit(keywords, L"JobCopiesAllDocuments", 3);
            ByteBuffer data = DriverData();
            RETURN_IF_FAILED(ticket->SetJobZorunDriverDataInPrintTicket(
                reinterpret_cast<DEVMODEW*>(data.data()), static_cast<DWORD>(data.size())));
            PageMediaSizePtPcHelper::FormsInfoRec form{};
            form.kind = 25005;  // a user form
            form.paperId = 258;
            form.width = 1000;
            form.height = 2000;
            form.dataModelValue = 70001;
            RETURN_IF_FAILED(
                PageMediaSizePtPcHelper::AddOrReplacePageMediaSize(*ticket, true, form));
        } catch (const ZorunComException& e) {
            return FAILED(e.GetHresult()) ? e.GetHresult() : E_FAIL;
        }
        return editor.CommitChanges();
    }
};

// The PrintTicket part attached to each part of a package that has one, by relationship.
std::map<std::string, std::string> TicketsByPart(const outputpackage::Package& package) {
    std::map<std::string, std::string> tickets;
    for (const std::string& rels : package.PartNames()) {
        const std::size_t at = rels.rfind("/_rels/");
        if (at == std::string::npos || !rels.ends_with(".rels")) continue;
        const std::string source =
            rels.substr(0, at + 1) + rels.substr(at + 7, rels.size() - at - 12);
        const std::string ticket = package.TicketOf(source);
        if (!ticket.empty()) tickets[source] = ticket;
    }
    return tickets;
}

// The selected option of a root Feature, as an expanded name; "" when absent.
std::string OptionOf(xmlDoc* doc, const std::string& feature) {
    for (const ticketcheck::Item& item : ticketcheck::RootItems(doc)) {
        if (item.key != "Feature" + feature) continue;
        for (xmlNode* c = item.node->children; c != nullptr; c = c->next) {
            if (!ticketcheck::IsPsf(c, "Option")) continue;
            xmlChar* name = xmlGetNoNsProp(c, ticketcheck::X("name"));
            const std::string option =
                ticketcheck::Resolve(c, ticketcheck::Trim(ticketcheck::S(name)));
            xmlFree(name);
            return option;
        }
    }
    return {};
}

// The items the filter rewrites; everything else of the input must come through unchanged.
bool Rewritten(const std::string& key) {
    for (const std::string local :
         {"PageOrientation", "JobCopiesAllDocuments", "PageMediaSize",
          "PageMediaSizeMediaSizeWidth", "PageMediaSizeMediaSizeHeight"}) {
        if (key.size() > local.size() &&
            key.compare(key.size() - local.size(), local.size(), local) == 0 &&
            key.find("{" + kKeywords + "}") != std::string::npos) {
            return true;
        }
    }
    return key == "ParameterInit{" + kPrivate + "}JobZorunDriverData";
}

// The written ticket through the merge provider, onto the default ticket at page scope.
std::string MergedOntoDefault(const std::string& ticket) {
    HPTPROVIDER provider = nullptr;
    EXPECT_EQ(PTOpenProvider(L"Round Trip Printer", 1, &provider), S_OK);
    CComPtr<IStream> base;
    CComPtr<IStream> delta;
    CComPtr<IStream> result;
    const std::string defaultTicket = filtertesting::SampleDefaultTicket();
    EXPECT_EQ(platform::CreateMemoryStream(defaultTicket.data(), defaultTicket.size(), &base),
              S_OK);
    EXPECT_EQ(platform::CreateMemoryStream(ticket.data(), ticket.size(), &delta), S_OK);
    EXPECT_EQ(platform::CreateMemoryStream(nullptr, 0, &result), S_OK);
    BSTR error = nullptr;
    const HRESULT hr =
        PTMergeAndValidatePrintTicket(provider, base, delta, kPTPageScope, result, &error);
    SysFreeString(error);
    PTCloseProvider(provider);
    EXPECT_TRUE(SUCCEEDED(hr)) << std::hex << hr;
    LARGE_INTEGER zero{};
    result->Seek(zero, STREAM_SEEK_SET, nullptr);
    std::string bytes(1 << 20, '\0');
    ULONG got = 0;
    EXPECT_TRUE(SUCCEEDED(result->Read(bytes.data(), static_cast<ULONG>(bytes.size()), &got)));
    EXPECT_LT(got, bytes.size()) << "the merged ticket is larger than expected";
    bytes.resize(got);
    return bytes;
}

// Checks one written ticket against what was written and what its input had.
void CheckWrittenTicket(const std::string& written, const std::string& input) {
    std::string problem;
    ticketcheck::Doc doc = ticketcheck::ParseStrict(written, &problem);
    ASSERT_NE(doc, nullptr) << problem << "\n" << written;
    std::string undeclared;
    EXPECT_TRUE(ticketcheck::AllQNamesResolve(xmlDocGetRootElement(doc.get()), &undeclared))
        << "undeclared prefix in " << undeclared;

    // What the filter wrote, resolved to expanded names whatever the prefixes.
    EXPECT_EQ(OptionOf(doc.get(), "{" + kKeywords + "}PageOrientation"),
              "{" + kKeywords + "}Landscape");
    EXPECT_EQ(OptionOf(doc.get(), "{" + kKeywords + "}PageMediaSize"),
              "{" + kPrivate + "}UserForm_258_1000x2000");
    const auto items = ticketcheck::ItemSignatures(doc.get());
    const auto copies = items.find("ParameterInit{" + kKeywords + "}JobCopiesAllDocuments");
    ASSERT_NE(copies, items.end());
    EXPECT_NE(copies->second.find(">3</>"), std::string::npos) << copies->second;
    EXPECT_EQ(items.count("ParameterInit{" + kPrivate + "}JobZorunDriverData"), 1u);

    // Nothing the input had is lost.
    if (!input.empty()) {
        ticketcheck::Doc before = ticketcheck::ParseStrict(input);
        if (before) {
            for (const auto& [key, signature] : ticketcheck::ItemSignatures(before.get())) {
                if (Rewritten(key)) continue;
                const auto after = items.find(key);
                ASSERT_NE(after, items.end()) << key << " was lost";
                EXPECT_EQ(after->second, signature) << key << " changed";
            }
        }
    }

    // The library reads back the private data and the values through its own documents.
    CComPtr<IXMLDOMDocument2> dom = filtertesting::LoadDom(written);
    ASSERT_TRUE(dom);
    PrintTicketXmlDocument ticket(dom);
    ByteBuffer data;
    ticket.GetJobZorunDriverDataFromPrintTicket(data);
    EXPECT_EQ(data, DriverData());
    EXPECT_EQ(filtertesting::FeatureOption(written, L"PageMediaSize"), "UserForm_258_1000x2000");

    // And the typed view of a page that carries it.
    PrintTicketManager manager;
    filtertesting::InitialiseWithSampleDefaultTicket(manager);
    ASSERT_EQ(manager.InitializeWithPrintTicket(kPTPageScope, dom.p), S_OK);
    XpsFilterPrintTicket* view = nullptr;
    ASSERT_EQ(manager.GetTicket(kPTPageScope, &view), S_OK);
    bool found = false;
    HRESULT status = E_FAIL;
    EXPECT_EQ(view->GetOrientation(&found, &status), PrintSchema::PageOrientation::Landscape);
    EXPECT_TRUE(found);

    // The merge provider takes it as a delta and keeps the values.
    ticketcheck::Doc merged = ticketcheck::ParseStrict(MergedOntoDefault(written));
    ASSERT_NE(merged, nullptr);
    EXPECT_EQ(OptionOf(merged.get(), "{" + kKeywords + "}PageOrientation"),
              "{" + kKeywords + "}Landscape");
    EXPECT_EQ(OptionOf(merged.get(), "{" + kKeywords + "}PageMediaSize"),
              "{" + kPrivate + "}UserForm_258_1000x2000");
}

struct RoundTripCase {
    std::string name;  // a corpus package, or a corpus ticket placed into the sample job
    bool ticketOnly = false;
};

void PrintTo(const RoundTripCase& row, std::ostream* out) {
    *out << (row.ticketOnly ? "ticket " : "package ") << row.name;
}

std::vector<RoundTripCase> Cases() {
    std::vector<RoundTripCase> cases;
    for (const std::string& name : tp::CorpusNames("xps")) cases.push_back({name, false});
    for (const std::string& name : tp::CorpusNames("tickets")) cases.push_back({name, true});
    return cases;
}

// The sample job with every ticket part's content replaced by the corpus ticket.
std::string SampleJobCarrying(const std::string& ticket) {
    std::vector<tp::Entry> entries;
    for (tp::Item& item : tp::ReadZip(std::string(FU_SOURCE_DIR) + "/samples/sample_job.xps")) {
        const bool isTicket =
            item.name.size() > 7 && item.name.compare(item.name.size() - 7, 7, "_PT.xml") == 0;
        entries.push_back({item.name, isTicket ? ticket : std::move(item.content)});
    }
    return tp::WriteZip("carrying.xps", entries);
}

class TicketRoundTrip : public ::testing::TestWithParam<RoundTripCase> {};

TEST_P(TicketRoundTrip, EditedTicketsReadBackWhole) {
    const RoundTripCase& row = GetParam();
    const std::string input = row.ticketOnly
                                  ? SampleJobCarrying(ticketcheck::ReadFile(
                                        std::string(FU_CORPUS_DIR) + "/tickets/" + row.name))
                                  : tp::CorpusFile(row.name);

    hostjob::HostJob job;
    job.AddNew<EditingFilter>();
    job.Go(input);
    ASSERT_TRUE(job.result.succeeded) << job.Error();

    const outputpackage::Package in(input);
    const outputpackage::Package out(job.output);
    const auto inputTickets = TicketsByPart(in);
    const auto outputTickets = TicketsByPart(out);
    ASSERT_FALSE(outputTickets.empty());
    for (const auto& [part, ticket] : outputTickets) {
        SCOPED_TRACE(part + " -> " + ticket);
        const auto before = inputTickets.find(part);
        CheckWrittenTicket(out.Part(ticket),
                           before == inputTickets.end() ? std::string() : in.Part(before->second));
    }
}

INSTANTIATE_TEST_SUITE_P(Corpus, TicketRoundTrip, ::testing::ValuesIn(Cases()),
                         [](const ::testing::TestParamInfo<RoundTripCase>& info) {
                             return (info.param.ticketOnly ? "ticket_" : "package_") +
                                    tp::TestNameOf(info.param.name);
                         });

}  // namespace
