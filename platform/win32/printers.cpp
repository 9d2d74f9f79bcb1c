// printers.cpp: the printer driver directory, DeviceCapabilitiesW and printer information
// contexts, answered from the printer registry's printer.ini files (see printers.h).

#include "platform/win32/printers.h"

#include <algorithm>
#include <cstdlib>
#include <cstring>
#include <map>
#include <memory>
#include <mutex>
#include <string>

#include "platform/com/unicode.h"
#include "platform/win32/debugoutput.h"
#include "platform/win32/kernel.h"
#include "platform/win32/profile.h"

namespace {

using MSDeviceCapabilities::_tag_FormsInfoRec;

constexpr DWORD kListCapacity = 65536;  // characters for the key list of [Forms]

std::wstring Trim(std::wstring_view text) {
    std::size_t first = text.find_first_not_of(L" \t");
    if (first == std::wstring_view::npos) return std::wstring();
    std::size_t last = text.find_last_not_of(L" \t");
    return std::wstring(text.substr(first, last - first + 1));
}

// A whole decimal number within [low, high]; false for anything else.
bool ParseNumber(const std::wstring& text, long long low, long long high, long long& value) {
    std::wstring trimmed = Trim(text);
    if (trimmed.empty() || trimmed.size() > 12) return false;
    std::size_t i = 0;
    bool negative = false;
    if (trimmed[0] == L'-' || trimmed[0] == L'+') {
        negative = trimmed[0] == L'-';
        i = 1;
    }
    if (i == trimmed.size()) return false;
    long long result = 0;
    for (; i < trimmed.size(); ++i) {
        if (trimmed[i] < L'0' || trimmed[i] > L'9') return false;
        result = result * 10 + (trimmed[i] - L'0');
    }
    if (negative) result = -result;
    if (result < low || result > high) return false;
    value = result;
    return true;
}

std::vector<std::wstring> Split(const std::wstring& text, wchar_t separator) {
    std::vector<std::wstring> parts;
    std::size_t start = 0;
    for (;;) {
        std::size_t end = text.find(separator, start);
        parts.push_back(text.substr(start, end == std::wstring::npos ? end : end - start));
        if (end == std::wstring::npos) return parts;
        start = end + 1;
    }
}

std::wstring ReadValue(const std::wstring& file, const wchar_t* section, const wchar_t* key) {
    wchar_t value[1024];
    DWORD length = GetPrivateProfileStringW(section, key, L"", value, 1024, file.c_str());
    return std::wstring(value, length);
}

// "kind,paper id,width,height,value" into a record; false when a field is missing or invalid.
bool ParseForm(const std::wstring& name, const std::wstring& text, _tag_FormsInfoRec& form) {
    std::vector<std::wstring> fields = Split(text, L',');
    if (fields.size() != 5) return false;
    long long kind = 0, paperId = 0, width = 0, height = 0, value = 0;
    if (!ParseNumber(fields[0], 0, 0xFFFFFFFFLL, kind) ||
        !ParseNumber(fields[1], 0, 0xFFFF, paperId) ||
        !ParseNumber(fields[2], 1, 0x7FFFFFFF, width) ||
        !ParseNumber(fields[3], 1, 0x7FFFFFFF, height) ||
        !ParseNumber(fields[4], -0x80000000LL, 0x7FFFFFFF, value)) {
        return false;
    }
    std::memset(&form, 0, sizeof form);
    form.paperId = static_cast<WORD>(paperId);
    form.width = static_cast<DWORD>(width);
    form.height = static_cast<DWORD>(height);
    form.dataModelValue = static_cast<INT32>(value);
    form.kind = static_cast<DWORD>(kind);
    std::size_t out = 0;
    for (wchar_t c : name) {
        auto codePoint = static_cast<char32_t>(c);
        if (codePoint > 0x10FFFF || (codePoint >= 0xD800 && codePoint <= 0xDFFF))
            codePoint = 0xFFFD;
        if (codePoint >= 0x10000) {
            if (out + 2 > 63) break;
            codePoint -= 0x10000;
            form.name[out++] = static_cast<WORD>(0xD800 + (codePoint >> 10));
            form.name[out++] = static_cast<WORD>(0xDC00 + (codePoint & 0x3FF));
        } else {
            if (out + 1 > 63) break;
            form.name[out++] = static_cast<WORD>(codePoint);
        }
    }
    return true;
}

void ParseResolution(const std::wstring& text, int& horizontal, int& vertical) {
    std::vector<std::wstring> parts = Split(text, L'x');
    long long x = 0, y = 0;
    if (parts.size() == 1 && ParseNumber(parts[0], 1, 100000, x)) {
        horizontal = vertical = static_cast<int>(x);
    } else if (parts.size() == 2 && ParseNumber(parts[0], 1, 100000, x) &&
               ParseNumber(parts[1], 1, 100000, y)) {
        horizontal = static_cast<int>(x);
        vertical = static_cast<int>(y);
    }
}

LONG ReadMargin(const std::wstring& file, const wchar_t* key) {
    long long value = 0;
    return ParseNumber(ReadValue(file, L"Margins", key), -0x80000000LL, 0x7FFFFFFF, value)
               ? static_cast<LONG>(value)
               : 0;
}

// The forms the public paper indices list: all but the custom-size entry.
std::vector<std::size_t> PublicForms(const platform::PrinterConfiguration& configuration) {
    std::vector<std::size_t> indices;
    for (std::size_t i = 0; i < configuration.forms.size(); ++i) {
        if (configuration.forms[i].kind != MSDeviceCapabilities::FormKindCustomSizeEntry) {
            indices.push_back(i);
        }
    }
    return indices;
}

int Unknown(DWORD error) {
    SetLastError(error);
    return -1;
}

// Information contexts handed out by CreateICW.
struct InformationContext {
    int horizontalResolution;
    int verticalResolution;
    DWORD paperWidth;   // tenths of a millimetre
    DWORD paperHeight;  // tenths of a millimetre
};

struct InformationContexts {
    std::mutex lock;
    std::map<HDC, std::unique_ptr<InformationContext>> live;
};

InformationContexts& Contexts() {
    static InformationContexts* contexts = new InformationContexts;  // usable at exit
    return *contexts;
}

int TenthsOfMillimetreToPixels(DWORD tenths, int dpi) {
    return static_cast<int>((static_cast<long long>(tenths) * dpi + 127) / 254);
}

}  // namespace

