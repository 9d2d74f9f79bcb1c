// Tests of the per-job ticket manager and its stream adapters.
#include <gtest/gtest.h>

#include "filterpipeline/filterutilities/printreadstreamtoistream.h"
#include "filterpipeline/filterutilities/printticketmanager.h"
#include "filterpipeline/filterutilities/printticketxmldocument.h"
#include "pipelinefakes.h"
#include "platform/win32/kernel.h"
#include "platform/win32/security.h"

namespace {

std::string Ticket(const std::string& features) {
    return "<psf:PrintTicket xmlns:psf='http://schemas.microsoft.com/windows/2003/08/printing/"
           "printschemaframework' xmlns:psk='http://schemas.microsoft.com/windows/2003/08/"
           "printing/printschemakeywords' version='1'>" +
           features + "</psf:PrintTicket>";
}

std::string Feature(const std::string& name, const std::string& option) {
    return "<psf:Feature name='psk:" + name + "'><psf:Option name='psk:" + option +
           "'/></psf:Feature>";
}

template <class T>
CComPtr<T> Make() {
    CComPtr<T> p;
    p.Attach(new T());
    return p;
}

class ManagerTest : public ::testing::Test {
protected:
    HRESULT Initialise(const std::string& defaultTicket = fakes::kDefaultTicket) {
        CComPtr<fakes::ReadStream> stream;
        stream.Attach(new fakes::ReadStream(defaultTicket));
        return manager.Initialise(stream, printerName, nullptr);
    }

    // The option a scope's view reports for a feature, "" when absent.
    std::wstring OptionSeen(EPrintTicketScope scope, const wchar_t* feature) {
        XpsFilterPrintTicket* view = nullptr;
        EXPECT_EQ(manager.GetTicket(scope, &view), S_OK);
        if (view == nullptr) return L"<no view>";
        CComBSTR name(feature);
        BSTR option = nullptr;
        BSTR prefix = nullptr;
        HRESULT hr = view->XpsFilterGetFeatureOption(name, &option, &prefix);
        std::wstring seen = SUCCEEDED(hr) && option != nullptr ? option : L"";
        SysFreeString(option);
        SysFreeString(prefix);
        return seen;
    }

    PrintTicketManager manager;
    CComBSTR printerName{L"Test Printer"};
};

}  // namespace

TEST_F(ManagerTest, NothingWorksBeforeInitialise) {
    XpsFilterPrintTicket* view = nullptr;
    EXPECT_EQ(manager.GetTicket(kPTPageScope, &view), E_PENDING);
    EXPECT_EQ(manager.GetTicket(kPTPageScope, nullptr), E_POINTER);
    EXPECT_EQ(manager.InitializeWithPrintTicket(kPTJobScope, nullptr), E_PENDING);
    EXPECT_EQ(manager.GetPtrToDefaultPrintTicket(), nullptr);
    EXPECT_EQ(manager.GetUserToken(), INVALID_HANDLE_VALUE);
}

TEST_F(ManagerTest, InitialiseChecksItsArgumentsAndAlwaysReverts) {
    EXPECT_EQ(manager.Initialise(nullptr, printerName, nullptr), E_POINTER);
    CComPtr<fakes::ReadStream> stream;
    stream.Attach(new fakes::ReadStream(fakes::kDefaultTicket));
    CComBSTR empty(L"");
    EXPECT_EQ(manager.Initialise(stream, empty, nullptr), E_INVALIDARG);

    // A handle that is not a token cannot be impersonated.
    HANDLE bogus = reinterpret_cast<HANDLE>(0x5151);
    EXPECT_EQ(manager.Initialise(stream, printerName, bogus),
              HRESULT_FROM_WIN32(ERROR_INVALID_HANDLE));
    EXPECT_EQ(manager.GetUserToken(), bogus);

    HANDLE token = nullptr;
    ASSERT_TRUE(OpenProcessToken(GetCurrentProcess(), TOKEN_ALL_ACCESS, &token));
    EXPECT_EQ(manager.Initialise(stream, printerName, token), S_OK);
    HANDLE current = nullptr;
    EXPECT_FALSE(OpenThreadToken(GetCurrentThread(), TOKEN_QUERY, TRUE, &current));
    EXPECT_EQ(GetLastError(), ERROR_NO_TOKEN);  // reverted
    CloseHandle(token);

    CComPtr<fakes::ReadStream> garbage;
    garbage.Attach(new fakes::ReadStream("not xml at all"));
    EXPECT_EQ(manager.Initialise(garbage, printerName, nullptr), E_FAIL);
    EXPECT_EQ(manager.GetPtrToDefaultPrintTicket(), nullptr);
}

