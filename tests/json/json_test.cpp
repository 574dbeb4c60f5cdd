// SPDX-License-Identifier: MIT
// JSON parameters: typed member updates with their kept oddities, the exact-type member reads, and
// the two display printers on trees no parsed text can give. Path reads and printing parsed texts
// are fuzzed against cJSON's own walk and printer.
#include "json_support.hpp"
#include "test_support.hpp"

#include <gtest/gtest.h>

#include <cmath>
#include <string>

namespace {

using pu::test::take;
using Tree = pu::test::Owned<cJSON, cJSON_Delete>;

std::string oneLine(const cJSON *item) {
    return pu::test::oneLineLayout(take(cJSON_Print(item)));
}

TEST(JsonAdd, UpdatesInPlaceIgnoringCaseWithTheirKeptOddities) {
    Tree created(uParaCreateObject());
    ASSERT_NE(created, nullptr);
    EXPECT_EQ(take(cJSON_PrintUnformatted(created.get())), "{}");
    cJSON *obj = created.get();
    ASSERT_EQ(uParaAddInt(&obj, "Count", 5), 0);
    ASSERT_EQ(uParaAddInt(&obj, "COUNT", 9), 0);
    ASSERT_EQ(uParaAddLong(&obj, "big", -(1LL << 41)), 0);
    ASSERT_EQ(uParaAddString(&obj, "name", "first"), 0);
    ASSERT_EQ(uParaAddString(&obj, "NAME", ""), 0);      // empty leaves a null string
    ASSERT_EQ(uParaAddString(&obj, "count", "text"), 0); // a number stays a number
    ASSERT_EQ(uParaAddBool(&obj, "on", 5), 0);
    ASSERT_EQ(uParaAddBool(&obj, "off", 0), 0);
    EXPECT_EQ(take(cJSON_PrintUnformatted(obj)),
              R"({"Count":9,"big":-2199023255552,"name":"","on":true,"off":false})");
    // The integer keeps the old number: printers show the double, valueint readers the old.
    EXPECT_EQ(cJSON_GetInt(obj, "count", -1), 5);
    EXPECT_EQ(cJSON_GetDouble(obj, "count", -1), 9.0);
    EXPECT_EQ(cJSON_GetObjectItem(obj, "name")->valuestring, nullptr);
    ASSERT_EQ(uParaAddString(&obj, "name", "a second"), 0); // a space prints raw
    EXPECT_STREQ(cJSON_GetString(obj, "NAME", nullptr), "a second");
    // A bool update writes the value into the type word: 1 is false, 2 true, 0 invalid.
    ASSERT_EQ(uParaAddBool(&obj, "ON", 1), 0);
    ASSERT_EQ(uParaAddBool(&obj, "off", 2), 0);
    EXPECT_EQ(take(cJSON_Print_Oneline(obj)),
              "{ \"Count\":\t9, \"big\":\t-2199023255552, \"name\":\t\"a second\", \"on\":\tfalse, "
              "\"off\":\ttrue }");
    ASSERT_EQ(uParaAddBool(&obj, "on", 0), 0);
    EXPECT_EQ(cJSON_GetObjectItem(obj, "on")->type, cJSON_Invalid);
    EXPECT_EQ(uParaStringCreate(obj), nullptr); // no printer prints an invalid item
    EXPECT_EQ(cJSON_Print_Oneline(obj), nullptr);
    EXPECT_EQ(cJSON_PrintUnescape(obj), nullptr);

    // A referenced string is not ours to free; replacing it makes the member own a copy.
    static const char kShared[] = "shared";
    cJSON_AddItemToObject(obj, "ref", cJSON_CreateStringReference(kShared));
    ASSERT_EQ(uParaAddString(&obj, "ref", "mine"), 0);
    EXPECT_STREQ(kShared, "shared");
    EXPECT_STREQ(cJSON_GetString(obj, "ref", nullptr), "mine");
}

TEST(JsonAdd, ObjectsAreCreatedWhereNullAndNullAddressesFail) {
    cJSON *root = nullptr;
    cJSON *child = nullptr;
    ASSERT_EQ(uParaAddObject(&root, "inner", &child), 0);
    Tree owner(root);
    ASSERT_EQ(uParaAddInt(&child, "x", 1), 0);
    cJSON *list = cJSON_CreateArray();
    ASSERT_EQ(uParaAddObject(&root, "list", &list), 0);
    EXPECT_EQ(take(cJSON_Print_Oneline(root)), "{ \"inner\":\t{ \"x\":\t1 }, \"list\":\t[] }");
    EXPECT_EQ(uParaAddObject(nullptr, "k", &child), -1);
    EXPECT_EQ(uParaAddObject(&root, "k", nullptr), -1);
    EXPECT_EQ(uParaAddInt(nullptr, "k", 1), -1);
    EXPECT_EQ(uParaAddBool(nullptr, "k", 1), -1);
    EXPECT_EQ(uParaAddString(&root, nullptr, "v"), -1); // a member needs a name
    cJSON *orphan = nullptr;
    EXPECT_EQ(uParaAddObject(&root, nullptr, &orphan), -1);
    Tree stillOurs(orphan); // created, not adopted
    EXPECT_NE(orphan, nullptr);
}

TEST(JsonPath, ReadsThePrintedItemAlongOneToFiveKeys) {
    const char *json =
        R"({"a":{"b":{"c":{"d":{"e":false,"f":{"g":1}}}}},"t":true,"n":-3.9,"s":"x\"y"})";
    EXPECT_EQ(uParaGetBool(json, 7, 5, "A", "b", "c", "d", "e"), 0); // keys ignore case
    EXPECT_EQ(uParaGetBool(json, 7, 1, "t"), 1);
    EXPECT_EQ(uParaGetBool(json, 7, 1, "n"), 7);
    EXPECT_EQ(uParaGetBool(json, 0, 1, "missing"), 1); // missing reads true whatever def
    EXPECT_EQ(uParaGetInt(json, -1, 1, "n"), -3);
    EXPECT_EQ(uParaGetInt(json, -1, 6, "a", "b", "c", "d", "f", "g"), -1); // five at most
    EXPECT_EQ(take(uParaGetString(json, nullptr, 1, "s")), R"(x\"y)");     // only the quotes go
}

