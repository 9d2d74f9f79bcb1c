// profile.cpp: the INI reader behind GetPrivateProfileStringW, with a cache of parsed files
// that a stat of the file keeps current.
#include "platform/win32/profile.h"

#include <sys/stat.h>
#include <time.h>

#include <algorithm>
#include <atomic>
#include <cstdint>
#include <cstdio>
#include <list>
#include <memory>
#include <mutex>
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

// What identifies one version of a file: a file rewritten in place changes its modification
// and status-change times (nanoseconds where the file system keeps them) or its size; one
// replaced by a rename changes its inode.
struct FileStamp {
    dev_t device = 0;
    ino_t inode = 0;
    off_t size = 0;
    timespec modified{};
    timespec changed{};

    explicit FileStamp(const struct stat& info)
        : device(info.st_dev),
          inode(info.st_ino),
          size(info.st_size),
          modified(info.st_mtim),
          changed(info.st_ctim) {}
    bool operator==(const FileStamp& other) const {
        return device == other.device && inode == other.inode && size == other.size &&
               modified.tv_sec == other.modified.tv_sec &&
               modified.tv_nsec == other.modified.tv_nsec &&
               changed.tv_sec == other.changed.tv_sec && changed.tv_nsec == other.changed.tv_nsec;
    }
};

bool Usable(const struct stat& info) {
    return S_ISREG(info.st_mode) && info.st_size <= kMaxFileBytes;
}

long long Nanoseconds(const timespec& time) {
    return static_cast<long long>(time.tv_sec) * 1000000000LL + time.tv_nsec;
}

// The parsed sections of one version of a file; shared, never changed once made. `settled`: the
// file had last changed well before it was read, so a later change must give it another stamp.
// A file read just after a change could be changed again within the same tick of the file
// system's clock without its stamp moving; such a copy is used for one call only.
struct ParsedFile {
    FileStamp stamp;
    bool settled = false;
    std::vector<Section> sections;
};
using ParsedFilePtr = std::shared_ptr<const ParsedFile>;

std::atomic<std::uint64_t> g_filesParsed{0};

// Reads and parses the file; null when it is missing, not a regular file, too large or
// unreadable. The stamp is taken from the open file, so it describes the bytes read.
ParsedFilePtr ReadParsedFile(const std::string& path) {
    std::unique_ptr<std::FILE, int (*)(std::FILE*)> file(std::fopen(path.c_str(), "rb"),
                                                         &std::fclose);
    if (!file) return nullptr;
    struct stat info {};
    if (fstat(fileno(file.get()), &info) != 0 || !Usable(info)) return nullptr;
    std::string bytes;
    bytes.reserve(static_cast<std::size_t>(info.st_size));
    char chunk[65536];
    std::size_t n;
    while ((n = std::fread(chunk, 1, sizeof chunk, file.get())) > 0) {
        bytes.append(chunk, n);
        if (static_cast<long long>(bytes.size()) > kMaxFileBytes) return nullptr;
    }
    if (std::ferror(file.get())) return nullptr;
    // File times come from a clock that ticks in jiffies; on file systems that keep whole
    // seconds only (both nanosecond fields zero) a tick is up to two seconds.
    const bool wholeSeconds = info.st_mtim.tv_nsec == 0 && info.st_ctim.tv_nsec == 0;
    const long long margin = wholeSeconds ? 2000000000LL : 100000000LL;
    timespec now{};
    clock_gettime(CLOCK_REALTIME, &now);
    const long long lastChange = std::max(Nanoseconds(info.st_mtim), Nanoseconds(info.st_ctim));
    const bool settled = lastChange + margin <= Nanoseconds(now);
    g_filesParsed.fetch_add(1, std::memory_order_relaxed);
    return std::make_shared<const ParsedFile>(
        ParsedFile{FileStamp(info), settled, Parse(Decode(bytes))});
}

// Parsed files by native path, as Windows keeps INI files it has read. A cached file is used
// while a stat of its path reports the same stamp; any change to the file, or its removal, makes
// the next read go back to the disk. Small files only, and a bounded number of them: the least
// recently used is dropped first. A copy that is not settled is not kept.
class ProfileCache {
public:
    static constexpr std::size_t kMaxFiles = 16;
    static constexpr long long kMaxCachedFileBytes = 1LL << 20;

    ParsedFilePtr Get(LPCWSTR fileName) {
        if (fileName == nullptr || *fileName == L'\0') return nullptr;
        const std::string path = platform::ToNativePath(fileName);
        struct stat info {};
        if (stat(path.c_str(), &info) != 0 || !Usable(info)) {
            Forget(path);
            return nullptr;
        }
        const FileStamp stamp(info);
        {
            std::lock_guard<std::mutex> lock(m_mutex);
            for (auto it = m_files.begin(); it != m_files.end(); ++it) {
                if (it->first != path) continue;
                if (it->second->stamp == stamp) {
                    ParsedFilePtr found = it->second;
                    m_files.splice(m_files.begin(), m_files, it);  // most recently used first
                    return found;
                }
                m_files.erase(it);
                break;
            }
        }
        // Read and parse outside the lock; a thread that raced here stores the same result.
        ParsedFilePtr parsed = ReadParsedFile(path);
        if (parsed != nullptr && parsed->settled && parsed->stamp.size <= kMaxCachedFileBytes) {
            Store(path, parsed);
        }
        return parsed;
    }

private:
    void Forget(const std::string& path) {
        std::lock_guard<std::mutex> lock(m_mutex);
        m_files.remove_if([&](const auto& item) { return item.first == path; });
    }
    void Store(const std::string& path, const ParsedFilePtr& parsed) {
        std::lock_guard<std::mutex> lock(m_mutex);
        m_files.remove_if([&](const auto& item) { return item.first == path; });
        m_files.emplace_front(path, parsed);
        if (m_files.size() > kMaxFiles) m_files.pop_back();
    }

    std::mutex m_mutex;
    std::list<std::pair<std::string, ParsedFilePtr>> m_files;
};

ProfileCache& Cache() {
    static ProfileCache* cache = new ProfileCache();  // never destroyed: usable at exit
    return *cache;
}

const std::vector<Section>& NoSections() {
    static const std::vector<Section> none;
    return none;
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
    const ParsedFilePtr file = Cache().Get(fileName);
    const std::vector<Section>& sections = file != nullptr ? file->sections : NoSections();
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
    const ParsedFilePtr file = Cache().Get(fileName);
    const std::vector<Section>& sections = file != nullptr ? file->sections : NoSections();
    const Entry* entry = FindEntry(FindSection(sections, section), key);
    if (entry == nullptr) return static_cast<UINT>(defaultValue);
    int value = _wtoi(entry->value.c_str());
    return value < 0 ? 0u : static_cast<UINT>(value);
}

namespace platform {

std::uint64_t ProfileFilesParsed() {
    return g_filesParsed.load(std::memory_order_relaxed);
}

}  // namespace platform
