// Tests of the watermark layer of the typed view: the settings file in the user's application
// directory (text and bitmap watermarks, missing file, section or key, byte-order mark and CRLF),
// the font height from the printer's resolution, time stamps, caching and impersonation.
#include <gtest/gtest.h>

#include <cstdio>
#include <ctime>

#include "filterpipeline/filterutilities/xpsfilterprintticket.h"
#include "mediasizetesting.h"
#include "privatedatatesting.h"

using namespace privatedatatesting;
using namespace DataModelIds;
using documenttesting::HresultName;
using documenttesting::ThrownHresult;
using mediasizetesting::ScopedEnvironment;
using PrintSchema::Watermark::WatermarkData;
using W = XpsFilterPrintTicketWatermarkImpl;

namespace {

namespace fs = std::filesystem;

// Exposes the settings-file helpers.
class WatermarkView : public XpsFilterPrintTicket {
public:
    using XpsFilterPrintTicket::GetWatermarkINIPath;
    using XpsFilterPrintTicket::GetWmIniInt;
    using XpsFilterPrintTicket::GetWmIniString;
    using XpsFilterPrintTicket::WmIniSectionName;
};

// Watermark attributes for InitializeWith that leave the private data out altogether.
constexpr long kNoPrivateData = -1000;

std::string Text(const wchar_t* text) {
    return documenttesting::Utf8(text);
}

// The fields of a watermark as "name=value" texts.
std::vector<std::string> Fields(const WatermarkData& w) {
    using std::to_string;
    auto fixed = [](double value, int digits) {
        char text[32];
        std::snprintf(text, sizeof text, "%.*f", digits, value);
        return std::string(text);
    };
    const LOGFONTW& f = w.text.font;
    const std::u16string face(f.lfFaceName);
    // clang-format off
    return {"type=" + to_string(w.type), "number=" + to_string(w.number),
            "over=" + to_string(w.overContent),
            "paper=" + fixed(w.referencePaperWidth, 1) + "x" + fixed(w.referencePaperHeight, 1),
            "offset=" + fixed(w.xOffset, 1) + "," + fixed(w.yOffset, 1),
            "page=" + fixed(w.pageWidth, 2) + "x" + fixed(w.pageHeight, 2),
            "density=" + to_string(w.density),
            "resolution=" + to_string(w.resolutionX) + "x" + to_string(w.resolutionY),
            "stamp=" + to_string(w.timeStampFormat), "points=" + to_string(w.text.fontSizePoints),
            "height=" + to_string(f.lfHeight), "escapement=" + to_string(f.lfEscapement),
            "weight=" + to_string(f.lfWeight), "italic=" + to_string(f.lfItalic),
            "underline=" + to_string(f.lfUnderline), "strikeout=" + to_string(f.lfStrikeOut),
            "charset=" + to_string(f.lfCharSet),
            "dpi=" + fixed(w.image.dpiX, 0) + "x" + fixed(w.image.dpiY, 0),
            "scale=" + fixed(w.bitmapScale, 1), "text=" + Text(w.text.text),
            "face=" + Text(std::wstring(face.begin(), face.end()).c_str()),
            "color=" + Text(w.text.color), "bitmap=" + Text(w.image.bitmapPath)};
    // clang-format on
}

// The fields of a watermark that differ from a default-constructed one.
std::string Changes(const WatermarkData& data) {
    const std::vector<std::string> base = Fields(WatermarkData());
    const std::vector<std::string> mine = Fields(data);
    std::string changes;
    for (std::size_t i = 0; i < mine.size(); ++i) {
        if (mine[i] != base[i]) changes += (changes.empty() ? "" : " ") + mine[i];
    }
    return changes;
}

class WatermarkTest : public ::testing::Test {
protected:
    fs::path IniFile() const { return m_scratch.Path() / "config/PrinterDriver/Zorun/ZrnWmV5.ini"; }

