// SPDX-License-Identifier: MIT
// Query parameters: building lists, joining them, reading values, splitting queries.
#include <platform_utils.h>

#include <gtest/gtest.h>

#include <climits>

#include <string>
#include <utility>
#include <vector>

namespace {

using Pairs = std::vector<std::pair<std::string, std::string>>;

std::string orNull(const char *text) {
    return text == nullptr ? "<null>" : text;
}

Pairs pairsOf(uList *list) {
    Pairs out;
    for (uListNode *node = list->head; node != nullptr; node = node->next) {
        const auto *pair = static_cast<const UParaUrlPair *>(node->data);
        out.emplace_back(orNull(pair->key), orNull(pair->value));
    }
    return out;
}

std::string join(uList *list, char sep = '&') {
    char *text =
        sep == '&' ? uParaUrlStringPtrCreate(list) : uParaUrlStringPtrCreateUnencoded(list, sep);
    std::string out = orNull(text);
    uFree(text);
    return out;
}

std::string takeString(char *text) {
    std::string out = orNull(text);
    uFree(text);
    return out;
}

class ParamList : public ::testing::Test {
  protected:
    void TearDown() override {
        uParaUrlDelete(list);
        uParaUrlUnInit(list);
    }
    uList *list = uParaUrlInit();
};

} // namespace

TEST_F(ParamList, EncodedAddsAndJoin) {
    ASSERT_EQ(0, uParaUrlAddString(list, "a b", "x y#z"));
    EXPECT_EQ((Pairs{{"a+b", "x+y%23z"}}), pairsOf(list));
    // Query rules keep '&' and '=' as they are.
    ASSERT_EQ(0, uParaUrlAddString(list, "k", "1&2=3"));
    ASSERT_EQ(0, uParaUrlAddInt(list, "i", -5));
    ASSERT_EQ(0, uParaUrlAddLong(list, "l", 9000000000LL));
    ASSERT_EQ(0, uParaUrlAddString(list, "e", ""));
    EXPECT_EQ("a+b=x+y%23z&k=1&2=3&i=-5&l=9000000000&e=", join(list));
    EXPECT_EQ(0, uListSize(list)); // consumed
    EXPECT_EQ("", join(list));
}

TEST_F(ParamList, SameKeyUpdatesInPlace) {
    ASSERT_EQ(0, uParaUrlAddInt(list, "a", 1));
    ASSERT_EQ(0, uParaUrlAddInt(list, "b", 2));
    ASSERT_EQ(0, uParaUrlAddInt(list, "a", 3));
    EXPECT_EQ((Pairs{{"a", "3"}, {"b", "2"}}), pairsOf(list));
    // The stored key is the encoded one: "a b" and "a+b" are the same pair.
    ASSERT_EQ(0, uParaUrlAddInt(list, "a b", 1));
    ASSERT_EQ(0, uParaUrlAddIntUnencoded(list, "a+b", 2));
    EXPECT_EQ(3U, pairsOf(list).size());
    EXPECT_EQ("a=3;b=2;a+b=2", join(list, ';'));
}

TEST_F(ParamList, BoolRulesDifferBetweenVariants) {
    ASSERT_EQ(0, uParaUrlAddBool(list, "e1", 1));
    ASSERT_EQ(0, uParaUrlAddBool(list, "e2", 2));
    ASSERT_EQ(0, uParaUrlAddBoolUnencoded(list, "u2", 2));
    ASSERT_EQ(0, uParaUrlAddBoolUnencoded(list, "u0", 0));
    EXPECT_EQ((Pairs{{"e1", "TRUE"}, {"e2", "FALSE"}, {"u2", "TRUE"}, {"u0", "FALSE"}}),
              pairsOf(list));
}

TEST_F(ParamList, UnencodedAddsKeepText) {
    ASSERT_EQ(0, uParaUrlAddStringUnencoded(list, "a b", "x y#"));
    ASSERT_EQ(0, uParaUrlAddStringUnencoded(list, "empty", ""));
    ASSERT_EQ(0, uParaUrlAddLongUnencoded(list, "l", -1));
    EXPECT_EQ((Pairs{{"a b", "x y#"}, {"empty", ""}, {"l", "-1"}}), pairsOf(list));
}

