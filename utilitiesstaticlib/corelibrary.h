// corelibrary.h: the filter library's binding of the core library (zoruncore). The core library
// is never linked: its entry table is fetched through a delay-loaded function, so the first use
// opens the library through the delay loader (dlldelayloader.h) and later uses cost one atomic
// load.
#pragma once

#include "support/core/zoruncoreapi.h"

namespace CoreLibrary {

// The core library's entry table (version ZORUNCORE_API_VERSION or a later one). Throws
// ExceptionDelayLoadDllLoadFailure when the library cannot be found, and a ZorunComException
// with HRESULT_FROM_WIN32(ERROR_PROC_NOT_FOUND) when it has no entry table this version can use.
const ZorunCoreApi& GetApi();

}  // namespace CoreLibrary
