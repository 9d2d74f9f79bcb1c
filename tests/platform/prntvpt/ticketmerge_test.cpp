// Tests of the merge rules: matching by namespace URI and local name, scope filtering, added
// items, ParameterInit and Property replacement, namespace declarations and QName rewriting,
// losslessness, and the checks that refuse documents that are not PrintTickets.
#include <gtest/gtest.h>

#include <string>

#include "platform/prntvpt/prntvpt.h"
#include "platform/prntvpt/ticketcheck.h"

namespace {

using ticketcheck::Doc;

const std::string kPsf = ticketcheck::kPsf;
const std::string kPsk =
    "http://schemas.microsoft.com/windows/2003/08/printing/printschemakeywords";
const std::string kXsi = ticketcheck::kXsi;
const std::string kXsd = ticketcheck::kXsd;
const std::string kMxdw =
    "http://schemas.microsoft.com/windows/2006/06/printing/printschemakeywords/"
    "microsoftxpsdocumentwriter";
const std::string kVendor = "http://example.com/vendor/keywords";

// A ticket whose root binds psf, psk, xsi and xsd under their usual prefixes plus `more`.
std::string Ticket(const std::string& body, const std::string& more = "") {
    return R"(<?xml version="1.0" encoding="UTF-8"?><psf:PrintTicket xmlns:psf=")" + kPsf +
           R"(" xmlns:psk=")" + kPsk + R"(" xmlns:xsi=")" + kXsi + R"(" xmlns:xsd=")" + kXsd +
           R"(" )" + more + R"( version="1">)" + body + "</psf:PrintTicket>";
}

std::string Feature(const std::string& name, const std::string& option) {
    return R"(<psf:Feature name=")" + name + R"("><psf:Option name=")" + option +
           R"("/></psf:Feature>)";
}

std::string IntegerInit(const std::string& name, int value) {
    return R"(<psf:ParameterInit name=")" + name + R"("><psf:Value xsi:type="xsd:integer">)" +
           std::to_string(value) + "</psf:Value></psf:ParameterInit>";
}

std::string Key(const std::string& kind, const std::string& uri, const std::string& local) {
    return kind + "{" + uri + "}" + local;
}

struct Merged {
    std::string xml;
    Doc doc;
    std::map<std::string, std::string> items;  // key -> signature
    std::vector<ticketcheck::Item> order;
};

Merged MergeOk(const std::string& base, const std::string& delta, EPrintTicketScope scope) {
    Merged m;
    std::string error;
    EXPECT_EQ(platform::MergePrintTicketXml(base, delta, scope, m.xml, error), S_PT_NO_CONFLICT)
        << error;
    EXPECT_TRUE(error.empty());
    std::string problem;
    m.doc = ticketcheck::ParseStrict(m.xml, &problem);
    EXPECT_NE(m.doc, nullptr) << problem << "\n" << m.xml;
    if (m.doc == nullptr) return m;
    std::string bad;
    EXPECT_TRUE(ticketcheck::AllQNamesResolve(xmlDocGetRootElement(m.doc.get()), &bad))
        << bad << "\n"
        << m.xml;
    m.order = ticketcheck::RootItems(m.doc.get());
    for (const auto& item : m.order) {
        EXPECT_TRUE(m.items.emplace(item.key, ticketcheck::Signature(item.node)).second)
            << "duplicate item " << item.key << "\n"
            << m.xml;
    }
    return m;
}

bool Contains(const std::string& text, const std::string& part) {
    return text.find(part) != std::string::npos;
}

