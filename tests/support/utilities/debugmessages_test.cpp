// Tests of the debug-message manager: categories, state and error words, switches, messages and
// configuration from the environment.
#include <gtest/gtest.h>

#include <cstdlib>

#include "platform/win32/debugoutput.h"
#include "support/utilities/debugmessages.h"

namespace {

// A manager of its own, configured from the given environment, leaving the environment as it was.
class EnvironmentScope {
public:
    EnvironmentScope(const char* categories, const char* switches) {
        Set("FU_DEBUG_CATEGORIES", categories);
        Set("FU_DEBUG_SWITCHES", switches);
    }
    ~EnvironmentScope() {
        unsetenv("FU_DEBUG_CATEGORIES");
        unsetenv("FU_DEBUG_SWITCHES");
    }

private:
    static void Set(const char* name, const char* value) {
        if (value != nullptr) {
            setenv(name, value, 1);
        } else {
            unsetenv(name);
        }
    }
};

}  // namespace

TEST(DebugMessageCategories, CombineWithOr) {
    DebugMessageCategories a(0x400000);
    DebugMessageCategories b(0x1);
    EXPECT_EQ((a | b).GetMask(), 0x400001u);
    a |= DebugMessageCategories(0x8000000000000000ull);
    EXPECT_EQ(a.GetMask(), 0x8000000000400000ull);
    EXPECT_TRUE((a & b).IsEmpty());
}

TEST(DebugMessageManager, StoppedWithoutConfiguration) {
    EnvironmentScope environment(nullptr, nullptr);
    DebugMessageManager manager;
    EXPECT_EQ(manager.GetState(), 0u);
    EXPECT_EQ(manager.GetError(), 0u);
    EXPECT_FALSE(manager.IsRunning());
    DebugMessageCategories matched;
    EXPECT_FALSE(manager.AllowsMessageWithTheseCategories(0x400000, matched));
    platform::DebugOutputCapture capture;
    manager.AddMessage(false, 1, 1, ZorunDebugMessage(L"quiet", L"", 0, L""));
    EXPECT_TRUE(capture.Messages().empty());
    manager.AddMessage(true, 1, 1, ZorunDebugMessage(L"loud", L"", 0, L""));
    EXPECT_EQ(capture.Text(), "loud\n");
}

TEST(DebugMessageManager, CategoriesAndSwitchesFromTheEnvironment) {
    EnvironmentScope environment("0x400000", "exceptions, files,performance");
    DebugMessageManager manager;
    EXPECT_TRUE(manager.IsRunning());
    EXPECT_EQ(manager.GetState(), 1u);
    EXPECT_TRUE(manager.ShowsExceptionMessages());
    EXPECT_FALSE(manager.ShowsFunctionNames());
    EXPECT_TRUE(manager.ShowsFileNames());
    EXPECT_TRUE(manager.IsPerformanceMeasurementEnabledByConfiguration());
    EXPECT_FALSE(manager.BreaksOnExceptions());
    DebugMessageCategories matched;
    EXPECT_TRUE(manager.AllowsMessageWithTheseCategories(0x400001, matched));
    EXPECT_EQ(matched.GetMask(), 0x400000u);
    EXPECT_FALSE(manager.AllowsMessageWithTheseCategories(0x1, matched));
    EXPECT_TRUE(matched.IsEmpty());
}

TEST(DebugMessageManager, DefaultSwitchesAndAll) {
    {
        EnvironmentScope environment("all", nullptr);
        DebugMessageManager manager;
        DebugMessageCategories matched;
        EXPECT_TRUE(manager.AllowsMessageWithTheseCategories(0x8000000000000000ull, matched));
        EXPECT_TRUE(manager.ShowsExceptionMessages());
        EXPECT_TRUE(manager.ShowsFunctionNames());
        EXPECT_TRUE(manager.ShowsFileNames());
        EXPECT_FALSE(manager.IsPerformanceMeasurementEnabledByConfiguration());
    }
    {
        EnvironmentScope environment("12", "all,break");
        DebugMessageManager manager;
        EXPECT_EQ(manager.GetConfiguration().categories.GetMask(), 12u);
        EXPECT_TRUE(manager.BreaksOnExceptions());
        EXPECT_TRUE(manager.IsPerformanceMeasurementEnabledByConfiguration());
    }
}

TEST(DebugMessageManager, BadConfigurationSetsTheErrorWord) {
    platform::DebugOutputCapture capture;
    {
        EnvironmentScope environment("lots", nullptr);
        DebugMessageManager manager;
        EXPECT_EQ(manager.GetError(), ERROR_INVALID_DATA);
        EXPECT_FALSE(manager.IsRunning());
    }
    {
        EnvironmentScope environment("1", "exceptions,colours");
        DebugMessageManager manager;
        EXPECT_EQ(manager.GetError(), ERROR_INVALID_DATA);
        DebugMessageCategories matched;
        EXPECT_FALSE(manager.AllowsMessageWithTheseCategories(1, matched));
    }
    EXPECT_EQ(capture.CountStartingWith("DebugMessageManager: "), 2u);
}

TEST(DebugMessageManager, MessagesRenderTheirFields) {
    EnvironmentScope environment("1", nullptr);
    DebugMessageManager manager;
    platform::DebugOutputCapture capture;
    unsigned long before = manager.GetMessageCount();
    manager.AddMessage(false, 1, 1, ZorunDebugMessage(L"text", L"file.cpp", 7, L"A::B"));
    manager.AddMessage(false, 1, 1, ZorunDebugMessage(L"bare", L"", 7, L""));
    auto messages = capture.Messages();
    ASSERT_EQ(messages.size(), 2u);
    EXPECT_EQ(messages[0], "text [A::B] file.cpp(7)\n");
    EXPECT_EQ(messages[1], "bare\n");
    EXPECT_EQ(manager.GetMessageCount(), before + 2);
}

TEST(DebugMessageManager, ProcessWideInstance) {
    EXPECT_EQ(&GetDebugMessageManager(), &GetDebugMessageManager());
}
