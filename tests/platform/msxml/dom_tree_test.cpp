// dom_tree_test.cpp: node lifetime, identity and tree edits in the MSXML stand-in: removed and
// unattached nodes stay usable, the document outlives its last interface while nodes are held,
// edits follow MSXML's rules (and never merge or free nodes behind a holder's back), nodes move
// between documents, and the per-kind interfaces behave.
#include <gtest/gtest.h>

#include <string>
#include <string_view>
#include <vector>

#include "msxml_test_support.h"
#include "platform/com/unicode.h"

using namespace msxmltest;

namespace {

CComPtr<IXMLDOMElement> Element(IXMLDOMDocument2* doc, const wchar_t* name) {
    CComPtr<IXMLDOMElement> element;
    EXPECT_EQ(doc->createElement(CComBSTR(name), &element), S_OK);
    return element;
}

CComPtr<IXMLDOMText> TextNode(IXMLDOMDocument2* doc, const wchar_t* text) {
    CComPtr<IXMLDOMText> node;
    EXPECT_EQ(doc->createTextNode(CComBSTR(text), &node), S_OK);
    return node;
}

// get_parentNode's result: S_FALSE for a node outside any tree.
HRESULT ParentResult(IXMLDOMNode* node) {
    CComPtr<IXMLDOMNode> parent;
    return node->get_parentNode(&parent);
}

}  // namespace

TEST(DomTree, RemovedAndHeldNodesStayValid) {
    auto doc = Parsed(L"<r><a x='1'><b>text</b></a><c/></r>");
    CComPtr<IXMLDOMNode> a = Select(doc, L"/r/a");
    CComPtr<IXMLDOMNode> removed;
    ASSERT_EQ(Select(doc, L"/r")->removeChild(a, &removed), S_OK);
    EXPECT_TRUE(removed.IsEqualObject(a));
    removed.Release();
    EXPECT_EQ(ParentResult(a), S_FALSE);
    EXPECT_EQ(Xml(a.p), L"<a x=\"1\"><b>text</b></a>");
    EXPECT_EQ(Xml(doc.p), L"<r><c/></r>\r\n");
    // Its children can be edited and it can go back in.
    EXPECT_EQ(Select(a, L"b")->put_text(CComBSTR(L"changed")), S_OK);
    EXPECT_EQ(Select(doc, L"/r/c")->appendChild(a, nullptr), S_OK);
    EXPECT_EQ(Xml(doc.p), L"<r><c><a x=\"1\"><b>changed</b></a></c></r>\r\n");

    // A held descendant keeps a removed subtree alive after its root's wrapper is gone.
    auto tree = Parsed(L"<r><a><b><c/></b></a></r>");
    CComPtr<IXMLDOMNode> c = Select(tree, L"//c");
    ASSERT_EQ(Select(tree, L"/r")->removeChild(Select(tree, L"/r/a"), nullptr), S_OK);
    auto b = Select(c, L"..");
    EXPECT_EQ(Name(b.p), L"b");
    EXPECT_EQ(Name(Select(b, L"..").p), L"a");
    EXPECT_EQ(Xml(tree.p), L"<r/>\r\n");

    // Old nodes survive reloading; moving one into the reloaded document adopts it.
    auto kept = Select(tree, L"/r");
    ASSERT_TRUE(Load(tree, L"<new/>"));
    EXPECT_EQ(Xml(kept.p), L"<r/>");
    ASSERT_EQ(Select(tree, L"/new")->appendChild(kept, nullptr), S_OK);
    EXPECT_EQ(Xml(tree.p), L"<new><r/></new>\r\n");
}

TEST(DomTree, DocumentLivesAsLongAsAnyOfItsNodes) {
    CComPtr<IXMLDOMNode> node = Select(Parsed(L"<r><a>kept</a></r>"), L"/r/a");
    EXPECT_EQ(Text(node.p), L"kept");
    CComPtr<IXMLDOMDocument> owner;
    ASSERT_EQ(node->get_ownerDocument(&owner), S_OK);
    EXPECT_EQ(Xml(owner.p), L"<r><a>kept</a></r>\r\n");
    CComPtr<IXMLDOMElement> created;
    ASSERT_EQ(owner->createElement(CComBSTR(L"late"), &created), S_OK);
    EXPECT_EQ(node->appendChild(created, nullptr), S_OK);
    owner.Release();
    EXPECT_EQ(Xml(node.p), L"<a>kept<late/></a>");
}

