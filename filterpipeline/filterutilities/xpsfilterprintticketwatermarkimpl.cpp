// xpsfilterprintticketwatermarkimpl.cpp: the watermark of a typed view: its number and placement
// from the driver's attributes, the rest from the user's watermark settings file.
#include "filterpipeline/filterutilities/xpsfilterprintticketwatermarkimpl.h"

#include <time.h>

#include <algorithm>
#include <climits>
#include <cwchar>
#include <cwctype>
#include <vector>

#include "platform/win32/printers.h"
#include "platform/win32/shlwapi.h"
#include "platform/win32/wingdi.h"
#include "support/errorframe/errorframe.h"
#include "support/utilities/datamodelids.h"
#include "support/utilities/dimension.h"
#include "support/utilities/exceptions.h"
#include "support/utilities/number.h"
#include "support/utilities/setthreadtokenwrapper.h"
#include "support/utilities/user.h"
#include "support/utilities/utf8ini.h"

namespace {

using PrintSchema::Watermark::WatermarkData;

constexpr HRESULT kNotFound = HRESULT_FROM_WIN32(ERROR_NOT_FOUND);
constexpr unsigned long kIniValueCapacity = 512;
constexpr int kDefaultResolution = 600;

// _wtoi: optional white space and sign, then decimal digits; anything else ends the number
// (no digits: 0). Clamped to the int range.
int DecimalValue(const wchar_t* text) {
    while (*text != L'\0' && std::iswspace(static_cast<wint_t>(*text))) ++text;
    bool negative = false;
    if (*text == L'+' || *text == L'-') negative = *text++ == L'-';
    long long value = 0;
    for (; *text >= L'0' && *text <= L'9'; ++text) {
        value = value * 10 + (*text - L'0');
        if (value > static_cast<long long>(INT_MAX) + 1) break;
    }
    if (negative) value = -value;
    return static_cast<int>(std::clamp<long long>(value, INT_MIN, INT_MAX));
}

// Tenths of a millimetre to device-independent pixels (1/96 inch).
double TenthsOfMillimetreToPixels96(int tenths) {
    return Dimension(tenths, Dimension::TenthsOfMillimeter).GetDoubleValue(Dimension::Pixels96);
}

BYTE ToByte(int value) {
    return static_cast<BYTE>(std::clamp(value, 0, 255));
}

// Copies a wide face name into the UTF-16 face of a LOGFONTW, cut to 31 code units.
void SetFaceName(LOGFONTW& font, const wchar_t* name) {
    std::u16string face;
    for (; *name != L'\0'; ++name) {
        char32_t c = static_cast<char32_t>(*name);
        if (c >= 0x10000 && c <= 0x10FFFF) {
            c -= 0x10000;
            face.push_back(static_cast<char16_t>(0xD800 + (c >> 10)));
            face.push_back(static_cast<char16_t>(0xDC00 + (c & 0x3FF)));
        } else if (c > 0x10FFFF) {
            face.push_back(u'\xFFFD');
        } else {
            face.push_back(static_cast<char16_t>(c));
        }
    }
    std::size_t length = std::min<std::size_t>(face.size(), LF_FACESIZE - 1);
    // Never end on half of a surrogate pair.
    if (length > 0 && face[length - 1] >= 0xD800 && face[length - 1] <= 0xDBFF) --length;
    std::fill(std::begin(font.lfFaceName), std::end(font.lfFaceName), u'\0');
    std::copy(face.begin(), face.begin() + static_cast<std::ptrdiff_t>(length), font.lfFaceName);
}

}  // namespace

XpsFilterPrintTicketWatermarkImpl::XpsFilterPrintTicketWatermarkImpl()
    : m_watermarkStamp(-1),
      m_watermarkStatus(S_OK),
      m_iniPathComputed(false),
      m_absentKey(kAbsentKeyMarker) {}

XpsFilterPrintTicketWatermarkImpl::~XpsFilterPrintTicketWatermarkImpl() = default;

