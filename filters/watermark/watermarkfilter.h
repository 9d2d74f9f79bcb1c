// watermarkfilter.h: WatermarkFilter, a sample filter that draws the watermark the page's
// ticket names on every page. The ticket's driver private data gives the watermark's number;
// the user's watermark settings file gives its text or bitmap, font size, colour, density and
// offsets (docs/watermark.md). A text watermark becomes a Glyphs element in an embedded font
// (DejaVu Sans, written once per job); a bitmap watermark becomes a Path filled with an
// ImageBrush over an image part (written once per job). The page markup is re-serialised
// through a SAX handler with the watermark inserted before the page's closing tag. Pages
// without a watermark, with markup that is not well-formed, or whose bitmap cannot be read are
// passed on unchanged. Pages are parsed and rewritten on the filter's page threads
// (XpsFilterBase::SendPageWhenDone) and leave in order. docs/watermarkfilter.md has the details.
//
//   <Filter name="watermark" builtin="watermark">
//     <Parameter name="FontFile" value="/usr/share/fonts/truetype/dejavu/DejaVuSans.ttf"/>
//   </Filter>
#pragma once

#include <atomic>
#include <map>
#include <memory>
#include <mutex>
#include <string>
#include <vector>

#include "filterpipeline/filterutilities/xpsfilterbase.h"
#include "filters/watermark/pagerewriter.h"
#include "filters/watermark/partfilewriter.h"
#include "filters/watermark/watermarkmarkup.h"

class WatermarkFilter : public XpsFilterBase {
public:
    // The font text watermarks are drawn in, and where it goes in the output package.
    static constexpr char kDefaultFontFile[] = "/usr/share/fonts/truetype/dejavu/DejaVuSans.ttf";
    static constexpr wchar_t kFontUri[] = L"/Resources/Fonts/WatermarkDejaVuSans.ttf";
    static constexpr wchar_t kFontContentType[] = L"application/vnd.ms-opentype";
    // The largest font or bitmap file read.
    static constexpr std::size_t kMaxResourceBytes = 64u << 20;

    WatermarkFilter();
    ~WatermarkFilter() override;

    // Stores the pipeline objects and reads the optional FontFile parameter.
    HRESULT InitializeFilter(IInterFilterCommunicator* communicator,
                             IPrintPipelinePropertyBag* propertyBag,
                             IPrintPipelineManagerControl* managerControl) override;

    // Pages seen, pages that got a watermark, pages passed on unchanged because their markup
    // did not parse.
    ULONG PagesMarked() const { return m_pagesMarked; }
    ULONG PagesNotParsed() const { return m_pagesNotParsed; }

protected:
    HRESULT OnFixedPage(IFixedPage* page) override;

private:
    using Insert = std::function<std::wstring(double, double, const std::wstring&)>;
    // What rewriting one page came to.
    enum class Rewrite { Marked, NoMarkup, NotParsed };
    // Re-serialises the page with `insert` added (on a page thread); the page is left as it was
    // unless the result is Marked.
    HRESULT RewritePage(IFixedPage* page, const Insert& insert, Rewrite& outcome);
    // A rewriter for one page's work, reused from page to page (its output buffer keeps its
    // capacity); each page thread takes one and gives it back.
    CComPtr<PageRewriter> TakeRewriter();
    void GiveBackRewriter(CComPtr<PageRewriter> rewriter);
    // The bitmap's part writer, read once per file; null when the file cannot be used.
    PartFileWriter* ImageWriter(const std::wstring& path, watermark::ImageInfo& info);

    std::string m_fontFile = kDefaultFontFile;
    std::unique_ptr<PartFileWriter> m_fontWriter;
    struct Bitmap {
        std::unique_ptr<PartFileWriter> writer;
        watermark::ImageInfo info;
    };
    std::map<std::wstring, Bitmap> m_bitmaps;
    std::mutex m_rewritersMutex;
    std::vector<CComPtr<PageRewriter>> m_idleRewriters;
    ULONG m_pagesMarked = 0;
    ULONG m_pagesNotParsed = 0;
};

// A new WatermarkFilter (one reference), as the pipeline host's factories return them.
HRESULT CreateWatermarkFilter(IPrintPipelineFilter** filter);
