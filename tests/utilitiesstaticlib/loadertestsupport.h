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
#include "testsupport/scopedenvironment.h"
#include "testsupport/scratch.h"

namespace loadertest {

namespace fs = std::filesystem;

using testsupport::ScopedEnvironment;

// A directory of its own for the current test.
inline fs::path MakeScratchDirectory(const std::string& tag) {
    return testsupport::ScratchDirectory("loader-" + tag);
}

// A copy of the probe library at `path` (folders created as needed).
inline void CopyProbe(const fs::path& path) {
    fs::create_directories(path.parent_path());
    fs::copy_file(FU_DELAY_PROBE_FILE, path, fs::copy_options::overwrite_existing);
}

// Switches performance-measurement messages on and collects what reaches the debug sink.
class CapturedMessages {
public:
    CapturedMessages() {
        DebugMessageManager::Configuration on = m_saved;
        on.state = DebugMessageManager::kStateRunning;
        on.error = 0;
        on.categories = DebugMessageCategories(~0ull);
        on.performanceMeasurement = true;
        GetDebugMessageManager().Configure(on);
    }
    ~CapturedMessages() { GetDebugMessageManager().Configure(m_saved); }
    std::string Text() const { return m_capture.Text(); }
    bool Contains(const std::string& text) const { return Text().find(text) != std::string::npos; }

private:
    DebugMessageManager::Configuration m_saved = GetDebugMessageManager().GetConfiguration();
    platform::DebugOutputCapture m_capture;
};

}  // namespace loadertest
