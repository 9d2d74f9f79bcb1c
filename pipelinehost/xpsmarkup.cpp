// xpsmarkup.cpp: parsing of relationships, content types, sequence and document listings, and
// the resource-reference scan of page markup, all on libxml2.
#include "pipelinehost/xpsmarkup.h"

#include <libxml/parser.h>
#include <libxml/tree.h>
#include <libxml/xmlreader.h>

#include <algorithm>
#include <climits>
#include <cstdlib>
#include <cstring>
#include <memory>
#include <new>
#include <optional>

#include "platform/com/unicode.h"
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
    // Freed on every way out: ResolvePartReference throws for a reference above the root.
    const std::unique_ptr<xmlBuffer, void (*)(xmlBuffer*)> owned(xmlBufferCreate(), xmlBufferFree);
    if (!owned) throw std::bad_alloc();
    xmlBuffer* buffer = owned.get();
    for (xmlNode* node = root->children; node != nullptr; node = node->next) {
        if (node->type != XML_ELEMENT_NODE || Name(node) != entryName) continue;
        if (!HasAttribute(node, "Source")) {
            throw JobError(ErrorKind::BadPackage, what + " has a " + entryName + " without Source");
        }
        std::optional<std::string> part = ResolvePartReference(partName, Attribute(node, "Source"));
        if (!part) {
            // Say which kind of reference it is: an empty one and a folder are not "outside".
            const std::string source = Attribute(node, "Source");
            const std::string quoted = "\"" + source + "\"";
            throw JobError(
                ErrorKind::BadPackage,
                what + (source.empty()         ? " has an empty reference " + quoted
                        : source.back() == '/' ? " has a folder reference " + quoted
                                               : " refers outside the package: " + quoted));
        }
        xmlBufferEmpty(buffer);
        xmlNodeDump(buffer, doc.get(), node, 0, 0);
        listing.entries.push_back(
            {*part, std::string(reinterpret_cast<const char*>(xmlBufferContent(buffer)),
                                static_cast<std::size_t>(xmlBufferLength(buffer)))});
    }
    return listing;
}

