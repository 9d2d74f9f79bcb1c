// devmodesyntax.h: the pieces of the device mode description's text shared by reading and
// writing it: the public DEVMODEW fields by name, the unit names, integers, reals, quoted strings
// with escapes, UTF-16 fields and hexadecimal bytes. Errors throw DescriptionError naming the line.
#pragma once

#include <cstddef>
#include <string>
#include <string_view>

#include "devmodedescription.h"
#include "platform/win32/wingdi.h"

namespace xpsfilter::devmodesyntax {

struct PublicField {
    const char* name;
    std::size_t offset;
    std::size_t size;  // 2 or 4
    bool isSigned;
    bool hex;  // written in hexadecimal
};

// The public fields in the order a description lists them.
extern const PublicField kPublicFields[30];

const PublicField* FindPublicField(std::string_view name);

// The unit names of dimensions, by unit number.
extern const char* const kUnitNames[11];

std::string_view Trim(std::string_view text);

[[noreturn]] void Fail(int line, const std::string& message);

// A decimal or 0x-hexadecimal integer, optionally signed, within [low, high].
long long ParseInteger(std::string_view text, long long low, long long high, int line,
                       const char* what);

double ParseReal(std::string_view text, int line);

// A quoted string with \\ \" \n \r \t and \uXXXX escapes, or bare text (trimmed). `rest`
// receives what follows the closing quote.
std::string ParseText(std::string_view text, int line, std::string_view* rest = nullptr);

std::string Quote(const std::string& utf8);

std::u16string ToUtf16(const std::string& utf8);

std::string FromUtf16(const char16_t* text, std::size_t capacity);

void SetText(char16_t* field, std::size_t capacity, const std::string& utf8, int line,
             const char* name);

std::string FormatReal(double value);

std::string Hex(const BYTE* bytes, std::size_t count);

void ParseHex(std::string_view text, int line, ByteBuffer& out);

}  // namespace xpsfilter::devmodesyntax
