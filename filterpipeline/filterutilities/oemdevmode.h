// oemdevmode.h: the driver's plug-in part of a device mode (OEMDEV): its layout, how it is found
// behind the core driver's part of the private area, its CRC, and its records (record type 1
// holds the serialised persistent attributes). Every function here takes the bytes actually
// present and never reads outside them; the part may lie at any byte offset, so its fields are
// read through these functions, never through an OEMDEV pointer.
//
// Private area of a device mode (it starts at byte dmSize, dmDriverExtra bytes long):
//
//     [core driver part, S bytes][plug-in part, 5956 bytes][anything else]
//
// S, the size of the core driver's part, is the 16-bit word at byte 114 of the private area when
// the core driver is the PostScript one, at byte 8 when it is the raster (Unidrv) one. The
// PostScript reading is tried first. Plug-in part:
//
//     offset  size  field
//          0     4  dwSize       5956
//          4     4  dwSignature  0x514D5631 ("QMV1", 'Q' in the most significant byte)
//          8     4  dwVersion    1
//         12     4  record-area layout word, 5900
//         16    40  other driver fields (not read here)
//         56     4  CRC-32 (Crc32::GetCrc) of the 5896 bytes from offset 60 to the end
//         60     2  record count
//         62   ...  records: type (u16), length L (u16), L data bytes; no padding
#pragma once

#include <cstddef>

#include "platform/com/wintypes.h"
#include "platform/win32/wingdi.h"
#include "support/utilities/bytebuffer.h"

// The plug-in part as the driver declares it.
struct OEMDEV {
    OEM_DMEXTRAHEADER dmOEMExtra;
    DWORD dwRecordAreaLayout;
    BYTE driverFields[40];
    DWORD dwRecordCrc;
    WORD wRecordCount;
    BYTE records[5894];
};
using POEMDEV = OEMDEV*;

static_assert(sizeof(OEMDEV) == 5956, "the plug-in part is 5956 bytes");
static_assert(offsetof(OEMDEV, dwRecordCrc) == 56);
static_assert(offsetof(OEMDEV, wRecordCount) == 60);
static_assert(offsetof(OEMDEV, records) == 62);

namespace OemDevmode {

inline constexpr DWORD kSize = 5956;
inline constexpr DWORD kSignature = 0x514D5631;  // 'Q' 'M' 'V' '1'
inline constexpr DWORD kVersion = 1;
inline constexpr DWORD kRecordAreaLayout = 5900;
inline constexpr std::size_t kCrcOffset = 56;
inline constexpr std::size_t kCrcStart = 60;
inline constexpr std::size_t kCrcLength = kSize - kCrcStart;  // 5896
inline constexpr std::size_t kRecordCountOffset = 60;
inline constexpr std::size_t kRecordsOffset = 62;
inline constexpr WORD kAttributesRecordType = 1;
inline constexpr std::size_t kMaxAttributeBytes = 5400;

// Bytes of the public device mode, and where its two size fields lie.
inline constexpr std::size_t kPublicDevmodeSize = sizeof(DEVMODEW);  // 220
inline constexpr std::size_t kDmSizeOffset = 68;
inline constexpr std::size_t kDmDriverExtraOffset = 70;

// The core drivers whose private part can precede the plug-in part, and where each keeps its
// size word inside the private area.
enum class CoreLayout { PostScript, Raster };
inline constexpr std::size_t kPostScriptSizeWordOffset = 114;
inline constexpr std::size_t kRasterSizeWordOffset = 8;

// Little-endian reads and writes at a byte position.
WORD ReadWord(const BYTE* bytes);
DWORD ReadDword(const BYTE* bytes);
void WriteWord(BYTE* bytes, WORD value);
void WriteDword(BYTE* bytes, DWORD value);

// Where the plug-in part was found.
struct Location {
    const BYTE* part = nullptr;  // null: no plug-in part
    std::size_t offset = 0;      // from the start of the device mode
    CoreLayout layout = CoreLayout::PostScript;
    WORD coreSize = 0;  // S
};

// Finds the plug-in part of the `available` bytes at `devmode`. A part is accepted when the
// device mode's size fields lie inside the bytes, dmSize + dmDriverExtra bytes are present,
// and for the first core layout that gives it: S is non-zero, dmDriverExtra > S + 12,
// dmDriverExtra >= S + 5956, and the candidate's dwSignature and dwSize are the driver's.
// dwVersion and the layout word are not checked here.
Location Find(const BYTE* devmode, std::size_t available);

// The same, trusting the device mode's own size fields: dmSize + dmDriverExtra bytes must be
// readable at `devmode` (as for a device mode the spooler hands over).
Location FindTrusted(const DEVMODEW* devmode);

// The fixed fields of a part (copied out: a part may be misaligned).
struct Header {
    DWORD size = 0;
    DWORD signature = 0;
    DWORD version = 0;
    DWORD recordAreaLayout = 0;
    DWORD storedCrc = 0;
    WORD recordCount = 0;
};
Header ReadHeader(const BYTE* part);

// The CRC of the 5896 bytes from offset 60 of a (complete) part.
DWORD ComputeCrc(const BYTE* part);

// True when the part is the driver's current one: size, signature, version 1 and layout 5900.
bool IsCurrentVersion(const BYTE* part);

// The data of the first attribute record (type 1) of a part, walking at most the part's record
// count of records. A record whose header would pass the end of the part ends the walk; an
// attribute record longer than 5400 bytes or passing the end is ignored and ends the walk.
// Returns false (and leaves `attributes` empty) when no attribute record was taken.
bool TakeAttributeRecord(const BYTE* part, ByteBuffer& attributes);

// One record to place in a part.
struct Record {
    WORD type = 0;
    ByteBuffer data;
};

// Builds a complete part: the header (size, signature, version 1, layout word 5900), the driver
// fields zero, the records in order, and the CRC. Returns false when the records do not fit the
// part (each takes 4 + its data bytes; there are 5894 record bytes) or a record is longer than
// 65535 bytes.
bool BuildPart(const std::vector<Record>& records, BYTE (&part)[kSize]);

// Builds a device mode: the public part (dmSize becomes 220 and dmDriverExtra the private size),
// then a core driver part of `coreSize` bytes (zero but for its size word, which holds
// coreSize at the layout's place), the plug-in part, then `trailing` zero bytes. `coreSize`
// must leave room for the size word (at least 116 for PostScript, 10 for raster) and the whole
// private area must stay within 65535 bytes; otherwise false.
bool BuildDevmode(const DEVMODEW& publicPart, CoreLayout layout, WORD coreSize,
                  const BYTE (&part)[kSize], WORD trailing, ByteBuffer& devmode);

}  // namespace OemDevmode
