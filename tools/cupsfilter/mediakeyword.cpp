// mediakeyword.cpp: libcups turns the name into a PWG media entry with its size; the PWG name
// then finds the keyword in the table generated from the project's PageMediaSize keyword table,
// or failing that the size does (PWG names such as custom_max_... or another spelling of a known
// size), or the size becomes a CustomMediaSize. A name libcups does not know may be one of the
// PPD's own sizes, which is then matched by its size the same way.
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
// a size within a tenth of a millimetre. PPDs give points, usually whole ones: half a point.
constexpr long kPwgToleranceMicrons = 100;
constexpr long kPpdToleranceMicrons = 177;

const PwgMediaRow* RowForSize(long width, long height, long tolerance) {
    for (const PwgMediaRow& row : kPwgMedia) {
        if (std::labs(row.widthMicrons - width) <= tolerance &&
            std::labs(row.heightMicrons - height) <= tolerance) {
            return &row;
        }
    }
    return nullptr;
}

MediaKeyword ForSize(const PwgMediaRow* row, long width, long height, std::string pwgName) {
    if (row != nullptr) return {row->keyword, row->widthMicrons, row->heightMicrons, pwgName};
    return {"CustomMediaSize", width, height, pwgName};
}

}  // namespace

std::optional<MediaKeyword> MediaKeywordFor(std::string_view name,
                                            const std::vector<NamedPageSize>& ppdSizes) {
    const std::string text(name);
    if (text.empty()) return std::nullopt;
    pwg_media_t* media = pwgMediaForPWG(text.c_str());
    if (media == nullptr) media = pwgMediaForPPD(text.c_str());
    if (media == nullptr) media = pwgMediaForLegacy(text.c_str());
    if (media == nullptr || media->width <= 0 || media->length <= 0) {
        for (const NamedPageSize& size : ppdSizes) {
            if (size.name == text && size.widthMicrons > 0 && size.heightMicrons > 0) {
                return ForSize(
                    RowForSize(size.widthMicrons, size.heightMicrons, kPpdToleranceMicrons),
                    size.widthMicrons, size.heightMicrons, "PPD size " + text);
            }
        }
        return std::nullopt;
    }

    const long width = media->width * 10L;
    const long height = media->length * 10L;
    const std::string pwgName = media->pwg != nullptr ? media->pwg : text;
    if (media->pwg != nullptr) {
        for (const PwgMediaRow& row : kPwgMedia) {
            if (std::strcmp(row.pwg, media->pwg) == 0) return ForSize(&row, width, height, pwgName);
        }
    }
    return ForSize(RowForSize(width, height, kPwgToleranceMicrons), width, height, pwgName);
}

}  // namespace cupsfilter
