// Tests of the throw sequence: the message, the one debug line, the debugger hook and the thrown
// object, for the three exception kinds and the convenience macros.
#include <gtest/gtest.h>

#include <string>

#include "platform/win32/debugoutput.h"
#include "support/errorframe/errorframe.h"

namespace {

// Runs a test with the process-wide manager configured, and restores it afterwards.
class ErrorFrame : public ::testing::Test {
protected:
    void SetUp() override { m_saved = GetDebugMessageManager().GetConfiguration(); }
    void TearDown() override { GetDebugMessageManager().Configure(m_saved); }

    static void Run(std::uint64_t categories, bool functions = true, bool files = true,
                    bool exceptions = true) {
        DebugMessageManager::Configuration config;
        config.state = DebugMessageManager::kStateRunning;
        config.categories = categories;
        config.functionNames = functions;
        config.fileNames = files;
        config.exceptionMessages = exceptions;
        GetDebugMessageManager().Configure(config);
    }

private:
    DebugMessageManager::Configuration m_saved;
};

ZorunComException Catch(void (*thrower)()) {
    try {
        thrower();
    } catch (const ZorunComException& e) {
        return e;
    }
    ADD_FAILURE() << "nothing thrown";
    return ZorunComException(L"", L"", 0, L"", nullptr, S_OK);
}

}  // namespace

TEST_F(ErrorFrame, EmptyMessageLogsExactlyOneThrowingLine) {
    Run(0x400000);
    platform::DebugOutputCapture capture;
    int line = 0;
    try {
        line = __LINE__ + 1;
        THROW_COM(E_INVALIDARG, L"PrintSchemaXmlDocument::QueryNode", "");
    } catch (const ZorunComException& e) {
        EXPECT_EQ(e.GetHresult(), E_INVALIDARG);
        EXPECT_TRUE(e.GetMessage().IsEmpty());
        EXPECT_EQ(e.GetFunction(), L"PrintSchemaXmlDocument::QueryNode");
        EXPECT_EQ(e.GetLine(), line);
        EXPECT_NE(e.GetFile().Find(L"errorframe_test.cpp"), -1);
    }
    EXPECT_EQ(capture.CountStartingWith("*Throwing* ZorunComException: "), 1u);
    ASSERT_EQ(capture.Messages().size(), 1u);
    std::string expected = "*Throwing* ZorunComException:  [PrintSchemaXmlDocument::QueryNode] " +
                           std::string(__FILE__) + "(" + std::to_string(line) + ")\n";
    EXPECT_EQ(capture.Messages()[0], expected);
}

// What each kind of throw logs (function and file names switched off) and carries.
TEST_F(ErrorFrame, EveryThrowLogsItsKindAndMessage) {
    const CXString unformattable(kUnformattableMessageText);
    const struct {
        const char* name;
        void (*thrower)();
        const wchar_t* function;
        CXString message;
        std::string logged;
    } rows[] = {
        {"formatted with Windows rules",
         [] { THROW_COM(E_FAIL, L"A::B", "node %S (%ld)", L"Feature", 12); }, L"A::B",
         L"node Feature (12)", "*Throwing* ZorunComException: node Feature (12)\n"},
        {"formatter failure: the fixed text",
         [] { THROW_COM(E_OUTOFMEMORY, L"A::B", "%n", nullptr); }, L"A::B", unformattable,
         "*Throwing* ZorunComException: " + unformattable.ToUtf8() + "\n"},
        {"null pointer", [] { THROW_NULL_POINTER(L"Reader::GetOemDevmode", ""); },
         L"Reader::GetOemDevmode", L"", "*Throwing* ExceptionInvalidArgumentNullPointer: \n"},
        {"delay load", [] { THROW_DELAY_LOAD_FAILURE(L"ThrowDelayLoadFailure", ""); },
         L"ThrowDelayLoadFailure", L"", "*Throwing* ExceptionDelayLoadDllLoadFailure: \n"}};
    Run(0x400000, false, false);
    for (const auto& row : rows) {
        SCOPED_TRACE(row.name);
        platform::DebugOutputCapture capture;
        try {
            row.thrower();
            ADD_FAILURE() << "nothing thrown";
        } catch (const ZorunException& e) {
            EXPECT_EQ(e.GetMessage(), row.message);
            EXPECT_EQ(e.GetFunction(), row.function);
        }
        EXPECT_EQ(capture.Text(), row.logged);
    }
    EXPECT_EQ(unformattable.Find(L"A message argument was supplied, but the resulting string "
                                 L"is empty."),
              0);
    EXPECT_EQ(unformattable.Right(23), L"number indicated above.");
    EXPECT_EQ(Catch([] { THROW_COM(E_OUTOFMEMORY, L"A::B", "%n", nullptr); }).GetHresult(),
              E_OUTOFMEMORY);
    EXPECT_THROW(THROW_NULL_POINTER(L"f", ""), ExceptionInvalidArgumentNullPointer);
    EXPECT_THROW(THROW_DELAY_LOAD_FAILURE(L"f", ""), ExceptionDelayLoadDllLoadFailure);
}

