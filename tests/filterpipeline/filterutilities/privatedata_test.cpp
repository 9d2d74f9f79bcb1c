// Tests of the driver's private data: finding the plug-in part of a device mode (both core
// layouts, every bound), its records, the CRC-framed JobZorunDriverData, the page device mode
// snapshot, the job ticket ParameterInit, the manager's string entry point and the attribute
// list built from a device mode.
#include <gtest/gtest.h>

#include <cstring>
#include <filesystem>

#include "filterpipeline/filterutilities/printticketattributebytesreaderwriter.h"
#include "filterpipeline/filterutilities/printticketmanager.h"
#include "filterpipeline/filterutilities/printticketxmldocument.h"
#include "privatedatatesting.h"
#include "support/utilities/crc32.h"
#include "support/utilities/globalcaches.h"

using namespace privatedatatesting;
using documenttesting::RawXml;
using documenttesting::ThrownHresult;
using documenttesting::XmlOf;

namespace {

constexpr std::size_t kPublic = OemDevmode::kPublicDevmodeSize;

AttributeBytesRawList SampleAttributes() {
    AttributeBytesRawList list;
    list.Add(AttributeBytesItem::MakeOptionValue(DataModelIds::FeatureNUpPagesPerSheet,
                                                 DataModelIds::ValueNUp4));
    list.Add(AttributeBytesItem::MakeInteger(DataModelIds::FeatureScalingPercentage, 140));
    list.Add(AttributeBytesItem::MakeBoolean(DataModelIds::FeatureBooklet, true));
    list.Add(AttributeBytesItem::MakeDimension(DataModelIds::FeaturePaperWidth, 210000.0,
                                               Dimension::Microns));
    list.Add(AttributeBytesItem::MakeString(DataModelIds::FeatureWatermark + 1000, L"private"));
    return list;
}

WORD Word(const ByteBuffer& bytes, std::size_t offset) {
    return OemDevmode::ReadWord(bytes.data() + offset);
}

void SetWord(ByteBuffer& bytes, std::size_t offset, WORD value) {
    OemDevmode::WriteWord(bytes.data() + offset, value);
}

DEVMODEW* AsDevmode(ByteBuffer& bytes) {
    return reinterpret_cast<DEVMODEW*>(bytes.data());
}

// The plug-in part's offset in the device mode, or -1 (bounds-checked lookup).
long PartOffset(ByteBuffer& bytes) {
    OEMDEV* part = PrintTicketAttributeBytesReaderWriter::GetOemDevmodeFromDevmode(AsDevmode(bytes),
                                                                                   bytes.size());
    if (part == nullptr) return -1;
    return static_cast<long>(reinterpret_cast<BYTE*>(part) - bytes.data());
}

OemDevmode::Record MakeRecord(WORD type, std::size_t length, BYTE fill) {
    OemDevmode::Record record;
    record.type = type;
    record.data.assign(length, fill);
    return record;
}

std::unique_ptr<PrintTicketXmlDocument> TicketDocument(const std::wstring& xml) {
    CComPtr<IXMLDOMDocument2> dom = LoadXml(xml);
    if (!dom) return nullptr;
    return std::make_unique<PrintTicketXmlDocument>(dom);
}

// A framed JobZorunDriverData payload (CRC of `devmode` + devmode) as base64.
std::wstring FramedPayload(const ByteBuffer& devmode) {
    ByteBuffer framed(4, 0);
    DWORD crc = static_cast<DWORD>(Crc32::GetCrc(const_cast<BYTE*>(devmode.data()),
                                                 static_cast<unsigned long>(devmode.size())));
    OemDevmode::WriteDword(framed.data(), crc);
    framed.appendLpbyte(devmode.data(), static_cast<unsigned long>(devmode.size()));
    return Base64(framed);
}

}  // namespace

// --- Finding the plug-in part ---

