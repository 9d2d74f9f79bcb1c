// Tests of the typed ticket view: scopes and the change counter, feature lookups that walk the
// tickets from a feature's scope upwards, the caches, the status convention, and the getters
// that read the driver's private attributes.
#include <gtest/gtest.h>

#include "filterpipeline/filterutilities/printticketmanager.h"
#include "filterpipeline/filterutilities/xpsfilterprintticket.h"
#include "pipelinefakes.h"
#include "privatedatatesting.h"

using namespace privatedatatesting;
using documenttesting::ThrownFunction;
using documenttesting::ThrownHresult;
using namespace DataModelIds;
using Items = std::vector<AttributeBytesItem>;
using Scope = XpsFilterPrintTicketBase;

namespace {

constexpr HRESULT kNotFound = HRESULT_FROM_WIN32(ERROR_NOT_FOUND);
constexpr auto kPageSlot = Scope::EFilterPtScopePage;
constexpr auto kDocumentSlot = Scope::EFilterPtScopeDocument;
constexpr auto kJobSlot = Scope::EFilterPtScopeJob;
constexpr auto kDefaultSlot = Scope::EFilterPtScopeUserDefault;

AttributeBytesItem Opt(long feature, long value) {
    return AttributeBytesItem::MakeOptionValue(feature, static_cast<tagValueEnum>(value));
}
AttributeBytesItem Int(long feature, long value, bool chosen = true) {
    return AttributeBytesItem::MakeInteger(feature, value, chosen);
}
AttributeBytesItem Bool(long feature, bool value, bool chosen = true) {
    return AttributeBytesItem::MakeBoolean(feature, value, chosen);
}

// Output paper settings: fit on or off, and a paper of code `code` with the given size.
Items OutputPaper(long fit, long code, double width, double height, Items more = {}) {
    AttributeBytesRawList dimensions;
    dimensions.Add(
        AttributeBytesItem::MakeDimension(FeaturePaperWidth, width, Dimension::Millimeters));
    dimensions.Add(
        AttributeBytesItem::MakeDimension(FeaturePaperHeight, height, Dimension::Millimeters));
    AttributeBytesRawList paper;
    paper.Add(Opt(FeaturePaperSize, code));
    paper.Add(AttributeBytesItem::MakeCollection(FeatureCustomPaperDimensions, dimensions));
    AttributeBytesRawList settings;
    settings.Add(AttributeBytesItem::MakeCollection(FeatureOutputPaper, paper));
    more.push_back(Opt(FeatureFitToOutputPaper, fit));
    more.push_back(AttributeBytesItem::MakeCollection(FeatureOutputPaperSettings, settings));
    return more;
}

// A ticket whose page snapshot carries `items`, followed by `body`; without items, no snapshot.
std::wstring AttributeTicket(const Items& items, const std::wstring& body = L"") {
    if (items.empty()) return PrivateTicket(body);
    AttributeBytesRawList list;
    for (const AttributeBytesItem& item : items) list.Add(item);
    return TicketWithSnapshot(DevmodeWithAttributes(list), body);
}

Items NUp(long value) {
    return {Opt(FeatureNUpPagesPerSheet, value)};
}

class TypedViewTest : public ::testing::Test {
protected:
    // Loads each non-empty text and initialises the view with the DOMs (kept for mutation).
    void Initialize(EPrintTicketScope scope, const std::wstring& defaultTicket,
                    const std::wstring& job = L"", const std::wstring& document = L"",
                    const std::wstring& page = L"") {
        const std::wstring* texts[] = {&defaultTicket, &job, &document, &page};
        for (int i = 0; i < 4; ++i) dom[i] = texts[i]->empty() ? nullptr : LoadXml(*texts[i]);
        Reinitialize(scope);
    }

    void Reinitialize(EPrintTicketScope scope) {
        view.Initialize(scope, dom[0], dom[1], dom[2], dom[3], nullptr, printer, token);
    }

