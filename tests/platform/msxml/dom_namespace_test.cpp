// dom_namespace_test.cpp: namespaces in the MSXML stand-in: declarations seen, added and removed
// as xmlns attributes, namespace-qualified nodes made by createNode, and output that stays
// namespace-well-formed whatever the edits (checked by parsing it again).
#include <gtest/gtest.h>

#include <string>

#include "msxml_test_support.h"
#include "platform/com/unicode.h"

using namespace msxmltest;

namespace {

constexpr wchar_t kPrivateUri[] =
    L"http://schemas.zorun.example/enterprise/print/driver/native/printSchemaPrivateKeywords/2006/"
    L"11";

CComPtr<IXMLDOMNode> CreateNode(IXMLDOMDocument2* doc, DOMNodeType type, const wchar_t* name,
                                const wchar_t* uri) {
    CComPtr<IXMLDOMNode> node;
    EXPECT_EQ(
        doc->createNode(CComVariant(static_cast<int>(type)), CComBSTR(name), CComBSTR(uri), &node),
        S_OK);
    return node;
}

CComPtr<IXMLDOMElement> Root(IXMLDOMDocument2* doc) {
    CComPtr<IXMLDOMElement> root;
    EXPECT_EQ(doc->get_documentElement(&root), S_OK);
    return root;
}

CComPtr<IXMLDOMNamedNodeMap> Attributes(IXMLDOMNode* element) {
    CComPtr<IXMLDOMNamedNodeMap> map;
    EXPECT_EQ(element->get_attributes(&map), S_OK);
    return map;
}

std::wstring AttributeNames(IXMLDOMNode* element) {
    auto map = Attributes(element);
    std::wstring names;
    EXPECT_EQ(map->reset(), S_OK);
    for (CComPtr<IXMLDOMNode> item; map->nextNode(&item) == S_OK; item.Release()) {
        names += Name(item.p) + L" ";
    }
    return names;
}

std::wstring AttributeValue(IXMLDOMElement* element, const wchar_t* name) {
    CComVariant value;
    EXPECT_EQ(element->getAttribute(CComBSTR(name), &value), S_OK);
    return VarText(value);
}

// The document's text, parsed again: it must be namespace-well-formed.
CComPtr<IXMLDOMDocument2> Reparsed(IXMLDOMDocument2* doc) {
    std::wstring xml = Xml(doc);
    auto copy = NewDocument();
    EXPECT_TRUE(Load(copy, xml.c_str())) << "output is not namespace-well-formed:\n"
                                         << std::string(xml.begin(), xml.end());
    return copy;
}

}  // namespace

TEST(DomNamespaces, AttributesListNamespaceDeclarations) {
    auto doc = Parsed(
        L"<psf:PrintTicket xmlns:psf=\"urn:f\" xmlns:psk=\"urn:k\" xmlns=\"urn:d\" "
        L"version=\"1\"/>");
    auto root = Root(doc);
    EXPECT_EQ(AttributeNames(root), L"xmlns:psf xmlns:psk xmlns version ");
    auto map = Attributes(root);
    LONG length = 0;
    EXPECT_EQ(map->get_length(&length), S_OK);
    EXPECT_EQ(length, 4);
    CComPtr<IXMLDOMNode> declaration;
    ASSERT_EQ(map->getNamedItem(CComBSTR(L"xmlns:psk"), &declaration), S_OK);
    EXPECT_EQ(Text(declaration.p), L"urn:k");
    EXPECT_EQ(NamespaceUri(declaration.p), L"http://www.w3.org/2000/xmlns/");
    EXPECT_EQ(Get(declaration.p, &IXMLDOMNode::get_prefix), L"xmlns");
    EXPECT_EQ(Get(declaration.p, &IXMLDOMNode::get_baseName), L"psk");
    DOMNodeType type = NODE_INVALID;
    EXPECT_EQ(declaration->get_nodeType(&type), S_OK);
    EXPECT_EQ(type, NODE_ATTRIBUTE);
    CComPtr<IXMLDOMNode> byQualified;
    EXPECT_EQ(map->getQualifiedItem(CComBSTR(L"psf"), CComBSTR(L"http://www.w3.org/2000/xmlns/"),
                                    &byQualified),
              S_OK);
    EXPECT_EQ(Text(byQualified.p), L"urn:f");
    // The same declaration gives the same object.
    CComPtr<IXMLDOMNode> again;
    ASSERT_EQ(map->get_item(1, &again), S_OK);
    EXPECT_TRUE(declaration.IsEqualObject(again));
    CComPtr<IXMLDOMNode> past;
    EXPECT_EQ(map->get_item(4, &past), S_FALSE);
    EXPECT_EQ(past, nullptr);
    EXPECT_EQ(AttributeValue(root, L"xmlns"), L"urn:d");
}

