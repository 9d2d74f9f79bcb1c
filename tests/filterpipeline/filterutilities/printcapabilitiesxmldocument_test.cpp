// Tests of PrintCapabilitiesXmlDocument: Feature, Option and ParameterDef builders (children,
// order, number formats) and the node-relative Option, DisplayName and ScoredProperty queries.
#include "filterpipeline/filterutilities/printcapabilitiesxmldocument.h"

#include <gtest/gtest.h>

#include "documenttesting.h"

using namespace documenttesting;

namespace {

const std::wstring kCapabilitiesBody =
    L"<psf:Feature name='psk:PageMediaSize'>"
    L"  <psf:Property name='psf:SelectionType'>"
    L"    <psf:Value xsi:type='xsd:QName'>psk:PickOne</psf:Value></psf:Property>"
    L"  <psf:Option name='psk:ISOA4'>"
    L"    <psf:Property name='psk:DisplayName'><psf:Value xsi:type='xsd:string'>A4</psf:Value>"
    L"    </psf:Property>"
    L"    <psf:ScoredProperty name='psk:MediaSizeWidth'>"
    L"      <psf:Value xsi:type='xsd:integer'>210000</psf:Value></psf:ScoredProperty>"
    L"  </psf:Option>"
    L"  <psf:Option name='psk:ISOA5'/>"
    L"  <psf:Option><psf:ScoredProperty name='psk:PagesPerSheet'>"
    L"    <psf:Value xsi:type='xsd:integer'>2</psf:Value></psf:ScoredProperty></psf:Option>"
    L"</psf:Feature>"
    L"<psf:ParameterDef name='psk:JobCopiesAllDocuments'/>";

class PrintCapabilitiesDocumentTest : public ::testing::Test {
protected:
    PrintCapabilitiesDocumentTest() : m_capabilities(LoadXml(Capabilities(kCapabilitiesBody))) {}

    RawXml Attach(IXMLDOMElement* element) {
        m_capabilities.AppendChildToRootNode(element);
        return RawXml(XmlOf(m_capabilities));
    }

    CComPtr<IXMLDOMNode> Feature() {
        CComPtr<IXMLDOMNode> feature;
        EXPECT_EQ(m_capabilities.GetFeatureNodeIfExists(L"psk:", L"PageMediaSize", &feature), S_OK);
        return feature;
    }

    PrintCapabilitiesXmlDocument m_capabilities;
};

}  // namespace

TEST_F(PrintCapabilitiesDocumentTest, PickOneFeatureWithDisplayName) {
    CComPtr<IXMLDOMElement> feature;
    EXPECT_EQ(m_capabilities.CreatePickOneFeature(L"JobStaple", L"Staple", &feature), S_OK);
    CComPtr<IXMLDOMElement> plain;
    EXPECT_EQ(m_capabilities.CreateFeature(L"JobPunch", L"", &plain), S_OK);
    m_capabilities.AppendChildToRootNode(plain);
    RawXml raw = Attach(feature);
    EXPECT_EQ(raw.Strings("//psf:Feature[@name='psk:JobStaple']/psf:Property/@name"),
              (std::vector<std::string>{"psk:DisplayName", "psf:SelectionType"}));
    EXPECT_EQ(raw.Strings("//psf:Feature[@name='psk:JobStaple']/psf:Property/psf:Value"),
              (std::vector<std::string>{"Staple", "psk:PickOne"}));
    EXPECT_EQ(raw.Strings("//psf:Feature[@name='psk:JobStaple']/psf:Property/psf:Value/@xsi:type"),
              (std::vector<std::string>{"xsd:string", "xsd:QName"}));
    EXPECT_EQ(raw.Count("//psf:Feature[@name='psk:JobPunch']/*"), 0u);
}

