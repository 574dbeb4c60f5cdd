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

// The table's own hash of a key: the key's bits fully mixed (every bit of the key moves about
// half of the bits of the result), so the low bits that pick a bucket spread any key set evenly.
// Iteration follows insertion order, so the choice of hash is never visible.
unsigned hashOf(std::int32_t key) {
    auto hash = static_cast<std::uint32_t>(key);
    hash ^= hash >> 16;
    hash *= 0x85EBCA6Bu;
    hash ^= hash >> 13;
    hash *= 0xC2B2AE35u;
    hash ^= hash >> 16;
    return hash;
}

IntItem *findItem(IntItem *head, std::int32_t key) {
    IntItem *item = nullptr;
    HASH_FIND_BYHASHVALUE(hh, head, &key, sizeof(key), hashOf(key), item);
    return item;
}

// An integer item owns nothing besides itself.
void ownsNothing(IntItem *) {}

} // namespace

struct uIntHash {
    IntItem *items; // uthash head, null while the map is empty
    pu::hash::ItemStore<IntItem> store;
};

extern "C" {

uIntHash *uIntHashMapCreate(void) {
    return static_cast<uIntHash *>(uMalloc(sizeof(uIntHash)));
}

int32_t uIntHashInsert(uIntHash *map, int32_t key, void *value) {
    if (map == nullptr) {
        return -1;
    }
    if (findItem(map->items, key) != nullptr) {
        return 0;
    }
    IntItem *item = map->store.take();
    if (item == nullptr) {
        return -1;
    }
    item->key = key;
    item->value = value;
    HASH_ADD_BYHASHVALUE(hh, map->items, key, sizeof(key), hashOf(key), item);
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
                                 freeValue, ownsNothing);
}

void uIntHashDestroyMap(uIntHash *map, uHashFreeFn freeValue) {
    pu::hash::destroyMap(map, freeValue, ownsNothing);
}

} // extern "C"
