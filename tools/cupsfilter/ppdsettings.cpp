// ppdsettings.cpp: the PPD is read with libcups' PPD functions, which CUPS deprecates in favour of
// IPP printer attributes but which remain the way a PPD-driven filter reads its printer's PPD.
#include "ppdsettings.h"

#include <cups/ppd.h>

#include <cmath>
#include <memory>
#include <stdexcept>

#pragma GCC diagnostic ignored "-Wdeprecated-declarations"

namespace cupsfilter {
namespace {

std::string Attribute(ppd_file_t* ppd, const char* name) {
    ppd_attr_t* attribute = ppdFindAttr(ppd, name, nullptr);
    return attribute != nullptr && attribute->value != nullptr ? attribute->value : "";
}

std::string InDataFolder(const std::string& path, const std::filesystem::path& dataFolder) {
    if (path.empty() || path.front() == '/') return path;
    return (dataFolder / path).lexically_normal().string();
}

}  // namespace

PpdSettings ReadPpdSettings(const std::string& ppdPath, const std::filesystem::path& dataFolder) {
    std::unique_ptr<ppd_file_t, void (*)(ppd_file_t*)> ppd(ppdOpenFile(ppdPath.c_str()), &ppdClose);
    if (!ppd) {
        int line = 0;
        ppd_status_t status = ppdLastError(&line);
        throw std::runtime_error("cannot read the PPD " + ppdPath + ": " + ppdErrorString(status) +
                                 " (line " + std::to_string(line) + ")");
    }
    PpdSettings settings;
    settings.pipeline = InDataFolder(Attribute(ppd.get(), "FUPipeline"), dataFolder);
    settings.printerName = Attribute(ppd.get(), "FUPrinterName");
    settings.printerRegistry = InDataFolder(Attribute(ppd.get(), "FUPrinterRegistry"), dataFolder);
    for (int i = 0; i < ppd->num_sizes; ++i) {
        const ppd_size_t& size = ppd->sizes[i];
        // Points to micrometres: 25400 / 72.
        settings.pageSizes.push_back({size.name, std::lround(size.width * 25400.0 / 72.0),
                                      std::lround(size.length * 25400.0 / 72.0)});
    }
    return settings;
}

}  // namespace cupsfilter
