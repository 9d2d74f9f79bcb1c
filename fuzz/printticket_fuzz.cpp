// printticket_fuzz.cpp: libFuzzer target over a PrintTicket as a filter meets it. The input is
// loaded as the per-user default ticket of a PrintTicketManager (as `xpsfilter ticket show`
// does), then given again as a page's own ticket, which the manager merges onto the default;
// each time the typed view is asked for every setting, and the document classes answer the
// queries filters make: features and their options, scored properties, parameters, the
// driver's private data (JobZorunDriverData, the page device mode snapshot) and the same bytes
// read as PrintCapabilities.
//
// A bad ticket must come back as a failing HRESULT or the library's ZorunComException; any
// other exception, a crash or a sanitizer report is a finding.
#include <cstddef>
#include <cstdint>
#include <string_view>

#include "filterpipeline/filterutilities/printcapabilitiesxmldocument.h"
#include "filterpipeline/filterutilities/printticketmanager.h"
#include "filterpipeline/filterutilities/printticketxmldocument.h"
#include "filterpipeline/filterutilities/xpsfilterprintticket.h"
#include "fuzz/fuzzinput.h"
#include "platform/win32/kernel.h"
#include "platform/win32/security.h"
#include "support/utilities/exceptions.h"

namespace {

template <class Call>
void Tolerating(Call call) {
    try {
        call();
    } catch (const ZorunComException&) {
    }
}

void AskTheView(XpsFilterPrintTicket& view) {
    bool found = false;
    HRESULT status = S_OK;
    view.GetOrientation(&found, &status);
    view.GetPageMediaSize(&found, &status);
    view.GetNUp(&found, &status);
    view.GetBookletBinding(&found, &status);
    view.GetPageScaling(&found, &status);
    view.GetOutputPaperSize(&found, &status);
    view.GetWatermark(&found, &status);
    // Without a status pointer a failure is thrown, as filters that do not ask for it see it.
    Tolerating([&] { view.GetOrientation(); });
    Tolerating([&] { view.GetNUp(); });
}

void AskTheDocument(IXMLDOMDocument2* dom) {
    PrintTicketXmlDocument ticket(dom);
    // Out-parameters are fresh for every call, as COM requires.
    Tolerating([&] { ticket.FeaturePresent(L"PageMediaSize"); });
    Tolerating([&] {
        CComBSTR option, prefix;
        ticket.GetFeatureOption(L"PageOrientation", &option, &prefix);
    });
    Tolerating([&] {
        CComBSTR option;
        ticket.GetFeatureOption(L"PageMediaSize", &option);
    });
    Tolerating([&] {
        CComBSTR option;
        ticket.GetSubFeatureOption(L"JobNUpAllDocumentsContiguously", L"PresentationDirection",
                                   &option);
    });
    Tolerating([&] {
        int integer = 0;
        ticket.GetScoredPropertyValue(L"PageMediaSize", L"MediaSizeWidth", &integer);
    });
    Tolerating([&] {
        float real = 0;
        ticket.GetScoredPropertyValue(L"PageMediaSize", L"MediaSizeHeight", &real);
    });
    Tolerating([&] {
        CComBSTR text;
        ticket.GetScoredPropertyValue(L"PageResolution", L"ResolutionX", &text);
    });
    CComPtr<IXMLDOMNode> node;
    Tolerating([&] {
        ticket.GetParameterInitValueNodeIfExists(ticket.GetKeywordsNsPrefix(),
                                                 L"JobCopiesAllDocuments", &node);
    });
    ByteBuffer devmode;
    Tolerating([&] { ticket.GetJobZorunDriverDataFromPrintTicket(devmode); });
    Tolerating([&] { ticket.GetPageDevmodeSnapshotFromPrintTicket(devmode); });
    ticket.GetDevmodeFromPrintTicket(devmode);  // documented never to throw

    Tolerating([&] {
        PrintCapabilitiesXmlDocument capabilities(dom);
        CComPtr<IXMLDOMNode> definition;
        capabilities.GetParameterDefNodeIfExists(capabilities.GetKeywordsNsPrefix(),
                                                 L"JobCopiesAllDocuments", &definition);
    });
}

}  // namespace

// The watermark getter reads the user's settings file: point it at an empty private folder.
extern "C" int LLVMFuzzerInitialize(int*, char***) {
    ::setenv("XDG_CONFIG_HOME", fuzzinput::PrivateFolder().c_str(), 1);
    return 0;
}

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, std::size_t size) {
    const std::string_view bytes(reinterpret_cast<const char*>(data), size);
    static HANDLE token = [] {
        HANDLE opened = nullptr;
        if (!OpenProcessToken(GetCurrentProcess(), TOKEN_ALL_ACCESS, &opened)) __builtin_trap();
        return opened;
    }();

    PrintTicketManager manager;
    CComBSTR printer(L"fuzz");
    if (FAILED(manager.Initialise(fuzzinput::ReadStreamOf(bytes), printer, token))) return 0;
    Tolerating([&] {
        XpsFilterPrintTicket* view = nullptr;
        if (SUCCEEDED(manager.GetTicket(kPTPageScope, &view)) && view != nullptr) AskTheView(*view);
    });
    Tolerating([&] { AskTheDocument(manager.GetPtrToDefaultPrintTicket()); });

    // The same ticket as a page's own: merged onto the default by the manager's provider.
    CComPtr<IXMLDOMDocument2> page;
    if (FAILED(PrintTicketManager::SetPTFromStream(fuzzinput::StreamOf(bytes), &page))) return 0;
    Tolerating([&] {
        if (FAILED(manager.InitializeWithPrintTicket(kPTPageScope, page))) return;
        XpsFilterPrintTicket* view = nullptr;
        if (SUCCEEDED(manager.GetTicket(kPTPageScope, &view)) && view != nullptr) AskTheView(*view);
    });
    return 0;
}
