// SPDX-License-Identifier: MIT
// uQm: an intrusive FIFO linking caller elements through the pointer-sized word in front of
// each; uBm: fixed-size blocks carved from caller memory and kept free in such a queue.
#include <uqueue.h>

#include "core/sem_lock.hpp"

#include <atomic>
#include <cstring>

namespace {

using pu::core::SemGuard;

// The pool does not round block sizes, so the words in front of a block may be misaligned:
// they are read and written bytewise (one plain move on the targets we build for).
template <typename T> T loadWord(const void *at) {
    T value;
    std::memcpy(&value, at, sizeof value);
    return value;
}

template <typename T> void storeWord(void *at, T value) {
    std::memcpy(at, &value, sizeof value);
}

// The link word lies immediately before the element.
void *linkWordOf(void *element) {
    return static_cast<char *>(element) - sizeof(void *);
}

// The owning pool lies one word before the link word.
void *ownerWordOf(void *block) {
    return static_cast<char *>(block) - 2 * sizeof(void *);
}

// uQmDeq tests for emptiness before taking the lock; head is accessed atomically (relaxed) so
// that unlocked test is not a data race.
void *loadHead(const uQm *queue) {
    return std::atomic_ref<void *>(const_cast<uQm *>(queue)->head).load(std::memory_order_relaxed);
}

void storeHead(uQm *queue, void *head) {
    std::atomic_ref<void *>(queue->head).store(head, std::memory_order_relaxed);
}

void *blockData(void *memory, std::uint32_t index, std::uint32_t blockSize) {
    const std::size_t stride = std::size_t{blockSize} + U_BM_BLOCK_OVERHEAD;
    return static_cast<char *>(memory) + index * stride + U_BM_BLOCK_OVERHEAD;
}

} // namespace

extern "C" {

void uQmInit(uQm *queue) {
    if (queue == nullptr) {
        return;
    }
    queue->lock = semMCreate(0);
    storeHead(queue, nullptr);
    queue->tail = nullptr;
    queue->count = 0;
}

void uQmEnq(uQm *queue, void *element) {
    if (queue == nullptr || element == nullptr) {
        return;
    }
    SemGuard guard(queue->lock);
    if (loadHead(queue) == nullptr) {
        storeHead(queue, element);
    } else {
        storeWord(linkWordOf(queue->tail), element);
    }
    queue->tail = element;
    storeWord<void *>(linkWordOf(element), nullptr);
    ++queue->count;
}

void *uQmDeq(uQm *queue) {
    if (queue == nullptr || loadHead(queue) == nullptr) {
        return nullptr;
    }
    SemGuard guard(queue->lock);
    void *head = loadHead(queue);
    // A racing dequeuer may have taken the last element since the unlocked test; the count is
    // still decremented then, as it is informational only.
    if (head == queue->tail) {
        storeHead(queue, nullptr);
        queue->tail = nullptr;
    } else {
        storeHead(queue, loadWord<void *>(linkWordOf(head)));
    }
    --queue->count;
    return head;
}

void uBmInitHeap(uBm *pool, uint32_t blockCount, uint32_t blockSize, void *memory) {
    if (pool == nullptr || (memory == nullptr && blockCount > 0)) {
        return;
    }
    pool->blockCount = blockCount;
    pool->blockSize = blockSize;
    pool->reservedA = blockCount;
    pool->reservedB = blockCount;
    uQmInit(&pool->freeQueue);
    for (std::uint32_t i = 0; i < blockCount; ++i) {
        void *data = blockData(memory, i, blockSize);
        storeWord(ownerWordOf(data), pool);
        uQmEnq(&pool->freeQueue, data);
    }
}

void *uBmAlloc(uBm *pool) {
    return pool == nullptr ? nullptr : uQmDeq(&pool->freeQueue);
}

void uBmFree(void *block) {
    if (block == nullptr) {
        return;
    }
    uQmEnq(&loadWord<uBm *>(ownerWordOf(block))->freeQueue, block);
}

} // extern "C"
