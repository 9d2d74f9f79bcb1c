// scratch.h: where tests write files: a folder below the build tree's test-tmp, private to the
// calling process and named after the running test.
#pragma once

#include <gtest/gtest.h>
#include <unistd.h>

#include <filesystem>
#include <string>

namespace testsupport {

// <build>/test-tmp/p<pid>/<tag>-<test name>, emptied and created. ctest runs each test in a
// process of its own (and several build trees may share a machine), so the process id keeps
// concurrent tests apart.
inline std::filesystem::path ScratchDirectory(const std::string& tag) {
    const testing::TestInfo* test = testing::UnitTest::GetInstance()->current_test_info();
    const std::filesystem::path path = std::filesystem::path(FU_BINARY_DIR) / "test-tmp" /
                                       ("p" + std::to_string(::getpid())) /
                                       (test != nullptr ? tag + "-" + test->name() : tag);
    std::filesystem::remove_all(path);
    std::filesystem::create_directories(path);
    return path;
}

}  // namespace testsupport
