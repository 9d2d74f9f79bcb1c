// pagemediasizeptpchelper.cpp: the driver's form list (fetch, filter, size match), the naming of
// a form as a PageMediaSize option and the rewrite of a ticket's PageMediaSize feature.
#include "filterpipeline/filterutilities/pagemediasizeptpchelper.h"

#include <algorithm>
#include <climits>
#include <initializer_list>

#include "filterpipeline/filterutilities/printticketxmldocument.h"
#include "support/errorframe/errorframe.h"
#include "support/utilities/dimension.h"
#include "support/utilities/setthreadtokenwrapper.h"
#include "utilitiesstaticlib/pagesizedictionary.h"

namespace {

using FormsInfoRec = PageMediaSizePtPcHelper::FormsInfoRec;
using FormsInfoList = PageMediaSizePtPcHelper::FormsInfoList;
using MSDeviceCapabilities::FormKind;
using PrintSchema::MsPrintTicketKeywordsNamespace;
using PrintSchema::MsPrintTicketUserKeywordsNamespace;

// The paper id of a user-defined (custom) size in a devmode.
constexpr WORD kCustomPaperId = 256;
// Forms are fetched into this many records more than the driver first announced, in case the
// list grew between the two calls.
constexpr int kSpareRecords = 10;

constexpr const wchar_t* kPageMediaSizeParameterInits[] = {
    L"PageMediaSizePSWidth",         L"PageMediaSizePSHeight",      L"PageMediaSizePSWidthOffset",
    L"PageMediaSizePSHeightOffset",  L"PageMediaSizePSOrientation", L"PageMediaSizeMediaSizeWidth",
    L"PageMediaSizeMediaSizeHeight",
};

bool SameSize(const FormsInfoRec& a, const FormsInfoRec& b) {
    return a.width == b.width && a.height == b.height;
}

// A length in tenths of a millimetre as the 32-bit microns a ticket holds; false when it does
// not fit.
bool TenthsToMicrons(DWORD tenths, int& microns) {
    if (tenths > static_cast<DWORD>(INT_MAX / 100)) return false;
    microns = static_cast<int>(tenths) * 100;
    return true;
}

CComBSTR Qualified(const CComBSTR& prefix, const wchar_t* name) {
    return PrintSchemaXmlDocument::JoinStrings(prefix, name);
}

}  // namespace

PageMediaSizePtPcHelper::PageMediaSizePtPcHelper() = default;
PageMediaSizePtPcHelper::~PageMediaSizePtPcHelper() = default;

FormsInfoList PageMediaSizePtPcHelper::GetPaperInfoForAnXpsFilter(CXString& printerName) {
    if (!SetThreadTokenWrapper::IsThisThreadImpersonating()) return {};
    const int announced =
        DeviceCapabilitiesW(printerName, nullptr, DC_PRIVATE_FORMS, nullptr, nullptr);
    FormsInfoList forms(static_cast<std::size_t>(std::max(announced, 0)) + kSpareRecords);
    const int written = DeviceCapabilitiesW(printerName, nullptr, DC_PRIVATE_FORMS,
                                            reinterpret_cast<LPWSTR>(forms.data()), nullptr);
    forms.resize(static_cast<std::size_t>(std::clamp(written, 0, static_cast<int>(forms.size()))));
    return forms;
}

FormsInfoList PageMediaSizePtPcHelper::GetFilteredPaperInfoForAnXpsFilter(CXString& printerName,
                                                                          HANDLE token) {
    SetThreadTokenWrapper impersonation(token);
    return FilterPaperSizeListForPrintTicket(GetPaperInfoForAnXpsFilter(printerName));
}

FormsInfoList PageMediaSizePtPcHelper::FilterPaperSizeListForPrintTicket(
    const FormsInfoList& forms) {
    FormsInfoList kept;
    for (const FormsInfoRec& form : forms) {
        if (form.kind == FormKind::FormKindPredefined ||
            form.kind == FormKind::FormKindCustomSizeEntry) {
            kept.push_back(form);
        }
    }
    // Then each further kind, a form only when no kept form has its size yet.
    for (DWORD kind :
         {FormKind::FormKindStandard, FormKind::FormKindUser, FormKind::FormKindDriverCustomSize}) {
        for (const FormsInfoRec& form : forms) {
            if (form.kind != kind) continue;
            const bool listed = std::any_of(
                kept.begin(), kept.end(), [&](const FormsInfoRec& k) { return SameSize(k, form); });
            if (!listed) kept.push_back(form);
        }
    }
    return kept;
}

