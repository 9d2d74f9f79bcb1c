// cxstring.h: CXString, the utility library's wide string: a value type with its own length
// (embedded NULs allowed), convertible to const wchar_t* wherever filter code expects text.
// Narrow text given to it is UTF-8 (the ANSI code page of this platform).
//
// Positions and counts are ints as in MFC/ATL strings; out-of-range arguments are clamped,
// never undefined: Left/Right/Mid with negative counts give "", with counts beyond the end give
// what there is. A null const wchar_t* or const char* argument is the empty string everywhere.
//
// GetBuffer(n) hands out a writable buffer of at least n characters plus room for the NUL;
// whatever is written there, the string's length is taken up again from the first NUL the next
// time the string is used (or at ReleaseBuffer()). GetBufferSetLength(n) sets the length to n.
#pragma once

#include <cstdarg>
#include <iosfwd>
#include <string>
#include <string_view>

class CXString {
public:
    CXString() = default;
    CXString(const wchar_t* text);  // NOLINT: implicit, as filter code relies on
    CXString(const wchar_t* text, int length);
    CXString(const char* text);  // NOLINT
    CXString(std::wstring_view text);
    CXString(const std::wstring& text);
    CXString(const CXString& other);
    CXString(CXString&& other) noexcept;
    ~CXString();

    CXString& operator=(const wchar_t* text);
    CXString& operator=(const char* text);
    CXString& operator=(const CXString& other);
    CXString& operator=(CXString&& other) noexcept;

    CXString& operator+=(const CXString& other);
    CXString& operator+=(const wchar_t* text);
    CXString& operator+=(wchar_t c);

    operator const wchar_t*() const;  // NOLINT: implicit by design
    const wchar_t* GetString() const;
    int GetLength() const;
    bool IsEmpty() const;
    wchar_t GetAt(int index) const;  // 0 when out of range
    wchar_t operator[](int index) const { return GetAt(index); }

    wchar_t* GetBuffer(int minLength);
    wchar_t* GetBufferSetLength(int length);
    void ReleaseBuffer(int newLength = -1);

    CXString Left(int count) const;
    CXString Right(int count) const;
    CXString Mid(int first) const;
    CXString Mid(int first, int count) const;
    // The prefix up to (not including) the first character that is in `set`; the whole string
    // when none is (or `set` is null or empty).
    CXString SpanExcluding(const wchar_t* set) const;
    // The prefix made only of characters in `set`.
    CXString SpanIncluding(const wchar_t* set) const;

    // Zero-based index of the first match at or after `start`, or -1. Searching for NUL or for a
    // null text finds nothing; an empty text is found at `start` (when start <= length).
    int Find(wchar_t c, int start = 0) const;
    int Find(const wchar_t* text, int start = 0) const;
    int ReverseFind(wchar_t c) const;
    int FindOneOf(const wchar_t* set) const;

    // Replaces every non-overlapping occurrence, scanning left to right; returns the count. A null
    // or empty `oldText` replaces nothing; a null `newText` deletes the occurrences.
    int Replace(const wchar_t* oldText, const wchar_t* newText);
    int Replace(wchar_t oldChar, wchar_t newChar);
    // Removes up to `count` characters from `index`; returns the new length.
    int Delete(int index, int count = 1);
    int Insert(int index, const wchar_t* text);
    void Empty();

    // Three-way comparison by character value: negative, 0 or positive.
    int Compare(const wchar_t* other) const;
    int CompareNoCase(const wchar_t* other) const;  // ASCII letters folded

    CXString& MakeUpper();  // ASCII letters only
    CXString& MakeLower();
    CXString& Trim();
    CXString& TrimLeft();
    CXString& TrimRight();

    // printf-style formatting into the string, Windows rules (platform/win32/format.h). On a
    // format error the string is left empty and ZorunUtilities::LastFormatFailed() is true.
    void Format(const wchar_t* format, ...);
    void FormatV(const wchar_t* format, va_list args);
    void AppendFormat(const wchar_t* format, ...);

    // The text as UTF-8 / as a standard string.
    std::string ToUtf8() const;
    const std::wstring& Str() const;

private:
    void Sync() const;

    mutable std::wstring m_text;
    mutable bool m_bufferOut = false;  // GetBuffer was called: the length comes from the NUL
};

CXString operator+(const CXString& a, const CXString& b);
CXString operator+(const CXString& a, const wchar_t* b);
CXString operator+(const wchar_t* a, const CXString& b);
CXString operator+(const CXString& a, wchar_t b);

bool operator==(const CXString& a, const CXString& b);
bool operator==(const CXString& a, const wchar_t* b);
bool operator==(const wchar_t* a, const CXString& b);
bool operator!=(const CXString& a, const CXString& b);
bool operator!=(const CXString& a, const wchar_t* b);
bool operator!=(const wchar_t* a, const CXString& b);
bool operator<(const CXString& a, const CXString& b);

// Writes the text as UTF-8 (test output, logs).
std::ostream& operator<<(std::ostream& stream, const CXString& text);
