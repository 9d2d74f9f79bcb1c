// merge_fuzz.cpp: libFuzzer target over the PrintTicket provider's merge. The first input byte
// picks the scope and whether there is a delta; the rest is the base ticket, then (after the
// first NUL byte, which no XML document holds) the delta ticket.
//
// A successful merge must give a ticket the provider accepts again: merging it as a base with
// no delta succeeds. Anything else is a finding.
#include <cstddef>
#include <cstdint>
#include <cstdio>
#include <optional>
#include <string>
#include <string_view>

#include "platform/prntvpt/prntvpt.h"

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, std::size_t size) {
    if (size == 0) return 0;
    static constexpr EPrintTicketScope kScopes[] = {kPTPageScope, kPTDocumentScope, kPTJobScope};
    const EPrintTicketScope scope = kScopes[data[0] % 3];
    const bool withDelta = (data[0] & 0x80) == 0;
    const std::string_view input(reinterpret_cast<const char*>(data + 1), size - 1);

    std::string_view base = input;
    std::optional<std::string_view> delta;
    if (withDelta) {
        const std::size_t split = input.find('\0');
        base = input.substr(0, split);
        delta = split == std::string_view::npos ? std::string_view() : input.substr(split + 1);
    }

    std::string merged;
    std::string error;
    if (FAILED(platform::MergePrintTicketXml(base, delta, scope, merged, error))) {
        if (error.empty()) __builtin_trap();  // every refusal says why
        return 0;
    }
    std::string again;
    if (FAILED(platform::MergePrintTicketXml(merged, std::nullopt, scope, again, error))) {
        std::fprintf(stderr, "the merged ticket is refused: %s\n%s\n", error.c_str(),
                     merged.c_str());
        __builtin_trap();
    }
    return 0;
}
