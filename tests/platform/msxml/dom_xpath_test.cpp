// dom_xpath_test.cpp: selectSingleNode/selectNodes of the MSXML stand-in: MSXML's return
// conventions, the SelectionNamespaces prefixes, bad expressions, node-list lifetime, and the
// compiled-expression cache; and the location paths the XPath engine evaluates by walking the
// tree (name steps, "/" and "//", attribute tests, unions), which must select exactly what
// libxml2 selects: each is compared with the same query spelt with explicit axes, which the
// engine leaves to libxml2.
#include <gtest/gtest.h>

#include <string>
#include <thread>
#include <utility>
#include <vector>

#include "msxml_test_support.h"
#include "platform/com/unicode.h"

using namespace msxmltest;

namespace {

constexpr wchar_t kTicket[] =
    L"<?xml version=\"1.0\" encoding=\"UTF-8\"?>"
    L"<psf:PrintTicket xmlns:psf=\"http://schemas.microsoft.com/windows/2003/08/printing/"
    L"printschemaframework\" xmlns:psk=\"http://schemas.microsoft.com/windows/2003/08/printing/"
    L"printschemakeywords\" version=\"1\">"
    L"<psf:Feature name=\"psk:PageMediaSize\"><psf:Option name=\"psk:ISOA4\">"
    L"<psf:ScoredProperty name=\"psk:MediaSizeWidth\"><psf:Value>210000</psf:Value>"
    L"</psf:ScoredProperty></psf:Option></psf:Feature>"
    L"<psf:Feature name=\"psk:PageOrientation\"><psf:Option name=\"psk:Portrait\"/></psf:Feature>"
    L"<psf:Property name=\"psk:A\"/><psf:Property name=\"psk:A\"/><psf:Property name=\"psk:A\"/>"
    L"</psf:PrintTicket>";
constexpr wchar_t kFrameworkNs[] =
    L"xmlns:psf='http://schemas.microsoft.com/windows/2003/08/printing/printschemaframework'";

}  // namespace

TEST(DomXPath, SelectSingleNodeWithoutMatchIsSFalseAndNull) {
    auto doc = Parsed(kTicket);
    SetNamespaces(doc, kFrameworkNs);
    CComPtr<IXMLDOMNode> node;
    EXPECT_EQ(doc->selectSingleNode(CComBSTR(L"//psf:Feature[@name='psk:Nothing']"), &node),
              S_FALSE);
    EXPECT_EQ(node, nullptr);
    auto feature = Select(doc, L"//psf:Feature[@name = \"psk:PageMediaSize\"]");
    EXPECT_EQ(feature->selectSingleNode(CComBSTR(L"psf:Nothing"), &node), S_FALSE);
    EXPECT_EQ(node, nullptr);

    // selectNodes gives an empty list.
    CComPtr<IXMLDOMNodeList> list;
    ASSERT_EQ(doc->selectNodes(CComBSTR(L"//psf:Nothing"), &list), S_OK);
    ASSERT_NE(list, nullptr);
    EXPECT_EQ(Length(list), 0);
    CComPtr<IXMLDOMNode> next;
    EXPECT_EQ(list->nextNode(&next), S_FALSE);
    EXPECT_EQ(next, nullptr);
    EXPECT_EQ(list->get_item(0, &next), S_FALSE);
}

TEST(DomXPath, BadExpressionsFailWithoutCrashing) {
    auto doc = Parsed(kTicket);
    SetNamespaces(doc, kFrameworkNs);
    for (const wchar_t* expression : {L"//[", L"//psf:Feature[", L"///", L"count(//psf:Feature)",
                                      L"//undeclared:Feature", L"'text'", L")("}) {
        SCOPED_TRACE(platform::WideToUtf8(expression));
        CComPtr<IXMLDOMNode> node;
        EXPECT_EQ(doc->selectSingleNode(CComBSTR(expression), &node), E_FAIL);
        EXPECT_EQ(node, nullptr);
        CComPtr<IXMLDOMNodeList> list;
        EXPECT_EQ(doc->selectNodes(CComBSTR(expression), &list), E_FAIL);
        EXPECT_EQ(list, nullptr);
    }
    CComPtr<IXMLDOMNode> node;
    EXPECT_EQ(doc->selectSingleNode(nullptr, &node), E_FAIL);
    std::wstring embeddedNul(L"//psf:Feature\0[1]", 17);
    CComBSTR withNul(static_cast<int>(embeddedNul.size()), embeddedNul.data());
    EXPECT_EQ(doc->selectSingleNode(withNul, &node), E_FAIL);
    EXPECT_EQ(doc->selectSingleNode(CComBSTR(L"/*"), nullptr), E_INVALIDARG);
}