    // Renames the first element the query selects in a slot's DOM.
    void Rename(int slot, const wchar_t* xpath, const wchar_t* name) {
        CComPtr<IXMLDOMNode> node;
        ASSERT_EQ(dom[slot]->selectSingleNode(CComBSTR(xpath), &node), S_OK);
        CComQIPtr<IXMLDOMElement> element(node);
        ASSERT_TRUE(element);
        ASSERT_EQ(element->setAttribute(CComBSTR(L"name"), CComVariant(name)), S_OK);
    }

    std::wstring OptionOf(const wchar_t* feature) {
        CComBSTR option;
        CComBSTR prefix;
        HRESULT hr = view.XpsFilterGetFeatureOption(feature, &option, &prefix);
        if (FAILED(hr)) return L"<" + std::to_wstring(hr) + L">";
        return std::wstring(option) + L"|" + std::wstring(prefix);
    }

    XpsFilterPrintTicket view;
    CComPtr<IXMLDOMDocument2> dom[4];
    CXString printer{L"Typed View Printer"};
    HANDLE token = nullptr;
};

}  // namespace

// --- Scopes, counter, slots ---

TEST(TypedViewScopes, PlatformScopesAndFeatureNamesMapOntoSlots) {
    // clang-format off
    const std::pair<int, Scope::EFilterPtScope> scopes[] = {
        {kPTPageScope, kPageSlot}, {kPTDocumentScope, kDocumentSlot}, {kPTJobScope, kJobSlot},
        {7, kDefaultSlot}};
    const std::pair<const wchar_t*, Scope::EFilterPtScope> names[] = {
        {L"PageMediaSize", kPageSlot}, {L"DocumentNUp", kDocumentSlot}, {L"OutputPage", kJobSlot},
        {L"JobCopiesAllDocuments", kJobSlot}, {L"page", kJobSlot}, {L"", kJobSlot}};
    // clang-format on
    for (const auto& [scope, slot] : scopes) {
        EXPECT_EQ(Scope::MsEPrintTicketScopeToEFilterPtScope(EPrintTicketScope(scope)), slot);
    }
    for (const auto& [name, slot] : names) EXPECT_EQ(Scope::GetFeatureScopeFromName(name), slot);
}

TEST_F(TypedViewTest, InitializeFillsAndEmptiesTheSlots) {
    EXPECT_FALSE(view.GetChangeCounter().IsInitialized());
    std::wstring ticket = PrivateTicket(Feature(L"PageOrientation", L"Landscape"));
    token = reinterpret_cast<HANDLE>(0x1234);
    Initialize(kPTPageScope, ticket, L"", ticket, ticket);
    EXPECT_EQ(view.GetChangeCounter().Get(), 0);
    EXPECT_EQ(view.GetScope(), kPTPageScope);
    EXPECT_EQ(view.GetFilterScope(), kPageSlot);
    EXPECT_NE(view.GetTicketOfScope(kDefaultSlot), nullptr);
    EXPECT_EQ(view.GetTicketOfScope(kJobSlot), nullptr);
    EXPECT_NE(view.GetTicketOfScope(kPageSlot), nullptr);
    EXPECT_EQ(view.GetMergedTicket(), nullptr);
    EXPECT_EQ(view.GetPrinterName().Compare(L"Typed View Printer"), 0);
    EXPECT_EQ(view.GetUserToken(), token);

    dom[3] = nullptr;
    Reinitialize(kPTDocumentScope);
    EXPECT_EQ(view.GetChangeCounter().Get(), 1);
    EXPECT_EQ(view.GetTicketOfScope(kPageSlot), nullptr);
    EXPECT_EQ(view.GetFilterScope(), kDocumentSlot);

    // A DOM that is not a PrintTicket is refused by its wrapper.
    CComPtr<IXMLDOMDocument2> capabilities = LoadXml(documenttesting::Capabilities(L""));
    EXPECT_THROW(view.Initialize(kPTJobScope, capabilities, nullptr, nullptr, nullptr, nullptr,
                                 printer, token),
                 ZorunComException);
}

// --- Lookups ---

