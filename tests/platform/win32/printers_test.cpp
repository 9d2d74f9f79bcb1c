// Tests of what the printer registry makes printer drivers report: the driver's form list and
// margins through its private DeviceCapabilitiesW indices, the public paper and resolution
// indices, the printer driver directory and printer information contexts.

#include <gtest/gtest.h>

#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <optional>
#include <string>
#include <vector>

#include "platform/win32/debugoutput.h"
#include "platform/win32/kernel.h"
#include "platform/win32/printers.h"
#include "testsupport/scopedenvironment.h"
#include "testsupport/scratch.h"

namespace {

namespace fs = std::filesystem;
using MSDeviceCapabilities::_tag_FormsInfoRec;

using testsupport::ScopedEnvironment;

class PrintersTest : public ::testing::Test {
protected:
    void SetUp() override {
        m_root = testsupport::ScratchDirectory("printers");
        m_registry.emplace("FU_PRINTER_REGISTRY", m_root.string());
        m_driverDirectory.emplace("FU_PRINTER_DRIVER_DIRECTORY", std::nullopt);
    }
    void TearDown() override {
        m_driverDirectory.reset();
        m_registry.reset();
        fs::remove_all(m_root);
    }

    void WritePrinter(const std::string& name, const std::string& ini) {
        fs::create_directories(m_root / name);
        std::ofstream(m_root / name / "printer.ini", std::ios::binary) << ini;
    }

    static int Caps(const wchar_t* printer, WORD index, void* out = nullptr) {
        return DeviceCapabilitiesW(printer, nullptr, index, static_cast<LPWSTR>(out), nullptr);
    }

    std::vector<_tag_FormsInfoRec> Forms(const wchar_t* printer) {
        int count = Caps(printer, DC_PRIVATE_FORMS);
        std::vector<_tag_FormsInfoRec> forms(static_cast<std::size_t>(count) + 10);
        int written = Caps(printer, DC_PRIVATE_FORMS, forms.data());
        EXPECT_EQ(written, count);
        forms.resize(static_cast<std::size_t>(written));
        return forms;
    }

