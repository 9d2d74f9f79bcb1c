// saxhandler_escape_test.cpp: CSaxHandler::EscapeEntity gives what replacing the five entity
// characters one after another (ampersands first) gives, on random text with embedded NULs and
// characters of every width. The escaped text ends at the first NUL: it is allocated as a plain
// string.
#include <gtest/gtest.h>

#include <random>
#include <string>

#include "filterpipeline/filterutilities/saxhandler.h"
#include "platform/com/atl.h"

namespace {

class Handler : public CSaxHandler {
public:
    using CSaxHandler::EscapeEntity;
};

void ReplaceAll(std::wstring& text, std::wstring_view from, std::wstring_view to) {
    for (std::size_t at = text.find(from); at != std::wstring::npos;
         at = text.find(from, at + to.size())) {
        text.replace(at, from.size(), to);
    }
}

// The escaping as a sequence of whole-text replacements.
std::wstring Sequential(std::wstring text) {
    ReplaceAll(text, L"&", L"&amp;");
    ReplaceAll(text, L"<", L"&lt;");
    ReplaceAll(text, L">", L"&gt;");
    ReplaceAll(text, L"\"", L"&quot;");
    ReplaceAll(text, L"'", L"&apos;");
    return text;
}

}  // namespace

TEST(SaxHandlerEscape, OnePassAgreesWithReplacingEachCharacterInTurn) {
    CComPtr<Handler> handler;
    handler.Attach(new Handler());
    std::mt19937 random(5);
    const wchar_t pool[] = {L'&', L'<',  L'>', L'"',   L'\'',   L';', L'a',
                            L'#', L'\0', 0xE9, 0x20AC, 0x1F600, L'l', L't'};
    for (int round = 0; round < 500; ++round) {
        std::wstring text;
        const int length = 1 + static_cast<int>(random() % 50);
        for (int i = 0; i < length; ++i) text += pool[random() % std::size(pool)];
        BSTR value = SysAllocStringLen(text.data(), static_cast<UINT>(text.size()));
        ASSERT_NE(nullptr, value);
        ASSERT_EQ(S_OK, handler->EscapeEntity(&value));
        EXPECT_EQ(Sequential(text.substr(0, text.find(L'\0'))),
                  std::wstring(value, SysStringLen(value)))
            << "round " << round;
        SysFreeString(value);
    }
}
