// Tests of UTF8Ini::GetPrivateProfileStringW on real files: byte-order marks, CRLF, missing
// sections and keys, invalid UTF-8, enumeration and truncation.
#include <gtest/gtest.h>

#include <filesystem>
#include <fstream>
#include <string>

#include "platform/com/unicode.h"
#include "support/utilities/utf8ini.h"
#include "testsupport/scratch.h"

namespace {

class Utf8IniTest : public ::testing::Test {
protected:
    void SetUp() override {
        m_dir = testsupport::ScratchDirectory("utf8ini");
    }
    void TearDown() override { std::filesystem::remove_all(m_dir); }

    std::wstring Write(const std::string& bytes, const char* name = "test.ini") {
        std::filesystem::path path = m_dir / name;
        std::ofstream(path, std::ios::binary) << bytes;
        return platform::Utf8ToWide(path.string());
    }

    std::wstring Read(const std::wstring& file, const wchar_t* section, const wchar_t* key,
                      const wchar_t* fallback = L"!@*^%&$#", unsigned long capacity = 512,
                      int* result = nullptr) {
        std::wstring out(capacity, L'?');
        int n = m_ini.GetPrivateProfileStringW(section, key, fallback, out.data(), capacity,
                                               file.c_str());
        if (result != nullptr) *result = n;
        EXPECT_EQ(out[static_cast<std::size_t>(n)], L'\0');
        return out.substr(0, static_cast<std::size_t>(n));
    }

    std::filesystem::path m_dir;
    UTF8Ini m_ini;
};

}  // namespace

// How files are spelled (marks, line ends, encodings, case and blanks, quotes and comments),
// and missing files, sections and keys, which give the default.
TEST_F(Utf8IniTest, EverySpellingOfAFileIsReadAndMissingOnesGiveTheDefault) {
    std::string utf16le("\xFF\xFE", 2);
    for (wchar_t c : std::wstring(L"[s]\r\nk=\x263A\r\n")) {
        utf16le.push_back(static_cast<char>(c & 0xFF));
        utf16le.push_back(static_cast<char>(c >> 8));
    }
    const std::wstring odd = Write(
        "; comment\n[s]\nq=\"quoted  \"\nsingle='x'\nhalf=\"open\nnoequals\n# hash\nempty=\n"
        "eq=a=b\n[s]\nq=second\n",
        "odd.ini");
    std::string garbage;
    for (int i = 0; i < 5000; ++i) garbage.push_back(static_cast<char>((i * 7919) & 0xFF));
    std::filesystem::create_directories(m_dir / "Zorun");
    std::ofstream(m_dir / "Zorun" / "ZrnWmV5.ini") << "[1]\nText=hi\n";
    const std::wstring dir = platform::Utf8ToWide(m_dir.string()), file = Write("[1]\nText=a\n");
    // clang-format off
    const struct { const char* name; std::wstring file; const wchar_t *section, *key, *fallback, *value; } rows[] = {
        {"mark and CRLF", Write("\xEF\xBB\xBF[1]\r\nText=Confidential \xC3\xA9\r\n", "crlf.ini"), L"1", L"Text",
         L"!", L"Confidential \x00E9"},
        {"mark before the first section", Write("\xEF\xBB\xBF[Printer]\nDriverName=x\n", "mark.ini"), L"Printer",
         L"DriverName", L"!", L"x"},
        {"UTF-16 with a mark", Write(utf16le, "utf16.ini"), L"s", L"k", L"!", L"\x263A"},
        {"invalid UTF-8 repaired", Write("[1]\nText=a\xFF" "b\xC3\n", "bad.ini"), L"1", L"Text", L"!",
         L"a\xFFFD" L"b\xFFFD"},
        {"case and blanks", Write("  [ Section One ]  \n  Some Key  =  spaced value  \n", "case.ini"),
         L"section one", L"SOME KEY", L"!", L"spaced value"},
        {"double quotes, first key wins", odd, L"s", L"q", L"!", L"quoted  "},
        {"single quotes", odd, L"s", L"single", L"!", L"x"}, {"unclosed quote", odd, L"s", L"half", L"!", L"\"open"},
        {"empty value", odd, L"s", L"empty", L"!", L""}, {"= in the value", odd, L"s", L"eq", L"!", L"a=b"},
        {"line without =", odd, L"s", L"noequals", L"!", L"!"},
        {"missing section", file, L"2", L"Text", L"!", L"!"}, {"missing key", file, L"1", L"Font", L"!", L"!"},
        {"missing file", L"/nonexistent/dir/x.ini", L"1", L"Text", L"!", L"!"},
        {"no file name", L"", L"1", L"Text", L"!", L"!"}, {"a directory", dir, L"s", L"k", L"!", L"!"},
        {"garbage", Write(garbage, "garbage.ini"), L"1", L"Text", L"!", L"!"},
        {"null default", file, L"2", L"Text", nullptr, L""},
        {"default blanks stripped", file, L"2", L"Text", L"trailing   ", L"trailing"},
        {"backslashes in the file name", dir + L"\\Zorun\\ZrnWmV5.ini", L"1", L"Text", L"!", L"hi"}};
    // clang-format on
    for (const auto& row : rows) {
        SCOPED_TRACE(row.name);
        EXPECT_EQ(Read(row.file, row.section, row.key, row.fallback), row.value);
    }
    std::wstring out(64, L'?');  // listing a garbage file reads no further than its end
    EXPECT_GE(m_ini.GetPrivateProfileStringW(nullptr, nullptr, L"", out.data(), 64,
                                             rows[16].file.c_str()),
              0);
}

TEST_F(Utf8IniTest, TruncationAndListsOfKeysAndSections) {
    std::wstring file = Write("[s]\nk=abcdefgh\n[t]\na=1\nbb=2\n[u]\n");
    int n = 0;
    EXPECT_EQ(Read(file, L"s", L"k", L"", 5, &n), L"abcd");
    EXPECT_EQ(n, 4);  // size - 1
    EXPECT_EQ(Read(file, L"s", L"k", L"", 9, &n), L"abcdefgh");
    EXPECT_EQ(n, 8);
    wchar_t one[1] = {L'?'};
    EXPECT_EQ(m_ini.GetPrivateProfileStringW(L"s", L"k", L"", one, 1, file.c_str()), 0);
    EXPECT_EQ(one[0], L'\0');
    EXPECT_EQ(m_ini.GetPrivateProfileStringW(L"s", L"k", L"", nullptr, 10, file.c_str()), 0);
    EXPECT_EQ(m_ini.GetPrivateProfileStringW(L"s", L"k", L"", one, 0, file.c_str()), 0);
    // A null key lists the section's keys, a null section the sections, each name followed by a
    // NUL and the list by another; too small a buffer cuts the last name and returns size - 2.
    // clang-format off
    const struct {
        const wchar_t* section;
        unsigned long size;
        int count;
        std::wstring list;
    } lists[] = {
        {L"t", 32, 5, std::wstring(L"a\0bb\0\0", 6)}, {L"t", 4, 2, std::wstring(L"a\0\0\0", 4)},
        {L"zz", 32, 0, std::wstring(L"\0\0", 2)},
        {nullptr, 32, 6, std::wstring(L"s\0t\0u\0\0", 7)}};
    // clang-format on
    for (const auto& row : lists) {
        std::wstring out(32, L'?');
        EXPECT_EQ(m_ini.GetPrivateProfileStringW(row.section, nullptr, L"", out.data(), row.size,
                                                 file.c_str()),
                  row.count);
        EXPECT_EQ(out.substr(0, row.list.size()), row.list);
    }
}
