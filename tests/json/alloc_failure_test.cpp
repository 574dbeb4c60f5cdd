// JSON parameters and URL parameter lists with each of their allocations failing in turn: the
// documented failure value, nothing leaked, the list or tree still usable. cJSON is given the
// failing uMalloc through its hooks for this suite, so its own nodes are swept as well.
#include "fail_alloc.hpp"

#include <umem.h>
#include <upara.h>
#include <uparaurl.h>

#include <gtest/gtest.h>

#include <cstring>
#include <functional>
#include <string>

namespace {

using pu::test::AllocSteps;
using pu::test::FailAlloc;

struct AllocCase {
    const char *name;
    std::function<void(const FailAlloc &)> run;
    const char *known = nullptr; // why the case is skipped for now
};

const AllocCase kCases[] = {
    {"JsonBuildAndPrint",
     [](const FailAlloc &fault) {
         AllocSteps steps(fault);
         cJSON *obj = nullptr;
         if (steps.failed(uParaAddInt(&obj, "n", 5) != 0)) {
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
         if (!steps.failed(text == nullptr)) {
             EXPECT_EQ(uParaGetInt(text, -1, 1, "n"), 5);
         }
         uFree(text);
         uParaFree(obj);
     },
     "uParaAddObject retried after a refused allocation still fails"},
    {"JsonReplaceString",
     [](const FailAlloc &fault) {
         cJSON *obj = uParaCreateObject();
         if (obj == nullptr || uParaAddString(&obj, "s", "old") != 0) {
             EXPECT_TRUE(fault.hit());
             uParaFree(obj);
             return;
         }
         const bool hitBefore = fault.hit();
         const int32_t replaced = uParaAddString(&obj, "s", "new");
         if (hitBefore) {
             EXPECT_EQ(replaced, 0);
         } else {
             EXPECT_EQ(replaced != 0, fault.hit());
         }
         EXPECT_STREQ(cJSON_GetString(obj, "s", "none"), replaced == 0 ? "new" : "old");
         uParaFree(obj);
     },
     "a refused copy of the new string leaves the member null and reports success"},
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
    {"UrlListBuildAndJoin",
     [](const FailAlloc &fault) {
         AllocSteps steps(fault);
         uList *list = uParaUrlInit();
         if (steps.failed(list == nullptr)) {
             return;
         }
         if (steps.failed(uParaUrlAddString(list, "k", "a b") != 0)) {
             ASSERT_EQ(uParaUrlAddString(list, "k", "a b"), 0);
         }
         if (steps.failed(uParaUrlAddInt(list, "n", 3) != 0)) {
             ASSERT_EQ(uParaUrlAddInt(list, "n", 3), 0);
         }
         char *joined = uParaUrlStringPtrCreate(list);
         if (steps.failed(joined == nullptr)) {
             joined = uParaUrlStringPtrCreate(list); // the list was left as it was
         }
         EXPECT_STREQ(joined, "k=a+b&n=3");
         uFree(joined);
         uParaUrlDelete(list);
         uParaUrlUnInit(list);
     },
     "an adder reports success although one of its copies was refused"},
    {"UrlQueryAndValue",
     [](const FailAlloc &fault) {
         AllocSteps steps(fault);
         uList *list = uParaUrlQuery("a=1&b=x%20y&c");
         if (!steps.failed(list == nullptr)) {
             char value[8] = {};
             EXPECT_EQ(uParaQueryValueGet(list, "B", value, sizeof value), 0);
             EXPECT_STREQ(value, "x y");
         }
         uParaUrlQueryListDestroy(list);
         char *got = uParaUrlGetString("a=1&b=x%20y", "b", "d");
         if (!steps.failed(got == nullptr)) {
             EXPECT_STREQ(got, "x y");
         }
         uFree(got);
     },
     "a pair whose copy is refused is kept without its value"},
    {"UrlRecord",
     [](const FailAlloc &fault) {
         UParaUrlInfo *rec = nullptr;
         const int32_t parsed = uParaUrlParse("rtsp://u:p@cam.example:554/live;tcp", &rec);
         EXPECT_EQ(parsed == 0, fault.hit());
         if (parsed == 1) {
             EXPECT_STREQ(rec->host, "cam.example");
             EXPECT_STREQ(rec->transport, ";tcp");
             EXPECT_EQ(rec->port, 554);
         }
         uParaUrlFree(rec);
     },
     "a refused copy of the transport reads as absent and the parse succeeds"},
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

TEST_P(ParaAllocFailure, FailsCleanlyAndStaysUsable) {
    if (GetParam().known != nullptr) {
        GTEST_SKIP() << GetParam().known;
    }
    EXPECT_GT(pu::test::sweepAllocFailures(GetParam().run), 0U);
}

INSTANTIATE_TEST_SUITE_P(Operations, ParaAllocFailure, testing::ValuesIn(kCases),
                         [](const auto &info) { return std::string(info.param.name); });

} // namespace
