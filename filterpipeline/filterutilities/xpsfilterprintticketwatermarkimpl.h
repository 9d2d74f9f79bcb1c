// xpsfilterprintticketwatermarkimpl.h: XpsFilterPrintTicketWatermarkImpl, the watermark layer
// of the typed ticket view. The driver's private data in the ticket names the watermark (its
// number) and where it is drawn; everything else — text or bitmap, font, colour, size, offsets,
// time stamp — comes from the user's watermark settings file, one section per watermark number.
// docs/watermark.md describes the file, its keys and units.
#pragma once

#include "filterpipeline/filterutilities/gdiplussession.h"
#include "filterpipeline/filterutilities/printschemarecords.h"
#include "filterpipeline/filterutilities/xpsfilterprintticketbase.h"
#include "support/utilities/cxstring.h"

class XpsFilterPrintTicketWatermarkImpl : public XpsFilterPrintTicketBase {
public:
    // Date and time formats of a time-stamp watermark ("TimeStampFormat"). The patterns are
    // strftime patterns in the C locale, applied to the local time:
    enum ETimeStampFormat : int {
        TimeStampNone = 0,              // no stamp: ""
        TimeStampDateTime = 1,          // "%Y-%m-%d %H:%M"       2024-03-07 14:05
        TimeStampDate = 2,              // "%Y-%m-%d"             2024-03-07
        TimeStampTime = 3,              // "%H:%M"                14:05
        TimeStampDateTimeSeconds = 4,   // "%Y-%m-%d %H:%M:%S"    2024-03-07 14:05:09
        TimeStampUsDateTime = 5,        // "%m/%d/%Y %I:%M %p"    03/07/2024 02:05 PM
        TimeStampEuropeanDateTime = 6,  // "%d.%m.%Y %H:%M"       07.03.2024 14:05
        TimeStampLongDate = 7,          // "%d %B %Y"             07 March 2024
    };

    // The text read for an absent key.
    static constexpr wchar_t kAbsentKeyMarker[] = L"!@*^%&$#";

    XpsFilterPrintTicketWatermarkImpl();
    ~XpsFilterPrintTicketWatermarkImpl() override;

    // The watermark of this view, read once per Initialize. Without driver private data in the
    // tickets the watermark is absent (type 4, found false, status S_FALSE); with private data
    // naming no watermark it is type 4 and found. Status convention of the typed getters.
    const PrintSchema::Watermark::WatermarkData& GetWatermark(bool* found = nullptr,
                                                              HRESULT* status = nullptr);

    // Whether GDI+ started for this view (its guard lives as long as the view).
    Gdiplus::Status GetGDIPlusStartStatus() const { return m_gdiplus.GetGDIPlusStartStatus(); }

    // The date and time `when` (UTC; null: now) in the local time zone, in the format's pattern
    // (see ETimeStampFormat); "" for TimeStampNone and for an unknown format.
    static CXString GetDateTime(ETimeStampFormat format, const FILETIME* when);

protected:
    // The settings file: <user application directory of "PrinterDriver">\Zorun\ZrnWmV5.ini,
    // computed once; "" when the user's directory cannot be found.
    CXString GetWatermarkINIPath();
    // The section of a watermark: its number in decimal.
    CXString WmIniSectionName(int watermarkNumber);
    // A key's text. An absent key (or file or section) gives kAbsentKeyMarker, or "" when
    // `absentAsEmpty` is true.
    CXString GetWmIniString(int watermarkNumber, const CXString& key, bool absentAsEmpty);
    // A key's decimal value. An absent key gives -1, or 0 when `absentAsZero` is true.
    int GetWmIniInt(int watermarkNumber, const CXString& key, bool absentAsZero);

    // The vertical resolution of the view's printer (dots per inch) from an information
    // context of the printer; 600 when the printer is not known.
    int GetPrinterVerticalResolution(int* horizontal);

private:
    // Reads the watermark's section into m_watermark.
    void ReadWatermarkSettings(int number);
    void ReadCommonSettings(int number);
    void ReadTextSettings(int number);
    void ReadBitmapSettings(int number);
    // Reads a key as a decimal integer; false (and `value` unchanged) when it is absent.
    bool ReadIniInt(int number, const wchar_t* key, int& value);
    // The page media size the tickets of the view give, in device-independent pixels.
    void ReadPageSize();

    LONG m_watermarkStamp;
    HRESULT m_watermarkStatus;
    PrintSchema::Watermark::WatermarkData m_watermark;
    GDIPlus m_gdiplus;
    CXString m_iniPath;
    bool m_iniPathComputed;
    // The file actually read for the current answer ("" when it does not exist).
    CXString m_iniFileInUse;
    CXString m_absentKey;
};
