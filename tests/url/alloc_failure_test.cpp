// SPDX-License-Identifier: MIT
// URL parsing and query parameter lists with each of their uMalloc calls failing in turn: the
// documented failure value, nothing leaked, the list still usable, and never a wrong split or a
// record or pair missing a part in place of a failure.
#include "fail_alloc.hpp"

#include <platform_utils.h>

#include <gtest/gtest.h>

#include <string>

namespace {

const pu::test::AllocCase kCases[] = {
    {"ParseEscapeQueryAndJoin", [](const pu::test::FailAlloc &fault) {
         pu::test::AllocSteps steps(fault);
         UStrUrlPara *rec = reinterpret_cast<UStrUrlPara *>(1);
         const bool failed = steps.failed(uStrUrlParse("http://u:p@host:81/p?q=1#f", &rec) != 0);
         EXPECT_TRUE(failed ? rec == nullptr
                            : std::string(rec->host) + rec->port + rec->path + rec->fragment ==
                                  "host81pf");
         uStrUrlParaFree(failed ? nullptr : rec);
         char *out = nullptr;
         EXPECT_TRUE(steps.failed(uStrFileNameEscape("a:b", &out) != 0) ||
                     std::string(out) == "a%3Ab");
         uFree(out);
         UParaUrlInfo *info = nullptr;
         EXPECT_TRUE(steps.failed(uParaUrlParse("rtsp://cam.example:554/live;tcp", &info) != 1) ||
                     std::string(info->host) + info->transport == "cam.example;tcp");
         uParaUrlFree(info);
         uList *list = uParaUrlInit();
         if (steps.failed(list == nullptr)) {
             return;
         }
         // A refused step leaves the list as it was: the same step then succeeds.
         if (steps.failed(uParaUrlAddString(list, "k", "a b") != 0)) {
             ASSERT_EQ(uParaUrlAddString(list, "k", "a b"), 0);
         }
         steps.failed(uParaUrlAddString(list, "k", "a b") != 0); // an update allocates too
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
         char *got = uParaUrlGetString(joined, "k", "d");
         EXPECT_TRUE(steps.failed(got == nullptr) || std::string(got) == "a b");
         uFree(got);
         uFree(joined);
         uParaUrlUnInit(list);
     }}};

class UrlAllocFailure : public testing::TestWithParam<pu::test::AllocCase> {};

PU_ALLOC_FAILURE_SWEEP(UrlAllocFailure, kCases);

} // namespace
