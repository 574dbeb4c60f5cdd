// SPDX-License-Identifier: MIT
// The block interface against published vectors and OpenSSL, and both wrapper pairs: formats,
// piece boundaries, refusals with their log lines, and interoperation with the openssl command.
#include <uaes.h>
#include <ub64.h>

#include "crypto_test_util.hpp"
#include "log_capture.hpp"

#include <openssl/evp.h>

#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <ctime>
#include <filesystem>
#include <fstream>
#include <string>
#include <thread>
#include <unistd.h>
#include <vector>

#include <gtest/gtest.h>

namespace {

using pu::test::asBytes;
using pu::test::Bytes;
using pu::test::fromHex;
using pu::test::opensslCbc;
using pu::test::pattern;
using pu::test::toHex;

constexpr const char *kAes = "basalt.utils.aes";
const std::string kKeyHex = "603deb1015ca71be2b73aef0857d77811f352c073b6108d72d9810a30914dff4";
const std::string kOtherKeyHex = "000102030405060708090a0b0c0d0e0f101112131415161718191a1b1c1d1e1f";

struct Instances {
    keyInstance key{};
    cipherInstance cipher{};
};

Instances setUp(uint8_t direction, const std::string &keyHex, uint8_t mode,
                const char *ivHex = nullptr) {
    Instances in;
    EXPECT_EQ(makeKey(&in.key, direction, static_cast<int>(keyHex.size() * 4), keyHex.c_str()),
              U_AES_SUCCESS);
    EXPECT_EQ(cipherInit(&in.cipher, mode, ivHex), U_AES_SUCCESS);
    return in;
}

// ---- Block interface --------------------------------------------------------------------

TEST(AesBlock, Fips197VectorsForEachKeyLength) {
    const Bytes plain = fromHex("00112233445566778899aabbccddeeff");
    const struct {
        int bits;
        const char *cipher;
    } cases[] = {{128, "69c4e0d86a7b0430d8cdb78070b4c55a"},
                 {192, "dda97ca4864cdfe06eaf70a0ec0d7191"},
                 {256, "8ea2b7ca516745bfeafc49904b496089"}};
    for (const auto &c : cases) {
        SCOPED_TRACE(c.bits);
        const Bytes key = fromHex(kOtherKeyHex.substr(0, c.bits / 4));
        uint32_t enc[60], dec[60];
        const int rounds = c.bits / 32 + 6;
        EXPECT_EQ(rijndaelKeySetupEnc(enc, key.data(), c.bits), rounds);
        EXPECT_EQ(rijndaelKeySetupDec(dec, key.data(), c.bits), rounds);
        uint8_t out[16], back[16];
        rijndaelEncrypt(enc, rounds, plain.data(), out);
        EXPECT_EQ(toHex(out, 16), c.cipher);
        rijndaelDecrypt(dec, rounds, out, back);
        EXPECT_EQ(toHex(back, 16), toHex(plain));

        // The same through the instances in ECB mode, where whole runs go another way.
        Instances e = setUp(U_AES_DIR_ENCRYPT, kOtherKeyHex.substr(0, c.bits / 4), U_AES_MODE_ECB);
        EXPECT_EQ(blockEncrypt(&e.cipher, &e.key, plain.data(), 16, out), 16);
        EXPECT_EQ(toHex(out, 16), c.cipher);
        Instances d = setUp(U_AES_DIR_DECRYPT, kOtherKeyHex.substr(0, c.bits / 4), U_AES_MODE_ECB);
        EXPECT_EQ(blockDecrypt(&d.cipher, &d.key, out, 16, back), 16);
        EXPECT_EQ(toHex(back, 16), toHex(plain));
    }
    EXPECT_EQ(rijndaelKeySetupEnc(nullptr, nullptr, 100), 0);
}

// Many random keys reach every S-box entry in the key schedule, which the few published
// vectors do not; OpenSSL is the oracle for whichever block path this CPU takes.
TEST(AesBlock, SingleBlocksAgreeWithOpenSslOverRandomKeys) {
    EVP_CIPHER_CTX *ctx = EVP_CIPHER_CTX_new();
    for (const int bits : {128, 192, 256}) {
        SCOPED_TRACE(bits);
        const EVP_CIPHER *ecb = bits == 128   ? EVP_aes_128_ecb()
                                : bits == 192 ? EVP_aes_192_ecb()
                                              : EVP_aes_256_ecb();
        for (std::uint32_t seed = 0; seed < 200; ++seed) {
            const Bytes key = pattern(static_cast<std::size_t>(bits / 8), seed);
            const Bytes plain = pattern(16, seed + 1000);
            uint32_t enc[60], dec[60];
            ASSERT_EQ(rijndaelKeySetupEnc(enc, key.data(), bits), bits / 32 + 6);
            ASSERT_EQ(rijndaelKeySetupDec(dec, key.data(), bits), bits / 32 + 6);
            uint8_t reference[32], out[16], back[16];
            int n = 0;
            EVP_EncryptInit_ex(ctx, ecb, nullptr, key.data(), nullptr);
            EVP_CIPHER_CTX_set_padding(ctx, 0);
            ASSERT_EQ(EVP_EncryptUpdate(ctx, reference, &n, plain.data(), 16), 1);
            rijndaelEncrypt(enc, bits / 32 + 6, plain.data(), out);
            ASSERT_EQ(toHex(out, 16), toHex(reference, 16)) << "seed " << seed;
            rijndaelDecrypt(dec, bits / 32 + 6, out, back);
            ASSERT_EQ(toHex(back, 16), toHex(plain)) << "seed " << seed;
        }
    }
    EVP_CIPHER_CTX_free(ctx);
}

TEST(AesBlock, NistCbcVectorsAndTheChainingValueRules) {
    const std::string iv = "000102030405060708090a0b0c0d0e0f";
    const Bytes plain = fromHex("6bc1bee22e409f96e93d7e117393172aae2d8a571e03ac9c9eb76fac45af8e51"
                                "30c81c46a35ce411e5fbc1191a0a52eff69f2445df4f9b17ad2b417be66c3710");
    const std::string expected = "f58c4c04d6e5f1ba779eabfb5f7bfbd69cfc4e967edb808d679f777bc6702c7d"
                                 "39f23369a9d9bacfa530e26304231461b2eb05e2c39be9fcda6c19078c6a9d1b";

    Instances e = setUp(U_AES_DIR_ENCRYPT, kKeyHex, U_AES_MODE_CBC, iv.c_str());
    Bytes out(64);
    // A trailing partial block is ignored, and the count says so.
    Bytes longer = plain;
    longer.resize(70, 0xEE);
    EXPECT_EQ(blockEncrypt(&e.cipher, &e.key, longer.data(), 70, out.data()), 64);
    EXPECT_EQ(toHex(out), expected);
    // Encryption leaves the vector where it was: a second call starts the same chain again.
    EXPECT_EQ(toHex(e.cipher.IV, 16), iv);
    Bytes again(32);
    blockEncrypt(&e.cipher, &e.key, plain.data(), 32, again.data());
    EXPECT_EQ(toHex(again), expected.substr(0, 64));

    // Decryption moves the vector along, so two calls continue one chain.
    Instances d = setUp(U_AES_DIR_DECRYPT, kKeyHex, U_AES_MODE_CBC, iv.c_str());
    Bytes back(64);
    EXPECT_EQ(blockDecrypt(&d.cipher, &d.key, out.data(), 32, back.data()), 32);
    EXPECT_EQ(toHex(d.cipher.IV, 16), expected.substr(32, 32));
    EXPECT_EQ(blockDecrypt(&d.cipher, &d.key, out.data() + 32, 32, back.data() + 32), 32);
    EXPECT_EQ(back, plain);

    // In place.
    Bytes inPlace = plain;
    Instances e2 = setUp(U_AES_DIR_ENCRYPT, kKeyHex, U_AES_MODE_CBC, iv.c_str());
    blockEncrypt(&e2.cipher, &e2.key, inPlace.data(), 64, inPlace.data());
    EXPECT_EQ(toHex(inPlace), expected);
    Instances d2 = setUp(U_AES_DIR_DECRYPT, kKeyHex, U_AES_MODE_CBC, iv.c_str());
    blockDecrypt(&d2.cipher, &d2.key, inPlace.data(), 64, inPlace.data());
    EXPECT_EQ(inPlace, plain);
}

TEST(AesBlock, OneBitFeedbackMatchesOpenSslAndKeepsItsRegister) {
    const Bytes key = fromHex(kKeyHex);
    const Bytes iv = fromHex("000102030405060708090a0b0c0d0e0f");
    const Bytes plain = pattern(48, 3);
    Bytes reference(48);
    EVP_CIPHER_CTX *ctx = EVP_CIPHER_CTX_new();
    int n = 0;
    EVP_EncryptInit_ex(ctx, EVP_aes_256_cfb1(), nullptr, key.data(), iv.data());
    EVP_EncryptUpdate(ctx, reference.data(), &n, plain.data(), 48);
    EVP_CIPHER_CTX_free(ctx);

    Instances e = setUp(U_AES_DIR_ENCRYPT, kKeyHex, U_AES_MODE_CFB1, toHex(iv).c_str());
    Bytes out(48);
    // Two calls continue one stream: the register lives in the instance.
    EXPECT_EQ(blockEncrypt(&e.cipher, &e.key, plain.data(), 16, out.data()), 16);
    EXPECT_EQ(blockEncrypt(&e.cipher, &e.key, plain.data() + 16, 32, out.data() + 16), 32);
    EXPECT_EQ(out, reference);

    // Decryption uses the encryption round keys, so a key of either direction works.
    for (uint8_t direction : {U_AES_DIR_ENCRYPT, U_AES_DIR_DECRYPT}) {
        Instances d = setUp(direction, kKeyHex, U_AES_MODE_CFB1, toHex(iv).c_str());
        Bytes back = out;
        EXPECT_EQ(blockDecrypt(&d.cipher, &d.key, back.data(), 48, back.data()), 48);
        EXPECT_EQ(back, plain);
    }
    // But encryption with a decryption key is refused, and CFB-1 has no padded form.
    Instances wrong = setUp(U_AES_DIR_DECRYPT, kKeyHex, U_AES_MODE_CFB1);
    EXPECT_EQ(blockEncrypt(&wrong.cipher, &wrong.key, plain.data(), 16, out.data()),
              U_AES_BAD_CIPHER_STATE);
    EXPECT_EQ(padEncrypt(&e.cipher, &e.key, plain.data(), 16, out.data()), U_AES_BAD_CIPHER_STATE);
}

TEST(AesBlock, SetUpRefusalsAndTheirCodes) {
    keyInstance key{};
    EXPECT_EQ(makeKey(nullptr, U_AES_DIR_ENCRYPT, 128, kKeyHex.c_str()), U_AES_BAD_KEY_INSTANCE);
    EXPECT_EQ(makeKey(&key, 2, 128, kKeyHex.c_str()), U_AES_BAD_KEY_DIR);
    EXPECT_EQ(makeKey(&key, U_AES_DIR_ENCRYPT, 64, kKeyHex.c_str()), U_AES_BAD_KEY_MAT);
    EXPECT_EQ(makeKey(&key, U_AES_DIR_ENCRYPT, 256, kKeyHex.substr(0, 63).c_str()),
              U_AES_BAD_KEY_MAT);
    EXPECT_EQ(makeKey(&key, U_AES_DIR_ENCRYPT, 128, "0123456789abcdeg0123456789abcdef"),
              U_AES_BAD_KEY_MAT);
    // Only keyLen / 4 characters are read: a longer text is fine, upper case too.
    EXPECT_EQ(makeKey(&key, U_AES_DIR_ENCRYPT, 128, "000102030405060708090A0B0C0D0E0Fzz"),
              U_AES_SUCCESS);
    EXPECT_EQ(key.Nr, 10);
    EXPECT_STREQ(key.keyMaterial, "000102030405060708090A0B0C0D0E0F");
    // A null text reads what the record already holds.
    keyInstance preset{};
    std::strcpy(preset.keyMaterial, kKeyHex.c_str());
    EXPECT_EQ(makeKey(&preset, U_AES_DIR_DECRYPT, 256, nullptr), U_AES_SUCCESS);
    EXPECT_EQ(preset.Nr, 14);

    cipherInstance cipher{};
    std::memset(cipher.IV, 0xAB, 16);
    EXPECT_EQ(cipherInit(&cipher, 0, nullptr), U_AES_BAD_CIPHER_MODE);
    EXPECT_EQ(cipherInit(&cipher, 4, nullptr), U_AES_BAD_CIPHER_MODE);
    EXPECT_EQ(cipherInit(&cipher, U_AES_MODE_CBC, "000102030405060708090a0b0c0d0e0x"),
              U_AES_BAD_CIPHER_INSTANCE);
    EXPECT_EQ(cipherInit(&cipher, U_AES_MODE_CBC, "0001"), U_AES_BAD_CIPHER_INSTANCE);
    EXPECT_EQ(cipherInit(nullptr, U_AES_MODE_CBC, nullptr), U_AES_BAD_CIPHER_INSTANCE);
    EXPECT_EQ(cipherInit(&cipher, U_AES_MODE_ECB, nullptr), U_AES_SUCCESS);
    EXPECT_EQ(toHex(cipher.IV, 16), std::string(32, '0'));

    // Direction and state checks of the block functions.
    Instances enc = setUp(U_AES_DIR_ENCRYPT, kKeyHex, U_AES_MODE_CBC);
    Instances dec = setUp(U_AES_DIR_DECRYPT, kKeyHex, U_AES_MODE_CBC);
    uint8_t block[32] = {};
    EXPECT_EQ(blockEncrypt(&dec.cipher, &dec.key, block, 16, block), U_AES_BAD_CIPHER_STATE);
    EXPECT_EQ(padEncrypt(&dec.cipher, &dec.key, block, 16, block), U_AES_BAD_CIPHER_STATE);
    EXPECT_EQ(blockDecrypt(&enc.cipher, &enc.key, block, 16, block), U_AES_BAD_CIPHER_STATE);
    EXPECT_EQ(padDecrypt(&enc.cipher, &enc.key, block, 16, block), U_AES_BAD_CIPHER_STATE);
    EXPECT_EQ(blockEncrypt(nullptr, &enc.key, block, 16, block), U_AES_BAD_CIPHER_STATE);
    EXPECT_EQ(blockDecrypt(&dec.cipher, nullptr, block, 16, block), U_AES_BAD_CIPHER_STATE);
    enc.cipher.mode = 9;
    EXPECT_EQ(blockEncrypt(&enc.cipher, &enc.key, block, 16, block), U_AES_BAD_CIPHER_STATE);
    EXPECT_EQ(blockEncrypt(&dec.cipher, &enc.key, nullptr, 16, block), 0);
    EXPECT_EQ(blockEncrypt(&dec.cipher, &enc.key, block, 0, block), 0);
    EXPECT_EQ(blockEncrypt(&dec.cipher, &enc.key, block, 15, block), 0);
}

TEST(AesBlock, PaddingLengthsAndRefusedPadding) {
    const std::string iv = "0f0e0d0c0b0a09080706050403020100";
    const Bytes key = fromHex(kKeyHex);
    for (int length : {0, 1, 15, 16, 17, 31, 32, 100}) {
        SCOPED_TRACE(length);
        const Bytes plain = pattern(static_cast<std::size_t>(length), 11);
        const uint8_t none = 0;
        Instances e = setUp(U_AES_DIR_ENCRYPT, kKeyHex, U_AES_MODE_CBC, iv.c_str());
        Bytes out(static_cast<std::size_t>(length) + 16);
        const int padded =
            padEncrypt(&e.cipher, &e.key, length > 0 ? plain.data() : &none, length, out.data());
        ASSERT_EQ(padded, 16 * (length / 16 + 1));
        out.resize(static_cast<std::size_t>(padded));
        EXPECT_EQ(out, opensslCbc(true, key, fromHex(iv), plain));
        EXPECT_EQ(toHex(e.cipher.IV, 16), iv);

        Instances d = setUp(U_AES_DIR_DECRYPT, kKeyHex, U_AES_MODE_CBC, iv.c_str());
        Bytes back(out.size(), 0xEE);
        EXPECT_EQ(padDecrypt(&d.cipher, &d.key, out.data(), padded, back.data()), length);
        back.resize(static_cast<std::size_t>(length));
        EXPECT_EQ(back, plain);
        // The chain stops before the last block: the vector is the last block but one.
        const std::string chain = padded > 16 ? toHex(out.data() + padded - 32, 16) : iv;
        EXPECT_EQ(toHex(d.cipher.IV, 16), chain);
    }

    Instances d = setUp(U_AES_DIR_DECRYPT, kKeyHex, U_AES_MODE_CBC);
    uint8_t out[48];
    const Bytes zero(48, 0);
    EXPECT_EQ(padDecrypt(&d.cipher, &d.key, zero.data(), 47, out), U_AES_BAD_DATA);
    EXPECT_EQ(padDecrypt(&d.cipher, &d.key, zero.data(), 0, out), 0);
    // Bad pad values: 0, 17, and a right last byte over wrong neighbours.
    for (const char *lastBlock :
         {"000102030405060708090a0b0c0d0e00", "000102030405060708090a0b0c0d0e11",
          "000102030405060708090a0b0c0d0403"}) {
        Instances dd = setUp(U_AES_DIR_DECRYPT, kKeyHex, U_AES_MODE_CBC);
        const Bytes cipherText = opensslCbc(true, key, Bytes(16, 0), fromHex(lastBlock), false);
        EXPECT_EQ(padDecrypt(&dd.cipher, &dd.key, cipherText.data(), 16, out), U_AES_BAD_DATA)
            << lastBlock;
    }
}

TEST(AesBlock, EcbPaddingRefusesAWholePaddingBlockButTakesPadZero) {
    const std::string keyHex = kKeyHex;
    Instances e = setUp(U_AES_DIR_ENCRYPT, keyHex, U_AES_MODE_ECB);
    Instances d = setUp(U_AES_DIR_DECRYPT, keyHex, U_AES_MODE_ECB);
    const Bytes sixteen = pattern(16, 5);
    uint8_t out[32], back[32];
    // padEncrypt adds a block of sixteen 16s, which ECB decryption does not accept.
    ASSERT_EQ(padEncrypt(&e.cipher, &e.key, sixteen.data(), 16, out), 32);
    EXPECT_EQ(padDecrypt(&d.cipher, &d.key, out, 32, back), U_AES_BAD_DATA);
    // Shorter padding works both ways.
    ASSERT_EQ(padEncrypt(&e.cipher, &e.key, sixteen.data(), 13, out), 16);
    EXPECT_EQ(padDecrypt(&d.cipher, &d.key, out, 16, back), 13);
    EXPECT_EQ(std::memcmp(back, sixteen.data(), 13), 0);
    // A last byte of 0 counts as no padding at all.
    Bytes block = pattern(16, 6);
    block[15] = 0;
    ASSERT_EQ(blockEncrypt(&e.cipher, &e.key, block.data(), 16, out), 16);
    EXPECT_EQ(padDecrypt(&d.cipher, &d.key, out, 16, back), 16);
    EXPECT_EQ(std::memcmp(back, block.data(), 16), 0);
}

// ---- uAesEncrypt / uAesDecrypt ---------------------------------------------------------

// The wrapped format made independently: CBC cipher text of the padded input, then the vector.
Bytes wrapWithOpenSsl(const Bytes &plain, const Bytes &iv, const std::string &keyHex = kKeyHex) {
    Bytes out = opensslCbc(true, fromHex(keyHex), iv, plain);
    out.insert(out.end(), iv.begin(), iv.end());
    return out;
}

int32_t decrypt(const Bytes &wrapped, Bytes &plain, const std::string &keyHex = kKeyHex) {
    plain.assign(wrapped.size() + 16, 0);
    const int32_t n = uAesDecrypt(keyHex.c_str(), wrapped.data(),
                                  static_cast<int32_t>(wrapped.size()), plain.data());
    plain.resize(static_cast<std::size_t>(n));
    return n;
}

TEST(AesWrap, OutputLengthsAndRoundTrip) {
    for (int length : {1, 15, 16, 17, 1000}) {
        SCOPED_TRACE(length);
        const Bytes plain = pattern(static_cast<std::size_t>(length), 21);
        const uint8_t none = 0;
        Bytes wrapped(static_cast<std::size_t>(length) + 32);
        const int32_t n =
            uAesEncrypt(kKeyHex.c_str(), length > 0 ? plain.data() : &none, length, wrapped.data());
        ASSERT_EQ(n, 16 * (length / 16 + 1) + 16);
        wrapped.resize(static_cast<std::size_t>(n));
        // The vector travels in clear at the end, and the rest is plain CBC under it.
        const Bytes iv(wrapped.end() - 16, wrapped.end());
        EXPECT_EQ(wrapped, wrapWithOpenSsl(plain, iv));
        Bytes back;
        EXPECT_EQ(decrypt(wrapped, back), length);
        EXPECT_EQ(back, plain);
    }
    // A length of 0 or below writes the vector only, which does not decrypt.
    uint8_t out[32];
    EXPECT_EQ(uAesEncrypt(kKeyHex.c_str(), out, 0, out), 16);
    EXPECT_EQ(uAesEncrypt(kKeyHex.c_str(), out, -5, out), 16);
    EXPECT_EQ(uAesDecrypt(kKeyHex.c_str(), out, 16, out + 16), 0);
}

TEST(AesWrap, PieceBoundaries) {
    const Bytes iv = fromHex("a0a1a2a3a4a5a6a7a8a9aaabacadaeaf");
    const struct {
        int length;
        int returned; // what uAesDecrypt gives back
        bool logsInvalid;
    } cases[] = {
        // One piece, then the vector only: the repeated last piece is empty and fails.
        {65536 - 16, 65536 - 16, true},
        {65535, 65535, true},
        // A whole piece of padding behind a full piece: the repeat finds nothing to add.
        {65536, 65536, true},
        // A few bytes behind a full piece: the repeat decrypts the last block once more and
        // its bytes come out twice, as they always have.
        {65537, 65538, false},
        {65536 + 15, 65536 + 30, false},
        // Two blocks or more behind a piece are read once.
        {65536 + 16, 65536 + 16, false},
        {65536 + 32, 65536 + 32, false},
        {2 * 65536, 2 * 65536, true},
        {2 * 65536 + 100, 2 * 65536 + 100, false},
    };
    for (const auto &c : cases) {
        SCOPED_TRACE(c.length);
        const Bytes plain = pattern(static_cast<std::size_t>(c.length), 31);
        // Our encryption and OpenSSL agree across pieces.
        Bytes wrapped(plain.size() + 32);
        const int32_t n = uAesEncrypt(kKeyHex.c_str(), plain.data(), c.length, wrapped.data());
        ASSERT_EQ(n, 16 * (c.length / 16 + 1) + 16);
        wrapped.resize(static_cast<std::size_t>(n));
        EXPECT_EQ(wrapped, wrapWithOpenSsl(plain, Bytes(wrapped.end() - 16, wrapped.end())));

        pu::test::LogCapture log;
        Bytes back;
        EXPECT_EQ(decrypt(wrapWithOpenSsl(plain, iv), back), c.returned);
        EXPECT_EQ(log.count(3, kAes, "The data is invalid."), c.logsInvalid ? 1 : 0) << log.dump();
        ASSERT_GE(back.size(), plain.size());
        EXPECT_TRUE(std::equal(plain.begin(), plain.end(), back.begin()));
        const std::size_t extra = back.size() - plain.size();
        EXPECT_TRUE(std::equal(back.end() - static_cast<std::ptrdiff_t>(extra), back.end(),
                               plain.end() - static_cast<std::ptrdiff_t>(extra)));
    }
}

TEST(AesWrap, RefusalsAndTheirMessages) {
    pu::test::LogCapture log;
    uint8_t buffer[128] = {};
    EXPECT_EQ(uAesEncrypt(kKeyHex.c_str(), nullptr, 4, buffer), 0);
    EXPECT_EQ(uAesEncrypt(kKeyHex.c_str(), buffer, 4, nullptr), 0);
    EXPECT_EQ(log.count(3, kAes, "uAesEncrypt Parameter is null."), 2);
    EXPECT_EQ(uAesEncrypt(kKeyHex.substr(0, 63).c_str(), buffer, 4, buffer), 0);
    EXPECT_EQ(uAesEncrypt(nullptr, buffer, 4, buffer), 0);
    EXPECT_EQ(log.count(3, kAes, "uAesEncrypt make key error."), 2);

    EXPECT_EQ(uAesDecrypt(kKeyHex.c_str(), nullptr, 32, buffer), 0);
    EXPECT_EQ(log.count(3, kAes, "uAesDecrypt Parameter is null."), 1);
    for (int32_t length : {16, 0, -1, 33, 40}) {
        EXPECT_EQ(uAesDecrypt(kKeyHex.c_str(), buffer, length, buffer), 0) << length;
    }
    EXPECT_EQ(log.count(3, kAes, "uAesDecrypt The data is invalid."), 5);
    EXPECT_EQ(uAesDecrypt("00ff", buffer, 32, buffer), 0);
    EXPECT_EQ(log.count(3, kAes, "uAesDecrypt key error"), 1);
    EXPECT_EQ(log.lines().size(), 11u) << log.dump();
}

TEST(AesWrap, WrongKeysAndCorruptPaddingFailInTheLastPiece) {
    const Bytes iv = fromHex("00112233445566778899aabbccddeeff");
    pu::test::LogCapture log;
    Bytes back;
    // A wrong key makes the padding test fail: nothing of a single piece is returned.
    EXPECT_EQ(decrypt(wrapWithOpenSsl(asBytes("attack at dawn"), iv), back, kOtherKeyHex), 0);
    // With earlier pieces, their bytes are counted before the last piece fails.
    const Bytes big = pattern(3 * 65536 + 100, 41);
    EXPECT_EQ(decrypt(wrapWithOpenSsl(big, iv), back, kOtherKeyHex), 3 * 65536);
    EXPECT_EQ(log.count(3, kAes, "The data is invalid."), 2);

    // Correct key, but the last block's padding is not standard padding.
    for (const char *last : {"41414141414141414141414141414100", "41414141414141414141414141410303",
                             "41414141414141414141414141414111"}) {
        Bytes body = opensslCbc(true, fromHex(kKeyHex), iv, fromHex(last), false);
        body.insert(body.end(), iv.begin(), iv.end());
        EXPECT_EQ(decrypt(body, back), 0) << last;
    }
    EXPECT_EQ(log.count(3, kAes, "The data is invalid."), 5);
}

TEST(AesWrap, TheVectorComesFromRandSeededWithTheTime) {
    // The seed is the time in seconds, so the vector is predictable within a second; repeat
    // the call if the second turned while it ran.
    const Bytes plain = asBytes("x");
    for (int attempt = 0; attempt < 5; ++attempt) {
        const time_t before = time(nullptr);
        uint8_t first[48], second[48];
        ASSERT_EQ(uAesEncrypt(kKeyHex.c_str(), plain.data(), 1, first), 32);
        ASSERT_EQ(uAesEncrypt(kKeyHex.c_str(), plain.data(), 1, second), 32);
        if (time(nullptr) != before) {
            continue;
        }
        srand(static_cast<unsigned>(before));
        uint8_t expected[16] = {};
        for (int i = 15; i >= 0; --i) {
            expected[i] = static_cast<uint8_t>(expected[i] + rand());
        }
        EXPECT_EQ(toHex(first + 16, 16), toHex(expected, 16));
        EXPECT_EQ(std::memcmp(first, second, 32), 0);
        return;
    }
    FAIL() << "the clock kept turning";
}

TEST(AesWrap, ConcurrentCallsKeepTheirOwnState) {
    std::vector<std::thread> threads;
    std::vector<int> failures(4, 0);
    for (int t = 0; t < 4; ++t) {
        threads.emplace_back([t, &failures] {
            for (int round = 0; round < 20; ++round) {
                const Bytes plain = pattern(static_cast<std::size_t>(1000 * t + round * 37),
                                            static_cast<uint32_t>(t * 100 + round));
                Bytes wrapped(plain.size() + 32);
                const int32_t n = uAesEncrypt(kKeyHex.c_str(), plain.data(),
                                              static_cast<int32_t>(plain.size()), wrapped.data());
                Bytes back(wrapped.size());
                const int32_t m = uAesDecrypt(kKeyHex.c_str(), wrapped.data(), n, back.data());
                back.resize(static_cast<std::size_t>(m > 0 ? m : 0));
                if (back != plain) {
                    ++failures[static_cast<std::size_t>(t)];
                }
            }
        });
    }
    for (auto &thread : threads) {
        thread.join();
    }
    EXPECT_EQ(failures, std::vector<int>(4, 0));
}

// ---- Interoperation with the openssl command -------------------------------------------

class OpensslCommand : public ::testing::Test {
  protected:
    void SetUp() override {
        if (std::system("openssl version > /dev/null 2>&1") != 0) {
            GTEST_SKIP() << "the openssl command is not installed";
        }
        char pattern[] = "/tmp/pu_aes_XXXXXX";
        ASSERT_NE(mkdtemp(pattern), nullptr);
        dir_ = pattern;
    }
    void TearDown() override {
        if (!dir_.empty()) {
            std::filesystem::remove_all(dir_);
        }
    }
    std::string path(const char *name) const { return dir_ + "/" + name; }

