// SPDX-License-Identifier: MIT
// Helpers shared by the files of the Linux platform layer; nothing here is exported.
#pragma once

#include <platform_os.h>

#include <chrono>
#include <condition_variable>
#include <cstddef>
#include <cstdint>
#include <exception>
#include <memory>
#include <mutex>

// State shared by threads lives in heap objects that are never destroyed
// (`static auto &state = *new State;`): tasks, pool workers and the heartbeat thread keep running
// while static destructors run at exit, and must not find their state gone.

namespace pu::platform {

// Module name of the layer's own log lines.
inline constexpr const char *kLogModule = "platform.os";

inline constexpr int kTicksPerSecond = 100;
inline constexpr int kMsPerTick = 1000 / kTicksPerSecond;

// Runs body and turns any exception into failure: the exported functions are C functions.
template <typename Result, typename Body> Result guarded(Result failure, Body &&body) noexcept {
    try {
        return body();
    } catch (const std::exception &) {
        return failure;
    }
}

// Waits on changed (with lock held) until ready() or until timeout ticks have passed; a negative
// timeout waits for ever and NO_WAIT only looks. Returns ready().
template <typename Ready>
bool waitTicks(std::condition_variable &changed, std::unique_lock<std::mutex> &lock, int timeout,
               Ready ready) {
    if (timeout == NO_WAIT) {
        return ready();
    }
    if (timeout < 0) {
        changed.wait(lock, ready);
        return true;
    }
    auto deadline = std::chrono::steady_clock::now() +
                    std::chrono::milliseconds(static_cast<std::int64_t>(timeout) * kMsPerTick);
    return changed.wait_until(lock, deadline, ready);
}

// ---- environment.cpp

// The decimal integer in environment variable name, or fallback when it is unset, malformed or
// outside [minimum, maximum].
long readEnvInteger(const char *name, long fallback, long minimum, long maximum);

// ---- threads.cpp

// Starts a detached thread named name (cut to 15 characters; null or empty keeps the default)
// with a stack of at least stackSize bytes, running body(context). On success the thread owns
// context; on failure (false) the caller still does.
bool startDetachedThread(const char *name, std::size_t stackSize, void (*body)(void *),
                         void *context) noexcept;

// Starts a detached thread running Body with the start-up data. The data stays with the caller's
// pointer until the thread exists and is released from it only then, so a failed start leaves it
// to be freed with the pointer and a started thread frees it when Body returns.
template <typename Start, void (*Body)(Start &)>
bool startThreadWith(const char *name, std::size_t stackSize,
                     std::unique_ptr<Start> &start) noexcept {
    auto run = [](void *raw) {
        const std::unique_ptr<Start> owned(static_cast<Start *>(raw));
        Body(*owned);
    };
    if (start == nullptr || !startDetachedThread(name, stackSize, run, start.get())) {
        return false;
    }
    (void)start.release(); // the new thread owns it now
    return true;
}

} // namespace pu::platform
