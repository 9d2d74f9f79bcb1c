// setticketfilter.cpp: the setticket sample filter: its keyword table, the reading of its
// configuration and the rewriting of job, document and page tickets through PrintTicketEditor.
#include "filters/setticket/setticketfilter.h"

#include <cstdio>
#include <cwchar>
#include <new>
#include <string>

#include "filterpipeline/filterutilities/printschema.h"
#include "platform/com/unicode.h"
#include "support/errorframe/errorframe.h"
#include "support/utilities/exceptions.h"

namespace {

using Kind = SetTicketFilter::SettingKind;

struct Keyword {
    const wchar_t* name;
    Kind kind;
};

// The public Print Schema keywords the filter looks for among its parameters (the property
// bag cannot be enumerated, so the names are asked for one by one).
constexpr Keyword kKeywords[] = {
    // Job features and parameters.
    {L"JobAccountingSheet", Kind::Feature},
    {L"JobBindAllDocuments", Kind::Feature},
    {L"JobCollateAllDocuments", Kind::Feature},
    {L"JobCopiesAllDocuments", Kind::IntegerParameter},
    {L"JobDeviceLanguage", Kind::Feature},
    {L"JobDigitalSignatureProcessing", Kind::Feature},
    {L"JobDuplexAllDocumentsContiguously", Kind::Feature},
    {L"JobErrorSheet", Kind::Feature},
    {L"JobHolePunch", Kind::Feature},
    {L"JobInputBin", Kind::Feature},
    {L"JobNUpAllDocumentsContiguously", Kind::Feature},
    {L"JobOutputBin", Kind::Feature},
    {L"JobOutputOptimization", Kind::Feature},
    {L"JobPageOrder", Kind::Feature},
    {L"JobPrimaryCoverBack", Kind::Feature},
    {L"JobPrimaryCoverFront", Kind::Feature},
    {L"JobRollCutAtEndOfJob", Kind::Feature},
    {L"JobStapleAllDocuments", Kind::Feature},
    // Document features and parameters.
    {L"DocumentBannerSheet", Kind::Feature},
    {L"DocumentBinding", Kind::Feature},
    {L"DocumentCollate", Kind::Feature},
    {L"DocumentCopiesAllPages", Kind::IntegerParameter},
    {L"DocumentCoverBack", Kind::Feature},
    {L"DocumentCoverFront", Kind::Feature},
    {L"DocumentDuplex", Kind::Feature},
    {L"DocumentHolePunch", Kind::Feature},
    {L"DocumentInputBin", Kind::Feature},
    {L"DocumentNUp", Kind::Feature},
    {L"DocumentOutputBin", Kind::Feature},
    {L"DocumentRollCut", Kind::Feature},
    {L"DocumentSeparatorSheet", Kind::Feature},
    {L"DocumentStaple", Kind::Feature},
    // Page features and parameters.
    {L"PageBlackGenerationProcessing", Kind::Feature},
    {L"PageBorderless", Kind::Feature},
    {L"PageColorManagement", Kind::Feature},
    {L"PageDeviceColorSpaceUsage", Kind::Feature},
    {L"PageDeviceFontSubstitution", Kind::Feature},
    {L"PageForceFrontSide", Kind::Feature},
    {L"PageICMRenderingIntent", Kind::Feature},
    {L"PageInputBin", Kind::Feature},
    {L"PageMediaColor", Kind::Feature},
    {L"PageMediaSize", Kind::Feature},
    {L"PageMediaSizeMediaSizeHeight", Kind::IntegerParameter},
    {L"PageMediaSizeMediaSizeWidth", Kind::IntegerParameter},
    {L"PageMediaType", Kind::Feature},
    {L"PageMirrorImage", Kind::Feature},
    {L"PageNegativeImage", Kind::Feature},
    {L"PageOrientation", Kind::Feature},
    {L"PageOutputBin", Kind::Feature},
    {L"PageOutputColor", Kind::Feature},
    {L"PageOutputQuality", Kind::Feature},
    {L"PagePhotoPrintingIntent", Kind::Feature},
    {L"PagePoster", Kind::Feature},
    {L"PageResolution", Kind::Feature},
    {L"PageScaling", Kind::Feature},
    {L"PageScalingOffsetHeight", Kind::IntegerParameter},
    {L"PageScalingOffsetWidth", Kind::IntegerParameter},
    {L"PageScalingScale", Kind::IntegerParameter},
    {L"PageScalingScaleHeight", Kind::IntegerParameter},
    {L"PageScalingScaleWidth", Kind::IntegerParameter},
    {L"PageTrueTypeFontMode", Kind::Feature},
    {L"PageWatermark", Kind::Feature},
    {L"PageWatermarkTextColor", Kind::StringParameter},
    {L"PageWatermarkTextFontSize", Kind::IntegerParameter},
    {L"PageWatermarkTextText", Kind::StringParameter},
    {L"PageWatermarkTransparency", Kind::IntegerParameter},
};

// Media sizes whose width and height (micrometres, portrait) are written with the option.
struct MediaSize {
    const wchar_t* option;
    int width;
    int height;
};
constexpr MediaSize kMediaSizes[] = {
    {L"ISOA3", 297000, 420000},
    {L"ISOA4", 210000, 297000},
    {L"ISOA5", 148000, 210000},
    {L"ISOA6", 105000, 148000},
    {L"ISOB4", 250000, 353000},
    {L"ISOB5Extra", 201000, 276000},
    {L"ISOC5Envelope", 162000, 229000},
    {L"ISODLEnvelope", 110000, 220000},
    {L"JISB4", 257000, 364000},
    {L"JISB5", 182000, 257000},
    {L"NorthAmericaExecutive", 184150, 266700},
    {L"NorthAmericaLegal", 215900, 355600},
    {L"NorthAmericaLetter", 215900, 279400},
    {L"NorthAmericaNumber10Envelope", 104775, 241300},
    {L"NorthAmericaStatement", 139700, 215900},
    {L"NorthAmericaTabloid", 279400, 431800},
};

constexpr wchar_t kScopeParameter[] = L"Scope";

std::string Utf8(const std::wstring& text) {
    return platform::WideToUtf8(text);
}

EPrintTicketScope ScopeFromName(const std::wstring& keyword) {
    if (keyword.rfind(L"Page", 0) == 0) return kPTPageScope;
    if (keyword.rfind(L"Document", 0) == 0) return kPTDocumentScope;
    return kPTJobScope;
}

std::wstring Trimmed(const wchar_t* text) {
    std::wstring value = text == nullptr ? L"" : text;
    const auto first = value.find_first_not_of(L" \t\r\n");
    if (first == std::wstring::npos) return L"";
    const auto last = value.find_last_not_of(L" \t\r\n");
    return value.substr(first, last - first + 1);
}

// An option keyword is a name without prefix: a letter or '_' then letters, digits, '_', '-'
// and '.' (ASCII only).
bool IsOptionName(const std::wstring& value) {
    auto letter = [](wchar_t c) { return (c >= L'A' && c <= L'Z') || (c >= L'a' && c <= L'z'); };
    auto digit = [](wchar_t c) { return c >= L'0' && c <= L'9'; };
    if (value.empty() || !(letter(value[0]) || value[0] == L'_')) return false;
    for (wchar_t c : value) {
        if (!(letter(c) || digit(c) || c == L'_' || c == L'-' || c == L'.')) return false;
    }
    return true;
}

// A non-negative decimal integer that fits an int (ParameterInits are written unsigned).
bool IsCount(const std::wstring& value, int* number) {
    if (value.empty() || value.size() > 10) return false;
    long long n = 0;
    for (wchar_t c : value) {
        if (c < L'0' || c > L'9') return false;
        n = n * 10 + (c - L'0');
    }
    if (n > 0x7FFFFFFF) return false;
    *number = static_cast<int>(n);
    return true;
}

// Reads one parameter as text; false when the bag does not hold it.
bool ReadParameter(IPrintPipelinePropertyBag* bag, const wchar_t* name, std::wstring& value,
                   bool& wrongType) {
    CComVariant variant;
    wrongType = false;
    if (FAILED(bag->GetProperty(name, &variant))) return false;
    if (variant.vt != VT_BSTR) {
        wrongType = true;
        return true;
    }
    value = Trimmed(variant.bstrVal);
    return true;
}

void Report(const std::string& message) {
    DbgPrint("setticket: %s\n", message.c_str());
}

std::string Hex(HRESULT hr) {
    char text[16];
    std::snprintf(text, sizeof text, "0x%08X", static_cast<unsigned>(hr));
    return text;
}

}  // namespace

