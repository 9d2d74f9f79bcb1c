// Tests of User (XDG directories), Printer and PrintDriver (the printer registry) and
// SetThreadTokenWrapper.
#include <gtest/gtest.h>

#include <cstdlib>
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

namespace {

// Sets (or unsets) an environment variable for the scope.
class ScopedEnvironment {
public:
    ScopedEnvironment(const char* name, const char* value) : m_name(name) {
        if (const char* old = std::getenv(name)) m_old = old;
        if (value != nullptr) {
            setenv(name, value, 1);
        } else {
            unsetenv(name);
        }
    }
    ~ScopedEnvironment() {
        if (m_old) {
            setenv(m_name.c_str(), m_old->c_str(), 1);
        } else {
            unsetenv(m_name.c_str());
        }
    }

private:
    std::string m_name;
    std::optional<std::string> m_old;
};

}  // namespace

TEST(User, XdgConfigHomeWins) {
    ScopedEnvironment xdg("XDG_CONFIG_HOME", "/tmp/xdg-config/");
    ScopedEnvironment home("HOME", "/home/someone");
    EXPECT_EQ(User(L"PrinterDriver").GetUserApplicationDirectory(),
              L"/tmp/xdg-config/PrinterDriver");
}

TEST(User, HomeDotConfigOtherwise) {
    ScopedEnvironment home("HOME", "/home/someone");
    {
        ScopedEnvironment xdg("XDG_CONFIG_HOME", nullptr);
        EXPECT_EQ(User(L"PrinterDriver").GetUserApplicationDirectory(),
                  L"/home/someone/.config/PrinterDriver");
    }
    {
        ScopedEnvironment relative("XDG_CONFIG_HOME", "relative/dir");  // not absolute: ignored
        EXPECT_EQ(User(L"PrinterDriver").GetUserApplicationDirectory(),
                  L"/home/someone/.config/PrinterDriver");
    }
    ScopedEnvironment xdg("XDG_CONFIG_HOME", "");
    EXPECT_EQ(User(L"").GetUserApplicationDirectory(), L"/home/someone/.config");
}

TEST(User, PasswdEntryWithoutHome) {
    ScopedEnvironment xdg("XDG_CONFIG_HOME", nullptr);
    ScopedEnvironment home("HOME", nullptr);
    // The passwd entry of the user answers; if the user has none, the failure is the documented
    // exception.
    try {
        CXString directory = User(L"X").GetUserApplicationDirectory();
        EXPECT_EQ(directory.Right(10), L"/.config/X");
        EXPECT_EQ(directory[0], L'/');
    } catch (const ExceptionUserFailure& e) {
        EXPECT_EQ(e.GetFunction(), L"User::GetUserApplicationDirectory");
    }
}

class PrinterRegistry : public ::testing::Test {
protected:
    void SetUp() override {
        // One directory per test: ctest runs tests in parallel processes.
        m_registry = std::filesystem::path(FU_BINARY_DIR) / "printer_registry_test" /
                     ::testing::UnitTest::GetInstance()->current_test_info()->name();
        std::filesystem::create_directories(m_registry / "Office Printer");
        std::ofstream(m_registry / "Office Printer" / "printer.ini")
            << "\xEF\xBB\xBF[Printer]\r\nDriverName=Zorun Universal XPS \xC3\xA9\r\n";
        std::filesystem::create_directories(m_registry / "No Driver");
        m_environment.emplace("FU_PRINTER_REGISTRY", m_registry.c_str());
    }
    void TearDown() override {
        m_environment.reset();
        std::filesystem::remove_all(m_registry);
    }

    std::filesystem::path m_registry;
    std::optional<ScopedEnvironment> m_environment;
};

TEST_F(PrinterRegistry, DriverNameOfAKnownPrinter) {
    std::size_t handles = platform::OpenHandleCount();
    {
        Printer printer;
        void* handle = printer.CreateHandle(L"Office Printer");
        ASSERT_NE(handle, nullptr);
        EXPECT_EQ(PrintDriver().GetDriverName(handle), L"Zorun Universal XPS \x00E9");
        // A second handle replaces (and closes) the first.
        void* again = printer.CreateHandle(L"Office Printer");
        EXPECT_NE(again, nullptr);
        EXPECT_EQ(platform::OpenHandleCount(), handles + 1);
    }
    EXPECT_EQ(platform::OpenHandleCount(), handles);  // the destructor closed it
}

TEST_F(PrinterRegistry, UnknownPrintersAndBadNames) {
    Printer printer;
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

TEST_F(PrinterRegistry, PrinterWithoutDriverName) {
    Printer printer;
    void* handle = printer.CreateHandle(L"No Driver");
    ASSERT_NE(handle, nullptr);
    EXPECT_EQ(PrintDriver().GetDriverName(handle), L"");
}

TEST(PrinterRegistryMissing, NoRegistryNoPrinters) {
    ScopedEnvironment environment("FU_PRINTER_REGISTRY", nullptr);
    Printer printer;
    EXPECT_EQ(printer.CreateHandle(L"Office Printer"), nullptr);
}

TEST(SetThreadTokenWrapper, ImpersonatesForItsScope) {
    HANDLE token = nullptr;
    ASSERT_TRUE(OpenProcessToken(GetCurrentProcess(), TOKEN_ALL_ACCESS, &token));
    EXPECT_FALSE(SetThreadTokenWrapper::IsThisThreadImpersonating());
    {
        SetThreadTokenWrapper scope(token);
        EXPECT_TRUE(scope.Succeeded());
        EXPECT_TRUE(SetThreadTokenWrapper::IsThisThreadImpersonating());
    }
    EXPECT_FALSE(SetThreadTokenWrapper::IsThisThreadImpersonating());
    CloseHandle(token);
}

TEST(SetThreadTokenWrapper, NestedScopesRestoreTheOuterToken) {
    HANDLE outer = nullptr;
    HANDLE inner = nullptr;
    ASSERT_TRUE(OpenProcessToken(GetCurrentProcess(), TOKEN_ALL_ACCESS, &outer));
    ASSERT_TRUE(OpenProcessToken(GetCurrentProcess(), TOKEN_ALL_ACCESS, &inner));
    std::size_t handles = platform::OpenHandleCount();
    {
        SetThreadTokenWrapper first(outer);
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
}

TEST(SetThreadTokenWrapper, ATokenThatCannotBeImpersonated) {
    int bogus = 0;
    {
        SetThreadTokenWrapper scope(&bogus);
        EXPECT_FALSE(scope.Succeeded());
        EXPECT_FALSE(SetThreadTokenWrapper::IsThisThreadImpersonating());
    }
    EXPECT_FALSE(SetThreadTokenWrapper::IsThisThreadImpersonating());
}