namespace {

// The scan for markup in UTF-16 (or another encoding that is not ASCII-compatible): libxml2's
// streaming reader.
void ScanWithXmlReader(const ReadFunction& read, std::string_view partName,
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

// The scan for ASCII-compatible markup (UTF-8, the common case): a byte-level tokenizer that
// only looks at start tags and their attributes, so that pages of many megabytes cost little
// more than inflating them. It does not check the markup; a DTD is still refused.
class FastScanner {
public:
    FastScanner(std::string_view partName, std::vector<MarkupReference>& out)
        : m_partName(partName), m_out(out) {}

    void Feed(const char* data, std::size_t size) {
        const char* at = data;
        const char* end = data + size;
        while (at < end) {
            // Text and attribute values make up most of a page: they are skipped or taken in
            // runs up to their delimiter, not byte by byte.
            if (m_state == State::Text) {
                const void* open = std::memchr(at, '<', static_cast<std::size_t>(end - at));
                if (open == nullptr) return;
                m_state = State::TagOpen;
                at = static_cast<const char*>(open) + 1;
            } else if (m_state == State::Value) {
                const void* quote = std::memchr(at, m_quote, static_cast<std::size_t>(end - at));
                const char* stop = quote ? static_cast<const char*>(quote) : end;
                std::size_t room = kValueCap - std::min(kValueCap, m_value.size());
                std::size_t take = std::min(room, static_cast<std::size_t>(stop - at));
                if (quote != nullptr && m_value.empty()) {
                    // The whole value is in this buffer: looked at where it is.
                    Attribute(std::string_view(at, take));
                    m_state = State::InTag;
                    at = stop + 1;
                    continue;
                }
                m_value.append(at, take);
                if (quote == nullptr) return;
                Attribute();
                m_state = State::InTag;
                at = stop + 1;
            } else if (m_state == State::ElementName || m_state == State::AttributeName) {
                std::string& name = m_state == State::ElementName ? m_element : m_attribute;
                const char* stop = at;
                while (stop < end && !Space(*stop) && *stop != '/' && *stop != '>' &&
                       *stop != '=') {
                    ++stop;
                }
                std::size_t room = kNameCap - std::min(kNameCap, name.size());
                name.append(at, std::min(room, static_cast<std::size_t>(stop - at)));
                at = stop;
                if (at < end) Step(*at++);
            } else {
                Step(*at++);
            }
        }
    }

private:
    enum class State {
        Text,
        TagOpen,
        Bang,
        Comment,
        CData,
        Instruction,
        EndTag,
        ElementName,
        InTag,
        AttributeName,
        AfterName,
        BeforeValue,
        Value
    };
    static constexpr std::size_t kValueCap = 8192;
    static constexpr std::size_t kNameCap = 256;

    static bool Space(char c) { return c == ' ' || c == '\t' || c == '\r' || c == '\n'; }
    static std::string_view Local(const std::string& name) {
        std::size_t colon = name.rfind(':');
        return colon == std::string::npos ? std::string_view(name)
                                          : std::string_view(name).substr(colon + 1);
    }

    void Step(char c) {
        if (m_state >= State::ElementName) {
            StepInStartTag(c);
        } else {
            StepOutsideStartTag(c);
        }
    }

    // Text, the start of a tag, and what is skipped whole: comments, CDATA sections,
    // processing instructions and end tags. A DTD is refused.
    void StepOutsideStartTag(char c) {
        switch (m_state) {
            case State::Text:
                if (c == '<') m_state = State::TagOpen;
                break;
            case State::TagOpen:
                if (c == '!') {
                    m_state = State::Bang;
                    m_bang.clear();
                } else if (c == '?') {
                    m_state = State::Instruction;
                    m_tail = 0;
                } else if (c == '/') {
                    m_state = State::EndTag;
                } else {
                    m_element.assign(1, c);
                    m_state = State::ElementName;
                }
                break;
            case State::Bang:
                m_bang.push_back(c);
                if (m_bang == "--") {
                    m_state = State::Comment;
                    m_tail = 0;
                } else if (m_bang == "[CDATA[") {
                    m_state = State::CData;
                    m_tail = 0;
                } else if (m_bang == "DOCTYPE") {
                    throw JobError(ErrorKind::BadPackage,
                                   std::string(m_partName) + " has a DTD, which XPS forbids");
                } else if (m_bang.size() >= 7 || c == '>') {
                    m_state = c == '>' ? State::Text : State::EndTag;
                }
                break;
            case State::Comment:  // ends with "-->"
                if (c == '>' && m_tail >= 2) m_state = State::Text;
                m_tail = c == '-' ? m_tail + 1 : 0;
                break;
            case State::CData:  // ends with "]]>"
                if (c == '>' && m_tail >= 2) m_state = State::Text;
                m_tail = c == ']' ? m_tail + 1 : 0;
                break;
            case State::Instruction:  // ends with "?>"
                if (c == '>' && m_tail >= 1) m_state = State::Text;
                m_tail = c == '?' ? 1 : 0;
                break;
            case State::EndTag:
                if (c == '>') m_state = State::Text;
                break;
            default:
                break;
        }
    }

    // An element's name and its attributes, up to the '>' that closes the start tag.
    void StepInStartTag(char c) {
        switch (m_state) {
            case State::ElementName:
                if (Space(c) || c == '/') {
                    m_state = State::InTag;
                } else if (c == '>') {
                    m_state = State::Text;
                } else if (m_element.size() < kNameCap) {
                    m_element.push_back(c);
                }
                break;
            case State::InTag:
                if (c == '>') {
                    m_state = State::Text;
                } else if (!Space(c) && c != '/') {
                    m_attribute.assign(1, c);
                    m_state = State::AttributeName;
                }
                break;
            case State::AttributeName:
                if (c == '=') {
                    m_state = State::BeforeValue;
                } else if (Space(c)) {
                    m_state = State::AfterName;
                } else if (c == '>') {
                    m_state = State::Text;
                } else if (m_attribute.size() < kNameCap) {
                    m_attribute.push_back(c);
                }
                break;
            case State::AfterName:
                if (c == '=') {
                    m_state = State::BeforeValue;
                } else if (c == '>') {
                    m_state = State::Text;
                } else if (!Space(c)) {
                    m_attribute.assign(1, c);
                    m_state = State::AttributeName;
                }
                break;
            case State::BeforeValue:
                if (c == '"' || c == '\'') {
                    m_quote = c;
                    m_value.clear();
                    m_state = State::Value;
                } else if (c == '>') {
                    m_state = State::Text;
                }
                break;
            case State::Value:
                if (c == m_quote) {
                    Attribute();
                    m_state = State::InTag;
                } else if (m_value.size() < kValueCap) {
                    m_value.push_back(c);
                }
                break;
            default:
                break;
        }
    }

    void Attribute() { Attribute(m_value); }
    void Attribute(std::string_view value) {
        std::string_view name = Local(m_attribute);
        bool interesting = name == "FontUri" || name == "ImageSource" || name == "Source" ||
                           value.find("ContextColor") != std::string_view::npos;
        if (!interesting) return;
        ReferencesInValue(name, Local(m_element), Decode(value), m_partName, m_out);
    }

    static std::string Decode(std::string_view value) {
        if (value.find('&') == std::string_view::npos) return std::string(value);
        std::string out;
        for (std::size_t i = 0; i < value.size(); ++i) {
            if (value[i] != '&') {
                out.push_back(value[i]);
                continue;
            }
            std::size_t end = value.find(';', i);
            if (end == std::string::npos) {
                out.append(value, i, std::string::npos);
                break;
            }
            std::string entity(value.substr(i + 1, end - i - 1));
            if (entity == "amp")
                out.push_back('&');
            else if (entity == "lt")
                out.push_back('<');
            else if (entity == "gt")
                out.push_back('>');
            else if (entity == "quot")
                out.push_back('"');
            else if (entity == "apos")
                out.push_back('\'');
            else if (!entity.empty() && entity[0] == '#') {
                unsigned long code = entity.size() > 1 && (entity[1] == 'x' || entity[1] == 'X')
                                         ? std::strtoul(entity.c_str() + 2, nullptr, 16)
                                         : std::strtoul(entity.c_str() + 1, nullptr, 10);
                if (code > 0 && code < 0x110000)
                    platform::AppendUtf8(out, static_cast<char32_t>(code));
            } else {
                out.append(value, i, end - i + 1);
            }
            i = end;
        }
        return out;
    }

    std::string_view m_partName;
    std::vector<MarkupReference>& m_out;
    State m_state = State::Text;
    std::string m_bang, m_element, m_attribute, m_value;
    char m_quote = '"';
    unsigned m_tail = 0;
};

}  // namespace

void ScanMarkupReferences(const ReadFunction& read, std::string_view partName,
                          std::vector<MarkupReference>& out) {
    std::vector<char> buffer(1 << 16);
    std::size_t got = read(buffer.data(), buffer.size());
    bool wide = got >= 2 && ((static_cast<unsigned char>(buffer[0]) == 0xFF &&
                              static_cast<unsigned char>(buffer[1]) == 0xFE) ||
                             (static_cast<unsigned char>(buffer[0]) == 0xFE &&
                              static_cast<unsigned char>(buffer[1]) == 0xFF) ||
                             buffer[0] == '\0' || buffer[1] == '\0');
    if (wide) {
        // Hand libxml2 the bytes already read, then the rest.
        std::size_t offset = 0;
        ScanWithXmlReader(
            [&](char* target, std::size_t size) -> std::size_t {
                if (offset < got) {
                    std::size_t count = std::min(size, got - offset);
                    std::memcpy(target, buffer.data() + offset, count);
                    offset += count;
                    return count;
                }
                return read(target, size);
            },
            partName, out);
        return;
    }
    FastScanner scanner(partName, out);
    while (got != 0) {
        scanner.Feed(buffer.data(), got);
        got = read(buffer.data(), buffer.size());
    }
}

}  // namespace pipelinehost
