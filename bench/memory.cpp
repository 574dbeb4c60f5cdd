// SPDX-License-Identifier: MIT
// Memory per live object, beside the peers: heap bytes (glibc's own count of bytes in use) per
// timer, per hash map entry, per event carer and per status, and the fixed footprint each family
// takes on first use. Every run is one iteration that builds its objects, reads the heap count
// before and after, and reports bytes per object as a counter; the time column means nothing.
#include <platform_sim.h>
#include <platform_utils.h>

#include <benchmark/benchmark.h>
#include <glib.h>
#include <malloc.h>
#include <uv.h>

#include <cstdint>
#include <string>
#include <unordered_map>
#include <vector>

namespace {

constexpr int kTimers = 30000;
constexpr int kKeys = 100000;

std::size_t heapInUse() {
    const struct mallinfo2 info = mallinfo2();
    return info.uordblks + info.hblkhd;
}

// Runs build() once and reports the heap it kept, per object and in total.
template <typename Build> void measure(benchmark::State &state, double objects, Build build) {
    for (auto _ : state) {
        const std::size_t before = heapInUse();
        build();
        const auto kept = static_cast<double>(heapInUse() - before);
        state.counters["bytes"] = kept;
        state.counters["bytes/object"] = objects > 0 ? kept / objects : 0;
    }
}

std::vector<std::string> keys() {
    std::vector<std::string> out;
    for (int i = 0; i < kKeys; ++i) {
        out.push_back("status.key." + std::to_string(i * 7919)); // 12 to 17 bytes
    }
    return out;
}

// ---- Timers: our records are taken from the pool uTimerInit sizes; libuv's live in the caller.

void BM_TimerPool_ours(benchmark::State &state) {
    platformSimSetManual(1);
    measure(state, kTimers, [] { uTimerInit(kTimers); });
}

void BM_TimersLive_ours(benchmark::State &state) {
    std::vector<std::uint32_t> ids;
    ids.reserve(kTimers);
    measure(state, kTimers, [&] {
        for (int i = 0; i < kTimers; ++i) {
            ids.push_back(uTimerAdd(nullptr, nullptr, 1'000'000 + i));
        }
    });
    for (std::uint32_t id : ids) {
        uTimerDel(id);
    }
}

void BM_TimersLive_libuv(benchmark::State &state) {
    uv_loop_t loop;
    uv_loop_init(&loop);
    std::vector<uv_timer_t> *timers = nullptr;
    measure(state, kTimers, [&] {
        timers = new std::vector<uv_timer_t>(kTimers); // the caller's own storage
        for (uv_timer_t &timer : *timers) {
            uv_timer_init(&loop, &timer);
            uv_timer_start(
                &timer, [](uv_timer_t *) {}, 1'000'000, 0);
        }
    });
    for (uv_timer_t &timer : *timers) {
        uv_close(reinterpret_cast<uv_handle_t *>(&timer), nullptr);
    }
    uv_run(&loop, UV_RUN_DEFAULT);
    uv_loop_close(&loop);
    delete timers;
}

// ---- Hash map entries, keys copied by the map ------------------------------------------------

void BM_StrMapEntries_ours(benchmark::State &state) {
    const auto names = keys();
    uHash *map = nullptr;
    measure(state, kKeys, [&] {
        map = uHashCreateMap(0);
        for (const std::string &key : names) {
            uHashInsert(map, key.c_str(), map);
        }
    });
    uHashDestroyMap(map, nullptr);
}

void BM_StrMapEntries_ghash(benchmark::State &state) {
    const auto names = keys();
    GHashTable *table = nullptr;
    measure(state, kKeys, [&] {
        table = g_hash_table_new_full(g_str_hash, g_str_equal, g_free, nullptr);
        for (const std::string &key : names) {
            g_hash_table_insert(table, g_strdup(key.c_str()), table);
        }
    });
    g_hash_table_destroy(table);
}

void BM_StrMapEntries_std(benchmark::State &state) {
    const auto names = keys();
    auto *map = new std::unordered_map<std::string, void *>;
    measure(state, kKeys, [&] {
        for (const std::string &key : names) {
            map->emplace(key, map);
        }
    });
    delete map;
}

void BM_IntMapEntries_ours(benchmark::State &state) {
    uIntHash *map = nullptr;
    measure(state, kKeys, [&] {
        map = uIntHashMapCreate();
        for (int i = 0; i < kKeys; ++i) {
            uIntHashInsert(map, i * 7919, map);
        }
    });
    uIntHashDestroyMap(map, nullptr);
}

void BM_IntMapEntries_ghash(benchmark::State &state) {
    GHashTable *table = nullptr;
    measure(state, kKeys, [&] {
        table = g_hash_table_new(g_direct_hash, g_direct_equal);
        for (int i = 0; i < kKeys; ++i) {
            g_hash_table_insert(table, GINT_TO_POINTER(i * 7919), table);
        }
    });
    g_hash_table_destroy(table);
}

// ---- Event carers and statuses: a fixed table on first use, then so much per object ----------

constexpr int kEvents = 200;

void BM_EventBusTable_ours(benchmark::State &state) {
    measure(state, 0, [] { uEventInit(); });
}

void carer(const char *, void *, void *, uint32_t) {}

void BM_EventCarers_ours(benchmark::State &state) {
    std::vector<std::string> names;
    for (int i = 0; i < kEvents; ++i) {
        names.push_back("MEMORY_EVENT_" + std::to_string(i));
    }
    measure(state, kEvents, [&] {
        for (const std::string &name : names) {
            uEventCare(name.c_str(), carer, nullptr);
        }
    });
    for (const std::string &name : names) {
        uEventClear(name.c_str(), carer);
    }
}

constexpr int kStatuses = 1000;

void BM_StatusTable_ours(benchmark::State &state) {
    statusBuffFree();
    measure(state, 0, [] { setSystemStatus("memory.first", 1); });
}

void BM_Statuses_ours(benchmark::State &state) {
    std::vector<std::string> names;
    for (int i = 1; i < kStatuses; ++i) {
        names.push_back("memory.status." + std::to_string(i));
    }
    measure(state, kStatuses - 1, [&] {
        for (const std::string &name : names) {
            setSystemStatus(name.c_str(), 1);
        }
    });
    statusBuffFree();
}

} // namespace

BENCHMARK(BM_TimerPool_ours)->Iterations(1);
BENCHMARK(BM_TimersLive_ours)->Iterations(1);
BENCHMARK(BM_TimersLive_libuv)->Iterations(1);
BENCHMARK(BM_StrMapEntries_ours)->Iterations(1);
BENCHMARK(BM_StrMapEntries_ghash)->Iterations(1);
BENCHMARK(BM_StrMapEntries_std)->Iterations(1);
BENCHMARK(BM_IntMapEntries_ours)->Iterations(1);
BENCHMARK(BM_IntMapEntries_ghash)->Iterations(1);
BENCHMARK(BM_EventBusTable_ours)->Iterations(1);
BENCHMARK(BM_EventCarers_ours)->Iterations(1);
BENCHMARK(BM_StatusTable_ours)->Iterations(1);
BENCHMARK(BM_Statuses_ours)->Iterations(1);
