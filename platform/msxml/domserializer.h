// domserializer.h: writes a libxml2 (sub)tree as XML text the way the MSXML stand-in shows it.
// Namespace declarations are written where the tree has them and, in addition, wherever an
// element or attribute names a namespace that is not in scope at that point, so the output is
// always namespace-well-formed whatever was added or removed through the DOM. Internal header.
#pragma once

#include <libxml/tree.h>

#include <string>

namespace platform::msxml {

// The markup of one node (the `xml` property). Declarations in scope from the node's ancestors
// are not repeated.
void SerializeNode(const xmlNode* node, std::string& out);

// The whole document. forSave: the form written by save() and read through IStream, starting
// with <?xml version="1.0" encoding="UTF-8"?>; otherwise the `xml` property's form, starting with
// <?xml version="1.0"?> when the document was loaded with an XML declaration. Each top-level node
// is followed by CR LF.
void SerializeDocument(const xmlDoc* doc, bool forSave, std::string& out);

}  // namespace platform::msxml
