// xpsmarkup.cpp: parsing of relationships, content types, sequence and document listings, and
// the resource-reference scan of page markup, all on libxml2.
#include "pipelinehost/xpsmarkup.h"

#include <libxml/parser.h>
#include <libxml/tree.h>
#include <libxml/xmlreader.h>

#include <climits>
#include <memory>
#include <optional>

#include "pipelinehost/hosterror.h"
#include "pipelinehost/partname.h"
#include "pipelinehost/xpsnames.h"

namespace pipelinehost {
namespace {

constexpr int kParseOptions =
    XML_PARSE_NONET | XML_PARSE_NOERROR | XML_PARSE_NOWARNING | XML_PARSE_HUGE | XML_PARSE_NOCDATA;

struct DocDeleter {
    void operator()(xmlDoc* doc) const { xmlFreeDoc(doc); }
};
using DocPtr = std::unique_ptr<xmlDoc, DocDeleter>;

DocPtr ParseDocument(std::string_view xml, std::string_view what) {
    if (xml.size() > static_cast<std::size_t>(INT_MAX)) {
        throw JobError(ErrorKind::LimitExceeded, std::string(what) + " is too large to parse");
    }
    DocPtr doc(
        xmlReadMemory(xml.data(), static_cast<int>(xml.size()), nullptr, nullptr, kParseOptions));
    if (!doc) throw JobError(ErrorKind::BadPackage, std::string(what) + " is not well-formed XML");
    if (doc->intSubset != nullptr || doc->extSubset != nullptr) {
        throw JobError(ErrorKind::BadPackage, std::string(what) + " has a DTD, which XPS forbids");
    }
    if (xmlDocGetRootElement(doc.get()) == nullptr) {
        throw JobError(ErrorKind::BadPackage, std::string(what) + " has no root element");
    }
    return doc;
}

std::string_view Name(const xmlNode* node) {
    return node->name ? reinterpret_cast<const char*>(node->name) : "";
}
std::string_view Namespace(const xmlNode* node) {
    return (node->ns && node->ns->href) ? reinterpret_cast<const char*>(node->ns->href) : "";
}

std::string Attribute(const xmlNode* node, const char* name) {
    xmlChar* value = xmlGetNoNsProp(node, reinterpret_cast<const xmlChar*>(name));
    if (value == nullptr) return {};
    std::string text(reinterpret_cast<const char*>(value));
    xmlFree(value);
    return text;
}

bool HasAttribute(const xmlNode* node, const char* name) {
    return xmlHasNsProp(node, reinterpret_cast<const xmlChar*>(name), nullptr) != nullptr;
}

std::string Trim(std::string_view text) {
    std::size_t start = text.find_first_not_of(" \t\r\n");
    if (start == std::string_view::npos) return {};
    std::size_t end = text.find_last_not_of(" \t\r\n");
    return std::string(text.substr(start, end - start + 1));
}

std::string StartTag(const xmlNode* root) {
    std::string tag = "<";
    std::string qname;
    if (root->ns && root->ns->prefix) {
        qname = reinterpret_cast<const char*>(root->ns->prefix);
        qname += ':';
    }
    qname += Name(root);
    tag += qname;
    for (const xmlNs* ns = root->nsDef; ns != nullptr; ns = ns->next) {
        tag += ns->prefix ? " xmlns:" + std::string(reinterpret_cast<const char*>(ns->prefix))
                          : std::string(" xmlns");
        tag += "=\"" + EscapeXml(ns->href ? reinterpret_cast<const char*>(ns->href) : "") + "\"";
    }
    for (const xmlAttr* attr = root->properties; attr != nullptr; attr = attr->next) {
        tag += ' ';
        if (attr->ns && attr->ns->prefix) {
            tag += reinterpret_cast<const char*>(attr->ns->prefix);
            tag += ':';
        }
        tag += reinterpret_cast<const char*>(attr->name);
        xmlChar* value = xmlNodeListGetString(root->doc, attr->children, 1);
        tag += "=\"" + EscapeXml(value ? reinterpret_cast<const char*>(value) : "") + "\"";
        if (value) xmlFree(value);
    }
    tag += '>';
    return tag;
}

// Splits "{ColorConvertedBitmap /a.tif /b.icc}" style and "ContextColor /p.icc 1,0,0" values.
void ReferencesInValue(std::string_view attribute, std::string_view element, std::string_view value,
                       std::string_view partName, std::vector<MarkupReference>& out) {
    auto add = [&](ResourceKind kind, std::string_view target) {
        std::optional<std::string> part = ResolvePartReference(partName, Trim(target));
        if (part) out.push_back({kind, *part});
    };
    std::string trimmed = Trim(value);
    if (trimmed.empty()) return;
    if (trimmed.rfind("ContextColor", 0) == 0) {
        std::string_view rest = std::string_view(trimmed).substr(12);
        std::string profile = Trim(rest);
        std::size_t space = profile.find_first_of(" \t\r\n");
        add(ResourceKind::ColorProfile, profile.substr(0, space));
        return;
    }
    if (attribute == "FontUri") {
        add(ResourceKind::Font, trimmed);
    } else if (attribute == "ImageSource") {
        if (trimmed.front() == '{') {
            if (trimmed.rfind("{ColorConvertedBitmap", 0) != 0) return;
            std::string inner = Trim(std::string_view(trimmed).substr(21));
            if (!inner.empty() && inner.back() == '}') inner.pop_back();
            std::size_t space = inner.find_first_of(" \t\r\n");
            add(ResourceKind::Image, inner.substr(0, space));
            if (space != std::string::npos) add(ResourceKind::ColorProfile, inner.substr(space));
        } else {
            add(ResourceKind::Image, trimmed);
        }
    } else if (attribute == "Source" && element == "ResourceDictionary" && trimmed.front() != '{') {
        add(ResourceKind::ResourceDictionary, trimmed);
    }
}

}  // namespace

std::string EscapeXml(std::string_view text) {
    std::string out;
    out.reserve(text.size());
    for (char c : text) {
        switch (c) {
            case '&':
                out += "&amp;";
                break;
            case '<':
                out += "&lt;";
                break;
            case '>':
                out += "&gt;";
                break;
            case '"':
                out += "&quot;";
                break;
            case '\'':
                out += "&apos;";
                break;
            case '\t':
                out += "&#9;";
                break;
            case '\n':
                out += "&#10;";
                break;
            case '\r':
                out += "&#13;";
                break;
            default:
                out += c;
                break;
        }
    }
    return out;
}

std::vector<Relationship> ParseRelationships(std::string_view xml, std::string_view sourcePart,
                                             std::string_view relsPart) {
    std::string what = "relationships part " + std::string(relsPart);
    DocPtr doc = ParseDocument(xml, what);
    const xmlNode* root = xmlDocGetRootElement(doc.get());
    if (Name(root) != "Relationships" || Namespace(root) != xps::kRelationshipsNamespace) {
        throw JobError(ErrorKind::BadPackage, what + " is not a Relationships document");
    }
    std::vector<Relationship> rels;
    for (const xmlNode* node = root->children; node != nullptr; node = node->next) {
        if (node->type != XML_ELEMENT_NODE || Name(node) != "Relationship") continue;
        Relationship rel;
        rel.id = Attribute(node, "Id");
        rel.type = Attribute(node, "Type");
        rel.target = Attribute(node, "Target");
        rel.external = Attribute(node, "TargetMode") == "External";
        if (rel.target.empty() || rel.type.empty()) {
            throw JobError(ErrorKind::BadPackage,
                           what + " has a Relationship without Target or Type");
        }
        if (!rel.external) rel.part = ResolvePartReference(sourcePart, rel.target);
        if (!rel.part) rel.external = true;
        rels.push_back(std::move(rel));
    }
    return rels;
}

ContentTypes ParseContentTypes(std::string_view xml) {
    DocPtr doc = ParseDocument(xml, "[Content_Types].xml");
    const xmlNode* root = xmlDocGetRootElement(doc.get());
    if (Name(root) != "Types" || Namespace(root) != xps::kContentTypesNamespace) {
        throw JobError(ErrorKind::BadPackage, "[Content_Types].xml is not a Types document");
    }
    ContentTypes types;
    for (const xmlNode* node = root->children; node != nullptr; node = node->next) {
        if (node->type != XML_ELEMENT_NODE) continue;
        if (Name(node) == "Default") {
            std::string ext = PartKey(Attribute(node, "Extension"));
            types.defaults[ext] = Attribute(node, "ContentType");
        } else if (Name(node) == "Override") {
            types.overrides[PartKey(Attribute(node, "PartName"))] = Attribute(node, "ContentType");
        }
    }
    return types;
}

Listing ParseListing(std::string_view xml, std::string_view partName, bool sequence) {
    const char* rootName = sequence ? "FixedDocumentSequence" : "FixedDocument";
    const char* entryName = sequence ? "DocumentReference" : "PageContent";
    std::string what = std::string(rootName) + " " + std::string(partName);
    DocPtr doc = ParseDocument(xml, what);
    const xmlNode* root = xmlDocGetRootElement(doc.get());
    if (Name(root) != rootName || !xps::IsXpsNamespace(Namespace(root))) {
        throw JobError(ErrorKind::BadPackage, std::string(partName) + " is not a " + rootName +
                                                  " in the XPS or OpenXPS namespace");
    }
    Listing listing;
    listing.openTag = StartTag(root);
    std::string qname;
    if (root->ns && root->ns->prefix)
        qname = std::string(reinterpret_cast<const char*>(root->ns->prefix)) + ":";
    listing.closeTag = "</" + qname + std::string(Name(root)) + ">";
    xmlBuffer* buffer = xmlBufferCreate();
    for (xmlNode* node = root->children; node != nullptr; node = node->next) {
        if (node->type != XML_ELEMENT_NODE || Name(node) != entryName) continue;
        if (!HasAttribute(node, "Source")) {
            xmlBufferFree(buffer);
            throw JobError(ErrorKind::BadPackage, what + " has a " + entryName + " without Source");
        }
        std::optional<std::string> part = ResolvePartReference(partName, Attribute(node, "Source"));
        if (!part) {
            xmlBufferFree(buffer);
            throw JobError(ErrorKind::BadPackage,
                           what + " refers outside the package: " + Attribute(node, "Source"));
        }
        xmlBufferEmpty(buffer);
        xmlNodeDump(buffer, doc.get(), node, 0, 0);
        listing.entries.push_back(
            {*part, std::string(reinterpret_cast<const char*>(xmlBufferContent(buffer)),
                                static_cast<std::size_t>(xmlBufferLength(buffer)))});
    }
    xmlBufferFree(buffer);
    return listing;
}

void ScanMarkupReferences(const ReadFunction& read, std::string_view partName,
                          std::vector<MarkupReference>& out) {
    struct Context {
        const ReadFunction* read;
        std::optional<JobError> error;
    } context{&read, std::nullopt};
    auto readCallback = [](void* ctx, char* buffer, int len) -> int {
        auto* c = static_cast<Context*>(ctx);
        try {
            return static_cast<int>((*c->read)(buffer, static_cast<std::size_t>(len)));
        } catch (const JobError& e) {
            c->error = e;
            return -1;
        }
    };
    xmlTextReader* reader =
        xmlReaderForIO(readCallback, nullptr, &context, nullptr, nullptr, kParseOptions);
    if (reader == nullptr) throw JobError(ErrorKind::Internal, "cannot create an XML reader");
    int status;
    while ((status = xmlTextReaderRead(reader)) == 1) {
        int type = xmlTextReaderNodeType(reader);
        if (type == XML_READER_TYPE_DOCUMENT_TYPE) {
            status = -2;
            break;
        }
        if (type != XML_READER_TYPE_ELEMENT || xmlTextReaderHasAttributes(reader) != 1) continue;
        const char* element = reinterpret_cast<const char*>(xmlTextReaderConstLocalName(reader));
        std::string elementName = element ? element : "";
        while (xmlTextReaderMoveToNextAttribute(reader) == 1) {
            const char* name = reinterpret_cast<const char*>(xmlTextReaderConstLocalName(reader));
            const char* value = reinterpret_cast<const char*>(xmlTextReaderConstValue(reader));
            if (name && value) ReferencesInValue(name, elementName, value, partName, out);
        }
        xmlTextReaderMoveToElement(reader);
    }
    xmlFreeTextReader(reader);
    if (context.error) throw *context.error;
    if (status == -2) {
        throw JobError(ErrorKind::BadPackage,
                       std::string(partName) + " has a DTD, which XPS forbids");
    }
    if (status != 0) {
        throw JobError(ErrorKind::BadPackage, std::string(partName) + " is not well-formed XML");
    }
}

}  // namespace pipelinehost
