// Tests of base64 against the RFC 4648 vectors, the line rules of the flags, the length
// functions and undecodable input.
#include <gtest/gtest.h>

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

TEST(Base64, VectorsFlagsAndLineBreaks) {
    // clang-format off
    const struct { std::string plain; unsigned long flags; std::wstring encoded; } rows[] = {
        {"", 2, L""}, {"f", 2, L"Zg=="}, {"fo", 2, L"Zm8="}, {"foo", 2, L"Zm9v"},
        {"foob", 2, L"Zm9vYg=="}, {"fooba", 2, L"Zm9vYmE="}, {"foobar", 2, L"Zm9vYmFy"},
        {"f", ATL_BASE64_FLAG_NOPAD | 2, L"Zg"}, {"fo", ATL_BASE64_FLAG_NOPAD | 2, L"Zm8"},
        {std::string(60, 'x'), 0, std::wstring(76, L'?') + L"\r\n" + L"eHh4"},
        {std::string(1000, 'Z'), 2, std::wstring(1336, L'?')}};
    // clang-format on
    for (const auto& row : rows) {
        SCOPED_TRACE(row.plain.substr(0, 8) + " flags " + std::to_string(row.flags));
        std::wstring text = Encode(row.plain, row.flags);
        EXPECT_EQ(Base64EncodeGetRequiredLength(static_cast<int>(row.plain.size()), row.flags),
                  static_cast<int>(row.encoded.size()));
        ASSERT_EQ(text.size(), row.encoded.size());
        for (std::size_t i = 0; i < text.size(); ++i) {
            EXPECT_TRUE(row.encoded[i] == L'?' || text[i] == row.encoded[i]) << i;
            EXPECT_FALSE((row.flags & 2) && text[i] == L'\n') << i;
        }
        EXPECT_EQ(Decode(text), row.plain);  // padding optional, line breaks skipped
    }
    EXPECT_EQ(Base64EncodeGetRequiredLength(57, 0), 76);  // exactly one line: no break
    std::string bytes;
    for (int i = 0; i < 256; ++i) bytes.push_back(static_cast<char>(i));
    std::wstring text = Encode(bytes, ATL_BASE64_FLAG_NOCRLF);
    EXPECT_EQ(text.substr(0, 8), L"AAECAwQF");
    EXPECT_EQ(text.substr(text.size() - 8), L"/P3+/w==");  // both high characters appear
    EXPECT_EQ(Decode(text), bytes);
}

TEST(Base64, UndecodableTextFailsWhereverItFalls) {
    for (const wchar_t* bad : {L"Zm9v!", L"Z", L"Zm9vY", L"Zg==Zg==", L"Zg=x", L"=Zg=", L"Z===",
                               L"Zm\x00E9v", L"Zg=", L"====", L"Zm9vYg==Zm9v"}) {
        EXPECT_EQ(Decode(bad), "<fail>") << static_cast<int>(std::wstring(bad).size());
    }
    // Whole groups are decoded together, the rest character by character: white space or a bad
    // character at any offset of a long text must give what the character rules give.
    std::string bytes;
    for (int i = 0; i < 300; ++i) bytes += static_cast<char>(i * 7 + 3);
    const std::wstring text = Encode(bytes, ATL_BASE64_FLAG_NOCRLF);
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
}

TEST(Base64, ArgumentsAndCapacityAreChecked) {
    wchar_t out[4];
    unsigned char bytes[5];
    // clang-format off
    const unsigned char data[] = {
        1, 2, 3};
    // clang-format on
    int length = 3;
    EXPECT_EQ(Base64Encode(data, 3, out, &length, 2), 0);
    EXPECT_EQ(length, 4);  // the capacity needed
    EXPECT_NE(Base64Encode(data, 3, out, &length, 2), 0);
    EXPECT_EQ(Base64Encode(nullptr, 3, out, &length, 2), 0);
    EXPECT_EQ(Base64Encode(data, -1, out, &length, 2), 0);
    EXPECT_EQ(Base64Encode(data, 3, out, nullptr, 2), 0);
    EXPECT_EQ(Base64EncodeGetRequiredLength(-5, 2), 0);
    length = 5;
    EXPECT_EQ(Base64Decode(L"Zm9vYmFy", 8, bytes, &length), 0);  // the second group does not fit
    length = 2;
    EXPECT_EQ(Base64Decode(L"Zm9v", 4, bytes, &length), 0);  // three bytes do not fit
    EXPECT_EQ(Base64Decode(nullptr, 4, bytes, &length), 0);
    EXPECT_EQ(Base64Decode(L"Zm9v", -1, bytes, &length), 0);
    EXPECT_EQ(Base64Decode(L"Zm9v", 4, bytes, nullptr), 0);
    length = 2;
    EXPECT_NE(Base64Decode(L"", 0, bytes, &length), 0);
    EXPECT_EQ(length, 0);
    EXPECT_EQ(Base64DecodeGetRequiredLength(4), 3);
    EXPECT_EQ(Base64DecodeGetRequiredLength(0), 0);
    EXPECT_EQ(Base64DecodeGetRequiredLength(-4), 0);
}
