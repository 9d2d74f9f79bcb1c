// Tests of the exception classes, execution contexts and the reporting hooks.
#include <gtest/gtest.h>

#include <new>
#include <stdexcept>
#include <thread>

#include "platform/win32/debugoutput.h"
#include "support/utilities/exceptions.h"

namespace {

// Restores the process-wide manager's configuration after a test changes it.
class ManagerState {
public:
    ManagerState() : m_saved(GetDebugMessageManager().GetConfiguration()) {}
    ~ManagerState() { GetDebugMessageManager().Configure(m_saved); }

private:
    DebugMessageManager::Configuration m_saved;
};

}  // namespace

TEST(Exceptions, ComExceptionCarriesEverything) {
    ExecutionContextStack& stack = UtilitiesDllPerThreadStorage::GetExecutionContextStack();
    ExecutionContextLifetime lifetime(std::make_unique<BasicExecutionContext>(
        31636, L"Filter::StartOperation", L"filterbase.cpp", 12, false, L"running"));
    ZorunComException e =
        GetZorunComException(L"bad \x00E9", L"file.cpp", 42, L"A::B", &stack, E_INVALIDARG);
    EXPECT_EQ(e.GetHresult(), E_INVALIDARG);
    EXPECT_EQ(e.GetMessage(), L"bad \x00E9");
    EXPECT_STREQ(e.what(), "bad \xC3\xA9");
    EXPECT_EQ(e.GetFile(), L"file.cpp");
    EXPECT_EQ(e.GetLine(), 42);
    EXPECT_EQ(e.GetFunction(), L"A::B");
    ASSERT_EQ(e.GetExecutionContexts().size(), 1u);
    EXPECT_EQ(e.GetExecutionContexts()[0]->Describe(),
              L"#31636 Filter::StartOperation (filterbase.cpp(12)): running");
    EXPECT_EQ(e.Describe(),
              L"ZorunComException: bad \x00E9 (HRESULT 0x80070057) [A::B] file.cpp(42)");
    const std::exception& base = e;
    EXPECT_NE(dynamic_cast<const ZorunException*>(&base), nullptr);
}

TEST(Exceptions, SnapshotOutlivesTheContext) {
    ExecutionContextStack& stack = UtilitiesDllPerThreadStorage::GetExecutionContextStack();
    std::size_t depth = stack.GetDepth();
    ExceptionInvalidArgumentNullPointer e = [&] {
        ExecutionContextLifetime lifetime(
            std::make_unique<BasicExecutionContext>(1, L"f", L"", 0, false, L""));
        EXPECT_EQ(stack.GetDepth(), depth + 1);
        return GetExceptionInvalidArgumentNullPointer(L"", L"x.cpp", 1, L"f", &stack);
    }();
    EXPECT_EQ(stack.GetDepth(), depth);
    ASSERT_EQ(e.GetExecutionContexts().size(), depth + 1);
    EXPECT_EQ(e.GetExecutionContexts().back()->Describe(), L"#1 f");
    ExceptionInvalidArgumentNullPointer copy = e;  // copies share the data
    EXPECT_EQ(&copy.GetMessage(), &e.GetMessage());
    EXPECT_STREQ(copy.GetExceptionClassName(), L"ExceptionInvalidArgumentNullPointer");
}

TEST(Exceptions, ClassNames) {
    EXPECT_STREQ(
        GetExceptionDelayLoadDllLoadFailure(L"", L"", 0, L"", nullptr).GetExceptionClassName(),
        L"ExceptionDelayLoadDllLoadFailure");
    EXPECT_STREQ(ExceptionUserFailure(L"m", L"", 0, L"", nullptr).GetExceptionClassName(),
                 L"ExceptionUserFailure");
    EXPECT_TRUE(ExceptionUserFailure(L"m", L"", 0, L"", nullptr).GetExecutionContexts().empty());
}

TEST(ExecutionContexts, NullContextAndPerThreadStacks) {
    ExecutionContextStack& stack = UtilitiesDllPerThreadStorage::GetExecutionContextStack();
    std::size_t depth = stack.GetDepth();
    {
        ExecutionContextLifetime none(nullptr);
        EXPECT_EQ(stack.GetDepth(), depth);
        ExecutionContextLifetime one(
            std::make_unique<BasicExecutionContext>(2, L"g", L"", 0, false, L""));
        std::size_t otherDepth = 99;
        std::thread([&] {
            otherDepth = UtilitiesDllPerThreadStorage::GetExecutionContextStack().GetDepth();
        }).join();
        EXPECT_EQ(otherDepth, 0u);
        EXPECT_EQ(stack.Describe(), L"#2 g\n");
    }
    EXPECT_EQ(stack.GetDepth(), depth);
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
    DebugMessageManager& manager = GetDebugMessageManager();
    DebugMessageManager::Configuration config;
    config.state = DebugMessageManager::kStateRunning;
    config.categories = 0x400001;
    manager.Configure(config);
    EXPECT_FALSE(ZorunException::AllowForExceptionDebug(L"ZorunComException", L"t", L"f", 1, L"F",
                                                        true, nullptr, 0x400001));
    config.breakOnExceptions = true;
    manager.Configure(config);
    platform::DebugOutputCapture capture;
    EXPECT_TRUE(ZorunException::AllowForExceptionDebug(L"ZorunComException", L"t", L"f", 1, L"F",
                                                       true, nullptr, 0x400001));
    EXPECT_EQ(capture.CountStartingWith("*Debug break* ZorunComException: t"), 1u);
    EXPECT_FALSE(ZorunException::AllowForExceptionDebug(L"ZorunComException", L"t", L"f", 1, L"F",
                                                        true, nullptr, 0x2));  // not enabled
    config.error = ERROR_INVALID_DATA;
    manager.Configure(config);
    EXPECT_FALSE(ZorunException::AllowForExceptionDebug(L"ZorunComException", L"t", L"f", 1, L"F",
                                                        true, nullptr, 0x400001));
}
