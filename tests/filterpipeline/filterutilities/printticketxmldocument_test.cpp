// Tests of PrintTicketXmlDocument: selected options, sub-feature options, ScoredProperty values,
// ParameterInit lookups and deletions, the orphan rule, and the ticket element builders.
#include "filterpipeline/filterutilities/printticketxmldocument.h"

#include <gtest/gtest.h>

#include "documenttesting.h"

using namespace documenttesting;
using Access = PrintSchemaTestAccess;

namespace {

std::wstring Wide(BSTR text) {
    return text == nullptr ? L"<null>" : text;
}

const std::wstring kTicketBody =
    L"<psf:ParameterInit name='psk:JobCopiesAllDocuments'>"
    L"  <psf:Value xsi:type='xsd:integer'>2</psf:Value></psf:ParameterInit>"
    L"<psf:Feature name='psk:PageMediaSize'>"
    L"  <psf:Option name='psk:ISOA4'>"
    L"    <psf:ScoredProperty name='psk:MediaSizeWidth'>"
    L"      <psf:Value xsi:type='xsd:integer'>210000</psf:Value></psf:ScoredProperty>"
    L"    <psf:ScoredProperty name='psk:Label'><psf:Value>abc</psf:Value></psf:ScoredProperty>"
    L"    <psf:ScoredProperty name='psk:Ratio'><psf:Value>1.25</psf:Value></psf:ScoredProperty>"
    L"  </psf:Option></psf:Feature>"
    L"<psf:Feature name='psk:JobCopies'><psf:Option>"
    L"  <psf:ScoredProperty name='psk:Copies'>"
    L"    <psf:ParameterRef name='psk:JobCopiesAllDocuments'/></psf:ScoredProperty>"
    L"</psf:Option></psf:Feature>"
    L"<psf:Feature name='psk:PageResolution'><psf:Option name='ns0000:Custom'/></psf:Feature>"
    L"<psf:Feature name='psk:Unnamed'><psf:Option>psk:FromText</psf:Option></psf:Feature>"
    L"<psf:Feature name='psk:NoColon'><psf:Option name='Plain'/></psf:Feature>"
    L"<psf:Feature name='psk:JobNUp'><psf:Option name='psk:Two'/>"
    L"  <psf:Feature name='psk:PresentationDirection'>"
    L"    <psf:Option name='psk:RightBottom'/></psf:Feature></psf:Feature>"
    L"<psf:Property name='psf:Stale'/><psf:Property name='psk:Keyword'/>";

class PrintTicketDocumentTest : public ::testing::Test {
protected:
    PrintTicketDocumentTest()
        : m_dom(LoadXml(Ticket(kTicketBody, L" xmlns:ns0000='urn:vendor'"))), m_ticket(m_dom) {}

    RawXml Raw() { return RawXml(XmlOf(m_ticket)); }

    CComPtr<IXMLDOMDocument2> m_dom;
    PrintTicketXmlDocument m_ticket;
};

}  // namespace

// --- Queries ---

TEST_F(PrintTicketDocumentTest, FeatureOptionSplitsAtTheFirstColon) {
    CComBSTR option;
    CComBSTR prefix;
    EXPECT_EQ(m_ticket.GetFeatureOption(L"PageMediaSize", &option, &prefix), S_OK);
    EXPECT_EQ(Wide(option), L"ISOA4");
    EXPECT_EQ(Wide(prefix), L"psk:");

    CComBSTR privateOption;
    CComBSTR privatePrefix;
    EXPECT_EQ(m_ticket.GetFeatureOption(L"PageResolution", &privateOption, &privatePrefix), S_OK);
    EXPECT_EQ(Wide(privateOption), L"Custom");
    EXPECT_EQ(Wide(privatePrefix), L"ns0000:");

    CComBSTR withoutPrefix;
    EXPECT_EQ(m_ticket.GetFeatureOption(L"JobNUp", &withoutPrefix), S_OK);
    EXPECT_EQ(Wide(withoutPrefix), L"Two");
}

