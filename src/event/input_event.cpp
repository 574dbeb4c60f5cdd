// SPDX-License-Identifier: MIT
// uInputEvent: pending inputs keyed by a 32-bit key, each with a time-out timer, announced on the
// event bus as "INPUT_EVENT".
#include <uinputevent.h>

#include <uevent.h>
#include <ulist.h>
#include <umem.h>
#include <utimer.h>

#include <platform_os.h>

#include "core/lazy.hpp"
#include "core/log_modules.hpp"
#include "core/sem_lock.hpp"

#include <atomic>
#include <cstdint>

namespace {

using pu::core::SemGuard;

// Longest time-out whose milliseconds still fit the timer service's signed 32-bit delays.
constexpr std::uint32_t kMaxTimeoutSec = INT32_MAX / 1000;

struct InputNode {
    std::uint32_t timerId;
    std::uint32_t timeoutSec; // used again on every extension
    std::uint32_t key;
    uInputEventCallback cb;
};
#if UINTPTR_MAX == 0xFFFFFFFF
static_assert(sizeof(InputNode) == 16, "the input event record is 16 bytes on 32-bit");
#endif
static_assert(sizeof(uInputEventMsg) == 8, "INPUT_EVENT carries two 32-bit words");

// Time-outs arrive on pool threads while init and uninit may run, so the handles are atomics;
// the list itself is only used with the mutex held.
struct Service {
    std::atomic<bool> initialised{false};
    std::atomic<SEM_ID> mutex{0};
    std::atomic<uList *> list{nullptr};
};

Service &service() {
    return pu::core::immortal<Service>();
}

bool checkInitialised(const char *function) {
    if (!service().initialised.load()) {
        pu::log::warning(pu::log::kInputEvent, "%s, not init.", function);
        return false;
    }
    return true;
}

std::int32_t timeoutMs(std::uint32_t timeoutSec) {
    return static_cast<std::int32_t>(timeoutSec * 1000);
}

void *timerArgument(std::uint32_t key) {
    return reinterpret_cast<void *>(static_cast<std::uintptr_t>(key));
}

// Finds the record of key and unlinks it; callers put it back when it lives on.
InputNode *inputEventTake(uList *list, std::uint32_t key) {
    for (std::int32_t pos = 0; uListEol(list, pos) == 0; ++pos) {
        auto *node = static_cast<InputNode *>(uListGet(list, pos));
        if (node->key == key) {
            return static_cast<InputNode *>(uListRemove(list, pos));
        }
    }
    return nullptr;
}

void inputEventNotify(std::int32_t state, std::uint32_t key) {
    uInputEventMsg data{state, key};
    uEventRaise(U_INPUT_EVENT_NAME, &data, sizeof data);
}

void inputEventFree(InputNode *node) {
    uTimerDel(node->timerId);
    uFree(node);
}

// Puts a record back after an extension; a record that cannot be relinked is ended quietly
// rather than left with a timer nobody can find.
bool inputEventPutBack(uList *list, InputNode *node) {
    if (uListAppend(list, node) < 0) {
        inputEventFree(node);
        return false;
    }
    return true;
}

void inputEventExtend(uList *list, InputNode *node) {
    uTimerRefresh(node->timerId, timeoutMs(node->timeoutSec));
    inputEventPutBack(list, node);
}

void inputEventTimeout(void *argument) {
    const auto key = static_cast<std::uint32_t>(reinterpret_cast<std::uintptr_t>(argument));
    Service &svc = service();
    SemGuard guard(svc.mutex.load());
    uList *list = svc.list.load();
    if (list == nullptr) {
        return;
    }
    InputNode *node = inputEventTake(list, key);
    if (node == nullptr) {
        return;
    }
    // A key stopped and started again while this time-out waited for the lock has a new timer
    // still running; the stale time-out must not end it.
    if (uTimerRemainGet(node->timerId) != 0) {
        inputEventPutBack(list, node);
        return;
    }
    inputEventNotify(U_INPUT_EVENT_TIMED_OUT, key);
    // The callback gets 0, not the key, on a time-out; applications rely on it.
    node->cb(U_INPUT_EVENT_TIMED_OUT, 0);
    uFree(node); // its timer has fired already
}

std::int32_t inputEventAdd(uList *list, std::uint32_t key, std::uint32_t timeoutSec,
                           uInputEventCallback cb) {
    auto *node = static_cast<InputNode *>(uMalloc(sizeof(InputNode)));
    if (node != nullptr) {
        *node = InputNode{0, timeoutSec, key, cb};
        node->timerId = uTimerAdd(inputEventTimeout, timerArgument(key), timeoutMs(timeoutSec));
    }
    if (node == nullptr || node->timerId == 0 || uListAppend(list, node) < 0) {
        pu::log::warning(pu::log::kInputEvent, "%s, failed to add input event.", "inputEventAdd");
        if (node != nullptr) {
            inputEventFree(node);
        }
        return -1;
    }
    inputEventNotify(U_INPUT_EVENT_STARTED, key);
    return 0;
}

void releaseAll(uList *list, bool announce) {
    while (uListEol(list, 0) == 0) {
        auto *node = static_cast<InputNode *>(uListRemove(list, 0));
        if (announce) {
            inputEventNotify(U_INPUT_EVENT_STOPPED, node->key);
        }
        inputEventFree(node);
    }
}

} // namespace