TEST(TicketMerge, DeltaFeatureReplacesTheBaseFeatureOfTheSameUriAndLocalName) {
    const std::string base = Ticket(Feature("psk:PageOrientation", "psk:Portrait") +
                                    Feature("psk:JobInputBin", "psk:AutoSelect"));
    // The delta spells both namespaces with other prefixes.
    const std::string delta = R"(<f:PrintTicket xmlns:f=")" + kPsf + R"(" xmlns:k=")" + kPsk +
                              R"(" version="1"><f:Feature name="k:PageOrientation">)"
                              R"(<f:Option name="k:Landscape"/></f:Feature></f:PrintTicket>)";
    Merged m = MergeOk(base, delta, kPTJobScope);
    ASSERT_EQ(m.order.size(), 2u);
    const std::string orientation = Key("Feature", kPsk, "PageOrientation");
    EXPECT_TRUE(Contains(m.items[orientation], "{" + kPsk + "}Landscape")) << m.xml;
    EXPECT_FALSE(Contains(m.xml, "Portrait"));
    EXPECT_EQ(m.order[0].key, orientation) << "the replacement takes the base item's place";
    // The copy uses the prefixes the base already has for those namespaces.
    EXPECT_TRUE(Contains(
        m.xml, R"(<psf:Feature name="psk:PageOrientation"><psf:Option name="psk:Landscape"/>)"))
        << m.xml;
    EXPECT_FALSE(Contains(m.xml, "xmlns:k=")) << m.xml;
}

TEST(TicketMerge, SamePrefixBoundToAnotherNamespaceIsAnotherSetting) {
    const std::string base =
        Ticket(Feature("ns0000:JobQuality", "ns0000:Draft"), R"(xmlns:ns0000=")" + kMxdw + R"(")");
    const std::string delta = Ticket(
        Feature("ns0000:JobQuality", "ns0000:Fine") +
            R"(<psf:ParameterInit name="ns0000:JobMaterial"><psf:Value xsi:type="xsd:QName">ns0000:Resin</psf:Value></psf:ParameterInit>)",
        R"(xmlns:ns0000=")" + kVendor + R"(")");
    Merged m = MergeOk(base, delta, kPTJobScope);
    ASSERT_EQ(m.order.size(), 3u) << m.xml;
    EXPECT_TRUE(Contains(m.items[Key("Feature", kMxdw, "JobQuality")], "{" + kMxdw + "}Draft"));
    EXPECT_TRUE(Contains(m.items[Key("Feature", kVendor, "JobQuality")], "{" + kVendor + "}Fine"));
    EXPECT_TRUE(
        Contains(m.items[Key("ParameterInit", kVendor, "JobMaterial")], "{" + kVendor + "}Resin"));
    // The clashing prefix is renamed on the root and every QName of the copies follows it.
    EXPECT_TRUE(Contains(m.xml, R"(xmlns:ns0000_1=")" + kVendor + R"(")")) << m.xml;
    EXPECT_TRUE(Contains(m.xml, R"(<psf:Option name="ns0000_1:Fine"/>)")) << m.xml;
    EXPECT_TRUE(Contains(m.xml, ">ns0000_1:Resin<")) << m.xml;
    EXPECT_TRUE(Contains(m.xml, R"(name="ns0000:JobQuality")")) << "the base keeps its prefix";
}

