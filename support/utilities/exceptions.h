// exceptions.h: the utility library's exceptions. ZorunException carries a message, the source
// file, line and function of the throw site and a snapshot of the thread's execution contexts;
// ZorunComException adds an HRESULT. The Get... builders make (do not throw) the objects.
//
// Reporting: AllowForExceptionDebug says whether to break into the debugger at a throw (only
// when the debug-message manager runs with its "break" switch and allows the categories);
// DisplayExceptionMessage never shows a dialog: it writes one report through the debug sink and
// counts it (GetDisplayedExceptionCount, GetLastExceptionReport) so that callers and tests can
// see it happened.
#pragma once

#include <exception>
#include <memory>
#include <string>

#include "platform/com/wintypes.h"
#include "support/utilities/cxstring.h"
#include "support/utilities/debugmessages.h"
#include "support/utilities/executioncontext.h"

class ZorunException : public std::exception {
public:
    ZorunException(const CXString& message, const CXString& file, int line,
                   const CXString& function, const ExecutionContextStack* contexts);
    ~ZorunException() override;

    // The message as UTF-8.
    const char* what() const noexcept override;
    // The class name, as reports show it ("ZorunException", "ZorunComException", ...).
    virtual const wchar_t* GetExceptionClassName() const noexcept;
    const CXString& GetMessage() const noexcept;
    const CXString& GetFile() const noexcept;
    int GetLine() const noexcept;
    const CXString& GetFunction() const noexcept;
    const ExecutionContextSnapshot& GetExecutionContexts() const noexcept;
    // Class, message, HRESULT where there is one, function, file and line, on one line.
    virtual CXString Describe() const;

    // True means: break into the debugger now. The flag says whether the exception is being
    // thrown (true) or was caught.
    static bool AllowForExceptionDebug(const CXString& exceptionClass, const CXString& text,
                                       const CXString& file, int line, const CXString& function,
                                       bool throwing, const ExecutionContextStack* contexts,
                                       const DebugMessageCategories& categories);

    // Reports a caught exception (null for one of unknown type) through the debug sink, as one
    // message that starts with "*Exception* ". `showDialog` is accepted and ignored (there are no
    // dialogs); `continuing` says the caller goes on with its next unit of work and is stated in
    // the report. `title` and `detail` are added when not empty.
    static void DisplayExceptionMessage(bool showDialog, bool continuing,
                                        const std::exception* exception, const CXString& file,
                                        int line, const CXString& function,
                                        const ExecutionContextStack* contexts, HWND owner,
                                        const CXString& title, const CXString& detail);
    // Reports made by DisplayExceptionMessage in this process, and the text of the last one.
    static unsigned long GetDisplayedExceptionCount();
    static CXString GetLastExceptionReport();

private:
    struct Data;
    std::shared_ptr<const Data> m_data;  // shared: copying an exception never throws
};

class ZorunComException : public ZorunException {
public:
    ZorunComException(const CXString& message, const CXString& file, int line,
                      const CXString& function, const ExecutionContextStack* contexts, HRESULT hr);
    const wchar_t* GetExceptionClassName() const noexcept override;
    HRESULT GetHresult() const noexcept { return m_hr; }
    CXString Describe() const override;

private:
    HRESULT m_hr;
};

class ExceptionInvalidArgumentNullPointer : public ZorunException {
public:
    using ZorunException::ZorunException;
    const wchar_t* GetExceptionClassName() const noexcept override;
};

class ExceptionDelayLoadDllLoadFailure : public ZorunException {
public:
    using ZorunException::ZorunException;
    const wchar_t* GetExceptionClassName() const noexcept override;
};

// Raised by User when the user's directories cannot be determined.
class ExceptionUserFailure : public ZorunException {
public:
    using ZorunException::ZorunException;
    const wchar_t* GetExceptionClassName() const noexcept override;
};

ZorunComException GetZorunComException(const CXString& message, const CXString& file, int line,
                                       const CXString& function,
                                       const ExecutionContextStack* contexts, HRESULT hr);
ExceptionInvalidArgumentNullPointer GetExceptionInvalidArgumentNullPointer(
    const CXString& message, const CXString& file, int line, const CXString& function,
    const ExecutionContextStack* contexts);
ExceptionDelayLoadDllLoadFailure GetExceptionDelayLoadDllLoadFailure(
    const CXString& message, const CXString& file, int line, const CXString& function,
    const ExecutionContextStack* contexts);
