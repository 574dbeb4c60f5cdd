// SPDX-License-Identifier: MIT
// JSON parameters: path reads, typed member updates with their kept oddities, the exact-type
// member reads and the two display printers measured against cJSON's own.
#include "json_support.hpp"

#include <climits>
#include <gtest/gtest.h>

#include <climits>
#include <cmath>
#include <string>
#include <thread>
#include <vector>

namespace {

using pu::test::JsonTree;
using pu::test::parse;
using pu::test::printedOnOneLine;
using pu::test::take;

constexpr const char *kDeep =
    R"({"a":{"b":{"c":{"d":{"e":5,"f":{"g":6}},"n":4},"n":3},"n":2},"n":1})";

TEST(JsonPath, WalksOneToFiveKeysAndNoOtherDepth) {
    EXPECT_EQ(uParaGetInt(kDeep, -1, 1, "n"), 1);
    EXPECT_EQ(uParaGetInt(kDeep, -1, 2, "a", "n"), 2);
    EXPECT_EQ(uParaGetInt(kDeep, -1, 3, "a", "b", "n"), 3);
    EXPECT_EQ(uParaGetInt(kDeep, -1, 4, "a", "b", "c", "n"), 4);
    EXPECT_EQ(uParaGetInt(kDeep, -1, 5, "a", "b", "c", "d", "e"), 5);
    // Six keys would reach a value, but five is the limit; no depth reads nothing.
    EXPECT_EQ(uParaGetInt(kDeep, -1, 6, "a", "b", "c", "d", "f", "g"), -1);
    EXPECT_EQ(uParaGetInt(kDeep, -1, 0, "n"), -1);
    EXPECT_EQ(uParaGetInt(kDeep, -1, -3, "n"), -1);
    // Extra keys beyond the depth are ignored; the depth decides.
    EXPECT_EQ(uParaGetInt(kDeep, -1, 1, "n", "a"), 1);
    // Keys are matched ignoring case at every level.
    EXPECT_EQ(uParaGetInt(kDeep, -1, 3, "A", "B", "N"), 3);
}

TEST(JsonPath, MissingStepsAndBadTextGiveTheDefault) {
    EXPECT_EQ(uParaGetInt(kDeep, -7, 3, "a", "x", "n"), -7);
    EXPECT_EQ(uParaGetInt(kDeep, -7, 2, "x", "n"), -7);
    EXPECT_EQ(uParaGetInt(kDeep, -7, 1, nullptr), -7);
    EXPECT_EQ(uParaGetInt(R"({"a":1)", -7, 1, "a"), -7);
    EXPECT_EQ(uParaGetInt("", -7, 1, "a"), -7);
    EXPECT_EQ(uParaGetInt(nullptr, -7, 1, "a"), -7);
    // Walking into a number finds nothing below it.
    EXPECT_EQ(uParaGetInt(kDeep, -7, 2, "n", "n"), -7);
    // A top-level array has no members.
    EXPECT_EQ(uParaGetInt("[1,2]", -7, 1, "0"), -7);
    char def[] = "def";
    EXPECT_EQ(uParaGetString(kDeep, def, 2, "a", "zz"), def);
    EXPECT_EQ(uParaGetString(kDeep, nullptr, 0, "n"), nullptr);
    EXPECT_EQ(uParaGetLong(kDeep, -9, 9, "n"), -9);
}

TEST(JsonPath, ConvertsThePrintedItem) {
    EXPECT_EQ(uParaGetInt(R"({"a":{"b":7}})", -1, 2, "a", "b"), 7);
    // The object prints as "{..." and a string with its quote first: both read as 0.
    EXPECT_EQ(uParaGetInt(R"({"a":{"b":7}})", -1, 1, "a"), 0);
    EXPECT_EQ(uParaGetInt(R"({"s":"42"})", -1, 1, "s"), 0);
    EXPECT_EQ(uParaGetInt(R"({"f":-3.9})", -1, 1, "f"), -3);
    EXPECT_EQ(uParaGetInt(R"({"t":true})", -1, 1, "t"), 0);
    // The long read goes through the host's long, which saturates on a 32-bit build.
    EXPECT_EQ(uParaGetLong(R"({"big":5000000000})", -1, 1, "big"),
              sizeof(long) == 8 ? 5000000000LL : int64_t{LONG_MAX});
    EXPECT_EQ(uParaGetLong(R"({"neg":-42})", -1, 1, "neg"), -42);

    EXPECT_EQ(take(uParaGetString(R"({"s":"hi"})", nullptr, 1, "s")), "hi");
    // Escapes stay as cJSON prints them; only the enclosing quotes go.
    EXPECT_EQ(take(uParaGetString(R"({"s":"a\"b\\c\nd"})", nullptr, 1, "s")), R"(a\"b\\c\nd)");
    EXPECT_EQ(take(uParaGetString(R"({"s":""})", nullptr, 1, "s")), "");
    EXPECT_EQ(take(uParaGetString(R"({"n":12.5})", nullptr, 1, "n")), "12.5");
    EXPECT_EQ(take(uParaGetString(R"({"o":{"k":[1,2]}})", nullptr, 1, "o")),
              "{\n\t\"k\":\t[1, 2]\n}");
}

TEST(JsonPath, BoolReadsTrueWhenMissingWhateverTheDefault) {
    EXPECT_EQ(uParaGetBool(R"({"b":true})", 0, 1, "b"), 1);
    EXPECT_EQ(uParaGetBool(R"({"b":false})", 1, 1, "b"), 0);
    EXPECT_EQ(uParaGetBool(R"({"B":false})", 1, 1, "b"), 0);
    EXPECT_EQ(uParaGetBool(R"({"b":"yes"})", 7, 1, "b"), 7);
    // A string "true" prints with quotes, so it is not the word true.
    EXPECT_EQ(uParaGetBool(R"({"b":"true"})", 7, 1, "b"), 7);
    EXPECT_EQ(uParaGetBool(R"({"b":1})", 7, 1, "b"), 7);
    // Not found is 1, not the default.
    EXPECT_EQ(uParaGetBool(R"({"b":false})", 0, 1, "missing"), 1);
    EXPECT_EQ(uParaGetBool("not json", 0, 1, "b"), 1);
    EXPECT_EQ(uParaGetBool(R"({"b":false})", 0, 6, "b"), 1);

    // cJSON only parses lower-case words, so a capitalised one is a bad text: not found, 1.
    EXPECT_EQ(uParaGetBool(R"({"r":TRUE})", 7, 1, "r"), 1);
}

TEST(JsonAdd, NumbersUpdateInPlaceIgnoringCaseAndKeepTheOldInteger) {
    cJSON *obj = nullptr;
    ASSERT_EQ(uParaAddInt(&obj, "Count", 5), 0);
    ASSERT_NE(obj, nullptr);
    ASSERT_EQ(uParaAddInt(&obj, "COUNT", 9), 0);
    EXPECT_EQ(cJSON_GetArraySize(obj), 1);
    const cJSON *member = cJSON_GetObjectItem(obj, "count");
    EXPECT_STREQ(member->string, "Count");
    EXPECT_EQ(member->valuedouble, 9.0);
    EXPECT_EQ(member->valueint, 5); // kept on purpose
    EXPECT_EQ(cJSON_GetInt(obj, "count", -1), 5);
    EXPECT_EQ(cJSON_GetDouble(obj, "count", -1), 9.0);
    // Printing follows the double, in all three printers.
    EXPECT_EQ(take(uParaStringCreate(obj)), "{\n\t\"Count\":\t9\n}");
    EXPECT_EQ(take(cJSON_Print_Oneline(obj)), "{ \"Count\":\t9 }");
    EXPECT_EQ(take(cJSON_PrintUnescape(obj)), "{\n\t\"Count\":\t9\n}");

    ASSERT_EQ(uParaAddLong(&obj, "big", 1LL << 40), 0);
    ASSERT_EQ(uParaAddLong(&obj, "BIG", -(1LL << 41)), 0);
    EXPECT_EQ(cJSON_GetDouble(obj, "big", 0), -2199023255552.0);
    EXPECT_EQ(uParaGetLong(take(cJSON_PrintUnformatted(obj)).c_str(), 0, 1, "big"),
              sizeof(long) == 8 ? -2199023255552LL : int64_t{LONG_MIN});
    uParaFree(obj);
}

TEST(JsonAdd, StringsReplaceTheirTextAndEmptyLeavesNull) {
    cJSON *obj = nullptr;
    ASSERT_EQ(uParaAddString(&obj, "name", "first"), 0);
    ASSERT_EQ(uParaAddString(&obj, "NAME", "second"), 0);
    EXPECT_EQ(cJSON_GetArraySize(obj), 1);
    EXPECT_STREQ(cJSON_GetString(obj, "name", nullptr), "second");
    ASSERT_EQ(uParaAddString(&obj, "Name", ""), 0);
    EXPECT_EQ(cJSON_GetObjectItem(obj, "name")->valuestring, nullptr);
    EXPECT_EQ(take(cJSON_PrintUnformatted(obj)), R"({"name":""})");
    ASSERT_EQ(uParaAddString(&obj, "name", "third"), 0);
    EXPECT_STREQ(cJSON_GetString(obj, "name", nullptr), "third");

    // Updating a number member swaps its string but keeps it a number.
    ASSERT_EQ(uParaAddInt(&obj, "n", 3), 0);
    ASSERT_EQ(uParaAddString(&obj, "n", "text"), 0);
    EXPECT_EQ(cJSON_GetInt(obj, "n", -1), 3);
    EXPECT_EQ(cJSON_GetString(obj, "n", "def"), std::string("def"));

    // A referenced string is not ours to free; replacing it must not touch it.
    static const char kShared[] = "shared";
    cJSON_AddItemToObject(obj, "ref", cJSON_CreateStringReference(kShared));
    ASSERT_EQ(uParaAddString(&obj, "ref", "mine"), 0);
    EXPECT_STREQ(kShared, "shared");
    EXPECT_STREQ(cJSON_GetString(obj, "ref", nullptr), "mine"); // owned now, freed with obj
    uParaFree(obj);
}

TEST(JsonAdd, BoolUpdateWritesTheValueIntoTheTypeWord) {
    cJSON *obj = nullptr;
    ASSERT_EQ(uParaAddBool(&obj, "on", 5), 0);
    ASSERT_EQ(uParaAddBool(&obj, "off", 0), 0);
    EXPECT_EQ(take(cJSON_PrintUnformatted(obj)), R"({"on":true,"off":false})");

    ASSERT_EQ(uParaAddBool(&obj, "ON", 1), 0); // 1 is the false type
    EXPECT_EQ(cJSON_GetObjectItem(obj, "on")->type, cJSON_False);
    ASSERT_EQ(uParaAddBool(&obj, "off", 2), 0); // 2 is the true type
    EXPECT_EQ(cJSON_GetObjectItem(obj, "off")->type, cJSON_True);
    EXPECT_EQ(take(uParaStringCreate(obj)), "{\n\t\"on\":\tfalse,\n\t\"off\":\ttrue\n}");

    // 0 leaves an invalid member that no printer can print.
    ASSERT_EQ(uParaAddBool(&obj, "on", 0), 0);
    EXPECT_EQ(cJSON_GetObjectItem(obj, "on")->type, cJSON_Invalid);
    bool wasNull = false;
    take(uParaStringCreate(obj), &wasNull);
    EXPECT_TRUE(wasNull);
    EXPECT_EQ(cJSON_Print_Oneline(obj), nullptr);
    EXPECT_EQ(cJSON_PrintUnescape(obj), nullptr);
    uParaFree(obj);
}

TEST(JsonAdd, ObjectsAreCreatedWhereNullAndNullAddressesFail) {
    cJSON *root = nullptr;
    cJSON *child = nullptr;
    ASSERT_EQ(uParaAddObject(&root, "inner", &child), 0);
    ASSERT_NE(root, nullptr);
    ASSERT_NE(child, nullptr);
    ASSERT_EQ(uParaAddInt(&child, "x", 1), 0);
    EXPECT_EQ(take(cJSON_PrintUnformatted(root)), R"({"inner":{"x":1}})");
    cJSON *list = cJSON_CreateArray();
    ASSERT_EQ(uParaAddObject(&root, "list", &list), 0);
    EXPECT_EQ(take(cJSON_Print_Oneline(root)), "{ \"inner\":\t{ \"x\":\t1 }, \"list\":\t[] }");

    EXPECT_EQ(uParaAddObject(nullptr, "k", &child), -1);
    EXPECT_EQ(uParaAddObject(&root, "k", nullptr), -1);
    EXPECT_EQ(uParaAddInt(nullptr, "k", 1), -1);
    EXPECT_EQ(uParaAddLong(nullptr, "k", 1), -1);
    EXPECT_EQ(uParaAddString(nullptr, "k", "v"), -1);
    EXPECT_EQ(uParaAddBool(nullptr, "k", 1), -1);
    // A member needs a name.
    EXPECT_EQ(uParaAddInt(&root, nullptr, 1), -1);
    EXPECT_EQ(uParaAddString(&root, nullptr, "v"), -1);
    cJSON *orphan = nullptr;
    EXPECT_EQ(uParaAddObject(&root, nullptr, &orphan), -1);
    ASSERT_NE(orphan, nullptr); // created, not adopted: still the caller's
    uParaFree(orphan);
    uParaFree(root);
    uParaFree(nullptr);
    EXPECT_EQ(uParaStringCreate(nullptr), nullptr);
}

TEST(JsonMemberRead, TypeWordMustMatchExactly) {
    JsonTree tree = parse(R"({"s":"text","n":42,"d":2.5,"q":"5","t":true,"z":null})");
    const cJSON *obj = tree.get();
    EXPECT_STREQ(cJSON_GetString(obj, "S", "def"), "text");
    EXPECT_EQ(cJSON_GetString(obj, "s", "def"), obj->child->valuestring); // borrowed
    EXPECT_STREQ(cJSON_GetString(obj, "n", "def"), "def");
    EXPECT_STREQ(cJSON_GetString(obj, "missing", "def"), "def");
    EXPECT_EQ(cJSON_GetString(nullptr, "s", nullptr), nullptr);
    EXPECT_EQ(cJSON_GetInt(obj, "N", -1), 42);
    EXPECT_EQ(cJSON_GetInt(obj, "d", -1), 2);
    EXPECT_EQ(cJSON_GetInt(obj, "q", -1), -1);
    EXPECT_EQ(cJSON_GetInt(obj, "t", -1), -1);
    EXPECT_EQ(cJSON_GetInt(nullptr, "n", -1), -1);
    EXPECT_EQ(cJSON_GetDouble(obj, "d", -1), 2.5);
    EXPECT_EQ(cJSON_GetDouble(obj, "z", -1), -1);
    EXPECT_EQ(cJSON_GetDouble(obj, "s", -1), -1);

    // Flag bits make the type differ: a constant name or a referenced value reads as missing.
    JsonTree flagged(cJSON_CreateObject());
    cJSON_AddItemToObjectCS(flagged.get(), "cs", cJSON_CreateNumber(3));
    cJSON_AddItemToObject(flagged.get(), "ref", cJSON_CreateStringReference("borrowed"));
    cJSON_AddItemToObjectCS(flagged.get(), "csText", cJSON_CreateString("x"));
    EXPECT_EQ(cJSON_GetInt(flagged.get(), "cs", -1), -1);
    EXPECT_EQ(cJSON_GetDouble(flagged.get(), "cs", -1), -1);
    EXPECT_STREQ(cJSON_GetString(flagged.get(), "ref", "def"), "def");
    EXPECT_STREQ(cJSON_GetString(flagged.get(), "csText", "def"), "def");
}

// A tree with every kind of item, nesting, awkward numbers and control characters, but no quote
// or backslash in any string, so the unescaped printer must agree with cJSON_Print byte for byte.
constexpr const char *kRich = R"({
  "int": 0, "neg": -17, "big": 123456789012, "huge": 1e300, "tiny": -1.5e-7,
  "frac": 0.1, "third": 0.3333333333333333, "max": 2147483647, "min": -2147483648,
  "over": 2147483648, "exp": 12e2,
  "ctl": "tab\t nl\n cr\r bs\b ff\f one\u0001 us\u001f del\u007f",
  "utf8": "caf\u00e9 \u20ac", "empty": "", "nothing": null, "yes": true, "no": false,
  "arr": [1, [2, [3, []]], {"in": {"deeper": {}}}, "s", null],
  "obj": {"a": {"b": {"c": [{}, {"d": 1}]}}},
  "emptyObj": {}, "emptyArr": [],
  "key\twith\ncontrols": 1
})";

