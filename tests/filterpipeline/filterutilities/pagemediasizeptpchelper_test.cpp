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
using privatedatatesting::Feature;
using privatedatatesting::Joined;
using privatedatatesting::PrivateTicket;
using Helper = PageMediaSizePtPcHelper;
using Pairs = std::vector<std::pair<DWORD, INT32>>;
using PrintSchema::MsPrintTicketKeywordsNamespace;
using PrintSchema::MsPrintTicketNamespacesEnum;
using PrintSchema::MsPrintTicketUserKeywordsNamespace;

constexpr INT32 kA4 = DataModelIds::ValuePageSizeISOA4;
constexpr INT32 kLetter = DataModelIds::ValuePageSizeNorthAmericaLetter;
constexpr INT32 kNote = DataModelIds::ValuePageSizeNorthAmericaNote;
constexpr INT32 kCustom = DataModelIds::ValuePageSizeCustomMediaSize;
constexpr auto kAny = DataModelIds::ValueAny;
constexpr auto kLedger = DataModelIds::ValuePageSizeLedger;
const Form kA4Form = MakeForm(25001, 9, 2100, 2970, kA4);

std::wstring IntegerInit(const std::wstring& name, int value) {
    return L"<psf:ParameterInit name='psk:" + name + L"'><psf:Value xsi:type='xsd:integer'>" +
           std::to_wstring(value) + L"</psf:Value></psf:ParameterInit>";
}

Pairs KindsAndValues(const Helper::FormsInfoList& forms) {
    Pairs result;
    for (const Form& form : forms) result.emplace_back(form.kind, form.dataModelValue);
    return result;
}

std::vector<long> Fields(const Form& form) {
    return {static_cast<long>(form.kind), form.paperId, static_cast<long>(form.width),
            static_cast<long>(form.height), form.dataModelValue};
}

// --- The form list ---

TEST(PageMediaSizeFormListTest, OnlyAnImpersonatingThreadGetsTheDriversForms) {
    ScopedEnvironment registry("FU_PRINTER_REGISTRY", SampleRegistry());
    CXString printer(kSamplePrinter);
    ASSERT_FALSE(SetThreadTokenWrapper::IsThisThreadImpersonating());
    EXPECT_TRUE(Helper::GetPaperInfoForAnXpsFilter(printer).empty());

    HANDLE token = nullptr;  // the process user's
    ASSERT_TRUE(OpenProcessToken(GetCurrentProcess(), TOKEN_ALL_ACCESS, &token));
    std::unique_ptr<void, decltype(&CloseHandle)> closer(token, CloseHandle);
    {
        SetThreadTokenWrapper impersonation(token);
        ASSERT_TRUE(impersonation.Succeeded());
        Helper::FormsInfoList forms = Helper::GetPaperInfoForAnXpsFilter(printer);
        ASSERT_EQ(forms.size(), 11u);
        EXPECT_EQ(Fields(forms[0]), Fields(MakeForm(25001, forms[0].paperId, 2100, 2970, kA4)));
        EXPECT_EQ(forms[8].paperId, 258);
        EXPECT_EQ(forms[10].kind, 25008u);
        CXString unknown(L"No Such Printer");
        EXPECT_TRUE(Helper::GetPaperInfoForAnXpsFilter(unknown).empty());
    }

    // The filtered list impersonates only for the call. A4, Letter, A3 and the custom entry;
    // then A5, Legal, Monarch (standard); the photo form (user); the banner (driver custom). B5
    // (JIS) and Ledger are known to the dictionary.
    Helper::FormsInfoList forms = Helper::GetFilteredPaperInfoForAnXpsFilter(printer, token);
    EXPECT_FALSE(SetThreadTokenWrapper::IsThisThreadImpersonating());
    // clang-format off
    EXPECT_EQ(KindsAndValues(forms),
              (Pairs{{25001, kA4}, {25001, kLetter}, {25001, DataModelIds::ValuePageSizeISOA3},
                     {25008, kCustom}, {25004, DataModelIds::ValuePageSizeISOA5},
                     {25004, DataModelIds::ValuePageSizeNorthAmericaLegal},
                     {25004, DataModelIds::ValuePageSizeNorthAmericaMonarchEnvelope},
                     {25005, 70001}, {25003, 70002}}));
    // clang-format on
    // A token that is not a token impersonates nothing: no forms.
    EXPECT_TRUE(Helper::GetFilteredPaperInfoForAnXpsFilter(printer, nullptr).empty());
}

