// saxwidetext.h: the SAX reader's wide text: UTF-8 widened with a fast path for ASCII into
// buffers that keep their capacity from one callback to the next.
#pragma once

#include <algorithm>
#include <cstddef>
#include <cwchar>
#include <memory>
#include <string>
#include <string_view>

#include "platform/com/wintypes.h"

namespace platform::msxml::sax {

// The length of the leading ASCII part of UTF-8 text, sixteen bytes at a time.
std::size_t AsciiPrefix(std::string_view utf8);

// Without entity substitution libxml2 hands every '&' of an attribute value over as "&#38;"
// (and nothing else in that form, since no entity can be declared); namespace URIs come from
// declarations, which are attribute values too. Returns the text with that undone, using
// `scratch` only when there is something to undo.
std::string_view UndoAmpersandReferences(std::string_view text, std::string& scratch);

// Wide text built in place: new space is handed out without being cleared first, and the
// capacity stays from one callback to the next.
class WideBuffer {
public:
    void Clear() { m_size = 0; }
    std::size_t Size() const { return m_size; }
    const wchar_t* Data() const { return m_data.get(); }
    // Room for `count` more characters at the end, to be written by the caller.
    wchar_t* Extend(std::size_t count) {
        if (m_size + count > m_capacity) Grow(m_size + count);
        wchar_t* at = m_data.get() + m_size;
        m_size += count;
        return at;
    }
    void Push(wchar_t c) { *Extend(1) = c; }
    void Append(std::wstring_view text) {
        if (!text.empty()) std::wmemcpy(Extend(text.size()), text.data(), text.size());
    }

private:
    void Grow(std::size_t needed) {
        const std::size_t capacity = std::max({needed, m_capacity * 2, std::size_t{64}});
        auto data = std::make_unique_for_overwrite<wchar_t[]>(capacity);
        if (m_size != 0) std::wmemcpy(data.get(), m_data.get(), m_size);
        m_data = std::move(data);
        m_capacity = capacity;
    }

    std::unique_ptr<wchar_t[]> m_data;
    std::size_t m_size = 0;
    std::size_t m_capacity = 0;
};

// Appends UTF-8 text as wide characters. ASCII runs (nearly all of page markup) are widened
// sixteen bytes at a time; each run of other bytes goes through the shared decoder, which
// gives the same characters as decoding the whole text at once, since ASCII bytes never belong
// to a multi-byte sequence.
void AppendWideFast(WideBuffer& out, std::string_view utf8);

// Wide strings of one callback, each NUL-terminated, in one buffer reused from callback to
// callback; addressed by offset while being built, with their lengths kept.
class WideArena {
public:
    struct Piece {
        std::size_t at = 0;
        INT length = 0;
    };
    void Clear() { m_text.Clear(); }
    Piece Add(std::string_view utf8) {
        const std::size_t at = m_text.Size();
        AppendWideFast(m_text, utf8);
        return Close(at);
    }
    Piece AddJoined(std::string_view prefix, std::string_view local) {
        const std::size_t at = m_text.Size();
        if (!prefix.empty()) {
            AppendWideFast(m_text, prefix);
            m_text.Push(L':');
        }
        AppendWideFast(m_text, local);
        return Close(at);
    }
    const wchar_t* At(Piece piece) const { return m_text.Data() + piece.at; }

private:
    Piece Close(std::size_t at) {
        const std::size_t length = m_text.Size() - at;
        m_text.Push(L'\0');
        return {at, static_cast<INT>(length)};
    }
    WideBuffer m_text;
};

}  // namespace platform::msxml::sax
