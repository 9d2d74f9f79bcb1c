// scratchfolder.cpp: the command's private temporary folder.
#include "scratchfolder.h"

#include <cerrno>
#include <cstdlib>
#include <cstring>
#include <mutex>

#include "commandline.h"
#include "pipelinehost/temporaryfiles.h"
#include "toolerror.h"

namespace xpsfilter {

std::string ScratchFolder() {
    static std::mutex mutex;
    static std::string folder;
    std::lock_guard guard(mutex);
    if (!folder.empty()) return folder;
    const char* tmp = std::getenv("TMPDIR");
    std::string pattern =
        std::string(tmp != nullptr && *tmp != '\0' ? tmp : "/tmp") + "/xpsfilter.XXXXXX";
    if (!pipelinehost::TemporaryFiles::CreateFolder(pattern)) {
        throw ToolError{kExitInternal, "cannot create a temporary folder (" + pattern +
                                           "): " + std::strerror(errno)};
    }
    folder = pattern;
    return folder;
}

}  // namespace xpsfilter
