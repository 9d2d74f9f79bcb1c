// ticketmerge.cpp: the lossless Print Schema merge. Items are matched by kind and expanded name;
// delta items are copied into the base document with their namespaces mapped onto declarations
// of the result's root and the QNames inside them rewritten to the prefixes chosen there.
#include "platform/prntvpt/ticketmerge.h"

#include <map>
#include <set>
#include <vector>

namespace platform::prntvpt {
namespace {

struct NodeFree {
    void operator()(xmlNode* node) const { xmlFreeNode(node); }
};
using NodePtr = std::unique_ptr<xmlNode, NodeFree>;

struct ItemKey {
    ItemKind kind;
    ExpandedName name;
    auto operator<=>(const ItemKey&) const = default;
};

bool KeyOf(xmlNode* element, ItemKey* key) {
    if (!ItemKindOf(element, &key->kind)) return false;
    const xmlAttr* name = xmlHasNsProp(element, ToXml("name"), nullptr);
    return name != nullptr &&
           ResolveQName(element, TrimXmlSpace(AttributeValue(name)).core, &key->name);
}

// Prefixes starting with "xml" in any case are reserved by the Namespaces recommendation.
bool IsReservedPrefix(std::string_view prefix) {
    if (prefix.size() < 3) return false;
    auto lower = [](char c) { return static_cast<char>(c >= 'A' && c <= 'Z' ? c + 32 : c); };
    return lower(prefix[0]) == 'x' && lower(prefix[1]) == 'm' && lower(prefix[2]) == 'l';
}

xmlNode* LastElementChild(xmlNode* parent) {
    for (xmlNode* child = parent->last; child != nullptr; child = child->prev) {
        if (child->type == XML_ELEMENT_NODE) return child;
    }
    return nullptr;
}

// Chooses, per namespace URI, the prefixed declaration on the result's root that copied nodes
// use. The root keeps every declaration it had; new ones are only added.
class NamespaceMapper {
public:
    explicit NamespaceMapper(xmlNode* root) : root_(root) {}

    // A declaration of `uri` with a prefix: one the root already has (the preferred prefix
    // first), else a new one under the preferred prefix or, when the root binds that prefix to
    // another namespace, under "<prefix>_<n>". Null only for lack of memory.
    xmlNs* Prefixed(std::string_view uri, std::string_view preferred) {
        if (uri == ToView(XML_XML_NAMESPACE)) return xmlSearchNs(root_->doc, root_, ToXml("xml"));
        if (auto chosen = chosen_.find(uri); chosen != chosen_.end()) return chosen->second;
        xmlNs* found = nullptr;
        for (xmlNs* ns = root_->nsDef; ns != nullptr; ns = ns->next) {
            if (ns->prefix == nullptr || ToView(ns->href) != uri) continue;
            if (ToView(ns->prefix) == preferred) {
                found = ns;
                break;
            }
            if (found == nullptr) found = ns;
        }
        if (found == nullptr) {
            const std::string stem =
                preferred.empty() || IsReservedPrefix(preferred) ? "ns" : std::string(preferred);
            std::string prefix = stem;
            for (int n = 1; RootDeclares(prefix); ++n) prefix = stem + "_" + std::to_string(n);
            found = xmlNewNs(root_, ToXml(std::string(uri).c_str()), ToXml(prefix.c_str()));
            if (found == nullptr) return nullptr;
        }
        chosen_.emplace(std::string(uri), found);
        return found;
    }

    bool RootHasDefaultNamespace() const {
        for (const xmlNs* ns = root_->nsDef; ns != nullptr; ns = ns->next) {
            if (ns->prefix == nullptr && !ToView(ns->href).empty()) return true;
        }
        return false;
    }

private:
    bool RootDeclares(const std::string& prefix) const {
        for (const xmlNs* ns = root_->nsDef; ns != nullptr; ns = ns->next) {
            if (ToView(ns->prefix) == prefix) return true;
        }
        return false;
    }

    xmlNode* root_;
    std::map<std::string, xmlNs*, std::less<>> chosen_;
};

// Copies delta items into the result document. The copies carry no namespace declarations of
// their own: every namespace they use is declared on the result's root through the mapper.
class DeltaCopier {
public:
    DeltaCopier(xmlDoc* result, NamespaceMapper& mapper) : result_(result), mapper_(mapper) {}

