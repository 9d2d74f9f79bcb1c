// ticketfile.h: the check `run --ticket FILE` makes before the job starts, whatever the
// pipeline: the file must be a well-formed PrintTicket (a PrintCapabilities document, or any
// other XML, is refused). The filters would otherwise meet the wrong document at different
// points, or not at all with a pass-through.
#pragma once

#include <string>

namespace xpsfilter {

// Throws ToolError(kExitBadTicket) naming the file and what is wrong with it.
void CheckPrintTicketFile(const std::string& path);

}  // namespace xpsfilter