TEST(JsonPrinters, MatchCjsonLayoutNumbersAndEscapes) {
    JsonTree tree = parse(kRich);
    ASSERT_NE(tree, nullptr);
    EXPECT_EQ(take(cJSON_PrintUnescape(tree.get())), take(cJSON_Print(tree.get())));
    EXPECT_EQ(take(cJSON_Print_Oneline(tree.get())), printedOnOneLine(tree.get()));

    // The same for every member printed alone (a bare string, number, array...).
    for (const cJSON *member = tree->child; member != nullptr; member = member->next) {
        SCOPED_TRACE(member->string);
        EXPECT_EQ(take(cJSON_PrintUnescape(member)), take(cJSON_Print(member)));
        EXPECT_EQ(take(cJSON_Print_Oneline(member)), printedOnOneLine(member));
    }

    // Numbers cJSON writes as null, and a number holding a stale integer.
    JsonTree odd(cJSON_CreateArray());
    cJSON_AddItemToArray(odd.get(), cJSON_CreateNumber(NAN));
    cJSON_AddItemToArray(odd.get(), cJSON_CreateNumber(INFINITY));
    cJSON *stale = cJSON_CreateNumber(4);
    stale->valuedouble = 4.5;
    cJSON_AddItemToArray(odd.get(), stale);
    EXPECT_EQ(take(cJSON_Print_Oneline(odd.get())), "[null, null, 4.5]");
    EXPECT_EQ(take(cJSON_PrintUnescape(odd.get())), take(cJSON_Print(odd.get())));
}

