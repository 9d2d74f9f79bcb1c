// Tests of the document classes on hostile input: malformed XML, wrong roots and hostile names
// fail with the documented code or succeed, never crash (DTDs, size and depth limits are the
// DOM's, tested in dom_load_test).
#include <gtest/gtest.h>

#include "documenttesting.h"

using namespace documenttesting;

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
