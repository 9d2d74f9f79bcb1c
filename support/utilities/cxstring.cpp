// cxstring.cpp: CXString over std::wstring.
#include "support/utilities/cxstring.h"

#include <algorithm>
#include <cwchar>
#include <ostream>

#include "platform/com/unicode.h"
#include "support/utilities/zorunutilities.h"

namespace {

std::wstring_view View(const wchar_t* text) {
    return text != nullptr ? std::wstring_view(text) : std::wstring_view();
}

int Clamp(int value, int low, int high) {
    return std::min(std::max(value, low), high);
}

wchar_t FoldAscii(wchar_t c, bool upper) {
    if (upper && c >= L'a' && c <= L'z') return static_cast<wchar_t>(c - L'a' + L'A');
    if (!upper && c >= L'A' && c <= L'Z') return static_cast<wchar_t>(c - L'A' + L'a');
    return c;
}

bool IsSpace(wchar_t c) {
    return c == L' ' || (c >= L'\t' && c <= L'\r');
}

int Sign(long long value) {
    return value < 0 ? -1 : (value > 0 ? 1 : 0);
}

}  // namespace

CXString::CXString(const wchar_t* text) : m_text(View(text)) {}
CXString::CXString(const wchar_t* text, int length) {
    if (text != nullptr && length > 0) m_text.assign(text, static_cast<std::size_t>(length));
}
CXString::CXString(const char* text)
    : m_text(text != nullptr ? platform::Utf8ToWide(text) : std::wstring()) {}
CXString::CXString(std::wstring_view text) : m_text(text) {}
CXString::CXString(const std::wstring& text) : m_text(text) {}
CXString::CXString(const CXString& other) : m_text(other.Str()) {}
CXString::CXString(CXString&& other) noexcept {
    other.Sync();
    m_text = std::move(other.m_text);
    other.m_text.clear();
}
CXString::~CXString() = default;

CXString& CXString::operator=(const wchar_t* text) {
    std::wstring copy(View(text));  // the text may point into this string
    m_text = std::move(copy);
    m_bufferOut = false;
    return *this;
}

CXString& CXString::operator=(const char* text) {
    return *this = CXString(text);
}

CXString& CXString::operator=(const CXString& other) {
    if (this != &other) {
        m_text = other.Str();
        m_bufferOut = false;
    }
    return *this;
}

CXString& CXString::operator=(CXString&& other) noexcept {
    if (this != &other) {
        other.Sync();
        m_text = std::move(other.m_text);
        other.m_text.clear();
        m_bufferOut = false;
    }
    return *this;
}

CXString& CXString::operator+=(const CXString& other) {
    Sync();
    if (this == &other) {
        std::wstring copy = m_text;
        m_text += copy;
    } else {
        m_text += other.Str();
    }
    return *this;
}

CXString& CXString::operator+=(const wchar_t* text) {
    Sync();
    std::wstring copy(View(text));
    m_text += copy;
    return *this;
}

CXString& CXString::operator+=(wchar_t c) {
    Sync();
    m_text.push_back(c);
    return *this;
}

void CXString::Sync() const {
    if (m_bufferOut) {
        m_text.resize(std::wcslen(m_text.c_str()));
        m_bufferOut = false;
    }
}

const std::wstring& CXString::Str() const {
    Sync();
    return m_text;
}

CXString::operator const wchar_t*() const {
    return Str().c_str();
}
const wchar_t* CXString::GetString() const {
    return Str().c_str();
}
int CXString::GetLength() const {
    return static_cast<int>(Str().size());
}
bool CXString::IsEmpty() const {
    return Str().empty();
}

wchar_t CXString::GetAt(int index) const {
    const std::wstring& text = Str();
    return index >= 0 && static_cast<std::size_t>(index) < text.size() ? text[index] : L'\0';
}

wchar_t* CXString::GetBuffer(int minLength) {
    Sync();
    if (minLength > 0 && static_cast<std::size_t>(minLength) > m_text.size()) {
        m_text.resize(static_cast<std::size_t>(minLength), L'\0');
    }
    m_bufferOut = true;
    return m_text.data();
}

