// SPDX-License-Identifier: MIT
// The timer service and the event bus, side by side with references in the same run:
//   - uTimerAdd + uTimerDel with 300 and 3,000 live timers (delays spread over minutes), against
//     libuv's timer heap and a std::multimap; the list is linear by design, the others are not;
//   - one uTimerRun pass that expires 100 timers, against one libuv loop iteration that runs 100
//     due timers;
//   - how late callbacks run at the real heartbeat with 1,000 live timers, against the same load
//     on a libuv loop;
//   - uEventRaise with 1 and 8 carers against calling the same functions directly.
// After the runs a summary gives the growth from 300 to 3,000 timers and the ratios.
#include <platform_os.h>
#include <platform_sim.h>
#include <platform_utils.h>

#include <benchmark/benchmark.h>
#include <uv.h>

#include "support/times_reporter.hpp"

#include <algorithm>
#include <atomic>
#include <chrono>
#include <cstdio>
#include <map>
#include <memory>
#include <mutex>
#include <random>
#include <string>
#include <thread>
#include <utility>
#include <vector>

namespace {

using Clock = std::chrono::steady_clock;

constexpr std::int32_t kPoolBlocks = 32000;
constexpr std::int64_t kMinuteMs = 60 * 1000;

void noop(void *) {}

// Delays spread over one to ten minutes, the same sequence for every contender.
const std::vector<std::int64_t> &spreadDelays() {
    static const std::vector<std::int64_t> delays = [] {
        std::mt19937 random(42);
        std::uniform_int_distribution<std::int64_t> pick(kMinuteMs, 10 * kMinuteMs);
        std::vector<std::int64_t> made(4096);
        for (auto &delay : made) {
            delay = pick(random);
        }
        return made;
    }();
    return delays;
}

// The service runs on the simulated clock with manual heartbeats, so nothing expires behind
// the measurement's back.
void startTimersQuietly() {
    static const bool started = [] {
        platformSimSetManual(1);
        uTimerInit(kPoolBlocks);
        return true;
    }();
    (void)started;
}

// ---- Add + delete -------------------------------------------------------------------------

void BM_AddDel_ours(benchmark::State &state) {
    startTimersQuietly();
    const auto &delays = spreadDelays();
    std::vector<std::uint32_t> live;
    for (std::int64_t i = 0; i < state.range(0); ++i) {
        live.push_back(uTimerAdd(noop, nullptr, delays[i % delays.size()]));
    }
    std::size_t next = 0;
    for (auto _ : state) {
        const std::uint32_t id = uTimerAdd(noop, nullptr, delays[next++ % delays.size()]);
        uTimerDel(id);
    }
    for (std::uint32_t id : live) {
        uTimerDel(id);
    }
}

void uvNoop(uv_timer_t *) {}

void BM_AddDel_libuv(benchmark::State &state) {
    const auto &delays = spreadDelays();
    uv_loop_t loop;
    uv_loop_init(&loop);
    std::vector<uv_timer_t> live(static_cast<std::size_t>(state.range(0)));
    for (std::size_t i = 0; i < live.size(); ++i) {
        uv_timer_init(&loop, &live[i]);
        uv_timer_start(&live[i], uvNoop, static_cast<std::uint64_t>(delays[i % delays.size()]), 0);
    }
    uv_timer_t probe;
    uv_timer_init(&loop, &probe);
    std::size_t next = 0;
    for (auto _ : state) {
        uv_timer_start(&probe, uvNoop, static_cast<std::uint64_t>(delays[next++ % delays.size()]),
                       0);
        uv_timer_stop(&probe);
    }
    for (auto &timer : live) {
        uv_close(reinterpret_cast<uv_handle_t *>(&timer), nullptr);
    }
    uv_close(reinterpret_cast<uv_handle_t *>(&probe), nullptr);
    uv_run(&loop, UV_RUN_DEFAULT);
    uv_loop_close(&loop);
}

void BM_AddDel_multimap(benchmark::State &state) {
    const auto &delays = spreadDelays();
    std::multimap<std::int64_t, void *> live;
    for (std::int64_t i = 0; i < state.range(0); ++i) {
        live.emplace(delays[i % delays.size()], nullptr);
    }
    std::size_t next = 0;
    for (auto _ : state) {
        auto at = live.emplace(delays[next++ % delays.size()], nullptr);
        live.erase(at);
    }
}

BENCHMARK(BM_AddDel_ours)->Arg(300)->Arg(3000)->Arg(30000);
BENCHMARK(BM_AddDel_libuv)->Arg(300)->Arg(3000)->Arg(30000);
BENCHMARK(BM_AddDel_multimap)->Arg(300)->Arg(3000)->Arg(30000);

// ---- One pass expiring 100 timers -----------------------------------------------------------

constexpr int kExpiring = 100;

// Argument 1: the timers have callbacks, handed to the pool as the pass expires them (the
// reference runs its callbacks inline); 0: no callbacks, the list work alone.
void BM_Pass100_ours(benchmark::State &state) {
    startTimersQuietly();
    const uTimerCallback callback = state.range(0) != 0 ? noop : nullptr;
    // 300 bystanders that never come due during the run.
    std::vector<std::uint32_t> bystanders;
    for (int i = 0; i < 300; ++i) {
        bystanders.push_back(uTimerAdd(noop, nullptr, 1'000'000'000 + i));
    }
    for (auto _ : state) {
        state.PauseTiming();
        for (int i = 0; i < kExpiring; ++i) {
            uTimerAdd(callback, nullptr, 1 + (i * 37) % kExpiring);
        }
        state.ResumeTiming();
        uTimerRun(kExpiring);
        state.PauseTiming();
        platformSimWaitPoolsIdle(); // the 100 callbacks, off the clock
        state.ResumeTiming();
    }
    for (std::uint32_t id : bystanders) {
        uTimerDel(id);
    }
}

void BM_Pass100_libuv(benchmark::State &state) {
    uv_loop_t loop;
    uv_loop_init(&loop);
    std::vector<uv_timer_t> bystanders(300);
    for (std::size_t i = 0; i < bystanders.size(); ++i) {
        uv_timer_init(&loop, &bystanders[i]);
        uv_timer_start(&bystanders[i], uvNoop, 1'000'000'000 + i, 0);
    }
    std::vector<uv_timer_t> due(kExpiring);
    for (auto &timer : due) {
        uv_timer_init(&loop, &timer);
    }
    for (auto _ : state) {
        state.PauseTiming();
        for (auto &timer : due) {
            uv_timer_start(&timer, uvNoop, 0, 0);
        }
        state.ResumeTiming();
        uv_run(&loop, UV_RUN_NOWAIT);
    }
    for (auto &timer : bystanders) {
        uv_close(reinterpret_cast<uv_handle_t *>(&timer), nullptr);
    }
    for (auto &timer : due) {
        uv_close(reinterpret_cast<uv_handle_t *>(&timer), nullptr);
    }
    uv_run(&loop, UV_RUN_DEFAULT);
    uv_loop_close(&loop);
}

BENCHMARK(BM_Pass100_ours)->Arg(1)->Arg(0);
BENCHMARK(BM_Pass100_libuv);

// ---- Lateness at the real heartbeat -------------------------------------------------------

constexpr int kLiveTimers = 1000;
constexpr auto kRunFor = std::chrono::seconds(3);

// Collects how late each callback ran after its due time, in microseconds (negative: early).
class Lateness {
  public:
    void add(Clock::time_point due, Clock::time_point ran) {
        const auto us = std::chrono::duration_cast<std::chrono::microseconds>(ran - due).count();
        std::lock_guard lock(mutex_);
        samples_.push_back(us);
    }

    void report(benchmark::State &state) {
        std::lock_guard lock(mutex_);
        if (samples_.empty()) {
            state.SkipWithError("no callback ran");
            return;
        }
        std::sort(samples_.begin(), samples_.end());
        auto at = [&](double fraction) {
            const auto index = static_cast<std::size_t>(fraction * (samples_.size() - 1));
            return static_cast<double>(samples_[index]) / 1000.0;
        };
        state.counters["samples"] = static_cast<double>(samples_.size());
        state.counters["min_ms"] = at(0.0);
        state.counters["p50_ms"] = at(0.5);
        state.counters["p99_ms"] = at(0.99);
        state.counters["max_ms"] = at(1.0);
    }

  private:
    std::mutex mutex_;
    std::vector<std::int64_t> samples_;
};

std::int64_t randomDelayMs(std::mt19937 &random) {
    return std::uniform_int_distribution<std::int64_t>(20, 500)(random);
}

struct OurProbe {
    Lateness *lateness;
    std::atomic<bool> *running;
    std::mt19937 random;
    Clock::time_point due;
    std::atomic<std::uint32_t> id{0};
};

void ourProbeFired(void *arg) {
    auto *probe = static_cast<OurProbe *>(arg);
    const Clock::time_point ran = Clock::now();
    probe->lateness->add(probe->due, ran);
    if (probe->running->load()) {
        const std::int64_t delay = randomDelayMs(probe->random);
        probe->due = Clock::now() + std::chrono::milliseconds(delay);
        probe->id.store(uTimerAdd(ourProbeFired, probe, delay));
    }
}

std::pair<std::uint32_t, std::uint32_t> realUpTime() {
    timespec now{};
    clock_gettime(CLOCK_BOOTTIME, &now);
    return {static_cast<std::uint32_t>(now.tv_sec), static_cast<std::uint32_t>(now.tv_nsec / 1000)};
}

void BM_Lateness_ours(benchmark::State &state) {
    startTimersQuietly();
    // To the real heartbeat, without the switch looking like a jump of the up-time.
    const auto [seconds, microseconds] = realUpTime();
    platformSimSetUpTime(seconds, microseconds);
    platformSimHeartbeat();
    platformSimSetManual(0);
    for (auto _ : state) {
        Lateness lateness;
        std::atomic<bool> running{true};
        std::vector<std::unique_ptr<OurProbe>> probes;
        for (int i = 0; i < kLiveTimers; ++i) {
            auto probe = std::make_unique<OurProbe>();
            probe->lateness = &lateness;
            probe->running = &running;
            probe->random.seed(static_cast<unsigned>(i));
            const std::int64_t delay = randomDelayMs(probe->random);
            probe->due = Clock::now() + std::chrono::milliseconds(delay);
            probe->id.store(uTimerAdd(ourProbeFired, probe.get(), delay));
            probes.push_back(std::move(probe));
        }
        std::this_thread::sleep_for(kRunFor);
        running.store(false);
        platformSimWaitPoolsIdle();
        for (auto &probe : probes) {
            uTimerDel(probe->id.load());
        }
        platformSimWaitPoolsIdle();
        lateness.report(state);
    }
    const auto [aheadSeconds, aheadMicroseconds] = realUpTime();
    platformSimSetUpTime(aheadSeconds + 1, aheadMicroseconds);
    platformSimSetManual(1);
    platformSimHeartbeat();
}

struct UvProbe {
    uv_timer_t timer;
    Lateness *lateness;
    std::mt19937 random;
    Clock::time_point due;
};

void uvProbeFired(uv_timer_t *timer) {
    auto *probe = static_cast<UvProbe *>(timer->data);
    probe->lateness->add(probe->due, Clock::now());
    const std::int64_t delay = randomDelayMs(probe->random);
    probe->due = Clock::now() + std::chrono::milliseconds(delay);
    uv_timer_start(&probe->timer, uvProbeFired, static_cast<std::uint64_t>(delay), 0);
}

void uvStopLoop(uv_timer_t *timer) {
    uv_stop(timer->loop);
}

void BM_Lateness_libuv(benchmark::State &state) {
    for (auto _ : state) {
        Lateness lateness;
        uv_loop_t loop;
        uv_loop_init(&loop);
        std::vector<std::unique_ptr<UvProbe>> probes;
        for (int i = 0; i < kLiveTimers; ++i) {
            auto probe = std::make_unique<UvProbe>();
            probe->lateness = &lateness;
            probe->random.seed(static_cast<unsigned>(i));
            probe->timer.data = probe.get();
            uv_timer_init(&loop, &probe->timer);
            const std::int64_t delay = randomDelayMs(probe->random);
            probe->due = Clock::now() + std::chrono::milliseconds(delay);
            uv_timer_start(&probe->timer, uvProbeFired, static_cast<std::uint64_t>(delay), 0);
            probes.push_back(std::move(probe));
        }
        uv_timer_t stopper;
        uv_timer_init(&loop, &stopper);
        uv_timer_start(&stopper, uvStopLoop,
                       std::chrono::duration_cast<std::chrono::milliseconds>(kRunFor).count(), 0);
        uv_run(&loop, UV_RUN_DEFAULT);
        for (auto &probe : probes) {
            uv_close(reinterpret_cast<uv_handle_t *>(&probe->timer), nullptr);
        }
        uv_close(reinterpret_cast<uv_handle_t *>(&stopper), nullptr);
        uv_run(&loop, UV_RUN_DEFAULT);
        uv_loop_close(&loop);
        lateness.report(state);
    }
}

BENCHMARK(BM_Lateness_ours)->Iterations(1)->UseRealTime()->Unit(benchmark::kMillisecond);
BENCHMARK(BM_Lateness_libuv)->Iterations(1)->UseRealTime()->Unit(benchmark::kMillisecond);

// ---- Event raise ------------------------------------------------------------------------------

std::atomic<std::uint64_t> eventSink{0};

template <int N> void carer(const char *, void *userData, void *data, std::uint32_t length) {
    eventSink.fetch_add(reinterpret_cast<std::uintptr_t>(userData) + length + (data != nullptr),
                        std::memory_order_relaxed);
}

constexpr uEventCallback kCarers[] = {carer<0>, carer<1>, carer<2>, carer<3>,
                                      carer<4>, carer<5>, carer<6>, carer<7>};

void BM_Raise_ours(benchmark::State &state) {
    const auto carers = static_cast<std::size_t>(state.range(0));
    const std::string name = "bench.raise." + std::to_string(carers);
    for (std::size_t i = 0; i < carers; ++i) {
        uEventCare(name.c_str(), kCarers[i], reinterpret_cast<void *>(i));
    }
    std::uint32_t value = 7;
    for (auto _ : state) {
        uEventRaise(name.c_str(), &value, sizeof value);
    }
    for (std::size_t i = 0; i < carers; ++i) {
        uEventClear(name.c_str(), kCarers[i]);
    }
}

void BM_Raise_direct(benchmark::State &state) {
    const auto carers = static_cast<std::size_t>(state.range(0));
    const std::string name = "bench.raise." + std::to_string(carers);
    // Through a table, as a hand-written dispatcher would call them.
    std::vector<std::pair<uEventCallback, void *>> table;
    for (std::size_t i = 0; i < carers; ++i) {
        table.emplace_back(kCarers[i], reinterpret_cast<void *>(i));
    }
    benchmark::DoNotOptimize(table.data());
    std::uint32_t value = 7;
    for (auto _ : state) {
        for (const auto &[callback, userData] : table) {
            callback(name.c_str(), userData, &value, sizeof value);
        }
        benchmark::ClobberMemory();
    }
}

BENCHMARK(BM_Raise_ours)->Arg(1)->Arg(8);
BENCHMARK(BM_Raise_direct)->Arg(1)->Arg(8);

// ---- Summary ------------------------------------------------------------------------------

// The growth and the ratios, printed after the runs.
void printSummary(const pu::bench::TimesReporter &times) {
    std::printf("\nadd+del growth from 300 to 3,000 / 30,000 live timers (time ratio):\n");
    for (const char *who : {"ours", "libuv", "multimap"}) {
        const std::string stem = std::string("BM_AddDel_") + who;
        std::printf("  %-9s %6.2f / %6.2f\n", who, times.ratio(stem + "/3000", stem + "/300"),
                    times.ratio(stem + "/30000", stem + "/300"));
    }
    std::printf("add+del, ours against libuv:    300: %6.2f   3000: %6.2f   30000: %6.2f\n",
                times.ratio("BM_AddDel_ours/300", "BM_AddDel_libuv/300"),
                times.ratio("BM_AddDel_ours/3000", "BM_AddDel_libuv/3000"),
                times.ratio("BM_AddDel_ours/30000", "BM_AddDel_libuv/30000"));
    std::printf("pass expiring 100, ours against libuv: %6.2f (without callbacks: %6.2f)\n",
                times.ratio("BM_Pass100_ours/1", "BM_Pass100_libuv"),
                times.ratio("BM_Pass100_ours/0", "BM_Pass100_libuv"));
    std::printf("raise against direct calls:      1 carer: %6.2f   8 carers: %6.2f\n",
                times.ratio("BM_Raise_ours/1", "BM_Raise_direct/1"),
                times.ratio("BM_Raise_ours/8", "BM_Raise_direct/8"));
}

} // namespace

int main(int argc, char **argv) {
    return pu::bench::runBenchmarks(argc, argv, printSummary);
}
