// ppdsettings.h: what a printer's PPD tells the filter: the pipeline configuration to run
// (*FUPipeline), the printer name the filters are given (*FUPrinterName) and the printer
// registry that describes that printer (*FUPrinterRegistry). One installed filter serves every
// printer model this way; docs/cups.md describes the keywords.
#pragma once

#include <filesystem>
#include <string>
#include <vector>

#include "mediakeyword.h"

namespace cupsfilter {

struct PpdSettings {
    std::string pipeline;                  // empty: the built-in pass-through pipeline
    std::string printerName;               // empty: the CUPS queue name
    std::string printerRegistry;           // empty: FU_PRINTER_REGISTRY as the environment has it
    std::vector<NamedPageSize> pageSizes;  // the PPD's *PaperDimension sizes
};

// Reads the PPD's keywords. Relative paths are resolved against `dataFolder` (share/filterutilities
// of the installed prefix). Throws std::runtime_error when the PPD cannot be read or parsed.
PpdSettings ReadPpdSettings(const std::string& ppdPath, const std::filesystem::path& dataFolder);

}  // namespace cupsfilter
