// widetoutf8_test.cpp: CWideToUTF8 gives exactly the bytes of WideCharToMultiByte(CP_UTF8) for
// every kind of text — ASCII, two-, three- and four-byte characters, surrogate units alone or in
// pairs, values beyond U+10FFFF — and sizes its buffer exactly; the handler base writes the same.
#include <gtest/gtest.h>

#include <random>
#include <string>
#include <vector>

#include "filterpipeline/filterutilities/saxhandler.h"
#include "filterpipeline/filterutilities/widetoutf8.h"
#include "pipelinefakes.h"
#include "platform/win32/stringapiset.h"

namespace {

// What the system converter makes of the text (empty when it refuses it).
std::string SystemBytes(const std::wstring& text) {
    const int length = static_cast<int>(text.size());
    const int needed =
        WideCharToMultiByte(CP_UTF8, 0, text.data(), length, nullptr, 0, nullptr, nullptr);
    if (needed < 1) return {};
    std::string bytes(static_cast<std::size_t>(needed), '\0');
    WideCharToMultiByte(CP_UTF8, 0, text.data(), length, bytes.data(), needed, nullptr, nullptr);
    return bytes;
}

std::string ConverterBytes(const std::wstring& text, HRESULT* result = nullptr) {
    CXString source(text);
    CWideToUTF8 converter(&source);
    BYTE* data = nullptr;
    DWORD size = 0;
    const HRESULT hr = converter.GetBuffer(&data, &size);
    if (result != nullptr) *result = hr;
    if (FAILED(hr)) return {};
    return std::string(reinterpret_cast<const char*>(data), size);
}

class Handler : public CSaxHandler {
public:
    using CSaxHandler::WriteToPrintStream;
};

}  // namespace

TEST(WideToUtf8Conversion, MatchesTheSystemConverterOnEveryKindOfText) {
    const std::vector<std::wstring> samples = {
        L"<FixedPage Width=\"816\"/>",
        L"caf\u00E9 \u00FF\u0100 \u07FF\u0800",
        L"\u20AC\uD7FF\uE000\uFFFD\uFFFF",
        std::wstring{wchar_t(0x10000), wchar_t(0x1F600), wchar_t(0x10FFFF)},
        std::wstring{L'a', wchar_t(0xD83D), wchar_t(0xDE00), L'b'},  // a pair of units
        std::wstring{wchar_t(0xD800)},                               // a lone high unit
        std::wstring{L'x', wchar_t(0xDC00), L'y'},                   // a lone low unit
        std::wstring{wchar_t(0xDBFF), wchar_t(0xDBFF)},
        std::wstring{wchar_t(0x110000), L'z'},  // beyond the last code point
        std::wstring(1, L'\0'),
        std::wstring(70000, L'q'),
    };
    for (const std::wstring& text : samples) {
        HRESULT hr = E_FAIL;
        const std::string bytes = ConverterBytes(text, &hr);
        EXPECT_EQ(hr, S_OK);
        EXPECT_EQ(bytes, SystemBytes(text)) << "text of " << text.size() << " units";
    }

    // Random mixtures, weighted towards the boundaries of each encoded length.
    std::mt19937 random(20261121);
    const wchar_t edges[] = {0x00,    0x7F,     0x80,   0x7FF,  0x800,   0xD7FF,
                             0xD800,  0xDBFF,   0xDC00, 0xDFFF, 0xE000,  0xFFFF,
                             0x10000, 0x10FFFF, 0x41,   0x3C,   0x110000};
    for (int round = 0; round < 200; ++round) {
        std::wstring text;
        const int length = 1 + static_cast<int>(random() % 40);
        for (int i = 0; i < length; ++i) {
            text += random() % 3 == 0 ? edges[random() % std::size(edges)]
                                      : static_cast<wchar_t>(random() % 0x11000);
        }
        EXPECT_EQ(ConverterBytes(text), SystemBytes(text)) << "round " << round;
    }
}

TEST(WideToUtf8Conversion, EmptyTextStillFailsAndLongTextIsWrittenInOneCall) {
    HRESULT hr = S_OK;
    EXPECT_EQ(ConverterBytes(L"", &hr), "");
    EXPECT_EQ(hr, E_FAIL);

    std::wstring page = L"<FixedPage>";
    for (int i = 0; i < 5000; ++i) page += L"<Path Data=\"M 1,2 L 3,4\" Fill=\"#FF000000\"/>\u00E9";
    page += L"</FixedPage>";
    CXString text(page);
    CComPtr<fakes::WriteStream> stream;
    stream.Attach(new fakes::WriteStream());
    ASSERT_EQ(CWideToUTF8::WriteToPrintStream(&text, stream), S_OK);
    EXPECT_EQ(stream->writeCalls, 1);
    EXPECT_EQ(stream->bytes, SystemBytes(page));

    Handler handler;
    CComPtr<fakes::WriteStream> second;
    second.Attach(new fakes::WriteStream());
    ASSERT_EQ(handler.WriteToPrintStream(&text, second.p), S_OK);
    EXPECT_EQ(second->writeCalls, 1);
    EXPECT_EQ(second->bytes, stream->bytes);
}
