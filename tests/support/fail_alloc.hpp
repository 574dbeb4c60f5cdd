// SPDX-License-Identifier: MIT
// Allocation-failure injection: the test program's own uMalloc/uFree (fail_alloc.cpp) replace the
// library's, so one chosen uMalloc call can be made to return null.
#pragma once

#include <gtest/gtest.h>

#include <cstdint>
#include <functional>
#include <ostream>
#include <string>
#include <type_traits>

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

// One row of a suite's sweep table: run performs the operations once, with the failure armed, and
// checks the outcome itself. Args are what the suite hands every case ahead of the fault (its
// fixture, for one).
template <typename... Args> struct AllocCaseOf {
    const char *name;
    std::function<void(Args..., const FailAlloc &)> run;
};
using AllocCase = AllocCaseOf<>;

// Shown by name in failure messages.
template <typename... Args> void PrintTo(const AllocCaseOf<Args...> &row, std::ostream *out) {
    *out << row.name;
}

// A case whose operation reports a failure itself: op returns true when it did, which must be
// exactly when the refused allocation was one of its own. op checks a success itself.
inline AllocCase reportingCase(const char *name, std::function<bool()> op) {
    return {name, [op = std::move(op)](const FailAlloc &fault) {
                const bool reported = op(); // before asking whether the failure was hit
                EXPECT_EQ(reported, fault.hit());
            }};
}

// Sweeps one case; an operation that never allocates proves nothing, so it fails.
template <typename... Args>
void sweepCase(const AllocCaseOf<Args...> &row, std::type_identity_t<Args>... args) {
    EXPECT_GT(sweepAllocFailures([&](const FailAlloc &fault) { row.run(args..., fault); }), 0U);
}

// Names the instantiated tests after their rows.
struct AllocCaseName {
    template <typename Info> std::string operator()(const Info &info) const {
        return info.param.name;
    }
};

} // namespace pu::test

// The sweep test of a suite: Fixture derives from testing::WithParamInterface of the row type of
// the table cases; every row becomes Operations/<name>. Any further arguments are handed to each
// row's run ahead of the fault, evaluated in the test body (*this, for the fixture).
#define PU_ALLOC_FAILURE_SWEEP(Fixture, cases, ...)                                                \
    TEST_P(Fixture, FailsCleanlyAndStaysUsable) {                                                  \
        ::pu::test::sweepCase(GetParam() __VA_OPT__(, ) __VA_ARGS__);                              \
    }                                                                                              \
    INSTANTIATE_TEST_SUITE_P(Operations, Fixture, ::testing::ValuesIn(cases),                      \
                             ::pu::test::AllocCaseName{})
