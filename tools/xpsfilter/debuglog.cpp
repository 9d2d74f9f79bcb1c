// debuglog.cpp: the command's debug sink.
#include "debuglog.h"

#include <cstdio>
#include <cstdlib>
#include <mutex>

#include "platform/win32/debugoutput.h"

namespace xpsfilter {
namespace {

std::mutex g_mutex;
std::string g_lastLine;

void Remember(std::string_view message) {
    while (!message.empty() && (message.back() == '\n' || message.back() == '\r')) {
        message.remove_suffix(1);
    }
    const std::size_t start = message.find_last_of('\n');
    if (start != std::string_view::npos) message.remove_prefix(start + 1);
    if (message.find_first_not_of(" \t") == std::string_view::npos) return;
    std::lock_guard guard(g_mutex);
    g_lastLine.assign(message);
}

// -v: each line on stderr as a message of the command, "xpsfilter: debug: <line>".
void ToStderr(std::string_view message) {
    std::string text;
    while (!message.empty()) {
        const std::size_t end = message.find('\n');
        const std::string_view line = message.substr(0, end);
        text.append("xpsfilter: debug: ").append(line).append("\n");
        message.remove_prefix(end == std::string_view::npos ? message.size() : end + 1);
    }
    std::fwrite(text.data(), 1, text.size(), stderr);
    std::fflush(stderr);
}

}  // namespace

void DebugLog::Install(bool verbose) {
    const char* configured = std::getenv("FU_DEBUG_SINK");
    platform::DebugOutputSink next =
        verbose ? platform::DebugOutputSink(&ToStderr)
                : platform::MakeDebugOutputSink(configured != nullptr ? configured : "none");
    platform::SetDebugOutputSink([next](std::string_view message) {
        Remember(message);
        if (next) next(message);
    });
}

std::string DebugLog::LastLine() {
    std::lock_guard guard(g_mutex);
    return g_lastLine;
}

}  // namespace xpsfilter