TEST(DomXPath, SelectionNamespacesAreParsedAndApplied) {
    auto doc = Parsed(kTicket);
    // The document's own prefixes are not usable until declared for selection.
    CComPtr<IXMLDOMNode> node;
    EXPECT_EQ(doc->selectSingleNode(CComBSTR(L"//psf:Feature"), &node), E_FAIL);
    // Any prefix works, in either quote style, with extra white space.
    SetNamespaces(
        doc,
        L"  xmlns:f=\"http://schemas.microsoft.com/windows/2003/08/printing/"
        L"printschemaframework\"\n\txmlns:k='http://schemas.microsoft.com/windows/2003/08/"
        L"printing/printschemakeywords' xmlns='urn:ignored' ");
    EXPECT_EQ(Name(Select(doc, L"/f:PrintTicket/f:Feature[2]/f:Option").p), L"psf:Option");
    CComVariant stored;
    ASSERT_EQ(doc->getProperty(CComBSTR(L"SelectionNamespaces"), &stored), S_OK);
    EXPECT_EQ(VarText(stored).substr(0, 10), L"  xmlns:f=");

    for (const wchar_t* text :
         {L"xmlns:p=urn:x", L"xmlns:p='urn:x", L"xmlns:='urn:x'", L"xmlnsp='urn:x'",
          L"xmlns:p='a'xmlns:q='b'", L"p='urn:x'", L"xmlns:1p='urn:x'"}) {
        SCOPED_TRACE(platform::WideToUtf8(text));
        EXPECT_EQ(doc->setProperty(CComBSTR(L"SelectionNamespaces"), CComVariant(text)), E_FAIL);
    }
    // The last good value stays in force.
    EXPECT_EQ(Name(Select(doc, L"/f:PrintTicket").p), L"psf:PrintTicket");
    EXPECT_EQ(doc->setProperty(CComBSTR(L"SelectionNamespaces"), CComVariant(42)), E_INVALIDARG);
    EXPECT_EQ(doc->setProperty(CComBSTR(L"SelectionLanguage"), CComVariant(L"XPath")), S_OK);
}

TEST(DomXPath, ResultsComeInDocumentOrderAndCoverEveryNodeKind) {
    auto doc = Parsed(L"<r><a i='1'/><!--c--><b>t</b><a i='2'/><?pi d?></r>");
    CComPtr<IXMLDOMNodeList> list;
    ASSERT_EQ(
        doc->selectNodes(CComBSTR(L"//b | //a | //comment() | //processing-instruction()"), &list),
        S_OK);
    std::wstring names;
    for (CComPtr<IXMLDOMNode> node; list->nextNode(&node) == S_OK; node.Release()) {
        names += Name(node.p) + L",";
    }
    EXPECT_EQ(names, L"a,#comment,b,a,pi,");
    EXPECT_EQ(Text(Select(doc, L"//a[2]/@i").p), L"2");
    DOMNodeType type = NODE_INVALID;
    EXPECT_EQ(Select(doc, L"//a/@i")->get_nodeType(&type), S_OK);
    EXPECT_EQ(type, NODE_ATTRIBUTE);
    EXPECT_EQ(Text(Select(doc, L"//b/text()").p), L"t");
    // "/" is the document itself.
    auto root = Select(doc, L"/");
    EXPECT_TRUE(CComPtr<IXMLDOMNode>(root).IsEqualObject(doc));
    // Relative paths start at the node they are asked of.
    auto b = Select(doc, L"//b");
    EXPECT_EQ(Name(Select(b, L"following-sibling::a").p), L"a");
    EXPECT_EQ(Name(Select(b, L"..").p), L"r");
}

