// errorframe.cpp: the throw sequence and its two variants.
#include "support/errorframe/errorframe.h"

#include <string>

#include "platform/win32/debugoutput.h"
#include "support/utilities/zorunutilities.h"

DebugMessageCategories& ModuleDebugMessageCategories() {
    static DebugMessageCategories categories;
    return categories;
}

namespace {

enum class Kind { Com, NullPointer, DelayLoad };

const wchar_t* ClassName(Kind kind) {
    switch (kind) {
        case Kind::Com:
            return L"ZorunComException";
        case Kind::NullPointer:
            return L"ExceptionInvalidArgumentNullPointer";
        case Kind::DelayLoad:
            return L"ExceptionDelayLoadDllLoadFailure";
    }
    return L"ZorunException";
}

const char* ThrowingFormat(Kind kind) {
    switch (kind) {
        case Kind::Com:
            return "*Throwing* ZorunComException: %s";
        case Kind::NullPointer:
            return "*Throwing* ExceptionInvalidArgumentNullPointer: %s";
        case Kind::DelayLoad:
            return "*Throwing* ExceptionDelayLoadDllLoadFailure: %s";
    }
    return "*Throwing* ZorunException: %s";
}

// Step 1 of the sequence: the message; a formatter failure gives the fixed text instead.
CXString FormatMessageText(const char* format, va_list args) {
    CXString message;
    try {
        message = ZorunUtilities::SafeFormatStringV(format, args);
        if (ZorunUtilities::LastFormatFailed()) message = kUnformattableMessageText;
    } catch (...) {
        message = kUnformattableMessageText;
    }
    return message;
}

// Steps 2 to 4.
[[noreturn]] void ThrowSequence(Kind kind, HRESULT hr, const wchar_t* file, int line,
                                const wchar_t* function, const CXString& message) {
    const CXString fileText(file);
    const CXString functionText(function);
    const std::string messageUtf8 = message.ToUtf8();
    ExecutionContextStack& contexts = UtilitiesDllPerThreadStorage::GetExecutionContextStack();

    // 2. The debug sink, when the manager runs and wants exception messages of these categories.
    // Logging is advisory: nothing it does can stop the throw.
    try {
        DebugMessageManager& manager = GetDebugMessageManager();
        if (manager.GetState() == DebugMessageManager::kStateRunning && manager.GetError() == 0 &&
            manager.ShowsExceptionMessages()) {
            const DebugMessageCategories asked =
                DebugMessageCategories(kThrowDebugMessageCategory) | ModuleDebugMessageCategories();
            DebugMessageCategories matched;
            if (manager.AllowsMessageWithTheseCategories(asked, matched)) {
                CXString text =
                    ZorunUtilities::formatString(ThrowingFormat(kind), messageUtf8.c_str());
                CXString functionField = manager.ShowsFunctionNames() ? functionText : CXString();
                CXString fileField = manager.ShowsFileNames() ? fileText : CXString();
                manager.AddMessage(
                    false, asked, matched,
                    ZorunDebugMessage(text, fileField, static_cast<unsigned>(line), functionField));
            }
        }
    } catch (...) {
    }

    // 3. The debugger hook.
    try {
        const DebugMessageCategories categories =
            DebugMessageCategories(kThrowDebugMessageCategory | kExceptionDebugCategory) |
            ModuleDebugMessageCategories();
        if (ZorunException::AllowForExceptionDebug(
                ClassName(kind),
                ZorunUtilities::SafeFormatString(ThrowingFormat(kind), messageUtf8.c_str()),
                fileText, line, functionText, true, &contexts, categories)) {
            DebugBreak();
        }
    } catch (...) {
    }

    // 4. The throw, by value.
    switch (kind) {
        case Kind::Com:
            throw GetZorunComException(message, fileText, line, functionText, &contexts,
                                       hr);
        case Kind::NullPointer:
            throw GetExceptionInvalidArgumentNullPointer(message, fileText, line, functionText,
                                                         &contexts);
        case Kind::DelayLoad:
            throw GetExceptionDelayLoadDllLoadFailure(message, fileText, line, functionText,
                                                      &contexts);
    }
    throw GetZorunComException(message, fileText, line, functionText, &contexts, E_UNEXPECTED);
}

}  // namespace

void ThrowComExceptionV(HRESULT hr, const wchar_t* file, int line, const wchar_t* function,
                        const char* format, va_list args) {
    ThrowSequence(Kind::Com, hr, file, line, function, FormatMessageText(format, args));
}

void ThrowComException(HRESULT hr, const wchar_t* file, int line, const wchar_t* function,
                       const char* format, ...) {
    va_list args;
    va_start(args, format);
    CXString message = FormatMessageText(format, args);
    va_end(args);
    ThrowSequence(Kind::Com, hr, file, line, function, message);
}

void ThrowInvalidArgumentNullPointer(const wchar_t* file, int line, const wchar_t* function,
                                     const char* format, ...) {
    va_list args;
    va_start(args, format);
    CXString message = FormatMessageText(format, args);
    va_end(args);
    ThrowSequence(Kind::NullPointer, E_POINTER, file, line, function, message);
}

void ThrowDelayLoadDllLoadFailure(const wchar_t* file, int line, const wchar_t* function,
                                  const char* format, ...) {
    va_list args;
    va_start(args, format);
    CXString message = FormatMessageText(format, args);
    va_end(args);
    ThrowSequence(Kind::DelayLoad, E_FAIL, file, line, function, message);
}
