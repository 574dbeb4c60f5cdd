// SPDX-License-Identifier: MIT
// uMonitor: the task execution monitor. Callers post start and stop messages; the "tMonitor" task
// owns the open brackets, measures them and logs overruns.
#include <umonitor.h>

#include <umem.h>
#include <ustr.h>

#include <platform_os.h>

#include "core/log_modules.hpp"

#include <atomic>
#include <cstdint>
#include <cstring>

#if UINTPTR_MAX == 0xFFFFFFFF
static_assert(sizeof(uMonitorMsg) == 20, "the monitor message is 20 bytes on 32-bit targets");
#endif

extern "C" {
PU_API const char *gMonitorLog = pu::log::kMonitor;
PU_API uint32_t gMonitorMsgQ = 0;
PU_API uList *gMonitorList = nullptr;
}

namespace {

constexpr int kQueueMessages = 60;
constexpr int kTaskPriority = 150;
constexpr int kTaskStackBytes = 2048;
constexpr std::int32_t kLooseReportMs = 1000;

struct MonitorNode {
    char *name;
    const char *tag;
    std::int32_t limitMs;
    std::uint32_t startMs;
};

// The exported globals are plain words, but callers read the queue while "tMonitor" clears it
// and tests watch the list; atomic views keep that free of data races.
std::atomic_ref<std::uint32_t> monitorQueue() {
    return std::atomic_ref<std::uint32_t>(gMonitorMsgQ);
}
std::atomic_ref<uList *> monitorList() {
    return std::atomic_ref<uList *>(gMonitorList);
}

// Reports the bracket when it overran: always when strict (at its own stop), otherwise only
// overruns of a second or more, so that short brackets are not reported at every message.
void monitorLogOutput(const MonitorNode *node, std::uint32_t now, bool strict) {
    const auto span = static_cast<std::int32_t>(osaLongTimeSpanCompute(node->startMs, now));
    if (span > node->limitMs && (span >= kLooseReportMs || strict)) {
        pu::log::warning(gMonitorLog, "%s: ~~~~~~[%s][0x%s] expired, occupy [%d]ms.~~~~~~",
                         "monitorLogOutput", node->name != nullptr ? node->name : "",
                         node->tag != nullptr ? node->tag : "", span);
    }
}

void freeNode(void *element) {
    auto *node = static_cast<MonitorNode *>(element);
    uFree(node->name);
    uFree(node);
}

void checkAll(uList *list, std::uint32_t now) {
    for (uListNode *link = list->head; link != nullptr; link = link->next) {
        monitorLogOutput(static_cast<MonitorNode *>(link->data), now, false);
    }
}

void monitorAdd(uList *list, const uMonitorMsg &msg) {
    auto *node = static_cast<MonitorNode *>(uMalloc(sizeof(MonitorNode)));
    if (node == nullptr) {
        pu::log::warning(gMonitorLog, "%s: no Memory available.", "monitorAdd");
        uFree(msg.name);
        return;
    }
    *node = MonitorNode{msg.name, msg.tag, msg.limitMs, msg.timeMs};
    if (uListAppend(list, node) < 0) {
        pu::log::warning(gMonitorLog, "%s: no Memory available.", "monitorAdd");
        freeNode(node);
    }
}

bool sameBracket(const MonitorNode *node, const uMonitorMsg &msg) {
    const bool sameName = (node->name == nullptr || msg.name == nullptr)
                              ? node->name == msg.name
                              : std::strcmp(node->name, msg.name) == 0;
    return sameName && node->tag == msg.tag;
}

// Closes the first matching bracket and, deliberately, every bracket opened after it: work that
// began inside a bracket is taken to end with it.
void monitorStop(uList *list, const uMonitorMsg &msg) {
    const std::uint32_t now = msg.timeMs;
    std::int32_t pos = 0;
    for (; uListEol(list, pos) == 0; ++pos) {
        auto *node = static_cast<MonitorNode *>(uListGet(list, pos));
        if (sameBracket(node, msg)) {
            break;
        }
        monitorLogOutput(node, now, false);
    }
    while (uListEol(list, pos) == 0) {
        auto *node = static_cast<MonitorNode *>(uListRemove(list, pos));
        monitorLogOutput(node, now, true);
        freeNode(node);
    }
    uFree(msg.name);
}

// Name copies of messages still queued are released here, so a quit loses nothing.
void drainQueue(MSG_Q_ID queue) {
    uMonitorMsg msg{};
    while (msgQReceive(queue, reinterpret_cast<char *>(&msg), sizeof msg, NO_WAIT) > 0) {
        uFree(msg.name);
    }
}

// Ends this task's monitor. The globals are cleared only while they still name this task's queue
// and list: a newer monitor may already have replaced them.
void monitorQuit(MSG_Q_ID queue, uList *list) {
    std::uint32_t expectedQueue = queue;
    monitorQueue().compare_exchange_strong(expectedQueue, 0);
    drainQueue(queue);
    msgQDelete(queue);
    while (uListEol(list, 0) == 0) {
        freeNode(uListRemove(list, 0));
    }
    uListUninit(list);
    uList *expectedList = list;
    monitorList().compare_exchange_strong(expectedList, nullptr);
}

// The task gets its own queue and list as arguments, so a later uMonitorInit cannot pull them
// from under it.
int monitorTask(intptr_t queueArg, intptr_t listArg, intptr_t, intptr_t, intptr_t, intptr_t,
                intptr_t, intptr_t, intptr_t, intptr_t) {
    const auto queue = static_cast<MSG_Q_ID>(queueArg);
    auto *list = reinterpret_cast<uList *>(listArg);
    for (;;) {
        uMonitorMsg msg{};
        if (msgQReceive(queue, reinterpret_cast<char *>(&msg), sizeof msg, sysClkRateGet()) <
            static_cast<int>(sizeof msg)) {
            continue;
        }
        switch (msg.type) {
        case U_MONITOR_QUIT:
            monitorQuit(queue, list);
            return 0;
        case U_MONITOR_START:
            checkAll(list, osaGetSysUpMs());
            monitorAdd(list, msg);
            break;
        case U_MONITOR_STOP:
            monitorStop(list, msg);
            break;
        default:
            uFree(msg.name);
            break;
        }
    }
}

std::int32_t postMessage(std::int32_t type, const char *name, const char *tag, std::int32_t limitMs,
                         std::uint32_t timeMs) {
    uMonitorMsg msg{type, uStrGetCopy(name), tag, limitMs, timeMs};
    const MSG_Q_ID queue = monitorQueue().load();
    const std::int32_t result = queue == 0 ? -1
                                           : msgQSend(queue, reinterpret_cast<const char *>(&msg),
                                                      sizeof msg, NO_WAIT, MSG_PRI_NORMAL);
    if (result != 0) {
        uFree(msg.name);
    }
    return result;
}

} // namespace