TEST(DomXPath, ListedNodesStayValidWhileRemovedOneByOne) {
    auto doc = Parsed(kTicket);
    SetNamespaces(doc, kFrameworkNs);
    CComPtr<IXMLDOMNodeList> list;
    ASSERT_EQ(doc->selectNodes(CComBSTR(L"//psf:Property[@name = \"psk:A\"]"), &list), S_OK);
    ASSERT_EQ(Length(list), 3);
    for (LONG i = 0; i < 3; ++i) {
        CComPtr<IXMLDOMNode> item;
        ASSERT_EQ(list->get_item(i, &item), S_OK);
        CComPtr<IXMLDOMNode> parent;
        ASSERT_EQ(item->get_parentNode(&parent), S_OK);
        CComPtr<IXMLDOMNode> removed;
        EXPECT_EQ(parent->removeChild(item, &removed), S_OK);
    }
    // Every item, removed and released meanwhile, can still be read.
    for (LONG i = 0; i < 3; ++i) {
        CComPtr<IXMLDOMNode> item;
        ASSERT_EQ(list->get_item(i, &item), S_OK);
        EXPECT_EQ(Name(item.p), L"psf:Property");
        CComPtr<IXMLDOMNode> parent;
        EXPECT_EQ(item->get_parentNode(&parent), S_FALSE);
    }
    EXPECT_EQ(Count(doc, L"//psf:Property"), 0);
}

TEST(DomXPath, ChangeStampMovesWithEveryObservableChange) {
    auto doc = Parsed(kTicket);
    const unsigned long long first = platform::DomDocumentChangeStamp(doc);
    EXPECT_NE(first, 0u);
    unsigned long long last = first;
    auto moved = [&] {
        const unsigned long long now = platform::DomDocumentChangeStamp(doc);
        return std::exchange(last, now) != now;
    };
    EXPECT_FALSE(moved());  // reading changes nothing
    SetNamespaces(doc, kFrameworkNs);
    EXPECT_TRUE(moved());
    SetNamespaces(doc, kFrameworkNs);  // the same declarations again: no change
    CComQIPtr<IXMLDOMElement> option(Select(doc, L"//psf:Option"));
    EXPECT_FALSE(moved());
    // An edit, a white-space mode change and a new load each give a new stamp.
    ASSERT_EQ(option->setAttribute(CComBSTR(L"name"), CComVariant(L"psk:Landscape")), S_OK);
    EXPECT_TRUE(moved());
    ASSERT_EQ(doc->put_preserveWhiteSpace(VARIANT_TRUE), S_OK);
    EXPECT_TRUE(moved());
    ASSERT_TRUE(Load(doc, kTicket));
    EXPECT_TRUE(moved());
    EXPECT_NE(last, first);
    // Another document never shares a stamp, even with the same text; no document has none.
    EXPECT_NE(platform::DomDocumentChangeStamp(Parsed(kTicket)), last);
    EXPECT_EQ(platform::DomDocumentChangeStamp(nullptr), 0u);
}

TEST(DomXPath, DescendantStepsSelectAsWritten) {
    // Nested elements of one name: "//" with attribute tests, positions and literals holding
    // slashes must all select what XPath says, whichever form the engine compiles.
    auto doc =
        Parsed(L"<r><a n='x' m='//a'><a n='x'/><b/></a><c><a n='x'/><a n='y'/></c><a n='z'/></r>");
    auto count = [&](const wchar_t* query) { return Count(doc, query); };
    EXPECT_EQ(count(L"//a[@n = 'x']"), 3);
    EXPECT_EQ(count(L"//a[ @n=\"y\" ]"), 1);
    EXPECT_EQ(count(L"//a[@m = '//a']"), 1);
    EXPECT_EQ(count(L"//a[@n]"), 5);
    EXPECT_EQ(count(L"//c//a[@n]"), 2);
    EXPECT_EQ(count(L"//a[@n = 'x']/b | //c/a[@n = 'y']"), 2);
    // Positions count among a parent's children, not among all descendants.
    EXPECT_EQ(count(L"//a[1]"), 3);
    EXPECT_EQ(count(L"/descendant::a[1]"), 1);
    EXPECT_EQ(count(L"//a[@n = 'x'][1]"), 3);
    EXPECT_EQ(count(L"//a[last()]"), 3);
    EXPECT_EQ(count(L"//*[@n = 'x']"), 3);
    EXPECT_EQ(count(L"//node()[@n = 'z']"), 1);
    CComPtr<IXMLDOMNode> first;
    ASSERT_EQ(doc->selectSingleNode(CComBSTR(L"//c/a[@n = 'x'] | //a[@n = 'x']"), &first), S_OK);
    CComPtr<IXMLDOMNode> outer;
    ASSERT_EQ(doc->selectSingleNode(CComBSTR(L"/r/a[1]"), &outer), S_OK);
    EXPECT_EQ(first, outer);  // the first in document order
    CComPtr<IXMLDOMNode> none;
    EXPECT_EQ(doc->selectSingleNode(CComBSTR(L"//a[@n = 'x'"), &none), E_FAIL);
}

