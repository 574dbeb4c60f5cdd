// SPDX-License-Identifier: MIT
// What the two hash maps share over the uthash table: its default hash (Jenkins), 32 initial
// buckets, doubling, and exit(-1) when the table's own storage cannot be allocated.
#pragma once

#include <uhash.h>
#include <umem.h>

#include <uthash.h>

#include <cstdint>

namespace pu::hash {

// Unlinks item from the table at head, hands its value to freeValue (when given), then frees
// whatever the item owns through releaseItem.
template <typename Item, typename Release>
void dropItem(Item *&head, Item *item, uHashFreeFn freeValue, Release releaseItem) {
    HASH_DEL(head, item);
    if (freeValue != nullptr) {
        freeValue(item->value);
    }
    releaseItem(item);
}

// Drops every item of the table at head, leaving it empty.
template <typename Item, typename Release>
void dropAll(Item *&head, uHashFreeFn freeValue, Release releaseItem) {
    Item *item = nullptr;
    Item *next = nullptr;
    HASH_ITER(hh, head, item, next) {
        dropItem(head, item, freeValue, releaseItem);
    }
}

// Removal of a found item (or -1 when none was found), as both maps report it.
template <typename Map, typename Item, typename Release>
std::int32_t removeFound(Map *map, Item *item, uHashFreeFn freeValue, Release releaseItem) {
    if (item == nullptr) {
        return -1;
    }
    dropItem(map->items, item, freeValue, releaseItem);
    return 0;
}

// Drops every item of map, then frees the map itself. A null map is ignored.
template <typename Map, typename Release>
void destroyMap(Map *map, uHashFreeFn freeValue, Release releaseItem) {
    if (map != nullptr) {
        dropAll(map->items, freeValue, releaseItem);
        uFree(map);
    }
}

} // namespace pu::hash
