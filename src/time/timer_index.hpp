// SPDX-License-Identifier: MIT
// The timer record and the two structures that index the live ones under the timer mutex: a
// binary heap in expiry order and a table by id, both in storage sized once for the pool, so
// adding, deleting and expiring cost O(log n) and never allocate.
#pragma once

#include <utimer.h>

#include <cstddef>
#include <cstdint>
#include <memory>
#include <new>

namespace pu::timer {

// One pool block per timer. expiry is absolute on the service's pass clock (the milliseconds all
// passes have advanced); order is the insertion sequence, so that among equal expiries the
// newest fires first.
struct TimerNode {
    std::int64_t expiry;
    std::uint64_t order;
    uTimerCallback callback;
    void *arg;
    std::uint32_t id;
    std::uint32_t wakeup;   // options word; non-zero: a wake-up timer
    std::uint32_t heapSlot; // position in the expiry heap
    std::uint32_t wakeSlot; // position in the wake-up heap, for wake-up timers
};
#if UINTPTR_MAX == 0xFFFFFFFF
static_assert(sizeof(TimerNode) == 40, "the timer record is 40 bytes on 32-bit targets");
#endif

// The order the timers expire in: earlier expiry first, among equal expiries the newest.
inline bool firesBefore(const TimerNode *a, const TimerNode *b) {
    return a->expiry != b->expiry ? a->expiry < b->expiry : a->order > b->order;
}

// A binary heap of records, earliest first, in fixed storage. Each record keeps its position in
// its slot member, so any record leaves in O(log n).
template <std::uint32_t TimerNode::*slot> class TimerHeap {
  public:
    bool reserve(std::size_t capacity) {
        items_.reset(new (std::nothrow) TimerNode *[capacity]);
        return items_ != nullptr;
    }
    std::uint32_t size() const { return size_; }
    TimerNode *top() const { return size_ != 0 ? items_[0] : nullptr; }
    TimerNode *const *begin() const { return items_.get(); }
    TimerNode *const *end() const { return items_.get() + size_; }

    // The caller keeps the count within the reserved capacity (one record per pool block).
    void push(TimerNode *node) {
        place(node, size_++);
        up(node->*slot);
    }
    void remove(TimerNode *node) {
        const std::uint32_t at = node->*slot;
        TimerNode *last = items_[--size_];
        if (last != node) {
            place(last, at);
            if (!up(at)) {
                down(at);
            }
        }
    }

  private:
    void place(TimerNode *node, std::uint32_t at) {
        items_[at] = node;
        node->*slot = at;
    }
    bool up(std::uint32_t at) {
        TimerNode *node = items_[at];
        const std::uint32_t from = at;
        while (at > 0 && firesBefore(node, items_[(at - 1) / 2])) {
            place(items_[(at - 1) / 2], at);
            at = (at - 1) / 2;
        }
        place(node, at);
        return at != from;
    }
    void down(std::uint32_t at) {
        TimerNode *node = items_[at];
        for (std::uint32_t child; (child = 2 * at + 1) < size_; at = child) {
            if (child + 1 < size_ && firesBefore(items_[child + 1], items_[child])) {
                ++child;
            }
            if (!firesBefore(items_[child], node)) {
                break;
            }
            place(items_[child], at);
        }
        place(node, at);
    }

    std::unique_ptr<TimerNode *[]> items_;
    std::uint32_t size_ = 0;
};

// The live records by id: open addressing with linear probing, at most half full, in fixed
// storage. Ids wrap after 2^32 - 1 timers without a check against live ones; a duplicate is
// kept and one of the two is found.
class IdIndex {
  public:
    bool reserve(std::size_t records) {
        std::size_t capacity = 16;
        while (capacity < 2 * records) {
            capacity *= 2;
        }
        slots_.reset(new (std::nothrow) TimerNode *[capacity]());
        mask_ = capacity - 1;
        return slots_ != nullptr;
    }
    TimerNode *find(std::uint32_t id) const {
        for (std::size_t at = home(id);; at = (at + 1) & mask_) {
            if (slots_[at] == nullptr || slots_[at]->id == id) {
                return slots_[at];
            }
        }
    }
    void insert(TimerNode *node) {
        std::size_t at = home(node->id);
        while (slots_[at] != nullptr) {
            at = (at + 1) & mask_;
        }
        slots_[at] = node;
    }
    // Backward-shift deletion: later entries of the probe run move up, so no tombstones build up.
    void erase(const TimerNode *node) {
        std::size_t at = home(node->id);
        while (slots_[at] != node) {
            at = (at + 1) & mask_;
        }
        for (std::size_t next = (at + 1) & mask_; slots_[next] != nullptr;
             next = (next + 1) & mask_) {
            const std::size_t wanted = home(slots_[next]->id);
            // The entry may fill the hole unless its home lies cyclically in (at, next].
            if (((next - wanted) & mask_) >= ((next - at) & mask_)) {
                slots_[at] = slots_[next];
                at = next;
            }
        }
        slots_[at] = nullptr;
    }

  private:
    std::size_t home(std::uint32_t id) const {
        return static_cast<std::size_t>(id * 2654435761U) & mask_;
    }

    std::unique_ptr<TimerNode *[]> slots_;
    std::size_t mask_ = 0;
};

} // namespace pu::timer
