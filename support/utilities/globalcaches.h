// globalcaches.h: process-wide caches of the utility library. The devmode attribute cache keeps
// the attribute lists most recently built from a devmode's driver data, keyed by attribute
// namespace and the CRC of that data, so that the many tickets of one job that carry the same
// devmode build its list once. Thread-safe; it holds at most kXDevmodeCacheCapacity lists and
// forgets the least recently used one first.
#pragma once

#include <cstddef>

#include "platform/com/wintypes.h"
#include "support/utilities/attributebytes.h"

class GlobalCaches {
public:
    static constexpr std::size_t kXDevmodeCacheCapacity = 16;

    // When the cache holds the list of that namespace and CRC: copies it into `list` and returns
    // true. Otherwise leaves `list` as it is and returns false.
    static bool CheckXDevmodeAttributeBytesIndexedListCache(
        const AttributeBytesNameSpacesId& nameSpace, DWORD crc, AttributeBytesIndexedList& list);
    // Keeps a copy of `list` under that namespace and CRC (replacing what was kept under them).
    // An empty list is not kept.
    static void StoreXDevmodeAttributeBytesIndexedListCache(
        const AttributeBytesNameSpacesId& nameSpace, DWORD crc,
        const AttributeBytesIndexedList& list);
    static void ClearXDevmodeAttributeBytesIndexedListCache();
    static std::size_t GetXDevmodeAttributeBytesIndexedListCacheSize();
};