TEST_F(ManagerTest, ScopesWithoutTicketsInheritTopDown) {
    ASSERT_EQ(Initialise(), S_OK);
    EXPECT_TRUE(manager.GetPrinterName() == CXString(L"Test Printer"));

    auto sequence = Make<fakes::Sequence>();
    sequence->ticket =
        fakes::MakeTicket(L"/Metadata/Job_PT.xml", Ticket(Feature("JobCopiesAllDocuments", "Two")));
    ASSERT_EQ(manager.InitializeWithPrintTicket(sequence), S_OK);
    auto document = Make<fakes::Document>();  // no ticket of its own
    ASSERT_EQ(manager.InitializeWithPrintTicket(document), S_OK);
    auto page = Make<fakes::Page>();
    ASSERT_EQ(manager.InitializeWithPrintTicket(page), S_OK);

    // The page sees the job's own ticket, which replaced the default's feature.
    EXPECT_EQ(OptionSeen(kPTPageScope, L"JobCopiesAllDocuments"), L"Two");
    EXPECT_EQ(OptionSeen(kPTDocumentScope, L"JobCopiesAllDocuments"), L"Two");
    // The job ticket lacks orientation: the view goes on to the default ticket.
    EXPECT_EQ(OptionSeen(kPTJobScope, L"PageOrientation"), L"Portrait");

    // Without merging there is no merged ticket to hand to the view.
    XpsFilterPrintTicket* view = nullptr;
    ASSERT_EQ(manager.GetTicket(kPTPageScope, &view), S_OK);
    EXPECT_EQ(view->GetMergedTicket(), nullptr);
}

TEST_F(ManagerTest, APageTicketLastsUntilTheNextPage) {
    ASSERT_EQ(Initialise(), S_OK);
    ASSERT_EQ(manager.InitializeWithPrintTicket(kPTJobScope, nullptr), S_OK);
    ASSERT_EQ(manager.InitializeWithPrintTicket(kPTDocumentScope, nullptr), S_OK);

    auto landscape = Make<fakes::Page>();
    landscape->ticket = fakes::MakeTicket(L"/Documents/1/Metadata/Page1_PT.xml",
                                          Ticket(Feature("PageOrientation", "Landscape")));
    ASSERT_EQ(manager.InitializeWithPrintTicket(landscape), S_OK);
    EXPECT_EQ(OptionSeen(kPTPageScope, L"PageOrientation"), L"Landscape");

    auto plain = Make<fakes::Page>();
    ASSERT_EQ(manager.InitializeWithPrintTicket(plain), S_OK);
    EXPECT_EQ(OptionSeen(kPTPageScope, L"PageOrientation"), L"Portrait");
}

TEST_F(ManagerTest, PagesSharingATicketPartReadItOnce) {
    ASSERT_EQ(Initialise(), S_OK);
    auto shared = fakes::MakeTicket(L"/Documents/1/Metadata/Page_PT.xml",
                                    Ticket(Feature("PageOrientation", "Landscape")));
    auto page = [&](CComPtr<fakes::TicketPart> ticket) {
        auto made = Make<fakes::Page>();
        made->ticket = ticket;
        return made;
    };
    for (int i = 0; i < 3; ++i) {
        ASSERT_EQ(manager.InitializeWithPrintTicket(page(shared)), S_OK);
        EXPECT_EQ(OptionSeen(kPTPageScope, L"PageOrientation"), L"Landscape") << "page " << i;
    }
    EXPECT_EQ(shared->streamsOpened, 1);
    // Another part object, even with the same name and content, is read; so is the shared one
    // after a page without a ticket emptied the slot.
    auto twin = fakes::MakeTicket(shared->uri, shared->content);
    ASSERT_EQ(manager.InitializeWithPrintTicket(page(twin)), S_OK);
    ASSERT_EQ(manager.InitializeWithPrintTicket(Make<fakes::Page>()), S_OK);
    EXPECT_EQ(OptionSeen(kPTPageScope, L"PageOrientation"), L"Portrait");
    ASSERT_EQ(manager.InitializeWithPrintTicket(page(shared)), S_OK);
    EXPECT_EQ(OptionSeen(kPTPageScope, L"PageOrientation"), L"Landscape");
    EXPECT_EQ(twin->streamsOpened, 1);
    EXPECT_EQ(shared->streamsOpened, 2);
}

