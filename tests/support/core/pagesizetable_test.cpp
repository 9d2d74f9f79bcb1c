// Tests of the core library's page size table against the keyword table it was made from: every
// fixed-size keyword is found by its size in tenths of a millimetre, with its option name, its
// value id and its devmode paper number.

#include <gtest/gtest.h>

#include <fstream>
#include <set>
#include <sstream>
#include <string>
#include <vector>

#include "platform/com/unicode.h"
#include "support/core/zoruncoreapi.h"
#include "support/utilities/datamodelids.h"

namespace {

struct Row {
    std::string keyword;
    std::string width;
    std::string height;
    std::string paper;
};

std::vector<Row> ReadTable(const std::string& name) {
    std::ifstream file(std::string(FU_SOURCE_DIR) + "/support/core/data/" + name);
    EXPECT_TRUE(file.good()) << name;
    std::vector<Row> rows;
    std::string line;
    std::getline(file, line);  // header
    while (std::getline(file, line)) {
        std::istringstream fields(line);
        Row row;
        std::getline(fields, row.keyword, '\t');
        std::getline(fields, row.width, '\t');
        std::getline(fields, row.height, '\t');
        std::getline(fields, row.paper, '\t');
        rows.push_back(row);
    }
    return rows;
}

const ZorunCoreApi& Api() {
    const ZorunCoreApi* api = ZorunCoreGetApi(ZORUNCORE_API_VERSION);
    EXPECT_NE(api, nullptr);
    return *api;
}

std::vector<uint32_t> FindBySize(int32_t width, int32_t height) {
    uint32_t count = Api().FindPageSizesBySize(width, height, nullptr, 0);
    std::vector<uint32_t> indices(count);
    EXPECT_EQ(Api().FindPageSizesBySize(width, height, indices.data(), count), count);
    return indices;
}

const ZorunCorePageSize& ByName(const wchar_t* name) {
    int32_t index = Api().FindPageSizeByOptionName(name);
    EXPECT_GE(index, 0) << platform::WideToUtf8(name);
    return *Api().PageSizeAt(static_cast<uint32_t>(index));
}

TEST(PageSizeTableTest, EntryTable) {
    EXPECT_EQ(ZorunCoreGetApi(0), nullptr);
    EXPECT_EQ(ZorunCoreGetApi(ZORUNCORE_API_VERSION + 1), nullptr);
    EXPECT_EQ(Api().version, ZORUNCORE_API_VERSION);
    EXPECT_EQ(Api().structSize, sizeof(ZorunCoreApi));
    EXPECT_STREQ(ZORUNCORE_LIBRARY_FILE_NAME, FU_ZORUNCORE_SONAME);
}

// The Print Schema keywords come first, in table order; every keyword with a fixed size (the
// driver's own too) is found by its size and by its value id, and only entries of that size are.
TEST(PageSizeTableTest, EveryKeywordIsThereAndFoundByItsSize) {
    int sheets = 0, rolls = 0, predefined = 0;
    for (const std::string table : {"pagemediasize.tsv", "driverpagesizes.tsv"}) {
        for (const Row& row : ReadTable(table)) {
            SCOPED_TRACE(row.keyword);
            std::wstring name = platform::Utf8ToWide(row.keyword);
            int32_t index = Api().FindPageSizeByOptionName(name.c_str());
            ASSERT_GE(index, 0);
            const ZorunCorePageSize* size = Api().PageSizeAt(static_cast<uint32_t>(index));
            EXPECT_EQ(Api().FindPageSizeByValueId(size->valueId), index);
            EXPECT_EQ((size->flags & ZORUNCORE_PAGESIZE_PREDEFINED) != 0,
                      table == "pagemediasize.tsv");
            if (table == "pagemediasize.tsv") {
                EXPECT_EQ(index, predefined);
                EXPECT_EQ(size->valueId, DataModelIds::ValuePageSizeFirst + predefined++);
                EXPECT_EQ(size->devmodePaperId, row.paper.empty() ? 0 : std::stoi(row.paper));
            }
            if (row.width.empty()) continue;  // the parameterised custom sizes
            int32_t width = std::stoi(row.width) / 100;
            int32_t height = row.height.empty() ? 0 : std::stoi(row.height) / 100;
            (row.height.empty() ? rolls : sheets)++;
            std::vector<uint32_t> found = FindBySize(width, height);
            EXPECT_NE(std::find(found.begin(), found.end(), static_cast<uint32_t>(index)),
                      found.end());
            for (uint32_t other : found) {
                EXPECT_EQ(Api().PageSizeAt(other)->widthMicrons / 100, width);
                EXPECT_EQ(Api().PageSizeAt(other)->heightMicrons / 100, height);
            }
            EXPECT_EQ(size->widthMicrons, std::stoi(row.width));
            EXPECT_EQ((size->flags & ZORUNCORE_PAGESIZE_ROLL) != 0, row.height.empty());
        }
    }
    EXPECT_EQ(predefined, 172);
    EXPECT_EQ(sheets, 159 + 5);
    EXPECT_EQ(rolls, 11);
    std::set<int32_t> ids;
    for (uint32_t i = 0; i < Api().PageSizeCount(); ++i) {
        EXPECT_TRUE(ids.insert(Api().PageSizeAt(i)->valueId).second);
    }
    EXPECT_EQ(ids.size(), 177u);
    EXPECT_EQ(*ids.begin(), DataModelIds::ValuePageSizeFirst);
    EXPECT_EQ(*ids.rbegin(), DataModelIds::ValuePageSizeLast);
    EXPECT_EQ(ByName(L"ISOA4").valueId, DataModelIds::ValuePageSizeISOA4);
    EXPECT_EQ(ByName(L"NorthAmericaLetter").valueId, DataModelIds::ValuePageSizeNorthAmericaLetter);
    EXPECT_EQ(ByName(L"Ledger").valueId, DataModelIds::ValuePageSizeLedger);
}

TEST(PageSizeTableTest, SharedCutCustomAndBadSizes) {
    // Sizes shared by two keywords find both; a capacity smaller than the matches still counts
    // them all. The driver's B6 envelope has the size of the rotated PRC 3 envelope.
    std::vector<uint32_t> b4 = FindBySize(2500, 3530);
    ASSERT_EQ(b4.size(), 2u);
    EXPECT_STREQ(Api().PageSizeAt(b4[0])->optionName, L"ISOB4");
    EXPECT_STREQ(Api().PageSizeAt(b4[1])->optionName, L"ISOB4Envelope");
    uint32_t first = 0;
    EXPECT_EQ(Api().FindPageSizesBySize(2500, 3530, &first, 1), 2u);
    EXPECT_EQ(first, b4[0]);
    std::vector<uint32_t> b6 = FindBySize(1760, 1250);
    ASSERT_EQ(b6.size(), 2u);
    EXPECT_STREQ(Api().PageSizeAt(b6[1])->optionName, L"ISOB6Envelope");
    EXPECT_EQ(Api().PageSizeAt(b6[1])->flags & ZORUNCORE_PAGESIZE_PREDEFINED, 0u);
    // Monarch envelope: 98425 x 177800 micrometres, 984 x 1778 tenths.
    std::vector<uint32_t> monarch = FindBySize(984, 1778);
    ASSERT_EQ(monarch.size(), 1u);
    EXPECT_STREQ(Api().PageSizeAt(monarch[0])->optionName, L"NorthAmericaMonarchEnvelope");
    // Custom sizes are never found by size.
    const ZorunCorePageSize& custom = ByName(L"CustomMediaSize");
    EXPECT_EQ(custom.flags & ZORUNCORE_PAGESIZE_CUSTOM, ZORUNCORE_PAGESIZE_CUSTOM);
    EXPECT_EQ(custom.widthMicrons, 0);
    EXPECT_NE(ByName(L"PSCustomMediaSize").flags & ZORUNCORE_PAGESIZE_CUSTOM, 0u);
    for (uint32_t index : FindBySize(1016, 0)) {
        EXPECT_EQ(Api().PageSizeAt(index)->flags & ZORUNCORE_PAGESIZE_CUSTOM, 0u);
    }
    // clang-format off
    const std::pair<int32_t, int32_t> nothing[] = {
        {985, 1778}, {2101, 2970}, {0, 2970}, {-2100, 2970}, {2100, -2970}, {0, 0}};
    // clang-format on
    for (const auto& [width, height] : nothing) {
        EXPECT_EQ(Api().FindPageSizesBySize(width, height, nullptr, 0), 0u)
            << width << "x" << height;
    }
    EXPECT_EQ(Api().FindPageSizesBySize(2100, 2970, nullptr, 5), 1u);  // null indices: count only
    EXPECT_EQ(Api().FindPageSizeByOptionName(nullptr), -1);
    EXPECT_EQ(Api().FindPageSizeByOptionName(L"isoa4"), -1);
    EXPECT_EQ(Api().FindPageSizeByValueId(-1), -1);
    EXPECT_EQ(Api().FindPageSizeByValueId(DataModelIds::ValueAny), -1);
    EXPECT_EQ(Api().PageSizeAt(Api().PageSizeCount()), nullptr);
}

}  // namespace