TEST(OemDevmodeLocation, BothCoreLayoutsAreFound) {
    ByteBuffer postScript =
        DevmodeWithAttributes(SampleAttributes(), OemDevmode::CoreLayout::PostScript, 160);
    EXPECT_EQ(Word(postScript, OemDevmode::kDmSizeOffset), kPublic);
    EXPECT_EQ(Word(postScript, OemDevmode::kDmDriverExtraOffset), 160 + OemDevmode::kSize);
    EXPECT_EQ(PartOffset(postScript), static_cast<long>(kPublic + 160));
    OemDevmode::Location where = OemDevmode::Find(postScript.data(), postScript.size());
    EXPECT_EQ(where.layout, OemDevmode::CoreLayout::PostScript);
    EXPECT_EQ(where.coreSize, 160);

    ByteBuffer raster =
        DevmodeWithAttributes(SampleAttributes(), OemDevmode::CoreLayout::Raster, 24);
    EXPECT_EQ(PartOffset(raster), static_cast<long>(kPublic + 24));
    EXPECT_EQ(OemDevmode::Find(raster.data(), raster.size()).layout,
              OemDevmode::CoreLayout::Raster);

    // The trusting form agrees when the whole device mode is present.
    EXPECT_EQ(
        reinterpret_cast<BYTE*>(
            PrintTicketAttributeBytesReaderWriter::GetOemDevmodeFromDevmode(AsDevmode(raster))),
        raster.data() + kPublic + 24);
}

TEST(OemDevmodeLocation, ThePostScriptLayoutIsPreferred) {
    // A PostScript part at 160 and, through the raster size word, a second part at 6116.
    ByteBuffer devmode = DevmodeWithRecords({}, OemDevmode::CoreLayout::PostScript, 160,
                                            static_cast<WORD>(OemDevmode::kSize));
    const std::size_t second = 160 + OemDevmode::kSize;
    std::memcpy(devmode.data() + kPublic + second, devmode.data() + kPublic + 160,
                OemDevmode::kSize);
    SetWord(devmode, kPublic + OemDevmode::kRasterSizeWordOffset, static_cast<WORD>(second));
    EXPECT_EQ(PartOffset(devmode), static_cast<long>(kPublic + 160));

    // With the PostScript candidate spoiled, the raster one is taken.
    devmode[kPublic + 160 + 4] ^= 0xFF;
    EXPECT_EQ(PartOffset(devmode), static_cast<long>(kPublic + second));
    EXPECT_EQ(OemDevmode::Find(devmode.data(), devmode.size()).layout,
              OemDevmode::CoreLayout::Raster);
}

TEST(OemDevmodeLocation, ThePrivateAreaMustHoldTheWholePart) {
    for (WORD core : {WORD{120}, WORD{300}}) {
        ByteBuffer devmode = DevmodeWithRecords({}, OemDevmode::CoreLayout::PostScript, core, 8);
        SetWord(devmode, OemDevmode::kDmDriverExtraOffset, static_cast<WORD>(core + 5956));
        EXPECT_EQ(PartOffset(devmode), static_cast<long>(kPublic + core)) << core;
        SetWord(devmode, OemDevmode::kDmDriverExtraOffset, static_cast<WORD>(core + 5955));
        EXPECT_EQ(PartOffset(devmode), -1) << core;
    }
}

TEST(OemDevmodeLocation, HostileDevmodesHaveNoPart) {
    const ByteBuffer good = DevmodeWithAttributes(SampleAttributes());
    ASSERT_NE(PartOffset(const_cast<ByteBuffer&>(good)), -1);

    // Fewer bytes than dmSize + dmDriverExtra, down to nothing at all.
    for (std::size_t size : {good.size() - 1, good.size() / 2, kPublic, std::size_t{71},
                             std::size_t{10}, std::size_t{0}}) {
        ByteBuffer cut(good.begin(), good.begin() + static_cast<std::ptrdiff_t>(size));
        EXPECT_EQ(OemDevmode::Find(cut.empty() ? nullptr : cut.data(), size).part, nullptr) << size;
    }

    ByteBuffer devmode = good;
    SetWord(devmode, OemDevmode::kDmSizeOffset, 0xFFFF);  // private area outside the bytes
    EXPECT_EQ(PartOffset(devmode), -1);

    devmode = good;
    SetWord(devmode, kPublic + OemDevmode::kPostScriptSizeWordOffset, 0);  // S = 0
    EXPECT_EQ(PartOffset(devmode), -1);

    devmode = good;  // S pointing near the end of the private area
    SetWord(devmode, kPublic + OemDevmode::kPostScriptSizeWordOffset,
            static_cast<WORD>(Word(devmode, OemDevmode::kDmDriverExtraOffset) - 100));
    EXPECT_EQ(PartOffset(devmode), -1);

    devmode = good;  // S far beyond it
    SetWord(devmode, kPublic + OemDevmode::kPostScriptSizeWordOffset, 0xFFF0);
    EXPECT_EQ(PartOffset(devmode), -1);

    devmode = good;  // wrong signature
    OemDevmode::WriteDword(devmode.data() + kPublic + 160 + 4, 0x514D5632);
    EXPECT_EQ(PartOffset(devmode), -1);

    devmode = good;  // wrong part size
    OemDevmode::WriteDword(devmode.data() + kPublic + 160, 5955);
    EXPECT_EQ(PartOffset(devmode), -1);

    devmode = good;  // a private area too small to hold the PostScript size word
    SetWord(devmode, OemDevmode::kDmDriverExtraOffset, 116);
    EXPECT_EQ(PartOffset(devmode), -1);
}