TEST(DomTree, NodesHaveOneIdentity) {
    auto doc = Parsed(L"<r><a/></r>");
    auto first = Select(doc, L"/r/a");
    auto second = Select(doc, L"//a");
    EXPECT_EQ(first.p, second.p);
    CComPtr<IXMLDOMNode> viaChild;
    ASSERT_EQ(Select(doc, L"/r")->get_firstChild(&viaChild), S_OK);
    EXPECT_TRUE(viaChild.IsEqualObject(first));
    CComQIPtr<IXMLDOMElement> asElement(first);
    ASSERT_NE(asElement, nullptr);
    EXPECT_TRUE(CComPtr<IXMLDOMElement>(asElement).IsEqualObject(first));
    EXPECT_EQ(CComQIPtr<IXMLDOMAttribute>(first), nullptr);
    CComPtr<IXMLDOMNode> documentNode;
    ASSERT_EQ(Select(doc, L"/r")->get_parentNode(&documentNode), S_OK);
    EXPECT_TRUE(documentNode.IsEqualObject(doc));
}

TEST(DomTree, UnattachedNodesCanBeBuiltThenInserted) {
    auto doc = Parsed(L"<r/>");
    auto outer = Element(doc, L"outer");
    auto inner = Element(doc, L"inner");
    EXPECT_EQ(inner->setAttribute(CComBSTR(L"k"), CComVariant(L"<&\"'>")), S_OK);
    EXPECT_EQ(outer->appendChild(inner, nullptr), S_OK);
    EXPECT_EQ(inner->appendChild(TextNode(doc, L"a<b&c"), nullptr), S_OK);
    inner.Release();
    EXPECT_EQ(Xml(outer.p),
              L"<outer><inner k=\"&lt;&amp;&quot;'&gt;\">a&lt;b&amp;c</inner></outer>");
    EXPECT_EQ(Select(doc, L"/r")->appendChild(outer, nullptr), S_OK);
    EXPECT_EQ(Text(doc.p), L"a<b&c");
}

