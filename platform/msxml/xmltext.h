// xmltext.h: string conversions between libxml2's UTF-8 (xmlChar) and the COM side's BSTRs,
// wide strings and VARIANTs, used by every part of the MSXML stand-in. Internal header.
#pragma once

#include <string>
#include <string_view>

#include "platform/com/bstr.h"
#include "platform/com/variant.h"

// One-line HRESULT propagation for the MSXML stand-in's own code.
#define FU_RETURN_IF_FAILED(expr)          \
    do {                                   \
        const HRESULT fu_hr_ = (expr);     \
        if (FAILED(fu_hr_)) return fu_hr_; \
    } while (false)

namespace platform::msxml {

using Utf8 = std::string;

inline std::string_view View(const unsigned char* text) {
    return text == nullptr ? std::string_view()
                           : std::string_view(reinterpret_cast<const char*>(text));
}
inline const unsigned char* XmlStr(const std::string& text) {
    return reinterpret_cast<const unsigned char*>(text.c_str());
}

// A BSTR holding the UTF-8 text (decoded straight into the BSTR, one allocation). Null on
// out-of-memory.
BSTR AllocBstr(std::string_view utf8);
// The characters AllocBstr gives, into a string whose storage is reused. False on
// out-of-memory (or throws std::bad_alloc while growing `out`).
bool AssignWide(std::wstring& out, std::string_view utf8);
// Stores a new BSTR into *out: S_OK, or E_OUTOFMEMORY.
HRESULT ReturnBstr(std::string_view utf8, BSTR* out);
// A BSTR (or any wide string, null being empty) as UTF-8.
Utf8 ToUtf8(const wchar_t* text, std::size_t length);
inline Utf8 ToUtf8(BSTR text) {
    return ToUtf8(text, SysStringLen(text));
}
// Zero-extends `size` ASCII bytes into wide characters (sixteen at a time where SSE2 is there).
// The buffers must not overlap.
void WidenAscii(wchar_t* out, const unsigned char* bytes, std::size_t size);
// The wide form of UTF-8 text, appended to out (so buffers can be reused).
void AppendWide(std::wstring& out, std::string_view utf8);
// The text of a VARIANT as MSXML reads a value argument (numbers and booleans as their text).
HRESULT VariantToUtf8(const VARIANT& value, Utf8& out);
// XML white space: space, tab, carriage return, line feed.
inline bool IsXmlSpace(char c) {
    return c == ' ' || c == '\t' || c == '\r' || c == '\n';
}
bool IsAllXmlSpace(std::string_view text);
std::string_view TrimXmlSpace(std::string_view text);

}  // namespace platform::msxml
