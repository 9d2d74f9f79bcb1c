// xpsmarkup.h: the XML the host itself reads (libxml2): relationships, content types, the
// reference lists of fixed document sequences and fixed documents, and the resource references
// in page and resource-dictionary markup. UTF-8 and UTF-16 (with BOM or declaration) both work;
// documents with a DTD are refused, nothing is fetched from the network.
#pragma once

#include <functional>
#include <map>
#include <string>
#include <string_view>
#include <vector>

#include "pipelinehost/sourcepackage.h"

namespace pipelinehost {

std::vector<Relationship> ParseRelationships(std::string_view xml, std::string_view sourcePart,
                                             std::string_view relsPart);

struct ContentTypes {
    std::map<std::string, std::string> defaults;   // lower-case extension -> type
    std::map<std::string, std::string> overrides;  // PartKey -> type
};
ContentTypes ParseContentTypes(std::string_view xml);

// A FixedDocumentSequence (entries are DocumentReference) or FixedDocument (PageContent).
struct Listing {
    std::string openTag;   // the root start tag with its namespace declarations and attributes
    std::string closeTag;  // the root end tag
    struct Entry {
        std::string part;  // resolved part name of Source
        std::string xml;   // the element as written, for rewriting the listing
    };
    std::vector<Entry> entries;
};
Listing ParseListing(std::string_view xml, std::string_view partName, bool sequence);

enum class ResourceKind { Font, Image, ColorProfile, ResourceDictionary, Thumbnail, Other };

struct MarkupReference {
    ResourceKind kind;
    std::string part;
};

// Reads markup through `read` (returns bytes read, 0 at the end) and reports the parts it
// refers to: Glyphs FontUri, ImageSource (also inside {ColorConvertedBitmap ...}), remote
// ResourceDictionary Source, and ICC profiles of ContextColor values. References to parts that
// are external are skipped. ASCII-compatible markup (UTF-8) is scanned by a byte-level tokenizer
// that reads start tags only and does not check the markup; UTF-16 markup goes through libxml2,
// which refuses markup that is not well-formed. Both refuse a DTD (JobError(BadPackage)).
using ReadFunction = std::function<std::size_t(char* buffer, std::size_t size)>;
void ScanMarkupReferences(const ReadFunction& read, std::string_view partName,
                          std::vector<MarkupReference>& out);

// Text and attribute escaping for the XML the host writes.
std::string EscapeXml(std::string_view text);

}  // namespace pipelinehost
