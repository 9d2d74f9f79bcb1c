// ticketcheck.h: an independent reader of merged tickets for the provider tests. It re-parses a
// ticket strictly with libxml2 (namespace errors fail), lists the root items by kind and expanded
// name, and reduces an item to a prefix-free signature so that items of two documents that use
// different prefixes can be compared.
#pragma once

#include <libxml/parser.h>
#include <libxml/tree.h>

#include <fstream>
#include <map>
#include <memory>
#include <sstream>
#include <string>
#include <vector>

namespace ticketcheck {

inline constexpr const char* kPsf =
    "http://schemas.microsoft.com/windows/2003/08/printing/printschemaframework";
inline constexpr const char* kXsi = "http://www.w3.org/2001/XMLSchema-instance";
inline constexpr const char* kXsd = "http://www.w3.org/2001/XMLSchema";

struct DocFree {
    void operator()(xmlDoc* doc) const { xmlFreeDoc(doc); }
};
using Doc = std::unique_ptr<xmlDoc, DocFree>;

inline std::string S(const xmlChar* text) {
    return text == nullptr ? std::string() : std::string(reinterpret_cast<const char*>(text));
}
inline const xmlChar* X(const char* text) {
    return reinterpret_cast<const xmlChar*>(text);
}

// Null unless `xml` is well-formed and namespace-well-formed; `problem` gets the first error.
// A namespace name that is not a valid URI (libxml2 reports it, real tickets have one) is not a
// namespace error: namespace names are compared as strings.
inline Doc ParseStrict(const std::string& xml, std::string* problem = nullptr) {
    struct Errors {
        std::string first;
        bool namespaces = true;
        static void On(void* context, xmlErrorPtr error) {
            auto* errors = static_cast<Errors*>(static_cast<xmlParserCtxtPtr>(context)->_private);
            if (error->level < XML_ERR_ERROR || error->code == XML_WAR_NS_URI) return;
            if (error->domain == XML_FROM_NAMESPACE) errors->namespaces = false;
            if (errors->first.empty())
                errors->first = error->message != nullptr ? error->message : "?";
        }
    } errors;
    xmlParserCtxtPtr ctxt = xmlNewParserCtxt();
    ctxt->sax->serror = &Errors::On;
    ctxt->_private = &errors;
    Doc doc(xmlCtxtReadMemory(ctxt, xml.data(), static_cast<int>(xml.size()), nullptr, nullptr,
                              XML_PARSE_NONET | XML_PARSE_NOERROR | XML_PARSE_NOWARNING));
    const bool good = doc != nullptr && ctxt->wellFormed && errors.namespaces;
    xmlFreeParserCtxt(ctxt);
    if (problem != nullptr) *problem = errors.first;
    return good ? std::move(doc) : nullptr;
}

inline std::string ReadFile(const std::string& path) {
    std::ifstream in(path, std::ios::binary);
    std::ostringstream all;
    all << in.rdbuf();
    return all.str();
}

// "{uri}local", or "?prefix:local" when the prefix is not declared at `scope`.
inline std::string Resolve(xmlNode* scope, const std::string& qname) {
    auto colon = qname.find(':');
    std::string prefix = colon == std::string::npos ? "" : qname.substr(0, colon);
    std::string local = colon == std::string::npos ? qname : qname.substr(colon + 1);
    xmlNs* ns = xmlSearchNs(scope->doc, scope, prefix.empty() ? nullptr : X(prefix.c_str()));
    if (!prefix.empty() && ns == nullptr) return "?" + qname;
    return "{" + (ns != nullptr ? S(ns->href) : std::string()) + "}" + local;
}

inline std::string Trim(const std::string& text) {
    const char* space = " \t\r\n";
    auto begin = text.find_first_not_of(space);
    if (begin == std::string::npos) return "";
    return text.substr(begin, text.find_last_not_of(space) - begin + 1);
}

inline std::string ElementName(const xmlNode* node) {
    return "{" + (node->ns != nullptr ? S(node->ns->href) : std::string()) + "}" + S(node->name);
}

inline bool IsPsf(const xmlNode* node, const char* local) {
    return node->type == XML_ELEMENT_NODE && node->ns != nullptr && S(node->ns->href) == kPsf &&
           S(node->name) == local;
}

inline std::string AttributeText(const xmlAttr* attribute) {
    xmlChar* value = xmlNodeListGetString(attribute->doc, attribute->children, 1);
    std::string text = S(value);
    xmlFree(value);
    return text;
}

inline std::string ValueText(const xmlNode* node) {
    std::string text;
    for (const xmlNode* c = node->children; c != nullptr; c = c->next) {
        if (c->type == XML_TEXT_NODE || c->type == XML_CDATA_SECTION_NODE) text += S(c->content);
    }
    return text;
}

// A prefix-free description of a subtree: expanded element and attribute names, QName values
// (psf name attributes, xsi:type, QName-typed or prefixed Value text) resolved, text as is.
inline std::string Signature(xmlNode* node) {
    std::string out = "<" + ElementName(node);
    std::map<std::string, std::string> attributes;
    std::string type;
    for (xmlAttr* a = node->properties; a != nullptr; a = a->next) {
        std::string key =
            "{" + (a->ns != nullptr ? S(a->ns->href) : std::string()) + "}" + S(a->name);
        std::string value = AttributeText(a);
        const bool isType = key == std::string("{") + kXsi + "}type";
        if (isType) type = Resolve(node, Trim(value));
        if (isType || (a->ns == nullptr && S(a->name) == "name" && node->ns != nullptr &&
                       S(node->ns->href) == kPsf)) {
            value = Resolve(node, Trim(value));
        }
        attributes[key] = value;
    }
    for (const auto& [key, value] : attributes) out += " " + key + "=" + value;
    out += ">";
    if (IsPsf(node, "Value")) {
        std::string text = Trim(ValueText(node));
        const bool qnameType = type == std::string("{") + kXsd + "}QName";
        if (qnameType || (type.empty() && text.find(':') != std::string::npos &&
                          Resolve(node, text)[0] != '?')) {
            text = Resolve(node, text);
        }
        return out + text + "</>";
    }
    for (xmlNode* c = node->children; c != nullptr; c = c->next) {
        if (c->type == XML_ELEMENT_NODE) {
            out += Signature(c);
        } else if (c->type == XML_TEXT_NODE || c->type == XML_CDATA_SECTION_NODE) {
            out += Trim(S(c->content));
        }
    }
    return out + "</>";
}

struct Item {
    std::string key;  // "Feature{uri}local"
    std::string local;
    xmlNode* node;
};

// Root-level Feature, ParameterInit and Property elements, in document order.
inline std::vector<Item> RootItems(xmlDoc* doc) {
    std::vector<Item> items;
    xmlNode* root = xmlDocGetRootElement(doc);
    for (xmlNode* c = root->children; c != nullptr; c = c->next) {
        for (const char* kind : {"Feature", "ParameterInit", "Property"}) {
            if (!IsPsf(c, kind)) continue;
            xmlChar* name = xmlGetNoNsProp(c, X("name"));
            std::string qname = Trim(S(name));
            xmlFree(name);
            std::string resolved = Resolve(c, qname);
            items.push_back({kind + resolved, resolved.substr(resolved.find('}') + 1), c});
        }
    }
    return items;
}

inline std::map<std::string, std::string> ItemSignatures(xmlDoc* doc) {
    std::map<std::string, std::string> signatures;
    for (const Item& item : RootItems(doc)) signatures.emplace(item.key, Signature(item.node));
    return signatures;
}

// Every QName-valued attribute in the document resolves (no undeclared prefix).
inline bool AllQNamesResolve(xmlNode* node, std::string* bad) {
    for (xmlAttr* a = node->properties; a != nullptr; a = a->next) {
        const bool qname = (a->ns != nullptr && S(a->ns->href) == kXsi && S(a->name) == "type") ||
                           (a->ns == nullptr && S(a->name) == "name" && node->ns != nullptr &&
                            S(node->ns->href) == kPsf);
        if (qname && Resolve(node, Trim(AttributeText(a)))[0] == '?') {
            *bad = AttributeText(a);
            return false;
        }
    }
    for (xmlNode* c = node->children; c != nullptr; c = c->next) {
        if (c->type == XML_ELEMENT_NODE && !AllQNamesResolve(c, bad)) return false;
    }
    return true;
}

}  // namespace ticketcheck
