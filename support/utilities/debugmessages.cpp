// debugmessages.cpp: the debug-message manager and its configuration from the environment.
#include "support/utilities/debugmessages.h"

#include <cerrno>
#include <cstdlib>
#include <sstream>
#include <string>

#include "platform/win32/debugoutput.h"

namespace {

bool ParseCategories(const char* text, std::uint64_t& mask) {
    std::string value = text;
    if (value == "all") {
        mask = ~std::uint64_t{0};
        return true;
    }
    if (value.empty()) {
        mask = 0;
        return true;
    }
    errno = 0;
    char* end = nullptr;
    unsigned long long parsed = std::strtoull(value.c_str(), &end, 0);
    if (errno != 0 || end == value.c_str() || *end != '\0' || value[0] == '-') return false;
    mask = parsed;
    return true;
}

bool ParseSwitches(const char* text, DebugMessageManager::Configuration& configuration) {
    configuration.exceptionMessages = false;
    configuration.functionNames = false;
    configuration.fileNames = false;
    configuration.performanceMeasurement = false;
    configuration.breakOnExceptions = false;
    std::stringstream list(text);
    std::string word;
    while (std::getline(list, word, ',')) {
        while (!word.empty() && word.front() == ' ') word.erase(0, 1);
        while (!word.empty() && word.back() == ' ') word.pop_back();
        if (word == "exceptions") {
            configuration.exceptionMessages = true;
        } else if (word == "functions") {
            configuration.functionNames = true;
        } else if (word == "files") {
            configuration.fileNames = true;
        } else if (word == "performance") {
            configuration.performanceMeasurement = true;
        } else if (word == "break") {
            configuration.breakOnExceptions = true;
        } else if (word == "all") {
            configuration.exceptionMessages = true;
            configuration.functionNames = true;
            configuration.fileNames = true;
            configuration.performanceMeasurement = true;
        } else if (word != "none" && !word.empty()) {
            return false;
        }
    }
    return true;
}

}  // namespace

ZorunDebugMessage::ZorunDebugMessage(const CXString& text, const CXString& file, unsigned line,
                                     const CXString& function)
    : m_text(text), m_file(file), m_line(line), m_function(function) {}

CXString ZorunDebugMessage::Render() const {
    CXString line = m_text;
    if (!m_function.IsEmpty()) line += L" [" + m_function + L"]";
    if (!m_file.IsEmpty()) {
        line += L" " + m_file + L"(" + CXString(std::to_wstring(m_line)) + L")";
    }
    line += L"\n";
    return line;
}

DebugMessageManager::DebugMessageManager() {
    LoadFromEnvironment();
}

void DebugMessageManager::LoadFromEnvironment() {
    Configuration configuration;
    const char* categories = std::getenv("FU_DEBUG_CATEGORIES");
    const char* switches = std::getenv("FU_DEBUG_SWITCHES");
    std::uint64_t mask = 0;
    bool valid = ParseCategories(categories != nullptr ? categories : "", mask);
    if (valid && switches != nullptr) valid = ParseSwitches(switches, configuration);
    if (valid) {
        configuration.categories = mask;
        configuration.state = mask != 0 ? kStateRunning : kStateStopped;
    } else {
        configuration.state = kStateStopped;
        configuration.error = ERROR_INVALID_DATA;
        OutputDebugStringA(
            "DebugMessageManager: FU_DEBUG_CATEGORIES or FU_DEBUG_SWITCHES does not parse; "
            "debug messages are off\n");
    }
    Configure(configuration);
}

void DebugMessageManager::Configure(const Configuration& configuration) {
    std::lock_guard guard(m_lock);
    m_configuration = configuration;
}

DebugMessageManager::Configuration DebugMessageManager::GetConfiguration() const {
    std::lock_guard guard(m_lock);
    return m_configuration;
}

DWORD DebugMessageManager::GetState() const {
    return GetConfiguration().state;
}
DWORD DebugMessageManager::GetError() const {
    return GetConfiguration().error;
}

bool DebugMessageManager::IsRunning() const {
    Configuration c = GetConfiguration();
    return c.state == kStateRunning && c.error == 0;
}

bool DebugMessageManager::ShowsExceptionMessages() const {
    return GetConfiguration().exceptionMessages;
}
bool DebugMessageManager::ShowsFunctionNames() const {
    return GetConfiguration().functionNames;
}
bool DebugMessageManager::ShowsFileNames() const {
    return GetConfiguration().fileNames;
}
bool DebugMessageManager::BreaksOnExceptions() const {
    return GetConfiguration().breakOnExceptions;
}

bool DebugMessageManager::IsPerformanceMeasurementEnabledByConfiguration() const {
    return IsRunning() && GetConfiguration().performanceMeasurement;
}

bool DebugMessageManager::AllowsMessageWithTheseCategories(const DebugMessageCategories& asked,
                                                           DebugMessageCategories& matched) const {
    Configuration c = GetConfiguration();
    matched = asked & c.categories;
    return c.state == kStateRunning && c.error == 0 && !matched.IsEmpty();
}

void DebugMessageManager::AddMessage(bool always, const DebugMessageCategories&,
                                     const DebugMessageCategories&,
                                     const ZorunDebugMessage& message) {
    if (!always && !IsRunning()) return;
    CXString line = message.Render();
    {
        std::lock_guard guard(m_lock);
        ++m_messageCount;
    }
    OutputDebugStringW(line);
}

unsigned long DebugMessageManager::GetMessageCount() const {
    std::lock_guard guard(m_lock);
    return m_messageCount;
}

DebugMessageManager& GetDebugMessageManager() {
    static DebugMessageManager* manager = new DebugMessageManager;  // usable during shutdown
    return *manager;
}
