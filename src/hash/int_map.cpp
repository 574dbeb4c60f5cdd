// SPDX-License-Identifier: MIT
// uIntHash: signed 32-bit keys to untyped values over a uthash table keyed by the key's four
// bytes.
#include <uhash.h>
#include <umem.h>

#include "hash/map_table.hpp"

#include <cstdint>

namespace {

struct IntItem {
    std::int32_t key;
    void *value;
    UT_hash_handle hh;
};

IntItem *findItem(IntItem *head, std::int32_t key, unsigned hash) {
    IntItem *item = nullptr;
    HASH_FIND_BYHASHVALUE(hh, head, &key, sizeof(key), hash, item);
    return item;
}

IntItem *findItem(IntItem *head, std::int32_t key) {
    unsigned hash = 0;
    HASH_VALUE(&key, sizeof(key), hash);
    return findItem(head, key, hash);
}

void releaseItem(IntItem *item) {
    uFree(item);
}

} // namespace

struct uIntHash {
    IntItem *items; // uthash head, null while the map is empty
};

extern "C" {

uIntHash *uIntHashMapCreate(void) {
    return static_cast<uIntHash *>(uMalloc(sizeof(uIntHash)));
}

int32_t uIntHashInsert(uIntHash *map, int32_t key, void *value) {
    if (map == nullptr) {
        return -1;
    }
    unsigned hash = 0; // computed once for the search and the insertion
    HASH_VALUE(&key, sizeof(key), hash);
    if (findItem(map->items, key, hash) != nullptr) {
        return 0;
    }
    auto *item = static_cast<IntItem *>(uMalloc(sizeof(IntItem)));
    if (item == nullptr) {
        return -1;
    }
    item->key = key;
    item->value = value;
    HASH_ADD_BYHASHVALUE(hh, map->items, key, sizeof(key), hash, item);
    return 1;
}

void *uIntHashGetValue(uIntHash *map, int32_t key) {
    IntItem *item = map == nullptr ? nullptr : findItem(map->items, key);
    return item == nullptr ? nullptr : item->value;
}

int32_t uIntHashKeyExists(uIntHash *map, int32_t key) {
    return map != nullptr && findItem(map->items, key) != nullptr ? 1 : 0;
}

int32_t uIntHashRemove(uIntHash *map, int32_t key, uHashFreeFn freeValue) {
    return pu::hash::removeFound(map, map == nullptr ? nullptr : findItem(map->items, key),
                                 freeValue, releaseItem);
}

void uIntHashDestroyMap(uIntHash *map, uHashFreeFn freeValue) {
    pu::hash::destroyMap(map, freeValue, releaseItem);
}

} // extern "C"
