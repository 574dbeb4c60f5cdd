// SPDX-License-Identifier: MIT
// Building lists at a remembered tail: the builder itself (order, count, head and tail, a node
// allocation failing midway), and the parsers that build long lists from untrusted text, which
// must stay linear: on a megabyte of input a walk from the head per element would run for
// minutes and hit the suite's time-out.
#include <platform_utils.h>

#include "core/list_internal.hpp"
#include "fail_alloc.hpp"

#include <gtest/gtest.h>

#include <cstdlib>
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

std::string contents(uList *list) {
    std::string out;
    for (uListNode *node = list->head; node != nullptr; node = node->next) {
        out += static_cast<const char *>(node->data);
    }
    return out;
}

// Steps: a letter is appended; '0' appends a null element; '!' appends 'F' with its node
// allocation failing. Both refusals must leave the list and the tail as they were.
struct BuilderCase {
    const char *before; // appended with uListAppend before the builder starts
    const char *steps;
    const char *after;
    bool locked;
};

TEST(ListBuilder, AppendsInOrderAtTheTailAndRefusesCleanly) {
    const BuilderCase cases[] = {
        {"", "abc", "abc", false},  {"xy", "abc", "xyabc", false}, {"x", "", "x", false},
        {"", "a!bc", "abc", false}, {"", "!a", "a", false},        {"ab", "0c!d", "abcd", true},
        {"", "", "", true},
    };
    for (const BuilderCase &c : cases) {
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
            if (*p == '0') {
                result = builder.append(nullptr);
            } else if (*p == '!') {
                const pu::test::FailAlloc fault(1);
                result = builder.append(letter('F'));
                EXPECT_TRUE(fault.hit());
            } else {
                result = builder.append(letter(*p));
            }
            if (*p == '0' || *p == '!') {
                EXPECT_EQ(result, -1);
                EXPECT_EQ(uListSize(list), sizeBefore);
                EXPECT_EQ(builder.tail(), tailBefore);
            } else {
                EXPECT_EQ(result, sizeBefore + 1);
                ASSERT_NE(builder.tail(), nullptr);
                EXPECT_EQ(builder.tail()->data, letter(*p));
                EXPECT_EQ(builder.tail()->next, nullptr);
            }
        }
        const std::string after = c.after;
        EXPECT_EQ(contents(list), after);
        EXPECT_EQ(uListSize(list), static_cast<int32_t>(after.size()));
        if (!after.empty()) {
            EXPECT_EQ(uListFirst(list), letter(after.front()));
        }
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
    EXPECT_EQ(contents(list), "ac");
    uListClearWithNodeNoNeedFree(list);
    builder.restart();
    EXPECT_EQ(builder.tail(), nullptr);
    EXPECT_EQ(builder.append(letter('d')), 1);
    EXPECT_EQ(contents(list), "d");
    uListClearWithNodeNoNeedFree(list);
    uListUninit(list);

    pu::core::ListBuilder none(nullptr);
    EXPECT_EQ(none.append(letter('a')), -1);
}

// Frees a list of uMalloc strings the way callers do, returning its strings.
Strings takeStrings(uList *list) {
    Strings out;
    if (list == nullptr) {
        return out;
    }
    for (uListNode *node = list->head; node != nullptr; node = node->next) {
        out.emplace_back(static_cast<const char *>(node->data));
    }
    uListSpecialClear(list, nullptr);
    uListUninit(list);
    return out;
}

Strings takePairs(uList *list) {
    Strings out;
    if (list == nullptr) {
        return out;
    }
    for (uListNode *node = list->head; node != nullptr; node = node->next) {
        const auto *pair = static_cast<const UParaUrlPair *>(node->data);
        out.push_back(std::string(pair->key) + "=" + (pair->value != nullptr ? pair->value : ""));
    }
    uParaUrlDelete(list);
    uParaUrlUnInit(list);
    return out;
}

// "<prefix>0<sep><prefix>1<sep>...", count elements.
std::string numbered(const std::string &prefix, const std::string &sep, int count) {
    std::string text;
    for (int i = 0; i < count; ++i) {
        text += (i == 0 ? "" : sep) + prefix + std::to_string(i);
    }
    return text;
}

Strings restfulVariables(const std::string &url, const std::string &templ) {
    uList *pairs = nullptr;
    EXPECT_EQ(uParaUrlGetVariablesFromRestfulUrl(url.c_str(), templ.c_str(), &pairs), 0);
    return takePairs(pairs);
}

struct LargeCase {
    const char *name;
    std::function<Strings()> parse;
    std::size_t count;
    std::string first;
    std::string last;
};

TEST(ListBuilder, LongUntrustedTextsParseInLinearTime) {
    constexpr int kCount = 150000; // about 1.2 MB of text per case
    const std::string lastIndex = std::to_string(kCount - 1);
    std::string joined;
    for (int i = 0; i < kCount; ++i) {
        joined += i == 0 ? "x" : ",x";
    }
    const LargeCase cases[] = {
        {"uStrSep", [&] { return takeStrings(uStrSep(numbered("e", ",", kCount).c_str(), ",")); },
         kCount, "e0", "e" + lastIndex},
        {"uStrParseCsvRow",
         [&] { return takeStrings(uStrParseCsvRow(numbered("f", ",", kCount).c_str())); }, kCount,
         "f0", "f" + lastIndex},
        {"uParaUrlQuery",
         [&] {
             std::string query;
             for (int i = 0; i < kCount; ++i) {
                 query += (i == 0 ? "k" : "&k") + std::to_string(i) + "=v" + std::to_string(i);
             }
             return takePairs(uParaUrlQuery(query.c_str()));
         },
         kCount, "k0=v0", "k" + lastIndex + "=v" + lastIndex},
        {"restful distinct names",
         [&] {
             return restfulVariables("/" + numbered("", "/", kCount),
                                     "/" + numbered("@v", "/", kCount));
         },
         kCount, "v0=0", "v" + lastIndex + "=" + lastIndex},
        {"restful one repeated name",
         [&] {
             std::string url;
             std::string templ;
             for (int i = 0; i < kCount; ++i) {
                 url += "/x";
                 templ += "/@a";
             }
             return restfulVariables(url, templ);
         },
         1, "a=" + joined, "a=" + joined},
    };
    for (const LargeCase &c : cases) {
        SCOPED_TRACE(c.name);
        const Strings result = c.parse();
        ASSERT_EQ(result.size(), c.count);
        EXPECT_EQ(result.front(), c.first);
        EXPECT_EQ(result.back(), c.last);
    }
}

} // namespace
