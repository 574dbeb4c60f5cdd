// SPDX-License-Identifier: MIT
// Parameters in URL query form: lists of pairs, joining them, reading single values, splitting a
// query into pairs.
#include <umem.h>
#include <uparaurl.h>
#include <ustr.h>
#include <ustrurl.h>

#include "core/list_internal.hpp"
#include "url/url_form.hpp"
#include "url/url_internal.hpp"

#include <cstdarg>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <strings.h>
#include <string_view>

namespace {

constexpr int32_t kValueTextSize = 1024;
constexpr int32_t kEncodedKeySize = 64;
constexpr int32_t kEncodedValueSize = 512;
constexpr std::size_t kJoinedSize = 1024;

// Encodes text for a query into buffer (size bytes), every "%20" then written as '+'. That only
// shrinks the text, so it is done in place: no allocation that could fail and leave "%20".
void encodeForQuery(const char *text, char *buffer, int32_t size) {
    uStrUrlEncodeComponent(U_STR_URL_QUERY, text, buffer, size);
    constexpr std::string_view kSpace = "%20";
    char *out = buffer;
    for (const char *in = buffer; *in != '\0';) {
        if (std::strncmp(in, kSpace.data(), kSpace.size()) == 0) {
            *out++ = '+';
            in += kSpace.size();
        } else {
            *out++ = *in++;
        }
    }
    *out = '\0';
}

// Gives the pair with the (stored) key the value, or appends a new pair. Both strings are
// copied; an empty value stays an empty string.
int32_t setPair(uList *list, const char *key, const char *value) {
    for (uListNode *node = list->head; node != nullptr; node = node->next) {
        auto *pair = static_cast<UParaUrlPair *>(node->data);
        if (pair->key != nullptr && std::strcmp(pair->key, key) == 0) {
            char *copy = pu::core::copyText(value);
            if (copy == nullptr) {
                return -1;
            }
            uFree(pair->value);
            pair->value = copy;
            return 0;
        }
    }
    auto *pair = static_cast<UParaUrlPair *>(uMalloc(sizeof(UParaUrlPair)));
    if (pair == nullptr) {
        return -1;
    }
    pair->key = pu::core::copyText(key);
    pair->value = pu::core::copyText(value);
    if (pair->key == nullptr || pair->value == nullptr || uListAppend(list, pair) < 0) {
        urlParaQueryFree(pair);
        return -1;
    }
    return 0;
}

int32_t addPair(uList *list, const char *key, const char *value, bool encode) {
    if (list == nullptr || key == nullptr || key[0] == '\0' || value == nullptr) {
        return -1;
    }
    if (!encode) {
        return setPair(list, key, value);
    }
    char encodedKey[kEncodedKeySize];
    char encodedValue[kEncodedValueSize];
    encodeForQuery(key, encodedKey, kEncodedKeySize);
    encodeForQuery(value, encodedValue, kEncodedValueSize);
    return setPair(list, encodedKey, encodedValue);
}

int32_t addFormatted(uList *list, const char *key, bool encode, const char *format, ...)
    __attribute__((format(printf, 4, 5)));

int32_t addFormatted(uList *list, const char *key, bool encode, const char *format, ...) {
    char text[kValueTextSize];
    va_list args;
    va_start(args, format);
    std::vsnprintf(text, sizeof(text), format, args);
    va_end(args);
    return addPair(list, key, text, encode);
}

// Joins the pairs as "key=value" with sep and consumes the list. Pairs are appended whole while
// they fit in 1023 characters; once one does not, the rest are dropped.
char *joinPairs(uList *list, char sep) {
    if (list == nullptr) {
        return nullptr;
    }
    auto *text = static_cast<char *>(uMalloc(kJoinedSize));
    if (text == nullptr) {
        return nullptr;
    }
    std::size_t used = 0;
    bool full = false;
    while (auto *pair = static_cast<UParaUrlPair *>(uListRemove(list, 0))) {
        if (!full && pair->key != nullptr && pair->value != nullptr) {
            const std::size_t room = kJoinedSize - used;
            const int written =
                std::snprintf(text + used, room, "%s=%s%c", pair->key, pair->value, sep);
            if (written >= 0 && static_cast<std::size_t>(written) < room) {
                used += static_cast<std::size_t>(written);
            } else {
                text[used] = '\0'; // drop the part that was cut
                full = true;
            }
        }
        urlParaQueryFree(pair);
    }
    if (used > 0) {
        text[used - 1] = '\0'; // the trailing separator
    }
    return text;
}

// The value of key in query as a new decoded string, or null when absent or when memory runs
// out (then *noMemory is set, when given). The key counts only at the start of the query or
// right after '?' or sep, and only when '=' follows it directly.
char *findValue(const char *query, const char *key, char sep, bool *noMemory = nullptr) {
    if (query == nullptr || key == nullptr || key[0] == '\0') {
        return nullptr;
    }
    char encodedKey[kEncodedKeySize];
    uStrUrlEncodeComponent(U_STR_URL_QUERY, key, encodedKey, kEncodedKeySize);
    const std::size_t encodedLength = std::strlen(encodedKey);
    if (encodedLength == 0) {
        return nullptr;
    }
    const std::string_view text(query);
    const std::size_t plainLength = std::strlen(key);
    std::size_t from = 0;
    while (from < text.size()) {
        const std::size_t at = text.find(encodedKey, from);
        if (at == std::string_view::npos) {
            return nullptr;
        }
        const std::size_t equals = text.find('=', at);
        if (equals == std::string_view::npos) {
            return nullptr;
        }
        const bool atBoundary = at == 0 || text[at - 1] == '?' || text[at - 1] == sep;
        if (atBoundary && equals == at + encodedLength) {
            std::string_view value = text.substr(equals + 1);
            value = value.substr(0, value.find(sep));
            char *copy = pu::core::copyText(value);
            if (copy != nullptr) {
                pu::url::formDecode(copy, value.size());
            } else if (noMemory != nullptr) {
                *noMemory = true;
            }
            return copy;
        }
        from = at + plainLength; // the search goes on behind the key
    }
    return nullptr;
}

int32_t readInt(const char *query, const char *key, int32_t def, char sep) {
    char *value = findValue(query, key, sep);
    if (value == nullptr) {
        return def;
    }
    const int32_t result = pu::url::clampedAtoi(value);
    uFree(value);
    return result;
}

long long readLong(const char *query, const char *key, long long def, char sep) {
    char *value = findValue(query, key, sep);
    if (value == nullptr) {
        return def;
    }
    const long long result = std::strtol(value, nullptr, 10); // atol without its overflow
    uFree(value);
    return result;
}

// A value that is there but cannot be copied gives null, never the default in its place.
char *readString(const char *query, const char *key, const char *def, char sep) {
    bool noMemory = false;
    char *value = findValue(query, key, sep, &noMemory);
    return value != nullptr || noMemory ? value : uStrGetCopy(def);
}

int32_t readBool(const char *query, const char *key, int32_t def, char sep) {
    char *value = findValue(query, key, sep);
    if (value == nullptr) {
        return def;
    }
    int32_t result = def;
    if (strncasecmp(value, "TRUE", 4) == 0) {
        result = 1;
    } else if (strncasecmp(value, "FALSE", 5) == 0) {
        result = 0;
    }
    uFree(value);
    return result;
}

// A decoded copy of part, null when it is empty or decodes to nothing. Clears ok when memory
// runs out.
char *decodedPart(std::string_view part, bool &ok) {
    if (part.empty()) {
        return nullptr;
    }
    char *copy = pu::core::copyText(part);
    if (copy == nullptr) {
        ok = false;
    } else if (pu::url::formDecode(copy, part.size()) == 0) {
        uFree(copy);
        return nullptr;
    }
    return copy;
}

// A pair for one "key=value" piece of a query; null when memory runs out for any part of it.
UParaUrlPair *pairFromPiece(std::string_view piece) {
    auto *pair = static_cast<UParaUrlPair *>(uMalloc(sizeof(UParaUrlPair)));
    if (pair == nullptr) {
        return nullptr;
    }
    bool ok = true;
    const std::size_t equals = piece.find('=');
    pair->key = decodedPart(piece.substr(0, equals), ok);
    if (equals != std::string_view::npos) {
        pair->value = decodedPart(piece.substr(equals + 1), ok);
    }
    if (!ok) {
        urlParaQueryFree(pair);
        return nullptr;
    }
    return pair;
}

} // namespace

