// devmodedescriptionwriter.cpp: writing a device mode as its description (see
// devmodedescription.h): the public fields, the plug-in part's header and each record, with the
// problems a filter would meet.
#include <cstdio>
#include <cstring>
#include <sstream>

#include "devmodedescription.h"
#include "datamodelnames.h"
#include "devmodesyntax.h"
#include "platform/com/unicode.h"
#include "support/utilities/persistentattributes.h"

namespace xpsfilter {

using namespace devmodesyntax;

namespace {

// The data model's names of an attribute and of its option, as a comment line above it (the
// description format has comments on lines of their own).
void NameComment(const AttributeBytesItem& item, std::ostream& out) {
    const std::string feature = FeatureName(static_cast<long>(item.GetFeatureId()));
    std::string option;
    if (item.GetType() == AttributeBytesType::OptionValue) {
        option = ValueName(static_cast<long>(item.GetOptionValue()));
    }
    if (feature.empty() && option.empty()) return;
    out << "# " << (feature.empty() ? "(unnamed feature)" : feature);
    if (!option.empty()) out << ": " << option;
    out << "\n";
}

// One attribute as the JSON form lists it.
DescribedAttribute Described(const AttributeBytesItem& item, long nameSpace,
                             const std::string& path, const std::string& value) {
    DescribedAttribute attribute;
    attribute.nameSpace = nameSpace;
    attribute.path = path;
    const auto space = value.find(' ');
    attribute.type = value.substr(0, space);
    attribute.value = space == std::string::npos ? "" : value.substr(space + 1);
    attribute.specified = item.IsSpecified();
    attribute.feature = FeatureName(static_cast<long>(item.GetFeatureId()));
    if (item.GetType() == AttributeBytesType::OptionValue) {
        attribute.option = ValueName(static_cast<long>(item.GetOptionValue()));
    }
    return attribute;
}

void DescribeList(const AttributeBytesRawList& list, const std::string& prefix, std::ostream& out,
                  long nameSpace, std::vector<DescribedAttribute>* described) {
    for (const AttributeBytesItem& item : list) {
        std::string path = prefix + std::to_string(item.GetFeatureId());
        std::string value;
        if (item.GetType() != AttributeBytesType::Collection) NameComment(item, out);
        switch (item.GetType()) {
            case AttributeBytesType::OptionValue:
                value = "option " + std::to_string(static_cast<long>(item.GetOptionValue()));
                break;
            case AttributeBytesType::Integer:
                value = "integer " + std::to_string(item.GetInteger());
                break;
            case AttributeBytesType::Boolean:
                value = item.GetBoolean() ? "boolean true" : "boolean false";
                break;
            case AttributeBytesType::Dimension: {
                int unit = item.GetDimensionUnit();
                value = "dimension " + FormatReal(item.GetDimensionValue()) + " " +
                        (unit >= 0 && unit < static_cast<int>(std::size(kUnitNames))
                             ? std::string(kUnitNames[unit])
                             : std::to_string(unit));
                break;
            }
            case AttributeBytesType::String:
                value = "string " + Quote(platform::WideToUtf8(item.GetString()));
                break;
            case AttributeBytesType::Collection:
                // Members by path; an empty or unspecified collection is also named itself.
                if (item.GetCollection().IsEmpty() || !item.IsSpecified()) {
                    NameComment(item, out);
                    out << path << " = collection" << (item.IsSpecified() ? "" : " unspecified")
                        << "\n";
                }
                DescribeList(item.GetCollection(), path + "/", out, nameSpace, described);
                continue;
        }
        out << path << " = " << value << (item.IsSpecified() ? "" : " unspecified") << "\n";
        if (described != nullptr) described->push_back(Described(item, nameSpace, path, value));
    }
}

// The public DEVMODEW fields, and whether dmSize + dmDriverExtra fit the bytes present.
DEVMODEW DescribePublicPart(const ByteBuffer& devmode, std::ostream& out,
                            std::vector<std::string>& problems) {
    DEVMODEW publicPart;
    std::memcpy(&publicPart, devmode.data(), sizeof publicPart);
    out << "[devmode]\n";
    out << "deviceName = " << Quote(FromUtf16(publicPart.dmDeviceName, CCHDEVICENAME)) << "\n";
    out << "formName = " << Quote(FromUtf16(publicPart.dmFormName, CCHFORMNAME)) << "\n";
    for (const PublicField& field : kPublicFields) {
        const BYTE* at = devmode.data() + field.offset;
        long long value = field.size == 2 ? OemDevmode::ReadWord(at) : OemDevmode::ReadDword(at);
        if (field.isSigned) {
            value = field.size == 2 ? static_cast<SHORT>(value) : static_cast<LONG>(value);
        }
        char text[32];
        if (field.hex) {
            std::snprintf(text, sizeof text, field.size == 2 ? "0x%04llX" : "0x%08llX", value);
        } else {
            std::snprintf(text, sizeof text, "%lld", value);
        }
        out << field.name << " = " << text << "\n";
    }
    out << "# dmSize = " << publicPart.dmSize << ", dmDriverExtra = " << publicPart.dmDriverExtra
        << " (private area at byte " << publicPart.dmSize << ")\n";
    if (static_cast<std::size_t>(publicPart.dmSize) + publicPart.dmDriverExtra > devmode.size()) {
        problems.push_back("dmSize + dmDriverExtra (" +
                           std::to_string(publicPart.dmSize + publicPart.dmDriverExtra) +
                           ") is more than the " + std::to_string(devmode.size()) +
                           " bytes present");
    }

    return publicPart;
}

// The plug-in part's header: where it is, its layout and settings, and whether its CRC matches.
void DescribePluginHeader(const OemDevmode::Location& where, const DEVMODEW& publicPart,
                          std::ostream& out, std::vector<std::string>& problems) {
    OemDevmode::Header header = OemDevmode::ReadHeader(where.part);
    DWORD computed = OemDevmode::ComputeCrc(where.part);
    out << "\n[plugin]\n";
    out << "# at byte " << where.offset << ": dwSize " << header.size << ", dwSignature 0x"
        << std::hex << std::uppercase << header.signature << std::dec << " (QMV1)\n";
    out << "layout = "
        << (where.layout == OemDevmode::CoreLayout::PostScript ? "postscript" : "raster") << "\n";
    out << "coreSize = " << where.coreSize << "\n";
    out << "version = " << header.version << "\n";
    out << "layoutWord = " << header.recordAreaLayout << "\n";
    out << "trailing = "
        << (publicPart.dmDriverExtra - static_cast<std::size_t>(where.coreSize) - OemDevmode::kSize)
        << "\n";
    char crcText[96];
    std::snprintf(crcText, sizeof crcText, "# CRC stored 0x%08X, computed 0x%08X: %s\n",
                  header.storedCrc, computed, header.storedCrc == computed ? "match" : "MISMATCH");
    out << crcText;
    if (header.storedCrc != computed) {
        problems.push_back("the plug-in part's CRC does not match: filters see no attributes");
    }
    if (!OemDevmode::IsCurrentVersion(where.part)) {
        problems.push_back(
            "the plug-in part is not version 1 with layout word 5900: "
            "GetDevmodeFromPrintTicket refuses it");
    }
}

// The records, in order, bounds-checked as the library walks them: the first attribute record as
// attribute sections, any other as hexadecimal bytes.
void DescribeRecords(const OemDevmode::Location& where, std::ostream& out,
                     std::vector<std::string>& problems,
                     std::vector<DescribedAttribute>* attributeList) {
    OemDevmode::Header header = OemDevmode::ReadHeader(where.part);
    out << "# " << header.recordCount << " record(s)\n";
    std::size_t position = OemDevmode::kRecordsOffset;
    bool attributesSeen = false;
    for (std::size_t index = 0; index < header.recordCount; ++index) {
        if (position + 4 > OemDevmode::kSize) {
            problems.push_back("record " + std::to_string(index) +
                               " lies past the end of the part");
            break;
        }
        WORD type = OemDevmode::ReadWord(where.part + position);
        std::size_t length = OemDevmode::ReadWord(where.part + position + 2);
        if (length > OemDevmode::kSize - (position + 4)) {
            problems.push_back("record " + std::to_string(index) + " (" + std::to_string(length) +
                               " bytes) runs past the end of the part");
            break;
        }
        const BYTE* data = where.part + position + 4;
        bool described = false;
        if (type == OemDevmode::kAttributesRecordType && !attributesSeen) {
            attributesSeen = true;
            ByteBuffer bytes(data, data + length);
            PersistentAttributes attributes(bytes, false, nullptr);
            if (length > OemDevmode::kMaxAttributeBytes) {
                problems.push_back("the attribute record is longer than 5400 bytes: it is ignored");
            } else if (!attributes.IsValid()) {
                problems.push_back("the attribute record is not valid persistent attributes: " +
                                   attributes.GetError());
            } else {
                out << "# record " << index << ": persistent attributes, " << length << " bytes\n";
                const long docProps =
                    PersistentAttributes::GetDataModelDocPropNameSpaceId().GetNameSpaceId();
                for (const AttributeBytesNameSpacesId& id : attributes.GetNameSpaceIds()) {
                    AttributeBytesRawList list;
                    attributes.GetAttributeBytesListForNameSpace(id, list);
                    out << "\n[attributes";
                    if (id.GetNameSpaceId() != docProps) out << " " << id.GetNameSpaceId();
                    out << "]\n";
                    DescribeList(list, "", out, id.GetNameSpaceId(), attributeList);
                }
                described = true;
            }
        }
        if (!described) {
            out << "\n[record " << type << "]\n";
            if (length > 0) out << "hex = " << Hex(data, length) << "\n";
        }
        position += 4 + length;
    }
}

}  // namespace

std::string DescribeDevmode(const ByteBuffer& devmode, std::vector<std::string>& problems,
                            std::vector<DescribedAttribute>* attributeList) {
    std::ostringstream out;
    out << "# " << devmode.size() << " bytes\n";
    if (devmode.size() < OemDevmode::kPublicDevmodeSize) {
        problems.push_back("the device mode has " + std::to_string(devmode.size()) +
                           " bytes, fewer than the 220 of a public DEVMODEW");
        out << "# fewer bytes than a public DEVMODEW: nothing to describe\n";
        return out.str();
    }
    DEVMODEW publicPart = DescribePublicPart(devmode, out, problems);

    OemDevmode::Location where = OemDevmode::Find(devmode.data(), devmode.size());
    if (where.part == nullptr) {
        problems.push_back("no driver plug-in part: neither core driver layout gives one");
        out << "# no driver plug-in part (neither the postscript nor the raster layout gives "
               "one)\n";
        return out.str();
    }
    DescribePluginHeader(where, publicPart, out, problems);
    DescribeRecords(where, out, problems, attributeList);
    return out.str();
}

}  // namespace xpsfilter
