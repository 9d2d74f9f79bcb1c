// domxpathpaths.h: the location paths the XPath engine evaluates itself, without libxml2's
// evaluator: unions of paths of element name tests ("psf:Feature", "*", "p:*") joined by "/" and
// "//", each step filtered by attribute tests ("[@name]", "[@name = 'literal']"). That is the
// shape of almost every query documents ask, and a walk of the tree in document order answers it
// exactly (attribute tests do not depend on a node's position, so "//" needs no node collection),
// stopping at the first match when only one node is wanted. Internal header.
#pragma once

#include <libxml/tree.h>

#include <optional>
#include <string>
#include <string_view>
#include <utility>
#include <vector>

namespace platform::msxml {

class SimplePaths {
public:
    // The parsed expression, or nothing when it is not of the shape above (libxml2 then
    // evaluates it, also to report its errors).
    static std::optional<SimplePaths> Parse(std::string_view utf8);

    enum class Outcome {
        Evaluated,   // `found` holds the result
        NotHandled,  // a prefix without a declaration, "xml:", or a context node of another kind
    };
    // Selects from `context` (absolute paths: from `document`) with the prefix declarations
    // `namespaces` (the last declaration of a prefix wins). With `firstOnly` the walk stops at
    // the first node in document order. The nodes come in document order, each once. With
    // NotHandled, `found` holds nothing of use.
    Outcome Select(xmlDoc* document, xmlNode* context,
                   const std::vector<std::pair<std::string, std::string>>& namespaces,
                   bool firstOnly, std::vector<xmlNode*>& found) const;

private:
    struct AttributeTest {
        std::string name;
        bool compares = false;  // "= literal" present
        std::string value;
    };
    struct Step {
        bool descendant = false;  // reached through "//" rather than "/"
        bool anyName = false;     // "*" or "p:*"
        bool hasPrefix = false;
        std::string prefix;
        std::string local;
        std::vector<AttributeTest> tests;
    };
    struct Path {
        bool absolute = false;
        std::vector<Step> steps;
    };
    static bool StepMatches(const xmlNode* element, const Step& step, const std::string* uri);
    // Whether `element` ends a chain of elements matching steps 0..last of the path, step 0
    // hanging from `origin` (or anywhere below it, after "//"). `uris` are the path's steps'
    // namespaces.
    static bool MatchesFrom(const xmlNode* element, const Path& path,
                            const std::string* const* uris, std::size_t last,
                            const xmlNode* origin);

    std::vector<Path> m_paths;
};

}  // namespace platform::msxml