CXString XpsFilterPrintTicketWatermarkImpl::GetWatermarkINIPath() {
    if (!m_iniPathComputed) {
        m_iniPathComputed = true;
        try {
            User user(L"PrinterDriver");
            CXString directory = user.GetUserApplicationDirectory();
            m_iniPath.Format(L"%s\\Zorun\\ZrnWmV5.ini", static_cast<const wchar_t*>(directory));
        } catch (const ExceptionUserFailure&) {
            m_iniPath.Empty();
        }
    }
    return m_iniPath;
}

CXString XpsFilterPrintTicketWatermarkImpl::WmIniSectionName(int watermarkNumber) {
    CXString section;
    section.Format(L"%d", watermarkNumber);
    return section;
}

CXString XpsFilterPrintTicketWatermarkImpl::GetWmIniString(int watermarkNumber, const CXString& key,
                                                           bool absentAsEmpty) {
    std::vector<wchar_t> buffer(kIniValueCapacity, L'\0');
    UTF8Ini ini;
    ini.GetPrivateProfileStringW(WmIniSectionName(watermarkNumber), key, m_absentKey, buffer.data(),
                                 kIniValueCapacity, m_iniFileInUse);
    CXString text(buffer.data());
    if (absentAsEmpty && text.Compare(m_absentKey) == 0) text.Empty();
    return text;
}

int XpsFilterPrintTicketWatermarkImpl::GetWmIniInt(int watermarkNumber, const CXString& key,
                                                   bool absentAsZero) {
    CXString text = GetWmIniString(watermarkNumber, key, false);
    if (text.Compare(m_absentKey) == 0) return absentAsZero ? 0 : -1;
    return DecimalValue(text);
}

bool XpsFilterPrintTicketWatermarkImpl::ReadIniInt(int number, const wchar_t* key, int& value) {
    CXString text = GetWmIniString(number, key, false);
    if (text.Compare(m_absentKey) == 0) return false;
    value = DecimalValue(text);
    return true;
}

int XpsFilterPrintTicketWatermarkImpl::GetPrinterVerticalResolution(int* horizontal) {
    int vertical = kDefaultResolution;
    int across = kDefaultResolution;
    HDC context = CreateICW(nullptr, m_printerName, nullptr, nullptr);
    if (context != nullptr) {
        int x = GetDeviceCaps(context, LOGPIXELSX);
        int y = GetDeviceCaps(context, LOGPIXELSY);
        if (x > 0) across = x;
        if (y > 0) vertical = y;
        DeleteDC(context);
    }
    if (horizontal != nullptr) *horizontal = across;
    return vertical;
}

CXString XpsFilterPrintTicketWatermarkImpl::GetDateTime(ETimeStampFormat format,
                                                        const FILETIME* when) {
    const char* pattern = nullptr;
    switch (format) {
        case TimeStampNone:
            return CXString();
        case TimeStampDateTime:
            pattern = "%Y-%m-%d %H:%M";
            break;
        case TimeStampDate:
            pattern = "%Y-%m-%d";
            break;
        case TimeStampTime:
            pattern = "%H:%M";
            break;
        case TimeStampDateTimeSeconds:
            pattern = "%Y-%m-%d %H:%M:%S";
            break;
        case TimeStampUsDateTime:
            pattern = "%m/%d/%Y %I:%M %p";
            break;
        case TimeStampEuropeanDateTime:
            pattern = "%d.%m.%Y %H:%M";
            break;
        case TimeStampLongDate:
            pattern = "%d %B %Y";
            break;
    }
    if (pattern == nullptr) return CXString();

    time_t seconds;
    if (when == nullptr) {
        seconds = time(nullptr);
    } else {
        // 100-nanosecond intervals since 1601-01-01 UTC.
        constexpr unsigned long long kUnixEpoch = 116444736000000000ull;
        unsigned long long ticks =
            (static_cast<unsigned long long>(when->dwHighDateTime) << 32) | when->dwLowDateTime;
        long long sinceEpoch = static_cast<long long>(ticks / 10000000ull) -
                               static_cast<long long>(kUnixEpoch / 10000000ull);
        seconds = static_cast<time_t>(sinceEpoch);
    }
    tm local{};
    if (localtime_r(&seconds, &local) == nullptr) return CXString();

    // strftime in the C locale: English month names and AM/PM whatever the process locale.
    locale_t cLocale = newlocale(LC_ALL_MASK, "C", static_cast<locale_t>(0));
    if (cLocale == static_cast<locale_t>(0)) return CXString();
    char text[64];
    std::size_t length = strftime_l(text, sizeof text, pattern, &local, cLocale);
    freelocale(cLocale);
    return CXString(std::string(text, length).c_str());
}