TEST(TicketMerge, ScopeKeepsOnlyTheDeltaItemsThatBelongToIt) {
    const std::string base = Ticket(Feature("psk:PageOrientation", "psk:Portrait") +
                                        Feature("psk:DocumentCollate", "psk:Uncollated") +
                                        Feature("psk:JobInputBin", "psk:AutoSelect") +
                                        IntegerInit("psk:JobCopiesAllDocuments", 1) +
                                        IntegerInit("ns0000:PageDevmodeLength", 10),
                                    R"(xmlns:ns0000=")" + kMxdw + R"(")");
    const std::string delta = Ticket(
        Feature("psk:PageOrientation", "psk:Landscape") +
            Feature("psk:DocumentCollate", "psk:Collated") +
            Feature("psk:JobInputBin", "psk:Manual") + IntegerInit("psk:JobCopiesAllDocuments", 4) +
            IntegerInit("ns0000:PageDevmodeLength", 20) +
            Feature("vnd:Interleaving", "vnd:On"),  // neither Page, Document nor Job: job only
        R"(xmlns:ns0000=")" + kMxdw + R"(" xmlns:vnd=")" + kVendor + R"(")");

    struct Expectation {
        EPrintTicketScope scope;
        bool page, document, job;
    };
    for (const Expectation& e : {Expectation{kPTPageScope, true, false, false},
                                 Expectation{kPTDocumentScope, true, true, false},
                                 Expectation{kPTJobScope, true, true, true}}) {
        Merged m = MergeOk(base, delta, e.scope);
        SCOPED_TRACE(platform::PrintTicketScopeName(e.scope));
        EXPECT_EQ(Contains(m.items[Key("Feature", kPsk, "PageOrientation")], "Landscape"), e.page);
        EXPECT_EQ(Contains(m.items[Key("ParameterInit", kMxdw, "PageDevmodeLength")], ">20<"),
                  e.page);
        EXPECT_EQ(Contains(m.items[Key("Feature", kPsk, "DocumentCollate")], "}Collated"),
                  e.document);
        EXPECT_EQ(Contains(m.items[Key("Feature", kPsk, "JobInputBin")], "Manual"), e.job);
        EXPECT_EQ(Contains(m.items[Key("ParameterInit", kPsk, "JobCopiesAllDocuments")], ">4<"),
                  e.job);
        EXPECT_EQ(m.items.count(Key("Feature", kVendor, "Interleaving")), e.job ? 1u : 0u);
        // Whatever the scope, every base item is still there.
        EXPECT_EQ(m.order.size(), e.job ? 6u : 5u) << m.xml;
        EXPECT_EQ(Contains(m.xml, "xmlns:vnd"), e.job) << "only namespaces in use are added";
    }
}

TEST(TicketMerge, NewDeltaItemsAreAddedAfterTheBaseItemsInDeltaOrder) {
    const std::string base = "<?xml version=\"1.0\"?>\n<psf:PrintTicket xmlns:psf=\"" + kPsf +
                             "\" xmlns:psk=\"" + kPsk + "\" version=\"1\">\n  " +
                             Feature("psk:JobInputBin", "psk:AutoSelect") +
                             "\n  <!-- kept -->\n</psf:PrintTicket>\n";
    const std::string delta = Ticket(Feature("psk:PageOrientation", "psk:Landscape") +
                                     IntegerInit("psk:JobCopiesAllDocuments", 2) +
                                     Feature("psk:DocumentDuplex", "psk:OneSided"));
    Merged m = MergeOk(base, delta, kPTJobScope);
    ASSERT_EQ(m.order.size(), 4u);
    EXPECT_EQ(m.order[0].key, Key("Feature", kPsk, "JobInputBin"));
    EXPECT_EQ(m.order[1].key, Key("Feature", kPsk, "PageOrientation"));
    EXPECT_EQ(m.order[2].key, Key("ParameterInit", kPsk, "JobCopiesAllDocuments"));
    EXPECT_EQ(m.order[3].key, Key("Feature", kPsk, "DocumentDuplex"));
    EXPECT_TRUE(Contains(m.xml, "<!-- kept -->"));
    // The copied integer keeps its type, declared in the result although the base lacked it.
    EXPECT_TRUE(Contains(m.items[Key("ParameterInit", kPsk, "JobCopiesAllDocuments")],
                         "{" + kXsi + "}type={" + kXsd + "}integer>2<"))
        << m.xml;
}

TEST(TicketMerge, AddingToAnEmptyTicketAndFromADefaultNamespace) {
    const std::string base = "<psf:PrintTicket xmlns:psf=\"" + kPsf + "\" version=\"1\"/>";
    Merged m = MergeOk(base, Ticket(Feature("psk:PageOrientation", "psk:Landscape")), kPTPageScope);
    ASSERT_EQ(m.order.size(), 1u);
    EXPECT_TRUE(Contains(m.items[Key("Feature", kPsk, "PageOrientation")], "Landscape"));
    // A delta with the framework as its default namespace gets prefixed copies.
    m = MergeOk(base,
                R"(<PrintTicket xmlns=")" + kPsf + R"(" xmlns:psk=")" + kPsk +
                    R"(" version="1"><Feature name="psk:PageOrientation">)"
                    R"(<Option name="psk:Landscape"/></Feature></PrintTicket>)",
                kPTPageScope);
    EXPECT_TRUE(Contains(
        m.xml, R"(<psf:Feature name="psk:PageOrientation"><psf:Option name="psk:Landscape"/>)"))
        << m.xml;
}

