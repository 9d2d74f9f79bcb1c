// xpsnames.h: namespaces, relationship types and content types of XPS packages, in both the
// Microsoft XPS (2005/06) and the OpenXPS (ECMA-388) spellings.
#pragma once

#include <string_view>

namespace pipelinehost::xps {

inline constexpr std::string_view kMsXpsNamespace = "http://schemas.microsoft.com/xps/2005/06";
inline constexpr std::string_view kOpenXpsNamespace = "http://schemas.openxps.org/oxps/v1.0";
inline constexpr std::string_view kRelationshipsNamespace =
    "http://schemas.openxmlformats.org/package/2006/relationships";
inline constexpr std::string_view kContentTypesNamespace =
    "http://schemas.openxmlformats.org/package/2006/content-types";

inline constexpr std::string_view kMsStartPart =
    "http://schemas.microsoft.com/xps/2005/06/fixedrepresentation";
inline constexpr std::string_view kOpenStartPart =
    "http://schemas.openxps.org/oxps/v1.0/fixedrepresentation";
inline constexpr std::string_view kMsPrintTicket =
    "http://schemas.microsoft.com/xps/2005/06/printticket";
inline constexpr std::string_view kOpenPrintTicket =
    "http://schemas.openxps.org/oxps/v1.0/printticket";
inline constexpr std::string_view kMsRequiredResource =
    "http://schemas.microsoft.com/xps/2005/06/required-resource";
inline constexpr std::string_view kOpenRequiredResource =
    "http://schemas.openxps.org/oxps/v1.0/required-resource";
inline constexpr std::string_view kThumbnail =
    "http://schemas.openxmlformats.org/package/2006/relationships/metadata/thumbnail";
inline constexpr std::string_view kSignatureOrigin =
    "http://schemas.openxmlformats.org/package/2006/relationships/digital-signature/origin";

inline constexpr std::string_view kRelationshipsContentType =
    "application/vnd.openxmlformats-package.relationships+xml";
inline constexpr std::string_view kPrintTicketContentType =
    "application/vnd.ms-printing.printticket+xml";
inline constexpr std::string_view kFixedPageContentType =
    "application/vnd.ms-package.xps-fixedpage+xml";
inline constexpr std::string_view kOpenFixedPageContentType =
    "application/vnd.openxps.fixedpage+xml";
inline constexpr std::string_view kFixedDocumentContentType =
    "application/vnd.ms-package.xps-fixeddocument+xml";
inline constexpr std::string_view kOpenFixedDocumentContentType =
    "application/vnd.openxps.fixeddocument+xml";
inline constexpr std::string_view kFixedDocumentSequenceContentType =
    "application/vnd.ms-package.xps-fixeddocumentsequence+xml";
inline constexpr std::string_view kOpenFixedDocumentSequenceContentType =
    "application/vnd.openxps.fixeddocumentsequence+xml";
inline constexpr std::string_view kObfuscatedFontContentType =
    "application/vnd.ms-package.obfuscated-opentype";
inline constexpr std::string_view kFontContentType = "application/vnd.ms-opentype";
inline constexpr std::string_view kColorProfileContentType = "application/vnd.ms-color.iccprofile";
inline constexpr std::string_view kResourceDictionaryContentType =
    "application/vnd.ms-package.xps-resourcedictionary+xml";
inline constexpr std::string_view kOpenResourceDictionaryContentType =
    "application/vnd.openxps.resourcedictionary+xml";

inline bool IsStartPart(std::string_view type) {
    return type == kMsStartPart || type == kOpenStartPart;
}
inline bool IsPrintTicket(std::string_view type) {
    return type == kMsPrintTicket || type == kOpenPrintTicket;
}
inline bool IsRequiredResource(std::string_view type) {
    return type == kMsRequiredResource || type == kOpenRequiredResource;
}
inline bool IsXpsNamespace(std::string_view ns) {
    return ns == kMsXpsNamespace || ns == kOpenXpsNamespace;
}

}  // namespace pipelinehost::xps