extern "C" {

uList *uParaUrlInit(void) {
    return uListInit(0);
}

void uParaUrlUnInit(uList *list) {
    uListUninit(list);
}

// Pair by pair, allocating nothing, so releasing a list cannot fail half-way and leak it.
void uParaUrlDelete(uList *list) {
    while (auto *pair = static_cast<UParaUrlPair *>(uListRemove(list, 0))) {
        urlParaQueryFree(pair);
    }
}

char *uParaUrlStringPtrCreate(uList *list) {
    return joinPairs(list, '&');
}

char *uParaUrlStringPtrCreateUnencoded(uList *list, char sep) {
    return joinPairs(list, sep);
}

int32_t uParaUrlAddInt(uList *list, const char *key, int32_t value) {
    return addFormatted(list, key, true, "%d", value);
}

int32_t uParaUrlAddLong(uList *list, const char *key, long long value) {
    return addFormatted(list, key, true, "%lld", value);
}

int32_t uParaUrlAddString(uList *list, const char *key, const char *value) {
    if (value == nullptr) {
        return -1;
    }
    return addFormatted(list, key, true, "%s", value);
}

int32_t uParaUrlAddBool(uList *list, const char *key, int32_t value) {
    return addPair(list, key, value == 1 ? "TRUE" : "FALSE", true);
}

int32_t uParaUrlAddIntUnencoded(uList *list, const char *key, int32_t value) {
    return addFormatted(list, key, false, "%d", value);
}

int32_t uParaUrlAddLongUnencoded(uList *list, const char *key, long long value) {
    return addFormatted(list, key, false, "%lld", value);
}

int32_t uParaUrlAddStringUnencoded(uList *list, const char *key, const char *value) {
    return addPair(list, key, value, false);
}

int32_t uParaUrlAddBoolUnencoded(uList *list, const char *key, int32_t value) {
    // Any non-zero value is true here, unlike uParaUrlAddBool: both are relied upon.
    return addPair(list, key, value != 0 ? "TRUE" : "FALSE", false);
}

int32_t uParaUrlGetInt(const char *query, const char *key, int32_t def) {
    return readInt(query, key, def, '&');
}

int32_t uParaUrlGetIntUnencoded(const char *query, const char *key, int32_t def, char sep) {
    return readInt(query, key, def, sep);
}

long long uParaUrlGetLong(const char *query, const char *key, long long def) {
    return readLong(query, key, def, '&');
}

long long uParaUrlGetLongUnencoded(const char *query, const char *key, long long def, char sep) {
    return readLong(query, key, def, sep);
}

char *uParaUrlGetString(const char *query, const char *key, const char *def) {
    return readString(query, key, def, '&');
}

char *uParaUrlGetStringUnencoded(const char *query, const char *key, const char *def, char sep) {
    return readString(query, key, def, sep);
}

int32_t uParaUrlGetBool(const char *query, const char *key, int32_t def) {
    return readBool(query, key, def, '&');
}

int32_t uParaUrlGetBoolUnencoded(const char *query, const char *key, int32_t def, char sep) {
    return readBool(query, key, def, sep);
}

uList *uParaUrlQuery(const char *query) {
    if (query == nullptr || query[0] == '\0') {
        return nullptr;
    }
    uList *list = uListInit(0);
    if (list == nullptr) {
        return nullptr;
    }
    pu::core::ListBuilder builder(list);
    std::string_view rest(query);
    while (!rest.empty()) {
        const std::size_t amp = rest.find('&');
        const std::string_view piece = rest.substr(0, amp);
        rest = amp == std::string_view::npos ? std::string_view{} : rest.substr(amp + 1);
        if (piece.empty()) {
            continue;
        }
        // A list missing a pair, or a value, would read as a different query: memory running
        // out fails the whole split.
        UParaUrlPair *pair = pairFromPiece(piece);
        if (pair == nullptr || builder.append(pair) < 0) {
            urlParaQueryFree(pair);
            uParaUrlQueryListDestroy(list);
            return nullptr;
        }
    }
    return list;
}

int32_t uParaQueryValueGet(uList *list, const char *key, char *dst, uint32_t size) {
    if (list == nullptr || key == nullptr || dst == nullptr || size == 0) {
        return -1;
    }
    for (uListNode *node = list->head; node != nullptr; node = node->next) {
        const auto *pair = static_cast<const UParaUrlPair *>(node->data);
        if (pair != nullptr && pair->key != nullptr && pair->value != nullptr &&
            strcasecmp(pair->key, key) == 0) {
            std::snprintf(dst, size, "%s", pair->value);
            return 0;
        }
    }
    return -1;
}

void uParaUrlQueryListDestroy(uList *list) {
    if (list != nullptr) {
        uParaUrlDelete(list);
        uListUninit(list);
    }
}

void urlParaQueryFree(UParaUrlPair *pair) {
    if (pair != nullptr) {
        uFree(pair->key);
        uFree(pair->value);
        uFree(pair);
    }
}

} // extern "C"
