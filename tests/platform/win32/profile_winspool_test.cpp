// Tests of GetPrivateProfileIntW and of the spooler stand-ins over the printer registry.
#include <gtest/gtest.h>

#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <vector>

#include "platform/com/unicode.h"
#include "platform/win32/kernel.h"
#include "platform/win32/profile.h"
#include "platform/win32/winspool.h"
#include "testsupport/scratch.h"

TEST(GetPrivateProfileInt, ValuesAndDefaults) {
    std::filesystem::path path = testsupport::ScratchDirectory("profile-int") / "values.ini";
    std::ofstream(path) << "[s]\nn=42\nneg=-5\ntext=abc\nlead=7px\n";
    std::wstring file = platform::Utf8ToWide(path.string());
    EXPECT_EQ(GetPrivateProfileIntW(L"s", L"n", 9, file.c_str()), 42u);
    EXPECT_EQ(GetPrivateProfileIntW(L"s", L"neg", 9, file.c_str()), 0u);
    EXPECT_EQ(GetPrivateProfileIntW(L"s", L"text", 9, file.c_str()), 0u);
    EXPECT_EQ(GetPrivateProfileIntW(L"s", L"lead", 9, file.c_str()), 7u);
    EXPECT_EQ(GetPrivateProfileIntW(L"s", L"missing", 9, file.c_str()), 9u);
    EXPECT_EQ(GetPrivateProfileIntW(L"t", L"n", 3, file.c_str()), 3u);
    EXPECT_EQ(GetPrivateProfileIntW(nullptr, L"n", 3, file.c_str()), 3u);
    std::filesystem::remove(path);
}

class Spooler : public ::testing::Test {
protected:
    void SetUp() override {
        m_registry = testsupport::ScratchDirectory("spooler-registry");
        std::filesystem::create_directories(m_registry / "P1");
        std::ofstream(m_registry / "P1" / "printer.ini") << "[Printer]\nDriverName=Driver One\n";
        std::ofstream(m_registry / "NotADirectory") << "x";
        setenv("FU_PRINTER_REGISTRY", m_registry.c_str(), 1);
    }
    void TearDown() override {
        unsetenv("FU_PRINTER_REGISTRY");
        std::filesystem::remove_all(m_registry);
    }

    std::filesystem::path m_registry;
};

TEST_F(Spooler, OpenCloseAndDriverInfoBufferContract) {
    wchar_t name[] = L"P1";
    HANDLE printer = nullptr;
    ASSERT_TRUE(OpenPrinterW(name, &printer, nullptr));
    EXPECT_EQ(platform::GetPrinterNameFromHandle(printer), L"P1");
    EXPECT_EQ(platform::FindPrinterDirectory(L"P1"), (m_registry / "P1").string());
    EXPECT_TRUE(ClosePrinter(printer));
    EXPECT_FALSE(ClosePrinter(printer));
    EXPECT_EQ(GetLastError(), ERROR_INVALID_HANDLE);
    wchar_t file[] = L"NotADirectory";
    EXPECT_FALSE(OpenPrinterW(file, &printer, nullptr));
    EXPECT_EQ(GetLastError(), ERROR_INVALID_PRINTER_NAME);
    EXPECT_EQ(printer, nullptr);
    EXPECT_FALSE(OpenPrinterW(name, nullptr, nullptr));
    EXPECT_EQ(GetLastError(), ERROR_INVALID_PARAMETER);

    // The driver information follows the buffer contract.
    ASSERT_TRUE(OpenPrinterW(name, &printer, nullptr));
    DWORD needed = 0;
    EXPECT_FALSE(GetPrinterDriverW(printer, nullptr, 1, nullptr, 0, &needed));
    EXPECT_EQ(GetLastError(), ERROR_INSUFFICIENT_BUFFER);
    EXPECT_EQ(needed, sizeof(DRIVER_INFO_1W) + 11 * sizeof(wchar_t));
    std::vector<DRIVER_INFO_1W> buffer(needed / sizeof(DRIVER_INFO_1W) + 1);
    auto* bytes = reinterpret_cast<BYTE*>(buffer.data());
    EXPECT_FALSE(GetPrinterDriverW(printer, nullptr, 1, bytes, needed - 1, &needed));
    ASSERT_TRUE(GetPrinterDriverW(printer, nullptr, 1, bytes, needed, &needed));
    EXPECT_STREQ(buffer[0].pName, L"Driver One");
    EXPECT_FALSE(GetPrinterDriverW(printer, nullptr, 2, bytes, needed, &needed));
    EXPECT_EQ(GetLastError(), ERROR_INVALID_LEVEL);
    ClosePrinter(printer);
    EXPECT_FALSE(GetPrinterDriverW(printer, nullptr, 1, bytes, needed, &needed));
    EXPECT_EQ(GetLastError(), ERROR_INVALID_HANDLE);
}
