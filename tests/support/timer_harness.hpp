// SPDX-License-Identifier: MIT
// Shared set-up of the timer suites: the timer service on the simulated clock, a recorder for
// fired callbacks and events, and a wall clock the tests can set.
//
// The service is a process-wide singleton that is never torn down, so every test deletes the
// timers it adds (Timers does it on destruction) and never assumes a fresh task state.
#pragma once

#include <platform_sim.h>
#include <platform_utils.h>

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <atomic>
#include <condition_variable>
#include <cstdint>
#include <ctime>
#include <map>
#include <mutex>
#include <string>
#include <vector>

namespace pu::test {

// Pool size the suites start the service with.
inline constexpr std::int32_t kTestPoolBlocks = 1000;

// Starts the service once per process in manual mode and returns its power-manager handle.
int timerPowerHandle();

// Advances the simulated up-time by ms, fires one heartbeat and waits for the pass and the
// callbacks it queued.
void advance(std::uint32_t ms);

// The current simulated up-time.
struct UpTime {
    std::uint32_t seconds;
    std::uint32_t microseconds;
};
UpTime upTimeNow();

// Sets the calendar time time() returns (0: the real clock again).
void setWallClock(std::time_t now);

// Timer arguments are small tags; the recorder keeps the tags of fired callbacks in the order
// their callbacks ran, and the name of the thread each ran on.
class Recorder {
  public:
    static Recorder &instance();
    static void callback(void *arg);

    void reset();
    std::vector<std::uintptr_t> fired() const;
    int count(std::uintptr_t tag) const;
    std::vector<std::string> threadNames() const;

  private:
    mutable std::mutex mutex_;
    std::vector<std::uintptr_t> fired_;
    std::vector<std::string> threads_;
};

inline void *tag(std::uintptr_t value) {
    return reinterpret_cast<void *>(value);
}

// Timers of one test, deleted when it ends (deleting a fired timer does nothing).
class Timers {
  public:
    Timers() = default;
    Timers(const Timers &) = delete;
    Timers &operator=(const Timers &) = delete;
    ~Timers();

    std::uint32_t add(std::int64_t delayMs, std::uintptr_t value, std::uint32_t options = 0);
    std::uint32_t keep(std::uint32_t id); // tracks an id added some other way
    void clear();

  private:
    std::vector<std::uint32_t> ids_;
};

// Counts raises of one event, with the data and length of the last one. All counters share one
// callback, and the bus keeps one registration per callback: one counter per event at a time.
class EventCounter {
  public:
    explicit EventCounter(const char *name);
    ~EventCounter();
    EventCounter(const EventCounter &) = delete;
    EventCounter &operator=(const EventCounter &) = delete;

    int count() const { return count_.load(); }
    std::uintptr_t lastData() const { return lastData_.load(); }
    std::uint32_t lastLength() const { return lastLength_.load(); }

  private:
    static void onEvent(const char *name, void *self, void *data, std::uint32_t length);
    std::string name_;
    std::atomic<int> count_{0};
    std::atomic<std::uintptr_t> lastData_{0};
    std::atomic<std::uint32_t> lastLength_{0};
};

// Gtest fixture: starts the service and clears the recorder.
class TimerTest : public ::testing::Test {
  protected:
    void SetUp() override {
        handle_ = timerPowerHandle();
        Recorder::instance().reset();
    }
    int handle_ = -1;
};

} // namespace pu::test
