// SPDX-License-Identifier: MIT
// Shared by the JSON tests and fuzz targets: cJSON_Print reshaped to one line
// the way cJSON_Print_Oneline lays it out.
#pragma once

#include <regex>
#include <string>

namespace pu::test {

// A formatted cJSON text with every line break (and the indentation after it)
// turned into one space. cJSON escapes line breaks and tabs inside strings, so
// every raw one is layout.
inline std::string oneLineLayout(const std::string &formatted) {
    static const std::regex lineBreak("\n\t*");
    return std::regex_replace(formatted, lineBreak, " ");
}

} // namespace pu::test
