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

TEST(DbgPrint, EmitsWholeTruncatesOrRefuses) {
    platform::DebugOutputCapture capture;
    std::string limit(32768, 'a'), longer(40000, 'b');
    longer[32767] = 'Z';
    EXPECT_EQ(DbgPrint("%s", limit.c_str()), 1);   // exactly the limit: emitted whole
    EXPECT_EQ(DbgPrint("%s", longer.c_str()), 0);  // longer: truncated, not dropped
    EXPECT_EQ(DbgPrint("value %ld, %S\n", 5, L"wide"), 1);
    EXPECT_EQ(DbgPrint(nullptr), 0);  // nothing goes out
    EXPECT_EQ(DbgPrint("%y"), 0);     // a format error: an empty message still goes out
    EXPECT_EQ(capture.Messages(),
              (std::vector<std::string>{limit, longer.substr(0, 32768), "value 5, wide\n", ""}));
}

TEST(RealDebugMessage, FitsExactlyTruncatesOrRefuses) {
    platform::DebugOutputCapture capture;
    EXPECT_EQ(CallRealDebugMessage(5, "%s", "12345"), 1);      // exactly the buffer: success
    EXPECT_EQ(CallRealDebugMessage(5, "%s", "123456789"), 0);  // overflow: truncated, failure
    EXPECT_EQ(CallRealDebugMessage(10, "%d-%d", 1, 2), 1);
    EXPECT_EQ(CallRealDebugMessage(0, "x"), 0);
    EXPECT_EQ(CallRealDebugMessage(10, nullptr), 0);
    // A size whose +1 leaves the 31-bit range (or wraps) is refused; the empty buffer still goes.
    EXPECT_EQ(CallRealDebugMessage(0x7FFFFFFFul, "x"), 0);
    EXPECT_EQ(CallRealDebugMessage(0xFFFFFFFFul, "x"), 0);
    EXPECT_EQ(CallRealDebugMessage(4, "%y"), 0);  // format error
    std::vector<std::string> messages = capture.Messages();
    messages.resize(5);
    EXPECT_EQ(messages, (std::vector<std::string>{"12345", "12345", "1-2", "", ""}));
}

TEST(HResults, FromLastErrorsAndGdiStatuses) {
    using namespace Gdiplus;
    // clang-format off
    const std::pair<DWORD, HRESULT> errors[] = {
        {0, 0}, {5, HRESULT(0x80070005)}, {0x12345, HRESULT(0x80072345)}, {0x80004005u, E_FAIL}};
    // clang-format on
    for (const auto& [error, hr] : errors) {
        SetLastError(error);
        EXPECT_EQ(GetLastErrorAsHResult(), hr) << error;
    }
    // clang-format off
    const std::pair<int, HRESULT> statuses[] = {
        {Ok, S_OK}, {GenericError, E_FAIL}, {InvalidParameter, E_INVALIDARG},
        {OutOfMemory, HRESULT(0x8007000E)}, {ObjectBusy, E_PENDING},
        {InsufficientBuffer, HRESULT(0x8007000E)}, {NotImplemented, E_NOTIMPL},
        {FileNotFound, HRESULT(0x80070002)}, {AccessDenied, E_ACCESSDENIED}, {8, E_FAIL}, {9, E_FAIL},
        {11, E_FAIL}, {13, E_FAIL}, {17, E_FAIL}, {18, E_FAIL}, {21, E_FAIL}, {100, E_FAIL}, {-1, E_FAIL}};
    // clang-format on
    for (const auto& [status, hr] : statuses) {
        EXPECT_EQ(GetGDIStatusErrorAsHResult(static_cast<Status>(status)), hr) << status;
    }
    SetLastError(ERROR_ACCESS_DENIED);  // a Win32 error is the thread's last error
    EXPECT_EQ(GetGDIStatusErrorAsHResult(Win32Error), static_cast<HRESULT>(0x80070005));
    SetLastError(0);
    EXPECT_EQ(GetGDIStatusErrorAsHResult(Win32Error), S_OK);
}
