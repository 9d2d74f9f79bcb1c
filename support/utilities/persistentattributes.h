// persistentattributes.h: the stored form of the driver's settings. PersistentAttributesWriter
// turns attribute lists, grouped by namespace, into bytes; PersistentAttributes reads such bytes
// back. The format (versioned, little-endian, every length checked) is described in
// docs/attributebytes.md. Bytes that are truncated, corrupt or of another format version read as
// no attributes at all: never as part of a list, never beyond the bytes given.
#pragma once

#include <cstdint>
#include <string>
#include <vector>

#include "platform/com/wintypes.h"
#include "support/utilities/attributebytes.h"
#include "support/utilities/bytebuffer.h"

// The version of the driver that wrote a set of attributes.
class DriverVersion {
public:
    DriverVersion(WORD major = 0, WORD minor = 0, WORD build = 0, WORD revision = 0)
        : m_parts{major, minor, build, revision} {}
    WORD GetMajor() const { return m_parts[0]; }
    WORD GetMinor() const { return m_parts[1]; }
    WORD GetBuild() const { return m_parts[2]; }
    WORD GetRevision() const { return m_parts[3]; }
    friend bool operator==(const DriverVersion& a, const DriverVersion& b) {
        return a.m_parts[0] == b.m_parts[0] && a.m_parts[1] == b.m_parts[1] &&
               a.m_parts[2] == b.m_parts[2] && a.m_parts[3] == b.m_parts[3];
    }

private:
    WORD m_parts[4];
};

// Limits of the stored form.
struct PersistentAttributesLimits {
    static constexpr std::uint16_t kFormatVersion = 1;
    static constexpr std::size_t kHeaderSize = 24;
    static constexpr std::size_t kMaxNameSpaces = 0xFFFF;
    static constexpr std::size_t kMaxAttributesPerList = 0xFFFF;
    static constexpr std::size_t kMaxPayloadSize = 0xFFFF;  // bytes of one attribute's value
    static constexpr int kMaxCollectionDepth = 8;           // nested lists inside a list
};

class PersistentAttributes {
public:
    // Reads `serialised`. With `requireDriverVersion` true and a `driverVersion` given, bytes
    // written by another driver version are not accepted (read as no attributes); with false or
    // null (what the filters pass) any driver version is read.
    PersistentAttributes(const ByteBuffer& serialised, bool requireDriverVersion,
                         DriverVersion* driverVersion);

    // The list of a namespace into `list` (replacing its contents). False, and `list` empty,
    // when the bytes hold no such namespace or were not accepted.
    bool GetAttributeBytesListForNameSpace(const AttributeBytesNameSpacesId& nameSpace,
                                           AttributeBytesRawList& list) const;

    // Whether the bytes were accepted, and why not ("" when they were).
    bool IsValid() const { return m_valid; }
    const std::string& GetError() const { return m_error; }
    // The version of the driver that wrote the bytes (0.0.0.0 when not accepted).
    const DriverVersion& GetWriterDriverVersion() const { return m_writerVersion; }
    // The namespaces, in stored order.
    std::vector<AttributeBytesNameSpacesId> GetNameSpaceIds() const;

    // The namespace of the document properties of the driver's data model: the job and document
    // settings the filters read.
    static AttributeBytesNameSpacesId GetDataModelDocPropNameSpaceId();
    // The namespace of the printer properties (installable options and the like).
    static AttributeBytesNameSpacesId GetDataModelPrinterPropNameSpaceId();

private:
    struct NameSpace {
        AttributeBytesNameSpacesId id;
        AttributeBytesRawList list;
    };
    bool m_valid = false;
    std::string m_error;
    DriverVersion m_writerVersion;
    std::vector<NameSpace> m_nameSpaces;
};

class PersistentAttributesWriter {
public:
    explicit PersistentAttributesWriter(const DriverVersion& driverVersion = DriverVersion());

    // Sets the list of a namespace (replacing one set before). Namespaces are written in the
    // order they were first set.
    void SetAttributeBytesListForNameSpace(const AttributeBytesNameSpacesId& nameSpace,
                                           const AttributeBytesRawList& list);

    // The stored form of everything set. S_OK; E_INVALIDARG (and `serialised` empty) when
    // something cannot be stored: a feature named twice in one list, a dimension that is not a
    // finite number or has an unknown unit, a string that is not valid Unicode or too long,
    // collections nested too deep, or more items than the format counts. GetError tells which.
    HRESULT Serialise(ByteBuffer& serialised) const;
    const std::string& GetError() const { return m_error; }

private:
    struct NameSpace {
        AttributeBytesNameSpacesId id;
        AttributeBytesRawList list;
    };
    DriverVersion m_driverVersion;
    std::vector<NameSpace> m_nameSpaces;
    mutable std::string m_error;
};
