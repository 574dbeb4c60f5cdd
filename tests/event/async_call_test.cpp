// SPDX-License-Identifier: MIT
// Asynchronous calls: they run on a pool thread with their whole argument, calls with one task id
// run in order, and task ids alternate between the two workers.
#include "timer_harness.hpp"

#include <test_support.hpp>

namespace pu::test {
namespace {

CallRecorder<std::uintptr_t> ran;

void remember(void *argument) {
    char thread[16] = {};
    pthread_getname_np(pthread_self(), thread, sizeof thread);
    EXPECT_EQ(std::string(thread, 5), "tPool");
    ran.record(reinterpret_cast<std::uintptr_t>(argument));
}

TEST(AsyncCall, CallsRunOnAPoolThreadAndOneTaskIdRunsItsCallsInOrder) {
    const auto wide = ~std::uintptr_t{0} - 5; // every pointer bit
    EXPECT_EQ(uAsyncCall(remember, tag(wide)), 0);
    platformSimWaitPoolsIdle();
    std::vector<std::uintptr_t> order{wide};
    for (std::uintptr_t i = 0; i < 50; ++i) {
        EXPECT_EQ(uAsyncCallWithTaskId(remember, tag(i), 1), 0);
        order.push_back(i);
    }
    platformSimWaitPoolsIdle();
    EXPECT_EQ(ran.values(), order);
}

TEST(AsyncCall, TaskIdsAlternateFromZero) {
    // Nothing else in this program asks for task ids, so the counter starts fresh here.
    for (int expected : {0, 1, 0, 1, 0}) {
        EXPECT_EQ(uAsyncCallGetAvailableTaskId(), expected);
    }
}

} // namespace
} // namespace pu::test
