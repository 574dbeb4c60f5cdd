// SPDX-License-Identifier: MIT
// Emulated power manager: registered applications, their recorded wake-up timers and active
// counts, the heartbeat thread that calls every application's heartbeat function, and beats on
// demand that wait for the passes they trigger.
#include "platform_internal.hpp"

#include <algorithm>
#include <cerrno>
#include <condition_variable>
#include <ctime>
#include <mutex>
#include <string>
#include <vector>

namespace pu::platform {
namespace {

constexpr long kDefaultHeartbeatMs = 10;
constexpr long kMaxHeartbeatMs = 60'000;

struct App {
    std::string name;
    PLATFORM_HEARTBEAT_FN heartbeat = nullptr;
    PLATFORM_PASS_BEGIN_FN passBegin = nullptr;
    PLATFORM_PASS_WAIT_FN passWait = nullptr;
    std::int64_t wakeUpDelay = -1; // -1: none armed
    std::uint32_t wakeUpArms = 0;
    std::uint32_t wakeUpCancels = 0;
    int activeCount = 0;
    int activePeak = 0;
};

struct PowerManager {
    std::mutex mutex; // guards apps and threadStarted
    std::vector<App> apps;
    bool threadStarted = false;

    // Lets osaSmPauseHeartbeats stop the thread's beats and know that none is still running.
    std::mutex passMutex;
    std::condition_variable passEnded;
    bool paused = false;
    bool passRunning = false;
};

PowerManager &powerManager() {
    static auto &manager = *new PowerManager;
    return manager;
}

thread_local bool onHeartbeatThread = false;

App *findApp(PowerManager &manager, int handle) {
    if (handle < 1 || static_cast<std::size_t>(handle) > manager.apps.size()) {
        return nullptr;
    }
    return &manager.apps[static_cast<std::size_t>(handle) - 1];
}

// What one beat calls for an application; copied out so that no lock is held during the calls.
struct Beat {
    PLATFORM_HEARTBEAT_FN heartbeat;
    PLATFORM_PASS_BEGIN_FN passBegin;
    PLATFORM_PASS_WAIT_FN passWait;
};

void copyBeats(std::vector<Beat> &out) {
    PowerManager &manager = powerManager();
    std::lock_guard lock(manager.mutex);
    out.clear();
    for (const App &app : manager.apps) {
        out.push_back({app.heartbeat, app.passBegin, app.passWait});
    }
}

long heartbeatPeriodMs() {
    return readEnvInteger("PLATFORM_HEARTBEAT_MS", kDefaultHeartbeatMs, 1, kMaxHeartbeatMs);
}

void addMs(timespec &when, long ms) noexcept {
    long ns = when.tv_nsec + ms % 1000 * 1'000'000;
    when.tv_sec += ms / 1000 + ns / 1'000'000'000;
    when.tv_nsec = ns % 1'000'000'000;
}

bool isBefore(const timespec &a, const timespec &b) noexcept {
    return a.tv_sec < b.tv_sec || (a.tv_sec == b.tv_sec && a.tv_nsec < b.tv_nsec);
}

// Sleeps until the next beat. After a long stall the schedule restarts from now instead of
// firing the missed beats in a burst.
void sleepUntilNextBeat(timespec &next, long periodMs) {
    addMs(next, periodMs);
    timespec now{};
    clock_gettime(CLOCK_MONOTONIC, &now);
    if (isBefore(next, now)) {
        next = now;
        return;
    }
    while (clock_nanosleep(CLOCK_MONOTONIC, TIMER_ABSTIME, &next, nullptr) == EINTR) {
    }
}

bool beginRealPass() {
    PowerManager &manager = powerManager();
    std::lock_guard lock(manager.passMutex);
    if (manager.paused) {
        return false;
    }
    manager.passRunning = true;
    return true;
}

void endRealPass() {
    PowerManager &manager = powerManager();
    std::lock_guard lock(manager.passMutex);
    manager.passRunning = false;
    manager.passEnded.notify_all();
}

void runHeartbeatThread(void *) {
    onHeartbeatThread = true;
    long periodMs = heartbeatPeriodMs();
    std::vector<Beat> beats; // reused: no allocation per beat
    timespec next{};
    clock_gettime(CLOCK_MONOTONIC, &next);
    for (;;) {
        sleepUntilNextBeat(next, periodMs);
        if (!beginRealPass()) {
            continue;
        }
        guarded(0, [&] {
            copyBeats(beats);
            return 0;
        });
        for (const Beat &beat : beats) {
            beat.heartbeat();
        }
        endRealPass();
    }
}

// Caller holds manager.mutex.
bool ensureHeartbeatThread(PowerManager &manager) {
    if (!manager.threadStarted) {
        manager.threadStarted = startDetachedThread("tHeartbeat", 0, runHeartbeatThread, nullptr);
    }
    return manager.threadStarted;
}

int registerApp(const char *name, PLATFORM_HEARTBEAT_FN heartbeat) {
    if (heartbeat == nullptr) {
        return -1;
    }
    PowerManager &manager = powerManager();
    std::lock_guard lock(manager.mutex);
    App app;
    app.name = name != nullptr ? name : "";
    app.heartbeat = heartbeat;
    manager.apps.push_back(std::move(app));
    if (!ensureHeartbeatThread(manager)) {
        manager.apps.pop_back();
        return -1;
    }
    return static_cast<int>(manager.apps.size());
}

// Applies change to the handle's record under the lock. Returns false for an unknown handle.
template <typename Change> bool updateApp(int handle, Change change) {
    PowerManager &manager = powerManager();
    std::lock_guard lock(manager.mutex);
    App *app = findApp(manager, handle);
    if (app == nullptr) {
        return false;
    }
    change(*app);
    return true;
}

// Reads from the handle's record under the lock; fallback for an unknown handle.
template <typename Result, typename Read> Result readApp(int handle, Result fallback, Read read) {
    return guarded(fallback, [&] {
        PowerManager &manager = powerManager();
        std::lock_guard lock(manager.mutex);
        const App *app = findApp(manager, handle);
        return app == nullptr ? fallback : read(*app);
    });
}

// One beat on the calling thread: every observer's begin, every heartbeat, then every wait.
void beatNow() {
    std::vector<Beat> beats;
    copyBeats(beats);
    std::vector<std::uint64_t> tokens(beats.size());
    for (std::size_t i = 0; i < beats.size(); ++i) {
        if (beats[i].passBegin != nullptr) {
            tokens[i] = beats[i].passBegin();
        }
    }
    for (const Beat &beat : beats) {
        beat.heartbeat();
    }
    for (std::size_t i = 0; i < beats.size(); ++i) {
        if (beats[i].passWait != nullptr) {
            beats[i].passWait(tokens[i]);
        }
    }
}

void pauseHeartbeats(bool paused) {
    PowerManager &manager = powerManager();
    std::unique_lock lock(manager.passMutex);
    manager.paused = paused;
    if (paused && !onHeartbeatThread) {
        manager.passEnded.wait(lock, [&] { return !manager.passRunning; });
    }
}

} // namespace
} // namespace pu::platform