TEST(TicketMerge, ParameterInitReplacesOnlyAParameterInitOfTheSameName) {
    const std::string base =
        Ticket(IntegerInit("psk:JobCopiesAllDocuments", 1) +
               Feature("psk:JobCopiesAllDocuments", "psk:Odd"));  // same name, other kind
    const std::string delta = Ticket(IntegerInit("psk:JobCopiesAllDocuments", 7));
    Merged m = MergeOk(base, delta, kPTJobScope);
    ASSERT_EQ(m.order.size(), 2u);
    EXPECT_TRUE(Contains(m.items[Key("ParameterInit", kPsk, "JobCopiesAllDocuments")], ">7<"));
    EXPECT_TRUE(Contains(m.items[Key("Feature", kPsk, "JobCopiesAllDocuments")], "Odd"));
    EXPECT_FALSE(Contains(m.xml, ">1<"));
}

TEST(TicketMerge, RootPropertyIsReplacedLikeAFeature) {
    auto property = [](const std::string& name, const std::string& value) {
        return R"(<psf:Property name=")" + name + R"("><psf:Value xsi:type="xsd:string">)" + value +
               "</psf:Value></psf:Property>";
    };
    const std::string base =
        Ticket(property("psk:JobName", "first") + property("psk:PageLabel", "front"), "");
    const std::string delta =
        Ticket(property("psk:JobName", "second") + property("psk:PageLabel", "back"));
    Merged job = MergeOk(base, delta, kPTJobScope);
    EXPECT_TRUE(Contains(job.items[Key("Property", kPsk, "JobName")], "second"));
    EXPECT_TRUE(Contains(job.items[Key("Property", kPsk, "PageLabel")], "back"));
    Merged page = MergeOk(base, delta, kPTPageScope);
    EXPECT_TRUE(Contains(page.items[Key("Property", kPsk, "JobName")], "first"));
    EXPECT_TRUE(Contains(page.items[Key("Property", kPsk, "PageLabel")], "back"));
    // Properties nested inside a Feature are part of that feature, not root settings.
    const std::string nested = Ticket(R"(<psf:Feature name="psk:PageNUp"><psf:Option>)"
                                      R"(<psf:ScoredProperty name="psk:PagesPerSheet">)"
                                      R"(<psf:Value xsi:type="xsd:integer">2</psf:Value>)"
                                      R"(</psf:ScoredProperty></psf:Option></psf:Feature>)");
    Merged n = MergeOk(base, nested, kPTPageScope);
    EXPECT_EQ(n.order.size(), 3u);
}

TEST(TicketMerge, QNameValuesFollowThePrefixesOfTheResult) {
    const std::string base = Ticket(Feature("psk:PageMediaSize", "psk:ISOA4"));
    // The delta spells XML Schema "xs", the keywords "k" and declares them on the feature.
    const std::string delta =
        R"(<f:PrintTicket xmlns:f=")" + kPsf +
        R"(" version="1">)"
        R"(<f:Feature name="k:PageMediaSize" xmlns:k=")" +
        kPsk + R"(" xmlns:i=")" + kXsi + R"(" xmlns:xs=")" + kXsd +
        R"(">)"
        R"(<f:Option name="k:NorthAmericaLetter">)"
        R"(<f:ScoredProperty name="k:MediaSizeWidth"><f:Value i:type="xs:integer">215900</f:Value></f:ScoredProperty>)"
        R"(<f:ScoredProperty name="k:MediaType"><f:Value i:type=" xs:QName "> k:Plain </f:Value></f:ScoredProperty>)"
        R"(<f:ScoredProperty name="k:Hint"><f:Value>k:Untyped</f:Value></f:ScoredProperty>)"
        R"(<f:ScoredProperty name="k:Label"><f:Value i:type="xs:string">k:NotAQName</f:Value></f:ScoredProperty>)"
        R"(</f:Option></f:Feature></f:PrintTicket>)";
    Merged m = MergeOk(base, delta, kPTPageScope);
    EXPECT_TRUE(Contains(m.xml, R"(xsi:type="xsd:integer")")) << m.xml;
    EXPECT_TRUE(Contains(m.xml, R"(xsi:type=" xsd:QName ">)")) << m.xml;
    EXPECT_TRUE(Contains(m.xml, "> psk:Plain <")) << "white space around a QName is kept";
    EXPECT_TRUE(Contains(m.xml, ">psk:Untyped<")) << "a prefixed untyped value is a QName";
    EXPECT_TRUE(Contains(m.xml, ">k:NotAQName<")) << "a string stays as it is";
    EXPECT_FALSE(Contains(m.xml, "xmlns:k=")) << m.xml;
    EXPECT_FALSE(Contains(m.xml, "xmlns:xs=")) << m.xml;
    EXPECT_TRUE(Contains(m.items[Key("Feature", kPsk, "PageMediaSize")],
                         "{" + kPsk + "}NorthAmericaLetter"));
}

