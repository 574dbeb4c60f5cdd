// Allocation-failure injection: the test program's own uMalloc/uFree (fail_alloc.cpp) replace the
// library's, so one chosen uMalloc call can be made to return null.
#pragma once

#include <cstdint>
#include <functional>

namespace pu::test {

// uMalloc calls made by any thread since the program started.
std::uint64_t allocCalls();

// Makes the n-th uMalloc call from now (1 = the next one) return null, once; every other call
// succeeds. Only one guard may be alive at a time; destruction restores normal allocation.
class FailAlloc {
  public:
    explicit FailAlloc(std::uint64_t n);
    ~FailAlloc();
    FailAlloc(const FailAlloc &) = delete;
    FailAlloc &operator=(const FailAlloc &) = delete;

    // True once the chosen call has been refused.
    bool hit() const;
};

// Follows the operations of one run in order: failed(reported) checks that an operation reported
// failure exactly when the refused allocation was among its own, and passes reported on.
class AllocSteps {
  public:
    explicit AllocSteps(const FailAlloc &fault) : fault_(fault) {}
    bool failed(bool reported);

  private:
    const FailAlloc &fault_;
    bool hitBefore_ = false;
};

// Runs run(fault) with a failure at allocation 1, 2, ... of the run, until a run makes fewer
// allocations than the chosen number (the failure was never hit); the run asserts the outcome
// itself, asking fault.hit() whether its operation saw the failure. Stops at the first
// failure or after maxRuns. Returns the number of allocations of the clean run.
std::uint64_t sweepAllocFailures(const std::function<void(const FailAlloc &fault)> &run,
                                 std::uint64_t maxRuns = 1000);

} // namespace pu::test