extern "C" {

void uInputEventInit(void) {
    Service &svc = service();
    if (svc.initialised.load()) {
        pu::log::warning(pu::log::kInputEvent, "%s, already init.", "uInputEventInit");
        // Starting afresh forgets the pending events; their timers go too, so a stale time-out
        // cannot end an event started under the same key later.
        SemGuard guard(svc.mutex.load());
        if (uList *list = svc.list.load(); list != nullptr) {
            releaseAll(list, false);
        }
        return;
    }
    svc.list.store(uListInit(0));
    svc.mutex.store(semMCreate(0));
    svc.initialised.store(true);
}

void uInputEventUninit(void) {
    if (!checkInitialised("uInputEventUninit")) {
        return;
    }
    Service &svc = service();
    const SEM_ID mutex = svc.mutex.load();
    {
        SemGuard guard(mutex);
        uList *list = svc.list.exchange(nullptr);
        if (list != nullptr) {
            releaseAll(list, true);
            uListUninit(list);
        }
    }
    svc.mutex.store(0);
    semDelete(mutex);
    svc.initialised.store(false);
}

int32_t uInputEventStart(uint32_t key, uint32_t timeoutSec, uInputEventCallback cb) {
    if (!checkInitialised("uInputEventStart")) {
        return -1;
    }
    if (timeoutSec == 0 || timeoutSec > kMaxTimeoutSec || cb == nullptr) {
        pu::log::warning(pu::log::kInputEvent, "%s, argument is not valid.", "uInputEventStart");
        return -1;
    }
    pu::log::info(pu::log::kInputEvent, "%s, starting.", "uInputEventStart");
    Service &svc = service();
    SemGuard guard(svc.mutex.load());
    uList *list = svc.list.load();
    if (list == nullptr) {
        return -1;
    }
    if (InputNode *node = inputEventTake(list, key); node != nullptr) {
        node->timeoutSec = timeoutSec;
        node->cb = cb;
        uTimerRefresh(node->timerId, timeoutMs(timeoutSec));
        return inputEventPutBack(list, node) ? 0 : -1;
    }
    return inputEventAdd(list, key, timeoutSec, cb);
}

void uInputEventExecute(const uInputEventMsg *msg) {
    if (!checkInitialised("uInputEventExecute")) {
        return;
    }
    if (msg == nullptr) {
        pu::log::warning(pu::log::kInputEvent, "%s, msg is null.", "uInputEventExecute");
        return;
    }
    if (msg->state < U_INPUT_EVENT_DONE || msg->state > U_INPUT_EVENT_EXTEND) {
        pu::log::warning(pu::log::kInputEvent, "%s, state is incorrect.", "uInputEventExecute");
        return;
    }
    pu::log::info(pu::log::kInputEvent, "%s, executing.", "uInputEventExecute");
    Service &svc = service();
    SemGuard guard(svc.mutex.load());
    uList *list = svc.list.load();
    InputNode *node = list != nullptr ? inputEventTake(list, msg->key) : nullptr;
    if (node == nullptr) {
        pu::log::warning(pu::log::kInputEvent, "%s, input event do not exist.",
                         "uInputEventExecute");
        return;
    }
    if (msg->state == U_INPUT_EVENT_EXTEND) {
        inputEventExtend(list, node);
        return;
    }
    // The final states end the event through its callback only; nothing goes on the bus.
    if (node->cb != nullptr) {
        node->cb(msg->state, node->key);
    }
    inputEventFree(node);
}

void uInputEventStop(uint32_t key) {
    if (!checkInitialised("uInputEventStop")) {
        return;
    }
    pu::log::info(pu::log::kInputEvent, "%s, stopping.", "uInputEventStop");
    Service &svc = service();
    SemGuard guard(svc.mutex.load());
    uList *list = svc.list.load();
    InputNode *node = list != nullptr ? inputEventTake(list, key) : nullptr;
    if (node == nullptr) {
        pu::log::warning(pu::log::kInputEvent, "%s, input event do not exist.", "uInputEventStop");
        return;
    }
    inputEventNotify(U_INPUT_EVENT_STOPPED, key);
    inputEventFree(node);
}

} // extern "C"