SetTicketFilter::SetTicketFilter() = default;
SetTicketFilter::~SetTicketFilter() = default;

HRESULT SetTicketFilter::ReadSettings(IPrintPipelinePropertyBag* bag,
                                      std::vector<Setting>& settings, std::string& error) {
    settings.clear();
    error.clear();
    if (bag == nullptr) return E_POINTER;

    bool overridden = false;
    EPrintTicketScope forced = kPTJobScope;
    std::wstring text;
    bool wrongType = false;
    if (ReadParameter(bag, kScopeParameter, text, wrongType)) {
        if (wrongType || !platform::ParsePrintTicketScope(Utf8(text), &forced)) {
            error = "Scope must be page, document or job, not \"" + Utf8(text) + "\"";
            return E_INVALIDARG;
        }
        overridden = true;
    }

    for (const Keyword& keyword : kKeywords) {
        if (!ReadParameter(bag, keyword.name, text, wrongType)) continue;
        const std::string name = Utf8(keyword.name);
        if (wrongType || text.empty()) {
            error = name + " needs a value";
            return E_INVALIDARG;
        }
        int number = 0;
        switch (keyword.kind) {
            case Kind::Feature:
                if (!IsOptionName(text)) {
                    error = name + " needs an option keyword such as ISOA4 or Landscape, not \"" +
                            Utf8(text) + "\"";
                    return E_INVALIDARG;
                }
                break;
            case Kind::IntegerParameter:
                if (!IsCount(text, &number)) {
                    error = name + " needs a whole number from 0 to 2147483647, not \"" +
                            Utf8(text) + "\"";
                    return E_INVALIDARG;
                }
                text = std::to_wstring(number);
                break;
            case Kind::StringParameter:
                break;
        }
        settings.push_back(
            {keyword.name, keyword.kind, text, overridden ? forced : ScopeFromName(keyword.name)});
    }
    return S_OK;
}

