// optionsticket.cpp: each option the filter knows has a reader that turns its value into one
// Print Schema item (a Feature with its selected option, or a ParameterInit). Items are keyed by
// name, so of two options that set the same item (PageSize and media) the later one wins.
#include "optionsticket.h"

#include <cups/cups.h>

#include <algorithm>
#include <cctype>
#include <charconv>
#include <cstring>
#include <functional>
#include <iterator>
#include <optional>
#include <string_view>
#include <utility>

#include "mediakeyword.h"

namespace cupsfilter {
namespace {

struct Item {
    std::string name;  // psk:PageMediaSize, ...
    std::string xml;
    std::string summary;  // "psk:PageMediaSize psk:ISOA5"
};

// The result of reading one option: the items it sets, or why its value cannot be used.
struct Reading {
    std::vector<Item> items;
    std::string refusal;
};

Reading Refuse(std::string why) {
    return Reading{{}, std::move(why)};
}

bool EqualsNoCase(std::string_view a, std::string_view b) {
    return a.size() == b.size() && std::equal(a.begin(), a.end(), b.begin(), [](char x, char y) {
               return std::tolower(static_cast<unsigned char>(x)) ==
                      std::tolower(static_cast<unsigned char>(y));
           });
}

std::optional<long> ParseInteger(std::string_view text) {
    long value = 0;
    auto [rest, status] = std::from_chars(text.data(), text.data() + text.size(), value);
    if (status != std::errc() || rest != text.data() + text.size()) return std::nullopt;
    return value;
}

std::string IntegerValue(long value) {
    return "<psf:Value xsi:type=\"xsd:integer\">" + std::to_string(value) + "</psf:Value>";
}

Item FeatureItem(const std::string& feature, const std::string& option) {
    return {"psk:" + feature,
            "<psf:Feature name=\"psk:" + feature + "\"><psf:Option name=\"psk:" + option +
                "\"/></psf:Feature>",
            "psk:" + feature + " psk:" + option};
}

Item IntegerParameterItem(const std::string& parameter, long value) {
    return {"psk:" + parameter,
            "<psf:ParameterInit name=\"psk:" + parameter + "\">" + IntegerValue(value) +
                "</psf:ParameterInit>",
            "psk:" + parameter + " = " + std::to_string(value)};
}

// A keyword value of an option, looked up without regard to case.
using Choices = std::vector<std::pair<std::string_view, std::string_view>>;

Reading Choose(std::string_view feature, const Choices& choices, std::string_view value) {
    for (const auto& [name, option] : choices) {
        if (EqualsNoCase(name, value)) {
            return Reading{{FeatureItem(std::string(feature), std::string(option))}, {}};
        }
    }
    std::string known;
    for (const auto& choice : choices) {
        known += known.empty() ? "" : ", ";
        known += choice.first;
    }
    return Refuse("not one of " + known);
}

Reading MediaSize(std::string_view value, const std::vector<NamedPageSize>& ppdSizes) {
    std::optional<MediaKeyword> media = MediaKeywordFor(value, ppdSizes);
    if (!media) return Refuse("not a media size libcups knows");
    const std::string width = std::to_string(media->widthMicrons);
    const std::string height = std::to_string(media->heightMicrons);
    Reading reading;
    if (media->keyword == "CustomMediaSize") {
        reading.items.push_back(
            {"psk:PageMediaSize",
             "<psf:Feature name=\"psk:PageMediaSize\"><psf:Option name=\"psk:CustomMediaSize\">"
             "<psf:ScoredProperty name=\"psk:MediaSizeWidth\"><psf:ParameterRef "
             "name=\"psk:PageMediaSizeMediaSizeWidth\"/></psf:ScoredProperty>"
             "<psf:ScoredProperty name=\"psk:MediaSizeHeight\"><psf:ParameterRef "
             "name=\"psk:PageMediaSizeMediaSizeHeight\"/></psf:ScoredProperty>"
             "</psf:Option></psf:Feature>",
             "psk:PageMediaSize psk:CustomMediaSize (" + media->pwgName + ")"});
        reading.items.push_back(
            IntegerParameterItem("PageMediaSizeMediaSizeWidth", media->widthMicrons));
        reading.items.push_back(
            IntegerParameterItem("PageMediaSizeMediaSizeHeight", media->heightMicrons));
        return reading;
    }
    reading.items.push_back(
        {"psk:PageMediaSize",
         "<psf:Feature name=\"psk:PageMediaSize\"><psf:Option name=\"psk:" + media->keyword +
             "\"><psf:ScoredProperty name=\"psk:MediaSizeWidth\">" +
             IntegerValue(media->widthMicrons) +
             "</psf:ScoredProperty><psf:ScoredProperty name=\"psk:MediaSizeHeight\">" +
             IntegerValue(media->heightMicrons) +
             "</psf:ScoredProperty></psf:Option></psf:Feature>",
         "psk:PageMediaSize psk:" + media->keyword});
    return reading;
}

// media may list a size, a type and a source ("A4,photographic,tray-1"): the first size counts.
Reading Media(std::string_view value, const std::vector<NamedPageSize>& ppdSizes) {
    std::size_t start = 0;
    while (start <= value.size()) {
        std::size_t end = std::min(value.find(',', start), value.size());
        Reading reading = MediaSize(value.substr(start, end - start), ppdSizes);
        if (reading.refusal.empty()) return reading;
        start = end + 1;
    }
    return Refuse("names no media size libcups knows");
}

Reading Copies(std::string_view value) {
    std::optional<long> copies = ParseInteger(value);
    if (!copies || *copies < 1) return Refuse("not a positive number");
    return Reading{{IntegerParameterItem("JobCopiesAllDocuments", *copies)}, {}};
}

Reading Landscape(std::string_view value) {
    // "-o landscape" comes without a value.
    return Choose("PageOrientation",
                  {{"", "Landscape"},
                   {"true", "Landscape"},
                   {"yes", "Landscape"},
                   {"on", "Landscape"},
                   {"false", "Portrait"},
                   {"no", "Portrait"},
                   {"off", "Portrait"}},
                  value);
}

// "600dpi", "600x1200dpi", "236dpcm": a PageResolution option identified by its resolutions.
Reading Resolution(std::string_view value) {
    bool perCentimetre = false;
    if (value.size() > 3 && EqualsNoCase(value.substr(value.size() - 3), "dpi")) {
        value.remove_suffix(3);
    } else if (value.size() > 4 && EqualsNoCase(value.substr(value.size() - 4), "dpcm")) {
        value.remove_suffix(4);
        perCentimetre = true;
    } else {
        return Refuse("not a resolution such as 600dpi or 600x1200dpi");
    }
    std::size_t cross = value.find('x');
    std::optional<long> x = ParseInteger(value.substr(0, cross));
    std::optional<long> y =
        cross == std::string_view::npos ? x : ParseInteger(value.substr(cross + 1));
    if (!x || !y || *x < 1 || *y < 1 || *x > 100000 || *y > 100000) {
        return Refuse("not a resolution such as 600dpi or 600x1200dpi");
    }
    if (perCentimetre) {
        x = (*x * 254 + 50) / 100;
        y = (*y * 254 + 50) / 100;
    }
    return Reading{
        {{"psk:PageResolution",
          "<psf:Feature name=\"psk:PageResolution\"><psf:Option>"
          "<psf:ScoredProperty name=\"psk:ResolutionX\">" +
              IntegerValue(*x) +
              "</psf:ScoredProperty><psf:ScoredProperty name=\"psk:ResolutionY\">" +
              IntegerValue(*y) + "</psf:ScoredProperty></psf:Option></psf:Feature>",
          "psk:PageResolution " + std::to_string(*x) + "x" + std::to_string(*y) + " dpi"}},
        {}};
}

Reading NumberUp(std::string_view value) {
    std::optional<long> up = ParseInteger(value);
    constexpr long kSupported[] = {1, 2, 4, 6, 9, 16};
    if (!up ||
        std::find(std::begin(kSupported), std::end(kSupported), *up) == std::end(kSupported)) {
        return Refuse("not 1, 2, 4, 6, 9 or 16");
    }
    return Reading{{{"psk:DocumentNUp",
                     "<psf:Feature name=\"psk:DocumentNUp\"><psf:Option>"
                     "<psf:ScoredProperty name=\"psk:PagesPerSheet\">" +
                         IntegerValue(*up) + "</psf:ScoredProperty></psf:Option></psf:Feature>",
                     "psk:DocumentNUp " + std::to_string(*up) + " pages per sheet"}},
                   {}};
}

// "1-4,7,9-12": ranges of page numbers from 1, each ascending. White space is dropped.
Reading PageRanges(std::string_view value) {
    std::string ranges;
    for (char c : value) {
        if (c != ' ' && c != '\t') ranges.push_back(c);
    }
    std::string_view rest = ranges;
    bool valid = !rest.empty();
    while (valid && !rest.empty()) {
        std::size_t comma = rest.find(',');
        std::string_view range = rest.substr(0, comma);
        rest = comma == std::string_view::npos ? std::string_view() : rest.substr(comma + 1);
        if (comma != std::string_view::npos && rest.empty()) valid = false;
        std::size_t dash = range.find('-');
        std::optional<long> first = ParseInteger(range.substr(0, dash));
        std::optional<long> last =
            dash == std::string_view::npos ? first : ParseInteger(range.substr(dash + 1));
        valid = valid && first && last && *first >= 1 && *last >= *first;
    }
    if (!valid) return Refuse("not page ranges such as 1-4,7,9-12");
    return Reading{{{"psk:DocumentPageRanges",
                     "<psf:ParameterInit name=\"psk:DocumentPageRanges\"><psf:Value "
                     "xsi:type=\"xsd:string\">" +
                         ranges + "</psf:Value></psf:ParameterInit>",
                     "psk:DocumentPageRanges = " + ranges}},
                   {}};
}

using Reader = std::function<Reading(std::string_view)>;

struct OptionReader {
    std::string_view name;
    Reader read;
};

// The PPD's options (what a PPD-based queue passes for its UI choices).
std::vector<OptionReader> PpdReaders(const std::vector<NamedPageSize>& ppdSizes) {
    auto mediaSize = [&ppdSizes](std::string_view v) { return MediaSize(v, ppdSizes); };
    return {
        {"PageSize", mediaSize},
        {"PageRegion", mediaSize},
        {"Duplex",
         [](std::string_view v) {
             return Choose("JobDuplexAllDocumentsContiguously",
                           {{"None", "OneSided"},
                            {"DuplexNoTumble", "TwoSidedLongEdge"},
                            {"DuplexTumble", "TwoSidedShortEdge"}},
                           v);
         }},
        {"landscape", Landscape},
        {"ColorModel",
         [](std::string_view v) {
             return Choose("PageOutputColor",
                           {{"RGB", "Color"},
                            {"CMYK", "Color"},
                            {"Color", "Color"},
                            {"Gray", "Grayscale"},
                            {"Grayscale", "Grayscale"},
                            {"KGray", "Grayscale"},
                            {"Black", "Monochrome"},
                            {"Mono", "Monochrome"},
                            {"Monochrome", "Monochrome"}},
                           v);
         }},
        {"Resolution", Resolution},
    };
}

// The IPP job template attributes.
std::vector<OptionReader> IppReaders(const std::vector<NamedPageSize>& ppdSizes) {
    return {
        {"media", [&ppdSizes](std::string_view v) { return Media(v, ppdSizes); }},
        {"sides",
         [](std::string_view v) {
             return Choose("JobDuplexAllDocumentsContiguously",
                           {{"one-sided", "OneSided"},
                            {"two-sided-long-edge", "TwoSidedLongEdge"},
                            {"two-sided-short-edge", "TwoSidedShortEdge"}},
                           v);
         }},
        {"orientation-requested",
         [](std::string_view v) {
             return Choose("PageOrientation",
                           {{"3", "Portrait"},
                            {"4", "Landscape"},
                            {"5", "ReverseLandscape"},
                            {"6", "ReversePortrait"},
                            {"portrait", "Portrait"},
                            {"landscape", "Landscape"},
                            {"reverse-landscape", "ReverseLandscape"},
                            {"reverse-portrait", "ReversePortrait"}},
                           v);
         }},
        {"copies", Copies},
        {"collate",
         [](std::string_view v) {
             return Choose("DocumentCollate",
                           {{"true", "Collated"},
                            {"yes", "Collated"},
                            {"on", "Collated"},
                            {"false", "Uncollated"},
                            {"no", "Uncollated"},
                            {"off", "Uncollated"}},
                           v);
         }},
        {"multiple-document-handling",
         [](std::string_view v) {
             if (EqualsNoCase(v, "single-document") ||
                 EqualsNoCase(v, "single-document-new-sheet")) {
                 return Reading{{FeatureItem("JobCollateAllDocuments", "Collated")}, {}};
             }
             return Choose("DocumentCollate",
                           {{"separate-documents-collated-copies", "Collated"},
                            {"separate-documents-uncollated-copies", "Uncollated"}},
                           v);
         }},
        {"print-color-mode",
         [](std::string_view v) {
             return Choose(
                 "PageOutputColor",
                 {{"color", "Color"}, {"monochrome", "Grayscale"}, {"bi-level", "Monochrome"}}, v);
         }},
        {"print-quality",
         [](std::string_view v) {
             return Choose("PageOutputQuality",
                           {{"3", "Draft"},
                            {"4", "Normal"},
                            {"5", "High"},
                            {"draft", "Draft"},
                            {"normal", "Normal"},
                            {"high", "High"}},
                           v);
         }},
        {"printer-resolution", Resolution},
        {"number-up", NumberUp},
        {"page-ranges", PageRanges},
    };
}

// The options in the order they are applied: where two set the same item, the later one wins,
// so the IPP options (media, sides, ...) win over the PPD options of the same settings
// (PageSize, Duplex, ...), which the scheduler derives from them anyway.
std::vector<OptionReader> Readers(const std::vector<NamedPageSize>& ppdSizes) {
    std::vector<OptionReader> readers = PpdReaders(ppdSizes);
    std::vector<OptionReader> ipp = IppReaders(ppdSizes);
    readers.insert(readers.end(), std::make_move_iterator(ipp.begin()),
                   std::make_move_iterator(ipp.end()));
    return readers;
}

bool HasReader(const std::vector<OptionReader>& readers, std::string_view name) {
    return std::any_of(readers.begin(), readers.end(),
                       [&](const OptionReader& reader) { return reader.name == name; });
}

void Set(std::vector<Item>& items, Item item) {
    auto same = std::find_if(items.begin(), items.end(),
                             [&](const Item& existing) { return existing.name == item.name; });
    if (same != items.end()) {
        *same = std::move(item);
    } else {
        items.push_back(std::move(item));
    }
}

}  // namespace

OptionsTicket BuildOptionsTicket(const std::string& options, int copies,
                                 const std::vector<NamedPageSize>& ppdSizes) {
    const std::vector<OptionReader> readers = Readers(ppdSizes);
    OptionsTicket ticket;
    std::vector<Item> items;
    if (copies > 1) {
        Item item = IntegerParameterItem("JobCopiesAllDocuments", copies);
        ticket.taken.push_back("copies argument " + std::to_string(copies) + " -> " + item.summary);
        Set(items, std::move(item));
    }

    cups_option_t* parsed = nullptr;
    int count = cupsParseOptions(options.c_str(), 0, &parsed);
    for (int i = 0; i < count; ++i) {
        if (!HasReader(readers, parsed[i].name)) {
            const std::string value = parsed[i].value != nullptr ? parsed[i].value : "";
            ticket.ignored.push_back(value.empty() ? std::string(parsed[i].name)
                                                   : std::string(parsed[i].name) + "=" + value);
        }
    }
    for (const OptionReader& reader : readers) {
        const char* found = cupsGetOption(std::string(reader.name).c_str(), count, parsed);
        if (found == nullptr) continue;
        const std::string value = found;
        const std::string option =
            value.empty() ? std::string(reader.name) : std::string(reader.name) + "=" + value;
        Reading reading = reader.read(value);
        if (!reading.refusal.empty()) {
            ticket.refused.push_back(option + ": " + reading.refusal);
            continue;
        }
        std::string summary;
        for (Item& item : reading.items) {
            summary += summary.empty() ? "" : ", ";
            summary += item.summary;
            Set(items, std::move(item));
        }
        ticket.taken.push_back(option + " -> " + summary);
    }
    cupsFreeOptions(count, parsed);

    if (items.empty()) return ticket;
    ticket.delta =
        "<?xml version=\"1.0\" encoding=\"UTF-8\"?>\n"
        "<psf:PrintTicket "
        "xmlns:psf=\"http://schemas.microsoft.com/windows/2003/08/printing/printschemaframework\" "
        "xmlns:psk=\"http://schemas.microsoft.com/windows/2003/08/printing/printschemakeywords\" "
        "xmlns:xsi=\"http://www.w3.org/2001/XMLSchema-instance\" "
        "xmlns:xsd=\"http://www.w3.org/2001/XMLSchema\" version=\"1\">\n";
    for (const Item& item : items) ticket.delta += "  " + item.xml + "\n";
    ticket.delta += "</psf:PrintTicket>\n";
    return ticket;
}

}  // namespace cupsfilter
