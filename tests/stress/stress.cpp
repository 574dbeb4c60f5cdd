// SPDX-License-Identifier: MIT
// Long stress run of the threaded families on the real clock: timers, time plans, interval
// plans, input events, the event bus, XML suspend/resume, the block pool and a locked list, all
// at once from several threads for a given number of seconds. Every callback is booked against
// what was asked for, so a callback that comes twice or never is reported, and the pools the
// families draw from (timer records, plan ids, the block pool, the list) must be back at their
// starting size at the end. Exit status 1 on any violation, with one line per violation.
//
// Usage: stress_threads <seconds>
#include <platform_sim.h>
#include <platform_utils.h>

#include <algorithm>
#include <array>
#include <atomic>
#include <chrono>
#include <condition_variable>
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
#include <utility>
#include <vector>

namespace {

using Clock = std::chrono::steady_clock;
using namespace std::chrono_literals;

// Generous: sanitizer builds on a loaded two-core machine are slow.
constexpr auto kCallbackDeadline = 20s;

std::atomic<int> violations{0};
std::atomic<bool> stopping{false};
Clock::time_point endOfRun;

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
    return !stopping.load() && Clock::now() < endOfRun;
}

// Polls condition until it holds or the deadline passes; the run is on the real clock.
bool waitUntil(const std::function<bool()> &condition, Clock::duration limit = kCallbackDeadline) {
    const Clock::time_point deadline = Clock::now() + limit;
    while (!condition()) {
        if (Clock::now() >= deadline) {
            return false;
        }
        std::this_thread::sleep_for(2ms);
    }
    return true;
}

std::atomic<long> logLines[4];

void logSink(void *, int level, const char *, const char *) {
    logLines[std::clamp(level, 0, 3)].fetch_add(1, std::memory_order_relaxed);
}

// ---- Timers ------------------------------------------------------------------------------

// One entry per timer ever added, by sequence number: how often it fired.
struct TimerLedger {
    std::mutex mutex;
    std::vector<std::uint8_t> fired;

    std::size_t reserve(std::size_t count) {
        std::lock_guard lock(mutex);
        const std::size_t base = fired.size();
        fired.resize(base + count, 0);
        return base;
    }
    std::uint8_t count(std::size_t seq) {
        std::lock_guard lock(mutex);
        return fired[seq];
    }
} timerLedger;

void onTimer(void *arg) {
    const auto seq = reinterpret_cast<std::uintptr_t>(arg);
    std::lock_guard lock(timerLedger.mutex);
    if (++timerLedger.fired[seq] > 1) {
        violation("timer", "timer #%zu fired %d times", static_cast<std::size_t>(seq),
                  timerLedger.fired[seq]);
    }
}

void timerWorker(unsigned seed) {
    std::mt19937 rng(seed);
    constexpr std::size_t kBatch = 24;
    enum Kind { kPlain, kWakeup, kDelete, kRefresh };
    while (running()) {
        const std::size_t base = timerLedger.reserve(kBatch);
        std::array<std::uint32_t, kBatch> ids{};
        std::array<Kind, kBatch> kinds{};
        for (std::size_t i = 0; i < kBatch; ++i) {
            kinds[i] = static_cast<Kind>(rng() % 4);
            void *arg = reinterpret_cast<void *>(static_cast<std::uintptr_t>(base + i));
            const auto delay = static_cast<std::int64_t>(rng() % 40);
            ids[i] = kinds[i] == kWakeup ? uTimerAddWithWakeup(onTimer, arg, delay)
                                         : uTimerAdd(onTimer, arg, delay);
            if (ids[i] == 0) {
                violation("timer", "add refused although the pool has room");
            }
        }
        for (std::size_t i = 0; i < kBatch; ++i) {
            if (kinds[i] == kDelete) {
                uTimerDel(ids[i]);
            } else if (kinds[i] == kRefresh) {
                uTimerRefresh(ids[i], static_cast<std::int32_t>(rng() % 40));
            }
        }
        // A deleted timer may still fire once if it was handed on before the delete.
        const bool all = waitUntil([&] {
            for (std::size_t i = 0; i < kBatch; ++i) {
                if (ids[i] != 0 && kinds[i] != kDelete && timerLedger.count(base + i) == 0) {
                    return false;
                }
            }
            return true;
        });
        if (!all) {
            violation("timer", "a timer of batch #%zu never fired", base);
        }
    }
}

