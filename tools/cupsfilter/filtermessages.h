// filtermessages.h: the messages a CUPS filter gives the scheduler on standard error, one line
// each with its prefix (ERROR:, WARNING:, INFO:, DEBUG:, PAGE:). Lines are written whole, so
// messages from several threads never interleave.
#pragma once

#include <cstdint>
#include <string_view>

namespace cupsfilter {

void ReportError(std::string_view text);
void ReportWarning(std::string_view text);
void ReportInfo(std::string_view text);
void ReportDebug(std::string_view text);
// "PAGE: <page> <copies>": the page went to the printer, to be printed that many times.
void ReportPage(std::uint64_t page, int copies);

}  // namespace cupsfilter
