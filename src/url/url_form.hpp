// SPDX-License-Identifier: MIT
// Form decoding shared by the query readers and the URL record parser; nothing here is exported.
#pragma once

#include "url/url_internal.hpp"

#include <cstddef>

namespace pu::url {

// Decodes the first length characters of text in place: '+' becomes a space and '%' with two
// hexadecimal digits (within the length) the byte they give; everything else is copied. The
// result is terminated; its length is returned.
inline std::size_t formDecode(char *text, std::size_t length) {
    std::size_t out = 0;
    for (std::size_t in = 0; in < length; ++in) {
        const char c = text[in];
        if (c == '+') {
            text[out++] = ' ';
        } else if (c == '%' && in + 2 < length && pu::url::isHexDigit(text[in + 1]) &&
                   pu::url::isHexDigit(text[in + 2])) {
            text[out++] = static_cast<char>(pu::url::hexValue(text[in + 1]) * 16 +
                                            pu::url::hexValue(text[in + 2]));
            in += 2;
        } else {
            text[out++] = c;
        }
    }
    text[out] = '\0';
    return out;
}

} // namespace pu::url