TEST_F(TypedViewTest, AFeatureIsLookedForFromTheScopeItsNameImplies) {
    Initialize(kPTJobScope,
               PrivateTicket(Feature(L"PageOrientation", L"ReversePortrait") +
                             Feature(L"JobCopiesAllDocuments", L"Five")),
               PrivateTicket(Feature(L"PageOrientation", L"Portrait") +
                             Feature(L"JobDuplexAllDocumentsContiguously", L"TwoSidedLongEdge")),
               PrivateTicket(Feature(L"DocumentNUp", L"Two")),
               PrivateTicket(Feature(L"PageOrientation", L"Landscape") +
                             Feature(L"JobCopiesAllDocuments", L"Three") +
                             Feature(L"DocumentNUp", L"Four")));
    // Page features: the page ticket first, even for a job view.
    EXPECT_EQ(OptionOf(L"PageOrientation"), L"Landscape|psk:");
    // Job features never look at the page or document tickets.
    EXPECT_EQ(OptionOf(L"JobCopiesAllDocuments"), L"Five|psk:");
    // Document features start at the document ticket.
    EXPECT_EQ(OptionOf(L"DocumentNUp"), L"Two|psk:");

    // Without a page ticket a page feature is found further up; a page view finds job features.
    dom[3] = nullptr;
    Reinitialize(kPTPageScope);
    EXPECT_EQ(OptionOf(L"PageOrientation"), L"Portrait|psk:");
    EXPECT_EQ(OptionOf(L"JobDuplexAllDocumentsContiguously"), L"TwoSidedLongEdge|psk:");
    dom[1] = nullptr;
    Reinitialize(kPTPageScope);
    EXPECT_EQ(OptionOf(L"PageOrientation"), L"ReversePortrait|psk:");
    EXPECT_EQ(OptionOf(L"PageMissing"), L"<" + std::to_wstring(kNotFound) + L">");
}

TEST_F(TypedViewTest, LookupsWithoutTicketsAndBadArguments) {
    CComBSTR option;
    EXPECT_EQ(view.XpsFilterGetFeatureOption(L"PageOrientation", &option, nullptr), kNotFound);
    EXPECT_EQ(view.XpsFilterGetFeatureOption(nullptr, &option, nullptr), E_POINTER);
    EXPECT_EQ(view.XpsFilterGetFeatureOption(L"PageOrientation", nullptr, nullptr), E_POINTER);
    int value = 0;
    EXPECT_EQ(view.XpsFilterGetScoredPropertyValue(L"PageMediaSize", L"MediaSizeWidth", &value),
              kNotFound);
    EXPECT_EQ(view.XpsFilterGetScoredPropertyValue(L"PageMediaSize", L"MediaSizeWidth", nullptr),
              E_POINTER);

    // A failure one ticket throws does not hide the answer of a ticket above it.
    Initialize(kPTPageScope, L"", PrivateTicket(Feature(L"PageOrientation", L"Landscape")), L"",
               PrivateTicket(L"<psf:Feature name='psk:PageOrientation'><psf:Option name='Bad'/>"
                             L"</psf:Feature>"));
    EXPECT_EQ(OptionOf(L"PageOrientation"), L"Landscape|psk:");
    dom[1] = nullptr;
    Reinitialize(kPTPageScope);
    EXPECT_EQ(OptionOf(L"PageOrientation"), L"<" + std::to_wstring(E_FAIL) + L">");
}

// --- The getters ---