wchar_t* CXString::GetBufferSetLength(int length) {
    Sync();
    m_text.resize(static_cast<std::size_t>(std::max(length, 0)), L'\0');
    return m_text.data();
}

void CXString::ReleaseBuffer(int newLength) {
    if (newLength >= 0) {
        m_bufferOut = false;
        m_text.resize(std::min(static_cast<std::size_t>(newLength), m_text.size()));
    } else {
        Sync();
    }
}

CXString CXString::Left(int count) const {
    const std::wstring& text = Str();
    return CXString(
        std::wstring_view(text).substr(0, static_cast<std::size_t>(std::max(count, 0))));
}

CXString CXString::Right(int count) const {
    const std::wstring& text = Str();
    std::size_t n = std::min(static_cast<std::size_t>(std::max(count, 0)), text.size());
    return CXString(std::wstring_view(text).substr(text.size() - n));
}

CXString CXString::Mid(int first) const {
    return Mid(first, GetLength());
}

CXString CXString::Mid(int first, int count) const {
    const std::wstring& text = Str();
    int length = static_cast<int>(text.size());
    first = Clamp(first, 0, length);
    count = Clamp(count, 0, length - first);
    return CXString(std::wstring_view(text).substr(first, count));
}

CXString CXString::SpanExcluding(const wchar_t* set) const {
    const std::wstring& text = Str();
    if (set == nullptr || *set == L'\0') return *this;
    std::size_t end = text.find_first_of(set);
    return CXString(std::wstring_view(text).substr(0, end));
}

CXString CXString::SpanIncluding(const wchar_t* set) const {
    const std::wstring& text = Str();
    if (set == nullptr || *set == L'\0') return CXString();
    std::size_t end = text.find_first_not_of(set);
    return CXString(std::wstring_view(text).substr(0, end));
}

int CXString::Find(wchar_t c, int start) const {
    const std::wstring& text = Str();
    if (c == L'\0' || start < 0) return -1;
    std::size_t found = text.find(c, static_cast<std::size_t>(start));
    return found == std::wstring::npos ? -1 : static_cast<int>(found);
}

int CXString::Find(const wchar_t* needle, int start) const {
    const std::wstring& text = Str();
    if (needle == nullptr || start < 0 || static_cast<std::size_t>(start) > text.size()) return -1;
    std::size_t found = text.find(needle, static_cast<std::size_t>(start));
    return found == std::wstring::npos ? -1 : static_cast<int>(found);
}

int CXString::ReverseFind(wchar_t c) const {
    const std::wstring& text = Str();
    if (c == L'\0') return -1;
    std::size_t found = text.rfind(c);
    return found == std::wstring::npos ? -1 : static_cast<int>(found);
}

int CXString::FindOneOf(const wchar_t* set) const {
    const std::wstring& text = Str();
    if (set == nullptr || *set == L'\0') return -1;
    std::size_t found = text.find_first_of(set);
    return found == std::wstring::npos ? -1 : static_cast<int>(found);
}

int CXString::Replace(const wchar_t* oldText, const wchar_t* newText) {
    Sync();
    std::wstring from(View(oldText));
    std::wstring to(View(newText));
    if (from.empty()) return 0;
    std::wstring result;
    int count = 0;
    std::size_t position = 0;
    for (std::size_t found; (found = m_text.find(from, position)) != std::wstring::npos;) {
        result.append(m_text, position, found - position);
        result += to;
        position = found + from.size();
        ++count;
    }
    if (count > 0) {
        result.append(m_text, position, std::wstring::npos);
        m_text = std::move(result);
    }
    return count;
}

int CXString::Replace(wchar_t oldChar, wchar_t newChar) {
    Sync();
    int count = 0;
    for (wchar_t& c : m_text) {
        if (c == oldChar) {
            c = newChar;
            ++count;
        }
    }
    return count;
}

int CXString::Delete(int index, int count) {
    Sync();
    int length = static_cast<int>(m_text.size());
    if (index >= 0 && index < length && count > 0) {
        m_text.erase(static_cast<std::size_t>(index),
                     static_cast<std::size_t>(std::min(count, length - index)));
    }
    return static_cast<int>(m_text.size());
}