TEST_F(PrintCapabilitiesDocumentTest, OptionTakesLocalNameFirstAndPrefixSecond) {
    CComPtr<IXMLDOMNode> feature = Feature();
    CComQIPtr<IXMLDOMElement> featureElement(feature);
    m_capabilities.CreateAndAppendOption(L"ISOA3", L"psk:", L"A3", L"None", featureElement);
    CComPtr<IXMLDOMElement> bare;
    EXPECT_EQ(m_capabilities.CreateOption(L"Custom", L"ns0000:", nullptr, nullptr, &bare), S_OK);
    RawXml raw = Attach(bare);
    EXPECT_EQ(raw.Strings("//psf:Option[@name='psk:ISOA3']/@constrained"),
              std::vector<std::string>{"psk:None"});
    EXPECT_EQ(raw.Strings("//psf:Option[@name='psk:ISOA3']/psf:Property/psf:Value"),
              std::vector<std::string>{"A3"});
    EXPECT_EQ(raw.Count("//psf:Option[@name='ns0000:Custom']/node()"), 0u);
    EXPECT_EQ(raw.Count("//psf:Option[@name='ns0000:Custom']/@constrained"), 0u);
    CComPtr<IXMLDOMElement> option;
    EXPECT_EQ(ThrownHresult([&] { m_capabilities.CreateOption(L"A", L"", L"", L"", &option); }),
              E_INVALIDARG);
    EXPECT_EQ(ThrownHresult([&] { m_capabilities.CreateOption(L"", L"p:", L"", L"", &option); }),
              E_INVALIDARG);
}

TEST_F(PrintCapabilitiesDocumentTest, IntegerParameterDefChildrenInOrder) {
    CComPtr<IXMLDOMElement> full;
    EXPECT_EQ(m_capabilities.CreateIntegerParameterDef(L"psk:", L"JobCopies", L"Unconditional",
                                                       L"Copies", 1, 1, 999, 2, L"copies", &full),
              S_OK);
    CComPtr<IXMLDOMElement> minimal;
    EXPECT_EQ(m_capabilities.CreateIntegerParameterDef(L"ns0000:", L"Lines", L"Optional", L"", -5,
                                                       -10, 10, 0, L"lines", &minimal),
              S_OK);
    m_capabilities.AppendChildToRootNode(full);
    RawXml raw = Attach(minimal);
    const char* fullNames = "//psf:ParameterDef[@name='psk:JobCopies']/psf:Property/@name";
    EXPECT_EQ(raw.Strings(fullNames),
              (std::vector<std::string>{"psf:DataType", "psf:DefaultValue", "psf:MaxValue",
                                        "psf:MinValue", "psf:Mandatory", "psf:UnitType",
                                        "psf:Multiple", "psk:DisplayName"}));
    EXPECT_EQ(raw.Strings("//psf:ParameterDef[@name='psk:JobCopies']/psf:Property/psf:Value"),
              (std::vector<std::string>{"xsd:integer", "1", "999", "1", "psk:Unconditional",
                                        "copies", "2", "Copies"}));
    EXPECT_EQ(
        raw.Strings("//psf:ParameterDef[@name='psk:JobCopies']/psf:Property/psf:Value/@xsi:type"),
        (std::vector<std::string>{"xsd:QName", "xsd:integer", "xsd:integer", "xsd:integer",
                                  "xsd:QName", "xsd:string", "xsd:integer", "xsd:string"}));
    // Multiple 0 and an empty display name leave those children out. A name under the private
    // placeholder prefix is written under the private prefix, declared for the occasion.
    EXPECT_EQ(raw.Strings("//psf:ParameterDef[@name='zk:Lines']/psf:Property/@name"),
              (std::vector<std::string>{"psf:DataType", "psf:DefaultValue", "psf:MaxValue",
                                        "psf:MinValue", "psf:Mandatory", "psf:UnitType"}));
    EXPECT_EQ(
        raw.Strings("//psf:ParameterDef[@name='zk:Lines']/psf:Property/psf:Value"),
        (std::vector<std::string>{"xsd:integer", "-5", "10", "-10", "psk:Optional", "lines"}));
}

