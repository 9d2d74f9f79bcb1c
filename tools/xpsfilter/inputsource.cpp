// inputsource.cpp: "-" as standard input, spooled into the scratch folder.
#include "inputsource.h"

#include <fcntl.h>
#include <unistd.h>

#include <cerrno>
#include <cstring>
#include <vector>

#include "commandline.h"
#include "scratchfolder.h"
#include "toolerror.h"

namespace xpsfilter {
namespace {

std::string& Spooled() {
    static std::string path;
    return path;
}

}  // namespace

std::string InputSource::Path(const std::string& argument) {
    if (argument != "-") return argument;
    if (!Spooled().empty()) throw ToolError{kExitUsage, "standard input can be read only once"};
    const std::string path = ScratchFolder() + "/stdin";
    const int fd = ::open(path.c_str(), O_WRONLY | O_CREAT | O_EXCL | O_CLOEXEC, 0600);
    if (fd < 0) throw ToolError{kExitInternal, "cannot spool standard input: " + path};
    Spooled() = path;
    std::vector<char> buffer(std::size_t{1} << 16);
    for (;;) {
        ssize_t got = ::read(STDIN_FILENO, buffer.data(), buffer.size());
        if (got < 0 && errno == EINTR) continue;
        if (got < 0) {
            ::close(fd);
            throw ToolError{kExitInputMissing,
                            std::string("-: cannot read standard input: ") + std::strerror(errno)};
        }
        if (got == 0) break;
        for (ssize_t done = 0; done < got;) {
            ssize_t put = ::write(fd, buffer.data() + done, static_cast<std::size_t>(got - done));
            if (put < 0 && errno == EINTR) continue;
            if (put <= 0) {
                ::close(fd);
                throw ToolError{kExitInternal, std::string("cannot spool standard input: ") +
                                                   std::strerror(errno)};
            }
            done += put;
        }
    }
    ::close(fd);
    return path;
}

std::string InputSource::Readable(std::string message) {
    const std::string& path = Spooled();
    if (path.empty()) return message;
    for (std::size_t at = message.find(path); at != std::string::npos;
         at = message.find(path, at)) {
        message.replace(at, path.size(), "standard input");
    }
    return message;
}

}  // namespace xpsfilter
