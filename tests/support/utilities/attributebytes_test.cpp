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

using Item = AttributeBytesItem;

AttributeBytesRawList List(std::initializer_list<Item> items) {
    AttributeBytesRawList list;
    for (const Item& item : items) list.Add(item);
    return list;
}

AttributeBytesIndexedList Indexed(const AttributeBytesRawList& raw) {
    AttributeBytesIndexedList list;
    list.ImportFromRawList(raw);
    return list;
}

// A ticket's driver settings as the typed ticket view reads them.
AttributeBytesRawList TicketSettings() {
    AttributeBytesRawList dimensions =
        List({Item::MakeDimension(FeaturePaperWidth, 2970.0, Dimension::TenthsOfMillimeter),
              Item::MakeDimension(FeaturePaperHeight, 16.5354, Dimension::Inches)});
    AttributeBytesRawList paper =
        List({Item::MakeInteger(FeaturePaperSize, 70001),  // a user's own paper
              Item::MakeCollection(FeatureCustomPaperDimensions, dimensions)});
    return List({Item::MakeOptionValue(FeatureFitToOutputPaper, ValueFitToOutputPaperOn),
                 Item::MakeCollection(FeatureOutputPaperSettings,
                                      List({Item::MakeCollection(FeatureOutputPaper, paper)})),
                 Item::MakeBoolean(FeatureBooklet, true),
                 Item::MakeOptionValue(FeatureBookletBindingEdge, ValueBindingEdgeRight),
                 Item::MakeInteger(FeatureBookletGutter, 12700),
                 Item::MakeInteger(FeatureBookletCreep, 300, false),
                 Item::MakeOptionValue(FeatureNUpPagesPerSheet, ValueNUp6, false),
                 Item::MakeString(FeatureWatermarkPlacement, L"not an option")});
}

TEST(AttributeBytesIndexedListTest, FindsTheFirstByFeatureIdAndKeepsStoredOrder) {
    AttributeBytesIndexedList list = Indexed(TicketSettings());
    EXPECT_EQ(list.GetCount(), 8u);
    ASSERT_NE(list.Find(FeatureBookletGutter), nullptr);
    EXPECT_EQ(list.Find(FeatureBookletGutter)->GetInteger(), 12700);
    EXPECT_EQ(list.Find(FeatureScalingMode), nullptr);
    EXPECT_EQ(list.GetRawList()[0].GetFeatureId(), FeatureFitToOutputPaper);
    EXPECT_TRUE(list.GetRawList() == TicketSettings());
    // Importing replaces; importing a list's own contents works.
    list.ImportFromRawList(list.GetRawList());
    EXPECT_EQ(list.GetCount(), 8u);
    list.ImportFromRawList(List({Item::MakeInteger(FeatureScalingPercentage, 50),
                                 Item::MakeInteger(FeatureScalingPercentage, 75)}));
    EXPECT_EQ(list.GetCount(), 2u);
    EXPECT_EQ(list.Find(FeatureScalingPercentage)->GetInteger(), 50);
    EXPECT_EQ(list.Find(FeatureBookletGutter), nullptr);
    list.Clear();
    EXPECT_TRUE(list.IsEmpty());
    EXPECT_EQ(list.Find(FeatureScalingPercentage), nullptr);
    // Values of another type read as zero; items differ by type and by the specified flag.
    Item item = Item::MakeString(1, L"text");
    EXPECT_EQ(item.GetOptionValue(), ValueUnspecified);
    EXPECT_EQ(item.GetInteger(), 0);
    EXPECT_FALSE(item.GetBoolean());
    EXPECT_EQ(item.GetDimensionUnit(), 0);
    EXPECT_TRUE(item.GetCollection().IsEmpty());
    EXPECT_TRUE(Item::MakeInteger(1, 3).GetString().empty());
    EXPECT_NE(Item::MakeInteger(1, 3), Item::MakeInteger(1, 3, false));
    EXPECT_NE(Item::MakeInteger(1, 3), Item::MakeOptionValue(1, static_cast<tagValueEnum>(3)));
}