TEST(OemDevmodeLocation, ANullDevmodeThrowsTheNullPointerException) {
    EXPECT_THROW(PrintTicketAttributeBytesReaderWriter::GetOemDevmodeFromDevmode(nullptr),
                 ExceptionInvalidArgumentNullPointer);
    EXPECT_THROW(PrintTicketAttributeBytesReaderWriter::GetOemDevmodeFromDevmode(nullptr, 100),
                 ExceptionInvalidArgumentNullPointer);
}

// --- Records of the plug-in part ---

TEST(OemDevmodeRecords, TheFirstAttributeRecordIsTakenAfterOthers) {
    ByteBuffer devmode = DevmodeWithRecords(
        {MakeRecord(7, 10, 0xEE), MakeRecord(1, 300, 0x42), MakeRecord(1, 20, 0x43)});
    const BYTE* part = OemDevmode::Find(devmode.data(), devmode.size()).part;
    ASSERT_NE(part, nullptr);
    OemDevmode::Header header = OemDevmode::ReadHeader(part);
    EXPECT_EQ(header.recordCount, 3);
    EXPECT_EQ(header.storedCrc, OemDevmode::ComputeCrc(part));
    EXPECT_TRUE(OemDevmode::IsCurrentVersion(part));
    ByteBuffer taken;
    ASSERT_TRUE(OemDevmode::TakeAttributeRecord(part, taken));
    EXPECT_EQ(taken, ByteBuffer(300, 0x42));
}

TEST(OemDevmodeRecords, OversizedOrOverlongAttributeRecordsEndTheWalk) {
    ByteBuffer taken;
    ByteBuffer limit = DevmodeWithRecords({MakeRecord(1, 5400, 0x11)});
    EXPECT_TRUE(
        OemDevmode::TakeAttributeRecord(OemDevmode::Find(limit.data(), limit.size()).part, taken));
    EXPECT_EQ(taken.size(), 5400u);

    // 5401 bytes are refused, and the later record is not looked at.
    ByteBuffer over = DevmodeWithRecords({MakeRecord(1, 5401, 0x11), MakeRecord(1, 4, 0x22)});
    EXPECT_FALSE(
        OemDevmode::TakeAttributeRecord(OemDevmode::Find(over.data(), over.size()).part, taken));
    EXPECT_TRUE(taken.empty());

    // A length word pointing past the end of the part.
    ByteBuffer devmode = DevmodeWithRecords({MakeRecord(1, 16, 0x33)});
    BYTE* part = devmode.data() + kPublic + 160;
    OemDevmode::WriteWord(part + OemDevmode::kRecordsOffset + 2, 6000);
    EXPECT_FALSE(OemDevmode::TakeAttributeRecord(part, taken));

    // Another record whose length leaves no room for the next header: the walk stops there.
    devmode = DevmodeWithRecords({MakeRecord(7, 16, 0x33), MakeRecord(1, 4, 0x44)});
    part = devmode.data() + kPublic + 160;
    OemDevmode::WriteWord(part + OemDevmode::kRecordsOffset + 2, 5890);
    EXPECT_FALSE(OemDevmode::TakeAttributeRecord(part, taken));

    // A count larger than the records written walks zero records to the end, safely.
    devmode = DevmodeWithRecords({MakeRecord(7, 16, 0x33)});
    part = devmode.data() + kPublic + 160;
    OemDevmode::WriteWord(part + OemDevmode::kRecordCountOffset, 0xFFFF);
    EXPECT_FALSE(OemDevmode::TakeAttributeRecord(part, taken));
}

