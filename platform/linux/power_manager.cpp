// Emulated power manager: registered applications, their recorded wake-up timers and active
// counts, and the heartbeat thread that calls every application's heartbeat function.
#include "platform_internal.hpp"

#include <platform_sim.h>

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

    // Lets the simulation stop real heartbeats and know that none is still running.
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

void copyHeartbeats(std::vector<PLATFORM_HEARTBEAT_FN> &out) {
    PowerManager &manager = powerManager();
    std::lock_guard lock(manager.mutex);
    out.clear();
    for (const App &app : manager.apps) {
        out.push_back(app.heartbeat);
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
    std::vector<PLATFORM_HEARTBEAT_FN> heartbeats; // reused: no allocation per beat
    timespec next{};
    clock_gettime(CLOCK_MONOTONIC, &next);
    for (;;) {
        sleepUntilNextBeat(next, periodMs);
        if (!beginRealPass()) {
            continue;
        }
        guarded(0, [&] {
            copyHeartbeats(heartbeats);
            return 0;
        });
        for (PLATFORM_HEARTBEAT_FN heartbeat : heartbeats) {
            heartbeat();
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

} // namespace

void callHeartbeats() {
    std::vector<PLATFORM_HEARTBEAT_FN> heartbeats;
    copyHeartbeats(heartbeats);
    for (PLATFORM_HEARTBEAT_FN heartbeat : heartbeats) {
        heartbeat();
    }
}

void pauseRealHeartbeats(bool paused) {
    PowerManager &manager = powerManager();
    std::unique_lock lock(manager.passMutex);
    manager.paused = paused;
    if (paused && !onHeartbeatThread) {
        manager.passEnded.wait(lock, [&] { return !manager.passRunning; });
    }
}

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

int64_t platformSimWakeUpDelay(int handle) {
    return readApp(handle, int64_t{-1}, [](const App &app) { return app.wakeUpDelay; });
}

uint32_t platformSimWakeUpArmCount(int handle) {
    return readApp(handle, uint32_t{0}, [](const App &app) { return app.wakeUpArms; });
}

uint32_t platformSimWakeUpCancelCount(int handle) {
    return readApp(handle, uint32_t{0}, [](const App &app) { return app.wakeUpCancels; });
}

int platformSimActiveAppCount(int handle) {
    return readApp(handle, 0, [](const App &app) { return app.activeCount; });
}

int platformSimActiveAppPeak(int handle) {
    return readApp(handle, 0, [](const App &app) { return app.activePeak; });
}
