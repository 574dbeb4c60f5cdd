// SPDX-License-Identifier: MIT
// The string helpers that allocate, with each of their uMalloc calls failing in turn: the
// documented failure value, partial results released, and the same call succeeding afterwards.
#include "fail_alloc.hpp"
#include "test_support.hpp"

#include <gtest/gtest.h>

#include <string>
#include <vector>

namespace {

using Fields = std::vector<std::string>;

// A new string (or null) compared with the expected text and released; true when null.
bool ownedText(char *text, const char *expected) {
    const bool failed = text == nullptr;
    EXPECT_TRUE(failed || pu::test::take(text) == expected);
    return failed;
}

// A result list (or null) compared with the expected fields and released; true when null. Drained
// by hand: the shared drain may allocate, which would blur whose allocation failed.
bool ownedList(uList *list, const Fields &expected) {
    if (list == nullptr) {
        return true;
    }
    Fields fields;
    while (uListSize(list) > 0) {
        auto *text = static_cast<char *>(uListRemove(list, 0));
        fields.emplace_back(text);
        uFree(text);
    }
    uListUninit(list);
    EXPECT_EQ(fields, expected);
    return false;
}

void collectRow(void *userArg, uList *fields) {
    for (uListNode *node = fields->head; node != nullptr; node = node->next) {
        static_cast<Fields *>(userArg)->emplace_back(static_cast<char *>(node->data));
        uFree(node->data);
    }
}

// Each case reports a failure when any of its calls did: one allocation fails per run.
const pu::test::AllocCase kCases[] = {
    pu::test::reportingCase(
        "CopiesSplitsAndKeys",
        [] {
            char *buf = nullptr;
            EXPECT_EQ(uStrDynamicSafeNCat(&buf, 16, "abcdef", 3), buf);
            UStrKeyValue *rec = uStrKeyValueParse(" k = v ", "=");
            EXPECT_TRUE(rec == nullptr ||
                        (std::string(rec->key) == "k" && std::string(rec->value) == "v"));
            uStrKeyValueFree(rec);
            char upper[8] = "";
            const bool upperFailed = uStrToUppercase("ab", upper, 8) == -1;
            EXPECT_TRUE(upperFailed || std::string(upper) == "AB");
            return upperFailed | ownedText(uStrGetCopy("abc"), "abc") |
                   ownedText(uStrGetInt2StrCpy(-42), "-42") | ownedText(buf, "abc") |
                   ownedList(uStrSep("a,,b", ","), {"a", "b"}) |
                   ownedList(uStrParseCsvRow("a, \"b,c\",d"), {"a", "b,c", "d"}) | (rec == nullptr);
        }),
    pu::test::reportingCase(
        "ReplaceAndCsv",
        [] {
            char buf[32] = "a-a"; // nothing done when memory is short
            uStrReplaceKey(buf, sizeof buf, "a", "xyz");
            EXPECT_TRUE(std::string(buf) == "a-a" || std::string(buf) == "xyz-xyz");
            char *out = reinterpret_cast<char *>(1);
            const int32_t result = uStrDecodeCsv("\"a\"\"b\"", &out);
            EXPECT_EQ(result == -1, out == nullptr);
            // Memory short at the start fails the call; later a field that cannot be
            // made is dropped.
            Fields fields;
            const int32_t consumed = uStrParseCsvData("a,b\nc\n", 0, &fields, collectRow);
            EXPECT_TRUE(consumed == 6 || (consumed == -1 && fields.empty()));
            return (std::string(buf) == "a-a") | ownedText(out, "a\"b") | (fields.size() != 3);
        }),
};

class StrAllocFailure : public testing::TestWithParam<pu::test::AllocCase> {};

PU_ALLOC_FAILURE_SWEEP(StrAllocFailure, kCases);

} // namespace