TEST(DomXPath, ContextNodesOfEveryKindCanBeQueried) {
    auto doc = Parsed(L"<r a='1'>x<c/></r>");
    auto attribute = Select(doc, L"/r/@a");
    EXPECT_EQ(Name(Select(attribute, L"..").p), L"r");
    auto text = Select(doc, L"/r/text()");
    EXPECT_EQ(Name(Select(text, L"following-sibling::*").p), L"c");
    // A node not in the document answers relative queries over its own subtree.
    CComPtr<IXMLDOMElement> loose, child;
    ASSERT_EQ(doc->createElement(CComBSTR(L"loose"), &loose), S_OK);
    ASSERT_EQ(doc->createElement(CComBSTR(L"inner"), &child), S_OK);
    ASSERT_EQ(loose->appendChild(child, nullptr), S_OK);
    EXPECT_EQ(Name(Select(loose, L"inner").p), L"inner");
}

TEST(DomXPath, DocumentsWithTheSameDeclarationsKeepThemApart) {
    constexpr wchar_t kOther[] = L"xmlns:psf='urn:other'";
    auto first = Parsed(kTicket);
    auto second = Parsed(kTicket);
    SetNamespaces(first, kFrameworkNs);
    SetNamespaces(second, kFrameworkNs);  // the same text: the declarations are shared
    EXPECT_EQ(Name(Select(first, L"/psf:PrintTicket").p), L"psf:PrintTicket");
    EXPECT_EQ(Name(Select(second, L"/psf:PrintTicket").p), L"psf:PrintTicket");

    // One document moves to other declarations: the other keeps its own, queries alternating
    // between them on the same thread each use the right ones.
    const unsigned long long before = platform::DomDocumentChangeStamp(second);
    SetNamespaces(first, kOther);
    EXPECT_EQ(platform::DomDocumentChangeStamp(second), before);
    for (int round = 0; round < 2; ++round) {
        CComPtr<IXMLDOMNode> none;
        EXPECT_EQ(first->selectSingleNode(CComBSTR(L"/psf:PrintTicket"), &none), S_FALSE);
        EXPECT_EQ(none, nullptr);
        EXPECT_EQ(Name(Select(second, L"/psf:PrintTicket").p), L"psf:PrintTicket");
    }

    // Back to the text another document parsed meanwhile: the stamp moves again, and what the
    // property reports is this document's text.
    const unsigned long long other = platform::DomDocumentChangeStamp(first);
    auto third = Parsed(kTicket);
    SetNamespaces(third, kFrameworkNs);
    SetNamespaces(first, kFrameworkNs);
    EXPECT_NE(platform::DomDocumentChangeStamp(first), other);
    EXPECT_EQ(Name(Select(first, L"/psf:PrintTicket").p), L"psf:PrintTicket");
    CComVariant stored;
    ASSERT_EQ(first->getProperty(CComBSTR(L"SelectionNamespaces"), &stored), S_OK);
    EXPECT_EQ(VarText(stored), kFrameworkNs);

    // A document whose declarations were set on another thread is queried here as usual.
    CComPtr<IXMLDOMDocument2> elsewhere;
    std::thread worker([&elsewhere] {
        elsewhere = Parsed(kTicket);
        SetNamespaces(elsewhere,
                      L"xmlns:f='http://schemas.microsoft.com/windows/2003/08/"
                      L"printing/printschemaframework'");
    });
    worker.join();
    CComPtr<IXMLDOMNode> none;
    EXPECT_EQ(elsewhere->selectSingleNode(CComBSTR(L"/psf:PrintTicket"), &none), E_FAIL);
    EXPECT_EQ(Name(Select(elsewhere, L"/f:PrintTicket/f:Feature/f:Option[@name = 'psk:ISOA4']").p),
              L"psf:Option");
}

