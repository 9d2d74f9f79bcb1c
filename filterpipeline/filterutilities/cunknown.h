// cunknown.h: CUnknown<I>, the reference-counted IUnknown for library objects that answer exactly
// one interface besides IUnknown (the filter base, the SAX handler base). The count starts at 1:
// the creator owns the first reference, and the last Release deletes the object.
#pragma once

#include <atomic>

#include "platform/com/com.h"

template <class I>
class CUnknown : public I {
public:
    explicit CUnknown(REFIID iid) : m_refCount(1), m_iid(iid) {}

    // Copies keep the source's count and interface id as they stand (the count is not reset).
    CUnknown(const CUnknown& other)
        : I(), m_refCount(other.m_refCount.load()), m_iid(other.m_iid) {}
    CUnknown& operator=(const CUnknown& other) {
        m_iid = other.m_iid;
        m_refCount.store(other.m_refCount.load());
        return *this;
    }

    HRESULT QueryInterface(REFIID iid, void** object) override {
        if (object == nullptr) return E_POINTER;
        if (iid == IID_IUnknown || iid == m_iid) {
            *object = static_cast<I*>(this);
            AddRef();
            return S_OK;
        }
        *object = nullptr;
        return E_NOINTERFACE;
    }

    ULONG AddRef() override { return ++m_refCount; }

    ULONG Release() override {
        ULONG remaining = --m_refCount;
        if (remaining == 0) delete this;
        return remaining;
    }

    virtual ~CUnknown() = default;

protected:
    std::atomic<ULONG> m_refCount;
    GUID m_iid;
};
