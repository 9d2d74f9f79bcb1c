// attributebytesreader.cpp: typed reads of attributes by feature id, with the caller's default
// for an absent attribute or one of another type.

#include "support/utilities/attributebytesreader.h"

#include <string>

#include "platform/com/unicode.h"
#include "platform/win32/debugoutput.h"

namespace {

const AttributeBytesItem* FindOfType(const AttributeBytesIndexedList& list, long featureId,
                                     AttributeBytesType type) {
    const AttributeBytesItem* item = list.Find(featureId);
    return item != nullptr && item->GetType() == type ? item : nullptr;
}

void DumpList(const AttributeBytesRawList& list, int depth, std::string& out) {
    for (const AttributeBytesItem& item : list) {
        out.append(static_cast<std::size_t>(depth) * 2, ' ');
        out += "feature " + std::to_string(item.GetFeatureId());
        out += item.IsSpecified() ? " (specified): " : ": ";
        switch (item.GetType()) {
            case AttributeBytesType::OptionValue:
                out += "option " + std::to_string(item.GetOptionValue());
                break;
            case AttributeBytesType::Integer:
                out += "integer " + std::to_string(item.GetInteger());
                break;
            case AttributeBytesType::Boolean:
                out += item.GetBoolean() ? "boolean true" : "boolean false";
                break;
            case AttributeBytesType::Dimension:
                out += "dimension " + std::to_string(item.GetDimensionValue()) + " unit " +
                       std::to_string(item.GetDimensionUnit());
                break;
            case AttributeBytesType::String:
                out += "string \"" + platform::WideToUtf8(item.GetString()) + "\"";
                break;
            case AttributeBytesType::Collection:
                out += "collection of " + std::to_string(item.GetCollection().GetCount());
                break;
        }
        out += "\n";
        if (item.GetType() == AttributeBytesType::Collection) {
            DumpList(item.GetCollection(), depth + 1, out);
        }
    }
}

}  // namespace

AttributeBytesReader::AttributeBytesReader() = default;
AttributeBytesReader::AttributeBytesReader(const AttributeBytesIndexedList& list) : m_list(list) {}
AttributeBytesReader::AttributeBytesReader(const AttributeBytesReader& other) = default;
AttributeBytesReader& AttributeBytesReader::operator=(const AttributeBytesReader& other) = default;
AttributeBytesReader::~AttributeBytesReader() = default;

const AttributeBytesIndexedList& AttributeBytesReader::GetAttributeBytesIndexedListRef() const {
    return m_list;
}

AttributeBytesIndexedList& AttributeBytesReader::GetAttributeBytesIndexedListRef() {
    return m_list;
}

void AttributeBytesReader::Dump() const {
    std::string text =
        "AttributeBytesReader: " + std::to_string(GetAttributeBytesIndexedListRef().GetCount()) +
        " attributes\n";
    DumpList(GetAttributeBytesIndexedListRef().GetRawList(), 1, text);
    OutputDebugStringA(text.c_str());
}

const AttributeBytesIndexedList& AttributeBytesReader::GetAttributeBytesIndexedListRef(
    AttributeBytesNameSpacesId) const {
    return m_list;
}

AttributeBytesIndexedList& AttributeBytesReader::GetAttributeBytesIndexedListRef(
    AttributeBytesNameSpacesId) {
    return m_list;
}

void AttributeBytesReader::SetAttributeBytesIndexedList(const AttributeBytesIndexedList& list) {
    m_list = list;
}

DataModelIds::tagValueEnum AttributeBytesReader::GetOptionValueFromAttributeBytes(
    long featureId, DataModelIds::tagValueEnum defaultValue) {
    return GetOptionValueFromAttributeBytes(GetAttributeBytesIndexedListRef(), featureId,
                                            defaultValue);
}

bool AttributeBytesReader::GetBooleanValueFromAttributeBytes(long featureId, bool defaultValue,
                                                             bool* specified) {
    return GetBooleanValueFromAttributeBytes(GetAttributeBytesIndexedListRef(), featureId,
                                             defaultValue, specified);
}

long AttributeBytesReader::GetIntegerValueFromAttributeBytes(long featureId, long defaultValue) {
    return GetIntegerValueFromAttributeBytes(GetAttributeBytesIndexedListRef(), featureId,
                                             defaultValue);
}

