// cupsarguments.cpp: reads the CUPS filter command line.
#include "cupsarguments.h"

#include <charconv>
#include <cstring>

namespace cupsfilter {
namespace {

template <typename Number>
bool ParsePositive(const char* text, Number& value) {
    const char* end = text + std::strlen(text);
    auto [rest, status] = std::from_chars(text, end, value);
    return status == std::errc() && rest == end && value > 0;
}

}  // namespace

std::optional<CupsArguments> ParseCupsArguments(int argc, const char* const* argv,
                                                std::string& error) {
    if (argc != 6 && argc != 7) {
        error = "expected the arguments job-id user title copies options [file]";
        return std::nullopt;
    }
    CupsArguments arguments;
    if (!ParsePositive(argv[1], arguments.jobId)) {
        error = std::string("the job id \"") + argv[1] + "\" is not a positive number";
        return std::nullopt;
    }
    if (!ParsePositive(argv[4], arguments.copies)) {
        error = std::string("the number of copies \"") + argv[4] + "\" is not a positive number";
        return std::nullopt;
    }
    arguments.user = argv[2];
    arguments.title = argv[3];
    arguments.options = argv[5];
    if (argc == 7) arguments.file = argv[6];
    return arguments;
}

}  // namespace cupsfilter
