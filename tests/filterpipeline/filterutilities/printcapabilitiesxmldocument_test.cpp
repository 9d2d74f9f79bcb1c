// Tests of PrintCapabilitiesXmlDocument: Feature, Option and ParameterDef builders (children,
// order, number formats) and the node-relative Option, DisplayName and ScoredProperty queries.
#include "filterpipeline/filterutilities/printcapabilitiesxmldocument.h"

#include <gtest/gtest.h>

#include <functional>

#include "documenttesting.h"

using namespace documenttesting;
using Strings = std::vector<std::string>;

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

// "name=value type" of each Property child of the element the step selects, in order.
Strings Properties(const RawXml& raw, const std::string& element) {
    const std::string step = element + "/psf:Property";
    const Strings names = raw.Strings((step + "/@name").c_str());
    const Strings values = raw.Strings((step + "/psf:Value").c_str());
    const Strings types = raw.Strings((step + "/psf:Value/@xsi:type").c_str());
    EXPECT_TRUE(names.size() == values.size() && values.size() == types.size()) << element;
    Strings properties;
    for (std::size_t i = 0; i < names.size() && i < values.size() && i < types.size(); ++i) {
        properties.push_back(names[i] + "=" + values[i] + " " + types[i]);
    }
    return properties;
}

}  // namespace

TEST_F(PrintCapabilitiesDocumentTest, FeatureAndOptionBuilders) {
    CComPtr<IXMLDOMElement> feature, plain, bare;
    EXPECT_EQ(m_capabilities.CreatePickOneFeature(L"JobStaple", L"Staple", &feature), S_OK);
    EXPECT_EQ(m_capabilities.CreateFeature(L"JobPunch", L"", &plain), S_OK);
    m_capabilities.AppendChildToRootNode(plain);
    m_capabilities.AppendChildToRootNode(feature);
    // An Option takes its local name first and its prefix second.
    CComQIPtr<IXMLDOMElement> media(Feature());
    m_capabilities.CreateAndAppendOption(L"ISOA3", L"psk:", L"A3", L"None", media);
    EXPECT_EQ(m_capabilities.CreateOption(L"Custom", L"ns0000:", nullptr, nullptr, &bare), S_OK);
    RawXml raw = Attach(bare);
    EXPECT_EQ(
        Properties(raw, "//psf:Feature[@name='psk:JobStaple']"),
        (Strings{"psk:DisplayName=Staple xsd:string", "psf:SelectionType=psk:PickOne xsd:QName"}));
    EXPECT_EQ(raw.Count("//psf:Feature[@name='psk:JobPunch']/*"), 0u);
    EXPECT_EQ(raw.Strings("//psf:Option[@name='psk:ISOA3']/@constrained"), Strings{"psk:None"});
    EXPECT_EQ(raw.Strings("//psf:Option[@name='psk:ISOA3']/psf:Property/psf:Value"), Strings{"A3"});
    EXPECT_EQ(raw.Count("//psf:Option[@name='ns0000:Custom']/node()"), 0u);
    EXPECT_EQ(raw.Count("//psf:Option[@name='ns0000:Custom']/@constrained"), 0u);
    CComPtr<IXMLDOMElement> option;
    EXPECT_THROWS_HR(m_capabilities.CreateOption(L"A", L"", L"", L"", &option), E_INVALIDARG);
    EXPECT_THROWS_HR(m_capabilities.CreateOption(L"", L"p:", L"", L"", &option), E_INVALIDARG);
}

