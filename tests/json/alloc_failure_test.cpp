// SPDX-License-Identifier: MIT
// JSON parameters with each of their allocations failing in turn: the documented failure value,
// nothing leaked, the tree still usable. cJSON is given the failing uMalloc through its hooks for
// this suite, so its own nodes are swept as well.
#include "fail_alloc.hpp"

#include <platform_utils.h>

#include <gtest/gtest.h>

namespace {

using pu::test::AllocCase;
using pu::test::AllocSteps;
using pu::test::FailAlloc;

const AllocCase kCases[] = {
    {"JsonBuildAndPrint",
     [](const FailAlloc &fault) {
         AllocSteps steps(fault);
         cJSON *obj = uParaCreateObject();
         if (steps.failed(obj == nullptr) || steps.failed(uParaAddInt(&obj, "n", 5) != 0)) {
             ASSERT_EQ(uParaAddInt(&obj, "n", 5), 0);
         }
         cJSON *child = nullptr;
         if (steps.failed(uParaAddString(&child, "s", "text") != 0)) {
             ASSERT_EQ(uParaAddString(&child, "s", "text"), 0);
         }
         if (steps.failed(uParaAddObject(&obj, "c", &child) != 0)) {
             ASSERT_EQ(uParaAddObject(&obj, "c", &child), 0);
         }
         char *text = cJSON_Print_Oneline(obj);
         // Reading parses the text again, which may be refused memory too: then def.
         if (!steps.failed(text == nullptr)) {
             const int32_t n = uParaGetInt(text, -1, 1, "n");
             EXPECT_TRUE(steps.failed(n == -1) || n == 5);
         }
         uFree(text);
         uParaFree(obj);
     }},
    {"JsonReplaceString",
     [](const FailAlloc &fault) {
         cJSON *obj = nullptr;
         if (uParaAddString(&obj, "s", "old") != 0) {
             EXPECT_TRUE(fault.hit());
             uParaFree(obj);
             return;
         }
         const bool hitBefore = fault.hit();
         const int32_t replaced = uParaAddString(&obj, "s", "new");
         EXPECT_EQ(replaced != 0, !hitBefore && fault.hit());
         EXPECT_STREQ(cJSON_GetString(obj, "s", "none"), replaced == 0 ? "new" : "old");
         uParaFree(obj);
     }},
    {"JsonGetString",
     [](const FailAlloc &fault) {
         char def[] = "def";
         char *value = uParaGetString("{\"a\":{\"b\":\"x\"}}", def, 2, "a", "b");
         EXPECT_EQ(value == def, fault.hit());
         if (value != def) {
             EXPECT_STREQ(value, "x");
             uFree(value);
         }
     }},
};

void *hookMalloc(size_t size) {
    return size > UINT32_MAX ? nullptr : uMalloc(static_cast<uint32_t>(size));
}

class ParaAllocFailure : public testing::TestWithParam<AllocCase> {
  protected:
    static void SetUpTestSuite() {
        cJSON_Hooks hooks{hookMalloc, uFree};
        cJSON_InitHooks(&hooks);
    }
    static void TearDownTestSuite() { cJSON_InitHooks(nullptr); }
};

PU_ALLOC_FAILURE_SWEEP(ParaAllocFailure, kCases);

} // namespace
