// comruntime.h: the COM runtime calls filter code makes: apartments, object creation through a
// class registry, task memory, the current file time and memory streams.
#pragma once

#include <functional>

#include "platform/com/unknown.h"

enum CLSCTX : DWORD {
    CLSCTX_INPROC_SERVER = 0x1,
    CLSCTX_INPROC_HANDLER = 0x2,
    CLSCTX_LOCAL_SERVER = 0x4,
    CLSCTX_REMOTE_SERVER = 0x10,
    CLSCTX_SERVER = CLSCTX_INPROC_SERVER | CLSCTX_LOCAL_SERVER | CLSCTX_REMOTE_SERVER,
    CLSCTX_ALL = CLSCTX_INPROC_SERVER | CLSCTX_INPROC_HANDLER | CLSCTX_LOCAL_SERVER |
                 CLSCTX_REMOTE_SERVER,
};

enum COINIT : DWORD {
    COINIT_MULTITHREADED = 0x0,
    COINIT_APARTMENTTHREADED = 0x2,
    COINIT_DISABLE_OLE1DDE = 0x4,
    COINIT_SPEED_OVER_MEMORY = 0x8,
};

// Per-thread apartment count: the first call on a thread returns S_OK, later calls with the same
// model S_FALSE, a call asking for the other model RPC_E_CHANGED_MODE (not counted). Each
// successful call (S_OK or S_FALSE) is to be paired with CoUninitialize.
HRESULT CoInitializeEx(void* reserved, DWORD coInit);
HRESULT CoInitialize(void* reserved);
void CoUninitialize();

// Creates an object of a registered class. An apartment is not required on this platform.
// Unknown class: REGDB_E_CLASSNOTREG; aggregation (outer != null): CLASS_E_NOAGGREGATION.
HRESULT CoCreateInstance(REFCLSID clsid, IUnknown* outer, DWORD context, REFIID iid,
                         void** object);

void* CoTaskMemAlloc(SIZE_T bytes);
void* CoTaskMemRealloc(void* block, SIZE_T bytes);
void CoTaskMemFree(void* block);

// The current UTC time as a FILETIME (100 ns units since 1601-01-01).
HRESULT CoFileTimeNow(FILETIME* now);

// A growable in-memory IStream. Only a null HGLOBAL is supported (the stream owns its memory);
// a non-null one gives E_INVALIDARG.
HRESULT CreateStreamOnHGlobal(HGLOBAL global, BOOL deleteOnRelease, IStream** stream);

namespace platform {

// The class registry behind CoCreateInstance. A factory creates an object and returns the
// requested interface, as IClassFactory::CreateInstance would.
using ClassFactory = std::function<HRESULT(REFIID iid, void** object)>;
void RegisterComClass(REFCLSID clsid, ClassFactory factory);
void UnregisterComClass(REFCLSID clsid);

// Number of outstanding CoInitializeEx calls on the calling thread (for tests and diagnostics).
int ApartmentInitCount();

// Creates a memory stream holding a copy of the bytes, positioned at 0.
HRESULT CreateMemoryStream(const void* data, std::size_t size, IStream** stream);

}  // namespace platform
