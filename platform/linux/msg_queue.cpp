// SPDX-License-Identifier: MIT
// Bounded FIFO message queues of fixed-size slots behind 32-bit handles.
#include "handle_table.hpp"
#include "platform_internal.hpp"

#include <algorithm>
#include <condition_variable>
#include <cstring>
#include <mutex>
#include <vector>

namespace pu::platform {
namespace {

// Refuse queues whose storage would not be allocatable anyway, before multiplying.
constexpr std::uint64_t kMaxQueueBytes = std::uint64_t{1} << 30;

// A ring of capacity slots of maxLength bytes; head is the oldest message.
struct MessageQueue {
    std::mutex guard;
    std::condition_variable notEmpty;
    std::condition_variable notFull;
    std::uint32_t capacity = 0;
    std::uint32_t maxLength = 0;
    std::uint32_t head = 0;
    std::uint32_t count = 0;
    std::vector<char> bytes;
    std::vector<std::uint32_t> lengths;
};

using QueueTable = HandleTable<MessageQueue>;

QueueTable &queues() {
    static auto &table = *new QueueTable(HandleKind::messageQueue);
    return table;
}

// Caller holds the queue's guard.
bool isDeleted(const QueueTable::Slot &slot, MSG_Q_ID id) noexcept {
    return slot.handle.load(std::memory_order_relaxed) != id;
}

char *slotBytes(MessageQueue &queue, std::uint32_t position) noexcept {
    return queue.bytes.data() + static_cast<std::size_t>(position) * queue.maxLength;
}

MSG_Q_ID createQueue(int maxMessages, int maxMessageLength) {
    if (maxMessages <= 0 || maxMessageLength <= 0) {
        return 0;
    }
    std::uint64_t total =
        static_cast<std::uint64_t>(maxMessages) * static_cast<std::uint64_t>(maxMessageLength);
    if (total > kMaxQueueBytes) {
        return 0;
    }
    // Allocated before a slot is taken, so a failure leaves the table untouched.
    std::vector<char> bytes(static_cast<std::size_t>(total));
    std::vector<std::uint32_t> lengths(static_cast<std::size_t>(maxMessages));

    auto reservation = queues().reserve();
    if (reservation.slot == nullptr) {
        return 0;
    }
    MessageQueue &queue = reservation.slot->object;
    std::lock_guard lock(queue.guard);
    queue.capacity = static_cast<std::uint32_t>(maxMessages);
    queue.maxLength = static_cast<std::uint32_t>(maxMessageLength);
    queue.head = 0;
    queue.count = 0;
    queue.bytes.swap(bytes);
    queue.lengths.swap(lengths);
    QueueTable::publish(reservation);
    return reservation.handle;
}

// Looks the queue up and locks it; lock stays empty when id is unknown or deleted.
MessageQueue *lockQueue(MSG_Q_ID id, std::unique_lock<std::mutex> &lock, QueueTable::Slot *&slot) {
    slot = queues().find(id);
    if (slot == nullptr) {
        return nullptr;
    }
    lock = std::unique_lock(slot->object.guard);
    if (isDeleted(*slot, id)) {
        lock.unlock();
        return nullptr;
    }
    return &slot->object;
}

int sendMessage(MSG_Q_ID id, const char *buffer, std::uint32_t nBytes, int timeout, int priority) {
    if (buffer == nullptr && nBytes > 0) {
        return -1;
    }
    std::unique_lock<std::mutex> lock;
    QueueTable::Slot *slot = nullptr;
    MessageQueue *queue = lockQueue(id, lock, slot);
    if (queue == nullptr || nBytes > queue->maxLength) {
        return -1;
    }
    waitTicks(queue->notFull, lock, timeout,
              [&] { return isDeleted(*slot, id) || queue->count < queue->capacity; });
    if (isDeleted(*slot, id) || queue->count == queue->capacity) {
        return -1;
    }
    std::uint32_t position;
    if (priority == MSG_PRI_URGENT) {
        queue->head = (queue->head + queue->capacity - 1) % queue->capacity;
        position = queue->head;
    } else {
        position = (queue->head + queue->count) % queue->capacity;
    }
    if (nBytes > 0) {
        std::memcpy(slotBytes(*queue, position), buffer, nBytes);
    }
    queue->lengths[position] = nBytes;
    ++queue->count;
    queue->notEmpty.notify_one();
    return 0;
}

int receiveMessage(MSG_Q_ID id, char *buffer, std::uint32_t maxNBytes, int timeout) {
    if (buffer == nullptr && maxNBytes > 0) {
        return -1;
    }
    std::unique_lock<std::mutex> lock;
    QueueTable::Slot *slot = nullptr;
    MessageQueue *queue = lockQueue(id, lock, slot);
    if (queue == nullptr) {
        return -1;
    }
    waitTicks(queue->notEmpty, lock, timeout,
              [&] { return isDeleted(*slot, id) || queue->count > 0; });
    if (isDeleted(*slot, id) || queue->count == 0) {
        return -1;
    }
    // A message longer than the buffer is cut; the rest of it is dropped with it.
    std::uint32_t copied = std::min(queue->lengths[queue->head], maxNBytes);
    if (copied > 0) {
        std::memcpy(buffer, slotBytes(*queue, queue->head), copied);
    }
    queue->head = (queue->head + 1) % queue->capacity;
    --queue->count;
    queue->notFull.notify_one();
    return static_cast<int>(copied);
}

int deleteQueue(MSG_Q_ID id) {
    std::unique_lock<std::mutex> lock;
    QueueTable::Slot *slot = nullptr;
    MessageQueue *queue = lockQueue(id, lock, slot);
    if (queue == nullptr) {
        return -1;
    }
    queues().release(slot);
    queue->count = 0;
    std::vector<char>().swap(queue->bytes);
    std::vector<std::uint32_t>().swap(queue->lengths);
    // Waiters see the handle gone and return -1.
    queue->notEmpty.notify_all();
    queue->notFull.notify_all();
    return 0;
}

int countMessages(MSG_Q_ID id) {
    std::unique_lock<std::mutex> lock;
    QueueTable::Slot *slot = nullptr;
    MessageQueue *queue = lockQueue(id, lock, slot);
    return queue == nullptr ? -1 : static_cast<int>(queue->count);
}

} // namespace
} // namespace pu::platform

using namespace pu::platform;

MSG_Q_ID msgQCreate(int maxMessages, int maxMessageLength, int /*options*/) {
    return guarded(MSG_Q_ID{0}, [&] { return createQueue(maxMessages, maxMessageLength); });
}

int msgQSend(MSG_Q_ID id, const char *buffer, uint32_t nBytes, int timeout, int priority) {
    return guarded(-1, [&] { return sendMessage(id, buffer, nBytes, timeout, priority); });
}

int msgQReceive(MSG_Q_ID id, char *buffer, uint32_t maxNBytes, int timeout) {
    return guarded(-1, [&] { return receiveMessage(id, buffer, maxNBytes, timeout); });
}

int msgQDelete(MSG_Q_ID id) {
    return guarded(-1, [&] { return deleteQueue(id); });
}

int msgQNumMsgs(MSG_Q_ID id) {
    return guarded(-1, [&] { return countMessages(id); });
}