TEST(DomTree, InsertReplaceAndRemoveFollowMsxmlRules) {
    auto doc = Parsed(L"<r><a/><c/></r>");
    auto r = Select(doc, L"/r");
    auto a = Select(doc, L"/r/a");
    auto c = Select(doc, L"/r/c");
    auto b = Element(doc, L"b");
    CComPtr<IXMLDOMNode> inserted;
    EXPECT_EQ(r->insertBefore(b, CComVariant(c.p), &inserted), S_OK);
    EXPECT_TRUE(inserted.IsEqualObject(b));
    EXPECT_EQ(Xml(r.p), L"<r><a/><b/><c/></r>");
    EXPECT_EQ(r->insertBefore(c, CComVariant(a.p), nullptr), S_OK);  // moves c first
    EXPECT_EQ(Xml(r.p), L"<r><c/><a/><b/></r>");
    EXPECT_EQ(r->insertBefore(a, CComVariant(), nullptr), S_OK);  // empty ref appends
    EXPECT_EQ(Xml(r.p), L"<r><c/><b/><a/></r>");
    CComPtr<IXMLDOMNode> old;
    EXPECT_EQ(r->replaceChild(Element(doc, L"d"), b, &old), S_OK);
    EXPECT_TRUE(old.IsEqualObject(b));
    EXPECT_EQ(Xml(r.p), L"<r><c/><d/><a/></r>");

    EXPECT_EQ(r->removeChild(b, nullptr), E_INVALIDARG);  // not a child any more
    EXPECT_EQ(a->appendChild(r, nullptr), E_FAIL);        // not below itself
    EXPECT_EQ(a->appendChild(a, nullptr), E_FAIL);
    EXPECT_EQ(r->insertBefore(b, CComVariant(b.p), nullptr), E_INVALIDARG);  // ref not a child
    EXPECT_EQ(r->appendChild(nullptr, nullptr), E_INVALIDARG);
    EXPECT_EQ(doc->appendChild(Element(doc, L"second"), nullptr), E_FAIL);  // one root only
    EXPECT_EQ(doc->appendChild(TextNode(doc, L"x"), nullptr), E_FAIL);
    CComPtr<IXMLDOMAttribute> attribute;
    ASSERT_EQ(doc->createAttribute(CComBSTR(L"at"), &attribute), S_OK);
    EXPECT_EQ(r->appendChild(attribute, nullptr), E_FAIL);
    EXPECT_EQ(TextNode(doc, L"t")->appendChild(Element(doc, L"e"), nullptr), E_FAIL);

    // Comments and processing instructions may sit beside the root.
    CComPtr<IXMLDOMComment> comment;
    ASSERT_EQ(doc->createComment(CComBSTR(L"note"), &comment), S_OK);
    EXPECT_EQ(doc->insertBefore(comment, CComVariant(r.p), nullptr), S_OK);
    EXPECT_EQ(Xml(doc.p), L"<!--note-->\r\n<r><c/><d/><a/></r>\r\n");
    // Replacing the root element with another one is allowed.
    EXPECT_EQ(doc->replaceChild(Element(doc, L"fresh"), r, nullptr), S_OK);
    EXPECT_EQ(Xml(doc.p), L"<!--note-->\r\n<fresh/>\r\n");
    EXPECT_EQ(doc->putref_documentElement(CComQIPtr<IXMLDOMElement>(r)), S_OK);
    EXPECT_EQ(Xml(doc.p), L"<!--note-->\r\n<r><c/><d/><a/></r>\r\n");

    // A fragment inserts its children and is left empty.
    CComPtr<IXMLDOMDocumentFragment> fragment;
    ASSERT_EQ(doc->createDocumentFragment(&fragment), S_OK);
    EXPECT_EQ(fragment->appendChild(Element(doc, L"x"), nullptr), S_OK);
    EXPECT_EQ(fragment->appendChild(TextNode(doc, L"t"), nullptr), S_OK);
    EXPECT_EQ(r->insertBefore(fragment, CComVariant(c.p), nullptr), S_OK);
    EXPECT_EQ(Xml(r.p), L"<r><x/>t<c/><d/><a/></r>");
    EXPECT_EQ(ChildCount(fragment), 0);
}

TEST(DomTree, TextEditsNeverMergeOrFreeHeldNodes) {
    auto doc = Parsed(L"<r/>");
    auto r = Select(doc, L"/r");
    auto one = TextNode(doc, L"one");
    auto two = TextNode(doc, L"two");
    ASSERT_EQ(r->appendChild(one, nullptr), S_OK);
    ASSERT_EQ(r->appendChild(two, nullptr), S_OK);
    EXPECT_EQ(ChildCount(r), 2);
    EXPECT_EQ(two->appendData(CComBSTR(L"!")), S_OK);
    EXPECT_EQ(Text(r.p), L"onetwo!");
    EXPECT_EQ(CComQIPtr<IXMLDOMElement>(r)->normalize(), S_OK);
    EXPECT_EQ(ChildCount(r), 1);
    EXPECT_EQ(Text(r.p), L"onetwo!");
    // The merged-away node is detached, not freed.
    EXPECT_EQ(ParentResult(two), S_FALSE);
    EXPECT_EQ(Text(two.p), L"two!");

    // put_text replaces the children; a held child stays usable.
    auto other = Parsed(L"<r><a>x</a><b/></r>");
    auto a = Select(other, L"/r/a");
    auto root = Select(other, L"/r");
    EXPECT_EQ(root->put_text(CComBSTR(L"replaced")), S_OK);
    EXPECT_EQ(Xml(root.p), L"<r>replaced</r>");
    EXPECT_EQ(Xml(a.p), L"<a>x</a>");
    EXPECT_EQ(root->put_text(CComBSTR(L"")), S_OK);
    EXPECT_EQ(Xml(root.p), L"<r/>");
    EXPECT_EQ(other->put_text(CComBSTR(L"no")), E_FAIL);
}

