// filtermessages.cpp: one write(2) per message line on standard error.
#include "filtermessages.h"

#include <unistd.h>

#include <cerrno>
#include <mutex>
#include <string>

namespace cupsfilter {
namespace {

std::mutex g_stderr;

void WriteLine(std::string_view prefix, std::string_view text) {
    std::string line;
    line.reserve(prefix.size() + text.size() + 1);
    line.append(prefix);
    // A message is one line: line breaks inside it would start lines without a prefix.
    for (char c : text) line.push_back(c == '\n' || c == '\r' ? ' ' : c);
    line.push_back('\n');
    std::lock_guard<std::mutex> lock(g_stderr);
    const char* data = line.data();
    std::size_t left = line.size();
    while (left > 0) {
        ssize_t written = ::write(STDERR_FILENO, data, left);
        if (written < 0 && errno == EINTR) continue;
        if (written <= 0) return;
        data += written;
        left -= static_cast<std::size_t>(written);
    }
}

}  // namespace

void ReportError(std::string_view text) {
    WriteLine("ERROR: ", text);
}
void ReportWarning(std::string_view text) {
    WriteLine("WARNING: ", text);
}
void ReportInfo(std::string_view text) {
    WriteLine("INFO: ", text);
}
void ReportDebug(std::string_view text) {
    WriteLine("DEBUG: ", text);
}

void ReportPage(std::uint64_t page, int copies) {
    WriteLine("PAGE: ", std::to_string(page) + " " + std::to_string(copies));
}

}  // namespace cupsfilter