int CXString::Insert(int index, const wchar_t* text) {
    Sync();
    std::wstring copy(View(text));
    index = Clamp(index, 0, static_cast<int>(m_text.size()));
    m_text.insert(static_cast<std::size_t>(index), copy);
    return static_cast<int>(m_text.size());
}

void CXString::Empty() {
    m_text.clear();
    m_bufferOut = false;
}

int CXString::Compare(const wchar_t* other) const {
    std::wstring_view a = Str();
    std::wstring_view b = View(other);
    std::size_t common = std::min(a.size(), b.size());
    for (std::size_t i = 0; i < common; ++i) {
        if (a[i] != b[i]) return Sign(static_cast<long long>(a[i]) - static_cast<long long>(b[i]));
    }
    return Sign(static_cast<long long>(a.size()) - static_cast<long long>(b.size()));
}

int CXString::CompareNoCase(const wchar_t* other) const {
    std::wstring_view a = Str();
    std::wstring_view b = View(other);
    std::size_t common = std::min(a.size(), b.size());
    for (std::size_t i = 0; i < common; ++i) {
        wchar_t x = FoldAscii(a[i], false);
        wchar_t y = FoldAscii(b[i], false);
        if (x != y) return Sign(static_cast<long long>(x) - static_cast<long long>(y));
    }
    return Sign(static_cast<long long>(a.size()) - static_cast<long long>(b.size()));
}

CXString& CXString::MakeUpper() {
    Sync();
    for (wchar_t& c : m_text) c = FoldAscii(c, true);
    return *this;
}

CXString& CXString::MakeLower() {
    Sync();
    for (wchar_t& c : m_text) c = FoldAscii(c, false);
    return *this;
}

CXString& CXString::Trim() {
    return TrimRight().TrimLeft();
}

CXString& CXString::TrimLeft() {
    Sync();
    std::size_t first = 0;
    while (first < m_text.size() && IsSpace(m_text[first])) ++first;
    m_text.erase(0, first);
    return *this;
}

CXString& CXString::TrimRight() {
    Sync();
    while (!m_text.empty() && IsSpace(m_text.back())) m_text.pop_back();
    return *this;
}

void CXString::Format(const wchar_t* format, ...) {
    va_list args;
    va_start(args, format);
    FormatV(format, args);
    va_end(args);
}

void CXString::FormatV(const wchar_t* format, va_list args) {
    *this = ZorunUtilities::SafeFormatStringV(format, args);
}

void CXString::AppendFormat(const wchar_t* format, ...) {
    va_list args;
    va_start(args, format);
    CXString formatted = ZorunUtilities::SafeFormatStringV(format, args);
    va_end(args);
    *this += formatted;
}

std::string CXString::ToUtf8() const {
    return platform::WideToUtf8(Str());
}

CXString operator+(const CXString& a, const CXString& b) {
    CXString result(a);
    result += b;
    return result;
}
CXString operator+(const CXString& a, const wchar_t* b) {
    CXString result(a);
    result += b;
    return result;
}
CXString operator+(const wchar_t* a, const CXString& b) {
    CXString result(a);
    result += b;
    return result;
}
CXString operator+(const CXString& a, wchar_t b) {
    CXString result(a);
    result += b;
    return result;
}

bool operator==(const CXString& a, const CXString& b) {
    return a.Str() == b.Str();
}
bool operator==(const CXString& a, const wchar_t* b) {
    return a.Compare(b) == 0;
}
bool operator==(const wchar_t* a, const CXString& b) {
    return b.Compare(a) == 0;
}
bool operator!=(const CXString& a, const CXString& b) {
    return !(a == b);
}
bool operator!=(const CXString& a, const wchar_t* b) {
    return !(a == b);
}
bool operator!=(const wchar_t* a, const CXString& b) {
    return !(a == b);
}
bool operator<(const CXString& a, const CXString& b) {
    return a.Compare(b) < 0;
}

std::ostream& operator<<(std::ostream& stream, const CXString& text) {
    return stream << text.ToUtf8();
}
