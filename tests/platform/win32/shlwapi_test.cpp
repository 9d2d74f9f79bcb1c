// Tests of PathFileExistsW and the Windows file name rule.
#include <gtest/gtest.h>

#include <cstdio>
#include <filesystem>
#include <fstream>

#include "platform/com/unicode.h"
#include "platform/win32/kernel.h"
#include "platform/win32/shlwapi.h"
#include "testsupport/scratch.h"

TEST(PathFileExists, FilesDirectoriesAndNativePaths) {
    std::filesystem::path dir = testsupport::ScratchDirectory("shlwapi") / "sub";
    std::filesystem::create_directories(dir);
    std::ofstream(dir / "f\xC3\xA9.ini") << "x";
    std::wstring wideDir = platform::Utf8ToWide(dir.string());
    EXPECT_TRUE(PathFileExistsW(wideDir.c_str()));
    EXPECT_TRUE(PathFileExistsW((wideDir + L"/f\x00E9.ini").c_str()));
    EXPECT_TRUE(PathFileExistsW((wideDir + L"\\f\x00E9.ini").c_str()));  // backslash separator
    SetLastError(0);
    EXPECT_FALSE(PathFileExistsW((wideDir + L"\\missing.ini").c_str()));
    EXPECT_EQ(GetLastError(), ERROR_FILE_NOT_FOUND);
    EXPECT_FALSE(PathFileExistsW(nullptr));
    EXPECT_FALSE(PathFileExistsW(L""));
    std::filesystem::remove_all(dir.parent_path());

    // The native path turns backslashes.
    EXPECT_EQ(platform::ToNativePath(L"a\\b\\c.ini"), "a/b/c.ini");
    EXPECT_EQ(platform::ToNativePath(static_cast<const wchar_t*>(nullptr)), "");
}
