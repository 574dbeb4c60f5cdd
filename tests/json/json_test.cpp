// SPDX-License-Identifier: MIT
// JSON parameters: typed member updates with their kept oddities, the
// exact-type member reads, and the two display printers on trees no parsed text
// can give. Path reads and printing parsed texts (large ones included) are
// fuzzed against cJSON's own walk and printer.
#include "call_table.hpp"
#include "test_support.hpp"

#include <gtest/gtest.h>

#include <cmath>
#include <string>

namespace {

using pu::test::take;
using Tree = pu::test::Owned<cJSON, cJSON_Delete>;

TEST(JsonAdd, UpdatesInPlaceIgnoringCaseAndReadsMatchTheTypeWordExactly) {
    Tree created(uParaCreateObject());
    cJSON *obj = created.get(), *root = nullptr, *inner = nullptr, *orphan = nullptr;
    pu::test::checkRows({
        // Members match ignoring case. A referenced value and a constant name set flag bits in
        // the type word, and the readers want it exact. An empty string leaves a null string.
        PU_ROW(cJSON_AddItemToObject(obj, "ref", cJSON_CreateStringReference("shared")) +
                   cJSON_AddItemToObjectCS(obj, "cs", cJSON_CreateNumber(3)),
               2),
        PU_ROW(uParaAddInt(&obj, "Count", 5) + uParaAddLong(&obj, "COUNT", 9), 0),
        PU_ROW(uParaAddString(&obj, "name", "first") + uParaAddString(&obj, "NAME", ""), 0),
        PU_ROW(cJSON_GetObjectItem(obj, "name")->valuestring, nullptr),
        // A number stays a number; its integer keeps the old value, the printers show the double.
        PU_ROW((uParaAddString(&obj, "count", "text"), cJSON_GetInt(obj, "count", -1)), 5),
        PU_ROW(cJSON_GetInt(obj, "cs", -1) + cJSON_GetDouble(obj, "cs", -1) == -2, true),
        PU_ROW(cJSON_GetString(obj, "ref", "def"), "def"),
        // A referenced string is not ours to free: the member takes a copy.
        PU_ROW((uParaAddString(&obj, "ref", "mine"), cJSON_GetString(obj, "REF", "def")), "mine"),
        // A bool update writes the value into the type word: 1 is false, 2 true, 0 invalid.
        PU_ROW(uParaAddBool(&obj, "on", 5) + uParaAddBool(&obj, "off", 0), 0),
        PU_ROW(cJSON_IsTrue(cJSON_GetObjectItem(obj, "on")) + cJSON_IsFalse(obj->child->prev), 2),
        PU_ROW(uParaAddBool(&obj, "ON", 1) + uParaAddBool(&obj, "off", 2), 0),
        PU_ROW(take(cJSON_Print_Oneline(obj)), "{ \"ref\":\t\"mine\", \"cs\":\t3, \"Count\":\t9, "
                                               "\"name\":\t\"\", \"on\":\tfalse, \"off\":\ttrue }"),
        // No printer prints an invalid item.
        PU_ROW(uParaAddBool(&obj, "on", 0), 0),
        PU_ROW(take(uParaStringCreate(obj)) + take(cJSON_Print_Oneline(obj)) +
                   take(cJSON_PrintUnescape(obj)),
               ""),
        // Objects are created where null; a null key or address fails, the child stays ours.
        PU_ROW(uParaAddObject(&root, "inner", &inner) + uParaAddInt(&inner, "x", 1), 0),
        PU_ROW(take(cJSON_Print_Oneline(root)), "{ \"inner\":\t{ \"x\":\t1 } }"),
        PU_ROW(uParaAddObject(&root, nullptr, &orphan) + uParaAddString(&root, nullptr, "v"), -2),
    });
    cJSON_Delete(root);
    EXPECT_NE(orphan, nullptr);
    cJSON_Delete(orphan);
}

TEST(JsonPrinters, ItemsNoParsedTextGives) {
    // Numbers cJSON writes as null, a number with a stale integer, a raw text, a
    // null string.
    Tree odd(cJSON_CreateArray()), textless(cJSON_CreateNull());
    cJSON *stale = cJSON_CreateNumber(4), *nullString = cJSON_CreateNull();
    stale->valuedouble = 4.5;
    nullString->type = cJSON_String;
    textless->type = cJSON_Raw; // a raw item without text: no print
    for (cJSON *item : {cJSON_CreateNumber(NAN), cJSON_CreateNumber(INFINITY), stale,
                        cJSON_CreateRaw("{\"as\":\"is\"}"), nullString}) {
        cJSON_AddItemToArray(odd.get(), item);
    }
    EXPECT_EQ(take(cJSON_Print_Oneline(odd.get())) + take(cJSON_PrintUnescape(odd.get())) +
                  take(cJSON_Print_Oneline(textless.get())) +
                  take(cJSON_PrintUnescape(textless.get())),
              "[null, null, 4.5, {\"as\":\"is\"}, \"\"][null, null, 4.5, {\"as\":\"is\"}, \"\"]");
    Tree blanks(cJSON_CreateString(" \x1f"));
    EXPECT_EQ(take(cJSON_Print_Oneline(blanks.get())), "\" \\u001f\""); // only controls escaped
}

} // namespace
