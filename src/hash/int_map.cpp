// SPDX-License-Identifier: MIT
// uIntHash: signed 32-bit keys to untyped values over a uthash table keyed by the key's four
// bytes.
#include <uhash.h>
#include <umem.h>

#include "hash/map_table.hpp"

#include <algorithm>
#include <cstdint>
#include <cstring>

namespace {

struct IntItem {
    std::int32_t key;
    std::uint32_t ownBlock; // 1: the item is its own uMalloc block, not part of an item block
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

IntItem *findItem(IntItem *head, std::int32_t key, unsigned hash) {
    IntItem *item = nullptr;
    HASH_FIND_BYHASHVALUE(hh, head, &key, sizeof(key), hash, item);
    return item;
}

// The first items of a map come in blocks taken with uMalloc, each twice the size of the one
// before, and a removed block item waits on the map's free list for the next insert: a small map
// then makes no heap call per insert or remove. Past kBlockItems items each item is its own
// uMalloc block, so a large map leaves the heap no bigger free area than per-item blocks would.
struct ItemBlock {
    ItemBlock *next;
    std::uint32_t items;
};

constexpr std::uint32_t kFirstBlockItems = 8;
constexpr std::uint32_t kBlockItems = 8 + 16 + 32 + 64 + 128 + 256 + 512;

IntItem *itemsOf(ItemBlock *block) {
    return reinterpret_cast<IntItem *>(block + 1);
}

} // namespace

struct uIntHash {
    IntItem *items;      // uthash head, null while the map is empty
    IntItem *freeItems;  // removed block items, linked through their value field
    ItemBlock *blocks;   // every block of items, newest first
    std::uint32_t spare; // items of the newest block not yet handed out
};

namespace {

IntItem *takeItem(uIntHash *map) {
    if (IntItem *item = map->freeItems; item != nullptr) {
        map->freeItems = static_cast<IntItem *>(item->value);
        std::memset(static_cast<void *>(item), 0, sizeof(IntItem));
        return item;
    }
    if (map->spare == 0) {
        const std::uint32_t count =
            map->blocks == nullptr ? kFirstBlockItems : map->blocks->items * 2;
        const std::uint32_t held = count - kFirstBlockItems; // items of the blocks so far
        if (held + count > kBlockItems) {
            auto *item = static_cast<IntItem *>(uMalloc(sizeof(IntItem)));
            if (item != nullptr) {
                item->ownBlock = 1;
            }
            return item;
        }
        auto *block = static_cast<ItemBlock *>(
            uMalloc(static_cast<std::uint32_t>(sizeof(ItemBlock) + count * sizeof(IntItem))));
        if (block == nullptr) {
            return nullptr;
        }
        *block = ItemBlock{map->blocks, count};
        map->blocks = block;
        map->spare = count;
    }
    return &itemsOf(map->blocks)[map->blocks->items - map->spare--];
}

void releaseItem(uIntHash *map, IntItem *item) {
    if (item->ownBlock != 0) {
        uFree(item);
    } else {
        item->value = map->freeItems;
        map->freeItems = item;
    }
}

} // namespace

extern "C" {

uIntHash *uIntHashMapCreate(void) {
    return static_cast<uIntHash *>(uMalloc(sizeof(uIntHash)));
}

int32_t uIntHashInsert(uIntHash *map, int32_t key, void *value) {
    if (map == nullptr) {
        return -1;
    }
    const unsigned hash = hashOf(key); // computed once for the search and the insertion
    if (findItem(map->items, key, hash) != nullptr) {
        return 0;
    }
    IntItem *item = takeItem(map);
    if (item == nullptr) {
        return -1;
    }
    item->key = key;
    item->value = value;
    HASH_ADD_BYHASHVALUE(hh, map->items, key, sizeof(key), hash, item);
    return 1;
}

void *uIntHashGetValue(uIntHash *map, int32_t key) {
    IntItem *item = map == nullptr ? nullptr : findItem(map->items, key, hashOf(key));
    return item == nullptr ? nullptr : item->value;
}

int32_t uIntHashKeyExists(uIntHash *map, int32_t key) {
    return map != nullptr && findItem(map->items, key, hashOf(key)) != nullptr ? 1 : 0;
}

int32_t uIntHashRemove(uIntHash *map, int32_t key, uHashFreeFn freeValue) {
    if (map == nullptr) {
        return -1;
    }
    return pu::hash::removeFound(map, findItem(map->items, key, hashOf(key)), freeValue,
                                 [map](IntItem *item) { releaseItem(map, item); });
}

void uIntHashDestroyMap(uIntHash *map, uHashFreeFn freeValue) {
    if (map == nullptr) {
        return;
    }
    // The values in insertion order, then the item blocks, then the items of their own, linked
    // through their value fields meanwhile. The small items go back last, so the allocator
    // keeps them for reuse instead of merging everything into one free area it would return to
    // the system (and fault in again for the next map).
    IntItem *own = nullptr;
    IntItem *item = nullptr;
    IntItem *next = nullptr;
    HASH_ITER(hh, map->items, item, next) {
        if (freeValue != nullptr) {
            freeValue(item->value);
        }
        if (item->ownBlock != 0) {
            item->value = own;
            own = item;
        }
    }
    HASH_CLEAR(hh, map->items);
    for (ItemBlock *block = map->blocks; block != nullptr;) {
        ItemBlock *following = block->next;
        uFree(block);
        block = following;
    }
    while (own != nullptr) {
        IntItem *following = static_cast<IntItem *>(own->value);
        uFree(own);
        own = following;
    }
    uFree(map);
}

} // extern "C"
