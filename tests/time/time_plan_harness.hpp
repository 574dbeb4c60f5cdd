// SPDX-License-Identifier: MIT
// Shared set-up of the time plan suites: a chosen time zone, a wall clock moved together with the
// simulated up-time, and a log of the plan callbacks with the calendar second each ran in.
#pragma once

#include "timer_harness.hpp"

#include <algorithm>
#include <cstdint>
#include <ostream>
#include <cstdlib>
#include <ctime>
#include <mutex>
#include <string>
#include <vector>

namespace pu::test {

// Sets TZ for its lifetime. Only while no pool thread reads the local time.
class Zone {
  public:
    explicit Zone(const char *tz) {
        const char *old = std::getenv("TZ");
        hadOld_ = old != nullptr;
        if (hadOld_) {
            old_ = old;
        }
        set(tz);
    }
    ~Zone() {
        if (hadOld_) {
            set(old_.c_str());
        } else {
            unsetenv("TZ");
            tzset();
        }
    }
    Zone(const Zone &) = delete;
    Zone &operator=(const Zone &) = delete;

    static void set(const char *tz) {
        setenv("TZ", tz, 1);
        tzset();
    }

  private:
    bool hadOld_ = false;
    std::string old_;
};

// Calendar time of a local date and time in the current zone.
inline std::time_t localAt(int year, int month, int day, int hour = 0, int minute = 0,
                           int second = 0) {
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

// One plan callback: 'S' or 'E', the plan's tag and the wall-clock second it ran in.
struct PlanCall {
    char kind;
    std::uintptr_t tag;
    std::time_t at;
    bool operator==(const PlanCall &) const = default;
};

inline void PrintTo(const PlanCall &call, std::ostream *out) {
    *out << call.kind << call.tag << "@" << call.at;
}

inline PlanCall started(std::uintptr_t tag, std::time_t at) {
    return {'S', tag, at};
}
inline PlanCall ended(std::uintptr_t tag, std::time_t at) {
    return {'E', tag, at};
}

// A local time in November 2026, the month most plan tests live in (the 23rd is a Monday).
inline std::time_t nov(int day, int hour, int minute = 0, int second = 0) {
    return localAt(2026, 11, day, hour, minute, second);
}

class PlanCalls {
  public:
    static PlanCalls &instance() {
        static PlanCalls calls;
        return calls;
    }
    static void onStart(void *arg) { instance().record('S', arg); }
    static void onEnd(void *arg) { instance().record('E', arg); }

    void reset() {
        std::lock_guard lock(mutex_);
        calls_.clear();
    }
    std::vector<PlanCall> all() const {
        std::lock_guard lock(mutex_);
        return calls_;
    }

  private:
    void record(char kind, void *arg) {
        std::lock_guard lock(mutex_);
        calls_.push_back({kind, reinterpret_cast<std::uintptr_t>(arg), time(nullptr)});
    }
    mutable std::mutex mutex_;
    std::vector<PlanCall> calls_;
};

// A plan description with the recording callbacks, whose argument is label.
inline uTimePlanInfo planInfo(const char *start, const char *end, std::uint32_t repeatType,
                              std::uintptr_t label, std::uint32_t repeatDate = 0) {
    uTimePlanInfo info{};
    std::snprintf(info.startTime, sizeof info.startTime, "%s", start);
    std::snprintf(info.endTime, sizeof info.endTime, "%s", end);
    info.startCb = PlanCalls::onStart;
    info.endCb = PlanCalls::onEnd;
    info.startArg = tag(label);
    info.endArg = tag(label);
    info.repeatType = repeatType;
    info.repeatDate = repeatDate;
    return info;
}

// The service started in zone tz with the wall clock at a chosen time. Plans and pauses made
// through the fixture are deleted afterwards, so their timers never reach another test.
class TimePlanTest : public TimerTest {
  protected:
    explicit TimePlanTest(const char *tz = "UTC0") : zone_(tz) {}

    void SetUp() override {
        TimerTest::SetUp();
        PlanCalls::instance().reset();
        uTimePlanInit();
    }
    void TearDown() override {
        for (std::int32_t id : plans_) {
            uTimePlanDel(id);
        }
        for (const uTimePlanPauseInfo &pause : pauses_) {
            uTimePlanPauseDel(&pause);
        }
        uTimePlanUninit();
        platformSimWaitPoolsIdle();
        setWallClock(0);
    }

    std::int32_t add(const uTimePlanInfo &info) {
        const std::int32_t id = uTimePlanAdd(&info);
        if (id > 0) {
            plans_.push_back(id);
        }
        return id;
    }

    // Adds a pause of group from the first to the second day ("YYYY-MM-DD").
    std::int32_t pause(const char *group, const char *from, const char *to) {
        uTimePlanPauseInfo req{};
        req.module = group;
        std::snprintf(req.pauseStartTime, sizeof req.pauseStartTime, "%s", from);
        std::snprintf(req.pauseEndTime, sizeof req.pauseEndTime, "%s", to);
        const std::int32_t id = uTimePlanPauseAdd(&req);
        if (id > 0) {
            uTimePlanPauseInfo del{};
            del.module = group;
            del.pauseId = id;
            pauses_.push_back(del);
        }
        return id;
    }

    void deletePause(const char *group, std::int32_t id) {
        uTimePlanPauseInfo req{};
        req.module = group;
        req.pauseId = id;
        uTimePlanPauseDel(&req);
    }

    void setNow(std::time_t now) {
        now_ = now;
        setWallClock(now);
    }
    std::time_t now() const { return now_; }

    // Lets seconds pass one second per heartbeat, wall clock first, so a timer's callback sees
    // the second it was due in.
    void elapse(int seconds) {
        for (int i = 0; i < seconds; ++i) {
            setNow(now_ + 1);
            advance(1000);
        }
    }

    // Lets a long quiet span pass in one run of the timer list, for spans in which no timer is
    // due (one that is would see the end of the span and fail the test's times).
    void skip(int seconds) {
        setNow(now_ + seconds);
        uTimerRun(seconds * 1000);
        platformSimWaitPoolsIdle();
    }

    // Skips to a few seconds before t, then steps through t and after more seconds. Nothing may
    // be due before those few seconds.
    void runThrough(std::time_t t, int after = 2) {
        if (t - now_ > 5) {
            skip(static_cast<int>(t - now_ - 5));
        }
        elapse(static_cast<int>(t - now_) + after);
    }

    // The calls so far by time, then tag: callbacks due in the same pass run on several pool
    // threads in no fixed order.
    static std::vector<PlanCall> calls() {
        std::vector<PlanCall> all = PlanCalls::instance().all();
        std::stable_sort(all.begin(), all.end(), [](const PlanCall &a, const PlanCall &b) {
            return a.at != b.at ? a.at < b.at : a.tag < b.tag;
        });
        return all;
    }

    static std::int32_t status(std::int32_t id, std::time_t *start = nullptr,
                               std::time_t *end = nullptr) {
        std::int32_t value = -1;
        uTimePlanStatusQuery(id, &value, start, end);
        return value;
    }

  private:
    Zone zone_;
    std::time_t now_ = 0;
    std::vector<std::int32_t> plans_;
    std::vector<uTimePlanPauseInfo> pauses_;
};

} // namespace pu::test
