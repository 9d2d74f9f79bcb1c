// devmode_fuzz.cpp: libFuzzer target over the driver device mode as it comes out of a ticket:
// the plug-in part lookup (bounds-checked and trusting forms, which must agree), its header,
// CRC and records, and the attribute list PrintTicketAttributeBytesReaderWriter builds from it,
// read the way the typed view reads it.
//
// The first input byte picks how the rest is used:
//   0  the rest is a device mode as it stands;
//   1  the same, with the CRC of a plug-in part found in it made to match, so that its records
//      are walked;
//   2  the rest is the record area of a valid plug-in part (count, then records), placed in a
//      well-formed device mode, so that the persistent attributes are parsed.
#include <cstddef>
#include <cstdint>
#include <cstring>

#include "filterpipeline/filterutilities/oemdevmode.h"
#include "filterpipeline/filterutilities/printticketattributebytesreaderwriter.h"
#include "support/utilities/datamodelids.h"
#include "support/utilities/dimension.h"
#include "support/utilities/persistentattributes.h"

namespace {

using namespace DataModelIds;

ByteBuffer DevmodeAroundRecords(const uint8_t* data, std::size_t size) {
    ByteBuffer devmode;
    if (size < 2) return devmode;
    OemDevmode::CoreLayout layout =
        (data[0] & 1) != 0 ? OemDevmode::CoreLayout::Raster : OemDevmode::CoreLayout::PostScript;
    WORD coreSize = static_cast<WORD>((layout == OemDevmode::CoreLayout::PostScript ? 116 : 10) +
                                      ((data[0] >> 1) & 0x3F));
    WORD trailing = static_cast<WORD>(data[1] & 0x0F);
    data += 2;
    size -= 2;

    BYTE part[OemDevmode::kSize] = {};
    OemDevmode::WriteDword(part, OemDevmode::kSize);
    OemDevmode::WriteDword(part + 4, OemDevmode::kSignature);
    OemDevmode::WriteDword(part + 8, OemDevmode::kVersion);
    OemDevmode::WriteDword(part + 12, OemDevmode::kRecordAreaLayout);
    std::size_t room = OemDevmode::kSize - OemDevmode::kRecordCountOffset;
    std::memcpy(part + OemDevmode::kRecordCountOffset, data, size < room ? size : room);
    OemDevmode::WriteDword(part + OemDevmode::kCrcOffset, OemDevmode::ComputeCrc(part));

    DEVMODEW publicPart{};
    publicPart.dmSpecVersion = DM_SPECVERSION;
    OemDevmode::BuildDevmode(publicPart, layout, coreSize, part, trailing, devmode);
    return devmode;
}

void ReadLikeTheView(PrintTicketAttributeBytesReaderWriter& reader) {
    reader.GetOptionValueFromAttributeBytes(FeatureNUpPagesPerSheet, ValueNUp1);
    bool specified = false;
    reader.GetBooleanValueFromAttributeBytes(FeatureBooklet, false, &specified);
    reader.GetIntegerValueFromAttributeBytes(FeatureBookletGutter, 0);
    reader.IsSpecifiedInAttributeBytes(FeatureBookletCreep);
    AttributeBytesIndexedList settings;
    AttributeBytesIndexedList paper;
    AttributeBytesIndexedList dimensions;
    reader.GetCollection(FeatureOutputPaperSettings, settings);
    AttributeBytesReader::GetCollection(settings, FeatureOutputPaper, paper);
    AttributeBytesReader::GetOptionValueOrNewId(paper, FeaturePaperSize, ValueAny);
    AttributeBytesReader::GetCollection(paper, FeatureCustomPaperDimensions, dimensions);
    AttributeBytesReader::GetDimensionValue(dimensions, FeaturePaperWidth,
                                            Dimension(215900, Dimension::Microns))
        .GetValue(Dimension::Microns)
        .GetIntValue(0.499999);
    reader.GetStringValueFromAttributeBytes(FeatureWatermark, CXString());
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, std::size_t size) {
    if (size == 0) return 0;
    const int mode = data[0] % 3;
    ++data;
    --size;

    // Exactly `size` bytes on the heap: a read past them is an AddressSanitizer report.
    ByteBuffer devmode;
    if (mode == 2) {
        devmode = DevmodeAroundRecords(data, size);
    } else {
        devmode.assign(data, data + size);
    }

    OemDevmode::Location where = OemDevmode::Find(devmode.data(), devmode.size());
    if (mode == 1 && where.part != nullptr) {
        BYTE* part = devmode.data() + where.offset;
        OemDevmode::WriteDword(part + OemDevmode::kCrcOffset, OemDevmode::ComputeCrc(part));
    }

    // The trusting lookup, when the device mode's own sizes are honest, finds the same part.
    if (devmode.size() >= OemDevmode::kDmDriverExtraOffset + 2) {
        std::size_t declared =
            OemDevmode::ReadWord(devmode.data() + OemDevmode::kDmSizeOffset) +
            std::size_t{OemDevmode::ReadWord(devmode.data() + OemDevmode::kDmDriverExtraOffset)};
        if (declared <= devmode.size()) {
            OEMDEV* trusted = PrintTicketAttributeBytesReaderWriter::GetOemDevmodeFromDevmode(
                reinterpret_cast<DEVMODEW*>(devmode.data()));
            if (reinterpret_cast<const BYTE*>(trusted) != where.part) __builtin_trap();
        }
    }
    if (where.part != nullptr) {
        OemDevmode::ReadHeader(where.part);
        OemDevmode::IsCurrentVersion(where.part);
        ByteBuffer attributes;
        if (OemDevmode::TakeAttributeRecord(where.part, attributes) &&
            attributes.size() > OemDevmode::kMaxAttributeBytes) {
            __builtin_trap();
        }
    }

    PrintTicketAttributeBytesReaderWriter reader;
    reader.SetDevmode(devmode);
    reader.GetPublicDevmodePtr();
    reader.GetAttributeBytesIndexedListRef();
    ReadLikeTheView(reader);
    reader.GetAttributeBytesIndexedListRef(
        PersistentAttributes::GetDataModelPrinterPropNameSpaceId());
    reader.GetAttributeBytesIndexedListRef();
    return 0;
}
