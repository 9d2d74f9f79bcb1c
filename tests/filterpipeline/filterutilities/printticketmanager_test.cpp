// Tests of the per-job ticket manager and its stream adapters.
#include <gtest/gtest.h>

#include "filterpipeline/filterutilities/printreadstreamtoistream.h"
#include "filterpipeline/filterutilities/printticketmanager.h"
#include "filterpipeline/filterutilities/printticketxmldocument.h"
#include "pipelinefakes.h"
#include "platform/win32/kernel.h"
#include "platform/win32/security.h"

using fakes::Make;

namespace {

// A ticket part with one feature and its option.
CComPtr<fakes::TicketPart> TicketWith(const wchar_t* uri, const std::string& feature,
                                      const std::string& option) {
    return fakes::MakeTicket(
        uri,
        "<psf:PrintTicket xmlns:psf='http://schemas.microsoft.com/windows/2003/08/printing/"
        "printschemaframework' xmlns:psk='http://schemas.microsoft.com/windows/2003/08/"
        "printing/printschemakeywords' version='1'><psf:Feature name='psk:" +
            feature + "'><psf:Option name='psk:" + option + "'/></psf:Feature></psf:PrintTicket>");
}

template <class Holder>
CComPtr<Holder> With(CComPtr<fakes::TicketPart> ticket) {
    auto holder = Make<Holder>();
    holder->ticket = ticket;
    return holder;
}

class ManagerTest : public ::testing::Test {
protected:
    HRESULT Initialise(const std::string& defaultTicket = fakes::kDefaultTicket) {
        return manager.Initialise(Make<fakes::ReadStream>(defaultTicket), printerName, nullptr);
    }

    // The option a scope's view reports for a feature, "" when absent.
    std::wstring OptionSeen(EPrintTicketScope scope, const wchar_t* feature) {
        XpsFilterPrintTicket* view = nullptr;
        EXPECT_EQ(manager.GetTicket(scope, &view), S_OK);
        if (view == nullptr) return L"<no view>";
        CComBSTR name(feature);
        CComBSTR option;
        CComBSTR prefix;
        HRESULT hr = view->XpsFilterGetFeatureOption(name, &option, &prefix);
        return SUCCEEDED(hr) && option ? option.m_str : L"";
    }

    PrintTicketManager manager;
    CComBSTR printerName{L"Test Printer"};
};

}  // namespace

TEST_F(ManagerTest, InitialiseChecksItsArgumentsAndAlwaysReverts) {
    // Nothing works before.
    XpsFilterPrintTicket* view = nullptr;
    EXPECT_EQ(manager.GetTicket(kPTPageScope, &view), E_PENDING);
    EXPECT_EQ(manager.GetTicket(kPTPageScope, nullptr), E_POINTER);
    EXPECT_EQ(manager.InitializeWithPrintTicket(kPTJobScope, nullptr), E_PENDING);
    EXPECT_EQ(manager.GetPtrToDefaultPrintTicket(), nullptr);
    EXPECT_EQ(manager.GetUserToken(), INVALID_HANDLE_VALUE);

    auto stream = Make<fakes::ReadStream>(fakes::kDefaultTicket);
    EXPECT_EQ(manager.Initialise(nullptr, printerName, nullptr), E_POINTER);
    EXPECT_EQ(manager.Initialise(stream, CComBSTR(L""), nullptr), E_INVALIDARG);
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
    EXPECT_EQ(manager.InitializeWithPrintTicket(kPTJobScope, nullptr), S_OK);
    EXPECT_TRUE(manager.GetPrinterName() == CXString(L"Test Printer"));

    EXPECT_EQ(Initialise("not xml at all"), E_FAIL);
    EXPECT_EQ(manager.GetPtrToDefaultPrintTicket(), nullptr);
}

