// rootnamespaces.h: the namespace declarations on the root element of a Print Schema document,
// read and added through the DOM alone. Tickets come from many producers: some leave out the
// namespaces a filter then writes in (the keywords, XML Schema and its instance namespace, the
// driver's private keywords), some bind the framework namespace as the default namespace. These
// functions make such a ticket one the document classes can read and write, so that whatever the
// library writes is declared and the written ticket stays namespace-well-formed.
#pragma once

#include "platform/com/atl.h"
#include "platform/msxml/msxml6.h"

namespace RootNamespaces {

// The prefix (with its trailing ':') under which the root element declares `uri`; S_FALSE and
// an empty prefix when it declares none. A default-namespace declaration has no prefix and is
// not reported.
HRESULT FindPrefix(IXMLDOMNode* root, const wchar_t* uri, CComBSTR& prefix);

// Declares `uri` on `root` (an element of `document`; null for the document element) unless it
// already declares it under a prefix, and gives that prefix with its trailing ':'. A new
// declaration takes `preferred` (a prefix without ':'), or, when the root already binds `preferred`
// to another namespace, the first of `preferred` followed by 1, 2, ... that it does not bind. S_OK
// when it declared, S_FALSE when the declaration was there.
HRESULT Declare(IXMLDOMDocument2* document, IXMLDOMNode* root, const wchar_t* uri,
                const wchar_t* preferred, CComBSTR& prefix);

// When the root binds the Print Schema framework namespace as the default namespace, moves that
// declaration to a prefix ("psf", or a free one): the declaration of the prefix is added and the
// default declaration removed, elements keeping their namespace. Documents that already declare
// the framework under a prefix, or that are not Print Schema documents, are left as they are
// (S_FALSE).
HRESULT PrefixDefaultFrameworkNamespace(IXMLDOMDocument2* document);

}  // namespace RootNamespaces
