// persistentattributes.cpp: reading and writing the stored form of attribute lists (format in
// docs/attributebytes.md). The reader checks every count and length against the bytes that are
// left before it reads; anything that does not fit makes the whole input unreadable.

#include "support/utilities/persistentattributes.h"

#include <cmath>
#include <cstring>
#include <set>

#include "support/utilities/dimension.h"

namespace {

constexpr unsigned char kMagic[4] = {'Z', 'A', 'T', 'B'};
constexpr std::size_t kNameSpaceHeaderSize = 12;
constexpr std::size_t kAttributeHeaderSize = 8;
constexpr std::uint8_t kFlagSpecified = 0x01;

bool IsKnownUnit(int unit) {
    return unit >= 0 && unit <= 0xFFFF &&
           Dimension::MicronsPerUnit(static_cast<Dimension::UnitsEnum>(unit)) > 0;
}

// Bounds-checked little-endian reads over [position, end).
class Cursor {
public:
    Cursor(const unsigned char* data, std::size_t size) : m_data(data), m_size(size) {}

    std::size_t Remaining() const { return m_size - m_position; }
    std::size_t Position() const { return m_position; }

    bool Bytes(std::size_t count, const unsigned char*& bytes) {
        if (count > Remaining()) return false;
        bytes = m_data + m_position;
        m_position += count;
        return true;
    }
    bool U8(std::uint8_t& value) {
        const unsigned char* bytes = nullptr;
        if (!Bytes(1, bytes)) return false;
        value = bytes[0];
        return true;
    }
    bool U16(std::uint16_t& value) {
        const unsigned char* bytes = nullptr;
        if (!Bytes(2, bytes)) return false;
        value = static_cast<std::uint16_t>(bytes[0] | (bytes[1] << 8));
        return true;
    }
    bool U32(std::uint32_t& value) {
        const unsigned char* bytes = nullptr;
        if (!Bytes(4, bytes)) return false;
        value = static_cast<std::uint32_t>(bytes[0]) | (static_cast<std::uint32_t>(bytes[1]) << 8) |
                (static_cast<std::uint32_t>(bytes[2]) << 16) |
                (static_cast<std::uint32_t>(bytes[3]) << 24);
        return true;
    }
    bool I32(std::int32_t& value) {
        std::uint32_t raw = 0;
        if (!U32(raw)) return false;
        value = static_cast<std::int32_t>(raw);
        return true;
    }
    bool F64(double& value) {
        std::uint32_t low = 0, high = 0;
        if (!U32(low) || !U32(high)) return false;
        std::uint64_t bits = (static_cast<std::uint64_t>(high) << 32) | low;
        std::memcpy(&value, &bits, sizeof value);
        return true;
    }
    // A cursor over the next `count` bytes, which this one skips.
    bool Sub(std::size_t count, Cursor& sub) {
        const unsigned char* bytes = nullptr;
        if (!Bytes(count, bytes)) return false;
        sub = Cursor(bytes, count);
        return true;
    }

private:
    const unsigned char* m_data;
    std::size_t m_size;
    std::size_t m_position = 0;
};

bool ReadList(Cursor& cursor, std::size_t count, int depth, AttributeBytesRawList& list,
              std::string& error);

bool ReadString(Cursor& payload, std::wstring& text, std::string& error) {
    if (payload.Remaining() % 2 != 0) {
        error = "string of an odd number of bytes";
        return false;
    }
    while (payload.Remaining() > 0) {
        std::uint16_t unit = 0;
        payload.U16(unit);
        if (unit >= 0xD800 && unit <= 0xDBFF) {
            std::uint16_t low = 0;
            if (!payload.U16(low) || low < 0xDC00 || low > 0xDFFF) {
                error = "string with an unpaired surrogate";
                return false;
            }
            text.push_back(
                static_cast<wchar_t>(0x10000 + ((unit - 0xD800) << 10) + (low - 0xDC00)));
        } else if (unit >= 0xDC00 && unit <= 0xDFFF) {
            error = "string with an unpaired surrogate";
            return false;
        } else if (unit == 0) {
            error = "string with a NUL character";
            return false;
        } else {
            text.push_back(static_cast<wchar_t>(unit));
        }
    }
    return true;
}

// A collection's payload: its member count, a reserved word and the members, nested at most
// kMaxCollectionDepth deep.
bool ReadCollection(Cursor& payload, std::int32_t featureId, bool specified, int depth,
                    AttributeBytesRawList& list, std::string& error) {
    std::uint16_t count = 0, reserved = 0;
    if (depth >= PersistentAttributesLimits::kMaxCollectionDepth) {
        error = "collections nested too deep";
        return false;
    }
    if (!payload.U16(count) || !payload.U16(reserved) || reserved != 0) {
        error = "collection header damaged";
        return false;
    }
    AttributeBytesRawList nested;
    if (!ReadList(payload, count, depth + 1, nested, error)) return false;
    list.Add(AttributeBytesItem::MakeCollection(featureId, std::move(nested), specified));
    return true;
}

bool ReadAttribute(Cursor& cursor, int depth, AttributeBytesRawList& list, std::string& error) {
    std::int32_t featureId = 0;
    std::uint8_t type = 0, flags = 0;
    std::uint16_t size = 0;
    Cursor payload(nullptr, 0);
    if (!cursor.I32(featureId) || !cursor.U8(type) || !cursor.U8(flags) || !cursor.U16(size) ||
        !cursor.Sub(size, payload)) {
        error = "attribute past the end of its list";
        return false;
    }
    if ((flags & ~kFlagSpecified) != 0) {
        error = "attribute with unknown flags";
        return false;
    }
    bool specified = (flags & kFlagSpecified) != 0;
    auto expectSize = [&](std::size_t wanted) {
        if (size == wanted) return true;
        error = "attribute value of the wrong size";
        return false;
    };
    switch (static_cast<AttributeBytesType>(type)) {
        case AttributeBytesType::OptionValue:
        case AttributeBytesType::Integer: {
            std::int32_t value = 0;
            if (!expectSize(4)) return false;
            payload.I32(value);
            list.Add(type == static_cast<std::uint8_t>(AttributeBytesType::OptionValue)
                         ? AttributeBytesItem::MakeOptionValue(
                               featureId, static_cast<DataModelIds::tagValueEnum>(value), specified)
                         : AttributeBytesItem::MakeInteger(featureId, value, specified));
            return true;
        }
        case AttributeBytesType::Boolean: {
            std::uint8_t value = 0;
            if (!expectSize(1)) return false;
            payload.U8(value);
            if (value > 1) {
                error = "boolean that is neither 0 nor 1";
                return false;
            }
            list.Add(AttributeBytesItem::MakeBoolean(featureId, value == 1, specified));
            return true;
        }
        case AttributeBytesType::Dimension: {
            double value = 0;
            std::uint16_t unit = 0;
            if (!expectSize(10)) return false;
            payload.F64(value);
            payload.U16(unit);
            if (!std::isfinite(value) || !IsKnownUnit(unit)) {
                error = "dimension that is not a finite number of a known unit";
                return false;
            }
            list.Add(AttributeBytesItem::MakeDimension(featureId, value, unit, specified));
            return true;
        }
        case AttributeBytesType::String: {
            std::wstring text;
            if (!ReadString(payload, text, error)) return false;
            list.Add(AttributeBytesItem::MakeString(featureId, std::move(text), specified));
            return true;
        }
        case AttributeBytesType::Collection:
            return ReadCollection(payload, featureId, specified, depth, list, error);
    }
    error = "attribute of an unknown type";
    return false;
}

// Reads exactly `count` attributes that fill the cursor exactly; feature ids must differ.
bool ReadList(Cursor& cursor, std::size_t count, int depth, AttributeBytesRawList& list,
              std::string& error) {
    // Each attribute takes at least its header: a count the bytes cannot hold is rejected before
    // anything is read or allocated.
    if (count > cursor.Remaining() / kAttributeHeaderSize) {
        error = "attribute count larger than the list";
        return false;
    }
    std::set<std::int32_t> seen;
    for (std::size_t i = 0; i < count; ++i) {
        if (!ReadAttribute(cursor, depth, list, error)) return false;
        if (!seen.insert(static_cast<std::int32_t>(list[list.GetCount() - 1].GetFeatureId()))
                 .second) {
            error = "feature named twice in one list";
            return false;
        }
    }
    if (cursor.Remaining() != 0) {
        error = "bytes left over after the attributes of a list";
        return false;
    }
    return true;
}

// Little-endian appends, with sizes patched in afterwards.
class Output {
public:
    explicit Output(ByteBuffer& bytes) : m_bytes(bytes) {}
    std::size_t Size() const { return m_bytes.size(); }
    void U8(std::uint8_t value) { m_bytes.push_back(value); }
    void U16(std::uint16_t value) {
        U8(static_cast<std::uint8_t>(value));
        U8(static_cast<std::uint8_t>(value >> 8));
    }
    void U32(std::uint32_t value) {
        U16(static_cast<std::uint16_t>(value));
        U16(static_cast<std::uint16_t>(value >> 16));
    }
    void F64(double value) {
        std::uint64_t bits = 0;
        std::memcpy(&bits, &value, sizeof bits);
        U32(static_cast<std::uint32_t>(bits));
        U32(static_cast<std::uint32_t>(bits >> 32));
    }
    void PatchU16(std::size_t at, std::uint16_t value) {
        m_bytes[at] = static_cast<unsigned char>(value);
        m_bytes[at + 1] = static_cast<unsigned char>(value >> 8);
    }
    void PatchU32(std::size_t at, std::uint32_t value) {
        PatchU16(at, static_cast<std::uint16_t>(value));
        PatchU16(at + 2, static_cast<std::uint16_t>(value >> 16));
    }

private:
    ByteBuffer& m_bytes;
};

bool WriteList(Output& out, const AttributeBytesRawList& list, int depth, std::string& error);

bool WriteAttribute(Output& out, const AttributeBytesItem& item, int depth, std::string& error) {
    out.U32(static_cast<std::uint32_t>(item.GetFeatureId()));
    out.U8(static_cast<std::uint8_t>(item.GetType()));
    out.U8(item.IsSpecified() ? kFlagSpecified : 0);
    std::size_t sizeAt = out.Size();
    out.U16(0);
    std::size_t start = out.Size();
    switch (item.GetType()) {
        case AttributeBytesType::OptionValue:
            out.U32(static_cast<std::uint32_t>(item.GetOptionValue()));
            break;
        case AttributeBytesType::Integer:
            out.U32(static_cast<std::uint32_t>(item.GetInteger()));
            break;
        case AttributeBytesType::Boolean:
            out.U8(item.GetBoolean() ? 1 : 0);
            break;
        case AttributeBytesType::Dimension:
            if (!std::isfinite(item.GetDimensionValue()) || !IsKnownUnit(item.GetDimensionUnit())) {
                error = "dimension that is not a finite number of a known unit";
                return false;
            }
            out.F64(item.GetDimensionValue());
            out.U16(static_cast<std::uint16_t>(item.GetDimensionUnit()));
            break;
        case AttributeBytesType::String:
            for (wchar_t c : item.GetString()) {
                auto codePoint = static_cast<std::uint32_t>(c);
                if (codePoint == 0 || codePoint > 0x10FFFF ||
                    (codePoint >= 0xD800 && codePoint <= 0xDFFF)) {
                    error = "string that is not valid Unicode text";
                    return false;
                }
                if (codePoint >= 0x10000) {
                    codePoint -= 0x10000;
                    out.U16(static_cast<std::uint16_t>(0xD800 + (codePoint >> 10)));
                    out.U16(static_cast<std::uint16_t>(0xDC00 + (codePoint & 0x3FF)));
                } else {
                    out.U16(static_cast<std::uint16_t>(codePoint));
                }
            }
            break;
        case AttributeBytesType::Collection:
            if (depth >= PersistentAttributesLimits::kMaxCollectionDepth) {
                error = "collections nested too deep";
                return false;
            }
            out.U16(static_cast<std::uint16_t>(item.GetCollection().GetCount()));
            out.U16(0);
            if (!WriteList(out, item.GetCollection(), depth + 1, error)) return false;
            break;
    }
    std::size_t size = out.Size() - start;
    if (size > PersistentAttributesLimits::kMaxPayloadSize) {
        error = "attribute value too long";
        return false;
    }
    out.PatchU16(sizeAt, static_cast<std::uint16_t>(size));
    return true;
}

bool WriteList(Output& out, const AttributeBytesRawList& list, int depth, std::string& error) {
    if (list.GetCount() > PersistentAttributesLimits::kMaxAttributesPerList) {
        error = "too many attributes in one list";
        return false;
    }
    std::set<long> seen;
    for (const AttributeBytesItem& item : list) {
        if (!seen.insert(item.GetFeatureId()).second) {
            error = "feature named twice in one list";
            return false;
        }
        if (!WriteAttribute(out, item, depth, error)) return false;
    }
    return true;
}

}  // namespace