    // Null only for lack of memory.
    xmlNode* CopyItem(xmlNode* item) {
        usesNoNamespace_ = false;
        NodePtr copy(CopyElement(item));
        if (copy == nullptr) return nullptr;
        // Unprefixed names in no namespace must not fall into a default namespace of the root.
        if (usesNoNamespace_ && mapper_.RootHasDefaultNamespace() &&
            xmlNewNs(copy.get(), ToXml(""), nullptr) == nullptr) {
            return nullptr;
        }
        return copy.release();
    }

private:
    xmlNode* CopyElement(xmlNode* source) {
        xmlNs* ns = nullptr;
        if (source->ns != nullptr && !ToView(source->ns->href).empty()) {
            ns = mapper_.Prefixed(ToView(source->ns->href), ToView(source->ns->prefix));
            if (ns == nullptr) return nullptr;
        } else {
            usesNoNamespace_ = true;
        }
        NodePtr copy(xmlNewDocNode(result_, ns, source->name, nullptr));
        if (copy == nullptr) return nullptr;
        for (xmlAttr* attribute = source->properties; attribute != nullptr;
             attribute = attribute->next) {
            std::string value = AttributeValue(attribute);
            if (AttributeHoldsQName(source, attribute) && !RewriteQName(source, value, &value)) {
                return nullptr;
            }
            xmlAttr* made = nullptr;
            if (attribute->ns != nullptr) {
                xmlNs* attributeNs =
                    mapper_.Prefixed(ToView(attribute->ns->href), ToView(attribute->ns->prefix));
                if (attributeNs == nullptr) return nullptr;
                made = xmlNewNsProp(copy.get(), attributeNs, attribute->name, ToXml(value.c_str()));
            } else {
                made = xmlNewProp(copy.get(), attribute->name, ToXml(value.c_str()));
            }
            if (made == nullptr) return nullptr;
        }
        if (TextHoldsQName(source)) {
            std::string text;
            if (!RewriteQName(source, TextOf(source), &text)) return nullptr;
            xmlNode* node = xmlNewDocText(result_, ToXml(text.c_str()));
            if (node == nullptr) return nullptr;
            xmlAddChild(copy.get(), node);
            return copy.release();
        }
        for (xmlNode* child = source->children; child != nullptr; child = child->next) {
            xmlNode* node = child->type == XML_ELEMENT_NODE ? CopyElement(child)
                                                            : xmlDocCopyNode(child, result_, 1);
            if (node == nullptr) return nullptr;
            xmlAddChild(copy.get(), node);
        }
        return copy.release();
    }

    // Rewrites a QName of the delta (read in the scope of `scope`) to the result's prefix for its
    // namespace, keeping surrounding white space. Text that does not resolve stays as it is.
    bool RewriteQName(xmlNode* scope, const std::string& value, std::string* out) {
        Trimmed parts = TrimXmlSpace(value);
        ExpandedName name;
        if (!ResolveQName(scope, parts.core, &name)) {
            *out = value;
            return true;
        }
        std::string rewritten(parts.leading);
        if (name.uri.empty()) {
            usesNoNamespace_ = true;
        } else {
            const auto colon = parts.core.find(':');
            std::string_view prefix =
                colon == std::string_view::npos ? std::string_view() : parts.core.substr(0, colon);
            xmlNs* ns = mapper_.Prefixed(name.uri, prefix);
            if (ns == nullptr) return false;
            rewritten += ToView(ns->prefix);
            rewritten += ':';
        }
        rewritten += name.local;
        rewritten += parts.trailing;
        *out = std::move(rewritten);
        return true;
    }