HRESULT PageMediaSizePtPcHelper::FindFormInfoRect(const FormsInfoList& forms, int widthMicrons,
                                                  int heightMicrons,
                                                  DataModelIds::tagValueEnum value,
                                                  FormsInfoRec* found) {
    if (found == nullptr) return E_POINTER;
    // Whole tenths of a millimetre, truncated toward zero; only the low 16 bits take part.
    const DWORD width = static_cast<WORD>(widthMicrons / 100);
    const DWORD height = static_cast<WORD>(heightMicrons / 100);

    const FormsInfoRec* firstOfSize = nullptr;
    for (const FormsInfoRec& form : forms) {
        if (form.kind == FormKind::FormKindCustomSizeEntry) continue;
        if (form.width != width || form.height != height) continue;
        if (value == DataModelIds::ValueAny || form.dataModelValue == value) {
            *found = form;
            return S_OK;
        }
        if (firstOfSize == nullptr) firstOfSize = &form;
    }
    if (firstOfSize != nullptr) {
        *found = *firstOfSize;
        return S_OK;
    }
    // No form of that size: the custom-size entry, resized to the request.
    for (const FormsInfoRec& form : forms) {
        if (form.kind != FormKind::FormKindCustomSizeEntry) continue;
        *found = form;
        found->width = width;
        found->height = height;
        break;
    }
    return S_FALSE;
}

void PageMediaSizePtPcHelper::GetMsPageMediaSizeOptionName(
    bool isCustom, bool isPostScript, PageSizeDictionary& dictionary, const FormsInfoRec& form,
    CXString* optionName, PrintSchema::MsPrintTicketNamespacesEnum* optionNamespace) {
    static constexpr wchar_t kMethod[] = L"PageMediaSizePtPcHelper::GetMsPageMediaSizeOptionName";
    if (optionName == nullptr || optionNamespace == nullptr) THROW_COM(E_POINTER, kMethod, "");
    *optionNamespace = MsPrintTicketKeywordsNamespace;

    if (isCustom) {
        *optionName = isPostScript ? L"PSCustomMediaSize" : L"CustomMediaSize";
        return;
    }
    switch (form.kind) {
        case FormKind::FormKindUser:
        case FormKind::FormKindDriverCustomSize:
            optionName->Format(
                L"%s%u_%ux%u",
                form.kind == FormKind::FormKindUser ? L"UserForm_" : L"DriverCustomSize_",
                static_cast<unsigned>(form.paperId), static_cast<unsigned>(form.width),
                static_cast<unsigned>(form.height));
            *optionNamespace = MsPrintTicketUserKeywordsNamespace;
            return;
        case FormKind::FormKindPredefined:
        case FormKind::FormKindKnownToDictionary:
        case FormKind::FormKindStandard: {
            const Dimension width(form.width, Dimension::TenthsOfMillimeter);
            const Dimension height(form.height, Dimension::TenthsOfMillimeter);
            for (const PageSizeDictionaryEntry* entry :
                 dictionary.GetPageSizeEntryRefs(width, height)) {
                if (entry->GetValueId().GetValueEnum() != form.dataModelValue) continue;
                *optionName = entry->GetMsPageMediaSizeOptionName();
                if (!entry->IsPredefinedMsOptionName()) {
                    *optionNamespace = MsPrintTicketUserKeywordsNamespace;
                }
                return;
            }
            return;  // not in the dictionary: the name stays as it was
        }
        default:
            THROW_COM(E_FAIL, kMethod, "form kind %u cannot be named",
                      static_cast<unsigned>(form.kind));
    }
}

void PageMediaSizePtPcHelper::GetMsPageMediaSizeOptionName(
    bool isCustom, bool isPostScript, const FormsInfoRec& form, CXString* optionName,
    PrintSchema::MsPrintTicketNamespacesEnum* optionNamespace) {
    PageSizeDictionary dictionary(nullptr);
    GetMsPageMediaSizeOptionName(isCustom, isPostScript, dictionary, form, optionName,
                                 optionNamespace);
}

HRESULT PageMediaSizePtPcHelper::DeletePageMediaSizeAndItsParameterInitsIfExist(
    PrintTicketXmlDocument& ticket) {
    try {
        const CComBSTR keywords = ticket.GetKeywordsNsPrefix();
        HRESULT hr = ticket.DeleteFeatureNodeIfExists(keywords, L"PageMediaSize");
        RETURN_IF_FAILED(hr);
        bool deleted = hr == S_OK;
        for (const wchar_t* name : kPageMediaSizeParameterInits) {
            hr = ticket.DeleteParameterInitNodeIfExists(keywords, name);
            RETURN_IF_FAILED(hr);
            deleted = deleted || hr == S_OK;
        }
        return deleted ? S_OK : S_FALSE;
    } catch (const ZorunComException& exception) {
        return exception.GetHresult();
    }
}

