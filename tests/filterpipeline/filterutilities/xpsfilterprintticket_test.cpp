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

namespace {

constexpr HRESULT kNotFound = HRESULT_FROM_WIN32(ERROR_NOT_FOUND);

// Exposes the status convention of the getters.
class StatusView : public XpsFilterPrintTicket {
public:
    using XpsFilterPrintTicket::DoStandardStatusReturnProcessing;
};

class TypedViewTest : public ::testing::Test {
protected:
    // Loads each non-empty text and initialises the view with the DOMs (kept for mutation).
    void Initialize(EPrintTicketScope scope, const std::wstring& defaultTicket,
                    const std::wstring& job = L"", const std::wstring& document = L"",
                    const std::wstring& page = L"") {
        dom[0] = defaultTicket.empty() ? nullptr : LoadXml(defaultTicket);
        dom[1] = job.empty() ? nullptr : LoadXml(job);
        dom[2] = document.empty() ? nullptr : LoadXml(document);
        dom[3] = page.empty() ? nullptr : LoadXml(page);
        Reinitialize(scope);
    }

    void Reinitialize(EPrintTicketScope scope) {
        view.Initialize(scope, dom[0], dom[1], dom[2], dom[3], nullptr, printer, token);
    }

    // Renames the Option of the psk:PageOrientation Feature of a slot's DOM.
    void SetOrientationOption(int slot, const wchar_t* option) {
        CComPtr<IXMLDOMNode> node;
        ASSERT_EQ(dom[slot]->selectSingleNode(
                      CComBSTR(L"//psf:Feature[@name='psk:PageOrientation']/psf:Option"), &node),
                  S_OK);
        CComQIPtr<IXMLDOMElement> element(node);
        ASSERT_TRUE(element);
        ASSERT_EQ(element->setAttribute(CComBSTR(L"name"), CComVariant(option)), S_OK);
    }

    std::wstring OptionOf(const wchar_t* feature) {
        CComBSTR option;
        CComBSTR prefix;
        HRESULT hr = view.XpsFilterGetFeatureOption(feature, &option, &prefix);
        if (FAILED(hr)) return L"<" + std::to_wstring(hr) + L">";
        return std::wstring(option) + L"|" + std::wstring(prefix);
    }

    // A ticket whose page snapshot carries `attributes`.
    static std::wstring AttributeTicket(const AttributeBytesRawList& attributes,
                                        const std::wstring& body = L"") {
        return TicketWithSnapshot(DevmodeWithAttributes(attributes), body);
    }

    StatusView view;
    CComPtr<IXMLDOMDocument2> dom[4];
    CXString printer{L"Typed View Printer"};
    HANDLE token = nullptr;
};

AttributeBytesRawList List(std::initializer_list<AttributeBytesItem> items) {
    AttributeBytesRawList list;
    for (const AttributeBytesItem& item : items) list.Add(item);
    return list;
}

}  // namespace

// --- Scopes, counter, slots ---

TEST(TypedViewScopes, PlatformScopesAndFeatureNamesMapOntoSlots) {
    using Base = XpsFilterPrintTicketBase;
    EXPECT_EQ(Base::MsEPrintTicketScopeToEFilterPtScope(kPTPageScope), Base::EFilterPtScopePage);
    EXPECT_EQ(Base::MsEPrintTicketScopeToEFilterPtScope(kPTDocumentScope),
              Base::EFilterPtScopeDocument);
    EXPECT_EQ(Base::MsEPrintTicketScopeToEFilterPtScope(kPTJobScope), Base::EFilterPtScopeJob);
    EXPECT_EQ(Base::MsEPrintTicketScopeToEFilterPtScope(static_cast<EPrintTicketScope>(7)),
              Base::EFilterPtScopeUserDefault);

    EXPECT_EQ(Base::GetFeatureScopeFromName(L"PageMediaSize"), Base::EFilterPtScopePage);
    EXPECT_EQ(Base::GetFeatureScopeFromName(L"DocumentNUp"), Base::EFilterPtScopeDocument);
    EXPECT_EQ(Base::GetFeatureScopeFromName(L"JobCopiesAllDocuments"), Base::EFilterPtScopeJob);
    EXPECT_EQ(Base::GetFeatureScopeFromName(L"OutputPage"), Base::EFilterPtScopeJob);
    EXPECT_EQ(Base::GetFeatureScopeFromName(L"page"), Base::EFilterPtScopeJob);
    EXPECT_EQ(Base::GetFeatureScopeFromName(L""), Base::EFilterPtScopeJob);
}

