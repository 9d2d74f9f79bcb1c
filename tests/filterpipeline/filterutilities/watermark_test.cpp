// Tests of the watermark layer of the typed view: the settings file in the user's application
// directory (text and bitmap watermarks, missing file, section or key, byte-order mark and CRLF),
// the font height from the printer's resolution, time stamps, caching and impersonation.
#include <gtest/gtest.h>

#include <cstdlib>
#include <ctime>
#include <filesystem>
#include <fstream>

#include "filterpipeline/filterutilities/xpsfilterprintticket.h"
#include "privatedatatesting.h"

using namespace privatedatatesting;
using documenttesting::ThrownHresult;
using namespace DataModelIds;
using PrintSchema::Watermark::WatermarkData;

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

// Sets an environment variable for the lifetime of the object.
class ScopedEnvironment {
public:
    ScopedEnvironment(const char* name, const std::string& value) : m_name(name) {
        const char* old = std::getenv(name);
        m_had = old != nullptr;
        if (m_had) m_old = old;
        setenv(name, value.c_str(), 1);
    }
    ~ScopedEnvironment() {
        if (m_had) {
            setenv(m_name, m_old.c_str(), 1);
        } else {
            unsetenv(m_name);
        }
    }

private:
    const char* m_name;
    bool m_had = false;
    std::string m_old;
};

class WatermarkTest : public ::testing::Test {
protected:
    void SetUp() override {
        const auto* info = ::testing::UnitTest::GetInstance()->current_test_info();
        root = fs::temp_directory_path() / "fu_watermark_tests" / info->name();
        fs::remove_all(root);
        fs::create_directories(root / "config" / "PrinterDriver" / "Zorun");
        fs::create_directories(root / "printers");
        config = std::make_unique<ScopedEnvironment>("XDG_CONFIG_HOME", (root / "config").string());
        registry = std::make_unique<ScopedEnvironment>("FU_PRINTER_REGISTRY",
                                                       (root / "printers").string());
    }
    void TearDown() override { fs::remove_all(root); }

    fs::path IniFile() const { return root / "config" / "PrinterDriver" / "Zorun" / "ZrnWmV5.ini"; }

    void WriteIni(const std::string& text) {
        std::ofstream out(IniFile(), std::ios::binary);
        out << text;
    }

    void AddPrinter(const std::string& name, const std::string& resolution) {
        fs::create_directories(root / "printers" / name);
        std::ofstream out(root / "printers" / name / "printer.ini", std::ios::binary);
        out << "[Printer]\nDriverName=Zorun Universal XPS\nResolution=" << resolution << "\n";
    }

    // Initialises the view with a job ticket whose attributes name watermark `number`.
    void InitializeWith(long number, long placement = ValueWatermarkBehindContent,
                        const std::wstring& body = L"") {
        AttributeBytesRawList list;
        list.Add(AttributeBytesItem::MakeOptionValue(FeatureWatermark,
                                                     static_cast<tagValueEnum>(number)));
        list.Add(AttributeBytesItem::MakeOptionValue(FeatureWatermarkPlacement,
                                                     static_cast<tagValueEnum>(placement)));
        job = LoadXml(TicketWithSnapshot(DevmodeWithAttributes(list), body));
        Reinitialize();
    }

    void Reinitialize() {
        view.Initialize(kPTJobScope, nullptr, job, nullptr, nullptr, nullptr, printer, token);
    }

    fs::path root;
    std::unique_ptr<ScopedEnvironment> config;
    std::unique_ptr<ScopedEnvironment> registry;
    WatermarkView view;
    CComPtr<IXMLDOMDocument2> job;
    CXString printer{L"Watermark Printer"};
    HANDLE token = nullptr;
};

std::u16string Face(const LOGFONTW& font) {
    return std::u16string(font.lfFaceName);
}

}  // namespace

TEST_F(WatermarkTest, TheSettingsFileIsInTheUsersApplicationDirectory) {
    std::wstring expected = platform::Utf8ToWide((root / "config" / "PrinterDriver").string()) +
                            L"\\Zorun\\ZrnWmV5.ini";
    EXPECT_EQ(std::wstring(view.GetWatermarkINIPath()), expected);
    EXPECT_EQ(std::wstring(view.WmIniSectionName(42)), L"42");
    EXPECT_EQ(std::wstring(view.WmIniSectionName(-3)), L"-3");
    EXPECT_EQ(view.GetGDIPlusStartStatus(), Gdiplus::Ok);
}

