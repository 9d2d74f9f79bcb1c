// Tests of the document classes on hostile input: malformed XML, DOCTYPEs and entities, wrong
// roots, a 10 MB ticket and deep nesting fail with the documented code or succeed, never crash.
#include <gtest/gtest.h>

#include <chrono>

#include "documenttesting.h"

using namespace documenttesting;

namespace {

std::string TicketBytes(const std::string& body) {
    return "<?xml version=\"1.0\" encoding=\"UTF-8\"?>" +
           platform::WideToUtf8(Ticket(platform::Utf8ToWide(body)));
}

}  // namespace

TEST(DocumentBadInput, MalformedXmlDoesNotLoadAndAnEmptyDomIsNotATicket) {
    for (const char* text : {"<psf:PrintTicket", "", "not xml at all", "<a><b></a>",
                             "<psf:PrintTicket xmlns:psf='x'><psf:Feature name='a' name='b'/>"
                             "</psf:PrintTicket>",
                             "\xff\xfe\x00<\x00"}) {
        SCOPED_TRACE(text);
        HRESULT hr = S_OK;
        EXPECT_EQ(TryLoadBytes(text, &hr), nullptr);
    }
    // A DOM that never loaded has no root: the ticket wrapper rejects it like a wrong root.
    CComPtr<IXMLDOMDocument2> empty = NewDom();
    EXPECT_EQ(ThrownHresult([&] { PrintTicketXmlDocument ticket(empty); }), S_FALSE);
}

TEST(DocumentBadInput, DoctypeAndEntitiesAreRefused) {
    const std::string laughs =
        "<?xml version=\"1.0\"?><!DOCTYPE lolz [<!ENTITY lol \"lol\">"
        "<!ENTITY lol2 \"&lol;&lol;&lol;&lol;&lol;&lol;&lol;&lol;&lol;&lol;\">"
        "<!ENTITY lol3 \"&lol2;&lol2;&lol2;&lol2;&lol2;&lol2;&lol2;&lol2;&lol2;&lol2;\">]>"
        "<psf:PrintTicket xmlns:psf='" +
        platform::WideToUtf8(kFramework) + "'>&lol3;</psf:PrintTicket>";
    EXPECT_EQ(TryLoadBytes(laughs), nullptr);
    const std::string external =
        "<?xml version=\"1.0\"?><!DOCTYPE t [<!ENTITY x SYSTEM \"file:///etc/passwd\">]>"
        "<psf:PrintTicket xmlns:psf='" +
        platform::WideToUtf8(kFramework) + "'>&x;</psf:PrintTicket>";
    EXPECT_EQ(TryLoadBytes(external), nullptr);
    const std::string plain = "<!DOCTYPE PrintTicket><psf:PrintTicket xmlns:psf='" +
                              platform::WideToUtf8(kFramework) + "'/>";
    EXPECT_EQ(TryLoadBytes(plain), nullptr);
}

TEST(DocumentBadInput, WrongRootsAndNamespaces) {
    const std::wstring roots[] = {L"<PrintTicket/>",
                                  L"<psf:PrintTicket xmlns:psf='urn:not-print-schema'/>",
                                  L"<psf:printticket xmlns:psf='" + kFramework + L"'/>",
                                  L"<psf:Feature xmlns:psf='" + kFramework + L"'/>"};
    for (const std::wstring& xml : roots) {
        SCOPED_TRACE(Utf8(xml.c_str()));
        CComPtr<IXMLDOMDocument2> dom = LoadXml(xml);
        EXPECT_EQ(ThrownHresult([&] { PrintTicketXmlDocument ticket(dom); }), S_FALSE);
    }
}

TEST(DocumentBadInput, TenMegabyteTicketIsReadInBoundedTime) {
    // Two 4 MB parameter values and 30,000 Features: over 10 MB in all.
    const std::string payload(4 * 1024 * 1024, 'A');
    std::string body;
    for (const char* name : {"ns0000:BlobA", "ns0000:BlobB"}) {
        body += std::string("<psf:ParameterInit name=\"") + name + "\"><psf:Value>" + payload +
                "</psf:Value></psf:ParameterInit>";
    }
    for (int i = 0; i < 30000; ++i) {
        body += "<psf:Feature name=\"psk:F" + std::to_string(i) + "\"><psf:Option name=\"psk:O" +
                std::to_string(i) + "\"/></psf:Feature>";
    }
    body +=
        "<psf:Feature name=\"psk:PageMediaSize\"><psf:Option name=\"psk:ISOA4\"/></psf:Feature>";
    const std::string bytes = TicketBytes(body);
    ASSERT_GT(bytes.size(), 10u * 1024 * 1024);
    const auto start = std::chrono::steady_clock::now();
    CComPtr<IXMLDOMDocument2> dom = TryLoadBytes(bytes);
    ASSERT_NE(dom, nullptr);
    PrintTicketXmlDocument ticket(dom);
    CComBSTR option;
    EXPECT_EQ(ticket.GetFeatureOption(L"PageMediaSize", &option), S_OK);
    EXPECT_STREQ(option, L"ISOA4");
    CComBSTR last;
    EXPECT_EQ(ticket.GetFeatureOption(L"F29999", &last), S_OK);
    EXPECT_STREQ(last, L"O29999");
    CComPtr<IXMLDOMNode> value;
    ASSERT_EQ(ticket.GetParameterInitValueNodeIfExists(L"ns0000:", L"BlobB", &value), S_OK);
    CComBSTR text;
    ASSERT_EQ(value->get_text(&text), S_OK);
    EXPECT_EQ(text.Length(), payload.size());
    EXPECT_LT(std::chrono::steady_clock::now() - start, std::chrono::seconds(60));
}

