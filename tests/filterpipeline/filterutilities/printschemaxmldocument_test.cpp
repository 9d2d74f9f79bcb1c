// Tests of PrintSchemaXmlDocument: prefix discovery and the private-prefix fix-up, root and
// namespace rejections, node lookups and value queries, element creation and the deleters.
#include "filterpipeline/filterutilities/printschemaxmldocument.h"

#include <gtest/gtest.h>

#include "documenttesting.h"
#include "filterpipeline/filterutilities/printticketquerybuilder.h"

using namespace documenttesting;
using Access = PrintSchemaTestAccess;

namespace {

std::wstring Wide(const CComBSTR& text) {
    return text.m_str == nullptr ? L"<null>" : text.m_str;
}

CComBSTR Property(const CComPtr<IXMLDOMDocument2>& dom, const wchar_t* name) {
    CComVariant value;
    EXPECT_EQ(dom->getProperty(CComBSTR(name), &value), S_OK);
    return value.vt == VT_BSTR ? CComBSTR(value.bstrVal) : CComBSTR();
}

// A document of either kind: tests of the core use the ticket root.
PrintSchemaXmlDocument TicketDocument(const std::wstring& xml) {
    return PrintSchemaXmlDocument(L"PrintTicket", LoadXml(xml));
}

}  // namespace

// --- Construction and prefixes ---

// The prefixes are whatever the document declares (absent optional namespaces give null, the
// user keywords fall back to "ns0000:"), and queries select with the framework's.
TEST(PrintSchemaDocumentPrefixes, ThePrefixesAreTheDocumentsOwn) {
    auto text = [](const CComBSTR& prefix) {
        return prefix.m_str == nullptr ? std::wstring(L"<null>") : Wide(prefix);
    };
    const struct {
        const char* name;
        std::wstring xml;
        std::vector<std::wstring> prefixes;  // framework, keywords, user, schema, instance
    } rows[] = {
        {"standard", Ticket(L""), {L"psf:", L"psk:", L"ns0000:", L"xsd:", L"xsi:"}},
        {"any prefixes",
         L"<p:PrintTicket xmlns:p='" + kFramework + L"' xmlns:k='" + kKeywords + L"' xmlns:xs='" +
             kSchema + L"' xmlns:i='" + kInstance + L"'><p:Feature name='k:A'/></p:PrintTicket>",
         {L"p:", L"k:", L"ns0000:", L"xs:", L"i:"}},
        {"framework only",
         L"<psf:PrintTicket xmlns:psf='" + kFramework + L"'/>",
         {L"psf:", L"<null>", L"ns0000:", L"<null>", L"<null>"}},
    };
    for (const auto& row : rows) {
        SCOPED_TRACE(row.name);
        CComPtr<IXMLDOMDocument2> dom = LoadXml(row.xml);
        PrintSchemaXmlDocument document(L"PrintTicket", dom);
        EXPECT_EQ(
            (std::vector<std::wstring>{
                text(document.GetFrameworkNsPrefix()), text(document.GetKeywordsNsPrefix()),
                text(document.GetUserKeywordsNsPrefix()), text(document.GetXmlSchemaNsPrefix()),
                text(document.GetXmlSchemaInstanceNsPrefix())}),
            row.prefixes);
        EXPECT_EQ(text(document.GetNsPrefix(PrintSchema::MsPrintTicketFrameworkNamespace)),
                  row.prefixes[0]);
        EXPECT_EQ(text(document.GetNsPrefix(PrintSchema::MsPrintTicketUserKeywordsNamespace)),
                  row.prefixes[2]);
        EXPECT_EQ(Wide(Property(dom, L"SelectionNamespaces")),
                  L"xmlns:" + row.prefixes[0].substr(0, row.prefixes[0].size() - 1) + L"='" +
                      kFramework + L"'");
        EXPECT_EQ(Wide(Property(dom, L"SelectionLanguage")), L"XPath");
    }
    PrintSchemaXmlDocument document = TicketDocument(rows[1].xml);
    EXPECT_EQ(document.QueryNode(L"//p:Feature[@name = 'k:A']"), S_OK);
}

TEST(PrintSchemaDocumentPrefixes, InvalidNamespaceSelectorThrowsInvalidArg) {
    PrintSchemaXmlDocument document = TicketDocument(Ticket(L""));
    EXPECT_EQ(ThrownHresult([&] {
                  document.GetNsPrefix(static_cast<PrintSchema::MsPrintTicketNamespacesEnum>(3));
              }),
              E_INVALIDARG);
    EXPECT_EQ(ThrownHresult([&] {
                  document.GetNsPrefix(static_cast<PrintSchema::MsPrintTicketNamespacesEnum>(-1));
              }),
              E_INVALIDARG);
}

