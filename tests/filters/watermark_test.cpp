// watermark_test.cpp: the watermark filter — its re-serialising SAX handler and markup builder,
// and whole jobs through xpsfilter with watermark settings in a temporary configuration
// directory, the output read back with libzip and libxml2 and rendered with MuPDF.
#include <gtest/gtest.h>
#include <libxml/parser.h>
#include <libxml/tree.h>
#include <unistd.h>
#include <zip.h>

#include <cstdio>
#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <random>
#include <sstream>
#include <string>
#include <vector>

#include "../filterpipeline/filterutilities/pipelinefakes.h"
#include "../tools/toolrunner.h"
#include "filters/watermark/pagerewriter.h"
#include "filters/watermark/watermarkfilter.h"
#include "filters/watermark/watermarkmarkup.h"
#include "platform/com/atl.h"
#include "platform/com/comruntime.h"
#include "platform/com/unicode.h"

namespace fs = std::filesystem;
using toolrunner::Image;
using toolrunner::ReadPpm;

namespace {

const std::string kXpsFilter = std::string(FU_BINARY_DIR) + "/bin/xpsfilter";
const std::string kPipeline = std::string(FU_SOURCE_DIR) + "/samples/pipelines/watermark.xml";
const std::string kSampleJob = std::string(FU_SOURCE_DIR) + "/samples/sample_job.xps";

// --- helpers ---------------------------------------------------------------------------------

bool ParsesAsXml(const std::string& bytes) {
    xmlDocPtr doc = xmlReadMemory(bytes.data(), static_cast<int>(bytes.size()), "page.xml", nullptr,
                                  XML_PARSE_NONET | XML_PARSE_NOERROR | XML_PARSE_NOWARNING);
    if (doc == nullptr) return false;
    xmlFreeDoc(doc);
    return true;
}

// The value of the first attribute `name` of an element `element` anywhere in the document.
std::string FindAttribute(xmlNodePtr node, const char* element, const char* name) {
    for (; node != nullptr; node = node->next) {
        if (node->type == XML_ELEMENT_NODE &&
            std::string(reinterpret_cast<const char*>(node->name)) == element) {
            xmlChar* value = xmlGetProp(node, reinterpret_cast<const xmlChar*>(name));
            if (value != nullptr) {
                std::string text(reinterpret_cast<const char*>(value));
                xmlFree(value);
                return text;
            }
        }
        std::string inner = FindAttribute(node->children, element, name);
        if (!inner.empty()) return inner;
    }
    return {};
}

std::string AttributeOf(const std::string& xml, const char* element, const char* name) {
    xmlDocPtr doc = xmlReadMemory(xml.data(), static_cast<int>(xml.size()), "page.xml", nullptr,
                                  XML_PARSE_NONET | XML_PARSE_NOERROR | XML_PARSE_NOWARNING);
    if (doc == nullptr) return {};
    std::string value = FindAttribute(xmlDocGetRootElement(doc), element, name);
    xmlFreeDoc(doc);
    return value;
}

// The items of a ZIP file by name, in order.
std::vector<std::pair<std::string, std::string>> ReadZip(const std::string& path) {
    std::vector<std::pair<std::string, std::string>> items;
    int error = 0;
    zip_t* archive = zip_open(path.c_str(), ZIP_RDONLY, &error);
    if (archive == nullptr) return items;
    const zip_int64_t count = zip_get_num_entries(archive, 0);
    for (zip_int64_t i = 0; i < count; ++i) {
        const char* name = zip_get_name(archive, static_cast<zip_uint64_t>(i), 0);
        zip_file_t* file = zip_fopen_index(archive, static_cast<zip_uint64_t>(i), 0);
        if (name == nullptr || file == nullptr) continue;
        std::string bytes;
        char buffer[65536];
        zip_int64_t got;
        while ((got = zip_fread(file, buffer, sizeof buffer)) > 0) {
            bytes.append(buffer, static_cast<std::size_t>(got));
        }
        zip_fclose(file);
        items.emplace_back(name, std::move(bytes));
    }
    zip_close(archive);
    return items;
}

// A directory of its own for each test, removed afterwards.
class ScratchDir {
public:
    ScratchDir() {
        const auto* info = ::testing::UnitTest::GetInstance()->current_test_info();
        m_path = fs::temp_directory_path() /
                 ("fu_watermark_" + std::to_string(::getpid()) + "_" + info->name());
        fs::remove_all(m_path);
        fs::create_directories(m_path);
    }
    ~ScratchDir() { fs::remove_all(m_path); }
    const fs::path& path() const { return m_path; }

private:
    fs::path m_path;
};

int Run(const std::string& command) {
    const int status = std::system(command.c_str());
    return status >= 0 && WIFEXITED(status) ? WEXITSTATUS(status) : -1;
}

std::string Quote(const fs::path& path) {
    return "'" + path.string() + "'";
}

// A job run: settings file contents (empty: none), whether the ticket names watermark 12.
class WatermarkJob {
public:
    WatermarkJob(const fs::path& dir, const std::string& ini, bool withTicket = true) : m_dir(dir) {
        const fs::path config = m_dir / "config";
        fs::create_directories(config / "PrinterDriver" / "Zorun");
        if (!ini.empty()) {
            std::ofstream(config / "PrinterDriver" / "Zorun" / "ZrnWmV5.ini", std::ios::binary)
                << ini;
        }
        m_environment = "XDG_CONFIG_HOME=" + Quote(config) + " ";
        if (withTicket) {
            std::ofstream(m_dir / "devmode.txt") << "[attributes]\n620 = option 12\n";
            m_ticketArgument = " --ticket " + Quote(m_dir / "ticket.xml");
            m_ticketMade =
                Run(kXpsFilter + " devmode encode --as page -o " + Quote(m_dir / "ticket.xml") +
                    " " + Quote(m_dir / "devmode.txt") + " 2>/dev/null") == 0;
        }
    }

