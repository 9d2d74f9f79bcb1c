// dom_smoke_test.cpp: first light for the DOM: create, load, query, edit, serialise.
#include "msxml_test_support.h"

using namespace msxmltest;

TEST(DomSmoke, LoadsSelectsAndSerialises) {
    auto doc = Parsed(
        L"<?xml version=\"1.0\" encoding=\"UTF-8\"?>\n<a xmlns:p=\"urn:p\"><p:b "
        L"x=\"1\">hi</p:b></a>");
    SetNamespaces(doc, L"xmlns:q='urn:p'");
    auto b = Select(doc, L"//q:b");
    EXPECT_EQ(Name(b.p), L"p:b");
    EXPECT_EQ(Text(b.p), L"hi");
    EXPECT_EQ(Xml(doc.p),
              L"<?xml version=\"1.0\"?>\r\n<a xmlns:p=\"urn:p\"><p:b x=\"1\">hi</p:b></a>\r\n");
    EXPECT_EQ(Xml(b.p), L"<p:b x=\"1\">hi</p:b>");
}