TEST(DomTree, NodesMoveBetweenDocumentsWithTheirWrappers) {
    auto source = Parsed(L"<s xmlns:p=\"urn:p\"><p:item a=\"1\"><p:sub>v</p:sub></p:item></s>");
    auto target = Parsed(L"<t/>");
    auto item = Select(source, L"/s/*");
    SetNamespaces(source, L"xmlns:q='urn:p'");
    auto sub = Select(source, L"//q:sub");
    ASSERT_EQ(Select(target, L"/t")->appendChild(item, nullptr), S_OK);
    source.Release();
    CComPtr<IXMLDOMDocument> owner;
    ASSERT_EQ(sub->get_ownerDocument(&owner), S_OK);
    EXPECT_TRUE(CComPtr<IXMLDOMDocument>(owner).IsEqualObject(target));
    EXPECT_EQ(Text(sub.p), L"v");
    EXPECT_EQ(Xml(target.p),
              L"<t><p:item xmlns:p=\"urn:p\" a=\"1\"><p:sub>v</p:sub></p:item></t>\r\n");
    EXPECT_EQ(sub->put_text(CComBSTR(L"w")), S_OK);
    EXPECT_EQ(Text(target.p), L"w");
    // Attributes and declarations move the same way.
    auto other = Parsed(L"<o x='1' xmlns:k='urn:k'/>");
    CComQIPtr<IXMLDOMElement> oroot(Select(other, L"/o"));
    CComQIPtr<IXMLDOMElement> troot(Select(target, L"/t"));
    for (const wchar_t* name : {L"x", L"xmlns:k"}) {
        CComPtr<IXMLDOMAttribute> moving;
        ASSERT_EQ(oroot->getAttributeNode(CComBSTR(name), &moving), S_OK);
        ASSERT_EQ(oroot->removeAttributeNode(moving, nullptr), S_OK);
        ASSERT_EQ(troot->setAttributeNode(moving, nullptr), S_OK);
    }
    other.Release();
    oroot.Release();
    EXPECT_EQ(Xml(troot.p).substr(0, 25), L"<t xmlns:k=\"urn:k\" x=\"1\">");
}

TEST(DomTree, ClonesAndImportsAreDetachedCopies) {
    auto doc = Parsed(L"<r xmlns:p=\"urn:p\"><p:a k=\"v\"><b>t</b></p:a></r>");
    auto a = Select(doc, L"/r/*");
    CComPtr<IXMLDOMNode> deep;
    ASSERT_EQ(a->cloneNode(VARIANT_TRUE, &deep), S_OK);
    EXPECT_EQ(ParentResult(deep), S_FALSE);
    EXPECT_EQ(Xml(deep.p), L"<p:a xmlns:p=\"urn:p\" k=\"v\"><b>t</b></p:a>");
    CComPtr<IXMLDOMNode> shallow;
    ASSERT_EQ(a->cloneNode(VARIANT_FALSE, &shallow), S_OK);
    EXPECT_EQ(Xml(shallow.p), L"<p:a xmlns:p=\"urn:p\" k=\"v\"/>");
    EXPECT_FALSE(deep.IsEqualObject(a));

    auto other = Parsed(L"<o/>");
    CComQIPtr<IXMLDOMDocument3> importer(other);
    ASSERT_NE(importer, nullptr);
    CComPtr<IXMLDOMNode> imported;
    ASSERT_EQ(importer->importNode(a, VARIANT_TRUE, &imported), S_OK);
    ASSERT_EQ(Select(other, L"/o")->appendChild(imported, nullptr), S_OK);
    EXPECT_EQ(Xml(other.p), L"<o><p:a xmlns:p=\"urn:p\" k=\"v\"><b>t</b></p:a></o>\r\n");
    EXPECT_EQ(Xml(doc.p), L"<r xmlns:p=\"urn:p\"><p:a k=\"v\"><b>t</b></p:a></r>\r\n");

    CComPtr<IXMLDOMNode> copy;
    ASSERT_EQ(doc->cloneNode(VARIANT_TRUE, &copy), S_OK);
    EXPECT_EQ(Xml(copy.p), Xml(doc.p));
    EXPECT_FALSE(copy.IsEqualObject(doc));
}

