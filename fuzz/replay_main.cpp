// replay_main.cpp: runs a fuzz target's entry point over the files named on the command line
// (folders: every file in them), so that the inputs kept in fuzz/regressions/ and the hand-made
// seeds are replayed by every build's tests, with any compiler and any sanitizer, without
// libFuzzer. A crash or a trap in the target fails the run.
#include <algorithm>
#include <cstdint>
#include <cstdio>
#include <filesystem>
#include <fstream>
#include <iterator>
#include <string>
#include <vector>

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, std::size_t size);
extern "C" __attribute__((weak)) int LLVMFuzzerInitialize(int* argc, char*** argv);

namespace {

int Replay(const std::filesystem::path& file) {
    std::ifstream in(file, std::ios::binary);
    if (!in) {
        std::fprintf(stderr, "cannot read %s\n", file.c_str());
        return 1;
    }
    const std::vector<char> bytes((std::istreambuf_iterator<char>(in)),
                                  std::istreambuf_iterator<char>());
    std::fprintf(stderr, "%s (%zu bytes)\n", file.c_str(), bytes.size());
    LLVMFuzzerTestOneInput(reinterpret_cast<const uint8_t*>(bytes.data()), bytes.size());
    return 0;
}

}  // namespace

int main(int argc, char** argv) {
    if (LLVMFuzzerInitialize != nullptr) LLVMFuzzerInitialize(&argc, &argv);
    int failures = 0;
    std::size_t replayed = 0;
    for (int i = 1; i < argc; ++i) {
        const std::filesystem::path path(argv[i]);
        std::error_code ec;
        if (std::filesystem::is_directory(path, ec)) {
            std::vector<std::filesystem::path> files;
            for (const auto& entry : std::filesystem::directory_iterator(path)) {
                if (entry.is_regular_file()) files.push_back(entry.path());
            }
            std::sort(files.begin(), files.end());
            for (const auto& file : files) failures += Replay(file), ++replayed;
        } else if (std::filesystem::exists(path, ec)) {
            failures += Replay(path);
            ++replayed;
        }
    }
    std::fprintf(stderr, "%zu inputs replayed\n", replayed);
    return failures == 0 && replayed > 0 ? 0 : 1;
}