TEST(OemDevmodeRecords, RecordsThatDoNotFitAreRefusedByTheBuilder) {
    BYTE part[OemDevmode::kSize];
    EXPECT_TRUE(OemDevmode::BuildPart({MakeRecord(1, OemDevmode::kSize - 62 - 4, 0)}, part));
    EXPECT_FALSE(OemDevmode::BuildPart({MakeRecord(1, OemDevmode::kSize - 62 - 3, 0)}, part));
    ByteBuffer devmode;
    EXPECT_FALSE(OemDevmode::BuildDevmode(PublicDevmode(), OemDevmode::CoreLayout::PostScript, 115,
                                          part, 0, devmode));
    EXPECT_FALSE(OemDevmode::BuildDevmode(PublicDevmode(), OemDevmode::CoreLayout::Raster, 9, part,
                                          0, devmode));
}

// --- JobZorunDriverData ---

TEST(JobZorunDriverData, RoundTripsByteForByte) {
    auto ticket = TicketDocument(PrivateTicket(Feature(L"PageOrientation", L"Portrait")));
    ASSERT_TRUE(ticket);
    ByteBuffer devmode = DevmodeWithAttributes(SampleAttributes());
    ASSERT_EQ(ticket->SetJobZorunDriverDataInPrintTicket(AsDevmode(devmode),
                                                         static_cast<DWORD>(devmode.size())),
              S_OK);
    ByteBuffer back(3, 0x77);
    ticket->GetJobZorunDriverDataFromPrintTicket(back);
    EXPECT_EQ(back, devmode);

    // One string ParameterInit, the root's last child, the CRC in front of the device mode.
    RawXml xml(XmlOf(*ticket));
    EXPECT_EQ(xml.Count("/psf:PrintTicket/psf:ParameterInit[@name='zk:JobZorunDriverData']"), 1u);
    EXPECT_EQ(xml.Count("/psf:PrintTicket/*[last()][@name='zk:JobZorunDriverData']"), 1u);
    EXPECT_EQ(xml.Strings("//psf:ParameterInit/psf:Value/@xsi:type"),
              std::vector<std::string>{"xsd:string"});
    EXPECT_EQ(xml.Strings("//psf:ParameterInit/psf:Value")[0],
              platform::WideToUtf8(FramedPayload(devmode)));

    // Setting it again replaces the ParameterInit.
    devmode[kPublic + 3] = 0x99;
    ASSERT_EQ(ticket->SetJobZorunDriverDataInPrintTicket(AsDevmode(devmode),
                                                         static_cast<DWORD>(devmode.size())),
              S_OK);
    EXPECT_EQ(RawXml(XmlOf(*ticket)).Count("//psf:ParameterInit"), 1u);
    ticket->GetJobZorunDriverDataFromPrintTicket(back);
    EXPECT_EQ(back, devmode);
}

// Page after page the same device mode text is read from ticket after ticket; each read gives
// its own ticket's bytes whatever was read before it (the same text again, a text one character
// apart, a text that is not base64, the same text in another ticket).
TEST(JobZorunDriverData, EachTicketGivesItsOwnBytesWhateverWasReadBefore) {
    const ByteBuffer first = DevmodeWithAttributes(SampleAttributes());
    ByteBuffer second = first;
    second[kPublic + 3] ^= 0x5A;
    struct Row {
        const char* name;
        std::wstring payload;
        const ByteBuffer* expected;  // null: not base64, E_FAIL
    };
    const Row rows[] = {
        {"first", FramedPayload(first), &first},
        {"first again", FramedPayload(first), &first},
        {"second", FramedPayload(second), &second},
        {"not base64 (cut to a length no base64 text has)",
         FramedPayload(first).substr(0, FramedPayload(first).size() - 3), nullptr},
        {"first after a failure", FramedPayload(first), &first},
        {"second after first", FramedPayload(second), &second},
        {"second again", FramedPayload(second), &second},
    };
    for (const Row& row : rows) {
        SCOPED_TRACE(row.name);
        auto ticket = TicketDocument(
            PrivateTicket(Feature(L"PageOrientation", L"Portrait") +
                          PrivateParameterInit(L"JobZorunDriverData", row.payload)));
        ASSERT_TRUE(ticket);
        ByteBuffer back(7, 0x33);
        if (row.expected == nullptr) {
            EXPECT_EQ(ThrownHresult([&] { ticket->GetJobZorunDriverDataFromPrintTicket(back); }),
                      E_FAIL);
            EXPECT_TRUE(back.empty());
        } else {
            ticket->GetJobZorunDriverDataFromPrintTicket(back);
            EXPECT_EQ(back, *row.expected);
        }
    }
}

