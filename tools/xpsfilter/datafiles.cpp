// datafiles.cpp: finding the installed sample data.
#include "datafiles.h"

#include <cstdlib>
#include <filesystem>

#include "platform/win32/printers.h"

namespace xpsfilter {
namespace {

namespace fs = std::filesystem;

bool IsFile(const fs::path& path) {
    std::error_code error;
    return fs::is_regular_file(path, error);
}

}  // namespace

std::string DataFiles::Folder() {
    std::error_code error;
    const fs::path program = fs::read_symlink("/proc/self/exe", error);
    if (error) return {};
    const fs::path folder = program.parent_path().parent_path() / "share" / "filterutilities";
    return fs::is_directory(folder, error) ? folder.string() : std::string();
}

std::string DataFiles::Pipeline(const std::string& argument) {
    std::error_code error;
    if (argument.empty() || fs::exists(argument, error) ||
        argument.find('/') != std::string::npos) {
        return argument;
    }
    const std::string folder = Folder();
    if (folder.empty()) return argument;
    for (const std::string& name : {argument, argument + ".xml"}) {
        const fs::path candidate = fs::path(folder) / "pipelines" / name;
        if (IsFile(candidate)) return candidate.string();
    }
    return argument;
}

std::string DataFiles::DefaultTicket() {
    const std::string folder = Folder();
    if (folder.empty()) return {};
    const fs::path ticket = fs::path(folder) / "default_ticket.xml";
    return IsFile(ticket) ? ticket.string() : std::string();
}

void DataFiles::UseSamplePrinters() {
    const char* configured = std::getenv("FU_PRINTER_REGISTRY");
    if (configured != nullptr && *configured != '\0') return;
    std::error_code error;
    if (fs::is_directory(platform::PrinterRegistryDirectory(), error)) return;
    const std::string folder = Folder();
    if (folder.empty()) return;
    const fs::path printers = fs::path(folder) / "printers";
    if (fs::is_directory(printers, error)) ::setenv("FU_PRINTER_REGISTRY", printers.c_str(), 1);
}

}  // namespace xpsfilter
