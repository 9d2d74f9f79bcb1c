// Tests of base64 against the RFC 4648 vectors, the line rules of the flags, the length
// functions and undecodable input.
#include <gtest/gtest.h>

#include <random>
#include <string>
#include <vector>

#include "support/utilities/zorunutilities.h"

using namespace ZorunUtilities;

namespace {

std::wstring Encode(const std::string& bytes, unsigned long flags) {
    int length = Base64EncodeGetRequiredLength(static_cast<int>(bytes.size()), flags);
    std::wstring out(static_cast<std::size_t>(length), L'?');
    int written = length;
    EXPECT_NE(Base64Encode(reinterpret_cast<const unsigned char*>(bytes.data()),
                           static_cast<int>(bytes.size()), out.data(), &written, flags),
              0);
    EXPECT_LE(written, length);
    out.resize(static_cast<std::size_t>(written));
    return out;
}

// Returns the decoded bytes, or "<fail>" when decoding fails.
std::string Decode(const std::wstring& text) {
    int capacity = Base64DecodeGetRequiredLength(static_cast<int>(text.size()));
    std::vector<unsigned char> out(static_cast<std::size_t>(capacity) + 1);
    int written = capacity;
    if (!Base64Decode(text.data(), static_cast<int>(text.size()), out.data(), &written)) {
        return "<fail>";
    }
    return std::string(out.begin(), out.begin() + written);
}

}  // namespace

TEST(Base64, Rfc4648Vectors) {
    const std::pair<const char*, const wchar_t*> vectors[] = {
        {"", L""},
        {"f", L"Zg=="},
        {"fo", L"Zm8="},
        {"foo", L"Zm9v"},
        {"foob", L"Zm9vYg=="},
        {"fooba", L"Zm9vYmE="},
        {"foobar", L"Zm9vYmFy"},
    };
    for (const auto& [plain, encoded] : vectors) {
        EXPECT_EQ(Encode(plain, ATL_BASE64_FLAG_NOCRLF), encoded) << plain;
        EXPECT_EQ(Decode(encoded), plain) << plain;
    }
}

TEST(Base64, AllByteValuesRoundTrip) {
    std::string bytes;
    for (int i = 0; i < 256; ++i) bytes.push_back(static_cast<char>(i));
    std::wstring text = Encode(bytes, ATL_BASE64_FLAG_NOCRLF);
    EXPECT_EQ(text.substr(0, 8), L"AAECAwQF");
    EXPECT_EQ(text.substr(text.size() - 8), L"/P3+/w==");  // both high characters appear
    EXPECT_EQ(Decode(text), bytes);
}

TEST(Base64, FlagTwoIsOneUnbrokenLine) {
    std::string bytes(1000, '\x5A');
    std::wstring text = Encode(bytes, ATL_BASE64_FLAG_NOCRLF);
    EXPECT_EQ(text.size(), 1336u);
    EXPECT_EQ(text.find_first_of(L"\r\n"), std::wstring::npos);
    EXPECT_EQ(Base64EncodeGetRequiredLength(1000, 2), 1336);
}

TEST(Base64, WithoutFlagTwoLinesBreakEvery76Characters) {
    std::string bytes(60, 'x');  // 80 characters: one break
    std::wstring text = Encode(bytes, ATL_BASE64_FLAG_NONE);
    EXPECT_EQ(Base64EncodeGetRequiredLength(60, 0), 82);
    ASSERT_EQ(text.size(), 82u);
    EXPECT_EQ(text.substr(76, 2), L"\r\n");
    EXPECT_EQ(Decode(text), bytes);                       // line breaks are skipped when decoding
    EXPECT_EQ(Base64EncodeGetRequiredLength(57, 0), 76);  // exactly one line: no break
}

