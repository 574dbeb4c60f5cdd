// SPDX-License-Identifier: MIT
// Long stress run of the threaded families on the real clock: timers, time plans, interval
// plans and input events (announced on the event bus), all at once from several threads for a
// given number of seconds. Every callback is booked against what was asked for, so a callback
// that comes twice or never is reported, and the pools the families draw from (timer records,
// plan ids) must be back at their starting size at the end. Exit status 1 on any violation, with
// one line per violation. The block pool, the locked list, the event bus and XML resumes have
// their thread tests in the core, event and XML suites, which also run under ThreadSanitizer.
//
// Usage: stress_threads <seconds>
#include <platform_sim.h>
#include <platform_utils.h>

#include <algorithm>
#include <array>
#include <atomic>
#include <chrono>
#include <cstdarg>
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <ctime>
#include <deque>
#include <functional>
#include <map>
#include <mutex>
#include <random>
#include <string>
#include <thread>
#include <vector>

namespace {

using Clock = std::chrono::steady_clock;
using namespace std::chrono_literals;

std::atomic<int> violations{0};
Clock::time_point endOfRun;
std::atomic<long> logLines{0};

void violation(const char *family, const char *format, ...) {
    if (violations.fetch_add(1) >= 100) {
        return; // the count still goes up; the lines stop
    }
    char text[512];
    va_list args;
    va_start(args, format);
    std::vsnprintf(text, sizeof text, format, args);
    va_end(args);
    std::fprintf(stderr, "VIOLATION [%s] %s\n", family, text);
}

bool running() {
    return Clock::now() < endOfRun;
}

// Polls until condition holds; generous, as sanitizer builds on a loaded machine are slow.
bool waitUntil(const std::function<bool()> &condition, Clock::duration limit = 20s) {
    const Clock::time_point deadline = Clock::now() + limit;
    while (!condition()) {
        if (Clock::now() >= deadline) {
            return false;
        }
        std::this_thread::sleep_for(2ms);
    }
    return true;
}

// Takes everything take() hands out until it refuses, gives it all back, returns the count.
template <typename T>
int drainCount(const std::function<T()> &take, const std::function<void(T)> &give) {
    std::vector<T> taken;
    for (T item; (item = take()) != T{};) {
        taken.push_back(item);
    }
    std::for_each(taken.begin(), taken.end(), give);
    return static_cast<int>(taken.size());
}

// ---- Timers: each fires exactly once unless deleted (a deleted one may fire once) ----------

constexpr std::size_t kTimerBatch = 24;
using TimerBatch = std::array<std::atomic<int>, kTimerBatch>;
std::mutex timerBatchesMutex;
std::deque<TimerBatch> timerBatches; // kept to the end: a late callback still books into it

void onTimer(void *arg) {
    if (static_cast<std::atomic<int> *>(arg)->fetch_add(1) > 0) {
        violation("timer", "a timer fired twice");
    }
}

void timerWorker(unsigned seed) {
    std::mt19937 rng(seed);
    while (running()) {
        TimerBatch *fired = nullptr;
        {
            std::lock_guard lock(timerBatchesMutex);
            fired = &timerBatches.emplace_back();
        }
        std::array<std::uint32_t, kTimerBatch> ids{};
        std::array<unsigned, kTimerBatch> kinds{}; // 0 plain, 1 wake-up, 2 deleted, 3 refreshed
        for (std::size_t i = 0; i < kTimerBatch; ++i) {
            kinds[i] = rng() % 4;
            const auto delay = static_cast<std::int64_t>(rng() % 40);
            ids[i] = kinds[i] == 1 ? uTimerAddWithWakeup(onTimer, &(*fired)[i], delay)
                                   : uTimerAdd(onTimer, &(*fired)[i], delay);
            if (ids[i] == 0) {
                violation("timer", "add refused although the pool has room");
            }
        }
        for (std::size_t i = 0; i < kTimerBatch; ++i) {
            if (kinds[i] == 2) {
                uTimerDel(ids[i]);
            } else if (kinds[i] == 3) {
                uTimerRefresh(ids[i], static_cast<std::int32_t>(rng() % 40));
            }
        }
        // Every timer still armed (added, not deleted) has fired.
        if (!waitUntil([&] {
                for (std::size_t i = 0; i < kTimerBatch; ++i) {
                    if (ids[i] != 0 && kinds[i] != 2 && (*fired)[i] == 0) {
                        return false;
                    }
                }
                return true;
            })) {
            violation("timer", "a timer never fired");
        }
    }
}

// ---- Input events: one start, then exactly the announcement and callback of its end ---------

enum InputFate { kDone, kStopped, kTimedOut };
std::mutex inputMutex;
// Per key: announced started, stopped, timed out (the announced state is the index), then the
// callback of a done.
std::map<std::uint32_t, std::array<int, 4>> inputBooks;
long timeoutCallbacks = 0, timeoutsExpected = 0;

// Carer of "INPUT_EVENT": runs with the input service's lock held, so it only books.
void inputAnnounced(const char *, void *, void *data, uint32_t length) {
    const auto *msg = static_cast<const uInputEventMsg *>(data);
    if (data == nullptr || length != sizeof(uInputEventMsg) || msg->state < 0 ||
        msg->state > U_INPUT_EVENT_TIMED_OUT) {
        violation("input", "announcement of length %u", length);
        return;
    }
    std::lock_guard lock(inputMutex);
    ++inputBooks[msg->key][static_cast<std::size_t>(msg->state)];
}

void inputCallback(int32_t state, uint32_t value) {
    std::lock_guard lock(inputMutex);
    if (state == U_INPUT_EVENT_TIMED_OUT) {
        ++timeoutCallbacks;
    } else {
        ++inputBooks[value][3];
    }
}

void inputWorker(std::uint32_t worker) {
    constexpr std::uint32_t kBatch = 12;
    std::vector<std::pair<std::uint32_t, InputFate>> all;
    for (std::uint32_t round = 0; running(); ++round) {
        const std::size_t first = all.size();
        for (std::uint32_t i = 0; i < kBatch; ++i) {
            const std::uint32_t key = worker << 24 | (round * kBatch + i);
            if (uInputEventStart(key, 1, inputCallback) != 0) {
                violation("input", "start of key %#x refused", key);
                continue;
            }
            uInputEventStart(key, 1, inputCallback); // a second start only extends, unannounced
            all.emplace_back(key, static_cast<InputFate>(i % 3));
        }
        for (std::size_t i = first; i < all.size(); ++i) {
            const auto [key, fate] = all[i];
            if (fate == kStopped) {
                uInputEventStop(key);
                continue;
            }
            const uInputEventMsg msg{fate == kDone ? U_INPUT_EVENT_DONE : U_INPUT_EVENT_EXTEND,
                                     key};
            uInputEventExecute(&msg);
            std::lock_guard lock(inputMutex);
            timeoutsExpected += fate == kTimedOut;
        }
        if (!waitUntil([&] {
                std::lock_guard lock(inputMutex);
                return std::all_of(all.begin() + static_cast<long>(first), all.end(),
                                   [](const auto &e) {
                                       return e.second != kTimedOut || inputBooks[e.first][2] > 0;
                                   });
            })) {
            violation("input", "worker %u: a time-out never came", worker);
        }
    }
    std::lock_guard lock(inputMutex);
    for (auto [key, fate] : all) { // nothing may have come twice or late
        const std::array<int, 4> &got = inputBooks[key];
        if (got != std::array<int, 4>{1, fate == kStopped, fate == kTimedOut, fate == kDone}) {
            violation("input", "key %#x (fate %d): started %d stopped %d timed out %d done %d", key,
                      static_cast<int>(fate), got[0], got[1], got[2], got[3]);
        }
    }
}

// ---- Interval plans: the callbacks of one plan come in the order of its operations ----------

std::array<std::mutex, 2> intervalMutex;
std::array<std::vector<std::pair<std::int32_t, std::int32_t>>, 2> intervalCalls; // (code, id)

// One callback per worker, so a late callback of a plan whose id the other worker reuses still
// lands in the right inbox.
template <int N> void intervalCallback(int32_t code, int32_t id) {
    std::lock_guard lock(intervalMutex[N]);
    intervalCalls[N].emplace_back(code, id);
}

template <int N> void intervalWorker(unsigned seed) {
    std::mt19937 rng(seed);
    while (running()) {
        std::unique_lock inbox(intervalMutex[N]);
        intervalCalls[N].clear();
        inbox.unlock();
        // 0: two runs, pausing the first while it runs; 1: two runs with a paused and resumed
        // one-second wait between them; 2: deleted while waiting.
        const int variant = static_cast<int>(rng() % 3);
        const std::int32_t id =
            uIntervalPlanAdd(variant == 2 ? 3 : 2, variant == 0 ? 0 : 1, intervalCallback<N>);
        if (id < 1) {
            violation("interval", "add refused");
            continue;
        }
        std::vector<std::int32_t> want;
        const auto awaitCalls = [&] {
            waitUntil([&] {
                std::lock_guard lock(intervalMutex[N]);
                return intervalCalls[N].size() >= want.size();
            });
        };
        const auto step = [&](std::int32_t result, std::initializer_list<std::int32_t> codes) {
            if (result != 0) {
                violation("interval", "plan %d: operation refused after %zu callbacks", id,
                          want.size());
            }
            want.insert(want.end(), codes);
            awaitCalls();
        };
        step(uIntervalPlanStart(id), {U_INTERVAL_PLAN_STARTED});
        if (variant == 0) {
            step(uIntervalPlanPause(id), {U_INTERVAL_PLAN_PAUSED});
            step(uIntervalPlanResume(id), {U_INTERVAL_PLAN_RESUMED});
        }
        step(uIntervalPlanComplete(id), {U_INTERVAL_PLAN_RUN_FINISHED});
        if (variant == 1) {
            step(uIntervalPlanPause(id), {});
            step(uIntervalPlanResume(id), {});
        }
        if (variant == 2) {
            step(uIntervalPlanDel(id), {U_INTERVAL_PLAN_STOPPED});
            std::this_thread::sleep_for(1200ms); // a surviving wait timer would start it again
        } else {
            want.push_back(U_INTERVAL_PLAN_STARTED); // the next run, started by the wait's timer
            awaitCalls();
            step(uIntervalPlanComplete(id), {U_INTERVAL_PLAN_STOPPED});
        }
        inbox.lock();
        std::vector<std::int32_t> got;
        std::string text;
        for (auto [code, callId] : intervalCalls[N]) {
            got.push_back(callId == id ? code : -100 - callId);
            text += std::to_string(got.back()) + " ";
        }
        if (got != want) {
            violation("interval", "plan %d (variant %d): callbacks %s", id, variant, text.c_str());
        }
    }
}

// ---- Time plans: starts and ends of one plan alternate -------------------------------------

// A plan whose add returned too close to its start may have been added inside its period (it
// then starts silently): it is booked loosely.
struct PlanBook {
    std::atomic<int> starts{0}, ends{0};
    std::atomic<bool> active{false}, loose{false};
};

void planEdge(PlanBook *book, bool start) {
    (start ? book->starts : book->ends).fetch_add(1);
    if (book->active.exchange(start) == start && !book->loose) {
        violation("timeplan", "%s callback of a plan that %s running", start ? "start" : "end",
                  start ? "is" : "is not");
    }
}

// The local time t in format, into a text field of a request.
template <std::size_t N> void localText(std::time_t t, const char *format, char (&out)[N]) {
    std::tm local{};
    localtime_r(&t, &local);
    std::strftime(out, N, format, &local);
}

std::int32_t addDailyPlan(std::time_t start, std::time_t end, PlanBook *book, char *group) {
    uTimePlanInfo info{};
    localText(start, "%H:%M:%S", info.startTime);
    localText(end, "%H:%M:%S", info.endTime);
    info.startCb = [](void *b) { planEdge(static_cast<PlanBook *>(b), true); };
    info.endCb = [](void *b) { planEdge(static_cast<PlanBook *>(b), false); };
    info.startArg = info.endArg = book;
    info.repeatType = U_TIME_PLAN_DAILY;
    info.pauseModule = group;
    return uTimePlanAdd(&info);
}

// Never destroyed: a late callback may still write to a book while the process exits.
auto *const planBooks = new std::deque<std::array<PlanBook, 3>>[2];

void timePlanWorker(int worker) {
    std::string group = "stressGroup" + std::to_string(worker);
    while (running()) {
        const std::time_t now = std::time(nullptr);
        char hm[8];
        localText(now, "%H%M", hm);
        if (std::strcmp(hm, "0005") < 0 ||
            std::strcmp(hm, "2355") >= 0) { // plans near midnight would cross into the next day
            std::this_thread::sleep_for(1s);
            continue;
        }
        // Plans started and ended by their timers, periods of a few seconds so that a late
        // timer on a loaded machine still finds its period.
        std::array<PlanBook, 3> &timed = planBooks[worker].emplace_back();
        std::array<std::int32_t, 3> timedIds{};
        for (std::size_t i = 0; i < timed.size(); ++i) {
            const std::time_t start = std::time(nullptr) + 3 + static_cast<std::time_t>(i);
            timed[i].loose = true;
            timedIds[i] = addDailyPlan(start, start + 4, &timed[i], nullptr);
            timed[i].loose = std::time(nullptr) >= start - 1;
            if (timedIds[i] < 1) {
                violation("timeplan", "add of a plan refused");
            }
        }
        // A pause of today holds a running plan of its group; its end resumes the plan.
        PlanBook paused;
        paused.active = true;
        const std::int32_t pausedId = addDailyPlan(now - 30, now + 240, &paused, group.data());
        uTimePlanPauseInfo pause{};
        pause.module = group.data();
        localText(now, "%Y-%m-%d", pause.pauseStartTime);
        localText(now + 86400, "%Y-%m-%d", pause.pauseEndTime);
        pause.pauseId = uTimePlanPauseAdd(&pause);
        const int endsWhilePaused = paused.ends;
        uTimePlanPauseDel(&pause);
        uTimePlanDel(pausedId);
        if (pausedId < 1 || pause.pauseId < 1 || endsWhilePaused != 1 || paused.active ||
            paused.ends != paused.starts + 1) {
            violation("timeplan", "paused plan %d, pause %d: %d starts, %d ends", pausedId,
                      pause.pauseId, paused.starts.load(), paused.ends.load());
        }
        waitUntil([&] {
            return std::all_of(timed.begin(), timed.end(),
                               [](const PlanBook &b) { return b.loose || b.ends > 0; });
        });
        for (std::size_t i = 0; i < timed.size(); ++i) {
            if (!timed[i].loose && (timed[i].starts != 1 || timed[i].ends != 1)) {
                violation("timeplan", "timed plan %d: %d starts, %d ends", timedIds[i],
                          timed[i].starts.load(), timed[i].ends.load());
            }
            uTimePlanDel(timedIds[i]);
        }
    }
}

int freeIds(const char *module) {
    return drainCount<std::int32_t>(
        [&] { return std::max(uIdGetModuleAvailableUniqueId(module), 0); },
        [&](std::int32_t id) { uIdReleaseModuleUniqueId(module, id); });
}

// Free timer records, plan ids and interval-plan ids.
std::array<int, 3> freeInPools() {
    return {
        drainCount<std::uint32_t>([] { return uTimerAdd(nullptr, nullptr, 1000000); }, uTimerDel),
        freeIds("timePlanIdName"), freeIds("intervalPlanIdName")};
}

} // namespace

