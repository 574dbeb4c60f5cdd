// SPDX-License-Identifier: MIT
// Splitting strings into lists and fixed slots, and matching keys in separated lists.
#include <ulist.h>
#include <umem.h>
#include <ustr.h>

#include "core/list_internal.hpp"
#include "str/str_internal.hpp"

#include <cstring>
#include <string_view>

namespace {

// Owns a uMalloc string for the scope.
struct OwnedText {
    char *ptr;
    ~OwnedText() { uFree(ptr); }
};

// Where the field that starts at field ends: the next occurrence of sep, searched only after
// the closing quote when the field opens with one (so a quoted field may contain sep).
const char *fieldEnd(const char *field, const char *sep, bool quoteRule) {
    const char *searchFrom = field;
    if (quoteRule && field[0] == '"') {
        if (const char *close = std::strchr(field + 1, '"'); close != nullptr) {
            searchFrom = close + 1;
        }
    }
    return std::strstr(searchFrom, sep);
}

} // namespace

extern "C" {

uList *uStrSepIgnoreEmpty(const char *str, const char *delim, int32_t ignoreEmpty) {
    if (delim == nullptr) {
        return nullptr;
    }
    OwnedText copy{uStrGetCopy(str)};
    if (copy.ptr == nullptr) {
        return nullptr;
    }
    uList *list = uListInit(0);
    if (list == nullptr) {
        return nullptr;
    }
    pu::core::ListBuilder builder(list);
    char *rest = copy.ptr;
    while (rest != nullptr) {
        const char *field = strsep(&rest, delim);
        if (field[0] == '\0' && ignoreEmpty != 0) {
            continue;
        }
        // A field that cannot be copied fails the whole split, as a missing one would shift
        // every later field.
        if (!pu::str::appendOwned(builder, pu::core::copyText(field))) {
            pu::str::discardStrings(list);
            return nullptr;
        }
    }
    if (uListSize(list) == 0) {
        uListUninit(list);
        return nullptr;
    }
    return list;
}

uList *uStrSep(const char *str, const char *delim) {
    return uStrSepIgnoreEmpty(str, delim, 1);
}

uint32_t uStrListGet(const char *str, char *slots, int32_t count, int32_t slotSize,
                     const char *sep) {
    if (str == nullptr || str[0] == '\0') {
        return 0;
    }
    // A slot size below 1 leaves nowhere to write: such a call only counts.
    if (slotSize < 1) {
        slots = nullptr;
    }
    if (slots != nullptr && count > 0) {
        std::memset(slots, 0, static_cast<std::size_t>(count) * static_cast<std::size_t>(slotSize));
    }
    if (count <= 0 || sep == nullptr || sep[0] == '\0') {
        return 0;
    }
    const std::size_t sepLength = std::strlen(sep);
    const bool quoteRule = std::strcmp(sep, "\"") != 0;
    auto slotAt = [&](int32_t index) {
        return slots + static_cast<std::ptrdiff_t>(index) * slotSize;
    };

    int32_t fields = 0;
    const char *field = str;
    while (fields < count) {
        const char *end = fieldEnd(field, sep, quoteRule);
        if (end == nullptr) {
            // The remainder is the last field; an empty one (a trailing separator) is none.
            if (field[0] != '\0') {
                if (slots != nullptr) {
                    uStrnSafeCopy(slotAt(fields), static_cast<uint32_t>(slotSize), field,
                                  static_cast<uint32_t>(slotSize - 1));
                }
                ++fields;
            }
            break;
        }
        if (slots != nullptr) {
            uStrnSafeCopy(slotAt(fields), static_cast<uint32_t>(slotSize), field,
                          static_cast<uint32_t>(end - field));
        }
        ++fields;
        field = end + sepLength;
    }
    if (slots != nullptr) {
        for (int32_t i = 0; i < fields; ++i) {
            uStrStripCrlfDoubleQoute(slotAt(i));
        }
    }
    return static_cast<uint32_t>(fields);
}

int32_t uStrListMatchKey(const char *list, const char *key, const char *sep, int32_t exact) {
    if (list == nullptr || key == nullptr || sep == nullptr || sep[0] == '\0') {
        return 0;
    }
    const std::string_view separator = sep;
    std::string_view rest = list;
    for (;;) {
        const std::size_t at = rest.find(separator);
        std::string_view element = rest.substr(0, at);
        if (exact == 0) {
            element = pu::str::trimmed(element, pu::str::kSpaceBlanks);
        }
        if (element == key) {
            return 1;
        }
        if (at == std::string_view::npos) {
            return 0;
        }
        rest.remove_prefix(at + separator.size());
    }
}

} // extern "C"