// The passes run by kind (custom entry and predefined, standard, user, driver custom), keep
// input order within a pass and keep the first form of each size; predefined forms are all
// kept; a size is the same only when width and height both are.
TEST(PageMediaSizeFilterTest, PassesRunByKindAndKeepTheFirstFormOfEachSize) {
    const struct {
        const char* name;
        Helper::FormsInfoList forms;
        Pairs kept;
    } rows[] = {
        {"one size",
         {MakeForm(25004, 9, 2100, 2970, kA4), kA4Form, MakeForm(25005, 300, 2100, 2970, 70001),
          MakeForm(25002, 13, 1820, 2570, DataModelIds::ValuePageSizeJISB5)},
         {{25001, kA4}}},
        {"passes",
         {
             MakeForm(25003, 257, 500, 500, 1),    // driver custom, size free: fourth pass
             MakeForm(25005, 258, 600, 600, 2),    // user: third pass
             MakeForm(25008, 256, 2100, 2970, 3),  // custom entry: first pass
             MakeForm(25004, 5, 700, 700, 4),      // standard: second pass
             MakeForm(25001, 9, 800, 800, 5),      // predefined: first pass
             MakeForm(25004, 6, 700, 700, 6),      // standard of a size the second pass kept
             MakeForm(25005, 259, 2100, 2970, 7),  // the custom entry's size is listed already
             MakeForm(25003, 260, 600, 600, 8),    // the user form's size
             MakeForm(25006, 1, 900, 900, 9),      // unknown kind
             MakeForm(0, 1, 1000, 1000, 10),       // unknown kind
             MakeForm(25001, 9, 800, 800, 11),     // predefined forms are all kept
         },
         {{25008, 3}, {25001, 5}, {25001, 11}, {25004, 4}, {25005, 2}, {25003, 1}}},
        {"rotated and taller",
         {kA4Form, MakeForm(25004, 0, 2970, 2100, 1), MakeForm(25004, 0, 2100, 2971, 2)},
         {{25001, kA4}, {25004, 1}, {25004, 2}}},
        {"empty", {}, {}},
    };
    for (const auto& row : rows) {
        SCOPED_TRACE(row.name);
        EXPECT_EQ(KindsAndValues(Helper::FilterPaperSizeListForPrintTicket(row.forms)), row.kept);
    }
}

// --- The size match ---

