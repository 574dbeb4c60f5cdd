// SPDX-License-Identifier: MIT
// Small helpers every suite shares: owned results, lists as vectors, sample data, a call
// recorder, a thread fan-out and a check that a call blocks.
#pragma once

#include <platform_utils.h>

#include <gtest/gtest.h>

#include <chrono>
#include <cstddef>
#include <cstdint>
#include <functional>
#include <future>
#include <latch>
#include <memory>
#include <mutex>
#include <string>
#include <thread>
#include <vector>

namespace pu::test {

// ---- ownership -------------------------------------------------------------------------------

// unique_ptr that releases with the library's own release function, e.g.
// Owned<char, uFree> text(uStrDup("x")); Owned<uList, uListUninit> list(...).
template <auto release> struct ReleaseWith {
    template <typename T> void operator()(T *p) const { release(p); }
};
template <typename T, auto release> using Owned = std::unique_ptr<T, ReleaseWith<release>>;

// A library-owned text (null allowed) as a string, released with uFree as callers do.
inline std::string take(char *text) {
    std::string out = text != nullptr ? text : "";
    uFree(text);
    return out;
}

// A nullable C string for comparisons: null reads as "(null)", so a table can expect it.
inline std::string orNull(const char *text) {
    return text != nullptr ? std::string(text) : std::string("(null)");
}

// The uMalloc strings of a result list as a vector; the list and its strings are released.
// A null list gives an empty vector.
inline std::vector<std::string> takeStrings(uList *list) {
    std::vector<std::string> out;
    if (list == nullptr) {
        return out;
    }
    for (uListNode *node = list->head; node != nullptr; node = node->next) {
        out.push_back(orNull(static_cast<char *>(node->data)));
        uFree(node->data);
    }
    uListClearWithNodeNoNeedFree(list);
    EXPECT_EQ(uListUninit(list), 0);
    return out;
}

// ---- data ------------------------------------------------------------------------------------

// Deterministic bytes that differ by seed and never repeat with a short period.
inline std::string pattern(std::size_t size, std::uint32_t seed = 1) {
    std::string out(size, '\0');
    std::uint32_t x = seed * 2654435761u + 1u;
    for (char &c : out) {
        x = x * 1103515245u + 12345u;
        c = static_cast<char>(x >> 23);
    }
    return out;
}

// A file under tests/data/ as bytes; a missing file fails the test and gives "".
std::string readFile(const std::string &relativePath);

// ---- calls -----------------------------------------------------------------------------------

// Records values from callbacks on any thread, in arrival order.
template <typename T> class CallRecorder {
  public:
    void record(T value) {
        std::lock_guard lock(mutex_);
        values_.push_back(std::move(value));
    }
    std::vector<T> values() const {
        std::lock_guard lock(mutex_);
        return values_;
    }
    std::size_t size() const {
        std::lock_guard lock(mutex_);
        return values_.size();
    }
    void clear() {
        std::lock_guard lock(mutex_);
        values_.clear();
    }

  private:
    mutable std::mutex mutex_;
    std::vector<T> values_;
};

// Runs body(index) on n threads that start together (a latch, no spinning) and joins them.
inline void fanOut(int n, const std::function<void(int)> &body) {
    std::latch start(n);
    std::vector<std::thread> threads;
    threads.reserve(static_cast<std::size_t>(n));
    for (int i = 0; i < n; ++i) {
        threads.emplace_back([&, i] {
            start.arrive_and_wait();
            body(i);
        });
    }
    for (std::thread &t : threads) {
        t.join();
    }
}

// A call started on its own thread, to show that it blocks until something else happens.
template <typename R> class BlockedCall {
  public:
    explicit BlockedCall(std::function<R()> call)
        : future_(std::async(std::launch::async, std::move(call))) {}
    // True when the call is still running after the grace period.
    bool stillBlocked(std::chrono::milliseconds grace = std::chrono::milliseconds(50)) const {
        return future_.wait_for(grace) == std::future_status::timeout;
    }
    // Waits for the call to return (at most the timeout) and gives its result.
    R result(std::chrono::milliseconds timeout = std::chrono::seconds(5)) {
        EXPECT_EQ(future_.wait_for(timeout), std::future_status::ready) << "call never returned";
        return future_.get();
    }

  private:
    std::future<R> future_;
};

} // namespace pu::test