void XpsFilterPrintTicketWatermarkImpl::ReadPageSize() {
    int width = 0;
    int height = 0;
    if (SUCCEEDED(XpsFilterGetScoredPropertyValue(L"PageMediaSize", L"MediaSizeWidth", &width)) &&
        SUCCEEDED(XpsFilterGetScoredPropertyValue(L"PageMediaSize", L"MediaSizeHeight", &height)) &&
        width > 0 && height > 0) {
        m_watermark.pageWidth =
            Dimension(width, Dimension::Microns).GetDoubleValue(Dimension::Pixels96);
        m_watermark.pageHeight =
            Dimension(height, Dimension::Microns).GetDoubleValue(Dimension::Pixels96);
    }
}

void XpsFilterPrintTicketWatermarkImpl::ReadCommonSettings(int number) {
    int value = 0;
    if (ReadIniInt(number, L"DENSITY", value)) m_watermark.density = value;
    if (ReadIniInt(number, L"PaperX_in10thMm", value) && value > 0) {
        m_watermark.referencePaperWidth = static_cast<float>(TenthsOfMillimetreToPixels96(value));
    }
    if (ReadIniInt(number, L"PaperY_in10thMm", value) && value > 0) {
        m_watermark.referencePaperHeight = static_cast<float>(TenthsOfMillimetreToPixels96(value));
    }
    if (ReadIniInt(number, L"XOffset", value)) {
        m_watermark.xOffset = TenthsOfMillimetreToPixels96(value);
    }
    if (ReadIniInt(number, L"YOffset", value)) {
        m_watermark.yOffset = TenthsOfMillimetreToPixels96(value);
    }
}

void XpsFilterPrintTicketWatermarkImpl::ReadTextSettings(int number) {
    PrintSchema::Watermark::WatermarkTextData& text = m_watermark.text;
    int value = 0;
    if (ReadIniInt(number, L"FontHeight", value)) text.fontSizePoints = value;
    int horizontal = 0;
    int vertical = GetPrinterVerticalResolution(&horizontal);
    m_watermark.resolutionX = horizontal;
    m_watermark.resolutionY = vertical;
    // Points to device units, as a character height (negative).
    text.font.lfHeight = -MulDiv(text.fontSizePoints, vertical, 72);
    if (ReadIniInt(number, L"FontEscapement", value)) {
        text.font.lfEscapement = value;
        text.font.lfOrientation = value;
    }
    if (ReadIniInt(number, L"FontWeight", value)) text.font.lfWeight = value;
    if (ReadIniInt(number, L"FontItalic", value)) text.font.lfItalic = ToByte(value);
    if (ReadIniInt(number, L"FontUnderline", value)) text.font.lfUnderline = ToByte(value);
    if (ReadIniInt(number, L"FontStrikeOut", value)) text.font.lfStrikeOut = ToByte(value);
    if (ReadIniInt(number, L"FontCharSet", value)) text.font.lfCharSet = ToByte(value);
    CXString face = GetWmIniString(number, L"FontFaceName", true);
    if (face.GetLength() > 0) SetFaceName(text.font, face);

    int red = 0;
    int green = 0;
    int blue = 0;
    bool anyColour = ReadIniInt(number, L"Red", red);
    anyColour = ReadIniInt(number, L"Green", green) || anyColour;
    anyColour = ReadIniInt(number, L"Blue", blue) || anyColour;
    if (anyColour) {
        unsigned long colour = static_cast<unsigned long>(ToByte(red)) |
                               (static_cast<unsigned long>(ToByte(green)) << 8) |
                               (static_cast<unsigned long>(ToByte(blue)) << 16);
        text.color = Number::ConvertColorRefToHexString(colour);
    }

    if (ReadIniInt(number, L"TimeStampFormat", value)) m_watermark.timeStampFormat = value;
    CXString drawn = GetWmIniString(number, L"Text", true);
    if (m_watermark.type == PrintSchema::Watermark::WatermarkTypeTextAndTimeStamp) {
        CXString stamp =
            GetDateTime(static_cast<ETimeStampFormat>(m_watermark.timeStampFormat), nullptr);
        if (drawn.GetLength() > 0 && stamp.GetLength() > 0) drawn += L" ";
        drawn += stamp;
    }
    text.text = static_cast<const wchar_t*>(drawn);
}

