// globalcaches.cpp: the process-wide devmode attribute cache, a small least-recently-used list
// under one lock.

#include "support/utilities/globalcaches.h"

#include <list>
#include <mutex>

namespace {

struct Entry {
    long nameSpace;
    DWORD crc;
    AttributeBytesIndexedList list;
};

struct XDevmodeCache {
    std::mutex lock;
    std::list<Entry> entries;  // most recently used first
};

XDevmodeCache& Cache() {
    static XDevmodeCache* cache = new XDevmodeCache;  // usable from static destructors
    return *cache;
}

}  // namespace

bool GlobalCaches::CheckXDevmodeAttributeBytesIndexedListCache(
    const AttributeBytesNameSpacesId& nameSpace, DWORD crc, AttributeBytesIndexedList& list) {
    XDevmodeCache& cache = Cache();
    std::lock_guard<std::mutex> guard(cache.lock);
    for (auto entry = cache.entries.begin(); entry != cache.entries.end(); ++entry) {
        if (entry->nameSpace == nameSpace.GetNameSpaceId() && entry->crc == crc) {
            cache.entries.splice(cache.entries.begin(), cache.entries, entry);
            list = cache.entries.front().list;
            return true;
        }
    }
    return false;
}

void GlobalCaches::StoreXDevmodeAttributeBytesIndexedListCache(
    const AttributeBytesNameSpacesId& nameSpace, DWORD crc, const AttributeBytesIndexedList& list) {
    if (list.IsEmpty()) return;
    XDevmodeCache& cache = Cache();
    std::lock_guard<std::mutex> guard(cache.lock);
    for (auto entry = cache.entries.begin(); entry != cache.entries.end(); ++entry) {
        if (entry->nameSpace == nameSpace.GetNameSpaceId() && entry->crc == crc) {
            cache.entries.erase(entry);
            break;
        }
    }
    cache.entries.push_front(Entry{nameSpace.GetNameSpaceId(), crc, list});
    while (cache.entries.size() > kXDevmodeCacheCapacity) cache.entries.pop_back();
}

void GlobalCaches::ClearXDevmodeAttributeBytesIndexedListCache() {
    XDevmodeCache& cache = Cache();
    std::lock_guard<std::mutex> guard(cache.lock);
    cache.entries.clear();
}

std::size_t GlobalCaches::GetXDevmodeAttributeBytesIndexedListCacheSize() {
    XDevmodeCache& cache = Cache();
    std::lock_guard<std::mutex> guard(cache.lock);
    return cache.entries.size();
}
