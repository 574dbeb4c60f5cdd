// SPDX-License-Identifier: MIT
// Maps 32-bit handles to objects that are recycled, never freed, so a caller never holds a
// pointer into the layer and a stale or forged handle fails a check instead of touching memory.
#pragma once

#include <atomic>
#include <cstdint>
#include <mutex>
#include <new>

namespace pu::platform {

// A handle is (kind << 30) | (generation << 19) | (slot index + 1). The low part is never 0, so
// no handle is 0; the generation makes a deleted handle fail even after its slot is reused; the
// kind keeps a semaphore's handle from ever naming a queue, a task or a pool.
inline constexpr unsigned kIndexBits = 19;
inline constexpr unsigned kKindBits = 2;
inline constexpr unsigned kGenerationBits = 32 - kKindBits - kIndexBits;
inline constexpr std::uint32_t kIndexMask = (1u << kIndexBits) - 1;
inline constexpr std::uint32_t kGenerationMask = (1u << kGenerationBits) - 1;
inline constexpr std::uint32_t kMaxSlots = kIndexMask;
inline constexpr std::uint32_t kChunkSlots = 256;
inline constexpr std::uint32_t kMaxChunks = (kMaxSlots + kChunkSlots - 1) / kChunkSlots;

enum class HandleKind : std::uint32_t { semaphore, messageQueue, task, threadPool };

// Freed slots are reused only once this many wait, oldest first, so a given slot comes back
// rarely and its 11-bit generation takes about two million deletes to wrap onto a stale handle.
inline constexpr std::uint32_t kRecycleReserve = 1024;

template <typename T> class HandleTable;

template <typename T> struct HandleSlot {
    // The handle the slot answers to, 0 while free or reserved. Changed only with the object's
    // own lock held (where it has one), so a holder of that lock can re-check it.
    std::atomic<std::uint32_t> handle{0};
    T object{};

  private:
    friend class HandleTable<T>;
    std::uint32_t index = 0;
    std::uint32_t generation = 0;
    std::uint32_t nextFree = 0;
};

template <typename T> class HandleTable {
  public:
    using Slot = HandleSlot<T>;

    struct Reservation {
        Slot *slot = nullptr; // null when the table is full or memory is short
        std::uint32_t handle = 0;
    };

    explicit HandleTable(HandleKind kind) noexcept
        : kindBits_(static_cast<std::uint32_t>(kind) << (kIndexBits + kGenerationBits)) {}
    HandleTable(const HandleTable &) = delete;
    HandleTable &operator=(const HandleTable &) = delete;

    // Takes a free slot and the handle it will carry. Lookups do not find it until publish().
    Reservation reserve() {
        std::lock_guard lock(mutex_);
        Slot *slot = nullptr;
        if (freeCount_ > kRecycleReserve || !canGrow()) {
            slot = popFree();
        }
        if (slot == nullptr) {
            slot = grow();
        }
        if (slot == nullptr) {
            slot = popFree();
        }
        if (slot == nullptr) {
            return {};
        }
        return {slot, makeHandle(*slot)};
    }

    // Makes the reserved handle valid. The caller has initialised the object first.
    static void publish(const Reservation &reservation) noexcept {
        reservation.slot->handle.store(reservation.handle, std::memory_order_release);
    }

    // Invalidates the slot's handle and queues the slot for reuse under a new generation. Also
    // returns a reservation that was never published. The object stays in place: a thread that
    // still waits on it wakes, sees the handle changed and fails.
    void release(Slot *slot) {
        std::lock_guard lock(mutex_);
        slot->handle.store(0, std::memory_order_release);
        slot->generation = (slot->generation + 1) & kGenerationMask;
        pushFree(slot);
    }

    // The slot that currently answers to handle, or null. Lock-free; the answer may be stale by
    // the time the caller looks, which is why objects with state re-check under their lock.
    Slot *find(std::uint32_t handle) const noexcept {
        std::uint32_t low = handle & kIndexMask;
        if (low == 0) {
            return nullptr;
        }
        std::uint32_t index = low - 1;
        Chunk *chunk = chunks_[index / kChunkSlots].load(std::memory_order_acquire);
        if (chunk == nullptr) {
            return nullptr;
        }
        Slot *slot = &chunk->slots[index % kChunkSlots];
        return slot->handle.load(std::memory_order_acquire) == handle ? slot : nullptr;
    }

  private:
    static constexpr std::uint32_t kNone = UINT32_MAX;

    struct Chunk {
        Slot slots[kChunkSlots];
    };

    std::uint32_t makeHandle(const Slot &slot) const noexcept {
        return kindBits_ | (slot.generation << kIndexBits) | (slot.index + 1);
    }

    bool canGrow() const noexcept { return used_ < kMaxSlots; }

    // Caller holds mutex_.
    Slot *grow() {
        if (!canGrow()) {
            return nullptr;
        }
        std::uint32_t chunkIndex = used_ / kChunkSlots;
        Chunk *chunk = chunks_[chunkIndex].load(std::memory_order_relaxed);
        if (chunk == nullptr) {
            chunk = new (std::nothrow) Chunk;
            if (chunk == nullptr) {
                return nullptr;
            }
            chunks_[chunkIndex].store(chunk, std::memory_order_release);
        }
        Slot *slot = &chunk->slots[used_ % kChunkSlots];
        slot->index = used_++;
        return slot;
    }

    // Caller holds mutex_.
    Slot *popFree() noexcept {
        if (freeHead_ == kNone) {
            return nullptr;
        }
        Slot *slot = slotAt(freeHead_);
        freeHead_ = slot->nextFree;
        if (freeHead_ == kNone) {
            freeTail_ = kNone;
        }
        --freeCount_;
        return slot;
    }

    // Caller holds mutex_.
    void pushFree(Slot *slot) noexcept {
        slot->nextFree = kNone;
        if (freeTail_ == kNone) {
            freeHead_ = slot->index;
        } else {
            slotAt(freeTail_)->nextFree = slot->index;
        }
        freeTail_ = slot->index;
        ++freeCount_;
    }

    Slot *slotAt(std::uint32_t index) const noexcept {
        return &chunks_[index / kChunkSlots]
                    .load(std::memory_order_relaxed)
                    ->slots[index % kChunkSlots];
    }

    const std::uint32_t kindBits_;
    std::mutex mutex_;
    std::atomic<Chunk *> chunks_[kMaxChunks] = {};
    std::uint32_t used_ = 0;
    std::uint32_t freeHead_ = kNone;
    std::uint32_t freeTail_ = kNone;
    std::uint32_t freeCount_ = 0;
};

} // namespace pu::platform
