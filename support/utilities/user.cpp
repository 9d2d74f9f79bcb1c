// user.cpp: XDG configuration directory lookup.
#include "support/utilities/user.h"

#include <pwd.h>
#include <unistd.h>

#include <cstdlib>
#include <string>
#include <vector>

#include "support/utilities/exceptions.h"

namespace {

std::string HomeDirectory() {
    const char* home = std::getenv("HOME");
    if (home != nullptr && home[0] == '/') return home;
    long size = sysconf(_SC_GETPW_R_SIZE_MAX);
    std::vector<char> buffer(size > 0 ? static_cast<std::size_t>(size) : 16384);
    passwd entry{};
    passwd* result = nullptr;
    if (getpwuid_r(getuid(), &entry, buffer.data(), buffer.size(), &result) == 0 &&
        result != nullptr && result->pw_dir != nullptr && result->pw_dir[0] == '/') {
        return result->pw_dir;
    }
    return {};
}

}  // namespace

User::User(CXString componentName) : m_componentName(std::move(componentName)) {}

User::~User() = default;

CXString User::GetUserApplicationDirectory() {
    std::string base;
    const char* config = std::getenv("XDG_CONFIG_HOME");
    if (config != nullptr && config[0] == '/') {
        base = config;
    } else {
        std::string home = HomeDirectory();
        if (home.empty()) {
            throw ExceptionUserFailure(L"no home directory for the calling user", L"user.cpp",
                                       __LINE__, L"User::GetUserApplicationDirectory",
                                       &UtilitiesDllPerThreadStorage::GetExecutionContextStack());
        }
        base = home + "/.config";
    }
    while (base.size() > 1 && base.back() == '/') base.pop_back();
    CXString directory(base.c_str());
    if (!m_componentName.IsEmpty()) directory += L"/" + m_componentName;
    return directory;
}