// Sizes match in whole tenths of a millimetre, truncated, of which only the low sixteen bits
// take part; the form of the asked value is preferred, else the first of the size. Without a
// match the first custom entry is resized to the request (S_FALSE); without one the record
// stays as it was. The custom entry is never matched by size.
TEST(FindFormInfoRectTest, MatchesTruncatedTenthsAndFallsBackToTheCustomEntry) {
    const Form custom = MakeForm(25008, 256, 2159, 2794, kCustom);
    const Form note = MakeForm(25004, 1, 2159, 2794, kNote);
    const Form letter = MakeForm(25001, 1, 2159, 2794, kLetter);
    const Form untouched = MakeForm(7, 7, 7, 7, 7);
    const Helper::FormsInfoList a4{kA4Form};
    const Helper::FormsInfoList a4AndCustom{kA4Form, custom};
    const Helper::FormsInfoList sizes{note, letter};
    const auto asLetter = static_cast<DataModelIds::tagValueEnum>(kLetter);
    const Form resized = MakeForm(25008, 256, 1234, 6543, kCustom);
    const struct {
        const char* name;
        Helper::FormsInfoList forms;
        int width;
        int height;
        DataModelIds::tagValueEnum value;
        HRESULT hr;
        Form found;
    } rows[] = {
        // clang-format off
        {"exact", a4, 210000, 297000, kAny, S_OK, kA4Form},
        {"truncated", a4, 210050, 297099, kAny, S_OK, kA4Form},
        {"wider", a4, 210100, 297000, kAny, S_FALSE, untouched},
        {"taller", a4, 210000, 297100, kAny, S_FALSE, untouched},
        {"narrower", a4, 209999, 297000, kAny, S_FALSE, untouched},
        {"shorter", a4, 210000, 296999, kAny, S_FALSE, untouched},
        {"empty list", {}, 210000, 297000, kAny, S_FALSE, untouched},
        {"no form of the value", sizes, 215900, 279400, kLedger, S_OK, note},
        {"the form of the value", sizes, 215900, 279400, asLetter, S_OK, letter},
        {"any value", sizes, 215900, 279400, kAny, S_OK, note},
        {"no match", {kA4Form, custom, MakeForm(25008, 256, 1, 1, 99)}, 123456, 654321, kAny,
         S_FALSE, resized},
        {"custom entry's size", {custom}, 215900, 279400, kAny, S_FALSE, custom},
        {"sixteen bits", a4AndCustom, (65536 + 2100) * 100, 297000, kAny, S_OK, kA4Form},
        // Negative sizes wrap the same way and match nothing here.
        {"negative", a4AndCustom, -210000, -50, kAny, S_FALSE,
         MakeForm(25008, 256, 65536 - 2100, 0, kCustom)},
        {"zero", a4AndCustom, 0, 0, kAny, S_FALSE, MakeForm(25008, 256, 0, 0, kCustom)},
        // clang-format on
    };
    for (const auto& row : rows) {
        SCOPED_TRACE(row.name);
        Form found = untouched;
        EXPECT_EQ(Helper::FindFormInfoRect(row.forms, row.width, row.height, row.value, &found),
                  row.hr);
        EXPECT_EQ(Fields(found), Fields(row.found));
    }
    EXPECT_EQ(Helper::FindFormInfoRect(a4, 210000, 297000, kAny, nullptr), E_POINTER);
}

// --- Option names ---

// Custom sizes are named before their kind is looked at; user forms and driver custom sizes
// get private names; dictionary forms take the name of the entry of their size and value (the
// driver's own sizes are private names), and keep the name they had when there is none.
TEST(OptionNameTest, NamesByKindAndDictionaryEntry) {
    PageSizeDictionary dictionary{nullptr};
    const Form custom = MakeForm(12345, 256, 1000, 1000, 0);
    // The name with "psk:" for the keywords namespace, "zk:" for the private one.
    const std::tuple<const char*, Form, bool, bool, const char*> rows[] = {
        // clang-format off
        // name, form, isCustom, isPostScript, name
        {"user form", MakeForm(25005, 258, 1000, 2000, 70001), false, false,
         "zk:UserForm_258_1000x2000"},
        {"driver custom size", MakeForm(25003, 257, 2100, 9000, 70002), false, true,
         "zk:DriverCustomSize_257_2100x9000"},
        {"largest user form", MakeForm(25005, 65535, 4294967295u, 0, 1), false, false,
         "zk:UserForm_65535_4294967295x0"},
        {"custom", custom, true, false, "psk:CustomMediaSize"},
        {"PostScript custom", custom, true, true, "psk:PSCustomMediaSize"},
        {"predefined", kA4Form, false, false, "psk:ISOA4"},
        {"driver", MakeForm(25002, 9, 2100, 2970, kA4), false, false, "psk:ISOA4"},
        {"standard", MakeForm(25004, 9, 2100, 2970, kA4), false, false, "psk:ISOA4"},
        // Two entries of one size: the value decides.
        {"note", MakeForm(25001, 1, 2159, 2794, kNote), false, false, "psk:NorthAmericaNote"},
        {"letter", MakeForm(25001, 1, 2159, 2794, kLetter), false, false, "psk:NorthAmericaLetter"},
        {"ledger", MakeForm(25002, 4, 4318, 2794, kLedger), false, false, "zk:Ledger"},
        {"size of no entry", MakeForm(25001, 9, 2101, 2970, kA4), false, false, "psk:before"},
        {"letter's value", MakeForm(25004, 9, 2100, 2970, kLetter), false, false, "psk:before"},
        // clang-format on
    };
    auto named = [](const CXString& name, MsPrintTicketNamespacesEnum ns) {
        return (ns == MsPrintTicketKeywordsNamespace       ? "psk:"
                : ns == MsPrintTicketUserKeywordsNamespace ? "zk:"
                                                           : "?:") +
               name.ToUtf8();
    };
    for (const auto& [row, form, isCustom, isPostScript, expected] : rows) {
        CXString name(L"before");
        MsPrintTicketNamespacesEnum ns = PrintSchema::MsPrintTicketFrameworkNamespace;
        Helper::GetMsPageMediaSizeOptionName(isCustom, isPostScript, dictionary, form, &name, &ns);
        EXPECT_EQ(named(name, ns), expected) << row;
    }
    // Without a dictionary the helper opens its own.
    CXString name;
    MsPrintTicketNamespacesEnum ns = MsPrintTicketUserKeywordsNamespace;
    Helper::GetMsPageMediaSizeOptionName(
        false, false, MakeForm(25001, 8, 2970, 4200, DataModelIds::ValuePageSizeISOA3), &name, &ns);
    EXPECT_EQ(named(name, ns), "psk:ISOA3");
}