TEST(TicketMerge, UnprefixedNamesInNoNamespaceStayOutOfTheBaseDefaultNamespace) {
    // The base puts the framework in the default namespace; the delta has an element and a
    // name in no namespace at all.
    const std::string base = R"(<PrintTicket xmlns=")" + kPsf + R"(" xmlns:psk=")" + kPsk +
                             R"(" version="1"><Feature name="psk:PageOrientation">)"
                             R"(<Option name="psk:Portrait"/></Feature></PrintTicket>)";
    const std::string delta = Ticket(R"(<psf:Feature name="PageLocal"><psf:Option name="Plain">)"
                                     R"(<Extra flag="1"/></psf:Option></psf:Feature>)");
    Merged m = MergeOk(base, delta, kPTPageScope);
    ASSERT_EQ(m.order.size(), 2u) << m.xml;
    const std::string local = Key("Feature", "", "PageLocal");
    ASSERT_TRUE(m.items.count(local)) << m.xml;
    EXPECT_TRUE(Contains(m.items[local], "{}Plain")) << m.items[local];
    EXPECT_TRUE(Contains(m.items[local], "<{}Extra {}flag=1>")) << m.items[local];
    EXPECT_TRUE(Contains(m.items[Key("Feature", kPsk, "PageOrientation")], "Portrait"));
}

TEST(TicketMerge, NamespacedAttributesAndReservedPrefixes) {
    const std::string base = Ticket(Feature("psk:PageOrientation", "psk:Portrait"));
    const std::string delta =
        Ticket(R"(<psf:Feature name="psk:PageOrientation" vnd:origin="ui" xml:lang="de">)"
               R"(<psf:Option name="psk:Landscape"/></psf:Feature>)",
               R"(xmlns:vnd=")" + kVendor + R"(")");
    Merged m = MergeOk(base, delta, kPTPageScope);
    const std::string& signature = m.items[Key("Feature", kPsk, "PageOrientation")];
    EXPECT_TRUE(Contains(signature, "{" + kVendor + "}origin=ui")) << signature;
    EXPECT_TRUE(Contains(signature, "{http://www.w3.org/XML/1998/namespace}lang=de"));
    EXPECT_TRUE(Contains(m.xml, R"(xmlns:vnd=")" + kVendor + R"(")"));
}

TEST(TicketMerge, DuplicatesResolveToTheFirstDeltaItem) {
    const std::string base = Ticket(Feature("psk:PageOrientation", "psk:Portrait") +
                                    Feature("psk:JobInputBin", "psk:AutoSelect") +
                                    Feature("psk:PageOrientation", "psk:ReversePortrait"));
    const std::string delta = Ticket(Feature("psk:PageOrientation", "psk:Landscape") +
                                     Feature("psk:PageOrientation", "psk:ReverseLandscape"));
    Merged m = MergeOk(base, delta, kPTJobScope);
    ASSERT_EQ(m.order.size(), 2u) << m.xml;
    EXPECT_EQ(m.order[0].key, Key("Feature", kPsk, "PageOrientation"));
    EXPECT_TRUE(Contains(m.items[Key("Feature", kPsk, "PageOrientation")], "}Landscape"));
    EXPECT_FALSE(Contains(m.xml, "Reverse"));
}

