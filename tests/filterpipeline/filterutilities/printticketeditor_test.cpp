// Tests of the per-part ticket editor: scope-suffixed names, the map of rewritten tickets shared
// by parts that had one ticket, new empty tickets from the default ticket, the block-wise commit
// and what a broken ticket, a refusing consumer or a failing writer leave behind.
#include <gtest/gtest.h>
#include <libxml/parser.h>

#include <regex>
#include <string>

#include "filterpipeline/filterutilities/printschema.h"
#include "filterpipeline/filterutilities/printticketeditor.h"
#include "pipelinefakes.h"

namespace {

constexpr char kFramework[] =
    "http://schemas.microsoft.com/windows/2003/08/printing/printschemaframework";
constexpr char kKeywords[] =
    "http://schemas.microsoft.com/windows/2003/08/printing/printschemakeywords";

std::string Ticket(const std::string& body, const std::string& extraDeclarations = "") {
    return std::string("<?xml version='1.0' encoding='UTF-8'?><psf:PrintTicket xmlns:psf='") +
           kFramework + "' xmlns:psk='" + kKeywords + "' " + extraDeclarations + " version='1'>" +
           body + "</psf:PrintTicket>";
}

template <class T>
CComPtr<T> Make() {
    CComPtr<T> p;
    p.Attach(new T());
    return p;
}

std::string Narrow(const CXString& text) {
    return text.ToUtf8();
}

// What a part's ticket holds now, as text.
std::string ContentOf(IPartPrintTicket* ticket) {
    CComPtr<IPrintReadStream> stream;
    EXPECT_EQ(ticket->GetStream(&stream), S_OK);
    std::string bytes;
    char buffer[4096];
    for (;;) {
        ULONG read = 0;
        BOOL eof = FALSE;
        if (FAILED(stream->ReadBytes(buffer, sizeof buffer, &read, &eof)) || read == 0) break;
        bytes.append(buffer, read);
    }
    return bytes;
}

std::wstring UriOf(IPartPrintTicket* ticket) {
    CComBSTR uri;
    EXPECT_EQ(ticket->GetUri(&uri), S_OK);
    return uri.m_str == nullptr ? L"" : uri.m_str;
}

// Parses text independently of the DOM under test; true when it is well-formed XML.
bool WellFormed(const std::string& xml) {
    xmlDocPtr doc = xmlReadMemory(xml.data(), static_cast<int>(xml.size()), "ticket.xml", nullptr,
                                  XML_PARSE_NONET | XML_PARSE_NOERROR | XML_PARSE_NOWARNING);
    if (doc == nullptr) return false;
    xmlFreeDoc(doc);
    return true;
}

class EditorTest : public ::testing::Test {
protected:
    void SetUp() override {
        CComPtr<fakes::ReadStream> stream;
        stream.Attach(new fakes::ReadStream(fakes::kDefaultTicket));
        ASSERT_EQ(manager.Initialise(stream, printerName, nullptr), S_OK);
        consumer = Make<fakes::Consumer>();
    }

    CComPtr<fakes::Page> PageWith(CComPtr<fakes::TicketPart> ticket) {
        auto page = Make<fakes::Page>();
        page->ticket = ticket;
        return page;
    }

    // Edits a part's ticket (or, for a part without one, its new ticket) to Landscape and
    // commits; returns the first result that is not S_OK.
    HRESULT RewriteToLandscape(PrintTicketEditor& editor) {
        PrintTicketXmlDocument* document = nullptr;
        HRESULT hr = editor.DoesPartHaveExistingPrintTicket()
                         ? editor.TryToGetPointerToPrintTicketXmlDocument(&document)
                         : editor.GetPointerToNewEmptyPrintTicketXmlDocument(&document);
        if (hr != S_OK) return hr;
        CComPtr<IXMLDOMNode> feature;
        if (document->FeaturePresent(L"PageOrientation", &feature) == S_OK) {
            document->DeleteNode(feature);
        }
        CComPtr<IXMLDOMElement> newFeature;
        CComPtr<IXMLDOMElement> option;
        hr = document->CreateFeatureOptionPair(true, L"PageOrientation", true, L"Landscape",
                                               &newFeature, &option);
        if (FAILED(hr)) return hr;
        document->AppendChildToRootNode(newFeature);
        return editor.CommitChanges();
    }