HRESULT SetTicketFilter::InitializeFilter(IInterFilterCommunicator* communicator,
                                          IPrintPipelinePropertyBag* propertyBag,
                                          IPrintPipelineManagerControl* managerControl) {
    HRESULT hr = XpsFilterBase::InitializeFilter(communicator, propertyBag, managerControl);
    if (FAILED(hr)) return hr;
    try {
        std::string error;
        hr = ReadSettings(m_pPropertyBag, m_settings, error);
        if (FAILED(hr)) Report(error);
        if (SUCCEEDED(hr) && m_settings.empty()) {
            Report("no Print Schema keyword among the parameters: tickets pass unchanged");
        }
    } catch (const std::bad_alloc&) {
        hr = E_OUTOFMEMORY;
    }
    return hr;
}

bool SetTicketFilter::HasSettingsFor(EPrintTicketScope scope) const {
    for (const Setting& setting : m_settings) {
        if (setting.scope == scope) return true;
    }
    return false;
}

HRESULT SetTicketFilter::ApplySettings(PrintTicketXmlDocument& edited, EPrintTicketScope scope) {
    try {
        // The prefix the keywords are written under: the document declares the namespace
        // when the ticket does not (and the XML Schema namespaces of typed values as it writes
        // them).
        PrintTicketXmlDocument& ticket = edited;
        const CComBSTR keywords =
            ticket.PrefixForWriting(PrintSchema::MsPrintTicketKeywordsNamespace);

        for (const Setting& setting : m_settings) {
            if (setting.scope != scope) continue;
            const wchar_t* name = setting.keyword.c_str();
            switch (setting.kind) {
                case SettingKind::Feature: {
                    while (ticket.DeleteFeatureNodeIfExists(keywords, name) == S_OK) {
                    }
                    CComPtr<IXMLDOMElement> feature;
                    CComPtr<IXMLDOMElement> option;
                    RETURN_IF_FAILED(ticket.CreateFeatureOptionPair(
                        true, name, true, setting.value.c_str(), &feature, &option));
                    if (setting.keyword == L"PageMediaSize") {
                        for (const MediaSize& size : kMediaSizes) {
                            if (setting.value != size.option) continue;
                            ticket.AppendChildIntegerScoredProperty(
                                option,
                                PrintSchemaXmlDocument::JoinStrings(keywords, L"MediaSizeWidth"),
                                size.width);
                            ticket.AppendChildIntegerScoredProperty(
                                option,
                                PrintSchemaXmlDocument::JoinStrings(keywords, L"MediaSizeHeight"),
                                size.height);
                        }
                    }
                    ticket.AppendChildToRootNode(feature);
                    break;
                }
                case SettingKind::IntegerParameter:
                    while (ticket.DeleteParameterInitNodeIfExists(keywords, name) == S_OK) {
                    }
                    ticket.AppendIntegerParameterInit(keywords, name, std::stoi(setting.value));
                    break;
                case SettingKind::StringParameter:
                    while (ticket.DeleteParameterInitNodeIfExists(keywords, name) == S_OK) {
                    }
                    ticket.AppendStringParameterInit(keywords, name, setting.value.c_str());
                    break;
            }
        }
        return S_OK;
    } catch (const ZorunComException& e) {
        return FAILED(e.GetHresult()) ? e.GetHresult() : E_FAIL;
    }
}

