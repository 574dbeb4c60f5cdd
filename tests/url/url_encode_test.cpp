// SPDX-License-Identifier: MIT
// Percent-encoding per component and in place, decoding, file names and address splitting.
#include <platform_utils.h>

#include <gtest/gtest.h>

#include <algorithm>
#include <cstring>
#include <string>
#include <vector>

namespace {

const std::string kAlnum = "abcdefghijklmnopqrstuvwxyzABCDEFGHIJKLMNOPQRSTUVWXYZ0123456789";

std::string encodeComponent(int component, const std::string &src, int size = 512) {
    std::vector<char> dst(static_cast<std::size_t>(size), 'Z');
    uStrUrlEncodeComponent(component, src.c_str(), dst.data(), size);
    return dst.data();
}

std::string encodeInPlace(const std::string &src, int size, int mode) {
    std::vector<char> buf(static_cast<std::size_t>(size) + 8, 'Z');
    std::memcpy(buf.data(), src.c_str(), std::min(src.size() + 1, buf.size()));
    buf[buf.size() - 1] = '\0';
    EXPECT_EQ(0, uStrUrlEncode(buf.data(), size, mode));
    const std::size_t guardFrom = std::max(static_cast<std::size_t>(size), src.size() + 1);
    for (std::size_t i = guardFrom; i < buf.size() - 1; ++i) {
        EXPECT_EQ('Z', buf[i]) << "written beyond size at " << i; // untouched guard bytes
    }
    return buf.data();
}

std::string escapeOf(unsigned char c) {
    char text[4];
    std::snprintf(text, sizeof(text), "%%%02X", c);
    return text;
}

std::string decoded(std::string text) {
    uStrUrlDecode(text.data());
    return text.c_str();
}

} // namespace

TEST(UrlEncodeComponent, EveryByteAgainstTheComponentSets) {
    const std::string unreserved = "-._~";
    const std::string subDelims = "!$&'()*,;=";
    const std::string pathSet = kAlnum + unreserved + subDelims + ":@/";
    const std::vector<std::pair<int, std::string>> sets = {
        {1, kAlnum + "+-."},
        {2, kAlnum + unreserved + "!&'()*,;=:"},
        {3, kAlnum + unreserved + subDelims + ":[]"},
        {4, "0123456789"},
        {5, pathSet},
        {6, pathSet + "?"},
        {7, pathSet + "?"},
    };
    for (const auto &[component, allowed] : sets) {
        for (int byte = 1; byte < 256; ++byte) {
            const auto c = static_cast<unsigned char>(byte);
            if (c == '%') {
                continue; // covered below
            }
            const std::string input(1, static_cast<char>(c));
            const std::string expected =
                allowed.find(static_cast<char>(c)) != std::string::npos ? input : escapeOf(c);
            EXPECT_EQ(expected, encodeComponent(component, input))
                << "component " << component << " byte " << byte;
        }
    }
}

TEST(UrlEncodeComponent, PercentKeptOnlyBeforeTwoHexDigitsOutsideSchemeAndPort) {
    EXPECT_EQ("%41", encodeComponent(5, "%41"));
    EXPECT_EQ("%aF", encodeComponent(2, "%aF"));
    EXPECT_EQ("100%25", encodeComponent(5, "100%"));
    EXPECT_EQ("%254", encodeComponent(6, "%4"));
    EXPECT_EQ("%25G1", encodeComponent(7, "%G1"));
    EXPECT_EQ("%2541", encodeComponent(1, "%41"));
    EXPECT_EQ("%2541", encodeComponent(4, "%41"));
    EXPECT_EQ("a%20b/c%3Fd", encodeComponent(5, "a b/c?d"));
    EXPECT_EQ("a%20b/c?d", encodeComponent(6, "a b/c?d"));
    EXPECT_EQ("a%2Bb%24", encodeComponent(2, "a+b$"));
}

TEST(UrlEncodeComponent, StopsBeforeAnEscapeCouldBeCut) {
    // Output stops once size-3 characters are held, so an escape always fits whole.
    EXPECT_EQ("", encodeComponent(5, "abc", 3));
    EXPECT_EQ("a", encodeComponent(5, "abc", 4));
    EXPECT_EQ("%20", encodeComponent(5, "  ", 4));
    EXPECT_EQ("ab%20", encodeComponent(5, "ab c", 6));
    EXPECT_EQ("abc", encodeComponent(5, "abcdef", 6));
    EXPECT_EQ("", encodeComponent(5, "abc", 1));
    EXPECT_EQ("", encodeComponent(0, "abc"));
    EXPECT_EQ("", encodeComponent(8, "abc"));
    char untouched[4] = "xyz";
    uStrUrlEncodeComponent(5, nullptr, untouched, 4);
    uStrUrlEncodeComponent(5, "a", untouched, 0);
    EXPECT_STREQ("xyz", untouched);
    // In place: the source is read before the destination is cleared.
    char same[32] = "a b";
    uStrUrlEncodeComponent(5, same, same, sizeof(same));
    EXPECT_STREQ("a%20b", same);
}