using namespace pu::platform;

int osaSmRegisterApp(const char *name, PLATFORM_HEARTBEAT_FN heartbeat) {
    int handle = guarded(-1, [&] { return registerApp(name, heartbeat); });
    if (handle > 0) {
        basaltPrintLog(PLATFORM_LOG_DEBUG, kLogModule, "osaSmRegisterApp: app %d \"%s\" registered",
                       handle, name != nullptr ? name : "");
    }
    return handle;
}

int osaSmAddActiveApp(int handle, int count) {
    int active = 0;
    bool known = guarded(false, [&] {
        return updateApp(handle, [&](App &app) {
            app.activeCount += count;
            app.activePeak = std::max(app.activePeak, app.activeCount);
            active = app.activeCount;
        });
    });
    if (!known) {
        return -1;
    }
    basaltPrintLog(PLATFORM_LOG_DEBUG, kLogModule, "osaSmAddActiveApp: app %d active count %d",
                   handle, active);
    return 0;
}

int osaSmDelActiveApp(int handle) {
    int active = 0;
    bool known = guarded(
        false, [&] { return updateApp(handle, [&](App &app) { active = --app.activeCount; }); });
    if (!known) {
        return -1;
    }
    basaltPrintLog(PLATFORM_LOG_DEBUG, kLogModule, "osaSmDelActiveApp: app %d active count %d",
                   handle, active);
    return 0;
}

int osaSmAddWakeUpTimer(int handle, uint32_t ms) {
    bool known = guarded(false, [&] {
        return updateApp(handle, [&](App &app) {
            app.wakeUpDelay = ms;
            ++app.wakeUpArms;
        });
    });
    if (!known) {
        return -1;
    }
    basaltPrintLog(PLATFORM_LOG_DEBUG, kLogModule, "osaSmAddWakeUpTimer: app %d wake-up in %u ms",
                   handle, ms);
    return 0;
}

int osaSmDelWakeUpTimer(int handle) {
    bool known = guarded(false, [&] {
        return updateApp(handle, [&](App &app) {
            app.wakeUpDelay = -1;
            ++app.wakeUpCancels;
        });
    });
    if (!known) {
        return -1;
    }
    basaltPrintLog(PLATFORM_LOG_DEBUG, kLogModule, "osaSmDelWakeUpTimer: app %d wake-up cancelled",
                   handle);
    return 0;
}

int osaSmGetAppState(int handle, PLATFORM_SM_APP_STATE *state) {
    if (state == nullptr) {
        return -1;
    }
    return readApp(handle, -1, [&](const App &app) {
        state->wakeUpDelayMs = app.wakeUpDelay;
        state->wakeUpArms = app.wakeUpArms;
        state->wakeUpCancels = app.wakeUpCancels;
        state->activeCount = app.activeCount;
        state->activePeak = app.activePeak;
        return 0;
    });
}

void osaSmPauseHeartbeats(int paused) {
    guarded(0, [&] {
        pauseHeartbeats(paused != 0);
        return 0;
    });
}

int osaSmSetPassObserver(int handle, PLATFORM_PASS_BEGIN_FN begin, PLATFORM_PASS_WAIT_FN wait) {
    if ((begin == nullptr) != (wait == nullptr)) {
        return -1; // a token nobody waits for, or a wait with no token
    }
    bool known = guarded(false, [&] {
        return updateApp(handle, [&](App &app) {
            app.passBegin = begin;
            app.passWait = wait;
        });
    });
    return known ? 0 : -1;
}

void osaSmHeartbeat(void) {
    guarded(0, [] {
        beatNow();
        return 0;
    });
}
