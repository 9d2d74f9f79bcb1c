// defaultticket.h: the per-user default PrintTicket the host hands to filters when the job
// names no ticket file. Its bytes are samples/default_ticket.xml, embedded at build time.
#pragma once

#include <string_view>

namespace pipelinehost {

std::string_view DefaultPrintTicket();

}  // namespace pipelinehost