TEST(PrintSchemaDocumentPrefixes, PrefixLookupReportsAbsenceAndRejectsBadArguments) {
    PrintSchemaXmlDocument document = TicketDocument(Ticket(L""));
    CComBSTR prefix;
    EXPECT_EQ(Access::GetPrefixFromURI(document, L"urn:nowhere", &prefix), S_FALSE);
    EXPECT_EQ(prefix.m_str, nullptr);
    EXPECT_EQ(Access::GetPrefixFromURI(document, kKeywords.c_str(), &prefix), S_OK);
    EXPECT_EQ(Wide(prefix), L"psk:");
    CComBSTR unused;
    EXPECT_EQ(ThrownHresult([&] { Access::GetPrefixFromURI(document, L"", &unused); }),
              E_INVALIDARG);
    EXPECT_EQ(ThrownHresult([&] { Access::GetPrefixFromURI(document, L"x", nullptr); }), E_POINTER);
}

TEST(PrintSchemaDocumentPrivatePrefix, DeclaredPrivateNamespaceMovesToZk) {
    const std::wstring xml = Ticket(
        L"<psf:Feature name='ns0001:Finishing'><psf:Option name='ns0001:Staple'>"
        L"<psf:ScoredProperty name='psk:Other'><psf:Value xsi:type='xsd:QName'>ns0001:Keep"
        L"</psf:Value></psf:ScoredProperty></psf:Option></psf:Feature>"
        L"<psf:Feature name='psk:ns0001:Odd'/>"
        L"<ns0001:Extension name='ns0001:Twice-ns0001:'/>",
        L" xmlns:ns0001='" + kPrivate + L"'");
    PrintSchemaXmlDocument document = TicketDocument(xml);
    EXPECT_EQ(Wide(document.GetUserKeywordsNsPrefix()), L"zk:");

    RawXml raw(XmlOf(document));
    ASSERT_TRUE(raw.Parsed());
    // The root declares zk for the private namespace and no longer ns0001.
    EXPECT_EQ(raw.Count("/psf:PrintTicket/namespace::zk"), 1u);
    EXPECT_EQ(raw.Strings("/psf:PrintTicket/namespace::zk")[0], Utf8(kPrivate.c_str()));
    CComBSTR oldPrefix;
    EXPECT_EQ(Access::GetPrefixFromURI(document, kPrivate.c_str(), &oldPrefix), S_OK);
    EXPECT_EQ(Wide(oldPrefix), L"zk:");
    // Names beginning with the old prefix are rewritten, every occurrence; others stay.
    EXPECT_EQ(raw.Strings("//psf:Feature/@name"),
              (std::vector<std::string>{"zk:Finishing", "psk:ns0001:Odd"}));
    EXPECT_EQ(raw.Strings("//psf:Option/@name"), std::vector<std::string>{"zk:Staple"});
    EXPECT_EQ(raw.Strings("//zk:Extension/@name"), std::vector<std::string>{"zk:Twice-zk:"});
    // Element names and values keep their text; the element stays in its namespace.
    EXPECT_EQ(raw.Strings("//psf:Value"), std::vector<std::string>{"ns0001:Keep"});
    EXPECT_EQ(raw.Count("//zk:Extension"), 1u);
    // Queries use the new prefix.
    PrintSchemaXmlDocument again(document);
    CComPtr<IXMLDOMNode> feature;
    EXPECT_EQ(again.GetFeatureNodeIfExists(L"zk:", L"Finishing", &feature), S_OK);
}

// A document declaring zk itself, and one a first wrapper has already fixed: a wrapper finds zk
// and changes nothing.
TEST(PrintSchemaDocumentPrivatePrefix, ADocumentUsingZkIsLeftAlone) {
    for (const wchar_t* prefix : {L"zk", L"v"}) {
        SCOPED_TRACE(Utf8(prefix));
        CComPtr<IXMLDOMDocument2> dom = LoadXml(
            Ticket(std::wstring(L"<psf:Feature name='") + prefix + L":A'/>",
                   std::wstring(L" xmlns:") + prefix + L"='" + kPrivate + L"'"));
        if (prefix[0] == L'v') PrintSchemaXmlDocument(L"PrintTicket", dom);  // renames v to zk
        CComBSTR before;
        dom->get_xml(&before);
        PrintSchemaXmlDocument second(L"PrintTicket", dom);
        CComBSTR after;
        dom->get_xml(&after);
        EXPECT_EQ(Wide(before), Wide(after));
        EXPECT_EQ(Wide(second.GetUserKeywordsNsPrefix()), L"zk:");
    }
}

