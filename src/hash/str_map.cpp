// SPDX-License-Identifier: MIT
// uHash: NUL-terminated string keys to untyped values over a uthash table keyed by the bytes of
// a private key copy (without its NUL). Case-insensitive maps fold every key to ASCII lower case,
// both the stored copy and each probe.
#include <uhash.h>
#include <umem.h>
#include <ustr.h>

#include "core/checked_size.hpp"
#include "hash/map_table.hpp"

#include <cstdint>
#include <cstdlib>
#include <cstring>

namespace {

// A key that fits is copied into the item, right behind the handle that the bucket walk has
// just read; a longer one gets a uMalloc block of its own.
constexpr std::size_t kInlineKeyBytes = 32;

struct StrItem {
    UT_hash_handle hh;
    char *key; // inlineKey or its own block; folded in a case-insensitive map
    void *value;
    char inlineKey[kInlineKeyBytes];
};

} // namespace

struct uHash {
    StrItem *items;                // uthash head, null while the map is empty
    std::uint32_t caseInsensitive; // 1 folds keys to lower case
    pu::hash::ItemStore<StrItem> store;
};

namespace {

// A key as the table sees it: its bytes (folded for a case-insensitive map), their length and
// their hash, computed once per operation. Folded keys that fit the inline buffer stay off the
// heap; longer ones are folded in a heap copy, the only step that can fail (text() is then null).
class ProbeKey {
  public:
    ProbeKey(const uHash *map, const char *key) : length_(std::strlen(key)) {
        if (map->caseInsensitive == 0) {
            text_ = key;
        } else {
            char *copy = length_ < sizeof(buffer_)
                             ? buffer_
                             : (heap_ = static_cast<char *>(std::malloc(length_ + 1)));
            if (copy == nullptr) {
                return;
            }
            std::memcpy(copy, key, length_ + 1);
            uStrToLowerCase(copy);
            text_ = copy;
        }
        hash_ = pu::hash::bytesHash(text_, length_);
    }
    ~ProbeKey() { std::free(heap_); }
    ProbeKey(const ProbeKey &) = delete;
    ProbeKey &operator=(const ProbeKey &) = delete;

    const char *text() const { return text_; }
    std::size_t length() const { return length_; }
    unsigned hash() const { return hash_; }

    StrItem *find(StrItem *head) const {
        StrItem *item = nullptr;
        if (text_ != nullptr) {
            HASH_FIND_BYHASHVALUE(hh, head, text_, length_, hash_, item);
        }
        return item;
    }

  private:
    std::size_t length_;
    const char *text_ = nullptr;
    char *heap_ = nullptr;
    unsigned hash_ = 0;
    char buffer_[64];
};

StrItem *findItem(const uHash *map, const char *key) {
    if (map == nullptr || key == nullptr || map->items == nullptr) {
        return nullptr;
    }
    return ProbeKey(map, key).find(map->items);
}

void *valueOf(const uHash *map, const char *key) {
    const StrItem *item = findItem(map, key);
    return item == nullptr ? nullptr : item->value;
}

void releaseKey(StrItem *item) {
    if (item->key != item->inlineKey) {
        uFree(item->key);
    }
}

// A new item holding a copy of the probe's (already folded) bytes, or null.
StrItem *newItem(uHash *map, const ProbeKey &probe, void *value) {
    StrItem *item = map->store.take();
    if (item == nullptr) {
        return nullptr;
    }
    if (probe.length() < kInlineKeyBytes) {
        item->key = item->inlineKey;
        std::memcpy(item->key, probe.text(), probe.length() + 1);
    } else {
        item->key = pu::core::copyText({probe.text(), probe.length()});
        if (item->key == nullptr) {
            map->store.give(item);
            return nullptr;
        }
    }
    item->value = value;
    return item;
}

} // namespace

extern "C" {

uHash *uHashCreateMap(uint32_t caseInsensitive) {
    auto *map = static_cast<uHash *>(uMalloc(sizeof(uHash)));
    if (map != nullptr) {
        map->caseInsensitive = caseInsensitive != 0 ? 1 : 0;
    }
    return map;
}

int32_t uHashInsert(uHash *map, const char *key, void *value) {
    if (map == nullptr || key == nullptr || key[0] == '\0') {
        return -1;
    }
    const ProbeKey probe(map, key);
    if (probe.text() == nullptr) {
        return -1;
    }
    // Presence is judged by the value, so a key stored with a null value is added again: intended.
    const StrItem *present = probe.find(map->items);
    if (present != nullptr && present->value != nullptr) {
        return 0;
    }
    StrItem *item = newItem(map, probe, value);
    if (item == nullptr) {
        return -1;
    }
    HASH_ADD_KEYPTR_BYHASHVALUE(hh, map->items, item->key, probe.length(), probe.hash(), item);
    return 1;
}

void *uHashGetValue(uHash *map, const char *key) {
    return valueOf(map, key);
}

int32_t uHashKeyExists(uHash *map, const char *key) {
    return valueOf(map, key) != nullptr ? 1 : 0;
}

int32_t uHashRemove(uHash *map, const char *key, uHashFreeFn freeValue) {
    return pu::hash::removeFound(map, findItem(map, key), freeValue, releaseKey);
}

void uHashDestroyMap(uHash *map, uHashFreeFn freeValue) {
    pu::hash::destroyMap(map, freeValue, releaseKey);
}

} // extern "C"
