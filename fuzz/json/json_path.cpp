// SPDX-License-Identifier: MIT
// uParaGet* on arbitrary text along random paths: each agrees with a walk done here through
// cJSON, hands back the default itself when nothing is found, and leaks nothing.
#include "str_fuzz_support.hpp"

#include <fuzzer/FuzzedDataProvider.h>

#include <strings.h>

namespace {

constexpr int kKeys = 6;

// The item along keys printed by cJSON, or null; the reference the getters are held to.
char *walkAndPrint(const char *json, int depth, const std::string (&keys)[kKeys]) {
    if (depth < 1 || depth > 5) {
        return nullptr;
    }
    cJSON *root = cJSON_Parse(json);
    const cJSON *item = root;
    for (int i = 0; i < depth && item != nullptr; ++i) {
        item = cJSON_GetObjectItem(item, keys[i].c_str());
    }
    char *text = item != nullptr ? cJSON_Print(item) : nullptr;
    cJSON_Delete(root);
    return text;
}

} // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t *data, size_t size) {
    using pu::fuzz::require;
    FuzzedDataProvider input(data, size);
    const int32_t depth = input.ConsumeIntegralInRange<int32_t>(-1, 7);
    std::string keys[kKeys];
    for (std::string &key : keys) {
        key = input.ConsumeRandomLengthString(8);
        key.resize(std::strlen(key.c_str()));
    }
    std::string json = input.ConsumeRemainingBytesAsString();
    json.resize(std::strlen(json.c_str()));
    const char *text = json.c_str();
#define PU_FUZZ_KEYS                                                                               \
    keys[0].c_str(), keys[1].c_str(), keys[2].c_str(), keys[3].c_str(), keys[4].c_str(),           \
        keys[5].c_str()

    char *expected = walkAndPrint(text, depth, keys);
    const bool found = expected != nullptr;
    const int32_t asInt = uParaGetInt(text, -77, depth, PU_FUZZ_KEYS);
    const int64_t asLong = uParaGetLong(text, -77, depth, PU_FUZZ_KEYS);
    const int32_t asBool = uParaGetBool(text, 5, depth, PU_FUZZ_KEYS);
    char def[] = "default";
    char *asString = uParaGetString(text, def, depth, PU_FUZZ_KEYS);
#undef PU_FUZZ_KEYS

    if (!found) {
        require(asInt == -77 && asLong == -77, "missing item did not give the default");
        require(asBool == 1, "missing item did not read as true");
        require(asString == def, "missing item did not give the default text itself");
        return 0;
    }
    require(asInt == atoi(expected), "int differs from atoi of the printed item");
    require(asLong == atol(expected), "long differs from atol of the printed item");
    const int32_t boolExpected =
        strcasecmp(expected, "false") == 0 ? 0 : (strcasecmp(expected, "true") == 0 ? 1 : 5);
    require(asBool == boolExpected, "bool differs from the printed word");
    require(asString != def, "found item gave the default text");
    const std::string got = pu::fuzz::takeText(asString);
    const std::string printed = expected;
    cJSON_free(expected);
    const bool quoted = printed.size() >= 2 && printed.front() == '"' && printed.back() == '"';
    require(got == (quoted ? printed.substr(1, printed.size() - 2) : printed),
            "string is not the printed item without its quotes");
    return 0;
}
