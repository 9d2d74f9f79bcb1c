// Tests of PrintSchemaXmlDocument: prefix discovery and the private-prefix fix-up, root and
// namespace rejections, node lookups and value queries, element creation and the deleters.
#include "filterpipeline/filterutilities/printschemaxmldocument.h"

#include <gtest/gtest.h>

#include <functional>

#include "documenttesting.h"
#include "filterpipeline/filterutilities/printticketquerybuilder.h"
#include "privatedatatesting.h"

using namespace documenttesting;
using Access = PrintSchemaTestAccess;
using privatedatatesting::Joined;
using NsEnum = PrintSchema::MsPrintTicketNamespacesEnum;
using Strings = std::vector<std::string>;

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
// user keywords fall back to "ns0000:"), and queries select with the framework's. The standard
// prefixes are checked on every ticket of the corpus.
TEST(PrintSchemaDocumentPrefixes, ThePrefixesAreTheDocumentsOwn) {
    const std::wstring any = L"<p:PrintTicket xmlns:p='" + kFramework + L"' xmlns:k='" + kKeywords +
                             L"' xmlns:xs='" + kSchema + L"' xmlns:i='" + kInstance +
                             L"'><p:Feature name='k:A'/></p:PrintTicket>";
    const std::pair<std::wstring, std::wstring> rows[] = {
        // framework, keywords, user, schema, instance
        {any, L"p: k: ns0000: xs: i:"},
        {L"<psf:PrintTicket xmlns:psf='" + kFramework + L"'/>",
         L"psf: <null> ns0000: <null> <null>"},
    };
    for (const auto& [xml, prefixes] : rows) {
        CComPtr<IXMLDOMDocument2> dom = LoadXml(xml);
        PrintSchemaXmlDocument d(L"PrintTicket", dom);
        const std::wstring fw = Wide(d.GetFrameworkNsPrefix());
        EXPECT_EQ(fw + L" " + Wide(d.GetKeywordsNsPrefix()) + L" " +
                      Wide(d.GetUserKeywordsNsPrefix()) + L" " + Wide(d.GetXmlSchemaNsPrefix()) +
                      L" " + Wide(d.GetXmlSchemaInstanceNsPrefix()),
                  prefixes);
        EXPECT_EQ(Wide(d.GetNsPrefix(PrintSchema::MsPrintTicketFrameworkNamespace)) +
                      Wide(d.GetNsPrefix(PrintSchema::MsPrintTicketUserKeywordsNamespace)),
                  fw + L"ns0000:");
        EXPECT_EQ(Wide(Property(dom, L"SelectionNamespaces")),
                  L"xmlns:" + fw.substr(0, fw.size() - 1) + L"='" + kFramework + L"'");
        EXPECT_EQ(Wide(Property(dom, L"SelectionLanguage")), L"XPath");
    }
    PrintSchemaXmlDocument document = TicketDocument(any);
    EXPECT_EQ(document.QueryNode(L"//p:Feature[@name = 'k:A']"), S_OK);
    CComBSTR prefix;
    EXPECT_EQ(Access::GetPrefixFromURI(document, L"urn:nowhere", &prefix), S_FALSE);
    EXPECT_EQ(prefix.m_str, nullptr);
    EXPECT_EQ(Access::GetPrefixFromURI(document, kKeywords.c_str(), &prefix), S_OK);
    EXPECT_EQ(Wide(prefix), L"k:");
}

