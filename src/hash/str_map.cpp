// uHash: NUL-terminated string keys to untyped values over a uthash table keyed by the bytes of
// a private key copy (without its NUL). Case-insensitive maps fold every key to ASCII lower case,
// both the stored copy and each probe.
#include <uhash.h>
#include <umem.h>
#include <ustr.h>

#include "hash/map_table.hpp"

#include <cstdint>
#include <cstdlib>
#include <cstring>

namespace {

struct StrItem {
    char *key; // strdup copy, folded in a case-insensitive map
    void *value;
    UT_hash_handle hh;
};

} // namespace

struct uHash {
    StrItem *items;               // uthash head, null while the map is empty
    std::uint32_t caseInsensitive; // 1 folds keys to lower case
};

namespace {

// The bytes a key is looked up by. Case-insensitive maps need a folded copy: keys that fit the
// inline buffer are folded there, longer ones in a heap copy, which is the only step that can
// fail (text() is then null and the key counts as absent).
class ProbeKey {
  public:
    ProbeKey(const uHash *map, const char *key) : length_(std::strlen(key)) {
        if (map->caseInsensitive == 0) {
            text_ = key;
            return;
        }
        char *copy = buffer_;
        if (length_ >= sizeof(buffer_)) {
            copy = heap_ = strdup(key);
            if (copy == nullptr) {
                return;
            }
        } else {
            std::memcpy(buffer_, key, length_ + 1);
        }
        uStrToLowerCase(copy);
        text_ = copy;
    }
    ~ProbeKey() { std::free(heap_); }
    ProbeKey(const ProbeKey &) = delete;
    ProbeKey &operator=(const ProbeKey &) = delete;

    StrItem *find(StrItem *head) const {
        StrItem *item = nullptr;
        if (text_ != nullptr) {
            HASH_FIND(hh, head, text_, length_, item);
        }
        return item;
    }

  private:
    std::size_t length_;
    const char *text_ = nullptr;
    char *heap_ = nullptr;
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

void releaseItem(StrItem *item) {
    std::free(item->key);
    uFree(item);
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
    // Presence is judged by the value, so a key stored with a null value is added again: intended.
    if (valueOf(map, key) != nullptr) {
        return 0;
    }
    auto *item = static_cast<StrItem *>(uMalloc(sizeof(StrItem)));
    if (item == nullptr) {
        return -1;
    }
    item->key = strdup(key);
    if (item->key == nullptr) {
        uFree(item);
        return -1;
    }
    if (map->caseInsensitive != 0) {
        uStrToLowerCase(item->key);
    }
    item->value = value;
    HASH_ADD_KEYPTR(hh, map->items, item->key, std::strlen(item->key), item);
    return 1;
}

void *uHashGetValue(uHash *map, const char *key) { return valueOf(map, key); }

int32_t uHashKeyExists(uHash *map, const char *key) { return valueOf(map, key) != nullptr ? 1 : 0; }

int32_t uHashRemove(uHash *map, const char *key, uHashFreeFn freeValue) {
    StrItem *item = findItem(map, key);
    if (item == nullptr) {
        return -1;
    }
    pu::hash::dropItem(map->items, item, freeValue, releaseItem);
    return 0;
}

void uHashDestroyMap(uHash *map, uHashFreeFn freeValue) {
    if (map == nullptr) {
        return;
    }
    pu::hash::dropAll(map->items, freeValue, releaseItem);
    uFree(map);
}

} // extern "C"
