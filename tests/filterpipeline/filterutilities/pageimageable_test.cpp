// Tests of CPageImageablePCHandler: the imageable area in each orientation from the margins the
// printer's driver reports, the edge-to-edge setting that keeps them at zero, the device mode
// marked for the driver, and bad arguments.
#include "filterpipeline/filterutilities/pageimageablepchandler.h"

#include <gtest/gtest.h>

#include <array>

#include "filterpipeline/filterutilities/xpsfilterprintticket.h"
#include "mediasizetesting.h"
#include "platform/com/unicode.h"
#include "privatedatatesting.h"

namespace {

using namespace mediasizetesting;
using namespace privatedatatesting;
using PrintSchema::OutputPaperSize::OutputPaperSizeData;
using PrintSchema::PageImageableSize::PageImageableData;
using PrintSchema::PageMediaSize::PageMediaSizeData;

// size w, size h, origin w, origin h, extent w, extent h
using Record = std::array<LONG, 6>;

Record Fields(const PageImageableData& data) {
    return {data.imageableSizeWidth, data.imageableSizeHeight, data.originWidth,
            data.originHeight,       data.extentWidth,         data.extentHeight};
}

AttributeBytesRawList EdgeToEdge(DataModelIds::tagValueEnum value) {
    AttributeBytesRawList list;
    list.Add(AttributeBytesItem::MakeOptionValue(DataModelIds::FeatureEdgeToEdge, value));
    return list;
}

class PageImageableTest : public ::testing::Test {
protected:
    void SetUp() override {
        // Four different margins, so that each one's place in the record shows.
        WritePrinter(m_scratch.Path(), "Margins",
                     "[Margins]\nLeft=1000\nTop=2000\nRight=3000\nBottom=4000\n"
                     "[Forms]\nA4=25001,9,2100,2970,5011\n");
        m_registry.emplace("FU_PRINTER_REGISTRY", m_scratch.Path().string());
        m_media.width = 210000;
        m_media.height = 297000;
    }

    // Initialises the view with a job ticket of the orientation and `more`, optionally behind a
    // page device mode snapshot.
    void UseTicket(const wchar_t* orientation, const ByteBuffer* devmode = nullptr) {
        const std::wstring body =
            L"<psf:Feature name='psk:PageOrientation'><psf:Option name='psk:" +
            std::wstring(orientation) + L"'/></psf:Feature>";
        m_dom = LoadXml(devmode ? TicketWithSnapshot(*devmode, body) : PrivateTicket(body));
        ASSERT_TRUE(m_dom);
        CXString printer(L"Margins");
        m_view.Initialize(kPTJobScope, nullptr, m_dom, nullptr, nullptr, nullptr, printer, nullptr);
    }

    Record Imageable(const wchar_t* printer = L"Margins") {
        CPageImageablePCHandler handler(&m_view);
        PageImageableData data;
        EXPECT_EQ(handler.GetData(printer, &m_media, &data), S_OK);
        return Fields(data);
    }

