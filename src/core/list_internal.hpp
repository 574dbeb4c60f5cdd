// SPDX-License-Identifier: MIT
// Linking and unlinking next to a node the caller already holds, for families that walk a
// uList under their own lock and should not walk it a second time to change it, and building a
// list at a remembered tail.
#pragma once

#include <ulist.h>
#include <umem.h>

#include "core/sem_lock.hpp"

#include <atomic>
#include <cstdint>

namespace pu::core {

// uListSize, uListEol and uListFirst read the header without the lock; the header fields are
// accessed atomically (relaxed) so those unlocked reads are not data races.
inline std::int32_t loadSize(const uList *list) {
    return std::atomic_ref<std::int32_t>(const_cast<uList *>(list)->size)
        .load(std::memory_order_relaxed);
}

inline void storeSize(uList *list, std::int32_t size) {
    std::atomic_ref<std::int32_t>(list->size).store(size, std::memory_order_relaxed);
}

inline uListNode *loadHead(const uList *list) {
    return std::atomic_ref<uListNode *>(const_cast<uList *>(list)->head)
        .load(std::memory_order_relaxed);
}

inline void storeHead(uList *list, uListNode *head) {
    std::atomic_ref<uListNode *>(list->head).store(head, std::memory_order_relaxed);
}

// Caller holds the lock. Links node after prev, or at the head when prev is null.
inline void linkAfter(uList *list, uListNode *prev, uListNode *node) {
    if (prev == nullptr) {
        node->next = loadHead(list);
        storeHead(list, node);
    } else {
        node->next = prev->next;
        prev->next = node;
    }
    storeSize(list, loadSize(list) + 1);
}

// Appends to a list at a remembered tail, so building a list of n elements costs n steps rather
// than the n * n / 2 of repeated uListAppend calls, which walk from the head every time. Results,
// order and count are those of uListAppend. While a builder is in use nobody else may link or
// unlink nodes of its list (each append still takes the list's lock, if it has one); after the
// list was changed otherwise, restart() finds the end again.
class ListBuilder {
  public:
    // Starts at the current end of list (a walk over the nodes already there); list may be null,
    // every append then fails.
    explicit ListBuilder(uList *list) : list_(list) { restart(); }

    // Appends element in a new node: the new size, or -1 for a null list or element or when the
    // node cannot be allocated (the list is then unchanged), as uListAppend.
    std::int32_t append(void *element) {
        if (list_ == nullptr || element == nullptr) {
            return -1;
        }
        auto *node = static_cast<uListNode *>(uMalloc(sizeof(uListNode)));
        if (node == nullptr) {
            return -1;
        }
        node->data = element;
        return appendNode(node);
    }

    // Appends a node the caller made with uMalloc and filled with a non-null element; the list
    // owns it from then on. Returns the new size; cannot fail.
    std::int32_t appendNode(uListNode *node) {
        SemGuard guard(list_->lock);
        node->next = nullptr;
        linkAfter(list_, tail_, node);
        tail_ = node;
        return loadSize(list_);
    }

    // Finds the end of the list again.
    void restart() {
        tail_ = nullptr;
        if (list_ == nullptr) {
            return;
        }
        SemGuard guard(list_->lock);
        for (uListNode *node = loadHead(list_); node != nullptr; node = node->next) {
            tail_ = node;
        }
    }

    uListNode *tail() const { return tail_; }

  private:
    uList *list_;
    uListNode *tail_ = nullptr;
};

} // namespace pu::core