TEST_F(PrintTicketDocumentTest, UnnamedOptionGivesItsText) {
    CComBSTR option;
    CComBSTR prefix;
    EXPECT_EQ(m_ticket.GetFeatureOption(L"Unnamed", &option, &prefix), S_OK);
    EXPECT_EQ(Wide(option), L"FromText");
    EXPECT_EQ(Wide(prefix), L"psk:");
}

TEST_F(PrintTicketDocumentTest, FeatureOptionFailures) {
    BSTR option = nullptr;
    BSTR prefix = nullptr;
    EXPECT_EQ(m_ticket.GetFeatureOption(L"Missing", &option, &prefix), kNotFound);
    EXPECT_EQ(option, nullptr);
    EXPECT_EQ(prefix, nullptr);
    EXPECT_EQ(ThrownHresult([&] { m_ticket.GetFeatureOption(L"NoColon", &option, &prefix); }),
              E_FAIL);
    // An Option with neither name nor text has nothing to split.
    EXPECT_EQ(ThrownHresult([&] { m_ticket.GetFeatureOption(L"JobCopies", &option); }), E_FAIL);
    EXPECT_EQ(ThrownHresult([&] { m_ticket.GetFeatureOption(L"", &option); }), E_INVALIDARG);
    EXPECT_EQ(ThrownHresult([&] { m_ticket.GetFeatureOption(L"PageMediaSize", nullptr); }),
              E_POINTER);
}

TEST_F(PrintTicketDocumentTest, OptionNameScoredPropertyStandsInForAMissingOption) {
    CComPtr<IXMLDOMDocument2> dom = LoadXml(
        Ticket(L"<psf:Feature name='psk:PageOrientation'>"
               L"<psf:ScoredProperty name='psk:OptionName'><psf:Value>psk:Landscape</psf:Value>"
               L"</psf:ScoredProperty></psf:Feature>"));
    PrintTicketXmlDocument ticket(dom);
    CComBSTR option;
    EXPECT_EQ(ticket.GetFeatureOption(L"PageOrientation", &option), S_OK);
    EXPECT_EQ(Wide(option), L"Landscape");
}

TEST_F(PrintTicketDocumentTest, FeaturePresence) {
    EXPECT_EQ(m_ticket.FeaturePresent(L"PageMediaSize"), S_OK);
    CComPtr<IXMLDOMNode> node;
    EXPECT_EQ(m_ticket.FeaturePresent(L"PresentationDirection", &node), S_OK);
    EXPECT_NE(node, nullptr);
    EXPECT_EQ(m_ticket.FeaturePresent(L"Missing"), kNotFound);
    EXPECT_EQ(ThrownHresult([&] { m_ticket.FeaturePresent(L""); }), E_INVALIDARG);
}

TEST_F(PrintTicketDocumentTest, SubFeatureOptionHasTheKeywordPrefixStripped) {
    CComBSTR option;
    EXPECT_EQ(m_ticket.GetSubFeatureOption(L"JobNUp", L"PresentationDirection", &option), S_OK);
    EXPECT_EQ(Wide(option), L"RightBottom");
    CComBSTR none;
    EXPECT_EQ(m_ticket.GetSubFeatureOption(L"JobNUp", L"Missing", &none), kNotFound);
    EXPECT_EQ(m_ticket.GetSubFeatureOption(L"PageMediaSize", L"PresentationDirection", &none),
              kNotFound);
    EXPECT_EQ(ThrownHresult([&] { m_ticket.GetSubFeatureOption(L"JobNUp", L"", &none); }),
              E_INVALIDARG);
    EXPECT_EQ(ThrownHresult([&] { m_ticket.GetSubFeatureOption(L"JobNUp", L"X", nullptr); }),
              E_POINTER);
}