PersistentAttributes::PersistentAttributes(const ByteBuffer& serialised, bool requireDriverVersion,
                                           DriverVersion* driverVersion) {
    Cursor cursor(serialised.data(), serialised.size());
    const unsigned char* magic = nullptr;
    std::uint16_t version = 0, headerSize = 0, parts[4] = {0, 0, 0, 0}, nameSpaceCount = 0,
                  reserved = 0;
    std::uint32_t totalSize = 0;
    if (!cursor.Bytes(4, magic) || !cursor.U16(version) || !cursor.U16(headerSize) ||
        !cursor.U16(parts[0]) || !cursor.U16(parts[1]) || !cursor.U16(parts[2]) ||
        !cursor.U16(parts[3]) || !cursor.U32(totalSize) || !cursor.U16(nameSpaceCount) ||
        !cursor.U16(reserved)) {
        m_error = "shorter than the header";
        return;
    }
    if (std::memcmp(magic, kMagic, sizeof kMagic) != 0) {
        m_error = "not attribute bytes (wrong signature)";
        return;
    }
    if (version != PersistentAttributesLimits::kFormatVersion) {
        m_error = "format version " + std::to_string(version) + " is not supported";
        return;
    }
    if (headerSize < PersistentAttributesLimits::kHeaderSize || headerSize > totalSize ||
        totalSize > serialised.size()) {
        m_error = "header or total size out of range";
        return;
    }
    DriverVersion writer(parts[0], parts[1], parts[2], parts[3]);
    if (requireDriverVersion && driverVersion != nullptr && !(writer == *driverVersion)) {
        m_error = "written by another driver version";
        return;
    }
    // The body: from the end of the header (which may be longer in later minor revisions) to
    // the total size; bytes after the total size are not part of the attributes.
    Cursor body(serialised.data() + headerSize, totalSize - headerSize);
    std::vector<NameSpace> nameSpaces;
    std::set<std::int32_t> seen;
    if (nameSpaceCount > body.Remaining() / kNameSpaceHeaderSize) {
        m_error = "namespace count larger than the data";
        return;
    }
    for (std::uint16_t i = 0; i < nameSpaceCount; ++i) {
        std::int32_t id = 0;
        std::uint32_t size = 0;
        std::uint16_t count = 0, nameSpaceReserved = 0;
        Cursor list(nullptr, 0);
        if (!body.I32(id) || !body.U32(size) || !body.U16(count) || !body.U16(nameSpaceReserved) ||
            !body.Sub(size, list)) {
            m_error = "namespace past the end of the data";
            return;
        }
        if (nameSpaceReserved != 0 || !seen.insert(id).second) {
            m_error = "namespace header damaged or namespace stored twice";
            return;
        }
        NameSpace nameSpace{AttributeBytesNameSpacesId(id), AttributeBytesRawList()};
        if (!ReadList(list, count, 0, nameSpace.list, m_error)) return;
        nameSpaces.push_back(std::move(nameSpace));
    }
    if (body.Remaining() != 0 || reserved != 0) {
        m_error = "bytes left over after the namespaces";
        return;
    }
    m_nameSpaces = std::move(nameSpaces);
    m_writerVersion = writer;
    m_valid = true;
}

