// SPDX-License-Identifier: MIT
// cJSON_Print_Oneline and cJSON_PrintUnescape on trees parsed from arbitrary text: the one-line
// text has no line break outside strings and is cJSON_Print with its line breaks made spaces;
// the unescaped text equals cJSON_Print when no string holds a quote or a backslash.
#include "str_fuzz_support.hpp"
#include "json_support.hpp"

namespace {

// True when a name or string anywhere under item holds '"' or '\'.
bool holdsQuoteOrBackslash(const cJSON *item) {
    for (; item != nullptr; item = item->next) {
        for (const char *text :
             {item->string, (item->type & 0xFF) == cJSON_String ? item->valuestring : nullptr}) {
            if (text != nullptr && std::strpbrk(text, "\"\\") != nullptr) {
                return true;
            }
        }
        if (holdsQuoteOrBackslash(item->child)) {
            return true;
        }
    }
    return false;
}

bool lineBreakOutsideStrings(const std::string &text) {
    bool inString = false;
    for (std::size_t i = 0; i < text.size(); ++i) {
        const char c = text[i];
        if (inString && c == '\\') {
            ++i;
        } else if (c == '"') {
            inString = !inString;
        } else if (!inString && (c == '\n' || c == '\r')) {
            return true;
        }
    }
    return false;
}

} // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t *data, size_t size) {
    using pu::fuzz::require;
    using pu::fuzz::takeText;
    const std::string json(reinterpret_cast<const char *>(data), size);
    cJSON *tree = cJSON_ParseWithLength(json.data(), json.size());
    if (tree == nullptr) {
        require(cJSON_Print_Oneline(nullptr) == nullptr, "null item printed");
        return 0;
    }
    char *formattedText = cJSON_Print(tree);
    require(formattedText != nullptr, "cJSON could not print its own tree");
    const std::string formatted = takeText(formattedText);

    char *oneLineText = cJSON_Print_Oneline(tree);
    require(oneLineText != nullptr, "one-line print failed");
    const std::string oneLine = takeText(oneLineText);
    require(!lineBreakOutsideStrings(oneLine), "line break outside strings in one-line text");
    require(oneLine == pu::test::oneLineLayout(formatted),
            "one-line text is not cJSON's layout on a line");

    char *unescapedText = cJSON_PrintUnescape(tree);
    require(unescapedText != nullptr, "unescaped print failed");
    const std::string unescaped = takeText(unescapedText);
    if (!holdsQuoteOrBackslash(tree)) {
        require(unescaped == formatted, "unescaped text differs from cJSON_Print");
    } else {
        require(unescaped.size() < formatted.size(), "unescaped text is not shorter");
    }
    cJSON_Delete(tree);
    return 0;
}
