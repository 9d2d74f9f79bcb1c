// partname.h: OPC part names. A part name is an absolute path inside the package ("/a/b.fpage");
// its ZIP item name is the same without the leading slash. Names compare case-insensitively
// (ASCII) after percent-decoding. Relationship targets are resolved against their source part;
// a target or item name that climbs above the package root is rejected.
#pragma once

#include <optional>
#include <string>
#include <string_view>

namespace pipelinehost {

// The key two part names are compared by: percent-decoded, ASCII lower case.
std::string PartKey(std::string_view partName);

// Checks a ZIP item name and returns its part name ("/" + item). Throws JobError(BadPackage)
// for an absolute name, a backslash, an empty, "." or ".." segment, or a segment ending in a dot.
std::string PartNameFromItem(std::string_view itemName);

// Resolves a relationship or markup reference against the part it comes from. Query and
// fragment are dropped. Returns nothing for an external reference (a URI with a scheme);
// throws JobError(BadPackage) when the result would leave the package root.
std::optional<std::string> ResolvePartReference(std::string_view sourcePartName,
                                                std::string_view target);

// The relationships part of a part: "/a/b.fpage" -> "/a/_rels/b.fpage.rels", "/" -> "/_rels/.rels".
std::string RelationshipsPartName(std::string_view sourcePartName);

// "/a/[3].piece" and "/a/[4].last.piece" (any case): the logical name "/a", the number and
// whether it is the last; nothing when the name is not a piece name.
struct PieceName {
    std::string partName;
    unsigned number = 0;
    bool last = false;
};
std::optional<PieceName> ParsePieceName(std::string_view partName);

// The extension of a part name in lower case, without the dot ("" when there is none).
std::string PartExtension(std::string_view partName);

}  // namespace pipelinehost
