// page_fuzz.cpp: libFuzzer target over the MSXML SAX reader and the watermark filter's page
// rewriter, which re-serialises a fixed page while the reader parses it and inserts the
// watermark before the root closes.
//
// A page the reader accepts must come out well-formed: rewriting the rewritten page (with
// nothing inserted either time) succeeds and gives the same bytes again.
#include <cstddef>
#include <cstdint>
#include <cstdio>
#include <string>
#include <string_view>

#include "filters/watermark/pagerewriter.h"
#include "fuzz/fuzzinput.h"

namespace {

HRESULT Rewrite(std::string_view page, const std::wstring& insert, std::string& out) {
    CComPtr<PageRewriter> rewriter;
    rewriter.Attach(new PageRewriter([&](const PageRewriter::RootInfo&) { return insert; }));
    const HRESULT hr = rewriter->Rewrite(fuzzinput::StreamOf(page));
    out.assign(rewriter->Output());
    return hr;
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, std::size_t size) {
    const std::string_view page(reinterpret_cast<const char*>(data), size);
    std::string out;
    if (FAILED(Rewrite(page, L"<Path Data=\"M 0,0 L 1,1\" Fill=\"#80FF0000\"/>", out))) return 0;

    std::string plain;
    if (FAILED(Rewrite(page, L"", plain))) __builtin_trap();
    std::string again;
    if (FAILED(Rewrite(plain, L"", again))) {
        std::fprintf(stderr, "the rewritten page does not parse:\n%s\n", plain.c_str());
        __builtin_trap();
    }
    if (again != plain) {
        std::fprintf(stderr, "rewriting again changes the page:\n%s\n---\n%s\n", plain.c_str(),
                     again.c_str());
        __builtin_trap();
    }
    return 0;
}
