// cupsarguments.h: the command line CUPS gives every filter: job-id user title copies options
// [file]. Without a file the job comes on standard input.
#pragma once

#include <optional>
#include <string>

namespace cupsfilter {

struct CupsArguments {
    unsigned long jobId = 0;
    std::string user;
    std::string title;
    int copies = 1;
    std::string options;
    std::optional<std::string> file;
};

// The arguments after the program name; std::nullopt with `error` saying what is wrong (a wrong
// number of arguments, a job id or copy count that is not a positive number).
std::optional<CupsArguments> ParseCupsArguments(int argc, const char* const* argv,
                                                std::string& error);

}  // namespace cupsfilter
