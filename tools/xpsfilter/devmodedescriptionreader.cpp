// devmodedescriptionreader.cpp: reading a device mode description (see devmodedescription.h):
// its sections, the public fields, the plug-in settings, attributes named by feature paths and raw
// records.
#include <map>
#include <sstream>
#include <string_view>

#include "devmodedescription.h"
#include "devmodesyntax.h"
#include "platform/com/unicode.h"
#include "support/utilities/persistentattributes.h"

namespace xpsfilter {

using namespace devmodesyntax;

namespace {

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

// Reads a description line by line into a DevmodeDescription.
class DescriptionReader {
public:
    DescriptionReader() { m_description.publicPart.dmSpecVersion = DM_SPECVERSION; }

    void Line(std::string_view content, int line) {
        if (content.empty() || content.front() == '#' || content.front() == ';') return;
        if (content.front() == '[') {
            OpenSection(content, line);
            return;
        }
        std::size_t equals = content.find('=');
        if (equals == std::string_view::npos) Fail(line, "expected 'key = value'");
        std::string_view key = Trim(content.substr(0, equals));
        std::string_view value = Trim(content.substr(equals + 1));
        if (key.empty()) Fail(line, "a key is missing before '='");

        switch (m_section) {
            case Section::None:
                Fail(line, "a key outside a section");
            case Section::Devmode:
                CheckOnce("devmode.", key, line);
                DevmodeField(key, value, line);
                break;
            case Section::Plugin:
                CheckOnce("plugin.", key, line);
                PluginSetting(key, value, line);
                break;
            case Section::Attributes:
                AddAttribute(m_trees[m_currentNameSpace], key, value, line);
                break;
            case Section::Record:
                if (key != "hex") Fail(line, "a record holds 'hex = ...' lines");
                ParseHex(value, line, m_description.records.back().raw.data);
                break;
        }
    }

    DevmodeDescription Finish() {
        if (!m_coreSizeGiven && m_description.layout == OemDevmode::CoreLayout::Raster) {
            m_description.coreSize = 24;
        }
        for (long nameSpace : m_nameSpaceOrder) {
            m_description.attributes.push_back({nameSpace, ToRawList(m_trees[nameSpace])});
        }
        return std::move(m_description);
    }

private:
    enum class Section { None, Devmode, Plugin, Attributes, Record };

    // "[devmode]", "[plugin]", "[attributes N]" or "[record N]".
    void OpenSection(std::string_view content, int line) {
        if (content.back() != ']') Fail(line, "a section name ends with ']'");
        std::string_view name = Trim(content.substr(1, content.size() - 2));
        std::size_t space = name.find_first_of(" \t");
        std::string_view word = name.substr(0, space);
        std::string_view argument =
            space == std::string_view::npos ? std::string_view() : Trim(name.substr(space));
        if (word == "devmode" && argument.empty()) {
            m_section = Section::Devmode;
        } else if (word == "plugin" && argument.empty()) {
            m_section = Section::Plugin;
        } else if (word == "attributes") {
            OpenAttributes(argument, line);
        } else if (word == "record") {
            m_section = Section::Record;
            DevmodeDescription::Section record;
            record.raw.type =
                static_cast<WORD>(ParseInteger(argument, 0, 0xFFFF, line, "the record type"));
            m_description.records.push_back(record);
        } else {
            Fail(line, "unknown section [" + std::string(name) +
                           "] (devmode, plugin, attributes [N], record N)");
        }
    }

    // An attributes section of one namespace (the document properties' when none is named); the
    // attribute record takes the place of the first one among the records.
    void OpenAttributes(std::string_view argument, int line) {
        m_section = Section::Attributes;
        m_currentNameSpace =
            argument.empty()
                ? PersistentAttributes::GetDataModelDocPropNameSpaceId().GetNameSpaceId()
                : static_cast<long>(
                      ParseInteger(argument, INT32_MIN, INT32_MAX, line, "the namespace"));
        if (m_trees.count(m_currentNameSpace) != 0) {
            Fail(line, "namespace " + std::to_string(m_currentNameSpace) + " appears twice");
        }
        m_trees[m_currentNameSpace];
        m_nameSpaceOrder.push_back(m_currentNameSpace);
        if (!m_attributesPlaced) {
            DevmodeDescription::Section record;
            record.attributes = true;
            m_description.records.push_back(record);
            m_attributesPlaced = true;
        }
    }

    void CheckOnce(const char* section, std::string_view key, int line) {
        auto [at, fresh] = m_seenKeys.emplace(section + std::string(key), line);
        if (!fresh) Fail(line, "'" + std::string(key) + "' is given twice");
    }

    void DevmodeField(std::string_view key, std::string_view value, int line) {
        DEVMODEW& devmode = m_description.publicPart;
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
    }

    void PluginSetting(std::string_view key, std::string_view value, int line) {
        if (key == "layout") {
            if (value == "postscript") {
                m_description.layout = OemDevmode::CoreLayout::PostScript;
            } else if (value == "raster") {
                m_description.layout = OemDevmode::CoreLayout::Raster;
            } else {
                Fail(line, "layout is postscript or raster");
            }
        } else if (key == "coreSize") {
            m_description.coreSize =
                static_cast<WORD>(ParseInteger(value, 1, 0xFFFF, line, "coreSize"));
            m_coreSizeGiven = true;
        } else if (key == "version") {
            m_description.version =
                static_cast<DWORD>(ParseInteger(value, 0, 0xFFFFFFFFll, line, "version"));
        } else if (key == "layoutWord") {
            m_description.recordAreaLayout =
                static_cast<DWORD>(ParseInteger(value, 0, 0xFFFFFFFFll, line, "layoutWord"));
        } else if (key == "trailing") {
            m_description.trailing =
                static_cast<WORD>(ParseInteger(value, 0, 0xFFFF, line, "trailing"));
        } else {
            Fail(line, "unknown plug-in setting '" + std::string(key) +
                           "' (layout, coreSize, version, layoutWord, trailing)");
        }
    }

    DevmodeDescription m_description;
    Section m_section = Section::None;
    std::map<std::string, int> m_seenKeys;  // "section.key" -> line
    std::map<long, std::vector<Node>> m_trees;
    std::vector<long> m_nameSpaceOrder;
    long m_currentNameSpace = 0;
    bool m_coreSizeGiven = false;
    bool m_attributesPlaced = false;
};

}  // namespace

DevmodeDescription ParseDevmodeDescription(const std::string& text) {
    DescriptionReader reader;
    std::istringstream lines(text);
    std::string raw;
    int line = 0;
    while (std::getline(lines, raw)) {
        ++line;
        std::string_view content = Trim(raw);
        if (line == 1 && content.substr(0, 3) == "\xEF\xBB\xBF") content.remove_prefix(3);
        reader.Line(content, line);
    }
    return reader.Finish();
}

}  // namespace xpsfilter