TEST_F(PrintTicketDocumentTest, QueryNodeOptionStripsOnlyTheKeywordsPrefix) {
    CComBSTR option;
    EXPECT_EQ(
        m_ticket.QueryNodeOption(L"//psf:Feature[@name='psk:PageMediaSize']/psf:Option", &option),
        S_OK);
    EXPECT_EQ(Wide(option), L"ISOA4");
    CComBSTR privateOption;
    EXPECT_EQ(m_ticket.QueryNodeOption(L"//psf:Feature[@name='psk:PageResolution']/psf:Option",
                                       &privateOption),
              S_OK);
    EXPECT_EQ(Wide(privateOption), L"ns0000:Custom");
    CComBSTR none;
    EXPECT_EQ(m_ticket.QueryNodeOption(L"//psf:Nothing", &none), kNotFound);
    EXPECT_EQ(none.m_str, nullptr);
    EXPECT_EQ(ThrownHresult([&] { m_ticket.QueryNodeOption(L"", &none); }), E_INVALIDARG);
}

TEST_F(PrintTicketDocumentTest, StripKeywordNamespaceRemovesTheFirstOccurrence) {
    struct Case {
        const wchar_t* in;
        const wchar_t* out;
    };
    for (const Case& c : {Case{L"psk:Foo", L"Foo"}, Case{L"ns0000:Foo", L"ns0000:Foo"},
                          Case{L"x-psk:A-psk:B", L"x-A-psk:B"}, Case{L"psk:", L""}}) {
        BSTR text = ::SysAllocString(c.in);
        EXPECT_EQ(Access::StripKeywordNamespace(m_ticket, &text), S_OK);
        EXPECT_EQ(std::wstring(text), c.out) << Utf8(c.in);
        ::SysFreeString(text);
    }
    BSTR empty = nullptr;
    EXPECT_EQ(ThrownHresult([&] { Access::StripKeywordNamespace(m_ticket, &empty); }),
              E_INVALIDARG);
    EXPECT_EQ(ThrownHresult([&] { Access::StripKeywordNamespace(m_ticket, nullptr); }), E_POINTER);
}

TEST_F(PrintTicketDocumentTest, ScoredPropertyValueAsTextIntegerAndReal) {
    CComBSTR text;
    EXPECT_EQ(m_ticket.GetScoredPropertyValue(L"PageMediaSize", L"MediaSizeWidth", &text), S_OK);
    EXPECT_EQ(Wide(text), L"210000");
    int number = -1;
    EXPECT_EQ(m_ticket.GetScoredPropertyValue(L"PageMediaSize", L"MediaSizeWidth", &number), S_OK);
    EXPECT_EQ(number, 210000);
    EXPECT_EQ(m_ticket.GetScoredPropertyValue(L"PageMediaSize", L"Label", &number), S_OK);
    EXPECT_EQ(number, 0);  // non-numeric text reads as 0
    float real = 0.0F;
    EXPECT_EQ(m_ticket.GetScoredPropertyValue(L"PageMediaSize", L"Ratio", &real), S_OK);
    EXPECT_FLOAT_EQ(real, 1.25F);
    EXPECT_EQ(m_ticket.GetScoredPropertyValue(L"JobCopies", L"Copies", &number), S_OK);
    EXPECT_EQ(number, 2);  // through the ParameterRef
}

TEST_F(PrintTicketDocumentTest, ScoredPropertyAbsenceIsReturnedAndLeavesTheValue) {
    int number = 77;
    EXPECT_EQ(m_ticket.GetScoredPropertyValue(L"PageMediaSize", L"Missing", &number), kNotFound);
    EXPECT_EQ(number, 77);
    float real = 7.0F;
    EXPECT_EQ(m_ticket.GetScoredPropertyValue(L"Missing", L"MediaSizeWidth", &real), kNotFound);
    EXPECT_EQ(real, 7.0F);
    CComBSTR text;
    EXPECT_EQ(ThrownHresult([&] { m_ticket.GetScoredPropertyValue(L"", L"A", &text); }),
              E_INVALIDARG);
    EXPECT_EQ(ThrownHresult(
                  [&] { m_ticket.GetScoredPropertyValue(L"A", L"B", static_cast<int*>(nullptr)); }),
              E_POINTER);
}