bool PersistentAttributes::GetAttributeBytesListForNameSpace(
    const AttributeBytesNameSpacesId& nameSpace, AttributeBytesRawList& list) const {
    list.Clear();
    for (const NameSpace& stored : m_nameSpaces) {
        if (stored.id == nameSpace) {
            list = stored.list;
            return true;
        }
    }
    return false;
}

std::vector<AttributeBytesNameSpacesId> PersistentAttributes::GetNameSpaceIds() const {
    std::vector<AttributeBytesNameSpacesId> ids;
    for (const NameSpace& stored : m_nameSpaces) ids.push_back(stored.id);
    return ids;
}

AttributeBytesNameSpacesId PersistentAttributes::GetDataModelDocPropNameSpaceId() {
    return AttributeBytesNameSpacesId(1);
}

AttributeBytesNameSpacesId PersistentAttributes::GetDataModelPrinterPropNameSpaceId() {
    return AttributeBytesNameSpacesId(2);
}

PersistentAttributesWriter::PersistentAttributesWriter(const DriverVersion& driverVersion)
    : m_driverVersion(driverVersion) {}

void PersistentAttributesWriter::SetAttributeBytesListForNameSpace(
    const AttributeBytesNameSpacesId& nameSpace, const AttributeBytesRawList& list) {
    for (NameSpace& stored : m_nameSpaces) {
        if (stored.id == nameSpace) {
            stored.list = list;
            return;
        }
    }
    m_nameSpaces.push_back(NameSpace{nameSpace, list});
}