// Every getter over one ticket in the job slot of a page view: found, status and every field of
// its record, read twice (the second answer comes from the cache).
TEST_F(TypedViewTest, GettersReadTheTicketAndTheDriverAttributes) {
    using namespace PrintSchema::PageScaling;
    using PrintSchema::Binding::BindLeft;
    using PrintSchema::Binding::BindRight;
    const std::wstring size = MediaSizeFeature(210000, 297000);
    auto read = [&](char getter, bool& found, HRESULT& status) -> std::vector<long> {
        // clang-format off
        switch (getter) {
        case 'r': return {view.GetOrientation(&found, &status)};
        case 'm': { const auto& d = view.GetPageMediaSize(&found, &status);
                    return {d.width, d.height}; }
        case 'n': { const auto& d = view.GetNUp(&found, &status);
                    return {d.pagesPerSheet, d.pageOrder, d.edgeToEdge, d.presentationDirection}; }
        case 'b': { const auto& d = view.GetBookletBinding(&found, &status);
                    return {d.bindingOption, d.gutter, d.creep}; }
        case 'o': { const auto& d = view.GetOutputPaperSize(&found, &status);
                    return {d.width, d.height, d.paperSize, d.fitToOutputPaper}; }
        default: { const auto& d = view.GetPageScaling(&found, &status);
                   return {d.option, d.scaleWidth, d.scaleHeight, d.anchor, d.scalingRequested,
                           d.scalingMode, d.fitBasis, d.offsetWidth, d.offsetHeight}; }
        }
        // clang-format on
    };
    const long kFit = FitApplicationMediaSizeToPageMediaSize;
    const long kLandscape = PrintSchema::PageOrientation::Landscape;
    const long kPortrait = PrintSchema::PageOrientation::Portrait;
    const long kNone = PrintSchema::Binding::None;
    const long kRightBottom = PrintSchema::NUp::RightBottom;
    const long kPaper = ValueScalingFitBasisPaper;
    const long kOn = ValueFitToOutputPaperOn;
    const long kFitMode = ValueScalingModeFitToPaper;
    const Items fitMode = {Opt(FeatureScalingMode, kFitMode)};
    const AttributeBytesItem booklet = Bool(FeatureBooklet, true);
    const long kEdge = FeatureBookletBindingEdge;
    const struct {
        const char* name;
        Items items;  // none: a ticket without a device mode
        char getter;  // r(otation), m(edia size), n(-up), b(inding), o(utput paper), s(caling)
        bool found;
        HRESULT status;
        std::vector<long> values;
        std::wstring body = L"";
    } rows[] = {
        // clang-format off
        {"orientation", {}, 'r', true, S_OK, {kLandscape},
         Feature(L"PageOrientation", L"Landscape")},
        {"reverse landscape", {}, 'r', true, S_OK, {PrintSchema::PageOrientation::ReverseLandscape},
         Feature(L"PageOrientation", L"ReverseLandscape")},
        {"no orientation", {}, 'r', false, S_FALSE, {kPortrait}, Feature(L"Other", L"Landscape")},
        {"unknown orientation", {}, 'r', false, E_FAIL, {kPortrait},
         Feature(L"PageOrientation", L"Sideways")},
        // Keywords are case-sensitive.
        {"lower-case orientation", {}, 'r', false, E_FAIL, {kPortrait},
         Feature(L"PageOrientation", L"landscape")},
        // The media size is read only with the driver's attributes; without them it is letter.
        {"size, no attributes", {}, 'm', true, S_OK, {215900, 279400}, size},
        {"size", {Int(FeatureScalingPercentage, 100)}, 'm', true, S_OK, {210000, 297000}, size},
        {"no size", {Int(FeatureScalingPercentage, 100)}, 'm', false, S_FALSE, {215900, 279400}},
        // N-up maps the pages per sheet (unknown values: 1) and is always found; the order and
        // edge-to-edge values are not the driver's.
        {"1-up", NUp(ValueNUp1), 'n', true, S_OK, {1, 7611, 8010, kRightBottom}},
        {"2-up", NUp(ValueNUp2), 'n', true, S_OK, {2, 7611, 8010, kRightBottom}},
        {"4-up", {Opt(FeatureNUpPagesPerSheet, ValueNUp4), Opt(FeatureNUpPageOrder, 7612),
                  Opt(FeatureEdgeToEdge, ValueEdgeToEdgeOn)}, 'n', true, S_OK,
         {4, 7611, 8010, kRightBottom}},
        {"6-up", NUp(ValueNUp6), 'n', true, S_OK, {6, 7611, 8010, kRightBottom}},
        {"9-up", NUp(ValueNUp9), 'n', true, S_OK, {9, 7611, 8010, kRightBottom}},
        {"16-up", NUp(ValueNUp16), 'n', true, S_OK, {16, 7611, 8010, kRightBottom}},
        {"unknown n-up", NUp(9999), 'n', true, S_OK, {1, 7611, 8010, kRightBottom}},
        {"n-up, no attributes", {}, 'n', true, S_OK, {1, 7611, 8010, kRightBottom}},
        // Booklet binding: the edge (left by default) only when the user chose a booklet;
        // gutter in micrometres to hundredths of a millimetre, creep to thousandths of an inch,
        // halves rounding down.
        {"right", {booklet, Opt(kEdge, ValueBindingEdgeRight)}, 'b', true, S_OK, {BindRight, 0, 0}},
        {"left", {booklet, Opt(kEdge, ValueBindingEdgeLeft)}, 'b', true, S_OK, {BindLeft, 0, 0}},
        {"booklet", {booklet}, 'b', true, S_OK, {BindLeft, 0, 0}},
        {"no booklet", {Bool(FeatureBooklet, false)}, 'b', true, S_OK, {kNone, 0, 0}},
        {"booklet not chosen", {Bool(FeatureBooklet, true, false)}, 'b', true, S_OK, {kNone, 0, 0}},
        {"gutter and creep", {Int(FeatureBookletGutter, 1005), Int(FeatureBookletCreep, 254)}, 'b',
         true, S_OK, {kNone, 100, 10}},
        {"creep not chosen",
         {Int(FeatureBookletGutter, 1006), Int(FeatureBookletCreep, 300, false)}, 'b', true, S_OK,
         {kNone, 101, 0}},
        // The output paper comes from the nested settings, only when fitting to it is on and a
        // paper is named.
        {"output paper", OutputPaper(kOn, ValuePageSizeISOA4, 210, 297), 'o', true, S_OK,
         {210000, 297000, ValuePageSizeISOA4, true}},
        {"fit off", OutputPaper(ValueFitToOutputPaperOff, ValuePageSizeISOA4, 210, 297), 'o', true,
         S_OK, {215900, 279400, ValueAny, false}},
        {"any paper", OutputPaper(kOn, ValueAny, 210, 297), 'o', true, S_OK,
         {215900, 279400, ValueAny, false}},
        {"output paper, no attributes", {}, 'o', true, S_OK, {215900, 279400, ValueAny, false}},
        // Page scaling: fitted defaults without attributes; mode, percentage, anchor and basis.
        {"scaling, no attributes", {}, 's', true, S_FALSE,
         {kFit, 100, 100, Center, FALSE, ValueScalingModeNone, kPaper, 0, 0}},
        {"zoom", {Opt(FeatureScalingMode, ValueScalingModeZoom), Int(FeatureScalingPercentage, 150),
                  Opt(FeatureScalingAnchor, ValueScalingAnchorBottomLeft),
                  Opt(FeatureScalingFitBasis, ValueScalingFitBasisPrintableArea)}, 's', true, S_OK,
         {kFit, 150, 150, BottomLeft, TRUE, ValueScalingModeZoom, ValueScalingFitBasisPrintableArea,
          0, 0}},
        // Fitting to the document's own paper (or to any paper) cancels scaling.
        {"fit to the document's paper", OutputPaper(kOn, ValuePaperSizeSameAsDocument, 100, 100,
         fitMode), 's', true, S_OK, {kFit, 100, 100, Center, FALSE, kFitMode, kPaper, 0, 0}},
        {"fit to any paper", OutputPaper(kOn, ValueAny, 100, 100, fitMode), 's', true, S_OK,
         {kFit, 100, 100, Center, FALSE, kFitMode, kPaper, 0, 0}},
        {"fit to A4", OutputPaper(kOn, ValuePageSizeISOA4, 100, 100, fitMode), 's', true, S_OK,
         {kFit, 100, 100, Center, TRUE, kFitMode, kPaper, 0, 0}},
        // clang-format on
    };
    for (const auto& row : rows) {
        SCOPED_TRACE(row.name);
        Initialize(kPTPageScope, L"", AttributeTicket(row.items, row.body));
        for (int pass = 0; pass < 2; ++pass) {
            bool found = !row.found;
            HRESULT status = E_UNEXPECTED;
            EXPECT_EQ(read(row.getter, found, status), row.values);
            EXPECT_EQ(found, row.found);
            EXPECT_EQ(status, row.status);
        }
    }
}