TEST(JsonMemberRead, TypeWordMustMatchExactly) {
    Tree tree(cJSON_Parse(R"({"s":"text","n":42,"d":2.5,"q":"5","t":true})"));
    const cJSON *obj = tree.get();
    EXPECT_EQ(cJSON_GetString(obj, "S", "def"), obj->child->valuestring); // borrowed
    EXPECT_STREQ(cJSON_GetString(obj, "n", "def"), "def");
    EXPECT_EQ(cJSON_GetInt(obj, "N", -1), 42);
    EXPECT_EQ(cJSON_GetInt(obj, "q", -1), -1);
    EXPECT_EQ(cJSON_GetInt(obj, "t", -1), -1);
    EXPECT_EQ(cJSON_GetDouble(obj, "d", -1), 2.5);
    EXPECT_EQ(cJSON_GetDouble(obj, "s", -1), -1);
    // Flag bits make the type differ: a constant name or a referenced value reads as missing.
    cJSON_AddItemToObjectCS(tree.get(), "cs", cJSON_CreateNumber(3));
    cJSON_AddItemToObject(tree.get(), "ref", cJSON_CreateStringReference("borrowed"));
    EXPECT_EQ(cJSON_GetInt(obj, "cs", -1), -1);
    EXPECT_EQ(cJSON_GetDouble(obj, "cs", -1), -1);
    EXPECT_STREQ(cJSON_GetString(obj, "ref", "def"), "def");
}

TEST(JsonPrinters, OddItemsLargeTreesAndThreads) {
    Tree odd(cJSON_CreateArray()); // numbers cJSON writes as null, a number with a stale integer
    cJSON_AddItemToArray(odd.get(), cJSON_CreateNumber(NAN));
    cJSON_AddItemToArray(odd.get(), cJSON_CreateNumber(INFINITY));
    cJSON *stale = cJSON_CreateNumber(4);
    stale->valuedouble = 4.5;
    cJSON_AddItemToArray(odd.get(), stale);
    cJSON_AddItemToArray(odd.get(), cJSON_CreateRaw("{\"as\":\"is\"}"));
    cJSON *nullString = cJSON_CreateString("x");
    cJSON_free(nullString->valuestring);
    nullString->valuestring = nullptr;
    cJSON_AddItemToArray(odd.get(), nullString);
    EXPECT_EQ(take(cJSON_Print_Oneline(odd.get())), "[null, null, 4.5, {\"as\":\"is\"}, \"\"]");
    EXPECT_EQ(take(cJSON_PrintUnescape(odd.get())), "[null, null, 4.5, {\"as\":\"is\"}, \"\"]");
    cJSON_free(odd->child->next->next->next->valuestring); // a raw item without text: no print
    odd->child->next->next->next->valuestring = nullptr;
    EXPECT_EQ(cJSON_Print_Oneline(odd.get()), nullptr);
    EXPECT_EQ(cJSON_PrintUnescape(odd.get()), nullptr);
    EXPECT_EQ(cJSON_Print_Oneline(nullptr), nullptr);

    Tree big(cJSON_CreateObject()); // well past the first buffer
    for (int i = 0; i < 3000; ++i) {
        cJSON *inner = cJSON_AddObjectToObject(big.get(), ("member" + std::to_string(i)).c_str());
        cJSON_AddStringToObject(inner, "text", std::string(i % 97, 'x').c_str());
    }
    const std::string text = take(cJSON_Print_Oneline(big.get()));
    EXPECT_GT(text.size(), 64u * 1024);
    EXPECT_EQ(text, oneLine(big.get()));
    EXPECT_EQ(take(cJSON_PrintUnescape(big.get())), take(cJSON_Print(big.get())));
}

} // namespace
