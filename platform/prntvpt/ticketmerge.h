// ticketmerge.h: the lossless Print Schema merge behind PTMergeAndValidatePrintTicket. The
// delta's in-scope Features, ParameterInits and root Properties replace the base's items of the
// same kind and expanded name or are added; everything else of the base stays as it was, and
// the namespaces the copied items use are declared on the result's root.
#pragma once

#include <optional>
#include <string>
#include <string_view>

#include "platform/prntvpt/prntvpt.h"
#include "platform/prntvpt/ticketxml.h"

namespace platform::prntvpt {

// Whether a setting named `local` (the local part of its name) belongs to `scope`: page scope
// takes names starting with "Page", document scope "Document" or "Page", job scope everything.
bool InScope(std::string_view local, EPrintTicketScope scope);

// Merges `delta`'s items of `scope` into `base`, which becomes the result. Both documents must
// have passed ParsePrintTicket. Fails only for lack of memory.
HRESULT MergeInto(xmlDoc* base, xmlDoc* delta, EPrintTicketScope scope, TicketError& error);

// UTF-8 XML with an XML declaration; white space as the document holds it.
HRESULT SerializeTicket(xmlDoc* doc, std::string& out);

// Parse both, merge, serialise: the whole provider operation on bytes.
HRESULT MergeTicketBytes(std::string_view base, std::optional<std::string_view> delta,
                         EPrintTicketScope scope, std::string& merged, TicketError& error);

}  // namespace platform::prntvpt
