// debugmessages.h: the process-wide debug-message manager: which message categories are wanted,
// the switches that shape exception messages, and the sink messages go to (the platform's
// OutputDebugString sink).
//
// Configuration, read from the environment when the manager is first used (and again by
// LoadFromEnvironment):
//   FU_DEBUG_CATEGORIES  the enabled category mask: a number (decimal, or hexadecimal with 0x)
//                        or "all". Unset, empty or 0: the manager is stopped (state word 0) and
//                        logs nothing. Non-zero: it is running (state word 1).
//   FU_DEBUG_SWITCHES    comma-separated switches: "exceptions" (log exception messages),
//                        "functions" (show function names), "files" (show file names and lines),
//                        "performance" (performance-measurement messages), "break" (break into an
//                        attached debugger when an exception is thrown), "all" (every switch but
//                        "break"), "none". Unset: "exceptions,functions,files".
// A value that does not parse leaves the manager stopped with the error word set to
// ERROR_INVALID_DATA (13), and says so once through the debug sink.
#pragma once

#include <cstdint>
#include <mutex>

#include "platform/com/wintypes.h"
#include "support/utilities/cxstring.h"

// A 64-bit mask of debug-message categories. Masks combine with bitwise OR.
class DebugMessageCategories {
public:
    DebugMessageCategories(std::uint64_t mask = 0) : m_mask(mask) {}  // NOLINT: implicit
    std::uint64_t GetMask() const { return m_mask; }
    bool IsEmpty() const { return m_mask == 0; }
    DebugMessageCategories& operator|=(const DebugMessageCategories& other) {
        m_mask |= other.m_mask;
        return *this;
    }
    friend DebugMessageCategories operator|(DebugMessageCategories a, DebugMessageCategories b) {
        return a |= b;
    }
    friend DebugMessageCategories operator&(DebugMessageCategories a, DebugMessageCategories b) {
        return DebugMessageCategories(a.m_mask & b.m_mask);
    }
    friend bool operator==(DebugMessageCategories a, DebugMessageCategories b) {
        return a.m_mask == b.m_mask;
    }

private:
    std::uint64_t m_mask;
};

// One message: its text and where it comes from.
class ZorunDebugMessage {
public:
    ZorunDebugMessage(const CXString& text, const CXString& file, unsigned line,
                      const CXString& function);
    const CXString& GetText() const { return m_text; }
    const CXString& GetFile() const { return m_file; }
    unsigned GetLine() const { return m_line; }
    const CXString& GetFunction() const { return m_function; }
    // The line written to the sink: the text, then " [function]" when there is a function name,
    // then " file(line)" when there is a file name, then a newline.
    CXString Render() const;

private:
    CXString m_text;
    CXString m_file;
    unsigned m_line;
    CXString m_function;
};

class DebugMessageManager {
public:
    static constexpr DWORD kStateStopped = 0;
    static constexpr DWORD kStateRunning = 1;

    struct Configuration {
        DWORD state = kStateStopped;
        DWORD error = 0;
        DebugMessageCategories categories;
        bool exceptionMessages = true;
        bool functionNames = true;
        bool fileNames = true;
        bool performanceMeasurement = false;
        bool breakOnExceptions = false;
    };

    DebugMessageManager();  // configured from the environment
    DebugMessageManager(const DebugMessageManager&) = delete;
    DebugMessageManager& operator=(const DebugMessageManager&) = delete;

    void LoadFromEnvironment();
    void Configure(const Configuration& configuration);
    Configuration GetConfiguration() const;

    DWORD GetState() const;
    DWORD GetError() const;
    // State word 1 and error word 0.
    bool IsRunning() const;
    bool ShowsExceptionMessages() const;
    bool ShowsFunctionNames() const;
    bool ShowsFileNames() const;
    bool BreaksOnExceptions() const;
    // Running with the "performance" switch on.
    bool IsPerformanceMeasurementEnabledByConfiguration() const;

    // matched := asked & enabled categories; true when that is not empty and the manager runs.
    bool AllowsMessageWithTheseCategories(const DebugMessageCategories& asked,
                                          DebugMessageCategories& matched) const;

    // Writes the message to the debug sink. With `always` false it is written only while the
    // manager runs; with true, in any state. The categories are those the caller asked for and
    // was granted; they do not filter here (AllowsMessageWithTheseCategories does that).
    void AddMessage(bool always, const DebugMessageCategories& asked,
                    const DebugMessageCategories& matched, const ZorunDebugMessage& message);

    // Messages written so far.
    unsigned long GetMessageCount() const;

private:
    mutable std::mutex m_lock;
    Configuration m_configuration;
    unsigned long m_messageCount = 0;
};

// The process-wide manager.
DebugMessageManager& GetDebugMessageManager();
