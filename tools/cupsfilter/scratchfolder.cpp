// scratchfolder.cpp: mkdtemp in $TMPDIR, standard input spooled with read/write.
#include "scratchfolder.h"

#include <fcntl.h>
#include <unistd.h>

#include <cerrno>
#include <cstdlib>
#include <cstring>
#include <stdexcept>
#include <system_error>
#include <vector>

namespace cupsfilter {
namespace {

std::runtime_error SystemError(const std::string& what) {
    return std::runtime_error(what + ": " + std::strerror(errno));
}

bool WriteAll(int fd, const char* data, std::size_t size) {
    while (size > 0) {
        ssize_t written = ::write(fd, data, size);
        if (written < 0 && errno == EINTR) continue;
        if (written <= 0) return false;
        data += written;
        size -= static_cast<std::size_t>(written);
    }
    return true;
}

}  // namespace

ScratchFolder::ScratchFolder() {
    const char* tmp = std::getenv("TMPDIR");
    std::string pattern =
        std::string(tmp != nullptr && *tmp != '\0' ? tmp : "/tmp") + "/filterutilities-xps.XXXXXX";
    if (::mkdtemp(pattern.data()) == nullptr) {
        throw SystemError("cannot make a temporary folder " + pattern);
    }
    m_path = pattern;
}

ScratchFolder::~ScratchFolder() {
    std::error_code ignored;
    std::filesystem::remove_all(m_path, ignored);
}

std::filesystem::path ScratchFolder::SpoolStandardInput(const std::atomic<bool>& stop) {
    std::filesystem::path target = m_path / "job.xps";
    int fd = ::open(target.c_str(), O_WRONLY | O_CREAT | O_EXCL | O_CLOEXEC, 0600);
    if (fd < 0) throw SystemError("cannot create " + target.string());
    std::vector<char> buffer(1 << 16);
    for (;;) {
        if (stop) {
            ::close(fd);
            return {};
        }
        ssize_t got = ::read(STDIN_FILENO, buffer.data(), buffer.size());
        if (got < 0 && errno == EINTR) continue;
        if (got < 0) {
            ::close(fd);
            throw SystemError("cannot read the job from standard input");
        }
        if (got == 0) break;
        if (!WriteAll(fd, buffer.data(), static_cast<std::size_t>(got))) {
            ::close(fd);
            throw SystemError("cannot write " + target.string());
        }
    }
    if (::close(fd) != 0) throw SystemError("cannot write " + target.string());
    return target;
}

}  // namespace cupsfilter