TEST(DomNamespaces, AddingAnXmlnsAttributeDeclaresTheNamespace) {
    auto doc = Parsed(L"<psf:PrintTicket xmlns:psf=\"urn:f\"/>");
    auto root = Root(doc);
    // As the document layer does it: createNode, put_value, setAttributeNode.
    auto node = CreateNode(doc, NODE_ATTRIBUTE, L"xmlns:zk", L"");
    CComQIPtr<IXMLDOMAttribute> declaration(node);
    ASSERT_NE(declaration, nullptr);
    EXPECT_EQ(declaration->put_value(CComVariant(kPrivateUri)), S_OK);
    CComPtr<IXMLDOMAttribute> replaced;
    EXPECT_EQ(root->setAttributeNode(declaration, &replaced), S_OK);
    EXPECT_EQ(replaced, nullptr);
    EXPECT_EQ(AttributeNames(root), L"xmlns:psf xmlns:zk ");
    // A node in that namespace appended later does not declare it again.
    ASSERT_EQ(root->appendChild(CreateNode(doc, NODE_ELEMENT, L"zk:Feature", kPrivateUri), nullptr),
              S_OK);
    // setAttribute with an xmlns name declares too, and replaces a declaration's value;
    // attributes with that prefix resolve against it.
    EXPECT_EQ(root->setAttribute(CComBSTR(L"xmlns:q"), CComVariant(L"urn:q")), S_OK);
    EXPECT_EQ(AttributeNames(root), L"xmlns:psf xmlns:zk xmlns:q ");
    EXPECT_EQ(root->setAttribute(CComBSTR(L"xmlns:q"), CComVariant(L"urn:q2")), S_OK);
    EXPECT_EQ(AttributeValue(root, L"xmlns:q"), L"urn:q2");
    EXPECT_EQ(root->setAttribute(CComBSTR(L"q:flag"), CComVariant(L"on")), S_OK);
    EXPECT_EQ(Xml(Reparsed(doc).p),
              std::wstring(L"<psf:PrintTicket xmlns:psf=\"urn:f\" xmlns:zk=\"") + kPrivateUri +
                  L"\" xmlns:q=\"urn:q2\" q:flag=\"on\"><zk:Feature/></psf:PrintTicket>\r\n");
}