TEST(PrintSchemaDocumentErrors, ThrowsCarryTheQualifiedMethodName) {
    CComPtr<IXMLDOMDocument2> capabilities = LoadXml(Capabilities(L""));
    EXPECT_EQ(ThrownFunction([&] { PrintTicketXmlDocument ticket(capabilities); }),
              L"PrintSchemaXmlDocument::PrintSchemaXmlDocument");
    PrintTicketXmlDocument ticket(
        LoadXml(Ticket(L"<psf:Feature name='psk:A'>"
                       L"<psf:Option name='NoColon'/></psf:Feature>")));
    EXPECT_EQ(ThrownFunction([&] {
                  ticket.GetNsPrefix(static_cast<PrintSchema::MsPrintTicketNamespacesEnum>(3));
              }),
              L"PrintSchemaXmlDocument::GetNsPrefix");
    EXPECT_EQ(ThrownFunction([&] { ticket.QueryNode(L""); }), L"PrintSchemaXmlDocument::QueryNode");
    CComBSTR option;
    EXPECT_EQ(ThrownFunction([&] { ticket.GetFeatureOption(L"A", &option); }),
              L"PrintTicketXmlDocument::GetFeatureOption");
    PrintTicketQueryBuilder builder(L"");
    EXPECT_EQ(ThrownFunction([&] { builder.AddFeature(L"psk:", L"A"); }),
              L"PrintTicketQueryBuilder::AddFeature");
    EXPECT_EQ(ThrownFunction([&] { builder.AddOption(L"psk:"); }),
              L"PrintTicketQueryBuilder::AddOption");
}

// --- Rejections ---

// The root is looked for anywhere in the document ("//"); a wrong root throws the
// success-valued S_FALSE, a framework namespace declared as the default throws E_FAIL.
TEST(PrintSchemaDocumentRejection, TheRootIsCheckedWhereverItIs) {
    const struct {
        const char* name;
        std::wstring xml;
        std::optional<HRESULT> thrown;
    } rows[] = {
        {"capabilities root", Capabilities(L""), S_FALSE},
        {"foreign document", L"<html><body/></html>", S_FALSE},
        {"root in another namespace", L"<psf:PrintTicket xmlns:psf='urn:other'/>", S_FALSE},
        {"framework as the default namespace",
         L"<PrintTicket xmlns='" + kFramework + L"' xmlns:psk='" + kKeywords + L"'/>", E_FAIL},
        {"below a foreign wrapper",
         L"<x:Wrapper xmlns:x='urn:x'><psf:PrintTicket xmlns:psf='" + kFramework +
             L"'/></x:Wrapper>",
         std::nullopt},
    };
    for (const auto& row : rows) {
        SCOPED_TRACE(row.name);
        CComPtr<IXMLDOMDocument2> dom = LoadXml(row.xml);
        EXPECT_EQ(ThrownHresult([&] { PrintSchemaXmlDocument document(L"PrintTicket", dom); }),
                  row.thrown);
    }
}

TEST(PrintSchemaDocumentRejection, EmptyWrapperFailsEveryQuery) {
    PrintSchemaXmlDocument document(L"PrintTicket", nullptr);
    EXPECT_FALSE(document.HasDomDocument());
    EXPECT_EQ(document.GetDomDocPtr(), nullptr);
    EXPECT_EQ(document.GetRootNode(), nullptr);
    CComBSTR xml;
    EXPECT_EQ(document.get_xml(&xml), E_FAIL);
    EXPECT_EQ(ThrownHresult([&] { document.QueryNode(L"//x"); }), E_PENDING);
    CComPtr<IXMLDOMNode> node;
    EXPECT_EQ(ThrownHresult([&] { document.GetFeatureNodeIfExists(L"psk:", L"A", &node); }),
              E_FAIL);  // no framework prefix to build the query with
    EXPECT_EQ(document.DebugDumpXmlToFileInTempDirectory(L"PrintTicket_", L"x"), S_OK);
}

TEST(PrintSchemaDocumentRejection, CopiesShareTheDomAndOwnTheirStrings) {
    CComPtr<IXMLDOMDocument2> dom = LoadXml(Ticket(L""));
    PrintSchemaXmlDocument original(L"PrintTicket", dom);
    PrintSchemaXmlDocument copy(original);
    PrintSchemaXmlDocument assigned(L"PrintTicket", nullptr);
    assigned = original;
    EXPECT_EQ(copy.GetDomDocPtr(), dom.p);
    EXPECT_EQ(assigned.GetRootNode(), original.GetRootNode());
    EXPECT_NE(copy.GetFrameworkNsPrefix().m_str, original.GetFrameworkNsPrefix().m_str);
    EXPECT_EQ(Wide(assigned.GetKeywordsNsPrefix()), L"psk:");
}

// --- Lookups and value queries ---