namespace {

// Elements of one name nested in each other, in the framework namespace, in a default namespace,
// in no namespace, attributes in a namespace, and nodes of other kinds between them.
constexpr wchar_t kDocument[] =
    L"<?xml version='1.0'?><!-- first -->"
    L"<psf:PrintTicket xmlns:psf='http://schemas.microsoft.com/windows/2003/08/printing/"
    L"printschemaframework' xmlns:psk='urn:keywords' xmlns:q='urn:q' version='1'>"
    L"<psf:Feature name='psk:A'><psf:Option name='psk:One'><psf:ScoredProperty name='psk:W'>"
    L"<psf:Value>1</psf:Value></psf:ScoredProperty></psf:Option>"
    L"<psf:Feature name='psk:A'><psf:Option name='psk:Inner'/></psf:Feature></psf:Feature>"
    L"<?pi data?><psf:Feature q:name='psk:A'><psf:Option name=''/></psf:Feature>"
    L"<psf:Feature name='psk:B'><psf:ScoredProperty name='psk:BOptionName'>"
    L"<psf:Value>psk:Two</psf:Value></psf:ScoredProperty><psf:Option>text</psf:Option>"
    L"</psf:Feature>"
    L"<Feature name='psk:A'><Option name='plain'/></Feature>"
    L"<d xmlns='urn:default'><Feature name='psk:A'><Option/></Feature></d>"
    L"<psf:ParameterInit name='psk:P'><psf:Value>x//y</psf:Value></psf:ParameterInit>"
    L"</psf:PrintTicket>";
constexpr wchar_t kNamespaces[] =
    L"xmlns:psf='http://schemas.microsoft.com/windows/2003/08/printing/printschemaframework' "
    L"xmlns:d='urn:default'";

struct Selection {
    HRESULT hr = E_UNEXPECTED;
    std::vector<CComPtr<IXMLDOMNode>> nodes;
};

Selection SelectAll(IXMLDOMNode* context, const std::wstring& query) {
    Selection selection;
    CComPtr<IXMLDOMNodeList> list;
    selection.hr = context->selectNodes(CComBSTR(query.c_str()), &list);
    if (FAILED(selection.hr) || !list) return selection;
    for (LONG i = 0, length = Length(list); i < length; ++i) {
        CComPtr<IXMLDOMNode> node;
        EXPECT_EQ(list->get_item(i, &node), S_OK);
        selection.nodes.push_back(node);
    }
    return selection;
}

// The query and its explicit-axis spelling select the same nodes in the same order, and
// selectSingleNode gives the first of them.
void ExpectSameSelection(IXMLDOMNode* context, const std::wstring& query,
                         const std::wstring& explicitQuery, std::size_t expectedCount) {
    SCOPED_TRACE(query);
    Selection fast = SelectAll(context, query);
    Selection reference = SelectAll(context, explicitQuery);
    ASSERT_EQ(fast.hr, S_OK);
    ASSERT_EQ(reference.hr, S_OK);
    EXPECT_EQ(fast.nodes.size(), expectedCount);
    ASSERT_EQ(fast.nodes.size(), reference.nodes.size());
    for (std::size_t i = 0; i < fast.nodes.size(); ++i) {
        EXPECT_EQ(fast.nodes[i], reference.nodes[i]) << "node " << i;
    }
    CComPtr<IXMLDOMNode> first;
    const HRESULT hr = context->selectSingleNode(CComBSTR(query.c_str()), &first);
    if (fast.nodes.empty()) {
        EXPECT_EQ(hr, S_FALSE);
        EXPECT_EQ(first, nullptr);
    } else {
        EXPECT_EQ(hr, S_OK);
        EXPECT_EQ(first, fast.nodes.front());
    }
}

class DomXPathPaths : public ::testing::Test {
protected:
    void SetUp() override {
        doc = Parsed(kDocument);
        ASSERT_TRUE(doc);
        SetNamespaces(doc, kNamespaces);
    }
    CComPtr<IXMLDOMDocument2> doc;
};

}  // namespace

