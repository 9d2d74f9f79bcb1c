// outputpackage.h: reads an XPS package written by a test job back, independently of the
// pipeline host: its ZIP items (libzip, through testpackages; pieces joined) and the relationships of its parts
// (libxml2), with relationship targets resolved to absolute part names.
#pragma once

#include <libxml/parser.h>
#include <libxml/tree.h>

#include <algorithm>
#include <cctype>
#include <map>
#include <string>
#include <vector>

#include "../pipelinehost/testpackages.h"

namespace outputpackage {

// Relationship types, in the Microsoft XPS or the OpenXPS spelling.
inline bool EndsWith(const std::string& text, const std::string& end) {
    return text.size() >= end.size() &&
           text.compare(text.size() - end.size(), end.size(), end) == 0;
}
inline bool IsTicketRel(const std::string& type) {
    return EndsWith(type, "/printticket");
}
inline bool IsResourceRel(const std::string& type) {
    return EndsWith(type, "/required-resource");
}

struct Relationship {
    std::string type;
    std::string target;  // absolute part name, "/..."
};

class Package {
public:
    explicit Package(const std::string& path) {
        for (testpackages::Item& item : testpackages::ReadZip(path)) {
            m_items.emplace_back(std::move(item.name), std::move(item.content));
        }
    }

    bool Valid() const { return !m_items.empty(); }

    // How many ZIP items carry this part name (case ignored, pieces not counted separately).
    int ItemCount(const std::string& partName) const {
        int count = 0;
        for (const auto& [name, bytes] : m_items) {
            if (SameName("/" + name, partName)) ++count;
        }
        return count;
    }

    // The part's content (items of an interleaved part joined in order); "" when absent.
    std::string Part(const std::string& partName) const {
        for (const auto& [name, bytes] : m_items) {
            if (SameName("/" + name, partName)) return bytes;
        }
        std::string joined;
        for (int piece = 0;; ++piece) {
            bool found = false;
            for (const auto& [name, bytes] : m_items) {
                const std::string prefix = "/" + name;
                if (SameName(prefix, partName + "/[" + std::to_string(piece) + "].piece") ||
                    SameName(prefix, partName + "/[" + std::to_string(piece) + "].last.piece")) {
                    joined += bytes;
                    found = true;
                }
            }
            if (!found) break;
        }
        return joined;
    }

    // The part names of all items, as written.
    std::vector<std::string> PartNames() const {
        std::vector<std::string> names;
        for (const auto& [name, bytes] : m_items) names.push_back("/" + name);
        return names;
    }

    // The relationships of a part, from its _rels item; targets made absolute.
    std::vector<Relationship> Relationships(const std::string& partName) const {
        const std::size_t slash = partName.rfind('/');
        const std::string folder = partName.substr(0, slash + 1);
        const std::string rels = folder + "_rels/" + partName.substr(slash + 1) + ".rels";
        const std::string xml = Part(rels);
        std::vector<Relationship> found;
        if (xml.empty()) return found;
        xmlDocPtr doc = xmlReadMemory(xml.data(), static_cast<int>(xml.size()), "rels.xml", nullptr,
                                      XML_PARSE_NONET | XML_PARSE_NOERROR);
        if (doc == nullptr) return found;
        for (xmlNodePtr node = xmlDocGetRootElement(doc)->children; node; node = node->next) {
            if (node->type != XML_ELEMENT_NODE) continue;
            xmlChar* type = xmlGetProp(node, BAD_CAST "Type");
            xmlChar* target = xmlGetProp(node, BAD_CAST "Target");
            if (type != nullptr && target != nullptr) {
                found.push_back({reinterpret_cast<const char*>(type),
                                 Resolve(folder, reinterpret_cast<const char*>(target))});
            }
            xmlFree(type);
            xmlFree(target);
        }
        xmlFreeDoc(doc);
        return found;
    }

    // The target of the part's print ticket relationship, "" when it has none.
    std::string TicketOf(const std::string& partName) const {
        for (const Relationship& r : Relationships(partName)) {
            if (IsTicketRel(r.type)) return r.target;
        }
        return "";
    }

    // How many of the part's relationships are required-resource ones to `target`.
    int ResourceLinks(const std::string& partName, const std::string& target) const {
        int count = 0;
        for (const Relationship& r : Relationships(partName)) {
            if (IsResourceRel(r.type) && r.target == target) ++count;
        }
        return count;
    }

    // The part names of the pages, in document order, from the listings.
    std::vector<std::string> Pages() const {
        std::vector<std::string> pages;
        for (const std::string& document : ListedSources(SequenceName(), "DocumentReference")) {
            for (const std::string& page : ListedSources(document, "PageContent")) {
                pages.push_back(page);
            }
        }
        return pages;
    }

    std::vector<std::string> Documents() const {
        return ListedSources(SequenceName(), "DocumentReference");
    }

    // The fixed document sequence: the start part of the package relationships.
    std::string SequenceName() const {
        for (const Relationship& r : Relationships("/")) {
            if (r.type.find("fixedrepresentation") != std::string::npos) return r.target;
        }
        return "";
    }

private:
    static bool SameName(const std::string& a, const std::string& b) {
        return a.size() == b.size() &&
               std::equal(a.begin(), a.end(), b.begin(), [](char x, char y) {
                   return std::tolower(static_cast<unsigned char>(x)) ==
                          std::tolower(static_cast<unsigned char>(y));
               });
    }

    // A target relative to the folder of its source, with "." and ".." segments folded.
    static std::string Resolve(const std::string& folder, const std::string& target) {
        std::string path = target.rfind('/', 0) == 0 ? target : folder + target;
        std::vector<std::string> segments;
        std::size_t at = 1;
        while (at <= path.size()) {
            std::size_t next = path.find('/', at);
            if (next == std::string::npos) next = path.size();
            const std::string segment = path.substr(at, next - at);
            if (segment == "..") {
                if (!segments.empty()) segments.pop_back();
            } else if (!segment.empty() && segment != ".") {
                segments.push_back(segment);
            }
            at = next + 1;
        }
        std::string resolved;
        for (const std::string& segment : segments) resolved += "/" + segment;
        return resolved.empty() ? "/" : resolved;
    }

    std::vector<std::string> ListedSources(const std::string& listing, const char* element) const {
        std::vector<std::string> sources;
        const std::string xml = Part(listing);
        if (xml.empty()) return sources;
        xmlDocPtr doc = xmlReadMemory(xml.data(), static_cast<int>(xml.size()), "listing.xml",
                                      nullptr, XML_PARSE_NONET | XML_PARSE_NOERROR);
        if (doc == nullptr) return sources;
        const std::string folder = listing.substr(0, listing.rfind('/') + 1);
        for (xmlNodePtr node = xmlDocGetRootElement(doc)->children; node; node = node->next) {
            if (node->type != XML_ELEMENT_NODE ||
                std::string(reinterpret_cast<const char*>(node->name)) != element) {
                continue;
            }
            xmlChar* source = xmlGetProp(node, BAD_CAST "Source");
            if (source != nullptr) {
                sources.push_back(Resolve(folder, reinterpret_cast<const char*>(source)));
            }
            xmlFree(source);
        }
        xmlFreeDoc(doc);
        return sources;
    }

    std::vector<std::pair<std::string, std::string>> m_items;
};

}  // namespace outputpackage