class PrintSchemaDocumentQueries : public ::testing::Test {
protected:
    PrintSchemaDocumentQueries()
        : m_document(
              L"PrintTicket",
              LoadXml(Ticket(
                  L"<psf:Feature name='psk:PageMediaSize'>"
                  L"  <psf:Option name='psk:ISOA4'>"
                  L"    <psf:ScoredProperty name='psk:MediaSizeWidth'>"
                  L"      <psf:Value xsi:type='xsd:integer'>210000</psf:Value>"
                  L"    </psf:ScoredProperty>"
                  L"    <psf:ScoredProperty name='psk:Mixed'><psf:Value>12abc</psf:Value>"
                  L"    </psf:ScoredProperty>"
                  L"    <psf:ScoredProperty name='psk:Empty'><psf:Value/></psf:ScoredProperty>"
                  L"    <psf:ScoredProperty name='psk:Real'><psf:Value>2.75</psf:Value>"
                  L"    </psf:ScoredProperty>"
                  L"  </psf:Option>"
                  L"</psf:Feature>"
                  L"<psf:Feature name='psk:JobCopies'><psf:Option>"
                  L"  <psf:ScoredProperty name='psk:Copies'>"
                  L"    <psf:ParameterRef name='psk:JobCopiesAllDocuments'/>"
                  L"  </psf:ScoredProperty>"
                  L"  <psf:ScoredProperty name='psk:Dangling'>"
                  L"    <psf:ParameterRef name='psk:Missing'/></psf:ScoredProperty>"
                  L"  <psf:ScoredProperty name='psk:Nameless'><psf:ParameterRef/>"
                  L"  </psf:ScoredProperty>"
                  L"  <psf:ScoredProperty name='psk:Bare'/>"
                  L"</psf:Option></psf:Feature>"
                  L"<psf:Feature name='psk:Outer'><psf:Feature name='psk:Inner'>"
                  L"<psf:Option name='psk:In'/></psf:Feature></psf:Feature>"
                  L"<psf:ParameterInit name='psk:Other'><psf:Value>1</psf:Value>"
                  L"</psf:ParameterInit>"
                  L"<psf:ParameterInit name='psk:JobCopiesAllDocuments'>"
                  L"  <psf:Value xsi:type='xsd:integer'>3</psf:Value></psf:ParameterInit>"))) {}

    static std::wstring ScoredProperty(const wchar_t* feature, const wchar_t* name) {
        return std::wstring(L"//psf:Feature[@name='psk:") + feature +
               L"']//psf:ScoredProperty[@name='psk:" + name + L"']";
    }

    PrintSchemaXmlDocument m_document;
};

TEST_F(PrintSchemaDocumentQueries, QueryNodeReturnsNotFoundWithoutThrowing) {
    EXPECT_EQ(m_document.QueryNode(L"//psf:Feature[@name='psk:PageMediaSize']"), S_OK);
    EXPECT_EQ(m_document.QueryNode(L"//psf:Feature[@name='psk:Nope']"), kNotFound);
    EXPECT_EQ(ThrownHresult([&] { m_document.QueryNode(L""); }), E_INVALIDARG);
    EXPECT_EQ(ThrownHresult([&] { m_document.QueryNode(nullptr); }), E_INVALIDARG);
}

TEST_F(PrintSchemaDocumentQueries, InvalidXPathIsThrownAsTheDomFailure) {
    const auto thrown = ThrownHresult([&] { m_document.QueryNode(L"//psf:Feature[@name="); });
    ASSERT_TRUE(thrown.has_value());
    EXPECT_TRUE(FAILED(*thrown));
}

TEST_F(PrintSchemaDocumentQueries, GetNodeArgumentChecks) {
    CComPtr<IXMLDOMNode> node;
    EXPECT_EQ(ThrownHresult([&] { Access::GetNode(m_document, L"//x", nullptr); }), E_POINTER);
    EXPECT_EQ(ThrownHresult([&] { Access::GetNode(m_document, L"", &node); }), E_INVALIDARG);
    EXPECT_EQ(Access::GetNode(m_document, L"//psf:Nothing", &node), S_FALSE);
    EXPECT_EQ(node, nullptr);
}

TEST_F(PrintSchemaDocumentQueries, QueryNodeValueAsTextIntegerAndReal) {
    CComBSTR text;
    EXPECT_EQ(m_document.QueryNodeValue(ScoredProperty(L"PageMediaSize", L"MediaSizeWidth").c_str(),
                                        &text),
              S_OK);
    EXPECT_EQ(Wide(text), L"210000");

    int number = -7;
    EXPECT_EQ(
        m_document.QueryNodeValue(ScoredProperty(L"PageMediaSize", L"Mixed").c_str(), &number),
        S_OK);
    EXPECT_EQ(number, 12);
    number = -7;
    EXPECT_EQ(
        m_document.QueryNodeValue(ScoredProperty(L"PageMediaSize", L"Absent").c_str(), &number),
        kNotFound);
    EXPECT_EQ(number, -7);  // untouched

    float real = 0.0F;
    EXPECT_EQ(m_document.QueryNodeValue(ScoredProperty(L"PageMediaSize", L"Real").c_str(), &real),
              S_OK);
    EXPECT_FLOAT_EQ(real, 2.75F);

    EXPECT_EQ(
        ThrownHresult([&] { m_document.QueryNodeValue(L"//x", static_cast<BSTR*>(nullptr)); }),
        E_POINTER);
    EXPECT_EQ(ThrownHresult([&] { m_document.QueryNodeValue(L"", &number); }), E_INVALIDARG);
}

