// Tests of CPageImageablePCHandler: the imageable area in each orientation from the margins the
// printer's driver reports, the edge-to-edge setting that keeps them at zero, the device mode
// marked for the driver, and bad arguments.
#include "filterpipeline/filterutilities/pageimageablepchandler.h"

#include <gtest/gtest.h>

#include <array>
#include <climits>

#include "filterpipeline/filterutilities/xpsfilterprintticket.h"
#include "mediasizetesting.h"
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

enum Edge { kNoDevmode, kEdgeOn, kEdgeOff };

class PageImageableTest : public ::testing::Test {
protected:
    void SetUp() override {
        // Four different margins, so that each one's place in the record shows.
        WritePrinter(m_scratch.Path(), "Margins",
                     "[Margins]\nLeft=1000\nTop=2000\nRight=3000\nBottom=4000\n"
                     "[Forms]\nA4=25001,9,2100,2970,5011\n");
        WritePrinter(m_scratch.Path(), "Hostile",
                     "[Margins]\nLeft=-2147483648\nTop=2147483647\nRight=-2147483648\n"
                     "Bottom=2147483647\n");
        m_media.width = 210000;
        m_media.height = 297000;
    }

    // Initialises the view with a job ticket of the orientation, optionally behind a device mode
    // snapshot with the edge-to-edge setting; without an orientation, a default ticket of none.
    void UseTicket(const wchar_t* orientation, Edge edge = kNoDevmode) {
        AttributeBytesRawList list;
        list.Add(AttributeBytesItem::MakeOptionValue(
            DataModelIds::FeatureEdgeToEdge,
            edge == kEdgeOn ? DataModelIds::ValueEdgeToEdgeOn : DataModelIds::ValueEdgeToEdgeOff));
        const std::wstring body =
            orientation == nullptr ? L"" : Feature(L"PageOrientation", orientation);
        m_dom = LoadXml(edge != kNoDevmode ? TicketWithSnapshot(DevmodeWithAttributes(list), body)
                                           : PrivateTicket(body));
        ASSERT_TRUE(m_dom);
        CXString printer(L"Margins");
        m_view.Initialize(kPTJobScope, orientation ? nullptr : m_dom.p,
                          orientation ? m_dom.p : nullptr, nullptr, nullptr, nullptr, printer,
                          nullptr);
    }

    ScratchDirectory m_scratch{"imageable"};
    ScopedEnvironment m_registry{"FU_PRINTER_REGISTRY", m_scratch.Path().string()};
    XpsFilterPrintTicket m_view;
    CComPtr<IXMLDOMDocument2> m_dom;
    PageMediaSizeData m_media;
};

}  // namespace

TEST_F(PageImageableTest, ImageableAreaPerOrientationPrinterAndEdgeToEdge) {
    const Record zero{297000, 210000, 0, 0, 297000, 210000};
    const Record portrait{210000, 297000, 1000, 2000, 206000, 291000};
    const Record reverseLandscape{297000, 210000, 2000, 3000, 291000, 206000};
    const struct Row {
        const wchar_t* orientation;  // null: a default ticket without one, read as portrait
        Edge edge;
        const char* printer;  // the sample printer is read from the sample registry
        Record expected;
    } rows[] = {
        // Each orientation turns the media size and takes its origin from another margin pair.
        {L"Portrait", kNoDevmode, "Margins", portrait},
        {L"ReversePortrait", kNoDevmode, "Margins", {210000, 297000, 3000, 4000, 206000, 291000}},
        {L"Landscape", kNoDevmode, "Margins", {297000, 210000, 4000, 1000, 291000, 206000}},
        {L"ReverseLandscape", kNoDevmode, "Margins", reverseLandscape},
        {nullptr, kNoDevmode, "Margins", portrait},
        {L"Landscape", kNoDevmode, kSamplePrinter, {297000, 210000, 4233, 4233, 288534, 201534}},
        {L"Landscape", kNoDevmode, "No Such Printer", zero},
        {L"Landscape", kNoDevmode, nullptr, zero},
        {L"ReverseLandscape", kEdgeOn, "Margins", zero},
        {L"ReverseLandscape", kEdgeOff, "Margins", reverseLandscape},
        // Hostile margins wrap instead of overflowing.
        {L"Portrait", kNoDevmode, "Hostile", {210000, 297000, INT_MIN, INT_MAX, 210000, 297002}},
    };
    for (const Row& row : rows) {
        SCOPED_TRACE(testing::Message()
                     << (row.printer ? row.printer : "<null>") << " "
                     << documenttesting::Utf8(row.orientation) << " edge " << row.edge);
        std::optional<ScopedEnvironment> sample;
        if (row.printer == kSamplePrinter) sample.emplace("FU_PRINTER_REGISTRY", SampleRegistry());
        UseTicket(row.orientation, row.edge);
        CPageImageablePCHandler handler(&m_view);
        PageImageableData data;
        const std::wstring printer = row.printer ? platform::Utf8ToWide(row.printer) : L"";
        ASSERT_EQ(handler.GetData(row.printer ? printer.c_str() : nullptr, &m_media, &data), S_OK);
        EXPECT_EQ(Fields(data), row.expected);
        if (row.edge == kNoDevmode) continue;
        // The view's own device mode is marked for the driver in place, unless the driver is not
        // asked; nothing else of it changes.
        DEVMODEW* held = m_view.GetPublicDevmodePtr();
        ASSERT_NE(held, nullptr);
        EXPECT_EQ(held->dmMediaType == CPageImageablePCHandler::kDriverQueryMarker,
                  row.edge == kEdgeOff);
        EXPECT_EQ(held->dmMediaType == 0xBAADF00Du, row.edge == kEdgeOff);
        EXPECT_EQ(held->dmPaperSize, 9);
    }
}

TEST_F(PageImageableTest, OutputPaperCopiesAndBadArguments) {
    UseTicket(L"Landscape");
    OutputPaperSizeData output;
    output.width = 100000;
    output.height = 150000;
    CPageImageablePCHandler handler(&m_view);
    PageImageableData data;
    ASSERT_EQ(handler.GetData(L"Margins", &output, &data), S_OK);
    EXPECT_EQ(Fields(data), (Record{150000, 100000, 4000, 1000, 144000, 96000}));

    // Copies ask the same view.
    UseTicket(L"ReversePortrait");
    CPageImageablePCHandler copy(handler);
    CPageImageablePCHandler assigned(nullptr);
    assigned = handler;
    for (CPageImageablePCHandler* each : {&copy, &assigned}) {
        ASSERT_EQ(each->GetData(L"Margins", &m_media, &data), S_OK);
        EXPECT_EQ(Fields(data), (Record{210000, 297000, 3000, 4000, 206000, 291000}));
    }

    UseTicket(L"Sideways");
    data.originWidth = 77;
    EXPECT_EQ(handler.GetData(L"Margins", &m_media, &data), E_FAIL);
    EXPECT_EQ(data.originWidth, 77) << "nothing is filled on failure";
    UseTicket(L"Portrait");
    EXPECT_EQ(handler.GetData(L"Margins", static_cast<const PageMediaSizeData*>(nullptr), &data),
              E_POINTER);
    EXPECT_EQ(handler.GetData(L"Margins", static_cast<const OutputPaperSizeData*>(nullptr), &data),
              E_POINTER);
    EXPECT_EQ(handler.GetData(L"Margins", &m_media, nullptr), E_POINTER);
    EXPECT_EQ(CPageImageablePCHandler(nullptr).GetData(L"Margins", &m_media, &data), E_POINTER);
}
