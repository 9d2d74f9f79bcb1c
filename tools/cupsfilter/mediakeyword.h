// mediakeyword.h: a CUPS media name (PWG self-describing name such as iso_a5_148x210mm, PPD name
// such as A5 or Custom.100x150mm, IPP legacy name such as iso-a5) as a Print Schema
// PageMediaSize option: the keyword of that size (ISOA5), or a custom size.
#pragma once

#include <optional>
#include <string>
#include <string_view>
#include <vector>

namespace cupsfilter {

struct MediaKeyword {
    std::string keyword;  // ISOA5, ...; "CustomMediaSize" for a size without a keyword
    long widthMicrons = 0;
    long heightMicrons = 0;
    std::string pwgName;  // what libcups made of the name, for messages
};

// A page size a PPD defines (*PaperDimension), for names libcups does not know
// ("Photo.Borderless").
struct NamedPageSize {
    std::string name;
    long widthMicrons = 0;
    long heightMicrons = 0;
};

// std::nullopt when neither libcups nor the PPD's sizes know the name as a media size (a media
// type or source such as "photographic" or "tray-1").
std::optional<MediaKeyword> MediaKeywordFor(std::string_view name,
                                            const std::vector<NamedPageSize>& ppdSizes = {});

}  // namespace cupsfilter