TEST_F(PrintSchemaDocumentQueries, EmptyValueIsSuccessWithNullText) {
    CComBSTR text;
    EXPECT_EQ(m_document.QueryNodeValue(ScoredProperty(L"PageMediaSize", L"Empty").c_str(), &text),
              S_OK);
    EXPECT_EQ(text.m_str, nullptr);
    int number = 5;
    EXPECT_EQ(
        m_document.QueryNodeValue(ScoredProperty(L"PageMediaSize", L"Empty").c_str(), &number),
        S_OK);
    EXPECT_EQ(number, 0);
}

TEST_F(PrintSchemaDocumentQueries, ParameterRefIsFollowedToItsParameterInit) {
    CComBSTR text;
    EXPECT_EQ(
        Access::GetNodeValue(m_document, ScoredProperty(L"JobCopies", L"Copies").c_str(), &text),
        S_OK);
    EXPECT_EQ(Wide(text), L"3");
    // No ParameterInit of that name, a ParameterRef without a name, nothing at all: success
    // with a null value.
    for (const wchar_t* name : {L"Dangling", L"Nameless", L"Bare"}) {
        CComBSTR none(L"stale");
        EXPECT_EQ(Access::GetNodeValue(m_document, ScoredProperty(L"JobCopies", name).c_str(),
                                       &none.m_str),
                  S_OK)
            << Utf8(name);
        EXPECT_EQ(none.m_str, nullptr) << Utf8(name);
    }
    CComBSTR absent;
    EXPECT_EQ(
        Access::GetNodeValue(m_document, ScoredProperty(L"JobCopies", L"Nope").c_str(), &absent),
        S_FALSE);
}

TEST_F(PrintSchemaDocumentQueries, FeatureLookupsSearchTheWholeDocument) {
    CComPtr<IXMLDOMNode> inner;
    EXPECT_EQ(m_document.GetFeatureNodeIfExists(L"psk:", L"Inner", &inner), S_OK);
    ASSERT_NE(inner, nullptr);
    CComPtr<IXMLDOMNode> missing;
    EXPECT_EQ(m_document.GetFeatureNodeIfExists(L"psk:", L"Missing", &missing), S_FALSE);
    EXPECT_EQ(missing, nullptr);
    CComPtr<IXMLDOMNode> found;
    m_document.GetFeatureNode(L"", L"psk:Outer", &found);
    EXPECT_NE(found, nullptr);
    CComPtr<IXMLDOMNode> thrown;
    EXPECT_EQ(ThrownHresult([&] { m_document.GetFeatureNode(L"psk:", L"Missing", &thrown); }),
              E_FAIL);
}

TEST_F(PrintSchemaDocumentQueries, GetNodesListsElementsOfOneType) {
    CComPtr<IXMLDOMNodeList> features;
    EXPECT_EQ(Access::GetNodes(m_document, L"Feature", &features), S_OK);
    LONG count = 0;
    features->get_length(&count);
    EXPECT_EQ(count, 4);
    CComPtr<IXMLDOMNodeList> none;
    EXPECT_EQ(Access::GetNodes(m_document, L"ParameterDef", &none), S_OK);
    none->get_length(&count);
    EXPECT_EQ(count, 0);
    CComPtr<IXMLDOMNodeList> unused;
    EXPECT_EQ(ThrownHresult([&] { Access::GetNodes(m_document, L"", &unused); }), E_FAIL);
    EXPECT_EQ(ThrownHresult([&] { Access::GetNodes(m_document, L"Feature", nullptr); }), E_POINTER);
}

TEST_F(PrintSchemaDocumentQueries, AttributeValueOfPresentAndAbsentAttributes) {
    CComPtr<IXMLDOMNode> feature;
    ASSERT_EQ(m_document.GetFeatureNodeIfExists(L"psk:", L"PageMediaSize", &feature), S_OK);
    CComBSTR value;
    EXPECT_EQ(Access::GetAttributeValue(m_document, feature, L"name", &value), S_OK);
    EXPECT_EQ(Wide(value), L"psk:PageMediaSize");
    CComBSTR absent;
    EXPECT_EQ(Access::GetAttributeValue(m_document, feature, L"constrained", &absent), S_FALSE);
    EXPECT_EQ(ThrownHresult([&] { Access::GetAttributeValue(m_document, feature, L"", &absent); }),
              E_INVALIDARG);
    EXPECT_EQ(
        ThrownHresult([&] { Access::GetAttributeValue(m_document, nullptr, L"name", &absent); }),
        E_POINTER);
}

