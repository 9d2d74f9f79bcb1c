// printschema.h: the namespaces of Print Schema documents: their URIs, the fixed prefixes this
// library gives the driver's private keywords, and the selector of the three prefixed namespaces.
#pragma once

namespace PrintSchema {

// Selects one of a document's namespace prefixes (PrintSchemaXmlDocument::GetNsPrefix). Any other
// value is rejected with E_INVALIDARG.
enum MsPrintTicketNamespacesEnum : int {
    MsPrintTicketFrameworkNamespace = 0,     // the Print Schema framework ("psf:")
    MsPrintTicketKeywordsNamespace = 1,      // the public Print Schema keywords ("psk:")
    MsPrintTicketUserKeywordsNamespace = 2,  // the driver's private keywords ("zk:")
};

// The Print Schema namespaces as the platform publishes them.
inline constexpr wchar_t FrameworkNamespaceUri[] =
    L"http://schemas.microsoft.com/windows/2003/08/printing/printschemaframework";
inline constexpr wchar_t KeywordsNamespaceUri[] =
    L"http://schemas.microsoft.com/windows/2003/08/printing/printschemakeywords";

// The W3C XML Schema namespaces (value types and the xsi:type attribute).
inline constexpr wchar_t XmlSchemaNamespaceUri[] = L"http://www.w3.org/2001/XMLSchema";
inline constexpr wchar_t XmlSchemaInstanceNamespaceUri[] =
    L"http://www.w3.org/2001/XMLSchema-instance";

// The driver maker's private-keywords namespace. This is the one place that names it; see
// docs/documents.md before changing it: tickets written with one value are not recognised with
// another.
inline constexpr wchar_t PrivateKeywordsNamespaceUri[] =
    L"http://schemas.zorun.example/enterprise/print/driver/native/printSchemaPrivateKeywords/"
    L"2006/11";

// The prefix the private-keywords namespace is moved to when a document declares it, and the
// prefix used when a document does not declare it (queries with it then match what a producer
// wrote under that prefix, typically the driver-private keywords of the platform's writer).
inline constexpr wchar_t PrivateKeywordsPrefix[] = L"zk:";
inline constexpr wchar_t UndeclaredPrivateKeywordsPrefix[] = L"ns0000:";

}  // namespace PrintSchema