    void WriteIni(const std::string& text) {
        fs::create_directories(IniFile().parent_path());
        std::ofstream(IniFile(), std::ios::binary) << text;
    }

    // Initialises the view with a job ticket whose attributes name watermark `number`.
    void InitializeWith(long number, long placement = ValueWatermarkBehindContent,
                        const std::wstring& body = L"") {
        AttributeBytesRawList list;
        list.Add(AttributeBytesItem::MakeOptionValue(FeatureWatermark,
                                                     static_cast<tagValueEnum>(number)));
        list.Add(AttributeBytesItem::MakeOptionValue(FeatureWatermarkPlacement,
                                                     static_cast<tagValueEnum>(placement)));
        job = LoadXml(number == kNoPrivateData
                          ? PrivateTicket(body)
                          : TicketWithSnapshot(DevmodeWithAttributes(list), body));
        Reinitialize();
    }

    void Reinitialize() {
        view.Initialize(kPTJobScope, nullptr, job, nullptr, nullptr, nullptr, printer, token);
    }

    mediasizetesting::ScratchDirectory m_scratch{"watermark"};
    ScopedEnvironment config{"XDG_CONFIG_HOME", (m_scratch.Path() / "config").string()};
    ScopedEnvironment registry{"FU_PRINTER_REGISTRY", (m_scratch.Path() / "printers").string()};
    WatermarkView view;
    CComPtr<IXMLDOMDocument2> job;
    CXString printer{L"Watermark Printer"};
    HANDLE token = nullptr;
};

}  // namespace