namespace platform {

std::string PrinterRegistryDirectory() {
    const char* configured = std::getenv("FU_PRINTER_REGISTRY");
    return configured != nullptr && *configured != '\0' ? std::string(configured)
                                                        : std::string("/etc/xpsfilter/printers");
}

PrinterConfiguration ReadPrinterConfiguration(const wchar_t* printerName) {
    PrinterConfiguration configuration;
    std::string directory = FindPrinterDirectory(printerName);
    if (directory.empty()) return configuration;
    configuration.known = true;
    std::wstring file = Utf8ToWide(directory + "/printer.ini");

    configuration.driverName = ReadValue(file, L"Printer", L"DriverName");
    ParseResolution(ReadValue(file, L"Printer", L"Resolution"), configuration.horizontalResolution,
                    configuration.verticalResolution);
    configuration.margins[0] = ReadMargin(file, L"Left");
    configuration.margins[1] = ReadMargin(file, L"Top");
    configuration.margins[2] = ReadMargin(file, L"Right");
    configuration.margins[3] = ReadMargin(file, L"Bottom");

    std::vector<wchar_t> keys(kListCapacity);
    DWORD length =
        GetPrivateProfileStringW(L"Forms", nullptr, L"", keys.data(), kListCapacity, file.c_str());
    for (DWORD i = 0; i < length;) {
        std::wstring name(keys.data() + i);
        i += static_cast<DWORD>(name.size()) + 1;
        if (name.empty()) continue;
        std::wstring value = ReadValue(file, L"Forms", name.c_str());
        _tag_FormsInfoRec form;
        if (ParseForm(name, value, form)) {
            configuration.forms.push_back(form);
            configuration.formNames.push_back(name);
        } else {
            configuration.rejectedForms.push_back(name + L"=" + value);
            std::string message =
                "printer registry: " + WideToUtf8(printerName) +
                ": form ignored (expected kind,paper id,width,height,value): " + WideToUtf8(name) +
                "=" + WideToUtf8(value) + "\n";
            OutputDebugStringA(message.c_str());
        }
    }
    return configuration;
}

std::wstring FormName(const _tag_FormsInfoRec& form) {
    std::wstring name;
    for (std::size_t i = 0; i < 64 && form.name[i] != 0; ++i) {
        char32_t unit = form.name[i];
        if (unit >= 0xD800 && unit <= 0xDBFF && i + 1 < 64 && form.name[i + 1] >= 0xDC00 &&
            form.name[i + 1] <= 0xDFFF) {
            unit = 0x10000 + ((unit - 0xD800) << 10) + (form.name[i + 1] - 0xDC00);
            ++i;
        } else if (unit >= 0xD800 && unit <= 0xDFFF) {
            unit = 0xFFFD;
        }
        name.push_back(static_cast<wchar_t>(unit));
    }
    return name;
}

}  // namespace platform

BOOL GetPrinterDriverDirectoryA(LPSTR server, LPSTR, DWORD level, LPBYTE directory,
                                DWORD bufferSize, DWORD* needed) {
    if (server != nullptr && *server != '\0') {
        SetLastError(ERROR_INVALID_NAME);
        return FALSE;
    }
    if (level != 1) {
        SetLastError(ERROR_INVALID_LEVEL);
        return FALSE;
    }
    std::string path;
    const char* configured = std::getenv("FU_PRINTER_DRIVER_DIRECTORY");
    if (configured != nullptr && *configured != '\0') {
        path = configured;
    } else {
        path = platform::PrinterRegistryDirectory() + "/drivers";
    }
    while (path.size() > 1 && path.back() == '/') path.pop_back();
    DWORD required = static_cast<DWORD>(path.size() + 1);
    if (needed != nullptr) *needed = required;
    if (directory == nullptr || bufferSize < required) {
        SetLastError(ERROR_INSUFFICIENT_BUFFER);
        return FALSE;
    }
    std::memcpy(directory, path.c_str(), required);
    return TRUE;
}

