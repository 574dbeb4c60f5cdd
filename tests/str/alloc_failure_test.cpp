// SPDX-License-Identifier: MIT
// The string helpers that allocate, with each of their uMalloc calls failing in turn: the
// documented failure value, partial results released, and the same call succeeding afterwards.
#include "fail_alloc.hpp"

#include <ucsv.h>
#include <ulist.h>
#include <umem.h>
#include <ustr.h>

#include <gtest/gtest.h>

#include <functional>
#include <string>
#include <vector>

namespace {

using pu::test::AllocCase;
using pu::test::reportingCase;

void freeStrings(uList *list) {
    if (list != nullptr) {
        while (uListEol(list, 0) == 0) {
            uFree(uListRemove(list, 0));
        }
        uListUninit(list);
    }
}

std::vector<std::string> takeStrings(uList *list) {
    std::vector<std::string> out;
    for (int32_t i = 0; uListEol(list, i) == 0; ++i) {
        out.emplace_back(static_cast<const char *>(uListGet(list, i)));
    }
    freeStrings(list);
    return out;
}

// A new string (or null) compared with the expected text and released.
bool ownedText(char *text, const char *expected) {
    if (text != nullptr) {
        EXPECT_STREQ(text, expected);
    }
    uFree(text);
    return text == nullptr;
}

void collectRow(void *userArg, uList *fields) {
    auto *rows = static_cast<std::vector<std::string> *>(userArg);
    for (int32_t i = 0; uListEol(fields, i) == 0; ++i) {
        auto *field = static_cast<char *>(uListGet(fields, i));
        rows->emplace_back(field);
        uFree(field);
    }
}

const AllocCase kCases[] = {
    reportingCase("GetCopy", [] { return ownedText(uStrGetCopy("abc"), "abc"); }),
    reportingCase("IntToString", [] { return ownedText(uStrGetInt2StrCpy(-42), "-42"); }),
    reportingCase("DynamicSafeNCat",
                  [] {
                      char *buf = nullptr;
                      char *result = uStrDynamicSafeNCat(&buf, 16, "abcdef", 3);
                      EXPECT_EQ(result, buf);
                      return ownedText(buf, "abc");
                  }),
    reportingCase("Split",
                  [] {
                      uList *list = uStrSep("a,,b", ",");
                      if (list != nullptr) {
                          EXPECT_EQ(takeStrings(list), (std::vector<std::string>{"a", "b"}));
                      }
                      return list == nullptr;
                  }),
    reportingCase("KeyValue",
                  [] {
                      UStrKeyValue *rec = uStrKeyValueParse(" k = v ", "=");
                      if (rec != nullptr) {
                          EXPECT_STREQ(rec->key, "k");
                          EXPECT_STREQ(rec->value, "v");
                      }
                      uStrKeyValueFree(rec);
                      return rec == nullptr;
                  }),
    reportingCase("ReplaceKey",
                  [] {
                      char buf[32] = "a-a";
                      uStrReplaceKey(buf, sizeof buf, "a", "xyz");
                      if (std::string(buf) == "a-a") {
                          return true; // nothing done when memory is short
                      }
                      EXPECT_STREQ(buf, "xyz-xyz");
                      return false;
                  }),
    reportingCase("DecodeCsv",
                  [] {
                      char *out = reinterpret_cast<char *>(1);
                      const int32_t result = uStrDecodeCsv("\"a\"\"b\"", &out);
                      EXPECT_EQ(result == -1, out == nullptr);
                      return result == -1 || ownedText(out, "a\"b");
                  }),
    reportingCase("CsvRow",
                  [] {
                      uList *list = uStrParseCsvRow("a, \"b,c\",d");
                      if (list != nullptr) {
                          EXPECT_EQ(takeStrings(list), (std::vector<std::string>{"a", "b,c", "d"}));
                      }
                      return list == nullptr;
                  }),
    reportingCase("CsvData",
                  [] {
                      // Memory short at the start fails the call; later a field that cannot be made
                      // is dropped.
                      std::vector<std::string> fields;
                      const char *data = "a,b\nc\n";
                      const int32_t consumed = uStrParseCsvData(data, 0, &fields, collectRow);
                      if (consumed == -1) {
                          EXPECT_TRUE(fields.empty());
                          return true;
                      }
                      EXPECT_EQ(consumed, 6);
                      EXPECT_GE(fields.size(), 2U);
                      return fields.size() != 3;
                  }),
};

class StrAllocFailure : public testing::TestWithParam<AllocCase> {};

PU_ALLOC_FAILURE_SWEEP(StrAllocFailure, kCases);

} // namespace
