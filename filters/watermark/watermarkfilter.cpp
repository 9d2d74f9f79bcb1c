// watermarkfilter.cpp: the watermark sample filter: per page, the watermark of the page's
// ticket, the page markup re-serialised with the watermark's markup, and the font or image part
// written once per job through the resource cache.
#include "filters/watermark/watermarkfilter.h"

#include <new>

#include "filterpipeline/filterutilities/printreadstreamtoistream.h"
#include "filters/watermark/pagerewriter.h"
#include "platform/com/unicode.h"
#include "support/errorframe/errorframe.h"

namespace {

using PrintSchema::Watermark::WatermarkData;

void Report(const std::string& message) {
    DbgPrint("watermark: %s\n", message.c_str());
}

}  // namespace

WatermarkFilter::WatermarkFilter() = default;
WatermarkFilter::~WatermarkFilter() = default;

HRESULT WatermarkFilter::InitializeFilter(IInterFilterCommunicator* communicator,
                                          IPrintPipelinePropertyBag* propertyBag,
                                          IPrintPipelineManagerControl* managerControl) {
    RETURN_IF_FAILED(XpsFilterBase::InitializeFilter(communicator, propertyBag, managerControl));
    try {
        CComVariant value;
        if (SUCCEEDED(m_pPropertyBag->GetProperty(L"FontFile", &value)) && value.vt == VT_BSTR &&
            value.bstrVal != nullptr && value.bstrVal[0] != L'\0') {
            m_fontFile = platform::WideToUtf8(value.bstrVal);
        }
    } catch (const std::bad_alloc&) {
        return E_OUTOFMEMORY;
    }
    return S_OK;
}

CComPtr<PageRewriter> WatermarkFilter::TakeRewriter() {
    {
        std::lock_guard<std::mutex> lock(m_rewritersMutex);
        if (!m_idleRewriters.empty()) {
            CComPtr<PageRewriter> rewriter = std::move(m_idleRewriters.back());
            m_idleRewriters.pop_back();
            return rewriter;
        }
    }
    CComPtr<PageRewriter> rewriter;
    rewriter.Attach(new PageRewriter(nullptr));
    return rewriter;
}

void WatermarkFilter::GiveBackRewriter(CComPtr<PageRewriter> rewriter) {
    rewriter->SetInserter(nullptr);  // it refers to the finished page's locals
    std::lock_guard<std::mutex> lock(m_rewritersMutex);
    m_idleRewriters.push_back(std::move(rewriter));
}

HRESULT WatermarkFilter::RewritePage(IFixedPage* page, const Insert& insert, Rewrite& outcome) {
    outcome = Rewrite::NoMarkup;
    CComPtr<IPrintReadStream> markup;
    RETURN_IF_FAILED(page->GetStream(&markup));
    CComPtr<IStream> input;
    input.Attach(new CPrintReadStreamToIStream(markup));

    bool hadMarkup = false;
    CComPtr<PageRewriter> rewriter = TakeRewriter();
    rewriter->SetInserter([&](const PageRewriter::RootInfo& root) {
        // Only a FixedPage root gets the watermark; its size comes from its own attributes.
        if (root.width <= 0.0 || root.height <= 0.0) return std::wstring();
        std::wstring text = insert(root.width, root.height, root.prefix);
        hadMarkup = !text.empty();
        return text;
    });
    HRESULT hr = rewriter->Rewrite(input);
    if (FAILED(hr)) {
        GiveBackRewriter(std::move(rewriter));
        if (hr == E_OUTOFMEMORY) return hr;
        outcome = Rewrite::NotParsed;
        return S_OK;
    }
    if (hadMarkup) {
        // The rebuilt page is deflated at the fast level, as it is rewritten on every page.
        CComPtr<IPrintWriteStream> output;
        hr = page->SetPartCompression(Compression_Fast);
        if (SUCCEEDED(hr)) hr = page->GetWriteStream(&output);
        if (SUCCEEDED(hr)) {
            hr = rewriter->WriteTo(output);
            output->Close();
        }
        if (SUCCEEDED(hr)) outcome = Rewrite::Marked;
    }
    GiveBackRewriter(std::move(rewriter));
    return hr;
}