int DeviceCapabilitiesW(LPCWSTR device, LPCWSTR, WORD capability, LPWSTR output, const void*) {
    platform::PrinterConfiguration configuration = platform::ReadPrinterConfiguration(device);
    switch (capability) {
        case DC_PRIVATE_FORMS:
            if (output != nullptr && !configuration.forms.empty()) {
                std::memcpy(output, configuration.forms.data(),
                            configuration.forms.size() * sizeof(_tag_FormsInfoRec));
            }
            return static_cast<int>(configuration.forms.size());
        case DC_PRIVATE_MARGINS:
            if (output != nullptr) {
                std::memcpy(output, configuration.margins, sizeof configuration.margins);
            }
            return configuration.known ? 1 : 0;
        default:
            break;
    }
    if (!configuration.known) return Unknown(ERROR_INVALID_PRINTER_NAME);
    std::vector<std::size_t> forms = PublicForms(configuration);
    switch (capability) {
        case DC_PAPERS:
            if (output != nullptr) {
                auto* ids = reinterpret_cast<WORD*>(output);
                for (std::size_t i = 0; i < forms.size(); ++i) {
                    ids[i] = configuration.forms[forms[i]].paperId;
                }
            }
            return static_cast<int>(forms.size());
        case DC_PAPERSIZE:
            if (output != nullptr) {
                auto* sizes = reinterpret_cast<POINT*>(output);
                for (std::size_t i = 0; i < forms.size(); ++i) {
                    sizes[i].x = static_cast<LONG>(configuration.forms[forms[i]].width);
                    sizes[i].y = static_cast<LONG>(configuration.forms[forms[i]].height);
                }
            }
            return static_cast<int>(forms.size());
        case DC_PAPERNAMES:
            if (output != nullptr) {
                for (std::size_t i = 0; i < forms.size(); ++i) {
                    wchar_t* slot = output + i * 64;
                    std::wmemset(slot, L'\0', 64);
                    const std::wstring& name = configuration.formNames[forms[i]];
                    std::wmemcpy(slot, name.c_str(), std::min<std::size_t>(name.size(), 63));
                }
            }
            return static_cast<int>(forms.size());
        case DC_ENUMRESOLUTIONS:
            if (output != nullptr) {
                auto* resolution = reinterpret_cast<LONG*>(output);
                resolution[0] = configuration.horizontalResolution;
                resolution[1] = configuration.verticalResolution;
            }
            return 1;
        default:
            return Unknown(ERROR_NOT_SUPPORTED);
    }
}

HDC CreateICW(LPCWSTR, LPCWSTR device, LPCWSTR, const void*) {
    platform::PrinterConfiguration configuration = platform::ReadPrinterConfiguration(device);
    if (!configuration.known) {
        SetLastError(ERROR_INVALID_PRINTER_NAME);
        return nullptr;
    }
    auto context = std::make_unique<InformationContext>();
    context->horizontalResolution = configuration.horizontalResolution;
    context->verticalResolution = configuration.verticalResolution;
    context->paperWidth = 2159;  // Letter, when the printer lists no form
    context->paperHeight = 2794;
    std::vector<std::size_t> forms = PublicForms(configuration);
    if (!forms.empty()) {
        context->paperWidth = configuration.forms[forms.front()].width;
        context->paperHeight = configuration.forms[forms.front()].height;
    }
    HDC dc = context.get();
    InformationContexts& contexts = Contexts();
    std::lock_guard<std::mutex> guard(contexts.lock);
    contexts.live.emplace(dc, std::move(context));
    return dc;
}

int GetDeviceCaps(HDC dc, int index) {
    InformationContexts& contexts = Contexts();
    std::lock_guard<std::mutex> guard(contexts.lock);
    auto found = contexts.live.find(dc);
    if (found == contexts.live.end()) return 0;
    const InformationContext& context = *found->second;
    switch (index) {
        case LOGPIXELSX:
            return context.horizontalResolution;
        case LOGPIXELSY:
            return context.verticalResolution;
        case PHYSICALWIDTH:
            return TenthsOfMillimetreToPixels(context.paperWidth, context.horizontalResolution);
        case PHYSICALHEIGHT:
            return TenthsOfMillimetreToPixels(context.paperHeight, context.verticalResolution);
        default:
            return 0;
    }
}

BOOL DeleteDC(HDC dc) {
    InformationContexts& contexts = Contexts();
    std::lock_guard<std::mutex> guard(contexts.lock);
    if (contexts.live.erase(dc) == 0) {
        SetLastError(ERROR_INVALID_HANDLE);
        return FALSE;
    }
    return TRUE;
}