    fs::path m_root;
    std::optional<ScopedEnvironment> m_registry;
    std::optional<ScopedEnvironment> m_driverDirectory;
};

const char kOfficePrinter[] =
    "[Printer]\n"
    "DriverName=Zorun Universal XPS\n"
    "Resolution=600x1200\n"
    "[Margins]\n"
    "Left=4233\n"
    "Top=5000\n"
    "Right=4233\n"
    "Bottom=6000\n"
    "[Forms]\n"
    "A4=25001,9,2100,2970,5012\n"
    "Letter=25004,1,2159,2794,5116\n"
    "My own paper=25005,258,1000,2000,70001\n"
    "Custom size=25008,256,0001,0001,5002\n"
    "Odd kind=12345,300,1500,1500,0\n";

TEST_F(PrintersTest, FormsAndMarginsAsTheDriverReportsThem) {
    WritePrinter("Office", kOfficePrinter);
    std::vector<_tag_FormsInfoRec> forms = Forms(L"Office");
    ASSERT_EQ(forms.size(), 5u);
    EXPECT_EQ(forms[0].paperId, 9);
    EXPECT_EQ(forms[0].width, 2100u);
    EXPECT_EQ(forms[0].height, 2970u);
    EXPECT_EQ(forms[0].dataModelValue, 5012);
    EXPECT_EQ(forms[0].kind, MSDeviceCapabilities::FormKindPredefined);
    EXPECT_EQ(platform::FormName(forms[0]), L"A4");
    EXPECT_EQ(forms[1].kind, MSDeviceCapabilities::FormKindStandard);
    EXPECT_EQ(forms[2].kind, MSDeviceCapabilities::FormKindUser);
    EXPECT_EQ(forms[2].paperId, 258);
    EXPECT_EQ(platform::FormName(forms[2]), L"My own paper");
    EXPECT_EQ(forms[3].kind, MSDeviceCapabilities::FormKindCustomSizeEntry);
    // A kind the registry does not know is passed on as it is: judging it is the reader's job.
    EXPECT_EQ(forms[4].kind, 12345u);
    for (const _tag_FormsInfoRec& form : forms) {
        EXPECT_EQ(form.padding, 0);
        EXPECT_EQ(form.reserved, 0u);
    }
    // The record is the wire layout.
    const auto* bytes = reinterpret_cast<const unsigned char*>(&forms[0]);
    EXPECT_EQ(bytes[0] | (bytes[1] << 8), 9);
    EXPECT_EQ(bytes[4] | (bytes[5] << 8), 2100);
    EXPECT_EQ(bytes[8] | (bytes[9] << 8), 2970);
    EXPECT_EQ(bytes[12] | (bytes[13] << 8), 5012);
    EXPECT_EQ(bytes[20] | (bytes[21] << 8) | (bytes[22] << 16), 25001);
    EXPECT_EQ(bytes[24], 'A');
    EXPECT_EQ(bytes[26], '4');
    EXPECT_EQ(bytes[28], 0);
    // Margins in microns: left, top, right, bottom.
    LONG margins[4] = {-1, -1, -1, -1};
    EXPECT_EQ(Caps(L"Office", DC_PRIVATE_MARGINS, margins), 1);
    EXPECT_EQ(std::vector<LONG>(margins, margins + 4), (std::vector<LONG>{4233, 5000, 4233, 6000}));
}

TEST_F(PrintersTest, UnknownPrinterHasNoFormsAndZeroMargins) {
    EXPECT_EQ(Caps(L"Nobody", DC_PRIVATE_FORMS), 0);
    EXPECT_TRUE(Forms(L"Nobody").empty());
    LONG margins[4] = {7, 7, 7, 7};
    EXPECT_EQ(Caps(L"Nobody", DC_PRIVATE_MARGINS, margins), 0);
    EXPECT_EQ(margins[0] | margins[1] | margins[2] | margins[3], 0);
    EXPECT_EQ(Caps(L"Nobody", DC_PAPERS), -1);
    EXPECT_EQ(GetLastError(), ERROR_INVALID_PRINTER_NAME);
    // Names that are not plain directory names, and no name at all.
    WritePrinter("Office", kOfficePrinter);
    EXPECT_EQ(Caps(L"../Office", DC_PRIVATE_FORMS), 0);
    EXPECT_EQ(Caps(L"..", DC_PRIVATE_FORMS), 0);
    EXPECT_EQ(Caps(nullptr, DC_PRIVATE_FORMS), 0);
    EXPECT_EQ(Caps(nullptr, DC_PRIVATE_MARGINS, margins), 0);
}

TEST_F(PrintersTest, CorruptConfigurationKeepsWhatItCanRead) {
    WritePrinter("Broken",
                 "[Forms]\n"
                 "NoFields=\n"
                 "TooFew=25001,9,2100\n"
                 "TooMany=25001,9,2100,2970,5012,1\n"
                 "ZeroWidth=25001,9,0,2970,5012\n"
                 "Negative=25001,9,2100,-2970,5012\n"
                 "NotANumber=25001,9,2100,29x0,5012\n"
                 "PaperIdTooLarge=25001,70000,2100,2970,5012\n"
                 "Huge=25001,9,99999999999,2970,5012\n"
                 "Good = 25001 , 9 , 2100 , 2970 , 5012\n"
                 "[Margins]\n"
                 "Left=lots\n"
                 "Top=99999999999\n"
                 "Right=-5\n"
                 "[Printer]\n"
                 "Resolution=fine\n");
    std::string debugOutput;
    platform::DebugOutputSink previous =
        platform::SetDebugOutputSink([&](std::string_view text) { debugOutput += text; });
    platform::PrinterConfiguration configuration = platform::ReadPrinterConfiguration(L"Broken");
    platform::SetDebugOutputSink(previous);
    EXPECT_TRUE(configuration.known);
    ASSERT_EQ(configuration.forms.size(), 1u);
    EXPECT_EQ(configuration.formNames[0], L"Good");
    EXPECT_EQ(configuration.rejectedForms.size(), 8u);
    EXPECT_NE(debugOutput.find("form ignored"), std::string::npos);
    EXPECT_NE(debugOutput.find("TooFew=25001,9,2100"), std::string::npos);
    EXPECT_EQ(std::vector<LONG>(configuration.margins, configuration.margins + 4),
              (std::vector<LONG>{0, 0, -5, 0}));
    EXPECT_EQ(configuration.horizontalResolution, kDefaultPrinterResolution);
    EXPECT_EQ(configuration.verticalResolution, kDefaultPrinterResolution);
}

TEST_F(PrintersTest, BinaryGarbageIsAPrinterWithoutSettings) {
    std::string garbage;
    for (int i = 0; i < 4096; ++i) garbage.push_back(static_cast<char>((i * 131 + 7) % 256));
    WritePrinter("Garbage", garbage);
    platform::PrinterConfiguration configuration = platform::ReadPrinterConfiguration(L"Garbage");
    EXPECT_TRUE(configuration.known);
    EXPECT_TRUE(configuration.forms.empty());
    EXPECT_EQ(Caps(L"Garbage", DC_PRIVATE_FORMS), 0);
    // A printer directory without a printer.ini is known too, with defaults.
    fs::create_directories(m_root / "Bare");
    EXPECT_TRUE(platform::ReadPrinterConfiguration(L"Bare").known);
}

TEST_F(PrintersTest, PublicPaperIndicesLeaveOutTheCustomSizeEntry) {
    WritePrinter("Office", kOfficePrinter);
    ASSERT_EQ(Caps(L"Office", DC_PAPERS), 4);
    WORD papers[4] = {};
    EXPECT_EQ(Caps(L"Office", DC_PAPERS, papers), 4);
    EXPECT_EQ(std::vector<WORD>(papers, papers + 4), (std::vector<WORD>{9, 1, 258, 300}));
    POINT sizes[4] = {};
    EXPECT_EQ(Caps(L"Office", DC_PAPERSIZE, sizes), 4);
    EXPECT_EQ(sizes[1].x, 2159);
    EXPECT_EQ(sizes[1].y, 2794);
    std::vector<wchar_t> names(4 * 64, L'#');
    EXPECT_EQ(Caps(L"Office", DC_PAPERNAMES, names.data()), 4);
    EXPECT_EQ(std::wstring(names.data() + 64), L"Letter");
    EXPECT_EQ(names[64 + 63], L'\0');
    EXPECT_EQ(Caps(L"Office", 9999), -1);
    EXPECT_EQ(GetLastError(), ERROR_NOT_SUPPORTED);
}

TEST_F(PrintersTest, ResolutionFromTheConfigurationOrTheDefault) {
    WritePrinter("Office", kOfficePrinter);
    WritePrinter("Plain", "[Printer]\nDriverName=Plain\n");
    WritePrinter("Square", "[Printer]\nResolution=300\n");
    LONG resolution[2] = {};
    EXPECT_EQ(Caps(L"Office", DC_ENUMRESOLUTIONS, resolution), 1);
    EXPECT_EQ(std::vector<LONG>(resolution, resolution + 2), (std::vector<LONG>{600, 1200}));
    Caps(L"Plain", DC_ENUMRESOLUTIONS, resolution);
    EXPECT_EQ(std::vector<LONG>(resolution, resolution + 2),
              std::vector<LONG>(2, kDefaultPrinterResolution));

    HDC office = CreateICW(L"WINSPOOL", L"Office", nullptr, nullptr);
    HDC square = CreateICW(nullptr, L"Square", nullptr, nullptr);
    ASSERT_NE(office, nullptr);
    ASSERT_NE(square, nullptr);
    EXPECT_EQ(GetDeviceCaps(office, LOGPIXELSX), 600);
    EXPECT_EQ(GetDeviceCaps(office, LOGPIXELSY), 1200);
    EXPECT_EQ(GetDeviceCaps(square, LOGPIXELSY), 300);
    // The first form, A4, in pixels: 210 mm at 600 dpi and 297 mm at 1200 dpi.
    EXPECT_EQ(GetDeviceCaps(office, PHYSICALWIDTH), 4961);
    EXPECT_EQ(GetDeviceCaps(office, PHYSICALHEIGHT), 14031);
    EXPECT_EQ(GetDeviceCaps(square, PHYSICALWIDTH), 2550);  // Letter without forms
    EXPECT_EQ(GetDeviceCaps(office, 12345), 0);
    EXPECT_TRUE(DeleteDC(office));
    EXPECT_FALSE(DeleteDC(office));
    EXPECT_EQ(GetDeviceCaps(office, LOGPIXELSY), 0);
    EXPECT_TRUE(DeleteDC(square));
    EXPECT_EQ(CreateICW(nullptr, L"Nobody", nullptr, nullptr), nullptr);
    EXPECT_EQ(GetLastError(), ERROR_INVALID_PRINTER_NAME);
}

TEST_F(PrintersTest, PrinterDriverDirectory) {
    char directory[512];
    DWORD needed = 0;
    auto query = [&](char* server, DWORD level, char* out, DWORD size) {
        return GetPrinterDriverDirectoryA(server, nullptr, level, reinterpret_cast<LPBYTE>(out),
                                          size, &needed);
    };
    ASSERT_TRUE(query(nullptr, 1, directory, sizeof directory));
    EXPECT_EQ(std::string(directory), (m_root / "drivers").string());
    EXPECT_EQ(needed, std::string(directory).size() + 1);

    ScopedEnvironment configured("FU_PRINTER_DRIVER_DIRECTORY", std::string("/opt/drivers/x64/"));
    ASSERT_TRUE(query(nullptr, 1, directory, sizeof directory));
    EXPECT_STREQ(directory, "/opt/drivers/x64");
    EXPECT_EQ(needed, 17u);
    char small[16];
    EXPECT_FALSE(query(nullptr, 1, small, sizeof small));
    EXPECT_EQ(GetLastError(), ERROR_INSUFFICIENT_BUFFER);
    EXPECT_EQ(needed, 17u);
    EXPECT_FALSE(query(nullptr, 2, directory, sizeof directory));
    EXPECT_EQ(GetLastError(), ERROR_INVALID_LEVEL);
    char server[] = "\\\\elsewhere";
    EXPECT_FALSE(query(server, 1, directory, sizeof directory));
    EXPECT_EQ(GetLastError(), ERROR_INVALID_NAME);
}

TEST_F(PrintersTest, RegistryDefaultsToTheSystemLocation) {
    ScopedEnvironment unset("FU_PRINTER_REGISTRY", std::nullopt);
    EXPECT_EQ(platform::PrinterRegistryDirectory(), "/etc/xpsfilter/printers");
}

}  // namespace
