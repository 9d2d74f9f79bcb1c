// profile.cpp: the INI reader behind GetPrivateProfileStringW.
#include "platform/win32/profile.h"

#include <sys/stat.h>

#include <algorithm>
#include <cstdio>
#include <memory>
#include <optional>
#include <string>
#include <vector>

#include "platform/com/unicode.h"
#include "platform/win32/crt.h"
#include "platform/win32/shlwapi.h"

namespace {

constexpr long long kMaxFileBytes = 64LL * 1024 * 1024;

struct Entry {
    std::wstring key;
    std::wstring value;
};

struct Section {
    std::wstring name;
    std::vector<Entry> entries;
};

bool IsBlank(wchar_t c) {
    return c == L' ' || c == L'\t' || c == L'\r' || c == L'\v' || c == L'\f';
}

std::wstring Trim(std::wstring_view text) {
    std::size_t first = 0;
    std::size_t last = text.size();
    while (first < last && IsBlank(text[first])) ++first;
    while (last > first && IsBlank(text[last - 1])) --last;
    return std::wstring(text.substr(first, last - first));
}

bool SameName(std::wstring_view a, std::wstring_view b) {
    if (a.size() != b.size()) return false;
    for (std::size_t i = 0; i < a.size(); ++i) {
        wchar_t x = a[i];
        wchar_t y = b[i];
        if (x >= L'A' && x <= L'Z') x = static_cast<wchar_t>(x - L'A' + L'a');
        if (y >= L'A' && y <= L'Z') y = static_cast<wchar_t>(y - L'A' + L'a');
        if (x != y) return false;
    }
    return true;
}

std::optional<std::string> ReadFile(LPCWSTR fileName) {
    if (fileName == nullptr || *fileName == L'\0') return std::nullopt;
    std::string path = platform::ToNativePath(fileName);
    struct stat info {};
    if (stat(path.c_str(), &info) != 0 || !S_ISREG(info.st_mode) || info.st_size > kMaxFileBytes) {
        return std::nullopt;
    }
    std::unique_ptr<std::FILE, int (*)(std::FILE*)> file(std::fopen(path.c_str(), "rb"),
                                                         &std::fclose);
    if (!file) return std::nullopt;
    std::string bytes;
    char chunk[65536];
    std::size_t n;
    while ((n = std::fread(chunk, 1, sizeof chunk, file.get())) > 0) {
        bytes.append(chunk, n);
        if (static_cast<long long>(bytes.size()) > kMaxFileBytes) return std::nullopt;
    }
    return bytes;
}

std::wstring DecodeUtf16(std::string_view bytes, bool bigEndian) {
    std::wstring units;
    for (std::size_t i = 0; i + 1 < bytes.size(); i += 2) {
        auto a = static_cast<unsigned char>(bytes[i]);
        auto b = static_cast<unsigned char>(bytes[i + 1]);
        units.push_back(static_cast<wchar_t>(bigEndian ? (a << 8) | b : (b << 8) | a));
    }
    // Combine surrogate pairs (and repair lone surrogates) through a UTF-8 round trip.
    return platform::Utf8ToWide(platform::WideToUtf8(units));
}

std::wstring Decode(const std::string& bytes) {
    std::string_view view(bytes);
    if (view.size() >= 2 && static_cast<unsigned char>(view[0]) == 0xFF &&
        static_cast<unsigned char>(view[1]) == 0xFE) {
        return DecodeUtf16(view.substr(2), false);
    }
    if (view.size() >= 2 && static_cast<unsigned char>(view[0]) == 0xFE &&
        static_cast<unsigned char>(view[1]) == 0xFF) {
        return DecodeUtf16(view.substr(2), true);
    }
    if (view.size() >= 3 && view.substr(0, 3) == "\xEF\xBB\xBF") view.remove_prefix(3);
    return platform::Utf8ToWide(view);
}

std::vector<Section> Parse(const std::wstring& text) {
    std::vector<Section> sections;
    std::size_t position = 0;
    while (position <= text.size()) {
        std::size_t end = text.find(L'\n', position);
        if (end == std::wstring::npos) end = text.size();
        std::wstring line = Trim(std::wstring_view(text).substr(position, end - position));
        position = end + 1;
        if (line.empty() || line[0] == L';' || line[0] == L'#') continue;
        if (line[0] == L'[') {
            std::size_t close = line.find(L']');
            if (close != std::wstring::npos) {
                sections.push_back(Section{Trim(std::wstring_view(line).substr(1, close - 1)), {}});
            }
            continue;
        }
        std::size_t equals = line.find(L'=');
        if (equals == std::wstring::npos || sections.empty()) continue;
        std::wstring key = Trim(std::wstring_view(line).substr(0, equals));
        std::wstring value = Trim(std::wstring_view(line).substr(equals + 1));
        if (value.size() >= 2 && (value.front() == L'"' || value.front() == L'\'') &&
            value.back() == value.front()) {
            value = value.substr(1, value.size() - 2);
        }
        if (!key.empty()) sections.back().entries.push_back(Entry{key, value});
    }
    return sections;
}

const Section* FindSection(const std::vector<Section>& sections, std::wstring_view name) {
    for (const auto& section : sections) {
        if (SameName(section.name, name)) return &section;
    }
    return nullptr;
}

// Copies one string with the single-value truncation rule.
DWORD CopyValue(std::wstring_view value, LPWSTR out, DWORD size) {
    std::size_t copied = std::min<std::size_t>(value.size(), size - 1);
    std::copy_n(value.data(), copied, out);
    out[copied] = L'\0';
    return static_cast<DWORD>(copied);
}

// Copies a list of names, each NUL-terminated, with a final NUL; the list truncation rule.
DWORD CopyList(const std::vector<std::wstring>& names, LPWSTR out, DWORD size) {
    std::wstring list;
    for (const auto& name : names) {
        list += name;
        list.push_back(L'\0');
    }
    if (list.size() + 1 <= size) {
        std::copy(list.begin(), list.end(), out);
        out[list.size()] = L'\0';
        if (list.empty() && size > 1) out[1] = L'\0';
        return static_cast<DWORD>(list.size());
    }
    if (size < 2) {
        out[0] = L'\0';
        return 0;
    }
    std::copy_n(list.data(), size - 2, out);
    out[size - 2] = L'\0';
    out[size - 1] = L'\0';
    return size - 2;
}

std::vector<Section> LoadSections(LPCWSTR fileName) {
    std::optional<std::string> bytes = ReadFile(fileName);
    return bytes ? Parse(Decode(*bytes)) : std::vector<Section>();
}

const Entry* FindEntry(const Section* section, std::wstring_view key) {
    if (section == nullptr) return nullptr;
    for (const auto& entry : section->entries) {
        if (SameName(entry.key, key)) return &entry;
    }
    return nullptr;
}

}  // namespace