TEST_F(WatermarkTest, ATextWatermark) {
    WriteIni(
        "[12]\n"
        "Watermark Type=0\n"
        "Text=CONFIDENTIAL\n"
        "DENSITY=40\n"
        "PaperX_in10thMm=2100\n"
        "PaperY_in10thMm=2970\n"
        "XOffset=254\n"
        "YOffset=-127\n"
        "FontHeight=36\n"
        "FontEscapement=450\n"
        "FontWeight=700\n"
        "FontItalic=1\n"
        "FontUnderline=0\n"
        "FontStrikeOut=1\n"
        "FontCharSet=2\n"
        "FontFaceName=Courier New\n"
        "Red=255\n"
        "Green=0\n"
        "Blue=128\n");
    InitializeWith(12, ValueWatermarkOverContent, MediaSizeFeature(210000, 297000));
    bool found = false;
    HRESULT status = E_FAIL;
    const WatermarkData& data = view.GetWatermark(&found, &status);
    EXPECT_TRUE(found);
    EXPECT_EQ(status, S_OK);
    EXPECT_EQ(data.type, PrintSchema::Watermark::WatermarkTypeText);
    EXPECT_EQ(data.number, 12);
    EXPECT_EQ(data.overContent, TRUE);
    EXPECT_EQ(std::wstring(data.text.text), L"CONFIDENTIAL");
    EXPECT_EQ(data.density, 40);
    EXPECT_NEAR(data.referencePaperWidth, 793.7f, 0.05f);  // 210 mm at 96 per inch
    EXPECT_NEAR(data.referencePaperHeight, 1122.5f, 0.05f);
    EXPECT_NEAR(data.xOffset, 96.0, 1e-9);  // 25.4 mm
    EXPECT_NEAR(data.yOffset, -48.0, 1e-9);
    EXPECT_NEAR(data.pageWidth, 793.70, 0.01);  // the ticket's media size
    EXPECT_NEAR(data.pageHeight, 1122.52, 0.01);
    // 36 points at the default 600 dots per inch of an unknown printer.
    EXPECT_EQ(data.text.fontSizePoints, 36);
    EXPECT_EQ(data.text.font.lfHeight, -300);
    EXPECT_EQ(data.resolutionY, 600);
    EXPECT_EQ(data.text.font.lfEscapement, 450);
    EXPECT_EQ(data.text.font.lfWeight, 700);
    EXPECT_EQ(data.text.font.lfItalic, 1);
    EXPECT_EQ(data.text.font.lfUnderline, 0);
    EXPECT_EQ(data.text.font.lfStrikeOut, 1);
    EXPECT_EQ(data.text.font.lfCharSet, 2);
    EXPECT_EQ(Face(data.text.font), u"Courier New");
    EXPECT_EQ(std::wstring(data.text.color), L"#FF0080");
}

TEST_F(WatermarkTest, TheFontHeightFollowsThePrintersVerticalResolution) {
    AddPrinter("Watermark Printer", "300x1200");
    WriteIni("[3]\nWatermark Type=0\nFontHeight=36\nText=x\n");
    InitializeWith(3);
    const WatermarkData& data = view.GetWatermark();
    EXPECT_EQ(data.text.font.lfHeight, -600);
    EXPECT_EQ(data.resolutionX, 300);
    EXPECT_EQ(data.resolutionY, 1200);
}

TEST_F(WatermarkTest, ABitmapWatermark) {
    WriteIni(
        "[7]\r\nWatermark Type=2\r\nBmpFile=C:\\marks\\logo.bmp\r\nScale=3\r\nDENSITY=60\r\n"
        "XOffset=100\r\nText=ignored\r\n");
    InitializeWith(7, ValueWatermarkOverContentTransparent);
    const WatermarkData& data = view.GetWatermark();
    EXPECT_EQ(data.type, PrintSchema::Watermark::WatermarkTypeBitmap);
    EXPECT_EQ(data.overContent, TRUE);
    EXPECT_EQ(std::wstring(data.image.bitmapPath), L"C:\\marks\\logo.bmp");
    EXPECT_EQ(data.bitmapScale, 3.0f);
    EXPECT_EQ(data.density, 60);
    EXPECT_GT(data.xOffset, 37.0);
    EXPECT_EQ(data.text.text.Length(), 0u);  // the text branch is not read
    EXPECT_EQ(data.image.dpiX, 96.0f);

    WriteIni("[7]\nWatermark Type=2\nBmpFile=logo.bmp\nScale=0\n");
    Reinitialize();
    EXPECT_EQ(view.GetWatermark().bitmapScale, 1.0f);
}

