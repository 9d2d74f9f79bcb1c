// outputpackage.h: reads an XPS package written by a test job back, independently of the
// pipeline host: its ZIP items (libzip, through testpackages; pieces joined) and the
// relationships and listings of its parts (libxml2), targets resolved to absolute part names.
#pragma once

#include <libxml/parser.h>
#include <libxml/tree.h>

#include <algorithm>
#include <cctype>
#include <filesystem>
#include <string>
#include <utility>
#include <vector>

#include "../pipelinehost/testpackages.h"

namespace outputpackage {

struct Relationship {
    std::string type;
    std::string target;  // absolute part name, "/..."
};

class Package {
public:
    explicit Package(const std::string& path) {
        for (testpackages::Item& item : testpackages::ReadZip(path)) {
            m_items.emplace_back("/" + item.name, std::move(item.content));
        }
    }

    bool Valid() const { return !m_items.empty(); }

    // How many ZIP items carry this part name (case ignored, pieces not counted separately).
    int ItemCount(const std::string& partName) const {
        return static_cast<int>(std::count_if(
            m_items.begin(), m_items.end(),
            [&](const auto& item) { return SameName(item.first, partName); }));
    }

    // The part's content (items of an interleaved part joined in order); "" when absent.
    std::string Part(const std::string& partName) const {
        for (const auto& [name, bytes] : m_items) {
            if (SameName(name, partName)) return bytes;
        }
        std::string joined;
        for (int piece = 0;; ++piece) {
            const std::string prefix = partName + "/[" + std::to_string(piece) + "]";
            const auto found = std::find_if(m_items.begin(), m_items.end(), [&](const auto& item) {
                return SameName(item.first, prefix + ".piece") ||
                       SameName(item.first, prefix + ".last.piece");
            });
            if (found == m_items.end()) return joined;
            joined += found->second;
        }
    }

    // The part names of all items, as written.
    std::vector<std::string> PartNames() const {
        std::vector<std::string> names;
        for (const auto& item : m_items) names.push_back(item.first);
        return names;
    }

    // The relationships of a part, from its _rels item.
    std::vector<Relationship> Relationships(const std::string& partName) const {
        const std::size_t slash = partName.rfind('/');
        const std::string rels =
            partName.substr(0, slash + 1) + "_rels/" + partName.substr(slash + 1) + ".rels";
        std::vector<Relationship> found;
        for (const auto& attributes : Elements(rels, "Relationship", {"Type", "Target"})) {
            found.push_back({attributes[0], attributes[1]});
        }
        return found;
    }

    // The target of the part's print ticket relationship (Microsoft XPS or OpenXPS), "" if none.
    std::string TicketOf(const std::string& partName) const {
        for (const Relationship& r : Relationships(partName)) {
            if (r.type.ends_with("/printticket")) return r.target;
        }
        return "";
    }

    // The content of the part's print ticket ("" without one); of the job's when `partName` is "".
    std::string TicketXml(const std::string& partName = "") const {
        return Part(TicketOf(partName.empty() ? SequenceName() : partName));
    }

    // How many of the part's relationships are required-resource ones to `target`.
    int ResourceLinks(const std::string& partName, const std::string& target) const {
        int count = 0;
        for (const Relationship& r : Relationships(partName)) {
            count += r.type.ends_with("/required-resource") && r.target == target;
        }
        return count;
    }

    // The fixed document sequence: the start part of the package relationships.
    std::string SequenceName() const {
        for (const Relationship& r : Relationships("/")) {
            if (r.type.find("fixedrepresentation") != std::string::npos) return r.target;
        }
        return "";
    }

    std::vector<std::string> Documents() const {
        return Listed(SequenceName(), "DocumentReference");
    }

    // The part names of the pages, in document order, from the listings.
    std::vector<std::string> Pages() const {
        std::vector<std::string> pages;
        for (const std::string& document : Documents()) {
            for (const std::string& page : Listed(document, "PageContent")) pages.push_back(page);
        }
        return pages;
    }

private:
    static bool SameName(const std::string& a, const std::string& b) {
        return a.size() == b.size() &&
               std::equal(a.begin(), a.end(), b.begin(), [](char x, char y) {
                   return std::tolower(static_cast<unsigned char>(x)) ==
                          std::tolower(static_cast<unsigned char>(y));
               });
    }

    // The `names` attributes of the root's child elements `element` in part `partName`; the last
    // attribute, a reference, made absolute against the folder of the part the item belongs to
    // (for relationships, the folder of the _rels folder).
    std::vector<std::vector<std::string>> Elements(const std::string& partName,
                                                   const char* element,
                                                   const std::vector<const char*>& names) const {
        std::vector<std::vector<std::string>> found;
        const std::string xml = Part(partName);
        xmlDocPtr doc = xml.empty() ? nullptr
                                    : xmlReadMemory(xml.data(), static_cast<int>(xml.size()),
                                                    "part.xml", nullptr,
                                                    XML_PARSE_NONET | XML_PARSE_NOERROR);
        if (doc == nullptr) return found;
        std::string folder = partName.substr(0, partName.rfind('/'));
        if (folder.ends_with("/_rels")) folder.resize(folder.size() - 6);
        for (xmlNodePtr node = xmlDocGetRootElement(doc)->children; node; node = node->next) {
            if (node->type != XML_ELEMENT_NODE ||
                std::string(reinterpret_cast<const char*>(node->name)) != element) {
                continue;
            }
            std::vector<std::string> values;
            for (const char* name : names) {
                xmlChar* value = xmlGetProp(node, BAD_CAST name);
                if (value != nullptr) values.emplace_back(reinterpret_cast<const char*>(value));
                xmlFree(value);
            }
            if (values.size() != names.size()) continue;
            const std::string& target = values.back();
            values.back() =
                std::filesystem::path(target[0] == '/' ? target : folder + "/" + target)
                    .lexically_normal()
                    .string();
            found.push_back(std::move(values));
        }
        xmlFreeDoc(doc);
        return found;
    }

    std::vector<std::string> Listed(const std::string& listing, const char* element) const {
        std::vector<std::string> sources;
        for (const auto& attributes : Elements(listing, element, {"Source"})) {
            sources.push_back(attributes[0]);
        }
        return sources;
    }

    std::vector<std::pair<std::string, std::string>> m_items;  // part name, bytes
};

}  // namespace outputpackage