int main(int argc, char **argv) {
    const long seconds = argc > 1 ? std::strtol(argv[1], nullptr, 10) : 0;
    if (seconds < 1) {
        std::fprintf(stderr, "usage: %s <seconds>\n", argv[0]);
        return 2;
    }
    // The library's own lines are counted, not shown, unless STRESS_LOG is set.
    platformSimSetLogSink([](void *, int, const char *, const char *) { logLines.fetch_add(1); },
                          nullptr, std::getenv("STRESS_LOG") == nullptr ? 1 : 0);
    uTimerInit(300);
    uEventInit();
    uTimePlanInit();
    uIntervalPlanInit();
    uInputEventInit();
    uAsyncCall([](void *) {}, nullptr);
    const std::array<int, 3> atStart = freeInPools();
    if (uEventCare(U_INPUT_EVENT_NAME, inputAnnounced, nullptr) != 1) {
        violation("event", "care refused at start");
    }

    endOfRun = Clock::now() + std::chrono::seconds(seconds);
    std::vector<std::thread> threads;
    for (unsigned i = 0; i < 2; ++i) {
        threads.emplace_back(timerWorker, i + 1);
        threads.emplace_back(inputWorker, i + 1);
        threads.emplace_back(i == 0 ? intervalWorker<0> : intervalWorker<1>, i + 3);
        threads.emplace_back(timePlanWorker, static_cast<int>(i));
    }
    for (std::thread &thread : threads) {
        thread.join();
    }
    std::this_thread::sleep_for(2s); // late callbacks (a deleted timer handed on just before)

    const std::array<int, 3> atEnd = freeInPools();
    if (atEnd != atStart) {
        violation("pool",
                  "free timers, plan ids, interval ids: %d %d %d at the start, %d %d %d at the end",
                  atStart[0], atStart[1], atStart[2], atEnd[0], atEnd[1], atEnd[2]);
    }
    {
        std::lock_guard lock(inputMutex);
        if (timeoutCallbacks != timeoutsExpected) {
            violation("input", "%ld time-out callbacks for %ld time-outs", timeoutCallbacks,
                      timeoutsExpected);
        }
        std::fprintf(stderr, "stress: %ld s, %zu timers, %zu input events, %ld log lines\n",
                     seconds, timerBatches.size() * kTimerBatch, inputBooks.size(),
                     logLines.load());
    }
    platformSimSetLogSink(nullptr, nullptr, 0);
    std::fprintf(stderr, "stress: %d violation(s)\n", violations.load());
    return violations > 0 ? 1 : 0;
}
