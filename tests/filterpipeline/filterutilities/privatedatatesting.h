// privatedatatesting.h: helpers of the private-data, typed-view and watermark tests: device
// modes built from attribute lists (through the persistent-attributes writer and the plug-in
// part builder), base64, and tickets carrying a device mode as PageDevmodeSnapshot.
#pragma once

#include <gtest/gtest.h>

#include <string>
#include <vector>

#include "documenttesting.h"
#include "filterpipeline/filterutilities/oemdevmode.h"
#include "support/utilities/attributebytes.h"
#include "support/utilities/persistentattributes.h"
#include "support/utilities/zorunutilities.h"

namespace privatedatatesting {

using documenttesting::LoadXml;
using documenttesting::Ticket;

// The serialised persistent attributes of one document-property list.
inline ByteBuffer SerialiseDocProps(const AttributeBytesRawList& list) {
    PersistentAttributesWriter writer;
    writer.SetAttributeBytesListForNameSpace(PersistentAttributes::GetDataModelDocPropNameSpaceId(),
                                             list);
    ByteBuffer bytes;
    EXPECT_EQ(writer.Serialise(bytes), S_OK) << writer.GetError();
    return bytes;
}

// A public device mode with a device name and a few printer fields set.
inline DEVMODEW PublicDevmode() {
    DEVMODEW devmode{};
    const char16_t name[] = u"Zorun Test Printer";
    for (int i = 0; name[i] != u'\0'; ++i) devmode.dmDeviceName[i] = name[i];
    devmode.dmSpecVersion = DM_SPECVERSION;
    devmode.dmDriverVersion = 0x0600;
    devmode.dmFields = DM_ORIENTATION | DM_PAPERSIZE | DM_COPIES;
    devmode.dmOrientation = DMORIENT_PORTRAIT;
    devmode.dmPaperSize = 9;
    devmode.dmCopies = 1;
    return devmode;
}

// A device mode whose plug-in part holds `records`, behind a core part of `coreSize` bytes.
inline ByteBuffer DevmodeWithRecords(
    const std::vector<OemDevmode::Record>& records,
    OemDevmode::CoreLayout layout = OemDevmode::CoreLayout::PostScript, WORD coreSize = 160,
    WORD trailing = 0) {
    BYTE part[OemDevmode::kSize];
    EXPECT_TRUE(OemDevmode::BuildPart(records, part));
    ByteBuffer devmode;
    EXPECT_TRUE(
        OemDevmode::BuildDevmode(PublicDevmode(), layout, coreSize, part, trailing, devmode));
    return devmode;
}

// A device mode carrying the document-property attributes `list` in a type-1 record.
inline ByteBuffer DevmodeWithAttributes(
    const AttributeBytesRawList& list,
    OemDevmode::CoreLayout layout = OemDevmode::CoreLayout::PostScript, WORD coreSize = 160) {
    OemDevmode::Record record;
    record.type = OemDevmode::kAttributesRecordType;
    record.data = SerialiseDocProps(list);
    return DevmodeWithRecords({record}, layout, coreSize);
}

inline std::wstring Base64(const ByteBuffer& bytes) {
    int length = ZorunUtilities::Base64EncodeGetRequiredLength(
        static_cast<int>(bytes.size()), ZorunUtilities::ATL_BASE64_FLAG_NOCRLF);
    std::wstring text(static_cast<std::size_t>(length), L'\0');
    int written = length;
    EXPECT_NE(
        ZorunUtilities::Base64Encode(bytes.data(), static_cast<int>(bytes.size()), text.data(),
                                     &written, ZorunUtilities::ATL_BASE64_FLAG_NOCRLF),
        0);
    text.resize(static_cast<std::size_t>(written));
    return text;
}

// The private-keywords declaration that makes the driver's prefix "zk:".
inline std::wstring PrivateDeclaration() {
    return L" xmlns:zk='" + documenttesting::kPrivate + L"'";
}

// A string ParameterInit of the driver's private keywords.
inline std::wstring PrivateParameterInit(const std::wstring& name, const std::wstring& value) {
    return L"<psf:ParameterInit name='zk:" + name + L"'><psf:Value xsi:type='xsd:string'>" + value +
           L"</psf:Value></psf:ParameterInit>";
}

inline std::wstring Feature(const std::wstring& name, const std::wstring& option) {
    return L"<psf:Feature name='psk:" + name + L"'><psf:Option name='psk:" + option +
           L"'/></psf:Feature>";
}

inline std::wstring MediaSizeFeature(int width, int height) {
    return L"<psf:Feature name='psk:PageMediaSize'><psf:Option name='psk:Custom'>"
           L"<psf:ScoredProperty name='psk:MediaSizeWidth'><psf:Value xsi:type='xsd:integer'>" +
           std::to_wstring(width) +
           L"</psf:Value></psf:ScoredProperty>"
           L"<psf:ScoredProperty name='psk:MediaSizeHeight'><psf:Value xsi:type='xsd:integer'>" +
           std::to_wstring(height) +
           L"</psf:Value></psf:ScoredProperty></psf:Option></psf:Feature>";
}

// A ticket whose page device mode snapshot is `devmode`, followed by `body`.
inline std::wstring TicketWithSnapshot(const ByteBuffer& devmode, const std::wstring& body = L"") {
    return Ticket(PrivateParameterInit(L"PageDevmodeSnapshot", Base64(devmode)) + body,
                  PrivateDeclaration());
}

inline std::wstring PrivateTicket(const std::wstring& body) {
    return Ticket(body, PrivateDeclaration());
}

// The values an XPath query selects in serialised XML, joined by '|' (or `separator`).
inline std::string Joined(const documenttesting::RawXml& raw, const char* xpath,
                          const char* separator = "|") {
    std::string joined;
    for (const std::string& value : raw.Strings(xpath)) {
        joined += (joined.empty() ? "" : separator) + value;
    }
    return joined;
}

}  // namespace privatedatatesting
