// SPDX-License-Identifier: MIT
// Key/value lines, key replacement and XML escaping.
#include <umem.h>
#include <ustr.h>

#include "str/str_internal.hpp"

#include <cstring>
#include <string_view>

namespace {

using pu::str::BoundedText;

// A stripped copy of text, or null when it is blank or memory runs out.
char *strippedCopy(std::string_view text) {
    const std::string_view kept = pu::str::trimmed(text, pu::str::kCrlfBlanks);
    return kept.empty() ? nullptr : pu::core::copyText(kept);
}

std::string_view xmlEntity(char c, bool escapeQuotes) {
    switch (c) {
    case '&':
        return "&amp;";
    case '<':
        return "&lt;";
    case '>':
        return "&gt;";
    case '"':
        return escapeQuotes ? "&quot;" : std::string_view{};
    case '\'':
        return escapeQuotes ? "&apos;" : std::string_view{};
    default:
        return {};
    }
}

} // namespace

extern "C" {

UStrKeyValue *uStrKeyValueParse(const char *line, const char *sep) {
    if (line == nullptr || sep == nullptr || line[0] == '\0' || sep[0] == '\0') {
        return nullptr;
    }
    const std::string_view text = pu::str::trimmed(line, pu::str::kCrlfBlanks);
    const std::string_view separator = sep;
    if (text.empty() || text == separator) {
        return nullptr;
    }
    const std::size_t at = text.find(separator);
    if (at == std::string_view::npos) {
        return nullptr;
    }
    auto *rec = static_cast<UStrKeyValue *>(uMalloc(sizeof(UStrKeyValue)));
    if (rec == nullptr) {
        return nullptr;
    }
    const std::string_view value = text.substr(at + separator.size());
    if (!value.empty()) {
        rec->value = strippedCopy(value);
    }
    if (at > 0) {
        rec->key = strippedCopy(text.substr(0, at));
    }
    // A part that is there but could not be copied must not read as absent.
    if ((rec->value == nullptr && !pu::str::trimmed(value, pu::str::kCrlfBlanks).empty()) ||
        (rec->key == nullptr &&
         !pu::str::trimmed(text.substr(0, at), pu::str::kCrlfBlanks).empty())) {
        uStrKeyValueFree(rec);
        return nullptr;
    }
    return rec;
}

void uStrKeyValueFree(UStrKeyValue *rec) {
    if (rec != nullptr) {
        uFree(rec->key);
        uFree(rec->value);
        uFree(rec);
    }
}

void uStrReplaceKeyWorker(char *buf, int32_t size, const char *key, const char *replacement,
                          int32_t caseSensitive) {
    if (buf == nullptr || key == nullptr || replacement == nullptr || size <= 0 || key[0] == '\0') {
        return;
    }
    auto *result = static_cast<char *>(uMalloc(static_cast<uint32_t>(size)));
    if (result == nullptr) {
        return;
    }
    BoundedText out(result, static_cast<std::size_t>(size));
    const std::size_t keyLength = std::strlen(key);
    const char *pos = buf;
    while (!out.full()) {
        const char *match = caseSensitive != 0 ? std::strstr(pos, key) : uStrCaseStr(pos, key);
        if (match == nullptr) {
            break;
        }
        out.append(std::string_view(pos, static_cast<std::size_t>(match - pos)));
        out.append(replacement);
        pos = match + keyLength; // the replacement is never searched again
    }
    out.append(pos);
    uStrSafeCopy(buf, static_cast<uint32_t>(size), result);
    uFree(result);
}

void uStrReplaceKey(char *buf, int32_t size, const char *key, const char *replacement) {
    uStrReplaceKeyWorker(buf, size, key, replacement, 1);
}

void uStrCaseReplaceKey(char *buf, int32_t size, const char *key, const char *replacement) {
    uStrReplaceKeyWorker(buf, size, key, replacement, 0);
}

void uStrReplaceXml(char *buf, int32_t size, int32_t quoteMode) {
    if (buf == nullptr || size < 1) {
        return;
    }
    auto *result = static_cast<char *>(uMalloc(static_cast<uint32_t>(size)));
    if (result == nullptr) {
        return;
    }
    BoundedText out(result, static_cast<std::size_t>(size));
    for (const char *p = buf; *p != '\0' && !out.full(); ++p) {
        const std::string_view entity = xmlEntity(*p, quoteMode == 1);
        if (entity.empty()) {
            out.append(*p);
        } else {
            out.append(entity); // near the end an entity may be cut short: intended
        }
    }
    uStrSafeCopy(buf, static_cast<uint32_t>(size), result);
    uFree(result);
}

} // extern "C"
