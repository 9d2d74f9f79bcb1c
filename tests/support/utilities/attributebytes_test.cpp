// Tests of attribute lists, the typed reads of AttributeBytesReader and the process-wide devmode
// attribute cache.

#include <gtest/gtest.h>

#include <thread>
#include <vector>

#include "platform/win32/debugoutput.h"
#include "support/utilities/attributebytes.h"
#include "support/utilities/attributebytesreader.h"
#include "support/utilities/globalcaches.h"
#include "support/utilities/number.h"

namespace {

using namespace DataModelIds;

AttributeBytesIndexedList Indexed(const AttributeBytesRawList& raw) {
    AttributeBytesIndexedList list;
    list.ImportFromRawList(raw);
    return list;
}

// A ticket's driver settings as the typed ticket view reads them.
AttributeBytesRawList TicketSettings() {
    AttributeBytesRawList dimensions;
    dimensions.Add(AttributeBytesItem::MakeDimension(FeaturePaperWidth, 2970.0,
                                                     Dimension::TenthsOfMillimeter));
    dimensions.Add(
        AttributeBytesItem::MakeDimension(FeaturePaperHeight, 16.5354, Dimension::Inches));
    AttributeBytesRawList paper;
    paper.Add(AttributeBytesItem::MakeInteger(FeaturePaperSize, 70001));  // a user's own paper
    paper.Add(AttributeBytesItem::MakeCollection(FeatureCustomPaperDimensions, dimensions));
    AttributeBytesRawList settings;
    settings.Add(AttributeBytesItem::MakeCollection(FeatureOutputPaper, paper));

    AttributeBytesRawList list;
    list.Add(AttributeBytesItem::MakeOptionValue(FeatureFitToOutputPaper, ValueFitToOutputPaperOn));
    list.Add(AttributeBytesItem::MakeCollection(FeatureOutputPaperSettings, settings));
    list.Add(AttributeBytesItem::MakeBoolean(FeatureBooklet, true));
    list.Add(AttributeBytesItem::MakeOptionValue(FeatureBookletBindingEdge, ValueBindingEdgeRight));
    list.Add(AttributeBytesItem::MakeInteger(FeatureBookletGutter, 12700));
    list.Add(AttributeBytesItem::MakeInteger(FeatureBookletCreep, 300, false));
    list.Add(AttributeBytesItem::MakeOptionValue(FeatureNUpPagesPerSheet, ValueNUp6, false));
    list.Add(AttributeBytesItem::MakeString(FeatureWatermarkPlacement, L"not an option"));
    return list;
}

TEST(AttributeBytesIndexedListTest, FindsByFeatureIdAndKeepsStoredOrder) {
    AttributeBytesIndexedList list = Indexed(TicketSettings());
    EXPECT_FALSE(list.IsEmpty());
    EXPECT_EQ(list.GetCount(), 8u);
    ASSERT_NE(list.Find(FeatureBookletGutter), nullptr);
    EXPECT_EQ(list.Find(FeatureBookletGutter)->GetInteger(), 12700);
    EXPECT_EQ(list.Find(FeatureScalingMode), nullptr);
    EXPECT_EQ(list.GetRawList()[0].GetFeatureId(), FeatureFitToOutputPaper);
    EXPECT_TRUE(list.GetRawList() == TicketSettings());

    // Importing replaces; importing a list's own contents works.
    list.ImportFromRawList(list.GetRawList());
    EXPECT_EQ(list.GetCount(), 8u);
    AttributeBytesRawList one;
    one.Add(AttributeBytesItem::MakeBoolean(FeatureEdgeToEdge, true));
    list.ImportFromRawList(one);
    EXPECT_EQ(list.GetCount(), 1u);
    EXPECT_EQ(list.Find(FeatureBookletGutter), nullptr);
    list.Clear();
    EXPECT_TRUE(list.IsEmpty());
    EXPECT_EQ(list.Find(FeatureEdgeToEdge), nullptr);
}

TEST(AttributeBytesIndexedListTest, FirstOfTwoAttributesOfOneFeatureCounts) {
    AttributeBytesRawList raw;
    raw.Add(AttributeBytesItem::MakeInteger(FeatureScalingPercentage, 50));
    raw.Add(AttributeBytesItem::MakeInteger(FeatureScalingPercentage, 75));
    EXPECT_EQ(Indexed(raw).Find(FeatureScalingPercentage)->GetInteger(), 50);
}

TEST(AttributeBytesItemTest, ValuesOfAnotherTypeReadAsZero) {
    AttributeBytesItem item = AttributeBytesItem::MakeString(1, L"text");
    EXPECT_EQ(item.GetOptionValue(), ValueUnspecified);
    EXPECT_EQ(item.GetInteger(), 0);
    EXPECT_FALSE(item.GetBoolean());
    EXPECT_EQ(item.GetDimensionUnit(), 0);
    EXPECT_TRUE(item.GetCollection().IsEmpty());
    EXPECT_TRUE(AttributeBytesItem::MakeInteger(1, 3).GetString().empty());
    EXPECT_NE(AttributeBytesItem::MakeInteger(1, 3), AttributeBytesItem::MakeInteger(1, 3, false));
    EXPECT_NE(AttributeBytesItem::MakeInteger(1, 3),
              AttributeBytesItem::MakeOptionValue(1, static_cast<tagValueEnum>(3)));
}

TEST(AttributeBytesReaderTest, TypedReadsAndDefaults) {
    AttributeBytesReader reader(Indexed(TicketSettings()));
    EXPECT_EQ(reader.GetOptionValueFromAttributeBytes(FeatureFitToOutputPaper, ValueUnspecified),
              ValueFitToOutputPaperOn);
    EXPECT_EQ(reader.GetOptionValueFromAttributeBytes(FeatureScalingMode, ValueScalingModeNone),
              ValueScalingModeNone);
    // An attribute of another type gives the default.
    EXPECT_EQ(reader.GetOptionValueFromAttributeBytes(FeatureWatermarkPlacement,
                                                      ValueWatermarkBehindContent),
              ValueWatermarkBehindContent);
    EXPECT_EQ(reader.GetIntegerValueFromAttributeBytes(FeatureBooklet, -1), -1);
    EXPECT_EQ(reader.GetIntegerValueFromAttributeBytes(FeatureBookletGutter, 0), 12700);
    EXPECT_EQ(reader.GetStringValueFromAttributeBytes(FeatureWatermarkPlacement, L"none"),
              CXString(L"not an option"));
    EXPECT_EQ(reader.GetStringValueFromAttributeBytes(FeatureWatermark, L"none"),
              CXString(L"none"));
}

TEST(AttributeBytesReaderTest, BooleanReportsWhetherItWasSpecified) {
    AttributeBytesRawList raw;
    raw.Add(AttributeBytesItem::MakeBoolean(FeatureBooklet, true, false));
    raw.Add(AttributeBytesItem::MakeBoolean(FeatureEdgeToEdge, false, true));
    AttributeBytesReader reader(Indexed(raw));
    bool specified = true;
    EXPECT_TRUE(reader.GetBooleanValueFromAttributeBytes(FeatureBooklet, false, &specified));
    EXPECT_FALSE(specified);
    EXPECT_FALSE(reader.GetBooleanValueFromAttributeBytes(FeatureEdgeToEdge, true, &specified));
    EXPECT_TRUE(specified);
    EXPECT_TRUE(reader.GetBooleanValueFromAttributeBytes(FeatureScalingMode, true, &specified));
    EXPECT_FALSE(specified);
    EXPECT_TRUE(reader.GetBooleanValueFromAttributeBytes(FeatureBooklet, false));
}

TEST(AttributeBytesReaderTest, IsSpecifiedLooksAtTheFlagOfAnyType) {
    AttributeBytesReader reader(Indexed(TicketSettings()));
    EXPECT_TRUE(reader.IsSpecifiedInAttributeBytes(FeatureBookletGutter));
    EXPECT_FALSE(reader.IsSpecifiedInAttributeBytes(FeatureBookletCreep));
    EXPECT_FALSE(reader.IsSpecifiedInAttributeBytes(FeatureNUpPagesPerSheet));
    EXPECT_FALSE(reader.IsSpecifiedInAttributeBytes(FeatureScalingMode));
    // An unspecified attribute still has its value.
    EXPECT_EQ(reader.GetOptionValueFromAttributeBytes(FeatureNUpPagesPerSheet, ValueNUp1),
              ValueNUp6);
}

TEST(AttributeBytesReaderTest, NestedCollectionsAndDimensionsAsTheOutputPaperIsRead) {
    AttributeBytesReader reader(Indexed(TicketSettings()));
    AttributeBytesIndexedList settings, paper, dimensions;
    ASSERT_TRUE(reader.GetCollection(FeatureOutputPaperSettings, settings));
    ASSERT_TRUE(AttributeBytesReader::GetCollection(settings, FeatureOutputPaper, paper));
    EXPECT_EQ(AttributeBytesReader::GetOptionValueOrNewId(paper, FeaturePaperSize, ValueAny),
              static_cast<tagValueEnum>(70001));
    ASSERT_TRUE(
        AttributeBytesReader::GetCollection(paper, FeatureCustomPaperDimensions, dimensions));
    Dimension none(0, Dimension::Microns);
    Dimension width = AttributeBytesReader::GetDimensionValue(dimensions, FeaturePaperWidth, none);
    Dimension height =
        AttributeBytesReader::GetDimensionValue(dimensions, FeaturePaperHeight, none);
    EXPECT_EQ(width.GetValue(Dimension::Microns).GetIntValue(0.499999), 297000);
    EXPECT_EQ(height.GetValue(Dimension::Microns).GetIntValue(0.499999), 419999);
    EXPECT_EQ(height.GetUnit(), Dimension::Inches);

    // Absent collection: false and an emptied list; reading into the source list itself works.
    EXPECT_FALSE(AttributeBytesReader::GetCollection(paper, FeatureOutputPaper, dimensions));
    EXPECT_TRUE(dimensions.IsEmpty());
    EXPECT_TRUE(AttributeBytesReader::GetCollection(paper, FeatureCustomPaperDimensions, paper));
    EXPECT_NE(paper.Find(FeaturePaperWidth), nullptr);
    EXPECT_EQ(AttributeBytesReader::GetDimensionValue(paper, FeaturePaperSize, none)
                  .GetDoubleValue(Dimension::Microns),
              0.0);
}

TEST(AttributeBytesReaderTest, OptionOrNewIdTakesOptionsAndIntegersOnly) {
    AttributeBytesRawList raw;
    raw.Add(AttributeBytesItem::MakeOptionValue(FeaturePaperSize, ValuePageSizeISOA3));
    raw.Add(AttributeBytesItem::MakeBoolean(FeatureBooklet, true));
    AttributeBytesIndexedList list = Indexed(raw);
    EXPECT_EQ(AttributeBytesReader::GetOptionValueOrNewId(list, FeaturePaperSize, ValueAny),
              ValuePageSizeISOA3);
    EXPECT_EQ(AttributeBytesReader::GetOptionValueOrNewId(list, FeatureBooklet, ValueAny),
              ValueAny);
    EXPECT_EQ(AttributeBytesReader::GetOptionValueOrNewId(list, FeatureScalingMode, ValueAny),
              ValueAny);
}

// A reader whose list comes from elsewhere, as the ticket's private-data reader does it.
class CountingReader : public AttributeBytesReader {
public:
    using AttributeBytesReader::GetAttributeBytesIndexedListRef;
    AttributeBytesIndexedList& GetAttributeBytesIndexedListRef() override {
        ++m_calls;
        return m_own;
    }
    int m_calls = 0;
    AttributeBytesIndexedList m_own = Indexed(TicketSettings());
};

TEST(AttributeBytesReaderTest, ReadsGoThroughTheVirtualListAccessor) {
    CountingReader reader;
    EXPECT_EQ(reader.GetIntegerValueFromAttributeBytes(FeatureBookletGutter, 0), 12700);
    EXPECT_TRUE(reader.IsSpecifiedInAttributeBytes(FeatureBooklet));
    EXPECT_EQ(reader.m_calls, 2);
    // The base class's own list is another one, and empty.
    const AttributeBytesReader& base = reader;
    EXPECT_TRUE(base.GetAttributeBytesIndexedListRef().IsEmpty());
}

TEST(AttributeBytesReaderTest, CopyAndDump) {
    AttributeBytesReader reader(Indexed(TicketSettings()));
    AttributeBytesReader copy;
    copy = reader;
    EXPECT_EQ(copy.GetAttributeBytesIndexedListRef().GetCount(), 8u);
    EXPECT_EQ(&copy.GetAttributeBytesIndexedListRef(AttributeBytesNameSpacesId(5)),
              &copy.GetAttributeBytesIndexedListRef());
    std::string dump;
    platform::DebugOutputSink previous =
        platform::SetDebugOutputSink([&](std::string_view text) { dump += text; });
    copy.Dump();
    platform::SetDebugOutputSink(previous);
    EXPECT_NE(dump.find("8 attributes"), std::string::npos);
    EXPECT_NE(dump.find("feature 312 (specified): integer 12700"), std::string::npos);
    EXPECT_NE(dump.find("feature 313: integer 300"), std::string::npos);
    EXPECT_NE(dump.find("    feature 168 (specified): integer 70001"), std::string::npos);
}

TEST(GlobalCachesTest, KeepsListsByNameSpaceAndCrc) {
    GlobalCaches::ClearXDevmodeAttributeBytesIndexedListCache();
    AttributeBytesIndexedList stored = Indexed(TicketSettings());
    AttributeBytesNameSpacesId document(1), printer(2);
    AttributeBytesIndexedList found;
    EXPECT_FALSE(GlobalCaches::CheckXDevmodeAttributeBytesIndexedListCache(document, 7, found));
    EXPECT_TRUE(found.IsEmpty());

    GlobalCaches::StoreXDevmodeAttributeBytesIndexedListCache(document, 7, stored);
    EXPECT_TRUE(GlobalCaches::CheckXDevmodeAttributeBytesIndexedListCache(document, 7, found));
    EXPECT_TRUE(found.GetRawList() == stored.GetRawList());
    AttributeBytesIndexedList other;
    EXPECT_FALSE(GlobalCaches::CheckXDevmodeAttributeBytesIndexedListCache(printer, 7, other));
    EXPECT_FALSE(GlobalCaches::CheckXDevmodeAttributeBytesIndexedListCache(document, 8, other));

    // Empty lists are not kept; storing again under the same key replaces.
    GlobalCaches::StoreXDevmodeAttributeBytesIndexedListCache(printer, 9,
                                                              AttributeBytesIndexedList());
    EXPECT_EQ(GlobalCaches::GetXDevmodeAttributeBytesIndexedListCacheSize(), 1u);
    AttributeBytesRawList one;
    one.Add(AttributeBytesItem::MakeInteger(1, 1));
    GlobalCaches::StoreXDevmodeAttributeBytesIndexedListCache(document, 7, Indexed(one));
    EXPECT_EQ(GlobalCaches::GetXDevmodeAttributeBytesIndexedListCacheSize(), 1u);
    EXPECT_TRUE(GlobalCaches::CheckXDevmodeAttributeBytesIndexedListCache(document, 7, found));
    EXPECT_EQ(found.GetCount(), 1u);
    GlobalCaches::ClearXDevmodeAttributeBytesIndexedListCache();
}

TEST(GlobalCachesTest, IsBoundedAndForgetsTheLeastRecentlyUsed) {
    GlobalCaches::ClearXDevmodeAttributeBytesIndexedListCache();
    AttributeBytesIndexedList list = Indexed(TicketSettings());
    AttributeBytesNameSpacesId nameSpace(1);
    const DWORD capacity = GlobalCaches::kXDevmodeCacheCapacity;
    for (DWORD crc = 0; crc < capacity; ++crc) {
        GlobalCaches::StoreXDevmodeAttributeBytesIndexedListCache(nameSpace, crc, list);
    }
    AttributeBytesIndexedList found;
    // Using CRC 0 makes CRC 1 the least recently used one.
    EXPECT_TRUE(GlobalCaches::CheckXDevmodeAttributeBytesIndexedListCache(nameSpace, 0, found));
    GlobalCaches::StoreXDevmodeAttributeBytesIndexedListCache(nameSpace, capacity, list);
    EXPECT_EQ(GlobalCaches::GetXDevmodeAttributeBytesIndexedListCacheSize(), capacity);
    EXPECT_TRUE(GlobalCaches::CheckXDevmodeAttributeBytesIndexedListCache(nameSpace, 0, found));
    EXPECT_FALSE(GlobalCaches::CheckXDevmodeAttributeBytesIndexedListCache(nameSpace, 1, found));
    EXPECT_TRUE(GlobalCaches::CheckXDevmodeAttributeBytesIndexedListCache(nameSpace, 2, found));
    GlobalCaches::ClearXDevmodeAttributeBytesIndexedListCache();
}

TEST(GlobalCachesTest, ConcurrentUseIsSafe) {
    GlobalCaches::ClearXDevmodeAttributeBytesIndexedListCache();
    AttributeBytesIndexedList list = Indexed(TicketSettings());
    std::vector<std::thread> threads;
    std::atomic<int> mismatches{0};
    for (int t = 0; t < 4; ++t) {
        threads.emplace_back([&, t] {
            for (DWORD i = 0; i < 500; ++i) {
                AttributeBytesNameSpacesId nameSpace(t % 2);
                GlobalCaches::StoreXDevmodeAttributeBytesIndexedListCache(nameSpace, i % 40, list);
                AttributeBytesIndexedList found;
                if (GlobalCaches::CheckXDevmodeAttributeBytesIndexedListCache(nameSpace, i % 40,
                                                                              found) &&
                    !(found.GetRawList() == list.GetRawList())) {
                    ++mismatches;
                }
            }
        });
    }
    for (std::thread& thread : threads) thread.join();
    EXPECT_EQ(mismatches.load(), 0);
    EXPECT_LE(GlobalCaches::GetXDevmodeAttributeBytesIndexedListCacheSize(),
              GlobalCaches::kXDevmodeCacheCapacity);
    GlobalCaches::ClearXDevmodeAttributeBytesIndexedListCache();
}

}  // namespace
