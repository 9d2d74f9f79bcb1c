#include <gtest/gtest.h>

#include <thread>

#include "platform/com/com.h"
#include "platform/com/unicode.h"

TEST(ComRuntime, ApartmentsAndClassRegistration) {
    std::thread([] {
        EXPECT_EQ(CoInitializeEx(nullptr, COINIT_APARTMENTTHREADED), S_OK);
        EXPECT_EQ(CoInitializeEx(nullptr, COINIT_APARTMENTTHREADED), S_FALSE);
        EXPECT_EQ(CoInitializeEx(nullptr, COINIT_MULTITHREADED), RPC_E_CHANGED_MODE);
        EXPECT_EQ(platform::ApartmentInitCount(), 2);
        CoUninitialize();
        CoUninitialize();
        EXPECT_EQ(platform::ApartmentInitCount(), 0);
        EXPECT_EQ(CoInitializeEx(nullptr, COINIT_MULTITHREADED), S_OK);
        CoUninitialize();
    }).join();
    constexpr CLSID unknown = {0x12345678, 1, 2, {3, 4, 5, 6, 7, 8, 9, 10}};
    void* object = reinterpret_cast<void*>(0x1);
    EXPECT_EQ(CoCreateInstance(unknown, nullptr, CLSCTX_ALL, IID_IUnknown, &object),
              REGDB_E_CLASSNOTREG);
    EXPECT_EQ(object, nullptr);
}

TEST(ComRuntime, MemoryStreamReadsWritesSeeksAndStats) {
    CComPtr<IStream> stream;
    ASSERT_EQ(CreateStreamOnHGlobal(nullptr, TRUE, &stream), S_OK);
    ULONG done = 0;
    ASSERT_EQ(stream->Write("abcdef", 6, &done), S_OK);
    EXPECT_EQ(done, 6u);
    LARGE_INTEGER move{};
    move.QuadPart = 2;
    ULARGE_INTEGER position{};
    ASSERT_EQ(stream->Seek(move, STREAM_SEEK_SET, &position), S_OK);
    EXPECT_EQ(position.QuadPart, 2u);
    char buffer[8] = {};
    EXPECT_EQ(stream->Read(buffer, 8, &done), S_FALSE);  // short read at the end
    EXPECT_EQ(done, 4u);
    EXPECT_STREQ(buffer, "cdef");
    move.QuadPart = -1;
    EXPECT_EQ(stream->Seek(move, STREAM_SEEK_SET, nullptr), STG_E_INVALIDFUNCTION);
    STATSTG stat{};
    ASSERT_EQ(stream->Stat(&stat, STATFLAG_NONAME), S_OK);
    EXPECT_EQ(stat.cbSize.QuadPart, 6u);
    EXPECT_EQ(stat.type, static_cast<DWORD>(STGTY_STREAM));
}

TEST(Unicode, RepairsRatherThanFails) {
    EXPECT_EQ(platform::Utf8ToWide("a\xC3\xA9"), L"a\u00E9");
    EXPECT_EQ(platform::Utf8ToWide("\xF0\x9F\x98\x80"), std::wstring(1, wchar_t(0x1F600)));
    EXPECT_EQ(platform::Utf8ToWide("x\xC3"), L"x\uFFFD");        // truncated sequence
    EXPECT_EQ(platform::Utf8ToWide("\xED\xA0\x80"), L"\uFFFD");  // encoded surrogate
    EXPECT_EQ(platform::WideToUtf8(std::wstring(1, wchar_t(0x1F600))), "\xF0\x9F\x98\x80");
    const wchar_t pair[] = {wchar_t(0xD83D), wchar_t(0xDE00), 0};
    EXPECT_EQ(platform::WideToUtf8(pair), "\xF0\x9F\x98\x80");
    EXPECT_FALSE(platform::IsValidUtf8("\xC0\xAF"));  // overlong
    EXPECT_TRUE(platform::IsValidUtf8("plain"));
}
