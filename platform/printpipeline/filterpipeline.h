// filterpipeline.h: the XPS print filter pipeline interfaces as the Windows SDK declares them
// (same names, method order, argument order, IIDs and property-bag key names), so that filter
// code written against the SDK compiles unchanged. The pipeline host (pipelinehost/) implements
// them; filters only call them.
#pragma once

#include "platform/com/bstr.h"
#include "platform/com/unknown.h"
#include "platform/com/variant.h"
#include "platform/printpipeline/imgerror.h"

// A part without the requested item (a page without a PrintTicket, say).
#define E_ELEMENT_NOT_FOUND HRESULT_FROM_WIN32(ERROR_NOT_FOUND)

// Property-bag keys.
#define XPS_FP_PRINTER_NAME L"PrinterName"
#define XPS_FP_PROGRESS_REPORT L"ProgressReport"
#define XPS_FP_PRINTER_HANDLE L"PrinterHandle"
#define XPS_FP_USER_PRINT_TICKET L"PerUserPrintTicket"
#define XPS_FP_USER_TOKEN L"UserSecurityToken"
#define XPS_FP_JOB_ID L"PrintJobId"
#define XPS_FP_PRINT_CLASS_FACTORY L"PrintClassFactory"
#define XPS_FP_OUTPUT_FILE L"PrintOutputFileName"
#define XPS_FP_MS_CONTENT_TYPE L"DriverMultiContentType"
#define XPS_FP_MS_CONTENT_TYPE_XPS L"XPS"
#define XPS_FP_MS_CONTENT_TYPE_OPENXPS L"OpenXPS"
#define XPS_FP_DRIVER_PROPERTY_BAG L"DriverPropertyBag"
#define XPS_FP_QUEUE_PROPERTY_BAG L"QueuePropertyBag"
#define XPS_FP_MERGED_DATAFILE_PATH L"MergedDataFilePath"
#define XPS_FP_RESOURCE_DLL_PATHS L"ResourceDLLPaths"
#define XPS_FP_JOB_LEVEL_PRINTTICKET L"JobPrintTicket"
#define XPS_FP_PRINTDEVICECAPABILITIES L"PrintDeviceCapabilities"

enum EXpsCompressionOptions : INT {
    Compression_NotCompressed = 0,
    Compression_Normal = 1,
    Compression_Small = 2,
    Compression_Fast = 3,
};

enum EXpsFontOptions : INT {
    Font_Normal = 0,
    Font_Obfusticate = 1,
};

enum EXpsJobConsumption : INT {
    XpsJob_DocumentSequenceAdded = 0,
    XpsJob_FixedDocumentAdded = 1,
    XpsJob_FixedPageAdded = 2,
};

enum EXpsFontRestriction : INT {
    Xps_Restricted_Font_Installable = 0,
    Xps_Restricted_Font_NoEmbedding = 0x2,
    Xps_Restricted_Font_PreviewPrint = 0x4,
    Xps_Restricted_Font_Editable = 0x8,
};

struct IXpsDocument;
struct IFixedDocumentSequence;
struct IFixedDocument;
struct IFixedPage;
struct IPartPrintTicket;
struct IPartThumbnail;
struct IXpsPartIterator;

// --- Raw streams -------------------------------------------------------------------------------

// Seek origins are STREAM_SEEK_SET/CUR/END. ReadBytes reports the end of the stream through
// *pbEndOfFile; a read at the end succeeds with 0 bytes.
struct IPrintReadStream : IUnknown {
    virtual HRESULT Seek(LONGLONG dlibMove, DWORD dwOrigin, ULONGLONG* plibNewPosition) = 0;
    virtual HRESULT ReadBytes(void* pvBuffer, ULONG cbRequested, ULONG* pcbRead,
                              BOOL* pbEndOfFile) = 0;

protected:
    ~IPrintReadStream() = default;
};
FU_DECLARE_IID(IPrintReadStream, 0x4d47a67c, 0x66cc, 0x4430, 0x85, 0x0e, 0xda, 0xf4, 0x66, 0xfe,
               0x5b, 0xc4);

// Close ends the content; writes after Close fail.
struct IPrintWriteStream : IUnknown {
    virtual HRESULT WriteBytes(const void* pvBuffer, ULONG cbBuffer, ULONG* pcbWritten) = 0;
    virtual void Close() = 0;

protected:
    ~IPrintWriteStream() = default;
};
FU_DECLARE_IID(IPrintWriteStream, 0x65bb7f1b, 0x371e, 0x4571, 0x8a, 0xc7, 0x91, 0x2f, 0x51, 0x0c,
               0x1a, 0x38);

