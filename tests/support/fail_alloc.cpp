// SPDX-License-Identifier: MIT
// The test program's uMalloc/uFree. The library is not linked with -Bsymbolic, so these
// definitions in the executable replace the library's for every caller. Like the library's they
// zero-fill and come from the C heap, so realloc and free keep accepting the blocks.
#include "fail_alloc.hpp"

#include <umem.h>

#include <gtest/gtest.h>

#include <atomic>
#include <cstdlib>

namespace {

std::atomic<std::uint64_t> gCalls{0};
// The call number to refuse (0: none), and whether it was refused.
std::atomic<std::uint64_t> gFailAt{0};
std::atomic<bool> gHit{false};

} // namespace

extern "C" {

PU_API void *uMalloc(uint32_t size) {
    const std::uint64_t call = gCalls.fetch_add(1, std::memory_order_relaxed) + 1;
    std::uint64_t target = call;
    if (gFailAt.compare_exchange_strong(target, 0, std::memory_order_acq_rel)) {
        gHit.store(true, std::memory_order_release);
        return nullptr;
    }
    return std::calloc(size, 1);
}

PU_API void uFree(void *ptr) {
    std::free(ptr);
}

} // extern "C"

namespace pu::test {

std::uint64_t allocCalls() {
    return gCalls.load(std::memory_order_relaxed);
}

FailAlloc::FailAlloc(std::uint64_t n) {
    gHit.store(false, std::memory_order_relaxed);
    gFailAt.store(allocCalls() + n, std::memory_order_release);
}

FailAlloc::~FailAlloc() {
    gFailAt.store(0, std::memory_order_release);
}

bool FailAlloc::hit() const {
    return gHit.load(std::memory_order_acquire);
}

bool AllocSteps::failed(bool reported) {
    const bool hitHere = fault_.hit() && !hitBefore_;
    hitBefore_ = fault_.hit();
    EXPECT_EQ(reported, hitHere) << (reported ? "failure reported without a refused allocation"
                                              : "a refused allocation went unreported");
    return reported;
}

std::uint64_t sweepAllocFailures(const std::function<void(const FailAlloc &fault)> &run,
                                 std::uint64_t maxRuns) {
    for (std::uint64_t n = 1; n <= maxRuns; ++n) {
        bool hit = false;
        {
            SCOPED_TRACE(testing::Message() << "uMalloc call " << n << " of the run fails");
            FailAlloc fault(n);
            run(fault);
            hit = fault.hit();
        }
        if (testing::Test::HasFailure() || !hit) {
            return n - 1;
        }
    }
    ADD_FAILURE() << "still allocating after " << maxRuns << " runs";
    return maxRuns;
}

} // namespace pu::test
