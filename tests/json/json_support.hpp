// SPDX-License-Identifier: MIT
// Helpers shared by the JSON tests and fuzz targets: owned cJSON trees and texts, and cJSON_Print
// reshaped to one line the way cJSON_Print_Oneline lays it out.
#pragma once

#include <platform_utils.h>

#include <memory>
#include <string>

namespace pu::test {

struct JsonDeleter {
    void operator()(cJSON *item) const { cJSON_Delete(item); }
};
using JsonTree = std::unique_ptr<cJSON, JsonDeleter>;

inline JsonTree parse(const char *text) {
    return JsonTree(cJSON_Parse(text));
}

// Takes a printed text (null allowed) and frees it with uFree, as callers of the library do.
inline std::string take(char *text, bool *wasNull = nullptr) {
    if (wasNull != nullptr) {
        *wasNull = text == nullptr;
    }
    std::string out = text != nullptr ? text : "";
    uFree(text);
    return out;
}

// A formatted cJSON text with every line break (and the indentation after it) turned into one
// space. cJSON escapes line breaks and tabs inside strings, so every raw one is layout.
inline std::string oneLineLayout(const std::string &formatted) {
    std::string out;
    for (std::size_t i = 0; i < formatted.size(); ++i) {
        if (formatted[i] != '\n') {
            out += formatted[i];
            continue;
        }
        out += ' ';
        while (i + 1 < formatted.size() && formatted[i + 1] == '\t') {
            ++i;
        }
    }
    return out;
}

// cJSON_Print of item laid out as cJSON_Print_Oneline must print it.
inline std::string printedOnOneLine(const cJSON *item) {
    return oneLineLayout(take(cJSON_Print(item)));
}

} // namespace pu::test
