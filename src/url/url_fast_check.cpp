// SPDX-License-Identifier: MIT
// A quick recogniser for the common shapes of acceptable URLs, so that the validator need not
// run its regular expressions on them. It only ever proves acceptance: it takes one way of
// reading the text as scheme, user part, host, port and path, and answers true only when that
// reading is a match of an accepting pattern (and, for host names, no reading at all matches the
// all-digits pattern). Anything else goes to the patterns, which stay the definition.
#include "url/url_fast_check.hpp"

#include <array>
#include <cstdint>

namespace pu::url {
namespace {

constexpr std::uint8_t kAlnum = 1;
constexpr std::uint8_t kUserChar = 2; // the user-part class of the patterns
constexpr std::uint8_t kPathChar = 4; // the path class of the patterns

constexpr std::array<std::uint8_t, 256> buildClasses() {
    std::array<std::uint8_t, 256> table{};
    for (int c = 0; c < 256; ++c) {
        if ((c >= 'a' && c <= 'z') || (c >= 'A' && c <= 'Z') || (c >= '0' && c <= '9')) {
            table[c] = kAlnum | kUserChar | kPathChar;
        }
    }
    // The backslash belongs to both classes too, but texts holding one are left to the patterns.
    for (const char c : std::string_view("!_~=;,:&'%`{}*?^.()|-")) {
        table[static_cast<unsigned char>(c)] |= kUserChar;
    }
    for (const char c : std::string_view(".,?'/+&%$_=~@!()*;:-")) {
        table[static_cast<unsigned char>(c)] |= kPathChar;
    }
    return table;
}

constexpr std::array<std::uint8_t, 256> kClasses = buildClasses();

bool has(char c, std::uint8_t cls) {
    return (kClasses[static_cast<unsigned char>(c)] & cls) != 0;
}

bool isDigit(char c) {
    return c >= '0' && c <= '9';
}

constexpr std::array<std::string_view, 12> kNameSchemes = {
    "tftp", "http", "https", "ftp", "ldap", "rtsp", "TFTP", "HTTP", "HTTPS", "FTP", "LDAP", "RTSP"};
constexpr std::array<std::string_view, 4> kAddressOnlySchemes = {"mcast", "file", "MCAST", "FILE"};

// Length of "scheme://" at the start of text for one of the schemes, or 0.
template <std::size_t N>
std::size_t schemeLength(std::string_view text, const std::array<std::string_view, N> &schemes) {
    for (const std::string_view scheme : schemes) {
        if (text.size() > scheme.size() + 3 && text.substr(0, scheme.size()) == scheme &&
            text.substr(scheme.size(), 3) == "://") {
            return scheme.size() + 3;
        }
    }
    return 0;
}

// Position after "user@" when the text from `from` up to its first '@' is a non-empty run of
// user-part characters; `from` otherwise.
std::size_t afterUserPart(std::string_view text, std::size_t from) {
    const std::size_t at = text.find('@', from);
    if (at == std::string_view::npos || at == from) {
        return from;
    }
    for (std::size_t i = from; i < at; ++i) {
        if (!has(text[i], kUserChar)) {
            return from;
        }
    }
    return at + 1;
}

// Length of a host-name label at pos: letters and digits with inner '-', at most 63; 0 if none.
std::size_t labelLength(std::string_view text, std::size_t pos) {
    std::size_t end = pos;
    while (end < text.size() && (has(text[end], kAlnum) || text[end] == '-')) {
        ++end;
    }
    const std::size_t length = end - pos;
    if (length == 0 || length > 63 || text[pos] == '-' || text[end - 1] == '-') {
        return 0;
    }
    return length;
}

// Whether the all-digits pattern matches from pos: labels each followed by '.', then 1 to 63
// digits that end the text or are followed by ':' or '/'.
bool digitsTailFrom(std::string_view text, std::size_t pos) {
    while (true) {
        const std::size_t label = labelLength(text, pos);
        if (label == 0 || pos + label >= text.size() || text[pos + label] != '.') {
            return false;
        }
        pos += label + 1;
        std::size_t digits = 0;
        while (pos + digits < text.size() && isDigit(text[pos + digits])) {
            ++digits;
        }
        const bool ends =
            pos + digits == text.size() || text[pos + digits] == ':' || text[pos + digits] == '/';
        if (digits >= 1 && digits <= 63 && ends) {
            return true;
        }
    }
}

// Whether any reading of the text matches the all-digits pattern: its labels may start at the
// beginning, after a scheme, after a user part, each optionally after a literal ')'.
bool allDigitsMatches(std::string_view text) {
    const std::size_t starts[] = {0, schemeLength(text, kNameSchemes)};
    for (const std::size_t start : starts) {
        for (const std::size_t from : {start, afterUserPart(text, start)}) {
            if (digitsTailFrom(text, from) ||
                (from < text.size() && text[from] == ')' && digitsTailFrom(text, from + 1))) {
                return true;
            }
        }
    }
    return false;
}

// An IPv4 host as the patterns write it: no leading zeros, the first and last parts 1 to 255,
// the middle ones 0 to 255. Returns its length, or 0.
std::size_t ipv4Length(std::string_view text, std::size_t pos) {
    const std::size_t begin = pos;
    for (int part = 0; part < 4; ++part) {
        if (part > 0) {
            if (pos >= text.size() || text[pos] != '.') {
                return 0;
            }
            ++pos;
        }
        unsigned value = 0;
        std::size_t digits = 0;
        while (pos < text.size() && isDigit(text[pos]) && digits < 4) {
            value = value * 10 + static_cast<unsigned>(text[pos] - '0');
            ++pos;
            ++digits;
        }
        const bool leadingZero = digits > 1 && text[pos - digits] == '0';
        const bool zeroAllowed = part == 1 || part == 2;
        if (digits == 0 || digits > 3 || leadingZero || value > 255 ||
            (value == 0 && !zeroAllowed)) {
            return 0;
        }
    }
    return pos - begin;
}

std::size_t hostNameLength(std::string_view text, std::size_t pos) {
    const std::size_t begin = pos;
    while (true) {
        const std::size_t label = labelLength(text, pos);
        if (label == 0) {
            return 0;
        }
        pos += label;
        if (pos >= text.size() || text[pos] != '.') {
            return pos - begin;
        }
        ++pos;
    }
}

// A port of 1 to 65535 without a leading zero at pos (after the ':'); returns its length or 0.
std::size_t portLength(std::string_view text, std::size_t pos) {
    std::size_t digits = 0;
    unsigned value = 0;
    while (pos + digits < text.size() && isDigit(text[pos + digits]) && digits < 6) {
        value = value * 10 + static_cast<unsigned>(text[pos + digits] - '0');
        ++digits;
    }
    if (digits == 0 || digits > 5 || text[pos] == '0' || value > 65535) {
        return 0;
    }
    return digits;
}

// Whether the text from pos is an optional port and then either the end or '/' and path
// characters to the end.
bool portAndPathFrom(std::string_view text, std::size_t pos) {
    if (pos < text.size() && text[pos] == ':') {
        const std::size_t port = portLength(text, pos + 1);
        if (port == 0) {
            return false;
        }
        pos += 1 + port;
    }
    if (pos == text.size()) {
        return true;
    }
    if (text[pos] != '/') {
        return false;
    }
    for (++pos; pos < text.size(); ++pos) {
        if (!has(text[pos], kPathChar)) {
            return false;
        }
    }
    return true;
}

} // namespace

bool provablyAcceptableUrl(std::string_view url) {
    for (const char c : url) {
        if (c == '\\' || static_cast<unsigned char>(c) < 0x20 ||
            static_cast<unsigned char>(c) >= 0x7F) {
            return false;
        }
    }
    const std::size_t nameScheme = schemeLength(url, kNameSchemes);
    const std::size_t scheme =
        nameScheme != 0 ? nameScheme : schemeLength(url, kAddressOnlySchemes);
    const std::size_t hostStart = afterUserPart(url, scheme);
    const std::size_t ipv4 = ipv4Length(url, hostStart);
    if (ipv4 != 0 && portAndPathFrom(url, hostStart + ipv4)) {
        return true; // an IPv4 pattern matches; those accept at once
    }
    if (scheme != nameScheme) {
        return false; // mcast and file go with addresses only here
    }
    const std::size_t name = hostNameLength(url, hostStart);
    return name != 0 && portAndPathFrom(url, hostStart + name) && !allDigitsMatches(url);
}

} // namespace pu::url