TEST_F(PrintTicketDocumentTest, ParameterInitLookups) {
    CComPtr<IXMLDOMNode> init;
    EXPECT_EQ(m_ticket.GetParameterInitNodeIfExists(L"psk:", L"JobCopiesAllDocuments", &init),
              S_OK);
    CComPtr<IXMLDOMNode> value;
    EXPECT_EQ(m_ticket.GetParameterInitValueNodeIfExists(L"psk:", L"JobCopiesAllDocuments", &value),
              S_OK);
    CComBSTR text;
    value->get_text(&text);
    EXPECT_EQ(Wide(text), L"2");
    CComPtr<IXMLDOMNode> none;
    EXPECT_EQ(m_ticket.GetParameterInitNodeIfExists(L"ns0000:", L"JobCopiesAllDocuments", &none),
              S_FALSE);
}

// --- Deletion ---

TEST_F(PrintTicketDocumentTest, ParameterInitDeletionReportsAbsence) {
    EXPECT_EQ(m_ticket.DeleteParameterInitNodeIfExists(L"psk:", L"JobCopiesAllDocuments"), S_OK);
    EXPECT_EQ(m_ticket.DeleteParameterInitNodeIfExists(L"psk:", L"JobCopiesAllDocuments"), S_FALSE);
    EXPECT_EQ(Raw().Count("//psf:ParameterInit"), 0u);
}

TEST_F(PrintTicketDocumentTest, DeletePropertyLooksNamesUpUnderTheFrameworkPrefix) {
    EXPECT_EQ(m_ticket.DeleteProperty(L"Keyword"), S_FALSE);  // psk:Keyword is not psf:Keyword
    EXPECT_EQ(m_ticket.DeleteProperty(L"Stale"), S_OK);
    EXPECT_EQ(Raw().Strings("//psf:Property/@name"), std::vector<std::string>{"psk:Keyword"});
    EXPECT_EQ(ThrownHresult([&] { m_ticket.DeleteProperty(L""); }), E_INVALIDARG);
}

TEST(PrintTicketOrphans, EmptyReferenceListDeletesEveryInit) {
    PrintTicketXmlDocument ticket(
        LoadXml(Ticket(L"<psf:ParameterInit name='psk:A'/><psf:ParameterInit name='psk:B'/>")));
    CComPtr<IXMLDOMNodeList> refs;
    CComPtr<IXMLDOMNodeList> inits;
    Access::GetNodes(ticket, L"ParameterRef", &refs);
    Access::GetNodes(ticket, L"ParameterInit", &inits);
    EXPECT_EQ(Access::DeleteParamInitOrphans(ticket, refs, inits), S_OK);
    EXPECT_EQ(RawXml(XmlOf(ticket)).Count("//psf:ParameterInit"), 0u);
}

TEST(PrintTicketOrphans, OnlyExactlyNamedInitsSurvive) {
    PrintTicketXmlDocument ticket(
        LoadXml(Ticket(L"<psf:Feature name='psk:F'><psf:Option><psf:ScoredProperty name='psk:S'>"
                       L"<psf:ParameterRef name='psk:A'/><psf:ParameterRef/>"
                       L"</psf:ScoredProperty></psf:Option></psf:Feature>"
                       L"<psf:ParameterInit name='psk:A'/><psf:ParameterInit name='psk:a'/>"
                       L"<psf:ParameterInit name='psk:A2'/><psf:ParameterInit/>")));
    CComPtr<IXMLDOMNodeList> refs;
    CComPtr<IXMLDOMNodeList> inits;
    Access::GetNodes(ticket, L"ParameterRef", &refs);
    Access::GetNodes(ticket, L"ParameterInit", &inits);
    EXPECT_EQ(Access::DeleteParamInitOrphans(ticket, refs, inits), S_OK);
    RawXml raw(XmlOf(ticket));
    // psk:A is referenced; the nameless ParameterInit is kept; psk:a and psk:A2 go.
    EXPECT_EQ(raw.Count("//psf:ParameterInit"), 2u);
    EXPECT_EQ(raw.Strings("//psf:ParameterInit/@name"), std::vector<std::string>{"psk:A"});
    EXPECT_EQ(ThrownHresult([&] { Access::DeleteParamInitOrphans(ticket, nullptr, inits); }),
              E_POINTER);
    EXPECT_EQ(ThrownHresult([&] { Access::DeleteNodeList(ticket, nullptr); }), E_POINTER);
}

