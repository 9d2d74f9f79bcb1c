// utf8ini.h: UTF8Ini, reader of INI files stored in UTF-8. GetPrivateProfileStringW has the
// Windows function's contract (see platform/win32/profile.h for the details): byte-order mark
// and CRLF accepted, invalid UTF-8 repaired, missing file/section/key give the default, null
// section or key enumerate names, truncation as on Windows.
#pragma once

class UTF8Ini {
public:
    UTF8Ini();
    ~UTF8Ini();

    int GetPrivateProfileStringW(const wchar_t* section, const wchar_t* key,
                                 const wchar_t* defaultValue, wchar_t* out, unsigned long capacity,
                                 const wchar_t* fileName);
};
