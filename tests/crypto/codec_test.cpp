// SPDX-License-Identifier: MIT
// Base64 (strict and lenient), base64url, marked passwords, hexadecimal text, CRC-32 and the
// digest wrappers, against published vectors and independent computations.
#include <ub64.h>
#include <udigest.h>

#include "crypto_test_util.hpp"

#include <openssl/evp.h>
#include <openssl/hmac.h>

#include <cstring>
#include <string>
#include <thread>
#include <vector>

#include <gtest/gtest.h>

namespace {

using pu::test::asBytes;
using pu::test::Bytes;
using pu::test::fromHex;
using pu::test::pattern;
using pu::test::toHex;

std::string encode(const Bytes &data) {
    std::string text(data.size() / 3 * 4 + 5, '\0');
    const int32_t n = uB64_ntop(data.data(), static_cast<uint32_t>(data.size()), text.data(),
                                static_cast<uint32_t>(text.size()));
    return n < 0 ? "<fail>" : text.substr(0, static_cast<std::size_t>(n));
}

// Decodes into a roomy buffer; the result's size is the count, or "-1" as a marker.
struct Decoded {
    int32_t count;
    Bytes bytes;
};
Decoded decode(const char *text, bool strict = true, uint32_t size = 256) {
    Bytes out(size);
    const int32_t n = uB64_pton_strictly(text, out.data(), size, strict ? 1 : 0);
    out.resize(static_cast<std::size_t>(n < 0 ? 0 : n));
    return {n, out};
}

// ---- Base64 ---------------------------------------------------------------------------

TEST(Base64, Rfc4648VectorsBothWays) {
    const char *vectors[][2] = {{"", ""},
                                {"f", "Zg=="},
                                {"fo", "Zm8="},
                                {"foo", "Zm9v"},
                                {"foob", "Zm9vYg=="},
                                {"fooba", "Zm9vYmE="},
                                {"foobar", "Zm9vYmFy"}};
    for (const auto &v : vectors) {
        EXPECT_EQ(encode(asBytes(v[0])), v[1]);
        const Decoded d = decode(v[1]);
        EXPECT_EQ(d.count, static_cast<int32_t>(std::strlen(v[0]))) << v[1];
        EXPECT_EQ(d.bytes, asBytes(v[0]));
    }
    EXPECT_EQ(encode(Bytes{0xFB, 0xFF, 0xBF}), "+/+/");
}

TEST(Base64, EncoderBufferBoundaries) {
    const Bytes three = asBytes("abc");
    char text[8];
    EXPECT_EQ(uB64_ntop(three.data(), 3, text, 4), -1); // no room for the terminator
    EXPECT_EQ(uB64_ntop(three.data(), 3, text, 5), 4);
    EXPECT_STREQ(text, "YWJj");
    EXPECT_EQ(uB64_ntop(three.data(), 1, text, 4), -1);
    EXPECT_EQ(uB64_ntop(three.data(), 1, text, 5), 4);
    EXPECT_EQ(uB64_ntop(three.data(), 0, text, 1), 0);
    EXPECT_STREQ(text, "");
    EXPECT_EQ(uB64_ntop(three.data(), 0, text, 0), -1);
    EXPECT_EQ(uB64_ntop(nullptr, 3, text, 8), -1);
    EXPECT_EQ(uB64_ntop(three.data(), 3, nullptr, 8), -1);
}

TEST(Base64, StrictAndLenientDecoding) {
    struct Case {
        const char *text;
        int32_t strict;
        int32_t lenient;
    };
    const Case cases[] = {
        {" Zm9v\r\n Ym Fy\t", 6, 6}, // blanks anywhere
        {"Zm9vYg", -1, 4},           // ends after two characters of a group
        {"Zm9vY", -1, 3},            // ends after one
        {"Zm9vYg=", -1, 4},          // one "=" after two characters
        {"Zm9vYg= =", 4, 4},         // blanks between the two "="
        {"Zm9vYg==  \n", 4, 4},      // blanks after the padding
        {"Zm9vYg==x", -1, 4},        // anything else after the padding
        {"Zm9vYmE=Zg==", -1, 5},     // a second group after padding
        {"Zm9v=", -1, 3},            // "=" at the start of a group
        {"Zm9vY===", -1, 3},         // "=" after one character
        {"Zh==", -1, 1},             // leftover bits set before the padding
        {"Zm9=", -1, 2},
        {"Zm9v*", -1, -1}, // outside the alphabet, in both modes
        {"Zm9-", -1, -1},
        {"", 0, 0},
    };
    for (const Case &c : cases) {
        EXPECT_EQ(decode(c.text, true).count, c.strict) << '"' << c.text << '"';
        EXPECT_EQ(decode(c.text, false).count, c.lenient) << '"' << c.text << '"';
    }
    EXPECT_EQ(decode("Zm9vYmE=Zg==", false).bytes, asBytes("fooba"));
    EXPECT_EQ(uB64_pton_strictly(nullptr, nullptr, 0, 1), -1);
    // uB64_pton is the strict mode.
    uint8_t out[8];
    EXPECT_EQ(uB64_pton("Zg=", out, sizeof out), -1);
}

TEST(Base64, DecoderRoomAndCountingWithoutOutput) {
    uint8_t out[8];
    // A group ending in one or two bytes needs one more byte of room than it yields.
    EXPECT_EQ(uB64_pton("Zg==", out, 1), -1);
    EXPECT_EQ(uB64_pton("Zg==", out, 2), 1);
    EXPECT_EQ(uB64_pton("Zm8=", out, 2), -1);
    EXPECT_EQ(uB64_pton("Zm8=", out, 3), 2);
    // Whole groups need exactly their bytes.
    EXPECT_EQ(uB64_pton("Zm9v", out, 2), -1);
    EXPECT_EQ(uB64_pton("Zm9v", out, 3), 3);
    EXPECT_EQ(uB64_pton("Zm9vYmFy", out, 5), -1);
    EXPECT_EQ(uB64_pton("Zm9vYmFy", out, 6), 6);
    EXPECT_EQ(uB64_pton("Zm9v", out, 0), -1);
    // No output: just the count, no room test and no leftover-bit test.
    EXPECT_EQ(uB64_pton("Zm9vYmFy", nullptr, 0), 6);
    EXPECT_EQ(uB64_pton("Zh==", nullptr, 0), 1);
    EXPECT_EQ(uB64_pton("Zh=", nullptr, 0), -1);
}

TEST(Base64, RandomRoundTripsAgreeWithOpenSsl) {
    for (uint32_t seed = 0; seed < 300; ++seed) {
        const Bytes data = pattern(seed % 97 + (seed > 250 ? 5000 : 0), seed);
        const std::string text = encode(data);
        std::string reference(text.size() + 4, '\0');
        const int n = EVP_EncodeBlock(reinterpret_cast<unsigned char *>(reference.data()),
                                      data.data(), static_cast<int>(data.size()));
        ASSERT_EQ(text, reference.substr(0, static_cast<std::size_t>(n)));
        // Exact room: whole bytes, plus one when the last group is partial.
        const uint32_t room = static_cast<uint32_t>(data.size() + (data.size() % 3 != 0));
        Bytes back(room);
        ASSERT_EQ(uB64_pton(text.c_str(), back.data(), room), static_cast<int32_t>(data.size()));
        back.resize(data.size());
        ASSERT_EQ(back, data);
        // Line breaks every 76 characters change nothing.
        std::string wrapped;
        for (std::size_t i = 0; i < text.size(); i += 76) {
            wrapped += text.substr(i, 76) + "\r\n";
        }
        ASSERT_EQ(decode(wrapped.c_str(), true, 6000).bytes, data);
    }
}

TEST(Base64Url, EncodingDropsPaddingAndSwapsCharacters) {
    char text[32];
    const Bytes two = {0xFB, 0xFF};
    EXPECT_EQ(uB64_base64url(two.data(), 2, text, sizeof text), 3);
    EXPECT_STREQ(text, "-_8");
    const Bytes sixteen = pattern(16, 7);
    EXPECT_EQ(uB64_base64url(sixteen.data(), 16, text, sizeof text), 22);
    // The padded text and its terminator must fit, although the padding is cut.
    EXPECT_EQ(uB64_base64url(sixteen.data(), 16, text, 24), -1);
    EXPECT_EQ(uB64_base64url(sixteen.data(), 16, text, 25), 22);
    EXPECT_EQ(uB64_base64url(sixteen.data(), 0, text, sizeof text), -1);
    EXPECT_EQ(uB64_base64url(sixteen.data(), 16, text, 0), -1);
    EXPECT_EQ(uB64_base64url(nullptr, 16, text, sizeof text), -1);

    uint8_t out[32];
    EXPECT_EQ(uB64_debase64url(text, out, sizeof out), 16);
    EXPECT_EQ(Bytes(out, out + 16), sixteen);
    // Three characters get no padding back, so the two bytes cannot be read again.
    EXPECT_EQ(uB64_debase64url("-_8", out, sizeof out), -1);
    EXPECT_EQ(uB64_debase64url("-_-_", out, sizeof out), -1);
    EXPECT_EQ(uB64_debase64url("-_-_-_-_-_-_", out, sizeof out), 9);
    EXPECT_EQ(toHex(out, 3), "fbffbf");
}

TEST(Base64Url, DecodingPadsToAMultipleOfThree) {
    uint8_t out[64];
    EXPECT_EQ(uB64_debase64url("", out, sizeof out), 0);
    EXPECT_EQ(uB64_debase64url(nullptr, out, sizeof out), -1);
    EXPECT_EQ(uB64_debase64url("QUJD", nullptr, 8), -1);
    EXPECT_EQ(uB64_debase64url("QUJD", out, 0), -1);
    // Four characters (three bytes) get two "=" and so fail; three characters get none.
    EXPECT_EQ(uB64_debase64url("QUJD", out, sizeof out), -1);
    EXPECT_EQ(uB64_debase64url("QUJ", out, sizeof out), -1);
    // Lengths of 0, 10 or 11 modulo 12 come out right.
    for (std::size_t bytes : {3u, 4u, 5u, 6u, 7u, 8u, 16u, 25u}) {
        const Bytes data = pattern(bytes, 9);
        char text[80];
        const int32_t n =
            uB64_base64url(data.data(), static_cast<uint32_t>(bytes), text, sizeof text);
        const bool readable = n % 12 == 0 || n % 12 == 10 || n % 12 == 11;
        EXPECT_EQ(uB64_debase64url(text, out, sizeof out),
                  readable ? static_cast<int32_t>(bytes) : -1)
            << bytes << " bytes, " << n << " characters";
    }
}

TEST(PasswordDecode, MarkedBase64OrClearText) {
    char dst[16];
    std::memset(dst, 'x', sizeof dst);
    EXPECT_EQ(uStrPwdBase64Decode("~Rk%58*]cGFzc3dvcmQ=", dst, sizeof dst), 8);
    EXPECT_STREQ(dst, "password");
    // Clear text, cut to the buffer.
    EXPECT_EQ(uStrPwdBase64Decode("plain secret", dst, sizeof dst), 12);
    EXPECT_STREQ(dst, "plain secret");
    EXPECT_EQ(uStrPwdBase64Decode("a much longer clear-text password", dst, 8), 7);
    EXPECT_STREQ(dst, "a much ");
    // A marker alone is not base64 of anything, but the start of a marker is clear text.
    EXPECT_EQ(uStrPwdBase64Decode("~Rk%58*]", dst, sizeof dst), 0);
    EXPECT_EQ(uStrPwdBase64Decode("~Rk%58*", dst, sizeof dst), 7);
    EXPECT_EQ(uStrPwdBase64Decode("~Rk%58*]not base64!", dst, sizeof dst), -1);
    EXPECT_EQ(uStrPwdBase64Decode(nullptr, dst, sizeof dst), -1);
    EXPECT_EQ(uStrPwdBase64Decode("x", nullptr, 4), -1);
}

// ---- Hexadecimal text -----------------------------------------------------------------

TEST(HexText, DigestToStrWantsFortyBytes) {
    const Bytes digest = fromHex("900150983cd24fb0d6963f7d28e17f72");
    char text[40];
    std::memset(text, '#', sizeof text);
    EXPECT_EQ(uDigestToStr(digest.data(), text, 39), 0);
    EXPECT_EQ(text[0], '#');
    EXPECT_EQ(uDigestToStr(digest.data(), text, 40), 1);
    EXPECT_STREQ(text, "900150983cd24fb0d6963f7d28e17f72");
    EXPECT_EQ(uDigestToStr(nullptr, text, 40), 0);
    EXPECT_EQ(uDigestToStr(digest.data(), nullptr, 40), 0);
}

TEST(HexText, HexToStrNeedsRoomForTheTerminator) {
    const Bytes bytes = {0x00, 0xAB, 0x7F};
    char text[8];
    EXPECT_EQ(uHexToStr(bytes.data(), 3, text, 6), 0);
    EXPECT_EQ(uHexToStr(bytes.data(), 3, text, 7), 1);
    EXPECT_STREQ(text, "00ab7f");
    EXPECT_EQ(uHexToStr(bytes.data(), 0, text, 1), 1);
    EXPECT_STREQ(text, "");
    EXPECT_EQ(uHexToStr(bytes.data(), -3, text, 1), 1);
    EXPECT_EQ(uHexToStr(bytes.data(), -3, text, 0), 0);
    EXPECT_EQ(uHexToStr(nullptr, 1, text, 8), 0);
}

TEST(HexText, StrToHexReadsPairsThroughTheNumberParser) {
    uint8_t out[8];
    EXPECT_EQ(uStrToHex("0aFF10", out, sizeof out), 3);
    EXPECT_EQ(toHex(out, 3), "0aff10");
    EXPECT_EQ(uStrToHex("abc", out, sizeof out), 2); // a final odd character stands alone
    EXPECT_EQ(toHex(out, 2), "ab0c");
    EXPECT_EQ(uStrToHex("12zz34", out, sizeof out), 1); // the first bad pair ends it
    EXPECT_EQ(uStrToHex("112233", out, 2), 2);          // output full
    // Each pair follows the number parser's rules: blanks around are stripped, a sign is read.
    EXPECT_EQ(uStrToHex(" 1-1", out, sizeof out), 2);
    EXPECT_EQ(toHex(out, 2), "01ff");
    EXPECT_EQ(uStrToHex("", out, sizeof out), 0);
    EXPECT_EQ(uStrToHex("12", out, 0), 0);
    EXPECT_EQ(uStrToHex(nullptr, out, 4), 0);
    EXPECT_EQ(uStrToHex("12", nullptr, 4), 0);
}

// ---- CRC-32 ---------------------------------------------------------------------------

uint32_t bitwiseCrc(uint32_t crc, const Bytes &data) {
    crc = ~crc;
    for (uint8_t b : data) {
        crc ^= b;
        for (int i = 0; i < 8; ++i) {
            crc = (crc & 1) != 0 ? (crc >> 1) ^ 0xEDB88320u : crc >> 1;
        }
    }
    return ~crc;
}

TEST(Crc32, CheckValueNullDataAndContinuation) {
    const Bytes check = asBytes("123456789");
    EXPECT_EQ(crc32(0, check.data(), 9), 0xCBF43926u);
    EXPECT_EQ(crc32(0x12345678, nullptr, 10), 0u);
    EXPECT_EQ(crc32(0x12345678, check.data(), 0), 0x12345678u);
    EXPECT_EQ(crc32(crc32(0, check.data(), 4), check.data() + 4, 5), 0xCBF43926u);
}

TEST(Crc32, AgreesWithABitwiseComputationAtEveryLengthAndAlignment) {
    // Covers the byte loop, the eight-byte steps and the folded path with all its tails.
    const Bytes data = pattern(70000, 77);
    for (std::size_t length = 0; length < 700; length += (length < 300 ? 1 : 13)) {
        for (std::size_t offset : {std::size_t{0}, std::size_t{1}, std::size_t{7}}) {
            const Bytes piece(data.begin() + static_cast<std::ptrdiff_t>(offset),
                              data.begin() + static_cast<std::ptrdiff_t>(offset + length));
            ASSERT_EQ(crc32(0xA5A5A5A5, data.data() + offset, static_cast<uint32_t>(length)),
                      bitwiseCrc(0xA5A5A5A5, piece))
                << length << " at " << offset;
        }
    }
    EXPECT_EQ(crc32(0, data.data(), 70000), bitwiseCrc(0, data));
    uint32_t running = 0;
    for (std::size_t at = 0; at < data.size(); at += 4096) {
        const std::size_t n = std::min<std::size_t>(4096, data.size() - at);
        running = crc32(running, data.data() + at, static_cast<uint32_t>(n));
    }
    EXPECT_EQ(running, bitwiseCrc(0, data));
}

// ---- Digests --------------------------------------------------------------------------

TEST(Digest, Sha256AndMd5KnownAnswers) {
    const Bytes abc = asBytes("abc");
    uint8_t out[40];
    EXPECT_EQ(uDigestSha256it(abc.data(), 3, out, 32), 0);
    EXPECT_EQ(toHex(out, 32), "ba7816bf8f01cfea414140de5dae2223b00361a396177a9cb410ff61f20015ad");
    EXPECT_EQ(uDigestSha256it(abc.data(), 0, out, 32), 0);
    EXPECT_EQ(toHex(out, 32), "e3b0c44298fc1c149afbf4c8996fb92427ae41e4649b934ca495991b7852b855");
    EXPECT_EQ(uDigestSha256it(abc.data(), 3, out, 31), -1);
    EXPECT_EQ(uDigestSha256it(nullptr, 3, out, 32), -1);
    EXPECT_EQ(uDigestSha256it(abc.data(), 3, nullptr, 32), -1);

    uDigestMD5(abc.data(), 3, out, 16);
    EXPECT_EQ(toHex(out, 16), "900150983cd24fb0d6963f7d28e17f72");
    // Refusals leave the output alone, and so does an empty input.
    std::memset(out, 0xEE, sizeof out);
    uDigestMD5(abc.data(), 3, out, 15);
    uDigestMD5(abc.data(), 0, out, 16);
    uDigestMD5(nullptr, 3, out, 16);
    EXPECT_EQ(toHex(out, 16), std::string(32, 'e'));
}

TEST(Digest, CalculateHexNeedsRoomForTheTerminatorAndHashesNothingForEmptyInput) {
    const Bytes abc = asBytes("abc");
    char text[34];
    std::memset(text, '#', sizeof text);
    // 32 bytes hold the digits but not the terminator.
    EXPECT_EQ(uDigestCalculateHex(abc.data(), 3, text, 32), -1);
    EXPECT_EQ(text[0], '#');
    EXPECT_EQ(uDigestCalculateHex(abc.data(), 3, text, 33), 0);
    EXPECT_STREQ(text, "900150983cd24fb0d6963f7d28e17f72");
    EXPECT_EQ(text[33], '#');
    EXPECT_EQ(uDigestCalculateHex(abc.data(), 0, text, 33), 0);
    EXPECT_STREQ(text, std::string(32, '0').c_str());
    EXPECT_EQ(uDigestCalculateHex(nullptr, 3, text, 33), -1);
}

TEST(Digest, HmacSha256Rfc4231WithLongKeysAndTheKeyMinimum) {
    const Bytes key(131, 0xAA);
    const struct {
        const char *data;
        const char *mac;
    } cases[] = {
        {"Test Using Larger Than Block-Size Key - Hash Key First",
         "60e431591ee0b67f0d8a26aacbf5b77f8e0bc6213728c5140546040f0ee37f54"},
        {"This is a test using a larger than block-size key and a larger than block-size data. "
         "The key needs to be hashed before being used by the HMAC algorithm.",
         "9b09ffa71b942fcb27635fbcd5b0e944bfdc63644f0713938a7f51535c3a35e2"},
    };
    for (const auto &c : cases) {
        const Bytes data = asBytes(c.data);
        uint8_t out[40];
        uint32_t length = sizeof out;
        EXPECT_EQ(uDigestHmacSha256it(data.data(), static_cast<uint32_t>(data.size()), key.data(),
                                      131, out, &length),
                  0);
        EXPECT_EQ(length, 32u);
        EXPECT_EQ(toHex(out, 32), c.mac);
    }

    const Bytes data = asBytes("message");
    uint8_t out[32];
    uint32_t length = 32;
    EXPECT_EQ(uDigestHmacSha256it(data.data(), 7, key.data(), 31, out, &length), -1);
    EXPECT_EQ(uDigestHmacSha256it(data.data(), 7, key.data(), 32, out, &length), 0);
    // Against OpenSSL with the same 32-byte key.
    unsigned char reference[32];
    unsigned int referenceLength = 0;
    HMAC(EVP_sha256(), key.data(), 32, data.data(), 7, reference, &referenceLength);
    EXPECT_EQ(toHex(out, 32), toHex(reference, 32));
    length = 31;
    EXPECT_EQ(uDigestHmacSha256it(data.data(), 7, key.data(), 32, out, &length), -1);
    length = 32;
    EXPECT_EQ(uDigestHmacSha256it(nullptr, 7, key.data(), 32, out, &length), -1);
    EXPECT_EQ(uDigestHmacSha256it(data.data(), 7, nullptr, 32, out, &length), -1);
    EXPECT_EQ(uDigestHmacSha256it(data.data(), 7, key.data(), 32, nullptr, &length), -1);
    EXPECT_EQ(uDigestHmacSha256it(data.data(), 7, key.data(), 32, out, nullptr), -1);
}

TEST(Digest, ThreadsKeepTheirOwnContexts) {
    const Bytes key(32, 0x42);
    const Bytes data = pattern(3000, 8);
    uint8_t sha[32], md5[16], mac[32];
    uint32_t macLength = sizeof mac;
    uDigestSha256it(data.data(), 3000, sha, sizeof sha);
    uDigestMD5(data.data(), 3000, md5, sizeof md5);
    uDigestHmacSha256it(data.data(), 3000, key.data(), 32, mac, &macLength);
    std::vector<std::thread> threads;
    std::vector<int> mismatches(4, 0);
    for (std::size_t t = 0; t < 4; ++t) {
        threads.emplace_back([&, t] {
            for (int round = 0; round < 200; ++round) {
                uint8_t s[32], m[16], h[32];
                uint32_t length = sizeof h;
                const uint32_t n = 3000 - static_cast<uint32_t>(t % 2); // two inputs interleave
                uDigestSha256it(data.data(), n, s, sizeof s);
                uDigestMD5(data.data(), n, m, sizeof m);
                uDigestHmacSha256it(data.data(), n, key.data(), 32, h, &length);
                const bool same = std::memcmp(s, sha, 32) == 0 && std::memcmp(m, md5, 16) == 0 &&
                                  std::memcmp(h, mac, 32) == 0;
                if (same != (n == 3000)) {
                    ++mismatches[t];
                }
            }
        });
    }
    for (auto &thread : threads) {
        thread.join();
    }
    EXPECT_EQ(mismatches, std::vector<int>(4, 0));
}

} // namespace
