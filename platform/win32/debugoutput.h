// debugoutput.h: the debugger output stand-ins. OutputDebugStringA/W send their text to one
// process-wide debug sink; DebugBreak traps only under a debugger. The sink is chosen by the
// environment variable FU_DEBUG_SINK ("stderr", "none" or "file:PATH"; unset means "none") and
// can be replaced in code, which is how tests capture the output.
#pragma once

#include <functional>
#include <mutex>
#include <string>
#include <string_view>
#include <vector>

#include "platform/com/wintypes.h"

// Sends one message to the debug sink. The narrow text is UTF-8 (the ANSI code page); the wide
// text is converted to UTF-8. A null pointer sends nothing.
void OutputDebugStringA(LPCSTR text);
void OutputDebugStringW(LPCWSTR text);

// TRUE when a debugger (a tracer) is attached to the process.
BOOL IsDebuggerPresent();

// Under a debugger: raises SIGTRAP. Without one: writes the line "DebugBreak: no debugger
// attached, continuing" to the debug sink and returns.
void DebugBreak();

namespace platform {

// Receives every message exactly as given to OutputDebugString (UTF-8, no newline added).
// Calls are serialised: a sink never runs on two threads at once. A sink must not call
// SetDebugOutputSink itself.
using DebugOutputSink = std::function<void(std::string_view message)>;

// Replaces the process-wide sink and returns the previous one. An empty function discards all
// output.
DebugOutputSink SetDebugOutputSink(DebugOutputSink sink);

// Builds the sink that FU_DEBUG_SINK describes and installs it (the state at process start).
// "stderr" and "file:PATH" write each message followed by a newline unless it already ends with
// one; a file is opened for appending at each message. An unknown value means "none".
void ResetDebugOutputSink();

// The sink FU_DEBUG_SINK (or the given description) asks for, without installing it.
DebugOutputSink MakeDebugOutputSink(std::string_view description);

// Scope guard that captures the debug output for its lifetime and restores the previous sink.
class DebugOutputCapture {
public:
    DebugOutputCapture();
    ~DebugOutputCapture();
    DebugOutputCapture(const DebugOutputCapture&) = delete;
    DebugOutputCapture& operator=(const DebugOutputCapture&) = delete;

    // The messages received so far, one entry per OutputDebugString call.
    std::vector<std::string> Messages() const;
    // All messages concatenated.
    std::string Text() const;
    // How many messages start with the prefix.
    std::size_t CountStartingWith(std::string_view prefix) const;
    void Clear();

private:
    mutable std::mutex m_lock;
    std::vector<std::string> m_messages;
    DebugOutputSink m_previous;
};

}  // namespace platform