TEST(DomTree, NodeKindsReportNamesValuesAndTypes) {
    auto doc = Parsed(L"<?xml version=\"1.0\"?><r a=\"1\">t<![CDATA[<c>]]><!--m--><?pi d?></r>");
    struct Expected {
        const wchar_t* query;
        const wchar_t* name;
        DOMNodeType type;
        const wchar_t* typeString;
        const wchar_t* value;  // null: VT_NULL
    };
    const Expected cases[] = {
        {L"/r", L"r", NODE_ELEMENT, L"element", nullptr},
        {L"/r/@a", L"a", NODE_ATTRIBUTE, L"attribute", L"1"},
        {L"/r/text()[1]", L"#text", NODE_TEXT, L"text", L"t"},
        {L"/r/text()[2]", L"#cdata-section", NODE_CDATA_SECTION, L"cdatasection", L"<c>"},
        {L"/r/comment()", L"#comment", NODE_COMMENT, L"comment", L"m"},
        {L"/r/processing-instruction()", L"pi", NODE_PROCESSING_INSTRUCTION,
         L"processinginstruction", L"d"},
        {L"/", L"#document", NODE_DOCUMENT, L"document", nullptr},
    };
    for (const Expected& e : cases) {
        SCOPED_TRACE(testing::Message() << std::string(e.query, e.query + std::wcslen(e.query)));
        auto node = Select(doc, e.query);
        EXPECT_EQ(Name(node.p), e.name);
        DOMNodeType type = NODE_INVALID;
        EXPECT_EQ(node->get_nodeType(&type), S_OK);
        EXPECT_EQ(type, e.type);
        EXPECT_EQ(Get(node.p, &IXMLDOMNode::get_nodeTypeString), e.typeString);
        CComVariant value;
        EXPECT_EQ(node->get_nodeValue(&value), e.value == nullptr ? S_FALSE : S_OK);
        EXPECT_EQ(VarText(value), e.value == nullptr ? L"<vt 1>" : e.value);
    }
    auto r = Select(doc, L"/r");
    EXPECT_EQ(r->put_nodeValue(CComVariant(L"x")), E_FAIL);
    CComVariant typed;
    EXPECT_EQ(r->get_nodeTypedValue(&typed), S_OK);
    EXPECT_EQ(VarText(typed), L"t<c>");
    CComVariant dataType;
    EXPECT_EQ(r->get_dataType(&dataType), S_FALSE);
    EXPECT_EQ(dataType.vt, VT_NULL);
    auto attribute = Select(doc, L"/r/@a");
    EXPECT_EQ(attribute->put_nodeTypedValue(CComVariant(42)), S_OK);
    EXPECT_EQ(Xml(r.p), L"<r a=\"42\">t<![CDATA[<c>]]><!--m--><?pi d?></r>");
    CComPtr<IXMLDOMNode> sibling;
    EXPECT_EQ(attribute->get_nextSibling(&sibling), S_FALSE);
    CComPtr<IXMLDOMNode> attributeText;
    ASSERT_EQ(attribute->get_firstChild(&attributeText), S_OK);
    EXPECT_EQ(Text(attributeText.p), L"42");
}