TEST_F(ErrorFrame, NoLineWhenTheManagerDoesNotWantIt) {
    platform::DebugOutputCapture capture;
    DebugMessageManager::Configuration stopped;
    GetDebugMessageManager().Configure(stopped);
    EXPECT_THROW(THROW_COM(E_FAIL, L"A::B", ""), ZorunComException);
    Run(0x1);  // running, but not the exception category
    EXPECT_THROW(THROW_COM(E_FAIL, L"A::B", ""), ZorunComException);
    Run(0x400000, true, true, false);  // exception messages switched off
    EXPECT_THROW(THROW_COM(E_FAIL, L"A::B", ""), ZorunComException);
    DebugMessageManager::Configuration broken;
    broken.state = DebugMessageManager::kStateRunning;
    broken.error = 1;
    broken.categories = ~0ull;
    GetDebugMessageManager().Configure(broken);
    EXPECT_THROW(THROW_COM(E_FAIL, L"A::B", ""), ZorunComException);
    EXPECT_TRUE(capture.Messages().empty());
}

TEST_F(ErrorFrame, DebuggerHookRunsBeforeTheThrow) {
    DebugMessageManager::Configuration config;
    config.state = DebugMessageManager::kStateRunning;
    config.categories = 0x1;  // only the exception-debug bit: no log line, but the hook fires
    config.breakOnExceptions = true;
    GetDebugMessageManager().Configure(config);
    if (IsDebuggerPresent()) GTEST_SKIP() << "would trap into the debugger";
    platform::DebugOutputCapture capture;
    EXPECT_THROW(THROW_COM(E_FAIL, L"A::B", "x"), ZorunComException);
    auto messages = capture.Messages();
    ASSERT_EQ(messages.size(), 2u);
    EXPECT_EQ(
        messages[0].rfind("*Debug break* ZorunComException: *Throwing* ZorunComException: x", 0),
        0u);
    EXPECT_EQ(messages[1].rfind("DebugBreak: no debugger attached", 0), 0u);
}

TEST_F(ErrorFrame, MacrosPassTheHresultAsGivenAndSnapshotTheContexts) {
    ExecutionContextLifetime lifetime(std::make_unique<BasicExecutionContext>(
        31636, L"XpsFilterBase::StartOperation", L"xpsfilterbase.cpp", 1, false, L""));
    // The document classes reject a wrong root element with the success-valued S_FALSE.
    ZorunComException e = Catch([] { THROW_COM(S_FALSE, L"A::B", ""); });
    EXPECT_EQ(e.GetHresult(), S_FALSE);
    ASSERT_EQ(e.GetExecutionContexts().size(), 1u);
    EXPECT_EQ(e.GetExecutionContexts()[0]->Describe().Find(L"#31636 XpsFilterBase::StartOperation"),
              0);
    EXPECT_NO_THROW(THROW_COM_IF_FAILED(S_FALSE, L"A::B", ""));
    e = Catch([] { THROW_COM_IF_FAILED(0x80070490, L"A::B", "absent"); });
    EXPECT_EQ(e.GetHresult(), static_cast<HRESULT>(0x80070490));
    EXPECT_EQ(e.GetMessage(), L"absent");
    int value = 0;
    EXPECT_NO_THROW(THROW_COM_IF_NULL(&value, L"A::B", ""));
    e = Catch([] {
        int* missing = nullptr;
        THROW_COM_IF_NULL(missing, L"A::B", "");
    });
    EXPECT_EQ(e.GetHresult(), E_POINTER);
    int calls = 0;  // the HRESULT expression is evaluated once
    auto failing = [&] {
        ++calls;
        return E_FAIL;
    };
    EXPECT_THROW(THROW_COM_IF_FAILED(failing(), L"A::B", ""), ZorunComException);
    EXPECT_EQ(calls, 1);
    auto step = [](HRESULT first, bool& reachedEnd) -> HRESULT {
        RETURN_IF_FAILED(first);
        reachedEnd = true;
        return S_OK;
    };
    bool reached = false;
    EXPECT_EQ(step(E_ACCESSDENIED, reached), E_ACCESSDENIED);
    EXPECT_FALSE(reached);
    EXPECT_EQ(step(S_FALSE, reached), S_OK);
    EXPECT_TRUE(reached);
}