TEST(TicketMerge, UntouchedPartsOfTheBaseStayByteForByte) {
    const std::string untouched =
        "<psf:Feature name=\"psk:JobInputBin\">\n"
        "    <!-- tray --><psf:Option name=\"psk:AutoSelect\"><![CDATA[raw & "
        "<text>]]></psf:Option>\n"
        "    <vnd:Extension xmlns:vnd=\"" +
        kVendor +
        "\" vnd:x=\"a&amp;b\">&#233;t&#xe9;</vnd:Extension>\n"
        "  </psf:Feature>";
    const std::string base =
        "<?xml version=\"1.0\" encoding=\"UTF-8\"?>\n<?app hint?>\n"
        "<psf:PrintTicket xmlns:psf=\"" +
        kPsf + "\" xmlns:psk=\"" + kPsk + "\" version=\"1\">\n  " + untouched + "\n  " +
        Feature("psk:PageOrientation", "psk:Portrait") + "\n  <vnd:Unknown xmlns:vnd=\"" + kVendor +
        "\">kept</vnd:Unknown>\n</psf:PrintTicket>\n";
    Merged m = MergeOk(base, Ticket(Feature("psk:PageOrientation", "psk:Landscape")), kPTPageScope);
    EXPECT_TRUE(Contains(m.xml,
                         "<psf:Feature name=\"psk:JobInputBin\">\n    <!-- tray -->"
                         "<psf:Option name=\"psk:AutoSelect\"><![CDATA[raw & <text>]]>"))
        << m.xml;
    EXPECT_TRUE(Contains(m.xml, "vnd:x=\"a&amp;b\">\xC3\xA9t\xC3\xA9</vnd:Extension>")) << m.xml;
    EXPECT_TRUE(Contains(m.xml, "<?app hint?>"));
    EXPECT_TRUE(Contains(m.xml, ">kept</vnd:Unknown>\n</psf:PrintTicket>"));
    EXPECT_EQ(m.xml.rfind("<?xml version=\"1.0\" encoding=\"UTF-8\"?>\n", 0), 0u);
}

TEST(TicketMerge, Utf16InputComesOutAsUtf8) {
    const std::string narrow = "<?xml version=\"1.0\" encoding=\"UTF-16\"?>" +
                               Ticket(Feature("psk:PageOrientation", "psk:Portrait")).substr(38);
    std::string utf16 = "\xFF\xFE";  // little-endian byte order mark
    for (char c : narrow) {
        utf16 += c;
        utf16 += '\0';
    }
    Merged m = MergeOk(utf16, Ticket(Feature("psk:JobInputBin", "psk:Manual")), kPTJobScope);
    EXPECT_EQ(m.xml.rfind("<?xml version=\"1.0\" encoding=\"UTF-8\"?>", 0), 0u) << m.xml;
    EXPECT_EQ(m.order.size(), 2u);
}

TEST(TicketMerge, LeadingSpaceInANamespaceUriMakesADistinctNamespace) {
    const std::string v11 =
        "http://schemas.microsoft.com/windows/2013/05/printing/printschemakeywordsv11";
    const std::string base =
        Ticket(Feature("pskv11:JobPasscode", "psk:Off"), R"(xmlns:pskv11=")" + v11 + R"(")");
    const std::string delta =
        Ticket(Feature("pskv11:JobPasscode", "psk:On"), R"(xmlns:pskv11=" )" + v11 + R"(")");
    Merged m = MergeOk(base, delta, kPTJobScope);
    EXPECT_EQ(m.order.size(), 2u) << m.xml;
    EXPECT_TRUE(Contains(m.items[Key("Feature", v11, "JobPasscode")], "}Off"));
    EXPECT_TRUE(Contains(m.items[Key("Feature", " " + v11, "JobPasscode")], "}On"));
}

