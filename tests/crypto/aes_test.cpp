// SPDX-License-Identifier: MIT
// The block interface against published vectors and OpenSSL, and both wrapper pairs: formats,
// 64 KiB piece boundaries, refusals. What padDecrypt and the wrappers may return for arbitrary
// cipher text is the aes_* fuzz targets' to check.
#include <uaes.h>
#include <ub64.h>

#include "crypto_test_util.hpp"

#include <cstring>
#include <sys/mman.h>
#include <unistd.h>

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
    Aes enc(0, U_AES_MODE_CBC), dec(1, U_AES_MODE_CBC), cfbEnc(0, 3);
    keyInstance key{};
    cipherInstance cipher{};
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
        PU_ROW(makeKey(&key, 2, 128, k), U_AES_BAD_KEY_DIR),
        PU_ROW(makeKey(&key, 0, 64, k), U_AES_BAD_KEY_MAT),
        PU_ROW(makeKey(&key, 0, 128, "000102030405060708090A0B0C0D0E0Fzz"), U_AES_SUCCESS),
        PU_ROW(key.keyMaterial, "000102030405060708090A0B0C0D0E0F"), // only keyLen / 4 read
        PU_ROW(makeKey(&key, 1, 128, nullptr), U_AES_SUCCESS),       // reuses the record's text
        PU_ROW(cipherInit(&cipher, 0, nullptr), U_AES_BAD_CIPHER_MODE),
        PU_ROW(blockEncrypt(&dec.cipher, &dec.key, b, 16, b), U_AES_BAD_CIPHER_STATE),
        PU_ROW(blockDecrypt(&enc.cipher, &enc.key, b, 16, b), U_AES_BAD_CIPHER_STATE),
        PU_ROW(padEncrypt(&cfbEnc.cipher, &cfbEnc.key, b, 16, b), U_AES_BAD_CIPHER_STATE),
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

} // namespace