// How many timers can be added before the pool runs out; all of them are deleted again.
int timerCapacity() {
    std::vector<std::uint32_t> ids;
    for (;;) {
        const std::uint32_t id = uTimerAdd(nullptr, nullptr, 1000000);
        if (id == 0) {
            break;
        }
        ids.push_back(id);
    }
    for (std::uint32_t id : ids) {
        uTimerDel(id);
    }
    return static_cast<int>(ids.size());
}

// ---- Unique ids --------------------------------------------------------------------------

int freeIds(const char *module) {
    std::vector<std::int32_t> taken;
    for (std::int32_t id; (id = uIdGetModuleAvailableUniqueId(module)) > 0;) {
        taken.push_back(id);
    }
    for (std::int32_t id : taken) {
        uIdReleaseModuleUniqueId(module, id);
    }
    return static_cast<int>(taken.size());
}

// ---- Event bus ---------------------------------------------------------------------------

constexpr const char *kSharedEvent = "STRESS_BUS_SHARED";

struct Delivery {
    std::atomic<int> own{0};
    std::atomic<int> permanent{0};
    std::atomic<int> transient{0};
};

void ownCarer(const char *, void *, void *data, uint32_t) {
    static_cast<Delivery *>(data)->own.fetch_add(1);
}
void permanentCarer(const char *, void *, void *data, uint32_t) {
    static_cast<Delivery *>(data)->permanent.fetch_add(1);
}
template <int N> void transientCarer(const char *, void *, void *data, uint32_t) {
    static_cast<Delivery *>(data)->transient.fetch_add(1);
}

template <int N> void busWorker() {
    const std::string own = "STRESS_BUS_OWN_" + std::to_string(N);
    while (running()) {
        if (uEventCare(own.c_str(), ownCarer, nullptr) != 1 ||
            uEventCare(kSharedEvent, transientCarer<N>, nullptr) != 1) {
            violation("event", "care refused");
        }
        for (int i = 0; i < 50; ++i) {
            Delivery own1, shared;
            uEventRaise(own.c_str(), &own1, sizeof own1);
            uEventRaise(kSharedEvent, &shared, sizeof shared);
            if (own1.own != 1 || shared.permanent != 1 || shared.transient > 2) {
                violation("event", "worker %d: own carer called %d times, shared carer %d times", N,
                          own1.own.load(), shared.permanent.load());
            }
        }
        uEventClear(own.c_str(), ownCarer);
        uEventClear(kSharedEvent, transientCarer<N>);
        // The slot went with its last carer, so the raise finds nobody.
        Delivery after;
        uEventRaise(own.c_str(), &after, sizeof after);
        if (after.own != 0) {
            violation("event", "worker %d: a cleared carer was called", N);
        }
    }
}

// ---- Input events ------------------------------------------------------------------------

struct InputBook {
    int started = 0, stopped = 0, timedOut = 0, done = 0;
};

struct InputLedger {
    std::mutex mutex;
    std::map<std::uint32_t, InputBook> books;
    long timeoutCallbacks = 0;
    long timeoutsExpected = 0;
} inputLedger;

// Carer of "INPUT_EVENT": runs with the input service's lock held, so it only books.
void inputAnnounced(const char *, void *, void *data, uint32_t length) {
    if (data == nullptr || length != sizeof(uInputEventMsg)) {
        violation("input", "announcement with length %u", length);
        return;
    }
    const auto *msg = static_cast<const uInputEventMsg *>(data);
    std::lock_guard lock(inputLedger.mutex);
    InputBook &book = inputLedger.books[msg->key];
    switch (msg->state) {
    case U_INPUT_EVENT_STARTED:
        ++book.started;
        break;
    case U_INPUT_EVENT_STOPPED:
        ++book.stopped;
        break;
    case U_INPUT_EVENT_TIMED_OUT:
        ++book.timedOut;
        break;
    default:
        violation("input", "announced state %d", msg->state);
    }
}

void inputCallback(int32_t state, uint32_t value) {
    std::lock_guard lock(inputLedger.mutex);
    if (state == U_INPUT_EVENT_TIMED_OUT) {
        ++inputLedger.timeoutCallbacks;
    } else {
        ++inputLedger.books[value].done;
    }
}

