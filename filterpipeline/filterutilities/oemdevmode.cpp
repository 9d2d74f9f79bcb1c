// oemdevmode.cpp: locating, checking, walking and building the driver's plug-in part of a
// device mode, with every offset checked against the bytes present.
#include "filterpipeline/filterutilities/oemdevmode.h"

#include <cstring>

#include "support/utilities/crc32.h"

namespace OemDevmode {

WORD ReadWord(const BYTE* bytes) {
    return static_cast<WORD>(bytes[0] | (bytes[1] << 8));
}

DWORD ReadDword(const BYTE* bytes) {
    return static_cast<DWORD>(bytes[0]) | (static_cast<DWORD>(bytes[1]) << 8) |
           (static_cast<DWORD>(bytes[2]) << 16) | (static_cast<DWORD>(bytes[3]) << 24);
}

void WriteWord(BYTE* bytes, WORD value) {
    bytes[0] = static_cast<BYTE>(value & 0xFF);
    bytes[1] = static_cast<BYTE>(value >> 8);
}

void WriteDword(BYTE* bytes, DWORD value) {
    for (int i = 0; i < 4; ++i) bytes[i] = static_cast<BYTE>((value >> (8 * i)) & 0xFF);
}

namespace {

// One core layout's candidate: the size word S at `wordOffset` of the private area, read only
// when dmDriverExtra exceeds `minimumExtra`.
Location TryLayout(const BYTE* privateArea, std::size_t privateOffset, std::size_t driverExtra,
                   CoreLayout layout, std::size_t wordOffset, std::size_t minimumExtra) {
    Location none;
    if (driverExtra <= minimumExtra) return none;
    std::size_t coreSize = ReadWord(privateArea + wordOffset);
    if (coreSize == 0) return none;
    if (driverExtra <= coreSize + 12) return none;
    if (driverExtra < coreSize + kSize) return none;
    const BYTE* candidate = privateArea + coreSize;
    if (ReadDword(candidate + 4) != kSignature) return none;
    if (ReadDword(candidate) != kSize) return none;
    Location found;
    found.part = candidate;
    found.offset = privateOffset + coreSize;
    found.layout = layout;
    found.coreSize = static_cast<WORD>(coreSize);
    return found;
}

Location FindInPrivateArea(const BYTE* devmode, std::size_t dmSize, std::size_t driverExtra) {
    const BYTE* privateArea = devmode + dmSize;
    // dmDriverExtra > 116 guarantees the PostScript size word (bytes 114 and 115) is inside the
    // private area, dmDriverExtra > 10 the raster one (bytes 8 and 9).
    Location found = TryLayout(privateArea, dmSize, driverExtra, CoreLayout::PostScript,
                               kPostScriptSizeWordOffset, 116);
    if (found.part != nullptr) return found;
    return TryLayout(privateArea, dmSize, driverExtra, CoreLayout::Raster, kRasterSizeWordOffset,
                     10);
}

}  // namespace

Location Find(const BYTE* devmode, std::size_t available) {
    if (devmode == nullptr || available < kDmDriverExtraOffset + 2) return Location();
    std::size_t dmSize = ReadWord(devmode + kDmSizeOffset);
    std::size_t driverExtra = ReadWord(devmode + kDmDriverExtraOffset);
    if (dmSize + driverExtra > available) return Location();
    return FindInPrivateArea(devmode, dmSize, driverExtra);
}

Location FindTrusted(const DEVMODEW* devmode) {
    if (devmode == nullptr) return Location();
    const BYTE* bytes = reinterpret_cast<const BYTE*>(devmode);
    return FindInPrivateArea(bytes, ReadWord(bytes + kDmSizeOffset),
                             ReadWord(bytes + kDmDriverExtraOffset));
}

Header ReadHeader(const BYTE* part) {
    Header header;
    header.size = ReadDword(part);
    header.signature = ReadDword(part + 4);
    header.version = ReadDword(part + 8);
    header.recordAreaLayout = ReadDword(part + 12);
    header.storedCrc = ReadDword(part + kCrcOffset);
    header.recordCount = ReadWord(part + kRecordCountOffset);
    return header;
}

DWORD ComputeCrc(const BYTE* part) {
    return static_cast<DWORD>(
        Crc32::GetCrc(const_cast<BYTE*>(part + kCrcStart), static_cast<unsigned long>(kCrcLength)));
}

bool IsCurrentVersion(const BYTE* part) {
    Header header = ReadHeader(part);
    return header.size == kSize && header.signature == kSignature && header.version == kVersion &&
           header.recordAreaLayout == kRecordAreaLayout;
}

bool TakeAttributeRecord(const BYTE* part, ByteBuffer& attributes) {
    attributes.clear();
    std::size_t count = ReadWord(part + kRecordCountOffset);
    std::size_t position = kRecordsOffset;
    for (std::size_t index = 0; index < count; ++index) {
        // The record's type and length words must both lie inside the part.
        if (position + 4 > kSize) break;
        WORD type = ReadWord(part + position);
        std::size_t length = ReadWord(part + position + 2);
        if (type == kAttributesRecordType) {
            if (length <= kMaxAttributeBytes && length <= kSize - (position + 4)) {
                attributes.appendLpbyte(part + position + 4, static_cast<unsigned long>(length));
                return true;
            }
            return false;
        }
        position += 4 + length;
    }
    return false;
}

bool BuildPart(const std::vector<Record>& records, BYTE (&part)[kSize]) {
    std::memset(part, 0, kSize);
    if (records.size() > 0xFFFF) return false;
    std::size_t position = kRecordsOffset;
    for (const Record& record : records) {
        if (record.data.size() > 0xFFFF) return false;
        if (position + 4 + record.data.size() > kSize) return false;
        WriteWord(part + position, record.type);
        WriteWord(part + position + 2, static_cast<WORD>(record.data.size()));
        if (!record.data.empty())
            std::memcpy(part + position + 4, record.data.data(), record.data.size());
        position += 4 + record.data.size();
    }
    WriteDword(part, kSize);
    WriteDword(part + 4, kSignature);
    WriteDword(part + 8, kVersion);
    WriteDword(part + 12, kRecordAreaLayout);
    WriteWord(part + kRecordCountOffset, static_cast<WORD>(records.size()));
    WriteDword(part + kCrcOffset, ComputeCrc(part));
    return true;
}

bool BuildDevmode(const DEVMODEW& publicPart, CoreLayout layout, WORD coreSize,
                  const BYTE (&part)[kSize], WORD trailing, ByteBuffer& devmode) {
    std::size_t wordOffset =
        layout == CoreLayout::PostScript ? kPostScriptSizeWordOffset : kRasterSizeWordOffset;
    if (coreSize < wordOffset + 2) return false;
    std::size_t privateSize = static_cast<std::size_t>(coreSize) + kSize + trailing;
    if (privateSize > 0xFFFF) return false;

    devmode.assign(kPublicDevmodeSize + privateSize, 0);
    DEVMODEW header = publicPart;
    header.dmSize = static_cast<WORD>(kPublicDevmodeSize);
    header.dmDriverExtra = static_cast<WORD>(privateSize);
    std::memcpy(devmode.data(), &header, kPublicDevmodeSize);
    BYTE* privateArea = devmode.data() + kPublicDevmodeSize;
    WriteWord(privateArea + wordOffset, coreSize);
    std::memcpy(privateArea + coreSize, part, kSize);
    return true;
}

}  // namespace OemDevmode
