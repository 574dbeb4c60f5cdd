// SPDX-License-Identifier: MIT
// The block interface against published vectors and OpenSSL, and both wrapper pairs: formats,
// 64 KiB piece boundaries, refusals, threads.
#include <uaes.h>
#include <ub64.h>

#include "crypto_test_util.hpp"
#include "log_capture.hpp"

#include <cstring>
#include <string>
#include <sys/mman.h>
#include <unistd.h>

#include <gtest/gtest.h>

namespace {

using namespace pu::test;

const std::string kKeyHex = "603deb1015ca71be2b73aef0857d77811f352c073b6108d72d9810a30914dff4";
const std::string kSeqHex = "000102030405060708090a0b0c0d0e0f101112131415161718191a1b1c1d1e1f";
const Bytes kIv = fromHex(kSeqHex.substr(0, 32));

struct Aes {
    keyInstance key{};
    cipherInstance cipher{};
    Aes(uint8_t direction, uint8_t mode, const std::string &keyHex = kKeyHex) {
        EXPECT_EQ(makeKey(&key, direction, static_cast<int>(keyHex.size() * 4), keyHex.c_str()), 1);
        EXPECT_EQ(cipherInit(&cipher, mode, kSeqHex.substr(0, 32).c_str()), 1);
    }
    // Encrypts or decrypts in, with or without padding; out holds what was written.
    int run(bool encrypt, bool pad, const Bytes &in, Bytes &out) {
        auto *fn = encrypt ? (pad ? padEncrypt : blockEncrypt) : (pad ? padDecrypt : blockDecrypt);
        out.assign(in.size() + 16, 0);
        static const uint8_t none = 0; // an empty input is still a buffer
        const int n = fn(&cipher, &key, in.empty() ? &none : in.data(), static_cast<int>(in.size()),
                         out.data());
        out.resize(n > 0 ? static_cast<std::size_t>(n) : 0);
        return n;
    }
};

TEST(AesBlock, Fips197VectorsAndExactRoundKeyCount) {
    const Bytes plain = fromHex("00112233445566778899aabbccddeeff");
    const struct {
        int bits;
        const char *cipher;
    } cases[] = {{128, "69c4e0d86a7b0430d8cdb78070b4c55a"},
                 {192, "dda97ca4864cdfe06eaf70a0ec0d7191"},
                 {256, "8ea2b7ca516745bfeafc49904b496089"}};
    for (const auto &c : cases) {
        SCOPED_TRACE(c.bits);
        const Bytes key = fromHex(kSeqHex.substr(0, c.bits / 4));
        const int rounds = c.bits / 32 + 6;
        // The key ends where an unreadable page begins, and the schedule has a word to spare:
        // a set-up loop that runs one word long reads or writes past its buffer.
        const long page = sysconf(_SC_PAGESIZE);
        auto *map = static_cast<uint8_t *>(
            mmap(nullptr, 2 * page, PROT_READ | PROT_WRITE, MAP_PRIVATE | MAP_ANONYMOUS, -1, 0));
        ASSERT_EQ(mprotect(map + page, page, PROT_NONE), 0);
        uint8_t *edge = std::copy(key.begin(), key.end(), map + page - key.size()) - key.size();
        uint32_t enc[61], dec[61];
        std::fill_n(enc, 61, 0x5a5a5a5au);
        std::fill_n(dec, 61, 0x5a5a5a5au);
        EXPECT_EQ(rijndaelKeySetupEnc(enc, edge, c.bits), rounds);
        EXPECT_EQ(rijndaelKeySetupDec(dec, edge, c.bits), rounds);
        munmap(map, 2 * page);
        EXPECT_EQ(enc[4 * rounds + 4] & dec[4 * rounds + 4], 0x5a5a5a5au);
        uint8_t out[16], back[16];
        rijndaelEncrypt(enc, rounds, plain.data(), out);
        rijndaelDecrypt(dec, rounds, out, back);
        EXPECT_EQ(toHex(out, 16) + toHex(back, 16), c.cipher + toHex(plain));
        Bytes ecb, again;
        Aes(0, U_AES_MODE_ECB, toHex(key)).run(true, false, plain, ecb);
        Aes(1, U_AES_MODE_ECB, toHex(key)).run(false, false, ecb, again);
        EXPECT_EQ(toHex(ecb) + toHex(again), c.cipher + toHex(plain));
    }
}

TEST(AesBlock, NistCbcVectorAndTheChainingValueRules) {
    const Bytes plain = fromHex("6bc1bee22e409f96e93d7e117393172aae2d8a571e03ac9c9eb76fac45af8e51"
                                "30c81c46a35ce411e5fbc1191a0a52eff69f2445df4f9b17ad2b417be66c3710");
    const std::string expected = "f58c4c04d6e5f1ba779eabfb5f7bfbd69cfc4e967edb808d679f777bc6702c7d"
                                 "39f23369a9d9bacfa530e26304231461b2eb05e2c39be9fcda6c19078c6a9d1b";
    Aes e(0, U_AES_MODE_CBC), d(1, U_AES_MODE_CBC);
    Bytes longer = plain, out, again, back, rest;
    longer.resize(70, 0xEE); // a trailing partial block is ignored, and the count says so
    EXPECT_EQ(e.run(true, false, longer, out), 64);
    EXPECT_EQ(toHex(out), expected);
    // Encryption leaves the vector alone: a second call starts the same chain again.
    e.run(true, false, Bytes(plain.begin(), plain.begin() + 32), again);
    EXPECT_EQ(toHex(again), expected.substr(0, 64));
    // Decryption moves it along, so two calls continue one chain.
    EXPECT_EQ(d.run(false, false, Bytes(out.begin(), out.begin() + 32), back), 32);
    EXPECT_EQ(toHex(d.cipher.IV, 16), expected.substr(32, 32));
    d.run(false, false, Bytes(out.begin() + 32, out.end()), rest);
    back.insert(back.end(), rest.begin(), rest.end());
    EXPECT_EQ(back, plain);
    blockEncrypt(&e.cipher, &e.key, longer.data(), 64, longer.data()); // in place
    EXPECT_EQ(toHex(Bytes(longer.begin(), longer.begin() + 64)), expected);
}

TEST(AesBlock, OneBitFeedbackMatchesOpenSslAcrossCallsInBothDirections) {
    const Bytes plain = patternBytes(48, 3);
    const Bytes reference = openssl(true, fromHex(kKeyHex), kIv, plain, false, 'f');
    Aes e(0, U_AES_MODE_CFB1);
    Bytes first, second, back;
    EXPECT_EQ(e.run(true, false, Bytes(plain.begin(), plain.begin() + 16), first), 16);
    EXPECT_EQ(e.run(true, false, Bytes(plain.begin() + 16, plain.end()), second), 32);
    first.insert(first.end(), second.begin(), second.end()); // the register was carried
    EXPECT_EQ(first, reference);
    // Decryption runs on the encryption round keys, so a key of either direction works.
    for (uint8_t direction : {0, 1}) {
        EXPECT_EQ(Aes(direction, U_AES_MODE_CFB1).run(false, false, reference, back), 48);
        EXPECT_EQ(back, plain);
    }
}

TEST(AesBlock, RefusalCodes) {
    LogCapture quiet;
    uint8_t b[48] = {};
    Aes enc(0, U_AES_MODE_CBC), dec(1, U_AES_MODE_CBC), cfbDec(1, 3), cfbEnc(0, 3);
    keyInstance key{};
    cipherInstance cipher{}, odd = enc.cipher;
    odd.mode = 9;
    const char *k = kKeyHex.c_str(), *shortKey = "603deb1015ca71be2b73aef0857d77811f352c073b6108d7";
    checkRows({
        PU_ROW(makeKey(nullptr, 0, 128, k), U_AES_BAD_KEY_INSTANCE),
        PU_ROW(makeKey(&key, 2, 128, k), U_AES_BAD_KEY_DIR),
        PU_ROW(makeKey(&key, 0, 64, k), U_AES_BAD_KEY_MAT),
        PU_ROW(makeKey(&key, 0, 256, shortKey), U_AES_BAD_KEY_MAT),
        PU_ROW(makeKey(&key, 0, 128, "0123456789abcdeg0123456789abcdef"), U_AES_BAD_KEY_MAT),
        PU_ROW(makeKey(&key, 0, 128, "000102030405060708090A0B0C0D0E0Fzz"), U_AES_SUCCESS),
        PU_ROW(key.keyMaterial, "000102030405060708090A0B0C0D0E0F"), // only keyLen / 4 read
        PU_ROW(makeKey(&key, 1, 128, nullptr), U_AES_SUCCESS),       // reuses the record's text
        PU_ROW(key.Nr, 10),
        PU_ROW(cipherInit(&cipher, 0, nullptr), U_AES_BAD_CIPHER_MODE),
        PU_ROW(cipherInit(&cipher, 2, "000102030405060708090a0b0c0d0e0x"),
               U_AES_BAD_CIPHER_INSTANCE),
        PU_ROW(cipherInit(nullptr, 2, nullptr), U_AES_BAD_CIPHER_INSTANCE),
        PU_ROW(blockEncrypt(&dec.cipher, &dec.key, b, 16, b), U_AES_BAD_CIPHER_STATE),
        PU_ROW(padEncrypt(&dec.cipher, &dec.key, b, 16, b), U_AES_BAD_CIPHER_STATE),
        PU_ROW(blockDecrypt(&enc.cipher, &enc.key, b, 16, b), U_AES_BAD_CIPHER_STATE),
        PU_ROW(padDecrypt(&enc.cipher, &enc.key, b, 16, b), U_AES_BAD_CIPHER_STATE),
        PU_ROW(blockEncrypt(&cfbDec.cipher, &cfbDec.key, b, 16, b), U_AES_BAD_CIPHER_STATE),
        PU_ROW(padEncrypt(&cfbEnc.cipher, &cfbEnc.key, b, 16, b), U_AES_BAD_CIPHER_STATE),
        PU_ROW(blockEncrypt(nullptr, &enc.key, b, 16, b), U_AES_BAD_CIPHER_STATE),
        PU_ROW(blockEncrypt(&odd, &enc.key, b, 16, b), U_AES_BAD_CIPHER_STATE),
        PU_ROW(blockEncrypt(&enc.cipher, &enc.key, nullptr, 16, b), 0),
        PU_ROW(blockEncrypt(&enc.cipher, &enc.key, b, 15, b), 0),
        PU_ROW(blockDecrypt(&dec.cipher, &dec.key, nullptr, 16, b), 0),
        PU_ROW(padDecrypt(&dec.cipher, &dec.key, b, 47, b), U_AES_BAD_DATA),
        PU_ROW(padDecrypt(&dec.cipher, &dec.key, b, 0, b), 0),
        PU_ROW(uAesEncrypt(k, nullptr, 4, b), 0),
        PU_ROW(uAesEncrypt(shortKey, b, 4, b), 0),
        PU_ROW(uAesEncrypt(k, b, 0, b), 16), // the vector only
        PU_ROW(uAesDecrypt(k, nullptr, 32, b), 0),
        PU_ROW(uAesDecrypt(k, b, 16, b), 0),
        PU_ROW(uAesDecrypt(k, b, 33, b), 0),
        PU_ROW(uAesDecrypt("00ff", b, 32, b), 0),
    });
}

TEST(AesBlock, PaddingAgreesWithOpenSslAndRefusesBadPadding) {
    const Bytes key = fromHex(kKeyHex);
    for (int length : {0, 15, 16, 17}) {
        SCOPED_TRACE(length);
        const Bytes plain = patternBytes(static_cast<std::size_t>(length), 11);
        Bytes out, back;
        Aes d(1, U_AES_MODE_CBC);
        ASSERT_EQ(Aes(0, U_AES_MODE_CBC).run(true, true, plain, out), 16 * (length / 16 + 1));
        EXPECT_EQ(out, openssl(true, key, kIv, plain));
        EXPECT_EQ(d.run(false, true, out, back), length);
        EXPECT_EQ(back, plain);
        // The chain stops before the last block: the vector is the last block but one.
        EXPECT_EQ(Bytes(d.cipher.IV, d.cipher.IV + 16),
                  out.size() > 16 ? Bytes(out.end() - 32, out.end() - 16) : kIv);
    }
    // Pad values 0 and 17, and a right last byte over wrong neighbours.
    for (const char *last : {"000102030405060708090a0b0c0d0e00", "000102030405060708090a0b0c0d0e11",
                             "000102030405060708090a0b0c0d0403"}) {
        Bytes back;
        const Bytes text = openssl(true, key, kIv, fromHex(last), false);
        EXPECT_EQ(Aes(1, U_AES_MODE_CBC).run(false, true, text, back), U_AES_BAD_DATA) << last;
    }
}

TEST(AesBlock, EcbPaddingRefusesAWholePaddingBlockButTakesPadZero) {
    Aes e(0, U_AES_MODE_ECB), d(1, U_AES_MODE_ECB);
    Bytes block = patternBytes(16, 5), out, back;
    ASSERT_EQ(e.run(true, true, block, out), 32); // a block of sixteen 16s, which ECB refuses
    EXPECT_EQ(d.run(false, true, out, back), U_AES_BAD_DATA);
    block[15] = 0; // a last byte of 0 counts as no padding at all
    e.run(true, false, block, out);
    EXPECT_EQ(d.run(false, true, out, back), 16);
    EXPECT_EQ(back, block);
}

// The wrapped format made independently: CBC cipher text of the padded input, then the vector.
Bytes wrapWithOpenSsl(const Bytes &plain, const Bytes &iv) {
    Bytes out = openssl(true, fromHex(kKeyHex), iv, plain);
    out.insert(out.end(), iv.begin(), iv.end());
    return out;
}

int32_t unwrap(const Bytes &wrapped, Bytes &plain, const std::string &keyHex = kKeyHex) {
    plain.assign(wrapped.size() + 16, 0);
    const int32_t n = uAesDecrypt(keyHex.c_str(), wrapped.data(),
                                  static_cast<int32_t>(wrapped.size()), plain.data());
    plain.resize(static_cast<std::size_t>(n));
    return n;
}

TEST(AesWrap, PieceBoundaries) {
    const struct {
        int length;
        int returned; // what uAesDecrypt gives back
        bool invalid; // the last piece fails (and is logged)
    } cases[] = {
        {1, 1, false},
        {16, 16, false},
        // One piece, then the vector only: the repeated last piece is empty and fails.
        {65536 - 16, 65536 - 16, true},
        {65535, 65535, true},
        // A whole piece of padding behind a full piece: the repeat finds nothing to add.
        {65536, 65536, true},
        // A few bytes behind a full piece: the repeat decrypts the last block once more and its
        // bytes come out twice, so stored data reads the same on every device.
        {65537, 65538, false},
        {65536 + 15, 65536 + 30, false},
        {65536 + 16, 65536 + 16, false}, // two blocks or more behind a piece are read once
        {2 * 65536, 2 * 65536, true},
        {2 * 65536 + 100, 2 * 65536 + 100, false},
    };
    for (const auto &c : cases) {
        SCOPED_TRACE(c.length);
        const Bytes plain = patternBytes(static_cast<std::size_t>(c.length), 31);
        Bytes wrapped(plain.size() + 32), back;
        const int32_t n = uAesEncrypt(kKeyHex.c_str(), plain.data(), c.length, wrapped.data());
        ASSERT_EQ(n, 16 * (c.length / 16 + 1) + 16);
        wrapped.resize(static_cast<std::size_t>(n));
        EXPECT_EQ(wrapped, wrapWithOpenSsl(plain, Bytes(wrapped.end() - 16, wrapped.end())));
        LogCapture log;
        EXPECT_EQ(unwrap(wrapWithOpenSsl(plain, kIv), back), c.returned);
        EXPECT_EQ(log.lines().size(), c.invalid ? 1U : 0U) << log.dump();
        ASSERT_GE(back.size(), plain.size());
        const auto extra = static_cast<std::ptrdiff_t>(back.size() - plain.size());
        EXPECT_TRUE(std::equal(plain.begin(), plain.end(), back.begin()));
        EXPECT_TRUE(std::equal(back.end() - extra, back.end(), plain.end() - extra));
    }
}

TEST(AesWrap, WrongKeysAndCorruptPaddingFailInTheLastPiece) {
    LogCapture quiet;
    Bytes back, body = openssl(true, fromHex(kKeyHex), kIv, Bytes(16, 0x41), false);
    body.insert(body.end(), kIv.begin(), kIv.end()); // last byte 0x41: no standard padding
    EXPECT_EQ(unwrap(body, back), 0);
    EXPECT_EQ(unwrap(wrapWithOpenSsl(asBytes("attack at dawn"), kIv), back, kSeqHex), 0);
    // With earlier pieces, their bytes are counted before the last piece fails.
    EXPECT_EQ(unwrap(wrapWithOpenSsl(patternBytes(3 * 65536 + 100, 41), kIv), back, kSeqHex),
              3 * 65536);
}

TEST(AesWrap, ConcurrentCallsKeepTheirOwnState) {
    int failures[4] = {};
    fanOut(4, [&failures](int t) {
        for (int round = 1; round <= 20; ++round) {
            const Bytes plain = patternBytes(static_cast<std::size_t>(1000 * t + round * 37),
                                             static_cast<uint32_t>(t * 100 + round));
            Bytes wrapped(plain.size() + 32), back;
            const int32_t n = uAesEncrypt(kKeyHex.c_str(), plain.data(),
                                          static_cast<int32_t>(plain.size()), wrapped.data());
            wrapped.resize(static_cast<std::size_t>(n));
            failures[t] += unwrap(wrapped, back) > 0 && back == plain ? 0 : 1;
        }
    });
    EXPECT_EQ(failures[0] + failures[1] + failures[2] + failures[3], 0);
}

TEST(AesCbcText, FormatRoundTripAndSizeLimits) {
    const Bytes key = fromHex(kSeqHex), in = asBytes(std::string(40, 'q'));
    const Bytes block = fromHex("00112233445566778899aabbccddeeff");
    char t[128], z[64], s[64], p[64];
    uint8_t out[128];
    auto decoded = [](const char *text) {
        Bytes bytes(std::strlen(text));
        bytes.resize(static_cast<std::size_t>(std::max(0, uB64_pton(text, bytes.data(), 128))));
        return toHex(bytes);
    };
    // 16 bytes: the cipher block then sixteen zero bytes, not encrypted.
    ASSERT_EQ(uAesCbcEncrypt(key.data(), block.data(), 16, t, sizeof t, nullptr, 128), 44);
    EXPECT_EQ(decoded(t), "69c4e0d86a7b0430d8cdb78070b4c55a" + std::string(32, '0'));
    // A partial block and a short vector text are zero-filled; the vector is raw text.
    Bytes iv = asBytes("ab"), three(block.begin(), block.begin() + 3), padded(15, 'a');
    iv.resize(16, 0);
    three.resize(16, 0);
    padded.push_back(1); // the shortest standard padding
    ASSERT_EQ(uAesCbcEncrypt(key.data(), block.data(), 3, p, sizeof p, "abIGNORED", 256), 24);
    EXPECT_EQ(decoded(p), toHex(openssl(true, key, asBytes("abIGNORED"), three, false)));
    ASSERT_EQ(uAesCbcEncrypt(key.data(), block.data(), 3, p, sizeof p, "ab", 256), 24);
    EXPECT_EQ(decoded(p), toHex(openssl(true, key, iv, three, false)));
    // The result is a string length: standard padding goes, a zero byte ends it.
    ASSERT_GT(
        uAesCbcEncrypt(key.data(), asBytes(std::string("ab\0c", 4)).data(), 4, z, 64, "v", 256), 0);
    uB64_ntop(openssl(true, key, Bytes(16, 0), padded, false).data(), 16, s, sizeof s);
    ASSERT_EQ(uAesCbcEncrypt(key.data(), in.data(), 40, t, sizeof t, "v", 256), 64);
    checkRows({
        PU_ROW(uAesCbcDecrypt(key.data(), s, 64, out, 100, nullptr, 256), 15),
        PU_ROW(uAesCbcDecrypt(key.data(), z, 64, out, 100, "v", 256), 2),
        // b blocks need b * 64 / 3 + 4 bytes of text: 25 for one block, 46 for two.
        PU_ROW(uAesCbcEncrypt(key.data(), in.data(), 16, p, 45, nullptr, 256), 0),
        PU_ROW(uAesCbcEncrypt(key.data(), in.data(), 16, p, 46, nullptr, 256), 44),
        PU_ROW(uAesCbcEncrypt(key.data(), in.data(), 16, nullptr, 64, nullptr, 256), 0),
        PU_ROW(uAesCbcEncrypt(key.data(), in.data(), 16, p, 64, nullptr, 64), 0),
        // 48 bytes decoded: more than the largest accepted length, or than the work buffer.
        PU_ROW(uAesCbcDecrypt(key.data(), t, 64, out, 47, "v", 256), 0),
        PU_ROW(uAesCbcDecrypt(key.data(), t, 47, out, 100, "v", 256), 0),
        PU_ROW(uAesCbcDecrypt(key.data(), t, 48, out, 48, "v", 256), 40),
        PU_ROW(std::string(reinterpret_cast<char *>(out), 40), std::string(40, 'q')),
        PU_ROW(uAesCbcDecrypt(key.data(), t, 0xFFFFFFF8u, out, 100, "v", 256), 0),
        PU_ROW(uAesCbcDecrypt(key.data(), "not base64!", 64, out, 100, "v", 256), 0),
        PU_ROW(uAesCbcDecrypt(key.data(), t, 64, nullptr, 100, "v", 256), 0),
        PU_ROW(uAesCbcDecrypt(key.data(), t, 64, out, 100, "v", 64), 0),
    });
}

} // namespace
