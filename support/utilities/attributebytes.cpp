// attributebytes.cpp: attributes, raw attribute lists and lists indexed by feature id.

#include "support/utilities/attributebytes.h"

namespace {

const AttributeBytesRawList& EmptyList() {
    static const AttributeBytesRawList* empty = new AttributeBytesRawList;
    return *empty;
}

const std::wstring& EmptyText() {
    static const std::wstring* empty = new std::wstring;
    return *empty;
}

}  // namespace

AttributeBytesItem::AttributeBytesItem(long featureId, AttributeBytesType type, bool specified)
    : m_featureId(static_cast<std::int32_t>(featureId)), m_type(type), m_specified(specified) {}

AttributeBytesItem AttributeBytesItem::MakeOptionValue(long featureId,
                                                       DataModelIds::tagValueEnum value,
                                                       bool specified) {
    AttributeBytesItem item(featureId, AttributeBytesType::OptionValue, specified);
    item.m_number = value;
    return item;
}

AttributeBytesItem AttributeBytesItem::MakeInteger(long featureId, long value, bool specified) {
    AttributeBytesItem item(featureId, AttributeBytesType::Integer, specified);
    item.m_number = static_cast<std::int32_t>(value);
    return item;
}

AttributeBytesItem AttributeBytesItem::MakeBoolean(long featureId, bool value, bool specified) {
    AttributeBytesItem item(featureId, AttributeBytesType::Boolean, specified);
    item.m_number = value ? 1 : 0;
    return item;
}

AttributeBytesItem AttributeBytesItem::MakeDimension(long featureId, double value, int unit,
                                                     bool specified) {
    AttributeBytesItem item(featureId, AttributeBytesType::Dimension, specified);
    item.m_dimension = value;
    item.m_unit = unit;
    return item;
}

AttributeBytesItem AttributeBytesItem::MakeString(long featureId, std::wstring value,
                                                  bool specified) {
    AttributeBytesItem item(featureId, AttributeBytesType::String, specified);
    item.m_text = std::move(value);
    return item;
}

AttributeBytesItem AttributeBytesItem::MakeCollection(long featureId, AttributeBytesRawList value,
                                                      bool specified) {
    AttributeBytesItem item(featureId, AttributeBytesType::Collection, specified);
    item.m_collection = std::make_shared<const AttributeBytesRawList>(std::move(value));
    return item;
}

DataModelIds::tagValueEnum AttributeBytesItem::GetOptionValue() const {
    return m_type == AttributeBytesType::OptionValue
               ? static_cast<DataModelIds::tagValueEnum>(m_number)
               : DataModelIds::ValueUnspecified;
}

long AttributeBytesItem::GetInteger() const {
    return m_type == AttributeBytesType::Integer ? m_number : 0;
}

bool AttributeBytesItem::GetBoolean() const {
    return m_type == AttributeBytesType::Boolean && m_number != 0;
}

double AttributeBytesItem::GetDimensionValue() const {
    return m_type == AttributeBytesType::Dimension ? m_dimension : 0.0;
}

int AttributeBytesItem::GetDimensionUnit() const {
    return m_type == AttributeBytesType::Dimension ? m_unit : 0;
}

const std::wstring& AttributeBytesItem::GetString() const {
    return m_type == AttributeBytesType::String ? m_text : EmptyText();
}

const AttributeBytesRawList& AttributeBytesItem::GetCollection() const {
    return m_collection ? *m_collection : EmptyList();
}

bool operator==(const AttributeBytesItem& a, const AttributeBytesItem& b) {
    if (a.m_featureId != b.m_featureId || a.m_type != b.m_type || a.m_specified != b.m_specified) {
        return false;
    }
    switch (a.m_type) {
        case AttributeBytesType::Dimension:
            return a.m_dimension == b.m_dimension && a.m_unit == b.m_unit;
        case AttributeBytesType::String:
            return a.m_text == b.m_text;
        case AttributeBytesType::Collection:
            return a.GetCollection() == b.GetCollection();
        default:
            return a.m_number == b.m_number;
    }
}

AttributeBytesIndexedList::~AttributeBytesIndexedList() = default;

bool AttributeBytesIndexedList::IsEmpty() const {
    return m_items.IsEmpty();
}

void AttributeBytesIndexedList::ImportFromRawList(const AttributeBytesRawList& raw) {
    AttributeBytesRawList items = raw;  // copy first: `raw` may be this list's own
    m_items = std::move(items);
    m_index.clear();
    for (std::size_t i = 0; i < m_items.GetCount(); ++i) {
        m_index.emplace(static_cast<std::int32_t>(m_items[i].GetFeatureId()), i);
    }
}

void AttributeBytesIndexedList::Clear() {
    m_items.Clear();
    m_index.clear();
}

const AttributeBytesItem* AttributeBytesIndexedList::Find(long featureId) const {
    auto found = m_index.find(static_cast<std::int32_t>(featureId));
    return found != m_index.end() ? &m_items[found->second] : nullptr;
}