// --- Element building ---

TEST_F(PrintTicketDocumentTest, FeatureOptionPairsUsePublicOrPrivatePrefixes) {
    CComPtr<IXMLDOMElement> feature;
    CComPtr<IXMLDOMElement> option;
    EXPECT_EQ(m_ticket.CreateFeatureOptionPair(true, L"PageOutputColor", false, L"Sepia", &feature,
                                               &option),
              S_OK);
    m_ticket.AppendChildToRootNode(feature);
    CComPtr<IXMLDOMElement> bare;
    CComPtr<IXMLDOMElement> bareOption;
    EXPECT_EQ(m_ticket.CreateFeatureOptionPair(false, L"Finishing", &bare, &bareOption), S_OK);
    m_ticket.AppendChildToRootNode(bare);
    RawXml raw = Raw();
    // The ticket does not declare the private keywords: they are declared before the first
    // name in them is written.
    EXPECT_EQ(raw.Strings("//psf:Feature[@name='psk:PageOutputColor']/psf:Option/@name"),
              std::vector<std::string>{"zk:Sepia"});
    EXPECT_EQ(raw.Count("//psf:Feature[@name='zk:Finishing']/psf:Option[not(@name)]"), 1u);
    EXPECT_EQ(Wide(m_ticket.GetUserKeywordsNsPrefix()), L"zk:");
    CComBSTR read;
    EXPECT_EQ(m_ticket.GetFeatureOption(L"PageOutputColor", &read), S_OK);
    EXPECT_EQ(Wide(read), L"Sepia");
    CComPtr<IXMLDOMElement> unused;
    EXPECT_EQ(
        ThrownHresult([&] { m_ticket.CreateFeatureOptionPair(true, L"A", nullptr, &unused); }),
        E_POINTER);
}

TEST_F(PrintTicketDocumentTest, ParamRefInitPairWritesSignedIntegers) {
    CComPtr<IXMLDOMElement> reference;
    CComPtr<IXMLDOMElement> init;
    EXPECT_EQ(m_ticket.CreateParamRefInitPair(L"Offset", -1, &reference, &init), S_OK);
    m_ticket.AppendChildToRootNode(init);
    m_ticket.AppendChildToRootNode(reference);
    CComPtr<IXMLDOMElement> stringReference;
    CComPtr<IXMLDOMElement> stringInit;
    EXPECT_EQ(m_ticket.CreateParamRefInitPair(L"Note", L"hello", L"string", &stringReference,
                                              &stringInit),
              S_OK);
    m_ticket.AppendChildToRootNode(stringInit);
    RawXml raw = Raw();
    EXPECT_EQ(raw.Strings("//psf:ParameterInit[@name='psk:Offset']/psf:Value"),
              std::vector<std::string>{"-1"});
    EXPECT_EQ(raw.Strings("//psf:ParameterInit[@name='psk:Offset']/psf:Value/@xsi:type"),
              std::vector<std::string>{"xsd:integer"});
    EXPECT_EQ(raw.Strings("/psf:PrintTicket/psf:ParameterRef/@name"),
              std::vector<std::string>{"psk:Offset"});
    EXPECT_EQ(raw.Strings("//psf:ParameterInit[@name='psk:Note']/psf:Value/@xsi:type"),
              std::vector<std::string>{"xsd:string"});
    CComPtr<IXMLDOMElement> a;
    CComPtr<IXMLDOMElement> b;
    EXPECT_EQ(ThrownHresult([&] { m_ticket.CreateParamRefInitPair(L"N", L"", L"string", &a, &b); }),
              E_INVALIDARG);
    EXPECT_EQ(
        ThrownHresult([&] { m_ticket.CreateParamRefInitPair(L"N", L"v", L"string", nullptr, &b); }),
        E_POINTER);
}

