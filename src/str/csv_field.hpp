// SPDX-License-Identifier: MIT
// CSV field scanning and building shared by the row and data parsers and uStrDecodeCsv.
#pragma once

#include <cstddef>
#include <string_view>

namespace pu::str::csv {

// What ended a field.
enum class Terminator { Comma, LineBreak, End };

// One scanned field, as positions in the text (kept small: one is made per field).
struct ScannedField {
    std::size_t start = 0;     // first non-space character
    std::size_t openAt = 0;    // just after the opening quote, for a quoted field
    std::size_t quotedEnd = 0; // the closing quote, when hasQuoted
    std::size_t rawBegin = 0;  // unquoted text, or the text after the closing quote
    std::size_t end = 0;       // the terminator, or the text's length
    bool unterminated = false; // the text ended inside quotes
    bool hasQuoted = false;    // a closed quoted part exists
    Terminator terminator = Terminator::End;

    bool started() const { return end > start; }
    std::string_view whole(std::string_view text) const { return text.substr(start, end - start); }
};

// Scans the field that starts at pos: leading spaces are dropped; a field that opens with an odd
// run of quotes is quoted up to the quote that ends an odd run inside it (even runs are escaped
// quotes); a comma outside quotes ends it, and so does a line break when lineBreaks is set.
ScannedField scanField(std::string_view text, std::size_t pos, bool lineBreaks);

// Copies the pieces one after the other into a new uMalloc string, collapsing doubled quotes
// across the whole result. Null when memory runs out.
char *buildCollapsed(std::string_view first, std::string_view second = {});

// The owned field text the data parser makes of a scanned field: the quoted part followed by
// the raw range, or the decoded raw range; an unterminated field gives what followed the
// opening quote. Null when memory runs out.
char *buildDataField(std::string_view text, const ScannedField &field);

// uStrDecodeCsv's text: one pair of enclosing quotes removed, doubled quotes made single.
char *decodeField(std::string_view text);

} // namespace pu::str::csv
