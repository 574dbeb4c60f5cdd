// SPDX-License-Identifier: MIT
#include "timer_harness.hpp"

#include <pthread.h>

#include <algorithm>
#include <cstdio>
#include <cstdlib>

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
    self.fired_.push_back({reinterpret_cast<std::uintptr_t>(arg), time(nullptr)});
    self.threads_.emplace_back(name);
}

void Recorder::reset() {
    std::lock_guard lock(mutex_);
    fired_.clear();
    threads_.clear();
}

std::vector<Fired> Recorder::take() {
    platformSimWaitPoolsIdle();
    std::lock_guard lock(mutex_);
    std::vector<Fired> out;
    out.swap(fired_);
    std::sort(out.begin(), out.end(), [](const Fired &a, const Fired &b) {
        return a.at != b.at ? a.at < b.at : a.tag < b.tag;
    });
    return out;
}

std::vector<std::string> Recorder::threadNames() const {
    std::lock_guard lock(mutex_);
    return threads_;
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

void EventCounter::onEvent(const char *, void *self, void *data, std::uint32_t length) {
    auto *counter = static_cast<EventCounter *>(self);
    counter->lastData.store(reinterpret_cast<std::uintptr_t>(data));
    counter->lastLength.store(length);
    counter->count.fetch_add(1);
}

void setZone(const char *tz) {
    setenv("TZ", tz, 1);
    tzset();
}

std::time_t localAt(int year, int month, int day, int hour, int minute, int second) {
    struct tm tm {};
    tm.tm_year = year - 1900;
    tm.tm_mon = month - 1;
    tm.tm_mday = day;
    tm.tm_hour = hour;
    tm.tm_min = minute;
    tm.tm_sec = second;
    tm.tm_isdst = -1;
    return mktime(&tm);
}

uTimePlanInfo planInfo(const char *start, const char *end, std::uint32_t repeatType,
                       std::uintptr_t label, std::uint32_t repeatDate) {
    uTimePlanInfo info{};
    std::snprintf(info.startTime, sizeof info.startTime, "%s", start);
    std::snprintf(info.endTime, sizeof info.endTime, "%s", end);
    info.startCb = Recorder::callback;
    info.endCb = Recorder::callback;
    info.startArg = tag(label);
    info.endArg = tag(label + kEnd);
    info.repeatType = repeatType;
    info.repeatDate = repeatDate;
    return info;
}

void TimerTest::setNow(std::time_t now) {
    now_ = now;
    nowMs_ = 0;
    setWallClock(now);
}

void TimerTest::syncWallClock() {
    if (now_ != 0) { // timer-only tests keep the real clock
        setWallClock(now());
    }
}

void TimerTest::pass(std::int64_t ms) {
    if (ms == 0) {
        advance(0); // a pass that measures no time still serves what is due
        return;
    }
    if (ms > 60'000) {
        const std::int64_t quiet = (ms - 5000) / 1000 * 1000;
        nowMs_ += quiet;
        syncWallClock();
        uTimerRun(static_cast<std::int32_t>(quiet));
        platformSimWaitPoolsIdle();
        ms -= quiet;
    }
    while (ms > 0) {
        const std::int64_t slice = std::min<std::int64_t>(ms, 1000 - nowMs_ % 1000);
        nowMs_ += slice;
        ms -= slice;
        syncWallClock(); // before the beat, so a callback sees the second it was due in
        advance(static_cast<std::uint32_t>(slice));
    }
}

void TimerTest::run(const std::vector<Step> &steps) {
    for (std::size_t i = 0; i < steps.size(); ++i) {
        const Step &step = steps[i];
        SCOPED_TRACE("step " + std::to_string(i + 1));
        if (step.act) {
            step.act();
        }
        pass(step.until != 0 ? (step.until - now()) * 1000 - nowMs_ % 1000 : step.ms);
        std::vector<Fired> got = Recorder::instance().take();
        const bool anySecond = std::all_of(step.fired.begin(), step.fired.end(),
                                           [](const Fired &f) { return f.at == 0; });
        if (anySecond) {
            for (Fired &f : got) {
                f.at = 0;
            }
            std::sort(got.begin(), got.end(),
                      [](const Fired &a, const Fired &b) { return a.tag < b.tag; });
        }
        EXPECT_EQ(got, step.fired);
    }
}

} // namespace pu::test