TEST(UrlEncodeInPlace, ModesAndClasses) {
    EXPECT_EQ("a%20b&c", encodeInPlace("a b&c", 64, 0));
    EXPECT_EQ("a%20b%26c", encodeInPlace("a b&c", 64, 1));
    EXPECT_EQ("%7E", encodeInPlace("~", 64, 0));
    EXPECT_EQ("%7E", encodeInPlace("~", 64, 1));
    EXPECT_EQ("!$&'()*,-./:;=?@_", encodeInPlace("!$&'()*,-./:;=?@_", 64, 0));
    EXPECT_EQ("!$%26'()*,-.%2F%3A%3B%3D%3F%40%5F", encodeInPlace("!$&'()*,-./:;=?@_", 64, 1));
    EXPECT_EQ("%20%22%23%25%2B%3C%3E%5B%5C%5D%5E%60%7B%7C%7D%7E%7F%80%FF",
              encodeInPlace(" \"#%+<>[\\]^`{|}~\x7f\x80\xff", 128, 0));
    // Control characters are deliberately copied.
    EXPECT_EQ("\x01\t\x1f", encodeInPlace("\x01\t\x1f", 64, 1));
}

TEST(UrlEncodeInPlace, CutOffAtSmallSizes) {
    EXPECT_EQ("", encodeInPlace("abc", 1, 0));
    EXPECT_EQ("", encodeInPlace("", 8, 0));
    EXPECT_EQ("ab", encodeInPlace("abc", 3, 0));
    // An escape that does not fit whole is written as far as it goes.
    EXPECT_EQ("a%2", encodeInPlace("a  ", 4, 0));
    EXPECT_EQ("ab%", encodeInPlace("ab ", 4, 0));
    EXPECT_EQ("%20", encodeInPlace("  ", 4, 0));
    EXPECT_EQ("%2", encodeInPlace("  ", 3, 0));
    EXPECT_EQ("abc", encodeInPlace("abc d", 4, 0));
    EXPECT_EQ("a%20b%2", encodeInPlace("a b cdef", 8, 0)); // the rest is dropped
    EXPECT_EQ(-1, uStrUrlEncode(nullptr, 8, 0));
    char buf[4] = "abc";
    EXPECT_EQ(-1, uStrUrlEncode(buf, 0, 0));
    EXPECT_STREQ("abc", buf);
}

TEST(UrlDecode, EscapesPlusAndShortEscapes) {
    EXPECT_EQ("a b+c%4", decoded("a%20b+c%4"));
    EXPECT_EQ("%", decoded("%"));
    EXPECT_EQ("%G0x", decoded("%G0x"));
    EXPECT_EQ("%4g", decoded("%4g"));
    EXPECT_EQ("AB", decoded("%41%42"));
    EXPECT_EQ("\xff", decoded("%ff"));
    EXPECT_EQ("%%41", decoded("%%2541")); // a decoded '%' is not read again
    EXPECT_EQ("%41", decoded("%2541"));
    EXPECT_EQ("a", decoded("%61%00b"));
    EXPECT_EQ("", decoded(""));
    uStrUrlDecode(nullptr);
}

TEST(UrlDecode, LongInputWithManyLoneEscapes) {
    std::string text(200000, '%');
    EXPECT_EQ(text, decoded(text));
}

TEST(FileName, EscapeTheTenCharacters) {
    char *out = nullptr;
    ASSERT_EQ(0, uStrFileNameEscape("a:b|c", &out));
    EXPECT_STREQ("a%3Ab%7Cc", out);
    uFree(out);
    ASSERT_EQ(0, uStrFileNameEscape("\"%*/:<>?\\| ok\x80", &out));
    EXPECT_STREQ("%22%25%2A%2F%3A%3C%3E%3F%5C%7C ok\x80", out);
    uFree(out);
    EXPECT_EQ(-1, uStrFileNameEscape("", &out));
    EXPECT_EQ(-1, uStrFileNameEscape(nullptr, &out));
    EXPECT_EQ(-1, uStrFileNameEscape("a", nullptr));
}

