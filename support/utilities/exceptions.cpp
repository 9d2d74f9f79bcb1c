// exceptions.cpp: the exception classes, their builders and the two reporting hooks.
#include "support/utilities/exceptions.h"

#include <cxxabi.h>

#include <cstdlib>
#include <mutex>
#include <new>
#include <typeinfo>

#include "platform/win32/debugoutput.h"
#include "support/utilities/zorunutilities.h"

struct ZorunException::Data {
    CXString message;
    CXString file;
    int line = 0;
    CXString function;
    ExecutionContextSnapshot contexts;
    std::string what;
};

namespace {

struct ReportLog {
    std::mutex lock;
    unsigned long count = 0;
    CXString last;
};

ReportLog& Reports() {
    static ReportLog* log = new ReportLog;
    return *log;
}

// The readable name of an exception's dynamic type ("std::bad_alloc").
CXString TypeName(const std::exception& exception) {
    const char* mangled = typeid(exception).name();
    int status = 0;
    std::unique_ptr<char, void (*)(void*)> readable(
        abi::__cxa_demangle(mangled, nullptr, nullptr, &status), &std::free);
    return CXString(status == 0 && readable ? readable.get() : mangled);
}

CXString Location(const CXString& function, const CXString& file, int line) {
    CXString text;
    if (!function.IsEmpty()) text += L" [" + function + L"]";
    if (!file.IsEmpty()) text += L" " + file + L"(" + CXString(std::to_wstring(line)) + L")";
    return text;
}

}  // namespace

ZorunException::ZorunException(const CXString& message, const CXString& file, int line,
                               const CXString& function, const ExecutionContextStack* contexts) {
    auto data = std::make_shared<Data>();
    data->message = message;
    data->file = file;
    data->line = line;
    data->function = function;
    if (contexts != nullptr) data->contexts = contexts->Snapshot();
    data->what = message.ToUtf8();
    m_data = std::move(data);
}

ZorunException::~ZorunException() = default;

const char* ZorunException::what() const noexcept {
    return m_data->what.c_str();
}
const wchar_t* ZorunException::GetExceptionClassName() const noexcept {
    return L"ZorunException";
}
const CXString& ZorunException::GetMessage() const noexcept {
    return m_data->message;
}
const CXString& ZorunException::GetFile() const noexcept {
    return m_data->file;
}
int ZorunException::GetLine() const noexcept {
    return m_data->line;
}
const CXString& ZorunException::GetFunction() const noexcept {
    return m_data->function;
}
const ExecutionContextSnapshot& ZorunException::GetExecutionContexts() const noexcept {
    return m_data->contexts;
}

CXString ZorunException::Describe() const {
    return CXString(GetExceptionClassName()) + L": " + GetMessage() +
           Location(GetFunction(), GetFile(), GetLine());
}

bool ZorunException::AllowForExceptionDebug(const CXString& exceptionClass, const CXString& text,
                                            const CXString& file, int line,
                                            const CXString& function, bool,
                                            const ExecutionContextStack*,
                                            const DebugMessageCategories& categories) {
    DebugMessageManager& manager = GetDebugMessageManager();
    DebugMessageCategories matched;
    if (!manager.BreaksOnExceptions() ||
        !manager.AllowsMessageWithTheseCategories(categories, matched)) {
        return false;
    }
    CXString line1 =
        L"*Debug break* " + exceptionClass + L": " + text + Location(function, file, line) + L"\n";
    OutputDebugStringW(line1);
    return true;
}

void ZorunException::DisplayExceptionMessage(bool, bool continuing, const std::exception* exception,
                                             const CXString& file, int line,
                                             const CXString& function,
                                             const ExecutionContextStack* contexts, HWND,
                                             const CXString& title, const CXString& detail) {
    CXString report = L"*Exception* ";
    ExecutionContextSnapshot snapshot;
    if (const auto* zorun = dynamic_cast<const ZorunException*>(exception)) {
        report += zorun->Describe();
        snapshot = zorun->GetExecutionContexts();
    } else if (exception != nullptr) {
        report += TypeName(*exception) + L": " + CXString(exception->what());
    } else {
        report += L"unknown exception";
    }
    if (snapshot.empty() && contexts != nullptr) snapshot = contexts->Snapshot();
    report += L"; caught" + Location(function, file, line);
    if (continuing) report += L"; continuing";
    if (!title.IsEmpty()) report += L"; " + title;
    if (!detail.IsEmpty()) report += L": " + detail;
    report += L"\n";
    for (const auto& context : snapshot) report += L"  while " + context->Describe() + L"\n";

    ReportLog& log = Reports();
    {
        std::lock_guard guard(log.lock);
        ++log.count;
        log.last = report;
    }
    OutputDebugStringW(report);
}

unsigned long ZorunException::GetDisplayedExceptionCount() {
    ReportLog& log = Reports();
    std::lock_guard guard(log.lock);
    return log.count;
}

CXString ZorunException::GetLastExceptionReport() {
    ReportLog& log = Reports();
    std::lock_guard guard(log.lock);
    return log.last;
}

ZorunComException::ZorunComException(const CXString& message, const CXString& file, int line,
                                     const CXString& function,
                                     const ExecutionContextStack* contexts, HRESULT hr)
    : ZorunException(message, file, line, function, contexts), m_hr(hr) {}

const wchar_t* ZorunComException::GetExceptionClassName() const noexcept {
    return L"ZorunComException";
}

CXString ZorunComException::Describe() const {
    return CXString(GetExceptionClassName()) + L": " + GetMessage() +
           ZorunUtilities::SafeFormatString(L" (HRESULT 0x%08X)", static_cast<unsigned>(m_hr)) +
           Location(GetFunction(), GetFile(), GetLine());
}

const wchar_t* ExceptionInvalidArgumentNullPointer::GetExceptionClassName() const noexcept {
    return L"ExceptionInvalidArgumentNullPointer";
}

const wchar_t* ExceptionDelayLoadDllLoadFailure::GetExceptionClassName() const noexcept {
    return L"ExceptionDelayLoadDllLoadFailure";
}

const wchar_t* ExceptionUserFailure::GetExceptionClassName() const noexcept {
    return L"ExceptionUserFailure";
}

ZorunComException GetZorunComException(const CXString& message, const CXString& file, int line,
                                       const CXString& function,
                                       const ExecutionContextStack* contexts, HRESULT hr) {
    return ZorunComException(message, file, line, function, contexts, hr);
}

ExceptionInvalidArgumentNullPointer GetExceptionInvalidArgumentNullPointer(
    const CXString& message, const CXString& file, int line, const CXString& function,
    const ExecutionContextStack* contexts) {
    return ExceptionInvalidArgumentNullPointer(message, file, line, function, contexts);
}

ExceptionDelayLoadDllLoadFailure GetExceptionDelayLoadDllLoadFailure(
    const CXString& message, const CXString& file, int line, const CXString& function,
    const ExecutionContextStack* contexts) {
    return ExceptionDelayLoadDllLoadFailure(message, file, line, function, contexts);
}