// --- Element creation ---

class PrintSchemaDocumentCreation : public ::testing::Test {
protected:
    // Prefixes deliberately unusual, so that every name must come from the document.
    PrintSchemaDocumentCreation()
        : m_dom(LoadXml(L"<f:PrintTicket xmlns:f='" + kFramework + L"' xmlns:k='" + kKeywords +
                        L"' xmlns:xs='" + kSchema + L"' xmlns:in='" + kInstance + L"' xmlns:v='" +
                        kPrivate + L"'/>")),
          m_document(L"PrintTicket", m_dom) {}

    // Appends the element to the root and returns what libxml2 reads from the serialisation.
    RawXml Attach(IXMLDOMElement* element) {
        m_document.AppendChildToRootNode(element);
        return RawXml(XmlOf(m_document));
    }

    CComPtr<IXMLDOMDocument2> m_dom;
    PrintSchemaXmlDocument m_document;
};

TEST_F(PrintSchemaDocumentCreation, PropertyNamesFollowTheSelectedNamespace) {
    CComPtr<IXMLDOMElement> framework;
    CComPtr<IXMLDOMElement> keywords;
    CComPtr<IXMLDOMElement> user;
    m_document.CreateProperty(PrintSchema::MsPrintTicketFrameworkNamespace, L"A", &framework);
    m_document.CreateProperty(PrintSchema::MsPrintTicketKeywordsNamespace, L"B", &keywords);
    m_document.CreateProperty(PrintSchema::MsPrintTicketUserKeywordsNamespace, L"C", &user);
    m_document.AppendChildToRootNode(framework);
    m_document.AppendChildToRootNode(keywords);
    RawXml raw = Attach(user);
    ASSERT_TRUE(raw.Parsed());
    EXPECT_EQ(raw.Strings("/psf:PrintTicket/psf:Property/@name"),
              (std::vector<std::string>{"f:A", "k:B", "zk:C"}));
    CComPtr<IXMLDOMElement> bad;
    EXPECT_EQ(ThrownHresult([&] {
                  m_document.CreateProperty(
                      static_cast<PrintSchema::MsPrintTicketNamespacesEnum>(7), L"D", &bad);
              }),
              E_INVALIDARG);
}

TEST_F(PrintSchemaDocumentCreation, TypedValuesUseTheDocumentsSchemaPrefixes) {
    CComPtr<IXMLDOMElement> property;
    Access::CreateTypedProperty(m_document, PrintSchema::MsPrintTicketKeywordsNamespace,
                                L"DisplayName", L"Letter <small>", L"string", &property);
    RawXml raw = Attach(property);
    ASSERT_TRUE(raw.Parsed());
    EXPECT_EQ(raw.Strings("//psf:Property[@name='k:DisplayName']/psf:Value"),
              std::vector<std::string>{"Letter <small>"});
    EXPECT_EQ(raw.Strings("//psf:Property/psf:Value/@xsi:type"),
              std::vector<std::string>{"xs:string"});
}

TEST_F(PrintSchemaDocumentCreation, ScoredPropertiesOfEachType) {
    CComPtr<IXMLDOMElement> text;
    CComPtr<IXMLDOMElement> integer;
    CComPtr<IXMLDOMElement> real;
    CComPtr<IXMLDOMElement> negative;
    Access::CreateStringScoredProperty(m_document, L"k:S", L"abc", &text);
    Access::CreateIntegerScoredProperty(m_document, L"k:I", -42, &integer);
    Access::CreateRealScoredProperty(m_document, L"k:R", 1.5F, &real);
    Access::CreateRealScoredProperty(m_document, L"k:N", -0.126F, &negative);
    m_document.AppendChildToRootNode(text);
    m_document.AppendChildToRootNode(integer);
    m_document.AppendChildToRootNode(real);
    RawXml raw = Attach(negative);
    EXPECT_EQ(raw.Strings("//psf:ScoredProperty/psf:Value"),
              (std::vector<std::string>{"abc", "-42", "1.50", "-0.13"}));
    EXPECT_EQ(raw.Strings("//psf:ScoredProperty/psf:Value/@xsi:type"),
              (std::vector<std::string>{"xs:string", "xs:integer", "xs:decimal", "xs:decimal"}));
}

