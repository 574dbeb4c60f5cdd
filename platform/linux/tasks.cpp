// SPDX-License-Identifier: MIT
// Tasks as detached threads, and the 100 Hz tick derived from the monotonic clock.
#include "handle_table.hpp"
#include "platform_internal.hpp"

#include <cerrno>
#include <cstring>
#include <ctime>
#include <memory>
#include <new>
#include <sched.h>

namespace pu::platform {
namespace {

constexpr long kNsPerTick = 1'000'000'000L / kTicksPerSecond;
constexpr int kTaskArguments = 10;

// Kept for the task's lifetime; priority and options have no meaning on a host.
struct TaskRecord {
    char name[16];
    int priority;
    int options;
};

using TaskTable = HandleTable<TaskRecord>;

TaskTable &tasks() {
    static auto &table = *new TaskTable(HandleKind::task);
    return table;
}

struct TaskStart {
    TaskTable::Slot *slot;
    PLATFORM_TASK_ENTRY entry;
    intptr_t arguments[kTaskArguments];
};

void runTask(TaskStart &start) {
    const intptr_t *a = start.arguments;
    start.entry(a[0], a[1], a[2], a[3], a[4], a[5], a[6], a[7], a[8], a[9]);
    tasks().release(start.slot);
}

TASK_ID spawnTask(const char *name, int priority, int options, int stackSize,
                  PLATFORM_TASK_ENTRY entry, const intptr_t (&arguments)[kTaskArguments]) {
    if (entry == nullptr) {
        return 0;
    }
    auto reservation = tasks().reserve();
    if (reservation.slot == nullptr) {
        return 0;
    }
    TaskRecord &record = reservation.slot->object;
    record = TaskRecord{};
    if (name != nullptr) {
        std::strncpy(record.name, name, sizeof record.name - 1);
    }
    record.priority = priority;
    record.options = options;

    std::unique_ptr<TaskStart> start(new (std::nothrow) TaskStart{reservation.slot, entry, {}});
    if (start == nullptr) {
        tasks().release(reservation.slot);
        return 0;
    }
    std::memcpy(start->arguments, arguments, sizeof arguments);
    // Published before the thread starts: a short task releases its slot on exit.
    TaskTable::publish(reservation);
    std::size_t stack = stackSize > 0 ? static_cast<std::size_t>(stackSize) : 0;
    if (!startThreadWith<TaskStart, runTask>(name, stack, start)) {
        tasks().release(reservation.slot);
        return 0;
    }
    return reservation.handle;
}

} // namespace
} // namespace pu::platform

using namespace pu::platform;

TASK_ID taskSpawn(const char *name, int priority, int options, int stackSize,
                  PLATFORM_TASK_ENTRY entry, intptr_t arg1, intptr_t arg2, intptr_t arg3,
                  intptr_t arg4, intptr_t arg5, intptr_t arg6, intptr_t arg7, intptr_t arg8,
                  intptr_t arg9, intptr_t arg10) {
    const intptr_t arguments[kTaskArguments] = {arg1, arg2, arg3, arg4, arg5,
                                                arg6, arg7, arg8, arg9, arg10};
    return guarded(TASK_ID{0},
                   [&] { return spawnTask(name, priority, options, stackSize, entry, arguments); });
}

int taskDelay(int ticks) {
    if (ticks <= 0) {
        (void)sched_yield();
        return 0;
    }
    timespec wake{};
    clock_gettime(CLOCK_MONOTONIC, &wake);
    long long ns =
        static_cast<long long>(wake.tv_nsec) + static_cast<long long>(ticks) * kNsPerTick;
    wake.tv_sec += static_cast<time_t>(ns / 1'000'000'000LL);
    wake.tv_nsec = static_cast<long>(ns % 1'000'000'000LL);
    while (clock_nanosleep(CLOCK_MONOTONIC, TIMER_ABSTIME, &wake, nullptr) == EINTR) {
    }
    return 0;
}

unsigned long tickGet(void) {
    timespec now{};
    clock_gettime(CLOCK_MONOTONIC, &now);
    return static_cast<unsigned long>(now.tv_sec) * kTicksPerSecond +
           static_cast<unsigned long>(now.tv_nsec / kNsPerTick);
}

int sysClkRateGet(void) {
    return kTicksPerSecond;
}
