// SPDX-License-Identifier: MIT
#include "task_delay_hook.hpp"

#include <atomic>
#include <dlfcn.h>
#include <mutex>
#include <utility>

namespace {

std::atomic<bool> recording{false};
std::mutex callsMutex;
std::vector<int> recordedCalls;
std::function<void(std::size_t)> callAction;

using TaskDelayFn = int (*)(int);

TaskDelayFn platformTaskDelay() {
    static const auto real = reinterpret_cast<TaskDelayFn>(dlsym(RTLD_NEXT, "taskDelay"));
    return real;
}

} // namespace

namespace pu::test {

TaskDelayRecorder::TaskDelayRecorder() {
    clear();
    recording = true;
}

TaskDelayRecorder::~TaskDelayRecorder() {
    recording = false;
    onCall(nullptr);
}

void TaskDelayRecorder::onCall(std::function<void(std::size_t)> action) {
    std::lock_guard lock(callsMutex);
    callAction = std::move(action);
}

std::vector<int> TaskDelayRecorder::calls() const {
    std::lock_guard lock(callsMutex);
    return recordedCalls;
}

void TaskDelayRecorder::clear() {
    std::lock_guard lock(callsMutex);
    recordedCalls.clear();
}

} // namespace pu::test

// The executable's definition wins over the platform library's for every caller, the utility
// library included; it has to be visible in the dynamic symbol table for that.
extern "C" __attribute__((visibility("default"))) int taskDelay(int ticks) {
    if (recording) {
        std::function<void(std::size_t)> action;
        std::size_t number = 0;
        {
            std::lock_guard lock(callsMutex);
            recordedCalls.push_back(ticks);
            number = recordedCalls.size();
            action = callAction;
        }
        if (action) {
            action(number);
        }
        ticks = 1;
    }
    return platformTaskDelay()(ticks);
}
