// Tests of the merge rules: matching by namespace URI and local name, scope filtering, added
// items, ParameterInit and Property replacement, namespace declarations and QName rewriting,
// losslessness, and the checks that refuse documents that are not PrintTickets. Each merge is
// compared with the whole text it must give.
#include <gtest/gtest.h>

#include <string>
#include <utility>
#include <vector>

#include "platform/prntvpt/prntvpt.h"

namespace {

const std::string kPsf =
    "http://schemas.microsoft.com/windows/2003/08/printing/printschemaframework";
const std::string kPsk =
    "http://schemas.microsoft.com/windows/2003/08/printing/printschemakeywords";
const std::string kXsi = "http://www.w3.org/2001/XMLSchema-instance";
const std::string kXsd = "http://www.w3.org/2001/XMLSchema";
const std::string kDecl = R"(<?xml version="1.0" encoding="UTF-8"?>)";
const std::string kMxdw =
    R"(xmlns:ns0000="http://schemas.microsoft.com/windows/2006/06/printing/printschemakeywords/)"
    R"(microsoftxpsdocumentwriter")";
const std::string kVendor = "http://example.com/vendor/keywords";
const std::string kV11 =
    "http://schemas.microsoft.com/windows/2013/05/printing/printschemakeywordsv11";

// A root binding psf, psk, xsi and xsd under their usual prefixes, then the declarations `more`.
std::string Root(const std::string& body, const std::string& more = "") {
    return R"(<psf:PrintTicket xmlns:psf=")" + kPsf + R"(" xmlns:psk=")" + kPsk +
           R"(" xmlns:xsi=")" + kXsi + R"(" xmlns:xsd=")" + kXsd + "\"" +
           (more.empty() ? "" : " " + more) + R"( version="1">)" + body + "</psf:PrintTicket>";
}

std::string Ticket(const std::string& body, const std::string& more = "") {
    return kDecl + Root(body, more);
}

// What a merge gives for such a ticket: the declaration and the root on lines of their own.
std::string Result(const std::string& body, const std::string& more = "") {
    return kDecl + "\n" + Root(body, more) + "\n";
}

std::string Feature(const std::string& name, const std::string& option) {
    return R"(<psf:Feature name=")" + name + R"("><psf:Option name=")" + option +
           R"("/></psf:Feature>)";
}

std::string Init(const std::string& name, const std::string& type, const std::string& value) {
    return R"(<psf:ParameterInit name=")" + name + R"("><psf:Value xsi:type="xsd:)" + type +
           R"(">)" + value + "</psf:Value></psf:ParameterInit>";
}

std::string IntegerInit(const std::string& name, int value) {
    return Init(name, "integer", std::to_string(value));
}

std::string Property(const std::string& name, const std::string& value) {
    return R"(<psf:Property name=")" + name + R"("><psf:Value xsi:type="xsd:string">)" + value +
           "</psf:Value></psf:Property>";
}

std::string Replaced(std::string text,
                     const std::vector<std::pair<std::string, std::string>>& edits) {
    for (const auto& [from, to] : edits) text.replace(text.find(from), from.size(), to);
    return text;
}

// A PageMediaSize feature whose ScoredProperty values are an integer, a QName with white space
// around it, an untyped prefixed value and a string that merely looks like a QName, spelt with
// the given prefixes for the framework, the keywords, XML Schema instance and XML Schema.
std::string MediaSize(const std::string& f, const std::string& k, const std::string& i,
                      const std::string& xs, const std::string& declarations = "") {
    auto property = [&](const std::string& name, const std::string& type,
                        const std::string& value) {
        return "<" + f + ":ScoredProperty name=\"" + k + ":" + name + "\"><" + f + ":Value" +
               (type.empty() ? "" : " " + i + ":type=\"" + type + "\"") + ">" + value + "</" + f +
               ":Value></" + f + ":ScoredProperty>";
    };
    return "<" + f + ":Feature name=\"" + k + ":PageMediaSize\"" + declarations + "><" + f +
           ":Option name=\"" + k + ":NorthAmericaLetter\">" +
           property("MediaSizeWidth", xs + ":integer", "215900") +
           property("MediaType", " " + xs + ":QName ", " " + k + ":Plain ") +
           property("Hint", "", k + ":Untyped") + property("Label", xs + ":string", "k:NotAQName") +
           "</" + f + ":Option></" + f + ":Feature>";
}