TEST(DomNamespaces, RemovingADeclarationKeepsNodesAndOutputWellFormed) {
    auto doc = Parsed(
        L"<psf:PrintTicket xmlns:psf=\"urn:f\" xmlns:ns0001=\"urn:private\">"
        L"<ns0001:Extra ns0001:flag=\"1\"><ns0001:Inner/></ns0001:Extra>"
        L"<psf:Feature name=\"ns0001:Thing\"/></psf:PrintTicket>");
    auto root = Root(doc);
    auto map = Attributes(root);
    CComPtr<IXMLDOMNode> removed;
    EXPECT_EQ(map->removeNamedItem(CComBSTR(L"xmlns:ns0001"), &removed), S_OK);
    ASSERT_NE(removed, nullptr);
    EXPECT_EQ(Text(removed.p), L"urn:private");
    EXPECT_EQ(AttributeNames(root), L"xmlns:psf ");
    // Nodes keep their names and namespaces.
    SetNamespaces(doc, L"xmlns:p='urn:private'");
    auto extra = Select(doc, L"/*/p:Extra");
    EXPECT_EQ(Name(extra.p), L"ns0001:Extra");
    EXPECT_EQ(NamespaceUri(extra.p), L"urn:private");
    // The declaration reappears where the namespace is still used, and only there.
    EXPECT_EQ(
        Xml(Reparsed(doc).p),
        L"<psf:PrintTicket xmlns:psf=\"urn:f\"><ns0001:Extra xmlns:ns0001=\"urn:private\" "
        L"ns0001:flag=\"1\"><ns0001:Inner/></ns0001:Extra><psf:Feature name=\"ns0001:Thing\"/>"
        L"</psf:PrintTicket>\r\n");
    // Removing what is not there is harmless.
    CComPtr<IXMLDOMNode> nothing;
    EXPECT_EQ(map->removeNamedItem(CComBSTR(L"xmlns:ns0001"), &nothing), S_FALSE);
    EXPECT_EQ(nothing, nullptr);
    EXPECT_EQ(root->removeAttribute(CComBSTR(L"xmlns:nothing")), S_FALSE);
}

TEST(DomNamespaces, CreatedNodesNeverLeaveUndeclaredPrefixes) {
    auto doc = Parsed(L"<root xmlns:psf=\"urn:f\"><plain/></root>");
    auto root = Root(doc);
    // Declared above: no repeat.
    auto feature = CreateNode(doc, NODE_ELEMENT, L"psf:Feature", L"urn:f");
    ASSERT_EQ(root->appendChild(feature, nullptr), S_OK);
    EXPECT_EQ(Xml(feature.p), L"<psf:Feature/>");
    // Not declared anywhere: declared on the node itself.
    auto option = CreateNode(doc, NODE_ELEMENT, L"psk:Option", L"urn:k");
    ASSERT_EQ(feature->appendChild(option, nullptr), S_OK);
    EXPECT_EQ(Xml(option.p), L"<psk:Option xmlns:psk=\"urn:k\"/>");
    // A namespaced attribute attached to an element where its prefix is unknown.
    auto value = CreateNode(doc, NODE_ELEMENT, L"psf:Value", L"urn:f");
    auto type =
        CreateNode(doc, NODE_ATTRIBUTE, L"xsi:type", L"http://www.w3.org/2001/XMLSchema-instance");
    ASSERT_EQ(type->put_text(CComBSTR(L"xsd:integer")), S_OK);
    ASSERT_EQ(CComQIPtr<IXMLDOMElement>(value)->setAttributeNode(CComQIPtr<IXMLDOMAttribute>(type),
                                                                 nullptr),
              S_OK);
    ASSERT_EQ(option->appendChild(value, nullptr), S_OK);
    // A default-namespace element below a no-namespace one, and the reverse.
    auto defaulted = CreateNode(doc, NODE_ELEMENT, L"Page", L"urn:d");
    auto bare = CreateNode(doc, NODE_ELEMENT, L"bare", L"");
    ASSERT_EQ(defaulted->appendChild(bare, nullptr), S_OK);
    ASSERT_EQ(root->appendChild(defaulted, nullptr), S_OK);
    EXPECT_EQ(Xml(defaulted.p), L"<Page xmlns=\"urn:d\"><bare xmlns=\"\"/></Page>");
    EXPECT_EQ(NamespaceUri(bare.p), L"");
    EXPECT_EQ(
        Xml(Reparsed(doc).p),
        L"<root xmlns:psf=\"urn:f\"><plain/><psf:Feature><psk:Option "
        L"xmlns:psk=\"urn:k\"><psf:Value "
        L"xmlns:xsi=\"http://www.w3.org/2001/XMLSchema-instance\" xsi:type=\"xsd:integer\"/>"
        L"</psk:Option></psf:Feature><Page xmlns=\"urn:d\"><bare xmlns=\"\"/></Page></root>\r\n");
}

