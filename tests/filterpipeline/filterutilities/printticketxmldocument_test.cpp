// Tests of PrintTicketXmlDocument: selected options, sub-feature options, ScoredProperty values,
// ParameterInit lookups and deletions, the orphan rule, and the ticket element builders.
#include "filterpipeline/filterutilities/printticketxmldocument.h"

#include <gtest/gtest.h>

#include <sstream>

#include "documenttesting.h"

using namespace documenttesting;
using Access = PrintSchemaTestAccess;
using Strings = std::vector<std::string>;

namespace {

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

std::string Show(const CComBSTR& text) {
    return Utf8(text);
}
template <class T>
std::string Show(T value) {
    std::ostringstream out;
    out << value;
    return out.str();
}

// GetFeatureOption as "prefix|option" ("|option" when the prefix is not asked for).
std::string Option(PrintTicketXmlDocument& t, const wchar_t* feature, bool withPrefix = true) {
    CComBSTR option;
    CComBSTR prefix;
    return Outcome(
        [&] { return t.GetFeatureOption(feature, &option, withPrefix ? &prefix : nullptr); },
        [&] { return option || prefix ? Show(prefix) + "|" + Show(option) : ""; });
}

std::string SubOption(PrintTicketXmlDocument& t, const wchar_t* feature, const wchar_t* sub) {
    CComBSTR option;
    return Outcome([&] { return t.GetSubFeatureOption(feature, sub, &option); },
                   [&] { return Show(option); });
}

std::string NodeOption(PrintTicketXmlDocument& t, const wchar_t* query) {
    CComBSTR option;
    return Outcome([&] { return t.QueryNodeOption(query, &option); }, [&] { return Show(option); });
}

std::string Present(PrintTicketXmlDocument& t, const wchar_t* feature) {
    CComPtr<IXMLDOMNode> node;
    return Outcome([&] { return t.FeaturePresent(feature, &node); },
                   [&] { return node ? "node" : ""; });
}

// GetScoredPropertyValue into a T that starts as `value`.
template <class T>
std::string Scored(PrintTicketXmlDocument& t, const wchar_t* feature, const wchar_t* property,
                   T value = T()) {
    return Outcome([&] { return t.GetScoredPropertyValue(feature, property, &value); },
                   [&] { return Show(value); });
}

// The text of the Value of a ParameterInit.
std::string InitValue(PrintTicketXmlDocument& t, const wchar_t* prefix, const wchar_t* name) {
    CComPtr<IXMLDOMNode> value;
    return Outcome([&] { return t.GetParameterInitValueNodeIfExists(prefix, name, &value); },
                   [&] {
                       CComBSTR text;
                       if (value) value->get_text(&text);
                       return Show(text);
                   });
}

class PrintTicketDocumentTest : public ::testing::Test {
protected:
    PrintTicketDocumentTest()
        : m_dom(LoadXml(Ticket(kTicketBody, L" xmlns:ns0000='urn:vendor'"))), m_ticket(m_dom) {}

    RawXml Raw() { return RawXml(XmlOf(m_ticket)); }

    CComPtr<IXMLDOMDocument2> m_dom;
    PrintTicketXmlDocument m_ticket;
};

}  // namespace

