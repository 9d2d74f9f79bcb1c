// executioncontext.cpp: contexts, the per-thread stack and the scope guard that pushes them.
#include "support/utilities/executioncontext.h"

#include <algorithm>
#include <string>

#include "platform/win32/kernel.h"
#include "support/utilities/debugmessages.h"

ExecutionContextBase::~ExecutionContextBase() = default;

BasicExecutionContext::BasicExecutionContext(int id, const CXString& function, const CXString& file,
                                             int line, bool traced, const CXString& description)
    : m_id(id),
      m_function(function),
      m_file(file),
      m_line(line),
      m_traced(traced),
      m_description(description) {}

CXString BasicExecutionContext::Describe() const {
    CXString text = L"#" + CXString(std::to_wstring(m_id));
    if (!m_function.IsEmpty()) text += L" " + m_function;
    if (!m_file.IsEmpty()) {
        text += L" (" + m_file + L"(" + CXString(std::to_wstring(m_line)) + L"))";
    }
    if (!m_description.IsEmpty()) text += L": " + m_description;
    return text;
}

void ExecutionContextStack::Push(std::shared_ptr<const ExecutionContextBase> context) {
    if (context) m_contexts.push_back(std::move(context));
}

void ExecutionContextStack::Pop(const ExecutionContextBase* context) {
    auto found = std::find_if(m_contexts.rbegin(), m_contexts.rend(),
                              [context](const auto& entry) { return entry.get() == context; });
    if (found != m_contexts.rend()) m_contexts.erase(std::next(found).base());
}

CXString ExecutionContextStack::Describe() const {
    CXString text;
    for (const auto& context : m_contexts) text += context->Describe() + L"\n";
    return text;
}

namespace {

// Tracing is advisory: it never lets an exception out (it also runs in a destructor).
void Trace(const wchar_t* what, const ExecutionContextBase& context, unsigned long long elapsed,
           bool leaving) noexcept {
    try {
        DebugMessageManager& manager = GetDebugMessageManager();
        if (!manager.IsPerformanceMeasurementEnabledByConfiguration()) return;
        CXString text = what + context.Describe();
        if (leaving) text += L" (" + CXString(std::to_wstring(elapsed)) + L" ms)";
        manager.AddMessage(false, DebugMessageCategories(), DebugMessageCategories(),
                           ZorunDebugMessage(text, L"", 0, L""));
    } catch (...) {
    }
}

}  // namespace

ExecutionContextLifetime::ExecutionContextLifetime(std::unique_ptr<ExecutionContextBase> context)
    : m_context(std::move(context)) {
    if (!m_context) return;
    UtilitiesDllPerThreadStorage::GetExecutionContextStack().Push(m_context);
    if (m_context->IsTraced()) {
        m_startMilliseconds = GetTickCount64();
        Trace(L"@@@>> enter ", *m_context, 0, false);
    }
}

ExecutionContextLifetime::~ExecutionContextLifetime() {
    if (!m_context) return;
    if (m_context->IsTraced()) {
        Trace(L"<<@@@ leave ", *m_context, GetTickCount64() - m_startMilliseconds, true);
    }
    UtilitiesDllPerThreadStorage::GetExecutionContextStack().Pop(m_context.get());
}

ExecutionContextStack& UtilitiesDllPerThreadStorage::GetExecutionContextStack() {
    thread_local ExecutionContextStack stack;
    return stack;
}
