// scopedenvironment.h: sets (or removes) an environment variable for the life of an object and
// restores the old value afterwards, for tests that point the code at a registry, a library
// folder or a configuration folder of their own.
#pragma once

#include <cstdlib>
#include <optional>
#include <string>

namespace testsupport {

class ScopedEnvironment {
public:
    // A value of nullopt removes the variable.
    ScopedEnvironment(const char* name, const std::optional<std::string>& value) : m_name(name) {
        if (const char* old = std::getenv(name)) m_old = old;
        if (value) {
            setenv(name, value->c_str(), 1);
        } else {
            unsetenv(name);
        }
    }
    ~ScopedEnvironment() {
        if (m_old) {
            setenv(m_name, m_old->c_str(), 1);
        } else {
            unsetenv(m_name);
        }
    }
    ScopedEnvironment(const ScopedEnvironment&) = delete;
    ScopedEnvironment& operator=(const ScopedEnvironment&) = delete;

private:
    const char* m_name;
    std::optional<std::string> m_old;
};

}  // namespace testsupport