HRESULT SetTicketFilter::RewriteTicket(PrintTicketEditor& editor, EPrintTicketScope scope) {
    if (editor.HasPrintTicketAlreadyBeenUpdatedForThisUri()) {
        return editor.TryToSynchAndCommitThisPrintTicketWithMatchFromMap();
    }
    PrintTicketXmlDocument* ticket = nullptr;
    const HRESULT hr = editor.DoesPartHaveExistingPrintTicket()
                           ? editor.TryToGetPointerToPrintTicketXmlDocument(&ticket)
                           : editor.GetPointerToNewEmptyPrintTicketXmlDocument(&ticket);
    if (FAILED(hr)) {
        Report("the ticket of a " + std::string(platform::PrintTicketScopeName(scope)) +
               " cannot be rewritten (" + Hex(hr) + ")");
        return hr;
    }
    if (ticket == nullptr) return E_UNEXPECTED;
    RETURN_IF_FAILED(ApplySettings(*ticket, scope));
    return editor.CommitChanges();
}

HRESULT SetTicketFilter::OnFixedDocumentSequence(IFixedDocumentSequence* sequence) {
    if (sequence == nullptr) return E_POINTER;
    if (HasSettingsFor(kPTJobScope)) {
        PrintTicketEditor editor(m_pXpsConsumer, sequence, m_printTicketManager);
        RETURN_IF_FAILED(RewriteTicket(editor, kPTJobScope));
    }
    return XpsFilterBase::OnFixedDocumentSequence(sequence);
}

HRESULT SetTicketFilter::OnFixedDocument(IFixedDocument* document) {
    if (document == nullptr) return E_POINTER;
    if (HasSettingsFor(kPTDocumentScope)) {
        PrintTicketEditor editor(m_pXpsConsumer, document, m_documentCount, m_printTicketManager);
        RETURN_IF_FAILED(RewriteTicket(editor, kPTDocumentScope));
    }
    return XpsFilterBase::OnFixedDocument(document);
}

HRESULT SetTicketFilter::OnFixedPage(IFixedPage* page) {
    if (page == nullptr) return E_POINTER;
    if (HasSettingsFor(kPTPageScope)) {
        PrintTicketEditor editor(m_pXpsConsumer, page, m_pageCount, m_printTicketManager);
        RETURN_IF_FAILED(RewriteTicket(editor, kPTPageScope));
    }
    return XpsFilterBase::OnFixedPage(page);
}

HRESULT CreateSetTicketFilter(IPrintPipelineFilter** filter) {
    if (filter == nullptr) return E_POINTER;
    *filter = nullptr;
    try {
        *filter = new SetTicketFilter();
    } catch (const std::bad_alloc&) {
        return E_OUTOFMEMORY;
    }
    return S_OK;
}
