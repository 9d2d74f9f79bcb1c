// Tests of the stored form of attribute lists: round trips byte for byte, the documented layout,
// and truncated, corrupt and hostile input read as no attributes.

#include <gtest/gtest.h>

#include <cstring>
#include <random>

#include "support/utilities/attributebytes.h"
#include "support/utilities/dimension.h"
#include "support/utilities/persistentattributes.h"

namespace {

using namespace DataModelIds;

AttributeBytesRawList SampleDocumentList() {
    AttributeBytesRawList customSize;
    customSize.Add(AttributeBytesItem::MakeDimension(FeaturePaperWidth, 2100.0,
                                                     Dimension::TenthsOfMillimeter));
    customSize.Add(
        AttributeBytesItem::MakeDimension(FeaturePaperHeight, 11.6929, Dimension::Inches, false));
    AttributeBytesRawList outputPaper;
    outputPaper.Add(AttributeBytesItem::MakeOptionValue(FeaturePaperSize, ValuePageSizeISOA4));
    outputPaper.Add(AttributeBytesItem::MakeCollection(FeatureCustomPaperDimensions, customSize));
    AttributeBytesRawList outputSettings;
    outputSettings.Add(AttributeBytesItem::MakeCollection(FeatureOutputPaper, outputPaper));

    AttributeBytesRawList list;
    list.Add(AttributeBytesItem::MakeOptionValue(FeatureNUpPagesPerSheet, ValueNUp4));
    list.Add(AttributeBytesItem::MakeBoolean(FeatureBooklet, true));
    list.Add(AttributeBytesItem::MakeBoolean(FeatureEdgeToEdge, false, false));
    list.Add(AttributeBytesItem::MakeInteger(FeatureScalingPercentage, -250));
    list.Add(AttributeBytesItem::MakeString(620, L"Entwurf \u00e9t\u00e9 \U0001F5A8"));
    list.Add(AttributeBytesItem::MakeString(621, L""));
    list.Add(AttributeBytesItem::MakeCollection(FeatureOutputPaperSettings, outputSettings));
    return list;
}

ByteBuffer Serialise(const PersistentAttributesWriter& writer) {
    ByteBuffer bytes;
    EXPECT_EQ(writer.Serialise(bytes), S_OK) << writer.GetError();
    return bytes;
}

ByteBuffer SampleBytes() {
    PersistentAttributesWriter writer(DriverVersion(5, 2, 1234, 7));
    writer.SetAttributeBytesListForNameSpace(PersistentAttributes::GetDataModelDocPropNameSpaceId(),
                                             SampleDocumentList());
    AttributeBytesRawList printer;
    printer.Add(AttributeBytesItem::MakeOptionValue(FeatureEdgeToEdge, ValueEdgeToEdgeOn));
    writer.SetAttributeBytesListForNameSpace(
        PersistentAttributes::GetDataModelPrinterPropNameSpaceId(), printer);
    return Serialise(writer);
}

AttributeBytesRawList ReadList(const ByteBuffer& bytes, long nameSpace = 1) {
    PersistentAttributes attributes(bytes, false, nullptr);
    AttributeBytesRawList list;
    attributes.GetAttributeBytesListForNameSpace(AttributeBytesNameSpacesId(nameSpace), list);
    return list;
}

TEST(PersistentAttributesTest, RoundTripKeepsEveryAttributeAndEveryByte) {
    ByteBuffer bytes = SampleBytes();
    PersistentAttributes attributes(bytes, false, nullptr);
    ASSERT_TRUE(attributes.IsValid()) << attributes.GetError();
    EXPECT_EQ(attributes.GetWriterDriverVersion(), DriverVersion(5, 2, 1234, 7));
    ASSERT_EQ(attributes.GetNameSpaceIds().size(), 2u);

    AttributeBytesRawList document, printer;
    ASSERT_TRUE(attributes.GetAttributeBytesListForNameSpace(
        PersistentAttributes::GetDataModelDocPropNameSpaceId(), document));
    ASSERT_TRUE(attributes.GetAttributeBytesListForNameSpace(
        PersistentAttributes::GetDataModelPrinterPropNameSpaceId(), printer));
    EXPECT_TRUE(document == SampleDocumentList());
    ASSERT_EQ(printer.GetCount(), 1u);
    EXPECT_EQ(printer[0].GetOptionValue(), ValueEdgeToEdgeOn);

    // Written again from what was read: the same bytes.
    PersistentAttributesWriter again(attributes.GetWriterDriverVersion());
    again.SetAttributeBytesListForNameSpace(PersistentAttributes::GetDataModelDocPropNameSpaceId(),
                                            document);
    again.SetAttributeBytesListForNameSpace(
        PersistentAttributes::GetDataModelPrinterPropNameSpaceId(), printer);
    EXPECT_EQ(Serialise(again), bytes);
}

TEST(PersistentAttributesTest, LayoutIsLittleEndianAsDocumented) {
    PersistentAttributesWriter writer(DriverVersion(1, 2, 3, 4));
    AttributeBytesRawList list;
    list.Add(AttributeBytesItem::MakeOptionValue(FeatureNUpPagesPerSheet, ValueNUp2));
    writer.SetAttributeBytesListForNameSpace(AttributeBytesNameSpacesId(0x01020304), list);
    ByteBuffer bytes = Serialise(writer);
    const unsigned char expected[] = {
        'Z',  'A',  'T', 'B', 1,  0, 24, 0,              // signature, format version, header size
        1,    0,    2,   0,   3,  0, 4,  0,              // driver version
        48,   0,    0,   0,   1,  0, 0,  0,              // total size, namespace count, reserved
        4,    3,    2,   1,   12, 0, 0,  0, 1, 0, 0, 0,  // namespace id, list size, count, reserved
        215,  0,    0,   0,   1,  1, 4,  0,  // feature 215, option value, specified, 4 bytes
        0x49, 0x1c, 0,   0,                  // 7241
    };
    ASSERT_EQ(bytes.size(), sizeof expected);
    EXPECT_EQ(std::memcmp(bytes.data(), expected, sizeof expected), 0);
}

TEST(PersistentAttributesTest, EmptyWriterAndEmptyNameSpace) {
    PersistentAttributesWriter writer;
    ByteBuffer bytes = Serialise(writer);
    EXPECT_EQ(bytes.size(), PersistentAttributesLimits::kHeaderSize);
    PersistentAttributes attributes(bytes, false, nullptr);
    EXPECT_TRUE(attributes.IsValid());
    AttributeBytesRawList list;
    list.Add(AttributeBytesItem::MakeBoolean(FeatureBooklet, true));
    EXPECT_FALSE(attributes.GetAttributeBytesListForNameSpace(AttributeBytesNameSpacesId(1), list));
    EXPECT_TRUE(list.IsEmpty());

    writer.SetAttributeBytesListForNameSpace(AttributeBytesNameSpacesId(1),
                                             AttributeBytesRawList());
    PersistentAttributes withEmpty(Serialise(writer), false, nullptr);
    EXPECT_TRUE(withEmpty.GetAttributeBytesListForNameSpace(AttributeBytesNameSpacesId(1), list));
    EXPECT_TRUE(list.IsEmpty());
}

TEST(PersistentAttributesTest, SettingANameSpaceAgainReplacesIt) {
    PersistentAttributesWriter writer;
    AttributeBytesRawList first, second;
    first.Add(AttributeBytesItem::MakeInteger(FeatureScalingPercentage, 50));
    second.Add(AttributeBytesItem::MakeInteger(FeatureScalingPercentage, 75));
    writer.SetAttributeBytesListForNameSpace(AttributeBytesNameSpacesId(1), first);
    writer.SetAttributeBytesListForNameSpace(AttributeBytesNameSpacesId(1), second);
    AttributeBytesRawList read = ReadList(Serialise(writer));
    ASSERT_EQ(read.GetCount(), 1u);
    EXPECT_EQ(read[0].GetInteger(), 75);
}

TEST(PersistentAttributesTest, WriterRejectsWhatCannotBeStored) {
    auto rejects = [](const AttributeBytesRawList& list) {
        PersistentAttributesWriter writer;
        writer.SetAttributeBytesListForNameSpace(AttributeBytesNameSpacesId(1), list);
        ByteBuffer bytes(3, 0xAB);
        HRESULT hr = writer.Serialise(bytes);
        EXPECT_FALSE(writer.GetError().empty());
        return hr == E_INVALIDARG && bytes.empty();
    };
    AttributeBytesRawList duplicate;
    duplicate.Add(AttributeBytesItem::MakeInteger(FeatureScalingPercentage, 1));
    duplicate.Add(AttributeBytesItem::MakeBoolean(FeatureScalingPercentage, true));
    EXPECT_TRUE(rejects(duplicate));

    AttributeBytesRawList badUnit;
    badUnit.Add(AttributeBytesItem::MakeDimension(FeaturePaperWidth, 1.0, 99));
    EXPECT_TRUE(rejects(badUnit));

    AttributeBytesRawList notANumber;
    notANumber.Add(
        AttributeBytesItem::MakeDimension(FeaturePaperWidth, std::nan(""), Dimension::Microns));
    EXPECT_TRUE(rejects(notANumber));

    AttributeBytesRawList badText;
    badText.Add(AttributeBytesItem::MakeString(1, std::wstring(1, static_cast<wchar_t>(0xD800))));
    EXPECT_TRUE(rejects(badText));

    AttributeBytesRawList tooLong;
    tooLong.Add(AttributeBytesItem::MakeString(1, std::wstring(40000, L'x')));
    EXPECT_TRUE(rejects(tooLong));

    AttributeBytesRawList deep;
    deep.Add(AttributeBytesItem::MakeInteger(1, 1));
    for (int i = 0; i <= PersistentAttributesLimits::kMaxCollectionDepth; ++i) {
        AttributeBytesRawList outer;
        outer.Add(AttributeBytesItem::MakeCollection(2, deep));
        deep = outer;
    }
    EXPECT_TRUE(rejects(deep));
}

TEST(PersistentAttributesTest, DeepestAllowedNestingRoundTrips) {
    AttributeBytesRawList deep;
    deep.Add(AttributeBytesItem::MakeInteger(1, 42));
    for (int i = 0; i < PersistentAttributesLimits::kMaxCollectionDepth; ++i) {
        AttributeBytesRawList outer;
        outer.Add(AttributeBytesItem::MakeCollection(2, deep));
        deep = outer;
    }
    PersistentAttributesWriter writer;
    writer.SetAttributeBytesListForNameSpace(AttributeBytesNameSpacesId(1), deep);
    EXPECT_TRUE(ReadList(Serialise(writer)) == deep);
}

TEST(PersistentAttributesTest, EveryTruncationReadsAsNothing) {
    ByteBuffer bytes = SampleBytes();
    for (std::size_t length = 0; length < bytes.size(); ++length) {
        // A copy of exactly `length` bytes, so that the sanitizers see any read past it.
        ByteBuffer cut(bytes.begin(), bytes.begin() + static_cast<std::ptrdiff_t>(length));
        PersistentAttributes attributes(cut, false, nullptr);
        EXPECT_FALSE(attributes.IsValid()) << "length " << length;
        EXPECT_TRUE(ReadList(cut).IsEmpty()) << "length " << length;
    }
}

TEST(PersistentAttributesTest, TrailingBytesAfterTheTotalSizeAreIgnored) {
    ByteBuffer bytes = SampleBytes();
    ByteBuffer padded = bytes;
    padded.insert(padded.end(), 100, 0xEE);
    EXPECT_TRUE(ReadList(padded) == SampleDocumentList());
}

TEST(PersistentAttributesTest, DamagedFieldsReadAsNothing) {
    const ByteBuffer good = SampleBytes();
    auto damaged = [&](std::size_t offset, unsigned char value) {
        ByteBuffer bytes = good;
        bytes[offset] = value;
        PersistentAttributes attributes(bytes, false, nullptr);
        AttributeBytesRawList list;
        attributes.GetAttributeBytesListForNameSpace(AttributeBytesNameSpacesId(1), list);
        return !attributes.IsValid() && list.IsEmpty();
    };
    EXPECT_TRUE(damaged(0, 'X'));    // signature
    EXPECT_TRUE(damaged(4, 2));      // format version 2
    EXPECT_TRUE(damaged(6, 8));      // header shorter than the fixed header
    EXPECT_TRUE(damaged(16, 0xFF));  // total size larger than the bytes
    EXPECT_TRUE(damaged(19, 0x7F));
    EXPECT_TRUE(damaged(20, 9));         // more namespaces than stored
    EXPECT_TRUE(damaged(20, 1));         // fewer: bytes left over
    EXPECT_TRUE(damaged(22, 1));         // reserved
    EXPECT_TRUE(damaged(28, 0xFF));      // list size past the end
    EXPECT_TRUE(damaged(32, 0x20));      // attribute count past the list
    EXPECT_TRUE(damaged(34, 1));         // namespace reserved
    EXPECT_TRUE(damaged(36 + 4, 0));     // attribute type 0
    EXPECT_TRUE(damaged(36 + 4, 7));     // attribute type 7
    EXPECT_TRUE(damaged(36 + 5, 0x81));  // unknown flag
    EXPECT_TRUE(damaged(36 + 6, 5));     // option value of 5 bytes
    EXPECT_TRUE(damaged(36 + 7, 0xFF));  // payload past the list
}

TEST(PersistentAttributesTest, InvalidValuesReadAsNothing) {
    auto single = [](unsigned char type, std::vector<unsigned char> payload) {
        PersistentAttributesWriter writer;
        AttributeBytesRawList list;
        list.Add(AttributeBytesItem::MakeInteger(1, 0));
        writer.SetAttributeBytesListForNameSpace(AttributeBytesNameSpacesId(1), list);
        ByteBuffer bytes;
        writer.Serialise(bytes);
        // Replace the integer attribute (header at 36, payload at 44) by the given one.
        bytes.resize(36);
        const unsigned char header[] = {
            1, 0, 0, 0, type, 1, static_cast<unsigned char>(payload.size()), 0};
        bytes.insert(bytes.end(), header, header + sizeof header);
        bytes.insert(bytes.end(), payload.begin(), payload.end());
        bytes[16] = static_cast<unsigned char>(bytes.size());
        bytes[28] = static_cast<unsigned char>(bytes.size() - 36);
        return bytes;
    };
    EXPECT_FALSE(ReadList(single(3, {1})).IsEmpty());  // the frame itself is right
    EXPECT_TRUE(ReadList(single(3, {2})).IsEmpty());   // boolean 2
    // Dimension: NaN, infinity, unknown unit.
    EXPECT_TRUE(ReadList(single(4, {0, 0, 0, 0, 0, 0, 0xF8, 0x7F, 8, 0})).IsEmpty());
    EXPECT_TRUE(ReadList(single(4, {0, 0, 0, 0, 0, 0, 0xF0, 0x7F, 8, 0})).IsEmpty());
    EXPECT_TRUE(ReadList(single(4, {0, 0, 0, 0, 0, 0, 0xF0, 0x3F, 11, 0})).IsEmpty());
    EXPECT_FALSE(ReadList(single(4, {0, 0, 0, 0, 0, 0, 0xF0, 0x3F, 10, 0})).IsEmpty());
    // Strings: odd length, unpaired surrogates, NUL.
    EXPECT_TRUE(ReadList(single(5, {0x41, 0, 0x42})).IsEmpty());
    EXPECT_TRUE(ReadList(single(5, {0x00, 0xD8, 0x41, 0})).IsEmpty());
    EXPECT_TRUE(ReadList(single(5, {0x00, 0xDC})).IsEmpty());
    EXPECT_TRUE(ReadList(single(5, {0x41, 0, 0, 0})).IsEmpty());
    AttributeBytesRawList pair = ReadList(single(5, {0x3D, 0xD8, 0xA8, 0xDD}));
    ASSERT_EQ(pair.GetCount(), 1u);
    EXPECT_EQ(pair[0].GetString(), std::wstring(1, static_cast<wchar_t>(0x1F5A8)));
    // Collections: reserved word, count larger than the payload, nested duplicate.
    EXPECT_TRUE(ReadList(single(6, {0, 0, 1, 0})).IsEmpty());
    EXPECT_TRUE(ReadList(single(6, {1, 0, 0, 0})).IsEmpty());
    EXPECT_TRUE(ReadList(single(6, {2, 0, 0, 0, 9, 0, 0, 0, 2, 0, 4, 0, 1, 0,
                                    0, 0, 9, 0, 0, 0, 2, 0, 4, 0, 2, 0, 0, 0}))
                    .IsEmpty());
    EXPECT_FALSE(ReadList(single(6, {2, 0, 0, 0, 9, 0, 0, 0, 2, 0, 4, 0, 1, 0,
                                     0, 0, 8, 0, 0, 0, 2, 0, 4, 0, 2, 0, 0, 0}))
                     .IsEmpty());
}

TEST(PersistentAttributesTest, DuplicateNameSpaceOrFeatureReadsAsNothing) {
    PersistentAttributesWriter writer;
    AttributeBytesRawList list;
    list.Add(AttributeBytesItem::MakeInteger(7, 1));
    list.Add(AttributeBytesItem::MakeInteger(8, 2));
    writer.SetAttributeBytesListForNameSpace(AttributeBytesNameSpacesId(1), list);
    writer.SetAttributeBytesListForNameSpace(AttributeBytesNameSpacesId(2), list);
    ByteBuffer bytes = Serialise(writer);
    ASSERT_FALSE(ReadList(bytes).IsEmpty());

    ByteBuffer sameNameSpace = bytes;
    sameNameSpace[24 + 12 + 24] = 1;  // the second namespace's id becomes 1 as well
    EXPECT_FALSE(PersistentAttributes(sameNameSpace, false, nullptr).IsValid());

    ByteBuffer sameFeature = bytes;
    sameFeature[24 + 12 + 12] = 7;  // the second attribute's feature becomes 7 as well
    EXPECT_FALSE(PersistentAttributes(sameFeature, false, nullptr).IsValid());
}

TEST(PersistentAttributesTest, DriverVersionIsCheckedOnlyWhenAsked) {
    ByteBuffer bytes = SampleBytes();
    DriverVersion same(5, 2, 1234, 7), other(5, 2, 1235, 7);
    EXPECT_TRUE(PersistentAttributes(bytes, true, &same).IsValid());
    EXPECT_FALSE(PersistentAttributes(bytes, true, &other).IsValid());
    EXPECT_TRUE(PersistentAttributes(bytes, false, &other).IsValid());
    EXPECT_TRUE(PersistentAttributes(bytes, true, nullptr).IsValid());
}

TEST(PersistentAttributesTest, HostileCountsDoNotAllocateOrRead) {
    // A header claiming 65535 namespaces in a 24-byte input, and one namespace claiming 65535
    // attributes in a 12-byte list.
    ByteBuffer header = Serialise(PersistentAttributesWriter());
    header[20] = 0xFF;
    header[21] = 0xFF;
    EXPECT_FALSE(PersistentAttributes(header, false, nullptr).IsValid());

    PersistentAttributesWriter writer;
    writer.SetAttributeBytesListForNameSpace(AttributeBytesNameSpacesId(1),
                                             AttributeBytesRawList());
    ByteBuffer list = Serialise(writer);
    list[32] = 0xFF;
    list[33] = 0xFF;
    EXPECT_FALSE(PersistentAttributes(list, false, nullptr).IsValid());
}

}  // namespace
