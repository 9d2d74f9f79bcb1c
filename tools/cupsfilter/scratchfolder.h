// scratchfolder.h: the filter's private temporary folder, made in $TMPDIR (the scheduler's
// temporary folder) and removed with everything in it when the filter ends, stopped or not. The
// job read from standard input is spooled there (a ZIP is read from its end, so a pipe will not
// do), and the pipeline writes its output there before it is copied to standard output.
#pragma once

#include <atomic>
#include <filesystem>
#include <string>

namespace cupsfilter {

class ScratchFolder {
public:
    // Throws std::runtime_error when the folder cannot be made.
    ScratchFolder();
    ~ScratchFolder();
    ScratchFolder(const ScratchFolder&) = delete;
    ScratchFolder& operator=(const ScratchFolder&) = delete;

    const std::filesystem::path& Path() const { return m_path; }

    // Copies standard input into a file of the folder and returns its path. Stops early, with
    // std::nullopt-like empty path, when `stop` becomes true (a signal interrupts the read).
    // Throws std::runtime_error on a read or write failure.
    std::filesystem::path SpoolStandardInput(const std::atomic<bool>& stop);

private:
    std::filesystem::path m_path;
};

}  // namespace cupsfilter
