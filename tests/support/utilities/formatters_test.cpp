// Tests of the ZorunUtilities formatters and how they report failure.
#include <gtest/gtest.h>

#include <thread>

#include "support/utilities/zorunutilities.h"

using ZorunUtilities::formatString;
using ZorunUtilities::LastFormatFailed;
using ZorunUtilities::SafeFormatString;

TEST(Formatters, NarrowAndWideFormats) {
    EXPECT_EQ(SafeFormatString("%s=%S", "key", L"\x00E9"), L"key=\x00E9");
    EXPECT_FALSE(LastFormatFailed());
    EXPECT_EQ(SafeFormatString(L"%s=%S", L"key", "value"), L"key=value");
    EXPECT_EQ(formatString("%ld|%I64d", 7, static_cast<long long>(1) << 40), L"7|1099511627776");
    EXPECT_EQ(SafeFormatString(""), L"");
    EXPECT_FALSE(LastFormatFailed());
}

TEST(Formatters, FailureIsReportedWithoutThrowing) {
    CXString result;
    EXPECT_NO_THROW(result = SafeFormatString("%y", 1));
    EXPECT_TRUE(result.IsEmpty());
    EXPECT_TRUE(LastFormatFailed());
    EXPECT_NO_THROW(result = SafeFormatString(static_cast<const char*>(nullptr)));
    EXPECT_TRUE(LastFormatFailed());
    EXPECT_NO_THROW(result = SafeFormatString(L"%n", nullptr));
    EXPECT_TRUE(LastFormatFailed());
    // formatString keeps the format text, so a diagnostic line still says something.
    EXPECT_EQ(formatString("bad %y here"), L"bad %y here");
    EXPECT_TRUE(LastFormatFailed());
    SafeFormatString("%d", 1);
    EXPECT_FALSE(LastFormatFailed());
}

TEST(Formatters, FailureFlagIsPerThread) {
    SafeFormatString("%y");
    bool otherThreadFlag = true;
    std::thread([&] { otherThreadFlag = LastFormatFailed(); }).join();
    EXPECT_FALSE(otherThreadFlag);
    EXPECT_TRUE(LastFormatFailed());
}

TEST(Formatters, LongOutputIsComplete) {
    std::string big(100000, 'x');
    CXString result = SafeFormatString("[%s]", big.c_str());
    EXPECT_EQ(result.GetLength(), 100002);
}

TEST(Paths, FileNameFromFullPath) {
    using ZorunUtilities::getFileNameFromFullPath;
    EXPECT_EQ(getFileNameFromFullPath(L"C:\\dir\\file.dll"), L"file.dll");
    EXPECT_EQ(getFileNameFromFullPath(L"/usr/lib/libx.so"), L"libx.so");
    EXPECT_EQ(getFileNameFromFullPath(L"mixed/a\\b.txt"), L"b.txt");
    EXPECT_EQ(getFileNameFromFullPath(L"plain"), L"plain");
    EXPECT_EQ(getFileNameFromFullPath(L"dir/"), L"");
    EXPECT_EQ(getFileNameFromFullPath(L""), L"");
}

TEST(Paths, ModuleNames) {
    using ZorunUtilities::getModuleName;
    // An address inside the utility library names the library; null names the program.
    CXString library =
        getModuleName(reinterpret_cast<HINSTANCE>(&ZorunUtilities::LastFormatFailed));
    EXPECT_EQ(library.Find(L"libzorunutilities.so"), 0) << library.ToUtf8();
    EXPECT_EQ(getModuleName(nullptr), L"utilities_tests");
    int onTheStack = 0;
    EXPECT_EQ(getModuleName(&onTheStack), L"");
}