TEST(AttributeBytesReaderTest, TypedReadsDefaultsAndSpecifiedFlags) {
    AttributeBytesReader reader(Indexed(TicketSettings()));
    auto option = [&](long feature, tagValueEnum fallback) {
        return reader.GetOptionValueFromAttributeBytes(feature, fallback);
    };
    EXPECT_EQ(option(FeatureFitToOutputPaper, ValueUnspecified), ValueFitToOutputPaperOn);
    EXPECT_EQ(option(FeatureScalingMode, ValueScalingModeNone), ValueScalingModeNone);
    // An attribute of another type gives the default; an unspecified one still has its value.
    EXPECT_EQ(option(FeatureWatermarkPlacement, ValueWatermarkBehindContent),
              ValueWatermarkBehindContent);
    EXPECT_EQ(option(FeatureNUpPagesPerSheet, ValueNUp1), ValueNUp6);
    EXPECT_EQ(reader.GetIntegerValueFromAttributeBytes(FeatureBooklet, -1), -1);
    EXPECT_EQ(reader.GetIntegerValueFromAttributeBytes(FeatureBookletGutter, 0), 12700);
    EXPECT_EQ(reader.GetStringValueFromAttributeBytes(FeatureWatermarkPlacement, L"none"),
              CXString(L"not an option"));
    EXPECT_EQ(reader.GetStringValueFromAttributeBytes(FeatureWatermark, L"none"), L"none");
    EXPECT_TRUE(reader.IsSpecifiedInAttributeBytes(FeatureBookletGutter));
    EXPECT_FALSE(reader.IsSpecifiedInAttributeBytes(FeatureBookletCreep));
    EXPECT_FALSE(reader.IsSpecifiedInAttributeBytes(FeatureNUpPagesPerSheet));
    EXPECT_FALSE(reader.IsSpecifiedInAttributeBytes(FeatureScalingMode));
    AttributeBytesReader booleans(Indexed(List({Item::MakeBoolean(FeatureBooklet, true, false),
                                                Item::MakeBoolean(FeatureEdgeToEdge, false)})));
    bool specified = true;
    EXPECT_TRUE(booleans.GetBooleanValueFromAttributeBytes(FeatureBooklet, false, &specified));
    EXPECT_FALSE(specified);
    EXPECT_FALSE(booleans.GetBooleanValueFromAttributeBytes(FeatureEdgeToEdge, true, &specified));
    EXPECT_TRUE(specified);
    EXPECT_TRUE(booleans.GetBooleanValueFromAttributeBytes(FeatureScalingMode, true, &specified));
    EXPECT_FALSE(specified);
    EXPECT_TRUE(booleans.GetBooleanValueFromAttributeBytes(FeatureBooklet, false));
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
    // Option values or new ids come from options and integers only.
    AttributeBytesIndexedList options =
        Indexed(List({Item::MakeOptionValue(FeaturePaperSize, ValuePageSizeISOA3),
                      Item::MakeBoolean(FeatureBooklet, true)}));
    EXPECT_EQ(AttributeBytesReader::GetOptionValueOrNewId(options, FeaturePaperSize, ValueAny),
              ValuePageSizeISOA3);
    EXPECT_EQ(AttributeBytesReader::GetOptionValueOrNewId(options, FeatureBooklet, ValueAny),
              ValueAny);
    EXPECT_EQ(AttributeBytesReader::GetOptionValueOrNewId(options, FeatureScalingMode, ValueAny),
              ValueAny);
    // Absent collection: false and an emptied list; reading into the source list itself works.
    EXPECT_FALSE(AttributeBytesReader::GetCollection(paper, FeatureOutputPaper, dimensions));
    EXPECT_TRUE(dimensions.IsEmpty());
    EXPECT_TRUE(AttributeBytesReader::GetCollection(paper, FeatureCustomPaperDimensions, paper));
    EXPECT_NE(paper.Find(FeaturePaperWidth), nullptr);
    EXPECT_EQ(AttributeBytesReader::GetDimensionValue(paper, FeaturePaperSize, none)
                  .GetDoubleValue(Dimension::Microns),
              0.0);
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

TEST(AttributeBytesReaderTest, ReadsGoThroughTheVirtualListAccessorCopyAndDump) {
    CountingReader counting;
    EXPECT_EQ(counting.GetIntegerValueFromAttributeBytes(FeatureBookletGutter, 0), 12700);
    EXPECT_TRUE(counting.IsSpecifiedInAttributeBytes(FeatureBooklet));
    EXPECT_EQ(counting.m_calls, 2);
    // The base class's own list is another one, and empty.
    EXPECT_TRUE(static_cast<const AttributeBytesReader&>(counting)
                    .GetAttributeBytesIndexedListRef()
                    .IsEmpty());
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
    for (const char* line :
         {"8 attributes", "feature 312 (specified): integer 12700", "feature 313: integer 300",
          "    feature 168 (specified): integer 70001"}) {
        EXPECT_NE(dump.find(line), std::string::npos) << line;
    }
}

TEST(GlobalCachesTest, KeepsListsByNameSpaceAndCrcAndForgetsTheLeastRecentlyUsed) {
    GlobalCaches::ClearXDevmodeAttributeBytesIndexedListCache();
    AttributeBytesIndexedList stored = Indexed(TicketSettings()), found;
    AttributeBytesNameSpacesId document(1), printer(2);
    auto check = [&](AttributeBytesNameSpacesId nameSpace, DWORD crc) {
        return GlobalCaches::CheckXDevmodeAttributeBytesIndexedListCache(nameSpace, crc, found);
    };
    auto store = [](AttributeBytesNameSpacesId nameSpace, DWORD crc,
                    const AttributeBytesIndexedList& list) {
        GlobalCaches::StoreXDevmodeAttributeBytesIndexedListCache(nameSpace, crc, list);
    };
    EXPECT_FALSE(check(document, 7));
    EXPECT_TRUE(found.IsEmpty());
    store(document, 7, stored);
    EXPECT_TRUE(check(document, 7));
    EXPECT_TRUE(found.GetRawList() == stored.GetRawList());
    EXPECT_FALSE(check(printer, 7));
    EXPECT_FALSE(check(document, 8));
    // Empty lists are not kept; storing again under the same key replaces.
    store(printer, 9, AttributeBytesIndexedList());
    EXPECT_EQ(GlobalCaches::GetXDevmodeAttributeBytesIndexedListCacheSize(), 1u);
    store(document, 7, Indexed(List({Item::MakeInteger(1, 1)})));
    EXPECT_EQ(GlobalCaches::GetXDevmodeAttributeBytesIndexedListCacheSize(), 1u);
    EXPECT_TRUE(check(document, 7));
    EXPECT_EQ(found.GetCount(), 1u);
    // Bounded: using CRC 0 makes CRC 1 the least recently used one, forgotten first.
    const DWORD capacity = GlobalCaches::kXDevmodeCacheCapacity;
    for (DWORD crc = 0; crc < capacity; ++crc) store(printer, crc, stored);
    EXPECT_TRUE(check(printer, 0));
    store(printer, capacity, stored);
    EXPECT_EQ(GlobalCaches::GetXDevmodeAttributeBytesIndexedListCacheSize(), capacity);
    EXPECT_TRUE(check(printer, 0));
    EXPECT_FALSE(check(printer, 1));
    EXPECT_TRUE(check(printer, 2));
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
