// ticketxml.cpp: the secure libxml2 parse of a PrintTicket, the checks that make a document a
// PrintTicket for the provider, and QName resolution against in-scope namespace declarations.
#include "platform/prntvpt/ticketxml.h"

#include <libxml/parser.h>
#include <libxml/parserInternals.h>
#include <libxml/xmlerror.h>

#include <mutex>

#include "platform/msxml/domtree.h"
#include "platform/prntvpt/prntvpt.h"

namespace platform::prntvpt {
namespace {

struct ParserCtxtFree {
    void operator()(xmlParserCtxt* ctxt) const { xmlFreeParserCtxt(ctxt); }
};
using ParserCtxtPtr = std::unique_ptr<xmlParserCtxt, ParserCtxtFree>;

// What the parser callbacks saw; reached through the context's _private pointer.
struct ParseWatch {
    bool sawDoctype = false;
    std::string firstError;           // the first error (not warning), with its line
    std::string firstNamespaceError;  // the first namespace error that makes names unreliable
};

ParseWatch& WatchOf(void* userData) {
    auto* ctxt = static_cast<xmlParserCtxt*>(userData);
    return *static_cast<ParseWatch*>(ctxt->_private);
}

// A DOCTYPE stops the parse before its internal subset is read: no entity is ever declared.
void OnDoctype(void* userData, const xmlChar*, const xmlChar*, const xmlChar*) {
    WatchOf(userData).sawDoctype = true;
    xmlStopParser(static_cast<xmlParserCtxt*>(userData));
}

// libxml2 reports a namespace name that is not a valid URI reference (such as one with a leading
// space, which real tickets have) as a namespace error. Namespace names are compared as strings,
// so such a document still has well-defined names and is accepted; every other namespace error
// (an undeclared prefix, an empty prefixed declaration, a malformed QName) is not.
bool NamespaceNamesStillHold(const xmlError* error) {
    return error->code == XML_WAR_NS_URI || error->code == XML_WAR_NS_URI_RELATIVE;
}

void OnError(void* userData, xmlErrorPtr error) {
    if (error == nullptr || error->level < XML_ERR_ERROR) return;
    ParseWatch& watch = WatchOf(userData);
    std::string message = error->message != nullptr ? error->message : "unknown error";
    while (!message.empty() && (message.back() == '\n' || message.back() == ' ')) {
        message.pop_back();
    }
    message = "line " + std::to_string(error->line) + ": " + message;
    if (error->domain == XML_FROM_NAMESPACE) {
        if (NamespaceNamesStillHold(error)) return;
        if (watch.firstNamespaceError.empty()) watch.firstNamespaceError = message;
    }
    if (watch.firstError.empty()) watch.firstError = std::move(message);
}

const char* RoleWord(TicketRole role) {
    return role == TicketRole::Base ? "base" : "delta";
}

bool Fail(TicketError& error, TicketRole role, const std::string& what) {
    error.code = FormatErrorCode(role);
    error.message = std::string("The ") + RoleWord(role) + " ticket " + what;
    return false;
}

std::string Describe(const ExpandedName& name) {
    return name.uri.empty() ? name.local : "{" + name.uri + "}" + name.local;
}

std::string LineOf(const xmlNode* node) {
    return "line " + std::to_string(xmlGetLineNo(node));
}

const char* ItemWord(ItemKind kind) {
    switch (kind) {
        case ItemKind::Feature:
            return "Feature";
        case ItemKind::ParameterInit:
            return "ParameterInit";
        case ItemKind::Property:
            break;
    }
    return "Property";
}

bool IsXsiType(const xmlAttr* attribute) {
    return attribute->ns != nullptr && ToView(attribute->ns->href) == kXsiNamespace &&
           ToView(attribute->name) == "type";
}

const xmlAttr* XsiTypeOf(const xmlNode* element) {
    for (const xmlAttr* a = element->properties; a != nullptr; a = a->next) {
        if (IsXsiType(a)) return a;
    }
    return nullptr;
}

bool OnlyTextChildren(const xmlNode* element) {
    for (const xmlNode* child = element->children; child != nullptr; child = child->next) {
        if (child->type != XML_TEXT_NODE && child->type != XML_CDATA_SECTION_NODE) return false;
    }
    return true;
}

// Every QName the merge reads or rewrites must resolve; root items must be named.
bool CheckNames(xmlNode* element, TicketRole role, TicketError& error) {
    for (const xmlAttr* a = element->properties; a != nullptr; a = a->next) {
        if (!AttributeHoldsQName(element, a)) continue;
        std::string value = AttributeValue(a);
        ExpandedName resolved;
        if (!ResolveQName(element, TrimXmlSpace(value).core, &resolved)) {
            return Fail(error, role,
                        "has the attribute " + std::string(ToView(a->name)) + "=\"" + value +
                            "\" at " + LineOf(element) +
                            ", which is not a QName with a declared prefix");
        }
    }
    if (IsFrameworkElement(element, "Value")) {
        if (const xmlAttr* type = XsiTypeOf(element)) {
            ExpandedName typeName;
            ResolveQName(element, TrimXmlSpace(AttributeValue(type)).core, &typeName);
            if (typeName.uri == kXsdNamespace && typeName.local == "QName") {
                std::string text = TextOf(element);
                ExpandedName value;
                if (!OnlyTextChildren(element) ||
                    !ResolveQName(element, TrimXmlSpace(text).core, &value)) {
                    return Fail(error, role,
                                "has an xsd:QName Value \"" + text + "\" at " + LineOf(element) +
                                    " that is not a QName with a declared prefix");
                }
            }
        }
    }
    for (xmlNode* child = element->children; child != nullptr; child = child->next) {
        if (child->type == XML_ELEMENT_NODE && !CheckNames(child, role, error)) return false;
    }
    return true;
}

bool CheckTicket(xmlDoc* doc, TicketRole role, TicketError& error) {
    xmlNode* root = xmlDocGetRootElement(doc);
    if (root == nullptr) return Fail(error, role, "has no root element");
    ExpandedName rootName{root->ns != nullptr ? std::string(ToView(root->ns->href)) : "",
                          std::string(ToView(root->name))};
    if (rootName.uri != kFrameworkNamespace || rootName.local != "PrintTicket") {
        return Fail(error, role,
                    "is not a PrintTicket: its root element is " + Describe(rootName) +
                        ", not PrintTicket of the namespace " + std::string(kFrameworkNamespace));
    }
    for (xmlNode* child = root->children; child != nullptr; child = child->next) {
        ItemKind kind;
        if (!ItemKindOf(child, &kind)) continue;
        if (xmlHasNsProp(child, ToXml("name"), nullptr) == nullptr) {
            return Fail(error, role,
                        "has a " + std::string(ItemWord(kind)) + " without a name attribute at " +
                            LineOf(child));
        }
    }
    return CheckNames(root, role, error);
}

}  // namespace

std::string_view ToView(const xmlChar* text) {
    return text == nullptr ? std::string_view()
                           : std::string_view(reinterpret_cast<const char*>(text));
}

const xmlChar* ToXml(const char* text) {
    return reinterpret_cast<const xmlChar*>(text);
}

HRESULT FormatErrorCode(TicketRole role) {
    return role == TicketRole::Base ? E_PRINTTICKET_FORMAT : E_DELTA_PRINTTICKET_FORMAT;
}

XmlDocPtr ParsePrintTicket(std::string_view bytes, TicketRole role, TicketError& error) {
    platform::msxml::EnsureLibxml();

    if (bytes.empty()) {
        Fail(error, role, "is empty");
        return nullptr;
    }
    if (bytes.size() > kMaxPrintTicketBytes) {
        Fail(error, role,
             "is larger than the limit of " + std::to_string(kMaxPrintTicketBytes) + " bytes");
        return nullptr;
    }
    ParserCtxtPtr ctxt(xmlNewParserCtxt());
    if (ctxt == nullptr || ctxt->sax == nullptr) {
        error.code = E_OUTOFMEMORY;
        error.message = "Out of memory while parsing the ticket";
        return nullptr;
    }
    ParseWatch watch;
    ctxt->_private = &watch;
    ctxt->sax->internalSubset = OnDoctype;
    ctxt->sax->serror = OnError;
    // No XML_PARSE_NOENT (entities are never substituted), no DTDLOAD/DTDATTR/DTDVALID, no
    // XINCLUDE, and never XML_PARSE_HUGE: libxml2 keeps its limits on depth and node sizes.
    const int options = XML_PARSE_NONET | XML_PARSE_NOERROR | XML_PARSE_NOWARNING;
    XmlDocPtr doc(xmlCtxtReadMemory(ctxt.get(), bytes.data(), static_cast<int>(bytes.size()),
                                    nullptr, nullptr, options));
    if (watch.sawDoctype) {
        Fail(error, role, "has a document type declaration (DOCTYPE), which is not allowed");
        return nullptr;
    }
    if (doc == nullptr || !ctxt->wellFormed) {
        Fail(error, role,
             "is not well-formed XML (" +
                 (watch.firstError.empty() ? std::string("the parser gave up") : watch.firstError) +
                 ")");
        return nullptr;
    }
    if (!watch.firstNamespaceError.empty()) {
        Fail(error, role, "is not namespace-well-formed (" + watch.firstNamespaceError + ")");
        return nullptr;
    }
    if (!CheckTicket(doc.get(), role, error)) return nullptr;
    return doc;
}

bool IsFrameworkElement(const xmlNode* node, std::string_view local) {
    return node != nullptr && node->type == XML_ELEMENT_NODE && node->ns != nullptr &&
           ToView(node->ns->href) == kFrameworkNamespace && ToView(node->name) == local;
}

bool ItemKindOf(const xmlNode* element, ItemKind* kind) {
    if (IsFrameworkElement(element, "Feature")) {
        *kind = ItemKind::Feature;
    } else if (IsFrameworkElement(element, "ParameterInit")) {
        *kind = ItemKind::ParameterInit;
    } else if (IsFrameworkElement(element, "Property")) {
        *kind = ItemKind::Property;
    } else {
        return false;
    }
    return true;
}

bool ResolveQName(xmlNode* element, std::string_view qname, ExpandedName* name) {
    std::string prefix;
    std::string local;
    if (auto colon = qname.find(':'); colon == std::string_view::npos) {
        local = qname;
    } else {
        prefix = qname.substr(0, colon);
        local = qname.substr(colon + 1);
        if (xmlValidateNCName(ToXml(prefix.c_str()), 0) != 0) return false;
    }
    if (xmlValidateNCName(ToXml(local.c_str()), 0) != 0) return false;
    xmlNs* ns =
        xmlSearchNs(element->doc, element, prefix.empty() ? nullptr : ToXml(prefix.c_str()));
    if (!prefix.empty() && ns == nullptr) return false;
    name->uri = ns != nullptr ? std::string(ToView(ns->href)) : std::string();
    name->local = std::move(local);
    return true;
}

bool AttributeHoldsQName(const xmlNode* element, const xmlAttr* attribute) {
    if (attribute->ns == nullptr) {
        return ToView(attribute->name) == "name" && element->ns != nullptr &&
               ToView(element->ns->href) == kFrameworkNamespace;
    }
    return IsXsiType(attribute);
}

bool TextHoldsQName(xmlNode* element) {
    if (!IsFrameworkElement(element, "Value") || !OnlyTextChildren(element)) return false;
    std::string text = TextOf(element);
    std::string_view core = TrimXmlSpace(text).core;
    ExpandedName value;
    if (const xmlAttr* type = XsiTypeOf(element)) {
        ExpandedName typeName;
        if (!ResolveQName(element, TrimXmlSpace(AttributeValue(type)).core, &typeName)) {
            return false;
        }
        return typeName.uri == kXsdNamespace && typeName.local == "QName" &&
               ResolveQName(element, core, &value);
    }
    return core.find(':') != std::string_view::npos && ResolveQName(element, core, &value);
}

std::string AttributeValue(const xmlAttr* attribute) {
    std::string value;
    for (const xmlNode* child = attribute->children; child != nullptr; child = child->next) {
        if (child->type == XML_TEXT_NODE) value += ToView(child->content);
    }
    return value;
}

std::string TextOf(const xmlNode* element) {
    std::string text;
    for (const xmlNode* child = element->children; child != nullptr; child = child->next) {
        if (child->type == XML_TEXT_NODE || child->type == XML_CDATA_SECTION_NODE) {
            text += ToView(child->content);
        }
    }
    return text;
}

Trimmed TrimXmlSpace(std::string_view text) {
    auto isSpace = [](char c) { return c == ' ' || c == '\t' || c == '\r' || c == '\n'; };
    std::size_t begin = 0;
    while (begin < text.size() && isSpace(text[begin])) ++begin;
    std::size_t end = text.size();
    while (end > begin && isSpace(text[end - 1])) --end;
    return {text.substr(0, begin), text.substr(begin, end - begin), text.substr(end)};
}

}  // namespace platform::prntvpt
