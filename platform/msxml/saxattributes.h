// saxattributes.h: ISAXAttributes over the attributes libxml2 reports for one element.
#pragma once

#include <deque>
#include <string>
#include <string_view>

#include "platform/com/comobject.h"
#include "platform/msxml/msxml6.h"
#include "platform/msxml/saxwidetext.h"
#include "platform/msxml/xmltext.h"

namespace platform::msxml::sax {

// The attributes of the element being reported. Names and values are converted to wide text
// only when the handler asks for them (a re-serialiser needs qualified names and values, not
// URIs and local names), each into a buffer of its own that keeps its capacity from element to
// element, so that a string handed out stays valid while others are converted.
class SaxAttributes final : public ComObject<ISAXAttributes> {
public:
    void Reset() { m_count = 0; }
    // An attribute as libxml2 reports it; the texts stay valid during the callback.
    void Add(std::string_view uri, std::string_view prefix, std::string_view local,
             std::string_view value) {
        Entry& entry = Next();
        entry.uri.Set(uri);
        entry.local.Set(local);
        entry.qname.Set(local);
        entry.prefix = prefix;
        entry.value.Set(value);
    }
    // An attribute whose qualified name or value had to be built: converted at once.
    void AddWithQName(std::string_view qname, std::string_view local, std::string_view value) {
        Entry& entry = Next();
        entry.uri.Set({});
        entry.local.Set(local);
        entry.qname.Set(qname);
        entry.prefix = {};
        entry.value.Set(value);
        entry.qname.Convert({});
        entry.value.Convert({});
    }
    // An attribute whose value or namespace URI had to be decoded into a scratch buffer that the
    // next attribute reuses: both converted at once.
    void AddDecoded(std::string_view uri, std::string_view prefix, std::string_view local,
                    std::string_view value) {
        Add(uri, prefix, local, value);
        m_entries[m_count - 1].uri.Convert({});
        m_entries[m_count - 1].value.Convert({});
    }