    PrintTicketManager manager;
    CComBSTR printerName{L"Test Printer"};
    CComPtr<fakes::Consumer> consumer;
};

// --- Names of rewritten tickets ---

// A rewritten ticket's name takes the editor's scope as a suffix before the extension; a job
// ticket is suffixed only when its name is one of a lower scope.
TEST_F(EditorTest, ScopeSuffixesFollowTheEditorsScope) {
    const struct {
        const char* name;
        char scope;  // p(age), d(ocument), j(ob)
        const wchar_t* ticketUri;
        const char* expected;
    } rows[] = {
        {"page", 'p', L"/Documents/1/Metadata/Page1_PT.xml",
         "/Documents/1/Metadata/Page1_PT_p.xml"},
        {"document", 'd', L"/Documents/1/Metadata/Page1_PT.xml",
         "/Documents/1/Metadata/Page1_PT_d.xml"},
        {"page, no extension", 'p', L"/Metadata/PT", "/Metadata/PT_p"},
        {"page, already suffixed", 'p', L"/Metadata/Page1_PT_p.xml", ".xml"},
        {"job", 'j', L"/Metadata/Job_PT.xml", "/Metadata/Job_PT.xml"},
        {"job, named for a page", 'j', L"/Metadata/Page1_PT_p.xml", "/Metadata/Page1_PT_p_j.xml"},
        {"job, named for a document", 'j', L"/Metadata/Doc_PT_d.xml", "/Metadata/Doc_PT_d_j.xml"},
    };
    for (const auto& row : rows) {
        SCOPED_TRACE(row.name);
        auto ticket = fakes::MakeTicket(row.ticketUri, Ticket(""));
        CXString uri;
        HRESULT hr = E_FAIL;
        if (row.scope == 'p') {
            auto page = PageWith(ticket);
            PrintTicketEditor editor(consumer, page, 1, manager);
            hr = editor.GetUriWithScopeSuffixAdded(ticket, uri, false);
        } else if (row.scope == 'd') {
            auto document = Make<fakes::Document>();
            document->ticket = ticket;
            PrintTicketEditor editor(consumer, document, 1, manager);
            hr = editor.GetUriWithScopeSuffixAdded(ticket, uri, false);
        } else {
            auto sequence = Make<fakes::Sequence>();
            PrintTicketEditor editor(consumer, sequence, manager);
            hr = editor.GetUriWithScopeSuffixAdded(ticket, uri, false);
        }
        EXPECT_EQ(hr, S_OK);
        EXPECT_EQ(Narrow(uri), row.expected);
    }
}

TEST_F(EditorTest, TheUniquePartCarriesTheIndexAndTheTickCount) {
    auto ticket = fakes::MakeTicket(L"/Metadata/Page1_PT.xml", Ticket(""));
    auto page = PageWith(ticket);
    PrintTicketEditor pageEditor(consumer, page, 7, manager);
    CXString uri;
    EXPECT_EQ(pageEditor.GetUriWithScopeSuffixAdded(ticket, uri, true), S_OK);
    EXPECT_TRUE(
        std::regex_match(Narrow(uri), std::regex(R"(/Metadata/Page1_PT_p_7_[0-9a-f]+\.xml)")))
        << uri;

    auto sequence = Make<fakes::Sequence>();
    PrintTicketEditor jobEditor(consumer, sequence, manager);
    EXPECT_EQ(jobEditor.GetUriWithScopeSuffixAdded(ticket, uri, true), S_OK);
    EXPECT_TRUE(std::regex_match(Narrow(uri), std::regex(R"(/Metadata/Page1_PT_[0-9]+\.xml)")))
        << uri;
}

TEST_F(EditorTest, AFailingGetUriIsReturnedWithAnEmptyName) {
    auto ticket = fakes::MakeTicket(L"/Metadata/Page1_PT.xml", Ticket(""));
    ticket->failGetUri = true;
    auto page = PageWith(ticket);
    PrintTicketEditor editor(consumer, page, 1, manager);
    CXString uri(L"left over");
    EXPECT_EQ(editor.GetUriWithScopeSuffixAdded(ticket, uri, false), E_FAIL);
    EXPECT_TRUE(uri.IsEmpty());
    EXPECT_EQ(editor.GetUriWithScopeSuffixAdded(nullptr, uri, false), E_POINTER);
}

// --- Rewriting and sharing ---

TEST_F(EditorTest, ADocumentTicketIsRewrittenUnderItsDocumentName) {
    auto document = Make<fakes::Document>();
    document->ticket = fakes::MakeTicket(L"/Metadata/MXDC_Empty_PT.xml", Ticket(""));
    PrintTicketEditor editor(consumer, document, 1, manager);
    ASSERT_EQ(RewriteToLandscape(editor), S_OK);
    EXPECT_EQ(UriOf(document->ticket), L"/Metadata/MXDC_Empty_PT_d.xml");
    IPartPrintTicket* mapped = nullptr;
    CXString uri(L"/Metadata/MXDC_Empty_PT_d.xml");
    EXPECT_EQ(manager.GetUpdatedPrintTicketFromMap(uri, &mapped), S_OK);
    EXPECT_EQ(mapped, document->ticket.p);
}

TEST_F(EditorTest, TheJobTicketIsRewrittenButNeverSynchronised) {
    auto sequence = Make<fakes::Sequence>();
    sequence->ticket = fakes::MakeTicket(L"/Metadata/Job_PT.xml", Ticket(""));
    PrintTicketEditor editor(consumer, sequence, manager);
    EXPECT_EQ(editor.TryToSynchAndCommitThisPrintTicketWithMatchFromMap(), S_FALSE);
    ASSERT_EQ(RewriteToLandscape(editor), S_OK);
    EXPECT_EQ(UriOf(sequence->ticket), L"/Metadata/Job_PT.xml");  // no suffix

    auto another = Make<fakes::Sequence>();
    another->ticket = fakes::MakeTicket(L"/Metadata/Job_PT.xml", Ticket(""));
    PrintTicketEditor second(consumer, another, manager);
    EXPECT_TRUE(second.HasPrintTicketAlreadyBeenUpdatedForThisUri());
    EXPECT_EQ(second.TryToSynchAndCommitThisPrintTicketWithMatchFromMap(), E_INVALIDARG);
    EXPECT_EQ(another->setTicketCalls, 0);
}

TEST_F(EditorTest, TheDocumentIsMadeOnceAndNeedsAConsumerAndAnOutPointer) {
    auto page = PageWith(fakes::MakeTicket(L"/Metadata/Page1_PT.xml", Ticket("")));
    PrintTicketEditor noConsumer(nullptr, page, 1, manager);
    PrintTicketXmlDocument* document = nullptr;
    EXPECT_EQ(noConsumer.TryToGetPointerToPrintTicketXmlDocument(&document), E_PENDING);

    PrintTicketEditor editor(consumer, page, 1, manager);
    EXPECT_EQ(editor.TryToGetPointerToPrintTicketXmlDocument(nullptr), E_POINTER);
    ASSERT_EQ(editor.TryToGetPointerToPrintTicketXmlDocument(&document), S_OK);
    PrintTicketXmlDocument* again = nullptr;
    EXPECT_EQ(editor.TryToGetPointerToPrintTicketXmlDocument(&again), S_OK);
    EXPECT_EQ(again, document);
    EXPECT_EQ(consumer->newPartCalls, 1);

    // A part without a ticket has nothing to edit in place.
    auto bare = Make<fakes::Page>();
    PrintTicketEditor bareEditor(consumer, bare, 2, manager);
    EXPECT_FALSE(bareEditor.DoesPartHaveExistingPrintTicket());
    EXPECT_FALSE(bareEditor.HasPrintTicketAlreadyBeenUpdatedForThisUri());
    EXPECT_EQ(bareEditor.TryToGetPointerToPrintTicketXmlDocument(&document), S_FALSE);
}

TEST_F(EditorTest, ADeclaredPrivateKeywordsNamespaceIsNotDeclaredTwice) {
    const std::string privateNs = CXString(PrintSchema::PrivateKeywordsNamespaceUri).ToUtf8();
    auto page = PageWith(fakes::MakeTicket(
        L"/Metadata/Page1_PT.xml",
        Ticket("<psf:Feature name='drv:Tray'><psf:Option name='drv:Upper'/></psf:Feature>",
               "xmlns:drv='" + privateNs + "'")));
    PrintTicketEditor editor(consumer, page, 1, manager);
    ASSERT_EQ(RewriteToLandscape(editor), S_OK);
    const std::string written = ContentOf(page->ticket);
    EXPECT_TRUE(WellFormed(written)) << written;
    std::size_t count = 0;
    for (std::size_t at = written.find(privateNs); at != std::string::npos;
         at = written.find(privateNs, at + 1)) {
        ++count;
    }
    EXPECT_EQ(count, 1u) << written;
    EXPECT_NE(written.find("zk:Tray"), std::string::npos) << written;
}

// --- New tickets for parts without one ---

TEST_F(EditorTest, ANewEmptyTicketNeedsAPartWithoutOne) {
    auto page = PageWith(fakes::MakeTicket(L"/Metadata/Page1_PT.xml", Ticket("")));
    PrintTicketEditor editor(consumer, page, 1, manager);
    PrintTicketXmlDocument* document = nullptr;
    EXPECT_EQ(editor.GetPointerToNewEmptyPrintTicketXmlDocument(&document), E_FAIL);
    EXPECT_EQ(consumer->newPartCalls, 0);
}

TEST_F(EditorTest, ANewEmptyTicketIsTheDefaultTicketWithoutContent) {
    auto page = Make<fakes::Page>();
    PrintTicketEditor editor(consumer, page, 3, manager);
    PrintTicketXmlDocument* document = nullptr;
    ASSERT_EQ(editor.GetPointerToNewEmptyPrintTicketXmlDocument(&document), S_OK);
    ASSERT_NE(document, nullptr);
    PrintTicketXmlDocument* again = nullptr;
    EXPECT_EQ(editor.GetPointerToNewEmptyPrintTicketXmlDocument(&again), S_OK);
    EXPECT_EQ(again, document);
    ASSERT_EQ(consumer->newParts.size(), 1u);

    CComPtr<IXMLDOMNode> child;
    EXPECT_EQ(document->GetRootNode()->get_firstChild(&child), S_FALSE);
    EXPECT_EQ(child, nullptr);
    EXPECT_TRUE(document->GetKeywordsNsPrefix() == L"psk:");  // the default's declarations

    ASSERT_EQ(RewriteToLandscape(editor), S_OK);
    const std::wstring uri = UriOf(page->ticket);
    EXPECT_TRUE(std::regex_match(CXString(uri.c_str()).ToUtf8(),
                                 std::regex(R"(/METADATA/Page_3_PT_[0-9]+\.xml)")))
        << CXString(uri.c_str()).ToUtf8();
    const std::string written = ContentOf(page->ticket);
    EXPECT_TRUE(WellFormed(written)) << written;
    EXPECT_NE(written.find("psk:Landscape"), std::string::npos) << written;
    EXPECT_EQ(written.find("JobCopiesAllDocuments"), std::string::npos) << written;

    IPartPrintTicket* mapped = nullptr;
    CXString key(uri.c_str());
    EXPECT_EQ(manager.GetUpdatedPrintTicketFromMap(key, &mapped), S_OK);
}

TEST_F(EditorTest, NewTicketNamesFollowTheScope) {
    auto sequence = Make<fakes::Sequence>();
    PrintTicketEditor jobEditor(consumer, sequence, manager);
    PrintTicketXmlDocument* document = nullptr;
    ASSERT_EQ(jobEditor.GetPointerToNewEmptyPrintTicketXmlDocument(&document), S_OK);
    auto fixedDocument = Make<fakes::Document>();
    PrintTicketEditor documentEditor(consumer, fixedDocument, 2, manager);
    ASSERT_EQ(documentEditor.GetPointerToNewEmptyPrintTicketXmlDocument(&document), S_OK);

    ASSERT_EQ(consumer->newParts.size(), 2u);
    CComQIPtr<IPartPrintTicket> job(consumer->newParts[0]);
    CComQIPtr<IPartPrintTicket> doc(consumer->newParts[1]);
    EXPECT_TRUE(std::regex_match(CXString(UriOf(job).c_str()).ToUtf8(),
                                 std::regex(R"(/METADATA/Job_PT_[0-9]+\.xml)")));
    EXPECT_TRUE(std::regex_match(CXString(UriOf(doc).c_str()).ToUtf8(),
                                 std::regex(R"(/METADATA/Doc_2_PT_[0-9]+\.xml)")));
}

TEST(EditorWithoutDefaultTicket, ANewTicketIsPendingAndItsStreamClosed) {
    PrintTicketManager manager;  // never initialised
    auto consumer = Make<fakes::Consumer>();
    auto page = Make<fakes::Page>();
    PrintTicketEditor editor(consumer, page, 1, manager);
    PrintTicketXmlDocument* document = nullptr;
    EXPECT_EQ(editor.GetPointerToNewEmptyPrintTicketXmlDocument(&document), E_PENDING);
    ASSERT_EQ(consumer->newStreams.size(), 1u);
    EXPECT_TRUE(consumer->newStreams[0]->closed);
    EXPECT_EQ(editor.CommitChanges(), E_FAIL);
    EXPECT_EQ(page->setTicketCalls, 0);
}

// --- Committing ---

TEST_F(EditorTest, CommittingTwiceWritesOnce) {
    auto page = PageWith(fakes::MakeTicket(L"/Metadata/Page1_PT.xml", Ticket("")));
    PrintTicketEditor editor(consumer, page, 1, manager);
    ASSERT_EQ(RewriteToLandscape(editor), S_OK);
    auto& stream = *consumer->newStreams.at(0);
    const int writes = stream.writeCalls;
    const std::string bytes = stream.bytes;
    EXPECT_EQ(editor.CommitChanges(), S_OK);
    EXPECT_EQ(stream.writeCalls, writes);
    EXPECT_EQ(stream.bytes, bytes);
    EXPECT_EQ(stream.closeCalls, 1);
}

TEST_F(EditorTest, ALargeTicketIsWrittenIn8192ByteBlocks) {
    std::string padding;
    for (int i = 0; i < 400; ++i) {
        padding += "<psf:Feature name='psk:Extra" + std::to_string(i) +
                   "'><psf:Option name='psk:Value'/></psf:Feature>";
    }
    auto page = PageWith(fakes::MakeTicket(L"/Metadata/Page1_PT.xml", Ticket(padding)));
    PrintTicketEditor editor(consumer, page, 1, manager);
    ASSERT_EQ(RewriteToLandscape(editor), S_OK);
    auto& stream = *consumer->newStreams.at(0);
    ASSERT_GT(stream.bytes.size(), 3u * 8192u);
    EXPECT_EQ(stream.largestWrite, 8192u);
    EXPECT_EQ(static_cast<std::size_t>(stream.writeCalls), (stream.bytes.size() + 8191) / 8192);
    EXPECT_TRUE(WellFormed(stream.bytes));
    EXPECT_NE(stream.bytes.find("psk:Extra399"), std::string::npos);
}

TEST_F(EditorTest, CommitWithoutANewPartFails) {
    auto page = PageWith(fakes::MakeTicket(L"/Metadata/Page1_PT.xml", Ticket("")));
    PrintTicketEditor editor(consumer, page, 1, manager);
    EXPECT_EQ(editor.CommitChanges(), E_FAIL);
    EXPECT_EQ(page->setTicketCalls, 0);
}

TEST_F(EditorTest, TheMapKeepsTheTicketEvenWhenThePartRefusesIt) {
    class RefusingPage final : public fakes::TicketHolder<IFixedPage> {
    public:
        HRESULT SetPrintTicket(IPartPrintTicket*) override { return E_ACCESSDENIED; }
        HRESULT GetUri(BSTR* uri) override { return CComBSTR(L"/p.fpage").CopyTo(uri); }
        HRESULT GetStream(IPrintReadStream**) override { return E_NOTIMPL; }
        HRESULT GetPartCompression(EXpsCompressionOptions*) override { return E_NOTIMPL; }
        HRESULT SetPartCompression(EXpsCompressionOptions) override { return E_NOTIMPL; }
        HRESULT GetPagePart(const wchar_t*, IUnknown**) override { return E_NOTIMPL; }
        HRESULT GetWriteStream(IPrintWriteStream**) override { return E_NOTIMPL; }
        HRESULT SetPagePart(IUnknown*) override { return E_NOTIMPL; }
        HRESULT DeleteResource(const wchar_t*) override { return E_NOTIMPL; }
        HRESULT GetXpsPartIterator(IXpsPartIterator**) override { return E_NOTIMPL; }
    };
    auto page = Make<RefusingPage>();
    page->ticket = fakes::MakeTicket(L"/Metadata/Page1_PT.xml", Ticket(""));
    PrintTicketEditor editor(consumer, page, 1, manager);
    EXPECT_EQ(RewriteToLandscape(editor), E_ACCESSDENIED);
    IPartPrintTicket* mapped = nullptr;
    CXString uri(L"/Metadata/Page1_PT_p.xml");
    EXPECT_EQ(manager.GetUpdatedPrintTicketFromMap(uri, &mapped), S_OK);
}

// --- Bad input ---

TEST_F(EditorTest, ATicketThatDoesNotParseFailsClosesTheStreamAndCachesNothing) {
    for (const char* content :
         {"<psf:PrintTicket", "", "\xff\xfe garbage", "<notaticket xmlns='urn:x'/>"}) {
        auto page = PageWith(fakes::MakeTicket(L"/Metadata/Page1_PT.xml", content));
        auto local = Make<fakes::Consumer>();
        PrintTicketEditor editor(local, page, 1, manager);
        PrintTicketXmlDocument* document = nullptr;
        EXPECT_EQ(editor.TryToGetPointerToPrintTicketXmlDocument(&document), E_FAIL) << content;
        EXPECT_EQ(document, nullptr);
        ASSERT_EQ(local->newStreams.size(), 1u);
        EXPECT_TRUE(local->newStreams[0]->closed);
        EXPECT_EQ(local->newStreams[0]->bytes, "");
        EXPECT_EQ(editor.CommitChanges(), E_FAIL);
        EXPECT_EQ(page->setTicketCalls, 0);
        IPartPrintTicket* mapped = nullptr;
        CXString uri(L"/Metadata/Page1_PT_p.xml");
        EXPECT_EQ(manager.GetUpdatedPrintTicketFromMap(uri, &mapped), S_FALSE);
    }
}

TEST_F(EditorTest, AConsumerThatRefusesTheNewPartLeavesThePartAlone) {
    consumer->refuseNewParts = true;
    auto page = PageWith(fakes::MakeTicket(L"/Metadata/Page1_PT.xml", Ticket("")));
    PrintTicketEditor editor(consumer, page, 1, manager);
    PrintTicketXmlDocument* document = nullptr;
    EXPECT_EQ(editor.TryToGetPointerToPrintTicketXmlDocument(&document), E_ACCESSDENIED);
    EXPECT_EQ(document, nullptr);
    EXPECT_EQ(editor.CommitChanges(), E_FAIL);
    EXPECT_EQ(page->setTicketCalls, 0);

    auto bare = Make<fakes::Page>();
    PrintTicketEditor bareEditor(consumer, bare, 2, manager);
    EXPECT_EQ(bareEditor.GetPointerToNewEmptyPrintTicketXmlDocument(&document), E_ACCESSDENIED);
    EXPECT_EQ(bareEditor.CommitChanges(), E_FAIL);
    EXPECT_EQ(bare->setTicketCalls, 0);
}

TEST_F(EditorTest, AWriterFailingMidwayIsReportedAndNothingIsAttached) {
    std::string padding;
    for (int i = 0; i < 300; ++i) {
        padding += "<psf:Feature name='psk:Extra" + std::to_string(i) +
                   "'><psf:Option name='psk:Value'/></psf:Feature>";
    }
    auto page = PageWith(fakes::MakeTicket(L"/Metadata/Page1_PT.xml", Ticket(padding)));
    auto original = page->ticket;
    PrintTicketEditor editor(consumer, page, 1, manager);
    PrintTicketXmlDocument* document = nullptr;
    ASSERT_EQ(editor.TryToGetPointerToPrintTicketXmlDocument(&document), S_OK);
    consumer->newStreams.at(0)->failAfterWrites = 1;

    EXPECT_EQ(editor.CommitChanges(), E_ACCESSDENIED);
    auto& stream = *consumer->newStreams[0];
    EXPECT_TRUE(stream.closed);
    EXPECT_EQ(stream.bytes.size(), 8192u);  // the first block only
    EXPECT_EQ(page->setTicketCalls, 0);
    EXPECT_EQ(page->ticket.p, original.p);
    IPartPrintTicket* mapped = nullptr;
    CXString uri(L"/Metadata/Page1_PT_p.xml");
    EXPECT_EQ(manager.GetUpdatedPrintTicketFromMap(uri, &mapped), S_FALSE);
    // A second attempt finds nothing left to commit.
    EXPECT_EQ(editor.CommitChanges(), E_FAIL);
    EXPECT_EQ(stream.closeCalls, 1);
}

TEST_F(EditorTest, APartWithoutAnyObjectIsHandledAsHavingNoTicket) {
    PrintTicketEditor editor(consumer, static_cast<IFixedPage*>(nullptr), 1, manager);
    EXPECT_FALSE(editor.DoesPartHaveExistingPrintTicket());
    PrintTicketXmlDocument* document = nullptr;
    ASSERT_EQ(editor.GetPointerToNewEmptyPrintTicketXmlDocument(&document), S_OK);
    EXPECT_EQ(editor.CommitChanges(), E_INVALIDARG);
}

}  // namespace