TEST_F(ManagerTest, ScopesInheritTopDownAndAPageTicketLastsOnePage) {
    ASSERT_EQ(Initialise(), S_OK);
    ASSERT_EQ(manager.InitializeWithPrintTicket(With<fakes::Sequence>(
                  TicketWith(L"/Metadata/Job_PT.xml", "JobCopiesAllDocuments", "Two"))),
              S_OK);
    ASSERT_EQ(manager.InitializeWithPrintTicket(Make<fakes::Document>()), S_OK);  // no ticket
    ASSERT_EQ(manager.InitializeWithPrintTicket(Make<fakes::Page>()), S_OK);
    // The page sees the job's own ticket, which replaced the default's feature; the job ticket
    // lacks orientation: the view goes on to the default ticket.
    EXPECT_EQ(OptionSeen(kPTPageScope, L"JobCopiesAllDocuments"), L"Two");
    EXPECT_EQ(OptionSeen(kPTDocumentScope, L"JobCopiesAllDocuments"), L"Two");
    EXPECT_EQ(OptionSeen(kPTJobScope, L"PageOrientation"), L"Portrait");
    // Without merging there is no merged ticket to hand to the view.
    XpsFilterPrintTicket* view = nullptr;
    ASSERT_EQ(manager.GetTicket(kPTPageScope, &view), S_OK);
    EXPECT_EQ(view->GetMergedTicket(), nullptr);

    // Pages sharing a ticket part read it once; another part object, even with the same name
    // and content, is read; so is the shared one after a page without a ticket emptied the slot.
    auto shared = TicketWith(L"/Documents/1/Metadata/Page_PT.xml", "PageOrientation", "Landscape");
    auto twin = fakes::MakeTicket(shared->uri, shared->content);
    const struct {
        CComPtr<fakes::TicketPart> ticket;
        const wchar_t* orientation;
    } pages[] = {{shared, L"Landscape"}, {shared, L"Landscape"}, {shared, L"Landscape"},
                 {twin, L"Landscape"},   {nullptr, L"Portrait"}, {shared, L"Landscape"}};
    for (const auto& page : pages) {
        ASSERT_EQ(manager.InitializeWithPrintTicket(With<fakes::Page>(page.ticket)), S_OK);
        EXPECT_EQ(OptionSeen(kPTPageScope, L"PageOrientation"), page.orientation);
    }
    EXPECT_EQ(twin->streamsOpened, 1);
    EXPECT_EQ(shared->streamsOpened, 2);

    // Broken part tickets and null parts are reported.
    EXPECT_EQ(manager.InitializeWithPrintTicket(
                  With<fakes::Page>(fakes::MakeTicket(L"/bad.xml", "<psf:PrintTicket"))),
              E_FAIL);
    EXPECT_EQ(manager.InitializeWithPrintTicket(static_cast<const IFixedPage*>(nullptr)),
              E_POINTER);
}

TEST_F(ManagerTest, MergingComputesMergedTicketsPerScope) {
    manager.m_mergeEnabled = true;
    ASSERT_EQ(Initialise(), S_OK);
    ASSERT_EQ(manager.InitializeWithPrintTicket(With<fakes::Sequence>(
                  TicketWith(L"/Metadata/Job_PT.xml", "JobCopiesAllDocuments", "Two"))),
              S_OK);
    ASSERT_EQ(manager.InitializeWithPrintTicket(kPTDocumentScope, nullptr), S_OK);
    XpsFilterPrintTicket* view = nullptr;
    ASSERT_EQ(manager.GetTicket(kPTPageScope, &view), S_OK);
    // The page's merged ticket is the default with the job's delta applied, handed down.
    PrintTicketXmlDocument* merged = view->GetMergedTicket();
    ASSERT_NE(merged, nullptr);
    CComBSTR copies;
    ASSERT_EQ(merged->GetFeatureOption(CComBSTR(L"JobCopiesAllDocuments"), &copies, nullptr), S_OK);
    EXPECT_STREQ(copies, L"Two");
    CComBSTR orientation;
    ASSERT_EQ(merged->GetFeatureOption(CComBSTR(L"PageOrientation"), &orientation, nullptr), S_OK);
    EXPECT_STREQ(orientation, L"Portrait");
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

TEST(PrintReadStreamAdapters, StatSeeksOnceReadOnlyAndOnlyTheirInterfaces) {
    auto source = Make<fakes::ReadStream>("0123456789");
    CComPtr<IStream> stream;
    stream.Attach(new CPrintReadStreamToIStream(source));
    char buffer[8] = {};
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
    EXPECT_EQ(source->seekCalls - seeksBefore, 3);  // where, end, back
    ASSERT_EQ(stream->Stat(&stat, STATFLAG_NONAME), S_OK);
    EXPECT_EQ(stat.pwcsName, nullptr);
    EXPECT_EQ(source->seekCalls - seeksBefore, 3);  // cached
    ASSERT_EQ(stream->Read(buffer, 3, &read), S_OK);
    EXPECT_EQ(std::string(buffer, 3), "345");  // the position survived Stat
    // Read-only.
    EXPECT_EQ(stream->Read(nullptr, 1, &read), E_POINTER);
    EXPECT_EQ(stream->Read(buffer, 1, nullptr), E_POINTER);
    EXPECT_EQ(stream->Write("x", 1, &read), E_NOTIMPL);
    EXPECT_EQ(stream->Commit(0), E_NOTIMPL);
    IStream* clone = nullptr;
    EXPECT_EQ(stream->Clone(&clone), E_NOTIMPL);
    EXPECT_EQ(stream->Stat(nullptr, 0), E_POINTER);
    EXPECT_THROW(CPrintReadStreamToIStream(nullptr), ZorunComException);

    CComPtr<ISequentialStream> sequential;
    sequential.Attach(CreatePrintReadSequentialStream(Make<fakes::ReadStream>("xyz")));
    ASSERT_NE(sequential, nullptr);
    EXPECT_EQ(sequential->Read(buffer, 8, &read), S_OK);
    EXPECT_EQ(read, 3u);
    EXPECT_EQ(sequential->Write("a", 1, &read), E_NOTIMPL);
    CComPtr<IStream> notAStream;
    EXPECT_EQ(sequential->QueryInterface(IID_IStream, reinterpret_cast<void**>(&notAStream)),
              E_NOINTERFACE);
    EXPECT_EQ(sequential->QueryInterface(IID_IUnknown, nullptr), E_POINTER);
    EXPECT_EQ(CreatePrintReadSequentialStream(nullptr), nullptr);
}