    static void write(const std::string &file, const Bytes &data) {
        std::ofstream(file, std::ios::binary)
            .write(reinterpret_cast<const char *>(data.data()),
                   static_cast<std::streamsize>(data.size()));
    }
    static Bytes read(const std::string &file) {
        std::ifstream in(file, std::ios::binary);
        return Bytes(std::istreambuf_iterator<char>(in), std::istreambuf_iterator<char>());
    }
    // Runs openssl enc over in into out; true on success.
    static bool enc(bool decrypt, const std::string &ivHex, const std::string &in,
                    const std::string &out) {
        const std::string command = "openssl enc -aes-256-cbc" + std::string(decrypt ? " -d" : "") +
                                    " -K " + kKeyHex + " -iv " + ivHex + " -in " + in + " -out " +
                                    out + " 2>/dev/null";
        return std::system(command.c_str()) == 0;
    }

    std::string dir_;
};

TEST_F(OpensslCommand, DecryptsWhatWeEncryptAndTheOtherWayRound) {
    for (std::size_t length :
         {std::size_t{1}, std::size_t{5}, std::size_t{32}, std::size_t{70000}}) {
        SCOPED_TRACE(length);
        const Bytes plain = pattern(length, 51);
        const uint8_t none = 0;
        Bytes wrapped(length + 32);
        const int32_t n = uAesEncrypt(kKeyHex.c_str(), length > 0 ? plain.data() : &none,
                                      static_cast<int32_t>(length), wrapped.data());
        ASSERT_GT(n, 16);
        const std::string ivHex = toHex(wrapped.data() + n - 16, 16);
        write(path("ours.bin"), Bytes(wrapped.begin(), wrapped.begin() + n - 16));
        ASSERT_TRUE(enc(true, ivHex, path("ours.bin"), path("plain.out")));
        EXPECT_EQ(read(path("plain.out")), plain);

        write(path("plain.in"), plain);
        const std::string theirIv = "f0e1d2c3b4a5968778695a4b3c2d1e0f";
        ASSERT_TRUE(enc(false, theirIv, path("plain.in"), path("theirs.bin")));
        Bytes theirs = read(path("theirs.bin"));
        const Bytes iv = fromHex(theirIv);
        theirs.insert(theirs.end(), iv.begin(), iv.end());
        Bytes back;
        EXPECT_EQ(decrypt(theirs, back), static_cast<int32_t>(length));
        EXPECT_EQ(back, plain);
    }
}

// ---- uAesCbcEncrypt / uAesCbcDecrypt ---------------------------------------------------

Bytes decodeText(const char *text) {
    Bytes out(std::strlen(text) + 3);
    const int32_t n = uB64_pton(text, out.data(), static_cast<uint32_t>(out.size()));
    out.resize(static_cast<std::size_t>(n < 0 ? 0 : n));
    return out;
}

TEST(AesCbcText, FormatOfWholeAndPartialBlocks) {
    const Bytes key = fromHex("000102030405060708090a0b0c0d0e0f");
    const Bytes block = fromHex("00112233445566778899aabbccddeeff");
    char text[128];
    // 16 bytes: 32 bytes of text, the cipher block then sixteen zero bytes, not encrypted.
    ASSERT_EQ(uAesCbcEncrypt(key.data(), block.data(), 16, text, sizeof text, nullptr, 128), 44);
    Bytes decoded = decodeText(text);
    ASSERT_EQ(decoded.size(), 32u);
    EXPECT_EQ(toHex(decoded.data(), 16), "69c4e0d86a7b0430d8cdb78070b4c55a");
    EXPECT_EQ(toHex(decoded.data() + 16, 16), std::string(32, '0'));

    // A partial block is completed with zeros before encryption; the vector is raw text.
    const char *ivText = "0123456789abcdefIGNORED";
    const Bytes iv = asBytes("0123456789abcdef");
    const Bytes key256 = fromHex(kKeyHex);
    ASSERT_GT(
        uAesCbcEncrypt(key256.data(), asBytes("hello").data(), 5, text, sizeof text, ivText, 256),
        0);
    Bytes zeroFilled = asBytes("hello");
    zeroFilled.resize(16, 0);
    EXPECT_EQ(decodeText(text), opensslCbc(true, key256, iv, zeroFilled, false));
    // A short vector text is zero-filled.
    ASSERT_GT(uAesCbcEncrypt(key256.data(), block.data(), 3, text, sizeof text, "ab", 256), 0);
    Bytes shortIv = asBytes("ab");
    shortIv.resize(16, 0);
    Bytes three(block.begin(), block.begin() + 3);
    three.resize(16, 0);
    EXPECT_EQ(decodeText(text), opensslCbc(true, key256, shortIv, three, false));
}

TEST(AesCbcText, RoundTripsPaddingAndZeroBytes) {
    const Bytes key = fromHex(kKeyHex.substr(0, 48));
    char text[256];
    uint8_t plain[128];
    // Standard padding is dropped: "abc" and thirteen 13s.
    Bytes padded = asBytes("abc");
    padded.resize(16, 13);
    const Bytes cipherText = opensslCbc(true, key, Bytes(16, 0), padded, false);
    ASSERT_GT(uB64_ntop(cipherText.data(), 16, text, sizeof text), 0);
    EXPECT_EQ(uAesCbcDecrypt(key.data(), text, 64, plain, 100, nullptr, 192), 3);
    EXPECT_STREQ(reinterpret_cast<char *>(plain), "abc");

    // Our own text of a partial block comes back through the zero fill.
    ASSERT_GT(uAesCbcEncrypt(key.data(), asBytes("secret").data(), 6, text, sizeof text, "iv", 192),
              0);
    EXPECT_EQ(uAesCbcDecrypt(key.data(), text, 64, plain, 100, "iv", 192), 6);
    EXPECT_STREQ(reinterpret_cast<char *>(plain), "secret");
    // A whole block comes back with whatever the unencrypted zero block decrypts to behind it.
    const std::string sixteen = "0123456789ABCDEF";
    ASSERT_GT(
        uAesCbcEncrypt(key.data(), asBytes(sixteen).data(), 16, text, sizeof text, nullptr, 192),
        0);
    EXPECT_GE(uAesCbcDecrypt(key.data(), text, 64, plain, 100, nullptr, 192), 16);
    EXPECT_EQ(std::string(reinterpret_cast<char *>(plain), 16), sixteen);
    // Embedded zero bytes cut the result, which is a string length.
    Bytes withZero = asBytes("ab");
    withZero.push_back(0);
    withZero.push_back('c');
    ASSERT_GT(uAesCbcEncrypt(key.data(), withZero.data(), 4, text, sizeof text, nullptr, 192), 0);
    EXPECT_EQ(uAesCbcDecrypt(key.data(), text, 64, plain, 100, nullptr, 192), 2);
}

TEST(AesCbcText, RefusalsAndSizeLimits) {
    const Bytes key = fromHex(kKeyHex);
    const Bytes input = pattern(40, 61);
    char text[128];
    uint8_t plain[128];
    EXPECT_EQ(uAesCbcEncrypt(nullptr, input.data(), 16, text, sizeof text, nullptr, 256), 0);
    EXPECT_EQ(uAesCbcEncrypt(key.data(), nullptr, 16, text, sizeof text, nullptr, 256), 0);
    EXPECT_EQ(uAesCbcEncrypt(key.data(), input.data(), 16, nullptr, 128, nullptr, 256), 0);
    EXPECT_EQ(uAesCbcEncrypt(key.data(), input.data(), 16, text, sizeof text, nullptr, 64), 0);
    // b blocks need b * 64 / 3 + 4 bytes: 25 for one block, 46 for two.
    EXPECT_EQ(uAesCbcEncrypt(key.data(), input.data(), 15, text, 24, nullptr, 256), 0);
    EXPECT_EQ(uAesCbcEncrypt(key.data(), input.data(), 15, text, 25, nullptr, 256), 24);
    EXPECT_EQ(uAesCbcEncrypt(key.data(), input.data(), 16, text, 45, nullptr, 256), 0);
    EXPECT_EQ(uAesCbcEncrypt(key.data(), input.data(), 16, text, 46, nullptr, 256), 44);

    ASSERT_EQ(uAesCbcEncrypt(key.data(), input.data(), 40, text, sizeof text, nullptr, 256), 64);
    EXPECT_EQ(uAesCbcDecrypt(nullptr, text, 64, plain, 100, nullptr, 256), 0);
    EXPECT_EQ(uAesCbcDecrypt(key.data(), nullptr, 64, plain, 100, nullptr, 256), 0);
    EXPECT_EQ(uAesCbcDecrypt(key.data(), text, 64, nullptr, 100, nullptr, 256), 0);
    EXPECT_EQ(uAesCbcDecrypt(key.data(), text, 64, plain, 100, nullptr, 0), 0);
    // 48 bytes decoded: more than the largest accepted length, or than the work buffer.
    EXPECT_EQ(uAesCbcDecrypt(key.data(), text, 64, plain, 47, nullptr, 256), 0);
    EXPECT_EQ(uAesCbcDecrypt(key.data(), text, 47, plain, 100, nullptr, 256), 0);
    EXPECT_GT(uAesCbcDecrypt(key.data(), text, 48, plain, 48, nullptr, 256), 0);
    EXPECT_EQ(uAesCbcDecrypt(key.data(), "not base64!", 64, plain, 100, nullptr, 256), 0);
    // A work size beyond what can be allocated is refused, not cut to a small buffer.
    EXPECT_EQ(uAesCbcDecrypt(key.data(), text, 0xFFFFFFF8u, plain, 100, nullptr, 256), 0);
    EXPECT_EQ(uAesCbcDecrypt(key.data(), "", 64, plain, 100, nullptr, 256), 0);
}

} // namespace
