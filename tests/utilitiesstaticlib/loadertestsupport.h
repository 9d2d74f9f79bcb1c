// loadertestsupport.h: helpers of the delay-loader tests: a scratch directory that is removed
// afterwards, environment variables set for one test, copies of the probe library, and a
// capture of the performance-measurement messages the loader logs.
#pragma once

#include <gtest/gtest.h>
#include <unistd.h>

#include <cstdlib>
#include <filesystem>
#include <optional>
#include <string>

#include "platform/win32/debugoutput.h"
#include "support/utilities/debugmessages.h"

namespace loadertest {

namespace fs = std::filesystem;

class ScopedEnvironment {
public:
    ScopedEnvironment(const char* name, const std::optional<std::string>& value) : m_name(name) {
        if (const char* old = std::getenv(name)) m_old = old;
        if (value) {
            setenv(name, value->c_str(), 1);
        } else {
            unsetenv(name);
        }
    }
    ~ScopedEnvironment() {
        if (m_old) {
            setenv(m_name, m_old->c_str(), 1);
        } else {
            unsetenv(m_name);
        }
    }
    ScopedEnvironment(const ScopedEnvironment&) = delete;
    ScopedEnvironment& operator=(const ScopedEnvironment&) = delete;

private:
    const char* m_name;
    std::optional<std::string> m_old;
};

// A directory of its own for the current test.
inline fs::path MakeScratchDirectory(const std::string& tag) {
    const testing::TestInfo* test = testing::UnitTest::GetInstance()->current_test_info();
    fs::path root = fs::temp_directory_path() /
                    ("fu-loader-" + std::to_string(getpid()) + "-" + tag + "-" + test->name());
    fs::remove_all(root);
    fs::create_directories(root);
    return root;
}

// A copy of the probe library at `path` (folders created as needed).
inline void CopyProbe(const fs::path& path) {
    fs::create_directories(path.parent_path());
    fs::copy_file(FU_DELAY_PROBE_FILE, path, fs::copy_options::overwrite_existing);
}

// Switches performance-measurement messages on and collects what reaches the debug sink.
class CapturedMessages {
public:
    CapturedMessages() : m_saved(GetDebugMessageManager().GetConfiguration()) {
        DebugMessageManager::Configuration on = m_saved;
        on.state = DebugMessageManager::kStateRunning;
        on.error = 0;
        on.categories = DebugMessageCategories(~0ull);
        on.performanceMeasurement = true;
        GetDebugMessageManager().Configure(on);
        m_previous = platform::SetDebugOutputSink([this](std::string_view text) {
            m_text += text;
            m_text += "\n";
        });
    }
    ~CapturedMessages() {
        platform::SetDebugOutputSink(m_previous);
        GetDebugMessageManager().Configure(m_saved);
    }
    const std::string& Text() const { return m_text; }
    bool Contains(const std::string& text) const { return m_text.find(text) != std::string::npos; }

private:
    DebugMessageManager::Configuration m_saved;
    platform::DebugOutputSink m_previous;
    std::string m_text;
};

}  // namespace loadertest
