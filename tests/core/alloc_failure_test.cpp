// SPDX-License-Identifier: MIT
// Every allocating operation of the core families, with each of its uMalloc calls failing in turn:
// the documented failure value, nothing leaked, no lock left held, the structure still usable.
// And the checked size arithmetic at the boundaries where size_t and uMalloc's 32-bit size wrap,
// and every line the core families log.
#include "call_table.hpp"
#include "core/checked_size.hpp"
#include "fail_alloc.hpp"
#include "log_capture.hpp"

#include <ufsm.h>
#include <ulist.h>
#include <uuniqueid.h>

#include <gtest/gtest.h>

#include <cstdint>
#include <string>

namespace {

using pu::test::AllocCase;
using pu::test::AllocSteps;
using pu::test::FailAlloc;

int handled(void *) {
    return 0;
}

const AllocCase kCases[] = {
    {"ListInitAndAdd",
     [](const FailAlloc &fault) {
         int a = 1;
         AllocSteps steps(fault);
         uList *list = uListInit(1);
         if (steps.failed(list == nullptr)) {
             return;
         }
         if (steps.failed(uListAppend(list, &a) < 0)) {
             // The lock was given back and the chain is intact: adding again works.
             EXPECT_EQ(uListSize(list), 0);
             ASSERT_EQ(uListAdd(list, &a, 0), 1);
         }
         EXPECT_EQ(uListRemove(list, 0), &a); // clearing would allocate
         EXPECT_EQ(uListUninit(list), 0);
     }},
    {"StateMachineCreateAndAdd",
     [](const FailAlloc &fault) {
         AllocSteps steps(fault);
         uFsm *fsm = uFsmCreate();
         if (steps.failed(fsm == nullptr)) {
             return;
         }
         if (steps.failed(uFsmAdd(fsm, 1, 2, handled) != 0)) {
             EXPECT_EQ(uFsmExecute(fsm, 1, 2, nullptr), -1) << "no half-added row";
             ASSERT_EQ(uFsmAdd(fsm, 1, 2, handled), 0);
         }
         EXPECT_EQ(uFsmExecute(fsm, 1, 2, nullptr), 0);
         EXPECT_EQ(uFsmDestroy(fsm), 0);
     }},
    {"UniqueIdRegistrationAndGrowth",
     [](const FailAlloc &fault) {
         pu::test::LogCapture quiet;
         uIdRegisterUniqueIdModule("alloc-sweep", 10, 1);
         if (uIdGetModuleAvailableUniqueId("alloc-sweep") < 0) {
             EXPECT_TRUE(fault.hit()) << "not registered at all";
         } else {
             // Refused growth leaves the module as it was, with its one id in use.
             uIdRegisterUniqueIdModule("alloc-sweep", 10, 3);
             EXPECT_EQ(uIdGetModuleAvailableUniqueId("alloc-sweep"), fault.hit() ? -1 : 11);
         }
         uIdUnregisterUniqueIdModule("alloc-sweep");
         EXPECT_EQ(uIdGetModuleAvailableUniqueId("alloc-sweep"), -1) << "the family lock is free";
     }},
};

class CoreAllocFailure : public testing::TestWithParam<AllocCase> {};

PU_ALLOC_FAILURE_SWEEP(CoreAllocFailure, kCases);

using pu::core::CheckedSize;

constexpr std::size_t kMax = SIZE_MAX;
constexpr CheckedSize kNone = std::nullopt;

TEST(CheckedSize, AddMultiplyAndAllocateRefuseWhatTheSizesCannotHold) {
    const struct {
        CheckedSize a, b, sum, product;
    } cases[] = {
        {kMax, 1, kNone, kMax},
        {kMax - 1, 1, kMax, kMax - 1},
        {kMax / 2, kMax / 2 + 1, kMax, kNone},
        {kMax / 3, 3, kMax / 3 + 3, kMax},      // SIZE_MAX is divisible by 3 on both widths
        {kMax / 3 + 1, 3, kMax / 3 + 4, kNone}, // 3 * length + 1 of a 1.43 GB text on 32 bits
        {kNone, 0, kNone, kNone},               // nothing times 0 is still nothing
    };
    for (const auto &c : cases) {
        const std::string at =
            std::to_string(c.a.value_or(42)) + ", " + std::to_string(c.b.value_or(42));
        EXPECT_EQ(pu::core::checkedAdd(c.a, c.b), c.sum) << at;
        EXPECT_EQ(pu::core::checkedAdd(c.b, c.a), c.sum) << at;
        EXPECT_EQ(pu::core::checkedMul(c.a, c.b), c.product) << at;
        EXPECT_EQ(pu::core::checkedMul(c.b, c.a), c.product) << at;
    }
    const std::size_t past = std::size_t{UINT32_MAX} + (SIZE_MAX > UINT32_MAX ? 1 : 0);
    EXPECT_EQ(pu::core::allocationSize(UINT32_MAX), UINT32_MAX);
    EXPECT_EQ(pu::core::allocationSize(kNone), std::nullopt);
    EXPECT_EQ(pu::core::allocate(kNone), nullptr);
    if (past != UINT32_MAX) {
        EXPECT_EQ(pu::core::allocationSize(past + 3), std::nullopt); // not 3
        EXPECT_EQ(pu::core::allocate(past + 3), nullptr);
    }
}

// Every line the core families log, exactly: applications watch for these texts.
// A list with one node, released whatever the row did to it.
void withNode(void (*use)(uList *)) {
    int element = 0;
    uList *list = uListInit(0);
    uListAppend(list, &element);
    use(list);
    uListClearWithNodeNoNeedFree(list);
    uListUninit(list);
}

TEST(LogCatalogue, CoreMessages) {
    const char *uid = "basalt.utils.uidManager", *list = "basalt.utils.list";
    pu::test::checkLogRows({
        PU_LOG_ROW(
            uIdRegisterUniqueIdModule("cat", 0, 1), 0, uid,
            "uIdRegisterUniqueIdModule: module=[cat] with max id=[1] register to uniqueIdModule!"),
        PU_LOG_ROW((uIdGetModuleAvailableUniqueId("cat"), uIdGetModuleAvailableUniqueId("cat")), 2,
                   uid, "uIdGetManagerAvailableId: Module[cat] does not have any available id!"),
        PU_LOG_ROW(
            uIdGetModuleAvailableUniqueId("no cat"), 2, uid,
            "uIdGetModuleAvailableUniqueId: module=[no cat] does not registered in uniqueModule."),
        PU_LOG_ROW(
            uIdGetModuleAvailableUniqueId(nullptr), 2, uid,
            "uIdGetModuleAvailableUniqueId: module=[(null)] does not registered in uniqueModule."),
        PU_LOG_ROW((pu::test::FailAlloc(1), uIdRegisterUniqueIdModule("cat 2", 0, 1)), 3, uid,
                   "uIdRegisterUniqueIdModule: malloc error"),
        PU_LOG_ROW(withNode([](uList *l) { uListUninit(l); }), 3, list,
                   "uListUninit: Uninit list that has nodes not free!"),
        PU_LOG_ROW(withNode([](uList *l) {
                       pu::test::FailAlloc fault(1);
                       uListClearWithNodeNoNeedFree(l);
                   }),
                   3, list, "uListSpecialClear: init list error!"),
    });
    uIdUnregisterUniqueIdModule("cat");
}

} // namespace
