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

namespace {

using pu::test::AllocCase;
using pu::test::AllocSteps;
using pu::test::FailAlloc;
using pu::test::reportingCase;

const AllocCase kCases[] = {
    reportingCase("UrlParse",
                  [] {
                      UStrUrlPara *rec = reinterpret_cast<UStrUrlPara *>(1);
                      const int32_t result = uStrUrlParse("http://u:p@host:81/path?q=1#f", &rec);
                      EXPECT_EQ(result == -1, rec == nullptr);
                      if (result == 0) {
                          EXPECT_STREQ(rec->host, "host");
                          EXPECT_STREQ(rec->port, "81");
                          EXPECT_STREQ(rec->path, "path");
                          EXPECT_STREQ(rec->fragment, "f");
                          uStrUrlParaFree(rec);
                      }
                      return result == -1;
                  }),
    reportingCase("FileNameEscape",
                  [] {
                      char *out = nullptr;
                      const int32_t result = uStrFileNameEscape("a:b", &out);
                      EXPECT_EQ(result == -1, out == nullptr);
                      if (result == 0) {
                          EXPECT_STREQ(out, "a%3Ab");
                      }
                      uFree(out);
                      return result == -1;
                  }),
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
     }},
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
     }},
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
     }},
};

class UrlAllocFailure : public testing::TestWithParam<AllocCase> {};

PU_ALLOC_FAILURE_SWEEP(UrlAllocFailure, kCases);

} // namespace