TEST_F(ParamList, BadArgumentsAndCuts) {
    EXPECT_EQ(-1, uParaUrlAddInt(nullptr, "a", 1));
    EXPECT_EQ(-1, uParaUrlAddInt(list, nullptr, 1));
    EXPECT_EQ(-1, uParaUrlAddInt(list, "", 1));
    EXPECT_EQ(-1, uParaUrlAddString(list, "a", nullptr));
    EXPECT_EQ(-1, uParaUrlAddStringUnencoded(list, "a", nullptr));
    EXPECT_EQ(0, uListSize(list));
    EXPECT_EQ(nullptr, uParaUrlStringPtrCreate(nullptr));
    // Keys are cut at 60 and values at 508 encoded characters.
    ASSERT_EQ(
        0, uParaUrlAddString(list, std::string(100, 'k').c_str(), std::string(2000, ' ').c_str()));
    const Pairs pairs = pairsOf(list);
    ASSERT_EQ(1U, pairs.size());
    EXPECT_EQ(std::string(61, 'k'), pairs[0].first);
    EXPECT_EQ(std::string(170, '+'), pairs[0].second); // 170 "%20" before the cut
}

TEST_F(ParamList, JoinStopsAtTheLimit) {
    for (int i = 0; i < 100; ++i) {
        ASSERT_EQ(0, uParaUrlAddStringUnencoded(list, ("key" + std::to_string(i)).c_str(),
                                                std::string(20, 'v').c_str()));
    }
    const std::string text = join(list);
    EXPECT_LE(text.size(), 1023U);
    EXPECT_GT(text.size(), 900U);
    EXPECT_NE('&', text.back());
    EXPECT_EQ(0U, text.rfind("key0=", 0));
    // Every pair in the text is whole.
    EXPECT_EQ(std::string(20, 'v'), text.substr(text.rfind('=') + 1));
    EXPECT_EQ(0, uListSize(list));
    // A single pair longer than the text is dropped whole.
    ASSERT_EQ(0, uParaUrlAddStringUnencoded(list, "big", std::string(3000, 'x').c_str()));
    EXPECT_EQ("", join(list));
}

TEST(UrlValueRead, KeyBoundariesAndSeparators) {
    EXPECT_EQ(7, uParaUrlGetInt("x=1&ax=5&a=7", "a", -1));
    EXPECT_EQ(-1, uParaUrlGetInt("a=7", "b", -1));
    EXPECT_EQ(5, uParaUrlGetInt("http://h/p?a=5&b=6", "a", -1));
    EXPECT_EQ(6, uParaUrlGetInt("http://h/p?a=5&b=6", "b", -1));
    EXPECT_EQ(-1, uParaUrlGetInt("ba=5", "a", -1));
    EXPECT_EQ(-1, uParaUrlGetInt("b=a=5", "a", -1));
    EXPECT_EQ(-1, uParaUrlGetInt("a&b=1", "a", -1)); // the first '=' must follow the key
    EXPECT_EQ(-1, uParaUrlGetInt("xa", "a", -1));
    EXPECT_EQ(0, uParaUrlGetInt("a=&b=2", "a", -1));
    EXPECT_EQ(3, uParaUrlGetIntUnencoded("x=1;a=3", "a", -1, ';'));
    EXPECT_EQ(-1, uParaUrlGetIntUnencoded("x=1&a=3", "a", -1, ';'));
    EXPECT_EQ(2, uParaUrlGetIntUnencoded("a=2;b=4", "a", -1, ';'));
    EXPECT_EQ(-9, uParaUrlGetInt(nullptr, "a", -9));
    EXPECT_EQ(-9, uParaUrlGetInt("a=1", nullptr, -9));
    EXPECT_EQ(-9, uParaUrlGetInt("=1", "", -9));
    EXPECT_EQ(2147483647, uParaUrlGetInt("a=99999999999", "a", 0));
}

