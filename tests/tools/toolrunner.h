// toolrunner.h: what tests of the command-line tools share: running the xpsfilter program (or
// any shell command) and capturing its output and exit code, folders private to the test
// process, and rendering XPS files page by page with MuPDF to compare them.
#pragma once

#include <sys/wait.h>

#include <cstdio>
#include <filesystem>
#include <fstream>
#include <sstream>
#include <string>
#include <vector>

#include "../pipelinehost/testpackages.h"

namespace toolrunner {

namespace fs = std::filesystem;

struct Outcome {
    int exitCode = -1;
    std::string output;  // stdout and stderr together
};

inline std::string Quote(const std::string& text) {
    std::string quoted = "'";
    for (char c : text) quoted += c == '\'' ? std::string("'\\''") : std::string(1, c);
    return quoted + "'";
}

inline Outcome Shell(const std::string& command) {
    Outcome outcome;
    FILE* pipe = popen((command + " 2>&1").c_str(), "r");
    if (pipe == nullptr) return outcome;
    char buffer[4096];
    std::size_t got;
    while ((got = fread(buffer, 1, sizeof buffer, pipe)) > 0) outcome.output.append(buffer, got);
    int status = pclose(pipe);
    outcome.exitCode = WIFEXITED(status) ? WEXITSTATUS(status) : -1;
    return outcome;
}

// Runs a shell command with its standard output and standard error kept apart (the error goes
// through `errFile`).
struct SplitOutcome {
    int exitCode = -1;
    std::string out;
    std::string err;
};

inline std::string ReadFile(const fs::path& path) {
    std::ifstream in(path, std::ios::binary);
    std::ostringstream bytes;
    bytes << in.rdbuf();
    return bytes.str();
}

inline SplitOutcome ShellSplit(const std::string& command, const fs::path& errFile) {
    SplitOutcome outcome;
    FILE* pipe = popen((command + " 2>" + Quote(errFile.string())).c_str(), "r");
    if (pipe == nullptr) return outcome;
    char buffer[4096];
    std::size_t got;
    while ((got = fread(buffer, 1, sizeof buffer, pipe)) > 0) outcome.out.append(buffer, got);
    const int status = pclose(pipe);
    outcome.exitCode = WIFEXITED(status) ? WEXITSTATUS(status) : -1;
    outcome.err = ReadFile(errFile);
    return outcome;
}

inline std::string Tool() {
    return std::string(FU_BINARY_DIR) + "/bin/xpsfilter";
}

inline Outcome RunTool(const std::vector<std::string>& args) {
    std::string command = Quote(Tool());
    for (const std::string& arg : args) command += " " + Quote(arg);
    return Shell(command);
}

// A rendered page: 8-bit RGB, read from the binary PPM that `mutool draw -o page.ppm` writes.
struct Image {
    int width = 0;
    int height = 0;
    std::vector<unsigned char> rgb;

    const unsigned char* At(int x, int y) const {
        return &rgb[(static_cast<std::size_t>(y) * width + x) * 3];
    }
    bool Same(const Image& other, int x, int y) const {
        const unsigned char* a = At(x, y);
        const unsigned char* b = other.At(x, y);
        return a[0] == b[0] && a[1] == b[1] && a[2] == b[2];
    }
    bool operator==(const Image& other) const = default;
};

inline Image ReadPpm(const fs::path& path) {
    Image image;
    std::ifstream in(path, std::ios::binary);
    std::string magic;
    int maximum = 0;
    in >> magic >> image.width >> image.height >> maximum;
    in.get();
    if (magic != "P6" || maximum != 255 || image.width <= 0 || image.height <= 0) return {};
    image.rgb.resize(static_cast<std::size_t>(image.width) * image.height * 3);
    in.read(reinterpret_cast<char*>(image.rgb.data()),
            static_cast<std::streamsize>(image.rgb.size()));
    return in ? image : Image{};
}

// An empty folder of the given name inside the test process's own temporary folder.
inline fs::path WorkDir(const std::string& name) {
    fs::path dir = testpackages::ProcessTempDir() / name;
    fs::remove_all(dir);
    fs::create_directories(dir);
    return dir;
}

// Renders every page at 72 dpi; returns the PNG files in page order (empty when MuPDF fails).
inline std::vector<std::string> Render(const std::string& xps, const fs::path& dir) {
    fs::create_directories(dir);
    Outcome drawn =
        Shell("mutool draw -q -r 72 -o " + Quote((dir / "page%d.png").string()) + " " + Quote(xps));
    std::vector<std::string> pages;
    if (drawn.exitCode != 0) return pages;
    for (int i = 1; fs::exists(dir / ("page" + std::to_string(i) + ".png")); ++i) {
        std::ifstream in(dir / ("page" + std::to_string(i) + ".png"), std::ios::binary);
        std::ostringstream bytes;
        bytes << in.rdbuf();
        pages.push_back(bytes.str());
    }
    return pages;
}

// Rewrites a ZIP entry by entry from its central directory (Python's zipfile), repairing
// containers whose local headers MuPDF cannot follow.
inline std::string Repack(const std::string& input, const fs::path& dir) {
    std::string output = (dir / "repacked.xps").string();
    Shell("python3 -c " +
          Quote("import sys, zipfile\n"
                "src = zipfile.ZipFile(sys.argv[1])\n"
                "with zipfile.ZipFile(sys.argv[2], 'w', zipfile.ZIP_DEFLATED) as dst:\n"
                "    for info in src.infolist():\n"
                "        dst.writestr(info.filename, src.read(info))\n") +
          " " + Quote(input) + " " + Quote(output));
    return output;
}

// Inputs whose ZIP container MuPDF misreads (local file headers left unfilled by a streaming
// writer: MuPDF follows them and loses the font). Their output is compared with the input
// rewritten from its central directory instead.
inline bool MuPdfMisreadsContainer(const std::string& name) {
    return name == "libarchive_test_compat_zip_5.zip";
}

// What MuPDF should see for a job: the input, or its repacked copy when MuPDF misreads it.
inline std::string RenderReference(const std::string& name, const std::string& input,
                                   const fs::path& dir) {
    return MuPdfMisreadsContainer(name) ? Repack(input, dir) : input;
}

}  // namespace toolrunner
