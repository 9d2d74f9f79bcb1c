// devmodedescription.cpp: building a device mode from its description (see
// devmodedescription.h and docs/privatedata.md).
#include "devmodedescription.h"

#include <string>
#include <vector>

#include "support/utilities/persistentattributes.h"

namespace xpsfilter {

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

}  // namespace xpsfilter
