// SPDX-License-Identifier: MIT
// Base64 (strict, lenient, url), marked passwords, hexadecimal text, CRC-32, digests and UUIDs,
// against published vectors and independent computations. Round trips and the agreement of
// the decoding modes on arbitrary text are the b64_* and hex_decode fuzz targets' to check.
#include <ub64.h>
#include <udigest.h>
#include <uuuid.h>

#include "crypto_test_util.hpp"

#include <cstring>

namespace {

using namespace pu::test;

// Decodes text; the result is the count, then the bytes as hexadecimal.
std::string decode(const char *text, int strict = 1, uint32_t room = 64) {
    uint8_t out[64];
    const int32_t n = uB64_pton_strictly(text, out, room, strict);
    return std::to_string(n) + ":" + (n > 0 ? toHex(out, static_cast<std::size_t>(n)) : "");
}

TEST(Base64, Rfc4648VectorsAndOpenSslOverManyLengths) {
    for (const auto &[plain, text] : {std::pair{"", ""},
                                      {"f", "Zg=="},
                                      {"fo", "Zm8="},
                                      {"foob", "Zm9vYg=="},
                                      {"foobar", "Zm9vYmFy"},
                                      {"\xfb\xff\xbf", "+/+/"}}) {
        EXPECT_EQ(decode(text), std::to_string(std::strlen(plain)) + ":" + toHex(asBytes(plain)));
    }
    for (uint32_t length = 0; length < 200; length += 7) {
        const Bytes data = asBytes(pattern(length, length));
        std::string reference(length / 3 * 4 + 8, '\0'), text(length / 3 * 4 + 5, '\0');
        reference.resize(static_cast<std::size_t>(
            EVP_EncodeBlock(reinterpret_cast<unsigned char *>(reference.data()), data.data(),
                            static_cast<int>(length))));
        text.resize(static_cast<std::size_t>(
            uB64_ntop(data.data(), length, text.data(), static_cast<uint32_t>(text.size()))));
        ASSERT_EQ(text, reference);
    }
}

TEST(Codecs, StrictLenientUrlPasswordsAndHexadecimal) {
    char t[40], d[16];
    uint8_t o[8];
    const uint8_t abc[] = {'a', 'b', 'c'}, bytes[16] = {0x00, 0xAB, 0x7F}; // a whole MD5 digest
    checkRows({
        PU_ROW(uB64_ntop(abc, 3, t, 4), -1), // no room for the terminator
        PU_ROW(decode("Zm9vYg==x", 0), "4:666f6f62"),
        PU_ROW(decode("Zh=="), "-1:"),       // leftover bits set before the padding
        PU_ROW(decode("Zg==", 1, 1), "-1:"), // a partial group needs one byte more than it gives
        PU_ROW(decode("Zg==", 1, 2), "1:66"),
        PU_ROW(decode(" \t\v\rZm8=", 0), "2:666f"), // blanks as the C locale has them
        PU_ROW(uB64_base64url(abc, 3, t, 4), -1),   // the padded text must fit
        PU_ROW(uB64_debase64url("", reinterpret_cast<uint8_t *>(d), sizeof d), 0),
        PU_ROW(uStrPwdBase64Decode("~Rk%58*]cGFzc3dvcmQ=", d, sizeof d), 8),
        PU_ROW(d, "password"),
        PU_ROW(uStrPwdBase64Decode("~Rk%58*", d, sizeof d), 7), // half a marker is clear text
        PU_ROW(uDigestToStr(bytes, t, 39), 0),                  // wants forty bytes
        PU_ROW(uHexToStr(bytes, 3, t, 7), 1),
        PU_ROW(t, "00ab7f"),
        PU_ROW(uStrToHex(" 1-1zz", o, sizeof o), 2), // pairs go through the number parser
        PU_ROW(toHex(o, 2), "01ff"),
    });
}

TEST(Crc32, CheckValueAndABitwiseComputationAtEveryLength) {
    const auto bitwise = [](uint32_t crc, const uint8_t *data, std::size_t length) {
        crc = ~crc;
        for (std::size_t i = 0; i < length * 8; ++i) {
            crc ^= i % 8 == 0 ? data[i / 8] : 0;
            crc = (crc & 1) != 0 ? (crc >> 1) ^ 0xEDB88320u : crc >> 1;
        }
        return ~crc;
    };
    const auto *check = reinterpret_cast<const unsigned char *>("123456789");
    EXPECT_EQ(crc32(crc32(0, check, 4), check + 4, 5), 0xCBF43926u);
    EXPECT_EQ(crc32(0x12345678, nullptr, 10) + crc32(0x12345678, check, 0), 0x12345678u);
    const Bytes data = asBytes(pattern(1000, 77));
    for (std::size_t length = 0; length < 1000; length += (length < 100 ? 1 : 61)) {
        ASSERT_EQ(crc32(0xA5A5A5A5, data.data() + 1, static_cast<uint32_t>(length)),
                  bitwise(0xA5A5A5A5, data.data() + 1, length))
            << length;
    }
}

TEST(Digest, KnownAnswersRfc4231AndUuid) {
    const Bytes abc = asBytes("abc"), key(131, 0xAA);
    const Bytes longData = asBytes("Test Using Larger Than Block-Size Key - Hash Key First");
    uint8_t out[32];
    char text[40];
    uint32_t length = 32;
    uUuid uuid;
    checkRows({
        PU_ROW(uDigestCalculateHex(abc.data(), 3, text, 32), -1), // no room for the terminator
        PU_ROW(uDigestCalculateHex(abc.data(), 3, text, 33), 0),
        PU_ROW(text, "900150983cd24fb0d6963f7d28e17f72"),
        PU_ROW((uDigestHmacSha256it(longData.data(), 54, key.data(), 131, out, &length),
                toHex(out, 32)),
               "60e431591ee0b67f0d8a26aacbf5b77f8e0bc6213728c5140546040f0ee37f54"),
        PU_ROW((length = 31, uDigestHmacSha256it(abc.data(), 3, key.data(), 32, out, &length)), -1),
        PU_ROW((uUuidGenerateV5("hello", 5, &uuid), uUuidToStr(&uuid, text, 37), text), // URL space
               "074171de-bc84-5ea4-b636-1135477620e1"),
        PU_ROW(uuid.timeLow, 0x074171de), // fields in host order
        PU_ROW(uUuidToStr(&uuid, text, 37), 0),
    });
}

} // namespace