TEST(JobZorunDriverData, ACrcMismatchEmptiesTheBufferAndThrows) {
    ByteBuffer devmode = DevmodeWithAttributes(SampleAttributes());
    std::wstring payload = FramedPayload(devmode);
    payload[20] = payload[20] == L'A' ? L'B' : L'A';  // one byte of the device mode changes
    auto ticket =
        TicketDocument(PrivateTicket(PrivateParameterInit(L"JobZorunDriverData", payload)));
    ASSERT_TRUE(ticket);
    ByteBuffer back(10, 1);
    EXPECT_EQ(ThrownHresult([&] { ticket->GetJobZorunDriverDataFromPrintTicket(back); }), E_FAIL);
    EXPECT_TRUE(back.empty());
}

TEST(JobZorunDriverData, ATruncatedPrivateAreaIsRepaired) {
    ByteBuffer devmode = DevmodeWithAttributes(SampleAttributes());
    ByteBuffer truncated(devmode.begin(), devmode.end() - 100);
    auto ticket = TicketDocument(
        PrivateTicket(PrivateParameterInit(L"JobZorunDriverData", FramedPayload(truncated))));
    ASSERT_TRUE(ticket);
    ByteBuffer back;
    ticket->GetJobZorunDriverDataFromPrintTicket(back);
    ASSERT_EQ(back.size(), devmode.size());
    EXPECT_TRUE(std::equal(truncated.begin(), truncated.end(), back.begin()));
    EXPECT_EQ(ByteBuffer(back.end() - 100, back.end()), ByteBuffer(100, 0));
}

TEST(JobZorunDriverData, ShortAndDamagedPayloads) {
    // Four bytes or fewer: left as decoded, no CRC check.
    auto shortTicket =
        TicketDocument(PrivateTicket(PrivateParameterInit(L"JobZorunDriverData", L"AQID")));
    ByteBuffer back;
    shortTicket->GetJobZorunDriverDataFromPrintTicket(back);
    EXPECT_EQ(back, (ByteBuffer{1, 2, 3}));

    // A device mode too short to hold its own sizes is not repaired.
    ByteBuffer small(100, 0);
    SetWord(small, OemDevmode::kDmSizeOffset, 220);
    SetWord(small, OemDevmode::kDmDriverExtraOffset, 1000);
    auto smallTicket = TicketDocument(
        PrivateTicket(PrivateParameterInit(L"JobZorunDriverData", FramedPayload(small))));
    smallTicket->GetJobZorunDriverDataFromPrintTicket(back);
    EXPECT_EQ(back, small);

    // A truncated base64 text.
    auto cut =
        TicketDocument(PrivateTicket(PrivateParameterInit(L"JobZorunDriverData", L"QUJDRA")));
    EXPECT_EQ(ThrownHresult([&] { cut->GetJobZorunDriverDataFromPrintTicket(back); }),
              std::nullopt);
    auto broken =
        TicketDocument(PrivateTicket(PrivateParameterInit(L"JobZorunDriverData", L"QUJDR")));
    back.assign(5, 5);
    EXPECT_EQ(ThrownHresult([&] { broken->GetJobZorunDriverDataFromPrintTicket(back); }), E_FAIL);
    EXPECT_TRUE(back.empty());

    // Absent: empty, nothing thrown.
    auto none = TicketDocument(PrivateTicket(L""));
    back.assign(5, 5);
    none->GetJobZorunDriverDataFromPrintTicket(back);
    EXPECT_TRUE(back.empty());
}

TEST(JobZorunDriverData, ErrorsAreReturnedNotThrown) {
    auto ticket = TicketDocument(PrivateTicket(L""));
    EXPECT_EQ(ticket->SetJobZorunDriverDataInPrintTicket(nullptr, 10), E_POINTER);
    // An empty device mode still gets its (zero) CRC frame.
    EXPECT_EQ(ticket->SetJobZorunDriverDataInPrintTicket(nullptr, 0), S_OK);
    ByteBuffer back;
    ticket->GetJobZorunDriverDataFromPrintTicket(back);
    EXPECT_EQ(back, ByteBuffer(4, 0));
}