TEST_F(DomXPathPaths, EachPathSelectsWhatItsExplicitSpellingSelects) {
    const std::wstring all = L"/descendant-or-self::node()/child::";
    struct Row {
        const wchar_t* context;  // a query for the context node; null: the document
        std::wstring query, explicitQuery;
        std::size_t count;
    };
    const wchar_t* feature = L"/psf:PrintTicket/psf:Feature[1]";
    const Row rows[] = {
        // Descendant steps with attribute tests.
        {nullptr, L"//psf:Feature", all + L"psf:Feature", 4},
        {nullptr, L"//psf:Feature[@name = \"psk:A\"]",
         all + L"psf:Feature[attribute::name = \"psk:A\"]", 2},
        {nullptr, L"//psf:Feature[@name = 'psk:A']/psf:Option",
         all + L"psf:Feature[attribute::name = 'psk:A']/child::psf:Option", 2},
        {nullptr, L"//psf:Feature[@name]//psf:Value",
         all + L"psf:Feature[attribute::name]/descendant::psf:Value", 2},
        {nullptr, L"//*[@name]", all + L"*[attribute::name]", 12},
        {nullptr, L"//psf:*[@name = '']", all + L"psf:*[attribute::name = '']", 1},
        {nullptr, L"//psf:Option[@name][@name != 'x' or true()]",
         all + L"psf:Option[attribute::name][attribute::name != 'x' or true()]", 3},
        {nullptr, L"//psf:ParameterInit[@name = 'psk:P']/psf:Value",
         all + L"psf:ParameterInit[attribute::name = 'psk:P']/child::psf:Value", 1},
        {nullptr, L"//psf:Feature[@name = 'psk:Z']", all + L"psf:Feature[@name='psk:Z']", 0},
        // Names without a prefix are in no namespace.
        {nullptr, L"//Feature", all + L"Feature", 1},
        {nullptr, L"//Feature[@name = 'psk:A']/Option",
         all + L"Feature[attribute::name = 'psk:A']/child::Option", 1},
        {nullptr, L"//d:Feature/d:Option", all + L"d:Feature/child::d:Option", 1},
        {nullptr, L"//d:*", all + L"d:*", 3},
        {nullptr, L"//*", all + L"*", 20},
        // Absolute and relative child paths.
        {nullptr, L"/psf:PrintTicket/psf:Feature", L"/child::psf:PrintTicket/child::psf:Feature",
         3},
        {nullptr, L"/psf:Feature", L"/child::psf:Feature", 0},
        {nullptr, L"psf:PrintTicket", L"child::psf:PrintTicket", 1},
        {feature, L"psf:Option", L"child::psf:Option", 1},
        {feature, L"psf:Feature/psf:Option", L"child::psf:Feature/child::psf:Option", 1},
        {feature, L"psf:Option//psf:Value", L"child::psf:Option/descendant::psf:Value", 1},
        {feature, L"psf:Option | psf:Feature/psf:Option",
         L"child::psf:Option | child::psf:Feature/child::psf:Option", 2},
        // An absolute path from a node still searches the whole document.
        {feature, L"//psf:Option", L"/descendant::psf:Option", 4},
        // Unions come in document order, each node once. The Option of a Feature, or the Value
        // of its "...OptionName" ScoredProperty: the way a Feature's selected option is read.
        {nullptr,
         L"//psf:Feature[@name = \"psk:B\"]/psf:Option | "
         L"//psf:Feature[@name = \"psk:B\"]/psf:ScoredProperty[@name = \"psk:BOptionName\"]/"
         L"psf:Value",
         all + L"psf:Feature[attribute::name = \"psk:B\"]/child::psf:Option | " + all +
             L"psf:Feature[attribute::name = \"psk:B\"]/child::psf:ScoredProperty[attribute::name"
             L" = \"psk:BOptionName\"]/child::psf:Value",
         2},
        {nullptr, L"//psf:Value | //psf:Feature | //psf:Value",
         all + L"psf:Value | " + all + L"psf:Feature", 7},
    };
    for (const Row& row : rows) {
        CComPtr<IXMLDOMNode> context(doc.p);
        if (row.context != nullptr) context = Select(doc, row.context);
        ExpectSameSelection(context, row.query, row.explicitQuery, row.count);
    }
}