// A declared private namespace moves to zk (checked on every ticket of the corpus too): names
// beginning with the old prefix are rewritten, every occurrence; other names, values and
// element names keep their text; queries use the new prefix.
TEST(PrintSchemaDocumentPrivatePrefix, DeclaredPrivateNamespaceMovesToZk) {
    PrintSchemaXmlDocument document = TicketDocument(Ticket(
        L"<psf:Feature name='ns0001:Finishing'><psf:Option name='ns0001:Staple'>"
        L"<psf:ScoredProperty name='psk:Other'><psf:Value xsi:type='xsd:QName'>ns0001:Keep"
        L"</psf:Value></psf:ScoredProperty></psf:Option></psf:Feature>"
        L"<psf:Feature name='psk:ns0001:Odd'/><ns0001:Extension name='ns0001:Twice-ns0001:'/>",
        L" xmlns:ns0001='" + kPrivate + L"'"));
    EXPECT_EQ(Wide(document.GetUserKeywordsNsPrefix()), L"zk:");
    RawXml raw(XmlOf(document));
    EXPECT_EQ(Joined(raw, "//@name"),
              "zk:Finishing|zk:Staple|psk:Other|psk:ns0001:Odd|zk:Twice-zk:");
    EXPECT_EQ(Joined(raw, "//psf:Value | //zk:Extension/@name"), "ns0001:Keep|zk:Twice-zk:");
    CComBSTR prefix;
    EXPECT_EQ(Access::GetPrefixFromURI(document, kPrivate.c_str(), &prefix), S_OK);
    EXPECT_EQ(Wide(prefix), L"zk:");
    CComPtr<IXMLDOMNode> feature;
    EXPECT_EQ(
        PrintSchemaXmlDocument(document).GetFeatureNodeIfExists(L"zk:", L"Finishing", &feature),
        S_OK);
}

