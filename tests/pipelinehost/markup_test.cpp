// Tests of the markup reference scan: the references a page names, found the same whether the
// markup arrives in one read or in pieces cut anywhere (inside names, values, comments).
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

TEST(MarkupScan, FindsEveryReferenceOutsideCommentsAndCData) {
    std::vector<std::string> names = Scan(kPage, kPage.size());
    const std::vector<std::string> expected = {
        "/Documents/1/Dict.dict",      "/Resources/Font.ttf", "/Resources/p.icc",
        "/Documents/1/Images/A&B.png", "/Resources/C.png",    "/Resources/c.icc"};
    EXPECT_EQ(names, expected);
}

TEST(MarkupScan, PiecesCutAnywhereGiveTheSameReferences) {
    std::vector<std::string> whole = Scan(kPage, kPage.size());
    ASSERT_FALSE(whole.empty());
    for (std::size_t piece : {1u, 2u, 3u, 7u, 13u, 4096u, 65536u}) {
        EXPECT_EQ(Scan(kPage, piece), whole) << "pieces of " << piece;
    }
}

TEST(MarkupScan, ADtdIsRefusedEvenWhenSplit) {
    std::string markup = "<?xml version=\"1.0\"?><!DOCTYPE FixedPage []><FixedPage/>";
    for (std::size_t piece : {std::size_t{1}, std::size_t{5}, markup.size()}) {
        EXPECT_THROW(Scan(markup, piece), JobError) << "pieces of " << piece;
    }
}

}  // namespace
