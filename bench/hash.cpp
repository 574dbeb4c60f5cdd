// SPDX-License-Identifier: MIT
// Hash maps and the status store, side by side with GLib's GHashTable and std::unordered_map:
// insert, look up and remove 1,000 and 100,000 keys (strings of 8 to 24 characters, case-sensitive
// and case-insensitive, and 32-bit integers). After the runs a table gives each of our times as a
// ratio to the two references (below 1 means we are faster).
//
// The references do what an application would do to get the same service: GHashTable owns a
// g_strdup copy of each key (our map copies keys too) and, for the case-insensitive map, hashes
// and compares with ASCII case folding; std::unordered_map folds the key into its std::string.
#include <platform_utils.h>

#include "support/times_reporter.hpp"

#include <benchmark/benchmark.h>
#include <glib.h>

#include <algorithm>
#include <cstdint>
#include <cstdio>
#include <map>
#include <memory>
#include <random>
#include <string>
#include <unordered_map>
#include <vector>

namespace {

constexpr int kKeys = 100000;

const std::vector<std::string> &stringKeys() {
    static const std::vector<std::string> keys = [] {
        std::mt19937 random(2024);
        std::vector<std::string> made;
        std::unordered_map<std::string, int> seen; // distinct even when case is folded
        while (made.size() < kKeys) {
            std::string key(8 + random() % 17, ' ');
            for (char &c : key) {
                const unsigned pick = random() % 62;
                c = static_cast<char>(pick < 26   ? 'a' + pick
                                      : pick < 52 ? 'A' + pick - 26
                                                  : '0' + pick - 52);
            }
            std::string folded = key;
            for (char &c : folded) {
                c = g_ascii_tolower(c);
            }
            if (seen.emplace(folded, 0).second) {
                made.push_back(key);
            }
        }
        return made;
    }();
    return keys;
}

const std::vector<std::int32_t> &intKeys() {
    static const std::vector<std::int32_t> keys = [] {
        std::mt19937 random(7);
        std::unordered_map<std::int32_t, int> seen;
        std::vector<std::int32_t> made;
        while (made.size() < kKeys) {
            const auto key = static_cast<std::int32_t>(random());
            if (seen.emplace(key, 0).second) {
                made.push_back(key);
            }
        }
        return made;
    }();
    return keys;
}

void *valueFor(std::size_t index) {
    return reinterpret_cast<void *>(index + 1);
}

// ---- The three maps behind one small interface ---------------------------------------------

struct OurStrMap {
    explicit OurStrMap(bool folding) : map(uHashCreateMap(folding ? 1 : 0)) {}
    ~OurStrMap() { uHashDestroyMap(map, nullptr); }
    void insert(const std::string &key, void *value) { uHashInsert(map, key.c_str(), value); }
    void *find(const std::string &key) { return uHashGetValue(map, key.c_str()); }
    void remove(const std::string &key) { uHashRemove(map, key.c_str(), nullptr); }
    uHash *map;
};

guint foldedStrHash(gconstpointer key) {
    guint hash = 5381; // g_str_hash's own recurrence, over folded bytes
    for (auto *p = static_cast<const unsigned char *>(key); *p != 0; ++p) {
        hash = hash * 33 + static_cast<unsigned char>(g_ascii_tolower(static_cast<char>(*p)));
    }
    return hash;
}

gboolean foldedStrEqual(gconstpointer a, gconstpointer b) {
    return g_ascii_strcasecmp(static_cast<const char *>(a), static_cast<const char *>(b)) == 0;
}

struct GlibStrMap {
    explicit GlibStrMap(bool folding)
        : table(folding ? g_hash_table_new_full(foldedStrHash, foldedStrEqual, g_free, nullptr)
                        : g_hash_table_new_full(g_str_hash, g_str_equal, g_free, nullptr)) {}
    ~GlibStrMap() { g_hash_table_destroy(table); }
    void insert(const std::string &key, void *value) {
        // No update through insert, as with our map.
        if (!g_hash_table_contains(table, key.c_str())) {
            g_hash_table_insert(table, g_strdup(key.c_str()), value);
        }
    }
    void *find(const std::string &key) { return g_hash_table_lookup(table, key.c_str()); }
    void remove(const std::string &key) { g_hash_table_remove(table, key.c_str()); }
    GHashTable *table;
};

struct StdStrMap {
    explicit StdStrMap(bool folding) : folding(folding) {}
    std::string fold(const std::string &key) const {
        if (!folding) {
            return key;
        }
        std::string folded = key;
        for (char &c : folded) {
            c = g_ascii_tolower(c);
        }
        return folded;
    }
    void insert(const std::string &key, void *value) { map.emplace(fold(key), value); }
    void *find(const std::string &key) {
        auto it = map.find(fold(key));
        return it == map.end() ? nullptr : it->second;
    }
    void remove(const std::string &key) { map.erase(fold(key)); }
    bool folding;
    std::unordered_map<std::string, void *> map;
};

struct OurIntMap {
    explicit OurIntMap(bool) : map(uIntHashMapCreate()) {}
    ~OurIntMap() { uIntHashDestroyMap(map, nullptr); }
    void insert(std::int32_t key, void *value) { uIntHashInsert(map, key, value); }
    void *find(std::int32_t key) { return uIntHashGetValue(map, key); }
    void remove(std::int32_t key) { uIntHashRemove(map, key, nullptr); }
    uIntHash *map;
};

struct GlibIntMap {
    explicit GlibIntMap(bool) : table(g_hash_table_new(g_direct_hash, g_direct_equal)) {}
    ~GlibIntMap() { g_hash_table_destroy(table); }
    void insert(std::int32_t key, void *value) {
        if (!g_hash_table_contains(table, GINT_TO_POINTER(key))) {
            g_hash_table_insert(table, GINT_TO_POINTER(key), value);
        }
    }
    void *find(std::int32_t key) { return g_hash_table_lookup(table, GINT_TO_POINTER(key)); }
    void remove(std::int32_t key) { g_hash_table_remove(table, GINT_TO_POINTER(key)); }
    GHashTable *table;
};

struct StdIntMap {
    explicit StdIntMap(bool) {}
    void insert(std::int32_t key, void *value) { map.emplace(key, value); }
    void *find(std::int32_t key) {
        auto it = map.find(key);
        return it == map.end() ? nullptr : it->second;
    }
    void remove(std::int32_t key) { map.erase(key); }
    std::unordered_map<std::int32_t, void *> map;
};

// ---- The three operations, each over all keys per iteration -------------------------------

// Lookups and removals visit the keys in an order unrelated to insertion, as applications do;
// insertion order would favour tables whose items sit in memory in that order.
template <typename Keys> Keys shuffled(const Keys &keys) {
    Keys order = keys;
    std::shuffle(order.begin(), order.end(), std::mt19937(99));
    return order;
}

template <typename Map, typename Keys> void fill(Map &map, const Keys &keys) {
    for (std::size_t i = 0; i < keys.size(); ++i) {
        map.insert(keys[i], valueFor(i));
    }
}

template <typename Map, typename Keys>
void insertAll(benchmark::State &state, const Keys &keys, bool folding) {
    for (auto _ : state) {
        auto *map = new Map(folding);
        fill(*map, keys);
        state.PauseTiming();
        delete map;
        state.ResumeTiming();
    }
    state.SetItemsProcessed(state.iterations() * static_cast<std::int64_t>(keys.size()));
}

template <typename Map, typename Keys>
void lookUpAll(benchmark::State &state, const Keys &keys, bool folding) {
    Map map(folding);
    fill(map, keys);
    const Keys order = shuffled(keys);
    for (auto _ : state) {
        for (const auto &key : order) {
            benchmark::DoNotOptimize(map.find(key));
        }
    }
    state.SetItemsProcessed(state.iterations() * static_cast<std::int64_t>(keys.size()));
}

template <typename Map, typename Keys>
void removeAll(benchmark::State &state, const Keys &keys, bool folding) {
    const Keys order = shuffled(keys);
    for (auto _ : state) {
        state.PauseTiming();
        auto *map = new Map(folding);
        fill(*map, keys);
        state.ResumeTiming();
        for (const auto &key : order) {
            map->remove(key);
        }
        state.PauseTiming();
        delete map;
        state.ResumeTiming();
    }
    state.SetItemsProcessed(state.iterations() * static_cast<std::int64_t>(keys.size()));
}

template <typename Our, typename Glib, typename Std, typename Keys>
void registerFamily(const std::string &family, const Keys &(*keys)(), bool folding,
                    std::size_t count) {
    // The first count keys, made on first use (the runs of one size share them).
    auto some = std::make_shared<Keys>();
    auto add = [&](const std::string &op, const std::string &impl, auto body) {
        benchmark::RegisterBenchmark((family + "/" + op + "/" + impl).c_str(), [=](benchmark::State
                                                                                       &state) {
            if (some->empty()) {
                some->assign(keys().begin(), keys().begin() + static_cast<long>(count));
            }
            body(state, *some, folding);
        })->Unit(benchmark::kMillisecond);
    };
    add("insert", "ours", insertAll<Our, Keys>);
    add("insert", "ghash", insertAll<Glib, Keys>);
    add("insert", "std", insertAll<Std, Keys>);
    add("lookup", "ours", lookUpAll<Our, Keys>);
    add("lookup", "ghash", lookUpAll<Glib, Keys>);
    add("lookup", "std", lookUpAll<Std, Keys>);
    add("remove", "ours", removeAll<Our, Keys>);
    add("remove", "ghash", removeAll<Glib, Keys>);
    add("remove", "std", removeAll<Std, Keys>);
}

// ---- Status store ---------------------------------------------------------------------------

std::vector<std::string> statusNames(int count) {
    std::vector<std::string> names;
    for (int i = 0; i < count; ++i) {
        names.push_back("app.status." + std::to_string(i));
    }
    return names;
}

void BM_SetSystemStatus(benchmark::State &state) {
    const auto names = statusNames(static_cast<int>(state.range(0)));
    statusBuffFree();
    for (const auto &name : names) {
        setSystemStatus(name.c_str(), 0);
    }
    std::uint32_t value = 0;
    for (auto _ : state) {
        for (const auto &name : names) {
            setSystemStatus(name.c_str(), ++value);
        }
    }
    state.SetItemsProcessed(state.iterations() * static_cast<std::int64_t>(names.size()));
    statusBuffFree();
}
BENCHMARK(BM_SetSystemStatus)->Arg(10)->Arg(500)->Arg(1000);

void BM_GetSystemStatus(benchmark::State &state) {
    const auto names = statusNames(static_cast<int>(state.range(0)));
    statusBuffFree();
    for (const auto &name : names) {
        setSystemStatus(name.c_str(), 1);
    }
    for (auto _ : state) {
        for (const auto &name : names) {
            std::uint32_t value = 0;
            getSystemStatus(name.c_str(), &value);
            benchmark::DoNotOptimize(value);
        }
    }
    state.SetItemsProcessed(state.iterations() * static_cast<std::int64_t>(names.size()));
    statusBuffFree();
}
BENCHMARK(BM_GetSystemStatus)->Arg(10)->Arg(500)->Arg(1000);

// ---- Ratios ---------------------------------------------------------------------------------

// The ratio table, printed after the runs.
void printRatios(const pu::bench::TimesReporter &times) {
    std::printf("\n%-22s %12s %12s\n", "map/operation", "ours/ghash", "ours/std");
    for (const auto &[name, ours] : times.times()) {
        const auto slash = name.rfind("/ours");
        if (slash == std::string::npos) {
            continue;
        }
        const std::string stem = name.substr(0, slash);
        auto ghash = times.times().find(stem + "/ghash");
        auto plain = times.times().find(stem + "/std");
        if (ghash != times.times().end() && plain != times.times().end()) {
            std::printf("%-22s %12.2f %12.2f\n", stem.c_str(), ours / ghash->second,
                        ours / plain->second);
        }
    }
}

} // namespace

int main(int argc, char **argv) {
    for (const std::size_t count : {std::size_t{1000}, std::size_t{kKeys}}) {
        const std::string size = count == 1000 ? "1k" : "100k";
        registerFamily<OurStrMap, GlibStrMap, StdStrMap>("str-" + size, stringKeys, false, count);
        registerFamily<OurStrMap, GlibStrMap, StdStrMap>("str-nocase-" + size, stringKeys, true,
                                                         count);
        registerFamily<OurIntMap, GlibIntMap, StdIntMap>("int-" + size, intKeys, false, count);
    }
    return pu::bench::runBenchmarks(argc, argv, printRatios);
}