// Ends every input event the way its fate says and checks what was announced and called.
enum InputFate { kDone, kStopped, kTimedOut, kFateCount };

bool inputSettled(std::uint32_t key, InputFate fate) {
    std::lock_guard lock(inputLedger.mutex);
    const InputBook &b = inputLedger.books[key];
    return fate == kTimedOut ? b.timedOut > 0 : true;
}

void checkInput(std::uint32_t key, InputFate fate) {
    std::lock_guard lock(inputLedger.mutex);
    const InputBook &b = inputLedger.books[key];
    const InputBook want{1, fate == kStopped ? 1 : 0, fate == kTimedOut ? 1 : 0,
                         fate == kDone ? 1 : 0};
    if (b.started != want.started || b.stopped != want.stopped || b.timedOut != want.timedOut ||
        b.done != want.done) {
        violation("input", "key %#x (fate %d): started %d stopped %d timed out %d done %d times",
                  key, static_cast<int>(fate), b.started, b.stopped, b.timedOut, b.done);
    }
}

void inputWorker(std::uint32_t worker) {
    constexpr std::uint32_t kBatch = 12;
    std::vector<std::pair<std::uint32_t, InputFate>> all;
    for (std::uint32_t round = 0; running(); ++round) {
        std::vector<std::pair<std::uint32_t, InputFate>> batch;
        for (std::uint32_t i = 0; i < kBatch; ++i) {
            const std::uint32_t key = worker << 24 | (round * kBatch + i);
            const auto fate = static_cast<InputFate>(i % kFateCount);
            if (uInputEventStart(key, 1, inputCallback) != 0) {
                violation("input", "start of key %#x refused", key);
                continue;
            }
            // A second start only extends: nothing is announced.
            uInputEventStart(key, 1, inputCallback);
            batch.emplace_back(key, fate);
        }
        for (auto [key, fate] : batch) {
            if (fate == kDone) {
                const uInputEventMsg msg{U_INPUT_EVENT_DONE, key};
                uInputEventExecute(&msg);
            } else if (fate == kStopped) {
                uInputEventStop(key);
            } else {
                const uInputEventMsg msg{U_INPUT_EVENT_EXTEND, key};
                uInputEventExecute(&msg);
                std::lock_guard lock(inputLedger.mutex);
                ++inputLedger.timeoutsExpected;
            }
        }
        const bool settled = waitUntil([&] {
            return std::all_of(batch.begin(), batch.end(), [](const auto &entry) {
                return inputSettled(entry.first, entry.second);
            });
        });
        if (!settled) {
            violation("input", "worker %u: a time-out never came", worker);
        }
        for (auto [key, fate] : batch) {
            checkInput(key, fate);
        }
        all.insert(all.end(), batch.begin(), batch.end());
    }
    // Nothing may have come late for the earlier rounds either.
    for (auto [key, fate] : all) {
        checkInput(key, fate);
    }
}

// ---- Interval plans ----------------------------------------------------------------------

struct IntervalInbox {
    std::mutex mutex;
    std::vector<std::pair<std::int32_t, std::int32_t>> calls; // (code, id)
};
std::array<IntervalInbox, 2> intervalInbox;

// One callback per worker, so a late callback of a plan whose id was reused by the other
// worker still lands in the right inbox.
template <int N> void intervalCallback(int32_t code, int32_t id) {
    std::lock_guard lock(intervalInbox[N].mutex);
    intervalInbox[N].calls.emplace_back(code, id);
}

template <int N> bool awaitCalls(std::size_t count) {
    return waitUntil([&] {
        std::lock_guard lock(intervalInbox[N].mutex);
        return intervalInbox[N].calls.size() >= count;
    });
}