HRESULT PageMediaSizePtPcHelper::AddOrReplacePageMediaSize(PrintTicketXmlDocument& ticket,
                                                           bool isPostScript,
                                                           PageSizeDictionary& dictionary,
                                                           FormsInfoRec& form) {
    static constexpr wchar_t kMethod[] = L"PageMediaSizePtPcHelper::AddOrReplacePageMediaSize";
    int widthMicrons = 0;
    int heightMicrons = 0;
    if (!TenthsToMicrons(form.width, widthMicrons) ||
        !TenthsToMicrons(form.height, heightMicrons)) {
        THROW_COM(E_INVALIDARG, kMethod, "form size %ux%u does not fit a ticket's microns",
                  static_cast<unsigned>(form.width), static_cast<unsigned>(form.height));
    }

    const bool isCustom = form.paperId == kCustomPaperId;
    CXString optionName;
    PrintSchema::MsPrintTicketNamespacesEnum optionNamespace = MsPrintTicketKeywordsNamespace;
    GetMsPageMediaSizeOptionName(isCustom, isPostScript, dictionary, form, &optionName,
                                 &optionNamespace);
    THROW_COM_IF_FAILED(DeletePageMediaSizeAndItsParameterInitsIfExist(ticket), kMethod, "");

    CComPtr<IXMLDOMElement> feature;
    CComPtr<IXMLDOMElement> option;
    if (optionName.IsEmpty()) {
        // A form the dictionary cannot name: the Option has no name, only the size.
        ticket.CreateFeatureOptionPair(true, L"PageMediaSize", &feature, &option);
    } else {
        ticket.CreateFeatureOptionPair(true, L"PageMediaSize",
                                       optionNamespace == MsPrintTicketKeywordsNamespace,
                                       optionName, &feature, &option);
    }

    const CComBSTR keywords = ticket.GetKeywordsNsPrefix();
    if (!isCustom) {
        ticket.AppendChildIntegerScoredProperty(option, Qualified(keywords, L"MediaSizeWidth"),
                                                widthMicrons);
        ticket.AppendChildIntegerScoredProperty(option, Qualified(keywords, L"MediaSizeHeight"),
                                                heightMicrons);
    } else if (!isPostScript) {
        ticket.AppendChildParameterRefScoredProperty(option, keywords, L"MediaSizeWidth", keywords,
                                                     L"PageMediaSizeMediaSizeWidth");
        ticket.AppendChildParameterRefScoredProperty(option, keywords, L"MediaSizeHeight", keywords,
                                                     L"PageMediaSizeMediaSizeHeight");
    } else {
        for (const wchar_t* property :
             {L"PSWidth", L"PSHeight", L"PSWidthOffset", L"PSHeightOffset", L"PSOrientation"}) {
            const CXString parameter = CXString(L"PageMediaSize") + property;
            ticket.AppendChildParameterRefScoredProperty(option, keywords, property, keywords,
                                                         parameter);
        }
    }
    ticket.AppendChildToRootNode(feature);

    if (isCustom && !isPostScript) {
        ticket.AppendIntegerParameterInit(keywords, L"PageMediaSizeMediaSizeWidth", widthMicrons);
        ticket.AppendIntegerParameterInit(keywords, L"PageMediaSizeMediaSizeHeight", heightMicrons);
    } else if (isCustom) {
        ticket.AppendIntegerParameterInit(keywords, L"PageMediaSizePSWidth", widthMicrons);
        ticket.AppendIntegerParameterInit(keywords, L"PageMediaSizePSHeight", heightMicrons);
        ticket.AppendIntegerParameterInit(keywords, L"PageMediaSizePSWidthOffset", 0);
        ticket.AppendIntegerParameterInit(keywords, L"PageMediaSizePSHeightOffset", 0);
        ticket.AppendIntegerParameterInit(keywords, L"PageMediaSizePSOrientation", 1);
    }
    return S_OK;
}

HRESULT PageMediaSizePtPcHelper::AddOrReplacePageMediaSize(PrintTicketXmlDocument& ticket,
                                                           bool isPostScript, FormsInfoRec& form) {
    PageSizeDictionary dictionary(nullptr);
    return AddOrReplacePageMediaSize(ticket, isPostScript, dictionary, form);
}
