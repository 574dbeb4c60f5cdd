// SPDX-License-Identifier: MIT
// uList: a singly linked chain of caller-owned element pointers with a count and an optional
// recursive mutex. Every positional access walks from the head; there is no tail pointer (the
// families that build long lists keep one locally, see ListBuilder).
#include <ulist.h>
#include <umem.h>

#include "core/list_internal.hpp"
#include "core/log_modules.hpp"
#include "core/sem_lock.hpp"

#include <atomic>
#include <cstring>

namespace {

// The list's own helpers and lock guard (list_internal.hpp, sem_lock.hpp).
using namespace pu::core;

// The node at pos; the caller holds the lock and has checked 0 <= pos < size.
uListNode *nodeAt(const uList *list, std::int32_t pos) {
    uListNode *node = loadHead(list);
    for (std::int32_t i = 0; i < pos; ++i) {
        node = node->next;
    }
    return node;
}

// Caller holds the lock and has checked that the node exists. Unlinks the node after prev, or
// the head when prev is null, frees it and returns its element.
void *unlinkAfter(uList *list, uListNode *prev) {
    uListNode *removed = prev == nullptr ? loadHead(list) : prev->next;
    if (prev == nullptr) {
        storeHead(list, removed->next);
    } else {
        prev->next = removed->next;
    }
    void *element = removed->data;
    uFree(removed);
    storeSize(list, loadSize(list) - 1);
    return element;
}

// Links node into the list so that it lands where uListAdd's position rules put it.
void linkNode(uList *list, uListNode *node, std::int32_t pos) {
    const std::int32_t size = loadSize(list);
    if (pos == -1 || pos >= size) {
        linkAfter(list, size == 0 ? nullptr : nodeAt(list, size - 1), node);
    } else if (size == 0 || pos == 0) {
        linkAfter(list, nullptr, node);
    } else {
        // Positions below -1 walk no link at all and so land behind the head, at position 1.
        linkAfter(list, nodeAt(list, pos > 0 ? pos - 1 : 0), node);
    }
}

void ignoreElement(void *) {}

bool stringsEqual(const void *a, const void *b) {
    if (a == nullptr || b == nullptr) {
        return a == b;
    }
    return std::strcmp(static_cast<const char *>(a), static_cast<const char *>(b)) == 0;
}

} // namespace

extern "C" {

uList *uListInit(int32_t withLock) {
    auto *list = static_cast<uList *>(uMalloc(sizeof(uList)));
    if (list != nullptr && withLock != 0) {
        list->lock = semMCreate(0);
    }
    return list;
}

int32_t uListUninit(uList *list) {
    if (list == nullptr) {
        return 0;
    }
    if (loadSize(list) > 0) {
        pu::log::error(pu::log::kList, "%s: Uninit list that has nodes not free!", "uListUninit");
        return -1;
    }
    if (list->lock != 0) {
        semDelete(list->lock);
    }
    std::memset(static_cast<void *>(list), 0, sizeof(*list));
    uFree(list);
    return 0;
}

int32_t uListSize(uList *list) {
    return list == nullptr ? -1 : loadSize(list);
}

int32_t uListEol(uList *list, int32_t pos) {
    return (list == nullptr || pos < 0 || pos >= loadSize(list)) ? 1 : 0;
}

int32_t uListAdd(uList *list, void *element, int32_t pos) {
    if (list == nullptr || element == nullptr) {
        return -1;
    }
    SemGuard guard(list->lock);
    auto *node = static_cast<uListNode *>(uMalloc(sizeof(uListNode)));
    if (node == nullptr) {
        return -1; // the chain and the count stay as they were
    }
    node->data = element;
    linkNode(list, node, pos);
    return loadSize(list);
}

int32_t uListAppend(uList *list, void *element) {
    return uListAdd(list, element, -1);
}

void *uListRemove(uList *list, int32_t pos) {
    if (list == nullptr) {
        return nullptr;
    }
    SemGuard guard(list->lock);
    if (pos < 0 || pos >= loadSize(list)) {
        return nullptr;
    }
    return unlinkAfter(list, pos == 0 ? nullptr : nodeAt(list, pos - 1));
}

int32_t uListRemoveAndFree(uList *list, int32_t pos, uListFreeFn freeFn) {
    void *element = uListRemove(list, pos);
    if (element != nullptr) {
        if (freeFn != nullptr) {
            freeFn(element);
        } else {
            uFree(element);
        }
    }
    return loadSize(list);
}

void *uListGet(uList *list, int32_t pos) {
    if (list == nullptr || pos < 0) {
        return nullptr;
    }
    SemGuard guard(list->lock);
    if (pos >= loadSize(list)) {
        return nullptr;
    }
    return nodeAt(list, pos)->data;
}

void *uListFirst(uList *list) {
    if (list == nullptr) {
        return nullptr;
    }
    uListNode *head = loadHead(list);
    return head == nullptr ? nullptr : head->data;
}

int32_t uListPosGetByElement(uList *list, void *element) {
    if (list == nullptr || element == nullptr) {
        return -1;
    }
    SemGuard guard(list->lock);
    std::int32_t pos = 0;
    for (uListNode *node = loadHead(list); node != nullptr; node = node->next, ++pos) {
        if (node->data == element) {
            return pos;
        }
    }
    return -1;
}

int32_t uListSearch(uList *list, void *key, uListCompareFn compare) {
    if (list == nullptr || key == nullptr) {
        return -1;
    }
    // Each access locks on its own, so the comparator never runs under the list's lock.
    for (std::int32_t pos = 0; uListEol(list, pos) == 0; ++pos) {
        void *element = uListGet(list, pos);
        if (element == nullptr) {
            continue;
        }
        if (compare != nullptr ? compare(element, key) == 0 : element == key) {
            return pos;
        }
    }
    return -1;
}

int32_t uListEqual(uList *a, uList *b, uListEqualFn equal) {
    if (a == nullptr || b == nullptr) {
        return a == b ? 1 : 0;
    }
    const std::int32_t size = uListSize(a);
    if (size != uListSize(b)) {
        return 0;
    }
    for (std::int32_t pos = 0; pos < size; ++pos) {
        void *elementOfA = uListGet(a, pos);
        void *elementOfB = uListGet(b, pos);
        const bool same = equal != nullptr ? equal(elementOfA, elementOfB) != 0
                                           : stringsEqual(elementOfA, elementOfB);
        if (!same) {
            return 0;
        }
    }
    return 1;
}

int32_t uListSpecialClear(uList *list, uListFreeFn freeFn) {
    if (list == nullptr) {
        return 0;
    }
    uList *detached = uListInit(0);
    if (detached == nullptr) {
        pu::log::error(pu::log::kList, "%s: init list error!", "uListSpecialClear");
        return 0;
    }
    {
        // Move the whole chain out under the lock, then release outside it, so other tasks can
        // use the list again while the elements are being released. Handing over the chain
        // keeps the order, needs no node allocation and takes one step however long the list.
        SemGuard guard(list->lock);
        storeHead(detached, loadHead(list));
        storeSize(detached, loadSize(list));
        storeHead(list, nullptr);
        storeSize(list, 0);
    }
    while (uListEol(detached, 0) == 0) {
        uListRemoveAndFree(detached, 0, freeFn);
    }
    return uListUninit(detached);
}

int32_t uListClearWithNodeNoNeedFree(uList *list) {
    return uListSpecialClear(list, ignoreElement);
}

} // extern "C"