PartFileWriter* WatermarkFilter::ImageWriter(const std::wstring& path, watermark::ImageInfo& info) {
    auto found = m_bitmaps.find(path);
    if (found == m_bitmaps.end()) {
        Bitmap bitmap;
        std::vector<unsigned char> bytes;
        if (!PartFileWriter::ReadFile(platform::WideToUtf8(path), kMaxResourceBytes, bytes)) {
            Report("bitmap " + platform::WideToUtf8(path) + " cannot be read");
        } else if (!watermark::ReadImageInfo(bytes, bitmap.info)) {
            Report("bitmap " + platform::WideToUtf8(path) + " is not a PNG, JPEG or TIFF image");
        } else {
            const std::wstring uri = L"/Resources/Images/Watermark" +
                                     std::to_wstring(m_bitmaps.size() + 1) + bitmap.info.extension;
            bitmap.writer =
                std::make_unique<PartFileWriter>(L"watermark-image:" + path, uri, IID_IPartImage,
                                                 bitmap.info.contentType, std::move(bytes));
        }
        found = m_bitmaps.emplace(path, std::move(bitmap)).first;
    }
    info = found->second.info;
    return found->second.writer.get();
}

HRESULT WatermarkFilter::OnFixedPage(IFixedPage* page) {
    if (page == nullptr) return E_POINTER;
    RETURN_IF_FAILED(m_printTicketManager.InitializeWithPrintTicket(page));
    XpsFilterPrintTicket* ticket = nullptr;
    RETURN_IF_FAILED(m_printTicketManager.GetTicket(kPTPageScope, &ticket));
    bool found = false;
    HRESULT status = S_OK;
    // Each page's work gets its own copy of the settings.
    const auto settings = std::make_shared<const WatermarkData>(ticket->GetWatermark(&found, &status));
    const WatermarkData& data = *settings;
    if (FAILED(status)) {
        Report("the watermark settings cannot be read; the page is passed on unchanged");
        return XpsFilterBase::OnFixedPage(page);
    }

    PartFileWriter* resource = nullptr;
    Insert insert;
    const bool textType = data.type == PrintSchema::Watermark::WatermarkTypeText ||
                          data.type == PrintSchema::Watermark::WatermarkTypeTextAndTimeStamp;
    // A text with nothing drawable leaves the page as it is, unparsed.
    if (textType && !watermark::TextMarkup(data, 1.0, 1.0, L"", kFontUri).empty()) {
        if (!m_fontWriter) {
            std::vector<unsigned char> font;
            if (!PartFileWriter::ReadFile(m_fontFile, kMaxResourceBytes, font)) {
                Report("font " + m_fontFile + " cannot be read");
                return HRESULT_FROM_WIN32(ERROR_FILE_NOT_FOUND);
            }
            m_fontWriter = std::make_unique<PartFileWriter>(
                L"watermark-font", kFontUri, IID_IPartFont, kFontContentType, std::move(font));
        }
        resource = m_fontWriter.get();
        insert = [settings](double width, double height, const std::wstring& prefix) {
            return watermark::TextMarkup(*settings, width, height, prefix, kFontUri);
        };
    } else if (data.type == PrintSchema::Watermark::WatermarkTypeBitmap &&
               data.image.bitmapPath != nullptr && data.image.bitmapPath[0] != L'\0') {
        watermark::ImageInfo info;
        resource = ImageWriter(std::wstring(data.image.bitmapPath), info);
        if (resource != nullptr) {
            const std::wstring uri = resource->Uri();
            insert = [settings, info, uri](double width, double height,
                                           const std::wstring& prefix) {
                return watermark::ImageMarkup(*settings, info, width, height, prefix, uri);
            };
        }
    }
    if (!insert) return XpsFilterBase::OnFixedPage(page);

    // The page is parsed and rewritten on a page thread; the watermark's resource is attached
    // and the page sent on the filter thread, in page order.
    auto outcome = std::make_shared<Rewrite>(Rewrite::NoMarkup);
    return SendPageWhenDone(
        page,
        [this, page, insert = std::move(insert), outcome] {
            return RewritePage(page, insert, *outcome);
        },
        [this, page, resource, outcome](HRESULT rewritten) -> HRESULT {
            RETURN_IF_FAILED(rewritten);
            if (*outcome == Rewrite::NotParsed) {
                ++m_pagesNotParsed;
                Report("page markup does not parse; the page is passed on unchanged");
            } else if (*outcome == Rewrite::Marked) {
                RETURN_IF_FAILED(m_resourceCache.WriteResource(m_pXpsConsumer, page, resource));
                ++m_pagesMarked;
            }
            return S_OK;
        });
}

HRESULT CreateWatermarkFilter(IPrintPipelineFilter** filter) {
    if (filter == nullptr) return E_POINTER;
    *filter = nullptr;
    try {
        *filter = new WatermarkFilter();
    } catch (const std::bad_alloc&) {
        return E_OUTOFMEMORY;
    }
    return S_OK;
}