TEST_F(DomXPathPaths, ErrorsAndOtherShapesAreLibxml2s) {
    CComPtr<IXMLDOMNode> node;
    // An undeclared prefix, a path that does not parse, an empty name: failures as before.
    EXPECT_EQ(doc->selectSingleNode(CComBSTR(L"//undeclared:Feature"), &node), E_FAIL);
    EXPECT_EQ(doc->selectSingleNode(CComBSTR(L"//psf:Feature[@name = 'x'"), &node), E_FAIL);
    EXPECT_EQ(doc->selectSingleNode(CComBSTR(L"//psf:"), &node), E_FAIL);
    EXPECT_EQ(doc->selectSingleNode(CComBSTR(L"//psf:Feature/"), &node), E_FAIL);
    // The "xml" prefix is always bound; positions, text and attribute results stay libxml2's.
    EXPECT_EQ(doc->selectSingleNode(CComBSTR(L"//xml:Feature"), &node), S_FALSE);
    EXPECT_EQ(Name(Select(doc, L"/psf:PrintTicket/psf:Feature[3]/@name").p), L"name");
    EXPECT_EQ(Text(Select(doc, L"//psf:Option[@name = 'psk:Inner']/../@name").p), L"psk:A");
    EXPECT_EQ(Text(Select(doc, L"(//psf:Value)[last()]").p), L"x//y");

    // A namespaced attribute is not the attribute without namespace of the same name.
    EXPECT_EQ(Count(doc, L"//psf:Feature[@name]"), 3);
}

TEST_F(DomXPathPaths, AnAttributeInANamespaceWithoutPrefixIsLeftToLibxml2) {
    // Such an attribute (made by createNode) after a match: the walk gives up midway and the
    // answer is libxml2's, with each node once.
    CComPtr<IXMLDOMNode> created;
    ASSERT_EQ(doc->createNode(CComVariant(static_cast<int>(NODE_ATTRIBUTE)), CComBSTR(L"name"),
                              CComBSTR(L"urn:unprefixed"), &created),
              S_OK);
    CComQIPtr<IXMLDOMAttribute> attribute(created);
    ASSERT_TRUE(attribute);
    ASSERT_EQ(attribute->put_value(CComVariant(L"psk:A")), S_OK);
    CComQIPtr<IXMLDOMElement> last(Select(doc, L"//psf:ParameterInit"));
    ASSERT_TRUE(last);
    CComPtr<IXMLDOMAttribute> replaced;
    ASSERT_EQ(last->setAttributeNode(attribute, &replaced), S_OK);
    const std::wstring all = L"/descendant-or-self::node()/child::";
    ExpectSameSelection(
        doc, L"//psf:Feature[@name = 'psk:A'] | //psf:ParameterInit",
        all + L"psf:Feature[attribute::name = 'psk:A'] | " + all + L"psf:ParameterInit", 3);
}

TEST_F(DomXPathPaths, EditsAndDetachedNodesAreSeen) {
    // A Feature renamed, one removed, and a detached subtree queried relative to its root.
    CComPtr<IXMLDOMNode> feature = Select(doc, L"//psf:Feature[@name = 'psk:B']");
    ASSERT_TRUE(feature);
    CComQIPtr<IXMLDOMElement> element(feature);
    ASSERT_EQ(element->setAttribute(CComBSTR(L"name"), CComVariant(L"psk:C")), S_OK);
    ExpectSameSelection(doc, L"//psf:Feature[@name = 'psk:C']",
                        L"/descendant::psf:Feature[attribute::name = 'psk:C']", 1);
    CComPtr<IXMLDOMNode> parent;
    ASSERT_EQ(feature->get_parentNode(&parent), S_OK);
    CComPtr<IXMLDOMNode> removed;
    ASSERT_EQ(parent->removeChild(feature, &removed), S_OK);
    ExpectSameSelection(doc, L"//psf:Feature[@name = 'psk:C']",
                        L"/descendant::psf:Feature[attribute::name = 'psk:C']", 0);
    ExpectSameSelection(removed, L"psf:Option", L"child::psf:Option", 1);
    ExpectSameSelection(removed, L"psf:ScoredProperty[@name = 'psk:BOptionName']/psf:Value",
                        L"child::psf:ScoredProperty[attribute::name = 'psk:BOptionName']/"
                        L"child::psf:Value",
                        1);
}