TEST_F(PrintSchemaDocumentCreation, ParameterRefScoredPropertyHoldsItsReference) {
    CComPtr<IXMLDOMElement> scored;
    m_document.CreateParameterRefScoredProperty(L"k:", L"MediaSizeWidth", L"k:",
                                                L"PageMediaSizeMediaSizeWidth", &scored);
    RawXml raw = Attach(scored);
    EXPECT_EQ(raw.Strings("//psf:ScoredProperty[@name='k:MediaSizeWidth']/psf:ParameterRef/@name"),
              std::vector<std::string>{"k:PageMediaSizeMediaSizeWidth"});
}

TEST_F(PrintSchemaDocumentCreation, AppendHelpersBuildNestedElements) {
    CComPtr<IXMLDOMElement> feature;
    Access::CreateXMLElement(m_document, L"f:Feature", kFramework.c_str(), &feature);
    Access::AppendXMLAttribute(m_document, feature, L"name", L"", L"k:JobNUp");
    m_document.AppendChildIntegerProperty(feature, PrintSchema::MsPrintTicketFrameworkNamespace,
                                          L"Count", 4);
    m_document.AppendChildStringProperty(feature, PrintSchema::MsPrintTicketKeywordsNamespace,
                                         L"DisplayName", L"Four up");
    m_document.AppendChildIntegerScoredProperty(feature, L"k:PagesPerSheet", 4);
    m_document.AppendChildQNameScoredProperty(feature, L"k:Direction", L"k:RightBottom");
    m_document.AppendChildParameterRefScoredProperty(feature, L"k:", L"Width",
                                                     m_document.GetUserKeywordsNsPrefix(), L"W");
    CComPtr<IXMLDOMElement> value;
    Access::CreateXMLElement(m_document, L"f:Value", kFramework.c_str(), &value);
    CComPtr<IXMLDOMElement> wrapped;
    Access::CreateScoredPropertyWithChild(m_document, L"k:Wrapped", value, &wrapped);
    m_document.AppendChild(feature, wrapped);
    RawXml raw = Attach(feature);
    ASSERT_TRUE(raw.Parsed());
    EXPECT_EQ(raw.Strings("//psf:Feature[@name='k:JobNUp']/psf:Property/@name"),
              (std::vector<std::string>{"f:Count", "k:DisplayName"}));
    EXPECT_EQ(raw.Strings("//psf:Feature/psf:Property/psf:Value"),
              (std::vector<std::string>{"4", "Four up"}));
    EXPECT_EQ(raw.Strings("//psf:Feature/psf:ScoredProperty/@name"),
              (std::vector<std::string>{"k:PagesPerSheet", "k:Direction", "k:Width", "k:Wrapped"}));
    EXPECT_EQ(raw.Strings("//psf:ScoredProperty[@name='k:Direction']/psf:Value/@xsi:type"),
              std::vector<std::string>{"xs:QName"});
    EXPECT_EQ(raw.Strings("//psf:ScoredProperty[@name='k:Width']/psf:ParameterRef/@name"),
              std::vector<std::string>{"zk:W"});
    EXPECT_EQ(raw.Count("//psf:ScoredProperty[@name='k:Wrapped']/psf:Value"), 1u);
}

TEST_F(PrintSchemaDocumentCreation, CreationArgumentChecks) {
    CComPtr<IXMLDOMElement> element;
    EXPECT_EQ(ThrownHresult([&] {
                  Access::CreateXMLElement(m_document, L"f:X", kFramework.c_str(), nullptr);
              }),
              E_POINTER);
    EXPECT_EQ(ThrownHresult(
                  [&] { Access::CreateXMLElement(m_document, L"", kFramework.c_str(), &element); }),
              E_INVALIDARG);
    EXPECT_EQ(ThrownHresult([&] {
                  Access::CreateTypedProperty(m_document,
                                              PrintSchema::MsPrintTicketKeywordsNamespace, L"A",
                                              L"v", L"string", nullptr);
              }),
              E_POINTER);
    EXPECT_EQ(ThrownHresult(
                  [&] { Access::CreateStringScoredProperty(m_document, L"k:A", L"v", nullptr); }),
              E_POINTER);
    EXPECT_EQ(
        ThrownHresult([&] { Access::CreateStringScoredProperty(m_document, L"", L"v", &element); }),
        E_INVALIDARG);
    EXPECT_EQ(ThrownHresult([&] { m_document.AppendChildToRootNode(nullptr); }), E_POINTER);
    EXPECT_EQ(ThrownHresult([&] { m_document.AppendChild(nullptr, nullptr); }), E_POINTER);
    EXPECT_EQ(ThrownHresult([&] { m_document.CreateParameterRef(L"k:", L"A", nullptr); }),
              E_POINTER);
    const auto badName = ThrownHresult(
        [&] { Access::CreateXMLElement(m_document, L"f:Bad Name", kFramework.c_str(), &element); });
    ASSERT_TRUE(badName.has_value());
    EXPECT_TRUE(FAILED(*badName));
}

