// devmodedescription.cpp: reading, building and writing the readable description of a driver
// device mode (see devmodedescription.h and docs/privatedata.md).
#include "devmodedescription.h"

#include <charconv>
#include <cmath>
#include <cstddef>
#include <cstdio>
#include <cstring>
#include <map>
#include <memory>
#include <optional>
#include <sstream>
#include <string_view>

#include "datamodelnames.h"
#include "platform/com/unicode.h"
#include "support/utilities/dimension.h"
#include "support/utilities/persistentattributes.h"

namespace xpsfilter {

namespace {

// --- The public fields, shared by reading and writing ---

struct PublicField {
    const char* name;
    std::size_t offset;
    std::size_t size;  // 2 or 4
    bool isSigned;
    bool hex;  // written in hexadecimal
};

constexpr PublicField kPublicFields[] = {
    {"specVersion", offsetof(DEVMODEW, dmSpecVersion), 2, false, true},
    {"driverVersion", offsetof(DEVMODEW, dmDriverVersion), 2, false, true},
    {"fields", offsetof(DEVMODEW, dmFields), 4, false, true},
    {"orientation", offsetof(DEVMODEW, dmOrientation), 2, true, false},
    {"paperSize", offsetof(DEVMODEW, dmPaperSize), 2, true, false},
    {"paperLength", offsetof(DEVMODEW, dmPaperLength), 2, true, false},
    {"paperWidth", offsetof(DEVMODEW, dmPaperWidth), 2, true, false},
    {"scale", offsetof(DEVMODEW, dmScale), 2, true, false},
    {"copies", offsetof(DEVMODEW, dmCopies), 2, true, false},
    {"defaultSource", offsetof(DEVMODEW, dmDefaultSource), 2, true, false},
    {"printQuality", offsetof(DEVMODEW, dmPrintQuality), 2, true, false},
    {"color", offsetof(DEVMODEW, dmColor), 2, true, false},
    {"duplex", offsetof(DEVMODEW, dmDuplex), 2, true, false},
    {"yResolution", offsetof(DEVMODEW, dmYResolution), 2, true, false},
    {"ttOption", offsetof(DEVMODEW, dmTTOption), 2, true, false},
    {"collate", offsetof(DEVMODEW, dmCollate), 2, true, false},
    {"logPixels", offsetof(DEVMODEW, dmLogPixels), 2, false, false},
    {"bitsPerPel", offsetof(DEVMODEW, dmBitsPerPel), 4, false, false},
    {"pelsWidth", offsetof(DEVMODEW, dmPelsWidth), 4, false, false},
    {"pelsHeight", offsetof(DEVMODEW, dmPelsHeight), 4, false, false},
    {"nup", offsetof(DEVMODEW, dmNup), 4, false, false},
    {"displayFrequency", offsetof(DEVMODEW, dmDisplayFrequency), 4, false, false},
    {"icmMethod", offsetof(DEVMODEW, dmICMMethod), 4, false, false},
    {"icmIntent", offsetof(DEVMODEW, dmICMIntent), 4, false, false},
    {"mediaType", offsetof(DEVMODEW, dmMediaType), 4, false, false},
    {"ditherType", offsetof(DEVMODEW, dmDitherType), 4, false, false},
    {"reserved1", offsetof(DEVMODEW, dmReserved1), 4, false, false},
    {"reserved2", offsetof(DEVMODEW, dmReserved2), 4, false, false},
    {"panningWidth", offsetof(DEVMODEW, dmPanningWidth), 4, false, false},
    {"panningHeight", offsetof(DEVMODEW, dmPanningHeight), 4, false, false},
};

const PublicField* FindPublicField(std::string_view name) {
    for (const PublicField& field : kPublicFields) {
        if (name == field.name) return &field;
    }
    return nullptr;
}

// --- Units ---

constexpr const char* kUnitNames[] = {"in",      "pt",          "mm", "cm",          "px96", "twip",
                                      "tenthmm", "hundredthin", "um", "hundredthmm", "mil"};

// --- Text helpers ---

std::string_view Trim(std::string_view text) {
    while (!text.empty() && (text.front() == ' ' || text.front() == '\t')) text.remove_prefix(1);
    while (!text.empty() && (text.back() == ' ' || text.back() == '\t' || text.back() == '\r')) {
        text.remove_suffix(1);
    }
    return text;
}

[[noreturn]] void Fail(int line, const std::string& message) {
    throw DescriptionError("line " + std::to_string(line) + ": " + message);
}

// A decimal or 0x-hexadecimal integer, optionally signed, within [low, high].
long long ParseInteger(std::string_view text, long long low, long long high, int line,
                       const char* what) {
    std::string_view digits = text;
    bool negative = false;
    if (!digits.empty() && (digits.front() == '-' || digits.front() == '+')) {
        negative = digits.front() == '-';
        digits.remove_prefix(1);
    }
    int base = 10;
    if (digits.size() > 2 && digits[0] == '0' && (digits[1] == 'x' || digits[1] == 'X')) {
        base = 16;
        digits.remove_prefix(2);
    }
    unsigned long long magnitude = 0;
    auto [end, error] =
        std::from_chars(digits.data(), digits.data() + digits.size(), magnitude, base);
    if (digits.empty() || error != std::errc() || end != digits.data() + digits.size() ||
        magnitude > 0x7FFFFFFFFFFFFFFFull) {
        Fail(line, std::string(what) + " is not an integer: '" + std::string(text) + "'");
    }
    long long value =
        negative ? -static_cast<long long>(magnitude) : static_cast<long long>(magnitude);
    if (value < low || value > high) {
        Fail(line, std::string(what) + " " + std::string(text) + " is out of range " +
                       std::to_string(low) + ".." + std::to_string(high));
    }
    return value;
}

double ParseReal(std::string_view text, int line) {
    double value = 0;
    auto [end, error] = std::from_chars(text.data(), text.data() + text.size(), value);
    if (text.empty() || error != std::errc() || end != text.data() + text.size() ||
        !std::isfinite(value)) {
        Fail(line, "not a finite number: '" + std::string(text) + "'");
    }
    return value;
}

// A quoted string with \\ \" \n \r \t and \uXXXX escapes, or bare text (trimmed). `rest`
// receives what follows the closing quote.
std::string ParseText(std::string_view text, int line, std::string_view* rest = nullptr) {
    text = Trim(text);
    if (text.empty() || text.front() != '"') {
        if (rest != nullptr) *rest = {};
        return std::string(text);
    }
    std::string value;
    std::size_t i = 1;
    for (; i < text.size() && text[i] != '"'; ++i) {
        char c = text[i];
        if (c != '\\') {
            value += c;
            continue;
        }
        if (++i >= text.size()) Fail(line, "unfinished escape in a string");
        switch (text[i]) {
            case '\\':
                value += '\\';
                break;
            case '"':
                value += '"';
                break;
            case 'n':
                value += '\n';
                break;
            case 'r':
                value += '\r';
                break;
            case 't':
                value += '\t';
                break;
            case 'u': {
                if (i + 4 >= text.size()) Fail(line, "\\u needs four hexadecimal digits");
                unsigned code = 0;
                auto [end, error] =
                    std::from_chars(text.data() + i + 1, text.data() + i + 5, code, 16);
                if (error != std::errc() || end != text.data() + i + 5) {
                    Fail(line, "\\u needs four hexadecimal digits");
                }
                value += platform::WideToUtf8(std::wstring(1, static_cast<wchar_t>(code)));
                i += 4;
                break;
            }
            default:
                Fail(line, std::string("unknown escape \\") + text[i]);
        }
    }
    if (i >= text.size()) Fail(line, "a string is not closed");
    if (rest != nullptr) *rest = Trim(text.substr(i + 1));
    return value;
}

std::string Quote(const std::string& utf8) {
    std::string quoted = "\"";
    for (unsigned char c : utf8) {
        switch (c) {
            case '\\':
                quoted += "\\\\";
                break;
            case '"':
                quoted += "\\\"";
                break;
            case '\n':
                quoted += "\\n";
                break;
            case '\r':
                quoted += "\\r";
                break;
            case '\t':
                quoted += "\\t";
                break;
            default:
                if (c < 0x20 || c == 0x7F) {
                    char escape[8];
                    std::snprintf(escape, sizeof escape, "\\u%04X", c);
                    quoted += escape;
                } else {
                    quoted += static_cast<char>(c);
                }
        }
    }
    return quoted + "\"";
}

std::u16string ToUtf16(const std::string& utf8) {
    std::u16string text;
    for (wchar_t c : platform::Utf8ToWide(utf8)) {
        char32_t code = static_cast<char32_t>(c);
        if (code >= 0x10000) {
            code -= 0x10000;
            text.push_back(static_cast<char16_t>(0xD800 + (code >> 10)));
            text.push_back(static_cast<char16_t>(0xDC00 + (code & 0x3FF)));
        } else {
            text.push_back(static_cast<char16_t>(code));
        }
    }
    return text;
}

std::string FromUtf16(const char16_t* text, std::size_t capacity) {
    std::wstring wide;
    for (std::size_t i = 0; i < capacity && text[i] != u'\0'; ++i) {
        char32_t unit = text[i];
        if (unit >= 0xD800 && unit <= 0xDBFF && i + 1 < capacity && text[i + 1] >= 0xDC00 &&
            text[i + 1] <= 0xDFFF) {
            unit = 0x10000 + ((unit - 0xD800) << 10) + (text[i + 1] - 0xDC00);
            ++i;
        } else if (unit >= 0xD800 && unit <= 0xDFFF) {
            unit = 0xFFFD;
        }
        wide.push_back(static_cast<wchar_t>(unit));
    }
    return platform::WideToUtf8(wide);
}

void SetText(char16_t* field, std::size_t capacity, const std::string& utf8, int line,
             const char* name) {
    std::u16string text = ToUtf16(utf8);
    if (text.size() >= capacity) {
        Fail(line, std::string(name) + " is longer than " + std::to_string(capacity - 1) +
                       " UTF-16 units");
    }
    std::memset(field, 0, capacity * sizeof(char16_t));
    std::memcpy(field, text.data(), text.size() * sizeof(char16_t));
}

// --- Attributes: a tree built from paths, then turned into raw lists ---

struct Node {
    long feature = 0;
    AttributeBytesType type = AttributeBytesType::Integer;
    bool specified = true;
    long number = 0;
    double dimension = 0;
    int unit = 0;
    std::wstring text;
    std::vector<Node> children;
};

Node* FindChild(std::vector<Node>& nodes, long feature) {
    for (Node& node : nodes) {
        if (node.feature == feature) return &node;
    }
    return nullptr;
}

AttributeBytesRawList ToRawList(const std::vector<Node>& nodes) {
    AttributeBytesRawList list;
    for (const Node& node : nodes) {
        switch (node.type) {
            case AttributeBytesType::OptionValue:
                list.Add(AttributeBytesItem::MakeOptionValue(
                    node.feature, static_cast<DataModelIds::tagValueEnum>(node.number),
                    node.specified));
                break;
            case AttributeBytesType::Integer:
                list.Add(
                    AttributeBytesItem::MakeInteger(node.feature, node.number, node.specified));
                break;
            case AttributeBytesType::Boolean:
                list.Add(AttributeBytesItem::MakeBoolean(node.feature, node.number != 0,
                                                         node.specified));
                break;
            case AttributeBytesType::Dimension:
                list.Add(AttributeBytesItem::MakeDimension(node.feature, node.dimension, node.unit,
                                                           node.specified));
                break;
            case AttributeBytesType::String:
                list.Add(AttributeBytesItem::MakeString(node.feature, node.text, node.specified));
                break;
            case AttributeBytesType::Collection:
                list.Add(AttributeBytesItem::MakeCollection(node.feature, ToRawList(node.children),
                                                            node.specified));
                break;
        }
    }
    return list;
}

// Reads "type value [unspecified]" into `node`.
void ParseAttributeValue(std::string_view text, int line, Node& node) {
    text = Trim(text);
    std::size_t space = text.find_first_of(" \t");
    std::string_view type = text.substr(0, space);
    std::string_view rest =
        space == std::string_view::npos ? std::string_view() : Trim(text.substr(space));

    // The optional "unspecified" word ends the line (after a string, after its closing quote).
    auto takeSpecified = [&](std::string_view& words) {
        constexpr std::string_view kWord = "unspecified";
        if (words.size() >= kWord.size() && words.substr(words.size() - kWord.size()) == kWord &&
            (words.size() == kWord.size() || words[words.size() - kWord.size() - 1] == ' ' ||
             words[words.size() - kWord.size() - 1] == '\t')) {
            node.specified = false;
            words = Trim(words.substr(0, words.size() - kWord.size()));
        }
    };

    if (type == "string") {
        std::string_view after;
        if (rest.empty() || rest.front() != '"') Fail(line, "a string value is written in quotes");
        node.type = AttributeBytesType::String;
        node.text = platform::Utf8ToWide(ParseText(rest, line, &after));
        takeSpecified(after);
        if (!after.empty())
            Fail(line, "unexpected text after the string: '" + std::string(after) + "'");
        return;
    }
    takeSpecified(rest);
    if (type == "option" || type == "integer") {
        node.type =
            type == "option" ? AttributeBytesType::OptionValue : AttributeBytesType::Integer;
        node.number =
            static_cast<long>(ParseInteger(rest, INT32_MIN, INT32_MAX, line, "the value"));
    } else if (type == "boolean") {
        node.type = AttributeBytesType::Boolean;
        if (rest == "true" || rest == "1") {
            node.number = 1;
        } else if (rest == "false" || rest == "0") {
            node.number = 0;
        } else {
            Fail(line, "a boolean is true or false, not '" + std::string(rest) + "'");
        }
    } else if (type == "dimension") {
        node.type = AttributeBytesType::Dimension;
        std::size_t gap = rest.find_first_of(" \t");
        if (gap == std::string_view::npos) Fail(line, "a dimension is a number and a unit");
        node.dimension = ParseReal(rest.substr(0, gap), line);
        std::string_view unit = Trim(rest.substr(gap));
        int found = -1;
        for (int i = 0; i < static_cast<int>(std::size(kUnitNames)); ++i) {
            if (unit == kUnitNames[i]) found = i;
        }
        if (found < 0) {
            if (unit.empty() || unit.find_first_not_of("0123456789") != std::string_view::npos) {
                Fail(line, "unknown unit '" + std::string(unit) + "'");
            }
            found = static_cast<int>(ParseInteger(unit, 0, 255, line, "the unit"));
        }
        node.unit = found;
    } else if (type == "collection") {
        node.type = AttributeBytesType::Collection;
        if (!rest.empty()) Fail(line, "a collection takes no value; name its members by path");
    } else {
        Fail(line, "unknown attribute type '" + std::string(type) +
                       "' (option, integer, boolean, dimension, string, collection)");
    }
}

void AddAttribute(std::vector<Node>& roots, std::string_view path, std::string_view value,
                  int line) {
    std::vector<long> features;
    while (true) {
        std::size_t slash = path.find('/');
        features.push_back(static_cast<long>(ParseInteger(Trim(path.substr(0, slash)), INT32_MIN,
                                                          INT32_MAX, line, "the feature id")));
        if (slash == std::string_view::npos) break;
        path.remove_prefix(slash + 1);
    }
    if (features.size() > 8) Fail(line, "collections nest at most 8 deep");

    std::vector<Node>* level = &roots;
    for (std::size_t i = 0; i + 1 < features.size(); ++i) {
        Node* collection = FindChild(*level, features[i]);
        if (collection == nullptr) {
            Node fresh;
            fresh.feature = features[i];
            fresh.type = AttributeBytesType::Collection;
            level->push_back(std::move(fresh));
            collection = &level->back();
        } else if (collection->type != AttributeBytesType::Collection) {
            Fail(line, "feature " + std::to_string(features[i]) + " is not a collection");
        }
        level = &collection->children;
    }
    Node node;
    node.feature = features.back();
    ParseAttributeValue(value, line, node);
    Node* existing = FindChild(*level, node.feature);
    if (existing != nullptr) {
        // "477 = collection unspecified" after members were named by path: only the flag.
        if (existing->type == AttributeBytesType::Collection &&
            node.type == AttributeBytesType::Collection) {
            existing->specified = node.specified;
            return;
        }
        Fail(line, "feature " + std::to_string(node.feature) + " is named twice");
    }
    level->push_back(std::move(node));
}

// --- Writing attributes ---

std::string FormatReal(double value) {
    char text[64];
    auto [end, error] = std::to_chars(text, text + sizeof text, value);
    return error == std::errc() ? std::string(text, end) : std::string("0");
}

// The data model's names of an attribute and of its option, as a comment line above it (the
// description format has comments on lines of their own).
void NameComment(const AttributeBytesItem& item, std::ostream& out) {
    const std::string feature = FeatureName(static_cast<long>(item.GetFeatureId()));
    std::string option;
    if (item.GetType() == AttributeBytesType::OptionValue) {
        option = ValueName(static_cast<long>(item.GetOptionValue()));
    }
    if (feature.empty() && option.empty()) return;
    out << "# " << (feature.empty() ? "(unnamed feature)" : feature);
    if (!option.empty()) out << ": " << option;
    out << "\n";
}

void DescribeList(const AttributeBytesRawList& list, const std::string& prefix, std::ostream& out,
                  long nameSpace, std::vector<DescribedAttribute>* described) {
    for (const AttributeBytesItem& item : list) {
        std::string path = prefix + std::to_string(item.GetFeatureId());
        std::string value;
        if (item.GetType() != AttributeBytesType::Collection) NameComment(item, out);
        switch (item.GetType()) {
            case AttributeBytesType::OptionValue:
                value = "option " + std::to_string(static_cast<long>(item.GetOptionValue()));
                break;
            case AttributeBytesType::Integer:
                value = "integer " + std::to_string(item.GetInteger());
                break;
            case AttributeBytesType::Boolean:
                value = item.GetBoolean() ? "boolean true" : "boolean false";
                break;
            case AttributeBytesType::Dimension: {
                int unit = item.GetDimensionUnit();
                value = "dimension " + FormatReal(item.GetDimensionValue()) + " " +
                        (unit >= 0 && unit < static_cast<int>(std::size(kUnitNames))
                             ? std::string(kUnitNames[unit])
                             : std::to_string(unit));
                break;
            }
            case AttributeBytesType::String:
                value = "string " + Quote(platform::WideToUtf8(item.GetString()));
                break;
            case AttributeBytesType::Collection:
                // Members by path; an empty or unspecified collection is also named itself.
                if (item.GetCollection().IsEmpty() || !item.IsSpecified()) {
                    NameComment(item, out);
                    out << path << " = collection" << (item.IsSpecified() ? "" : " unspecified")
                        << "\n";
                }
                DescribeList(item.GetCollection(), path + "/", out, nameSpace, described);
                continue;
        }
        out << path << " = " << value << (item.IsSpecified() ? "" : " unspecified") << "\n";
        if (described != nullptr) {
            DescribedAttribute attribute;
            attribute.nameSpace = nameSpace;
            attribute.path = path;
            const auto space = value.find(' ');
            attribute.type = value.substr(0, space);
            attribute.value = space == std::string::npos ? "" : value.substr(space + 1);
            attribute.specified = item.IsSpecified();
            attribute.feature = FeatureName(static_cast<long>(item.GetFeatureId()));
            if (item.GetType() == AttributeBytesType::OptionValue) {
                attribute.option = ValueName(static_cast<long>(item.GetOptionValue()));
            }
            described->push_back(std::move(attribute));
        }
    }
}

std::string Hex(const BYTE* bytes, std::size_t count) {
    std::string text;
    char pair[4];
    for (std::size_t i = 0; i < count; ++i) {
        if (i > 0 && i % 32 == 0)
            text += "\nhex = ";
        else if (i > 0)
            text += ' ';
        std::snprintf(pair, sizeof pair, "%02x", bytes[i]);
        text += pair;
    }
    return text;
}

void ParseHex(std::string_view text, int line, ByteBuffer& out) {
    int high = -1;
    for (char c : text) {
        if (c == ' ' || c == '\t') continue;
        int digit = (c >= '0' && c <= '9')   ? c - '0'
                    : (c >= 'a' && c <= 'f') ? c - 'a' + 10
                    : (c >= 'A' && c <= 'F') ? c - 'A' + 10
                                             : -1;
        if (digit < 0) Fail(line, std::string("not a hexadecimal digit: '") + c + "'");
        if (high < 0) {
            high = digit;
        } else {
            out.push_back(static_cast<BYTE>(high * 16 + digit));
            high = -1;
        }
        if (out.size() > 0xFFFF) Fail(line, "a record holds at most 65535 bytes");
    }
    if (high >= 0) Fail(line, "an odd number of hexadecimal digits");
}

}  // namespace

DevmodeDescription ParseDevmodeDescription(const std::string& text) {
    DevmodeDescription description;
    description.publicPart.dmSpecVersion = DM_SPECVERSION;
    enum class Section { None, Devmode, Plugin, Attributes, Record } section = Section::None;
    std::map<std::string, int> seenKeys;  // "section.key" -> line
    std::map<long, std::vector<Node>> trees;
    std::vector<long> nameSpaceOrder;
    long currentNameSpace = 0;
    bool coreSizeGiven = false;
    bool attributesPlaced = false;

    std::istringstream lines(text);
    std::string raw;
    int line = 0;
    while (std::getline(lines, raw)) {
        ++line;
        std::string_view content = Trim(raw);
        if (line == 1 && content.substr(0, 3) == "\xEF\xBB\xBF") content.remove_prefix(3);
        if (content.empty() || content.front() == '#' || content.front() == ';') continue;

        if (content.front() == '[') {
            if (content.back() != ']') Fail(line, "a section name ends with ']'");
            std::string_view name = Trim(content.substr(1, content.size() - 2));
            std::size_t space = name.find_first_of(" \t");
            std::string_view word = name.substr(0, space);
            std::string_view argument =
                space == std::string_view::npos ? std::string_view() : Trim(name.substr(space));
            if (word == "devmode" && argument.empty()) {
                section = Section::Devmode;
            } else if (word == "plugin" && argument.empty()) {
                section = Section::Plugin;
            } else if (word == "attributes") {
                section = Section::Attributes;
                currentNameSpace =
                    argument.empty()
                        ? PersistentAttributes::GetDataModelDocPropNameSpaceId().GetNameSpaceId()
                        : static_cast<long>(
                              ParseInteger(argument, INT32_MIN, INT32_MAX, line, "the namespace"));
                if (trees.count(currentNameSpace) != 0) {
                    Fail(line, "namespace " + std::to_string(currentNameSpace) + " appears twice");
                }
                trees[currentNameSpace];
                nameSpaceOrder.push_back(currentNameSpace);
                if (!attributesPlaced) {
                    DevmodeDescription::Section record;
                    record.attributes = true;
                    description.records.push_back(record);
                    attributesPlaced = true;
                }
            } else if (word == "record") {
                section = Section::Record;
                DevmodeDescription::Section record;
                record.raw.type =
                    static_cast<WORD>(ParseInteger(argument, 0, 0xFFFF, line, "the record type"));
                description.records.push_back(record);
            } else {
                Fail(line, "unknown section [" + std::string(name) +
                               "] (devmode, plugin, attributes [N], record N)");
            }
            continue;
        }

        std::size_t equals = content.find('=');
        if (equals == std::string_view::npos) Fail(line, "expected 'key = value'");
        std::string_view key = Trim(content.substr(0, equals));
        std::string_view value = Trim(content.substr(equals + 1));
        if (key.empty()) Fail(line, "a key is missing before '='");

        switch (section) {
            case Section::None:
                Fail(line, "a key outside a section");
            case Section::Devmode:
            case Section::Plugin: {
                std::string id =
                    (section == Section::Devmode ? "devmode." : "plugin.") + std::string(key);
                auto [at, fresh] = seenKeys.emplace(id, line);
                if (!fresh) Fail(line, "'" + std::string(key) + "' is given twice");
                break;
            }
            default:
                break;
        }

        if (section == Section::Devmode) {
            DEVMODEW& devmode = description.publicPart;
            if (key == "deviceName") {
                SetText(devmode.dmDeviceName, CCHDEVICENAME, ParseText(value, line), line,
                        "deviceName");
            } else if (key == "formName") {
                SetText(devmode.dmFormName, CCHFORMNAME, ParseText(value, line), line, "formName");
            } else if (const PublicField* field = FindPublicField(key)) {
                long long low = field->isSigned ? (field->size == 2 ? INT16_MIN : INT32_MIN) : 0;
                long long high = field->isSigned ? (field->size == 2 ? INT16_MAX : INT32_MAX)
                                                 : (field->size == 2 ? 0xFFFF : 0xFFFFFFFFll);
                long long number = ParseInteger(value, low, high, line, field->name);
                BYTE* target = reinterpret_cast<BYTE*>(&devmode) + field->offset;
                if (field->size == 2) {
                    OemDevmode::WriteWord(target, static_cast<WORD>(number));
                } else {
                    OemDevmode::WriteDword(target, static_cast<DWORD>(number));
                }
            } else {
                Fail(line, "unknown device mode field '" + std::string(key) + "'");
            }
        } else if (section == Section::Plugin) {
            if (key == "layout") {
                if (value == "postscript") {
                    description.layout = OemDevmode::CoreLayout::PostScript;
                } else if (value == "raster") {
                    description.layout = OemDevmode::CoreLayout::Raster;
                } else {
                    Fail(line, "layout is postscript or raster");
                }
            } else if (key == "coreSize") {
                description.coreSize =
                    static_cast<WORD>(ParseInteger(value, 1, 0xFFFF, line, "coreSize"));
                coreSizeGiven = true;
            } else if (key == "version") {
                description.version =
                    static_cast<DWORD>(ParseInteger(value, 0, 0xFFFFFFFFll, line, "version"));
            } else if (key == "layoutWord") {
                description.recordAreaLayout =
                    static_cast<DWORD>(ParseInteger(value, 0, 0xFFFFFFFFll, line, "layoutWord"));
            } else if (key == "trailing") {
                description.trailing =
                    static_cast<WORD>(ParseInteger(value, 0, 0xFFFF, line, "trailing"));
            } else {
                Fail(line, "unknown plug-in setting '" + std::string(key) +
                               "' (layout, coreSize, version, layoutWord, trailing)");
            }
        } else if (section == Section::Attributes) {
            AddAttribute(trees[currentNameSpace], key, value, line);
        } else if (section == Section::Record) {
            if (key != "hex") Fail(line, "a record holds 'hex = ...' lines");
            ParseHex(value, line, description.records.back().raw.data);
        }
    }
    if (!coreSizeGiven && description.layout == OemDevmode::CoreLayout::Raster) {
        description.coreSize = 24;
    }
    for (long nameSpace : nameSpaceOrder) {
        description.attributes.push_back({nameSpace, ToRawList(trees[nameSpace])});
    }
    return description;
}

ByteBuffer BuildDevmode(const DevmodeDescription& description) {
    std::vector<OemDevmode::Record> records;
    for (const DevmodeDescription::Section& section : description.records) {
        if (!section.attributes) {
            records.push_back(section.raw);
            continue;
        }
        PersistentAttributesWriter writer;
        for (const auto& list : description.attributes) {
            writer.SetAttributeBytesListForNameSpace(AttributeBytesNameSpacesId(list.nameSpace),
                                                     list.list);
        }
        OemDevmode::Record record;
        record.type = OemDevmode::kAttributesRecordType;
        if (FAILED(writer.Serialise(record.data))) {
            throw DescriptionError("the attributes cannot be stored: " + writer.GetError());
        }
        if (record.data.size() > OemDevmode::kMaxAttributeBytes) {
            throw DescriptionError("the attributes take " + std::to_string(record.data.size()) +
                                   " bytes; the driver reads at most " +
                                   std::to_string(OemDevmode::kMaxAttributeBytes));
        }
        records.push_back(std::move(record));
    }

    BYTE part[OemDevmode::kSize];
    if (!OemDevmode::BuildPart(records, part)) {
        throw DescriptionError("the records do not fit the plug-in part (" +
                               std::to_string(OemDevmode::kSize - OemDevmode::kRecordsOffset) +
                               " bytes, 4 per record plus its data)");
    }
    if (description.version != OemDevmode::kVersion)
        OemDevmode::WriteDword(part + 8, description.version);
    if (description.recordAreaLayout != OemDevmode::kRecordAreaLayout) {
        OemDevmode::WriteDword(part + 12, description.recordAreaLayout);
    }
    ByteBuffer devmode;
    if (!OemDevmode::BuildDevmode(description.publicPart, description.layout, description.coreSize,
                                  part, description.trailing, devmode)) {
        throw DescriptionError(
            "coreSize must leave room for the core driver's size word (at least 116 for the "
            "postscript layout, 10 for raster) and the private area must stay within 65535 bytes");
    }
    return devmode;
}

std::string DescribeDevmode(const ByteBuffer& devmode, std::vector<std::string>& problems,
                            std::vector<DescribedAttribute>* attributeList) {
    std::ostringstream out;
    out << "# " << devmode.size() << " bytes\n";
    if (devmode.size() < OemDevmode::kPublicDevmodeSize) {
        problems.push_back("the device mode has " + std::to_string(devmode.size()) +
                           " bytes, fewer than the 220 of a public DEVMODEW");
        out << "# fewer bytes than a public DEVMODEW: nothing to describe\n";
        return out.str();
    }
    DEVMODEW publicPart;
    std::memcpy(&publicPart, devmode.data(), sizeof publicPart);
    out << "[devmode]\n";
    out << "deviceName = " << Quote(FromUtf16(publicPart.dmDeviceName, CCHDEVICENAME)) << "\n";
    out << "formName = " << Quote(FromUtf16(publicPart.dmFormName, CCHFORMNAME)) << "\n";
    for (const PublicField& field : kPublicFields) {
        const BYTE* at = devmode.data() + field.offset;
        long long value = field.size == 2 ? OemDevmode::ReadWord(at) : OemDevmode::ReadDword(at);
        if (field.isSigned) {
            value = field.size == 2 ? static_cast<SHORT>(value) : static_cast<LONG>(value);
        }
        char text[32];
        if (field.hex) {
            std::snprintf(text, sizeof text, field.size == 2 ? "0x%04llX" : "0x%08llX", value);
        } else {
            std::snprintf(text, sizeof text, "%lld", value);
        }
        out << field.name << " = " << text << "\n";
    }
    out << "# dmSize = " << publicPart.dmSize << ", dmDriverExtra = " << publicPart.dmDriverExtra
        << " (private area at byte " << publicPart.dmSize << ")\n";
    if (static_cast<std::size_t>(publicPart.dmSize) + publicPart.dmDriverExtra > devmode.size()) {
        problems.push_back("dmSize + dmDriverExtra (" +
                           std::to_string(publicPart.dmSize + publicPart.dmDriverExtra) +
                           ") is more than the " + std::to_string(devmode.size()) +
                           " bytes present");
    }

    OemDevmode::Location where = OemDevmode::Find(devmode.data(), devmode.size());
    if (where.part == nullptr) {
        problems.push_back("no driver plug-in part: neither core driver layout gives one");
        out << "# no driver plug-in part (neither the postscript nor the raster layout gives "
               "one)\n";
        return out.str();
    }
    OemDevmode::Header header = OemDevmode::ReadHeader(where.part);
    DWORD computed = OemDevmode::ComputeCrc(where.part);
    out << "\n[plugin]\n";
    out << "# at byte " << where.offset << ": dwSize " << header.size << ", dwSignature 0x"
        << std::hex << std::uppercase << header.signature << std::dec << " (QMV1)\n";
    out << "layout = "
        << (where.layout == OemDevmode::CoreLayout::PostScript ? "postscript" : "raster") << "\n";
    out << "coreSize = " << where.coreSize << "\n";
    out << "version = " << header.version << "\n";
    out << "layoutWord = " << header.recordAreaLayout << "\n";
    out << "trailing = "
        << (publicPart.dmDriverExtra - static_cast<std::size_t>(where.coreSize) - OemDevmode::kSize)
        << "\n";
    char crcText[96];
    std::snprintf(crcText, sizeof crcText, "# CRC stored 0x%08X, computed 0x%08X: %s\n",
                  header.storedCrc, computed, header.storedCrc == computed ? "match" : "MISMATCH");
    out << crcText;
    if (header.storedCrc != computed) {
        problems.push_back("the plug-in part's CRC does not match: filters see no attributes");
    }
    if (!OemDevmode::IsCurrentVersion(where.part)) {
        problems.push_back(
            "the plug-in part is not version 1 with layout word 5900: "
            "GetDevmodeFromPrintTicket refuses it");
    }

    // The records, in order, bounds-checked as the library walks them.
    out << "# " << header.recordCount << " record(s)\n";
    std::size_t position = OemDevmode::kRecordsOffset;
    bool attributesSeen = false;
    for (std::size_t index = 0; index < header.recordCount; ++index) {
        if (position + 4 > OemDevmode::kSize) {
            problems.push_back("record " + std::to_string(index) +
                               " lies past the end of the part");
            break;
        }
        WORD type = OemDevmode::ReadWord(where.part + position);
        std::size_t length = OemDevmode::ReadWord(where.part + position + 2);
        if (length > OemDevmode::kSize - (position + 4)) {
            problems.push_back("record " + std::to_string(index) + " (" + std::to_string(length) +
                               " bytes) runs past the end of the part");
            break;
        }
        const BYTE* data = where.part + position + 4;
        bool described = false;
        if (type == OemDevmode::kAttributesRecordType && !attributesSeen) {
            attributesSeen = true;
            ByteBuffer bytes(data, data + length);
            PersistentAttributes attributes(bytes, false, nullptr);
            if (length > OemDevmode::kMaxAttributeBytes) {
                problems.push_back("the attribute record is longer than 5400 bytes: it is ignored");
            } else if (!attributes.IsValid()) {
                problems.push_back("the attribute record is not valid persistent attributes: " +
                                   attributes.GetError());
            } else {
                out << "# record " << index << ": persistent attributes, " << length << " bytes\n";
                const long docProps =
                    PersistentAttributes::GetDataModelDocPropNameSpaceId().GetNameSpaceId();
                for (const AttributeBytesNameSpacesId& id : attributes.GetNameSpaceIds()) {
                    AttributeBytesRawList list;
                    attributes.GetAttributeBytesListForNameSpace(id, list);
                    out << "\n[attributes";
                    if (id.GetNameSpaceId() != docProps) out << " " << id.GetNameSpaceId();
                    out << "]\n";
                    DescribeList(list, "", out, id.GetNameSpaceId(), attributeList);
                }
                described = true;
            }
        }
        if (!described) {
            out << "\n[record " << type << "]\n";
            if (length > 0) out << "hex = " << Hex(data, length) << "\n";
        }
        position += 4 + length;
    }
    return out.str();
}

}  // namespace xpsfilter