TEST(TicketMerge, RefusesDocumentsThatAreNotPrintTickets) {
    const std::string good = Ticket(Feature("psk:PageOrientation", "psk:Portrait"));
    std::string deep;  // nesting that is refused, not followed
    for (int i = 0; i < 5000; ++i) deep += "<a>";
    for (int i = 0; i < 5000; ++i) deep += "</a>";
    struct Case {
        std::string ticket;
        std::string words;
    };
    const Case cases[] = {
        {"   \n", "not well-formed"},
        {"\xEF\xBB\xBF", "not well-formed"},
        {"<psf:PrintTicket xmlns:psf=\"" + kPsf + "\"><psf:Feature></psf:PrintTicket>",
         "not well-formed"},
        {"<psf:PrintTicket xmlns:psf=\"http://example.com/other\"/>", "root element is"},
        {"<psf:PrintTicket xmlns:psf=\"" + kPsf + "\"><psf:Feature/></psf:PrintTicket>",
         "Feature without a name"},
        {"<psf:PrintTicket xmlns:psf=\"" + kPsf +
             "\"><psf:ParameterInit name=\"nope:JobX\"/></psf:PrintTicket>",
         "nope:JobX"},
        {"<psf:PrintTicket xmlns:psf=\"" + kPsf +
             "\"><psf:Feature name=\"a:b:c\"/></psf:PrintTicket>",
         "a:b:c"},
        {Ticket(R"(<psf:Feature name="psk:JobX"><psf:Option name="zz:Y"/></psf:Feature>)"), "zz:Y"},
        {Ticket(
             R"(<psf:ParameterInit name="psk:JobX"><psf:Value xsi:type="xsd:QName">zz:Q</psf:Value></psf:ParameterInit>)"),
         "zz:Q"},
        {Ticket(
             R"(<psf:ParameterInit name="psk:JobX"><psf:Value xsi:type="zz:int">1</psf:Value></psf:ParameterInit>)"),
         "zz:int"},
        {"<!DOCTYPE lol [<!ENTITY a \"aaaaaaaaaa\"><!ENTITY b \"&a;&a;&a;&a;&a;&a;&a;&a;\">]>"
         "<psf:PrintTicket xmlns:psf=\"" +
             kPsf + "\">&b;</psf:PrintTicket>",
         "DOCTYPE"},
        {"<!DOCTYPE psf:PrintTicket SYSTEM \"http://example.com/ticket.dtd\">"
         "<psf:PrintTicket xmlns:psf=\"" +
             kPsf + "\"/>",
         "DOCTYPE"},
        {"<?xml version=\"1.0\"?><psf:PrintTicket xmlns:psf=\"" + kPsf +
             "\"><x xmlns:p=\"\"/></psf:PrintTicket>",
         "namespace"},
        {Ticket(R"(<psf:Feature name="psk:JobDeep"><psf:Option name="psk:X">)" + deep +
                "</psf:Option></psf:Feature>"),
         "not well-formed"},
    };
    for (const Case& c : cases) {
        std::string merged = "untouched";
        std::string error;
        EXPECT_EQ(platform::MergePrintTicketXml(c.ticket, good, kPTJobScope, merged, error),
                  E_PRINTTICKET_FORMAT)
            << c.ticket;
        EXPECT_TRUE(Contains(error, "The base ticket")) << error;
        EXPECT_TRUE(Contains(error, c.words)) << error;
        EXPECT_EQ(merged, "untouched");
        EXPECT_EQ(platform::MergePrintTicketXml(good, c.ticket, kPTJobScope, merged, error),
                  E_DELTA_PRINTTICKET_FORMAT)
            << c.ticket;
        EXPECT_TRUE(Contains(error, "The delta ticket")) << error;
        EXPECT_TRUE(Contains(error, c.words)) << error;
    }
    std::string merged;
    std::string error;
    EXPECT_EQ(platform::MergePrintTicketXml(good, std::nullopt, static_cast<EPrintTicketScope>(9),
                                            merged, error),
              E_INVALIDARG);
}

}  // namespace