struct IPrintWriteStreamFlush : IUnknown {
    virtual HRESULT FlushData() = 0;

protected:
    ~IPrintWriteStreamFlush() = default;
};
FU_DECLARE_IID(IPrintWriteStreamFlush, 0x07d11ff8, 0x1753, 0x4873, 0xb7, 0x49, 0x6c, 0xda, 0xf0,
               0x68, 0xe4, 0xc3);

struct IPrintReadStreamFactory : IUnknown {
    virtual HRESULT GetStream(IPrintReadStream** ppStream) = 0;

protected:
    ~IPrintReadStreamFactory() = default;
};
FU_DECLARE_IID(IPrintReadStreamFactory, 0xacb971e3, 0xdf8d, 0x4fc2, 0xbe, 0xe6, 0x06, 0x09, 0xd1,
               0x5f, 0x3c, 0xf9);

// --- The filter and what the pipeline gives it ---------------------------------------------------

// RequestReader/RequestWriter hand out the filter's reader (an IXpsDocumentProvider for XPS
// filters) and writer (an IXpsDocumentConsumer), each with one reference for the caller.
struct IInterFilterCommunicator : IUnknown {
    virtual HRESULT RequestReader(void** ppIReader) = 0;
    virtual HRESULT RequestWriter(void** ppIWriter) = 0;

protected:
    ~IInterFilterCommunicator() = default;
};
FU_DECLARE_IID(IInterFilterCommunicator, 0x4daf1e69, 0x81fd, 0x462d, 0x94, 0x0f, 0x8c, 0xd3, 0xdd,
               0xf5, 0x6f, 0xca);

struct IPrintPipelineManagerControl : IUnknown {
    virtual HRESULT RequestShutdown(HRESULT hrReason, IImgErrorInfo* pReason) = 0;
    virtual HRESULT FilterFinished() = 0;

protected:
    ~IPrintPipelineManagerControl() = default;
};
FU_DECLARE_IID(IPrintPipelineManagerControl, 0xaa3e4910, 0x5889, 0x4681, 0x91, 0xef, 0x82, 0x3a,
               0xd4, 0xed, 0x4e, 0x44);

// GetProperty fills an uninitialised VARIANT with a copy of the value (the caller clears it).
struct IPrintPipelinePropertyBag : IUnknown {
    virtual HRESULT AddProperty(const wchar_t* pszName, const VARIANT* pVar) = 0;
    virtual HRESULT GetProperty(const wchar_t* pszName, VARIANT* pVar) = 0;
    virtual BOOL DeleteProperty(const wchar_t* pszName) = 0;

protected:
    ~IPrintPipelinePropertyBag() = default;
};
FU_DECLARE_IID(IPrintPipelinePropertyBag, 0x8b8c99dc, 0x7892, 0x4a95, 0x8a, 0x04, 0x57, 0x42, 0x2e,
               0x9f, 0xbb, 0x47);

struct IPrintPipelineProgressReport : IUnknown {
    virtual HRESULT ReportProgress(EXpsJobConsumption update) = 0;

protected:
    ~IPrintPipelineProgressReport() = default;
};
FU_DECLARE_IID(IPrintPipelineProgressReport, 0xedc12c7c, 0xed40, 0x4ea5, 0x96, 0xa6, 0x5e, 0x43,
               0x97, 0x49, 0x7a, 0x61);

struct IPrintClassObjectFactory : IUnknown {
    virtual HRESULT GetPrintClassObject(const wchar_t* pszPrinterName, REFIID riid,
                                        void** ppNewObject) = 0;

protected:
    ~IPrintClassObjectFactory() = default;
};
FU_DECLARE_IID(IPrintClassObjectFactory, 0x9af593dd, 0x9b02, 0x48a8, 0x9b, 0xad, 0x69, 0xac, 0xe4,
               0x23, 0xf8, 0x8b);

struct IPrintPipelineFilter : IUnknown {
    virtual HRESULT InitializeFilter(IInterFilterCommunicator* pINegotiation,
                                     IPrintPipelinePropertyBag* pIPropertyBag,
                                     IPrintPipelineManagerControl* pIPipelineControl) = 0;
    virtual HRESULT ShutdownOperation() = 0;
    virtual HRESULT StartOperation() = 0;

protected:
    ~IPrintPipelineFilter() = default;
};
FU_DECLARE_IID(IPrintPipelineFilter, 0xcdb62fc0, 0x8bed, 0x434e, 0x86, 0xfb, 0xa2, 0xca, 0xe5, 0x5f,
               0x19, 0xea);

// --- XPS reader and writer ---------------------------------------------------------------------

// GetXpsPart yields the next part in document order; S_OK with a null part ends the job.
struct IXpsDocumentProvider : IUnknown {
    virtual HRESULT GetXpsPart(IUnknown** ppIXpsPart) = 0;

protected:
    ~IXpsDocumentProvider() = default;
};
FU_DECLARE_IID(IXpsDocumentProvider, 0xb8cf8530, 0x5562, 0x47c4, 0xab, 0x67, 0xb1, 0xf6, 0x9e, 0xcf,
               0x96, 0x1e);