// Integer, real (two decimals) and string ParameterDefs: their children in order; a Multiple of
// 0, an empty display name or an empty default leave those children out. A name under the
// private placeholder prefix is written under the private prefix, declared for the occasion.
TEST_F(PrintCapabilitiesDocumentTest, ParameterDefChildrenInOrder) {
    using Create = std::function<HRESULT(PrintCapabilitiesXmlDocument&, IXMLDOMElement**)>;
    const struct Row {
        const char* name;
        Create create;
        Strings properties;
    } rows[] = {
        // clang-format off
        {"psk:JobCopies", [](auto& d, auto** e) { return d.CreateIntegerParameterDef(
             L"psk:", L"JobCopies", L"Unconditional", L"Copies", 1, 1, 999, 2, L"copies", e); },
         {"psf:DataType=xsd:integer xsd:QName", "psf:DefaultValue=1 xsd:integer",
          "psf:MaxValue=999 xsd:integer", "psf:MinValue=1 xsd:integer",
          "psf:Mandatory=psk:Unconditional xsd:QName", "psf:UnitType=copies xsd:string",
          "psf:Multiple=2 xsd:integer", "psk:DisplayName=Copies xsd:string"}},
        {"zk:Lines", [](auto& d, auto** e) { return d.CreateIntegerParameterDef(
             L"ns0000:", L"Lines", L"Optional", L"", -5, -10, 10, 0, L"lines", e); },
         {"psf:DataType=xsd:integer xsd:QName", "psf:DefaultValue=-5 xsd:integer",
          "psf:MaxValue=10 xsd:integer", "psf:MinValue=-10 xsd:integer",
          "psf:Mandatory=psk:Optional xsd:QName", "psf:UnitType=lines xsd:string"}},
        {"psk:Scale", [](auto& d, auto** e) { return d.CreateRealParameterDef(
             L"psk:", L"Scale", L"Optional", L"Scale", 1.5F, 0.25F, 400.0F, 0.5F, L"percent", e); },
         {"psf:DataType=xsd:decimal xsd:QName", "psf:DefaultValue=1.50 xsd:string",
          "psf:MaxValue=400.00 xsd:decimal", "psf:MinValue=0.25 xsd:decimal",
          "psf:Mandatory=psk:Optional xsd:QName", "psf:UnitType=percent xsd:string",
          "psf:Multiple=0.50 xsd:decimal", "psk:DisplayName=Scale xsd:string"}},
        {"psk:Gamma", [](auto& d, auto** e) { return d.CreateRealParameterDef(
             L"psk:", L"Gamma", L"Optional", L"", 1.5F, 1.5F, 1.5F, 0.0F, L"none", e); },
         {"psf:DataType=xsd:decimal xsd:QName", "psf:DefaultValue=1.50 xsd:string",
          "psf:MaxValue=1.50 xsd:decimal", "psf:MinValue=1.50 xsd:decimal",
          "psf:Mandatory=psk:Optional xsd:QName", "psf:UnitType=none xsd:string"}},
        {"psk:JobPasscodeString", [](auto& d, auto** e) { return d.CreateStringParameterDef(
             L"psk:", L"JobPasscodeString", L"Conditional", L"Passcode", L"0000", 4, 8,
             L"characters", e); },
         {"psf:DataType=xsd:string xsd:QName", "psf:MaxLength=8 xsd:integer",
          "psf:MinLength=4 xsd:integer", "psf:Mandatory=psk:Conditional xsd:QName",
          "psf:UnitType=characters xsd:string", "psk:DisplayName=Passcode xsd:string",
          "psf:DefaultValue=0000 xsd:string"}},
        {"psk:Empty", [](auto& d, auto** e) { return d.CreateStringParameterDef(
             L"psk:", L"Empty", L"Optional", L"", L"", 0, 16, L"characters", e); },
         {"psf:DataType=xsd:string xsd:QName", "psf:MaxLength=16 xsd:integer",
          "psf:MinLength=0 xsd:integer", "psf:Mandatory=psk:Optional xsd:QName",
          "psf:UnitType=characters xsd:string"}},
        // clang-format on
    };
    for (const Row& row : rows) {
        SCOPED_TRACE(row.name);
        CComPtr<IXMLDOMElement> def;
        ASSERT_EQ(row.create(m_capabilities, &def), S_OK);
        RawXml raw = Attach(def);
        EXPECT_EQ(Properties(raw, "//psf:ParameterDef[@name='" + std::string(row.name) + "']"),
                  row.properties);
    }
    CComPtr<IXMLDOMElement> def;
    EXPECT_THROWS_HR(m_capabilities.CreateIntegerParameterDef(L"psk:", L"", L"Optional", L"", 0, 0,
                                                              1, 0, L"u", &def),
                     E_INVALIDARG);
    EXPECT_THROWS_HR(m_capabilities.CreateRealParameterDef(L"psk:", L"R", L"Optional", L"", 0, 0, 1,
                                                           0, L"u", nullptr),
                     E_POINTER);
}

TEST_F(PrintCapabilitiesDocumentTest, NodeRelativeQueriesAndReplacements) {
    PrintCapabilitiesXmlDocument& c = m_capabilities;
    CComPtr<IXMLDOMNode> feature = Feature(), def, none, option, absent;
    LONG count = 0;
    c.GetChildOptionNodes(feature)->get_length(&count);
    EXPECT_EQ(count, 3);
    EXPECT_EQ(c.GetChildOptionNodeIfExists(feature, L"psk:", L"ISOA5", &option), S_OK);
    EXPECT_EQ(c.GetChildOptionNodeIfExists(feature, L"psk:", L"ISOA0", &absent), S_FALSE);
    EXPECT_EQ(absent, nullptr);
    EXPECT_THROWS_HR(c.GetChildOptionNodes(nullptr), E_POINTER);
    EXPECT_EQ(c.GetChildScoredPropertyValueAsInteger(feature, L"MediaSizeWidth"), 210000);
    EXPECT_STREQ(c.GetChildScoredPropertyValueAsString(feature, L"PagesPerSheet"), L"2");
    EXPECT_THROWS_HR(c.GetChildScoredPropertyValueAsString(feature, L"Missing"), E_FAIL);

    // Display names are replaced only where the Option has one.
    EXPECT_EQ(c.ReplaceOptionDisplayNamePropertyValue(feature, L"psk:", L"ISOA4", L"A4 (210 mm)"),
              S_OK);
    const std::string before = XmlOf(c);
    EXPECT_EQ(c.ReplaceOptionDisplayNamePropertyValue(feature, L"psk:", L"ISOA5", L"A5"),
              kNotFound);
    EXPECT_EQ(c.ReplaceOptionDisplayNamePropertyValue(feature, L"psk:", L"ISOA0", L"A0"),
              kNotFound);
    EXPECT_EQ(XmlOf(c), before);  // nothing changed
    EXPECT_EQ(RawXml(before).Strings("//psf:Option[@name='psk:ISOA4']/psf:Property/psf:Value"),
              Strings{"A4 (210 mm)"});
    EXPECT_THROWS_HR(c.ReplaceDisplayNamePropertyValue(nullptr, L"x"), E_INVALIDARG);

    EXPECT_EQ(c.GetParameterDefNodeIfExists(L"psk:", L"JobCopiesAllDocuments", &def), S_OK);
    EXPECT_EQ(c.DeleteParameterDefNodeIfExists(L"psk:", L"JobCopiesAllDocuments"), S_OK);
    EXPECT_EQ(c.DeleteParameterDefNodeIfExists(L"psk:", L"JobCopiesAllDocuments"), S_FALSE);
    EXPECT_EQ(c.GetParameterDefNodeIfExists(L"psk:", L"JobCopiesAllDocuments", &none), S_FALSE);
}