// --- Deleting ---

class PrintSchemaDocumentDeletion : public ::testing::Test {
protected:
    PrintSchemaDocumentDeletion()
        : m_document(L"PrintTicket",
                     LoadXml(Ticket(L"<psf:Feature name='psk:Dup'><psf:Option name='psk:First'/>"
                                    L"</psf:Feature>"
                                    L"<psf:Feature name='ns0000:Private'>"
                                    L"<psf:Feature name='ns0000:Nested'/></psf:Feature>"
                                    L"<psf:Feature name='psk:Dup'><psf:Option name='psk:Second'/>"
                                    L"</psf:Feature>"
                                    L"<psf:Property name='psf:Stale'/>"
                                    L"<psf:Feature name='psk:Keep'>"
                                    L"<psf:Property name='psf:Stale'/></psf:Feature>"
                                    L"<psf:Feature name='psk:Dup'><psf:Option name='psk:Third'/>"
                                    L"</psf:Feature>",
                                    L" xmlns:ns0000='urn:vendor'"))) {}

    RawXml Raw() { return RawXml(XmlOf(m_document)); }

    PrintSchemaXmlDocument m_document;
};

TEST_F(PrintSchemaDocumentDeletion, DuplicateFeatureLosesOnlyItsFirstOccurrence) {
    EXPECT_EQ(m_document.DeleteFeatureNodeIfADuplicateExists(L"psk:", L"Dup"), S_OK);
    EXPECT_EQ(Raw().Strings("//psf:Feature[@name='psk:Dup']/psf:Option/@name"),
              (std::vector<std::string>{"psk:Second", "psk:Third"}));
    EXPECT_EQ(m_document.DeleteFeatureNodeIfADuplicateExists(L"psk:", L"Dup"), S_OK);
    EXPECT_EQ(Raw().Strings("//psf:Feature[@name='psk:Dup']/psf:Option/@name"),
              std::vector<std::string>{"psk:Third"});
    // A single occurrence or none: nothing is deleted.
    EXPECT_EQ(m_document.DeleteFeatureNodeIfADuplicateExists(L"psk:", L"Dup"), S_FALSE);
    EXPECT_EQ(m_document.DeleteFeatureNodeIfADuplicateExists(L"psk:", L"None"), S_FALSE);
    EXPECT_EQ(Raw().Count("//psf:Feature[@name='psk:Dup']"), 1u);
}

TEST_F(PrintSchemaDocumentDeletion, FeatureDeletionReportsAbsence) {
    EXPECT_EQ(m_document.DeleteFeatureNodeIfExists(L"psk:", L"Keep"), S_OK);
    EXPECT_EQ(m_document.DeleteFeatureNodeIfExists(L"psk:", L"Keep"), S_FALSE);
    EXPECT_EQ(Raw().Count("//psf:Feature[@name='psk:Keep']"), 0u);
}

TEST_F(PrintSchemaDocumentDeletion, PropertyNodesEverywhereAreDeleted) {
    EXPECT_EQ(m_document.DeletePropertyNodesIfExist(L"psf:", L"Stale"), S_OK);
    EXPECT_EQ(Raw().Count("//psf:Property"), 0u);
    EXPECT_EQ(m_document.DeletePropertyNodesIfExist(L"psf:", L"Nowhere"), S_FALSE);
    EXPECT_EQ(Raw().Count("//psf:Feature"), 6u);
}

TEST_F(PrintSchemaDocumentDeletion, PrivateFeaturesGoPublicOnesStay) {
    EXPECT_EQ(m_document.DeletePrivateFeatures(L"ns0000:"), S_OK);
    RawXml raw = Raw();
    EXPECT_EQ(raw.Count("//psf:Feature[starts-with(@name, 'ns0000:')]"), 0u);
    EXPECT_EQ(raw.Count("//psf:Feature"), 4u);
    EXPECT_EQ(m_document.DeletePrivateFeatures(L"ns0000:"), S_FALSE);
    EXPECT_EQ(ThrownHresult([&] { m_document.DeletePrivateFeatures(L""); }), E_INVALIDARG);
}

TEST_F(PrintSchemaDocumentDeletion, DeleteNodeOfADetachedNode) {
    CComPtr<IXMLDOMNode> feature;
    ASSERT_EQ(m_document.GetFeatureNodeIfExists(L"psk:", L"Keep", &feature), S_OK);
    EXPECT_EQ(m_document.DeleteNode(feature), S_OK);
    EXPECT_EQ(m_document.DeleteNode(feature), S_FALSE);  // no parent any more
    EXPECT_EQ(ThrownHresult([&] { m_document.DeleteNode(nullptr); }), E_POINTER);
}