TEST(DomTree, ElementAttributeOperations) {
    auto doc = Parsed(L"<r a=\"1\" b=\"2\"/>");
    CComQIPtr<IXMLDOMElement> r(Select(doc, L"/r"));
    CComVariant value;
    EXPECT_EQ(r->getAttribute(CComBSTR(L"zz"), &value), S_FALSE);
    EXPECT_EQ(value.vt, VT_NULL);
    EXPECT_EQ(r->setAttribute(CComBSTR(L"a"), CComVariant(3.5)), S_OK);
    EXPECT_EQ(r->getAttribute(CComBSTR(L"a"), &value), S_OK);
    EXPECT_EQ(VarText(value), L"3.5");
    EXPECT_EQ(r->setAttribute(CComBSTR(L""), CComVariant(L"x")), E_INVALIDARG);
    EXPECT_EQ(r->setAttribute(CComBSTR(L"1bad"), CComVariant(L"x")), E_INVALIDARG);
    CComPtr<IXMLDOMAttribute> b;
    ASSERT_EQ(r->getAttributeNode(CComBSTR(L"b"), &b), S_OK);
    CComPtr<IXMLDOMAttribute> removed;
    EXPECT_EQ(r->removeAttributeNode(b, &removed), S_OK);
    EXPECT_EQ(Xml(r.p), L"<r a=\"3.5\"/>");
    EXPECT_EQ(r->removeAttributeNode(b, nullptr), E_INVALIDARG);
    // Setting an attribute of the same name hands back the one it replaces.
    CComPtr<IXMLDOMAttribute> replacement;
    ASSERT_EQ(doc->createAttribute(CComBSTR(L"a"), &replacement), S_OK);
    ASSERT_EQ(replacement->put_value(CComVariant(L"new")), S_OK);
    CComPtr<IXMLDOMAttribute> previous;
    ASSERT_EQ(r->setAttributeNode(replacement, &previous), S_OK);
    ASSERT_NE(previous, nullptr);
    value.Clear();  // an out parameter is overwritten, not freed
    EXPECT_EQ(previous->get_value(&value), S_OK);
    EXPECT_EQ(VarText(value), L"3.5");
    EXPECT_EQ(Xml(r.p), L"<r a=\"new\"/>");
    // An attribute in use elsewhere cannot be attached again.
    EXPECT_EQ(Element(doc, L"o")->setAttributeNode(replacement, nullptr), E_FAIL);
    EXPECT_EQ(r->removeAttribute(CComBSTR(L"a")), S_OK);
    EXPECT_EQ(Xml(r.p), L"<r/>");

    auto tree = Parsed(L"<t><x/><y><x/></y></t>");
    CComPtr<IXMLDOMNodeList> found;
    ASSERT_EQ(CComQIPtr<IXMLDOMElement>(Select(tree, L"/t"))
                  ->getElementsByTagName(CComBSTR(L"x"), &found),
              S_OK);
    EXPECT_EQ(Length(found), 2);
    found.Release();
    ASSERT_EQ(tree->getElementsByTagName(CComBSTR(L"*"), &found), S_OK);
    EXPECT_EQ(Length(found), 4);
}

TEST(DomTree, ChildNodesIsLive) {
    auto doc = Parsed(L"<r><a/><b/></r>");
    auto r = Select(doc, L"/r");
    CComPtr<IXMLDOMNodeList> children;
    ASSERT_EQ(r->get_childNodes(&children), S_OK);
    CComPtr<IXMLDOMNode> first;
    ASSERT_EQ(children->nextNode(&first), S_OK);
    EXPECT_EQ(Name(first.p), L"a");
    ASSERT_EQ(r->appendChild(Element(doc, L"c"), nullptr), S_OK);
    EXPECT_EQ(Length(children), 3);
    ASSERT_EQ(r->removeChild(first, nullptr), S_OK);
    CComPtr<IXMLDOMNode> item;
    ASSERT_EQ(children->get_item(0, &item), S_OK);
    EXPECT_EQ(Name(item.p), L"b");
    item.Release();
    EXPECT_EQ(children->get_item(2, &item), S_FALSE);
    EXPECT_EQ(children->get_item(-1, &item), S_FALSE);
    EXPECT_EQ(children->reset(), S_OK);
}