struct IXpsDocumentConsumer : IUnknown {
    virtual HRESULT SendXpsUnknown(IUnknown* pUnknown) = 0;
    virtual HRESULT SendXpsDocument(IXpsDocument* pIXpsDocument) = 0;
    virtual HRESULT SendFixedDocumentSequence(IFixedDocumentSequence* pIFixedDocumentSequence) = 0;
    virtual HRESULT SendFixedDocument(IFixedDocument* pIFixedDocument) = 0;
    virtual HRESULT SendFixedPage(IFixedPage* pIFixedPage) = 0;
    virtual HRESULT CloseSender() = 0;
    // Creates an empty part of the kind riid names (IID_IPartPrintTicket, IID_IPartFont,
    // IID_IPartImage, IID_IPartColorProfile, IID_IPartResourceDictionary, IID_IPartThumbnail,
    // IID_IFixedPage) at uri, and the stream its content is written to.
    virtual HRESULT GetNewEmptyPart(const wchar_t* uri, REFIID riid, void** ppNewObject,
                                    IPrintWriteStream** ppWriteStream) = 0;

protected:
    ~IXpsDocumentConsumer() = default;
};
FU_DECLARE_IID(IXpsDocumentConsumer, 0x4368d8a2, 0x4181, 0x4a9f, 0xb2, 0x95, 0x3d, 0x9a, 0x38, 0xbb,
               0x9b, 0xa0);

// --- Parts -------------------------------------------------------------------------------------

struct IXpsDocument : IUnknown {
    virtual HRESULT GetThumbnail(IPartThumbnail** ppThumbnail) = 0;
    virtual HRESULT SetThumbnail(IPartThumbnail* pThumbnail) = 0;

protected:
    ~IXpsDocument() = default;
};
FU_DECLARE_IID(IXpsDocument, 0xe8d907db, 0x62a9, 0x4a95, 0xab, 0xe7, 0xe0, 0x17, 0x63, 0xdd, 0x30,
               0xf8);

// GetPrintTicket returns E_ELEMENT_NOT_FOUND and a null ticket when the part has none.
struct IFixedDocumentSequence : IUnknown {
    virtual HRESULT GetUri(BSTR* uri) = 0;
    virtual HRESULT GetPrintTicket(IPartPrintTicket** ppPrintTicket) = 0;
    virtual HRESULT SetPrintTicket(IPartPrintTicket* pPrintTicket) = 0;

protected:
    ~IFixedDocumentSequence() = default;
};
FU_DECLARE_IID(IFixedDocumentSequence, 0x8028d181, 0x2c32, 0x4249, 0x84, 0x93, 0x1b, 0xfb, 0x22,
               0x04, 0x55, 0x74);

struct IFixedDocument : IUnknown {
    virtual HRESULT GetUri(BSTR* uri) = 0;
    virtual HRESULT GetPrintTicket(IPartPrintTicket** ppPrintTicket) = 0;
    virtual HRESULT SetPrintTicket(IPartPrintTicket* pPrintTicket) = 0;

protected:
    ~IFixedDocument() = default;
};
FU_DECLARE_IID(IFixedDocument, 0xf222ca9f, 0x9968, 0x4db9, 0x81, 0xbd, 0xab, 0xae, 0xbf, 0x15, 0xf9,
               0x3f);

struct IPartBase : IUnknown {
    virtual HRESULT GetUri(BSTR* uri) = 0;
    virtual HRESULT GetStream(IPrintReadStream** ppStream) = 0;
    virtual HRESULT GetPartCompression(EXpsCompressionOptions* pCompression) = 0;
    virtual HRESULT SetPartCompression(EXpsCompressionOptions compression) = 0;

protected:
    ~IPartBase() = default;
};
FU_DECLARE_IID(IPartBase, 0x36d51e28, 0x369e, 0x43ba, 0xa6, 0x66, 0x95, 0x40, 0xc6, 0x2c, 0x3f,
               0x58);