TEST(DocumentBadInput, OversizedTextNodeFailsCleanlyOrLoadsWhole) {
    // One text node above the parser's 10,000,000-character limit for a single text.
    const std::string payload(10 * 1024 * 1024, 'A');
    CComPtr<IXMLDOMDocument2> dom =
        TryLoadBytes(TicketBytes("<psf:ParameterInit name=\"ns0000:Blob\"><psf:Value>" + payload +
                                 "</psf:Value></psf:ParameterInit>"));
    if (dom) {
        PrintTicketXmlDocument ticket(dom);
        CComPtr<IXMLDOMNode> value;
        ASSERT_EQ(ticket.GetParameterInitValueNodeIfExists(L"ns0000:", L"Blob", &value), S_OK);
        CComBSTR text;
        ASSERT_EQ(value->get_text(&text), S_OK);
        EXPECT_EQ(text.Length(), payload.size());
    }
}

TEST(DocumentBadInput, DeepNestingFailsToLoadOrIsHandled) {
    // Far deeper than any ticket: the loader may refuse it; if it loads, queries still work.
    constexpr int kDepth = 100000;
    std::string body;
    body.reserve(kDepth * 40);
    for (int i = 0; i < kDepth; ++i) body += "<psf:Feature name=\"psk:Nest\">";
    body += "<psf:Option name=\"psk:Deepest\"/>";
    for (int i = 0; i < kDepth; ++i) body += "</psf:Feature>";
    CComPtr<IXMLDOMDocument2> dom = TryLoadBytes(TicketBytes(body));
    if (dom) {
        PrintTicketXmlDocument ticket(dom);
        CComBSTR option;
        const HRESULT hr = ticket.GetFeatureOption(L"Nest", &option);
        EXPECT_TRUE(hr == S_OK || hr == kNotFound);
    }
}

TEST(DocumentBadInput, ModerateNestingIsRead) {
    constexpr int kDepth = 200;
    std::string body;
    for (int i = 0; i < kDepth; ++i)
        body += "<psf:Feature name=\"psk:L" + std::to_string(i) + "\">";
    body += "<psf:Option name=\"psk:Deepest\"/>";
    for (int i = 0; i < kDepth; ++i) body += "</psf:Feature>";
    CComPtr<IXMLDOMDocument2> dom = TryLoadBytes(TicketBytes(body));
    ASSERT_NE(dom, nullptr);
    PrintTicketXmlDocument ticket(dom);
    CComBSTR option;
    EXPECT_EQ(ticket.GetFeatureOption(L"L199", &option), S_OK);
    EXPECT_STREQ(option, L"Deepest");
    CComBSTR sub;
    EXPECT_EQ(ticket.GetSubFeatureOption(L"L0", L"L199", &sub), S_OK);
    EXPECT_STREQ(sub, L"Deepest");
}

TEST(DocumentBadInput, HostileNamesDoNotBreakQueries) {
    CComPtr<IXMLDOMDocument2> dom = LoadXml(
        Ticket(L"<psf:Feature name='psk:Quote\"d'><psf:Option name='psk:X'/></psf:Feature>"));
    PrintTicketXmlDocument ticket(dom);
    CComBSTR option;
    // The name makes an invalid XPath: the DOM's failure is thrown, nothing else happens.
    const auto thrown = ThrownHresult([&] { ticket.GetFeatureOption(L"Quote\"d", &option); });
    ASSERT_TRUE(thrown.has_value());
    EXPECT_TRUE(FAILED(*thrown));
    EXPECT_EQ(option.m_str, nullptr);
    // Names with XML-special characters are only text to the DOM.
    CComPtr<IXMLDOMElement> init;
    ticket.CreateStringParameterInit(L"psk:", L"Amp", L"<&>\"'", &init);
    ticket.AppendChildToRootNode(init);
    RawXml raw(XmlOf(ticket));
    EXPECT_EQ(raw.Strings("//psf:ParameterInit[@name='psk:Amp']/psf:Value"),
              std::vector<std::string>{"<&>\"'"});
}