TEST(DomTree, CharacterDataOperations) {
    auto doc = Parsed(L"<r>hello world</r>");
    CComQIPtr<IXMLDOMText> text(Select(doc, L"/r/text()"));
    ASSERT_NE(text, nullptr);
    LONG length = 0;
    EXPECT_EQ(text->get_length(&length), S_OK);
    EXPECT_EQ(length, 11);
    CComBSTR part;
    EXPECT_EQ(text->substringData(6, 100, &part), S_OK);
    EXPECT_EQ(Str(part), L"world");
    EXPECT_EQ(text->insertData(5, CComBSTR(L",")), S_OK);
    EXPECT_EQ(text->replaceData(0, 5, CComBSTR(L"HELLO")), S_OK);
    EXPECT_EQ(text->deleteData(6, 1), S_OK);
    EXPECT_EQ(Get(text.p, &IXMLDOMText::get_data), L"HELLO,world");
    EXPECT_EQ(text->insertData(99, CComBSTR(L"x")), E_INVALIDARG);
    EXPECT_EQ(text->deleteData(-1, 1), E_INVALIDARG);
    CComPtr<IXMLDOMText> right;
    ASSERT_EQ(text->splitText(6, &right), S_OK);
    EXPECT_EQ(Text(right.p), L"world");
    EXPECT_EQ(Xml(doc.p), L"<r>HELLO,world</r>\r\n");
    EXPECT_EQ(ChildCount(Select(doc, L"/r")), 2);
    EXPECT_NE(CComQIPtr<IXMLDOMCharacterData>(right), nullptr);
    CComPtr<IXMLDOMProcessingInstruction> pi;
    ASSERT_EQ(doc->createProcessingInstruction(CComBSTR(L"target"), CComBSTR(L"some data"), &pi),
              S_OK);
    EXPECT_EQ(Get(pi.p, &IXMLDOMProcessingInstruction::get_target), L"target");
    EXPECT_EQ(pi->put_data(CComBSTR(L"other")), S_OK);
    EXPECT_EQ(Xml(pi.p), L"<?target other?>");
    CComPtr<IXMLDOMProcessingInstruction> bad;
    EXPECT_EQ(doc->createProcessingInstruction(CComBSTR(L"t"), CComBSTR(L"?>"), &bad),
              E_INVALIDARG);
    EXPECT_EQ(bad, nullptr);
}

TEST(DomTree, NullArgumentsAreRefused) {
    auto doc = Parsed(L"<r/>");
    auto r = Select(doc, L"/r");
    for (HRESULT hr :
         {r->get_nodeName(nullptr), r->get_text(nullptr), r->get_xml(nullptr),
          r->get_childNodes(nullptr), r->get_attributes(nullptr), r->get_parentNode(nullptr),
          r->selectNodes(CComBSTR(L"*"), nullptr), doc->get_documentElement(nullptr),
          doc->createNode(CComVariant(1), CComBSTR(L"x"), nullptr, nullptr),
          doc->get_parseError(nullptr), r->replaceChild(nullptr, nullptr, nullptr),
          r->removeChild(nullptr, nullptr)}) {
        EXPECT_EQ(hr, E_INVALIDARG);
    }
}

namespace {

// What the attribute map lists for an element: nodeName=nodeValue, in order.
std::vector<std::wstring> AttributesThroughMap(IXMLDOMNode* element) {
    std::vector<std::wstring> listed;
    CComPtr<IXMLDOMNamedNodeMap> map;
    EXPECT_EQ(element->get_attributes(&map), S_OK);
    for (CComPtr<IXMLDOMNode> attribute; map->nextNode(&attribute) == S_OK && attribute;
         attribute.Release()) {
        CComVariant value;
        EXPECT_EQ(attribute->get_nodeValue(&value), S_OK);
        listed.push_back(Name(attribute.p) + L"=" + VarText(value));
    }
    return listed;
}

HRESULT CollectAttribute(void* context, std::string_view name, std::string_view value) {
    static_cast<std::vector<std::wstring>*>(context)->push_back(
        platform::Utf8ToWide(name) + L"=" + platform::Utf8ToWide(value));
    return S_OK;
}

HRESULT StopAtFirst(void*, std::string_view, std::string_view) { return E_ABORT; }

}  // namespace