TEST_F(PrintCapabilitiesDocumentTest, RealParameterDefWritesTwoDecimals) {
    CComPtr<IXMLDOMElement> def;
    EXPECT_EQ(m_capabilities.CreateRealParameterDef(L"psk:", L"Scale", L"Optional", L"Scale", 1.5F,
                                                    0.25F, 400.0F, 0.5F, L"percent", &def),
              S_OK);
    CComPtr<IXMLDOMElement> noMultiple;
    EXPECT_EQ(m_capabilities.CreateRealParameterDef(L"psk:", L"Gamma", L"Optional", L"", 1.5F, 1.5F,
                                                    1.5F, 0.0F, L"none", &noMultiple),
              S_OK);
    m_capabilities.AppendChildToRootNode(def);
    RawXml raw = Attach(noMultiple);
    EXPECT_EQ(raw.Strings("//psf:ParameterDef[@name='psk:Scale']/psf:Property/@name"),
              (std::vector<std::string>{"psf:DataType", "psf:DefaultValue", "psf:MaxValue",
                                        "psf:MinValue", "psf:Mandatory", "psf:UnitType",
                                        "psf:Multiple", "psk:DisplayName"}));
    EXPECT_EQ(raw.Strings("//psf:ParameterDef[@name='psk:Scale']/psf:Property/psf:Value"),
              (std::vector<std::string>{"xsd:decimal", "1.50", "400.00", "0.25", "psk:Optional",
                                        "percent", "0.50", "Scale"}));
    EXPECT_EQ(raw.Strings("//psf:ParameterDef[@name='psk:Scale']/psf:Property/psf:Value/@xsi:type"),
              (std::vector<std::string>{"xsd:QName", "xsd:string", "xsd:decimal", "xsd:decimal",
                                        "xsd:QName", "xsd:string", "xsd:decimal", "xsd:string"}));
    EXPECT_EQ(
        raw.Strings("//psf:ParameterDef[@name='psk:Gamma']/psf:Property/psf:Value"),
        (std::vector<std::string>{"xsd:decimal", "1.50", "1.50", "1.50", "psk:Optional", "none"}));
}

TEST_F(PrintCapabilitiesDocumentTest, StringParameterDefPutsTheDefaultLast) {
    CComPtr<IXMLDOMElement> def;
    EXPECT_EQ(
        m_capabilities.CreateStringParameterDef(L"psk:", L"JobPasscodeString", L"Conditional",
                                                L"Passcode", L"0000", 4, 8, L"characters", &def),
        S_OK);
    CComPtr<IXMLDOMElement> noDefault;
    EXPECT_EQ(m_capabilities.CreateStringParameterDef(L"psk:", L"Empty", L"Optional", L"", L"", 0,
                                                      16, L"characters", &noDefault),
              S_OK);
    m_capabilities.AppendChildToRootNode(def);
    RawXml raw = Attach(noDefault);
    EXPECT_EQ(
        raw.Strings("//psf:ParameterDef[@name='psk:JobPasscodeString']/psf:Property/@name"),
        (std::vector<std::string>{"psf:DataType", "psf:MaxLength", "psf:MinLength", "psf:Mandatory",
                                  "psf:UnitType", "psk:DisplayName", "psf:DefaultValue"}));
    EXPECT_EQ(
        raw.Strings("//psf:ParameterDef[@name='psk:JobPasscodeString']/psf:Property/psf:Value"),
        (std::vector<std::string>{"xsd:string", "8", "4", "psk:Conditional", "characters",
                                  "Passcode", "0000"}));
    EXPECT_EQ(raw.Count("//psf:ParameterDef[@name='psk:Empty']/psf:Property"), 5u);
}

TEST_F(PrintCapabilitiesDocumentTest, ParameterDefArgumentChecks) {
    CComPtr<IXMLDOMElement> def;
    EXPECT_EQ(ThrownHresult([&] {
                  m_capabilities.CreateIntegerParameterDef(L"psk:", L"", L"Optional", L"", 0, 0, 1,
                                                           0, L"u", &def);
              }),
              E_INVALIDARG);
    EXPECT_EQ(ThrownHresult([&] {
                  m_capabilities.CreateRealParameterDef(L"psk:", L"R", L"Optional", L"", 0, 0, 1, 0,
                                                        L"u", nullptr);
              }),
              E_POINTER);
}

