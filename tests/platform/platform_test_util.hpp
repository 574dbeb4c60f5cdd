// SPDX-License-Identifier: MIT
// Helpers shared by the platform layer's tests.
#pragma once

#include <chrono>
#include <fstream>
#include <functional>
#include <future>
#include <string>
#include <thread>

#include <sys/syscall.h>
#include <unistd.h>

namespace pu::test {

// Milliseconds that body takes on the steady clock.
template <typename Body> long long elapsedMs(Body &&body) {
    auto start = std::chrono::steady_clock::now();
    body();
    return std::chrono::duration_cast<std::chrono::milliseconds>(std::chrono::steady_clock::now() -
                                                                 start)
        .count();
}

// Waits (at most a few seconds) until thread tid sleeps in the kernel, which is where a thread
// blocked in semTake or msgQReceive ends up. Nothing else signals that a thread has reached the
// wait, so this looks at /proc. Tests stay correct if it gives up: a delete that comes before
// the wait fails the call just the same; only the wake-up path goes untested then.
inline void waitUntilBlocked(pid_t tid) {
    const std::string path = "/proc/self/task/" + std::to_string(tid) + "/stat";
    const auto deadline = std::chrono::steady_clock::now() + std::chrono::seconds(5);
    while (std::chrono::steady_clock::now() < deadline) {
        std::ifstream file(path);
        std::string stat((std::istreambuf_iterator<char>(file)), std::istreambuf_iterator<char>());
        const auto close = stat.rfind(')'); // the name may contain spaces
        if (close != std::string::npos && close + 2 < stat.size() && stat[close + 2] == 'S') {
            return;
        }
        std::this_thread::sleep_for(std::chrono::milliseconds(1));
    }
}

// Starts call on its own thread and returns once that thread is (very likely) blocked in it.
inline std::future<int> startBlocked(std::function<int()> call) {
    std::promise<pid_t> started;
    auto tid = started.get_future();
    auto result = std::async(std::launch::async, [call, started = std::move(started)]() mutable {
        started.set_value(static_cast<pid_t>(syscall(SYS_gettid)));
        return call();
    });
    waitUntilBlocked(tid.get());
    return result;
}

} // namespace pu::test