TEST_F(WatermarkTest, SettingsFileSectionsAndKeys) {
    const struct Row {
        const char* name;
        const char* ini;  // null: no settings file
        long number;
        std::string expected;  // the status, whether a watermark was found, and the changes
        long placement = ValueWatermarkBehindContent;
        const char* resolution = nullptr;  // the printer's, when it has one
    } rows[] = {
        // clang-format off
        {"text watermark",
         "[12]\nWatermark Type=0\nText=CONFIDENTIAL\nDENSITY=40\nPaperX_in10thMm=2100\n"
         "PaperY_in10thMm=2970\nXOffset=254\nYOffset=-127\nFontHeight=36\nFontEscapement=450\n"
         "FontWeight=700\nFontItalic=1\nFontUnderline=0\nFontStrikeOut=1\nFontCharSet=2\n"
         "FontFaceName=Courier New\nRed=255\nGreen=0\nBlue=128\n", 12,
         // 210 mm at 96 per inch, offsets of 25.4 and 12.7 mm, the ticket's media size, 36 points
         // at the default 600 dots per inch of an unknown printer.
         "S_OK found type=0 number=12 over=1 paper=793.7x1122.5 offset=96.0,-48.0 "
         "page=793.70x1122.52 density=40 resolution=600x600 points=36 height=-300 escapement=450 "
         "weight=700 italic=1 strikeout=1 charset=2 text=CONFIDENTIAL face=Courier New "
         "color=#FF0080", ValueWatermarkOverContent},
        {"the font height follows the printer's vertical resolution",
         "[3]\nWatermark Type=0\nFontHeight=36\nText=x\n", 3,
         "S_OK found type=0 number=3 resolution=300x1200 points=36 height=-600 text=x",
         ValueWatermarkBehindContent, "300x1200"},
        {"bitmap watermark, CRLF",
         "[7]\r\nWatermark Type=2\r\nBmpFile=C:\\marks\\logo.bmp\r\nScale=3\r\nDENSITY=60\r\n"
         "XOffset=100\r\nText=ignored\r\n", 7,
         "S_OK found type=2 number=7 over=1 offset=37.8,0.0 density=60 scale=3.0 "
         "bitmap=C:\\marks\\logo.bmp", ValueWatermarkOverContentTransparent},
        {"bitmap scale 0 is 1", "[7]\nWatermark Type=2\nBmpFile=logo.bmp\nScale=0\n", 7,
         "S_OK found type=2 number=7 scale=1.0 bitmap=logo.bmp"},
        {"byte-order mark, CRLF, non-ASCII text",
         "\xEF\xBB\xBF[5]\r\nWatermark Type=0\r\nText=Entwurf \xE2\x80\x93 vertraulich\r\n"
         "FontFaceName=\xE6\x98\x8E\xE6\x9C\x9D\r\n", 5,
         "S_OK found type=0 number=5 resolution=600x600 height=-600 "
         "text=Entwurf \xE2\x80\x93 vertraulich face=\xE6\x98\x8E\xE6\x9C\x9D"},
        // An absent type reads as 0, a text watermark; every other read gives its default.
        {"no file", nullptr, 9, "S_OK found type=0 number=9 resolution=600x600 height=-600"},
        {"another section only", "[1]\nWatermark Type=2\nBmpFile=a.bmp\n", 9,
         "S_OK found type=0 number=9 resolution=600x600 height=-600"},
        {"a few keys", "[9]\nWatermark Type=0\nText=Hi\nGreen=255\n", 9,
         "S_OK found type=0 number=9 resolution=600x600 height=-600 text=Hi color=#00FF00"},
        // Negative and unknown types read nothing more.
        {"type -1", "[4]\nWatermark Type=-1\nText=Nope\nDENSITY=80\n", 4, "S_OK found number=4"},
        {"type 3", "[4]\nWatermark Type=3\nText=Nope\nDENSITY=80\n", 4, "S_OK found number=4"},
        {"type 4", "[4]\nWatermark Type=4\nText=Nope\nDENSITY=80\n", 4, "S_OK found number=4"},
        {"type 99", "[4]\nWatermark Type=99\nText=Nope\nDENSITY=80\n", 4, "S_OK found number=4"},
        {"no private data", "[0]\nWatermark Type=0\nText=0\n", kNoPrivateData, "S_FALSE not found"},
        {"none selected", "[0]\nWatermark Type=0\nText=0\n", ValueUnspecified, "S_OK found"},
        // clang-format on
    };
    for (const Row& row : rows) {
        SCOPED_TRACE(row.name);
        fs::remove_all(m_scratch.Path());
        if (row.ini != nullptr) WriteIni(row.ini);
        if (row.resolution != nullptr) {
            mediasizetesting::WritePrinter(m_scratch.Path() / "printers", "Watermark Printer",
                                           std::string("[Printer]\nDriverName=Zorun Universal XPS\n"
                                                       "Resolution=") +
                                               row.resolution + "\n");
        }
        InitializeWith(row.number, row.placement,
                       row.number == 12 ? MediaSizeFeature(210000, 297000) : L"");
        bool found = false;
        HRESULT status = E_FAIL;
        const WatermarkData& data = view.GetWatermark(&found, &status);
        const std::string changes = Changes(data);
        EXPECT_EQ(HresultName(status) + (found ? " found" : " not found") +
                      (changes.empty() ? "" : " " + changes),
                  row.expected);
        EXPECT_NO_THROW(view.GetWatermark());
    }
}

