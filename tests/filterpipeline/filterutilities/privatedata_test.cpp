// Tests of the driver's private data: finding the plug-in part of a device mode (both core
// layouts, every bound), its records, the CRC-framed JobZorunDriverData, the page device mode
// snapshot, the job ticket ParameterInit, the manager's string entry point and the attribute
// list built from a device mode.
#include <gtest/gtest.h>

#include <cstring>
#include <filesystem>
#include <functional>

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
using ReaderWriter = PrintTicketAttributeBytesReaderWriter;

namespace {

constexpr std::size_t kPublic = OemDevmode::kPublicDevmodeSize;
constexpr std::size_t kPart = kPublic + 160;  // the part's offset behind a 160-byte core
constexpr std::size_t kDmSize = OemDevmode::kDmSizeOffset;
constexpr std::size_t kDmDriverExtra = OemDevmode::kDmDriverExtraOffset;
constexpr std::size_t kRecords = OemDevmode::kRecordsOffset;
using OemDevmode::WriteDword;

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
    OEMDEV* part = ReaderWriter::GetOemDevmodeFromDevmode(AsDevmode(bytes), bytes.size());
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

std::wstring JobData(const std::wstring& payload) {
    return PrivateTicket(PrivateParameterInit(L"JobZorunDriverData", payload));
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
    ByteBuffer postScript = DevmodeWithAttributes(SampleAttributes());
    EXPECT_EQ(Word(postScript, kDmSize), kPublic);
    EXPECT_EQ(Word(postScript, kDmDriverExtra), 160 + OemDevmode::kSize);
    EXPECT_EQ(PartOffset(postScript), static_cast<long>(kPart));
    OemDevmode::Location where = OemDevmode::Find(postScript.data(), postScript.size());
    EXPECT_EQ(where.layout, OemDevmode::CoreLayout::PostScript);
    EXPECT_EQ(where.coreSize, 160);

    ByteBuffer raster =
        DevmodeWithAttributes(SampleAttributes(), OemDevmode::CoreLayout::Raster, 24);
    EXPECT_EQ(PartOffset(raster), static_cast<long>(kPublic + 24));
    EXPECT_EQ(OemDevmode::Find(raster.data(), raster.size()).layout,
              OemDevmode::CoreLayout::Raster);
    // The trusting form agrees when the whole device mode is present.
    EXPECT_EQ(reinterpret_cast<BYTE*>(ReaderWriter::GetOemDevmodeFromDevmode(AsDevmode(raster))),
              raster.data() + kPublic + 24);
    EXPECT_THROW(ReaderWriter::GetOemDevmodeFromDevmode(nullptr),
                 ExceptionInvalidArgumentNullPointer);
    EXPECT_THROW(ReaderWriter::GetOemDevmodeFromDevmode(nullptr, 100),
                 ExceptionInvalidArgumentNullPointer);
}

TEST(OemDevmodeLocation, ThePostScriptLayoutIsPreferred) {
    // A PostScript part at 160 and, through the raster size word, a second part at 6116.
    ByteBuffer devmode = DevmodeWithRecords({}, OemDevmode::CoreLayout::PostScript, 160,
                                            static_cast<WORD>(OemDevmode::kSize));
    const std::size_t second = 160 + OemDevmode::kSize;
    std::memcpy(devmode.data() + kPublic + second, devmode.data() + kPart, OemDevmode::kSize);
    SetWord(devmode, kPublic + OemDevmode::kRasterSizeWordOffset, static_cast<WORD>(second));
    EXPECT_EQ(PartOffset(devmode), static_cast<long>(kPart));

    // With the PostScript candidate spoiled, the raster one is taken.
    devmode[kPart + 4] ^= 0xFF;
    EXPECT_EQ(PartOffset(devmode), static_cast<long>(kPublic + second));
    EXPECT_EQ(OemDevmode::Find(devmode.data(), devmode.size()).layout,
              OemDevmode::CoreLayout::Raster);
}

TEST(OemDevmodeLocation, ThePrivateAreaMustHoldTheWholePart) {
    for (WORD core : {WORD{120}, WORD{300}}) {
        ByteBuffer devmode = DevmodeWithRecords({}, OemDevmode::CoreLayout::PostScript, core, 8);
        SetWord(devmode, kDmDriverExtra, static_cast<WORD>(core + 5956));
        EXPECT_EQ(PartOffset(devmode), static_cast<long>(kPublic + core)) << core;
        SetWord(devmode, kDmDriverExtra, static_cast<WORD>(core + 5955));
        EXPECT_EQ(PartOffset(devmode), -1) << core;
    }
}

TEST(OemDevmodeLocation, HostileDevmodesHaveNoPart) {
    const ByteBuffer good = DevmodeWithAttributes(SampleAttributes());
    // Fewer bytes than dmSize + dmDriverExtra, down to nothing at all.
    for (std::size_t size : {good.size() - 1, good.size() / 2, kPublic, std::size_t{71},
                             std::size_t{10}, std::size_t{0}}) {
        ByteBuffer cut(good.begin(), good.begin() + static_cast<std::ptrdiff_t>(size));
        EXPECT_EQ(OemDevmode::Find(cut.empty() ? nullptr : cut.data(), size).part, nullptr) << size;
    }
    const std::size_t sizeWord = kPublic + OemDevmode::kPostScriptSizeWordOffset;
    const WORD extra = Word(good, kDmDriverExtra);
    const std::pair<const char*, std::function<void(ByteBuffer&)>> rows[] = {
        // clang-format off
        {"untouched", [](ByteBuffer&) {}},
        {"private area outside the bytes", [](ByteBuffer& d) { SetWord(d, kDmSize, 0xFFFF); }},
        {"core size 0", [&](ByteBuffer& d) { SetWord(d, sizeWord, 0); }},
        {"core size near its end", [&](ByteBuffer& d) { SetWord(d, sizeWord, extra - 100); }},
        {"core size far beyond it", [&](ByteBuffer& d) { SetWord(d, sizeWord, 0xFFF0); }},
        {"wrong signature", [](ByteBuffer& d) { WriteDword(d.data() + kPart + 4, 0x514D5632); }},
        {"wrong part size", [](ByteBuffer& d) { WriteDword(d.data() + kPart, 5955); }},
        {"no room for the size word", [](ByteBuffer& d) { SetWord(d, kDmDriverExtra, 116); }},
        // clang-format on
    };
    for (const auto& [name, spoil] : rows) {
        ByteBuffer devmode = good;
        spoil(devmode);
        EXPECT_EQ(PartOffset(devmode), name == rows[0].first ? static_cast<long>(kPart) : -1)
            << name;
    }
}

// --- Records of the plug-in part ---

// The first attribute record is taken after records of other types; one of more than 5400
// bytes, a length word past the end of the part, a record leaving no room for the next header
// and a count larger than the records written end the walk without one.
TEST(OemDevmodeRecords, TheFirstAttributeRecordWithinBoundsIsTaken) {
    const struct {
        const char* name;
        std::vector<OemDevmode::Record> records;
        std::size_t patchOffset;  // 0: no patch
        WORD patch;
        ByteBuffer taken;  // empty: none taken
    } rows[] = {
        // clang-format off
        {"after others",
         {MakeRecord(7, 10, 0xEE), MakeRecord(1, 300, 0x42), MakeRecord(1, 20, 0x43)},
         0, 0, ByteBuffer(300, 0x42)},
        {"largest", {MakeRecord(1, 5400, 0x11)}, 0, 0, ByteBuffer(5400, 0x11)},
        {"too large", {MakeRecord(1, 5401, 0x11), MakeRecord(1, 4, 0x22)}, 0, 0, {}},
        {"length past the part", {MakeRecord(1, 16, 0x33)}, kRecords + 2, 6000, {}},
        {"no room for the next header", {MakeRecord(7, 16, 0x33), MakeRecord(1, 4, 0x44)},
         kRecords + 2, 5890, {}},
        {"count too large", {MakeRecord(7, 16, 0x33)}, OemDevmode::kRecordCountOffset, 0xFFFF, {}},
        // clang-format on
    };
    for (const auto& row : rows) {
        SCOPED_TRACE(row.name);
        ByteBuffer devmode = DevmodeWithRecords(row.records);
        BYTE* part = devmode.data() + kPart;
        ASSERT_EQ(OemDevmode::Find(devmode.data(), devmode.size()).part, part);
        if (row.patchOffset != 0) OemDevmode::WriteWord(part + row.patchOffset, row.patch);
        ByteBuffer taken(2, 0x99);
        EXPECT_EQ(OemDevmode::TakeAttributeRecord(part, taken), !row.taken.empty());
        EXPECT_EQ(taken, row.taken);
    }
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
    ByteBuffer devmode = DevmodeWithAttributes(SampleAttributes());
    auto set = [&](ByteBuffer& bytes) {
        return ticket->SetJobZorunDriverDataInPrintTicket(AsDevmode(bytes),
                                                          static_cast<DWORD>(bytes.size()));
    };
    ByteBuffer back;
    for (int pass = 0; pass < 2; ++pass) {
        // Setting it again replaces the ParameterInit.
        devmode[kPublic + 3] = static_cast<BYTE>(0x99 + pass);
        ASSERT_EQ(set(devmode), S_OK);
        back.assign(3, 0x77);
        ticket->GetJobZorunDriverDataFromPrintTicket(back);
        EXPECT_EQ(back, devmode);
        // One string ParameterInit, the root's last child, the CRC in front of the device mode.
        RawXml xml(XmlOf(*ticket));
        EXPECT_EQ(Joined(xml, "/psf:PrintTicket/*[last()]/@name | //psf:Value/@xsi:type"),
                  "zk:JobZorunDriverData|xsd:string");
        EXPECT_EQ(Joined(xml, "//psf:ParameterInit/psf:Value"),
                  platform::WideToUtf8(FramedPayload(devmode)));
    }
    // An undeclared private namespace is declared when it is written.
    ticket = TicketDocument(documenttesting::Ticket(L""));
    ASSERT_EQ(set(devmode), S_OK);
    const std::string xml = XmlOf(*ticket);
    EXPECT_NE(
        xml.find("xmlns:zk=\"" + platform::WideToUtf8(PrintSchema::PrivateKeywordsNamespaceUri)),
        std::string::npos)
        << xml;
    EXPECT_EQ(Joined(RawXml(xml), "//psf:ParameterInit/@name"), "zk:JobZorunDriverData");
    ticket->GetJobZorunDriverDataFromPrintTicket(back);
    EXPECT_EQ(back, devmode);
    // A null device mode is refused; an empty one still gets its (zero) CRC frame.
    EXPECT_EQ(ticket->SetJobZorunDriverDataInPrintTicket(nullptr, 10), E_POINTER);
    EXPECT_EQ(ticket->SetJobZorunDriverDataInPrintTicket(nullptr, 0), S_OK);
    ticket->GetJobZorunDriverDataFromPrintTicket(back);
    EXPECT_EQ(back, ByteBuffer(4, 0));
}

// Page after page the same device mode text is read from ticket after ticket; each read gives
// its own ticket's bytes whatever was read before it (the same text again, a text one character
// apart, a text that is not base64, the same text in another ticket). Damaged payloads empty
// the buffer and throw; a truncated private area is repaired with zeros.
TEST(JobZorunDriverData, EachTicketGivesItsOwnBytesWhateverWasReadBefore) {
    const ByteBuffer first = DevmodeWithAttributes(SampleAttributes());
    ByteBuffer second = first;
    second[kPublic + 3] ^= 0x5A;
    std::wstring crcMismatch = FramedPayload(first);
    crcMismatch[20] = crcMismatch[20] == L'A' ? L'B' : L'A';  // one byte of the device mode
    const ByteBuffer truncated(first.begin(), first.end() - 100);
    ByteBuffer repaired = first;
    std::fill(repaired.end() - 100, repaired.end(), 0);
    // A device mode too short to hold its own sizes is not repaired.
    ByteBuffer small(100, 0);
    SetWord(small, kDmSize, 220);
    SetWord(small, kDmDriverExtra, 1000);
    const std::wstring cut = FramedPayload(first).substr(0, FramedPayload(first).size() - 3);
    const struct {
        const char* name;
        std::wstring ticket;
        ByteBuffer expected;
        std::optional<HRESULT> thrown;
    } rows[] = {
        // clang-format off
        {"first", JobData(FramedPayload(first)), first, std::nullopt},
        {"first again", JobData(FramedPayload(first)), first, std::nullopt},
        {"second", JobData(FramedPayload(second)), second, std::nullopt},
        {"not base64 (cut to a length no base64 text has)", JobData(cut), {}, E_FAIL},
        {"first after a failure", JobData(FramedPayload(first)), first, std::nullopt},
        {"second after first", JobData(FramedPayload(second)), second, std::nullopt},
        {"second again", JobData(FramedPayload(second)), second, std::nullopt},
        {"CRC mismatch", JobData(crcMismatch), {}, E_FAIL},
        {"truncated private area", JobData(FramedPayload(truncated)), repaired, std::nullopt},
        {"too short to repair", JobData(FramedPayload(small)), small, std::nullopt},
        // Four bytes or fewer: left as decoded, no CRC check.
        {"short", JobData(L"AQID"), {1, 2, 3}, std::nullopt},
        {"unpadded", JobData(L"QUJDRA"), {'A', 'B', 'C', 'D'}, std::nullopt},
        {"truncated base64", JobData(L"QUJDR"), {}, E_FAIL},
        {"absent", PrivateTicket(Feature(L"PageOrientation", L"Portrait")), {}, std::nullopt},
        // clang-format on
    };
    for (const auto& row : rows) {
        SCOPED_TRACE(row.name);
        auto ticket = TicketDocument(row.ticket);
        ASSERT_TRUE(ticket);
        ByteBuffer back(7, 0x33);
        EXPECT_EQ(ThrownHresult([&] { ticket->GetJobZorunDriverDataFromPrintTicket(back); }),
                  row.thrown);
        EXPECT_EQ(back, row.expected);
    }
}

// --- The device mode the filters use ---

// Only the page snapshot counts, and only with a plug-in part of this version and layout; the
// manager's entry point parses the text first (not a PrintTicket: the document's rejection,
// S_FALSE). Only S_OK carries a device mode.
TEST(DevmodeFromTicket, OnlyASnapshotWithTheDriversPartCounts) {
    const ByteBuffer devmode = DevmodeWithAttributes(SampleAttributes());
    ByteBuffer version = devmode;
    OemDevmode::WriteDword(version.data() + kPart + 8, 2);
    ByteBuffer layout = devmode;
    OemDevmode::WriteDword(layout.data() + kPart + 12, 2);
    const std::wstring notBase64 =
        PrivateTicket(PrivateParameterInit(L"PageDevmodeSnapshot", L"#!"));
    const std::tuple<const char*, std::wstring, HRESULT, bool> rows[] = {
        // name, text, result, whether the text is a ticket the document can be made of
        {"snapshot", TicketWithSnapshot(devmode), S_OK, true},
        {"job data only", JobData(FramedPayload(devmode)), S_FALSE, true},
        {"another version", TicketWithSnapshot(version), E_FAIL, true},
        {"another layout", TicketWithSnapshot(layout), E_FAIL, true},
        {"not base64", notBase64, E_FAIL, true},
        {"not XML", L"<psf:PrintTicket", E_FAIL, false},
        {"capabilities", documenttesting::Capabilities(L""), S_FALSE, false},
    };
    for (auto [name, text, hr, isTicket] : rows) {
        SCOPED_TRACE(name);
        const ByteBuffer expected = hr == S_OK ? devmode : ByteBuffer{};
        ByteBuffer back(4, 4);
        EXPECT_EQ(PrintTicketManager::GetDevmodeFromPrintTicketString(text.data(), back), hr);
        EXPECT_EQ(back, expected);
        if (!isTicket) continue;
        back.assign(4, 4);
        EXPECT_EQ(TicketDocument(text)->GetDevmodeFromPrintTicket(back), hr);
        EXPECT_EQ(back, expected);
    }
    ByteBuffer back(3, 3);
    EXPECT_EQ(PrintTicketManager::GetDevmodeFromPrintTicketString(nullptr, back), E_POINTER);
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

// --- The maker's job ticket ---

TEST(ZjifJobTicket, IsInsertedFirstAsEscapedText) {
    auto ticket = TicketDocument(PrivateTicket(Feature(L"PageOrientation", L"Portrait")));
    const char text[] = "JOB=1\n<name>\xC3\xA9</name>";
    ByteBuffer zjif(reinterpret_cast<const BYTE*>(text),
                    reinterpret_cast<const BYTE*>(text) + sizeof text - 1);
    ticket->CreateZorunZjifParameterInit(zjif);
    std::string xml = XmlOf(*ticket);
    RawXml raw(xml);
    EXPECT_EQ(Joined(raw, "/psf:PrintTicket/*[1]/@name"), "zk:JobZorunZjifJobTicket");
    EXPECT_EQ(Joined(raw, "//psf:ParameterInit/psf:Value"),
              "<![CDATA[\nJOB=1\n<name>\xC3\xA9</name>\n]]>");
    EXPECT_EQ(xml.find("<![CDATA["), std::string::npos);  // text, not a CDATA section
    EXPECT_NE(xml.find("&lt;![CDATA["), std::string::npos);

    // A second one goes in front again; the first stays.
    ticket->CreateZorunZjifParameterInit(zjif);
    EXPECT_EQ(RawXml(XmlOf(*ticket)).Count("//psf:ParameterInit"), 2u);
}

// --- The attribute list of a device mode ---

TEST(AttributeList, AttributesRoundTripThroughThePluginPart) {
    ByteBuffer devmode = DevmodeWithAttributes(SampleAttributes());
    ReaderWriter reader;
    reader.SetDevmode(devmode);
    EXPECT_EQ(reader.GetAttributeBytesIndexedListRef().GetRawList(), SampleAttributes());
    EXPECT_EQ(reader.GetOptionValueFromAttributeBytes(DataModelIds::FeatureNUpPagesPerSheet,
                                                      DataModelIds::ValueNUp1),
              DataModelIds::ValueNUp4);
    EXPECT_EQ(reader.GetIntegerValueFromAttributeBytes(DataModelIds::FeatureScalingPercentage, 0),
              140);
    EXPECT_GT(GlobalCaches::GetXDevmodeAttributeBytesIndexedListCacheSize(), 0u);

    // The ticket supplies the device mode when none is set.
    auto ticket = TicketDocument(TicketWithSnapshot(devmode));
    ReaderWriter fromTicket(ticket.get());
    EXPECT_EQ(fromTicket.GetAttributeBytesIndexedListRef().GetRawList(), SampleAttributes());
    EXPECT_EQ(fromTicket.GetDevmode(), devmode);
    ASSERT_NE(fromTicket.GetPublicDevmodePtr(), nullptr);
    EXPECT_EQ(fromTicket.GetPublicDevmodePtr()->dmPaperSize, 9);
    ReaderWriter empty;
    EXPECT_EQ(empty.GetPublicDevmodePtr(), nullptr);
    EXPECT_TRUE(empty.GetAttributeBytesIndexedListRef().IsEmpty());
}

TEST(AttributeList, TheSameNamespaceBuildsOnceAndAlternatingOnesRebuild) {
    AttributeBytesRawList printerProps;
    printerProps.Add(AttributeBytesItem::MakeInteger(4000, 7));
    PersistentAttributesWriter writer;
    const AttributeBytesNameSpacesId doc = PersistentAttributes::GetDataModelDocPropNameSpaceId();
    const AttributeBytesNameSpacesId printer =
        PersistentAttributes::GetDataModelPrinterPropNameSpaceId();
    writer.SetAttributeBytesListForNameSpace(doc, SampleAttributes());
    writer.SetAttributeBytesListForNameSpace(printer, printerProps);
    OemDevmode::Record record;
    record.type = OemDevmode::kAttributesRecordType;
    ASSERT_EQ(writer.Serialise(record.data), S_OK);
    ByteBuffer devmode = DevmodeWithRecords({record});

    ReaderWriter reader;
    reader.SetDevmode(devmode);
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

    // Assignment takes over the cached list; the source builds a new one from its own bytes.
    ReaderWriter source;
    source.SetDevmode(devmode);
    const AttributeBytesIndexedList* built = &source.GetAttributeBytesIndexedListRef();
    ReaderWriter target;
    target = source;
    EXPECT_EQ(&target.GetAttributeBytesIndexedListRef(), built);
    EXPECT_EQ(target.GetListRebuildCount(), 0u);
    EXPECT_EQ(target.GetDevmode(), devmode);
    EXPECT_EQ(source.GetAttributeBytesIndexedListRef().GetRawList(), SampleAttributes());
    EXPECT_EQ(source.GetListRebuildCount(), 2u);
}

TEST(AttributeList, DamagedPartsGiveAnEmptyListThatIsBuiltAgain) {
    ByteBuffer devmode = DevmodeWithAttributes(SampleAttributes());
    devmode[kPart + 70] ^= 0x01;  // inside the CRC-covered records
    ReaderWriter reader;
    reader.SetDevmode(devmode);
    EXPECT_TRUE(reader.GetAttributeBytesIndexedListRef().IsEmpty());
    EXPECT_TRUE(reader.GetAttributeBytesIndexedListRef().IsEmpty());
    EXPECT_EQ(reader.GetListRebuildCount(), 2u);

    for (ByteBuffer damaged : {DevmodeWithRecords({MakeRecord(9, 30, 1)}),
                               DevmodeWithRecords({MakeRecord(1, 200, 0xA5)}),
                               ByteBuffer(devmode.begin(), devmode.begin() + 3000)}) {
        reader.SetDevmode(damaged);
        EXPECT_TRUE(reader.GetAttributeBytesIndexedListRef().IsEmpty());
        EXPECT_EQ(reader.GetOptionValueFromAttributeBytes(DataModelIds::FeatureNUpPagesPerSheet,
                                                          DataModelIds::ValueNUp1),
                  DataModelIds::ValueNUp1);
    }
}
