// devmodedescription.h: the readable description of a driver device mode that `xpsfilter
// devmode` reads (encode) and writes (decode): the public DEVMODEW fields, where the plug-in part
// goes, the persistent attributes by namespace and any other plug-in records. The format is
// documented in docs/privatedata.md; in short:
//
//     # comment (also ;)
//     [devmode]
//     deviceName = "Zorun Universal XPS"
//     paperSize = 9
//     [plugin]
//     layout = postscript          ; or raster
//     coreSize = 160
//     [attributes]                 ; the document properties; [attributes N] for namespace N
//     215 = option 7242
//     160 = integer 150
//     216 = boolean true unspecified
//     477/210/168 = option 5011    ; collections by path
//     172 = dimension 210 mm
//     9000 = string "text"
//     [record 7]
//     hex = 01 02 03
#pragma once

#include <stdexcept>
#include <string>
#include <vector>

#include "filterpipeline/filterutilities/oemdevmode.h"
#include "platform/win32/wingdi.h"
#include "support/utilities/attributebytes.h"
#include "support/utilities/bytebuffer.h"

namespace xpsfilter {

// A description that cannot be read or built: the message names the line.
class DescriptionError : public std::runtime_error {
public:
    using std::runtime_error::runtime_error;
};

struct DevmodeDescription {
    DEVMODEW publicPart{};
    OemDevmode::CoreLayout layout = OemDevmode::CoreLayout::PostScript;
    WORD coreSize = 160;
    DWORD version = OemDevmode::kVersion;
    DWORD recordAreaLayout = OemDevmode::kRecordAreaLayout;
    WORD trailing = 0;

    // One plug-in record: the serialised attributes (of every [attributes] section, written
    // where the first of them stands) or raw bytes.
    struct Section {
        bool attributes = false;
        OemDevmode::Record raw;
    };
    std::vector<Section> records;
    struct NameSpaceList {
        long nameSpace = 0;
        AttributeBytesRawList list;
    };
    std::vector<NameSpaceList> attributes;
};

// Reads a description; throws DescriptionError.
DevmodeDescription ParseDevmodeDescription(const std::string& text);

// The device mode a description stands for; throws DescriptionError when the attributes cannot
// be serialised or the records do not fit the plug-in part.
ByteBuffer BuildDevmode(const DevmodeDescription& description);

// The description of device mode bytes, with comments on the plug-in part (where it is, its
// header, its CRC check, its records). `problems` receives one line per defect found (no
// plug-in part, a CRC mismatch, unreadable attributes); the text is written all the same.
// Above each attribute whose feature or option the data model names, a comment line gives the
// names ("# NUpPagesPerSheet: NUp4"). `attributeList`, when given, receives every attribute that is
// not a collection, by path, for the JSON form.
struct DescribedAttribute {
    long nameSpace = 0;
    std::string path;   // "215", or "477/210/168" inside collections
    std::string type;   // option, integer, boolean, dimension, string
    std::string value;  // as the description writes it after the type
    bool specified = true;
    std::string feature;  // the data model's names, "" when it has none
    std::string option;
};
std::string DescribeDevmode(const ByteBuffer& devmode, std::vector<std::string>& problems,
                            std::vector<DescribedAttribute>* attributeList = nullptr);

}  // namespace xpsfilter
