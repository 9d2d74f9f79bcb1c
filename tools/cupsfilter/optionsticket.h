// optionsticket.h: the user's CUPS print options as a delta PrintTicket: media/PageSize,
// sides/Duplex, orientation-requested/landscape, copies, collate/multiple-document-handling,
// print-color-mode/ColorModel, print-quality/Resolution, number-up and page-ranges become Print
// Schema features and parameters (docs/cups.md has the table). The delta is merged into the
// job's ticket at job scope by the PrintTicket provider.
#pragma once

#include <string>
#include <vector>

#include "mediakeyword.h"

namespace cupsfilter {

struct OptionsTicket {
    // A PrintTicket holding the settings, empty when no option maps to one.
    std::string delta;
    // "media=A5 -> psk:PageMediaSize psk:ISOA5", one per option taken.
    std::vector<std::string> taken;
    // Options without a PrintTicket setting ("job-uuid=..."), left alone.
    std::vector<std::string> ignored;
    // Options whose value cannot be used ("number-up=5: ..."), left alone as well.
    std::vector<std::string> refused;
};

// `options` is the options argument of the filter (name=value pairs as cupsParseOptions reads
// them); `copies` the copies argument, taken as JobCopiesAllDocuments when above 1; `ppdSizes`
// the page sizes of the printer's PPD, for media names only the PPD knows.
OptionsTicket BuildOptionsTicket(const std::string& options, int copies,
                                 const std::vector<NamedPageSize>& ppdSizes = {});

}  // namespace cupsfilter