struct IFixedPage : IPartBase {
    virtual HRESULT GetPrintTicket(IPartPrintTicket** ppPrintTicket) = 0;
    // The resource part of this page with the given URI (absolute, or relative to the page).
    virtual HRESULT GetPagePart(const wchar_t* uri, IUnknown** ppUnk) = 0;
    // A stream that replaces the page's markup; the new content counts once the stream is closed.
    virtual HRESULT GetWriteStream(IPrintWriteStream** ppWriteStream) = 0;
    virtual HRESULT SetPrintTicket(IPartPrintTicket* ppPrintTicket) = 0;
    // Makes a part (font, image, colour profile, resource dictionary, thumbnail) a resource of
    // the page; a part with the URI of an existing resource replaces it.
    virtual HRESULT SetPagePart(IUnknown* pUnk) = 0;
    virtual HRESULT DeleteResource(const wchar_t* uri) = 0;
    virtual HRESULT GetXpsPartIterator(IXpsPartIterator** pXpsPartIt) = 0;

protected:
    ~IFixedPage() = default;
};
FU_DECLARE_IID(IFixedPage, 0x3d9f6448, 0x7e95, 0x4cb5, 0x94, 0xfb, 0x01, 0x80, 0xc2, 0x88, 0x3a,
               0x57);

struct IPartImage : IPartBase {
    virtual HRESULT GetImageProperties(BSTR* pContentType) = 0;
    virtual HRESULT SetImageContent(const wchar_t* pContentType) = 0;

protected:
    ~IPartImage() = default;
};
FU_DECLARE_IID(IPartImage, 0x725f2e3c, 0x401a, 0x4705, 0x9d, 0xe0, 0xfe, 0x6f, 0x13, 0x53, 0xb8,
               0x7f);

struct IPartFont : IPartBase {
    virtual HRESULT GetFontProperties(BSTR* pContentType, EXpsFontOptions* pFontOptions) = 0;
    virtual HRESULT SetFontContent(const wchar_t* pContentType) = 0;
    virtual HRESULT SetFontOptions(EXpsFontOptions options) = 0;

protected:
    ~IPartFont() = default;
};
FU_DECLARE_IID(IPartFont, 0xe07fe0ab, 0x1124, 0x43d0, 0xa8, 0x65, 0xe8, 0xff, 0xb6, 0xa3, 0xea,
               0x82);

struct IPartFont2 : IPartFont {
    virtual HRESULT GetFontRestriction(EXpsFontRestriction* pRestriction) = 0;

protected:
    ~IPartFont2() = default;
};
FU_DECLARE_IID(IPartFont2, 0x511e025f, 0xd6cb, 0x43be, 0xbf, 0x65, 0x63, 0xfe, 0x88, 0x51, 0x5a,
               0x39);

struct IPartThumbnail : IPartBase {
    virtual HRESULT GetThumbnailProperties(BSTR* pContentType) = 0;
    virtual HRESULT SetThumbnailContent(const wchar_t* pContentType) = 0;

protected:
    ~IPartThumbnail() = default;
};
FU_DECLARE_IID(IPartThumbnail, 0x027ed1c9, 0xba39, 0x4cc5, 0xaa, 0x55, 0x7e, 0xc3, 0xa0, 0xde, 0x17,
               0x1a);

struct IPartPrintTicket : IPartBase {
protected:
    ~IPartPrintTicket() = default;
};
FU_DECLARE_IID(IPartPrintTicket, 0x4a0f50f6, 0xf9a2, 0x41f0, 0x99, 0xe7, 0x5a, 0xe9, 0x55, 0xbe,
               0x8e, 0x9e);

struct IPartColorProfile : IPartBase {
protected:
    ~IPartColorProfile() = default;
};
FU_DECLARE_IID(IPartColorProfile, 0x63cca95b, 0x7d18, 0x4762, 0xb1, 0x5e, 0x98, 0x65, 0x86, 0x93,
               0xd2, 0x4a);

struct IPartResourceDictionary : IPartBase {
protected:
    ~IPartResourceDictionary() = default;
};
FU_DECLARE_IID(IPartResourceDictionary, 0x16cfce6d, 0xe744, 0x4fb3, 0xb4, 0x74, 0xf1, 0xd5, 0x4f,
               0x02, 0x4a, 0x01);

// Walks the resource parts of a fixed page: Reset, then Current/Next until IsDone.
struct IXpsPartIterator : IUnknown {
    virtual void Reset() = 0;
    virtual HRESULT Current(BSTR* pUri, IUnknown** ppXpsPart) = 0;
    virtual BOOL IsDone() = 0;
    virtual void Next() = 0;

protected:
    ~IXpsPartIterator() = default;
};
FU_DECLARE_IID(IXpsPartIterator, 0x0021d3cd, 0xaf6f, 0x42ab, 0x99, 0x99, 0x14, 0xbc, 0x82, 0xa6,
               0x2d, 0x2e);

struct IPartDiscardControl : IUnknown {
    virtual HRESULT GetDiscardProperties(BSTR* uriSentinelPage, BSTR* uriPartToDiscard) = 0;

protected:
    ~IPartDiscardControl() = default;
};
FU_DECLARE_IID(IPartDiscardControl, 0xcc350c00, 0x095b, 0x42a5, 0xbf, 0x0f, 0xc8, 0x78, 0x0e, 0xda,
               0xdb, 0x3c);
