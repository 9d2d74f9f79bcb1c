#include <gtest/gtest.h>

#include "platform/com/com.h"
#include "platform/com/comobject.h"

namespace {

// Counts its own life so tests can see references being taken and dropped.
class Probe final : public platform::ComObject<ISequentialStream> {
public:
    explicit Probe(int* alive) : m_alive(alive) { ++*m_alive; }
    ~Probe() override { --*m_alive; }
    HRESULT Read(void*, ULONG, ULONG*) override { return E_NOTIMPL; }
    HRESULT Write(const void*, ULONG, ULONG*) override { return E_NOTIMPL; }

private:
    int* m_alive;
};

}  // namespace

TEST(Variant, ClearCopyAndChangeType) {
    int alive = 0;
    VARIANT v;
    VariantInit(&v);
    v.vt = VT_UNKNOWN;
    v.punkVal = new Probe(&alive);  // the variant takes over the creation reference
    EXPECT_EQ(VariantClear(&v), S_OK);
    EXPECT_EQ(v.vt, VT_EMPTY);
    EXPECT_EQ(alive, 0);

    v.vt = VT_BSTR;
    v.bstrVal = SysAllocString(L"owned");
    EXPECT_EQ(VariantClear(&v), S_OK);  // leak checkers see the string freed
    EXPECT_EQ(v.vt, VT_EMPTY);

    // Copies duplicate strings and add references.
    CComPtr<ISequentialStream> probe;
    probe.Attach(new Probe(&alive));
    {
        CComVariant a(static_cast<IUnknown*>(probe.p));
        CComVariant b(a);
        EXPECT_EQ(b.punkVal, probe.p);
        EXPECT_EQ(static_cast<Probe*>(probe.p)->RefCount(), 3u);
    }
    EXPECT_EQ(static_cast<Probe*>(probe.p)->RefCount(), 1u);

    CComVariant text(L"abc");
    CComVariant copy(text);
    EXPECT_NE(copy.bstrVal, text.bstrVal);
    EXPECT_STREQ(copy.bstrVal, L"abc");

    // Type changes between text and numbers.
    CComVariant number(L" 42");
    ASSERT_EQ(number.ChangeType(VT_I4), S_OK);
    EXPECT_EQ(number.lVal, 42);
    ASSERT_EQ(number.ChangeType(VT_BSTR), S_OK);
    EXPECT_STREQ(number.bstrVal, L"42");

    CComVariant bad(L"12abc");
    EXPECT_EQ(bad.ChangeType(VT_I4), DISP_E_TYPEMISMATCH);
    EXPECT_EQ(bad.vt, VT_BSTR);  // unchanged on failure

    CComVariant big(5000000000LL);
    EXPECT_EQ(big.ChangeType(VT_I4), DISP_E_OVERFLOW);
}

TEST(ComPtr, HoldsOneReferenceAndQueries) {
    int alive = 0;
    {
        CComPtr<ISequentialStream> a;
        a.Attach(new Probe(&alive));
        CComPtr<ISequentialStream> b = a;
        EXPECT_EQ(static_cast<Probe*>(a.p)->RefCount(), 2u);
        CComPtr<IUnknown> unknown;
        EXPECT_EQ(a.QueryInterface(&unknown), S_OK);
        CComQIPtr<IStream> notAStream(unknown);
        EXPECT_EQ(notAStream.p, nullptr);
        EXPECT_TRUE(a.IsEqualObject(unknown));
        b.Release();
        EXPECT_EQ(b.p, nullptr);
    }
    EXPECT_EQ(alive, 0);
    // The QueryInterface contract.
    auto* probe = new Probe(&alive);
    void* out = reinterpret_cast<void*>(0x1);
    EXPECT_EQ(probe->QueryInterface(IID_IStream, &out), E_NOINTERFACE);
    EXPECT_EQ(out, nullptr);
    EXPECT_EQ(probe->QueryInterface(IID_IUnknown, nullptr), E_POINTER);
    EXPECT_EQ(probe->QueryInterface(IID_ISequentialStream, &out), S_OK);
    EXPECT_EQ(probe->Release(), 1u);
    EXPECT_EQ(probe->Release(), 0u);
    EXPECT_EQ(alive, 0);
}

TEST(ComBstr, OwnsAppendsAndThrowsLikeAtl) {
    CComBSTR s(L"psk");
    s += L":";
    s.Append(CComBSTR(L"ISOA4"));
    EXPECT_TRUE(s == L"psk:ISOA4");
    EXPECT_EQ(s.Length(), 9u);
    BSTR copy = nullptr;
    EXPECT_EQ(s.CopyTo(&copy), S_OK);
    EXPECT_NE(copy, s.m_str);
    SysFreeString(copy);
    CComBSTR narrow("caf\xC3\xA9");
    EXPECT_EQ(narrow.Length(), 4u);
    EXPECT_EQ(narrow.m_str[3], L'\u00E9');
    CComBSTR empty;
    EXPECT_EQ(empty.Length(), 0u);
    EXPECT_TRUE(empty == nullptr);
}
