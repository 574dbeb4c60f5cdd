// SPDX-License-Identifier: MIT
// JSON parameters: typed member updates with their kept oddities, the
// exact-type member reads, and the two display printers on trees no parsed text
// can give. Path reads and printing parsed texts (large ones included) are
// fuzzed against cJSON's own walk and printer.
#include "call_table.hpp"
#include "fail_alloc.hpp"
#include "test_support.hpp"

#include <gtest/gtest.h>

#include <cmath>
#include <string>

namespace {

using pu::test::take;
using Tree = pu::test::Owned<cJSON, cJSON_Delete>;

TEST(JsonAdd, UpdatesInPlaceIgnoringCaseAndReadsMatchTheTypeWordExactly) {
    Tree created(uParaCreateObject());
    cJSON *obj = created.get(), *orphan = nullptr;
    pu::test::checkRows({
        // Members match ignoring case; a constant name sets a flag bit in the type word, and the
        // readers want it exact. An empty string leaves a null string.
        PU_ROW(cJSON_AddItemToObjectCS(obj, "cs", cJSON_CreateNumber(3)), 1),
        PU_ROW(uParaAddInt(&obj, "Count", 5) + uParaAddString(&obj, "NAME", ""), 0),
        PU_ROW(cJSON_GetInt(obj, "cs", -1) + cJSON_GetDouble(obj, "cs", -1) == -2, true),
        // A number stays a number; its integer keeps the old value.
        PU_ROW((uParaAddString(&obj, "count", "text"), cJSON_GetInt(obj, "count", -1)), 5),
        // A bool update writes the value into the type word: 1 is false, 2 true, 0 invalid.
        PU_ROW(uParaAddBool(&obj, "on", 2) + uParaAddBool(&obj, "ON", 1), 0),
        PU_ROW(take(cJSON_Print_Oneline(obj)),
               "{ \"cs\":\t3, \"Count\":\t5, \"NAME\":\t\"\", \"on\":\tfalse }"),
        // No printer prints an invalid item.
        PU_ROW(uParaAddBool(&obj, "on", 0), 0),
        PU_ROW(take(uParaStringCreate(obj)) + take(cJSON_PrintUnescape(obj)), ""),
        // A null key fails and the child stays ours.
        PU_ROW(uParaAddObject(&obj, nullptr, &orphan), -1),
    });
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

// JSON parameters with each of their allocations failing in turn: the
// documented failure value, nothing leaked, the tree still usable. cJSON is
// given the failing uMalloc through its hooks for this suite, so its own nodes
// are swept as well.
const pu::test::AllocCase kCases[] = {
    {"JsonBuildPrintAndRead", [](const pu::test::FailAlloc &fault) {
         pu::test::AllocSteps steps(fault);
         cJSON *obj = nullptr;
         if (steps.failed(uParaAddString(&obj, "s", "old") != 0)) {
             ASSERT_EQ(uParaAddString(&obj, "s", "old"), 0); // the object stays usable
         }
         // A refused copy keeps the old string.
         const char *want = steps.failed(uParaAddString(&obj, "s", "new") != 0) ? "old" : "new";
         char *text = cJSON_Print_Oneline(obj);
         // Reading parses the text again, which may be refused memory too: then
         // def.
         if (!steps.failed(text == nullptr)) {
             char def[] = "def";
             char *s = uParaGetString(text, def, 1, "S");
             EXPECT_TRUE(steps.failed(s == def) || std::string(s) == want);
             uFree(s != def ? s : nullptr);
         }
         uFree(text);
         uParaFree(obj);
     }}};

void *hookMalloc(size_t size) {
    return size > UINT32_MAX ? nullptr : uMalloc(static_cast<uint32_t>(size));
}

class ParaAllocFailure : public testing::TestWithParam<pu::test::AllocCase> {
  protected:
    static void SetUpTestSuite() {
        cJSON_Hooks hooks{hookMalloc, uFree};
        cJSON_InitHooks(&hooks);
    }
    static void TearDownTestSuite() { cJSON_InitHooks(nullptr); }
};

PU_ALLOC_FAILURE_SWEEP(ParaAllocFailure, kCases);

} // namespace