TEST(FileName, SpecialSuffixNeverComparesItsFirstCharacter) {
    EXPECT_EQ(0, uStrFileNameMatchSpecialSuffix("x.tar.gz", ".tar.gz"));
    EXPECT_EQ(0, uStrFileNameMatchSpecialSuffix("xytar.gz", ".tar.gz"));
    EXPECT_EQ(-1, uStrFileNameMatchSpecialSuffix("x.tar.gZ", ".tar.gz"));
    EXPECT_EQ(-1, uStrFileNameMatchSpecialSuffix("x.taR.gz", ".tar.gz"));
    EXPECT_EQ(-1, uStrFileNameMatchSpecialSuffix(".tar.gz", ".tar.gz")); // not strictly longer
    EXPECT_EQ(0, uStrFileNameMatchSpecialSuffix("ab", "z"));
    EXPECT_EQ(0, uStrFileNameMatchSpecialSuffix("ab", ""));
    EXPECT_EQ(-1, uStrFileNameMatchSpecialSuffix("", ""));
    EXPECT_EQ(0, uStrFileNameMatchSpecialSuffix("abc", "Xc"));
    EXPECT_EQ(-1, uStrFileNameMatchSpecialSuffix(nullptr, "a"));
    EXPECT_EQ(-1, uStrFileNameMatchSpecialSuffix("abc", nullptr));
}

TEST(FileName, ParseNameAndExtension) {
    char name[16];
    char ext[16];
    auto parse = [&](const char *path) {
        std::strcpy(name, "-");
        std::strcpy(ext, "-");
        uStrParseFileName(path, name, sizeof(name), ext, sizeof(ext));
    };
    parse("pkg.TAR.GZ");
    EXPECT_STREQ("pkg", name);
    EXPECT_STREQ(".TAR.GZ", ext);
    parse(".profile");
    EXPECT_STREQ("", name);
    EXPECT_STREQ(".profile", ext);
    parse("dir.d/file");
    EXPECT_STREQ("dir", name); // the last dot anywhere, also in a directory name
    EXPECT_STREQ(".d/file", ext);
    parse("README");
    EXPECT_STREQ("README", name);
    EXPECT_STREQ("-", ext); // untouched without an extension
    parse("a.b.c");
    EXPECT_STREQ("a.b", name);
    EXPECT_STREQ(".c", ext);
    uStrParseFileName("averyveryverylongname.extension", name, 8, ext, 5);
    EXPECT_STREQ("averyve", name);
    EXPECT_STREQ(".ext", ext);
    uStrParseFileName("x.y", nullptr, 0, ext, sizeof(ext));
    EXPECT_STREQ(".y", ext);
    uStrParseFileName(nullptr, name, sizeof(name), ext, sizeof(ext));
}

TEST(IpAndPort, SplitsAddressesAndPorts) {
    char ip[64];
    uint16_t port = 1;
    ASSERT_EQ(0, uStrGetIpAndPort("[fe80::1]:8080", ip, sizeof(ip), &port));
    EXPECT_STREQ("fe80::1", ip);
    EXPECT_EQ(8080, port);
    ASSERT_EQ(0, uStrGetIpAndPort("192.168.1.1:80", ip, sizeof(ip), &port));
    EXPECT_STREQ("192.168.1.1", ip);
    EXPECT_EQ(80, port);
    ASSERT_EQ(0, uStrGetIpAndPort("[::1]", ip, sizeof(ip), &port));
    EXPECT_STREQ("::1", ip);
    EXPECT_EQ(0, port);
    ASSERT_EQ(0, uStrGetIpAndPort("fe80::1:80", ip, sizeof(ip), &port));
    EXPECT_STREQ("fe80::1:80", ip); // a whole IPv6 address has no port
    EXPECT_EQ(0, port);
    ASSERT_EQ(0, uStrGetIpAndPort("10.0.0.1", ip, sizeof(ip), &port));
    EXPECT_EQ(0, port);
    ASSERT_EQ(0, uStrGetIpAndPort("10.0.0.1:65537", nullptr, 0, &port));
    EXPECT_EQ(1, port); // low 16 bits
    ASSERT_EQ(0, uStrGetIpAndPort("10.0.0.1:80", ip, 5, nullptr));
    EXPECT_STREQ("10.0", ip);
}

TEST(IpAndPort, RefusesMalformedText) {
    char ip[64] = "keep";
    uint16_t port = 7;
    for (const char *bad :
         {"192.168.1.1:", "[::1", "::1]", "]::1[", "[10.0.0.1]:80", "[::1]:8x", "10.0.0.256",
          "host:80", "10.0.0.1:-1", "", ":80", "[]", "10.0.0.1:80:90"}) {
        EXPECT_EQ(-1, uStrGetIpAndPort(bad, ip, sizeof(ip), &port)) << bad;
    }
    EXPECT_STREQ("keep", ip);
    EXPECT_EQ(7, port);
    EXPECT_EQ(-1, uStrGetIpAndPort(nullptr, ip, sizeof(ip), &port));
    const std::string longText = "[" + std::string(100, 'f') + "]:1";
    EXPECT_EQ(-1, uStrGetIpAndPort(longText.c_str(), ip, sizeof(ip), &port));
}