TEST(JobZorunDriverData, AnUndeclaredPrivateNamespaceIsDeclaredWhenWritten) {
    auto ticket = TicketDocument(Ticket(L""));
    ByteBuffer devmode = DevmodeWithAttributes(SampleAttributes());
    ASSERT_EQ(ticket->SetJobZorunDriverDataInPrintTicket(AsDevmode(devmode),
                                                         static_cast<DWORD>(devmode.size())),
              S_OK);
    const std::string xml = XmlOf(*ticket);
    EXPECT_NE(xml.find("name=\"zk:JobZorunDriverData\""), std::string::npos) << xml;
    EXPECT_NE(
        xml.find("xmlns:zk=\"" + platform::WideToUtf8(PrintSchema::PrivateKeywordsNamespaceUri)),
        std::string::npos)
        << xml;
    ByteBuffer back;
    ticket->GetJobZorunDriverDataFromPrintTicket(back);
    EXPECT_EQ(back, devmode);
}

// --- The device mode the filters use ---

TEST(DevmodeFromTicket, OnlyThePageSnapshotCounts) {
    ByteBuffer devmode = DevmodeWithAttributes(SampleAttributes());
    auto jobOnly = TicketDocument(
        PrivateTicket(PrivateParameterInit(L"JobZorunDriverData", FramedPayload(devmode))));
    ByteBuffer back(4, 4);
    EXPECT_EQ(jobOnly->GetDevmodeFromPrintTicket(back), S_FALSE);
    EXPECT_TRUE(back.empty());

    auto snapshot = TicketDocument(TicketWithSnapshot(devmode));
    EXPECT_EQ(snapshot->GetDevmodeFromPrintTicket(back), S_OK);
    EXPECT_EQ(back, devmode);
}

TEST(DevmodeFromTicket, APartOfAnotherVersionOrLayoutIsRefused) {
    for (std::size_t field : {std::size_t{8}, std::size_t{12}}) {
        ByteBuffer devmode = DevmodeWithAttributes(SampleAttributes());
        OemDevmode::WriteDword(devmode.data() + kPublic + 160 + field, 2);
        auto ticket = TicketDocument(TicketWithSnapshot(devmode));
        ByteBuffer back;
        EXPECT_EQ(ticket->GetDevmodeFromPrintTicket(back), E_FAIL) << field;
        EXPECT_TRUE(back.empty());
    }
    auto damaged =
        TicketDocument(PrivateTicket(PrivateParameterInit(L"PageDevmodeSnapshot", L"#!")));
    ByteBuffer back(2, 2);
    EXPECT_EQ(damaged->GetDevmodeFromPrintTicket(back), E_FAIL);
    EXPECT_TRUE(back.empty());
}

TEST(DevmodeFromTicket, ARealWriterSnapshotIsReadButHasNoDriverPart) {
    const std::filesystem::path file =
        std::filesystem::path(FU_CORPUS_DIR) / "tickets" /
        "winprintrs_test_document.xps__Documents_1_Metadata_Page1_PT.xml";
    CComPtr<IXMLDOMDocument2> dom = documenttesting::TryLoadBytes(documenttesting::ReadFile(file));
    ASSERT_TRUE(dom);
    PrintTicketXmlDocument ticket(dom);
    ByteBuffer snapshot;
    ticket.GetPageDevmodeSnapshotFromPrintTicket(snapshot);
    ASSERT_GE(snapshot.size(), kPublic);
    const DEVMODEW* devmode = reinterpret_cast<const DEVMODEW*>(snapshot.data());
    EXPECT_EQ(std::u16string(devmode->dmDeviceName), u"Microsoft XPS Document Writer");
    EXPECT_EQ(devmode->dmSize, kPublic);
    EXPECT_EQ(snapshot.size(), static_cast<std::size_t>(devmode->dmSize + devmode->dmDriverExtra));
    EXPECT_EQ(OemDevmode::Find(snapshot.data(), snapshot.size()).part, nullptr);

    ByteBuffer used;
    EXPECT_EQ(ticket.GetDevmodeFromPrintTicket(used), E_FAIL);
    EXPECT_TRUE(used.empty());
}

TEST(DevmodeFromTicket, TheStringEntryPoint) {
    ByteBuffer devmode = DevmodeWithAttributes(SampleAttributes());
    ByteBuffer back(3, 3);
    EXPECT_EQ(PrintTicketManager::GetDevmodeFromPrintTicketString(nullptr, back), E_POINTER);
    EXPECT_TRUE(back.empty());

    std::wstring notXml = L"<psf:PrintTicket";
    back.assign(3, 3);
    EXPECT_EQ(PrintTicketManager::GetDevmodeFromPrintTicketString(notXml.data(), back), E_FAIL);
    EXPECT_TRUE(back.empty());

    std::wstring ticket = TicketWithSnapshot(devmode);
    EXPECT_EQ(PrintTicketManager::GetDevmodeFromPrintTicketString(ticket.data(), back), S_OK);
    EXPECT_EQ(back, devmode);

    std::wstring jobOnly = PrivateTicket(PrivateParameterInit(L"JobZorunDriverData", L"AAAA"));
    EXPECT_EQ(PrintTicketManager::GetDevmodeFromPrintTicketString(jobOnly.data(), back), S_FALSE);
    EXPECT_TRUE(back.empty());

    // Not a PrintTicket: the document's rejection (S_FALSE), no device mode.
    std::wstring capabilities = documenttesting::Capabilities(L"");
    back.assign(3, 3);
    EXPECT_EQ(PrintTicketManager::GetDevmodeFromPrintTicketString(capabilities.data(), back),
              S_FALSE);
    EXPECT_TRUE(back.empty());
}