// A document declaring zk itself, and one a first wrapper has already fixed: a wrapper finds zk
// and changes nothing.
TEST(PrintSchemaDocumentPrivatePrefix, ADocumentUsingZkIsLeftAlone) {
    for (const wchar_t* prefix : {L"zk", L"v"}) {
        SCOPED_TRACE(Utf8(prefix));
        CComPtr<IXMLDOMDocument2> dom =
            LoadXml(Ticket(std::wstring(L"<psf:Feature name='") + prefix + L":A'/>",
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

// --- Rejections ---

// The root is looked for anywhere in the document ("//"); a wrong root throws the
// success-valued S_FALSE, a framework namespace declared as the default throws E_FAIL.
TEST(PrintSchemaDocumentRejection, TheRootIsCheckedWhereverItIs) {
    const std::wstring framework = L"xmlns:psf='" + kFramework + L"'";
    const std::tuple<const char*, std::wstring, std::optional<HRESULT>> rows[] = {
        // clang-format off
        {"capabilities root", Capabilities(L""), S_FALSE},
        {"foreign document", L"<html><body/></html>", S_FALSE},
        {"root in another namespace", L"<psf:PrintTicket xmlns:psf='urn:other'/>", S_FALSE},
        {"framework as the default", L"<PrintTicket xmlns='" + kFramework + L"'/>", E_FAIL},
        {"below a foreign wrapper",
         L"<x:W xmlns:x='urn:x'><psf:PrintTicket " + framework + L"/></x:W>", std::nullopt},
        // clang-format on
    };
    for (const auto& [name, xml, thrown] : rows) {
        CComPtr<IXMLDOMDocument2> dom = LoadXml(xml);
        EXPECT_EQ(ThrownHresult([&] { PrintSchemaXmlDocument document(L"PrintTicket", dom); }),
                  thrown)
            << name;
    }
}

TEST(PrintSchemaDocumentRejection, EmptyWrapperFailsEveryQuery) {
    PrintSchemaXmlDocument document(L"PrintTicket", nullptr);
    EXPECT_FALSE(document.HasDomDocument());
    EXPECT_EQ(document.GetDomDocPtr(), nullptr);
    EXPECT_EQ(document.GetRootNode(), nullptr);
    CComBSTR xml;
    EXPECT_EQ(document.get_xml(&xml), E_FAIL);
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

std::wstring Scored(const wchar_t* name, const std::wstring& content) {
    return L"<psf:ScoredProperty name='psk:" + std::wstring(name) + L"'>" + content +
           L"</psf:ScoredProperty>";
}

class PrintSchemaDocumentQueries : public ::testing::Test {
protected:
    PrintSchemaDocumentQueries()
        : m_document(
              L"PrintTicket",
              LoadXml(Ticket(
                  L"<psf:Feature name='psk:PageMediaSize'><psf:Option name='psk:ISOA4'>" +
                  Scored(L"MediaSizeWidth",
                         L"<psf:Value xsi:type='xsd:integer'>210000</psf:Value>") +
                  Scored(L"Mixed", L"<psf:Value>12abc</psf:Value>") +
                  Scored(L"Empty", L"<psf:Value/>") +
                  Scored(L"Real", L"<psf:Value>2.75</psf:Value>") +
                  L"</psf:Option></psf:Feature><psf:Feature name='psk:JobCopies'><psf:Option>" +
                  Scored(L"Copies", L"<psf:ParameterRef name='psk:JobCopiesAllDocuments'/>") +
                  Scored(L"Dangling", L"<psf:ParameterRef name='psk:Missing'/>") +
                  Scored(L"Nameless", L"<psf:ParameterRef/>") + Scored(L"Bare", L"") +
                  L"</psf:Option></psf:Feature><psf:Feature name='psk:Outer'>"
                  L"<psf:Feature name='psk:Inner'><psf:Option name='psk:In'/></psf:Feature>"
                  L"</psf:Feature><psf:ParameterInit name='psk:Other'><psf:Value>1</psf:Value>"
                  L"</psf:ParameterInit><psf:ParameterInit name='psk:JobCopiesAllDocuments'>"
                  L"<psf:Value xsi:type='xsd:integer'>3</psf:Value></psf:ParameterInit>"))) {}

    static std::wstring ScoredProperty(const wchar_t* name) {
        return std::wstring(L"//psf:ScoredProperty[@name='psk:") + name + L"']";
    }

    PrintSchemaXmlDocument m_document;
};

// Text and integer values; a ParameterRef is followed to its ParameterInit; an empty Value, a
// ParameterRef to no ParameterInit or without a name, and no value at all are success with a
// null value (integer 0); a missing node is "not found" and leaves the integer untouched.
TEST_F(PrintSchemaDocumentQueries, NodeValuesAsTextAndInteger) {
    const std::tuple<const wchar_t*, HRESULT, const wchar_t*, int> rows[] = {
        // clang-format off
        {L"MediaSizeWidth", S_OK, L"210000", 210000}, {L"Mixed", S_OK, L"12abc", 12},
        {L"Empty", S_OK, L"<null>", 0}, {L"Absent", kNotFound, L"<null>", -7},
        {L"Copies", S_OK, L"3", 3}, {L"Dangling", S_OK, L"<null>", 0},
        {L"Nameless", S_OK, L"<null>", 0}, {L"Bare", S_OK, L"<null>", 0},
        {L"Nope", kNotFound, L"<null>", -7},
        // clang-format on
    };
    for (const auto& [property, hr, expected, expectedNumber] : rows) {
        SCOPED_TRACE(Utf8(property));
        const std::wstring xpath = ScoredProperty(property);
        CComBSTR text;
        EXPECT_EQ(m_document.QueryNodeValue(xpath.c_str(), &text), hr);
        EXPECT_EQ(Wide(text), expected);
        int number = -7;
        EXPECT_EQ(m_document.QueryNodeValue(xpath.c_str(), &number), hr);
        EXPECT_EQ(number, expectedNumber);
    }
    float real = 0.0F;
    EXPECT_EQ(m_document.QueryNodeValue(ScoredProperty(L"Real").c_str(), &real), S_OK);
    EXPECT_FLOAT_EQ(real, 2.75F);
    // The inner lookup releases what the output held and reports absence as S_FALSE.
    CComBSTR stale(L"stale");
    EXPECT_EQ(Access::GetNodeValue(m_document, ScoredProperty(L"Dangling").c_str(), &stale.m_str),
              S_OK);
    EXPECT_EQ(stale.m_str, nullptr);
    EXPECT_EQ(Access::GetNodeValue(m_document, ScoredProperty(L"Nope").c_str(), &stale.m_str),
              S_FALSE);
}

TEST_F(PrintSchemaDocumentQueries, NodeAndFeatureLookups) {
    EXPECT_EQ(m_document.QueryNode(L"//psf:Feature[@name='psk:PageMediaSize']"), S_OK);
    EXPECT_EQ(m_document.QueryNode(L"//psf:Feature[@name='psk:Nope']"), kNotFound);
    CComPtr<IXMLDOMNode> node;
    EXPECT_EQ(Access::GetNode(m_document, L"//psf:Nothing", &node), S_FALSE);
    EXPECT_EQ(node, nullptr);
    // Features are looked for in the whole document, nested ones too.
    EXPECT_EQ(m_document.GetFeatureNodeIfExists(L"psk:", L"Inner", &node), S_OK);
    EXPECT_NE(node, nullptr);
    node.Release();
    EXPECT_EQ(m_document.GetFeatureNodeIfExists(L"psk:", L"Missing", &node), S_FALSE);
    EXPECT_EQ(node, nullptr);
    m_document.GetFeatureNode(L"", L"psk:Outer", &node);
    EXPECT_NE(node, nullptr);

    CComPtr<IXMLDOMNodeList> list;
    LONG count = 0;
    EXPECT_EQ(Access::GetNodes(m_document, L"Feature", &list), S_OK);
    list->get_length(&count);
    EXPECT_EQ(count, 4);
    list.Release();
    EXPECT_EQ(Access::GetNodes(m_document, L"ParameterDef", &list), S_OK);
    list->get_length(&count);
    EXPECT_EQ(count, 0);

    CComPtr<IXMLDOMNode> feature;
    ASSERT_EQ(m_document.GetFeatureNodeIfExists(L"psk:", L"PageMediaSize", &feature), S_OK);
    CComBSTR value;
    EXPECT_EQ(Access::GetAttributeValue(m_document, feature, L"name", &value), S_OK);
    EXPECT_EQ(Wide(value), L"psk:PageMediaSize");
    CComBSTR absent;
    EXPECT_EQ(Access::GetAttributeValue(m_document, feature, L"constrained", &absent), S_FALSE);
}

// Every argument check, and the failures of lookups and of the DOM, in one table: what each
// call throws and, where given, the qualified method name the exception carries.
TEST_F(PrintSchemaDocumentQueries, BadArgumentsAndFailuresThrow) {
    PrintSchemaXmlDocument& d = m_document;
    PrintSchemaXmlDocument empty(L"PrintTicket", nullptr);
    PrintTicketXmlDocument noColon(
        LoadXml(Ticket(L"<psf:Feature name='psk:A'><psf:Option name='NoColon'/></psf:Feature>")));
    CComPtr<IXMLDOMDocument2> capabilities = LoadXml(Capabilities(L""));
    PrintTicketQueryBuilder builder(L"");
    CComBSTR text;
    CComPtr<IXMLDOMNode> node;
    CComPtr<IXMLDOMNodeList> list;
    CComPtr<IXMLDOMElement> element;
    int number = 0;
    CComPtr<IXMLDOMNode> feature;
    ASSERT_EQ(d.GetFeatureNodeIfExists(L"psk:", L"PageMediaSize", &feature), S_OK);
    const wchar_t* uri = kFramework.c_str();
    const auto keywords = PrintSchema::MsPrintTicketKeywordsNamespace;
    using A = Access;
    const std::tuple<const char*, std::function<void()>, HRESULT> rows[] = {
        // clang-format off
        {"namespace 3", [&] { d.GetNsPrefix(static_cast<NsEnum>(3)); }, E_INVALIDARG},
        {"namespace -1", [&] { d.GetNsPrefix(static_cast<NsEnum>(-1)); }, E_INVALIDARG},
        {"prefix of no URI", [&] { A::GetPrefixFromURI(d, L"", &text); }, E_INVALIDARG},
        {"prefix to null", [&] { A::GetPrefixFromURI(d, L"x", nullptr); }, E_POINTER},
        {"empty query", [&] { d.QueryNode(L""); }, E_INVALIDARG},
        {"null query", [&] { d.QueryNode(nullptr); }, E_INVALIDARG},
        {"query without a DOM", [&] { empty.QueryNode(L"//x"); }, E_PENDING},
        // No framework prefix to build the query with.
        {"DOM-less feature", [&] { empty.GetFeatureNodeIfExists(L"psk:", L"A", &node); }, E_FAIL},
        {"not a ticket", [&] { PrintTicketXmlDocument t(capabilities); }, S_FALSE},
        {"option without prefix", [&] { noColon.GetFeatureOption(L"A", &text); }, E_FAIL},
        {"builder without prefix", [&] { builder.AddFeature(L"psk:", L"A"); }, E_FAIL},
        {"builder option", [&] { builder.AddOption(L"psk:"); }, E_FAIL},
        {"node to null", [&] { A::GetNode(d, L"//x", nullptr); }, E_POINTER},
        {"node of no query", [&] { A::GetNode(d, L"", &node); }, E_INVALIDARG},
        {"text to null", [&] { d.QueryNodeValue(L"//x", static_cast<BSTR*>(nullptr)); }, E_POINTER},
        {"integer of no query", [&] { d.QueryNodeValue(L"", &number); }, E_INVALIDARG},
        {"missing feature", [&] { d.GetFeatureNode(L"psk:", L"Missing", &node); }, E_FAIL},
        {"nodes of no name", [&] { A::GetNodes(d, L"", &list); }, E_FAIL},
        {"nodes to null", [&] { A::GetNodes(d, L"Feature", nullptr); }, E_POINTER},
        {"unnamed attribute", [&] { A::GetAttributeValue(d, feature, L"", &text); }, E_INVALIDARG},
        {"nodeless attribute", [&] { A::GetAttributeValue(d, nullptr, L"n", &text); }, E_POINTER},
        {"property in ns 7", [&] { d.CreateProperty(NsEnum(7), L"D", &element); }, E_INVALIDARG},
        {"element to null", [&] { A::CreateXMLElement(d, L"f:X", uri, nullptr); }, E_POINTER},
        {"unnamed element", [&] { A::CreateXMLElement(d, L"", uri, &element); }, E_INVALIDARG},
        {"typed property to null",
         [&] { A::CreateTypedProperty(d, keywords, L"A", L"v", L"string", nullptr); }, E_POINTER},
        {"scored null", [&] { A::CreateStringScoredProperty(d, L"k:", L"", nullptr); }, E_POINTER},
        {"unnamed", [&] { A::CreateStringScoredProperty(d, L"", L"", &element); }, E_INVALIDARG},
        {"append null to root", [&] { d.AppendChildToRootNode(nullptr); }, E_POINTER},
        {"append null", [&] { d.AppendChild(nullptr, nullptr); }, E_POINTER},
        {"parameter ref to null", [&] { d.CreateParameterRef(L"k:", L"A", nullptr); }, E_POINTER},
        {"unprefixed private features", [&] { d.DeletePrivateFeatures(L""); }, E_INVALIDARG},
        {"delete null", [&] { d.DeleteNode(nullptr); }, E_POINTER},
        // clang-format on
    };
    for (const auto& [name, call, thrown] : rows) EXPECT_EQ(ThrownHresult(call), thrown) << name;
    // The exceptions carry the qualified method name.
    const std::pair<int, const wchar_t*> functions[] = {
        {0, L"PrintSchemaXmlDocument::GetNsPrefix"},
        {4, L"PrintSchemaXmlDocument::QueryNode"},
        {8, L"PrintSchemaXmlDocument::PrintSchemaXmlDocument"},
        {9, L"PrintTicketXmlDocument::GetFeatureOption"},
        {10, L"PrintTicketQueryBuilder::AddFeature"},
        {11, L"PrintTicketQueryBuilder::AddOption"}};
    for (const auto& [row, function] : functions) {
        EXPECT_EQ(ThrownFunction(std::get<1>(rows[row])), function) << std::get<0>(rows[row]);
    }
    // Failures of the DOM itself are thrown as they are.
    for (const auto& call : std::vector<std::function<void()>>{
             [&] { d.QueryNode(L"//psf:Feature[@name="); },
             [&] { Access::CreateXMLElement(d, L"f:Bad Name", uri, &element); }}) {
        const auto thrown = ThrownHresult(call);
        ASSERT_TRUE(thrown.has_value());
        EXPECT_TRUE(FAILED(*thrown));
    }
}

// --- Element creation ---

// Every creation helper, on a document whose prefixes are deliberately unusual so that every
// name must come from the document.
TEST(PrintSchemaDocumentCreation, ElementsTakeTheDocumentsPrefixes) {
    PrintSchemaXmlDocument d(L"PrintTicket",
                             LoadXml(L"<f:PrintTicket xmlns:f='" + kFramework + L"' xmlns:k='" +
                                     kKeywords + L"' xmlns:xs='" + kSchema + L"' xmlns:in='" +
                                     kInstance + L"' xmlns:v='" + kPrivate + L"'/>"));
    std::vector<CComPtr<IXMLDOMElement>> e(10);
    d.CreateProperty(PrintSchema::MsPrintTicketFrameworkNamespace, L"A", &e[0]);
    d.CreateProperty(PrintSchema::MsPrintTicketKeywordsNamespace, L"B", &e[1]);
    d.CreateProperty(PrintSchema::MsPrintTicketUserKeywordsNamespace, L"C", &e[2]);
    Access::CreateTypedProperty(d, PrintSchema::MsPrintTicketKeywordsNamespace, L"DisplayName",
                                L"Letter <small>", L"string", &e[3]);
    Access::CreateStringScoredProperty(d, L"k:S", L"abc", &e[4]);
    Access::CreateIntegerScoredProperty(d, L"k:I", -42, &e[5]);
    Access::CreateRealScoredProperty(d, L"k:R", 1.5F, &e[6]);
    Access::CreateRealScoredProperty(d, L"k:N", -0.126F, &e[7]);
    d.CreateParameterRefScoredProperty(L"k:", L"MediaSizeWidth", L"k:",
                                       L"PageMediaSizeMediaSizeWidth", &e[8]);
    Access::CreateXMLElement(d, L"f:Feature", kFramework.c_str(), &e[9]);
    CComPtr<IXMLDOMElement> feature = e[9];
    Access::AppendXMLAttribute(d, feature, L"name", L"", L"k:JobNUp");
    d.AppendChildIntegerProperty(feature, PrintSchema::MsPrintTicketFrameworkNamespace, L"Count",
                                 4);
    d.AppendChildStringProperty(feature, PrintSchema::MsPrintTicketKeywordsNamespace,
                                L"DisplayName", L"Four up");
    d.AppendChildIntegerScoredProperty(feature, L"k:PagesPerSheet", 4);
    d.AppendChildQNameScoredProperty(feature, L"k:Direction", L"k:RightBottom");
    d.AppendChildParameterRefScoredProperty(feature, L"k:", L"Width", d.GetUserKeywordsNsPrefix(),
                                            L"W");
    CComPtr<IXMLDOMElement> value;
    Access::CreateXMLElement(d, L"f:Value", kFramework.c_str(), &value);
    CComPtr<IXMLDOMElement> wrapped;
    Access::CreateScoredPropertyWithChild(d, L"k:Wrapped", value, &wrapped);
    d.AppendChild(feature, wrapped);
    for (const auto& element : e) d.AppendChildToRootNode(element);

    RawXml raw(XmlOf(d));
    ASSERT_TRUE(raw.Parsed());
    const std::pair<const char*, const char*> rows[] = {
        // clang-format off
        {"/psf:PrintTicket/psf:Property/@name", "f:A|k:B|zk:C|k:DisplayName"},
        {"/psf:PrintTicket/psf:Property/psf:Value", "Letter <small>"},
        {"/psf:PrintTicket/psf:Property/psf:Value/@xsi:type", "xs:string"},
        {"/psf:PrintTicket/psf:ScoredProperty/@name", "k:S|k:I|k:R|k:N|k:MediaSizeWidth"},
        {"/psf:PrintTicket/psf:ScoredProperty/psf:Value", "abc|-42|1.50|-0.13"},
        {"/psf:PrintTicket/psf:ScoredProperty/psf:Value/@xsi:type",
         "xs:string|xs:integer|xs:decimal|xs:decimal"},
        {"//psf:ScoredProperty[@name='k:MediaSizeWidth']/psf:ParameterRef/@name",
         "k:PageMediaSizeMediaSizeWidth"},
        {"//psf:Feature[@name='k:JobNUp']/psf:Property/@name", "f:Count|k:DisplayName"},
        {"//psf:Feature/psf:Property/psf:Value", "4|Four up"},
        {"//psf:Feature/psf:ScoredProperty/@name", "k:PagesPerSheet|k:Direction|k:Width|k:Wrapped"},
        {"//psf:ScoredProperty[@name='k:Direction']/psf:Value/@xsi:type", "xs:QName"},
        {"//psf:ScoredProperty[@name='k:Width']/psf:ParameterRef/@name", "zk:W"},
        {"//psf:ScoredProperty[psf:Value][@name='k:Wrapped']/@name", "k:Wrapped"},
        // clang-format on
    };
    for (const auto& [xpath, expected] : rows) EXPECT_EQ(Joined(raw, xpath), expected) << xpath;
}

// --- Deleting ---

// Deletions in sequence on one document: what each returns and the names left.
TEST(PrintSchemaDocumentDeletion, DeletersReportWhetherTheyFoundSomething) {
    PrintSchemaXmlDocument d(
        L"PrintTicket",
        LoadXml(Ticket(L"<psf:Feature name='psk:D'><psf:Option name='psk:1'/></psf:Feature>"
                       L"<psf:Feature name='v:P'><psf:Feature name='v:N'/></psf:Feature>"
                       L"<psf:Feature name='psk:D'><psf:Option name='psk:2'/></psf:Feature>"
                       L"<psf:Property name='psf:S'/>"
                       L"<psf:Feature name='psk:K'><psf:Property name='psf:S'/></psf:Feature>"
                       L"<psf:Feature name='psk:D'><psf:Option name='psk:3'/></psf:Feature>",
                       L" xmlns:v='urn:vendor'")));
    CComPtr<IXMLDOMNode> kept;
    CComPtr<IXMLDOMNode> last;
    ASSERT_EQ(d.GetFeatureNodeIfExists(L"psk:", L"K", &kept), S_OK);
    auto dup = [&](const wchar_t* name) {
        return d.DeleteFeatureNodeIfADuplicateExists(L"psk:", name);
    };
    auto feature = [&](const wchar_t* name) { return d.DeleteFeatureNodeIfExists(L"psk:", name); };
    auto properties = [&](const wchar_t* name) {
        return d.DeletePropertyNodesIfExist(L"psf:", name);
    };
    // The names left after each step.
    const std::tuple<const char*, std::function<HRESULT()>, HRESULT, const char*> steps[] = {
        // clang-format off
        // A duplicated feature loses only its first occurrence, until one is left.
        {"duplicate", [&] { return dup(L"D"); }, S_OK,
         "v:P v:N psk:D psk:2 psf:S psk:K psf:S psk:D psk:3"},
        {"again", [&] { return dup(L"D"); }, S_OK, "v:P v:N psf:S psk:K psf:S psk:D psk:3"},
        {"single", [&] { return dup(L"D"); }, S_FALSE, "v:P v:N psf:S psk:K psf:S psk:D psk:3"},
        {"none", [&] { return dup(L"X"); }, S_FALSE, "v:P v:N psf:S psk:K psf:S psk:D psk:3"},
        // Property nodes go wherever they are.
        {"properties", [&] { return properties(L"S"); }, S_OK, "v:P v:N psk:K psk:D psk:3"},
        {"no properties", [&] { return properties(L"X"); }, S_FALSE, "v:P v:N psk:K psk:D psk:3"},
        // Private features go, nested ones too; public ones stay.
        {"private", [&] { return d.DeletePrivateFeatures(L"v:"); }, S_OK, "psk:K psk:D psk:3"},
        {"none", [&] { return d.DeletePrivateFeatures(L"v:"); }, S_FALSE, "psk:K psk:D psk:3"},
        {"feature", [&] { return feature(L"K"); }, S_OK, "psk:D psk:3"},
        {"no feature", [&] { return feature(L"K"); }, S_FALSE, "psk:D psk:3"},
        // A node without a parent any more is not deleted again.
        {"detached node", [&] { return d.DeleteNode(kept); }, S_FALSE, "psk:D psk:3"},
        {"node", [&] { d.GetFeatureNodeIfExists(L"psk:", L"D", &last); return d.DeleteNode(last); },
         S_OK, ""},
        // clang-format on
    };
    for (const auto& [name, call, hr, left] : steps) {
        EXPECT_EQ(call(), hr) << name;
        EXPECT_EQ(Joined(RawXml(XmlOf(d)), "//@name", " "), left) << name;
    }
}
