// CSV field scanning and building shared by the row and data parsers and uStrDecodeCsv.
#pragma once

#include <cstddef>
#include <string_view>

namespace pu::str::csv {

// What ended a field.
enum class Terminator { Comma, LineBreak, End };

// One scanned field, as ranges into the text.
struct ScannedField {
    bool started = false;       // a non-space character (or a terminator-less quote) was seen
    bool unterminated = false;  // the text ended inside quotes
    bool hasQuoted = false;     // a closed quoted part exists
    std::string_view quoted;    // between the opening and the closing quote, quotes still doubled
    std::string_view raw;       // unquoted text, or the text after the closing quote
    std::string_view afterOpen; // everything after the opening quote (for unterminated fields)
    std::string_view whole;     // from the first non-space character to the terminator
    Terminator terminator = Terminator::End;
    std::size_t end = 0; // position of the terminator, or the text's length
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
char *buildDataField(const ScannedField &field);

// uStrDecodeCsv's text: one pair of enclosing quotes removed, doubled quotes made single.
char *decodeField(std::string_view text);

} // namespace pu::str::csv