TEST_F(WatermarkTest, ByteOrderMarkCrlfAndNonAsciiText) {
    WriteIni(
        "\xEF\xBB\xBF[5]\r\nWatermark Type=0\r\nText=Entwurf \xE2\x80\x93 vertraulich\r\n"
        "FontFaceName=\xE6\x98\x8E\xE6\x9C\x9D\r\n");
    InitializeWith(5);
    const WatermarkData& data = view.GetWatermark();
    EXPECT_EQ(std::wstring(data.text.text), L"Entwurf \u2013 vertraulich");
    EXPECT_EQ(Face(data.text.font), u"\u660E\u671D");
}

TEST_F(WatermarkTest, MissingFileSectionOrKeyGiveDefaults) {
    // No file: every read gives its default; an absent type reads as 0, a text watermark.
    InitializeWith(9);
    WatermarkData defaults;
    const WatermarkData& none = view.GetWatermark();
    EXPECT_EQ(none.type, PrintSchema::Watermark::WatermarkTypeText);
    EXPECT_EQ(none.number, 9);
    EXPECT_EQ(none.overContent, FALSE);
    EXPECT_EQ(none.text.text.Length(), 0u);
    EXPECT_EQ(none.density, defaults.density);
    EXPECT_EQ(none.text.font.lfWeight, FW_NORMAL);
    EXPECT_EQ(Face(none.text.font), u"Arial");
    EXPECT_EQ(std::wstring(none.text.color), L"#000000");
    EXPECT_EQ(none.referencePaperWidth, 816.0f);

    // Another section only.
    WriteIni("[1]\nWatermark Type=2\nBmpFile=a.bmp\n");
    Reinitialize();
    EXPECT_EQ(view.GetWatermark().type, PrintSchema::Watermark::WatermarkTypeText);
    EXPECT_EQ(view.GetWatermark().image.bitmapPath.Length(), 0u);

    // The section with a few keys: the rest keep their defaults.
    WriteIni("[9]\nWatermark Type=0\nText=Hi\nGreen=255\n");
    Reinitialize();
    const WatermarkData& some = view.GetWatermark();
    EXPECT_EQ(std::wstring(some.text.text), L"Hi");
    EXPECT_EQ(std::wstring(some.text.color), L"#00FF00");
    EXPECT_EQ(some.text.fontSizePoints, 72);
    EXPECT_EQ(some.text.font.lfHeight, -600);
}

TEST_F(WatermarkTest, NegativeAndUnknownTypesReadNothingMore) {
    for (const char* type : {"-1", "3", "4", "99"}) {
        WriteIni(std::string("[4]\nWatermark Type=") + type + "\nText=Nope\nDENSITY=80\n");
        InitializeWith(4);
        const WatermarkData& data = view.GetWatermark();
        EXPECT_EQ(data.type, PrintSchema::Watermark::WatermarkTypeNone) << type;
        EXPECT_EQ(data.text.text.Length(), 0u) << type;
        EXPECT_EQ(data.density, 25) << type;
    }
}

TEST_F(WatermarkTest, WithoutPrivateDataOrWithoutAWatermark) {
    WriteIni("[0]\nWatermark Type=0\nText=Zero\n");
    job = LoadXml(PrivateTicket(L""));
    Reinitialize();
    bool found = true;
    HRESULT status = E_FAIL;
    EXPECT_EQ(view.GetWatermark(&found, &status).type, PrintSchema::Watermark::WatermarkTypeNone);
    EXPECT_FALSE(found);
    EXPECT_EQ(status, S_FALSE);
    EXPECT_NO_THROW(view.GetWatermark());

    InitializeWith(ValueUnspecified);
    const WatermarkData& data = view.GetWatermark(&found, &status);
    EXPECT_TRUE(found);
    EXPECT_EQ(data.type, PrintSchema::Watermark::WatermarkTypeNone);
    EXPECT_EQ(data.text.text.Length(), 0u);
}

