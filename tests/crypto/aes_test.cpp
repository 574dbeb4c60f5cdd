// SPDX-License-Identifier: MIT
// The AES block interface against published vectors and OpenSSL, both wrapper pairs (formats, 64
// KiB piece boundaries, refusals), Base64, marked passwords, hexadecimal text, CRC-32, digests and
// UUIDs against published vectors and independent computations. What padDecrypt and the wrappers
// return for arbitrary cipher text, round trips and the agreement of the decoding modes are the
// fuzz targets' to check.
#include <uaes.h>
#include <ub64.h>
#include <udigest.h>
#include <uuuid.h>

#include "crypto_test_util.hpp"

#include <sys/mman.h>
#include <unistd.h>

#include <cstring>

namespace {

using namespace pu::test;

const std::string kKeyHex = "603deb1015ca71be2b73aef0857d77811f352c073b6108d72d9810a30914dff4";
const std::string kSeqHex = "000102030405060708090a0b0c0d0e0f101112131415161718191a1b1c1d1e1f";
const Bytes kIv = fromHex(kSeqHex.substr(0, 32));

struct Aes {
    keyInstance key{};
    cipherInstance cipher{};
    Aes(int direction, uint8_t mode, const std::string &keyHex = kKeyHex) {
        makeKey(&key, static_cast<uint8_t>(direction), static_cast<int>(keyHex.size() * 4),
                keyHex.c_str());
        cipherInit(&cipher, mode, kSeqHex.substr(0, 32).c_str());
    }
    // Encrypts or decrypts in, with or without padding: the bytes written, or the refusal code.
    Bytes run(bool encrypt, bool pad, const Bytes &in, int *result = nullptr) {
        auto *fn = encrypt ? (pad ? padEncrypt : blockEncrypt) : (pad ? padDecrypt : blockDecrypt);
        static const uint8_t none = 0; // an empty input is still a buffer
        Bytes out(in.size() + 16);
        const int n = fn(&cipher, &key, in.empty() ? &none : in.data(), static_cast<int>(in.size()),
                         out.data());
        out.resize(static_cast<std::size_t>(std::max(0, n)));
        return result != nullptr ? (*result = n, out) : out;
    }
};

TEST(AesBlock, Fips197RoundKeysStayInsideTheirBuffers) {
    // The key ends where an unreadable page begins, and the schedule has a word to spare: a
    // set-up loop that runs one word long reads or writes past its buffer.
    const long page = sysconf(_SC_PAGESIZE);
    auto *map = static_cast<uint8_t *>(
        mmap(nullptr, 2 * page, PROT_READ | PROT_WRITE, MAP_PRIVATE | MAP_ANONYMOUS, -1, 0));
    ASSERT_EQ(mprotect(map + page, page, PROT_NONE), 0);
    for (const auto &[bits, cipher] : {std::pair{128, "69c4e0d86a7b0430d8cdb78070b4c55a"},
                                       {192, "dda97ca4864cdfe06eaf70a0ec0d7191"},
                                       {256, "8ea2b7ca516745bfeafc49904b496089"}}) {
        const Bytes key = fromHex(kSeqHex.substr(0, bits / 4)),
                    plain = fromHex("00112233445566778899aabbccddeeff");
        const uint8_t *edge =
            std::copy(key.begin(), key.end(), map + page - key.size()) - key.size();
        const int rounds = bits / 32 + 6, spare = 4 * rounds + 4;
        uint32_t rk[2][61];
        std::fill_n(&rk[0][0], 122, 0x5a5a5a5au);
        uint8_t out[16], back[16];
        EXPECT_EQ(rijndaelKeySetupEnc(rk[0], edge, bits) + rijndaelKeySetupDec(rk[1], edge, bits),
                  2 * rounds);
        rijndaelEncrypt(rk[0], rounds, plain.data(), out);
        rijndaelDecrypt(rk[1], rounds, out, back);
        EXPECT_EQ(toHex(out, 16) + toHex(back, 16), cipher + toHex(plain)) << bits;
        EXPECT_EQ(rk[0][spare] ^ rk[1][spare], 0u) << bits;
        EXPECT_EQ(rk[0][spare], 0x5a5a5a5au) << bits;
    }
    munmap(map, 2 * page);
}

TEST(AesBlock, ModesAgreeWithPublishedVectorsAndOpenSsl) {
    const std::string nist = "6bc1bee22e409f96e93d7e117393172aae2d8a571e03ac9c9eb76fac45af8e51"
                             "30c81c46a35ce411e5fbc1191a0a52eff69f2445df4f9b17ad2b417be66c3710";
    const std::string nistCipher =
        "f58c4c04d6e5f1ba779eabfb5f7bfbd69cfc4e967edb808d679f777bc6702c7d"
        "39f23369a9d9bacfa530e26304231461b2eb05e2c39be9fcda6c19078c6a9d1b";
    const struct {
        const char *mode;
        bool pad;
        std::string key, plain, want; // want empty: what OpenSSL gives
    } cases[] = {
        {"ecb", false, kSeqHex.substr(0, 48), toHex(asBytes(pattern(32, 2))), ""},
        {"cbc", false, kKeyHex, nist, nistCipher},
        {"cfb1", false, kKeyHex, toHex(asBytes(pattern(48, 3))), ""},
        {"cbc", true, kSeqHex.substr(0, 48), toHex(asBytes(pattern(33, 11))), ""},
    };
    for (const auto &c : cases) {
        SCOPED_TRACE(c.mode + (" " + c.key + " " + c.plain));
        const std::string m = c.mode;
        const uint8_t mode = m == "ecb" ? U_AES_MODE_ECB : m == "cbc" ? U_AES_MODE_CBC : 3;
        const Bytes plain = fromHex(c.plain), head(plain.begin(), plain.begin() + (c.pad ? 0 : 16));
        const Bytes tail(plain.begin() + static_cast<std::ptrdiff_t>(head.size()), plain.end());
        // CBC encryption leaves the vector alone, so a chain never spans two calls; the one-bit
        // feedback register goes on from call to call.
        Aes e(0, mode, c.key), d(1, mode, c.key), d0(0, mode, c.key);
        Bytes out = e.run(true, c.pad, m == "cbc" ? plain : head);
        out = m == "cbc" ? out : cat(out, e.run(true, false, tail));
        EXPECT_EQ(toHex(out),
                  c.want.empty() ? toHex(openssl(fromHex(c.key), kIv, plain, c.pad, m)) : c.want);
        if (c.pad) {
            // The chain stops before the last block: the vector is the last block but one.
            EXPECT_EQ(d.run(false, true, out), plain);
            EXPECT_EQ(Bytes(d.cipher.IV, d.cipher.IV + 16),
                      out.size() > 16 ? Bytes(out.end() - 32, out.end() - 16) : kIv);
            continue;
        }
        // Decryption carries the chain into the next call; one-bit feedback decrypts on the
        // encryption round keys, so a key of either direction works.
        const Bytes back = d.run(false, false, Bytes(out.begin(), out.begin() + 16));
        EXPECT_EQ(cat(back, d.run(false, false, Bytes(out.begin() + 16, out.end()))), plain);
        EXPECT_EQ(d0.run(false, false, out), m == "cfb1" ? plain : Bytes());
    }
    // A trailing partial block is left out of the count, and a second call starts again.
    Aes e(0, U_AES_MODE_CBC);
    Bytes longer = fromHex(nist);
    longer.resize(70, 0xEE);
    EXPECT_EQ(toHex(e.run(true, false, longer)) + toHex(e.run(true, false, longer)),
              nistCipher + nistCipher);
}

TEST(AesBlock, RefusalCodes) {
    uint8_t b[48] = {};
    uint32_t rk[61];
    Aes dec(1, U_AES_MODE_CBC);
    keyInstance key{};
    const char *k = kKeyHex.c_str();
    // padDecrypt of a last block encrypted without padding.
    const auto unpad = [](const char *mode, const char *last) {
        int n = 0;
        Aes(1, std::string(mode) == "cbc" ? U_AES_MODE_CBC : U_AES_MODE_ECB)
            .run(false, true, openssl(fromHex(kKeyHex), kIv, fromHex(last), false, mode), &n);
        return n;
    };
    checkRows({
        PU_ROW(unpad("cbc", "000102030405060708090a0b0c0d0e00"), U_AES_BAD_DATA),
        PU_ROW(unpad("cbc", "000102030405060708090a0b0c0d0e01"), 15),
        PU_ROW(unpad("cbc", "000102030405060708090a0b0c0d0e11"), U_AES_BAD_DATA),
        // ECB refuses a whole block of padding and takes a last byte of 0 as no padding.
        PU_ROW(unpad("ecb", "10101010101010101010101010101010"), U_AES_BAD_DATA),
        PU_ROW(unpad("ecb", "000102030405060708090a0b0c0d0e00"), 16),
        PU_ROW(makeKey(&key, 0, 128, "000102030405060708090A0B0C0D0E0Fzz"), U_AES_SUCCESS),
        PU_ROW(key.keyMaterial, "000102030405060708090A0B0C0D0E0F"), // only keyLen / 4 read
        PU_ROW(makeKey(&key, 1, 128, nullptr), U_AES_SUCCESS),       // reuses the record's text
        PU_ROW(blockEncrypt(&dec.cipher, &dec.key, b, 16, b), U_AES_BAD_CIPHER_STATE),
        PU_ROW(blockDecrypt(&dec.cipher, &dec.key, nullptr, 16, b), 0),
        PU_ROW(padDecrypt(&dec.cipher, &dec.key, b, 16, nullptr), 0),
        PU_ROW(uAesEncrypt(k, b, 0, b), 16),        // the vector only
        PU_ROW(uAesDecrypt(k, b, 16, b), 0),        // the vector alone: nothing to decrypt
        PU_ROW(rijndaelKeySetupEnc(rk, b, 100), 0), // no such key size
    });
}

// The wrapped format made independently: CBC cipher text of the padded input, then the vector.
Bytes wrapWithOpenSsl(const Bytes &plain, const Bytes &iv) {
    return cat(openssl(fromHex(kKeyHex), iv, plain), iv);
}

Bytes unwrap(const Bytes &wrapped, const std::string &keyHex = kKeyHex) {
    Bytes plain(wrapped.size() + 16);
    plain.resize(static_cast<std::size_t>(uAesDecrypt(
        keyHex.c_str(), wrapped.data(), static_cast<int32_t>(wrapped.size()), plain.data())));
    return plain;
}

TEST(AesWrap, PieceBoundaries) {
    // Length, what uAesDecrypt gives back, whether the last piece fails (and is logged).
    for (const auto &[length, returned, invalid] : {
             // One piece, then the vector only: the repeated last piece is empty and fails.
             std::tuple{65536 - 16, 65536 - 16, true},
             // A whole piece of padding behind a full piece: the repeat finds nothing to add.
             {65536, 65536, true},
             // A few bytes behind a full piece: the repeat decrypts the last block once more and
             // its bytes come out twice, so stored data reads the same on every device.
             {65537, 65538, false},
             {65536 + 16, 65536 + 16, false}, // two blocks or more behind a piece are read once
         }) {
        SCOPED_TRACE(length);
        const Bytes plain = asBytes(pattern(static_cast<std::size_t>(length), 31));
        Bytes wrapped(plain.size() + 32);
        wrapped.resize(static_cast<std::size_t>(
            uAesEncrypt(kKeyHex.c_str(), plain.data(), length, wrapped.data())));
        EXPECT_EQ(wrapped, wrapWithOpenSsl(plain, Bytes(wrapped.end() - 16, wrapped.end())));
        LogCapture log;
        const Bytes back = unwrap(wrapWithOpenSsl(plain, kIv));
        EXPECT_EQ(log.lines().size(), invalid ? 1U : 0U) << log.dump();
        ASSERT_EQ(static_cast<int>(back.size()), returned);
        const auto extra = static_cast<std::ptrdiff_t>(back.size() - plain.size());
        EXPECT_TRUE(std::equal(plain.begin(), plain.end(), back.begin()));
        EXPECT_TRUE(std::equal(back.end() - extra, back.end(), plain.end() - extra));
    }
    // A wrong key fails in the last piece, after the bytes of the earlier pieces were counted.
    LogCapture quiet;
    EXPECT_EQ(unwrap(wrapWithOpenSsl(asBytes(pattern(3 * 65536 + 100, 41)), kIv), kSeqHex).size(),
              3U * 65536);
}

TEST(AesCbcText, FormatRoundTripAndSizeLimit) {
    const Bytes key = fromHex(kSeqHex), in(16, 'q'),
                block = fromHex("00112233445566778899aabbccddeeff");
    char p[64];
    uint8_t out[128];
    const auto decoded = [](const char *text) {
        Bytes bytes(std::strlen(text));
        bytes.resize(static_cast<std::size_t>(std::max(0, uB64_pton(text, bytes.data(), 128))));
        return toHex(bytes);
    };
    // A partial block and a short vector text are zero-filled; the vector is the raw text.
    Bytes iv = asBytes("abIGNORED"), three(block.begin(), block.begin() + 3);
    iv.resize(16, 0);
    three.resize(16, 0);
    checkRows({
        // 16 bytes: the cipher block then sixteen zero bytes, not encrypted.
        PU_ROW(uAesCbcEncrypt(key.data(), block.data(), 16, p, sizeof p, nullptr, 128), 44),
        PU_ROW(decoded(p), "69c4e0d86a7b0430d8cdb78070b4c55a" + std::string(32, '0')),
        PU_ROW(uAesCbcEncrypt(key.data(), block.data(), 3, p, sizeof p, "abIGNORED", 256), 24),
        PU_ROW(decoded(p), toHex(openssl(key, iv, three, false))),
        // The result is a string length: a zero byte ends it.
        PU_ROW(uAesCbcEncrypt(key.data(), asBytes({"ab\0c", 4}).data(), 4, p, 64, "v", 256), 24),
        PU_ROW(uAesCbcDecrypt(key.data(), p, 64, out, 100, "v", 256), 2),
        PU_ROW(uAesCbcDecrypt(key.data(), p, 64, out, 1, "v", 256), 0), // more than maxPlainLength
        // b blocks need b * 64 / 3 + 4 bytes of text: 25 for one block, 46 for two.
        PU_ROW(uAesCbcEncrypt(key.data(), in.data(), 16, p, 45, nullptr, 256), 0),
        PU_ROW(uAesCbcEncrypt(key.data(), in.data(), 16, p, 46, nullptr, 256), 44),
        PU_ROW(uAesCbcEncrypt(key.data(), nullptr, 16, p, sizeof p, "v", 256), 0),
    });
}

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