    ScratchDirectory m_scratch{"imageable"};
    std::optional<ScopedEnvironment> m_registry;
    XpsFilterPrintTicket m_view;
    CComPtr<IXMLDOMDocument2> m_dom;
    PageMediaSizeData m_media;
};

// Each orientation turns the media size and takes its origin from another pair of margins.
TEST_F(PageImageableTest, EachOrientationTurnsTheSizeAndPicksItsOrigin) {
    const struct {
        const wchar_t* orientation;
        Record expected;
    } rows[] = {
        {L"Portrait", {210000, 297000, 1000, 2000, 206000, 291000}},
        {L"ReversePortrait", {210000, 297000, 3000, 4000, 206000, 291000}},
        {L"Landscape", {297000, 210000, 4000, 1000, 291000, 206000}},
        {L"ReverseLandscape", {297000, 210000, 2000, 3000, 291000, 206000}},
    };
    for (const auto& row : rows) {
        SCOPED_TRACE(platform::WideToUtf8(row.orientation));
        UseTicket(row.orientation);
        EXPECT_EQ(Imageable(), row.expected);
    }
}

TEST_F(PageImageableTest, WithoutAnOrientationTheTicketIsPortrait) {
    m_dom = LoadXml(PrivateTicket(L""));
    ASSERT_TRUE(m_dom);
    CXString printer(L"Margins");
    m_view.Initialize(kPTJobScope, m_dom, nullptr, nullptr, nullptr, nullptr, printer, nullptr);
    EXPECT_EQ(Imageable(), (Record{210000, 297000, 1000, 2000, 206000, 291000}));
}

TEST_F(PageImageableTest, TheSamplePrintersMarginsAndAnUnknownPrinter) {
    ScopedEnvironment sample("FU_PRINTER_REGISTRY", SampleRegistry());
    UseTicket(L"Landscape");
    EXPECT_EQ(Imageable(L"Zorun Sample Printer"),
              (Record{297000, 210000, 4233, 4233, 297000 - 8466, 210000 - 8466}));
    EXPECT_EQ(Imageable(L"No Such Printer"), (Record{297000, 210000, 0, 0, 297000, 210000}));
    EXPECT_EQ(Imageable(nullptr), (Record{297000, 210000, 0, 0, 297000, 210000}));
}

TEST_F(PageImageableTest, EdgeToEdgeKeepsEveryMarginAtZero) {
    const ByteBuffer on = DevmodeWithAttributes(EdgeToEdge(DataModelIds::ValueEdgeToEdgeOn));
    UseTicket(L"ReverseLandscape", &on);
    EXPECT_EQ(Imageable(), (Record{297000, 210000, 0, 0, 297000, 210000}));
    ASSERT_NE(m_view.GetPublicDevmodePtr(), nullptr);
    EXPECT_NE(m_view.GetPublicDevmodePtr()->dmMediaType,
              CPageImageablePCHandler::kDriverQueryMarker)
        << "the driver was not asked";

    const ByteBuffer off = DevmodeWithAttributes(EdgeToEdge(DataModelIds::ValueEdgeToEdgeOff));
    UseTicket(L"ReverseLandscape", &off);
    EXPECT_EQ(Imageable(), (Record{297000, 210000, 2000, 3000, 291000, 206000}));
}

TEST_F(PageImageableTest, TheViewsDevmodeIsMarkedForTheDriverInPlace) {
    const ByteBuffer devmode = DevmodeWithAttributes(EdgeToEdge(DataModelIds::ValueEdgeToEdgeOff));
    UseTicket(L"Portrait", &devmode);
    Imageable();
    DEVMODEW* held = m_view.GetPublicDevmodePtr();
    ASSERT_NE(held, nullptr);
    EXPECT_EQ(held->dmMediaType, 0xBAADF00Du);
    EXPECT_EQ(held->dmPaperSize, 9) << "nothing else of the device mode changes";
}

TEST_F(PageImageableTest, TheOutputPaperFormUsesItsWidthAndHeight) {
    UseTicket(L"Landscape");
    OutputPaperSizeData output;
    output.width = 100000;
    output.height = 150000;
    CPageImageablePCHandler handler(&m_view);
    PageImageableData data;
    ASSERT_EQ(handler.GetData(L"Margins", &output, &data), S_OK);
    EXPECT_EQ(Fields(data), (Record{150000, 100000, 4000, 1000, 144000, 96000}));
}

TEST_F(PageImageableTest, CopiesAskTheSameView) {
    UseTicket(L"ReversePortrait");
    CPageImageablePCHandler first(&m_view);
    CPageImageablePCHandler copy(first);
    CPageImageablePCHandler assigned(nullptr);
    assigned = first;
    PageImageableData a;
    PageImageableData b;
    ASSERT_EQ(copy.GetData(L"Margins", &m_media, &a), S_OK);
    ASSERT_EQ(assigned.GetData(L"Margins", &m_media, &b), S_OK);
    EXPECT_EQ(Fields(a), (Record{210000, 297000, 3000, 4000, 206000, 291000}));
    EXPECT_EQ(Fields(a), Fields(b));
}

TEST_F(PageImageableTest, BadArgumentsAndABadOrientationAreReturned) {
    UseTicket(L"Sideways");
    CPageImageablePCHandler handler(&m_view);
    PageImageableData data;
    data.originWidth = 77;
    EXPECT_EQ(handler.GetData(L"Margins", &m_media, &data), E_FAIL);
    EXPECT_EQ(data.originWidth, 77) << "nothing is filled on failure";

    UseTicket(L"Portrait");
    EXPECT_EQ(handler.GetData(L"Margins", static_cast<const PageMediaSizeData*>(nullptr), &data),
              E_POINTER);
    EXPECT_EQ(handler.GetData(L"Margins", static_cast<const OutputPaperSizeData*>(nullptr), &data),
              E_POINTER);
    EXPECT_EQ(handler.GetData(L"Margins", &m_media, nullptr), E_POINTER);
    CPageImageablePCHandler noView(nullptr);
    EXPECT_EQ(noView.GetData(L"Margins", &m_media, &data), E_POINTER);
}

TEST_F(PageImageableTest, HostileMarginsDoNotOverflow) {
    WritePrinter(m_scratch.Path(), "Hostile",
                 "[Margins]\nLeft=-2147483648\nTop=2147483647\nRight=-2147483648\n"
                 "Bottom=2147483647\n");
    UseTicket(L"Portrait");
    const Record record = Imageable(L"Hostile");
    EXPECT_EQ(record[2], -2147483647 - 1);
    EXPECT_EQ(record[3], 2147483647);
}

}  // namespace