// --- The maker's job ticket ---

TEST(ZjifJobTicket, IsInsertedFirstAsEscapedText) {
    auto ticket = TicketDocument(PrivateTicket(Feature(L"PageOrientation", L"Portrait")));
    const char text[] = "JOB=1\n<name>\xC3\xA9</name>";
    ByteBuffer zjif(reinterpret_cast<const BYTE*>(text),
                    reinterpret_cast<const BYTE*>(text) + sizeof text - 1);
    ticket->CreateZorunZjifParameterInit(zjif);
    std::string xml = XmlOf(*ticket);
    RawXml raw(xml);
    EXPECT_EQ(raw.Count("/psf:PrintTicket/*[1][@name='zk:JobZorunZjifJobTicket']"), 1u);
    EXPECT_EQ(raw.Strings("//psf:ParameterInit/psf:Value"),
              std::vector<std::string>{"<![CDATA[\nJOB=1\n<name>\xC3\xA9</name>\n]]>"});
    EXPECT_EQ(xml.find("<![CDATA["), std::string::npos);  // text, not a CDATA section
    EXPECT_NE(xml.find("&lt;![CDATA["), std::string::npos);

    // A second one goes in front again; the first stays.
    ticket->CreateZorunZjifParameterInit(zjif);
    EXPECT_EQ(RawXml(XmlOf(*ticket)).Count("//psf:ParameterInit"), 2u);
}

// --- The attribute list of a device mode ---

TEST(AttributeList, AttributesRoundTripThroughThePluginPart) {
    AttributeBytesRawList attributes = SampleAttributes();
    ByteBuffer devmode = DevmodeWithAttributes(attributes);
    PrintTicketAttributeBytesReaderWriter reader;
    reader.SetDevmode(devmode);
    const AttributeBytesIndexedList& list = reader.GetAttributeBytesIndexedListRef();
    EXPECT_EQ(list.GetRawList(), attributes);
    EXPECT_EQ(reader.GetOptionValueFromAttributeBytes(DataModelIds::FeatureNUpPagesPerSheet,
                                                      DataModelIds::ValueNUp1),
              DataModelIds::ValueNUp4);
    EXPECT_EQ(reader.GetIntegerValueFromAttributeBytes(DataModelIds::FeatureScalingPercentage, 0),
              140);
    EXPECT_GT(GlobalCaches::GetXDevmodeAttributeBytesIndexedListCacheSize(), 0u);
}

TEST(AttributeList, TheSameNamespaceBuildsOnceAndAlternatingOnesRebuild) {
    AttributeBytesRawList printerProps;
    printerProps.Add(AttributeBytesItem::MakeInteger(4000, 7));
    PersistentAttributesWriter writer;
    writer.SetAttributeBytesListForNameSpace(PersistentAttributes::GetDataModelDocPropNameSpaceId(),
                                             SampleAttributes());
    writer.SetAttributeBytesListForNameSpace(
        PersistentAttributes::GetDataModelPrinterPropNameSpaceId(), printerProps);
    OemDevmode::Record record;
    record.type = OemDevmode::kAttributesRecordType;
    ASSERT_EQ(writer.Serialise(record.data), S_OK);
    ByteBuffer devmode = DevmodeWithRecords({record});

    PrintTicketAttributeBytesReaderWriter reader;
    reader.SetDevmode(devmode);
    const AttributeBytesNameSpacesId doc = PersistentAttributes::GetDataModelDocPropNameSpaceId();
    const AttributeBytesNameSpacesId printer =
        PersistentAttributes::GetDataModelPrinterPropNameSpaceId();
    const AttributeBytesIndexedList* first = &reader.GetAttributeBytesIndexedListRef(doc);
    EXPECT_EQ(&reader.GetAttributeBytesIndexedListRef(doc), first);
    EXPECT_EQ(reader.GetListRebuildCount(), 1u);

    EXPECT_EQ(reader.GetAttributeBytesIndexedListRef(printer).GetRawList(), printerProps);
    EXPECT_EQ(reader.GetAttributeBytesIndexedListRef(doc).GetCount(),
              SampleAttributes().GetCount());
    EXPECT_EQ(reader.GetAttributeBytesIndexedListRef(printer).GetCount(), 1u);
    EXPECT_EQ(reader.GetListRebuildCount(), 4u);

    // SetDevmode and ClearCachedIndexedList drop the cached list.
    reader.SetDevmode(devmode);
    reader.GetAttributeBytesIndexedListRef(printer);
    reader.ClearCachedIndexedList();
    reader.GetAttributeBytesIndexedListRef(printer);
    EXPECT_EQ(reader.GetListRebuildCount(), 6u);
}

