// SPDX-License-Identifier: MIT
// Shared by the JSON tests and fuzz targets: cJSON_Print reshaped to one line the way
// cJSON_Print_Oneline lays it out.
#pragma once

#include <platform_utils.h>

#include <string>

namespace pu::test {

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

} // namespace pu::test
