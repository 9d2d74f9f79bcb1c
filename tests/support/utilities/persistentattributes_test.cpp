// Tests of the stored form of attribute lists: round trips byte for byte, the documented layout,
// and truncated, corrupt and hostile input read as no attributes.

#include <gtest/gtest.h>

#include <cmath>
#include <cstring>

#include "support/utilities/attributebytes.h"
#include "support/utilities/dimension.h"
#include "support/utilities/persistentattributes.h"

namespace {

using namespace DataModelIds;

using Item = AttributeBytesItem;

AttributeBytesRawList List(std::initializer_list<Item> items) {
    AttributeBytesRawList list;
    for (const Item& item : items) list.Add(item);
    return list;
}

// A collection nested `depth` levels deep around one integer.
AttributeBytesRawList Nested(int depth) {
    AttributeBytesRawList list = List({Item::MakeInteger(1, 42)});
    for (int i = 0; i < depth; ++i) list = List({Item::MakeCollection(2, list)});
    return list;
}

AttributeBytesRawList SampleDocumentList() {
    AttributeBytesRawList customSize =
        List({Item::MakeDimension(FeaturePaperWidth, 2100.0, Dimension::TenthsOfMillimeter),
              Item::MakeDimension(FeaturePaperHeight, 11.6929, Dimension::Inches, false)});
    AttributeBytesRawList outputPaper =
        List({Item::MakeOptionValue(FeaturePaperSize, ValuePageSizeISOA4),
              Item::MakeCollection(FeatureCustomPaperDimensions, customSize)});
    return List(
        {Item::MakeOptionValue(FeatureNUpPagesPerSheet, ValueNUp4),
         Item::MakeBoolean(FeatureBooklet, true),
         Item::MakeBoolean(FeatureEdgeToEdge, false, false),
         Item::MakeInteger(FeatureScalingPercentage, -250),
         Item::MakeString(620, L"Entwurf \u00e9t\u00e9 \U0001F5A8"), Item::MakeString(621, L""),
         Item::MakeCollection(FeatureOutputPaperSettings,
                              List({Item::MakeCollection(FeatureOutputPaper, outputPaper)}))});
}

// The bytes of a writer holding the given lists under namespaces 1, 2, ...
ByteBuffer Serialise(std::vector<AttributeBytesRawList> lists, DriverVersion version = {}) {
    PersistentAttributesWriter writer(version);
    for (std::size_t i = 0; i < lists.size(); ++i) {
        writer.SetAttributeBytesListForNameSpace(AttributeBytesNameSpacesId(long(i) + 1), lists[i]);
    }
    ByteBuffer bytes;
    EXPECT_EQ(writer.Serialise(bytes), S_OK) << writer.GetError();
    return bytes;
}

ByteBuffer SampleBytes() {
    return Serialise(
        {SampleDocumentList(), List({Item::MakeOptionValue(FeatureEdgeToEdge, ValueEdgeToEdgeOn)})},
        DriverVersion(5, 2, 1234, 7));
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
    EXPECT_EQ(PersistentAttributes::GetDataModelDocPropNameSpaceId(),
              AttributeBytesNameSpacesId(1));
    EXPECT_EQ(PersistentAttributes::GetDataModelPrinterPropNameSpaceId(),
              AttributeBytesNameSpacesId(2));
    AttributeBytesRawList document, printer;
    ASSERT_TRUE(attributes.GetAttributeBytesListForNameSpace(
        PersistentAttributes::GetDataModelDocPropNameSpaceId(), document));
    ASSERT_TRUE(attributes.GetAttributeBytesListForNameSpace(
        PersistentAttributes::GetDataModelPrinterPropNameSpaceId(), printer));
    EXPECT_TRUE(document == SampleDocumentList());
    ASSERT_EQ(printer.GetCount(), 1u);
    EXPECT_EQ(printer[0].GetOptionValue(), ValueEdgeToEdgeOn);
    // Written again from what was read: the same bytes. Trailing bytes after the total size are
    // ignored; the deepest allowed nesting and an emptied namespace read back.
    EXPECT_EQ(Serialise({document, printer}, attributes.GetWriterDriverVersion()), bytes);
    ByteBuffer padded = bytes;
    padded.insert(padded.end(), 100, 0xEE);
    EXPECT_TRUE(ReadList(padded) == SampleDocumentList());
    AttributeBytesRawList deepest = Nested(PersistentAttributesLimits::kMaxCollectionDepth);
    EXPECT_TRUE(ReadList(Serialise({deepest})) == deepest);
    AttributeBytesRawList list = List({Item::MakeBoolean(FeatureBooklet, true)});
    EXPECT_TRUE(PersistentAttributes(Serialise({AttributeBytesRawList()}), false, nullptr)
                    .GetAttributeBytesListForNameSpace(AttributeBytesNameSpacesId(1), list));
    EXPECT_TRUE(list.IsEmpty());
    // Without namespaces: the header alone, valid, and every namespace absent (and emptied).
    ByteBuffer empty = Serialise({});
    EXPECT_EQ(empty.size(), PersistentAttributesLimits::kHeaderSize);
    EXPECT_TRUE(PersistentAttributes(empty, false, nullptr).IsValid());
    list = List({Item::MakeBoolean(FeatureBooklet, true)});
    EXPECT_FALSE(PersistentAttributes(empty, false, nullptr)
                     .GetAttributeBytesListForNameSpace(AttributeBytesNameSpacesId(1), list));
    EXPECT_TRUE(list.IsEmpty());
    // Setting a namespace again replaces it; the driver version is checked only when asked.
    PersistentAttributesWriter writer;
    writer.SetAttributeBytesListForNameSpace(
        AttributeBytesNameSpacesId(1), List({Item::MakeInteger(FeatureScalingPercentage, 50)}));
    writer.SetAttributeBytesListForNameSpace(
        AttributeBytesNameSpacesId(1), List({Item::MakeInteger(FeatureScalingPercentage, 75)}));
    ByteBuffer replaced;
    ASSERT_EQ(writer.Serialise(replaced), S_OK);
    EXPECT_TRUE(ReadList(replaced) == List({Item::MakeInteger(FeatureScalingPercentage, 75)}));
    DriverVersion same(5, 2, 1234, 7), other(5, 2, 1235, 7);
    EXPECT_TRUE(PersistentAttributes(bytes, true, &same).IsValid());
    EXPECT_FALSE(PersistentAttributes(bytes, true, &other).IsValid());
    EXPECT_TRUE(PersistentAttributes(bytes, false, &other).IsValid());
    EXPECT_TRUE(PersistentAttributes(bytes, true, nullptr).IsValid());
}

TEST(PersistentAttributesTest, LayoutIsLittleEndianAsDocumented) {
    PersistentAttributesWriter writer(DriverVersion(1, 2, 3, 4));
    writer.SetAttributeBytesListForNameSpace(
        AttributeBytesNameSpacesId(0x01020304),
        List({Item::MakeOptionValue(FeatureNUpPagesPerSheet, ValueNUp2)}));
    ByteBuffer bytes;
    ASSERT_EQ(writer.Serialise(bytes), S_OK);
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

TEST(PersistentAttributesTest, WriterRejectsWhatCannotBeStored) {
    const struct {
        const char* name;
        AttributeBytesRawList list;
    } rows[] = {
        {"feature twice", List({Item::MakeInteger(FeatureScalingPercentage, 1),
                                Item::MakeBoolean(FeatureScalingPercentage, true)})},
        {"unknown unit", List({Item::MakeDimension(FeaturePaperWidth, 1.0, 99)})},
        {"NaN", List({Item::MakeDimension(FeaturePaperWidth, std::nan(""), Dimension::Microns)})},
        {"unpaired surrogate", List({Item::MakeString(1, std::wstring(1, wchar_t(0xD800)))})},
        {"string too long", List({Item::MakeString(1, std::wstring(40000, L'x'))})},
        {"nested too deep", Nested(PersistentAttributesLimits::kMaxCollectionDepth + 1)}};
    for (const auto& row : rows) {
        SCOPED_TRACE(row.name);
        PersistentAttributesWriter writer;
        writer.SetAttributeBytesListForNameSpace(AttributeBytesNameSpacesId(1), row.list);
        ByteBuffer bytes(3, 0xAB);
        EXPECT_EQ(writer.Serialise(bytes), E_INVALIDARG);
        EXPECT_TRUE(bytes.empty());
        EXPECT_FALSE(writer.GetError().empty());
    }
}

TEST(PersistentAttributesTest, TruncatedDamagedAndHostileInputReadsAsNothing) {
    const ByteBuffer good = SampleBytes();
    for (std::size_t length = 0; length < good.size(); ++length) {
        // A copy of exactly `length` bytes, so that the sanitizers see any read past it.
        ByteBuffer cut(good.begin(), good.begin() + static_cast<std::ptrdiff_t>(length));
        EXPECT_FALSE(PersistentAttributes(cut, false, nullptr).IsValid()) << "length " << length;
        EXPECT_TRUE(ReadList(cut).IsEmpty()) << "length " << length;
    }
    // Two namespaces of two attributes each, for duplicates.
    const ByteBuffer pairs = Serialise({List({Item::MakeInteger(7, 1), Item::MakeInteger(8, 2)}),
                                        List({Item::MakeInteger(7, 1), Item::MakeInteger(8, 2)})});
    ASSERT_FALSE(ReadList(pairs).IsEmpty());
    const struct {
        const char* name;
        ByteBuffer bytes;
        std::vector<std::pair<std::size_t, unsigned char>> changes;
    } rows[] = {
        // clang-format off
        {"signature", good, {{0, 'X'}}},                 {"format version 2", good, {{4, 2}}},
        {"short header", good, {{6, 8}}},                {"total size past the end", good, {{16, 0xFF}}},
        {"total size far past", good, {{19, 0x7F}}},     {"more namespaces than stored", good, {{20, 9}}},
        {"bytes left over", good, {{20, 1}}},            {"reserved", good, {{22, 1}}},
        {"list size past the end", good, {{28, 0xFF}}},  {"count past the list", good, {{32, 0x20}}},
        {"namespace reserved", good, {{34, 1}}},         {"attribute type 0", good, {{40, 0}}},
        {"attribute type 7", good, {{40, 7}}},           {"unknown flag", good, {{41, 0x81}}},
        {"option value of 5 bytes", good, {{42, 5}}},    {"payload past the list", good, {{43, 0xFF}}},
        {"namespace twice", pairs, {{24 + 12 + 24, 1}}}, {"feature twice", pairs, {{24 + 12 + 12, 7}}},
        {"65535 namespaces", Serialise({}), {{20, 0xFF}, {21, 0xFF}}},
        {"65535 attributes", Serialise({AttributeBytesRawList()}), {{32, 0xFF}, {33, 0xFF}}},
        // clang-format on
    };
    for (const auto& row : rows) {
        SCOPED_TRACE(row.name);
        ByteBuffer bytes = row.bytes;
        for (const auto& [offset, value] : row.changes) bytes[offset] = value;
        EXPECT_FALSE(PersistentAttributes(bytes, false, nullptr).IsValid());
        EXPECT_TRUE(ReadList(bytes).IsEmpty());
    }
}

TEST(PersistentAttributesTest, InvalidValuesReadAsNothing) {
    // One attribute of the given type and payload (header at 36, payload at 44).
    auto single = [](unsigned char type, std::vector<unsigned char> payload) {
        ByteBuffer bytes = Serialise({List({Item::MakeInteger(1, 0)})});
        bytes.resize(36);
        const unsigned char header[] = {
            1, 0, 0, 0, type, 1, static_cast<unsigned char>(payload.size()), 0};
        bytes.insert(bytes.end(), header, header + sizeof header);
        bytes.insert(bytes.end(), payload.begin(), payload.end());
        bytes[16] = static_cast<unsigned char>(bytes.size());
        bytes[28] = static_cast<unsigned char>(bytes.size() - 36);
        return ReadList(bytes);
    };
    const std::vector<unsigned char> collection = {2, 0, 0, 0, 9, 0, 0, 0, 2, 0, 4, 0, 1, 0,
                                                   0, 0, 9, 0, 0, 0, 2, 0, 4, 0, 2, 0, 0, 0};
    std::vector<unsigned char> distinct = collection;
    distinct[16] = 8;
    const struct {
        const char* name;
        unsigned char type;
        std::vector<unsigned char> payload;
        bool valid;
    } rows[] = {
        // clang-format off
        {"boolean 1", 3, {1}, true},  {"boolean 2", 3, {2}, false},
        {"dimension NaN", 4, {0, 0, 0, 0, 0, 0, 0xF8, 0x7F, 8, 0}, false},
        {"dimension infinity", 4, {0, 0, 0, 0, 0, 0, 0xF0, 0x7F, 8, 0}, false},
        {"dimension unit 11", 4, {0, 0, 0, 0, 0, 0, 0xF0, 0x3F, 11, 0}, false},
        {"dimension unit 10", 4, {0, 0, 0, 0, 0, 0, 0xF0, 0x3F, 10, 0}, true},
        {"string of odd length", 5, {0x41, 0, 0x42}, false},
        {"unpaired high surrogate", 5, {0x00, 0xD8, 0x41, 0}, false},
        {"unpaired low surrogate", 5, {0x00, 0xDC}, false},  {"string with NUL", 5, {0x41, 0, 0, 0}, false},
        {"collection reserved word", 6, {0, 0, 1, 0}, false},
        {"collection count past the payload", 6, {1, 0, 0, 0}, false},
        {"collection with a feature twice", 6, collection, false},
        {"collection", 6, distinct, true},
        // clang-format on
    };
    for (const auto& row : rows) {
        SCOPED_TRACE(row.name);
        EXPECT_EQ(single(row.type, row.payload).IsEmpty(), !row.valid);
    }
    AttributeBytesRawList pair = single(5, {0x3D, 0xD8, 0xA8, 0xDD});
    ASSERT_EQ(pair.GetCount(), 1u);
    EXPECT_EQ(pair[0].GetString(), std::wstring(1, static_cast<wchar_t>(0x1F5A8)));
}

}  // namespace
