// Tests of the per-part ticket editor: scope-suffixed names, the map of rewritten tickets shared
// by parts that had one ticket, new empty tickets from the default ticket, the block-wise commit
// and what a broken ticket, a refusing consumer or a failing writer leave behind.
#include <gtest/gtest.h>
#include <libxml/parser.h>

#include <cctype>
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

// A ticket of `count` extra features, large enough to be written in several blocks.
std::string LargeTicket(int count) {
    std::string padding;
    for (int i = 0; i < count; ++i) {
        padding += "<psf:Feature name='psk:Extra" + std::to_string(i) +
                   "'><psf:Option name='psk:Value'/></psf:Feature>";
    }
    return Ticket(padding);
}

template <class T>
CComPtr<T> Make() {
    CComPtr<T> p;
    p.Attach(new T());
    return p;
}

// What a part's ticket holds now, as text: what the consumer's stream received for a ticket it
// made, the content of one the test made.
std::string ContentOf(IPartPrintTicket* ticket) {
    auto* part = static_cast<fakes::TicketPart*>(ticket);
    return part->written != nullptr ? part->written->bytes : part->content;
}

std::string UriOf(IPartPrintTicket* ticket) {
    CComBSTR uri;
    EXPECT_EQ(ticket->GetUri(&uri), S_OK);
    return CXString(uri.m_str == nullptr ? L"" : uri.m_str).ToUtf8();
}

// Parses text independently of the DOM under test; true when it is well-formed XML.
bool WellFormed(const std::string& xml) {
    xmlDocPtr doc = xmlReadMemory(xml.data(), static_cast<int>(xml.size()), "ticket.xml", nullptr,
                                  XML_PARSE_NONET | XML_PARSE_NOERROR | XML_PARSE_NOWARNING);
    if (doc == nullptr) return false;
    xmlFreeDoc(doc);
    return true;
}

// A part of one scope and an editor of it.
struct Edited {
    CComPtr<fakes::Page> page;
    CComPtr<fakes::Document> document;
    CComPtr<fakes::Sequence> sequence;
    std::unique_ptr<PrintTicketEditor> editor;

    // The part's ticket slot and its count of SetPrintTicket calls.
    CComPtr<IPartPrintTicket>& Ticket() {
        return page ? page->ticket : document ? document->ticket : sequence->ticket;
    }
    int SetTicketCalls() const {
        return page       ? page->setTicketCalls
               : document ? document->setTicketCalls
                          : sequence->setTicketCalls;
    }
};

class EditorTest : public ::testing::Test {
protected:
    void SetUp() override {
        CComPtr<fakes::ReadStream> stream;
        stream.Attach(new fakes::ReadStream(fakes::kDefaultTicket));
        ASSERT_EQ(manager.Initialise(stream, printerName, nullptr), S_OK);
        consumer = Make<fakes::Consumer>();
    }

    // An editor of a p(age), d(ocument) or j(ob) part holding `ticket` (or none).
    Edited Edit(char scope, IPartPrintTicket* ticket, ULONG index = 1,
                IXpsDocumentConsumer* by = nullptr) {
        if (by == nullptr) by = consumer;
        Edited e;
        if (scope == 'p') {
            e.page = Make<fakes::Page>();
            e.page->ticket = ticket;
            e.editor = std::make_unique<PrintTicketEditor>(by, e.page, index, manager);
        } else if (scope == 'd') {
            e.document = Make<fakes::Document>();
            e.document->ticket = ticket;
            e.editor = std::make_unique<PrintTicketEditor>(by, e.document, index, manager);
        } else {
            e.sequence = Make<fakes::Sequence>();
            e.sequence->ticket = ticket;
            e.editor = std::make_unique<PrintTicketEditor>(by, e.sequence, manager);
        }
        return e;
    }

