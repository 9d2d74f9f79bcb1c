// Tests of the page size dictionary as the filter library sees it: the core library is opened
// through the delay loader (found here in the printer driver directory's "3" subfolder, as the
// test program has no core library beside it), entries are found by the sizes of form records,
// and a process without a core library gets the load-failure exception.

#include <gtest/gtest.h>

#include <cmath>

#include "loadertestsupport.h"
#include "platform/win32/printers.h"
#include "support/utilities/exceptions.h"
#include "utilitiesstaticlib/corelibrary.h"
#include "utilitiesstaticlib/dlldelayloader.h"
#include "utilitiesstaticlib/pagesizedictionary.h"
#include "testsupport/scratch.h"

namespace {

using namespace loadertest;

// For the whole program: a driver directory whose "3" subfolder holds the core library.
class CoreLibraryEnvironment : public ::testing::Environment {
public:
    void SetUp() override {
        m_directory = testsupport::ScratchDirectory("core");
        fs::create_directories(m_directory / "3");
        fs::remove(m_directory / "3" / ZORUNCORE_LIBRARY_FILE_NAME);
        fs::create_symlink(FU_ZORUNCORE_FILE, m_directory / "3" / ZORUNCORE_LIBRARY_FILE_NAME);
        setenv("FU_PRINTER_DRIVER_DIRECTORY", m_directory.c_str(), 1);
    }
    void TearDown() override { fs::remove_all(m_directory); }

private:
    fs::path m_directory;
};

::testing::Environment* const g_coreEnvironment =
    ::testing::AddGlobalTestEnvironment(new CoreLibraryEnvironment);

Dimension Tenths(double value) {
    return Dimension(value, Dimension::TenthsOfMillimeter);
}
Dimension Microns(double value) {
    return Dimension(value, Dimension::Microns);
}

std::vector<std::wstring> NamesOf(const std::vector<const PageSizeDictionaryEntry*>& entries) {
    std::vector<std::wstring> names;
    for (const PageSizeDictionaryEntry* entry : entries) {
        names.emplace_back(entry->GetMsPageMediaSizeOptionName());
    }
    return names;
}

TEST(PageSizeDictionaryTest, OpensTheCoreLibraryThroughTheDelayLoader) {
    PageSizeDictionary dictionary(nullptr);
    EXPECT_EQ(dictionary.GetEntryCount(), 177u);
    std::vector<std::string> recorded = DllDelayLoader::GetProcessLoader().GetLoadedLibraryNames();
    EXPECT_EQ(std::count(recorded.begin(), recorded.end(), ZORUNCORE_LIBRARY_FILE_NAME), 1);
    PageSizeDictionary second(nullptr);
    recorded = DllDelayLoader::GetProcessLoader().GetLoadedLibraryNames();
    EXPECT_EQ(std::count(recorded.begin(), recorded.end(), ZORUNCORE_LIBRARY_FILE_NAME), 1);
}

// Lengths are cut to whole tenths of a millimetre, in any unit; bad lengths find nothing.
TEST(PageSizeDictionaryTest, FormRecordSizesFindTheirEntries) {
    PageSizeDictionary dictionary(nullptr);
    using Names = std::vector<std::wstring>;
    const Dimension odd(2100, static_cast<Dimension::UnitsEnum>(42));
    // clang-format off
    const struct {
        const char* name;
        Dimension width, height;
        Names found;
    } rows[] = {
        {"A4", Tenths(2100), Tenths(2970), {L"ISOA4"}},
        {"letter and note", Tenths(2159), Tenths(2794), {L"NorthAmericaLetter", L"NorthAmericaNote"}},
        {"micrometres cut", Microns(210050), Microns(297099), {L"ISOA4"}},
        {"a tenth more", Microns(210100), Microns(297000), {}},
        {"inches", Dimension(8.5, Dimension::Inches), Dimension(14, Dimension::Inches), {L"NorthAmericaLegal"}},
        {"a roll", Dimension(4, Dimension::Inches), Microns(0), {L"Roll04Inch"}},
        {"zero width", Tenths(0), Tenths(2970), {}}, {"negative width", Tenths(-2100), Tenths(2970), {}},
        {"negative height", Tenths(2100), Tenths(-2970), {}}, {"NaN", Tenths(std::nan("")), Tenths(2970), {}},
        {"infinity", Tenths(INFINITY), Tenths(2970), {}}, {"huge", Tenths(1e300), Tenths(1e300), {}},
        {"unknown unit", odd, Tenths(2970), {}}};
    // clang-format on
    for (const auto& row : rows) {
        SCOPED_TRACE(row.name);
        EXPECT_EQ(NamesOf(dictionary.GetPageSizeEntryRefs(row.width, row.height)), row.found);
    }
    const PageSizeDictionaryEntry* a4 =
        dictionary.GetPageSizeEntryRefs(Tenths(2100), Tenths(2970))[0];
    EXPECT_EQ(a4->GetValueId().GetValueEnum(), DataModelIds::ValuePageSizeISOA4);
    EXPECT_TRUE(a4->IsPredefinedMsOptionName());
    EXPECT_EQ(a4->GetDevmodePaperId(), 9);
    EXPECT_EQ(a4->GetWidth().GetDoubleValue(Dimension::Millimeters), 210.0);
    EXPECT_EQ(a4->GetHeight().GetDoubleValue(Dimension::Millimeters), 297.0);
    const PageSizeDictionaryEntry* ledger =
        dictionary.GetPageSizeEntryRefs(Tenths(4318), Tenths(2794))[0];
    EXPECT_FALSE(ledger->IsPredefinedMsOptionName());  // the driver's own name
    EXPECT_EQ(ledger->GetValueId().GetValueEnum(), DataModelIds::ValuePageSizeLedger);
    EXPECT_EQ(dictionary.GetPageSizeEntryRef(ValueId(DataModelIds::ValueAny)), nullptr);
    EXPECT_EQ(dictionary.GetPageSizeEntryRefByOptionName(nullptr), nullptr);
    EXPECT_EQ(dictionary.GetPageSizeEntryRefByOptionName(L"A4"), nullptr);
}

TEST(PageSizeDictionaryTest, EveryEntryWithASizeIsFoundByIt) {
    PageSizeDictionary dictionary(nullptr);
    int found = 0;
    for (std::size_t i = 0; i < dictionary.GetEntryCount(); ++i) {
        const PageSizeDictionaryEntry& entry = dictionary.GetEntry(i);
        EXPECT_EQ(dictionary.GetPageSizeEntryRef(entry.GetValueId()), &entry);
        EXPECT_EQ(dictionary.GetPageSizeEntryRefByOptionName(entry.GetMsPageMediaSizeOptionName()),
                  &entry);
        if (entry.IsCustomSize()) continue;
        // As a form record holds it: whole tenths of a millimetre.
        std::vector<const PageSizeDictionaryEntry*> bySize = dictionary.GetPageSizeEntryRefs(
            Tenths(entry.GetWidthMicrons() / 100), Tenths(entry.GetHeightMicrons() / 100));
        EXPECT_NE(std::find(bySize.begin(), bySize.end(), &entry), bySize.end())
            << entry.GetMsPageMediaSizeOptionName();
        ++found;
    }
    EXPECT_EQ(found, 175);
}

class GermanNames : public ProductStringLoader {
public:
    bool LoadProductString(DataModelIds::tagValueEnum value, CXString& text) const override {
        if (value != DataModelIds::ValuePageSizeISOA4) return false;
        text = L"DIN A4";
        return true;
    }
};

TEST(PageSizeDictionaryTest, DisplayNamesComeFromTheStringLoader) {
    GermanNames loader;
    PageSizeDictionary withLoader(&loader);
    PageSizeDictionary without(nullptr);
    ValueId a4(DataModelIds::ValuePageSizeISOA4), a3(DataModelIds::ValuePageSizeISOA3);
    EXPECT_EQ(withLoader.GetPageSizeEntryRef(a4)->GetDisplayName(), CXString(L"DIN A4"));
    EXPECT_EQ(withLoader.GetPageSizeEntryRef(a3)->GetDisplayName(), CXString(L"ISOA3"));
    EXPECT_EQ(without.GetPageSizeEntryRef(a4)->GetDisplayName(), CXString(L"ISOA4"));
}

TEST(PageSizeDictionaryTest, SamplePrinterFormsNameTheirPageSizes) {
    // The forms of the sample printer that the dictionary names (predefined, known to the
    // dictionary, standard) are found by their size with their data-model value.
    ScopedEnvironment registry("FU_PRINTER_REGISTRY",
                               std::string(FU_SOURCE_DIR) + "/samples/printers");
    platform::PrinterConfiguration sample =
        platform::ReadPrinterConfiguration(L"Zorun Sample Printer");
    ASSERT_TRUE(sample.known);
    PageSizeDictionary dictionary(nullptr);
    int named = 0;
    for (const MSDeviceCapabilities::_tag_FormsInfoRec& form : sample.forms) {
        if (form.kind != 25001 && form.kind != 25002 && form.kind != 25004) continue;
        bool match = false;
        for (const PageSizeDictionaryEntry* entry :
             dictionary.GetPageSizeEntryRefs(Tenths(form.width), Tenths(form.height))) {
            match = match || entry->GetValueId().GetValueEnum() == form.dataModelValue;
        }
        EXPECT_TRUE(match) << form.dataModelValue << " " << form.width << "x" << form.height;
        ++named;
    }
    EXPECT_EQ(named, 8);
}

TEST(PageSizeDictionaryDeathTest, NoCoreLibraryAnywhereRaisesTheLoadFailure) {
    GTEST_FLAG_SET(death_test_style, "threadsafe");  // a fresh process: nothing bound yet
    EXPECT_EXIT(
        {
            setenv("FU_PRINTER_DRIVER_DIRECTORY", "/nonexistent/fu-drivers", 1);
            int code = 1;
            try {
                PageSizeDictionary dictionary(nullptr);
            } catch (const ExceptionDelayLoadDllLoadFailure&) {
                code = 3;
            }
            std::_Exit(code);
        },
        ::testing::ExitedWithCode(3), "");
}

}  // namespace