TEST(Base64, NoPadFlag) {
    EXPECT_EQ(Encode("f", ATL_BASE64_FLAG_NOPAD | ATL_BASE64_FLAG_NOCRLF), L"Zg");
    EXPECT_EQ(Encode("fo", ATL_BASE64_FLAG_NOPAD | ATL_BASE64_FLAG_NOCRLF), L"Zm8");
    EXPECT_EQ(Decode(L"Zg"), "f");  // padding is optional when decoding
    EXPECT_EQ(Decode(L"Zm8"), "fo");
}

TEST(Base64, EncoderReportsTooSmallBuffers) {
    wchar_t out[4];
    int length = 3;
    const unsigned char data[] = {1, 2, 3};
    EXPECT_EQ(Base64Encode(data, 3, out, &length, 2), 0);
    EXPECT_EQ(length, 4);  // the capacity needed
    length = 4;
    EXPECT_NE(Base64Encode(data, 3, out, &length, 2), 0);
    EXPECT_EQ(Base64Encode(nullptr, 3, out, &length, 2), 0);
    EXPECT_EQ(Base64Encode(data, -1, out, &length, 2), 0);
    EXPECT_EQ(Base64Encode(data, 3, out, nullptr, 2), 0);
    EXPECT_EQ(Base64EncodeGetRequiredLength(-5, 2), 0);
}

TEST(Base64, UndecodableTextFails) {
    for (const wchar_t* bad : {L"Zm9v!", L"Z", L"Zm9vY", L"Zg==Zg==", L"Zg=x", L"=Zg=", L"Z===",
                               L"Zm\x00E9v", L"Zg=", L"===="}) {
        EXPECT_EQ(Decode(bad), "<fail>") << static_cast<int>(std::wstring(bad).size());
    }
}

TEST(Base64, LongTextDecodesTheSameWhereverBreaksFall) {
    // Whole groups are decoded together, the rest character by character: white space or a bad
    // character at any offset of a long text must give what the character rules give.
    std::string bytes;
    for (int i = 0; i < 300; ++i) bytes += static_cast<char>(i * 7 + 3);
    const std::wstring text = Encode(bytes, ATL_BASE64_FLAG_NOCRLF);
    ASSERT_EQ(Decode(text), bytes);
    for (std::size_t at : {std::size_t{0}, std::size_t{1}, std::size_t{2}, std::size_t{3},
                           std::size_t{201}, text.size() - 2, text.size() - 1}) {
        std::wstring spaced = text;
        spaced.insert(at, L"\r\n ");
        EXPECT_EQ(Decode(spaced), bytes) << at;
        std::wstring broken = text;
        broken[at] = L'\x00C0';
        EXPECT_EQ(Decode(broken), "<fail>") << at;
        broken[at] = static_cast<wchar_t>(0x10041);  // 'A' beyond the 16-bit range
        EXPECT_EQ(Decode(broken), "<fail>") << at;
    }
    EXPECT_EQ(Decode(L"Zm9vYg==Zm9v"), "<fail>");  // a whole group after the padding
    EXPECT_EQ(Decode(L"Zm9vYmFy"), "foobar");
    unsigned char small[5];
    int length = 5;
    EXPECT_EQ(Base64Decode(L"Zm9vYmFy", 8, small, &length), 0);  // the second group does not fit
}

TEST(Base64, DecoderChecksItsArgumentsAndCapacity) {
    unsigned char out[2];
    int length = 2;
    EXPECT_EQ(Base64Decode(L"Zm9v", 4, out, &length), 0);  // three bytes do not fit
    length = 2;
    EXPECT_EQ(Base64Decode(nullptr, 4, out, &length), 0);
    EXPECT_EQ(Base64Decode(L"Zm9v", -1, out, &length), 0);
    EXPECT_EQ(Base64Decode(L"Zm9v", 4, out, nullptr), 0);
    length = 2;
    EXPECT_NE(Base64Decode(L"", 0, out, &length), 0);
    EXPECT_EQ(length, 0);
    EXPECT_EQ(Base64DecodeGetRequiredLength(4), 3);
    EXPECT_EQ(Base64DecodeGetRequiredLength(0), 0);
    EXPECT_EQ(Base64DecodeGetRequiredLength(-4), 0);
}
