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

// Every one of `parts` is in `text`.
inline void ExpectContains(const std::string& text, const std::vector<std::string>& parts) {
    for (const std::string& part : parts) {
        EXPECT_NE(text.find(part), std::string::npos) << "no \"" << part << "\" in\n" << text;
    }
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

// Renders every page at `dpi` (none when MuPDF fails). MuPDF picks its reader by the file name's
// extension, so the job is rendered from a copy named job.xps.
inline std::vector<Image> Render(const std::string& xps, const fs::path& dir, int dpi = 72) {
    fs::create_directories(dir);
    const fs::path named = dir / "job.xps";
    fs::copy_file(xps, named, fs::copy_options::overwrite_existing);
    std::vector<Image> pages;
    const Outcome drawn = Shell("mutool draw -q -r " + std::to_string(dpi) + " -o " +
                                Quote((dir / "p%d.ppm").string()) + " " + Quote(named.string()));
    if (drawn.exitCode != 0) return pages;
    for (int i = 1; fs::exists(dir / ("p" + std::to_string(i) + ".ppm")); ++i) {
        pages.push_back(ReadPpm(dir / ("p" + std::to_string(i) + ".ppm")));
    }
    return pages;
}

// Every page of `output` renders as the same page of `reference` does, pixel for pixel.
inline void ExpectRendersAlike(const std::string& reference, const std::string& output,
                               const fs::path& dir) {
    const std::vector<Image> before = Render(reference, dir / "before");
    const std::vector<Image> after = Render(output, dir / "after");
    ASSERT_FALSE(before.empty()) << "MuPDF cannot render " << reference;
    ASSERT_EQ(after.size(), before.size());
    for (std::size_t i = 0; i < before.size(); ++i) {
        EXPECT_TRUE(after[i] == before[i]) << "page " << i + 1 << " renders differently";
    }
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

// Settings of a text watermark 12: red at 60% density, `fontPoints` high.
inline std::string TextWatermarkIni(const std::string& text, int fontPoints = 36) {
    return "[12]\r\nWatermark Type=0\r\nDENSITY=60\r\nFontHeight=" + std::to_string(fontPoints) +
           "\r\nRed=200\r\nGreen=0\r\nBlue=0\r\nText=" + text + "\r\n";
}

// The watermark's settings in a configuration folder of `dir` (no file when `ini` is empty) and,
// unless `withTicket` is false, a per-user ticket whose private data names watermark 12; runs
// the watermark pipeline with them.
struct WatermarkSetup {
    explicit WatermarkSetup(const fs::path& folder,
                            const std::string& ini = TextWatermarkIni("DRAFT"),
                            bool withTicket = true)
        : dir(folder) {
        const fs::path settings = dir / "config" / "PrinterDriver" / "Zorun";
        fs::create_directories(settings);
        if (!ini.empty()) std::ofstream(settings / "ZrnWmV5.ini", std::ios::binary) << ini;
        if (!withTicket) return;
        std::ofstream(dir / "devmode.txt") << "[attributes]\n620 = option 12\n";
        ticket = (dir / "ticket.xml").string();
        made = RunTool({"devmode", "encode", "--as", "page", "-o", ticket,
                        (dir / "devmode.txt").string()})
                   .exitCode == 0;
    }

    // `xpsfilter <global> run -q <options> --pipeline watermark.xml [--ticket ...] input output`.
    Outcome Run(const std::string& input, const std::string& output, const std::string& global = "",
                const std::string& options = "") const {
        return Shell("XDG_CONFIG_HOME=" + Quote((dir / "config").string()) + " " + Quote(Tool()) +
                     global + " run -q" + options + " --pipeline " +
                     Quote(std::string(FU_SOURCE_DIR) + "/samples/pipelines/watermark.xml") +
                     (ticket.empty() ? "" : " --ticket " + Quote(ticket)) + " " + Quote(input) +
                     " " + Quote(output));
    }

    fs::path dir;
    std::string ticket;  // "" without one
    bool made = true;
};

}  // namespace toolrunner