TEST(DomNamespaces, ConflictingPrefixesAreRenamedOnOutputOrRefused) {
    auto doc = Parsed(L"<p:root xmlns:p=\"urn:one\"/>");
    auto root = Root(doc);
    // An attribute whose prefix is bound to another namespace on the same element.
    auto attribute = CreateNode(doc, NODE_ATTRIBUTE, L"p:attr", L"urn:two");
    ASSERT_EQ(attribute->put_text(CComBSTR(L"v")), S_OK);
    ASSERT_EQ(root->setAttributeNode(CComQIPtr<IXMLDOMAttribute>(attribute), nullptr), S_OK);
    EXPECT_EQ(Xml(Reparsed(doc).p),
              L"<p:root xmlns:p=\"urn:one\" xmlns:ns1=\"urn:two\" ns1:attr=\"v\"/>\r\n");
    // Redeclaring the prefix of the element's own name would rename it: refused.
    EXPECT_EQ(root->setAttribute(CComBSTR(L"xmlns:p"), CComVariant(L"urn:other")), E_FAIL);
    auto plain = Parsed(L"<plain/>");
    EXPECT_EQ(Root(plain)->setAttribute(CComBSTR(L"xmlns"), CComVariant(L"urn:x")), E_FAIL);
    EXPECT_EQ(Root(plain)->setAttribute(CComBSTR(L"xmlns:xml"), CComVariant(L"urn:x")), E_FAIL);
}

TEST(DomNamespaces, PrefixedNamesNeedANamespace) {
    auto doc = Parsed(L"<root/>");
    struct Row {
        int type;
        const wchar_t* name;
        const wchar_t* uri;
        HRESULT expected;
    };
    const Row rows[] = {{1, L"psf:Feature", L"", E_INVALIDARG},
                        {1, L"bad name", L"urn:x", E_INVALIDARG},
                        {1, L"xmlns", L"urn:x", E_INVALIDARG},
                        {2, L"xmlns:p", L"urn:x", E_INVALIDARG},
                        {99, L"x", L"", E_INVALIDARG},
                        {2, L"xml:lang", L"", S_OK}};  // the xml prefix is always bound
    for (const Row& row : rows) {
        CComPtr<IXMLDOMNode> node;
        EXPECT_EQ(
            doc->createNode(CComVariant(row.type), CComBSTR(row.name), CComBSTR(row.uri), &node),
            row.expected)
            << platform::WideToUtf8(row.name);
    }
    CComPtr<IXMLDOMElement> element;
    EXPECT_EQ(doc->createElement(CComBSTR(L"psf:Feature"), &element), E_INVALIDARG);
    CComPtr<IXMLDOMElement> root = Root(doc);
    EXPECT_EQ(root->setAttribute(CComBSTR(L"xml:space"), CComVariant(L"preserve")), S_OK);
    EXPECT_EQ(root->setAttribute(CComBSTR(L"undeclared:a"), CComVariant(L"1")), E_INVALIDARG);
    EXPECT_EQ(Xml(root.p), L"<root xml:space=\"preserve\"/>");
    // Node types by name, as MSXML accepts them.
    CComPtr<IXMLDOMNode> byName;
    EXPECT_EQ(doc->createNode(CComVariant(L"element"), CComBSTR(L"e"), CComBSTR(L""), &byName),
              S_OK);
    EXPECT_EQ(Name(byName.p), L"e");
}