TEST(AttributeList, DamagedPartsGiveAnEmptyListThatIsBuiltAgain) {
    ByteBuffer devmode = DevmodeWithAttributes(SampleAttributes());
    devmode[kPublic + 160 + 70] ^= 0x01;  // inside the CRC-covered records
    PrintTicketAttributeBytesReaderWriter reader;
    reader.SetDevmode(devmode);
    EXPECT_TRUE(reader.GetAttributeBytesIndexedListRef().IsEmpty());
    EXPECT_TRUE(reader.GetAttributeBytesIndexedListRef().IsEmpty());
    EXPECT_EQ(reader.GetListRebuildCount(), 2u);

    ByteBuffer noAttributes = DevmodeWithRecords({MakeRecord(9, 30, 1)});
    reader.SetDevmode(noAttributes);
    EXPECT_TRUE(reader.GetAttributeBytesIndexedListRef().IsEmpty());

    ByteBuffer garbage = DevmodeWithRecords({MakeRecord(1, 200, 0xA5)});
    reader.SetDevmode(garbage);
    EXPECT_TRUE(reader.GetAttributeBytesIndexedListRef().IsEmpty());

    ByteBuffer cut(devmode.begin(), devmode.begin() + 3000);
    reader.SetDevmode(cut);
    EXPECT_TRUE(reader.GetAttributeBytesIndexedListRef().IsEmpty());
    EXPECT_EQ(reader.GetOptionValueFromAttributeBytes(DataModelIds::FeatureNUpPagesPerSheet,
                                                      DataModelIds::ValueNUp1),
              DataModelIds::ValueNUp1);
}

TEST(AttributeList, TheTicketSuppliesTheDevmodeWhenNoneIsSet) {
    ByteBuffer devmode = DevmodeWithAttributes(SampleAttributes());
    auto ticket = TicketDocument(TicketWithSnapshot(devmode));
    PrintTicketAttributeBytesReaderWriter reader(ticket.get());
    EXPECT_EQ(reader.GetAttributeBytesIndexedListRef().GetRawList(), SampleAttributes());
    EXPECT_EQ(reader.GetDevmode(), devmode);
    ASSERT_NE(reader.GetPublicDevmodePtr(), nullptr);
    EXPECT_EQ(reader.GetPublicDevmodePtr()->dmPaperSize, 9);

    PrintTicketAttributeBytesReaderWriter empty;
    EXPECT_EQ(empty.GetPublicDevmodePtr(), nullptr);
    EXPECT_TRUE(empty.GetAttributeBytesIndexedListRef().IsEmpty());
}

TEST(AttributeList, AssignmentTakesOverTheCachedList) {
    ByteBuffer devmode = DevmodeWithAttributes(SampleAttributes());
    PrintTicketAttributeBytesReaderWriter source;
    source.SetDevmode(devmode);
    const AttributeBytesIndexedList* built = &source.GetAttributeBytesIndexedListRef();

    PrintTicketAttributeBytesReaderWriter target;
    target = source;
    EXPECT_EQ(&target.GetAttributeBytesIndexedListRef(), built);
    EXPECT_EQ(target.GetListRebuildCount(), 0u);
    EXPECT_EQ(target.GetDevmode(), devmode);
    // The source lost its list and builds a new one from its own copy of the bytes.
    EXPECT_EQ(source.GetAttributeBytesIndexedListRef().GetRawList(), SampleAttributes());
    EXPECT_EQ(source.GetListRebuildCount(), 2u);
}