TEST_F(WatermarkTest, TheAnswerIsCachedUntilTheNextInitialize) {
    WriteIni("[2]\nWatermark Type=0\nText=First\n");
    InitializeWith(2);
    EXPECT_EQ(std::wstring(view.GetWatermark().text.text), L"First");
    WriteIni("[2]\nWatermark Type=0\nText=Second\n");
    EXPECT_EQ(std::wstring(view.GetWatermark().text.text), L"First");
    Reinitialize();
    EXPECT_EQ(std::wstring(view.GetWatermark().text.text), L"Second");
}

TEST_F(WatermarkTest, ATimeStampWatermarkAppendsTheDate) {
    WriteIni("[6]\nWatermark Type=1\nText=DRAFT\nTimeStampFormat=2\n");
    InitializeWith(6);
    CXString today = XpsFilterPrintTicketWatermarkImpl::GetDateTime(
        XpsFilterPrintTicketWatermarkImpl::TimeStampDate, nullptr);
    const WatermarkData& data = view.GetWatermark();
    EXPECT_EQ(data.type, PrintSchema::Watermark::WatermarkTypeTextAndTimeStamp);
    EXPECT_EQ(data.timeStampFormat, 2);
    EXPECT_EQ(std::wstring(data.text.text), L"DRAFT " + std::wstring(today));
}

TEST_F(WatermarkTest, KeyReadsDistinguishAbsentFromEmptyAndParseDecimals) {
    WriteIni("[8]\nText=\nNumber= 42xyz\nWord=abc\nNegative=-17\n");
    InitializeWith(8);
    view.GetWatermark();  // settles which file the view reads
    EXPECT_EQ(std::wstring(view.GetWmIniString(8, L"Missing", false)),
              XpsFilterPrintTicketWatermarkImpl::kAbsentKeyMarker);
    EXPECT_EQ(std::wstring(view.GetWmIniString(8, L"Missing", true)), L"");
    EXPECT_EQ(std::wstring(view.GetWmIniString(8, L"Text", false)), L"");
    EXPECT_EQ(view.GetWmIniInt(8, L"Missing", false), -1);
    EXPECT_EQ(view.GetWmIniInt(8, L"Missing", true), 0);
    EXPECT_EQ(view.GetWmIniInt(8, L"Number", false), 42);
    EXPECT_EQ(view.GetWmIniInt(8, L"Word", false), 0);
    EXPECT_EQ(view.GetWmIniInt(8, L"Negative", false), -17);
}

TEST_F(WatermarkTest, AFailedImpersonationIsReportedThroughTheStatus) {
    WriteIni("[2]\nWatermark Type=0\nText=First\n");
    token = reinterpret_cast<HANDLE>(0x5151);  // not a token
    InitializeWith(2);
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
    using W = XpsFilterPrintTicketWatermarkImpl;
    auto text = [&](W::ETimeStampFormat format) {
        return std::wstring(W::GetDateTime(format, &when));
    };
    EXPECT_EQ(text(W::TimeStampNone), L"");
    EXPECT_EQ(text(W::TimeStampDateTime), L"2024-03-07 14:05");
    EXPECT_EQ(text(W::TimeStampDate), L"2024-03-07");
    EXPECT_EQ(text(W::TimeStampTime), L"14:05");
    EXPECT_EQ(text(W::TimeStampDateTimeSeconds), L"2024-03-07 14:05:09");
    EXPECT_EQ(text(W::TimeStampUsDateTime), L"03/07/2024 02:05 PM");
    EXPECT_EQ(text(W::TimeStampEuropeanDateTime), L"07.03.2024 14:05");
    EXPECT_EQ(text(W::TimeStampLongDate), L"07 March 2024");
    EXPECT_EQ(text(static_cast<W::ETimeStampFormat>(42)), L"");
    EXPECT_EQ(std::wstring(W::GetDateTime(W::TimeStampDate, nullptr)).size(), 10u);
}