TEST(UrlValueRead, TypedValues) {
    // atol of the value: the host's long, which saturates on a 32-bit build.
    EXPECT_EQ(sizeof(long) == 8 ? 9000000000LL : LONG_MAX,
              uParaUrlGetLong("n=9000000000", "n", -1));
    EXPECT_EQ(-1LL, uParaUrlGetLong("n=9", "m", -1));
    EXPECT_EQ(4LL, uParaUrlGetLongUnencoded("m=3|n=4", "n", -1, '|'));
    EXPECT_EQ(1, uParaUrlGetBool("on=True", "on", 5));
    EXPECT_EQ(1, uParaUrlGetBool("on=TRUEISH", "on", 5));
    EXPECT_EQ(0, uParaUrlGetBool("on=false", "on", 5));
    EXPECT_EQ(5, uParaUrlGetBool("on=yes", "on", 5));
    EXPECT_EQ(5, uParaUrlGetBool("on=fals", "on", 5));
    EXPECT_EQ(0, uParaUrlGetBoolUnencoded("on=FALSE", "on", 5, ';'));
    EXPECT_EQ("a b!", takeString(uParaUrlGetString("n=a+b%21", "n", nullptr)));
    EXPECT_EQ("%4", takeString(uParaUrlGetString("n=%4", "n", nullptr)));
    EXPECT_EQ("", takeString(uParaUrlGetString("n=&m=1", "n", "d")));
    EXPECT_EQ("d", takeString(uParaUrlGetString("m=1", "n", "d")));
    EXPECT_EQ("<null>", takeString(uParaUrlGetString("m=1", "n", "")));
    EXPECT_EQ("<null>", takeString(uParaUrlGetString(nullptr, "n", nullptr)));
    EXPECT_EQ("x y", takeString(uParaUrlGetStringUnencoded("k=x+y;z=1", "k", nullptr, ';')));
    // The key is encoded before the search, spaces as "%20".
    EXPECT_EQ("v", takeString(uParaUrlGetString("a%20b=v", "a b", nullptr)));
    // A key longer than its encoding buffer is searched for cut, and never read beyond.
    const std::string longKey(200, 'k');
    EXPECT_EQ(-1, uParaUrlGetInt(("x=1&" + longKey).c_str(), longKey.c_str(), -1));
}

TEST(UrlQueryList, SplitsAndDecodesPieces) {
    uList *list = uParaUrlQuery("a=1&b&=3");
    ASSERT_NE(nullptr, list);
    EXPECT_EQ((Pairs{{"a", "1"}, {"b", "<null>"}, {"<null>", "3"}}), pairsOf(list));
    uParaUrlQueryListDestroy(list);

    list = uParaUrlQuery("k+1=v%20w=x&&c=&%zz=%4");
    ASSERT_NE(nullptr, list);
    EXPECT_EQ((Pairs{{"k 1", "v w=x"}, {"c", "<null>"}, {"%zz", "%4"}}), pairsOf(list));
    char value[8];
    EXPECT_EQ(0, uParaQueryValueGet(list, "K 1", value, sizeof(value)));
    EXPECT_STREQ("v w=x", value);
    EXPECT_EQ(0, uParaQueryValueGet(list, "k 1", value, 3));
    EXPECT_STREQ("v ", value);
    EXPECT_EQ(-1, uParaQueryValueGet(list, "c", value, sizeof(value))); // no value
    EXPECT_EQ(-1, uParaQueryValueGet(list, "none", value, sizeof(value)));
    EXPECT_EQ(-1, uParaQueryValueGet(nullptr, "c", value, sizeof(value)));
    EXPECT_EQ(-1, uParaQueryValueGet(list, nullptr, value, sizeof(value)));
    EXPECT_EQ(-1, uParaQueryValueGet(list, "c", nullptr, sizeof(value)));
    uParaUrlQueryListDestroy(list);

    EXPECT_EQ(nullptr, uParaUrlQuery(nullptr));
    EXPECT_EQ(nullptr, uParaUrlQuery(""));
    list = uParaUrlQuery("&&&");
    ASSERT_NE(nullptr, list);
    EXPECT_EQ(0, uListSize(list));
    uParaUrlQueryListDestroy(list);
    uParaUrlQueryListDestroy(nullptr);
    urlParaQueryFree(nullptr);
}