TEST_F(PrintTicketDocumentTest, Queries) {
    PrintTicketXmlDocument& t = m_ticket;
    // The selected option splits at the first colon; an Option without a name gives its text.
    EXPECT_EQ(Option(t, L"PageMediaSize"), "psk:|ISOA4");
    EXPECT_EQ(Option(t, L"PageResolution"), "ns0000:|Custom");
    EXPECT_EQ(Option(t, L"Unnamed"), "psk:|FromText");
    EXPECT_EQ(Option(t, L"JobNUp", false), "|Two");
    EXPECT_EQ(Option(t, L"Missing"), "returned NOT_FOUND");  // both outputs left null
    EXPECT_EQ(Option(t, L"NoColon"), "threw E_FAIL");
    EXPECT_EQ(Option(t, L"JobCopies", false), "threw E_FAIL");  // neither name nor text
    EXPECT_EQ(Option(t, L""), "threw E_INVALIDARG");
    EXPECT_THROWS_HR(t.GetFeatureOption(L"PageMediaSize", nullptr), E_POINTER);

    EXPECT_EQ(t.FeaturePresent(L"PageMediaSize"), S_OK);
    EXPECT_EQ(Present(t, L"PresentationDirection"), "node");
    EXPECT_EQ(Present(t, L"Missing"), "returned NOT_FOUND");
    EXPECT_EQ(Present(t, L""), "threw E_INVALIDARG");

    // Sub-features and complete queries strip only the keywords prefix.
    EXPECT_EQ(SubOption(t, L"JobNUp", L"PresentationDirection"), "RightBottom");
    EXPECT_EQ(SubOption(t, L"JobNUp", L"Missing"), "returned NOT_FOUND");
    EXPECT_EQ(SubOption(t, L"PageMediaSize", L"PresentationDirection"), "returned NOT_FOUND");
    EXPECT_EQ(SubOption(t, L"JobNUp", L""), "threw E_INVALIDARG");
    EXPECT_THROWS_HR(t.GetSubFeatureOption(L"JobNUp", L"X", nullptr), E_POINTER);
    EXPECT_EQ(NodeOption(t, L"//psf:Feature[@name='psk:PageMediaSize']/psf:Option"), "ISOA4");
    EXPECT_EQ(NodeOption(t, L"//psf:Feature[@name='psk:PageResolution']/psf:Option"),
              "ns0000:Custom");
    EXPECT_EQ(NodeOption(t, L"//psf:Nothing"), "returned NOT_FOUND");
    EXPECT_EQ(NodeOption(t, L""), "threw E_INVALIDARG");

    // ScoredProperty values as text, integer (non-numeric text reads as 0) and real, through a
    // ParameterRef; an absent one leaves the value.
    EXPECT_EQ(Scored<CComBSTR>(t, L"PageMediaSize", L"MediaSizeWidth"), "210000");
    EXPECT_EQ(Scored<int>(t, L"PageMediaSize", L"MediaSizeWidth"), "210000");
    EXPECT_EQ(Scored<int>(t, L"PageMediaSize", L"Label", -1), "0");
    EXPECT_EQ(Scored<float>(t, L"PageMediaSize", L"Ratio"), "1.25");
    EXPECT_EQ(Scored<int>(t, L"JobCopies", L"Copies"), "2");
    EXPECT_EQ(Scored<int>(t, L"PageMediaSize", L"Missing", 77), "returned NOT_FOUND with 77");
    EXPECT_EQ(Scored<float>(t, L"Missing", L"MediaSizeWidth", 7.5F), "returned NOT_FOUND with 7.5");
    EXPECT_EQ(Scored<CComBSTR>(t, L"", L"A"), "threw E_INVALIDARG");
    EXPECT_THROWS_HR(t.GetScoredPropertyValue(L"A", L"B", static_cast<int*>(nullptr)), E_POINTER);

    CComPtr<IXMLDOMNode> init;
    EXPECT_EQ(t.GetParameterInitNodeIfExists(L"psk:", L"JobCopiesAllDocuments", &init), S_OK);
    EXPECT_EQ(InitValue(t, L"psk:", L"JobCopiesAllDocuments"), "2");
    CComPtr<IXMLDOMNode> none;
    EXPECT_EQ(t.GetParameterInitNodeIfExists(L"ns0000:", L"JobCopiesAllDocuments", &none), S_FALSE);
}

