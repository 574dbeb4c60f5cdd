// SPDX-License-Identifier: MIT
// Percent-encoding per component against the RFC 3986 character sets, in place, decoding, file
// names and address splitting.
#include "call_table.hpp"
#include "test_support.hpp"

#include <gtest/gtest.h>

#include <cstring>
#include <string>
#include <vector>

namespace {

std::string encodeComponent(int component, const std::string &src, int size = 512) {
    std::vector<char> dst(static_cast<std::size_t>(size) + 1, 'Z');
    uStrUrlEncodeComponent(component, src.c_str(), dst.data(), size);
    EXPECT_EQ(dst.back(), 'Z') << "written beyond size";
    return size > 0 ? dst.data() : "";
}

// In place in a buffer of size whose text is src; nothing may be written beyond it.
std::string encodeInPlace(const char *src, int size, int mode) {
    std::vector<char> buf(128, 'Z');
    std::strcpy(buf.data(), src);
    EXPECT_EQ(0, uStrUrlEncode(buf.data(), size, mode)) << src;
    EXPECT_EQ(buf[std::max<std::size_t>(size, std::strlen(src) + 1)], 'Z') << src;
    return buf.data();
}

TEST(UrlEncodeComponent, EveryByteAgainstTheComponentSets) {
    const std::string alnum = "abcdefghijklmnopqrstuvwxyzABCDEFGHIJKLMNOPQRSTUVWXYZ0123456789";
    const std::string unreserved = alnum + "-._~";
    const std::string pathSet = unreserved + "!$&'()*,;=:@/";
    const std::pair<int, std::string> sets[] = {{1, alnum + "+-."},
                                                {2, unreserved + "!&'()*,;=:"},
                                                {3, unreserved + "!$&'()*,;=:[]"},
                                                {4, "0123456789"},
                                                {5, pathSet},
                                                {6, pathSet + "?"},
                                                {7, pathSet + "?"}};
    for (const auto &[component, allowed] : sets) {
        for (int byte = 1; byte < 256; ++byte) {
            const std::string input(1, static_cast<char>(byte));
            char escape[4];
            std::snprintf(escape, sizeof(escape), "%%%02X", byte);
            const bool kept = byte != '%' && allowed.find(input) != std::string::npos;
            ASSERT_EQ(encodeComponent(component, input), kept ? input : escape)
                << "component " << component << " byte " << byte;
        }
    }
}

TEST(UrlEncode, PercentEscapesSizesAndModes) {
    char same[32] = "a b";
    pu::test::checkRows(
        {// A '%' before two hex digits is kept, except in the scheme and the port.
         PU_ROW(encodeComponent(5, "%41"), "%41"), PU_ROW(encodeComponent(2, "%aF"), "%aF"),
         PU_ROW(encodeComponent(5, "100%"), "100%25"), PU_ROW(encodeComponent(6, "%4"), "%254"),
         PU_ROW(encodeComponent(7, "%G1"), "%25G1"), PU_ROW(encodeComponent(1, "%41"), "%2541"),
         PU_ROW(encodeComponent(4, "%41"), "%2541"),
         // It stops once size-3 characters are held: an escape is never cut.
         PU_ROW(encodeComponent(5, "abc", 3), ""), PU_ROW(encodeComponent(5, "abc", 4), "a"),
         PU_ROW(encodeComponent(5, "  ", 4), "%20"), PU_ROW(encodeComponent(5, "ab c", 6), "ab%20"),
         PU_ROW(encodeComponent(5, "abc", 0), ""),
         PU_ROW(encodeComponent(0, "abc") + encodeComponent(8, "abc"), ""),
         // In place: the source is read before the destination is cleared.
         PU_ROW((uStrUrlEncodeComponent(5, same, same, sizeof(same)), same), "a%20b"),
         PU_ROW(encodeInPlace("a b&c", 64, 0), "a%20b&c"),
         PU_ROW(encodeInPlace("a b&c", 64, 1), "a%20b%26c"),
         PU_ROW(encodeInPlace("!$&'()*,-./:;=?@_~", 64, 0), "!$&'()*,-./:;=?@_%7E"),
         PU_ROW(encodeInPlace("!$&'()*,-./:;=?@_", 64, 1), "!$%26'()*,-.%2F%3A%3B%3D%3F%40%5F"),
         PU_ROW(encodeInPlace(" \"#%+<>[\\]^`{|}\x7f\x80\xff", 64, 0),
                "%20%22%23%25%2B%3C%3E%5B%5C%5D%5E%60%7B%7C%7D%7F%80%FF"),
         PU_ROW(encodeInPlace("\x01\t\x1f", 64, 1), "\x01\t\x1f"), // control bytes copied as is
         PU_ROW(encodeInPlace("abc", 1, 0), ""),
         PU_ROW(encodeInPlace("a  ", 4, 0), "a%2"), // an escape is written as far as it goes
         PU_ROW(encodeInPlace("a b cdef", 8, 0), "a%20b%2"),
         PU_ROW(uStrUrlEncode(same, 0, 0) + uStrUrlEncode(nullptr, 8, 0), -2)});
}

std::string decoded(std::string text) {
    uStrUrlDecode(text.data());
    return text.c_str();
}

TEST(UrlDecode, EscapesPlusAndShortEscapes) {
    const std::string percents(200000, '%');
    uStrUrlDecode(nullptr);
    pu::test::checkRows({
        // '+' stays, a short or broken escape stays, a decoded '%' is never read again.
        PU_ROW(decoded("a%20b+c%4"), "a b+c%4"),
        PU_ROW(decoded("%G0x"), "%G0x"),
        PU_ROW(decoded("%ff"), "\xff"),
        PU_ROW(decoded("%%2541"), "%%41"),
        PU_ROW(decoded("%61%00b"), "a"),
        PU_ROW(decoded(percents) == percents, true),
    });
}

TEST(FileName, EscapeSuffixAndParts) {
    char *out = nullptr;
    char name[16], ext[16];
    pu::test::checkRows(
        {PU_ROW(uStrFileNameEscape("\"%*/:<>?\\| ok\x80", &out), 0),
         PU_ROW(pu::test::take(out), "%22%25%2A%2F%3A%3C%3E%3F%5C%7C ok\x80"),
         PU_ROW(uStrFileNameEscape("", &out), -1),
         // The first character of the suffix is never compared; the name must be longer.
         PU_ROW(uStrFileNameMatchSpecialSuffix("xytar.gz", ".tar.gz"), 0),
         PU_ROW(uStrFileNameMatchSpecialSuffix("x.tar.gZ", ".tar.gz"), -1),
         PU_ROW(uStrFileNameMatchSpecialSuffix(".tar.gz", ".tar.gz"), -1),
         PU_ROW(uStrFileNameMatchSpecialSuffix("abc", "Xc"), 0),
         PU_ROW(uStrFileNameMatchSpecialSuffix("", ""), -1)});
    // The last dot anywhere, also in a directory name; without one the extension is untouched.
    const std::pair<const char *, const char *> parts[] = {
        {".profile", "|.profile"},
        {"dir.d/file", "dir|.d/file"},
        {"a.b.c", "a.b|.c"},
        {"averyverylongname.extensionlonger", "averyverylongna|.extensionlonge"}};
    for (const auto &[path, expected] : parts) {
        std::strcpy(name, "-");
        std::strcpy(ext, "-");
        uStrParseFileName(path, name, sizeof(name), ext, sizeof(ext));
        EXPECT_EQ(std::string(name) + "|" + ext, expected);
    }
}

TEST(IpAndPort, SplitsAddressesAndRefusesMalformedText) {
    const std::pair<const char *, const char *> rows[] = {
        {"[fe80::1]:8080", "fe80::1|8080"},
        {"192.168.1.1:80", "192.168.1.1|80"},
        {"[::1]", "::1|0"},
        {"fe80::1:80", "fe80::1:80|0"},   // a whole IPv6 address has no port
        {"10.0.0.1:65537", "10.0.0.1|1"}, // low 16 bits
        {"192.168.1.1:", "-"},
        {"[::1", "-"},
        {"[10.0.0.1]:80", "-"},
        {"10.0.0.1:-1", "-"},
        {"10.0.0.1:80:90", "-"}};
    for (const auto &[text, expected] : rows) {
        char ip[64] = "keep";
        uint16_t port = 7;
        const int32_t result = uStrGetIpAndPort(text, ip, sizeof(ip), &port);
        EXPECT_EQ(result == 0 ? std::string(ip) + "|" + std::to_string(port) : "-", expected);
        EXPECT_TRUE(result == 0 || (std::string(ip) == "keep" && port == 7)) << text;
    }
    char ip[5];
    const std::string longText = "[" + std::string(100, 'f') + "]:1";
    pu::test::checkRows({PU_ROW(uStrGetIpAndPort("10.0.0.1:80", ip, sizeof(ip), nullptr), 0),
                         PU_ROW(ip, "10.0"),
                         PU_ROW(uStrGetIpAndPort(longText.c_str(), ip, sizeof(ip), nullptr), -1)});
}

} // namespace
