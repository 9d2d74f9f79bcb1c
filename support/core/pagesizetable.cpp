// pagesizetable.cpp: the core library's page size dictionary: every Print Schema PageMediaSize
// keyword and the driver's own page sizes with their sizes and data-model value ids (the rows
// are generated, see generatepagesizes.cmake), and the lookups of the entry table.

#include <cwchar>
#include <iterator>

#include "support/core/zoruncoreapi.h"

namespace {

constexpr ZorunCorePageSize kPageSizes[] = {
#include "support/core/pagesizetable.inc"
};
constexpr uint32_t kPageSizeCount = static_cast<uint32_t>(std::size(kPageSizes));

uint32_t PageSizeCount() {
    return kPageSizeCount;
}

const ZorunCorePageSize* PageSizeAt(uint32_t index) {
    return index < kPageSizeCount ? &kPageSizes[index] : nullptr;
}

uint32_t FindPageSizesBySize(int32_t width, int32_t height, uint32_t* indices, uint32_t capacity) {
    if (width <= 0 || height < 0) return 0;
    uint32_t found = 0;
    for (uint32_t i = 0; i < kPageSizeCount; ++i) {
        const ZorunCorePageSize& size = kPageSizes[i];
        if ((size.flags & ZORUNCORE_PAGESIZE_CUSTOM) != 0) continue;
        bool roll = (size.flags & ZORUNCORE_PAGESIZE_ROLL) != 0;
        if (roll != (height == 0)) continue;
        if (size.widthMicrons / 100 != width || size.heightMicrons / 100 != height) continue;
        if (indices != nullptr && found < capacity) indices[found] = i;
        ++found;
    }
    return found;
}

int32_t FindPageSizeByValueId(int32_t valueId) {
    for (uint32_t i = 0; i < kPageSizeCount; ++i) {
        if (kPageSizes[i].valueId == valueId) return static_cast<int32_t>(i);
    }
    return -1;
}

int32_t FindPageSizeByOptionName(const wchar_t* optionName) {
    if (optionName == nullptr) return -1;
    for (uint32_t i = 0; i < kPageSizeCount; ++i) {
        if (std::wcscmp(kPageSizes[i].optionName, optionName) == 0) return static_cast<int32_t>(i);
    }
    return -1;
}

constexpr ZorunCoreApi kApi = {
    sizeof(ZorunCoreApi),
    ZORUNCORE_API_VERSION,
    &PageSizeCount,
    &PageSizeAt,
    &FindPageSizesBySize,
    &FindPageSizeByValueId,
    &FindPageSizeByOptionName,
};

}  // namespace

extern "C" const ZorunCoreApi* ZorunCoreGetApi(uint32_t version) {
    return version >= 1 && version <= ZORUNCORE_API_VERSION ? &kApi : nullptr;
}
