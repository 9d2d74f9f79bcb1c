// debuglog.h: where the library's debug output (OutputDebugString) goes while the command runs.
// With -v/--verbose every line goes to stderr as "xpsfilter: debug: LINE"; otherwise
// FU_DEBUG_SINK decides as in any program. Either way the last non-empty line is kept, so that
// an error message can show why a filter failed without the user turning the debug output on.
#pragma once

#include <string>

namespace xpsfilter {

class DebugLog {
public:
    static void Install(bool verbose);
    // The last non-empty line sent, without its line end; empty when none was.
    static std::string LastLine();
};

}  // namespace xpsfilter