TEST_F(PrintTicketDocumentTest, StripKeywordNamespaceRemovesTheFirstOccurrence) {
    PrintTicketXmlDocument& t = m_ticket;
    for (const auto& [in, out] : {std::pair{L"psk:Foo", L"Foo"},
                                  {L"ns0000:Foo", L"ns0000:Foo"},
                                  {L"x-psk:A-psk:B", L"x-A-psk:B"},
                                  {L"psk:", L""}}) {
        CComBSTR text(in);
        EXPECT_EQ(Access::StripKeywordNamespace(t, &text.m_str), S_OK);
        EXPECT_STREQ(text, out);
    }
    BSTR empty = nullptr;
    EXPECT_THROWS_HR(Access::StripKeywordNamespace(t, &empty), E_INVALIDARG);
    EXPECT_THROWS_HR(Access::StripKeywordNamespace(t, nullptr), E_POINTER);
}

TEST_F(PrintTicketDocumentTest, Deletion) {
    PrintTicketXmlDocument& t = m_ticket;
    EXPECT_EQ(t.DeleteParameterInitNodeIfExists(L"psk:", L"JobCopiesAllDocuments"), S_OK);
    EXPECT_EQ(t.DeleteParameterInitNodeIfExists(L"psk:", L"JobCopiesAllDocuments"), S_FALSE);
    // Property names are looked up under the framework prefix: psk:Keyword is not psf:Keyword.
    EXPECT_EQ(t.DeleteProperty(L"Keyword"), S_FALSE);
    EXPECT_EQ(t.DeleteProperty(L"Stale"), S_OK);
    EXPECT_THROWS_HR(t.DeleteProperty(L""), E_INVALIDARG);
    RawXml raw = Raw();
    EXPECT_EQ(raw.Count("//psf:ParameterInit"), 0u);
    EXPECT_EQ(raw.Strings("//psf:Property/@name"), Strings{"psk:Keyword"});
}

TEST(PrintTicketOrphans, OnlyExactlyNamedOrNamelessInitsSurvive) {
    const struct {
        const char* name;
        std::wstring body;
        std::size_t kept;  // ParameterInits left, named or not
        Strings names;     // the names of those left
    } rows[] = {
        {"no references",
         L"<psf:ParameterInit name='psk:A'/><psf:ParameterInit name='psk:B'/>",
         0,
         {}},
        {"psk:A referenced; psk:a and psk:A2 go",
         L"<psf:Feature name='psk:F'><psf:Option><psf:ScoredProperty name='psk:S'>"
         L"<psf:ParameterRef name='psk:A'/><psf:ParameterRef/></psf:ScoredProperty></psf:Option>"
         L"</psf:Feature><psf:ParameterInit name='psk:A'/><psf:ParameterInit name='psk:a'/>"
         L"<psf:ParameterInit name='psk:A2'/><psf:ParameterInit/>",
         2,
         {"psk:A"}},
    };
    for (const auto& row : rows) {
        SCOPED_TRACE(row.name);
        PrintTicketXmlDocument ticket(LoadXml(Ticket(row.body)));
        CComPtr<IXMLDOMNodeList> refs;
        CComPtr<IXMLDOMNodeList> inits;
        Access::GetNodes(ticket, L"ParameterRef", &refs);
        Access::GetNodes(ticket, L"ParameterInit", &inits);
        EXPECT_EQ(Access::DeleteParamInitOrphans(ticket, refs, inits), S_OK);
        RawXml raw(XmlOf(ticket));
        EXPECT_EQ(raw.Count("//psf:ParameterInit"), row.kept);
        EXPECT_EQ(raw.Strings("//psf:ParameterInit/@name"), row.names);
        EXPECT_THROWS_HR(Access::DeleteParamInitOrphans(ticket, nullptr, inits), E_POINTER);
        EXPECT_THROWS_HR(Access::DeleteNodeList(ticket, nullptr), E_POINTER);
    }
}

// --- Element building ---