extern "C" {

void uMonitorInit(void) {
    uList *list = uListInit(0);
    if (list == nullptr) {
        pu::log::error(gMonitorLog, "%s: creat monitor list failed!!!", "uMonitorInit");
        return;
    }
    const MSG_Q_ID queue = msgQCreate(kQueueMessages, sizeof(uMonitorMsg), 0);
    if (queue == 0) {
        pu::log::error(gMonitorLog, "%s: create monitro msg queue failed!!!", "uMonitorInit");
        uListUninit(list);
        return;
    }
    // A running monitor is replaced; tell its task to end so its thread and brackets go too.
    const MSG_Q_ID previous = monitorQueue().exchange(queue);
    monitorList().store(list);
    if (previous != 0) {
        const uMonitorMsg quit{U_MONITOR_QUIT, nullptr, nullptr, 0, 0};
        msgQSend(previous, reinterpret_cast<const char *>(&quit), sizeof quit, NO_WAIT,
                 MSG_PRI_NORMAL);
    }
    if (taskSpawn("tMonitor", kTaskPriority, 0, kTaskStackBytes, monitorTask,
                  static_cast<intptr_t>(queue), reinterpret_cast<intptr_t>(list), 0, 0, 0, 0, 0, 0,
                  0, 0) == 0) {
        pu::log::error(gMonitorLog, "%s: spawn tMonitor failed!!!", "uMonitorInit");
        monitorQuit(queue, list);
        return;
    }
    pu::log::info(gMonitorLog, "%s: success.", "uMonitorInit");
}

int32_t uMonitorUninit(void) {
    const MSG_Q_ID queue = monitorQueue().load();
    if (queue == 0) {
        pu::log::warning(gMonitorLog, "%s: msg Queue not create.", "uMonitorUninit");
        return -1;
    }
    const uMonitorMsg quit{U_MONITOR_QUIT, nullptr, nullptr, 0, 0};
    return msgQSend(queue, reinterpret_cast<const char *>(&quit), sizeof quit, NO_WAIT,
                    MSG_PRI_NORMAL);
}

int32_t uMonitorStart(const char *name, const char *tag, uint32_t startMs, int32_t limitMs) {
    return postMessage(U_MONITOR_START, name, tag, limitMs, startMs);
}

int32_t uMonitorStop(const char *name, const char *tag, uint32_t stopMs) {
    return postMessage(U_MONITOR_STOP, name, tag, 0, stopMs);
}

} // extern "C"
