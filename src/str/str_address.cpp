// SPDX-License-Identifier: MIT
// MAC address validation and formatting, IPv4 formatting.
#include <ustr.h>
#include <ustrconv.h>

#include <array>
#include <cctype>
#include <cstdio>
#include <regex.h>

namespace {

// The two MAC patterns, compiled once for the process on first use (thread-safe through the
// function-local static) and never freed. regexec on a compiled pattern is thread-safe.
class MacPatterns {
  public:
    static const MacPatterns &instance() {
        static const MacPatterns patterns;
        return patterns;
    }
    // Null when the pattern could not be compiled (then nothing matches, as a failed per-call
    // compilation would answer).
    const regex_t *withColons() const { return colonsOk_ ? &colons_ : nullptr; }
    const regex_t *bare() const { return bareOk_ ? &bare_ : nullptr; }

  private:
    MacPatterns()
        : colonsOk_(regcomp(&colons_, "^([A-Fa-f0-9]{2}[:]){5}[A-Fa-f0-9]{2}$",
                            REG_EXTENDED | REG_NEWLINE) == 0),
          bareOk_(regcomp(&bare_, "^([A-Fa-f0-9]{2}){6}$", REG_EXTENDED | REG_NEWLINE) == 0) {}

    regex_t colons_{};
    regex_t bare_{};
    bool colonsOk_;
    bool bareOk_;
};

// Reads six pairs of hexadecimal digits, each optionally preceded by a single ':', and nothing
// after them.
bool readMacPairs(const char *mac, std::array<unsigned, 6> &bytes) {
    const char *p = mac;
    for (unsigned &byte : bytes) {
        if (*p == ':') {
            ++p;
        }
        const int32_t high = uStrHexCharToInteger(static_cast<unsigned char>(p[0]));
        if (high < 0) {
            return false;
        }
        const int32_t low = uStrHexCharToInteger(static_cast<unsigned char>(p[1]));
        if (low < 0) {
            return false;
        }
        byte = static_cast<unsigned>(high * 16 + low);
        p += 2;
    }
    return *p == '\0';
}

} // namespace

extern "C" {

int32_t uStrCheckMacValidation(const char *mac, int32_t withColons) {
    if (mac == nullptr) {
        return 0;
    }
    const MacPatterns &patterns = MacPatterns::instance();
    const regex_t *pattern = withColons != 0 ? patterns.withColons() : patterns.bare();
    return (pattern != nullptr && regexec(pattern, mac, 0, nullptr, 0) == 0) ? 1 : 0;
}

int32_t uStrFormatMacWithColon(const char *mac, char *dst, int32_t size) {
    if (mac == nullptr || dst == nullptr || size < 1) {
        return -1;
    }
    if (uStrCheckMacValidation(mac, 1) == 1) {
        uStrSafeCopy(dst, static_cast<uint32_t>(size), mac); // letter case kept
        return 0;
    }
    std::array<unsigned, 6> b{};
    if (!readMacPairs(mac, b)) {
        return -1;
    }
    std::snprintf(dst, static_cast<std::size_t>(size), "%02x:%02x:%02x:%02x:%02x:%02x", b[0], b[1],
                  b[2], b[3], b[4], b[5]);
    return 0;
}

int32_t uStrHexMacAddrToStr(const uint8_t *mac, int32_t len, int32_t format, char *dst,
                            int32_t size) {
    if (mac == nullptr || dst == nullptr || len != 6 || size < 6) {
        return -1;
    }
    // Intended: the bytes must be codes of hexadecimal digit characters, so any other MAC is
    // refused with -1 and the caller formats it itself.
    for (int32_t i = 0; i < len; ++i) {
        if (std::isxdigit(mac[i]) == 0) {
            return -1;
        }
    }
    const auto room = static_cast<std::size_t>(size);
    switch (format) {
    case 0:
        std::snprintf(dst, room, "%02x:%02x:%02x:%02x:%02x:%02x", mac[0], mac[1], mac[2], mac[3],
                      mac[4], mac[5]);
        break;
    case 1:
        std::snprintf(dst, room, "%02x%02x%02x%02x%02x%02x", mac[0], mac[1], mac[2], mac[3], mac[4],
                      mac[5]);
        break;
    case 2:
        std::snprintf(dst, room, "%02X-%02X-%02X-%02X-%02X-%02X", mac[0], mac[1], mac[2], mac[3],
                      mac[4], mac[5]);
        break;
    default:
        break;
    }
    return 0;
}

int32_t uStrIPv4ToStr(uint32_t addr, char *dst, uint32_t size) {
    if (dst == nullptr) {
        return -1;
    }
    std::snprintf(dst, size, "%d.%d.%d.%d", static_cast<int>(addr & 0xFF),
                  static_cast<int>((addr >> 8) & 0xFF), static_cast<int>((addr >> 16) & 0xFF),
                  static_cast<int>((addr >> 24) & 0xFF));
    return 0;
}

} // extern "C"