TEST_F(PrintCapabilitiesDocumentTest, ParameterDefLookupAndDeletion) {
    CComPtr<IXMLDOMNode> def;
    EXPECT_EQ(m_capabilities.GetParameterDefNodeIfExists(L"psk:", L"JobCopiesAllDocuments", &def),
              S_OK);
    EXPECT_EQ(m_capabilities.DeleteParameterDefNodeIfExists(L"psk:", L"JobCopiesAllDocuments"),
              S_OK);
    EXPECT_EQ(m_capabilities.DeleteParameterDefNodeIfExists(L"psk:", L"JobCopiesAllDocuments"),
              S_FALSE);
    CComPtr<IXMLDOMNode> none;
    EXPECT_EQ(m_capabilities.GetParameterDefNodeIfExists(L"psk:", L"JobCopiesAllDocuments", &none),
              S_FALSE);
}

TEST_F(PrintCapabilitiesDocumentTest, ChildOptionQueries) {
    CComPtr<IXMLDOMNode> feature = Feature();
    CComPtr<IXMLDOMNodeList> options = m_capabilities.GetChildOptionNodes(feature);
    LONG count = 0;
    options->get_length(&count);
    EXPECT_EQ(count, 3);
    CComPtr<IXMLDOMNode> option;
    EXPECT_EQ(m_capabilities.GetChildOptionNodeIfExists(feature, L"psk:", L"ISOA5", &option), S_OK);
    CComPtr<IXMLDOMNode> absent;
    EXPECT_EQ(m_capabilities.GetChildOptionNodeIfExists(feature, L"psk:", L"ISOA0", &absent),
              S_FALSE);
    EXPECT_EQ(absent, nullptr);
    EXPECT_EQ(ThrownHresult([&] { m_capabilities.GetChildOptionNodes(nullptr); }), E_POINTER);
}

TEST_F(PrintCapabilitiesDocumentTest, DisplayNameReplacement) {
    CComPtr<IXMLDOMNode> feature = Feature();
    EXPECT_EQ(m_capabilities.ReplaceOptionDisplayNamePropertyValue(feature, L"psk:", L"ISOA4",
                                                                   L"A4 (210 x 297 mm)"),
              S_OK);
    const std::string before = XmlOf(m_capabilities);
    EXPECT_EQ(
        m_capabilities.ReplaceOptionDisplayNamePropertyValue(feature, L"psk:", L"ISOA5", L"A5"),
        kNotFound);
    EXPECT_EQ(
        m_capabilities.ReplaceOptionDisplayNamePropertyValue(feature, L"psk:", L"ISOA0", L"A0"),
        kNotFound);
    EXPECT_EQ(XmlOf(m_capabilities), before);  // nothing changed
    RawXml raw(before);
    EXPECT_EQ(raw.Strings("//psf:Option[@name='psk:ISOA4']/psf:Property/psf:Value"),
              std::vector<std::string>{"A4 (210 x 297 mm)"});
    EXPECT_EQ(ThrownHresult([&] { m_capabilities.ReplaceDisplayNamePropertyValue(nullptr, L"x"); }),
              E_INVALIDARG);
}

TEST_F(PrintCapabilitiesDocumentTest, ScoredPropertyBelowANode) {
    CComPtr<IXMLDOMNode> feature = Feature();
    EXPECT_EQ(m_capabilities.GetChildScoredPropertyValueAsInteger(feature, L"MediaSizeWidth"),
              210000);
    EXPECT_EQ(std::wstring(static_cast<const wchar_t*>(
                  m_capabilities.GetChildScoredPropertyValueAsString(feature, L"PagesPerSheet"))),
              L"2");
    EXPECT_EQ(ThrownHresult(
                  [&] { m_capabilities.GetChildScoredPropertyValueAsString(feature, L"Missing"); }),
              E_FAIL);
}
