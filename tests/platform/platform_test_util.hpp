// SPDX-License-Identifier: MIT
// Helpers shared by the platform layer's tests.
#pragma once

#include <chrono>
#include <fstream>
#include <sstream>
#include <string>
#include <thread>

#include <sys/syscall.h>
#include <unistd.h>

namespace pu::test {

inline pid_t currentTid() {
    return static_cast<pid_t>(syscall(SYS_gettid));
}

// Milliseconds that body takes on the steady clock.
template <typename Body> long long elapsedMs(Body &&body) {
    auto start = std::chrono::steady_clock::now();
    body();
    auto end = std::chrono::steady_clock::now();
    return std::chrono::duration_cast<std::chrono::milliseconds>(end - start).count();
}

// Waits (at most a few seconds) until thread tid sleeps in the kernel, which is where a thread
// blocked in semTake or msgQReceive ends up. Nothing else signals that a thread has reached the
// wait, so this looks at /proc. Tests stay correct if it gives up: a delete that comes before
// the wait fails the call just the same; only the wake-up path goes untested then.
inline bool waitUntilBlocked(pid_t tid) {
    std::string path = "/proc/self/task/" + std::to_string(tid) + "/stat";
    auto deadline = std::chrono::steady_clock::now() + std::chrono::seconds(5);
    while (std::chrono::steady_clock::now() < deadline) {
        std::ifstream file(path);
        std::string stat((std::istreambuf_iterator<char>(file)), std::istreambuf_iterator<char>());
        auto close = stat.rfind(')'); // the name may contain spaces
        if (close != std::string::npos && close + 2 < stat.size() && stat[close + 2] == 'S') {
            return true;
        }
        std::this_thread::sleep_for(std::chrono::milliseconds(1));
    }
    return false;
}

} // namespace pu::test