TEST_F(PrintTicketDocumentTest, FeatureOptionAndParameterPairs) {
    PrintTicketXmlDocument& t = m_ticket;
    CComPtr<IXMLDOMElement> feature, option, bare, bareOption;
    EXPECT_EQ(
        t.CreateFeatureOptionPair(true, L"PageOutputColor", false, L"Sepia", &feature, &option),
        S_OK);
    t.AppendChildToRootNode(feature);
    EXPECT_EQ(t.CreateFeatureOptionPair(false, L"Finishing", &bare, &bareOption), S_OK);
    t.AppendChildToRootNode(bare);
    CComPtr<IXMLDOMElement> reference, init, stringReference, stringInit;
    EXPECT_EQ(t.CreateParamRefInitPair(L"Offset", -1, &reference, &init), S_OK);
    t.AppendChildToRootNode(init);
    t.AppendChildToRootNode(reference);
    EXPECT_EQ(t.CreateParamRefInitPair(L"Note", L"hello", L"string", &stringReference, &stringInit),
              S_OK);
    t.AppendChildToRootNode(stringInit);
    RawXml raw = Raw();
    // The ticket does not declare the private keywords: they are declared before the first
    // name in them is written.
    EXPECT_EQ(raw.Strings("//psf:Feature[@name='psk:PageOutputColor']/psf:Option/@name"),
              Strings{"zk:Sepia"});
    EXPECT_EQ(raw.Count("//psf:Feature[@name='zk:Finishing']/psf:Option[not(@name)]"), 1u);
    EXPECT_STREQ(t.GetUserKeywordsNsPrefix(), L"zk:");
    EXPECT_EQ(Option(t, L"PageOutputColor", false), "|Sepia");
    // Integer pairs are signed.
    EXPECT_EQ(raw.Strings("//psf:ParameterInit[@name='psk:Offset']/psf:Value"), Strings{"-1"});
    EXPECT_EQ(raw.Strings("//psf:ParameterInit[@name='psk:Offset']/psf:Value/@xsi:type"),
              Strings{"xsd:integer"});
    EXPECT_EQ(raw.Strings("/psf:PrintTicket/psf:ParameterRef/@name"), Strings{"psk:Offset"});
    EXPECT_EQ(raw.Strings("//psf:ParameterInit[@name='psk:Note']/psf:Value/@xsi:type"),
              Strings{"xsd:string"});
    CComPtr<IXMLDOMElement> a, b;
    EXPECT_THROWS_HR(t.CreateFeatureOptionPair(true, L"A", nullptr, &a), E_POINTER);
    EXPECT_THROWS_HR(t.CreateParamRefInitPair(L"N", L"", L"string", &a, &b), E_INVALIDARG);
    EXPECT_THROWS_HR(t.CreateParamRefInitPair(L"N", L"v", L"string", nullptr, &b), E_POINTER);
}

TEST_F(PrintTicketDocumentTest, ParameterInitsAreAppendedUnderThePrivatePrefix) {
    PrintTicketXmlDocument& t = m_ticket;
    t.AppendIntegerParameterInit(L"ns0000:", L"Minus", -1);
    t.AppendIntegerParameterInit(L"ns0000:", L"Plus", 7);
    t.AppendStringParameterInit(L"ns0000:", L"Text", L"a & b");
    CComPtr<IXMLDOMElement> untyped;
    t.CreateUntypedParameterInitFromString(L"ns0000:", L"Raw", L"payload", &untyped);
    EXPECT_EQ(t.AppendToElement(L"PrintTicket", untyped), S_OK);
    RawXml raw = Raw();
    // Appended integers are written unsigned.
    EXPECT_EQ(raw.Strings("//psf:ParameterInit[starts-with(@name, 'zk:')]/psf:Value"),
              (Strings{"4294967295", "7", "a & b", "payload"}));
    EXPECT_EQ(raw.Strings("//psf:ParameterInit[starts-with(@name, 'zk:')]/psf:Value/@xsi:type"),
              (Strings{"xsd:integer", "xsd:integer", "xsd:string"}));
    // The appended ParameterInits are the root's last children, in order, all under the
    // private prefix declared by the first of them (though the caller passed the placeholder).
    EXPECT_EQ(raw.Strings("/psf:PrintTicket/*[position() > last() - 4]/@name"),
              (Strings{"zk:Minus", "zk:Plus", "zk:Text", "zk:Raw"}));

    CComPtr<IXMLDOMElement> init;
    EXPECT_THROWS_HR(t.CreateStringParameterInit(L"", L"N", L"v", &init), E_INVALIDARG);
    EXPECT_THROWS_HR(t.CreateStringParameterInit(L"p:", L"N", L"", &init), E_INVALIDARG);
    EXPECT_THROWS_HR(t.CreateIntegerParameterInit(L"p:", L"", 1, &init), E_INVALIDARG);
    EXPECT_THROWS_HR(t.CreateUntypedParameterInitFromString(L"p:", L"N", L"v", nullptr), E_POINTER);
    // A failed build or append inserts nothing.
    EXPECT_THROWS_HR(t.AppendStringParameterInit(L"p:", L"N", nullptr), E_INVALIDARG);
    EXPECT_EQ(t.AppendToElement(L"Nowhere", untyped), kNotFound);
    EXPECT_THROWS_HR(t.AppendToElement(L"PrintTicket", nullptr), E_POINTER);
    EXPECT_THROWS_HR(t.AppendToElement(L"", untyped), E_INVALIDARG);
    EXPECT_EQ(Raw().Count("//psf:ParameterInit"), 5u);
}