Dimension AttributeBytesReader::GetDimensionValue(long featureId, const Dimension& defaultValue) {
    return GetDimensionValue(GetAttributeBytesIndexedListRef(), featureId, defaultValue);
}

CXString AttributeBytesReader::GetStringValueFromAttributeBytes(long featureId,
                                                                const CXString& defaultValue) {
    return GetStringValueFromAttributeBytes(GetAttributeBytesIndexedListRef(), featureId,
                                            defaultValue);
}

bool AttributeBytesReader::GetCollection(long featureId, AttributeBytesIndexedList& collection) {
    return GetCollection(GetAttributeBytesIndexedListRef(), featureId, collection);
}

DataModelIds::tagValueEnum AttributeBytesReader::GetOptionValueOrNewId(
    long featureId, DataModelIds::tagValueEnum defaultValue) {
    return GetOptionValueOrNewId(GetAttributeBytesIndexedListRef(), featureId, defaultValue);
}

bool AttributeBytesReader::IsSpecifiedInAttributeBytes(long featureId) {
    return IsSpecifiedInAttributeBytes(GetAttributeBytesIndexedListRef(), featureId);
}

DataModelIds::tagValueEnum AttributeBytesReader::GetOptionValueFromAttributeBytes(
    const AttributeBytesIndexedList& list, long featureId,
    DataModelIds::tagValueEnum defaultValue) {
    const AttributeBytesItem* item = FindOfType(list, featureId, AttributeBytesType::OptionValue);
    return item != nullptr ? item->GetOptionValue() : defaultValue;
}

bool AttributeBytesReader::GetBooleanValueFromAttributeBytes(const AttributeBytesIndexedList& list,
                                                             long featureId, bool defaultValue,
                                                             bool* specified) {
    const AttributeBytesItem* item = FindOfType(list, featureId, AttributeBytesType::Boolean);
    if (specified != nullptr) *specified = item != nullptr && item->IsSpecified();
    return item != nullptr ? item->GetBoolean() : defaultValue;
}

long AttributeBytesReader::GetIntegerValueFromAttributeBytes(const AttributeBytesIndexedList& list,
                                                             long featureId, long defaultValue) {
    const AttributeBytesItem* item = FindOfType(list, featureId, AttributeBytesType::Integer);
    return item != nullptr ? item->GetInteger() : defaultValue;
}

Dimension AttributeBytesReader::GetDimensionValue(const AttributeBytesIndexedList& list,
                                                  long featureId, const Dimension& defaultValue) {
    const AttributeBytesItem* item = FindOfType(list, featureId, AttributeBytesType::Dimension);
    if (item == nullptr) return defaultValue;
    return Dimension(item->GetDimensionValue(),
                     static_cast<Dimension::UnitsEnum>(item->GetDimensionUnit()));
}

CXString AttributeBytesReader::GetStringValueFromAttributeBytes(
    const AttributeBytesIndexedList& list, long featureId, const CXString& defaultValue) {
    const AttributeBytesItem* item = FindOfType(list, featureId, AttributeBytesType::String);
    return item != nullptr ? CXString(item->GetString()) : defaultValue;
}

bool AttributeBytesReader::GetCollection(const AttributeBytesIndexedList& list, long featureId,
                                         AttributeBytesIndexedList& collection) {
    const AttributeBytesItem* item = FindOfType(list, featureId, AttributeBytesType::Collection);
    if (item == nullptr) {
        collection.Clear();
        return false;
    }
    collection.ImportFromRawList(item->GetCollection());
    return true;
}

DataModelIds::tagValueEnum AttributeBytesReader::GetOptionValueOrNewId(
    const AttributeBytesIndexedList& list, long featureId,
    DataModelIds::tagValueEnum defaultValue) {
    const AttributeBytesItem* item = list.Find(featureId);
    if (item == nullptr) return defaultValue;
    if (item->GetType() == AttributeBytesType::OptionValue) return item->GetOptionValue();
    if (item->GetType() == AttributeBytesType::Integer) {
        return static_cast<DataModelIds::tagValueEnum>(item->GetInteger());
    }
    return defaultValue;
}

bool AttributeBytesReader::IsSpecifiedInAttributeBytes(const AttributeBytesIndexedList& list,
                                                       long featureId) {
    const AttributeBytesItem* item = list.Find(featureId);
    return item != nullptr && item->IsSpecified();
}
