// attributebytes.h: the driver's settings as attributes. An attribute is a feature id
// (DataModelIds::tagFeatureEnum), a typed value — an option value id, an integer, a boolean, a
// dimension (value and unit), a string or a nested list of attributes — and a "specified" flag
// that tells a value the user chose from one the driver filled in. Attributes are grouped by
// namespace (AttributeBytesNameSpacesId). AttributeBytesRawList keeps a list as it is stored
// (persistentattributes.h reads and writes it); AttributeBytesIndexedList finds an attribute by
// its feature id.
#pragma once

#include <cstddef>
#include <cstdint>
#include <memory>
#include <string>
#include <unordered_map>
#include <vector>

#include "support/utilities/datamodelids.h"

// The id of an attribute namespace.
class AttributeBytesNameSpacesId {
public:
    explicit AttributeBytesNameSpacesId(long id = 0) : m_id(static_cast<std::int32_t>(id)) {}
    AttributeBytesNameSpacesId(const AttributeBytesNameSpacesId& other) = default;
    AttributeBytesNameSpacesId& operator=(const AttributeBytesNameSpacesId& other) = default;

    long GetNameSpaceId() const { return m_id; }

    friend bool operator==(const AttributeBytesNameSpacesId& a,
                           const AttributeBytesNameSpacesId& b) {
        return a.m_id == b.m_id;
    }
    friend bool operator!=(const AttributeBytesNameSpacesId& a,
                           const AttributeBytesNameSpacesId& b) {
        return !(a == b);
    }

private:
    std::int32_t m_id;
};

class AttributeBytesRawList;

// The kind of value an attribute holds; the numbers are those of the stored form.
enum class AttributeBytesType : std::uint8_t {
    OptionValue = 1,
    Integer = 2,
    Boolean = 3,
    Dimension = 4,
    String = 5,
    Collection = 6,
};

// One attribute. Built with the named constructors; immutable afterwards.
class AttributeBytesItem {
public:
    static AttributeBytesItem MakeOptionValue(long featureId, DataModelIds::tagValueEnum value,
                                              bool specified = true);
    static AttributeBytesItem MakeInteger(long featureId, long value, bool specified = true);
    static AttributeBytesItem MakeBoolean(long featureId, bool value, bool specified = true);
    // `unit` is a Dimension::UnitsEnum code (dimension.h).
    static AttributeBytesItem MakeDimension(long featureId, double value, int unit,
                                            bool specified = true);
    static AttributeBytesItem MakeString(long featureId, std::wstring value, bool specified = true);
    static AttributeBytesItem MakeCollection(long featureId, AttributeBytesRawList value,
                                             bool specified = true);

    long GetFeatureId() const { return m_featureId; }
    AttributeBytesType GetType() const { return m_type; }
    bool IsSpecified() const { return m_specified; }

    // The value; each is meaningful for its own type only (0, false, "" or an empty list
    // otherwise).
    DataModelIds::tagValueEnum GetOptionValue() const;
    long GetInteger() const;
    bool GetBoolean() const;
    double GetDimensionValue() const;
    int GetDimensionUnit() const;
    const std::wstring& GetString() const;
    const AttributeBytesRawList& GetCollection() const;

    friend bool operator==(const AttributeBytesItem& a, const AttributeBytesItem& b);
    friend bool operator!=(const AttributeBytesItem& a, const AttributeBytesItem& b) {
        return !(a == b);
    }

private:
    AttributeBytesItem(long featureId, AttributeBytesType type, bool specified);

    std::int32_t m_featureId;
    AttributeBytesType m_type;
    bool m_specified;
    std::int32_t m_number = 0;  // option value id, integer, boolean (0 or 1)
    double m_dimension = 0.0;
    int m_unit = 0;
    std::wstring m_text;
    std::shared_ptr<const AttributeBytesRawList> m_collection;  // shared: items are immutable
};

// A list of attributes in stored order.
class AttributeBytesRawList {
public:
    AttributeBytesRawList() = default;

    void Add(AttributeBytesItem item) { m_items.push_back(std::move(item)); }
    void Clear() { m_items.clear(); }
    bool IsEmpty() const { return m_items.empty(); }
    std::size_t GetCount() const { return m_items.size(); }
    const AttributeBytesItem& operator[](std::size_t index) const { return m_items[index]; }
    std::vector<AttributeBytesItem>::const_iterator begin() const { return m_items.begin(); }
    std::vector<AttributeBytesItem>::const_iterator end() const { return m_items.end(); }

    friend bool operator==(const AttributeBytesRawList& a, const AttributeBytesRawList& b) {
        return a.m_items == b.m_items;
    }

private:
    std::vector<AttributeBytesItem> m_items;
};

// A list of attributes found by feature id. When a raw list names a feature twice, the first
// attribute counts (stored lists never do: the reader rejects them).
class AttributeBytesIndexedList {
public:
    AttributeBytesIndexedList() = default;
    AttributeBytesIndexedList(const AttributeBytesIndexedList& other) = default;
    AttributeBytesIndexedList& operator=(const AttributeBytesIndexedList& other) = default;
    virtual ~AttributeBytesIndexedList();

    virtual bool IsEmpty() const;
    // Replaces the contents with the attributes of `raw`.
    void ImportFromRawList(const AttributeBytesRawList& raw);
    void Clear();

    // The attribute of that feature, or null.
    const AttributeBytesItem* Find(long featureId) const;
    std::size_t GetCount() const { return m_items.GetCount(); }
    // The attributes in their stored order.
    const AttributeBytesRawList& GetRawList() const { return m_items; }

private:
    AttributeBytesRawList m_items;
    std::unordered_map<std::int32_t, std::size_t> m_index;
};