    HRESULT getLength(INT* length) override {
        if (length == nullptr) return E_POINTER;
        *length = static_cast<INT>(m_count);
        return S_OK;
    }
    HRESULT getURI(INT index, const wchar_t** uri, INT* length) override {
        return Get(index, &Entry::uri, uri, length);
    }
    HRESULT getLocalName(INT index, const wchar_t** local, INT* length) override {
        return Get(index, &Entry::local, local, length);
    }
    HRESULT getQName(INT index, const wchar_t** qname, INT* length) override {
        return Get(index, &Entry::qname, qname, length);
    }
    HRESULT getName(INT index, const wchar_t** uri, INT* uriLength, const wchar_t** local,
                    INT* localLength, const wchar_t** qname, INT* qnameLength) override {
        FU_RETURN_IF_FAILED(Get(index, &Entry::uri, uri, uriLength));
        FU_RETURN_IF_FAILED(Get(index, &Entry::local, local, localLength));
        return Get(index, &Entry::qname, qname, qnameLength);
    }
    HRESULT getIndexFromName(const wchar_t* uri, INT uriLength, const wchar_t* local,
                             INT localLength, INT* index) override {
        if (index == nullptr || local == nullptr || uriLength < 0 || localLength < 0 ||
            (uri == nullptr && uriLength != 0)) {
            return E_INVALIDARG;
        }
        std::wstring_view wantedUri(uri == nullptr ? L"" : uri,
                                    static_cast<std::size_t>(uriLength));
        std::wstring_view wantedLocal(local, static_cast<std::size_t>(localLength));
        for (std::size_t i = 0; i < m_count; ++i) {
            Entry& entry = m_entries[i];
            if (entry.uri.Wide({}) == wantedUri && entry.local.Wide({}) == wantedLocal) {
                *index = static_cast<INT>(i);
                return S_OK;
            }
        }
        *index = -1;
        return E_INVALIDARG;
    }
    HRESULT getIndexFromQName(const wchar_t* qname, INT length, INT* index) override {
        if (index == nullptr || qname == nullptr || length < 0) return E_INVALIDARG;
        std::wstring_view wanted(qname, static_cast<std::size_t>(length));
        for (std::size_t i = 0; i < m_count; ++i) {
            Entry& entry = m_entries[i];
            if (entry.qname.Wide(entry.prefix) == wanted) {
                *index = static_cast<INT>(i);
                return S_OK;
            }
        }
        *index = -1;
        return E_INVALIDARG;
    }
    HRESULT getType(INT index, const wchar_t** type, INT* length) override {
        if (type == nullptr || length == nullptr) return E_POINTER;
        if (index < 0 || static_cast<std::size_t>(index) >= m_count) return E_INVALIDARG;
        *type = L"CDATA";  // without a DTD every attribute is CDATA
        *length = 5;
        return S_OK;
    }
    HRESULT getTypeFromName(const wchar_t* uri, INT uriLength, const wchar_t* local,
                            INT localLength, const wchar_t** type, INT* length) override {
        INT index = -1;
        FU_RETURN_IF_FAILED(getIndexFromName(uri, uriLength, local, localLength, &index));
        return getType(index, type, length);
    }
    HRESULT getTypeFromQName(const wchar_t* qname, INT qnameLength, const wchar_t** type,
                             INT* length) override {
        INT index = -1;
        FU_RETURN_IF_FAILED(getIndexFromQName(qname, qnameLength, &index));
        return getType(index, type, length);
    }
    HRESULT getValue(INT index, const wchar_t** value, INT* length) override {
        return Get(index, &Entry::value, value, length);
    }
    HRESULT getValueFromName(const wchar_t* uri, INT uriLength, const wchar_t* local,
                             INT localLength, const wchar_t** value, INT* length) override {
        INT index = -1;
        FU_RETURN_IF_FAILED(getIndexFromName(uri, uriLength, local, localLength, &index));
        return getValue(index, value, length);
    }
    HRESULT getValueFromQName(const wchar_t* qname, INT qnameLength, const wchar_t** value,
                              INT* length) override {
        INT index = -1;
        FU_RETURN_IF_FAILED(getIndexFromQName(qname, qnameLength, &index));
        return getValue(index, value, length);
    }

private:
    // One name or value: its UTF-8 source and, once asked for, its wide form.
    class Field {
    public:
        void Set(std::string_view utf8) {
            m_utf8 = utf8;
            m_ready = false;
        }
        // Converts on first use; a non-empty `prefix` is joined in front with a colon.
        void Convert(std::string_view prefix) {
            if (m_ready) return;
            m_wide.Clear();
            if (!prefix.empty()) {
                AppendWideFast(m_wide, prefix);
                m_wide.Push(L':');
            }
            AppendWideFast(m_wide, m_utf8);
            m_wide.Push(L'\0');  // handed-out strings are terminated as well
            m_ready = true;
        }
        std::wstring_view Wide(std::string_view prefix) {
            Convert(prefix);
            return {m_wide.Data(), m_wide.Size() - 1};
        }

    private:
        std::string_view m_utf8;
        WideBuffer m_wide;
        bool m_ready = false;
    };
    struct Entry {
        Field uri;
        Field local;
        Field qname;  // the local name until converted with the prefix
        Field value;
        std::string_view prefix;
    };

    Entry& Next() {
        if (m_count == m_entries.size()) m_entries.emplace_back();
        return m_entries[m_count++];
    }
    HRESULT Get(INT index, Field Entry::*member, const wchar_t** text, INT* length) {
        if (text == nullptr || length == nullptr) return E_POINTER;
        if (index < 0 || static_cast<std::size_t>(index) >= m_count) return E_INVALIDARG;
        Entry& entry = m_entries[static_cast<std::size_t>(index)];
        const std::wstring_view wide =
            (entry.*member).Wide(member == &Entry::qname ? entry.prefix : std::string_view());
        *text = wide.data();
        *length = static_cast<INT>(wide.size());
        return S_OK;
    }

    // Entries past m_count are kept for their buffers. A deque keeps them in place as it grows.
    std::deque<Entry> m_entries;
    std::size_t m_count = 0;
};

}  // namespace platform::msxml::sax
