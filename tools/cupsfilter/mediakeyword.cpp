// mediakeyword.cpp: libcups turns the name into a PWG media entry with its size; the PWG name
// then finds the keyword in the table generated from the project's PageMediaSize keyword table,
// or failing that the size does (PWG names such as custom_max_... or another spelling of a known
// size), or the size becomes a CustomMediaSize.
#include "mediakeyword.h"

#include <cups/cups.h>

#include <cstdlib>
#include <cstring>
#include <string>

namespace cupsfilter {
namespace {

struct PwgMediaRow {
    const char* pwg;
    const char* keyword;
    long widthMicrons;
    long heightMicrons;
};

constexpr PwgMediaRow kPwgMedia[] = {
#include "pwgmediatable.inc"
};

// libcups gives sizes in hundredths of a millimetre; PWG names round to them, so a keyword matches
// a size within a tenth of a millimetre.
constexpr long kSizeToleranceMicrons = 100;

const PwgMediaRow* RowForSize(long width, long height) {
    for (const PwgMediaRow& row : kPwgMedia) {
        if (std::labs(row.widthMicrons - width) <= kSizeToleranceMicrons &&
            std::labs(row.heightMicrons - height) <= kSizeToleranceMicrons) {
            return &row;
        }
    }
    return nullptr;
}

}  // namespace

std::optional<MediaKeyword> MediaKeywordFor(std::string_view name) {
    const std::string text(name);
    if (text.empty()) return std::nullopt;
    pwg_media_t* media = pwgMediaForPWG(text.c_str());
    if (media == nullptr) media = pwgMediaForPPD(text.c_str());
    if (media == nullptr) media = pwgMediaForLegacy(text.c_str());
    if (media == nullptr || media->width <= 0 || media->length <= 0) return std::nullopt;

    MediaKeyword result;
    result.pwgName = media->pwg != nullptr ? media->pwg : text;
    const long width = media->width * 10L;
    const long height = media->length * 10L;
    const PwgMediaRow* row = nullptr;
    if (media->pwg != nullptr) {
        for (const PwgMediaRow& candidate : kPwgMedia) {
            if (std::strcmp(candidate.pwg, media->pwg) == 0) {
                row = &candidate;
                break;
            }
        }
    }
    if (row == nullptr) row = RowForSize(width, height);
    if (row != nullptr) {
        result.keyword = row->keyword;
        result.widthMicrons = row->widthMicrons;
        result.heightMicrons = row->heightMicrons;
    } else {
        result.keyword = "CustomMediaSize";
        result.widthMicrons = width;
        result.heightMicrons = height;
    }
    return result;
}

}  // namespace cupsfilter
