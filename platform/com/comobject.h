// comobject.h: reference counting and QueryInterface for the platform's own COM objects.
// ComObject<I1, I2, ...> answers IUnknown and each listed interface; a class that also answers
// base interfaces of those (IXMLDOMNode for an IXMLDOMElement, say) overrides QueryBase.
// Objects start with a count of 1, as created with `new`; the last Release deletes them.
#pragma once

#include <atomic>

#include "platform/com/unknown.h"

namespace platform {

template <class First, class... Rest>
class ComObject : public First, public Rest... {
public:
    HRESULT QueryInterface(REFIID iid, void** object) override {
        if (object == nullptr) return E_POINTER;
        *object = nullptr;
        if (iid == IID_IUnknown) {
            *object = static_cast<IUnknown*>(static_cast<First*>(this));
        } else if (!Match<First, Rest...>(iid, object)) {
            HRESULT hr = QueryBase(iid, object);
            if (FAILED(hr) || *object == nullptr) {
                *object = nullptr;
                return E_NOINTERFACE;
            }
            return S_OK;
        }
        AddRef();
        return S_OK;
    }
    ULONG AddRef() override { return ++m_refs; }
    ULONG Release() override {
        ULONG left = --m_refs;
        if (left == 0) delete this;
        return left;
    }
    using First::QueryInterface;

    ULONG RefCount() const { return m_refs.load(); }

protected:
    ComObject() = default;
    virtual ~ComObject() = default;
    ComObject(const ComObject&) = delete;
    ComObject& operator=(const ComObject&) = delete;

    // Answers further interfaces (typically base interfaces of the listed ones). On success it
    // stores the pointer in *object and adds a reference itself.
    virtual HRESULT QueryBase(REFIID /*iid*/, void** /*object*/) { return E_NOINTERFACE; }

    // Helper for QueryBase: hands out `this` as Interface with a reference added.
    template <class Interface>
    HRESULT Answer(void** object) {
        *object = static_cast<Interface*>(this);
        AddRef();
        return S_OK;
    }

private:
    template <class I, class... More>
    bool Match(REFIID iid, void** object) {
        if (iid == InterfaceId<I>::value) {
            *object = static_cast<I*>(this);
            return true;
        }
        if constexpr (sizeof...(More) > 0) {
            return Match<More...>(iid, object);
        } else {
            return false;
        }
    }

    std::atomic<ULONG> m_refs{1};
};

}  // namespace platform