TEST(DomNamespaces, ChangingADeclarationDoesNotRenameNodes) {
    auto doc = Parsed(L"<root xmlns:p=\"urn:old\"><p:child/></root>");
    auto root = Root(doc);
    CComPtr<IXMLDOMAttribute> declaration;
    ASSERT_EQ(root->getAttributeNode(CComBSTR(L"xmlns:p"), &declaration), S_OK);
    ASSERT_EQ(declaration->put_value(CComVariant(L"urn:new")), S_OK);
    EXPECT_EQ(NamespaceUri(Select(doc, L"/root/*").p), L"urn:old");
    EXPECT_EQ(Xml(Reparsed(doc).p),
              L"<root xmlns:p=\"urn:new\"><p:child xmlns:p=\"urn:old\"/></root>\r\n");
}

TEST(DomNamespaces, RemovedDeclarationsCanMoveToAnotherElement) {
    auto doc = Parsed(L"<root xmlns:p=\"urn:p\"><target/></root>");
    auto root = Root(doc);
    CComPtr<IXMLDOMAttribute> declaration;
    ASSERT_EQ(root->getAttributeNode(CComBSTR(L"xmlns:p"), &declaration), S_OK);
    CComPtr<IXMLDOMAttribute> removed;
    ASSERT_EQ(root->removeAttributeNode(declaration, &removed), S_OK);
    EXPECT_TRUE(CComPtr<IXMLDOMAttribute>(removed).IsEqualObject(declaration));
    CComQIPtr<IXMLDOMElement> target(Select(doc, L"/root/target"));
    // Attached elsewhere; attaching it twice is refused while it is in use.
    ASSERT_EQ(target->setAttributeNode(declaration, nullptr), S_OK);
    EXPECT_EQ(root->setAttributeNode(declaration, nullptr), E_FAIL);
    EXPECT_EQ(Xml(doc.p), L"<root><target xmlns:p=\"urn:p\"/></root>\r\n");
    CComVariant value;
    EXPECT_EQ(declaration->get_value(&value), S_OK);
    EXPECT_EQ(VarText(value), L"urn:p");
}

TEST(DomNamespaces, CorpusDocumentsSurviveDeclarationRemovalRoundTrips) {
    // Remove every declaration from every root: each document must still serialise to
    // namespace-well-formed text with the same names.
    for (const char* name : {"tickets/msdocs-wdd_example-printticket-document.xml",
                             "caps/msdocs-w32_printcapabilities-document-example.xml",
                             "tickets/libarchive_test_compat_zip_7.xps__Metadata_Job_PT.xml"}) {
        SCOPED_TRACE(name);
        std::string bytes = ReadFile(std::string(FU_CORPUS_DIR) + "/" + name);
        auto doc = Parsed(CComBSTR(bytes.c_str()));
        auto original = Parsed(Xml(doc.p).c_str());
        auto map = Attributes(Root(doc));
        for (CComPtr<IXMLDOMNode> item; map->get_item(0, &item) == S_OK; item.Release()) {
            const std::wstring attributeName = Name(item.p);
            if (attributeName.rfind(L"xmlns", 0) != 0) break;
            ASSERT_EQ(map->removeNamedItem(CComBSTR(attributeName.c_str()), nullptr), S_OK);
        }
        CComPtr<IXMLDOMNodeList> all;
        ASSERT_EQ(Reparsed(doc)->selectNodes(CComBSTR(L"//*"), &all), S_OK);
        CComPtr<IXMLDOMNodeList> expected;
        ASSERT_EQ(original->selectNodes(CComBSTR(L"//*"), &expected), S_OK);
        const LONG n = Length(all);
        ASSERT_EQ(n, Length(expected));
        for (LONG i = 0; i < n; ++i) {
            CComPtr<IXMLDOMNode> a, b;
            all->get_item(i, &a);
            expected->get_item(i, &b);
            EXPECT_EQ(Name(a.p), Name(b.p));
            EXPECT_EQ(NamespaceUri(a.p), NamespaceUri(b.p));
        }
    }
}