TEST_F(PrintTicketDocumentTest, IntegerParameterInitIsWrittenUnsigned) {
    m_ticket.AppendIntegerParameterInit(L"ns0000:", L"Minus", -1);
    m_ticket.AppendIntegerParameterInit(L"ns0000:", L"Plus", 7);
    m_ticket.AppendStringParameterInit(L"ns0000:", L"Text", L"a & b");
    CComPtr<IXMLDOMElement> untyped;
    m_ticket.CreateUntypedParameterInitFromString(L"ns0000:", L"Raw", L"payload", &untyped);
    EXPECT_EQ(m_ticket.AppendToElement(L"PrintTicket", untyped), S_OK);
    RawXml raw = Raw();
    EXPECT_EQ(raw.Strings("//psf:ParameterInit[@name='zk:Minus']/psf:Value"),
              std::vector<std::string>{"4294967295"});
    EXPECT_EQ(raw.Strings("//psf:ParameterInit[@name='zk:Plus']/psf:Value/@xsi:type"),
              std::vector<std::string>{"xsd:integer"});
    EXPECT_EQ(raw.Strings("//psf:ParameterInit[@name='zk:Text']/psf:Value"),
              std::vector<std::string>{"a & b"});
    EXPECT_EQ(raw.Strings("//psf:ParameterInit[@name='zk:Text']/psf:Value/@xsi:type"),
              std::vector<std::string>{"xsd:string"});
    EXPECT_EQ(raw.Strings("//psf:ParameterInit[@name='zk:Raw']/psf:Value"),
              std::vector<std::string>{"payload"});
    EXPECT_EQ(raw.Count("//psf:ParameterInit[@name='zk:Raw']/psf:Value/@*"), 0u);
    // The appended ParameterInits are the root's last children, in order, all under the
    // private prefix declared by the first of them (though the caller passed the placeholder).
    EXPECT_EQ(
        raw.Strings("/psf:PrintTicket/*[position() > last() - 4]/@name"),
        (std::vector<std::string>{"zk:Minus", "zk:Plus", "zk:Text", "zk:Raw"}));
}

TEST_F(PrintTicketDocumentTest, ParameterInitArgumentChecks) {
    CComPtr<IXMLDOMElement> init;
    EXPECT_EQ(ThrownHresult([&] { m_ticket.CreateStringParameterInit(L"", L"N", L"v", &init); }),
              E_INVALIDARG);
    EXPECT_EQ(ThrownHresult([&] { m_ticket.CreateStringParameterInit(L"p:", L"N", L"", &init); }),
              E_INVALIDARG);
    EXPECT_EQ(ThrownHresult([&] { m_ticket.CreateIntegerParameterInit(L"p:", L"", 1, &init); }),
              E_INVALIDARG);
    EXPECT_EQ(ThrownHresult([&] {
                  m_ticket.CreateUntypedParameterInitFromString(L"p:", L"N", L"v", nullptr);
              }),
              E_POINTER);
    // A failed build inserts nothing.
    EXPECT_EQ(ThrownHresult([&] { m_ticket.AppendStringParameterInit(L"p:", L"N", nullptr); }),
              E_INVALIDARG);
    EXPECT_EQ(Raw().Count("//psf:ParameterInit"), 1u);
}