TEST(OptionNameTest, OtherKindsAndNullOutputsThrow) {
    PageSizeDictionary dictionary{nullptr};
    CXString name;
    MsPrintTicketNamespacesEnum ns = MsPrintTicketKeywordsNamespace;
    auto call = [&](DWORD kind, bool isCustom, CXString* out, MsPrintTicketNamespacesEnum* nsOut) {
        return [=, &dictionary] {
            Helper::GetMsPageMediaSizeOptionName(isCustom, false, dictionary,
                                                 MakeForm(kind, 9, 2100, 2970, kA4), out, nsOut);
        };
    };
    for (DWORD kind : {25008u, 25006u, 0u, 4294967295u}) {
        EXPECT_EQ(ThrownHresult(call(kind, false, &name, &ns)), E_FAIL) << kind;
    }
    EXPECT_EQ(ThrownHresult(call(25001, false, nullptr, &ns)), E_POINTER);
    EXPECT_EQ(ThrownHresult(call(25001, true, &name, nullptr)), E_POINTER);
    EXPECT_EQ(ThrownFunction(call(1, false, &name, &ns)),
              L"PageMediaSizePtPcHelper::GetMsPageMediaSizeOptionName");
}

// --- The ticket's PageMediaSize ---

// The feature and the seven ParameterInits go (the same names in the private namespace are not
// the ticket's media size); a ParameterInit alone counts; a second call finds nothing.
TEST(PageMediaSizeTicketTest, DeletesTheFeatureAndTheSevenParameterInits) {
    std::wstring body = Feature(L"PageOrientation", L"Portrait") +
                        Feature(L"PageMediaSize", L"ISOA4") + IntegerInit(L"JobCopies", 2) +
                        L"<psf:ParameterInit name='zk:PageMediaSizePSWidth'/>";
    for (const wchar_t* name :
         {L"PageMediaSizePSWidth", L"PageMediaSizePSHeight", L"PageMediaSizePSWidthOffset",
          L"PageMediaSizePSHeightOffset", L"PageMediaSizePSOrientation",
          L"PageMediaSizeMediaSizeWidth", L"PageMediaSizeMediaSizeHeight"}) {
        body += IntegerInit(name, 5);
    }
    for (const std::wstring& text : {body, IntegerInit(L"PageMediaSizePSOrientation", 1)}) {
        PrintTicketXmlDocument ticket(LoadXml(PrivateTicket(text)));
        EXPECT_EQ(Helper::DeletePageMediaSizeAndItsParameterInitsIfExist(ticket), S_OK);
        EXPECT_EQ(Helper::DeletePageMediaSizeAndItsParameterInitsIfExist(ticket), S_FALSE);
        EXPECT_EQ(Joined(RawXml(XmlOf(ticket)), "//@name"),
                  text == body
                      ? "psk:PageOrientation|psk:Portrait|psk:JobCopies|zk:PageMediaSizePSWidth"
                      : "");
    }

    // An empty document gives its failure without throwing.
    PrintTicketXmlDocument empty(nullptr);
    HRESULT hr = S_OK;
    EXPECT_NO_THROW(hr = Helper::DeletePageMediaSizeAndItsParameterInitsIfExist(empty));
    EXPECT_TRUE(FAILED(hr));
    Form form = kA4Form;
    EXPECT_TRUE(FAILED(ThrownHresult([&] {
                           Helper::AddOrReplacePageMediaSize(empty, false, form);
                       }).value_or(S_OK)));
}

