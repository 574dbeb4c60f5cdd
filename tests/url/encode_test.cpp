// SPDX-License-Identifier: MIT
// Percent-encoding per component against the RFC 3986 character sets, in place, decoding, file
// names and address splitting.
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

TEST(UrlEncodeComponent, PercentEscapesAndSizes) {
    // A '%' before two hex digits is kept, except in the scheme and the port.
    const struct {
        int component;
        const char *src;
        int size;
        const char *expected;
    } rows[] = {{5, "%41", 512, "%41"},   {2, "%aF", 512, "%aF"},   {5, "100%", 512, "100%25"},
                {6, "%4", 512, "%254"},   {7, "%G1", 512, "%25G1"}, {1, "%41", 512, "%2541"},
                {4, "%41", 512, "%2541"}, {5, "abc", 3, ""},        {5, "abc", 4, "a"},
                {5, "  ", 4, "%20"},      {5, "ab c", 6, "ab%20"},  {5, "abcdef", 6, "abc"},
                {5, "abc", 1, ""},        {0, "abc", 512, ""},      {8, "abc", 512, ""},
                {5, "abc", 0, ""}}; // stops once size-3 characters are held: an escape never cut
    for (const auto &r : rows) {
        EXPECT_EQ(encodeComponent(r.component, r.src, r.size), r.expected)
            << r.component << " " << r.src << " " << r.size;
    }
    char same[32] = "a b"; // in place: the source is read before the destination is cleared
    uStrUrlEncodeComponent(5, same, same, sizeof(same));
    EXPECT_STREQ("a%20b", same);
}

TEST(UrlEncodeInPlace, ModesClassesAndCuts) {
    const struct {
        const char *src;
        int size, mode;
        const char *expected;
    } rows[] = {{"a b&c", 64, 0, "a%20b&c"},
                {"a b&c", 64, 1, "a%20b%26c"},
                {"!$&'()*,-./:;=?@_~", 64, 0, "!$&'()*,-./:;=?@_%7E"},
                {"!$&'()*,-./:;=?@_", 64, 1, "!$%26'()*,-.%2F%3A%3B%3D%3F%40%5F"},
                {" \"#%+<>[\\]^`{|}\x7f\x80\xff", 64, 0,
                 "%20%22%23%25%2B%3C%3E%5B%5C%5D%5E%60%7B%7C%7D%7F%80%FF"},
                {"\x01\t\x1f", 64, 1, "\x01\t\x1f"}, // control characters deliberately copied
                {"abc", 1, 0, ""},
                {"a  ", 4, 0, "a%2"}, // an escape that does not fit is written as far as it goes
                {"abc d", 4, 0, "abc"},
                {"a b cdef", 8, 0, "a%20b%2"}};
    for (const auto &r : rows) {
        std::vector<char> buf(128, 'Z');
        std::strcpy(buf.data(), r.src);
        EXPECT_EQ(0, uStrUrlEncode(buf.data(), r.size, r.mode)) << r.src;
        EXPECT_STREQ(buf.data(), r.expected) << r.src << " " << r.size;
        EXPECT_EQ(buf[std::max<std::size_t>(r.size, std::strlen(r.src) + 1)], 'Z') << r.src;
    }
    char buf[4] = "abc";
    EXPECT_EQ(-1, uStrUrlEncode(buf, 0, 0));
    EXPECT_EQ(-1, uStrUrlEncode(nullptr, 8, 0));
}

TEST(UrlDecode, EscapesPlusAndShortEscapes) {
    const std::pair<std::string, std::string> rows[] = {
        {"a%20b+c%4", "a b+c%4"}, {"%", "%"},
        {"%G0x", "%G0x"},         {"%ff", "\xff"},
        {"%%2541", "%%41"}, // never read again
        {"%61%00b", "a"},         {std::string(200000, '%'), std::string(200000, '%')}};
    for (auto [text, expected] : rows) {
        uStrUrlDecode(text.data());
        EXPECT_EQ(std::string(text.c_str()), expected);
    }
    uStrUrlDecode(nullptr);
}

TEST(FileName, EscapeSuffixAndParts) {
    char *out = nullptr;
    ASSERT_EQ(0, uStrFileNameEscape("\"%*/:<>?\\| ok\x80", &out));
    EXPECT_EQ(pu::test::take(out), "%22%25%2A%2F%3A%3C%3E%3F%5C%7C ok\x80");
    EXPECT_EQ(-1, uStrFileNameEscape("", &out));

    // The first character of the suffix is never compared; the name must be strictly longer.
    const struct {
        const char *name, *suffix;
        int32_t result;
    } suffixes[] = {{"x.tar.gz", ".tar.gz", 0},
                    {"xytar.gz", ".tar.gz", 0},
                    {"x.tar.gZ", ".tar.gz", -1},
                    {".tar.gz", ".tar.gz", -1},
                    {"", "", -1},
                    {"abc", "Xc", 0}};
    for (const auto &r : suffixes) {
        EXPECT_EQ(uStrFileNameMatchSpecialSuffix(r.name, r.suffix), r.result)
            << r.name << " " << r.suffix;
    }

    // The last dot anywhere, also in a directory name; without one the extension is untouched.
    const std::pair<const char *, const char *> parts[] = {{"pkg.TAR.GZ", "pkg|.TAR.GZ"},
                                                           {".profile", "|.profile"},
                                                           {"dir.d/file", "dir|.d/file"},
                                                           {"a.b.c", "a.b|.c"}};
    for (const auto &[path, expected] : parts) {
        char name[16] = "-", ext[16] = "-";
        uStrParseFileName(path, name, sizeof(name), ext, sizeof(ext));
        EXPECT_EQ(std::string(name) + "|" + ext, expected);
    }
    char name[8], ext[5];
    uStrParseFileName("averyveryverylongname.extension", name, sizeof(name), ext, sizeof(ext));
    EXPECT_EQ(std::string(name) + "|" + ext, "averyve|.ext");
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
        {"10.0.0.256", "-"},
        {"10.0.0.1:-1", "-"},
        {"[]", "-"},
        {"10.0.0.1:80:90", "-"}};
    for (const auto &[text, expected] : rows) {
        char ip[64] = "keep";
        uint16_t port = 7;
        const int32_t result = uStrGetIpAndPort(text, ip, sizeof(ip), &port);
        EXPECT_EQ(result == 0 ? std::string(ip) + "|" + std::to_string(port) : "-", expected);
        EXPECT_TRUE(result == 0 || (std::string(ip) == "keep" && port == 7)) << text;
    }
    char ip[5];
    ASSERT_EQ(0, uStrGetIpAndPort("10.0.0.1:80", ip, sizeof(ip), nullptr));
    EXPECT_STREQ("10.0", ip);
    const std::string longText = "[" + std::string(100, 'f') + "]:1";
    EXPECT_EQ(-1, uStrGetIpAndPort(longText.c_str(), ip, sizeof(ip), nullptr));
}

} // namespace
