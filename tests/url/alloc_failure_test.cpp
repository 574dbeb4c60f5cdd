// SPDX-License-Identifier: MIT
// URL parsing and query parameter lists with each of their uMalloc calls failing in turn: the
// documented failure value, nothing leaked, the list still usable, and never a wrong split or a
// record or pair missing a part in place of a failure.
#include "fail_alloc.hpp"

#include <ulist.h>
#include <umem.h>
#include <uparaurl.h>
#include <ustrurl.h>

#include <gtest/gtest.h>

#include <string>

namespace {

using pu::test::AllocCase;
using pu::test::AllocSteps;
using pu::test::FailAlloc;
using pu::test::reportingCase;

// Each case reports a failure when any of its calls did: one allocation fails per run.
const AllocCase kCases[] = {
    reportingCase("ParseAndEscape",
                  [] {
                      UStrUrlPara *rec = reinterpret_cast<UStrUrlPara *>(1);
                      char *out = nullptr;
                      const bool failed = uStrUrlParse("http://u:p@host:81/path?q=1#f", &rec) != 0;
                      EXPECT_EQ(failed, rec == nullptr);
                      EXPECT_TRUE(failed || (std::string(rec->host) + rec->port + rec->path +
                                             rec->fragment) == "host81pathf");
                      uStrUrlParaFree(failed ? nullptr : rec);
                      const bool escapeFailed = uStrFileNameEscape("a:b", &out) != 0;
                      EXPECT_EQ(escapeFailed, out == nullptr);
                      EXPECT_TRUE(escapeFailed || std::string(out) == "a%3Ab");
                      uFree(out);
                      return failed || escapeFailed;
                  }),
    reportingCase(
        "UrlRecord",
        [] {
            UParaUrlInfo *rec = nullptr;
            const int32_t parsed = uParaUrlParse("rtsp://u:p@cam.example:554/live;tcp", &rec);
            EXPECT_TRUE(parsed == 0 || (std::string(rec->host) + rec->transport +
                                        std::to_string(rec->port)) == "cam.example;tcp554");
            uParaUrlFree(rec);
            return parsed == 0;
        }),
    {"UrlListQueryAndJoin",
     [](const FailAlloc &fault) {
         AllocSteps steps(fault);
         uList *list = uParaUrlInit();
         if (steps.failed(list == nullptr)) {
             return;
         }
         // A refused step leaves the list as it was: the same step then succeeds.
         if (steps.failed(uParaUrlAddString(list, "k", "a b") != 0)) {
             ASSERT_EQ(uParaUrlAddString(list, "k", "a b"), 0);
         }
         if (steps.failed(uParaUrlAddInt(list, "n", 3) != 0)) {
             ASSERT_EQ(uParaUrlAddInt(list, "n", 3), 0);
         }
         char *joined = uParaUrlStringPtrCreate(list);
         if (steps.failed(joined == nullptr)) {
             joined = uParaUrlStringPtrCreate(list);
         }
         uList *pairs = uParaUrlQuery(joined);
         char value[8] = {};
         EXPECT_TRUE(steps.failed(pairs == nullptr) ||
                     (uParaQueryValueGet(pairs, "K", value, sizeof value) == 0 &&
                      std::string(value) == "a b"));
         uParaUrlQueryListDestroy(pairs);
         char *got = uParaUrlGetString(joined, "n", "d");
         EXPECT_TRUE(steps.failed(got == nullptr) || std::string(got) == "3");
         uFree(got);
         uFree(joined);
         uParaUrlDelete(list);
         uParaUrlUnInit(list);
     }},
};

class UrlAllocFailure : public testing::TestWithParam<AllocCase> {};

PU_ALLOC_FAILURE_SWEEP(UrlAllocFailure, kCases);

} // namespace