TEST_F(TypedViewTest, InitializeFillsAndEmptiesTheSlots) {
    EXPECT_EQ(view.GetScope(), kPTJobScope);
    EXPECT_EQ(view.GetFilterScope(), XpsFilterPrintTicketBase::EFilterPtScopeJob);
    EXPECT_EQ(view.GetUserToken(), INVALID_HANDLE_VALUE);
    EXPECT_FALSE(view.GetChangeCounter().IsInitialized());

    std::wstring ticket = PrivateTicket(Feature(L"PageOrientation", L"Landscape"));
    token = reinterpret_cast<HANDLE>(0x1234);
    Initialize(kPTPageScope, ticket, L"", ticket, ticket);
    EXPECT_EQ(view.GetChangeCounter().Get(), 0);
    EXPECT_EQ(view.GetFilterScope(), XpsFilterPrintTicketBase::EFilterPtScopePage);
    EXPECT_NE(view.GetTicketOfScope(XpsFilterPrintTicketBase::EFilterPtScopeUserDefault), nullptr);
    EXPECT_EQ(view.GetTicketOfScope(XpsFilterPrintTicketBase::EFilterPtScopeJob), nullptr);
    EXPECT_NE(view.GetTicketOfScope(XpsFilterPrintTicketBase::EFilterPtScopePage), nullptr);
    EXPECT_EQ(view.GetMergedTicket(), nullptr);
    EXPECT_EQ(view.GetPrinterName().Compare(L"Typed View Printer"), 0);
    EXPECT_EQ(view.GetUserToken(), token);

    dom[3] = nullptr;
    Reinitialize(kPTDocumentScope);
    EXPECT_EQ(view.GetChangeCounter().Get(), 1);
    EXPECT_EQ(view.GetTicketOfScope(XpsFilterPrintTicketBase::EFilterPtScopePage), nullptr);
    EXPECT_EQ(view.GetFilterScope(), XpsFilterPrintTicketBase::EFilterPtScopeDocument);

    // A DOM that is not a PrintTicket is refused by its wrapper.
    CComPtr<IXMLDOMDocument2> capabilities = LoadXml(documenttesting::Capabilities(L""));
    EXPECT_THROW(view.Initialize(kPTJobScope, capabilities, nullptr, nullptr, nullptr, nullptr,
                                 printer, token),
                 ZorunComException);
}

// --- Lookups ---

TEST_F(TypedViewTest, APageViewFindsAJobLevelFeature) {
    Initialize(kPTPageScope, PrivateTicket(L""),
               PrivateTicket(Feature(L"JobDuplexAllDocumentsContiguously", L"TwoSidedLongEdge") +
                             Feature(L"PageOrientation", L"Landscape")),
               PrivateTicket(L""), PrivateTicket(L""));
    EXPECT_EQ(OptionOf(L"JobDuplexAllDocumentsContiguously"), L"TwoSidedLongEdge|psk:");
    bool found = false;
    HRESULT status = E_FAIL;
    EXPECT_EQ(view.GetOrientation(&found, &status), PrintSchema::PageOrientation::Landscape);
    EXPECT_TRUE(found);
    EXPECT_EQ(status, S_OK);
}

