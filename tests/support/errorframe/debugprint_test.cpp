// Tests of DbgPrint, RealDebugMessage and the HRESULT converters.
#include <gtest/gtest.h>

#include <string>

#include "platform/win32/debugoutput.h"
#include "platform/win32/kernel.h"
#include "support/errorframe/errorframe.h"

namespace {

int CallRealDebugMessage(unsigned long bufferChars, const char* format, ...) {
    va_list args;
    va_start(args, format);
    int result = RealDebugMessage(bufferChars, format, args);
    va_end(args);
    return result;
}

}  // namespace

TEST(DbgPrint, ExactlyTheLimitIsEmittedWhole) {
    platform::DebugOutputCapture capture;
    std::string text(32768, 'a');
    EXPECT_EQ(DbgPrint("%s", text.c_str()), 1);
    ASSERT_EQ(capture.Messages().size(), 1u);
    EXPECT_EQ(capture.Messages()[0], text);
}

TEST(DbgPrint, LongerTextIsTruncatedNotDropped) {
    platform::DebugOutputCapture capture;
    std::string text(40000, 'b');
    text[32767] = 'Z';
    EXPECT_EQ(DbgPrint("%s", text.c_str()), 0);
    ASSERT_EQ(capture.Messages().size(), 1u);
    EXPECT_EQ(capture.Messages()[0].size(), 32768u);
    EXPECT_EQ(capture.Messages()[0].back(), 'Z');
}

TEST(DbgPrint, OrdinaryAndBadFormats) {
    platform::DebugOutputCapture capture;
    EXPECT_EQ(DbgPrint("value %ld, %S\n", 5, L"wide"), 1);
    EXPECT_EQ(DbgPrint(nullptr), 0);
    EXPECT_EQ(DbgPrint("%y"), 0);
    auto messages = capture.Messages();
    ASSERT_EQ(messages.size(), 2u);  // nothing for the null format
    EXPECT_EQ(messages[0], "value 5, wide\n");
    EXPECT_EQ(messages[1], "");  // the format error: an empty message still goes out
}

TEST(RealDebugMessage, FitsExactlyAndTruncates) {
    platform::DebugOutputCapture capture;
    EXPECT_EQ(CallRealDebugMessage(5, "%s", "12345"), 1);      // exactly the buffer: success
    EXPECT_EQ(CallRealDebugMessage(5, "%s", "123456789"), 0);  // overflow: truncated, failure
    EXPECT_EQ(CallRealDebugMessage(10, "%d-%d", 1, 2), 1);
    auto messages = capture.Messages();
    ASSERT_EQ(messages.size(), 3u);
    EXPECT_EQ(messages[0], "12345");
    EXPECT_EQ(messages[1], "12345");
    EXPECT_EQ(messages[2], "1-2");
}

TEST(RealDebugMessage, RefusedArguments) {
    platform::DebugOutputCapture capture;
    EXPECT_EQ(CallRealDebugMessage(0, "x"), 0);
    EXPECT_EQ(CallRealDebugMessage(10, nullptr), 0);
    EXPECT_TRUE(capture.Messages().empty());
    // A size whose +1 leaves the 31-bit range (or wraps) is refused; the empty buffer still goes.
    EXPECT_EQ(CallRealDebugMessage(0x7FFFFFFFul, "x"), 0);
    EXPECT_EQ(CallRealDebugMessage(0xFFFFFFFFul, "x"), 0);
    ASSERT_EQ(capture.Messages().size(), 2u);
    EXPECT_EQ(capture.Messages()[0], "");
    EXPECT_EQ(CallRealDebugMessage(4, "%y"), 0);  // format error
}

TEST(GetLastErrorAsHResult, ConvertsPositiveCodes) {
    SetLastError(0);
    EXPECT_EQ(GetLastErrorAsHResult(), 0);
    SetLastError(5);
    EXPECT_EQ(GetLastErrorAsHResult(), static_cast<HRESULT>(0x80070005));
    SetLastError(0x12345);
    EXPECT_EQ(GetLastErrorAsHResult(), static_cast<HRESULT>(0x80072345));
    SetLastError(0x80004005u);
    EXPECT_EQ(GetLastErrorAsHResult(), E_FAIL);
}

TEST(GetGDIStatusErrorAsHResult, Table) {
    using namespace Gdiplus;
    EXPECT_EQ(GetGDIStatusErrorAsHResult(Ok), S_OK);
    EXPECT_EQ(GetGDIStatusErrorAsHResult(GenericError), E_FAIL);
    EXPECT_EQ(GetGDIStatusErrorAsHResult(InvalidParameter), E_INVALIDARG);
    EXPECT_EQ(GetGDIStatusErrorAsHResult(OutOfMemory), static_cast<HRESULT>(0x8007000E));
    EXPECT_EQ(GetGDIStatusErrorAsHResult(ObjectBusy), E_PENDING);
    EXPECT_EQ(GetGDIStatusErrorAsHResult(InsufficientBuffer), static_cast<HRESULT>(0x8007000E));
    EXPECT_EQ(GetGDIStatusErrorAsHResult(NotImplemented), E_NOTIMPL);
    SetLastError(ERROR_ACCESS_DENIED);
    EXPECT_EQ(GetGDIStatusErrorAsHResult(Win32Error), static_cast<HRESULT>(0x80070005));
    SetLastError(0);
    EXPECT_EQ(GetGDIStatusErrorAsHResult(Win32Error), S_OK);
    EXPECT_EQ(GetGDIStatusErrorAsHResult(FileNotFound), static_cast<HRESULT>(0x80070002));
    EXPECT_EQ(GetGDIStatusErrorAsHResult(AccessDenied), E_ACCESSDENIED);
    for (int other : {8, 9, 11, 13, 17, 18, 21, 100, -1}) {
        EXPECT_EQ(GetGDIStatusErrorAsHResult(static_cast<Status>(other)), E_FAIL) << other;
    }
}
