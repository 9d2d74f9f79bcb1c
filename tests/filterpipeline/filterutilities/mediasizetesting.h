// mediasizetesting.h: helpers of the page media size and imageable area tests: form records,
// environment variables set for one test and printer registries of the tests' own.
#pragma once

#include <gtest/gtest.h>
#include <unistd.h>

#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <optional>
#include <string>

#include "platform/win32/kernel.h"
#include "platform/win32/printers.h"
#include "platform/win32/security.h"
#include "testsupport/scopedenvironment.h"
#include "testsupport/scratch.h"

namespace mediasizetesting {

namespace fs = std::filesystem;
using Form = MSDeviceCapabilities::_tag_FormsInfoRec;

inline Form MakeForm(DWORD kind, WORD paperId, DWORD width, DWORD height, INT32 value) {
    return Form{paperId, 0, width, height, value, 0, kind, {}};
}

using testsupport::ScopedEnvironment;

// A folder of the current test's own under the build tree, removed afterwards.
class ScratchDirectory {
public:
    explicit ScratchDirectory(const std::string& tag) {
        m_path = testsupport::ScratchDirectory(tag);
    }
    ~ScratchDirectory() {
        std::error_code ignored;
        fs::remove_all(m_path, ignored);
    }
    ScratchDirectory(const ScratchDirectory&) = delete;
    ScratchDirectory& operator=(const ScratchDirectory&) = delete;

    const fs::path& Path() const { return m_path; }

private:
    fs::path m_path;
};

// Writes <registry>/<printer>/printer.ini with the given text.
inline void WritePrinter(const fs::path& registry, const std::string& printer,
                         const std::string& ini) {
    fs::create_directories(registry / printer);
    std::ofstream(registry / printer / "printer.ini", std::ios::binary) << ini;
}

// The sample printer of the project's sample registry.
inline const char* kSamplePrinter = "Zorun Sample Printer";
inline std::string SampleRegistry() {
    return std::string(FU_SOURCE_DIR) + "/samples/printers";
}

}  // namespace mediasizetesting