TEST(JsonPrinters, ExactOneLineLayout) {
    JsonTree tree = parse(R"({"a":1,"b":[1,2,{"c":null}],"d":{},"e":{"f":"x"}})");
    EXPECT_EQ(
        take(cJSON_Print_Oneline(tree.get())),
        "{ \"a\":\t1, \"b\":\t[1, 2, { \"c\":\tnull }], \"d\":\t{ }, \"e\":\t{ \"f\":\t\"x\" } }");
    JsonTree empty(cJSON_CreateObject());
    EXPECT_EQ(take(cJSON_Print_Oneline(empty.get())), "{ }");
    EXPECT_EQ(take(cJSON_PrintUnescape(empty.get())), "{\n}");
}

TEST(JsonPrinters, QuoteAndBackslashAreRawOnlyWhenUnescaped) {
    JsonTree tree = parse(R"({"p":"a\"b","q\"k":"c\\d\u0002"})");
    EXPECT_EQ(take(cJSON_PrintUnescape(tree.get())),
              "{\n\t\"p\":\t\"a\"b\",\n\t\"q\"k\":\t\"c\\d\\u0002\"\n}");
    EXPECT_EQ(take(cJSON_Print_Oneline(tree.get())), R"({ "p":)"
                                                     "\t"
                                                     R"("a\"b", "q\"k":)"
                                                     "\t"
                                                     R"("c\\d\u0002" })");
    EXPECT_EQ(take(cJSON_Print_Oneline(tree.get())), printedOnOneLine(tree.get()));
}