    bool TicketMade() const { return m_ticketMade; }

    // Runs the job; the exit code of xpsfilter.
    int Filter(const std::string& input, const fs::path& output) const {
        return Run(m_environment + kXpsFilter + " run -q --pipeline " + Quote(kPipeline) +
                   m_ticketArgument + " " + Quote(input) + " " + Quote(output));
    }

    // Renders every page at 72 dpi.
    std::vector<Image> Render(const fs::path& job, const std::string& name) const {
        const fs::path folder = m_dir / name;
        fs::create_directories(folder);
        std::vector<Image> pages;
        if (Run("mutool draw -q -r 72 -o " + Quote(folder / "p%d.ppm") + " " + Quote(job) +
                " 2>/dev/null") != 0) {
            return pages;
        }
        for (int page = 1; fs::exists(folder / ("p" + std::to_string(page) + ".ppm")); ++page) {
            pages.push_back(ReadPpm(folder / ("p" + std::to_string(page) + ".ppm")));
        }
        return pages;
    }

private:
    fs::path m_dir;
    std::string m_environment;
    std::string m_ticketArgument;
    bool m_ticketMade = true;
};

// Pixel differences inside and outside a box (72 dpi pixels).
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

int CountItems(const std::vector<std::pair<std::string, std::string>>& items,
               const std::string& fragment) {
    int count = 0;
    for (const auto& [name, bytes] : items) {
        if (name.find(fragment) != std::string::npos) ++count;
    }
    return count;
}

std::string TextIni(const std::string& text, int fontHeight = 36) {
    return "[12]\r\nWatermark Type=0\r\nDENSITY=60\r\nFontHeight=" + std::to_string(fontHeight) +
           "\r\nRed=200\r\nGreen=0\r\nBlue=0\r\nText=" + text + "\r\n";
}

// A text watermark starts at the page centre; at 72 dpi the box runs from just left of the
// centre to the page's right edge, one em above the baseline to half an em below it.
void ExpectTextOnlyInBox(const std::vector<Image>& before, const std::vector<Image>& after,
                         double emPoints) {
    ASSERT_FALSE(before.empty());
    ASSERT_EQ(before.size(), after.size());
    for (std::size_t i = 0; i < before.size(); ++i) {
        ASSERT_EQ(before[i].width, after[i].width);
        ASSERT_EQ(before[i].height, after[i].height);
        const double cx = before[i].width / 2.0;
        const double cy = before[i].height / 2.0;
        const Difference d = Compare(before[i], after[i], cx - 2, cy - 1.1 * emPoints,
                                     before[i].width, cy + 0.5 * emPoints);
        EXPECT_GT(d.inside, 50) << "page " << i + 1 << ": the watermark is not visible";
        EXPECT_EQ(d.outside, 0) << "page " << i + 1 << ": pixels changed outside the watermark";
    }
}

// --- the re-serialising handler --------------------------------------------------------------

CComPtr<IStream> StreamOf(const std::string& bytes) {
    CComPtr<IStream> stream;
    if (FAILED(CreateStreamOnHGlobal(nullptr, TRUE, &stream))) return nullptr;
    ULONG written = 0;
    stream->Write(bytes.data(), static_cast<ULONG>(bytes.size()), &written);
    LARGE_INTEGER start{};
    stream->Seek(start, STREAM_SEEK_SET, nullptr);
    return stream;
}

HRESULT RewriteText(const std::string& xml, std::string& out, const std::wstring& insert,
                    PageRewriter::RootInfo* seen = nullptr) {
    CComPtr<PageRewriter> rewriter;
    rewriter.Attach(new PageRewriter([&](const PageRewriter::RootInfo& root) {
        if (seen != nullptr) *seen = root;
        return insert;
    }));
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
    EXPECT_NE(std::string::npos, out.find("Name=\"a&amp;b&lt;c&gt;d&quot;e&apos;f\""));
    EXPECT_NE(std::string::npos, out.find("Tag=\"line&#10;break&#9;tab\""));
    EXPECT_NE(std::string::npos, out.find("text &amp; &lt;tag&gt; &quot;q&quot; &apos;a&apos; "
                                          "\xF0\x9F\x98\x80 \xC3\xA9&lt;raw&gt;"));
    EXPECT_NE(std::string::npos, out.find("<y:Other xmlns:y=\"urn:o&amp;ther\" y:attr=\"1\">"));
    EXPECT_NE(std::string::npos, out.find("<?pi some data?>"));
    EXPECT_NE(std::string::npos, out.find("<x:Canvas Name=\"inserted\"/></x:FixedPage>"));
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
    EXPECT_TRUE(FAILED(RewriteText("<FixedPage><Path></FixedPage>", out, L"")));
    EXPECT_TRUE(FAILED(RewriteText("<FixedPage><u:Path/></FixedPage>", out, L"")));
    EXPECT_TRUE(FAILED(RewriteText("<FixedPage>&bogus;</FixedPage>", out, L"")));
    EXPECT_TRUE(FAILED(RewriteText("", out, L"")));
    EXPECT_TRUE(FAILED(RewriteText("<!DOCTYPE x [<!ENTITY a \"b\">]><x>&a;</x>", out, L"")));
    CComPtr<PageRewriter> rewriter;
    rewriter.Attach(new PageRewriter(nullptr));
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
        if (!attributeValue) {
            withReferences += c;
            continue;
        }
        withReferences += c == L'\t'   ? L"&#9;"
                          : c == L'\n' ? L"&#10;"
                          : c == L'\r' ? L"&#13;"
                                       : std::wstring(1, c);
    }
    return platform::WideToUtf8(withReferences);
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
        for (const bool attributeValue : {false, true}) {
            CComPtr<PageRewriter> rewriter;
            rewriter.Attach(new PageRewriter(nullptr));
            if (attributeValue) {
                rewriter->AppendAttributeValue(text);
            } else {
                rewriter->AppendContent(text);
            }
            EXPECT_EQ(ReferenceEscape(text, attributeValue), rewriter->Output())
                << "round " << round << (attributeValue ? " attribute" : " content");
        }
    }
    // Surrogate units (which the reader never produces, but inserted markup might hold) are
    // encoded as the platform's converter encodes them: a pair as its character, a lone unit
    // as U+FFFD.
    CComPtr<PageRewriter> rewriter;
    rewriter.Attach(new PageRewriter(nullptr));
    const std::wstring units{L'a', wchar_t(0xD83D), wchar_t(0xDE00), wchar_t(0xDC00), L'b'};
    rewriter->AppendRaw(units);
    EXPECT_EQ(platform::WideToUtf8(units), rewriter->Output());
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
                // Attribute values: white space as references, the harder table.
                CComPtr<PageRewriter> rewriter;
                rewriter.Attach(new PageRewriter(nullptr));
                rewriter->AppendAttributeValue(text);
                std::string expected;
                if (special > 0x10FFFF) {
                    // Beyond Unicode: the replacement character, as the platform converter.
                    std::wstring before = text.substr(0, position);
                    std::wstring after = text.substr(position + 1);
                    expected = ReferenceEscape(before, true) + "\xEF\xBF\xBD" +
                               ReferenceEscape(after, true);
                } else {
                    expected = ReferenceEscape(text, true);
                }
                ASSERT_EQ(expected, rewriter->Output())
                    << "length " << length << " position " << position << " character "
                    << static_cast<long>(special);
                // Element content: the same blocks with white space copied.
                if (special <= 0x10FFFF) {
                    CComPtr<PageRewriter> content;
                    content.Attach(new PageRewriter(nullptr));
                    content->AppendContent(text);
                    ASSERT_EQ(ReferenceEscape(text, false), content->Output())
                        << "content, length " << length << " position " << position;
                }
                // Unescaped, the same text is only encoded.
                CComPtr<PageRewriter> raw;
                raw.Attach(new PageRewriter(nullptr));
                raw->AppendRaw(text);
                if (special <= 0x10FFFF) {
                    ASSERT_EQ(platform::WideToUtf8(text), raw->Output());
                }
            }
        }
    }
    // Control characters other than tab, line feed and carriage return are copied as they are.
    CComPtr<PageRewriter> rewriter;
    rewriter.Attach(new PageRewriter(nullptr));
    const std::wstring controls =
        std::wstring(20, L'a') + L'\x01' + L'\x1F' + std::wstring(20, L'b');
    rewriter->AppendAttributeValue(controls);
    EXPECT_EQ(platform::WideToUtf8(controls), rewriter->Output());
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

    CComPtr<PageRewriter> rewriter;
    rewriter.Attach(new PageRewriter([](const PageRewriter::RootInfo&) { return L"<Mark/>"; }));
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
        CComPtr<fakes::WriteStream> stream;
        stream.Attach(new fakes::WriteStream());
        ASSERT_EQ(S_OK, rewriter->WriteTo(stream));
        EXPECT_EQ(1, stream->writeCalls);
        EXPECT_EQ(expected, stream->bytes);
    }
    // A stream error is passed on.
    CComPtr<fakes::WriteStream> failing;
    failing.Attach(new fakes::WriteStream());
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
    EXPECT_EQ("{}{<&>\"'}\xF0\x9F\x98\x80\x7Fz q", AttributeOf(xml, "Glyphs", "UnicodeString"));
    EXPECT_EQ("#801A2B3C", AttributeOf(xml, "Glyphs", "Fill"));
    EXPECT_EQ("96", AttributeOf(xml, "Glyphs", "FontRenderingEmSize"));
    EXPECT_EQ("410", AttributeOf(xml, "Glyphs", "OriginX"));
    EXPECT_EQ("480", AttributeOf(xml, "Glyphs", "OriginY"));
    EXPECT_EQ("", AttributeOf(xml, "Glyphs", "RenderTransform"));

    data.text.font.lfEscapement = 900;
    data.text.font.lfWeight = 700;
    data.text.color = L"not a colour";
    data.density = 250;
    const std::string turned =
        platform::WideToUtf8(watermark::TextMarkup(data, 800, 1000, L"p:", L"/f.ttf"));
    EXPECT_NE(std::string::npos, turned.find("<p:Canvas><p:Glyphs ")) << turned;
    EXPECT_NE(std::string::npos, turned.find("RenderTransform=\"0,-1,1,0,-70,890\"")) << turned;
    EXPECT_NE(std::string::npos, turned.find("StyleSimulations=\"BoldSimulation\""));
    EXPECT_NE(std::string::npos, turned.find("Fill=\"#FF000000\""));

    data.text.text = L"\x01\x02";
    EXPECT_TRUE(watermark::TextMarkup(data, 800, 1000, L"", L"/f.ttf").empty());
    data.text.text = L"";
    EXPECT_TRUE(watermark::TextMarkup(data, 800, 1000, L"", L"/f.ttf").empty());
}

