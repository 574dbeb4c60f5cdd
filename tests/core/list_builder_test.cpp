// SPDX-License-Identifier: MIT
// Building lists at a remembered tail: the builder itself (order, count, tail, a node allocation
// failing midway), and parsers that build long lists from untrusted text, which must stay
// linear: on a megabyte of input a walk from the head per element would run for minutes and hit
// the suite's time-out.
#include <platform_utils.h>

#include "core/list_internal.hpp"
#include "fail_alloc.hpp"
#include "test_support.hpp"

#include <gtest/gtest.h>

#include <functional>
#include <string>
#include <vector>

namespace {

using Strings = std::vector<std::string>;

char *letter(char c) {
    static char storage[256][2];
    char *s = storage[static_cast<unsigned char>(c)];
    s[0] = c;
    return s;
}

// Steps: a letter is appended; '0' appends a null element; '!' appends 'F' with its node
// allocation failing. Both refusals must leave the list and the tail as they were.
TEST(ListBuilder, AppendsInOrderAtTheTailAndRefusesCleanly) {
    const struct {
        const char *before; // appended with uListAppend before the builder starts
        const char *steps;
        const char *after;
        bool locked;
    } cases[] = {
        {"", "abc", "abc", false},  {"xy", "abc", "xyabc", false}, {"x", "", "x", false},
        {"", "a!bc", "abc", false}, {"", "!a", "a", false},        {"ab", "0c!d", "abcd", true},
    };
    for (const auto &c : cases) {
        SCOPED_TRACE(std::string(c.before) + " + " + c.steps);
        uList *list = uListInit(c.locked ? 1 : 0);
        for (const char *p = c.before; *p != '\0'; ++p) {
            uListAppend(list, letter(*p));
        }
        pu::core::ListBuilder builder(list);
        for (const char *p = c.steps; *p != '\0'; ++p) {
            const int32_t sizeBefore = uListSize(list);
            uListNode *tailBefore = builder.tail();
            int32_t result = 0;
            if (*p == '!') {
                const pu::test::FailAlloc fault(1);
                result = builder.append(letter('F'));
                EXPECT_TRUE(fault.hit());
            } else {
                result = builder.append(*p == '0' ? nullptr : letter(*p));
            }
            if (*p == '0' || *p == '!') {
                EXPECT_EQ(result, -1);
                EXPECT_EQ(builder.tail(), tailBefore);
            } else {
                EXPECT_EQ(result, sizeBefore + 1);
                ASSERT_NE(builder.tail(), nullptr);
                EXPECT_EQ(builder.tail()->data, letter(*p));
                EXPECT_EQ(builder.tail()->next, nullptr);
            }
        }
        std::string contents;
        for (uListNode *node = list->head; node != nullptr; node = node->next) {
            contents += static_cast<const char *>(node->data);
        }
        EXPECT_EQ(contents, c.after);
        EXPECT_EQ(uListSize(list), static_cast<int32_t>(contents.size()));
        uListClearWithNodeNoNeedFree(list);
        EXPECT_EQ(uListUninit(list), 0);
    }
}

TEST(ListBuilder, RestartFindsTheEndAfterOtherChangesAndNullListRefuses) {
    uList *list = uListInit(0);
    pu::core::ListBuilder builder(list);
    builder.append(letter('a'));
    builder.append(letter('b'));
    uListRemove(list, 1); // the remembered tail is gone
    builder.restart();
    EXPECT_EQ(builder.tail()->data, letter('a'));
    builder.append(letter('c'));
    EXPECT_EQ(uListGet(list, 1), letter('c'));
    uListClearWithNodeNoNeedFree(list);
    builder.restart();
    EXPECT_EQ(builder.tail(), nullptr);
    EXPECT_EQ(builder.append(letter('d')), 1);
    EXPECT_EQ(uListFirst(list), letter('d'));
    uListClearWithNodeNoNeedFree(list);
    uListUninit(list);
    pu::core::ListBuilder none(nullptr);
    EXPECT_EQ(none.append(letter('a')), -1);
}

Strings takePairs(uList *list) {
    Strings out;
    for (uListNode *node = list != nullptr ? list->head : nullptr; node != nullptr;
         node = node->next) {
        const auto *pair = static_cast<const UParaUrlPair *>(node->data);
        out.push_back(std::string(pair->key) + "=" + pu::test::orNull(pair->value));
    }
    uParaUrlDelete(list);
    uParaUrlUnInit(list);
    return out;
}

TEST(ListBuilder, LongUntrustedTextsParseInLinearTime) {
    constexpr int kCount = 150000; // about 1.2 MB of text per case
    const std::string last = std::to_string(kCount - 1);
    std::string csv, query, url, templ, joined;
    for (int i = 0; i < kCount; ++i) {
        const std::string n = std::to_string(i);
        csv += (i == 0 ? "e" : ",e") + n;
        query += (i == 0 ? "k" : "&k") + n + "=v" + n;
        url += "/x";
        templ += "/@a";
        joined += i == 0 ? "x" : ",x";
    }
    const struct {
        const char *name;
        std::function<Strings()> parse;
        std::size_t count;
        std::string first, back;
    } cases[] = {
        {"uStrSep", [&] { return pu::test::takeStrings(uStrSep(csv.c_str(), ",")); }, kCount, "e0",
         "e" + last},
        {"uParaUrlQuery", [&] { return takePairs(uParaUrlQuery(query.c_str())); }, kCount, "k0=v0",
         "k" + last + "=v" + last},
        {"restful, one repeated name",
         [&] {
             uList *pairs = nullptr;
             EXPECT_EQ(uParaUrlGetVariablesFromRestfulUrl(url.c_str(), templ.c_str(), &pairs), 0);
             return takePairs(pairs);
         },
         1, "a=" + joined, "a=" + joined},
    };
    for (const auto &c : cases) {
        SCOPED_TRACE(c.name);
        const Strings result = c.parse();
        ASSERT_EQ(result.size(), c.count);
        EXPECT_EQ(result.front(), c.first);
        EXPECT_EQ(result.back(), c.back);
    }
}

} // namespace
