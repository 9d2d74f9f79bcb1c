// dom_xpath_test.cpp: selectSingleNode/selectNodes of the MSXML stand-in: MSXML's return
// conventions, the SelectionNamespaces prefixes, bad expressions, node-list lifetime, and the
// compiled-expression cache.
#include <gtest/gtest.h>

#include <string>
#include <thread>
#include <utility>

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