TEST(WatermarkMarkup, ImageHeadersAndBox) {
    const auto items = ReadZip(kSampleJob);
    std::string png;
    for (const auto& [name, bytes] : items) {
        if (name == "Resources/Images/gradient.png") png = bytes;
    }
    ASSERT_FALSE(png.empty());
    watermark::ImageInfo info;
    ASSERT_TRUE(watermark::ReadImageInfo({png.begin(), png.end()}, info));
    EXPECT_EQ(L"image/png", info.contentType);
    EXPECT_GT(info.width, 0u);
    EXPECT_GT(info.height, 0u);

    // A baseline JPEG header (SOI, JFIF at 72 dpi, SOF0 of 30 x 20) and a TIFF header.
    const std::vector<unsigned char> jpeg = {0xFF, 0xD8, 0xFF, 0xE0, 0x00, 0x10, 'J',  'F',  'I',
                                             'F',  0x00, 0x01, 0x01, 0x01, 0x00, 0x48, 0x00, 0x48,
                                             0x00, 0x00, 0xFF, 0xC0, 0x00, 0x0B, 0x08, 0x00, 0x14,
                                             0x00, 0x1E, 0x01, 0x01, 0x11, 0x00};
    ASSERT_TRUE(watermark::ReadImageInfo(jpeg, info));
    EXPECT_EQ(L"image/jpeg", info.contentType);
    EXPECT_EQ(30u, info.width);
    EXPECT_EQ(20u, info.height);
    EXPECT_EQ(72.0, info.dpiX);
    const std::vector<unsigned char> tiff = {'I', 'I', 42, 0, 8, 0, 0, 0, 2, 0, 0, 1,
                                             3,   0,   1,  0, 0, 0, 7, 0, 0, 0, 1, 1,
                                             4,   0,   1,  0, 0, 0, 9, 0, 0, 0};
    ASSERT_TRUE(watermark::ReadImageInfo(tiff, info));
    EXPECT_EQ(L"image/tiff", info.contentType);
    EXPECT_EQ(7u, info.width);
    EXPECT_EQ(9u, info.height);

    EXPECT_FALSE(watermark::ReadImageInfo({}, info));
    EXPECT_FALSE(watermark::ReadImageInfo({0x89, 'P', 'N', 'G'}, info));
    EXPECT_FALSE(watermark::ReadImageInfo({0xFF, 0xD8, 0xFF, 0xC0, 0xFF, 0xFF}, info));
    EXPECT_FALSE(watermark::ReadImageInfo({'M', 'M', 0, 42, 0xFF, 0xFF, 0xFF, 0xF0}, info));

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

TEST(WatermarkJob, TextWatermarkChangesOnlyItsBoxAndTheFontIsWrittenOnce) {
    ScratchDir dir;
    WatermarkJob job(dir.path(), TextIni("WM&<x>"));
    ASSERT_TRUE(job.TicketMade());
    const fs::path out = dir.path() / "out.xps";
    ASSERT_EQ(0, job.Filter(kSampleJob, out));

    const auto items = ReadZip(out.string());
    EXPECT_EQ(1, CountItems(items, "WatermarkDejaVuSans.ttf"));
    int pages = 0;
    for (const auto& [name, bytes] : items) {
        if (name == "[Content_Types].xml") {
            EXPECT_NE(std::string::npos, bytes.find("application/vnd.ms-opentype")) << bytes;
        }
        if (name.size() > 6 && name.substr(name.size() - 6) == ".fpage") {
            ++pages;
            EXPECT_TRUE(ParsesAsXml(bytes)) << name;
            EXPECT_EQ("WM&<x>", AttributeOf(bytes, "Glyphs", "UnicodeString")) << name;
            EXPECT_EQ("/Resources/Fonts/WatermarkDejaVuSans.ttf",
                      AttributeOf(bytes, "Glyphs", "FontUri"));
            EXPECT_EQ("#99C80000", AttributeOf(bytes, "Glyphs", "Fill"));
        }
        if (name.find("_rels/") != std::string::npos &&
            name.find(".fpage.rels") != std::string::npos) {
            EXPECT_NE(std::string::npos, bytes.find("/Resources/Fonts/WatermarkDejaVuSans.ttf"));
        }
    }
    EXPECT_EQ(3, pages);
    ExpectTextOnlyInBox(job.Render(kSampleJob, "in"), job.Render(out, "out"), 36.0);
}

TEST(WatermarkJob, CorpusJobGetsTheWatermarkOnEveryPage) {
    const std::string input = std::string(FU_CORPUS_DIR) + "/xps/wpftest_word.xps";
    if (!fs::exists(input)) GTEST_SKIP() << "corpus job missing";
    ScratchDir dir;
    WatermarkJob job(dir.path(), TextIni("Corpus", 24));
    const fs::path out = dir.path() / "out.xps";
    ASSERT_EQ(0, job.Filter(input, out));
    const auto items = ReadZip(out.string());
    EXPECT_EQ(1, CountItems(items, "WatermarkDejaVuSans.ttf"));
    for (const auto& [name, bytes] : items) {
        if (name.size() > 6 && name.substr(name.size() - 6) == ".fpage") {
            EXPECT_TRUE(ParsesAsXml(bytes)) << name;
            EXPECT_NE(std::string::npos, bytes.find("UnicodeString=\"Corpus\"")) << name;
        }
    }
    ExpectTextOnlyInBox(job.Render(input, "in"), job.Render(out, "out"), 24.0);
}

TEST(WatermarkJob, EscapingAndCharactersBeyondTheBasicPlaneSurvive) {
    ScratchDir dir;
    const std::string text = "<&>\"' \xF0\x9F\x98\x80 {x} \xC3\xA9";
    WatermarkJob job(dir.path(), TextIni(text));
    const fs::path out = dir.path() / "out.xps";
    ASSERT_EQ(0, job.Filter(kSampleJob, out));
    int pages = 0;
    for (const auto& [name, bytes] : ReadZip(out.string())) {
        if (name.size() > 6 && name.substr(name.size() - 6) == ".fpage") {
            ++pages;
            ASSERT_TRUE(ParsesAsXml(bytes)) << bytes;
            EXPECT_EQ(text, AttributeOf(bytes, "Glyphs", "UnicodeString"));
        }
    }
    EXPECT_EQ(3, pages);
}

TEST(WatermarkJob, NoWatermarkLeavesPagesPixelIdentical) {
    ScratchDir dir;
    const std::vector<Image> input = WatermarkJob(dir.path(), "", false).Render(kSampleJob, "in");
    ASSERT_EQ(3u, input.size());
    struct Case {
        const char* what;
        std::string ini;
        bool ticket;
    };
    const Case cases[] = {
        {"no settings file", "", true},
        {"no section for the watermark", "[13]\nText=Other\n", true},
        {"no watermark type", "[12]\nWatermark Type=7\nText=X\n", true},
        {"no private data in the ticket", TextIni("X"), false},
        {"a bitmap that does not exist", "[12]\nWatermark Type=2\nBmpFile=/nonexistent/x.png\n",
         true},
    };
    int index = 0;
    for (const Case& c : cases) {
        SCOPED_TRACE(c.what);
        const fs::path sub = dir.path() / std::to_string(index++);
        fs::create_directories(sub);
        WatermarkJob job(sub, c.ini, c.ticket);
        const fs::path out = sub / "out.xps";
        ASSERT_EQ(0, job.Filter(kSampleJob, out));
        const auto items = ReadZip(out.string());
        EXPECT_EQ(0, CountItems(items, "Watermark"));
        const std::vector<Image> output = job.Render(out, "out");
        ASSERT_EQ(input.size(), output.size());
        for (std::size_t i = 0; i < input.size(); ++i) {
            EXPECT_EQ(input[i].rgb, output[i].rgb) << "page " << i + 1;
        }
    }
}

TEST(WatermarkJob, BitmapWatermarkIsDrawnInsideItsBox) {
    ScratchDir dir;
    std::string png;
    for (const auto& [name, bytes] : ReadZip(kSampleJob)) {
        if (name == "Resources/Images/gradient.png") png = bytes;
    }
    ASSERT_FALSE(png.empty());
    const fs::path bitmap = dir.path() / "mark.png";
    std::ofstream(bitmap, std::ios::binary) << png;
    watermark::ImageInfo info;
    ASSERT_TRUE(watermark::ReadImageInfo({png.begin(), png.end()}, info));

    WatermarkJob job(dir.path(), "[12]\nWatermark Type=2\nDENSITY=80\nScale=2\nBmpFile=" +
                                     bitmap.string() + "\n");
    const fs::path out = dir.path() / "out.xps";
    ASSERT_EQ(0, job.Filter(kSampleJob, out));
    const auto items = ReadZip(out.string());
    EXPECT_EQ(1, CountItems(items, "Resources/Images/Watermark1.png"));
    for (const auto& [name, bytes] : items) {
        if (name.size() > 6 && name.substr(name.size() - 6) == ".fpage") {
            EXPECT_TRUE(ParsesAsXml(bytes)) << name;
            EXPECT_NE(std::string::npos,
                      bytes.find("ImageSource=\"/Resources/Images/Watermark1.png\""))
                << name;
        }
    }
    const std::vector<Image> before = job.Render(kSampleJob, "in");
    const std::vector<Image> after = job.Render(out, "out");
    ASSERT_EQ(3u, before.size());
    ASSERT_EQ(before.size(), after.size());
    for (std::size_t i = 0; i < before.size(); ++i) {
        PrintSchema::Watermark::WatermarkData data;
        data.bitmapScale = 2.0f;
        // The box in page units (1/96 inch), then at 72 dpi with a pixel of slack.
        const watermark::Box box = watermark::ImageBox(data, info, before[i].width * 96.0 / 72.0,
                                                       before[i].height * 96.0 / 72.0);
        const double k = 72.0 / 96.0;
        const Difference d = Compare(before[i], after[i], box.x * k - 1, box.y * k - 1,
                                     (box.x + box.width) * k + 1, (box.y + box.height) * k + 1);
        EXPECT_GT(d.inside, 100) << "page " << i + 1;
        EXPECT_EQ(0, d.outside) << "page " << i + 1;
    }
}

// --- the filter over fake pipeline parts -----------------------------------------------------

// Runs a WatermarkFilter over one fake page with the ticket naming watermark 12 and the given
// settings; the page's write stream is not available, so a page the filter rewrites fails.
struct FakePageRun {
    FakePageRun(const ScratchDir& dir, const std::string& ini, const std::string& markup,
                const wchar_t* fontFile = nullptr) {
        WatermarkJob job(dir.path(), ini);
        EXPECT_TRUE(job.TicketMade());
        std::ifstream in(dir.path() / "ticket.xml");
        std::ostringstream ticket;
        ticket << in.rdbuf();
        bag.Attach(new fakes::PropertyBag());
        bag->FillJobProperties(ticket.str());
        if (fontFile != nullptr) {
            CComVariant value(fontFile);
            bag->AddProperty(L"FontFile", &value);
        }
        provider.Attach(new fakes::Provider());
        consumer.Attach(new fakes::Consumer());
        communicator.Attach(new fakes::Communicator());
        communicator->reader_ = static_cast<IXpsDocumentProvider*>(provider.p);
        communicator->writer_ = static_cast<IXpsDocumentConsumer*>(consumer.p);
        control.Attach(new fakes::ManagerControl());
        page.Attach(new fakes::Page());
        page->markup = markup;
        provider->parts.emplace_back(static_cast<IFixedPage*>(page.p));
        filter.Attach(new WatermarkFilter());

        const std::string config = (dir.path() / "config").string();
        ::setenv("XDG_CONFIG_HOME", config.c_str(), 1);
        result = filter->InitializeFilter(communicator, bag, control);
        if (SUCCEEDED(result)) {
            result = static_cast<IPrintPipelineFilter*>(filter.p)->StartOperation();
        }
        ::unsetenv("XDG_CONFIG_HOME");
    }

    CComPtr<fakes::PropertyBag> bag;
    CComPtr<fakes::Provider> provider;
    CComPtr<fakes::Consumer> consumer;
    CComPtr<fakes::Communicator> communicator;
    CComPtr<fakes::ManagerControl> control;
    CComPtr<fakes::Page> page;
    CComPtr<WatermarkFilter> filter;
    HRESULT result = E_FAIL;
};

TEST(WatermarkFilterOverFakes, PageMarkupThatDoesNotParseIsPassedOnUnchanged) {
    ScratchDir dir;
    FakePageRun run(dir, TextIni("X"), "<FixedPage Width='10' Height='10'><Path></FixedPage>");
    EXPECT_EQ(S_OK, run.result);
    EXPECT_EQ(1u, run.filter->PagesNotParsed());
    EXPECT_EQ(0u, run.filter->PagesMarked());
    EXPECT_EQ(std::vector<std::string>{"page"}, run.consumer->sent);
    EXPECT_EQ(0, run.consumer->newPartCalls);
    EXPECT_TRUE(run.page->resources.empty());
}

TEST(WatermarkFilterOverFakes, AFontThatCannotBeReadFailsTheJobButOnlyWhenTextIsDrawn) {
    ScratchDir dir;
    const std::string page = "<FixedPage Width='10' Height='10'/>";
    FakePageRun failing(dir, TextIni("X"), page, L"/nonexistent/font.ttf");
    EXPECT_TRUE(FAILED(failing.result));
    EXPECT_EQ(0, failing.consumer->newPartCalls);

    ScratchDir other;
    FakePageRun empty(other, TextIni(""), page, L"/nonexistent/font.ttf");
    EXPECT_EQ(S_OK, empty.result);
    EXPECT_EQ(std::vector<std::string>{"page"}, empty.consumer->sent);
}

}  // namespace
