// ticketxml.h: reading a PrintTicket with libxml2 for the provider: the secure parse and the
// checks that make a document a PrintTicket, and the Print Schema names the merge works with
// (QNames resolved to namespace URI plus local name, never compared by prefix text).
#pragma once

#include <libxml/tree.h>

#include <compare>
#include <memory>
#include <string>
#include <string_view>

#include "platform/com/wintypes.h"

// Returns a failing HRESULT from the enclosing function in one line.
#define PT_RETURN_IF_FAILED(expr)                  \
    do {                                           \
        const HRESULT hrChecked_ = (expr);         \
        if (FAILED(hrChecked_)) return hrChecked_; \
    } while (false)

namespace platform::prntvpt {

inline constexpr std::string_view kFrameworkNamespace =
    "http://schemas.microsoft.com/windows/2003/08/printing/printschemaframework";
inline constexpr std::string_view kXsiNamespace = "http://www.w3.org/2001/XMLSchema-instance";
inline constexpr std::string_view kXsdNamespace = "http://www.w3.org/2001/XMLSchema";

struct XmlDocFree {
    void operator()(xmlDoc* doc) const { xmlFreeDoc(doc); }
};
using XmlDocPtr = std::unique_ptr<xmlDoc, XmlDocFree>;

// A failure with the HRESULT to return and the sentence for the caller's error text.
struct TicketError {
    HRESULT code = S_OK;
    std::string message;
};

// Which of the two tickets a check is about: picks the format HRESULT and the wording.
enum class TicketRole { Base, Delta };

// A namespace-qualified name. An empty uri is "no namespace".
struct ExpandedName {
    std::string uri;
    std::string local;
    auto operator<=>(const ExpandedName&) const = default;
};

// The three kinds of setting a ticket holds at its root.
enum class ItemKind { Feature, ParameterInit, Property };

// Parses `bytes` as a PrintTicket: no DTD (a DOCTYPE is refused), no entity expansion, no
// network, libxml2's default size and depth limits, well-formed and namespace-well-formed, root
// psf:PrintTicket, and every QName the merge relies on resolvable (see docs/ptprovider.md).
// Returns null with `error` filled on failure.
XmlDocPtr ParsePrintTicket(std::string_view bytes, TicketRole role, TicketError& error);

HRESULT FormatErrorCode(TicketRole role);

bool IsFrameworkElement(const xmlNode* node, std::string_view local);
// The kind of a root-level item, or false for any other element.
bool ItemKindOf(const xmlNode* element, ItemKind* kind);

// Resolves `qname` against the namespace declarations in scope at `element`; an unprefixed name
// takes the default namespace. False when the text is not a QName or its prefix is undeclared.
bool ResolveQName(xmlNode* element, std::string_view qname, ExpandedName* name);

// Whether an attribute's value is a QName: `name` on a framework element, or xsi:type.
bool AttributeHoldsQName(const xmlNode* element, const xmlAttr* attribute);

// Whether the text of `element` is a QName: a framework Value with only text inside whose
// xsi:type is xsd:QName, or with no xsi:type and a prefixed QName whose prefix is in scope.
bool TextHoldsQName(xmlNode* element);

// The literal value of an attribute, and the concatenated text of an element's text children.
std::string AttributeValue(const xmlAttr* attribute);
std::string TextOf(const xmlNode* element);

// Splits surrounding XML white space from the core of a value.
struct Trimmed {
    std::string_view leading;
    std::string_view core;
    std::string_view trailing;
};
Trimmed TrimXmlSpace(std::string_view text);

std::string_view ToView(const xmlChar* text);
const xmlChar* ToXml(const char* text);

}  // namespace platform::prntvpt