template <int N> void intervalWorker(unsigned seed) {
    std::mt19937 rng(seed);
    while (running()) {
        {
            std::lock_guard lock(intervalInbox[N].mutex);
            intervalInbox[N].calls.clear();
        }
        const int variant = static_cast<int>(rng() % 3);
        // 0: two runs, pausing the first while it runs; 1: two runs with a paused and resumed
        // one-second wait between them; 2: deleted while waiting.
        const std::int32_t id =
            uIntervalPlanAdd(variant == 2 ? 3 : 2, variant == 0 ? 0 : 1, intervalCallback<N>);
        if (id < 1) {
            violation("interval", "add refused");
            continue;
        }
        std::vector<std::int32_t> want;
        auto step = [&](std::int32_t result, std::initializer_list<std::int32_t> codes) {
            if (result != 0) {
                violation("interval", "plan %d: operation refused in state after %zu callbacks", id,
                          want.size());
            }
            want.insert(want.end(), codes);
            awaitCalls<N>(want.size());
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
        } else {
            want.push_back(U_INTERVAL_PLAN_STARTED); // the next run, started by the wait's timer
            awaitCalls<N>(want.size());
            step(uIntervalPlanComplete(id), {U_INTERVAL_PLAN_STOPPED});
        }
        // A wait timer that survived the delete would start the plan once more.
        if (variant == 2) {
            std::this_thread::sleep_for(1200ms);
        }
        std::lock_guard lock(intervalInbox[N].mutex);
        std::vector<std::int32_t> got;
        for (auto [code, callId] : intervalInbox[N].calls) {
            got.push_back(callId == id ? code : -100 - callId);
        }
        if (got != want) {
            std::string text;
            for (std::int32_t code : got) {
                text += std::to_string(code) + " ";
            }
            violation("interval", "plan %d (variant %d): callbacks %s", id, variant, text.c_str());
        }
    }
}

// ---- Time plans --------------------------------------------------------------------------

// Starts and ends of one plan must alternate. A plan whose add returned too close to its start
// may have been added inside its period (then it starts silently): it is booked loosely.
struct PlanBook {
    std::atomic<int> starts{0}, ends{0};
    std::atomic<bool> active{false};
    std::atomic<bool> loose{false};
};

void planStarted(void *arg) {
    auto *book = static_cast<PlanBook *>(arg);
    book->starts.fetch_add(1);
    if (book->active.exchange(true) && !book->loose) {
        violation("timeplan", "start callback of a plan that is running");
    }
}

void planEnded(void *arg) {
    auto *book = static_cast<PlanBook *>(arg);
    book->ends.fetch_add(1);
    if (!book->active.exchange(false) && !book->loose) {
        violation("timeplan", "end callback of a plan that is not running");
    }
}

// Never destroyed: a late callback may still write to a book while the process exits.
auto *const planBooks = new std::deque<std::array<PlanBook, 3>>[2];

std::string localText(std::time_t t, const char *format) {
    std::tm local{};
    localtime_r(&t, &local);
    char text[16];
    std::strftime(text, sizeof text, format, &local);
    return text;
}

std::string clockText(std::time_t t) {
    return localText(t, "%H:%M:%S");
}

std::string dateText(std::time_t t) {
    return localText(t, "%Y-%m-%d");
}

// Seconds since local midnight: plans near midnight would cross into the next day.
int secondOfDay(std::time_t t) {
    std::tm local{};
    localtime_r(&t, &local);
    return local.tm_hour * 3600 + local.tm_min * 60 + local.tm_sec;
}

uTimePlanInfo dailyPlan(std::time_t start, std::time_t end, PlanBook *book, char *group) {
    uTimePlanInfo info{};
    std::snprintf(info.startTime, sizeof info.startTime, "%s", clockText(start).c_str());
    std::snprintf(info.endTime, sizeof info.endTime, "%s", clockText(end).c_str());
    info.startCb = planStarted;
    info.startArg = book;
    info.endCb = planEnded;
    info.endArg = book;
    info.repeatType = U_TIME_PLAN_DAILY;
    info.pauseModule = group;
    return info;
}