TEST(JsonPrinters, RawItemsNullsAndFailures) {
    EXPECT_EQ(cJSON_Print_Oneline(nullptr), nullptr);
    EXPECT_EQ(cJSON_PrintUnescape(nullptr), nullptr);

    JsonTree tree(cJSON_CreateObject());
    cJSON_AddRawToObject(tree.get(), "raw", "{\"as\":\"is\"}");
    cJSON_AddItemToObject(tree.get(), "nullString", cJSON_CreateString("x"));
    cJSON *nullString = cJSON_GetObjectItem(tree.get(), "nullString");
    cJSON_free(nullString->valuestring);
    nullString->valuestring = nullptr;
    EXPECT_EQ(take(cJSON_Print_Oneline(tree.get())), printedOnOneLine(tree.get()));
    EXPECT_EQ(take(cJSON_PrintUnescape(tree.get())),
              "{\n\t\"raw\":\t{\"as\":\"is\"},\n\t\"nullString\":\t\"\"\n}");

    // A raw item without text cannot be printed, by cJSON or by us.
    cJSON *raw = cJSON_GetObjectItem(tree.get(), "raw");
    cJSON_free(raw->valuestring);
    raw->valuestring = nullptr;
    EXPECT_EQ(cJSON_Print(tree.get()), nullptr);
    EXPECT_EQ(cJSON_Print_Oneline(tree.get()), nullptr);
    EXPECT_EQ(cJSON_PrintUnescape(tree.get()), nullptr);
}

