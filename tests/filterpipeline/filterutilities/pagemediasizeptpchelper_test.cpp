// Tests of PageMediaSizePtPcHelper: the driver's form list as an impersonating filter sees it,
// the filtering passes, the size match with its truncation and custom-size fallback, option
// names, and the PageMediaSize a ticket gets, down to every fixed-size page of the dictionary.
#include "filterpipeline/filterutilities/pagemediasizeptpchelper.h"

#include <gtest/gtest.h>

#include <string>
#include <vector>

#include "documenttesting.h"
#include "filterpipeline/filterutilities/xpsfilterprintticket.h"
#include "mediasizetesting.h"
#include "privatedatatesting.h"
#include "support/utilities/setthreadtokenwrapper.h"
#include "utilitiesstaticlib/pagesizedictionary.h"

namespace {

using namespace documenttesting;
using namespace mediasizetesting;
using Helper = PageMediaSizePtPcHelper;
using PrintSchema::MsPrintTicketKeywordsNamespace;
using PrintSchema::MsPrintTicketNamespacesEnum;
using PrintSchema::MsPrintTicketUserKeywordsNamespace;

constexpr INT32 kA4 = DataModelIds::ValuePageSizeISOA4;
constexpr INT32 kJisB5 = DataModelIds::ValuePageSizeJISB5;
constexpr INT32 kLetter = DataModelIds::ValuePageSizeNorthAmericaLetter;

std::wstring PrivateDeclaration() {
    return L" xmlns:zk='" + kPrivate + L"'";
}

// A ticket with the private-keywords namespace declared, holding `body`.
std::unique_ptr<PrintTicketXmlDocument> MakeTicket(const std::wstring& body = L"") {
    CComPtr<IXMLDOMDocument2> dom = LoadXml(Ticket(body, PrivateDeclaration()));
    if (!dom) return nullptr;
    return std::make_unique<PrintTicketXmlDocument>(dom);
}

std::wstring IntegerInit(const std::wstring& name, int value) {
    return L"<psf:ParameterInit name='psk:" + name + L"'><psf:Value xsi:type='xsd:integer'>" +
           std::to_wstring(value) + L"</psf:Value></psf:ParameterInit>";
}

std::wstring Feature(const std::wstring& name, const std::wstring& option) {
    return L"<psf:Feature name='psk:" + name + L"'><psf:Option name='psk:" + option +
           L"'/></psf:Feature>";
}

std::vector<std::pair<DWORD, INT32>> KindsAndValues(const Helper::FormsInfoList& forms) {
    std::vector<std::pair<DWORD, INT32>> result;
    for (const Form& form : forms) result.emplace_back(form.kind, form.dataModelValue);
    return result;
}

// --- The form list ---

TEST(PageMediaSizeFormListTest, AThreadThatDoesNotImpersonateGetsNoForms) {
    ScopedEnvironment registry("FU_PRINTER_REGISTRY", SampleRegistry());
    ASSERT_FALSE(SetThreadTokenWrapper::IsThisThreadImpersonating());
    CXString printer(kSamplePrinter);
    EXPECT_TRUE(Helper::GetPaperInfoForAnXpsFilter(printer).empty());
    // The printer does have forms: the driver reports them when asked directly.
    EXPECT_EQ(DeviceCapabilitiesW(printer, nullptr, DC_PRIVATE_FORMS, nullptr, nullptr), 11);
}

TEST(PageMediaSizeFormListTest, AnImpersonatingThreadGetsTheDriversFormsInOrder) {
    ScopedEnvironment registry("FU_PRINTER_REGISTRY", SampleRegistry());
    ProcessToken token;
    SetThreadTokenWrapper impersonation(token.Get());
    ASSERT_TRUE(impersonation.Succeeded());
    CXString printer(kSamplePrinter);
    Helper::FormsInfoList forms = Helper::GetPaperInfoForAnXpsFilter(printer);
    ASSERT_EQ(forms.size(), 11u);
    EXPECT_EQ(forms[0].kind, 25001u);
    EXPECT_EQ(forms[0].width, 2100u);
    EXPECT_EQ(forms[0].height, 2970u);
    EXPECT_EQ(forms[0].dataModelValue, kA4);
    EXPECT_EQ(forms[8].paperId, 258);
    EXPECT_EQ(forms[10].kind, 25008u);

    CXString unknown(L"No Such Printer");
    EXPECT_TRUE(Helper::GetPaperInfoForAnXpsFilter(unknown).empty());
}

TEST(PageMediaSizeFormListTest, TheFilteredListImpersonatesOnlyForTheCall) {
    ScopedEnvironment registry("FU_PRINTER_REGISTRY", SampleRegistry());
    ProcessToken token;
    CXString printer(kSamplePrinter);
    Helper::FormsInfoList forms = Helper::GetFilteredPaperInfoForAnXpsFilter(printer, token.Get());
    EXPECT_FALSE(SetThreadTokenWrapper::IsThisThreadImpersonating());
    // A4, Letter, A3 and the custom entry; then A5, Legal, Monarch (standard); the photo form
    // (user); the banner (driver custom). B5 (JIS) and Ledger are known to the dictionary.
    const std::vector<std::pair<DWORD, INT32>> expected = {
        {25001, kA4},
        {25001, kLetter},
        {25001, DataModelIds::ValuePageSizeISOA3},
        {25008, DataModelIds::ValuePageSizeCustomMediaSize},
        {25004, DataModelIds::ValuePageSizeISOA5},
        {25004, DataModelIds::ValuePageSizeNorthAmericaLegal},
        {25004, DataModelIds::ValuePageSizeNorthAmericaMonarchEnvelope},
        {25005, 70001},
        {25003, 70002}};
    EXPECT_EQ(KindsAndValues(forms), expected);

    // A token that is not a token impersonates nothing: no forms.
    EXPECT_TRUE(Helper::GetFilteredPaperInfoForAnXpsFilter(printer, nullptr).empty());
}

TEST(PageMediaSizeFilterTest, KeepsOnlyTheFirstFormOfEachSize) {
    const Helper::FormsInfoList forms = {
        MakeForm(25004, 9, 2100, 2970, kA4), MakeForm(25001, 9, 2100, 2970, kA4),
        MakeForm(25005, 300, 2100, 2970, 70001), MakeForm(25002, 13, 1820, 2570, kJisB5)};
    const Helper::FormsInfoList kept = Helper::FilterPaperSizeListForPrintTicket(forms);
    ASSERT_EQ(kept.size(), 1u);
    EXPECT_EQ(kept[0].kind, 25001u);
    EXPECT_EQ(kept[0].dataModelValue, kA4);
}

TEST(PageMediaSizeFilterTest, PassesRunByKindAndKeepInputOrderWithinAPass) {
    const Helper::FormsInfoList forms = {
        MakeForm(25003, 257, 500, 500, 1),    // driver custom, size free: fourth pass
        MakeForm(25005, 258, 600, 600, 2),    // user: third pass
        MakeForm(25008, 256, 2100, 2970, 3),  // custom entry: first pass
        MakeForm(25004, 5, 700, 700, 4),      // standard: second pass
        MakeForm(25001, 9, 800, 800, 5),      // predefined: first pass
        MakeForm(25004, 6, 700, 700, 6),      // standard of a size the second pass just kept
        MakeForm(25005, 259, 2100, 2970, 7),  // the custom entry's size is listed already
        MakeForm(25003, 260, 600, 600, 8),    // the user form's size
        MakeForm(25006, 1, 900, 900, 9),      // unknown kind
        MakeForm(0, 1, 1000, 1000, 10),       // unknown kind
        MakeForm(25001, 9, 800, 800, 11),     // predefined forms are all kept
    };
    const std::vector<std::pair<DWORD, INT32>> expected = {{25008, 3}, {25001, 5}, {25001, 11},
                                                           {25004, 4}, {25005, 2}, {25003, 1}};
    EXPECT_EQ(KindsAndValues(Helper::FilterPaperSizeListForPrintTicket(forms)), expected);
    EXPECT_TRUE(Helper::FilterPaperSizeListForPrintTicket({}).empty());
}

TEST(PageMediaSizeFilterTest, ASizeIsTheSameOnlyWhenWidthAndHeightBothAre) {
    const Helper::FormsInfoList forms = {MakeForm(25001, 9, 2100, 2970, kA4),
                                         MakeForm(25004, 0, 2970, 2100, 1),   // rotated
                                         MakeForm(25004, 0, 2100, 2971, 2)};  // 0.1 mm taller
    EXPECT_EQ(Helper::FilterPaperSizeListForPrintTicket(forms).size(), 3u);
}

// --- The size match ---

class FindFormInfoRectTest : public ::testing::Test {
protected:
    const Form a4 = MakeForm(25001, 9, 2100, 2970, kA4);
    const Form custom =
        MakeForm(25008, 256, 2159, 2794, DataModelIds::ValuePageSizeCustomMediaSize);
    const Form untouched = MakeForm(7, 7, 7, 7, 7);
};

TEST_F(FindFormInfoRectTest, MatchesInWholeTenthsOfAMillimetreTruncated) {
    const Helper::FormsInfoList forms = {a4};
    Form found = untouched;
    EXPECT_EQ(Helper::FindFormInfoRect(forms, 210000, 297000, DataModelIds::ValueAny, &found),
              S_OK);
    EXPECT_EQ(found.width, 2100u);
    EXPECT_EQ(found.height, 2970u);
    EXPECT_EQ(found.dataModelValue, kA4);

    found = untouched;
    EXPECT_EQ(Helper::FindFormInfoRect(forms, 210050, 297099, DataModelIds::ValueAny, &found),
              S_OK);
    EXPECT_EQ(found.dataModelValue, kA4);

    for (auto [width, height] : {std::pair{210100, 297000}, std::pair{210000, 297100},
                                 std::pair{209999, 297000}, std::pair{210000, 296999}}) {
        found = untouched;
        EXPECT_EQ(Helper::FindFormInfoRect(forms, width, height, DataModelIds::ValueAny, &found),
                  S_FALSE)
            << width << "x" << height;
        EXPECT_EQ(found.kind, 7u) << "without a custom-size entry the record stays as it was";
    }
}

TEST_F(FindFormInfoRectTest, PrefersTheFormOfTheAskedValue) {
    const Form note = MakeForm(25004, 1, 2159, 2794, DataModelIds::ValuePageSizeNorthAmericaNote);
    const Form letter = MakeForm(25001, 1, 2159, 2794, kLetter);
    const Helper::FormsInfoList forms = {note, letter};
    Form found{};
    EXPECT_EQ(
        Helper::FindFormInfoRect(forms, 215900, 279400, DataModelIds::ValuePageSizeLedger, &found),
        S_OK);
    EXPECT_EQ(found.dataModelValue, DataModelIds::ValuePageSizeNorthAmericaNote)
        << "no form of that value: the first of the size";
    EXPECT_EQ(Helper::FindFormInfoRect(forms, 215900, 279400,
                                       static_cast<DataModelIds::tagValueEnum>(kLetter), &found),
              S_OK);
    EXPECT_EQ(found.dataModelValue, kLetter);
    EXPECT_EQ(Helper::FindFormInfoRect(forms, 215900, 279400, DataModelIds::ValueAny, &found),
              S_OK);
    EXPECT_EQ(found.dataModelValue, DataModelIds::ValuePageSizeNorthAmericaNote);
}

TEST_F(FindFormInfoRectTest, WithoutAMatchTheCustomEntryIsResizedAndTheResultIsSFalse) {
    const Helper::FormsInfoList forms = {a4, custom, MakeForm(25008, 256, 1, 1, 99)};
    Form found = untouched;
    EXPECT_EQ(Helper::FindFormInfoRect(forms, 123456, 654321, DataModelIds::ValueAny, &found),
              S_FALSE);
    EXPECT_EQ(found.kind, 25008u);
    EXPECT_EQ(found.paperId, 256);
    EXPECT_EQ(found.dataModelValue, custom.dataModelValue) << "the first custom entry";
    EXPECT_EQ(found.width, 1234u);
    EXPECT_EQ(found.height, 6543u);
}

TEST_F(FindFormInfoRectTest, TheCustomEntryIsNeverMatchedBySize) {
    const Helper::FormsInfoList forms = {custom};
    Form found = untouched;
    EXPECT_EQ(Helper::FindFormInfoRect(forms, 215900, 279400, DataModelIds::ValueAny, &found),
              S_FALSE);
    EXPECT_EQ(found.kind, 25008u);
}

TEST_F(FindFormInfoRectTest, OnlyTheLowSixteenBitsOfTheTenthsTakePart) {
    const Helper::FormsInfoList forms = {a4, custom};
    Form found{};
    EXPECT_EQ(Helper::FindFormInfoRect(forms, (65536 + 2100) * 100, 297000, DataModelIds::ValueAny,
                                       &found),
              S_OK);
    EXPECT_EQ(found.dataModelValue, kA4);

    // Negative sizes wrap the same way and match nothing here: the custom entry, resized.
    EXPECT_EQ(Helper::FindFormInfoRect(forms, -210000, -50, DataModelIds::ValueAny, &found),
              S_FALSE);
    EXPECT_EQ(found.width, 65536u - 2100u);
    EXPECT_EQ(found.height, 0u);
    EXPECT_EQ(Helper::FindFormInfoRect(forms, 0, 0, DataModelIds::ValueAny, &found), S_FALSE);
    EXPECT_EQ(found.width, 0u);
}

TEST_F(FindFormInfoRectTest, NullOutputAndEmptyListsAreHandled) {
    EXPECT_EQ(Helper::FindFormInfoRect({a4}, 210000, 297000, DataModelIds::ValueAny, nullptr),
              E_POINTER);
    Form found = untouched;
    EXPECT_EQ(Helper::FindFormInfoRect({}, 210000, 297000, DataModelIds::ValueAny, &found),
              S_FALSE);
    EXPECT_EQ(found.kind, 7u);
}

// --- Option names ---

class OptionNameTest : public ::testing::Test {
protected:
    // Name and namespace, starting from a name and namespace the call must overwrite.
    std::pair<std::wstring, MsPrintTicketNamespacesEnum> Name(const Form& form, bool isCustom,
                                                              bool isPostScript,
                                                              const wchar_t* initial = L"") {
        CXString name(initial);
        MsPrintTicketNamespacesEnum ns = PrintSchema::MsPrintTicketFrameworkNamespace;
        Helper::GetMsPageMediaSizeOptionName(isCustom, isPostScript, m_dictionary, form, &name,
                                             &ns);
        return {name.Str(), ns};
    }

