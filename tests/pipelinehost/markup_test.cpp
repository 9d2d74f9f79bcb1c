// Tests of the XML the host reads itself: the references a page names, found the same whether
// the markup arrives in one read or in pieces cut anywhere (inside names, values, comments),
// in UTF-8 or UTF-16, with character references undone; damaged relationships, content types and
// document listings refused naming the part; the escaping of what the host writes.
#include <gtest/gtest.h>

#include <algorithm>
#include <cstring>
#include <string>
#include <vector>

#include "pipelinehost/hosterror.h"
#include "pipelinehost/xpsmarkup.h"

namespace {

using namespace pipelinehost;

const std::string kPage =
    "<?xml version=\"1.0\" encoding=\"UTF-8\"?>\n"
    "<FixedPage xmlns=\"http://schemas.microsoft.com/xps/2005/06\" Width=\"100\" Height=\"100\">"
    "<!-- <Glyphs FontUri=\"/Commented/Out.ttf\"/> -->"
    "<Canvas><Canvas.Resources><ResourceDictionary Source=\"../Dict.dict\"/></Canvas.Resources>"
    "<Glyphs FontUri='/Resources/Font.ttf' UnicodeString=\"" +
    std::string(20000, 'x') +
    "\" OriginX=\"1\"/>"
    "<![CDATA[ <Glyphs FontUri=\"/In/CData.ttf\"/> ]]>"
    "<Path Data=\"M 0,0 L 9,9\" Fill=\"ContextColor /Resources/p.icc 1,0.5,0.5,0.5\"/>"
    "<ImageBrush ImageSource=\"../Images/A&amp;B.png\" Viewbox=\"0,0,1,1\"/>"
    "<ImageBrush ImageSource=\"{ColorConvertedBitmap /Resources/C.png /Resources/c.icc}\"/>"
    "<Path Fill=\"#FF000000\" Data=\"" +
    std::string(70000, '1') + "\"/></Canvas></FixedPage>";

std::vector<std::string> Scan(const std::string& markup, std::size_t piece) {
    std::size_t offset = 0;
    std::vector<MarkupReference> refs;
    ScanMarkupReferences(
        [&](char* buffer, std::size_t size) {
            std::size_t count = std::min({size, piece, markup.size() - offset});
            std::memcpy(buffer, markup.data() + offset, count);
            offset += count;
            return count;
        },
        "/Documents/1/Pages/1.fpage", refs);
    std::vector<std::string> names;
    for (const MarkupReference& ref : refs) names.push_back(ref.part);
    return names;
}

// The whole page in one read, or in pieces cut anywhere (inside names, values, comments).
TEST(MarkupScan, FindsEveryReferenceOutsideCommentsAndCDataHoweverCut) {
    const std::vector<std::string> expected = {
        "/Documents/1/Dict.dict",      "/Resources/Font.ttf", "/Resources/p.icc",
        "/Documents/1/Images/A&B.png", "/Resources/C.png",    "/Resources/c.icc"};
    for (std::size_t piece :
         {kPage.size(), std::size_t{1}, std::size_t{2}, std::size_t{3}, std::size_t{7},
          std::size_t{13}, std::size_t{4096}, std::size_t{65536}}) {
        EXPECT_EQ(Scan(kPage, piece), expected) << "pieces of " << piece;
    }
    std::string dtd = "<?xml version=\"1.0\"?><!DOCTYPE FixedPage []><FixedPage/>";
    for (std::size_t piece : {std::size_t{1}, std::size_t{5}, dtd.size()}) {
        EXPECT_THROW(Scan(dtd, piece), JobError) << "a DTD in pieces of " << piece;
    }
}

// Attribute spellings producers write: quotes of either kind, spaces around '=', references.
TEST(MarkupScan, ReferencesAreReadFromEverySpellingOfAnAttribute) {
    // clang-format off
    const struct { const char* name; std::string markup; std::vector<std::string> parts; } rows[] = {
        {"spaces around =", "<Glyphs FontUri = '/F.ttf' />", {"/F.ttf"}},
        {"name then space then =", "<Glyphs FontUri\n='/F.ttf'/>", {"/F.ttf"}},
        {"valueless attribute first", "<Glyphs x FontUri='/F.ttf'/>", {"/F.ttf"}},
        {"unquoted value ignored", "<Glyphs FontUri=/F.ttf>", {}},
        {"named references", "<ImageBrush ImageSource='/&lt;&gt;&quot;&apos;.png'/>", {"/<>\"'.png"}},
        {"numeric references", "<ImageBrush ImageSource='/A&#66;&#x43;.png'/>", {"/ABC.png"}},
        {"unknown reference kept", "<ImageBrush ImageSource='/A&x;B.png'/>", {"/A&x;B.png"}},
        {"unterminated reference kept", "<ImageBrush ImageSource='/A&amp'/>", {"/A&amp"}},
        {"processing instruction skipped", "<?pi <Glyphs FontUri='/No.ttf'/> ?><Glyphs FontUri='/F.ttf'/>",
         {"/F.ttf"}},
        {"end tags and declarations skipped", "</Canvas><!ELEMENT x><Glyphs FontUri='/F.ttf'/>", {"/F.ttf"}}};
    // clang-format on
    for (const auto& row : rows) {
        SCOPED_TRACE(row.name);
        EXPECT_EQ(Scan(row.markup, row.markup.size()), row.parts);
        EXPECT_EQ(Scan(row.markup, 1), row.parts);
    }
}

std::string Utf16Le(const std::string& ascii) {
    std::string wide = "\xFF\xFE";
    for (char c : ascii) {
        wide.push_back(c);
        wide.push_back('\0');
    }
    return wide;
}

TEST(MarkupScan, Utf16MarkupIsCheckedByLibxml2) {
    const std::string page =
        "<FixedPage xmlns='http://schemas.microsoft.com/xps/2005/06'>"
        "<Glyphs FontUri='/F.ttf'/><ImageBrush ImageSource='../I.png'/></FixedPage>";
    const std::vector<std::string> expected = {"/F.ttf", "/Documents/1/I.png"};
    EXPECT_EQ(Scan(Utf16Le(page), 3), expected);
    EXPECT_THROW(Scan(Utf16Le("<!DOCTYPE FixedPage []><FixedPage/>"), 64), JobError);
    EXPECT_THROW(Scan(Utf16Le("<FixedPage><Glyphs></FixedPage>"), 64), JobError);
}

TEST(PackageXml, DamagedDocumentsAreRefusedNamingThePart) {
    const std::string rels =
        "<Relationships xmlns='http://schemas.openxmlformats.org/package/2006/relationships'>";
    const std::string xps = " xmlns='http://schemas.microsoft.com/xps/2005/06'>";
    enum Kind { Rels, Types, Sequence, Document };
    // clang-format off
    const struct { const char* name; Kind kind; std::string xml; const char* message; } rows[] = {
        {"relationships not XML", Rels, "<Relationships", "/_rels/.rels is not well-formed XML"},
        {"relationships wrong root", Rels, "<Types/>", "/_rels/.rels is not a Relationships document"},
        {"relationship without target", Rels, rels + "<Relationship Id='r' Type='t'/></Relationships>",
         "without Target or Type"},
        {"content types wrong root", Types, "<Relationships/>", "[Content_Types].xml is not a Types document"},
        {"content types with a DTD", Types, "<!DOCTYPE Types []><Types/>", "has a DTD"},
        {"listing wrong root", Sequence, "<FixedDocument/>", "/FixedDocSeq.fdseq is not a FixedDocumentSequence"},
        {"entry without Source", Document, "<FixedDocument" + xps + "<PageContent/></FixedDocument>",
         "/Documents/1/FixedDoc.fdoc has a PageContent without Source"},
        {"entry above the root", Sequence, "<FixedDocumentSequence" + xps +
         "<DocumentReference Source='../../x.fdoc'/></FixedDocumentSequence>", "leaves the package root"},
        {"entry on the network", Sequence, "<FixedDocumentSequence" + xps +
         "<DocumentReference Source='http://example.com/x.fdoc'/></FixedDocumentSequence>",
         "refers outside the package"}};
    // clang-format on
    for (const auto& row : rows) {
        SCOPED_TRACE(row.name);
        try {
            if (row.kind == Rels) ParseRelationships(row.xml, "/a", "/_rels/.rels");
            if (row.kind == Types) ParseContentTypes(row.xml);
            if (row.kind == Sequence) ParseListing(row.xml, "/FixedDocSeq.fdseq", true);
            if (row.kind == Document) ParseListing(row.xml, "/Documents/1/FixedDoc.fdoc", false);
            ADD_FAILURE() << "accepted";
        } catch (const JobError& e) {
            EXPECT_NE(std::string(e.what()).find(row.message), std::string::npos) << e.what();
        }
    }
}

TEST(PackageXml, WrittenTextEscapesMarkupAndLineBreaks) {
    EXPECT_EQ(EscapeXml("a&b<c>d\"e'f\tg\nh\ri"),
              "a&amp;b&lt;c&gt;d&quot;e&apos;f&#9;g&#10;h&#13;i");
}

}  // namespace