// The new feature is appended to the root and replaces the old one with its ParameterInits:
// a named option with its size in microns, or for a custom size ParameterRefs to ParameterInits
// that follow the feature (a PostScript one portrait without offsets). A form of an unknown
// kind, or whose microns do not fit 32 bits, is thrown and leaves the ticket alone.
TEST(PageMediaSizeTicketTest, TheFormsSizeReplacesTheMediaSize) {
    const std::wstring old = Feature(L"PageMediaSize", L"NorthAmericaLetter") +
                             IntegerInit(L"PageMediaSizeMediaSizeWidth", 1) +
                             L"<psf:Feature name='psk:PageOrientation'/>";
    // Names, values and value types of the ticket, in document order.
    const char* summary = "//@name | //psf:Value | //@xsi:type";
    const struct {
        const char* name;
        Form form;
        bool isPostScript;
        const char* expected;  // null: thrown
        HRESULT thrown = S_OK;
    } rows[] = {
        // clang-format off
        {"dictionary form", kA4Form, false, "psk:PageOrientation|psk:PageMediaSize|psk:ISOA4|"
         "psk:MediaSizeWidth|210000|xsd:integer|psk:MediaSizeHeight|297000|xsd:integer"},
        {"custom size", MakeForm(25008, 256, 1234, 5678, 0), false,
         "psk:PageOrientation|psk:PageMediaSize|psk:CustomMediaSize|"
         "psk:MediaSizeWidth|psk:PageMediaSizeMediaSizeWidth|"
         "psk:MediaSizeHeight|psk:PageMediaSizeMediaSizeHeight|"
         "psk:PageMediaSizeMediaSizeWidth|123400|xsd:integer|"
         "psk:PageMediaSizeMediaSizeHeight|567800|xsd:integer"},
        {"PostScript custom size", MakeForm(25008, 256, 2000, 3000, 0), true,
         "psk:PageOrientation|psk:PageMediaSize|psk:PSCustomMediaSize|"
         "psk:PSWidth|psk:PageMediaSizePSWidth|psk:PSHeight|psk:PageMediaSizePSHeight|"
         "psk:PSWidthOffset|psk:PageMediaSizePSWidthOffset|"
         "psk:PSHeightOffset|psk:PageMediaSizePSHeightOffset|"
         "psk:PSOrientation|psk:PageMediaSizePSOrientation|"
         "psk:PageMediaSizePSWidth|200000|xsd:integer|"
         "psk:PageMediaSizePSHeight|300000|xsd:integer|"
         "psk:PageMediaSizePSWidthOffset|0|xsd:integer|"
         "psk:PageMediaSizePSHeightOffset|0|xsd:integer|"
         "psk:PageMediaSizePSOrientation|1|xsd:integer"},
        // A form the dictionary cannot name: an option without a name.
        {"no name", MakeForm(25001, 9, 2101, 2970, kA4), false,
         "psk:PageOrientation|psk:PageMediaSize|"
         "psk:MediaSizeWidth|210100|xsd:integer|psk:MediaSizeHeight|297000|xsd:integer"},
        // Tenths of a millimetre whose microns just fit 32 bits.
        {"largest", MakeForm(25005, 300, 21474836, 2970, 1), false,
         "psk:PageOrientation|psk:PageMediaSize|zk:UserForm_300_21474836x2970|"
         "psk:MediaSizeWidth|2147483600|xsd:integer|psk:MediaSizeHeight|297000|xsd:integer"},
        {"unknown kind", MakeForm(25006, 9, 2100, 2970, kA4), false, nullptr, E_FAIL},
        {"too large", MakeForm(25005, 300, 21474837, 2970, 1), false, nullptr, E_INVALIDARG},
        // clang-format on
    };
    for (const auto& row : rows) {
        SCOPED_TRACE(row.name);
        PrintTicketXmlDocument ticket(LoadXml(PrivateTicket(old)));
        Form form = row.form;
        if (row.expected == nullptr) {
            const std::string before = XmlOf(ticket);
            EXPECT_EQ(
                ThrownHresult([&] { Helper::AddOrReplacePageMediaSize(ticket, false, form); }),
                row.thrown);
            EXPECT_EQ(XmlOf(ticket), before);
            continue;
        }
        EXPECT_EQ(Helper::AddOrReplacePageMediaSize(ticket, row.isPostScript, form), S_OK);
        EXPECT_EQ(Joined(RawXml(XmlOf(ticket)), summary), row.expected);
        // The ScoredProperty resolves, through a ParameterRef where there is one.
        int width = 0;
        EXPECT_EQ(ticket.GetScoredPropertyValue(
                      L"PageMediaSize", row.isPostScript ? L"PSWidth" : L"MediaSizeWidth", &width),
                  S_OK);
        EXPECT_EQ(width, static_cast<int>(row.form.width) * 100);
    }
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
    AttributeBytesRawList attributes;
    attributes.Add(AttributeBytesItem::MakeOptionValue(DataModelIds::FeatureEdgeToEdge,
                                                       DataModelIds::ValueEdgeToEdgeOff));
    const ByteBuffer devmode = privatedatatesting::DevmodeWithAttributes(attributes);
    XpsFilterPrintTicket view;
    CXString printer(L"Round Trip Printer");

    for (const PageSizeDictionaryEntry* entry : entries) {
        const std::string keyword = entry->GetMsPageMediaSizeOptionName().ToUtf8();
        SCOPED_TRACE(keyword);
        const int width = entry->GetWidthMicrons() / 100 * 100;
        const int height = entry->GetHeightMicrons() / 100 * 100;
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
        const bool predefined = entry->IsPredefinedMsOptionName();
        EXPECT_EQ(ns,
                  predefined ? MsPrintTicketKeywordsNamespace : MsPrintTicketUserKeywordsNamespace);

        CComPtr<IXMLDOMDocument2> dom = LoadXml(
            privatedatatesting::TicketWithSnapshot(devmode, Feature(L"PageMediaSize", L"ISOA4")));
        ASSERT_TRUE(dom);
        {
            PrintTicketXmlDocument ticket(dom);
            ASSERT_EQ(Helper::AddOrReplacePageMediaSize(ticket, false, dictionary, form), S_OK);
            CComBSTR option;
            CComBSTR prefix;
            ASSERT_EQ(ticket.GetFeatureOption(L"PageMediaSize", &option, &prefix), S_OK);
            EXPECT_EQ(Utf8(option) + " " + Utf8(prefix), keyword + (predefined ? " psk:" : " zk:"));
            EXPECT_EQ(Joined(RawXml(XmlOf(ticket)), "//psf:Option/psf:ScoredProperty/psf:Value"),
                      std::to_string(width) + "|" + std::to_string(height));
        }
        view.Initialize(kPTPageScope, nullptr, nullptr, nullptr, dom, nullptr, printer, nullptr);
        bool found = false;
        HRESULT status = E_FAIL;
        const auto& size = view.GetPageMediaSize(&found, &status);
        EXPECT_EQ((std::vector<long>{found, status, size.width, size.height}),
                  (std::vector<long>{true, S_OK, width, height}));
    }

    // Without the driver's attributes the view keeps its default size whatever the ticket says.
    CComPtr<IXMLDOMDocument2> plain = LoadXml(PrivateTicket(L""));
    ASSERT_TRUE(plain);
    {
        PrintTicketXmlDocument ticket(plain);
        Form a4 = kA4Form;
        ASSERT_EQ(Helper::AddOrReplacePageMediaSize(ticket, false, dictionary, a4), S_OK);
    }
    view.Initialize(kPTPageScope, nullptr, nullptr, nullptr, plain, nullptr, printer, nullptr);
    EXPECT_EQ(view.GetPageMediaSize().width, 215900);
}

}  // namespace
