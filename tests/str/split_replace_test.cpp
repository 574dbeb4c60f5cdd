// SPDX-License-Identifier: MIT
// Splitting into lists and slots, key/value lines, key replacement and XML escaping.
#include <platform_utils.h>

#include <gtest/gtest.h>

#include <cstring>
#include <string>
#include <vector>

namespace {

// Takes the strings out of a list returned by a splitter and releases everything.
std::vector<std::string> drain(uList *list) {
    std::vector<std::string> out;
    if (list == nullptr) {
        return out;
    }
    while (uListSize(list) > 0) {
        auto *text = static_cast<char *>(uListRemove(list, 0));
        out.emplace_back(text);
        uFree(text);
    }
    EXPECT_EQ(uListUninit(list), 0);
    return out;
}

using Fields = std::vector<std::string>;

TEST(StrSep, DropsOrKeepsEmptyFields) {
    EXPECT_EQ(drain(uStrSep("a,,b,", ",")), (Fields{"a", "b"}));
    EXPECT_EQ(drain(uStrSepIgnoreEmpty("a,,b,", ",", 0)), (Fields{"a", "", "b", ""}));
    EXPECT_EQ(drain(uStrSepIgnoreEmpty(",a", ",", 0)), (Fields{"", "a"}));
    EXPECT_EQ(drain(uStrSep("a b;c", " ;")), (Fields{"a", "b", "c"})); // any delimiter char
    EXPECT_EQ(drain(uStrSep("abc", ",")), (Fields{"abc"}));
    EXPECT_EQ(uStrSep(",,,", ","), nullptr); // nothing left: no list
    EXPECT_EQ(uStrSep("", ","), nullptr);
    EXPECT_EQ(uStrSep(nullptr, ","), nullptr);
    EXPECT_EQ(uStrSep("a", nullptr), nullptr);
}

// Runs uStrListGet into count slots of slotSize bytes and returns (result, slot texts).
struct Slots {
    uint32_t count;
    Fields texts;
};
Slots listGet(const char *str, int32_t count, int32_t slotSize, const char *sep) {
    std::vector<char> slots(static_cast<size_t>(count * slotSize), 'X');
    Slots result{uStrListGet(str, slots.data(), count, slotSize, sep), {}};
    for (int32_t i = 0; i < count; ++i) {
        result.texts.emplace_back(slots.data() + i * slotSize);
    }
    return result;
}

TEST(StrListGet, QuoteProtectsTheSeparatorOnlyAtTheFieldStart) {
    Slots got = listGet("a,\"b,c\",d,", 8, 16, ",");
    EXPECT_EQ(got.count, 3u);
    EXPECT_EQ(got.texts, (Fields{"a", "b,c", "d", "", "", "", "", ""}));

    got = listGet("a, \"b,c\"", 4, 16, ","); // the space before the quote lets the comma split
    EXPECT_EQ(got.count, 3u);
    EXPECT_EQ(got.texts[1], "\"b");
    EXPECT_EQ(got.texts[2], "c\"");

    got = listGet("\"a,b\"", 4, 16, ","); // closing quote, no separator after it: last field
    EXPECT_EQ(got.count, 1u);
    EXPECT_EQ(got.texts[0], "a,b");

    got = listGet("\"a,b", 4, 16, ","); // no closing quote: the quote has no effect
    EXPECT_EQ(got.count, 2u);
    EXPECT_EQ(got.texts[0], "\"a");

    got = listGet("x\"y\"z", 4, 16, "\""); // with '"' as separator there is no quote rule
    EXPECT_EQ(got.count, 3u);
    EXPECT_EQ(got.texts[1], "y");
}

TEST(StrListGet, CountsEmptyFieldsCutsAndStops) {
    Slots got = listGet("a,,b", 4, 8, ",");
    EXPECT_EQ(got.count, 3u);
    EXPECT_EQ(got.texts, (Fields{"a", "", "b", ""}));

    got = listGet("abcdefgh,ijklmnop", 2, 4, ","); // cut to slotSize-1
    EXPECT_EQ(got.count, 2u);
    EXPECT_EQ(got.texts, (Fields{"abc", "ijk"}));

    got = listGet("a,b,c,d", 2, 4, ","); // the rest past count is ignored
    EXPECT_EQ(got.count, 2u);
    EXPECT_EQ(got.texts, (Fields{"a", "b"}));

    got = listGet(" a \r\n:: \"b\" ", 3, 8, "::"); // multi-character separator, fields cleaned
    EXPECT_EQ(got.count, 2u);
    EXPECT_EQ(got.texts, (Fields{"a", "b", ""}));

    EXPECT_EQ(uStrListGet("a,b,c", nullptr, 8, 8, ","), 3u); // count only
    EXPECT_EQ(uStrListGet("a,b,c", nullptr, 0, 8, ","), 0u);
    EXPECT_EQ(uStrListGet("", nullptr, 8, 8, ","), 0u);
    EXPECT_EQ(uStrListGet(nullptr, nullptr, 8, 8, ","), 0u);

    std::vector<char> slots(16, 'X');
    EXPECT_EQ(uStrListGet("a", slots.data(), -1, 8, ","), 0u);
    EXPECT_EQ(slots[0], 'X'); // a negative count zeroes nothing
}

TEST(StrListMatchKey, ExactOrStripped) {
    EXPECT_EQ(uStrListMatchKey("red, green ,blue", "green", ",", 0), 1);
    EXPECT_EQ(uStrListMatchKey("red, green ,blue", "green", ",", 1), 0);
    EXPECT_EQ(uStrListMatchKey("red, green ,blue", " green ", ",", 1), 1);
    EXPECT_EQ(uStrListMatchKey("red,blue", "blue", ",", 1), 1);
    EXPECT_EQ(uStrListMatchKey("red,blue", "re", ",", 0), 0);
    EXPECT_EQ(uStrListMatchKey(nullptr, "a", ",", 0), 0);
    EXPECT_EQ(uStrListMatchKey("a", nullptr, ",", 0), 0);
}

// The parsed (key, value) of line, with "<null>" for a missing part; "<none>" for no record.
std::pair<std::string, std::string> keyValue(const char *line, const char *sep) {
    UStrKeyValue *kv = uStrKeyValueParse(line, sep);
    if (kv == nullptr) {
        return {"<none>", "<none>"};
    }
    std::pair<std::string, std::string> out{kv->key ? kv->key : "<null>",
                                            kv->value ? kv->value : "<null>"};
    uStrKeyValueFree(kv);
    return out;
}

TEST(StrKeyValue, SplitsAtFirstSeparatorAndStripsBothParts) {
    using KV = std::pair<std::string, std::string>;
    EXPECT_EQ(keyValue(" key = value \r\n", "="), (KV{"key", "value"}));
    EXPECT_EQ(keyValue("k=", "="), (KV{"k", "<null>"}));
    EXPECT_EQ(keyValue("=v", "="), (KV{"<null>", "v"}));
    EXPECT_EQ(keyValue("a=b=c", "="), (KV{"a", "b=c"}));
    EXPECT_EQ(keyValue("name::x", "::"), (KV{"name", "x"}));
    EXPECT_EQ(keyValue("\tk \t=\t v\t", "="), (KV{"k", "v"}));

    EXPECT_EQ(uStrKeyValueParse(" = \r\n", "="), nullptr); // only the separator
    EXPECT_EQ(uStrKeyValueParse("novalue", "="), nullptr);
    EXPECT_EQ(uStrKeyValueParse("", "="), nullptr);
    EXPECT_EQ(uStrKeyValueParse("a=b", ""), nullptr);
    EXPECT_EQ(uStrKeyValueParse(nullptr, "="), nullptr);
    uStrKeyValueFree(nullptr);
}

TEST(StrReplaceKey, LeftToRightWithoutRescanningAndCutToSize) {
    char buf[32] = "aaa";
    uStrReplaceKey(buf, sizeof(buf), "aa", "b"); // no overlaps
    EXPECT_STREQ(buf, "ba");
    std::strcpy(buf, "abab");
    uStrReplaceKey(buf, sizeof(buf), "a", "aa"); // the replacement is not searched again
    EXPECT_STREQ(buf, "aabaab");
    std::strcpy(buf, "x-KEY-key");
    uStrReplaceKey(buf, sizeof(buf), "key", "v");
    EXPECT_STREQ(buf, "x-KEY-v");
    std::strcpy(buf, "x-KEY-key");
    uStrCaseReplaceKey(buf, sizeof(buf), "key", "v");
    EXPECT_STREQ(buf, "x-v-v");
    std::strcpy(buf, "a\"\"b");
    uStrReplaceKey(buf, sizeof(buf), "\"\"", "");
    EXPECT_STREQ(buf, "ab");

    char small[8] = "ab";
    uStrReplaceKey(small, sizeof(small), "b", "123456789"); // cut to size-1
    EXPECT_STREQ(small, "a123456");

    std::strcpy(buf, "same");
    uStrReplaceKey(buf, sizeof(buf), "", "x");
    uStrReplaceKey(buf, 0, "s", "x");
    uStrReplaceKey(buf, sizeof(buf), nullptr, "x");
    uStrReplaceKey(buf, sizeof(buf), "s", nullptr);
    uStrReplaceKey(nullptr, 8, "s", "x");
    EXPECT_STREQ(buf, "same");
}

TEST(StrReplaceXml, EscapesAndCutsEntitiesAtTheEnd) {
    char buf[64] = "<a href='x'>";
    uStrReplaceXml(buf, sizeof(buf), 0);
    EXPECT_STREQ(buf, "&lt;a href='x'&gt;");
    std::strcpy(buf, "<a href='x' t=\"y\">&");
    uStrReplaceXml(buf, sizeof(buf), 1);
    EXPECT_STREQ(buf, "&lt;a href=&apos;x&apos; t=&quot;y&quot;&gt;&amp;");
    std::strcpy(buf, "\"q\"");
    uStrReplaceXml(buf, sizeof(buf), 2); // only mode 1 escapes quotes
    EXPECT_STREQ(buf, "\"q\"");

    char small[8] = "ab&cd";
    uStrReplaceXml(small, sizeof(small), 0); // "ab&amp;" is 7 characters: exactly full
    EXPECT_STREQ(small, "ab&amp;");
    char cut[8] = "abc&d";
    uStrReplaceXml(cut, sizeof(cut), 0);
    EXPECT_STREQ(cut, "abc&amp"); // the entity is cut short
    char one[1] = "";
    uStrReplaceXml(one, 1, 0);
    EXPECT_STREQ(one, "");
    uStrReplaceXml(nullptr, 8, 0);
}

} // namespace