    xmlDoc* result_;
    NamespaceMapper& mapper_;
    bool usesNoNamespace_ = false;
};

}  // namespace

bool InScope(std::string_view local, EPrintTicketScope scope) {
    switch (scope) {
        case kPTJobScope:
            return true;
        case kPTDocumentScope:
            return local.starts_with("Document") || local.starts_with("Page");
        case kPTPageScope:
            return local.starts_with("Page");
    }
    return false;
}

HRESULT MergeInto(xmlDoc* base, xmlDoc* delta, EPrintTicketScope scope, TicketError& error) {
    xmlNode* root = xmlDocGetRootElement(base);
    xmlNode* deltaRoot = xmlDocGetRootElement(delta);
    std::map<ItemKey, std::vector<xmlNode*>> baseItems;
    for (xmlNode* child = root->children; child != nullptr; child = child->next) {
        ItemKey key;
        if (KeyOf(child, &key)) baseItems[key].push_back(child);
    }
    NamespaceMapper mapper(root);
    DeltaCopier copier(base, mapper);
    std::set<ItemKey> merged;
    for (xmlNode* item = deltaRoot->children; item != nullptr; item = item->next) {
        ItemKey key;
        if (!KeyOf(item, &key) || !InScope(key.name.local, scope)) continue;
        if (!merged.insert(key).second) continue;  // the first of duplicate delta items wins
        xmlNode* copy = copier.CopyItem(item);
        if (copy == nullptr) {
            error.code = E_OUTOFMEMORY;
            error.message = "Out of memory while merging the tickets";
            return error.code;
        }
        if (auto found = baseItems.find(key); found != baseItems.end()) {
            // The copy takes the place of the base's first item of that name; later duplicates
            // of it in the base would contradict the delta and are dropped.
            xmlReplaceNode(found->second.front(), copy);
            for (xmlNode* replaced : found->second) {
                xmlUnlinkNode(replaced);
                xmlFreeNode(replaced);
            }
            baseItems.erase(found);
        } else if (xmlNode* last = LastElementChild(root)) {
            xmlAddNextSibling(last, copy);
            // An added item is indented like the item before it.
            if (last->prev != nullptr && xmlIsBlankNode(last->prev)) {
                if (xmlNode* indent = xmlNewDocText(base, last->prev->content)) {
                    xmlAddPrevSibling(copy, indent);
                }
            }
        } else {
            xmlAddChild(root, copy);
        }
    }
    return S_OK;
}

// libxml2 (2.9) writes a namespace declaration's URI between quotes as it stands. A '&' is
// already held as "&#38;" (the parser keeps it so, without entity substitution), but a '<'
// (declared in the input as &lt;) would come out as markup that does not parse: in the document
// about to be written, and then freed, each '<' of a URI is replaced by "&lt;".
void EscapeNamespaceNames(xmlNode* node) {
    for (; node != nullptr; node = node->next) {
        if (node->type != XML_ELEMENT_NODE) continue;
        for (xmlNs* ns = node->nsDef; ns != nullptr; ns = ns->next) {
            const std::string_view href =
                ns->href != nullptr ? reinterpret_cast<const char*>(ns->href) : "";
            if (href.find('<') == std::string_view::npos) continue;
            std::string escaped;
            for (char c : href) {
                if (c == '<') {
                    escaped += "&lt;";
                } else {
                    escaped += c;
                }
            }
            xmlFree(const_cast<xmlChar*>(ns->href));
            ns->href = xmlStrdup(ToXml(escaped.c_str()));
        }
        EscapeNamespaceNames(node->children);
    }
}

HRESULT SerializeTicket(xmlDoc* doc, std::string& out) {
    EscapeNamespaceNames(xmlDocGetRootElement(doc));
    xmlChar* text = nullptr;
    int size = 0;
    xmlDocDumpFormatMemoryEnc(doc, &text, &size, "UTF-8", 0);
    if (text == nullptr || size < 0) return E_OUTOFMEMORY;
    out.assign(reinterpret_cast<const char*>(text), static_cast<std::size_t>(size));
    xmlFree(text);
    return S_OK;
}

HRESULT MergeTicketBytes(std::string_view base, std::optional<std::string_view> delta,
                         EPrintTicketScope scope, std::string& merged, TicketError& error) {
    const int scopeValue = static_cast<int>(scope);
    if (scopeValue < kPTPageScope || scopeValue > kPTJobScope) {
        error.code = E_INVALIDARG;
        error.message = "The scope " + std::to_string(scopeValue) +
                        " is none of page (0), document (1) and job (2)";
        return error.code;
    }
    XmlDocPtr result = ParsePrintTicket(base, TicketRole::Base, error);
    if (result == nullptr) return error.code;
    if (delta.has_value()) {
        XmlDocPtr deltaDoc = ParsePrintTicket(*delta, TicketRole::Delta, error);
        if (deltaDoc == nullptr) return error.code;
        PT_RETURN_IF_FAILED(MergeInto(result.get(), deltaDoc.get(), scope, error));
    }
    if (FAILED(SerializeTicket(result.get(), merged))) {
        error.code = E_OUTOFMEMORY;
        error.message = "Out of memory while writing the merged ticket";
        return error.code;
    }
    return S_PT_NO_CONFLICT;
}

}  // namespace platform::prntvpt
