// SPDX-License-Identifier: MIT
// CSV fields: encoding and decoding one field, and the scanner under both row parsers.
#include <ucsv.h>
#include <umem.h>
#include <ustr.h>

#include "core/checked_size.hpp"
#include "str/csv_field.hpp"
#include "str/str_internal.hpp"

#include <algorithm>
#include <cstring>

namespace pu::str::csv {

namespace {

std::size_t quoteRunLength(std::string_view text, std::size_t pos) {
    std::size_t end = pos;
    while (end < text.size() && text[end] == '"') {
        ++end;
    }
    return end - pos;
}

// Appends text to out with doubled quotes collapsed; pendingQuote carries a quote that may pair
// with the first character of the next piece.
char *appendCollapsed(char *out, std::string_view text, bool &pendingQuote) {
    for (const char c : text) {
        if (c == '"') {
            if (pendingQuote) {
                pendingQuote = false; // the second quote of a pair is dropped
                continue;
            }
            pendingQuote = true;
            *out++ = c;
        } else {
            pendingQuote = false;
            *out++ = c;
        }
    }
    return out;
}

// Bytes that end an unquoted field; the terminator always does, so a scan of a NUL-terminated
// text stops by itself.
struct EndTable {
    bool ends[256] = {};
    constexpr explicit EndTable(bool lineBreaks) {
        ends[static_cast<unsigned char>('\0')] = true;
        ends[static_cast<unsigned char>(',')] = true;
        ends[static_cast<unsigned char>('\r')] = lineBreaks;
        ends[static_cast<unsigned char>('\n')] = lineBreaks;
    }
};
constexpr EndTable kRowEnds(true);
constexpr EndTable kFieldEnds(false);

std::size_t findFieldEnd(std::string_view text, std::size_t pos, bool lineBreaks) {
    const bool *ends = lineBreaks ? kRowEnds.ends : kFieldEnds.ends;
    const char *p = text.data() + pos;
    while (!ends[static_cast<unsigned char>(*p)]) {
        ++p;
    }
    return static_cast<std::size_t>(p - text.data());
}

} // namespace

ScannedField scanField(std::string_view text, std::size_t pos, bool lineBreaks) {
    ScannedField field;
    while (pos < text.size() && text[pos] == ' ') {
        ++pos; // leading spaces are not part of a field
    }
    field.start = pos;
    field.rawBegin = pos;
    bool inQuotes = false;

    if (pos < text.size() && text[pos] == '"') {
        const std::size_t run = quoteRunLength(text, pos);
        if (run % 2 == 1) {
            inQuotes = true; // the rest of the run is escaped quotes inside
            field.openAt = pos + 1;
            pos = field.openAt;
        } else {
            pos += run; // an empty quoted text or escaped quotes: the field is not quoted
        }
    }

    while (inQuotes) {
        const std::size_t quote = text.find('"', pos);
        if (quote == std::string_view::npos) {
            field.unterminated = true;
            pos = text.size();
            break;
        }
        const std::size_t run = quoteRunLength(text, quote);
        pos = quote + run;
        if (run % 2 == 1) {
            field.hasQuoted = true;
            field.quotedEnd = pos - 1;
            field.rawBegin = pos;
            inQuotes = false;
        }
    }

    if (!field.unterminated) {
        pos = findFieldEnd(text, pos, lineBreaks); // quotes past the start are plain text
    }
    field.end = pos;
    if (pos >= text.size()) {
        field.terminator = Terminator::End;
    } else {
        field.terminator = text[pos] == ',' ? Terminator::Comma : Terminator::LineBreak;
    }
    return field;
}

char *buildCollapsed(std::string_view first, std::string_view second) {
    const pu::core::CheckedSize room =
        pu::core::checkedAdd(pu::core::checkedAdd(first.size(), second.size()), 1);
    const bool anyQuote =
        first.find('"') != std::string_view::npos || second.find('"') != std::string_view::npos;
    if (!anyQuote) {
        auto *copy = static_cast<char *>(pu::core::allocate(room));
        if (copy != nullptr) {
            std::copy(first.begin(), first.end(), copy);
            std::copy(second.begin(), second.end(), copy + first.size());
        }
        return copy;
    }
    // Collapsing never lengthens; the pieces' total length is enough room.
    auto *copy = static_cast<char *>(pu::core::allocate(room));
    if (copy != nullptr) {
        bool pendingQuote = false;
        char *out = appendCollapsed(copy, first, pendingQuote);
        appendCollapsed(out, second, pendingQuote);
    }
    return copy;
}

char *decodeField(std::string_view text) {
    if (text.size() >= 2 && text.front() == '"' && text.back() == '"') {
        text = text.substr(1, text.size() - 2);
    }
    return buildCollapsed(text);
}

char *buildDataField(std::string_view text, const ScannedField &field) {
    if (field.unterminated) {
        return buildCollapsed(text.substr(field.openAt));
    }
    const std::string_view raw = text.substr(field.rawBegin, field.end - field.rawBegin);
    if (field.hasQuoted) {
        return buildCollapsed(text.substr(field.openAt, field.quotedEnd - field.openAt), raw);
    }
    if (raw.empty()) {
        return pu::core::copyText({});
    }
    return decodeField(raw);
}

} // namespace pu::str::csv

extern "C" {

int32_t uStrEncodeCsv(const char *src, char *dst, int32_t size, int32_t *needQuotes) {
    if (src == nullptr || dst == nullptr || size < 1) {
        return -1;
    }
    const auto limit = static_cast<std::size_t>(size) - 1; // room for characters
    std::size_t written = 0;
    for (const char *p = src; *p != '\0'; ++p) {
        const std::size_t copies = *p == '"' ? 2 : 1;
        if (written + copies > limit) {
            dst[0] = '\0'; // a field is never cut
            return -1;
        }
        for (std::size_t i = 0; i < copies; ++i) {
            dst[written++] = *p;
        }
        if (needQuotes != nullptr) {
            // Only ever set, never cleared: the caller starts it at 0.
            if (*p == '"' || (*needQuotes == 0 && (*p == ',' || *p == '\r' || *p == '\n'))) {
                *needQuotes = 1;
            }
        }
    }
    dst[written] = '\0';
    return 0;
}

int32_t uStrDecodeCsv(const char *src, char **out) {
    if (src == nullptr || out == nullptr) {
        return -1;
    }
    *out = src[0] == '\0' ? nullptr : pu::str::csv::decodeField(src);
    return *out == nullptr ? -1 : 0;
}

} // extern "C"