// Each scaling anchor, and values that are not anchors; an anchor alone requests no scaling.
TEST_F(TypedViewTest, PageScalingAnchors) {
    using namespace PrintSchema::PageScaling;
    // clang-format off
    const std::pair<long, LONG> anchors[] = {
        {ValueScalingAnchorTopLeft, TopLeft}, {ValueScalingAnchorLeftCenter, LeftCenter},
        {ValueScalingAnchorTopRight, TopRight}, {ValueScalingAnchorRightCenter, RightCenter},
        {ValueScalingAnchorBottomRight, BottomRight}, {ValueScalingAnchorTopCenter, TopCenter},
        {ValueScalingAnchorCenter, Center}, {ValueScalingAnchorBottomCenter, BottomCenter},
        {7469, TopLeft}, {7459, TopLeft}};
    // clang-format on
    for (const auto& [value, anchor] : anchors) {
        Initialize(kPTPageScope, L"", AttributeTicket({Opt(FeatureScalingAnchor, value)}));
        EXPECT_EQ(view.GetPageScaling().anchor, anchor) << value;
        EXPECT_EQ(view.GetPageScaling().scalingRequested, FALSE);
    }
}

// Without a status pointer a failure is thrown, with the getter's name; an absent orientation
// is asked again, not cached.
TEST_F(TypedViewTest, OrientationFailuresAreThrownAndAbsenceIsNotCached) {
    Initialize(kPTPageScope, L"", L"", L"",
               PrivateTicket(Feature(L"PageOrientation", L"Sideways")));
    EXPECT_EQ(ThrownHresult([&] { view.GetOrientation(); }), E_FAIL);
    EXPECT_EQ(ThrownFunction([&] { view.GetOrientation(); }),
              L"XpsFilterPrintTicket::GetOrientation");
    bool found = true;
    EXPECT_EQ(ThrownHresult([&] { view.GetOrientation(&found); }), E_FAIL);
    EXPECT_FALSE(found);

    Initialize(kPTPageScope, L"", L"", L"",
               PrivateTicket(Feature(L"Unrelated", L"ReverseLandscape")));
    EXPECT_EQ(view.GetOrientation(), PrintSchema::PageOrientation::Portrait);  // no throw
    Rename(3, L"//psf:Feature", L"psk:PageOrientation");
    EXPECT_EQ(view.GetOrientation(&found), PrintSchema::PageOrientation::ReverseLandscape);
    EXPECT_TRUE(found);
}