// Lookups on tickets that declare other prefixes, asked in turn on one thread: each answers from
// its own prefixes, however the lookups before it were built.
TEST(PrintTicketLookupsInTurn, EachTicketAnswersWithItsOwnPrefixes) {
    const std::wstring otherPrefixes =
        L" xmlns:f='" + kFramework + L"' xmlns:k='" + kKeywords + L"' xmlns:q='" + kInstance + L"'";
    PrintTicketXmlDocument usual(LoadXml(Ticket(kTicketBody)));
    PrintTicketXmlDocument other(LoadXml(
        L"<f:PrintTicket" + otherPrefixes +
        L" version='1'>"
        L"<f:Feature name='k:PageMediaSize'><f:Option name='k:ISOA3'>"
        L"<f:ScoredProperty name='k:MediaSizeWidth'><f:Value>297000</f:Value>"
        L"</f:ScoredProperty></f:Option></f:Feature>"
        L"<f:ParameterInit name='k:JobCopiesAllDocuments'><f:Value>7</f:Value></f:ParameterInit>"
        // Written with the usual prefixes, which this ticket binds to nothing Print Schema.
        L"<psf:Feature xmlns:psf='urn:not-the-framework' name='psk:PageMediaSize'>"
        L"<psf:Option name='psk:Letter'/></psf:Feature>"
        L"</f:PrintTicket>"));
    ASSERT_STREQ(other.GetFrameworkNsPrefix(), L"f:");
    for (int round = 0; round < 3; ++round) {
        SCOPED_TRACE(round);
        for (PrintTicketXmlDocument* ticket : {&usual, &other}) {
            const bool isUsual = ticket == &usual;
            EXPECT_EQ(Option(*ticket, L"PageMediaSize", false), isUsual ? "|ISOA4" : "|ISOA3");
            EXPECT_EQ(Scored<int>(*ticket, L"PageMediaSize", L"MediaSizeWidth"),
                      isUsual ? "210000" : "297000");
            EXPECT_EQ(InitValue(*ticket, isUsual ? L"psk:" : L"k:", L"JobCopiesAllDocuments"),
                      isUsual ? "2" : "7");
            // More distinct lookups than are kept in between: answers do not change.
            for (int i = 0; i < 12; ++i) {
                const std::wstring name = L"Absent" + std::to_wstring(i);
                EXPECT_EQ(Option(*ticket, name.c_str(), false), "returned NOT_FOUND");
            }
        }
        // A name far longer than anything kept is looked up like any other.
        EXPECT_EQ(Option(usual, std::wstring(2000, L'L').c_str(), false), "returned NOT_FOUND");
    }
}
