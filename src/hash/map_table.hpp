// SPDX-License-Identifier: MIT
// What the two hash maps share over the uthash table: its chaining and growth (32 initial
// buckets, doubling, exit(-1) when the table's own storage cannot be allocated), the store their
// items come from, and removal and destruction.
#pragma once

#include <uhash.h>
#include <umem.h>

#include <cstddef>
#include <cstdint>
#include <cstring>

namespace pu::hash {

// Whether two keys of n bytes differ, for the bucket walk (uthash's HASH_KEYCMP). Keys are short
// and reach here only when the stored hash and length already match, so a word-wise compare in
// line beats a call to memcmp.
inline int keysDiffer(const void *a, const void *b, std::size_t n) {
    const auto *x = static_cast<const unsigned char *>(a);
    const auto *y = static_cast<const unsigned char *>(b);
    for (; n >= 8; x += 8, y += 8, n -= 8) {
        std::uint64_t u = 0;
        std::uint64_t v = 0;
        std::memcpy(&u, x, 8);
        std::memcpy(&v, y, 8);
        if (u != v) {
            return 1;
        }
    }
    for (; n > 0; ++x, ++y, --n) {
        if (*x != *y) {
            return 1;
        }
    }
    return 0;
}

} // namespace pu::hash

#define HASH_KEYCMP(a, b, n) pu::hash::keysDiffer(a, b, n)
#include <uthash.h>

namespace pu::hash {

// The tables' own hash of a key's bytes: eight bytes at a time through a multiply-and-fold mix,
// so every input bit reaches the low bits that pick a bucket. Iteration follows insertion order,
// so the choice of hash is never visible.
inline std::uint64_t mix(std::uint64_t value) {
    value *= 0x9E3779B97F4A7C15u;
    return value ^ (value >> 32);
}

inline unsigned bytesHash(const char *bytes, std::size_t length) {
    std::uint64_t hash = mix(length);
    for (; length >= 8; bytes += 8, length -= 8) {
        std::uint64_t word = 0;
        std::memcpy(&word, bytes, 8);
        hash = mix(hash ^ word) + word;
    }
    std::uint64_t tail = 0;
    std::memcpy(&tail, bytes, length);
    hash = mix(mix(hash ^ tail) + tail);
    return static_cast<unsigned>(hash ^ (hash >> 29));
}

// Where a map's items come from: blocks of kBlockItems items taken with uMalloc as the map
// grows, and a removed item waits on the store's free list for the next insert. An insert then
// makes one heap call in eight and a remove none, and the items lie close together for the
// bucket walks. A block stays under a kilobyte, where the C library serves it from its small
// blocks without first merging its free fragments. The blocks go back only when the map is
// destroyed.
//
// Item has a `void *value`, which links free items. The store lives zero-filled inside the
// uMalloc'd map.
template <typename Item> class ItemStore {
  public:
    // A zero-filled item, or null when memory is short.
    Item *take() {
        if (Item *item = free_; item != nullptr) {
            free_ = static_cast<Item *>(item->value);
            std::memset(static_cast<void *>(item), 0, sizeof(Item));
            return item;
        }
        if (spare_ == 0) {
            auto *block = static_cast<Block *>(uMalloc(sizeof(Block)));
            if (block == nullptr) {
                return nullptr;
            }
            block->next = blocks_;
            blocks_ = block;
            spare_ = kBlockItems;
        }
        return &blocks_->items[kBlockItems - spare_--];
    }

    // Takes back an item that is out of the table and owns nothing any more.
    void give(Item *item) {
        item->value = free_;
        free_ = item;
    }

    // Empties the table at head: the values go to freeValue (when given) and each item's own
    // storage to releaseExtra, both in insertion order; then the table and the blocks go.
    template <typename ReleaseExtra>
    void clear(Item *&head, uHashFreeFn freeValue, ReleaseExtra releaseExtra) {
        Item *item = nullptr;
        Item *next = nullptr;
        HASH_ITER(hh, head, item, next) {
            if (freeValue != nullptr) {
                freeValue(item->value);
            }
            releaseExtra(item);
        }
        HASH_CLEAR(hh, head);
        while (blocks_ != nullptr) {
            Block *following = blocks_->next;
            uFree(blocks_);
            blocks_ = following;
        }
        free_ = nullptr;
        spare_ = 0;
    }

  private:
    static constexpr std::uint32_t kBlockItems = 8;
    struct Block {
        Block *next;
        Item items[kBlockItems];
    };
    static_assert(sizeof(Block) < 1000, "a block stays in the C library's small-block range");

    Item *free_;          // removed items, linked through their value fields
    Block *blocks_;       // every block, newest first
    std::uint32_t spare_; // items of the newest block not yet handed out
};

// Removes a found item (or reports -1 when none was found): out of the table, its value to
// freeValue (when given), its own storage to releaseExtra, the item back to the store.
template <typename Map, typename Item, typename ReleaseExtra>
std::int32_t removeFound(Map *map, Item *item, uHashFreeFn freeValue, ReleaseExtra releaseExtra) {
    if (item == nullptr) {
        return -1;
    }
    HASH_DEL(map->items, item);
    if (freeValue != nullptr) {
        freeValue(item->value);
    }
    releaseExtra(item);
    map->store.give(item);
    return 0;
}

// Empties map, then frees the map itself. A null map is ignored.
template <typename Map, typename ReleaseExtra>
void destroyMap(Map *map, uHashFreeFn freeValue, ReleaseExtra releaseExtra) {
    if (map != nullptr) {
        map->store.clear(map->items, freeValue, releaseExtra);
        uFree(map);
    }
}

} // namespace pu::hash