// --- Where the attributes come from ---

TEST_F(TypedViewTest, TheAttributesComeFromTheFirstTicketFromTheViewsScopeUp) {
    Initialize(kPTPageScope, AttributeTicket(NUp(ValueNUp16)), AttributeTicket(NUp(ValueNUp2)),
               AttributeTicket(NUp(ValueNUp4)), PrivateTicket(L""));
    EXPECT_EQ(view.GetNUp().pagesPerSheet, 4);
    Reinitialize(kPTJobScope);
    EXPECT_EQ(view.GetNUp().pagesPerSheet, 2);
    dom[1] = nullptr;
    Reinitialize(kPTJobScope);
    EXPECT_EQ(view.GetNUp().pagesPerSheet, 16);

    // A snapshot without the driver's part is passed over.
    Initialize(
        kPTJobScope, AttributeTicket(NUp(ValueNUp9)),
        PrivateTicket(PrivateParameterInit(L"PageDevmodeSnapshot", Base64(ByteBuffer(300, 1)))));
    EXPECT_EQ(view.GetNUp().pagesPerSheet, 9);

    // Tickets without any: the previous tickets' attributes are not kept.
    Initialize(kPTJobScope, PrivateTicket(L""), PrivateTicket(L""));
    EXPECT_EQ(view.GetNUp().pagesPerSheet, 1);
    EXPECT_TRUE(view.GetAttributeBytesIndexedListRef().IsEmpty());
}

