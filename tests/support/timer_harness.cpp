// SPDX-License-Identifier: MIT
#include "timer_harness.hpp"

#include <pthread.h>

#include <algorithm>

// The library reads the calendar time through time(); this definition takes precedence over the
// C library's, so a test can set the wall clock. 0 means the real clock.
namespace {
std::atomic<std::time_t> fakeWallClock{0};
}

extern "C" __attribute__((visibility("default"))) time_t time(time_t *out) {
    std::time_t now = fakeWallClock.load();
    if (now == 0) {
        timespec real{};
        clock_gettime(CLOCK_REALTIME, &real);
        now = real.tv_sec;
    }
    if (out != nullptr) {
        *out = now;
    }
    return now;
}

namespace pu::test {
namespace {

void ignoreHeartbeat() {}

int startService() {
    platformSimSetManual(1);
    platformSimSetTimeZoneOffset(0);
    // The service registers right after this probe, so its handle is the next one.
    const int probe = osaSmRegisterApp("timer-test-probe", ignoreHeartbeat);
    uTimerInit(kTestPoolBlocks);
    return probe + 1;
}

} // namespace

int timerPowerHandle() {
    static const int handle = startService();
    return handle;
}

void advance(std::uint32_t ms) {
    platformSimAdvanceMs(ms);
    platformSimHeartbeat();
}

UpTime upTimeNow() {
    UpTime now{};
    osaGetSysUpTime(&now.seconds, &now.microseconds);
    return now;
}

void setWallClock(std::time_t now) {
    fakeWallClock.store(now);
}

Recorder &Recorder::instance() {
    static Recorder recorder;
    return recorder;
}

void Recorder::callback(void *arg) {
    char name[16] = {};
    pthread_getname_np(pthread_self(), name, sizeof name);
    Recorder &self = instance();
    std::lock_guard lock(self.mutex_);
    self.fired_.push_back(reinterpret_cast<std::uintptr_t>(arg));
    self.threads_.emplace_back(name);
}

void Recorder::reset() {
    std::lock_guard lock(mutex_);
    fired_.clear();
    threads_.clear();
}

std::vector<std::uintptr_t> Recorder::fired() const {
    std::lock_guard lock(mutex_);
    return fired_;
}

int Recorder::count(std::uintptr_t value) const {
    std::lock_guard lock(mutex_);
    return static_cast<int>(std::count(fired_.begin(), fired_.end(), value));
}

std::vector<std::string> Recorder::threadNames() const {
    std::lock_guard lock(mutex_);
    return threads_;
}

Timers::~Timers() {
    clear();
}

std::uint32_t Timers::add(std::int64_t delayMs, std::uintptr_t value, std::uint32_t options) {
    return keep(uTimerAddWithOptions(Recorder::callback, tag(value), delayMs, options));
}

std::uint32_t Timers::keep(std::uint32_t id) {
    if (id != 0) {
        ids_.push_back(id);
    }
    return id;
}

void Timers::clear() {
    for (std::uint32_t id : ids_) {
        uTimerDel(id);
    }
    ids_.clear();
    platformSimWaitPoolsIdle(); // wake-up arming queued by the adds
}

EventCounter::EventCounter(const char *name) : name_(name) {
    uEventCare(name, onEvent, this);
}

EventCounter::~EventCounter() {
    uEventClear(name_.c_str(), onEvent);
}

void EventCounter::onEvent(const char *, void *self, void *data, std::uint32_t length) {
    auto *counter = static_cast<EventCounter *>(self);
    counter->lastData_.store(reinterpret_cast<std::uintptr_t>(data));
    counter->lastLength_.store(length);
    counter->count_.fetch_add(1);
}

} // namespace pu::test
