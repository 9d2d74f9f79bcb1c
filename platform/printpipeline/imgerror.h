// imgerror.h: the error-information interfaces a filter may hand to
// IPrintPipelineManagerControl::RequestShutdown: IErrorInfo and the print pipeline's extension
// IImgErrorInfo, with the Windows method sets and IIDs. The pipeline host only stores them.
#pragma once

#include "platform/com/bstr.h"
#include "platform/com/unknown.h"

struct IErrorInfo : IUnknown {
    virtual HRESULT GetGUID(GUID* guid) = 0;
    virtual HRESULT GetSource(BSTR* source) = 0;
    virtual HRESULT GetDescription(BSTR* description) = 0;
    virtual HRESULT GetHelpFile(BSTR* helpFile) = 0;
    virtual HRESULT GetHelpContext(DWORD* helpContext) = 0;

protected:
    ~IErrorInfo() = default;
};
FU_DECLARE_IID(IErrorInfo, 0x1CF2B120, 0x547D, 0x101B, 0x8E, 0x65, 0x08, 0x00, 0x2B, 0x2B, 0xC1,
               0x19);

// The record IImgErrorInfo::DetachErrorInfo hands over; the caller owns every BSTR in it.
struct ImgErrorInfo {
    BSTR description;
    GUID guid;
    DWORD helpContext;
    BSTR helpFile;
    BSTR source;
    BSTR devDescription;
    GUID errorID;
    ULONG cUserParameters;
    BSTR* aUserParameters;
    BSTR userFallback;
    DWORD exceptionID;
};

struct IImgErrorInfo : IErrorInfo {
    virtual HRESULT GetDeveloperDescription(BSTR* devDescription) = 0;
    virtual HRESULT GetUserErrorId(GUID* errorId) = 0;
    virtual HRESULT GetUserParameterCount(ULONG* userParams) = 0;
    virtual HRESULT GetUserParameter(ULONG param, BSTR* userParameter) = 0;
    virtual HRESULT GetUserFallback(BSTR* userFallback) = 0;
    virtual HRESULT GetExceptionId(ULONG* exceptionId) = 0;
    virtual HRESULT DetachErrorInfo(ImgErrorInfo* errorInfo) = 0;

protected:
    ~IImgErrorInfo() = default;
};
FU_DECLARE_IID(IImgErrorInfo, 0x2BCE4ECE, 0xD30E, 0x445A, 0x94, 0x23, 0x68, 0x29, 0xBE, 0x94, 0x5A,
               0xD8);