void XpsFilterPrintTicketWatermarkImpl::ReadBitmapSettings(int number) {
    CXString path = GetWmIniString(number, L"BmpFile", true);
    m_watermark.image.bitmapPath = static_cast<const wchar_t*>(path);
    int scale = 0;
    ReadIniInt(number, L"Scale", scale);
    m_watermark.bitmapScale = scale == 0 ? 1.0f : static_cast<float>(scale);
}

void XpsFilterPrintTicketWatermarkImpl::ReadWatermarkSettings(int number) {
    CXString path = GetWatermarkINIPath();
    m_iniFileInUse = (path.GetLength() > 0 && PathFileExistsW(path)) ? path : CXString();

    int type = GetWmIniInt(number, L"Watermark Type", true);
    switch (type) {
        case PrintSchema::Watermark::WatermarkTypeText:
        case PrintSchema::Watermark::WatermarkTypeTextAndTimeStamp:
            m_watermark.type = type;
            ReadCommonSettings(number);
            ReadTextSettings(number);
            break;
        case PrintSchema::Watermark::WatermarkTypeBitmap:
            m_watermark.type = type;
            ReadCommonSettings(number);
            ReadBitmapSettings(number);
            break;
        default:
            // Negative and unknown types: no watermark, nothing more is read.
            break;
    }
}

const PrintSchema::Watermark::WatermarkData& XpsFilterPrintTicketWatermarkImpl::GetWatermark(
    bool* found, HRESULT* status) {
    HRESULT hr = S_OK;
    if (IsCacheCurrent(m_watermarkStamp)) {
        hr = m_watermarkStatus;
    } else {
        m_watermark = WatermarkData();
        std::unique_ptr<SetThreadTokenWrapper> impersonation;
        if (m_userToken != nullptr && m_userToken != INVALID_HANDLE_VALUE) {
            impersonation = std::make_unique<SetThreadTokenWrapper>(m_userToken);
            if (!impersonation->Succeeded()) hr = GetLastErrorAsHResult();
        }
        if (SUCCEEDED(hr)) {
            if (GetAttributeBytesIndexedListRef().IsEmpty()) {
                hr = kNotFound;
            } else {
                // The watermark's number is the value id of the watermark feature (a number the
                // driver made for the user's watermark); 0 means none.
                int number = static_cast<int>(GetOptionValueOrNewId(
                    DataModelIds::FeatureWatermark, DataModelIds::ValueUnspecified));
                long placement =
                    GetOptionValueFromAttributeBytes(DataModelIds::FeatureWatermarkPlacement,
                                                     DataModelIds::ValueWatermarkBehindContent);
                m_watermark.overContent =
                    (placement == DataModelIds::ValueWatermarkOverContent ||
                     placement == DataModelIds::ValueWatermarkOverContentTransparent)
                        ? TRUE
                        : FALSE;
                m_watermark.number = number;
                ReadPageSize();
                if (number != DataModelIds::ValueUnspecified) ReadWatermarkSettings(number);
            }
            m_watermarkStatus = hr;
            m_watermarkStamp = m_changeCounter.Get();
        }
    }
    HRESULT result = DoStandardStatusReturnProcessing(hr, found, status);
    if (FAILED(result)) THROW_COM(result, L"XpsFilterPrintTicket::GetWatermark", "");
    return m_watermark;
}
