// Tests of the cache of parsed INI files behind GetPrivateProfileStringW/GetPrivateProfileIntW:
// an unchanged file is parsed once, and every kind of change is seen by the next read.
#include <gtest/gtest.h>

#include <algorithm>
#include <atomic>
#include <chrono>
#include <filesystem>
#include <fstream>
#include <string>
#include <thread>
#include <vector>

#include "platform/com/unicode.h"
#include "platform/win32/profile.h"
#include "testsupport/scratch.h"

namespace {

namespace fs = std::filesystem;

class ProfileCache : public ::testing::Test {
protected:
    void SetUp() override {
        m_directory = testsupport::ScratchDirectory("profile-cache");
    }
    void TearDown() override { fs::remove_all(m_directory); }

    std::wstring Write(const std::string& name, const std::string& text) {
        std::ofstream(m_directory / name, std::ios::binary | std::ios::trunc) << text;
        return platform::Utf8ToWide((m_directory / name).string());
    }
    // Makes the file old enough to be kept by the cache (its last change well in the past).
    static void Settle() { std::this_thread::sleep_for(std::chrono::milliseconds(150)); }

    static std::wstring Value(const std::wstring& file, const wchar_t* section,
                              const wchar_t* key) {
        wchar_t out[64] = {};
        GetPrivateProfileStringW(section, key, L"<none>", out, 64, file.c_str());
        return out;
    }

    fs::path m_directory;
};

TEST_F(ProfileCache, FreshFileIsReadAgainUntilSettled) {
    // Two same-size versions written within one tick of the file clock may share a stamp: a
    // file that has just changed is never trusted from the cache.
    const std::wstring file = Write("fresh.ini", "[s]\nk=1\n");
    EXPECT_EQ(Value(file, L"s", L"k"), L"1");
    Write("fresh.ini", "[s]\nk=2\n");
    EXPECT_EQ(Value(file, L"s", L"k"), L"2");
    const std::uint64_t before = platform::ProfileFilesParsed();
    EXPECT_EQ(Value(file, L"s", L"k"), L"2");
    EXPECT_GT(platform::ProfileFilesParsed(), before);
}

TEST_F(ProfileCache, ChangesRemovalsAndRecreationsAreSeen) {
    const std::wstring file = Write("change.ini", "[s]\nk=1\n");
    Settle();
    EXPECT_EQ(Value(file, L"s", L"k"), L"1");
    // Rewritten in place, same size.
    Write("change.ini", "[s]\nk=2\n");
    EXPECT_EQ(Value(file, L"s", L"k"), L"2");
    Settle();
    EXPECT_EQ(Value(file, L"s", L"k"), L"2");
    // Grown.
    std::ofstream(m_directory / "change.ini", std::ios::app) << "n=5\n";
    EXPECT_EQ(GetPrivateProfileIntW(L"s", L"n", 0, file.c_str()), 5u);
    Settle();
    // Replaced by a rename (another inode), as editors save.
    std::ofstream(m_directory / "next.ini") << "[s]\nk=3\n";
    fs::rename(m_directory / "next.ini", m_directory / "change.ini");
    EXPECT_EQ(Value(file, L"s", L"k"), L"3");
    EXPECT_EQ(GetPrivateProfileIntW(L"s", L"n", 7, file.c_str()), 7u);

    // A removed file is missing at once, cached or not; recreated, it is read again.
    Settle();
    EXPECT_EQ(Value(file, L"s", L"k"), L"3");
    fs::remove(m_directory / "change.ini");
    EXPECT_EQ(Value(file, L"s", L"k"), L"<none>");
    EXPECT_EQ(GetPrivateProfileIntW(L"s", L"k", 9, file.c_str()), 9u);
    Write("change.ini", "[s]\nk=4\n");
    EXPECT_EQ(Value(file, L"s", L"k"), L"4");
    // A directory in the file's place is a missing file, cached or not.
    fs::remove(m_directory / "change.ini");
    fs::create_directory(m_directory / "change.ini");
    EXPECT_EQ(Value(file, L"s", L"k"), L"<none>");
}

TEST_F(ProfileCache, ManyFilesKeepTheirOwnValues) {
    // More files than the cache keeps: each is still read right, first and again.
    std::vector<std::wstring> files;
    for (int i = 0; i < 40; ++i) {
        files.push_back(
            Write("many" + std::to_string(i) + ".ini", "[s]\nk=" + std::to_string(i * 3) + "\n"));
    }
    Settle();
    for (int round = 0; round < 2; ++round) {
        for (int i = 0; i < 40; ++i) {
            EXPECT_EQ(GetPrivateProfileIntW(L"s", L"k", -1, files[i].c_str()),
                      static_cast<UINT>(i * 3));
        }
    }
    // The same file by a path spelt with '\' shares nothing wrong with the '/' spelling.
    std::wstring windowsStyle = files[5];
    std::replace(windowsStyle.begin(), windowsStyle.end(), L'/', L'\\');
    EXPECT_EQ(GetPrivateProfileIntW(L"s", L"k", -1, windowsStyle.c_str()), 15u);
}

TEST_F(ProfileCache, ListsComeFromTheCachedCopy) {
    const std::wstring file = Write("lists.ini", "[a]\nx=1\ny=2\n[b]\nz=3\n");
    Settle();
    for (int i = 0; i < 2; ++i) {
        wchar_t out[32];
        DWORD n = GetPrivateProfileStringW(nullptr, nullptr, L"", out, 32, file.c_str());
        EXPECT_EQ(std::wstring(out, n), std::wstring(L"a\0b\0", 4));
        n = GetPrivateProfileStringW(L"A", nullptr, L"", out, 32, file.c_str());
        EXPECT_EQ(std::wstring(out, n), std::wstring(L"x\0y\0", 4));
    }
}

TEST_F(ProfileCache, ConcurrentReadersWhileTheFileChanges) {
    const std::wstring file = Write("threads.ini", "[s]\nk=100\n");
    Settle();
    std::atomic<bool> stop{false};
    std::atomic<int> badValues{0};
    std::vector<std::thread> readers;
    for (int t = 0; t < 4; ++t) {
        readers.emplace_back([&] {
            while (!stop.load()) {
                // Every value read is one the file held.
                const UINT value = GetPrivateProfileIntW(L"s", L"k", 0, file.c_str());
                if (value < 100 || value > 199) ++badValues;
            }
        });
    }
    for (int i = 101; i < 200; ++i) {
        // Each version replaces the file whole, so no reader can see one half written.
        Write("threads.tmp", "[s]\nk=" + std::to_string(i) + "\n");
        fs::rename(m_directory / "threads.tmp", m_directory / "threads.ini");
        std::this_thread::sleep_for(std::chrono::milliseconds(1));
    }
    stop = true;
    for (auto& reader : readers) reader.join();
    EXPECT_EQ(badValues.load(), 0);
    EXPECT_EQ(GetPrivateProfileIntW(L"s", L"k", 0, file.c_str()), 199u);
}

}  // namespace
