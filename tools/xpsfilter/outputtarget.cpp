// outputtarget.cpp: classifying OUT and writing to it without replacing links, devices or FIFOs.
#include "outputtarget.h"

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <cstring>
#include <filesystem>
#include <vector>

#include "commandline.h"
#include "pipelinehost/temporaryfiles.h"
#include "toolerror.h"

namespace xpsfilter {
namespace {

namespace fs = std::filesystem;

constexpr int kMaxLinks = 40;

[[noreturn]] void Refuse(const std::string& name, const std::string& why) {
    throw ToolError{kExitOutput, "cannot write " + name + ": " + why};
}

// Follows a chain of symbolic links to the path it ends at, which need not exist.
std::string FollowLinks(const std::string& name) {
    fs::path path(name);
    for (int hops = 0; hops < kMaxLinks; ++hops) {
        struct stat st {};
        if (::lstat(path.c_str(), &st) != 0 || !S_ISLNK(st.st_mode)) return path.string();
        std::vector<char> target(static_cast<std::size_t>(st.st_size > 0 ? st.st_size : 255) + 1);
        ssize_t length = ::readlink(path.c_str(), target.data(), target.size());
        if (length < 0) Refuse(name, std::string("cannot read the link: ") + std::strerror(errno));
        fs::path next(std::string(target.data(), static_cast<std::size_t>(length)));
        path = next.is_absolute() ? next : path.parent_path() / next;
    }
    Refuse(name, "too many levels of symbolic links");
}

}  // namespace

OutputTarget OutputTarget::Resolve(const std::string& argument) {
    if (argument.empty() || argument == "-") return OutputTarget("-", "", true);
    const std::string path = FollowLinks(argument);
    struct stat st {};
    if (::stat(path.c_str(), &st) == 0) {
        if (S_ISDIR(st.st_mode)) Refuse(argument, "is a folder; give a file name");
        if (S_ISCHR(st.st_mode) || S_ISFIFO(st.st_mode)) return OutputTarget(argument, path, true);
        if (!S_ISREG(st.st_mode))
            Refuse(argument, "is not a regular file, a character device or a FIFO");
        return OutputTarget(argument, path, false);
    }
    if (errno != ENOENT) Refuse(argument, std::strerror(errno));
    if (!path.empty() && path.back() == '/') Refuse(argument, "names a folder; give a file name");
    fs::path folder = fs::path(path).parent_path();
    if (folder.empty()) folder = ".";
    if (::stat(folder.c_str(), &st) != 0 || !S_ISDIR(st.st_mode)) {
        Refuse(argument, "the folder " + folder.string() + " does not exist");
    }
    return OutputTarget(argument, path, false);
}

void OutputTarget::Fail(const std::string& what) const {
    throw ToolError{kExitOutput, "cannot write " + m_name + ": " + what};
}

int OutputTarget::OpenStream() const {
    if (m_path.empty()) return STDOUT_FILENO;
    const int fd = ::open(m_path.c_str(), O_WRONLY | O_CLOEXEC);
    if (fd < 0) Fail(std::strerror(errno));
    return fd;
}

void OutputTarget::WriteAll(int fd, const char* data, std::size_t size) const {
    while (size > 0) {
        ssize_t put = ::write(fd, data, size);
        if (put < 0 && errno == EINTR) continue;
        if (put <= 0) Fail(std::strerror(put < 0 ? errno : EIO));
        data += put;
        size -= static_cast<std::size_t>(put);
    }
}

void OutputTarget::WriteText(std::string_view text) const {
    if (m_stream) {
        const int fd = OpenStream();
        WriteAll(fd, text.data(), text.size());
        if (!text.empty() && text.back() != '\n') WriteAll(fd, "\n", 1);
        if (fd != STDOUT_FILENO) ::close(fd);
        return;
    }
    const fs::path target(m_path);
    const fs::path folder = target.has_parent_path() ? target.parent_path() : fs::path(".");
    std::string temporary = (folder / ("." + target.filename().string() + ".XXXXXX")).string();
    const int fd = pipelinehost::TemporaryFiles::CreateFile(temporary);
    if (fd < 0) Fail(std::string("cannot create a temporary file: ") + std::strerror(errno));
    mode_t mode = 0;
    struct stat existing {};
    if (::stat(m_path.c_str(), &existing) == 0 && S_ISREG(existing.st_mode)) {
        mode = existing.st_mode & 07777;
    } else {
        mode_t mask = ::umask(0);
        ::umask(mask);
        mode = 0666 & ~mask;
    }
    try {
        WriteAll(fd, text.data(), text.size());
        if (::fchmod(fd, mode) != 0 || ::close(fd) != 0) Fail(std::strerror(errno));
    } catch (...) {
        ::close(fd);
        pipelinehost::TemporaryFiles::Remove(temporary);
        throw;
    }
    if (!pipelinehost::TemporaryFiles::RenameOver(temporary, m_path)) {
        const int error = errno;
        pipelinehost::TemporaryFiles::Remove(temporary);
        Fail(std::strerror(error));
    }
}

void OutputTarget::CopyToStream(const std::string& file) const {
    const int in = ::open(file.c_str(), O_RDONLY | O_CLOEXEC);
    if (in < 0) Fail(std::string("cannot read the finished output: ") + std::strerror(errno));
    const int out = OpenStream();
    std::vector<char> buffer(std::size_t{1} << 16);
    try {
        for (;;) {
            ssize_t got = ::read(in, buffer.data(), buffer.size());
            if (got < 0 && errno == EINTR) continue;
            if (got < 0) Fail(std::strerror(errno));
            if (got == 0) break;
            WriteAll(out, buffer.data(), static_cast<std::size_t>(got));
        }
    } catch (...) {
        ::close(in);
        if (out != STDOUT_FILENO) ::close(out);
        throw;
    }
    ::close(in);
    if (out != STDOUT_FILENO && ::close(out) != 0) Fail(std::strerror(errno));
}

}  // namespace xpsfilter