DWORD GetPrivateProfileStringW(LPCWSTR section, LPCWSTR key, LPCWSTR defaultValue, LPWSTR out,
                               DWORD size, LPCWSTR fileName) {
    if (out == nullptr || size == 0) return 0;
    std::vector<Section> sections = LoadSections(fileName);
    if (section == nullptr) {
        std::vector<std::wstring> names;
        for (const auto& s : sections) names.push_back(s.name);
        return CopyList(names, out, size);
    }
    const Section* found = FindSection(sections, section);
    if (key == nullptr) {
        std::vector<std::wstring> names;
        if (found != nullptr) {
            for (const auto& entry : found->entries) names.push_back(entry.key);
        }
        return CopyList(names, out, size);
    }
    if (const Entry* entry = FindEntry(found, key)) return CopyValue(entry->value, out, size);
    std::wstring fallback = defaultValue != nullptr ? defaultValue : L"";
    while (!fallback.empty() && fallback.back() == L' ') fallback.pop_back();
    return CopyValue(fallback, out, size);
}

UINT GetPrivateProfileIntW(LPCWSTR section, LPCWSTR key, INT defaultValue, LPCWSTR fileName) {
    if (section == nullptr || key == nullptr) return static_cast<UINT>(defaultValue);
    std::vector<Section> sections = LoadSections(fileName);
    const Entry* entry = FindEntry(FindSection(sections, section), key);
    if (entry == nullptr) return static_cast<UINT>(defaultValue);
    int value = _wtoi(entry->value.c_str());
    return value < 0 ? 0u : static_cast<UINT>(value);
}
