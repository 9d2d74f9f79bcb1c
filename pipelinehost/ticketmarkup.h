// ticketmarkup.h: the check a PrintTicket part of the input passes before any filter sees it.
// Filters parse tickets with namespace-aware parsers that reject what is not namespace-well-
// formed; a ticket they would reject halfway through a job is reported up front instead, naming
// the part, so that it is never passed on or rewritten silently.
#pragma once

#include <string>

namespace pipelinehost {

// Throws JobError (a bad package) when `markup` is not well-formed XML with namespaces: an
// undeclared prefix, a malformed declaration, a DTD (which a ticket never needs and which may
// name files or hosts). `partName` is named in the message.
void CheckTicketMarkup(const std::string& markup, const std::string& partName);

}  // namespace pipelinehost