void timePlanWorker(int worker) {
    std::string groupName = "stressGroup" + std::to_string(worker);
    std::vector<char> group(groupName.begin(), groupName.end());
    group.push_back('\0');
    while (running()) {
        const std::time_t now = std::time(nullptr);
        const int second = secondOfDay(now);
        if (second < 300 || second > 86400 - 300) {
            std::this_thread::sleep_for(1s);
            continue;
        }
        // Plans that start and end by their timers: one start and one end each; periods of a few
        // seconds, so a timer late on a loaded machine still finds its period. The books stay
        // for the whole run, as a late callback of a loosely booked plan still writes to them.
        std::deque<std::array<PlanBook, 3>> &books = planBooks[worker];
        std::array<PlanBook, 3> &timed = books.emplace_back();
        std::array<std::int32_t, 3> timedIds{};
        for (std::size_t i = 0; i < timed.size(); ++i) {
            const std::time_t start = std::time(nullptr) + 3 + static_cast<std::time_t>(i);
            const uTimePlanInfo info = dailyPlan(start, start + 4, &timed[i], nullptr);
            timed[i].loose = true;
            timedIds[i] = uTimePlanAdd(&info);
            if (timedIds[i] < 1) {
                violation("timeplan", "add of a plan at %s refused", info.startTime);
            }
            const std::time_t added = std::time(nullptr);
            timed[i].loose = added >= start - 1;
            if (timed[i].loose) {
                std::fprintf(stderr, "stress: time plan add took until %lds before its start\n",
                             static_cast<long>(start - added));
            }
        }
        // A plan inside its period runs silently; deleting it ends it on this thread.
        PlanBook inside;
        inside.active = true;
        const uTimePlanInfo insideInfo = dailyPlan(now - 30, now + 240, &inside, nullptr);
        const std::int32_t insideId = uTimePlanAdd(&insideInfo);
        std::int32_t status = 0;
        uTimePlanStatusQuery(insideId, &status, nullptr, nullptr);
        if (insideId < 1 || status != 2) {
            violation("timeplan", "plan inside its period: id %d, status %d", insideId, status);
        }
        uTimePlanDel(insideId);
        if (inside.ends != 1 || inside.starts != 0) {
            violation("timeplan", "deleted running plan: %d starts, %d ends", inside.starts.load(),
                      inside.ends.load());
        }
        // A pause of today holds a running plan of its group; its end resumes the plan.
        PlanBook paused;
        paused.active = true;
        const uTimePlanInfo pausedInfo = dailyPlan(now - 30, now + 240, &paused, group.data());
        const std::int32_t pausedId = uTimePlanAdd(&pausedInfo);
        uTimePlanPauseInfo pause{};
        pause.module = group.data();
        std::snprintf(pause.pauseStartTime, sizeof pause.pauseStartTime, "%s",
                      dateText(now).c_str());
        std::snprintf(pause.pauseEndTime, sizeof pause.pauseEndTime, "%s",
                      dateText(now + 86400).c_str());
        const std::int32_t pauseId = uTimePlanPauseAdd(&pause);
        if (pausedId < 1 || pauseId < 1 || paused.ends != 1) {
            violation("timeplan", "pause of a running plan: plan %d, pause %d, %d ends", pausedId,
                      pauseId, paused.ends.load());
        }
        uTimePlanPauseInfo undo{};
        undo.module = group.data();
        undo.pauseId = pauseId;
        uTimePlanPauseDel(&undo);
        uTimePlanDel(pausedId);
        if (paused.active || paused.ends != paused.starts + 1) {
            violation("timeplan", "paused plan: %d starts, %d ends", paused.starts.load(),
                      paused.ends.load());
        }
        waitUntil([&] {
            return std::all_of(timed.begin(), timed.end(),
                               [](const PlanBook &b) { return b.loose || b.ends.load() > 0; });
        });
        for (std::size_t i = 0; i < timed.size(); ++i) {
            const PlanBook &book = timed[i];
            if (!book.loose && (book.starts != 1 || book.ends != 1)) {
                std::int32_t state = 0;
                std::time_t next = 0;
                uTimePlanStatusQuery(timedIds[i], &state, &next, nullptr);
                violation("timeplan",
                          "timed plan %d: %d starts, %d ends; status %d, next start in %ld s",
                          timedIds[i], book.starts.load(), book.ends.load(), state,
                          static_cast<long>(next - std::time(nullptr)));
            }
            uTimePlanDel(timedIds[i]);
        }
    }
}

// ---- XML suspend and resume --------------------------------------------------------------

struct XmlRun {
    int items = 0;
    int suspends = 0;
    bool suspendedNow = false;
    bool finished = false;
    int stopAt = -1;
    std::size_t textBytes = 0;
};

void xmlStart(void *user, const char *name, const char **attributes) {
    auto *run = static_cast<XmlRun *>(user);
    if (std::strcmp(name, "item") != 0) {
        return;
    }
    const int n = std::atoi(attributes[1]);
    if (n != run->items) {
        violation("xml", "item %d came as number %d", n, run->items);
    }
    ++run->items;
    if (n == run->stopAt) {
        uXmlParserStop(user);
    } else if (n % 7 == 3) {
        if (uXmlParserPause(user, 1) != 1) {
            violation("xml", "suspend from the handler refused at item %d", n);
        }
        ++run->suspends;
        run->suspendedNow = true;
    }
}

