/* zoruncoreapi.h: the entry table of the core library (zoruncore), a shared object that its
 * users open at run time through the delay loader and never link. Its one exported function,
 * ZorunCoreGetApi, hands out a table of plain C function pointers over plain records, so that
 * the library can be opened with dlopen/GetProcAddress and called from C or C++ alike. The C++
 * view of it is utilitiesstaticlib/pagesizedictionary.h. See docs/corelib.md. */
#ifndef ZORUNCORE_ZORUNCOREAPI_H
#define ZORUNCORE_ZORUNCOREAPI_H

#include <stddef.h>
#include <stdint.h>
#include <wchar.h>

#ifdef __cplusplus
extern "C" {
#endif

/* The file the delay loader looks for, and the function it binds first. */
#define ZORUNCORE_LIBRARY_FILE_NAME "libzoruncore.so.0"
#define ZORUNCORE_ENTRY_POINT_NAME "ZorunCoreGetApi"

/* The table version this header describes. Later versions only append members. */
#define ZORUNCORE_API_VERSION 1u

/* ZorunCorePageSize.flags */
#define ZORUNCORE_PAGESIZE_PREDEFINED 0x1u /* a Print Schema keyword (psk:), not the driver's own */
#define ZORUNCORE_PAGESIZE_CUSTOM 0x2u     /* a parameterised size: no width or height */
#define ZORUNCORE_PAGESIZE_ROLL 0x4u       /* roll media: a width, no height */

/* One page size of the dictionary. Sizes in micrometres, portrait or landscape as the
 * PageMediaSize keyword defines them; 0 where the size has none. */
typedef struct ZorunCorePageSize {
    int32_t valueId;        /* DataModelIds::tagValueEnum */
    int32_t widthMicrons;
    int32_t heightMicrons;
    int32_t devmodePaperId; /* DMPAPER_* number, 0 when there is none */
    uint32_t flags;
    const wchar_t* optionName; /* the PageMediaSize option name, e.g. L"ISOA4" */
} ZorunCorePageSize;

typedef struct ZorunCoreApi {
    uint32_t structSize; /* sizeof the table the library has; at least that of version 1 */
    uint32_t version;    /* the library's table version, >= the version asked for */

    /* The number of page sizes, and the one at an index (null beyond the count). */
    uint32_t (*PageSizeCount)(void);
    const ZorunCorePageSize* (*PageSizeAt)(uint32_t index);

    /* The page sizes whose width and height, in tenths of a millimetre (micrometres / 100,
     * truncated), equal the given ones: their indices in dictionary order into `indices` (at
     * most `capacity`; `indices` may be null when `capacity` is 0). Returns how many match,
     * which may exceed `capacity`. A height of 0 finds roll media of that width; a width of 0
     * or below, or a height below 0, finds nothing. */
    uint32_t (*FindPageSizesBySize)(int32_t widthTenthsOfMillimetre,
                                    int32_t heightTenthsOfMillimetre, uint32_t* indices,
                                    uint32_t capacity);

    /* The index of the page size with that value id / option name (exact, case-sensitive), or
     * -1. A null name finds nothing. */
    int32_t (*FindPageSizeByValueId)(int32_t valueId);
    int32_t (*FindPageSizeByOptionName)(const wchar_t* optionName);
} ZorunCoreApi;

/* The table, when the library supports `version` (1 up to its own version); null otherwise. */
__attribute__((visibility("default"))) const ZorunCoreApi* ZorunCoreGetApi(uint32_t version);

typedef const ZorunCoreApi* (*ZorunCoreGetApiFunction)(uint32_t version);

#ifdef __cplusplus
}
#endif

#endif /* ZORUNCORE_ZORUNCOREAPI_H */