TEST_F(ManagerTest, BrokenPartTicketsAndFailingPartsAreReported) {
    ASSERT_EQ(Initialise(), S_OK);
    auto page = Make<fakes::Page>();
    page->ticket = fakes::MakeTicket(L"/bad.xml", "<psf:PrintTicket");
    EXPECT_EQ(manager.InitializeWithPrintTicket(page), E_FAIL);
    EXPECT_EQ(manager.InitializeWithPrintTicket(static_cast<const IFixedPage*>(nullptr)),
              E_POINTER);
}

TEST_F(ManagerTest, MergingComputesMergedTicketsPerScope) {
    manager.m_mergeEnabled = true;
    ASSERT_EQ(Initialise(), S_OK);
    auto sequence = Make<fakes::Sequence>();
    sequence->ticket =
        fakes::MakeTicket(L"/Metadata/Job_PT.xml", Ticket(Feature("JobCopiesAllDocuments", "Two")));
    ASSERT_EQ(manager.InitializeWithPrintTicket(sequence), S_OK);
    ASSERT_EQ(manager.InitializeWithPrintTicket(kPTDocumentScope, nullptr), S_OK);
    XpsFilterPrintTicket* view = nullptr;
    ASSERT_EQ(manager.GetTicket(kPTPageScope, &view), S_OK);
    ASSERT_NE(view, nullptr);
    // The page's merged ticket is the default with the job's delta applied, handed down.
    PrintTicketXmlDocument* merged = view->GetMergedTicket();
    ASSERT_NE(merged, nullptr);
    CComBSTR copies;
    ASSERT_EQ(merged->GetFeatureOption(CComBSTR(L"JobCopiesAllDocuments"), &copies, nullptr), S_OK);
    EXPECT_TRUE(copies == L"Two");
    CComBSTR orientation;
    ASSERT_EQ(merged->GetFeatureOption(CComBSTR(L"PageOrientation"), &orientation, nullptr), S_OK);
    EXPECT_TRUE(orientation == L"Portrait");
    EXPECT_EQ(manager.GetTicket(static_cast<EPrintTicketScope>(7), &view), E_FAIL);
}

TEST_F(ManagerTest, TheUpdatedTicketMapKeepsTheFirstTicketPerUri) {
    auto first = fakes::MakeTicket(L"/Documents/1/Metadata/Page1_PT_p.xml", "");
    auto second = fakes::MakeTicket(L"/Documents/1/Metadata/Page1_PT_p.xml", "");
    EXPECT_EQ(manager.AddUpdatedPrintTicketToMap(first), S_OK);
    EXPECT_EQ(manager.AddUpdatedPrintTicketToMap(second), S_OK);
    IPartPrintTicket* found = nullptr;
    CXString uri(L"/Documents/1/Metadata/Page1_PT_p.xml");
    EXPECT_EQ(manager.GetUpdatedPrintTicketFromMap(uri, &found), S_OK);
    EXPECT_EQ(found, static_cast<IPartPrintTicket*>(first.p));

    CXString missing(L"/nowhere.xml");
    found = first;
    EXPECT_EQ(manager.GetUpdatedPrintTicketFromMap(missing, &found), S_FALSE);
    EXPECT_EQ(found, nullptr);
    EXPECT_EQ(manager.GetUpdatedPrintTicketFromMap(missing, nullptr), E_POINTER);
    EXPECT_EQ(manager.AddUpdatedPrintTicketToMap(nullptr), E_POINTER);

    auto nameless = fakes::MakeTicket(L"", "");
    nameless->failGetUri = true;
    EXPECT_EQ(manager.AddUpdatedPrintTicketToMap(nameless), E_FAIL);
    CXString empty;
    EXPECT_EQ(manager.GetUpdatedPrintTicketFromMap(empty, &found), S_OK);  // kept under ""
}

