// SPDX-License-Identifier: MIT
// JSON parameters with each of their allocations failing in turn: the
// documented failure value, nothing leaked, the tree still usable. cJSON is
// given the failing uMalloc through its hooks for this suite, so its own nodes
// are swept as well.
#include "fail_alloc.hpp"

#include <platform_utils.h>

#include <gtest/gtest.h>

#include <string>

namespace {

const pu::test::AllocCase kCases[] = {
    {"JsonBuildPrintAndRead", [](const pu::test::FailAlloc &fault) {
         pu::test::AllocSteps steps(fault);
         cJSON *obj = nullptr;
         if (steps.failed(uParaAddString(&obj, "s", "old") != 0)) {
             ASSERT_EQ(uParaAddString(&obj, "s", "old"), 0); // the object stays usable
         }
         // A refused copy keeps the old string.
         const char *want = steps.failed(uParaAddString(&obj, "s", "new") != 0) ? "old" : "new";
         char *text = cJSON_Print_Oneline(obj);
         // Reading parses the text again, which may be refused memory too: then
         // def.
         if (!steps.failed(text == nullptr)) {
             char def[] = "def";
             char *s = uParaGetString(text, def, 1, "S");
             EXPECT_TRUE(steps.failed(s == def) || std::string(s) == want);
             uFree(s != def ? s : nullptr);
         }
         uFree(text);
         uParaFree(obj);
     }}};

void *hookMalloc(size_t size) {
    return size > UINT32_MAX ? nullptr : uMalloc(static_cast<uint32_t>(size));
}

class ParaAllocFailure : public testing::TestWithParam<pu::test::AllocCase> {
  protected:
    static void SetUpTestSuite() {
        cJSON_Hooks hooks{hookMalloc, uFree};
        cJSON_InitHooks(&hooks);
    }
    static void TearDownTestSuite() { cJSON_InitHooks(nullptr); }
};

PU_ALLOC_FAILURE_SWEEP(ParaAllocFailure, kCases);

} // namespace
