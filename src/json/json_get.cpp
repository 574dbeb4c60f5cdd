// SPDX-License-Identifier: MIT
// Typed reads: uParaGet* along a key path of a JSON text, and the cJSON_Get* member reads.
#include <upara.h>
#include <ustr.h>

#include <cstdarg>
#include <cstdlib>
#include <strings.h>

namespace pu::json {

namespace {

constexpr int32_t kMaxDepth = 5;

// Parses json, follows key and depth-1 further keys from moreKeys, and returns the item found
// printed by cJSON_Print (from cJSON's hooks), or null when anything on the way is missing.
char *pathPrint(const char *json, int32_t depth, const char *key, va_list moreKeys) {
    if (depth < 1 || depth > kMaxDepth) {
        return nullptr;
    }
    cJSON *root = cJSON_Parse(json);
    if (root == nullptr) {
        return nullptr;
    }
    const cJSON *item = cJSON_GetObjectItem(root, key);
    for (int32_t level = 1; level < depth && item != nullptr; ++level) {
        item = cJSON_GetObjectItem(item, va_arg(moreKeys, const char *));
    }
    char *text = item != nullptr ? cJSON_Print(item) : nullptr;
    cJSON_Delete(root);
    return text;
}

// Runs convert on the printed item and frees the text, or returns def when not found.
template <typename T, typename Convert>
T convertPrinted(const char *json, T def, int32_t depth, const char *key, va_list moreKeys,
                 Convert convert) {
    char *text = pathPrint(json, depth, key, moreKeys);
    if (text == nullptr) {
        return def;
    }
    const T result = convert(text);
    cJSON_free(text);
    return result;
}

// The member key of obj when its type word is exactly type (no flag bits), else null.
const cJSON *memberOfType(const cJSON *obj, const char *key, int type) {
    const cJSON *member = cJSON_GetObjectItem(obj, key);
    return member != nullptr && member->type == type ? member : nullptr;
}

} // namespace

} // namespace pu::json

using pu::json::convertPrinted;
using pu::json::memberOfType;

extern "C" {

int32_t uParaGetInt(const char *json, int32_t def, int32_t depth, const char *key, ...) {
    va_list moreKeys;
    va_start(moreKeys, key);
    const int32_t result = convertPrinted(json, def, depth, key, moreKeys,
                                          [](const char *text) { return int32_t{atoi(text)}; });
    va_end(moreKeys);
    return result;
}

int64_t uParaGetLong(const char *json, int64_t def, int32_t depth, const char *key, ...) {
    va_list moreKeys;
    va_start(moreKeys, key);
    const int64_t result = convertPrinted(json, def, depth, key, moreKeys,
                                          [](const char *text) { return int64_t{atol(text)}; });
    va_end(moreKeys);
    return result;
}

char *uParaGetString(const char *json, char *def, int32_t depth, const char *key, ...) {
    va_list moreKeys;
    va_start(moreKeys, key);
    char *text = pu::json::pathPrint(json, depth, key, moreKeys);
    va_end(moreKeys);
    // The default is handed back itself, so callers free the result only when it differs.
    return text != nullptr ? uStrStripDoubleQoute(text) : def;
}

int32_t uParaGetBool(const char *json, int32_t def, int32_t depth, const char *key, ...) {
    va_list moreKeys;
    va_start(moreKeys, key);
    // A missing item reads as true whatever def is: intended, callers rely on it.
    const int32_t result =
        convertPrinted(json, int32_t{1}, depth, key, moreKeys, [def](const char *text) {
            if (strcasecmp(text, "false") == 0) {
                return int32_t{0};
            }
            return strcasecmp(text, "true") == 0 ? 1 : def;
        });
    va_end(moreKeys);
    return result;
}

const char *cJSON_GetString(const cJSON *obj, const char *key, const char *def) {
    const cJSON *member = memberOfType(obj, key, cJSON_String);
    return member != nullptr ? member->valuestring : def;
}

int32_t cJSON_GetInt(const cJSON *obj, const char *key, int32_t def) {
    const cJSON *member = memberOfType(obj, key, cJSON_Number);
    return member != nullptr ? member->valueint : def;
}

double cJSON_GetDouble(const cJSON *obj, const char *key, double def) {
    const cJSON *member = memberOfType(obj, key, cJSON_Number);
    return member != nullptr ? member->valuedouble : def;
}

} // extern "C"
