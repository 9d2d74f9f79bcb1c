// partname.cpp: OPC part name checks, comparison keys and reference resolution.
#include "pipelinehost/partname.h"

#include <vector>

#include "pipelinehost/hosterror.h"

namespace pipelinehost {
namespace {

int HexValue(char c) {
    if (c >= '0' && c <= '9') return c - '0';
    if (c >= 'a' && c <= 'f') return c - 'a' + 10;
    if (c >= 'A' && c <= 'F') return c - 'A' + 10;
    return -1;
}

char Lower(char c) {
    return (c >= 'A' && c <= 'Z') ? static_cast<char>(c - 'A' + 'a') : c;
}

std::vector<std::string_view> Split(std::string_view path) {
    std::vector<std::string_view> segments;
    std::size_t start = 0;
    while (start <= path.size()) {
        std::size_t slash = path.find('/', start);
        if (slash == std::string_view::npos) slash = path.size();
        segments.push_back(path.substr(start, slash - start));
        start = slash + 1;
    }
    return segments;
}

bool HasScheme(std::string_view target) {
    // scheme = ALPHA *( ALPHA / DIGIT / "+" / "-" / "." ) ":"
    std::size_t colon = target.find(':');
    if (colon == std::string_view::npos || colon == 0) return false;
    std::size_t slash = target.find('/');
    if (slash != std::string_view::npos && slash < colon) return false;
    for (std::size_t i = 0; i < colon; ++i) {
        char c = target[i];
        bool ok = (c >= 'a' && c <= 'z') || (c >= 'A' && c <= 'Z') ||
                  (i > 0 && ((c >= '0' && c <= '9') || c == '+' || c == '-' || c == '.'));
        if (!ok) return false;
    }
    return true;
}

}  // namespace

std::string PartKey(std::string_view name) {
    std::string key;
    key.reserve(name.size());
    for (std::size_t i = 0; i < name.size(); ++i) {
        char c = name[i];
        if (c == '%' && i + 2 < name.size()) {
            int high = HexValue(name[i + 1]);
            int low = HexValue(name[i + 2]);
            if (high >= 0 && low >= 0) {
                key.push_back(Lower(static_cast<char>(high * 16 + low)));
                i += 2;
                continue;
            }
        }
        key.push_back(Lower(c));
    }
    return key;
}

std::string PartNameFromItem(std::string_view item) {
    auto fail = [&](const char* why) {
        throw JobError(ErrorKind::BadPackage, "ZIP item name \"" + std::string(item) +
                                                  "\" is not a valid part name: " + why);
    };
    if (item.empty()) fail("it is empty");
    if (item.front() == '/') fail("it is absolute");
    if (item.find('\\') != std::string_view::npos) fail("it contains a backslash");
    if (item.find('\0') != std::string_view::npos) fail("it contains a NUL character");
    for (std::string_view segment : Split(item)) {
        if (segment.empty()) fail("it has an empty segment");
        if (segment == "." || segment == "..") fail("it has a \".\" or \"..\" segment");
        if (segment.back() == '.') fail("a segment ends with a dot");
    }
    return "/" + std::string(item);
}

std::optional<std::string> ResolvePartReference(std::string_view source, std::string_view target) {
    std::size_t cut = target.find_first_of("?#");
    if (cut != std::string_view::npos) target = target.substr(0, cut);
    if (HasScheme(target)) return std::nullopt;
    if (target.empty()) return std::nullopt;
    std::string combined;
    if (target.front() == '/') {
        combined = std::string(target);
    } else {
        std::size_t slash = source.rfind('/');
        combined = std::string(source.substr(0, slash == std::string_view::npos ? 0 : slash + 1));
        if (combined.empty() || combined.front() != '/') combined.insert(combined.begin(), '/');
        combined += target;
    }
    std::vector<std::string_view> out;
    std::vector<std::string_view> segments = Split(std::string_view(combined).substr(1));
    for (std::size_t i = 0; i < segments.size(); ++i) {
        std::string_view segment = segments[i];
        if (segment == ".") continue;
        if (segment == "..") {
            if (out.empty()) {
                throw JobError(ErrorKind::BadPackage, "reference \"" + std::string(target) +
                                                          "\" from " + std::string(source) +
                                                          " leaves the package root");
            }
            out.pop_back();
            continue;
        }
        if (segment.empty() && i + 1 != segments.size()) continue;
        out.push_back(segment);
    }
    std::string result;
    for (std::string_view segment : out) {
        result += '/';
        result += segment;
    }
    if (result.empty() || result.back() == '/') return std::nullopt;
    return result;
}

std::string RelationshipsPartName(std::string_view source) {
    if (source.empty() || source == "/") return "/_rels/.rels";
    std::size_t slash = source.rfind('/');
    std::string dir(source.substr(0, slash + 1));
    return dir + "_rels/" + std::string(source.substr(slash + 1)) + ".rels";
}

std::optional<PieceName> ParsePieceName(std::string_view name) {
    std::size_t slash = name.rfind('/');
    if (slash == std::string_view::npos) return std::nullopt;
    std::string last = PartKey(name.substr(slash + 1));
    if (last.size() < 9 || last.front() != '[') return std::nullopt;
    std::size_t close = last.find(']');
    if (close == std::string::npos || close == 1 || close > 10) return std::nullopt;
    std::string digits = last.substr(1, close - 1);
    for (char c : digits) {
        if (c < '0' || c > '9') return std::nullopt;
    }
    if (digits.size() > 1 && digits.front() == '0') return std::nullopt;
    std::string rest = last.substr(close + 1);
    PieceName piece;
    if (rest == ".piece") {
        piece.last = false;
    } else if (rest == ".last.piece") {
        piece.last = true;
    } else {
        return std::nullopt;
    }
    piece.number = static_cast<unsigned>(std::stoul(digits));
    piece.partName = std::string(name.substr(0, slash));
    if (piece.partName.empty()) return std::nullopt;
    return piece;
}

std::string PartExtension(std::string_view name) {
    std::size_t slash = name.rfind('/');
    std::size_t dot = name.rfind('.');
    if (dot == std::string_view::npos || (slash != std::string_view::npos && dot < slash))
        return {};
    std::string ext;
    for (char c : name.substr(dot + 1)) ext.push_back(Lower(c));
    return ext;
}

}  // namespace pipelinehost