TEST(JsonPrinters, LargeTreesGrowTheBufferWithoutLosingText) {
    JsonTree tree(cJSON_CreateObject());
    for (int i = 0; i < 3000; ++i) {
        const std::string key = "member" + std::to_string(i);
        cJSON *inner = cJSON_AddObjectToObject(tree.get(), key.c_str());
        cJSON_AddNumberToObject(inner, "value", i * 1.25);
        cJSON_AddStringToObject(inner, "text", std::string(i % 97, 'x').c_str());
    }
    const std::string oneLine = take(cJSON_Print_Oneline(tree.get()));
    EXPECT_GT(oneLine.size(), 64u * 1024);
    EXPECT_EQ(oneLine, printedOnOneLine(tree.get()));
    EXPECT_EQ(take(cJSON_PrintUnescape(tree.get())), take(cJSON_Print(tree.get())));
}

TEST(JsonThreads, StatelessCallsRunConcurrently) {
    std::vector<std::thread> threads;
    for (int t = 0; t < 4; ++t) {
        threads.emplace_back([t] {
            for (int i = 0; i < 200; ++i) {
                const std::string text = R"({"a":{"v":)" + std::to_string(t * 1000 + i) + "}}";
                EXPECT_EQ(uParaGetInt(text.c_str(), -1, 2, "a", "v"), t * 1000 + i);
                JsonTree tree = parse(text.c_str());
                EXPECT_EQ(take(cJSON_Print_Oneline(tree.get())), printedOnOneLine(tree.get()));
            }
        });
    }
    for (std::thread &thread : threads) {
        thread.join();
    }
}

} // namespace
