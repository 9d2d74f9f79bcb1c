// utf8ini.cpp: UTF8Ini on the platform's profile reader.
#include "support/utilities/utf8ini.h"

#include <algorithm>

#include "platform/win32/profile.h"

UTF8Ini::UTF8Ini() = default;
UTF8Ini::~UTF8Ini() = default;

int UTF8Ini::GetPrivateProfileStringW(const wchar_t* section, const wchar_t* key,
                                      const wchar_t* defaultValue, wchar_t* out,
                                      unsigned long capacity, const wchar_t* fileName) {
    // The capacity is a 32-bit DWORD on Windows; larger values are clamped, not wrapped.
    DWORD size = static_cast<DWORD>(std::min<unsigned long>(capacity, 0x7FFFFFFFul));
    return static_cast<int>(
        ::GetPrivateProfileStringW(section, key, defaultValue, out, size, fileName));
}
