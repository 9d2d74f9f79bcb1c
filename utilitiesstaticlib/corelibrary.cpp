// corelibrary.cpp: fetching the core library's entry table through the delay-load helper.

#include "utilitiesstaticlib/corelibrary.h"

#include "platform/win32/delayimp.h"
#include "support/errorframe/errorframe.h"
#include "utilitiesstaticlib/dlldelayloader.h"

namespace CoreLibrary {

const ZorunCoreApi& GetApi() {
    static platform::DelayLoadedFunction<const ZorunCoreApi*(uint32_t)> getApi(
        ZORUNCORE_LIBRARY_FILE_NAME, ZORUNCORE_ENTRY_POINT_NAME);
    InstallDllDelayLoaderHook();
    const ZorunCoreApi* api = nullptr;
    try {
        api = getApi(ZORUNCORE_API_VERSION);
    } catch (const platform::DelayLoadError& error) {
        // The hook throws ExceptionDelayLoadDllLoadFailure itself when the library is missing;
        // what reaches here is a library without the entry point.
        THROW_COM(HRESULT_FROM_WIN32(error.GetError()), L"CoreLibrary::GetApi", "%s", error.what());
    }
    if (api == nullptr || api->version < ZORUNCORE_API_VERSION ||
        api->structSize < sizeof(ZorunCoreApi)) {
        THROW_COM(HRESULT_FROM_WIN32(ERROR_PROC_NOT_FOUND), L"CoreLibrary::GetApi",
                  "%s has no entry table of version %u", ZORUNCORE_LIBRARY_FILE_NAME,
                  ZORUNCORE_API_VERSION);
    }
    return *api;
}

}  // namespace CoreLibrary
