// SPDX-License-Identifier: MIT
// Replaces the platform's taskDelay in this test program, so code that polls once a second can
// be driven quickly and its polls counted.
#pragma once

#include <cstddef>
#include <functional>
#include <vector>

namespace pu::test {

// While alive, every taskDelay(ticks) is recorded and sleeps one tick instead. Otherwise
// taskDelay behaves as the platform's. One recorder at a time.
class TaskDelayRecorder {
  public:
    TaskDelayRecorder();
    ~TaskDelayRecorder();
    TaskDelayRecorder(const TaskDelayRecorder &) = delete;
    TaskDelayRecorder &operator=(const TaskDelayRecorder &) = delete;

    // Runs action(n) inside the n-th recorded call (from 1), on the calling thread: lets a test
    // change the world between two polls of the code under test.
    void onCall(std::function<void(std::size_t)> action);

    // The ticks of each recorded call, in order.
    std::vector<int> calls() const;
    void clear();
};

} // namespace pu::test