void xmlText(void *user, const char *, int length) {
    static_cast<XmlRun *>(user)->textBytes += static_cast<std::size_t>(length);
}

void xmlEnd(void *user, const char *name) {
    if (std::strcmp(name, "root") == 0) {
        static_cast<XmlRun *>(user)->finished = true;
    }
}

void xmlWorker(unsigned seed) {
    std::mt19937 rng(seed);
    while (running()) {
        const int count = 1 + static_cast<int>(rng() % 60);
        std::string doc = "<root>";
        for (int i = 0; i < count; ++i) {
            doc += "<item n='" + std::to_string(i) + "'>a&b</item>";
        }
        doc += "</root>";
        XmlRun run;
        run.stopAt = rng() % 4 == 0 ? static_cast<int>(rng() % static_cast<unsigned>(count)) : -1;
        std::int32_t result = uXmlParseFromBuf(doc.c_str(), "", &run, xmlStart, xmlText, xmlEnd);
        // Only the owner resumes, and only after the parse came back suspended.
        while (result == 0 && run.suspendedNow && !run.finished) {
            run.suspendedNow = false;
            result = uXmlParserPause(&run, 0);
        }
        const bool stopped = run.stopAt >= 0;
        const int wantItems = stopped ? run.stopAt + 1 : count;
        if (result != (stopped ? -1 : 0) || run.items != wantItems || run.finished == stopped) {
            violation("xml", "%d items, stop at %d: result %d, %d items seen, finished %d", count,
                      run.stopAt, result, run.items, static_cast<int>(run.finished));
        }
        if (!stopped && run.textBytes != 3U * static_cast<unsigned>(count)) {
            violation("xml", "%zu bytes of text for %d items", run.textBytes, count);
        }
    }
}

// ---- Block pool and locked list ----------------------------------------------------------

constexpr std::uint32_t kPoolBlocks = 64;
constexpr std::uint32_t kBlockSize = 32;
uBm pool;
std::vector<unsigned char> poolMemory(U_BM_HEAP_SIZE(kPoolBlocks, kBlockSize));
uList *sharedList = nullptr;

int poolFree() {
    std::vector<void *> blocks;
    for (void *block; (block = uBmAlloc(&pool)) != nullptr;) {
        blocks.push_back(block);
    }
    for (void *block : blocks) {
        uBmFree(block);
    }
    return static_cast<int>(blocks.size());
}

// Elements of the shared list, each flagged while it is in the list. Any worker may remove
// any element, so a flag found clear on removal means the list handed an element out twice.
std::array<unsigned char, 16> listElements{};
std::array<std::atomic<bool>, 16> inList{};

void poolWorker(unsigned char mark, std::size_t firstElement) {
    while (running()) {
        std::array<void *, 8> blocks{};
        for (void *&block : blocks) {
            block = uBmAlloc(&pool);
            if (block != nullptr) {
                std::memset(block, mark, kBlockSize);
            }
        }
        for (std::size_t i = firstElement; i < firstElement + 8; ++i) {
            if (!inList[i].load()) {
                inList[i] = true;
                if (uListAppend(sharedList, &listElements[i]) < 0) {
                    violation("list", "append failed");
                }
            }
        }
        std::this_thread::yield();
        for (void *block : blocks) {
            if (block == nullptr) {
                continue;
            }
            const auto *bytes = static_cast<const unsigned char *>(block);
            if (std::any_of(bytes, bytes + kBlockSize,
                            [&](unsigned char b) { return b != mark; })) {
                violation("pool", "a block was handed out twice");
            }
            uBmFree(block);
        }
        for (int i = 0; i < 8; ++i) {
            auto *element = static_cast<unsigned char *>(uListRemove(sharedList, 0));
            if (element != nullptr && !inList[element - listElements.data()].exchange(false)) {
                violation("list", "an element was removed twice");
            }
        }
    }
}

// Entries still in the list must be exactly the flagged ones; the list is emptied.
void checkListAndEmpty() {
    const auto flagged = std::count_if(inList.begin(), inList.end(),
                                       [](const std::atomic<bool> &f) { return f.load(); });
    if (uListSize(sharedList) != flagged) {
        violation("list", "%d entries for %d elements added and not removed", uListSize(sharedList),
                  static_cast<int>(flagged));
    }
    while (uListRemove(sharedList, 0) != nullptr) {
    }
}

} // namespace

