// SPDX-License-Identifier: MIT
// Strict number parsing, digit tests and hexadecimal digits.
#include <ustrconv.h>

#include "str/str_internal.hpp"

#include <cerrno>
#include <climits>
#include <cstdio>
#include <cstdlib>

namespace {

using pu::str::TrimmedCopy;

// Restores errno when the scope ends: the parsers report through their result only.
class ErrnoKeeper {
  public:
    ErrnoKeeper() : saved_(errno) { errno = 0; }
    ~ErrnoKeeper() { errno = saved_; }
    ErrnoKeeper(const ErrnoKeeper &) = delete;
    ErrnoKeeper &operator=(const ErrnoKeeper &) = delete;

  private:
    int saved_;
};

// Runs parse (strtol or strtoul) over the stripped text; true when it took the whole text
// without a reported error. overflowValue is what a range error answers at the limit.
template <typename T, typename Parse>
bool parseWhole(const TrimmedCopy &text, int32_t base, Parse parse, T &value,
                bool (*overflowed)(T)) {
    char *end = nullptr;
    int error = 0;
    {
        ErrnoKeeper keeper;
        value = parse(text.c_str(), &end, base);
        error = errno;
    }
    if (end == nullptr || *end != '\0') {
        return false;
    }
    if (error == ERANGE && overflowed(value)) {
        return false;
    }
    return !(error != 0 && value == 0); // an invalid base, for one
}

constexpr bool isCrlfBlank(char c) {
    return pu::str::kCrlfBlanks.find(c) != std::string_view::npos;
}

} // namespace

extern "C" {

int32_t uStrTol(const char *str, long *out, int32_t base) {
    if (out != nullptr) {
        *out = 0;
    }
    const TrimmedCopy text(str);
    if (!text.ok()) {
        return -1;
    }
    long value = 0;
    if (!parseWhole<long>(text, base, std::strtol, value,
                          [](long v) { return v == LONG_MAX || v == LONG_MIN; })) {
        return -1;
    }
    if (out != nullptr) {
        *out = value;
    }
    return 0;
}

int32_t uStrToUl(const char *str, unsigned long *out, int32_t base) {
    if (out != nullptr) {
        *out = 0;
    }
    const TrimmedCopy text(str);
    if (!text.ok() || text.c_str()[0] == '-') {
        return -1;
    }
    unsigned long value = 0;
    if (!parseWhole<unsigned long>(text, base, std::strtoul, value,
                                   [](unsigned long v) { return v == ULONG_MAX; })) {
        return -1;
    }
    if (out != nullptr) {
        *out = value;
    }
    return 0;
}

int32_t uStrToDouble(const char *str, double *out) {
    const TrimmedCopy text(str);
    if (!text.ok()) {
        return -1;
    }
    double value = 0;
    int consumed = -1;
    if (std::sscanf(text.c_str(), "%lf %n", &value, &consumed) != 1 || consumed < 0 ||
        static_cast<std::size_t>(consumed) != text.size()) {
        return -1;
    }
    if (out != nullptr) {
        *out = value;
    }
    return 0;
}

int32_t uStrIsDigit(const char *str) {
    if (str == nullptr || str[0] == '\0') {
        return 0;
    }
    enum class Stage { Leading, Digits, Trailing } stage = Stage::Leading;
    for (const char *p = str; *p != '\0'; ++p) {
        const bool digit = *p >= '0' && *p <= '9';
        if (!digit && !isCrlfBlank(*p)) {
            return 0;
        }
        if (digit && stage == Stage::Trailing) {
            return 0; // a second run of digits
        }
        if (digit) {
            stage = Stage::Digits;
        } else if (stage == Stage::Digits) {
            stage = Stage::Trailing;
        }
    }
    return 1; // blanks only count as digits too: intended
}

int32_t uStrHexCharToInteger(int32_t c) {
    if (c >= '0' && c <= '9') {
        return c - '0';
    }
    if (c >= 'a' && c <= 'f') {
        return c - 'a' + 10;
    }
    if (c >= 'A' && c <= 'F') {
        return c - 'A' + 10;
    }
    return -1;
}

int32_t uStrHashToHex(const uint8_t *bytes, uint32_t len, char *dst, uint32_t dstSize) {
    // Only a larger dstSize is refused (callers pass exactly 2*len+1); a smaller one cuts.
    if (bytes == nullptr || dst == nullptr || len == 0 || dstSize == 0 ||
        static_cast<uint64_t>(dstSize) > 2ULL * len + 1) {
        return -1;
    }
    constexpr char kDigits[] = "0123456789abcdef";
    std::size_t written = 0;
    for (uint32_t i = 0; i < len && written + 1 < dstSize; ++i) {
        dst[written++] = kDigits[bytes[i] >> 4];
        if (written + 1 < dstSize) {
            dst[written++] = kDigits[bytes[i] & 0x0F];
        }
    }
    dst[written] = '\0';
    return 0;
}

} // extern "C"
