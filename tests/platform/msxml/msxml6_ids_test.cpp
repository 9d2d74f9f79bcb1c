// Pins the interface and class identities of the MSXML 6 stand-in to the Windows values, so that
// code comparing IIDs, or persisting CLSIDs, sees what it would see on Windows.
#include <gtest/gtest.h>

#include "platform/msxml/msxml6.h"

namespace {

TEST(Msxml6Ids, DomInterfacesCarryTheWindowsIids) {
    EXPECT_EQ(platform::GuidToString(IID_IXMLDOMNode), "{2933BF80-7B36-11D2-B20E-00C04F983E60}");
    EXPECT_EQ(platform::GuidToString(IID_IXMLDOMDocument),
              "{2933BF81-7B36-11D2-B20E-00C04F983E60}");
    EXPECT_EQ(platform::GuidToString(IID_IXMLDOMNodeList),
              "{2933BF82-7B36-11D2-B20E-00C04F983E60}");
    EXPECT_EQ(platform::GuidToString(IID_IXMLDOMNamedNodeMap),
              "{2933BF83-7B36-11D2-B20E-00C04F983E60}");
    EXPECT_EQ(platform::GuidToString(IID_IXMLDOMAttribute),
              "{2933BF85-7B36-11D2-B20E-00C04F983E60}");
    EXPECT_EQ(platform::GuidToString(IID_IXMLDOMElement), "{2933BF86-7B36-11D2-B20E-00C04F983E60}");
    EXPECT_EQ(platform::GuidToString(IID_IXMLDOMText), "{2933BF87-7B36-11D2-B20E-00C04F983E60}");
    EXPECT_EQ(platform::GuidToString(IID_IXMLDOMDocument2),
              "{2933BF95-7B36-11D2-B20E-00C04F983E60}");
    EXPECT_EQ(platform::GuidToString(IID_IXMLDOMParseError),
              "{3EFAA426-272F-11D2-836F-0000F87A7782}");
    EXPECT_EQ(platform::GuidToString(__uuidof(IXMLDOMDocument2)),
              platform::GuidToString(IID_IXMLDOMDocument2));
}

TEST(Msxml6Ids, SaxInterfacesAndClassesCarryTheWindowsIds) {
    EXPECT_EQ(platform::GuidToString(IID_ISAXContentHandler),
              "{1545CDFA-9E4E-4497-A8A4-2BF7D0112C44}");
    EXPECT_EQ(platform::GuidToString(IID_ISAXAttributes), "{F078ABE1-45D2-4832-91EA-4466CE2F25C9}");
    EXPECT_EQ(platform::GuidToString(IID_ISAXLocator), "{9B7E472A-0DE4-4640-BFF3-84D38A051C31}");
    EXPECT_EQ(platform::GuidToString(IID_ISAXXMLReader), "{A4F96ED0-F829-476E-81C0-CDC7BD2A0802}");
    EXPECT_EQ(platform::GuidToString(CLSID_DOMDocument60),
              "{88D96A05-F192-11D4-A65F-0040963251E5}");
    EXPECT_EQ(platform::GuidToString(CLSID_SAXXMLReader60),
              "{88D96A0C-F192-11D4-A65F-0040963251E5}");
}

TEST(Msxml6Ids, NodeTypesHaveMsxmlValues) {
    EXPECT_EQ(NODE_ELEMENT, 1);
    EXPECT_EQ(NODE_ATTRIBUTE, 2);
    EXPECT_EQ(NODE_TEXT, 3);
    EXPECT_EQ(NODE_PROCESSING_INSTRUCTION, 7);
    EXPECT_EQ(NODE_DOCUMENT, 9);
    EXPECT_EQ(NODE_DOCUMENT_FRAGMENT, 11);
    EXPECT_TRUE(FAILED(platform::kXmlDtdProhibited));
}

}  // namespace
