// Tests of User (XDG directories), Printer and PrintDriver (the printer registry) and
// SetThreadTokenWrapper.
#include <gtest/gtest.h>

#include <filesystem>
#include <fstream>
#include <optional>
#include <string>

#include "platform/win32/kernel.h"
#include "platform/win32/security.h"
#include "support/utilities/exceptions.h"
#include "support/utilities/printdriver.h"
#include "support/utilities/printer.h"
#include "support/utilities/setthreadtokenwrapper.h"
#include "support/utilities/user.h"
#include "testsupport/scopedenvironment.h"
#include "testsupport/scratch.h"

using testsupport::ScopedEnvironment;

TEST(User, ConfigurationDirectoryFromXdgHomeOrPasswd) {
    const struct {
        const char* name;
        std::optional<std::string> xdg, home;
        const wchar_t* application;
        const wchar_t* expected;
    } rows[] = {{"XDG_CONFIG_HOME wins", "/tmp/xdg-config/", "/home/someone", L"PrinterDriver",
                 L"/tmp/xdg-config/PrinterDriver"},
                {"HOME otherwise", std::nullopt, "/home/someone", L"PrinterDriver",
                 L"/home/someone/.config/PrinterDriver"},
                {"relative XDG_CONFIG_HOME ignored", "relative/dir", "/home/someone",
                 L"PrinterDriver", L"/home/someone/.config/PrinterDriver"},
                {"empty XDG_CONFIG_HOME, no application", "", "/home/someone", L"",
                 L"/home/someone/.config"},
                // The passwd entry of the user answers; if the user has none, the failure is the
                // documented exception.
                {"passwd entry", std::nullopt, std::nullopt, L"X", nullptr}};
    for (const auto& row : rows) {
        SCOPED_TRACE(row.name);
        ScopedEnvironment xdg("XDG_CONFIG_HOME", row.xdg), home("HOME", row.home);
        try {
            CXString directory = User(row.application).GetUserApplicationDirectory();
            if (row.expected != nullptr) {
                EXPECT_EQ(directory, row.expected);
            } else {
                EXPECT_EQ(directory.Right(10), L"/.config/X");
                EXPECT_EQ(directory[0], L'/');
            }
        } catch (const ExceptionUserFailure& e) {
            EXPECT_EQ(row.expected, nullptr);
            EXPECT_EQ(e.GetFunction(), L"User::GetUserApplicationDirectory");
        }
    }
}

TEST(PrinterRegistry, DriverNamesOfKnownPrintersOnly) {
    std::filesystem::path registry = testsupport::ScratchDirectory("printer-registry");
    std::filesystem::create_directories(registry / "Office Printer");
    std::ofstream(registry / "Office Printer" / "printer.ini")
        << "\xEF\xBB\xBF[Printer]\r\nDriverName=Zorun Universal XPS \xC3\xA9\r\n";
    std::filesystem::create_directories(registry / "No Driver");
    std::size_t handles = platform::OpenHandleCount();
    {
        ScopedEnvironment environment("FU_PRINTER_REGISTRY", registry.string());
        Printer printer;
        void* handle = printer.CreateHandle(L"Office Printer");
        ASSERT_NE(handle, nullptr);
        EXPECT_EQ(PrintDriver().GetDriverName(handle), L"Zorun Universal XPS \x00E9");
        // A second handle replaces (and closes) the first.
        EXPECT_NE(printer.CreateHandle(L"Office Printer"), nullptr);
        EXPECT_EQ(platform::OpenHandleCount(), handles + 1);
        Printer noDriver;
        void* bare = noDriver.CreateHandle(L"No Driver");
        ASSERT_NE(bare, nullptr);
        EXPECT_EQ(PrintDriver().GetDriverName(bare), L"");
        for (const wchar_t* name : {L"Missing", L"", L"..", L".", L"../etc", L"a\\b"}) {
            SetLastError(0);
            EXPECT_EQ(printer.CreateHandle(name), nullptr);
            EXPECT_EQ(GetLastError(), ERROR_INVALID_PRINTER_NAME);
        }
        EXPECT_EQ(printer.CreateHandle(nullptr), nullptr);
        EXPECT_EQ(PrintDriver().GetDriverName(nullptr), L"");
        int notAPrinter = 0;
        EXPECT_EQ(PrintDriver().GetDriverName(&notAPrinter), L"");
    }
    EXPECT_EQ(platform::OpenHandleCount(), handles);  // the destructors closed them
    std::filesystem::remove_all(registry);
    ScopedEnvironment none("FU_PRINTER_REGISTRY", std::nullopt);  // no registry, no printers
    EXPECT_EQ(Printer().CreateHandle(L"Office Printer"), nullptr);
}

TEST(SetThreadTokenWrapper, NestedScopesImpersonateAndRestore) {
    HANDLE outer = nullptr, inner = nullptr;
    ASSERT_TRUE(OpenProcessToken(GetCurrentProcess(), TOKEN_ALL_ACCESS, &outer));
    ASSERT_TRUE(OpenProcessToken(GetCurrentProcess(), TOKEN_ALL_ACCESS, &inner));
    std::size_t handles = platform::OpenHandleCount();
    EXPECT_FALSE(SetThreadTokenWrapper::IsThisThreadImpersonating());
    {
        SetThreadTokenWrapper first(outer);
        EXPECT_TRUE(first.Succeeded());
        EXPECT_TRUE(SetThreadTokenWrapper::IsThisThreadImpersonating());
        {
            SetThreadTokenWrapper second(nullptr);  // null: not impersonating inside
            EXPECT_TRUE(second.Succeeded());
            EXPECT_FALSE(SetThreadTokenWrapper::IsThisThreadImpersonating());
        }
        EXPECT_TRUE(SetThreadTokenWrapper::IsThisThreadImpersonating());
        {
            SetThreadTokenWrapper second(inner);
            EXPECT_TRUE(SetThreadTokenWrapper::IsThisThreadImpersonating());
        }
        EXPECT_TRUE(SetThreadTokenWrapper::IsThisThreadImpersonating());
    }
    EXPECT_FALSE(SetThreadTokenWrapper::IsThisThreadImpersonating());
    EXPECT_EQ(platform::OpenHandleCount(), handles);  // no handle leaked
    CloseHandle(outer);
    CloseHandle(inner);
    int bogus = 0;  // a token that cannot be impersonated
    {
        SetThreadTokenWrapper scope(&bogus);
        EXPECT_FALSE(scope.Succeeded());
        EXPECT_FALSE(SetThreadTokenWrapper::IsThisThreadImpersonating());
    }
    EXPECT_FALSE(SetThreadTokenWrapper::IsThisThreadImpersonating());
}