TEST(PrintReadStreamToIStream, StatSeeksOnceAndNamesTheStream) {
    CComPtr<fakes::ReadStream> source;
    source.Attach(new fakes::ReadStream("0123456789"));
    CComPtr<IStream> stream;
    stream.Attach(new CPrintReadStreamToIStream(source));

    char buffer[4] = {};
    ULONG read = 0;
    ASSERT_EQ(stream->Read(buffer, 3, &read), S_OK);
    const int seeksBefore = source->seekCalls;
    STATSTG stat{};
    ASSERT_EQ(stream->Stat(&stat, STATFLAG_DEFAULT), S_OK);
    EXPECT_EQ(stat.cbSize.QuadPart, 10u);
    EXPECT_STREQ(stat.pwcsName, L"PrintReadStream");
    EXPECT_EQ(stat.grfMode, STGM_SHARE_DENY_WRITE);
    EXPECT_EQ(stat.grfLocksSupported, static_cast<DWORD>(LOCK_WRITE));
    CoTaskMemFree(stat.pwcsName);
    const int seeksForStat = source->seekCalls - seeksBefore;
    EXPECT_EQ(seeksForStat, 3);  // where, end, back
    ASSERT_EQ(stream->Stat(&stat, STATFLAG_NONAME), S_OK);
    EXPECT_EQ(stat.pwcsName, nullptr);
    EXPECT_EQ(source->seekCalls - seeksBefore, seeksForStat);  // cached
    ASSERT_EQ(stream->Read(buffer, 3, &read), S_OK);
    EXPECT_EQ(std::string(buffer, 3), "345");  // the position survived Stat
}

TEST(PrintReadStreamToIStream, IsReadOnly) {
    CComPtr<fakes::ReadStream> source;
    source.Attach(new fakes::ReadStream("abc"));
    CComPtr<IStream> stream;
    stream.Attach(new CPrintReadStreamToIStream(source));
    ULONG count = 0;
    EXPECT_EQ(stream->Read(nullptr, 1, &count), E_POINTER);
    EXPECT_EQ(stream->Read(&count, 1, nullptr), E_POINTER);
    EXPECT_EQ(stream->Write("x", 1, &count), E_NOTIMPL);
    EXPECT_EQ(stream->Commit(0), E_NOTIMPL);
    IStream* clone = nullptr;
    EXPECT_EQ(stream->Clone(&clone), E_NOTIMPL);
    EXPECT_EQ(stream->Stat(nullptr, 0), E_POINTER);
    EXPECT_THROW(CPrintReadStreamToIStream(nullptr), ZorunComException);
}

TEST(PrintReadSequentialStream, ReadsAndAnswersOnlyItsInterfaces) {
    CComPtr<fakes::ReadStream> source;
    source.Attach(new fakes::ReadStream("xyz"));
    CComPtr<ISequentialStream> stream;
    stream.Attach(CreatePrintReadSequentialStream(source));
    ASSERT_NE(stream, nullptr);
    char buffer[8] = {};
    ULONG read = 0;
    EXPECT_EQ(stream->Read(buffer, 8, &read), S_OK);
    EXPECT_EQ(read, 3u);
    EXPECT_EQ(stream->Write("a", 1, &read), E_NOTIMPL);
    CComPtr<IStream> notAStream;
    EXPECT_EQ(stream->QueryInterface(IID_IStream, reinterpret_cast<void**>(&notAStream)),
              E_NOINTERFACE);
    EXPECT_EQ(stream->QueryInterface(IID_IUnknown, nullptr), E_POINTER);
    EXPECT_EQ(CreatePrintReadSequentialStream(nullptr), nullptr);
}