    PageSizeDictionary m_dictionary{nullptr};
};

TEST_F(OptionNameTest, UserFormsAndDriverCustomSizesArePrivateNames) {
    EXPECT_EQ(
        Name(MakeForm(25005, 258, 1000, 2000, 70001), false, false),
        std::pair(std::wstring(L"UserForm_258_1000x2000"), MsPrintTicketUserKeywordsNamespace));
    EXPECT_EQ(Name(MakeForm(25003, 257, 2100, 9000, 70002), false, true),
              std::pair(std::wstring(L"DriverCustomSize_257_2100x9000"),
                        MsPrintTicketUserKeywordsNamespace));
    EXPECT_EQ(Name(MakeForm(25005, 65535, 4294967295u, 0, 1), false, false).first,
              L"UserForm_65535_4294967295x0");
}

TEST_F(OptionNameTest, CustomSizesAreNamedBeforeTheirKindIsLookedAt) {
    const Form form = MakeForm(12345, 256, 1000, 1000, 0);
    EXPECT_EQ(Name(form, true, false),
              std::pair(std::wstring(L"CustomMediaSize"), MsPrintTicketKeywordsNamespace));
    EXPECT_EQ(Name(form, true, true),
              std::pair(std::wstring(L"PSCustomMediaSize"), MsPrintTicketKeywordsNamespace));
}

TEST_F(OptionNameTest, DictionaryFormsTakeTheNameOfTheEntryOfTheirSizeAndValue) {
    for (DWORD kind : {25001u, 25002u, 25004u}) {
        EXPECT_EQ(Name(MakeForm(kind, 9, 2100, 2970, kA4), false, false),
                  std::pair(std::wstring(L"ISOA4"), MsPrintTicketKeywordsNamespace))
            << kind;
    }
    // Two entries of one size: the value decides.
    EXPECT_EQ(Name(MakeForm(25001, 1, 2159, 2794, DataModelIds::ValuePageSizeNorthAmericaNote),
                   false, false)
                  .first,
              L"NorthAmericaNote");
    EXPECT_EQ(Name(MakeForm(25001, 1, 2159, 2794, kLetter), false, false).first,
              L"NorthAmericaLetter");
    // The driver's own sizes are private names.
    EXPECT_EQ(Name(MakeForm(25002, 4, 4318, 2794, DataModelIds::ValuePageSizeLedger), false, false),
              std::pair(std::wstring(L"Ledger"), MsPrintTicketUserKeywordsNamespace));
}

TEST_F(OptionNameTest, AFormTheDictionaryDoesNotKnowKeepsTheNameItHad) {
    // A size of no entry, and an entry's size with another entry's value.
    EXPECT_EQ(Name(MakeForm(25001, 9, 2101, 2970, kA4), false, false, L"before"),
              std::pair(std::wstring(L"before"), MsPrintTicketKeywordsNamespace));
    EXPECT_EQ(Name(MakeForm(25004, 9, 2100, 2970, kLetter), false, false, L""),
              std::pair(std::wstring(L""), MsPrintTicketKeywordsNamespace));
}

TEST_F(OptionNameTest, OtherKindsAndNullOutputsThrow) {
    CXString name;
    MsPrintTicketNamespacesEnum ns = MsPrintTicketKeywordsNamespace;
    for (DWORD kind : {25008u, 25006u, 0u, 4294967295u}) {
        EXPECT_EQ(ThrownHresult([&] {
                      Helper::GetMsPageMediaSizeOptionName(false, false, m_dictionary,
                                                           MakeForm(kind, 9, 2100, 2970, kA4),
                                                           &name, &ns);
                  }),
                  E_FAIL)
            << kind;
    }
    const Form a4 = MakeForm(25001, 9, 2100, 2970, kA4);
    EXPECT_EQ(ThrownHresult([&] {
                  Helper::GetMsPageMediaSizeOptionName(false, false, m_dictionary, a4, nullptr,
                                                       &ns);
              }),
              E_POINTER);
    EXPECT_EQ(ThrownHresult([&] {
                  Helper::GetMsPageMediaSizeOptionName(true, false, m_dictionary, a4, &name,
                                                       nullptr);
              }),
              E_POINTER);
    EXPECT_EQ(ThrownFunction([&] {
                  Helper::GetMsPageMediaSizeOptionName(false, false, m_dictionary,
                                                       MakeForm(1, 9, 2100, 2970, kA4), &name, &ns);
              }),
              L"PageMediaSizePtPcHelper::GetMsPageMediaSizeOptionName");
}

TEST_F(OptionNameTest, TheFormWithoutADictionaryOpensItsOwn) {
    CXString name;
    MsPrintTicketNamespacesEnum ns = MsPrintTicketUserKeywordsNamespace;
    Helper::GetMsPageMediaSizeOptionName(
        false, false, MakeForm(25001, 8, 2970, 4200, DataModelIds::ValuePageSizeISOA3), &name, &ns);
    EXPECT_EQ(name, L"ISOA3");
    EXPECT_EQ(ns, MsPrintTicketKeywordsNamespace);
}

// --- The ticket's PageMediaSize ---

const wchar_t* const kAllSevenInits[] = {
    L"PageMediaSizePSWidth",        L"PageMediaSizePSHeight",      L"PageMediaSizePSWidthOffset",
    L"PageMediaSizePSHeightOffset", L"PageMediaSizePSOrientation", L"PageMediaSizeMediaSizeWidth",
    L"PageMediaSizeMediaSizeHeight"};

TEST(PageMediaSizeTicketTest, DeletesTheFeatureAndTheSevenParameterInits) {
    std::wstring body = Feature(L"PageOrientation", L"Portrait") +
                        Feature(L"PageMediaSize", L"ISOA4") + IntegerInit(L"JobCopies", 2);
    for (const wchar_t* name : kAllSevenInits) body += IntegerInit(name, 5);
    // The same names in the private namespace are not the ticket's media size.
    body +=
        L"<psf:ParameterInit name='zk:PageMediaSizePSWidth'><psf:Value "
        L"xsi:type='xsd:integer'>1</psf:Value></psf:ParameterInit>";
    auto ticket = MakeTicket(body);
    ASSERT_TRUE(ticket);
    EXPECT_EQ(Helper::DeletePageMediaSizeAndItsParameterInitsIfExist(*ticket), S_OK);
    RawXml xml(XmlOf(*ticket));
    EXPECT_EQ(xml.Count("//psf:Feature[@name='psk:PageMediaSize']"), 0u);
    EXPECT_EQ(xml.Count("//psf:Feature[@name='psk:PageOrientation']"), 1u);
    EXPECT_EQ(xml.Strings("//psf:ParameterInit/@name"),
              (std::vector<std::string>{"psk:JobCopies", "zk:PageMediaSizePSWidth"}));

    EXPECT_EQ(Helper::DeletePageMediaSizeAndItsParameterInitsIfExist(*ticket), S_FALSE);
}

TEST(PageMediaSizeTicketTest, DeletingAParameterInitAloneCounts) {
    auto ticket = MakeTicket(IntegerInit(L"PageMediaSizePSOrientation", 1));
    ASSERT_TRUE(ticket);
    EXPECT_EQ(Helper::DeletePageMediaSizeAndItsParameterInitsIfExist(*ticket), S_OK);
    EXPECT_EQ(RawXml(XmlOf(*ticket)).Count("//psf:ParameterInit"), 0u);
}

TEST(PageMediaSizeTicketTest, AnEmptyDocumentGivesItsFailureWithoutThrowing) {
    PrintTicketXmlDocument empty(nullptr);
    HRESULT hr = S_OK;
    EXPECT_NO_THROW(hr = Helper::DeletePageMediaSizeAndItsParameterInitsIfExist(empty));
    EXPECT_TRUE(FAILED(hr));
    Form form = MakeForm(25001, 9, 2100, 2970, kA4);
    EXPECT_TRUE(FAILED(ThrownHresult([&] {
                           Helper::AddOrReplacePageMediaSize(empty, false, form);
                       }).value_or(S_OK)));
}

TEST(PageMediaSizeTicketTest, AFormOfTheDictionaryReplacesTheMediaSize) {
    auto ticket = MakeTicket(Feature(L"PageMediaSize", L"NorthAmericaLetter") +
                             IntegerInit(L"PageMediaSizeMediaSizeWidth", 1) +
                             Feature(L"PageOrientation", L"Landscape"));
    ASSERT_TRUE(ticket);
    Form form = MakeForm(25001, 9, 2100, 2970, kA4);
    EXPECT_EQ(Helper::AddOrReplacePageMediaSize(*ticket, false, form), S_OK);

    RawXml xml(XmlOf(*ticket));
    EXPECT_EQ(xml.Count("//psf:Feature[@name='psk:PageMediaSize']"), 1u);
    EXPECT_EQ(xml.Count("//psf:ParameterInit"), 0u);
    EXPECT_EQ(xml.Strings("/psf:PrintTicket/psf:Feature[last()]/@name"),
              std::vector<std::string>{"psk:PageMediaSize"})
        << "the new feature is appended to the root";
    EXPECT_EQ(xml.Strings("//psf:Feature[@name='psk:PageMediaSize']/psf:Option/@name"),
              std::vector<std::string>{"psk:ISOA4"});
    EXPECT_EQ(xml.Strings("//psf:Option/psf:ScoredProperty/@name"),
              (std::vector<std::string>{"psk:MediaSizeWidth", "psk:MediaSizeHeight"}));
    EXPECT_EQ(xml.Strings("//psf:ScoredProperty/psf:Value"),
              (std::vector<std::string>{"210000", "297000"}));
    EXPECT_EQ(xml.Strings("//psf:ScoredProperty/psf:Value/@xsi:type"),
              (std::vector<std::string>{"xsd:integer", "xsd:integer"}));

    BSTR option = nullptr;
    ASSERT_EQ(ticket->GetFeatureOption(L"PageMediaSize", &option), S_OK);
    EXPECT_STREQ(option, L"ISOA4");
    SysFreeString(option);
}

TEST(PageMediaSizeTicketTest, ACustomSizeRefersToParameterInits) {
    auto ticket = MakeTicket(Feature(L"PageMediaSize", L"ISOA4"));
    ASSERT_TRUE(ticket);
    Form form = MakeForm(25008, 256, 1234, 5678, 0);
    EXPECT_EQ(Helper::AddOrReplacePageMediaSize(*ticket, false, form), S_OK);
    RawXml xml(XmlOf(*ticket));
    EXPECT_EQ(xml.Strings("//psf:Option/@name"), std::vector<std::string>{"psk:CustomMediaSize"});
    EXPECT_EQ(xml.Strings("//psf:ScoredProperty/@name"),
              (std::vector<std::string>{"psk:MediaSizeWidth", "psk:MediaSizeHeight"}));
    EXPECT_EQ(xml.Strings("//psf:ScoredProperty/psf:ParameterRef/@name"),
              (std::vector<std::string>{"psk:PageMediaSizeMediaSizeWidth",
                                        "psk:PageMediaSizeMediaSizeHeight"}));
    EXPECT_EQ(xml.Strings("/psf:PrintTicket/psf:ParameterInit/@name"),
              (std::vector<std::string>{"psk:PageMediaSizeMediaSizeWidth",
                                        "psk:PageMediaSizeMediaSizeHeight"}));
    EXPECT_EQ(xml.Strings("/psf:PrintTicket/psf:ParameterInit/psf:Value"),
              (std::vector<std::string>{"123400", "567800"}));
    EXPECT_EQ(xml.Strings("/psf:PrintTicket/*[1]/@name"),
              std::vector<std::string>{"psk:PageMediaSize"})
        << "the ParameterInits follow the feature";

    int width = 0;
    EXPECT_EQ(ticket->GetScoredPropertyValue(L"PageMediaSize", L"MediaSizeWidth", &width), S_OK);
    EXPECT_EQ(width, 123400) << "the ScoredProperty resolves through its ParameterRef";
}

TEST(PageMediaSizeTicketTest, APostScriptCustomSizeIsPortraitWithoutOffsets) {
    auto ticket = MakeTicket(IntegerInit(L"PageMediaSizeMediaSizeWidth", 1));
    ASSERT_TRUE(ticket);
    Form form = MakeForm(25008, 256, 2000, 3000, 0);
    EXPECT_EQ(Helper::AddOrReplacePageMediaSize(*ticket, true, form), S_OK);
    RawXml xml(XmlOf(*ticket));
    EXPECT_EQ(xml.Strings("//psf:Option/@name"), std::vector<std::string>{"psk:PSCustomMediaSize"});
    EXPECT_EQ(xml.Strings("//psf:ScoredProperty/@name"),
              (std::vector<std::string>{"psk:PSWidth", "psk:PSHeight", "psk:PSWidthOffset",
                                        "psk:PSHeightOffset", "psk:PSOrientation"}));
    EXPECT_EQ(xml.Strings("//psf:ScoredProperty/psf:ParameterRef/@name"),
              (std::vector<std::string>{"psk:PageMediaSizePSWidth", "psk:PageMediaSizePSHeight",
                                        "psk:PageMediaSizePSWidthOffset",
                                        "psk:PageMediaSizePSHeightOffset",
                                        "psk:PageMediaSizePSOrientation"}));
    EXPECT_EQ(xml.Strings("//psf:ParameterInit/@name"),
              (std::vector<std::string>{"psk:PageMediaSizePSWidth", "psk:PageMediaSizePSHeight",
                                        "psk:PageMediaSizePSWidthOffset",
                                        "psk:PageMediaSizePSHeightOffset",
                                        "psk:PageMediaSizePSOrientation"}));
    EXPECT_EQ(xml.Strings("//psf:ParameterInit/psf:Value"),
              (std::vector<std::string>{"200000", "300000", "0", "0", "1"}));
}

TEST(PageMediaSizeTicketTest, AFormTheDictionaryCannotNameGetsAnOptionWithoutName) {
    auto ticket = MakeTicket();
    ASSERT_TRUE(ticket);
    Form form = MakeForm(25001, 9, 2101, 2970, kA4);
    EXPECT_EQ(Helper::AddOrReplacePageMediaSize(*ticket, false, form), S_OK);
    RawXml xml(XmlOf(*ticket));
    EXPECT_EQ(xml.Count("//psf:Feature[@name='psk:PageMediaSize']/psf:Option"), 1u);
    EXPECT_EQ(xml.Count("//psf:Option/@name"), 0u);
    EXPECT_EQ(xml.Strings("//psf:ScoredProperty/psf:Value"),
              (std::vector<std::string>{"210100", "297000"}));
}

TEST(PageMediaSizeTicketTest, AFormThatCannotBeWrittenLeavesTheTicketAlone) {
    const std::wstring body =
        Feature(L"PageMediaSize", L"ISOA4") + IntegerInit(L"PageMediaSizePSWidth", 7);
    auto ticket = MakeTicket(body);
    ASSERT_TRUE(ticket);
    const std::string before = XmlOf(*ticket);

    Form unknownKind = MakeForm(25006, 9, 2100, 2970, kA4);
    EXPECT_EQ(
        ThrownHresult([&] { Helper::AddOrReplacePageMediaSize(*ticket, false, unknownKind); }),
        E_FAIL);
    EXPECT_EQ(XmlOf(*ticket), before);

    // Tenths of a millimetre whose microns do not fit 32 bits.
    Form huge = MakeForm(25005, 300, 21474837, 2970, 1);
    EXPECT_EQ(ThrownHresult([&] { Helper::AddOrReplacePageMediaSize(*ticket, false, huge); }),
              E_INVALIDARG);
    EXPECT_EQ(XmlOf(*ticket), before);
    Form largest = MakeForm(25005, 300, 21474836, 2970, 1);
    EXPECT_EQ(Helper::AddOrReplacePageMediaSize(*ticket, false, largest), S_OK);
    EXPECT_EQ(RawXml(XmlOf(*ticket)).Strings("//psf:ScoredProperty/psf:Value")[0], "2147483600");
}

// The dictionary's entries of a fixed size (neither custom nor roll), and a predefined form of
// each.
void FixedSizeForms(const PageSizeDictionary& dictionary,
                    std::vector<const PageSizeDictionaryEntry*>& entries,
                    Helper::FormsInfoList& forms) {
    for (std::size_t i = 0; i < dictionary.GetEntryCount(); ++i) {
        const PageSizeDictionaryEntry& entry = dictionary.GetEntry(i);
        if (entry.IsCustomSize() || entry.IsRoll()) continue;
        ASSERT_NE(entry.GetDevmodePaperId(), 256) << "would read as a custom size";
        entries.push_back(&entry);
        forms.push_back(MakeForm(
            25001, entry.GetDevmodePaperId(), static_cast<DWORD>(entry.GetWidthMicrons() / 100),
            static_cast<DWORD>(entry.GetHeightMicrons() / 100), entry.GetValueId().GetValueEnum()));
    }
    ASSERT_GE(entries.size(), 160u);
}

// Every page size of the dictionary that has a fixed size goes from a driver form of that size
// to an option name, into a ticket and back out with the same size, both from the ticket and
// through the typed ticket view a filter reads the media size with. The view reports a ticket's
// media size only when the ticket carries the driver's attributes, so each ticket has a page
// device mode snapshot with one.
TEST(PageMediaSizeRoundTripTest, EveryFixedSizeOfTheDictionary) {
    PageSizeDictionary dictionary(nullptr);
    Helper::FormsInfoList forms;
    std::vector<const PageSizeDictionaryEntry*> entries;
    ASSERT_NO_FATAL_FAILURE(FixedSizeForms(dictionary, entries, forms));
    AttributeBytesRawList attributes;
    attributes.Add(AttributeBytesItem::MakeOptionValue(DataModelIds::FeatureEdgeToEdge,
                                                       DataModelIds::ValueEdgeToEdgeOff));
    const ByteBuffer devmode = privatedatatesting::DevmodeWithAttributes(attributes);
    XpsFilterPrintTicket view;
    CXString printer(L"Round Trip Printer");

    for (const PageSizeDictionaryEntry* entry : entries) {
        const std::string keyword = entry->GetMsPageMediaSizeOptionName().ToUtf8();
        SCOPED_TRACE(keyword);
        Form form{};
        ASSERT_EQ(
            Helper::FindFormInfoRect(forms, entry->GetWidthMicrons(), entry->GetHeightMicrons(),
                                     entry->GetValueId().GetValueEnum(), &form),
            S_OK);
        EXPECT_EQ(form.dataModelValue, entry->GetValueId().GetValueEnum());

        CXString name;
        MsPrintTicketNamespacesEnum ns = PrintSchema::MsPrintTicketFrameworkNamespace;
        Helper::GetMsPageMediaSizeOptionName(false, false, dictionary, form, &name, &ns);
        EXPECT_EQ(name.ToUtf8(), keyword);
        EXPECT_EQ(ns, entry->IsPredefinedMsOptionName() ? MsPrintTicketKeywordsNamespace
                                                        : MsPrintTicketUserKeywordsNamespace);

        CComPtr<IXMLDOMDocument2> dom = LoadXml(
            privatedatatesting::TicketWithSnapshot(devmode, Feature(L"PageMediaSize", L"ISOA4")));
        ASSERT_TRUE(dom);
        {
            PrintTicketXmlDocument ticket(dom);
            ASSERT_EQ(Helper::AddOrReplacePageMediaSize(ticket, false, dictionary, form), S_OK);
            BSTR option = nullptr;
            BSTR prefix = nullptr;
            ASSERT_EQ(ticket.GetFeatureOption(L"PageMediaSize", &option, &prefix), S_OK);
            EXPECT_EQ(Utf8(option), keyword);
            EXPECT_EQ(Utf8(prefix), entry->IsPredefinedMsOptionName() ? "psk:" : "zk:");
            SysFreeString(option);
            SysFreeString(prefix);
            int width = 0;
            int height = 0;
            EXPECT_EQ(ticket.GetScoredPropertyValue(L"PageMediaSize", L"MediaSizeWidth", &width),
                      S_OK);
            EXPECT_EQ(ticket.GetScoredPropertyValue(L"PageMediaSize", L"MediaSizeHeight", &height),
                      S_OK);
            EXPECT_EQ(width, entry->GetWidthMicrons() / 100 * 100);
            EXPECT_EQ(height, entry->GetHeightMicrons() / 100 * 100);
        }
        view.Initialize(kPTPageScope, nullptr, nullptr, nullptr, dom, nullptr, printer, nullptr);
        bool found = false;
        HRESULT status = E_FAIL;
        const PrintSchema::PageMediaSize::PageMediaSizeData& size =
            view.GetPageMediaSize(&found, &status);
        EXPECT_TRUE(found);
        EXPECT_EQ(status, S_OK);
        EXPECT_EQ(size.width, entry->GetWidthMicrons() / 100 * 100);
        EXPECT_EQ(size.height, entry->GetHeightMicrons() / 100 * 100);
    }

    // Without the driver's attributes the view keeps its default size whatever the ticket says.
    CComPtr<IXMLDOMDocument2> plain = LoadXml(Ticket(L"", PrivateDeclaration()));
    ASSERT_TRUE(plain);
    {
        PrintTicketXmlDocument ticket(plain);
        Form a4 = MakeForm(25001, 9, 2100, 2970, kA4);
        ASSERT_EQ(Helper::AddOrReplacePageMediaSize(ticket, false, dictionary, a4), S_OK);
    }
    view.Initialize(kPTPageScope, nullptr, nullptr, nullptr, plain, nullptr, printer, nullptr);
    EXPECT_EQ(view.GetPageMediaSize().width, 215900);
}

}  // namespace
