// dom_xpath_paths_test.cpp: the location paths the XPath engine evaluates by walking the tree
// (name steps, "/" and "//", attribute tests, unions) select exactly what libxml2 selects: each
// query is compared with the same query spelt with explicit axes, which the engine leaves to
// libxml2.
#include <gtest/gtest.h>

#include <string>
#include <vector>

#include "msxml_test_support.h"

using namespace msxmltest;

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
        CComPtr<IXMLDOMNode> context = doc;
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