// platform::DomElementAttributes lists what the attribute map lists, in the same order, for
// declarations (default and prefixed), plain and qualified attributes, escaped, empty and
// non-ASCII values, and declarations added or removed after the load.
TEST(DomTree, ElementAttributesListedAsTheAttributeMapListsThem) {
    struct Row {
        const char* name;
        const wchar_t* xml;
        const wchar_t* edit;  // an attribute set on the root after loading, or null
    };
    const Row rows[] = {
        {"no attributes", L"<r/>", nullptr},
        {"plain attributes", L"<r a='1' b=''/>", nullptr},
        {"declarations then attributes",
         L"<p:r version='1' xmlns:p='urn:p' xmlns='urn:d' xmlns:q='urn:q' q:x='y'/>", nullptr},
        {"escaped and non-ASCII values", L"<r a='&lt;&amp;&#233;&#x10348;' xmlns:n='urn:\x00e9'/>",
         nullptr},
        {"an empty value and a qualified one", L"<r xmlns:q='urn:q' a='' q:b='2'/>", nullptr},
        {"a declaration added after loading", L"<r a='1'/>", L"xmlns:added"},
        {"an attribute added after loading", L"<r xmlns:p='urn:p'/>", L"late"},
    };
    for (const Row& row : rows) {
        SCOPED_TRACE(row.name);
        auto doc = Parsed(row.xml);
        auto root = Select(doc, L"/*");
        if (row.edit != nullptr) {
            ASSERT_EQ(CComQIPtr<IXMLDOMElement>(root)->setAttribute(CComBSTR(row.edit),
                                                                    CComVariant(L"urn:added")),
                      S_OK);
        }
        std::vector<std::wstring> direct;
        ASSERT_EQ(platform::DomElementAttributes(root, CollectAttribute, &direct), S_OK);
        EXPECT_EQ(direct, AttributesThroughMap(root));
    }

    auto doc = Parsed(L"<r a='1'><!--c--></r>");
    auto root = Select(doc, L"/r");
    std::vector<std::wstring> none;
    EXPECT_EQ(platform::DomElementAttributes(nullptr, CollectAttribute, &none), E_INVALIDARG);
    EXPECT_EQ(platform::DomElementAttributes(root, nullptr, &none), E_INVALIDARG);
    EXPECT_EQ(platform::DomElementAttributes(root, StopAtFirst, nullptr), E_ABORT);
    EXPECT_EQ(platform::DomElementAttributes(Select(doc, L"/r/comment()"), CollectAttribute, &none),
              E_NOINTERFACE);
    EXPECT_TRUE(none.empty());
}

// platform::DomNodeTextUtf8 gives get_text's characters in UTF-8, whether the node holds one
// text node (read in place) or gathers several, and with white space trimmed or preserved as
// get_text does.
TEST(DomTree, NodeTextUtf8IsGetTextInUtf8) {
    struct Row {
        const char* name;
        const wchar_t* xml;
        const wchar_t* path;
        const char* expected;
    };
    const Row rows[] = {
        {"one text node", L"<r><v>QUJD</v></r>", L"/r/v", "QUJD"},
        {"surrounding white space trimmed", L"<r><v>  a b \n</v></r>", L"/r/v", "a b"},
        {"preserved white space", L"<r><v xml:space='preserve'> a </v></r>", L"/r/v", " a "},
        {"several children gathered", L"<r><v>a<i>b</i><![CDATA[c]]></v></r>", L"/r/v", "abc"},
        {"non-ASCII", L"<r><v>\x00e9&#x10348;</v></r>", L"/r/v", "\xc3\xa9\xf0\x90\x8d\x88"},
        {"an attribute", L"<r a='x&amp;y'/>", L"/r/@a", "x&y"},
        {"empty element", L"<r><v/></r>", L"/r/v", ""},
    };
    std::string text = "left over from before";
    for (const Row& row : rows) {
        SCOPED_TRACE(row.name);
        CComPtr<IXMLDOMNode> node = Select(Parsed(row.xml), row.path);
        ASSERT_NE(node, nullptr);
        ASSERT_EQ(platform::DomNodeTextUtf8(node, text), S_OK);
        EXPECT_EQ(text, row.expected);
        std::wstring wide;
        ASSERT_EQ(platform::DomNodeText(node, wide), S_OK);
        EXPECT_EQ(wide, Text(node.p));
    }
    EXPECT_EQ(platform::DomNodeTextUtf8(nullptr, text), E_INVALIDARG);
}