std::string MergeOk(const std::string& base, const std::string& delta, EPrintTicketScope scope) {
    std::string merged;
    std::string error;
    EXPECT_EQ(platform::MergePrintTicketXml(base, delta, scope, merged, error), S_PT_NO_CONFLICT)
        << error;
    EXPECT_TRUE(error.empty());
    return merged;
}

bool Contains(const std::string& text, const std::string& part) {
    return text.find(part) != std::string::npos;
}

TEST(TicketMerge, MergedTextFollowsTheRules) {
    const std::string portrait = Feature("psk:PageOrientation", "psk:Portrait");
    const std::string landscape = Feature("psk:PageOrientation", "psk:Landscape");
    const std::string autoSelect = Feature("psk:JobInputBin", "psk:AutoSelect");
    const std::string vendor = R"(xmlns:vnd=")" + kVendor + R"(")";
    // Page items are taken at every scope, Document items from document scope up, and the
    // others (a vendor item that is neither Page, Document nor Job too) only for the job.
    const std::string scopeBase =
        Ticket(portrait + Feature("psk:DocumentCollate", "psk:Uncollated") + autoSelect +
                   IntegerInit("psk:JobCopiesAllDocuments", 1) +
                   IntegerInit("ns0000:PageDevmodeLength", 10),
               kMxdw);
    const std::string scopeDelta = Ticket(
        landscape + Feature("psk:DocumentCollate", "psk:Collated") +
            Feature("psk:JobInputBin", "psk:Manual") + IntegerInit("psk:JobCopiesAllDocuments", 4) +
            IntegerInit("ns0000:PageDevmodeLength", 20) + Feature("vnd:Interleaving", "vnd:On"),
        kMxdw + " " + vendor);
    const std::string names = Property("psk:JobName", "first") + Property("psk:PageLabel", "front");
    const std::string psfPsk =
        R"(<psf:PrintTicket xmlns:psf=")" + kPsf + R"(" xmlns:psk=")" + kPsk + R"(" version="1">)";
    const std::string untouchedBase =
        kDecl + "\n<?app hint?>\n" + psfPsk +
        "\n  <psf:Feature name=\"psk:JobInputBin\">\n    <!-- tray --><psf:Option "
        "name=\"psk:AutoSelect\"><![CDATA[raw & <text>]]></psf:Option>\n    <vnd:Extension " +
        vendor + " vnd:x=\"a&amp;b\">&#233;t&#xe9;</vnd:Extension>\n  </psf:Feature>\n  " +
        portrait + "\n  <vnd:Unknown " + vendor + ">kept</vnd:Unknown>\n</psf:PrintTicket>\n";
    std::string utf16 = "\xFF\xFE";  // little-endian byte order mark
    for (char c : "<?xml version=\"1.0\" encoding=\"UTF-16\"?>" + Root(portrait)) {
        utf16 += c;
        utf16 += '\0';
    }

    struct Row {
        const char* name;
        std::string base, delta;
        EPrintTicketScope scope;
        std::string expected;
    };
    const Row rows[] = {
        {"a delta feature replaces the base feature of the same URI and local name in its place, "
         "with the base's prefixes",
         Ticket(portrait + autoSelect),
         R"(<f:PrintTicket xmlns:f=")" + kPsf + R"(" xmlns:k=")" + kPsk +
             R"(" version="1"><f:Feature name="k:PageOrientation">)"
             R"(<f:Option name="k:Landscape"/></f:Feature></f:PrintTicket>)",
         kPTJobScope, Result(landscape + autoSelect)},
        {"the same prefix bound to another namespace is another setting: renamed in the copies",
         Ticket(Feature("ns0000:JobQuality", "ns0000:Draft"), kMxdw),
         Ticket(Feature("ns0000:JobQuality", "ns0000:Fine") +
                    Init("ns0000:JobMaterial", "QName", "ns0000:Resin"),
                R"(xmlns:ns0000=")" + kVendor + R"(")"),
         kPTJobScope,
         Result(Feature("ns0000:JobQuality", "ns0000:Draft") +
                    Feature("ns0000_1:JobQuality", "ns0000_1:Fine") +
                    Init("ns0000_1:JobMaterial", "QName", "ns0000_1:Resin"),
                kMxdw + R"( xmlns:ns0000_1=")" + kVendor + R"(")")},
        {"page scope", scopeBase, scopeDelta, kPTPageScope,
         Result(landscape + Feature("psk:DocumentCollate", "psk:Uncollated") + autoSelect +
                    IntegerInit("psk:JobCopiesAllDocuments", 1) +
                    IntegerInit("ns0000:PageDevmodeLength", 20),
                kMxdw)},
        {"document scope", scopeBase, scopeDelta, kPTDocumentScope,
         Result(landscape + Feature("psk:DocumentCollate", "psk:Collated") + autoSelect +
                    IntegerInit("psk:JobCopiesAllDocuments", 1) +
                    IntegerInit("ns0000:PageDevmodeLength", 20),
                kMxdw)},
        {"job scope, declaring only the namespaces in use", scopeBase, scopeDelta, kPTJobScope,
         Result(landscape + Feature("psk:DocumentCollate", "psk:Collated") +
                    Feature("psk:JobInputBin", "psk:Manual") +
                    IntegerInit("psk:JobCopiesAllDocuments", 4) +
                    IntegerInit("ns0000:PageDevmodeLength", 20) +
                    Feature("vnd:Interleaving", "vnd:On"),
                kMxdw + " " + vendor)},
        {"new delta items follow the base items in delta order; a copied integer keeps its type, "
         "declared although the base lacked it",
         "<?xml version=\"1.0\"?>\n" + psfPsk + "\n  " + autoSelect +
             "\n  <!-- kept -->\n</psf:PrintTicket>\n",
         Ticket(landscape + IntegerInit("psk:JobCopiesAllDocuments", 2) +
                Feature("psk:DocumentDuplex", "psk:OneSided")),
         kPTJobScope,
         kDecl + "\n" +
             Replaced(psfPsk, {{" version", R"( xmlns:xsd=")" + kXsd + R"(" xmlns:xsi=")" + kXsi +
                                                R"(" version)"}}) +
             "\n  " + autoSelect + "\n  " + landscape + "\n  " +
             IntegerInit("psk:JobCopiesAllDocuments", 2) + "\n  " +
             Feature("psk:DocumentDuplex", "psk:OneSided") +
             "\n  <!-- kept -->\n</psf:PrintTicket>\n"},
        {"added to an empty ticket",
         R"(<psf:PrintTicket xmlns:psf=")" + kPsf + R"(" version="1"/>)", Ticket(landscape),
         kPTPageScope, kDecl + "\n" + psfPsk + landscape + "</psf:PrintTicket>\n"},
        {"a delta with a default namespace gets prefixed copies",
         R"(<psf:PrintTicket xmlns:psf=")" + kPsf + R"(" version="1"/>)",
         R"(<PrintTicket xmlns=")" + kPsf + R"(" xmlns:psk=")" + kPsk +
             R"(" version="1"><Feature name="psk:PageOrientation">)"
             R"(<Option name="psk:Landscape"/></Feature></PrintTicket>)",
         kPTPageScope, kDecl + "\n" + psfPsk + landscape + "</psf:PrintTicket>\n"},
        {"a ParameterInit replaces only a ParameterInit of the same name",
         Ticket(IntegerInit("psk:JobCopiesAllDocuments", 1) +
                Feature("psk:JobCopiesAllDocuments", "psk:Odd")),
         Ticket(IntegerInit("psk:JobCopiesAllDocuments", 7)), kPTJobScope,
         Result(IntegerInit("psk:JobCopiesAllDocuments", 7) +
                Feature("psk:JobCopiesAllDocuments", "psk:Odd"))},
        {"root properties are replaced like features (job)", Ticket(names),
         Ticket(Property("psk:JobName", "second") + Property("psk:PageLabel", "back")), kPTJobScope,
         Result(Property("psk:JobName", "second") + Property("psk:PageLabel", "back"))},
        {"root properties are replaced like features (page)", Ticket(names),
         Ticket(Property("psk:JobName", "second") + Property("psk:PageLabel", "back")),
         kPTPageScope,
         Result(Property("psk:JobName", "first") + Property("psk:PageLabel", "back"))},
        {"properties nested in a feature are part of it", Ticket(names),
         Ticket(R"(<psf:Feature name="psk:PageNUp"><psf:Option>)"
                R"(<psf:ScoredProperty name="psk:PagesPerSheet">)"
                R"(<psf:Value xsi:type="xsd:integer">2</psf:Value>)"
                R"(</psf:ScoredProperty></psf:Option></psf:Feature>)"),
         kPTPageScope,
         Result(names + R"(<psf:Feature name="psk:PageNUp"><psf:Option>)"
                        R"(<psf:ScoredProperty name="psk:PagesPerSheet">)"
                        R"(<psf:Value xsi:type="xsd:integer">2</psf:Value>)"
                        R"(</psf:ScoredProperty></psf:Option></psf:Feature>)")},
        {"QName values follow the prefixes of the result; white space around them is kept",
         Ticket(Feature("psk:PageMediaSize", "psk:ISOA4")),
         R"(<f:PrintTicket xmlns:f=")" + kPsf + R"(" version="1">)" +
             MediaSize("f", "k", "i", "xs",
                       R"( xmlns:k=")" + kPsk + R"(" xmlns:i=")" + kXsi + R"(" xmlns:xs=")" + kXsd +
                           R"(")") +
             "</f:PrintTicket>",
         kPTPageScope, Result(MediaSize("psf", "psk", "xsi", "xsd"))},
        {"names in no namespace stay out of the base's default namespace",
         R"(<PrintTicket xmlns=")" + kPsf + R"(" xmlns:psk=")" + kPsk +
             R"(" version="1"><Feature name="psk:PageOrientation">)"
             R"(<Option name="psk:Portrait"/></Feature></PrintTicket>)",
         Ticket(R"(<psf:Feature name="PageLocal"><psf:Option name="Plain">)"
                R"(<Extra flag="1"/></psf:Option></psf:Feature>)"),
         kPTPageScope,
         kDecl + "\n" + R"(<PrintTicket xmlns=")" + kPsf + R"(" xmlns:psk=")" + kPsk +
             R"(" xmlns:psf=")" + kPsf +
             R"(" version="1"><Feature name="psk:PageOrientation"><Option name="psk:Portrait"/>)"
             R"(</Feature><psf:Feature xmlns="" name="PageLocal"><psf:Option name="Plain">)"
             R"(<Extra flag="1"/></psf:Option></psf:Feature></PrintTicket>)" +
             "\n"},
        {"namespaced attributes and reserved prefixes", Ticket(portrait),
         Ticket(R"(<psf:Feature name="psk:PageOrientation" vnd:origin="ui" xml:lang="de">)"
                R"(<psf:Option name="psk:Landscape"/></psf:Feature>)",
                vendor),
         kPTPageScope,
         Result(R"(<psf:Feature name="psk:PageOrientation" vnd:origin="ui" xml:lang="de">)"
                R"(<psf:Option name="psk:Landscape"/></psf:Feature>)",
                vendor)},
        {"duplicates resolve to the first delta item",
         Ticket(portrait + autoSelect + Feature("psk:PageOrientation", "psk:ReversePortrait")),
         Ticket(landscape + Feature("psk:PageOrientation", "psk:ReverseLandscape")), kPTJobScope,
         Result(landscape + autoSelect)},
        {"untouched parts of the base stay byte for byte", untouchedBase, Ticket(landscape),
         kPTPageScope,
         Replaced(untouchedBase,
                  {{"psk:Portrait", "psk:Landscape"}, {"&#233;t&#xe9;", "\xC3\xA9t\xC3\xA9"}})},
        {"UTF-16 input comes out as UTF-8", utf16, Ticket(Feature("psk:JobInputBin", "psk:Manual")),
         kPTJobScope, Result(portrait + Feature("psk:JobInputBin", "psk:Manual"))},
        {"a leading space in a namespace URI makes a distinct namespace",
         Ticket(Feature("pskv11:JobPasscode", "psk:Off"), R"(xmlns:pskv11=")" + kV11 + R"(")"),
         Ticket(Feature("pskv11:JobPasscode", "psk:On"), R"(xmlns:pskv11=" )" + kV11 + R"(")"),
         kPTJobScope,
         Result(
             Feature("pskv11:JobPasscode", "psk:Off") + Feature("pskv11_1:JobPasscode", "psk:On"),
             R"(xmlns:pskv11=")" + kV11 + R"(" xmlns:pskv11_1=" )" + kV11 + R"(")")},
    };
    for (const Row& row : rows) {
        SCOPED_TRACE(row.name);
        EXPECT_EQ(MergeOk(row.base, row.delta, row.scope), row.expected);
    }
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