TEST_F(TypedViewTest, UnchangedTicketsKeepTheirWrappersAndDecodedDevmodes) {
    Initialize(kPTPageScope, PrivateTicket(Feature(L"PageOrientation", L"Landscape")),
               AttributeTicket(NUp(ValueNUp4)), PrivateTicket(L""), PrivateTicket(L""));
    PrintTicketXmlDocument* job = view.GetTicketOfScope(kJobSlot);
    PrintTicketXmlDocument* page = view.GetTicketOfScope(kPageSlot);
    EXPECT_EQ(view.GetNUp().pagesPerSheet, 4);
    EXPECT_EQ(view.GetOrientation(), PrintSchema::PageOrientation::Landscape);

    // The next page: a new page DOM, the others as they were. Only the page is wrapped again,
    // and the answers are asked again (the counter moved) with the same results.
    dom[3] = LoadXml(PrivateTicket(L""));
    Reinitialize(kPTPageScope);
    EXPECT_EQ(view.GetTicketOfScope(kJobSlot), job);
    EXPECT_NE(view.GetTicketOfScope(kPageSlot), page);
    EXPECT_EQ(view.GetNUp().pagesPerSheet, 4);
    EXPECT_EQ(view.GetOrientation(), PrintSchema::PageOrientation::Landscape);

    // A ticket edited between two Initialize calls is read afresh: a new option, and a device
    // mode put into the document ticket, which now comes before the job's.
    Rename(0, L"//psf:Feature[@name='psk:PageOrientation']/psf:Option", L"psk:ReversePortrait");
    CComPtr<IXMLDOMDocument2> withDevmode = LoadXml(AttributeTicket(NUp(ValueNUp9)));
    CComPtr<IXMLDOMElement> sourceRoot;
    ASSERT_EQ(withDevmode->get_documentElement(&sourceRoot), S_OK);
    CComPtr<IXMLDOMNode> parameterInit;  // the snapshot
    ASSERT_EQ(sourceRoot->get_firstChild(&parameterInit), S_OK);
    CComPtr<IXMLDOMElement> documentRoot;
    ASSERT_EQ(dom[2]->get_documentElement(&documentRoot), S_OK);
    CComPtr<IXMLDOMNode> moved;
    ASSERT_EQ(documentRoot->appendChild(parameterInit, &moved), S_OK);
    Reinitialize(kPTPageScope);
    EXPECT_EQ(view.GetOrientation(), PrintSchema::PageOrientation::ReversePortrait);
    EXPECT_EQ(view.GetNUp().pagesPerSheet, 9);

    // And when it loses it again, the job's device mode is the one found.
    CComPtr<IXMLDOMNode> removed;
    ASSERT_EQ(documentRoot->removeChild(moved, &removed), S_OK);
    Reinitialize(kPTPageScope);
    EXPECT_EQ(view.GetNUp().pagesPerSheet, 4);
}

// A page ticket handed to the manager as a DOM is what the views of every scope read first.
TEST(TypedViewManager, APageDomReachesTheViewsOfEveryScope) {
    PrintTicketManager manager;
    CComPtr<fakes::ReadStream> stream;
    stream.Attach(new fakes::ReadStream(
        platform::WideToUtf8(PrivateTicket(Feature(L"PageOrientation", L"ReverseLandscape")))));
    CComBSTR printer(L"Manager Printer");
    ASSERT_EQ(manager.Initialise(stream, printer, nullptr), S_OK);
    CComPtr<IXMLDOMDocument2> page =
        LoadXml(PrivateTicket(Feature(L"PageOrientation", L"Landscape")));
    ASSERT_EQ(manager.InitializeWithPrintTicket(kPTPageScope, page), S_OK);
    for (EPrintTicketScope scope : {kPTPageScope, kPTJobScope}) {
        XpsFilterPrintTicket* view = nullptr;
        ASSERT_EQ(manager.GetTicket(scope, &view), S_OK);
        EXPECT_EQ(view->GetOrientation(), PrintSchema::PageOrientation::Landscape) << scope;
    }
}