TEST_F(WatermarkTest, FilePathCachingKeysAndImpersonation) {
    EXPECT_EQ(std::wstring(view.GetWatermarkINIPath()),
              platform::Utf8ToWide((m_scratch.Path() / "config" / "PrinterDriver").string()) +
                  L"\\Zorun\\ZrnWmV5.ini");
    EXPECT_STREQ(view.WmIniSectionName(42), L"42");
    EXPECT_STREQ(view.WmIniSectionName(-3), L"-3");
    EXPECT_EQ(view.GetGDIPlusStartStatus(), Gdiplus::Ok);

    // The answer is cached until the next Initialize.
    WriteIni("[8]\nWatermark Type=0\nText=First\nNumber= 42xyz\nWord=abc\nNegative=-17\nEmpty=\n");
    InitializeWith(8);
    EXPECT_STREQ(view.GetWatermark().text.text, L"First");
    WriteIni("[8]\nWatermark Type=0\nText=Second\nNumber= 42xyz\nWord=abc\nNegative=-17\nEmpty=\n");
    EXPECT_STREQ(view.GetWatermark().text.text, L"First");
    Reinitialize();
    EXPECT_STREQ(view.GetWatermark().text.text, L"Second");

    // Key reads distinguish absent from empty and parse decimals.
    EXPECT_STREQ(view.GetWmIniString(8, L"Missing", false), W::kAbsentKeyMarker);
    EXPECT_STREQ(view.GetWmIniString(8, L"Missing", true), L"");
    EXPECT_STREQ(view.GetWmIniString(8, L"Empty", false), L"");
    EXPECT_EQ(view.GetWmIniInt(8, L"Missing", false), -1);
    EXPECT_EQ(view.GetWmIniInt(8, L"Missing", true), 0);
    EXPECT_EQ(view.GetWmIniInt(8, L"Number", false), 42);
    EXPECT_EQ(view.GetWmIniInt(8, L"Word", false), 0);
    EXPECT_EQ(view.GetWmIniInt(8, L"Negative", false), -17);

    // A time-stamp watermark appends the date.
    WriteIni("[6]\nWatermark Type=1\nText=DRAFT\nTimeStampFormat=2\n");
    InitializeWith(6);
    const CXString today = W::GetDateTime(W::TimeStampDate, nullptr);
    EXPECT_EQ(view.GetWatermark().type, PrintSchema::Watermark::WatermarkTypeTextAndTimeStamp);
    EXPECT_EQ(view.GetWatermark().timeStampFormat, 2);
    EXPECT_EQ(std::wstring(view.GetWatermark().text.text), L"DRAFT " + std::wstring(today));

    // A failed impersonation is reported through the status, or thrown.
    token = reinterpret_cast<HANDLE>(0x5151);  // not a token
    InitializeWith(6);
    HRESULT status = S_OK;
    bool found = true;
    view.GetWatermark(&found, &status);
    EXPECT_EQ(status, HRESULT_FROM_WIN32(ERROR_INVALID_HANDLE));
    EXPECT_FALSE(found);
    EXPECT_EQ(ThrownHresult([&] { view.GetWatermark(); }),
              HRESULT_FROM_WIN32(ERROR_INVALID_HANDLE));
}

TEST(WatermarkTimeStamps, EveryFormatHasItsPattern) {
    ScopedEnvironment zone("TZ", "UTC");
    tzset();
    // 2024-03-07 14:05:09 UTC as a FILETIME.
    unsigned long long ticks = (1709820309ull + 11644473600ull) * 10000000ull;
    FILETIME when{static_cast<DWORD>(ticks & 0xFFFFFFFFu), static_cast<DWORD>(ticks >> 32)};
    const std::pair<int, const wchar_t*> rows[] = {
        {W::TimeStampNone, L""},
        {W::TimeStampDateTime, L"2024-03-07 14:05"},
        {W::TimeStampDate, L"2024-03-07"},
        {W::TimeStampTime, L"14:05"},
        {W::TimeStampDateTimeSeconds, L"2024-03-07 14:05:09"},
        {W::TimeStampUsDateTime, L"03/07/2024 02:05 PM"},
        {W::TimeStampEuropeanDateTime, L"07.03.2024 14:05"},
        {W::TimeStampLongDate, L"07 March 2024"},
        {42, L""},
    };
    for (const auto& [format, expected] : rows) {
        EXPECT_STREQ(W::GetDateTime(static_cast<W::ETimeStampFormat>(format), &when), expected);
    }
    EXPECT_EQ(std::wstring(W::GetDateTime(W::TimeStampDate, nullptr)).size(), 10u);
}
