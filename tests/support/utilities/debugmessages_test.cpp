// Tests of the debug-message manager (categories, state and error words, switches, messages and
// configuration from the environment), the exception classes, execution contexts and the
// reporting hooks.
#include <gtest/gtest.h>

#include <new>
#include <thread>

#include "platform/win32/debugoutput.h"
#include "support/utilities/debugmessages.h"
#include "support/utilities/exceptions.h"
#include "testsupport/scopedenvironment.h"

namespace {

using testsupport::ScopedEnvironment;

// Restores the process-wide manager's configuration after a test changes it.
struct ManagerState {
    DebugMessageManager::Configuration saved = GetDebugMessageManager().GetConfiguration();
    ~ManagerState() { GetDebugMessageManager().Configure(saved); }
};

TEST(DebugMessageManager, ConfigurationFromTheEnvironment) {
    // clang-format off
    const struct {
        const char* name;
        std::optional<std::string> categories, switches;
        bool running;
        DWORD error;
        std::uint64_t mask;
        std::string flags;  // exceptions, functions, files, performance, break
    } rows[] = {
        {"nothing set", std::nullopt, std::nullopt, false, 0, 0, "11100"},
        {"switches listed", "0x400000", "exceptions, files,performance", true, 0, 0x400000, "10110"},
        {"all categories, default switches", "all", std::nullopt, true, 0, ~0ull, "11100"},
        {"all switches and break", "12", "all,break", true, 0, 12, "11111"},
        {"bad categories", "lots", std::nullopt, false, ERROR_INVALID_DATA, 0, "-"},
        {"bad switch", "1", "exceptions,colours", false, ERROR_INVALID_DATA, 0, "-"}};
    // clang-format on
    platform::DebugOutputCapture capture;
    for (const auto& row : rows) {
        SCOPED_TRACE(row.name);
        ScopedEnvironment categories("FU_DEBUG_CATEGORIES", row.categories);
        ScopedEnvironment switches("FU_DEBUG_SWITCHES", row.switches);
        DebugMessageManager manager;
        EXPECT_EQ(manager.IsRunning(), row.running);
        EXPECT_EQ(manager.GetState(), row.running ? 1u : 0u);
        EXPECT_EQ(manager.GetError(), row.error);
        DebugMessageCategories matched;
        EXPECT_EQ(manager.AllowsMessageWithTheseCategories(row.mask | 1, matched), row.running);
        EXPECT_EQ(matched.GetMask(), row.mask);
        EXPECT_FALSE(manager.AllowsMessageWithTheseCategories(~row.mask, matched));
        EXPECT_TRUE(matched.IsEmpty());
        if (row.flags == "-") continue;
        std::string flags;
        for (bool flag :
             {manager.ShowsExceptionMessages(), manager.ShowsFunctionNames(),
              manager.ShowsFileNames(), manager.IsPerformanceMeasurementEnabledByConfiguration(),
              manager.BreaksOnExceptions()}) {
            flags += flag ? '1' : '0';
        }
        EXPECT_EQ(flags, row.flags);
    }
    EXPECT_EQ(capture.CountStartingWith("DebugMessageManager: "), 2u);  // one per bad row
    DebugMessageCategories a(0x400000);
    a |= DebugMessageCategories(0x8000000000000000ull);
    EXPECT_EQ((a | DebugMessageCategories(1)).GetMask(), 0x8000000000400001ull);
    EXPECT_TRUE((a & DebugMessageCategories(1)).IsEmpty());
}

TEST(DebugMessageManager, MessagesRenderTheirFields) {
    ScopedEnvironment off("FU_DEBUG_CATEGORIES", std::nullopt);
    DebugMessageManager stopped;
    platform::DebugOutputCapture capture;
    stopped.AddMessage(false, 1, 1, ZorunDebugMessage(L"quiet", L"", 0, L""));
    stopped.AddMessage(true, 1, 1, ZorunDebugMessage(L"loud", L"", 0, L""));  // forced
    ScopedEnvironment on("FU_DEBUG_CATEGORIES", "1");
    DebugMessageManager manager;
    unsigned long before = manager.GetMessageCount();
    manager.AddMessage(false, 1, 1, ZorunDebugMessage(L"text", L"file.cpp", 7, L"A::B"));
    manager.AddMessage(false, 1, 1, ZorunDebugMessage(L"bare", L"", 7, L""));
    EXPECT_EQ(capture.Messages(),
              (std::vector<std::string>{"loud\n", "text [A::B] file.cpp(7)\n", "bare\n"}));
    EXPECT_EQ(manager.GetMessageCount(), before + 2);
}

TEST(Exceptions, ComExceptionCarriesEverythingAndSnapshotsTheContexts) {
    ExecutionContextStack& stack = UtilitiesDllPerThreadStorage::GetExecutionContextStack();
    std::size_t depth = stack.GetDepth();
    ZorunComException e = [&] {
        ExecutionContextLifetime none(nullptr);
        ExecutionContextLifetime lifetime(std::make_unique<BasicExecutionContext>(
            31636, L"Filter::StartOperation", L"filterbase.cpp", 12, false, L"running"));
        EXPECT_EQ(stack.GetDepth(), depth + 1);
        std::size_t otherDepth = 99;
        std::thread([&] {
            otherDepth = UtilitiesDllPerThreadStorage::GetExecutionContextStack().GetDepth();
        }).join();
        EXPECT_EQ(otherDepth, 0u);  // stacks are per thread
        return GetZorunComException(L"bad \x00E9", L"file.cpp", 42, L"A::B", &stack, E_INVALIDARG);
    }();
    EXPECT_EQ(stack.GetDepth(), depth);
    EXPECT_EQ(e.GetHresult(), E_INVALIDARG);
    EXPECT_EQ(e.GetMessage(), L"bad \x00E9");
    EXPECT_STREQ(e.what(), "bad \xC3\xA9");
    EXPECT_EQ(e.GetLine(), 42);
    ASSERT_EQ(e.GetExecutionContexts().size(), depth + 1);
    EXPECT_EQ(e.GetExecutionContexts().back()->Describe(),
              L"#31636 Filter::StartOperation (filterbase.cpp(12)): running");
    EXPECT_EQ(e.Describe(),
              L"ZorunComException: bad \x00E9 (HRESULT 0x80070057) [A::B] file.cpp(42)");
    const std::exception& base = e;
    EXPECT_NE(dynamic_cast<const ZorunException*>(&base), nullptr);
    ZorunComException copy = e;  // copies share the data
    EXPECT_EQ(&copy.GetMessage(), &e.GetMessage());
    {
        ExecutionContextLifetime one(
            std::make_unique<BasicExecutionContext>(2, L"g", L"", 0, false, L""));
        EXPECT_EQ(stack.Describe(), L"#2 g\n");
        EXPECT_EQ(GetExceptionInvalidArgumentNullPointer(L"", L"x.cpp", 1, L"f", &stack)
                      .GetExecutionContexts()
                      .back()
                      ->Describe(),
                  L"#2 g");
    }
    EXPECT_STREQ(
        GetExceptionInvalidArgumentNullPointer(L"", L"", 0, L"", nullptr).GetExceptionClassName(),
        L"ExceptionInvalidArgumentNullPointer");
    EXPECT_STREQ(
        GetExceptionDelayLoadDllLoadFailure(L"", L"", 0, L"", nullptr).GetExceptionClassName(),
        L"ExceptionDelayLoadDllLoadFailure");
    ExceptionUserFailure user(L"m", L"", 0, L"", nullptr);
    EXPECT_STREQ(user.GetExceptionClassName(), L"ExceptionUserFailure");
    EXPECT_TRUE(user.GetExecutionContexts().empty());
}

TEST(ExecutionContexts, TracedContextsLogWithPerformanceMeasurement) {
    ManagerState restore;
    DebugMessageManager::Configuration config;
    config.state = DebugMessageManager::kStateRunning;
    config.categories = 1;
    config.performanceMeasurement = true;
    GetDebugMessageManager().Configure(config);
    platform::DebugOutputCapture capture;
    {
        ExecutionContextLifetime traced(
            std::make_unique<BasicExecutionContext>(3, L"h", L"", 0, true, L""));
    }
    EXPECT_EQ(capture.CountStartingWith("@@@>> enter #3 h"), 1u);
    EXPECT_EQ(capture.CountStartingWith("<<@@@ leave #3 h ("), 1u);
}

TEST(DisplayExceptionMessage, OneReportPerCallForEveryKind) {
    platform::DebugOutputCapture capture;
    unsigned long before = ZorunException::GetDisplayedExceptionCount();
    ZorunComException com(L"broken", L"a.cpp", 3, L"A::B", nullptr, E_FAIL);
    ZorunException::DisplayExceptionMessage(false, true, &com, L"f.cpp", 9, L"F::G", nullptr,
                                            nullptr, L"", L"");
    EXPECT_EQ(ZorunException::GetLastExceptionReport(),
              L"*Exception* ZorunComException: broken (HRESULT 0x80004005) [A::B] a.cpp(3); "
              L"caught [F::G] f.cpp(9); continuing\n");
    std::bad_alloc oom;
    ZorunException::DisplayExceptionMessage(false, false, &oom, L"", 0, L"", nullptr, nullptr, L"",
                                            L"");
    EXPECT_EQ(ZorunException::GetLastExceptionReport().Find(L"*Exception* std::bad_alloc: "), 0);
    ZorunException::DisplayExceptionMessage(false, false, nullptr, L"", 0, L"", nullptr, nullptr,
                                            L"title", L"detail");
    EXPECT_EQ(ZorunException::GetLastExceptionReport(),
              L"*Exception* unknown exception; caught; title: detail\n");
    EXPECT_EQ(ZorunException::GetDisplayedExceptionCount(), before + 3);
    EXPECT_EQ(capture.CountStartingWith("*Exception* "), 3u);
}

TEST(AllowForExceptionDebug, OnlyWhenConfiguredToBreak) {
    ManagerState restore;
    auto allow = [](bool breakOnExceptions, DWORD error, std::uint64_t categories) {
        DebugMessageManager::Configuration config;
        config.state = DebugMessageManager::kStateRunning;
        config.categories = 0x400001;
        config.breakOnExceptions = breakOnExceptions;
        config.error = error;
        GetDebugMessageManager().Configure(config);
        return ZorunException::AllowForExceptionDebug(L"ZorunComException", L"t", L"f", 1, L"F",
                                                      true, nullptr, categories);
    };
    platform::DebugOutputCapture capture;
    EXPECT_FALSE(allow(false, 0, 0x400001));
    EXPECT_TRUE(allow(true, 0, 0x400001));
    EXPECT_EQ(capture.CountStartingWith("*Debug break* ZorunComException: t"), 1u);
    EXPECT_FALSE(allow(true, 0, 0x2));  // not enabled
    EXPECT_FALSE(allow(true, ERROR_INVALID_DATA, 0x400001));
}

}  // namespace