    Edited EditPage(const std::string& content = Ticket("")) {
        return Edit('p', fakes::MakeTicket(L"/Metadata/Page1_PT.xml", content));
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

    HRESULT Mapped(const wchar_t* uri) {
        IPartPrintTicket* mapped = nullptr;
        CXString key(uri);
        return manager.GetUpdatedPrintTicketFromMap(key, &mapped);
    }

    PrintTicketManager manager;
    CComBSTR printerName{L"Test Printer"};
    CComPtr<fakes::Consumer> consumer;
};

// --- Names of rewritten tickets ---

// A rewritten ticket's name takes the editor's scope as a suffix before the extension; a job
// ticket is suffixed only when its name is one of a lower scope. The unique name of a page
// carries the index and the tick count, a job's the tick count.
TEST_F(EditorTest, ScopeSuffixesFollowTheEditorsScope) {
    // Scopes p(age), d(ocument), j(ob); upper case: the unique name. Expected: a pattern.
    const std::tuple<const char*, char, const wchar_t*, const char*> rows[] = {
        // clang-format off
        {"page", 'p', L"/Documents/1/Page1_PT.xml", "/Documents/1/Page1_PT_p\\.xml"},
        {"document", 'd', L"/Metadata/Page1_PT.xml", "/Metadata/Page1_PT_d\\.xml"},
        {"page, no extension", 'p', L"/Metadata/PT", "/Metadata/PT_p"},
        {"page, already suffixed", 'p', L"/Metadata/Page1_PT_p.xml", "\\.xml"},
        {"job", 'j', L"/Metadata/Job_PT.xml", "/Metadata/Job_PT\\.xml"},
        {"job, named for a page", 'j', L"/Metadata/Page1_PT_p.xml", "/Metadata/Page1_PT_p_j\\.xml"},
        {"job, named for a document", 'j', L"/Metadata/Doc_PT_d.xml", "/Metadata/Doc_PT_d_j\\.xml"},
        {"unique page", 'P', L"/Metadata/Page1_PT.xml", "/Metadata/Page1_PT_p_7_[0-9a-f]+\\.xml"},
        {"unique job", 'J', L"/Metadata/Page1_PT.xml", "/Metadata/Page1_PT_[0-9]+\\.xml"},
        // clang-format on
    };
    for (const auto& [name, scope, ticketUri, expected] : rows) {
        auto ticket = fakes::MakeTicket(ticketUri, Ticket(""));
        Edited e = Edit(static_cast<char>(std::tolower(scope)), ticket, 7);
        CXString uri;
        EXPECT_EQ(e.editor->GetUriWithScopeSuffixAdded(ticket, uri, std::isupper(scope)), S_OK);
        EXPECT_TRUE(std::regex_match(uri.ToUtf8(), std::regex(expected))) << name << uri.ToUtf8();
    }

    // A failing GetUri is returned with an empty name.
    auto ticket = fakes::MakeTicket(L"/Metadata/Page1_PT.xml", Ticket(""));
    ticket->failGetUri = true;
    Edited e = Edit('p', ticket);
    CXString uri(L"left over");
    EXPECT_EQ(e.editor->GetUriWithScopeSuffixAdded(ticket, uri, false), E_FAIL);
    EXPECT_TRUE(uri.IsEmpty());
    EXPECT_EQ(e.editor->GetUriWithScopeSuffixAdded(nullptr, uri, false), E_POINTER);
}

// --- Rewriting and sharing ---

// A rewritten ticket is attached under its suffixed name (a job's keeps its own) and kept in
// the map; a part without a ticket gets a new one named for its scope and index, made from the
// default ticket without its content.
TEST_F(EditorTest, RewrittenTicketsAreAttachedUnderTheirScopesName) {
    const struct {
        const char* name;
        char scope;
        const wchar_t* ticketUri;  // null: the part has none
        ULONG index;
        const char* expected;  // a pattern
    } rows[] = {
        {"page", 'p', L"/Metadata/Page1_PT.xml", 1, "/Metadata/Page1_PT_p\\.xml"},
        {"document", 'd', L"/Metadata/MXDC_Empty_PT.xml", 1, "/Metadata/MXDC_Empty_PT_d\\.xml"},
        {"job", 'j', L"/Metadata/Job_PT.xml", 1, "/Metadata/Job_PT\\.xml"},
        {"new page ticket", 'p', nullptr, 3, "/METADATA/Page_3_PT_[0-9]+\\.xml"},
        {"new document ticket", 'd', nullptr, 2, "/METADATA/Doc_2_PT_[0-9]+\\.xml"},
        {"new job ticket", 'j', nullptr, 1, "/METADATA/Job_PT_[0-9]+\\.xml"},
    };
    for (const auto& row : rows) {
        SCOPED_TRACE(row.name);
        CComPtr<fakes::TicketPart> ticket;
        if (row.ticketUri != nullptr) ticket = fakes::MakeTicket(row.ticketUri, Ticket(""));
        Edited e = Edit(row.scope, ticket, row.index);
        ASSERT_EQ(RewriteToLandscape(*e.editor), S_OK);
        const std::string uri = UriOf(e.Ticket());
        EXPECT_TRUE(std::regex_match(uri, std::regex(row.expected))) << uri;
        const std::string written = ContentOf(e.Ticket());
        EXPECT_TRUE(WellFormed(written)) << written;
        EXPECT_NE(written.find("psk:Landscape"), std::string::npos) << written;
        EXPECT_EQ(written.find("JobCopiesAllDocuments"), std::string::npos) << written;
        if (row.scope != 'j') {
            IPartPrintTicket* mapped = nullptr;
            CXString key(uri.c_str());
            EXPECT_EQ(manager.GetUpdatedPrintTicketFromMap(key, &mapped), S_OK);
            EXPECT_EQ(mapped, e.Ticket().p);
        }
    }
}

// The job ticket is never synchronised from the map, even when it has been rewritten.
TEST_F(EditorTest, TheJobTicketIsNeverSynchronised) {
    Edited first = Edit('j', fakes::MakeTicket(L"/Metadata/Job_PT.xml", Ticket("")));
    EXPECT_EQ(first.editor->TryToSynchAndCommitThisPrintTicketWithMatchFromMap(), S_FALSE);
    ASSERT_EQ(RewriteToLandscape(*first.editor), S_OK);
    Edited second = Edit('j', fakes::MakeTicket(L"/Metadata/Job_PT.xml", Ticket("")));
    EXPECT_TRUE(second.editor->HasPrintTicketAlreadyBeenUpdatedForThisUri());
    EXPECT_EQ(second.editor->TryToSynchAndCommitThisPrintTicketWithMatchFromMap(), E_INVALIDARG);
    EXPECT_EQ(second.SetTicketCalls(), 0);
}

TEST_F(EditorTest, TheDocumentIsMadeOnceAndNeedsAConsumerAndAnOutPointer) {
    auto ticket = fakes::MakeTicket(L"/Metadata/Page1_PT.xml", Ticket(""));
    auto page = Make<fakes::Page>();
    page->ticket = ticket;
    PrintTicketEditor noConsumer(nullptr, page, 1, manager);
    PrintTicketXmlDocument* document = nullptr;
    EXPECT_EQ(noConsumer.TryToGetPointerToPrintTicketXmlDocument(&document), E_PENDING);

    Edited e = Edit('p', ticket);
    EXPECT_EQ(e.editor->TryToGetPointerToPrintTicketXmlDocument(nullptr), E_POINTER);
    ASSERT_EQ(e.editor->TryToGetPointerToPrintTicketXmlDocument(&document), S_OK);
    PrintTicketXmlDocument* again = nullptr;
    EXPECT_EQ(e.editor->TryToGetPointerToPrintTicketXmlDocument(&again), S_OK);
    EXPECT_EQ(again, document);
    EXPECT_EQ(consumer->newPartCalls, 1);
    // A new empty ticket needs a part without one.
    EXPECT_EQ(e.editor->GetPointerToNewEmptyPrintTicketXmlDocument(&again), E_FAIL);
    EXPECT_EQ(consumer->newPartCalls, 1);

    // A part without a ticket has nothing to edit in place; its new ticket is made once.
    Edited bare = Edit('p', nullptr, 2);
    EXPECT_FALSE(bare.editor->DoesPartHaveExistingPrintTicket());
    EXPECT_FALSE(bare.editor->HasPrintTicketAlreadyBeenUpdatedForThisUri());
    EXPECT_EQ(bare.editor->TryToGetPointerToPrintTicketXmlDocument(&document), S_FALSE);
    ASSERT_EQ(bare.editor->GetPointerToNewEmptyPrintTicketXmlDocument(&document), S_OK);
    EXPECT_EQ(bare.editor->GetPointerToNewEmptyPrintTicketXmlDocument(&again), S_OK);
    EXPECT_EQ(again, document);
    EXPECT_EQ(consumer->newPartCalls, 2);
    CComPtr<IXMLDOMNode> child;
    EXPECT_EQ(document->GetRootNode()->get_firstChild(&child), S_FALSE);
    EXPECT_TRUE(document->GetKeywordsNsPrefix() == L"psk:");  // the default's declarations
}

TEST_F(EditorTest, ADeclaredPrivateKeywordsNamespaceIsNotDeclaredTwice) {
    const std::string privateNs = CXString(PrintSchema::PrivateKeywordsNamespaceUri).ToUtf8();
    Edited e =
        EditPage(Ticket("<psf:Feature name='drv:Tray'><psf:Option name='drv:Upper'/></psf:Feature>",
                        "xmlns:drv='" + privateNs + "'"));
    ASSERT_EQ(RewriteToLandscape(*e.editor), S_OK);
    const std::string written = ContentOf(e.Ticket());
    EXPECT_TRUE(WellFormed(written)) << written;
    std::size_t count = 0;
    for (std::size_t at = written.find(privateNs); at != std::string::npos;
         at = written.find(privateNs, at + 1)) {
        ++count;
    }
    EXPECT_EQ(count, 1u) << written;
    EXPECT_NE(written.find("zk:Tray"), std::string::npos) << written;
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

// A large ticket is written in blocks of 8192 bytes, once: committing again writes nothing.
TEST_F(EditorTest, ALargeTicketIsWrittenIn8192ByteBlocksOnce) {
    Edited e = EditPage(LargeTicket(400));
    EXPECT_EQ(e.editor->CommitChanges(), E_FAIL);  // nothing to commit yet
    EXPECT_EQ(e.SetTicketCalls(), 0);
    ASSERT_EQ(RewriteToLandscape(*e.editor), S_OK);
    auto& stream = *consumer->newStreams.at(0);
    ASSERT_GT(stream.bytes.size(), 3u * 8192u);
    EXPECT_EQ(stream.largestWrite, 8192u);
    EXPECT_EQ(static_cast<std::size_t>(stream.writeCalls), (stream.bytes.size() + 8191) / 8192);
    EXPECT_TRUE(WellFormed(stream.bytes));
    EXPECT_NE(stream.bytes.find("psk:Extra399"), std::string::npos);

    const int writes = stream.writeCalls;
    const std::string bytes = stream.bytes;
    EXPECT_EQ(e.editor->CommitChanges(), S_OK);
    EXPECT_EQ(stream.writeCalls, writes);
    EXPECT_EQ(stream.bytes, bytes);
    EXPECT_EQ(stream.closeCalls, 1);
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
    EXPECT_EQ(Mapped(L"/Metadata/Page1_PT_p.xml"), S_OK);
}

// --- Bad input ---

TEST_F(EditorTest, ATicketThatDoesNotParseFailsClosesTheStreamAndCachesNothing) {
    for (const char* content :
         {"<psf:PrintTicket", "", "\xff\xfe garbage", "<notaticket xmlns='urn:x'/>"}) {
        SCOPED_TRACE(content);
        auto local = Make<fakes::Consumer>();
        Edited e = Edit('p', fakes::MakeTicket(L"/Metadata/Page1_PT.xml", content), 1, local);
        PrintTicketXmlDocument* document = nullptr;
        EXPECT_EQ(e.editor->TryToGetPointerToPrintTicketXmlDocument(&document), E_FAIL);
        EXPECT_EQ(document, nullptr);
        ASSERT_EQ(local->newStreams.size(), 1u);
        EXPECT_TRUE(local->newStreams[0]->closed);
        EXPECT_EQ(local->newStreams[0]->bytes, "");
        EXPECT_EQ(e.editor->CommitChanges(), E_FAIL);
        EXPECT_EQ(e.SetTicketCalls(), 0);
        EXPECT_EQ(Mapped(L"/Metadata/Page1_PT_p.xml"), S_FALSE);
    }
}

// A consumer that refuses the new part leaves both a part with a ticket and one without alone.
TEST_F(EditorTest, AConsumerThatRefusesTheNewPartLeavesThePartAlone) {
    consumer->refuseNewParts = true;
    for (bool hasTicket : {true, false}) {
        Edited e = hasTicket ? EditPage() : Edit('p', nullptr, 2);
        PrintTicketXmlDocument* document = nullptr;
        EXPECT_EQ(hasTicket ? e.editor->TryToGetPointerToPrintTicketXmlDocument(&document)
                            : e.editor->GetPointerToNewEmptyPrintTicketXmlDocument(&document),
                  E_ACCESSDENIED);
        EXPECT_EQ(document, nullptr);
        EXPECT_EQ(e.editor->CommitChanges(), E_FAIL);
        EXPECT_EQ(e.SetTicketCalls(), 0);
    }
}

TEST_F(EditorTest, AWriterFailingMidwayIsReportedAndNothingIsAttached) {
    Edited e = EditPage(LargeTicket(300));
    auto original = e.Ticket();
    PrintTicketXmlDocument* document = nullptr;
    ASSERT_EQ(e.editor->TryToGetPointerToPrintTicketXmlDocument(&document), S_OK);
    consumer->newStreams.at(0)->failAfterWrites = 1;

    EXPECT_EQ(e.editor->CommitChanges(), E_ACCESSDENIED);
    auto& stream = *consumer->newStreams[0];
    EXPECT_TRUE(stream.closed);
    EXPECT_EQ(stream.bytes.size(), 8192u);  // the first block only
    EXPECT_EQ(e.SetTicketCalls(), 0);
    EXPECT_EQ(e.Ticket().p, original.p);
    EXPECT_EQ(Mapped(L"/Metadata/Page1_PT_p.xml"), S_FALSE);
    // A second attempt finds nothing left to commit.
    EXPECT_EQ(e.editor->CommitChanges(), E_FAIL);
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
