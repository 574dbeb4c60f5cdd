// SPDX-License-Identifier: MIT
#include "timer_harness.hpp"

#include <algorithm>
#include <chrono>
#include <cstdio>
#include <atomic>
#include <mutex>

// The library reads the calendar time through time(); this definition takes precedence over the
// C library's, so a test can set the wall clock. 0 means the real clock.
namespace {
std::atomic<std::time_t> fakeWallClock{0};
std::mutex firedMutex;
std::vector<pu::test::Fired> fired;
} // namespace

extern "C" __attribute__((visibility("default"))) time_t time(time_t *out) {
    const std::time_t fake = fakeWallClock.load();
    const std::time_t now =
        fake != 0 ? fake : std::chrono::system_clock::to_time_t(std::chrono::system_clock::now());
    return out != nullptr ? (*out = now) : now;
}

namespace pu::test {

int timerPowerHandle() {
    static const int handle = [] {
        platformSimSetManual(1);
        platformSimSetTimeZoneOffset(0);
        // The service registers right after this probe, so its handle is the next one.
        const int probe = osaSmRegisterApp("timer-test-probe", [] {});
        uTimerInit(1000);
        return probe + 1;
    }();
    return handle;
}

void advance(std::uint32_t ms) {
    platformSimAdvanceMs(ms);
    platformSimHeartbeat();
}

void setWallClock(std::time_t now) {
    fakeWallClock.store(now);
}

void record(void *arg) {
    std::lock_guard lock(firedMutex);
    fired.push_back({reinterpret_cast<std::uintptr_t>(arg), time(nullptr)});
}

std::vector<Fired> takeFired() {
    platformSimWaitPoolsIdle();
    std::lock_guard lock(firedMutex);
    std::vector<Fired> out = std::exchange(fired, {});
    std::sort(out.begin(), out.end(), [](const Fired &a, const Fired &b) {
        return a.at != b.at ? a.at < b.at : a.tag < b.tag;
    });
    return out;
}

void Timers::clear() {
    for (std::uint32_t id : std::exchange(ids, {})) {
        uTimerDel(id);
    }
    platformSimWaitPoolsIdle(); // wake-up arming queued by the adds
}

void setZone(const char *tz) {
    setenv("TZ", tz, 1);
    tzset();
}

std::time_t localAt(int year, int month, int day, int hour, int minute, int second) {
    std::tm tm{second, minute, hour, day, month - 1, year - 1900,
               0,      0,      -1,   0,   nullptr}; // -1: DST unknown
    return std::mktime(&tm);
}

uTimePlanInfo planInfo(const char *start, const char *end, std::uint32_t repeatType,
                       std::uintptr_t label, std::uint32_t repeatDate) {
    uTimePlanInfo info{"", "",     nullptr,           "",         record,     tag(label),
                       "", record, tag(label + kEnd), repeatType, repeatDate, 0,
                       0};
    std::snprintf(info.startTime, sizeof info.startTime, "%s", start);
    std::snprintf(info.endTime, sizeof info.endTime, "%s", end);
    return info;
}

uTimePlanPauseInfo pauseReq(const char *group, const char *from, const char *to,
                            std::int32_t type) {
    uTimePlanPauseInfo req{type, group, {}, {}};
    std::snprintf(req.pauseStartTime, sizeof req.pauseStartTime, "%s", from);
    std::snprintf(req.pauseEndTime, sizeof req.pauseEndTime, "%s", to);
    return req;
}

void unpause(const char *group, std::int32_t id, std::int32_t type) {
    uTimePlanPauseInfo req{type, group, {}, {}};
    req.pauseId = id;
    uTimePlanPauseDel(&req);
}

void TimerTest::setNow(std::time_t now) {
    now_ = now;
    nowMs_ = 0;
    setWallClock(now);
}

void TimerTest::pass(std::int64_t ms) {
    do { // a pass of 0 ms is one beat that measures no time, yet serves what is due
        const std::int64_t slice = std::min<std::int64_t>(ms, 1000 - nowMs_ % 1000);
        nowMs_ += slice;
        ms -= slice;
        if (now_ != 0) {         // timer-only tests keep the real clock
            setWallClock(now()); // before the beat, so a callback sees the second it was due in
        }
        advance(static_cast<std::uint32_t>(slice));
    } while (ms > 0);
}

void TimerTest::run(const std::vector<Step> &steps) {
    for (std::size_t i = 0; i < steps.size(); ++i) {
        const Step &step = steps[i];
        SCOPED_TRACE("step " + std::to_string(i + 1));
        step.act();
        pass(step.until != 0 ? (step.until - now()) * 1000 - nowMs_ % 1000 : step.ms);
        std::vector<Fired> got = takeFired();
        if (std::all_of(step.fired.begin(), step.fired.end(),
                        [](const Fired &f) { return f.at == 0; })) {
            for (Fired &f : got) {
                f.at = 0; // the step does not care when: then only the tags are compared, in order
            }
            std::sort(got.begin(), got.end());
        }
        EXPECT_EQ(got, step.fired);
    }
}

} // namespace pu::test