TEST_F(TypedViewTest, AFeatureIsLookedForFromTheScopeItsNameImplies) {
    Initialize(kPTJobScope,
               PrivateTicket(Feature(L"PageOrientation", L"ReversePortrait") +
                             Feature(L"JobCopiesAllDocuments", L"Five")),
               PrivateTicket(Feature(L"PageOrientation", L"Portrait")),
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

    // Without a page ticket a page feature is found further up.
    dom[3] = nullptr;
    Reinitialize(kPTPageScope);
    EXPECT_EQ(OptionOf(L"PageOrientation"), L"Portrait|psk:");
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

// --- Orientation: caching and status ---

TEST_F(TypedViewTest, AnAbsentOrientationIsTheDefaultAndAskedAgain) {
    Initialize(kPTPageScope, L"", L"", L"",
               PrivateTicket(Feature(L"PageOrientation", L"Landscape")));
    EXPECT_EQ(view.GetOrientation(), PrintSchema::PageOrientation::Landscape);

    Initialize(kPTPageScope, L"", L"", L"",
               PrivateTicket(Feature(L"Unrelated", L"ReverseLandscape")));
    bool found = true;
    HRESULT status = E_FAIL;
    EXPECT_EQ(view.GetOrientation(&found, &status), PrintSchema::PageOrientation::Portrait);
    EXPECT_FALSE(found);
    EXPECT_EQ(status, S_FALSE);
    EXPECT_EQ(view.GetOrientation(), PrintSchema::PageOrientation::Portrait);  // no throw

    // Not cached: a feature that appears since is seen without an Initialize.
    CComPtr<IXMLDOMNode> feature;
    ASSERT_EQ(dom[3]->selectSingleNode(CComBSTR(L"//psf:Feature"), &feature), S_OK);
    CComQIPtr<IXMLDOMElement> element(feature);
    ASSERT_TRUE(element);
    ASSERT_EQ(element->setAttribute(CComBSTR(L"name"), CComVariant(L"psk:PageOrientation")), S_OK);
    EXPECT_EQ(view.GetOrientation(&found), PrintSchema::PageOrientation::ReverseLandscape);
    EXPECT_TRUE(found);
}

TEST_F(TypedViewTest, AnUnknownOrientationIsThrownOrReturnedInStatus) {
    Initialize(kPTPageScope, L"", L"", L"",
               PrivateTicket(Feature(L"PageOrientation", L"Sideways")));
    EXPECT_EQ(ThrownHresult([&] { view.GetOrientation(); }), E_FAIL);
    EXPECT_EQ(ThrownFunction([&] { view.GetOrientation(); }),
              L"XpsFilterPrintTicket::GetOrientation");
    bool found = true;
    EXPECT_EQ(ThrownHresult([&] { view.GetOrientation(&found); }), E_FAIL);
    EXPECT_FALSE(found);

    HRESULT status = S_OK;
    EXPECT_EQ(view.GetOrientation(&found, &status), PrintSchema::PageOrientation::Portrait);
    EXPECT_EQ(status, E_FAIL);
    EXPECT_FALSE(found);

    // Keywords are case-sensitive.
    SetOrientationOption(3, L"psk:landscape");
    Reinitialize(kPTPageScope);
    EXPECT_EQ(view.GetOrientation(nullptr, &status), PrintSchema::PageOrientation::Portrait);
    EXPECT_EQ(status, E_FAIL);
}

// --- Media size ---

TEST_F(TypedViewTest, TheMediaSizeNeedsTheDriverAttributes) {
    std::wstring size = MediaSizeFeature(210000, 297000);
    Initialize(kPTPageScope, L"", PrivateTicket(size));
    bool found = false;
    HRESULT status = E_FAIL;
    const auto& letter = view.GetPageMediaSize(&found, &status);
    EXPECT_EQ(letter.width, 215900);
    EXPECT_EQ(letter.height, 279400);
    EXPECT_TRUE(found);
    EXPECT_EQ(status, S_OK);

    AttributeBytesRawList attributes =
        List({AttributeBytesItem::MakeInteger(FeatureScalingPercentage, 100)});
    Initialize(kPTPageScope, L"", AttributeTicket(attributes, size));
    const auto& a4 = view.GetPageMediaSize(&found, &status);
    EXPECT_EQ(a4.width, 210000);
    EXPECT_EQ(a4.height, 297000);
    EXPECT_TRUE(found);

    Initialize(kPTPageScope, L"", AttributeTicket(attributes));
    const auto& absent = view.GetPageMediaSize(&found, &status);
    EXPECT_EQ(absent.width, 215900);
    EXPECT_FALSE(found);
    EXPECT_EQ(status, S_FALSE);
    // Cached with its answer.
    view.GetPageMediaSize(&found, &status);
    EXPECT_FALSE(found);
    EXPECT_EQ(status, S_FALSE);
}

// --- Getters over the driver's attributes ---

TEST_F(TypedViewTest, NUpMapsThePagesPerSheetAndIsAlwaysFound) {
    struct Case {
        long value;
        LONG pages;
    } cases[] = {{ValueNUp1, 1}, {ValueNUp2, 2},   {ValueNUp4, 4}, {ValueNUp6, 6},
                 {ValueNUp9, 9}, {ValueNUp16, 16}, {9999, 1}};
    for (const Case& c : cases) {
        Initialize(
            kPTJobScope, L"",
            AttributeTicket(
                List({AttributeBytesItem::MakeOptionValue(FeatureNUpPagesPerSheet,
                                                          static_cast<tagValueEnum>(c.value)),
                      AttributeBytesItem::MakeOptionValue(FeatureNUpPageOrder,
                                                          static_cast<tagValueEnum>(7612)),
                      AttributeBytesItem::MakeOptionValue(FeatureEdgeToEdge, ValueEdgeToEdgeOn)})));
        const auto& nUp = view.GetNUp();
        EXPECT_EQ(nUp.pagesPerSheet, c.pages) << c.value;
        EXPECT_EQ(nUp.pageOrder, 7611);
        EXPECT_EQ(nUp.edgeToEdge, 8010);
        EXPECT_EQ(nUp.presentationDirection, PrintSchema::NUp::RightBottom);
    }
    Initialize(kPTJobScope, L"", PrivateTicket(L""));
    bool found = false;
    HRESULT status = E_FAIL;
    EXPECT_EQ(view.GetNUp(&found, &status).pagesPerSheet, 1);
    EXPECT_TRUE(found);
    EXPECT_EQ(status, S_OK);
}

TEST_F(TypedViewTest, BookletBindingReadsEdgeGutterAndCreep) {
    using namespace PrintSchema::Binding;
    auto binding = [&](AttributeBytesRawList list) {
        Initialize(kPTDocumentScope, L"", AttributeTicket(list));
        return view.GetBookletBinding();
    };
    EXPECT_EQ(binding(List({AttributeBytesItem::MakeBoolean(FeatureBooklet, true),
                            AttributeBytesItem::MakeOptionValue(FeatureBookletBindingEdge,
                                                                ValueBindingEdgeRight)}))
                  .bindingOption,
              BindRight);
    EXPECT_EQ(binding(List({AttributeBytesItem::MakeBoolean(FeatureBooklet, true),
                            AttributeBytesItem::MakeOptionValue(FeatureBookletBindingEdge,
                                                                ValueBindingEdgeLeft)}))
                  .bindingOption,
              BindLeft);
    EXPECT_EQ(binding(List({AttributeBytesItem::MakeBoolean(FeatureBooklet, true)})).bindingOption,
              BindLeft);
    EXPECT_EQ(binding(List({AttributeBytesItem::MakeBoolean(FeatureBooklet, false)})).bindingOption,
              None);
    // A booklet value the user did not choose does not count.
    EXPECT_EQ(
        binding(List({AttributeBytesItem::MakeBoolean(FeatureBooklet, true, false)})).bindingOption,
        None);

    // Gutter: micrometres to hundredths of a millimetre; creep: to thousandths of an inch;
    // halves round down.
    BindingData sizes = binding(List({AttributeBytesItem::MakeInteger(FeatureBookletGutter, 1005),
                                      AttributeBytesItem::MakeInteger(FeatureBookletCreep, 254)}));
    EXPECT_EQ(sizes.gutter, 100);
    EXPECT_EQ(sizes.creep, 10);
    sizes = binding(List({AttributeBytesItem::MakeInteger(FeatureBookletGutter, 1006),
                          AttributeBytesItem::MakeInteger(FeatureBookletCreep, 300, false)}));
    EXPECT_EQ(sizes.gutter, 101);
    EXPECT_EQ(sizes.creep, 0);
    EXPECT_EQ(sizes.bindingOption, None);
}

namespace {

// Output paper settings: fit on, and a paper of code `code` with the given size.
AttributeBytesRawList OutputPaper(long fit, long code, double width, double height, int unit) {
    AttributeBytesRawList dimensions;
    dimensions.Add(AttributeBytesItem::MakeDimension(FeaturePaperWidth, width, unit));
    dimensions.Add(AttributeBytesItem::MakeDimension(FeaturePaperHeight, height, unit));
    AttributeBytesRawList paper;
    paper.Add(
        AttributeBytesItem::MakeOptionValue(FeaturePaperSize, static_cast<tagValueEnum>(code)));
    paper.Add(AttributeBytesItem::MakeCollection(FeatureCustomPaperDimensions, dimensions));
    AttributeBytesRawList settings;
    settings.Add(AttributeBytesItem::MakeCollection(FeatureOutputPaper, paper));
    AttributeBytesRawList list;
    list.Add(AttributeBytesItem::MakeOptionValue(FeatureFitToOutputPaper,
                                                 static_cast<tagValueEnum>(fit)));
    list.Add(AttributeBytesItem::MakeCollection(FeatureOutputPaperSettings, settings));
    return list;
}

}  // namespace

TEST_F(TypedViewTest, TheOutputPaperSizeComesFromTheNestedSettings) {
    Initialize(kPTJobScope, L"",
               AttributeTicket(OutputPaper(ValueFitToOutputPaperOn, ValuePageSizeISOA4, 210.0,
                                           297.0, Dimension::Millimeters)));
    bool found = false;
    const auto& a4 = view.GetOutputPaperSize(&found);
    EXPECT_TRUE(found);
    EXPECT_EQ(a4.width, 210000);
    EXPECT_EQ(a4.height, 297000);
    EXPECT_EQ(a4.paperSize, ValuePageSizeISOA4);
    EXPECT_TRUE(a4.fitToOutputPaper);

    for (auto list :
         {OutputPaper(ValueFitToOutputPaperOff, ValuePageSizeISOA4, 210, 297,
                      Dimension::Millimeters),
          OutputPaper(ValueFitToOutputPaperOn, ValueAny, 210, 297, Dimension::Millimeters)}) {
        Initialize(kPTJobScope, L"", AttributeTicket(list));
        const auto& none = view.GetOutputPaperSize();
        EXPECT_EQ(none.width, 215900);
        EXPECT_EQ(none.height, 279400);
        EXPECT_EQ(none.paperSize, ValueAny);
        EXPECT_FALSE(none.fitToOutputPaper);
    }
    Initialize(kPTJobScope, L"", PrivateTicket(L""));
    EXPECT_FALSE(view.GetOutputPaperSize().fitToOutputPaper);
}

TEST_F(TypedViewTest, PageScalingWithoutAttributesIsTheFittedDefault) {
    Initialize(kPTPageScope, L"", PrivateTicket(L""));
    bool found = false;
    HRESULT status = E_FAIL;
    const auto& scaling = view.GetPageScaling(&found, &status);
    EXPECT_TRUE(found);
    EXPECT_EQ(status, S_FALSE);
    EXPECT_EQ(scaling.option, PrintSchema::PageScaling::FitApplicationMediaSizeToPageMediaSize);
    EXPECT_EQ(scaling.scaleWidth, 100);
    EXPECT_EQ(scaling.scaleHeight, 100);
    EXPECT_EQ(scaling.anchor, PrintSchema::PageScaling::Center);
    EXPECT_EQ(scaling.scalingRequested, FALSE);
    EXPECT_EQ(scaling.scalingMode, ValueScalingModeNone);
    EXPECT_EQ(scaling.fitBasis, ValueScalingFitBasisPaper);
    EXPECT_EQ(scaling.offsetWidth, 0);
}

TEST_F(TypedViewTest, PageScalingReadsModePercentageAnchorAndBasis) {
    using namespace PrintSchema::PageScaling;
    AttributeBytesRawList list = List({
        AttributeBytesItem::MakeOptionValue(FeatureScalingMode, ValueScalingModeZoom),
        AttributeBytesItem::MakeInteger(FeatureScalingPercentage, 150),
        AttributeBytesItem::MakeOptionValue(FeatureScalingAnchor, ValueScalingAnchorBottomLeft),
        AttributeBytesItem::MakeOptionValue(FeatureScalingFitBasis,
                                            ValueScalingFitBasisPrintableArea),
    });
    Initialize(kPTPageScope, L"", AttributeTicket(list));
    HRESULT status = E_FAIL;
    const PageScalingData& scaling = view.GetPageScaling(nullptr, &status);
    EXPECT_EQ(status, S_OK);
    EXPECT_EQ(scaling.scalingRequested, TRUE);
    EXPECT_EQ(scaling.scalingMode, ValueScalingModeZoom);
    EXPECT_EQ(scaling.scaleWidth, 150);
    EXPECT_EQ(scaling.scaleHeight, 150);
    EXPECT_EQ(scaling.anchor, BottomLeft);
    EXPECT_EQ(scaling.fitBasis, ValueScalingFitBasisPrintableArea);
    EXPECT_EQ(scaling.option, FitApplicationMediaSizeToPageMediaSize);

    const std::pair<long, LONG> anchors[] = {{ValueScalingAnchorTopLeft, TopLeft},
                                             {ValueScalingAnchorLeftCenter, LeftCenter},
                                             {ValueScalingAnchorTopRight, TopRight},
                                             {ValueScalingAnchorRightCenter, RightCenter},
                                             {ValueScalingAnchorBottomRight, BottomRight},
                                             {ValueScalingAnchorTopCenter, TopCenter},
                                             {ValueScalingAnchorCenter, Center},
                                             {ValueScalingAnchorBottomCenter, BottomCenter},
                                             {7469, TopLeft},
                                             {7459, TopLeft}};
    for (const auto& [value, anchor] : anchors) {
        Initialize(kPTPageScope, L"",
                   AttributeTicket(List({AttributeBytesItem::MakeOptionValue(
                       FeatureScalingAnchor, static_cast<tagValueEnum>(value))})));
        EXPECT_EQ(view.GetPageScaling().anchor, anchor) << value;
        EXPECT_EQ(view.GetPageScaling().scalingRequested, FALSE);
    }
}

TEST_F(TypedViewTest, FittingToTheDocumentsOwnPaperCancelsScaling) {
    auto requested = [&](long code) {
        AttributeBytesRawList list =
            OutputPaper(ValueFitToOutputPaperOn, code, 100, 100, Dimension::Millimeters);
        list.Add(
            AttributeBytesItem::MakeOptionValue(FeatureScalingMode, ValueScalingModeFitToPaper));
        Initialize(kPTPageScope, L"", AttributeTicket(list));
        return view.GetPageScaling().scalingRequested;
    };
    EXPECT_EQ(requested(ValuePaperSizeSameAsDocument), FALSE);
    EXPECT_EQ(requested(ValueAny), FALSE);
    EXPECT_EQ(requested(ValuePageSizeISOA4), TRUE);
}

// --- Where the attributes come from ---

TEST_F(TypedViewTest, TheAttributesComeFromTheFirstTicketFromTheViewsScopeUp) {
    auto nUp = [](long value) {
        return List({AttributeBytesItem::MakeOptionValue(FeatureNUpPagesPerSheet,
                                                         static_cast<tagValueEnum>(value))});
    };
    Initialize(kPTPageScope, AttributeTicket(nUp(ValueNUp16)), AttributeTicket(nUp(ValueNUp2)),
               AttributeTicket(nUp(ValueNUp4)), PrivateTicket(L""));
    EXPECT_EQ(view.GetNUp().pagesPerSheet, 4);
    Reinitialize(kPTJobScope);
    EXPECT_EQ(view.GetNUp().pagesPerSheet, 2);
    dom[1] = nullptr;
    Reinitialize(kPTJobScope);
    EXPECT_EQ(view.GetNUp().pagesPerSheet, 16);

    // A snapshot without the driver's part is passed over.
    Initialize(
        kPTJobScope, AttributeTicket(nUp(ValueNUp9)),
        PrivateTicket(PrivateParameterInit(L"PageDevmodeSnapshot", Base64(ByteBuffer(300, 1)))));
    EXPECT_EQ(view.GetNUp().pagesPerSheet, 9);

    // Tickets without any: the previous tickets' attributes are not kept.
    Initialize(kPTJobScope, PrivateTicket(L""), PrivateTicket(L""));
    EXPECT_EQ(view.GetNUp().pagesPerSheet, 1);
    EXPECT_TRUE(view.GetAttributeBytesIndexedListRef().IsEmpty());
}

TEST_F(TypedViewTest, UnchangedTicketsKeepTheirWrappersAndDecodedDevmodes) {
    auto nUp = [](long value) {
        return List({AttributeBytesItem::MakeOptionValue(FeatureNUpPagesPerSheet,
                                                         static_cast<tagValueEnum>(value))});
    };
    Initialize(kPTPageScope, PrivateTicket(Feature(L"PageOrientation", L"Landscape")),
               AttributeTicket(nUp(ValueNUp4)), PrivateTicket(L""), PrivateTicket(L""));
    using Scope = XpsFilterPrintTicketBase;
    PrintTicketXmlDocument* job = view.GetTicketOfScope(Scope::EFilterPtScopeJob);
    PrintTicketXmlDocument* page = view.GetTicketOfScope(Scope::EFilterPtScopePage);
    EXPECT_EQ(view.GetNUp().pagesPerSheet, 4);
    EXPECT_EQ(view.GetOrientation(), PrintSchema::PageOrientation::Landscape);

    // The next page: a new page DOM, the others as they were. Only the page is wrapped again,
    // and the answers are asked again (the counter moved) with the same results.
    dom[3] = LoadXml(PrivateTicket(L""));
    Reinitialize(kPTPageScope);
    EXPECT_EQ(view.GetTicketOfScope(Scope::EFilterPtScopeJob), job);
    EXPECT_NE(view.GetTicketOfScope(Scope::EFilterPtScopePage), page);
    EXPECT_EQ(view.GetNUp().pagesPerSheet, 4);
    EXPECT_EQ(view.GetOrientation(), PrintSchema::PageOrientation::Landscape);

    // A ticket edited between two Initialize calls is read afresh: a new option, and a device
    // mode put into the document ticket, which now comes before the job's.
    SetOrientationOption(0, L"psk:ReversePortrait");
    CComPtr<IXMLDOMDocument2> withDevmode = LoadXml(AttributeTicket(nUp(ValueNUp9)));
    ASSERT_EQ(withDevmode->setProperty(
                  CComBSTR(L"SelectionNamespaces"),
                  CComVariant((L"xmlns:psf='" + documenttesting::kFramework + L"'").c_str())),
              S_OK);
    CComPtr<IXMLDOMNode> parameterInit;
    ASSERT_EQ(withDevmode->selectSingleNode(CComBSTR(L"//psf:ParameterInit"), &parameterInit),
              S_OK);
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

TEST(TypedViewManager, TheManagersViewsAnswerFromTheirScopes) {
    PrintTicketManager manager;
    CComPtr<fakes::ReadStream> stream;
    stream.Attach(new fakes::ReadStream(
        platform::WideToUtf8(PrivateTicket(Feature(L"PageOrientation", L"ReverseLandscape")))));
    CComBSTR printer(L"Manager Printer");
    ASSERT_EQ(manager.Initialise(stream, printer, nullptr), S_OK);
    CComPtr<IXMLDOMDocument2> page =
        LoadXml(PrivateTicket(Feature(L"PageOrientation", L"Landscape")));
    ASSERT_EQ(manager.InitializeWithPrintTicket(kPTPageScope, page), S_OK);

    XpsFilterPrintTicket* view = nullptr;
    ASSERT_EQ(manager.GetTicket(kPTPageScope, &view), S_OK);
    EXPECT_EQ(view->GetOrientation(), PrintSchema::PageOrientation::Landscape);
    ASSERT_EQ(manager.GetTicket(kPTJobScope, &view), S_OK);
    // The job view asks page features of the page ticket first too: every view sees all slots.
    EXPECT_EQ(view->GetOrientation(), PrintSchema::PageOrientation::Landscape);
    EXPECT_EQ(view->GetPrinterName().Compare(L"Manager Printer"), 0);
}