TEST_F(PrintTicketDocumentTest, AppendToElementNeedsAnExistingTarget) {
    CComPtr<IXMLDOMElement> feature;
    CComPtr<IXMLDOMElement> option;
    m_ticket.CreateFeatureOptionPair(true, L"Extra", &feature, &option);
    EXPECT_EQ(m_ticket.AppendToElement(L"Nowhere", feature), kNotFound);
    EXPECT_EQ(ThrownHresult([&] { m_ticket.AppendToElement(L"PrintTicket", nullptr); }), E_POINTER);
    EXPECT_EQ(ThrownHresult([&] { m_ticket.AppendToElement(L"", feature); }), E_INVALIDARG);
    EXPECT_EQ(Raw().Count("//psf:Feature[@name='psk:Extra']"), 0u);
}

// Lookups on tickets that declare other prefixes, asked in turn on one thread: each answers from
// its own prefixes, however the lookups before it were built.
TEST(PrintTicketLookupsInTurn, EachTicketAnswersWithItsOwnPrefixes) {
    const std::wstring otherPrefixes =
        L" xmlns:f='" + kFramework + L"' xmlns:k='" + kKeywords + L"' xmlns:q='" + kInstance + L"'";
    CComPtr<IXMLDOMDocument2> usualDom = LoadXml(Ticket(kTicketBody));
    CComPtr<IXMLDOMDocument2> otherDom = LoadXml(
        L"<f:PrintTicket" + otherPrefixes +
        L" version='1'>"
        L"<f:Feature name='k:PageMediaSize'><f:Option name='k:ISOA3'>"
        L"<f:ScoredProperty name='k:MediaSizeWidth'><f:Value>297000</f:Value>"
        L"</f:ScoredProperty></f:Option></f:Feature>"
        L"<f:ParameterInit name='k:JobCopiesAllDocuments'><f:Value>7</f:Value></f:ParameterInit>"
        // Written with the usual prefixes, which this ticket binds to nothing Print Schema.
        L"<psf:Feature xmlns:psf='urn:not-the-framework' name='psk:PageMediaSize'>"
        L"<psf:Option name='psk:Letter'/></psf:Feature>"
        L"</f:PrintTicket>");
    PrintTicketXmlDocument usual(usualDom);
    PrintTicketXmlDocument other(otherDom);
    ASSERT_EQ(Wide(other.GetFrameworkNsPrefix()), L"f:");

    for (int round = 0; round < 3; ++round) {
        SCOPED_TRACE(round);
        for (PrintTicketXmlDocument* ticket : {&usual, &other}) {
            const bool isUsual = ticket == &usual;
            CComBSTR option;
            ASSERT_EQ(ticket->GetFeatureOption(L"PageMediaSize", &option, nullptr), S_OK);
            EXPECT_EQ(Wide(option), isUsual ? L"ISOA4" : L"ISOA3");
            int width = 0;
            ASSERT_EQ(ticket->GetScoredPropertyValue(L"PageMediaSize", L"MediaSizeWidth", &width),
                      S_OK);
            EXPECT_EQ(width, isUsual ? 210000 : 297000);
            CComPtr<IXMLDOMNode> value;
            ASSERT_EQ(ticket->GetParameterInitValueNodeIfExists(isUsual ? L"psk:" : L"k:",
                                                                L"JobCopiesAllDocuments", &value),
                      S_OK);
            CComBSTR text;
            ASSERT_EQ(value->get_text(&text), S_OK);
            EXPECT_EQ(Wide(text), isUsual ? L"2" : L"7");
            // More distinct lookups than are kept in between: answers do not change.
            for (int i = 0; i < 12; ++i) {
                const std::wstring name = L"Absent" + std::to_wstring(i);
                CComBSTR none;
                EXPECT_EQ(ticket->GetFeatureOption(name.c_str(), &none, nullptr),
                          HRESULT_FROM_WIN32(ERROR_NOT_FOUND));
            }
        }
        // A name far longer than anything kept is looked up like any other.
        const std::wstring longName(2000, L'L');
        CComBSTR none;
        EXPECT_EQ(usual.GetFeatureOption(longName.c_str(), &none, nullptr),
                  HRESULT_FROM_WIN32(ERROR_NOT_FOUND));
    }
}
