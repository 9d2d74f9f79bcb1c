// temporaryfiles.cpp: the process-wide list of temporary files and folders.
#include "pipelinehost/temporaryfiles.h"

#include <stdlib.h>
#include <unistd.h>

#include <cerrno>
#include <cstdio>
#include <filesystem>
#include <mutex>
#include <set>

namespace pipelinehost {
namespace {

struct Registry {
    std::mutex mutex;
    std::set<std::string> files;
    std::set<std::string> folders;
    bool closed = false;
};

Registry& State() {
    static Registry* registry = new Registry;  // usable until the very end of the process
    return *registry;
}

void Erase(const std::string& path, bool folder) {
    std::error_code ignored;
    if (folder) {
        std::filesystem::remove_all(path, ignored);
    } else {
        ::unlink(path.c_str());
    }
}

}  // namespace

int TemporaryFiles::CreateFile(std::string& pattern) {
    Registry& registry = State();
    std::lock_guard guard(registry.mutex);
    if (registry.closed) {
        errno = EINTR;
        return -1;
    }
    int fd = ::mkstemp(pattern.data());
    if (fd >= 0) registry.files.insert(pattern);
    return fd;
}

bool TemporaryFiles::CreateFolder(std::string& pattern) {
    Registry& registry = State();
    std::lock_guard guard(registry.mutex);
    if (registry.closed) {
        errno = EINTR;
        return false;
    }
    if (::mkdtemp(pattern.data()) == nullptr) return false;
    registry.folders.insert(pattern);
    return true;
}

bool TemporaryFiles::RenameOver(const std::string& path, const std::string& target) {
    Registry& registry = State();
    std::lock_guard guard(registry.mutex);
    if (registry.closed) {
        errno = EINTR;
        return false;
    }
    if (std::rename(path.c_str(), target.c_str()) != 0) return false;
    registry.files.erase(path);
    return true;
}

void TemporaryFiles::Remove(const std::string& path) {
    Registry& registry = State();
    std::lock_guard guard(registry.mutex);
    const bool folder = registry.folders.erase(path) > 0;
    if (registry.files.erase(path) > 0 || folder) Erase(path, folder);
}

void TemporaryFiles::RemoveAll() {
    Registry& registry = State();
    std::lock_guard guard(registry.mutex);
    registry.closed = true;
    for (const std::string& path : registry.files) Erase(path, false);
    for (const std::string& path : registry.folders) Erase(path, true);
    registry.files.clear();
    registry.folders.clear();
}

}  // namespace pipelinehost
