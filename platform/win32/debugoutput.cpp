// debugoutput.cpp: the process-wide debug sink, its configuration from FU_DEBUG_SINK, and the
// debugger detection behind DebugBreak.
#include "platform/win32/debugoutput.h"

#include <unistd.h>

#include <csignal>
#include <cstdio>
#include <cstdlib>
#include <fstream>
#include <memory>

#include "platform/com/unicode.h"

namespace {

struct SinkState {
    std::mutex lock;
    platform::DebugOutputSink sink;
    bool configured = false;
};

SinkState& State() {
    static SinkState* state = new SinkState;  // usable from static destructors of other objects
    return *state;
}

void WriteLine(std::FILE* file, std::string_view message) {
    std::fwrite(message.data(), 1, message.size(), file);
    if (message.empty() || message.back() != '\n') std::fputc('\n', file);
    std::fflush(file);
}

void Send(std::string_view message) {
    SinkState& state = State();
    std::lock_guard guard(state.lock);
    if (!state.configured) {
        const char* description = std::getenv("FU_DEBUG_SINK");
        state.sink = platform::MakeDebugOutputSink(description != nullptr ? description : "none");
        state.configured = true;
    }
    if (state.sink) state.sink(message);
}

}  // namespace

void OutputDebugStringA(LPCSTR text) {
    if (text != nullptr) Send(text);
}

void OutputDebugStringW(LPCWSTR text) {
    if (text != nullptr) Send(platform::WideToUtf8(text));
}

BOOL IsDebuggerPresent() {
    std::ifstream status("/proc/self/status");
    std::string line;
    while (std::getline(status, line)) {
        if (line.rfind("TracerPid:", 0) == 0) {
            return std::strtol(line.c_str() + 10, nullptr, 10) != 0 ? TRUE : FALSE;
        }
    }
    return FALSE;
}

void DebugBreak() {
    if (IsDebuggerPresent()) {
        std::raise(SIGTRAP);
        return;
    }
    Send("DebugBreak: no debugger attached, continuing\n");
}

namespace platform {

DebugOutputSink SetDebugOutputSink(DebugOutputSink sink) {
    SinkState& state = State();
    std::lock_guard guard(state.lock);
    DebugOutputSink previous = std::move(state.sink);
    state.sink = std::move(sink);
    state.configured = true;
    return previous;
}

DebugOutputSink MakeDebugOutputSink(std::string_view description) {
    if (description == "stderr") {
        return [](std::string_view message) { WriteLine(stderr, message); };
    }
    if (description.rfind("file:", 0) == 0 && description.size() > 5) {
        std::string path(description.substr(5));
        return [path](std::string_view message) {
            std::unique_ptr<std::FILE, int (*)(std::FILE*)> file(std::fopen(path.c_str(), "ab"),
                                                                 &std::fclose);
            if (file) WriteLine(file.get(), message);
        };
    }
    return {};
}

void ResetDebugOutputSink() {
    SinkState& state = State();
    std::lock_guard guard(state.lock);
    state.sink = {};
    state.configured = false;
}

DebugOutputCapture::DebugOutputCapture() {
    m_previous = SetDebugOutputSink([this](std::string_view message) {
        std::lock_guard guard(m_lock);
        m_messages.emplace_back(message);
    });
}

DebugOutputCapture::~DebugOutputCapture() {
    SetDebugOutputSink(std::move(m_previous));
}

std::vector<std::string> DebugOutputCapture::Messages() const {
    std::lock_guard guard(m_lock);
    return m_messages;
}

std::string DebugOutputCapture::Text() const {
    std::lock_guard guard(m_lock);
    std::string all;
    for (const auto& message : m_messages) all += message;
    return all;
}

std::size_t DebugOutputCapture::CountStartingWith(std::string_view prefix) const {
    std::lock_guard guard(m_lock);
    std::size_t count = 0;
    for (const auto& message : m_messages) count += message.rfind(prefix, 0) == 0 ? 1 : 0;
    return count;
}

void DebugOutputCapture::Clear() {
    std::lock_guard guard(m_lock);
    m_messages.clear();
}

}  // namespace platform
