// SPDX-License-Identifier: MIT
// Helpers shared by the string, CSV and JSON fuzz targets.
#pragma once

#include <platform_utils.h>

#include <cstdlib>
#include <cstring>
#include <string>
#include <vector>

namespace pu::fuzz {

// Stops the run with a message; libFuzzer reports the input that got here.
[[noreturn]] inline void fail(const char *what) {
    std::fprintf(stderr, "invariant broken: %s\n", what);
    std::abort();
}

inline void require(bool condition, const char *what) {
    if (!condition) {
        fail(what);
    }
}

// Moves the strings of a list of uMalloc strings into a vector and frees them; the list is
// emptied but not destroyed.
inline std::vector<std::string> takeStrings(uList *list) {
    std::vector<std::string> out;
    for (uListNode *node = list->head; node != nullptr; node = node->next) {
        auto *text = static_cast<char *>(node->data);
        require(text != nullptr, "null element in a result list");
        out.emplace_back(text);
        uFree(text);
    }
    uListClearWithNodeNoNeedFree(list);
    return out;
}

// Copies a library-owned text (null allowed) and frees it with uFree, as callers do.
inline std::string takeText(char *text) {
    std::string out = text != nullptr ? text : "";
    uFree(text);
    return out;
}

// Checks that a buffer of size bytes holds a terminator.
inline void requireTerminated(const char *buffer, std::size_t size, const char *what) {
    require(size > 0 && std::memchr(buffer, '\0', size) != nullptr, what);
}

} // namespace pu::fuzz