int main(int argc, char **argv) {
    const long seconds = argc > 1 ? std::strtol(argv[1], nullptr, 10) : 0;
    if (seconds < 1) {
        std::fprintf(stderr, "usage: %s <seconds>\n", argv[0]);
        return 2;
    }
    // The library's own lines are counted, not shown, unless STRESS_LOG is set.
    platformSimSetLogSink(logSink, nullptr, std::getenv("STRESS_LOG") == nullptr ? 1 : 0);
    uTimerInit(300);
    uEventInit();
    uTimePlanInit();
    uIntervalPlanInit();
    uInputEventInit();
    uAsyncCall([](void *) {}, nullptr);
    uBmInitHeap(&pool, kPoolBlocks, kBlockSize, poolMemory.data());
    sharedList = uListInit(1);

    const int timersAtStart = timerCapacity();
    const int planIdsAtStart = freeIds("timePlanIdName");
    const int intervalIdsAtStart = freeIds("intervalPlanIdName");
    const int blocksAtStart = poolFree();
    if (uEventCare(kSharedEvent, permanentCarer, nullptr) != 1 ||
        uEventCare(U_INPUT_EVENT_NAME, inputAnnounced, nullptr) != 1) {
        violation("event", "care refused at start");
    }

    endOfRun = Clock::now() + std::chrono::seconds(seconds);
    std::vector<std::thread> threads;
    threads.emplace_back(timerWorker, 1U);
    threads.emplace_back(timerWorker, 2U);
    threads.emplace_back(busWorker<0>);
    threads.emplace_back(busWorker<1>);
    threads.emplace_back(inputWorker, 1U);
    threads.emplace_back(inputWorker, 2U);
    threads.emplace_back(intervalWorker<0>, 3U);
    threads.emplace_back(intervalWorker<1>, 4U);
    threads.emplace_back(timePlanWorker, 0);
    threads.emplace_back(timePlanWorker, 1);
    threads.emplace_back(xmlWorker, 5U);
    threads.emplace_back(xmlWorker, 6U);
    threads.emplace_back(poolWorker, static_cast<unsigned char>(0xA5), 0U);
    threads.emplace_back(poolWorker, static_cast<unsigned char>(0x5A), 8U);
    for (std::thread &thread : threads) {
        thread.join();
    }
    // Late callbacks (a deleted timer handed on just before) have time to come.
    std::this_thread::sleep_for(2s);

    const auto expectSame = [](const char *what, int before, int after) {
        if (before != after) {
            violation("pool", "%s: %d at the start, %d at the end", what, before, after);
        }
    };
    expectSame("free timer records", timersAtStart, timerCapacity());
    expectSame("free time plan ids", planIdsAtStart, freeIds("timePlanIdName"));
    expectSame("free interval plan ids", intervalIdsAtStart, freeIds("intervalPlanIdName"));
    expectSame("free blocks", blocksAtStart, poolFree());
    checkListAndEmpty();
    if (uListUninit(sharedList) != 0) {
        violation("list", "the emptied list cannot be released");
    }
    int probe = 0;
    if (uXmlParserPause(&probe, 0) != -1) {
        violation("xml", "a parse is still live after every worker finished");
    }
    {
        std::lock_guard lock(inputLedger.mutex);
        if (inputLedger.timeoutCallbacks != inputLedger.timeoutsExpected) {
            violation("input", "%ld time-out callbacks for %ld time-outs",
                      inputLedger.timeoutCallbacks, inputLedger.timeoutsExpected);
        }
    }
    {
        std::scoped_lock lock(timerLedger.mutex, inputLedger.mutex);
        std::fprintf(
            stderr,
            "stress: %ld s, %zu timers, %zu input events; log lines by level %ld/%ld/%ld/%ld\n",
            seconds, timerLedger.fired.size(), inputLedger.books.size(), logLines[0].load(),
            logLines[1].load(), logLines[2].load(), logLines[3].load());
    }
    platformSimSetLogSink(nullptr, nullptr, 0);
    if (violations > 0) {
        std::fprintf(stderr, "stress: %d violation(s)\n", violations.load());
        return 1;
    }
    std::fprintf(stderr, "stress: no violation\n");
    return 0;
}
