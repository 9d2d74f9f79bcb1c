// executioncontext.h: execution contexts — what a thread is doing, kept on a per-thread stack so
// that an exception thrown deep down can report the operation it interrupted. A context is
// immutable once pushed; exceptions keep a snapshot (shared references) of the stack.
#pragma once

#include <memory>
#include <vector>

#include "support/utilities/cxstring.h"

class ExecutionContextBase {
public:
    virtual ~ExecutionContextBase();
    // One line saying what is running.
    virtual CXString Describe() const = 0;
    // Whether entering and leaving the context is logged (with the elapsed time) when the debug
    // manager's performance measurement is on.
    virtual bool IsTraced() const { return false; }
};

class BasicExecutionContext : public ExecutionContextBase {
public:
    BasicExecutionContext(int id, const CXString& function, const CXString& file, int line,
                          bool traced, const CXString& description);

    int GetId() const { return m_id; }
    const CXString& GetFunction() const { return m_function; }
    const CXString& GetFile() const { return m_file; }
    int GetLine() const { return m_line; }
    const CXString& GetDescription() const { return m_description; }

    // "#<id> <function> (<file>(<line>)): <description>", parts left out when empty.
    CXString Describe() const override;
    bool IsTraced() const override { return m_traced; }

private:
    int m_id;
    CXString m_function;
    CXString m_file;
    int m_line;
    bool m_traced;
    CXString m_description;
};

using ExecutionContextSnapshot = std::vector<std::shared_ptr<const ExecutionContextBase>>;

// The contexts of one thread, innermost last.
class ExecutionContextStack {
public:
    void Push(std::shared_ptr<const ExecutionContextBase> context);
    // Removes that context (normally the innermost); unknown contexts are ignored.
    void Pop(const ExecutionContextBase* context);
    std::size_t GetDepth() const { return m_contexts.size(); }
    ExecutionContextSnapshot Snapshot() const { return m_contexts; }
    // The contexts, outermost first, one per line.
    CXString Describe() const;

private:
    ExecutionContextSnapshot m_contexts;
};

// Pushes a context on the calling thread's stack for its lifetime. The context passes in by
// unique_ptr: ownership moves to the stack (and to snapshots taken while it is there). A null
// context pushes nothing.
class ExecutionContextLifetime {
public:
    explicit ExecutionContextLifetime(std::unique_ptr<ExecutionContextBase> context);
    ~ExecutionContextLifetime();
    ExecutionContextLifetime(const ExecutionContextLifetime&) = delete;
    ExecutionContextLifetime& operator=(const ExecutionContextLifetime&) = delete;

private:
    std::shared_ptr<const ExecutionContextBase> m_context;
    unsigned long long m_startMilliseconds = 0;
};

class UtilitiesDllPerThreadStorage {
public:
    // The calling thread's stack.
    static ExecutionContextStack& GetExecutionContextStack();
};
