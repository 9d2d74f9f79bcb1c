// watermark_test.cpp: the watermark filter — its re-serialising SAX handler and markup builder,
// and whole jobs through xpsfilter with watermark settings in a temporary configuration
// directory, the output read back with libzip and libxml2 and rendered with MuPDF.
#include <gtest/gtest.h>
#include <libxml/parser.h>
#include <libxml/tree.h>

#include <algorithm>
#include <array>
#include <cstdlib>
#include <random>
#include <string>
#include <vector>

#include "filters/watermark/pagerewriter.h"
#include "filters/watermark/watermarkfilter.h"
#include "filters/watermark/watermarkmarkup.h"
#include "filtertesting.h"
#include "platform/com/comruntime.h"

namespace fs = std::filesystem;
using toolrunner::Image;
using toolrunner::TextWatermarkIni;
using toolrunner::WatermarkSetup;

namespace {

const std::string kSampleJob = std::string(FU_SOURCE_DIR) + "/samples/sample_job.xps";

// --- helpers ---------------------------------------------------------------------------------

xmlDocPtr ReadXml(const std::string& bytes) {
    return xmlReadMemory(bytes.data(), static_cast<int>(bytes.size()), "page.xml", nullptr,
                         XML_PARSE_NONET | XML_PARSE_NOERROR | XML_PARSE_NOWARNING);
}

bool ParsesAsXml(const std::string& bytes) {
    xmlDocPtr doc = ReadXml(bytes);
    xmlFreeDoc(doc);
    return doc != nullptr;
}

// The value of the attribute `name` of the last element `element` below `node` that has one (a
// watermark is the last thing on its page).
void FindAttribute(xmlNodePtr node, const char* element, const char* name, std::string& found) {
    for (; node != nullptr; node = node->next) {
        xmlChar* value = node->type == XML_ELEMENT_NODE &&
                                 std::string(reinterpret_cast<const char*>(node->name)) == element
                             ? xmlGetProp(node, reinterpret_cast<const xmlChar*>(name))
                             : nullptr;
        if (value != nullptr) found = reinterpret_cast<const char*>(value);
        xmlFree(value);
        FindAttribute(node->children, element, name, found);
    }
}

std::string AttributeOf(const std::string& xml, const char* element, const char* name) {
    xmlDocPtr doc = ReadXml(xml);
    if (doc == nullptr) return {};
    std::string value;
    FindAttribute(xmlDocGetRootElement(doc), element, name, value);
    xmlFreeDoc(doc);
    return value;
}

bool IsPage(const testpackages::Item& item) {
    return item.name.ends_with(".fpage");
}

int CountItems(const std::vector<testpackages::Item>& items, const std::string& fragment) {
    return static_cast<int>(std::count_if(items.begin(), items.end(), [&](const auto& item) {
        return item.name.find(fragment) != std::string::npos;
    }));
}

// The gradient image of the sample job.
std::string SamplePng() {
    for (const testpackages::Item& item : testpackages::ReadZip(kSampleJob)) {
        if (item.name == "Resources/Images/gradient.png") return item.content;
    }
    return {};
}

// Pixels that differ inside and outside a box (in pixels).
struct Difference {
    int inside = 0;
    int outside = 0;
};

Difference Compare(const Image& a, const Image& b, double x0, double y0, double x1, double y1) {
    Difference difference;
    for (int y = 0; y < a.height; ++y) {
        for (int x = 0; x < a.width; ++x) {
            if (a.Same(b, x, y)) continue;
            const bool inside = x >= x0 && x <= x1 && y >= y0 && y <= y1;
            ++(inside ? difference.inside : difference.outside);
        }
    }
    return difference;
}

// Renders the input and output at 72 dpi; `box` gives, per page, the box (in pixels) in which
// the pages may differ, and they must differ there by more than `least` pixels.
template <class BoxOf>
void ExpectChangesOnlyInBox(const std::string& input, const std::string& output,
                            const fs::path& dir, int least, BoxOf box) {
    const std::vector<Image> before = toolrunner::Render(input, dir / "in");
    const std::vector<Image> after = toolrunner::Render(output, dir / "out");
    ASSERT_FALSE(before.empty());
    ASSERT_EQ(before.size(), after.size());
    for (std::size_t i = 0; i < before.size(); ++i) {
        ASSERT_EQ(before[i].width, after[i].width);
        ASSERT_EQ(before[i].height, after[i].height);
        const std::array<double, 4> b = box(before[i]);
        const Difference d = Compare(before[i], after[i], b[0], b[1], b[2], b[3]);
        EXPECT_GT(d.inside, least) << "page " << i + 1 << ": the watermark is not visible";
        EXPECT_EQ(d.outside, 0) << "page " << i + 1 << ": pixels changed outside the watermark";
    }
}

// --- the re-serialising handler --------------------------------------------------------------

CComPtr<IStream> StreamOf(const std::string& bytes) {
    CComPtr<IStream> stream;
    EXPECT_EQ(S_OK, platform::CreateMemoryStream(bytes.data(), bytes.size(), &stream));
    return stream;
}

CComPtr<PageRewriter> NewRewriter(PageRewriter::Inserter inserter = nullptr) {
    CComPtr<PageRewriter> rewriter;
    rewriter.Attach(new PageRewriter(std::move(inserter)));
    return rewriter;
}

HRESULT RewriteText(const std::string& xml, std::string& out, const std::wstring& insert,
                    PageRewriter::RootInfo* seen = nullptr) {
    CComPtr<PageRewriter> rewriter = NewRewriter([&](const PageRewriter::RootInfo& root) {
        if (seen != nullptr) *seen = root;
        return insert;
    });
    CComPtr<IStream> input = StreamOf(xml);
    const HRESULT hr = rewriter->Rewrite(input);
    out = rewriter->Output();
    return hr;
}

TEST(WatermarkPageRewriter, CopiesMarkupEscapesAndInsertsBeforeTheRootCloses) {
    const std::string page =
        "<?xml version=\"1.0\" encoding=\"UTF-8\"?>\n"
        "<x:FixedPage xmlns:x=\"http://schemas.microsoft.com/xps/2005/06\" Width=\"816\" "
        "Height=\"1056\" xml:lang=\"en\"><?pi some data?>"
        "<x:Canvas Name=\"a&amp;b&lt;c&gt;d&quot;e&apos;f\" Tag=\"line&#10;break&#9;tab\">"
        "text &amp; &lt;tag&gt; \"q\" 'a' \xF0\x9F\x98\x80 \xC3\xA9<![CDATA[<raw>]]></x:Canvas>"
        "<y:Other xmlns:y=\"urn:o&amp;ther\" y:attr=\"1\"/></x:FixedPage>";
    std::string out;
    PageRewriter::RootInfo root;
    ASSERT_EQ(S_OK, RewriteText(page, out, L"<x:Canvas Name=\"inserted\"/>", &root));
    EXPECT_EQ(L"x:", root.prefix);
    EXPECT_EQ(L"http://schemas.microsoft.com/xps/2005/06", root.namespaceUri);
    EXPECT_EQ(816.0, root.width);
    EXPECT_EQ(1056.0, root.height);
    ASSERT_TRUE(ParsesAsXml(out)) << out;
    toolrunner::ExpectContains(
        out, {"Name=\"a&amp;b&lt;c&gt;d&quot;e&apos;f\"", "Tag=\"line&#10;break&#9;tab\"",
              "text &amp; &lt;tag&gt; &quot;q&quot; &apos;a&apos; \xF0\x9F\x98\x80 "
              "\xC3\xA9&lt;raw&gt;",
              "<y:Other xmlns:y=\"urn:o&amp;ther\" y:attr=\"1\">", "<?pi some data?>",
              "<x:Canvas Name=\"inserted\"/></x:FixedPage>"});
    EXPECT_EQ(AttributeOf(page, "Canvas", "Tag"), AttributeOf(out, "Canvas", "Tag"));

    // The output is its own fixed point: rewriting it again gives the same markup, the inserted
    // element now written with an end tag.
    std::string again;
    ASSERT_EQ(S_OK, RewriteText(out, again, L""));
    std::string expected = out;
    expected.replace(expected.find("<x:Canvas Name=\"inserted\"/>"), 27,
                     "<x:Canvas Name=\"inserted\"></x:Canvas>");
    EXPECT_EQ(expected, again);
}

TEST(WatermarkPageRewriter, MarkupThatDoesNotParseFails) {
    std::string out;
    for (const char* bad : {"<FixedPage><Path></FixedPage>", "<FixedPage><u:Path/></FixedPage>",
                            "<FixedPage>&bogus;</FixedPage>", "",
                            "<!DOCTYPE x [<!ENTITY a \"b\">]><x>&a;</x>"}) {
        EXPECT_TRUE(FAILED(RewriteText(bad, out, L""))) << bad;
    }
    CComPtr<PageRewriter> rewriter = NewRewriter();
    EXPECT_EQ(E_POINTER, rewriter->Rewrite(nullptr));
    EXPECT_EQ(E_POINTER, rewriter->WriteTo(nullptr));
}

// Exposes CSaxHandler::EscapeEntity, the table the rewriter's own escaping must agree with.
class EscapingHandler : public CSaxHandler {
public:
    using CSaxHandler::EscapeEntity;
};

// The rewriter's escaping as EscapeEntity (and, in attribute values, the white-space references)
// would give it, in the UTF-8 the page is written in.
std::string ReferenceEscape(const std::wstring& text, bool attributeValue) {
    CComPtr<EscapingHandler> handler;
    handler.Attach(new EscapingHandler());
    CComBSTR escaped(static_cast<int>(text.size()), text.data());
    if (FAILED(handler->EscapeEntity(&escaped.m_str))) return "<failed>";
    std::wstring withReferences;
    for (UINT i = 0; i < escaped.Length(); ++i) {
        const wchar_t c = escaped.m_str[i];
        withReferences += !attributeValue ? std::wstring(1, c)
                          : c == L'\t'    ? L"&#9;"
                          : c == L'\n'    ? L"&#10;"
                          : c == L'\r'    ? L"&#13;"
                                          : std::wstring(1, c);
    }
    return platform::WideToUtf8(withReferences);
}

enum class Append { Content, AttributeValue, Raw };

// What a fresh rewriter writes for `text` through one of its appenders.
std::string Appended(Append how, const std::wstring& text) {
    CComPtr<PageRewriter> rewriter = NewRewriter();
    if (how == Append::Content) rewriter->AppendContent(text);
    if (how == Append::AttributeValue) rewriter->AppendAttributeValue(text);
    if (how == Append::Raw) rewriter->AppendRaw(text);
    return std::string(rewriter->Output());
}

TEST(WatermarkPageRewriter, EscapingAgreesWithEscapeEntityAndTheUtf8Converter) {
    std::mt19937 random(7);
    const wchar_t pool[] = {L'&',   L'<', L'>', L'"',  L'\'', L'\t',  L'\n',
                            L'\r',  L'a', L' ', L'#',  0xE9,  0x20AC, 0x1F600,
                            0xFFFD, 0x7F, 0x80, 0x7FF, 0x800, 0xFFFF, 0x10FFFF};
    for (int round = 0; round < 300; ++round) {
        std::wstring text;
        const int length = static_cast<int>(random() % 60);
        for (int i = 0; i < length; ++i) text += pool[random() % std::size(pool)];
        EXPECT_EQ(ReferenceEscape(text, false), Appended(Append::Content, text)) << round;
        EXPECT_EQ(ReferenceEscape(text, true), Appended(Append::AttributeValue, text)) << round;
    }
    // Surrogate units (which the reader never produces, but inserted markup might hold) are
    // encoded as the platform's converter encodes them: a pair as its character, a lone unit
    // as U+FFFD.
    const std::wstring units{L'a', wchar_t(0xD83D), wchar_t(0xDE00), wchar_t(0xDC00), L'b'};
    EXPECT_EQ(platform::WideToUtf8(units), Appended(Append::Raw, units));
    // Control characters other than tab, line feed and carriage return are copied as they are.
    const std::wstring controls =
        std::wstring(20, L'a') + L'\x01' + L'\x1F' + std::wstring(20, L'b');
    EXPECT_EQ(platform::WideToUtf8(controls), Appended(Append::AttributeValue, controls));
}

TEST(WatermarkPageRewriter, PlainRunsAroundEveryKindOfCharacterAtEveryPosition) {
    // Plain ASCII goes sixteen characters at a time; a block holding anything else must fall
    // back exactly where it is, whatever the length of the text and wherever in a block the
    // character sits.
    const wchar_t specials[] = {L'&',   L'<',    L'>',     L'"',      L'\'',  L'\t',
                                L'\n',  L'\r',   0x01,     0x1F,      0x7F,   0x80,
                                0xE9,   0x20AC,  0x1F600,  0x10FFFF,  0x7FFF, 0x8000,
                                0xFFFF, 0x10000, 0x110000, 0x7FFFFFFF};
    for (const std::size_t length : {16u, 17u, 31u, 32u, 33u, 47u, 48u, 70u}) {
        for (std::size_t position = 0; position < length; ++position) {
            for (const wchar_t special : specials) {
                std::wstring text;
                for (std::size_t i = 0; i < length; ++i) text += L"M 0,9 Zabcxyz#"[i % 14];
                text[position] = special;
                SCOPED_TRACE("length " + std::to_string(length) + " position " +
                             std::to_string(position) + " character " +
                             std::to_string(static_cast<long>(special)));
                // Beyond Unicode: the replacement character, as the platform converter writes.
                const bool beyond = special > 0x10FFFF;
                ASSERT_EQ(beyond ? ReferenceEscape(text.substr(0, position), true) +
                                       "\xEF\xBF\xBD" +
                                       ReferenceEscape(text.substr(position + 1), true)
                                 : ReferenceEscape(text, true),
                          Appended(Append::AttributeValue, text));
                // Element content: the same blocks with white space copied; unescaped, the
                // same text is only encoded.
                ASSERT_EQ(platform::WideToUtf8(text), Appended(Append::Raw, text));
                if (beyond) continue;
                ASSERT_EQ(ReferenceEscape(text, false), Appended(Append::Content, text));
            }
        }
    }
}

TEST(WatermarkPageRewriter, OneRewriterServesManyPagesAndWritesEachInOneCall) {
    const std::string first =
        "<FixedPage Width=\"10\" Height=\"20\" xmlns=\"http://schemas.microsoft.com/xps/2005/06\">"
        "<Path Data=\"M 1,2 L 3,4\" Fill=\"#FF000000\"/>\n<Glyphs UnicodeString=\"a&amp;b\"/>"
        "</FixedPage>";
    const std::string second = "<FixedPage Width=\"30\" Height=\"40\"><Canvas/></FixedPage>";
    std::string expectedFirst;
    std::string expectedSecond;
    ASSERT_EQ(S_OK, RewriteText(first, expectedFirst, L"<Mark/>"));
    ASSERT_EQ(S_OK, RewriteText(second, expectedSecond, L"<Mark/>"));

    CComPtr<PageRewriter> rewriter =
        NewRewriter([](const PageRewriter::RootInfo&) { return L"<Mark/>"; });
    for (const auto& [page, expected] :
         {std::pair{first, expectedFirst},
          std::pair{std::string("<FixedPage><Path></FixedPage>"), std::string()},
          std::pair{second, expectedSecond}, std::pair{first, expectedFirst}}) {
        CComPtr<IStream> input = StreamOf(page);
        const HRESULT hr = rewriter->Rewrite(input);
        if (expected.empty()) {
            EXPECT_TRUE(FAILED(hr));
            continue;
        }
        ASSERT_EQ(S_OK, hr);
        EXPECT_EQ(expected, rewriter->Output());
        auto stream = filtertesting::Make<fakes::WriteStream>();
        ASSERT_EQ(S_OK, rewriter->WriteTo(stream));
        EXPECT_EQ(1, stream->writeCalls);
        EXPECT_EQ(expected, stream->bytes);
    }
    // A stream error is passed on.
    auto failing = filtertesting::Make<fakes::WriteStream>();
    failing->failWrites = true;
    EXPECT_EQ(E_ACCESSDENIED, rewriter->WriteTo(failing));
}

TEST(WatermarkPageRewriter, LargePagesInCanonicalFormComeBackByteForByte) {
    // Markup already in the rewriter's own form (declaration, end tags, escaped values, line
    // feeds in values as references, white space between elements as it is) comes back unchanged
    // apart from the insert, however far the output buffer has to grow.
    std::string body;
    for (int i = 0; i < 20000; ++i) {
        body += "<Path Data=\"M " + std::to_string(i) +
                ",2 L 3,4 \xC3\xA9\xE4\xB8\xAD\xF0\x9F\x98\x80\" Fill=\"#FF000000\" "
                "Name=\"&amp;&lt;&#10;\"></Path>\n\t";
    }
    const std::string head =
        "<?xml version=\"1.0\" encoding=\"UTF-8\"?><FixedPage "
        "xmlns=\"http://schemas.microsoft.com/xps/2005/06\" Width=\"8\" "
        "Height=\"9\">";
    std::string out;
    ASSERT_EQ(S_OK, RewriteText(head + body + "</FixedPage>", out, L"<Mark N=\"\u00E9\"/>"));
    EXPECT_EQ(head + body + "<Mark N=\"\xC3\xA9\"/></FixedPage>", out);
}

// --- the markup builder ----------------------------------------------------------------------

TEST(WatermarkMarkup, TextGlyphsAreEscapedAndWellFormed) {
    PrintSchema::Watermark::WatermarkData data;
    data.type = PrintSchema::Watermark::WatermarkTypeText;
    data.text.text = L"{<&>\"'}\U0001F600\x01\x7Fz\tq";
    data.text.color = L"#1A2B3C";
    data.density = 50;
    data.text.fontSizePoints = 72;
    data.xOffset = 10;
    data.yOffset = -20;
    const std::wstring markup = watermark::TextMarkup(data, 800, 1000, L"", L"/f.ttf");
    const std::string xml = "<FixedPage xmlns=\"http://schemas.microsoft.com/xps/2005/06\">" +
                            platform::WideToUtf8(markup) + "</FixedPage>";
    ASSERT_TRUE(ParsesAsXml(xml)) << xml;
    for (const auto& [name, value] : std::vector<std::pair<const char*, std::string>>{
             {"UnicodeString", "{}{<&>\"'}\xF0\x9F\x98\x80\x7Fz q"}, {"Fill", "#801A2B3C"},
             {"FontRenderingEmSize", "96"}, {"OriginX", "410"}, {"OriginY", "480"},
             {"RenderTransform", ""}}) {
        EXPECT_EQ(value, AttributeOf(xml, "Glyphs", name)) << name;
    }

    data.text.font.lfEscapement = 900;
    data.text.font.lfWeight = 700;
    data.text.color = L"not a colour";
    data.density = 250;
    const std::string turned =
        platform::WideToUtf8(watermark::TextMarkup(data, 800, 1000, L"p:", L"/f.ttf"));
    toolrunner::ExpectContains(turned, {"<p:Canvas><p:Glyphs ",
                                        "RenderTransform=\"0,-1,1,0,-70,890\"",
                                        "StyleSimulations=\"BoldSimulation\"",
                                        "Fill=\"#FF000000\""});

    data.text.text = L"\x01\x02";
    EXPECT_TRUE(watermark::TextMarkup(data, 800, 1000, L"", L"/f.ttf").empty());
    data.text.text = L"";
    EXPECT_TRUE(watermark::TextMarkup(data, 800, 1000, L"", L"/f.ttf").empty());
}

TEST(WatermarkMarkup, ImageHeadersAndBox) {
    // The sample job's PNG, a baseline JPEG header (SOI, JFIF at 72 dpi, SOF0 of 30 x 20), a
    // TIFF header, and headers cut short or damaged.
    const std::string png = SamplePng();
    const struct {
        const char* name;
        std::vector<unsigned char> bytes;
        const wchar_t* type;  // null: not read
        unsigned width;
        unsigned height;
    } rows[] = {
        {"png", {png.begin(), png.end()}, L"image/png", 64, 48},
        {"jpeg",
         {0xFF, 0xD8, 0xFF, 0xE0, 0x00, 0x10, 'J',  'F',  'I',  'F',  0x00,
          0x01, 0x01, 0x01, 0x00, 0x48, 0x00, 0x48, 0x00, 0x00, 0xFF, 0xC0,
          0x00, 0x0B, 0x08, 0x00, 0x14, 0x00, 0x1E, 0x01, 0x01, 0x11, 0x00},
         L"image/jpeg", 30, 20},
        {"tiff", {'I', 'I', 42, 0, 8, 0, 0, 0, 2, 0, 0, 1, 3, 0, 1, 0, 0,
                  0,   7,   0,  0, 0, 1, 1, 4, 0, 1, 0, 0, 0, 9, 0, 0, 0},
         L"image/tiff", 7, 9},
        {"nothing", {}, nullptr, 0, 0},
        {"short_png", {0x89, 'P', 'N', 'G'}, nullptr, 0, 0},
        {"short_jpeg", {0xFF, 0xD8, 0xFF, 0xC0, 0xFF, 0xFF}, nullptr, 0, 0},
        {"bad_tiff", {'M', 'M', 0, 42, 0xFF, 0xFF, 0xFF, 0xF0}, nullptr, 0, 0},
    };
    for (const auto& row : rows) {
        SCOPED_TRACE(row.name);
        watermark::ImageInfo info;
        ASSERT_EQ(row.type != nullptr, watermark::ReadImageInfo(row.bytes, info));
        if (row.type == nullptr) continue;
        EXPECT_EQ(row.type, info.contentType);
        EXPECT_EQ(row.width, info.width);
        EXPECT_EQ(row.height, info.height);
        EXPECT_TRUE(std::string(row.name) != "jpeg" || info.dpiX == 72.0) << info.dpiX;
    }

    PrintSchema::Watermark::WatermarkData data;
    data.bitmapScale = 2.0f;
    data.xOffset = 5;
    watermark::ImageInfo image;
    image.width = 100;
    image.height = 50;
    image.dpiX = image.dpiY = 192.0;
    const watermark::Box box = watermark::ImageBox(data, image, 800, 1000);
    EXPECT_DOUBLE_EQ(100.0, box.width);
    EXPECT_DOUBLE_EQ(50.0, box.height);
    EXPECT_DOUBLE_EQ(355.0, box.x);
    EXPECT_DOUBLE_EQ(475.0, box.y);
    const std::string xml =
        "<FixedPage xmlns=\"http://schemas.microsoft.com/xps/2005/06\">" +
        platform::WideToUtf8(watermark::ImageMarkup(data, image, 800, 1000, L"", L"/i&.png")) +
        "</FixedPage>";
    ASSERT_TRUE(ParsesAsXml(xml)) << xml;
    EXPECT_EQ("/i&.png", AttributeOf(xml, "ImageBrush", "ImageSource"));
    EXPECT_EQ("355,475,100,50", AttributeOf(xml, "ImageBrush", "Viewport"));
    EXPECT_EQ("0.25", AttributeOf(xml, "Canvas", "Opacity"));
}

// --- whole jobs ------------------------------------------------------------------------------

// Text watermarks on real jobs: the font is written once and attached to every page, every page
// holds the text, escaped, and only the mark's box changes. A text watermark starts at the page
// centre; at 72 dpi its box runs from just left of the centre to the page's right edge, one em
// above the baseline to half an em below it.
TEST(WatermarkJob, TextWatermarkChangesOnlyItsBoxAndTheFontIsWrittenOnce) {
    const struct {
        const char* name;
        std::string input;
        std::string text;
        int points;
    } rows[] = {
        {"sample_job", kSampleJob, "WM&<x>", 36},
        {"corpus_job", testpackages::CorpusFile("wpftest_word.xps"), "Corpus", 24},
        {"characters_beyond_the_basic_plane", kSampleJob,
         "<&>\"' \xF0\x9F\x98\x80 {x} \xC3\xA9", 36},
    };
    for (const auto& row : rows) {
        SCOPED_TRACE(row.name);
        const fs::path dir = toolrunner::WorkDir(std::string("watermark_") + row.name);
        const WatermarkSetup job(dir, TextWatermarkIni(row.text, row.points));
        ASSERT_TRUE(job.made);
        const std::string out = (dir / "out.xps").string();
        ASSERT_EQ(0, job.Run(row.input, out).exitCode);
        const auto items = testpackages::ReadZip(out);
        EXPECT_EQ(1, CountItems(items, "WatermarkDejaVuSans.ttf"));
        EXPECT_EQ(std::count_if(items.begin(), items.end(), IsPage),
                  std::count_if(items.begin(), items.end(), [](const auto& item) {
                      return item.name.ends_with(".fpage.rels") &&
                             item.content.find("/Resources/Fonts/WatermarkDejaVuSans.ttf") !=
                                 std::string::npos;
                  }));
        for (const auto& item : items) {
            if (item.name == "[Content_Types].xml") {
                EXPECT_NE(std::string::npos, item.content.find("application/vnd.ms-opentype"));
            }
            if (!IsPage(item)) continue;
            ASSERT_TRUE(ParsesAsXml(item.content)) << item.name;
            EXPECT_EQ(row.text, AttributeOf(item.content, "Glyphs", "UnicodeString")) << item.name;
            EXPECT_EQ("/Resources/Fonts/WatermarkDejaVuSans.ttf",
                      AttributeOf(item.content, "Glyphs", "FontUri"));
            EXPECT_EQ("#99C80000", AttributeOf(item.content, "Glyphs", "Fill"));
        }
        const double em = row.points;
        ExpectChangesOnlyInBox(row.input, out, dir, 50, [em](const Image& page) {
            return std::array<double, 4>{page.width / 2.0 - 2, page.height / 2.0 - 1.1 * em,
                                         double(page.width), page.height / 2.0 + 0.5 * em};
        });
    }
}

TEST(WatermarkJob, NoWatermarkLeavesPagesPixelIdentical) {
    const struct {
        const char* what;
        std::string ini;
        bool ticket;
    } cases[] = {
        {"no settings file", "", true},
        {"no section for the watermark", "[13]\nText=Other\n", true},
        {"no watermark type", "[12]\nWatermark Type=7\nText=X\n", true},
        {"no private data in the ticket", TextWatermarkIni("X"), false},
        {"a bitmap that does not exist", "[12]\nWatermark Type=2\nBmpFile=/nonexistent/x.png\n",
         true},
    };
    int index = 0;
    for (const auto& c : cases) {
        SCOPED_TRACE(c.what);
        const fs::path dir = toolrunner::WorkDir("no_watermark" + std::to_string(index++));
        const WatermarkSetup job(dir, c.ini, c.ticket);
        const std::string out = (dir / "out.xps").string();
        ASSERT_EQ(0, job.Run(kSampleJob, out).exitCode);
        EXPECT_EQ(0, CountItems(testpackages::ReadZip(out), "Watermark"));
        toolrunner::ExpectRendersAlike(kSampleJob, out, dir);
    }
}

TEST(WatermarkJob, BitmapWatermarkIsDrawnInsideItsBox) {
    const fs::path dir = toolrunner::WorkDir("watermark_bitmap");
    const std::string png = SamplePng();
    ASSERT_FALSE(png.empty());
    const fs::path bitmap = dir / "mark.png";
    std::ofstream(bitmap, std::ios::binary) << png;
    watermark::ImageInfo info;
    ASSERT_TRUE(watermark::ReadImageInfo({png.begin(), png.end()}, info));

    const WatermarkSetup job(dir, "[12]\nWatermark Type=2\nDENSITY=80\nScale=2\nBmpFile=" +
                                      bitmap.string() + "\n");
    const std::string out = (dir / "out.xps").string();
    ASSERT_EQ(0, job.Run(kSampleJob, out).exitCode);
    const auto items = testpackages::ReadZip(out);
    EXPECT_EQ(1, CountItems(items, "Resources/Images/Watermark1.png"));
    EXPECT_EQ(3, std::count_if(items.begin(), items.end(), IsPage));
    for (const auto& item : items) {
        if (!IsPage(item)) continue;
        EXPECT_TRUE(ParsesAsXml(item.content)) << item.name;
        EXPECT_NE(std::string::npos,
                  item.content.find("ImageSource=\"/Resources/Images/Watermark1.png\""))
            << item.name;
    }
    ExpectChangesOnlyInBox(kSampleJob, out, dir, 100, [&info](const Image& page) {
        PrintSchema::Watermark::WatermarkData data;
        data.bitmapScale = 2.0f;
        // The box in page units (1/96 inch), then at 72 dpi with a pixel of slack.
        const watermark::Box box =
            watermark::ImageBox(data, info, page.width * 96.0 / 72.0, page.height * 96.0 / 72.0);
        const double k = 72.0 / 96.0;
        return std::array<double, 4>{box.x * k - 1, box.y * k - 1, (box.x + box.width) * k + 1,
                                     (box.y + box.height) * k + 1};
    });
}

// --- the filter over fake pipeline parts -----------------------------------------------------

// Runs a WatermarkFilter over one fake page with the ticket naming watermark 12 and the given
// settings; the page's write stream is not available, so a page the filter rewrites fails.
TEST(WatermarkFilterOverFakes, PagesThatCannotBeMarkedAndUnreadableFonts) {
    const std::string page = "<FixedPage Width='10' Height='10'/>";
    const struct {
        const char* name;
        std::string ini;
        std::string markup;
        const wchar_t* fontFile;
        bool fails;
        unsigned pagesNotParsed;
    } rows[] = {
        // Markup that does not parse is passed on unchanged.
        {"unparsable_page", TextWatermarkIni("X"),
         "<FixedPage Width='10' Height='10'><Path></FixedPage>", nullptr, false, 1},
        // A font that cannot be read fails the job, but only when text is drawn.
        {"unreadable_font", TextWatermarkIni("X"), page, L"/nonexistent/font.ttf", true, 0},
        {"unreadable_font_no_text", TextWatermarkIni(""), page, L"/nonexistent/font.ttf", false,
         0},
    };
    for (const auto& row : rows) {
        SCOPED_TRACE(row.name);
        const fs::path dir = toolrunner::WorkDir(std::string("fakes_") + row.name);
        const WatermarkSetup settings(dir, row.ini);
        ASSERT_TRUE(settings.made);
        filtertesting::FakeJob job;
        job.bag->FillJobProperties(toolrunner::ReadFile(settings.ticket));
        if (row.fontFile != nullptr) job.SetParameter(L"FontFile", row.fontFile);
        auto fakePage = filtertesting::Make<fakes::Page>();
        fakePage->markup = row.markup;
        job.provider->parts.emplace_back(static_cast<IFixedPage*>(fakePage.p));
        auto filter = filtertesting::Make<WatermarkFilter>();
        ::setenv("XDG_CONFIG_HOME", (dir / "config").c_str(), 1);
        const HRESULT result = job.Run(filter);
        ::unsetenv("XDG_CONFIG_HOME");
        EXPECT_EQ(row.fails, FAILED(result)) << std::hex << result;
        EXPECT_EQ(0, job.consumer->newPartCalls);
        if (row.fails) continue;
        EXPECT_EQ(S_OK, result);
        EXPECT_EQ(row.pagesNotParsed, filter->PagesNotParsed());
        EXPECT_EQ(0u, filter->PagesMarked());
        EXPECT_EQ(std::vector<std::string>{"page"}, job.consumer->sent);
        EXPECT_TRUE(fakePage->resources.empty());
    }
}

}  // namespace