HRESULT PersistentAttributesWriter::Serialise(ByteBuffer& serialised) const {
    serialised.clear();
    m_error.clear();
    if (m_nameSpaces.size() > PersistentAttributesLimits::kMaxNameSpaces) {
        m_error = "too many namespaces";
        return E_INVALIDARG;
    }
    ByteBuffer bytes;
    Output out(bytes);
    for (unsigned char c : kMagic) out.U8(c);
    out.U16(PersistentAttributesLimits::kFormatVersion);
    out.U16(static_cast<std::uint16_t>(PersistentAttributesLimits::kHeaderSize));
    out.U16(m_driverVersion.GetMajor());
    out.U16(m_driverVersion.GetMinor());
    out.U16(m_driverVersion.GetBuild());
    out.U16(m_driverVersion.GetRevision());
    out.U32(0);  // total size, patched below
    out.U16(static_cast<std::uint16_t>(m_nameSpaces.size()));
    out.U16(0);
    for (const NameSpace& nameSpace : m_nameSpaces) {
        out.U32(static_cast<std::uint32_t>(nameSpace.id.GetNameSpaceId()));
        std::size_t sizeAt = out.Size();
        out.U32(0);
        out.U16(static_cast<std::uint16_t>(nameSpace.list.GetCount()));
        out.U16(0);
        std::size_t start = out.Size();
        if (!WriteList(out, nameSpace.list, 0, m_error)) return E_INVALIDARG;
        out.PatchU32(sizeAt, static_cast<std::uint32_t>(out.Size() - start));
    }
    if (bytes.size() > 0xFFFFFFFFu) {
        m_error = "attributes too large";
        return E_INVALIDARG;
    }
    out.PatchU32(16, static_cast<std::uint32_t>(bytes.size()));
    serialised = std::move(bytes);
    return S_OK;
}
