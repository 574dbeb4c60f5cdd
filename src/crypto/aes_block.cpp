// SPDX-License-Identifier: MIT
// The Rijndael block interface: key and cipher instances, ECB, CBC and one-bit CFB,
// and padding. Whole runs of ECB and CBC blocks and CFB-1 go to OpenSSL. Single blocks run on
// the CPU's AES instructions when it has them; only without them do they fall back to lookup
// tables, whose cache footprint depends on key and data. The key schedule is computed without
// any table indexed by key bytes.
#include <uaes.h>
#include <ustrconv.h>

#include "crypto/openssl_algorithms.hpp"

#include <array>
#include <bit>
#include <cstddef>
#include <cstdint>
#include <cstring>
#include <utility>

#if defined(__x86_64__) || defined(__i386__)
#include <wmmintrin.h>
#define PU_AES_NI 1
#endif

namespace {

constexpr int kBlock = U_AES_BLOCK_SIZE;

// ---- Tables, built by the compiler -----------------------------------------------------

constexpr std::uint8_t xtime(std::uint8_t x) {
    return static_cast<std::uint8_t>((x << 1) ^ ((x & 0x80) != 0 ? 0x1B : 0));
}

constexpr std::uint8_t multiply(std::uint8_t a, std::uint8_t b) {
    std::uint8_t product = 0;
    for (; b != 0; b >>= 1, a = xtime(a)) {
        if ((b & 1) != 0) {
            product ^= a;
        }
    }
    return product;
}

constexpr auto kSbox = [] {
    std::array<std::uint8_t, 256> box{};
    // p walks the field by multiplying with 3, q by dividing by 3, so q is p's inverse.
    std::uint8_t p = 1, q = 1;
    do {
        p = static_cast<std::uint8_t>(p ^ (p << 1) ^ ((p & 0x80) != 0 ? 0x1B : 0));
        q ^= static_cast<std::uint8_t>(q << 1);
        q ^= static_cast<std::uint8_t>(q << 2);
        q ^= static_cast<std::uint8_t>(q << 4);
        if ((q & 0x80) != 0) {
            q ^= 0x09;
        }
        box[p] = static_cast<std::uint8_t>(q ^ std::rotl(q, 1) ^ std::rotl(q, 2) ^ std::rotl(q, 3) ^
                                           std::rotl(q, 4) ^ 0x63);
    } while (p != 1);
    box[0] = 0x63;
    return box;
}();

constexpr auto kInverseSbox = [] {
    std::array<std::uint8_t, 256> box{};
    for (std::size_t i = 0; i < 256; ++i) {
        box[kSbox[i]] = static_cast<std::uint8_t>(i);
    }
    return box;
}();

constexpr std::uint32_t column(std::uint8_t a, std::uint8_t b, std::uint8_t c, std::uint8_t d) {
    return std::uint32_t{a} << 24 | std::uint32_t{b} << 16 | std::uint32_t{c} << 8 | d;
}

// SubBytes and MixColumns of one byte in the first row; the other rows are rotations.
constexpr auto kEncryptTable = [] {
    std::array<std::uint32_t, 256> table{};
    for (std::size_t i = 0; i < 256; ++i) {
        const std::uint8_t s = kSbox[i];
        table[i] = column(multiply(s, 2), s, s, multiply(s, 3));
    }
    return table;
}();

constexpr auto kDecryptTable = [] {
    std::array<std::uint32_t, 256> table{};
    for (std::size_t i = 0; i < 256; ++i) {
        const std::uint8_t s = kInverseSbox[i];
        table[i] = column(multiply(s, 14), multiply(s, 9), multiply(s, 13), multiply(s, 11));
    }
    return table;
}();

constexpr std::uint32_t te(int row, std::uint32_t byte) {
    return std::rotr(kEncryptTable[byte & 0xFF], 8 * row);
}
constexpr std::uint32_t td(int row, std::uint32_t byte) {
    return std::rotr(kDecryptTable[byte & 0xFF], 8 * row);
}

std::uint32_t loadBig(const std::uint8_t *p) {
    return column(p[0], p[1], p[2], p[3]);
}

void storeBig(std::uint8_t *p, std::uint32_t value) {
    p[0] = static_cast<std::uint8_t>(value >> 24);
    p[1] = static_cast<std::uint8_t>(value >> 16);
    p[2] = static_cast<std::uint8_t>(value >> 8);
    p[3] = static_cast<std::uint8_t>(value);
}

// ---- Field arithmetic without key-dependent branches or lookups, for the key schedule ----

std::uint8_t xtimeFlat(std::uint8_t x) {
    const auto high = static_cast<std::uint8_t>(0U - (x >> 7));
    return static_cast<std::uint8_t>((x << 1) ^ (high & 0x1B));
}

std::uint8_t multiplyFlat(std::uint8_t a, std::uint8_t b) {
    std::uint8_t product = 0;
    for (int bit = 0; bit < 8; ++bit, b >>= 1, a = xtimeFlat(a)) {
        product ^= static_cast<std::uint8_t>(a & (0U - (b & 1U)));
    }
    return product;
}

// x^254, the multiplicative inverse (0 for 0), then the S-box's affine map.
std::uint8_t sboxFlat(std::uint8_t x) {
    const std::uint8_t x2 = multiplyFlat(x, x);
    const std::uint8_t x3 = multiplyFlat(x2, x);
    const std::uint8_t x6 = multiplyFlat(x3, x3);
    const std::uint8_t x12 = multiplyFlat(x6, x6);
    const std::uint8_t x15 = multiplyFlat(x12, x3);
    const std::uint8_t x30 = multiplyFlat(x15, x15);
    const std::uint8_t x60 = multiplyFlat(x30, x30);
    const std::uint8_t x120 = multiplyFlat(x60, x60);
    const std::uint8_t x126 = multiplyFlat(x120, x6);
    const std::uint8_t x127 = multiplyFlat(x126, x);
    const std::uint8_t q = multiplyFlat(x127, x127);
    return static_cast<std::uint8_t>(q ^ std::rotl(q, 1) ^ std::rotl(q, 2) ^ std::rotl(q, 3) ^
                                     std::rotl(q, 4) ^ 0x63);
}

std::uint32_t subWord(std::uint32_t w) {
    return column(
        sboxFlat(static_cast<std::uint8_t>(w >> 24)), sboxFlat(static_cast<std::uint8_t>(w >> 16)),
        sboxFlat(static_cast<std::uint8_t>(w >> 8)), sboxFlat(static_cast<std::uint8_t>(w)));
}

std::uint32_t invMixColumn(std::uint32_t w) {
    const std::uint8_t a[4] = {static_cast<std::uint8_t>(w >> 24),
                               static_cast<std::uint8_t>(w >> 16),
                               static_cast<std::uint8_t>(w >> 8), static_cast<std::uint8_t>(w)};
    std::uint8_t b[4];
    for (int i = 0; i < 4; ++i) {
        b[i] = static_cast<std::uint8_t>(multiplyFlat(a[i], 14) ^ multiplyFlat(a[(i + 1) & 3], 11) ^
                                         multiplyFlat(a[(i + 2) & 3], 13) ^
                                         multiplyFlat(a[(i + 3) & 3], 9));
    }
    return column(b[0], b[1], b[2], b[3]);
}

// ---- AES instructions ------------------------------------------------------------------

#ifdef PU_AES_NI
bool hasAesInstructions() {
    static const bool has = __builtin_cpu_supports("aes") && __builtin_cpu_supports("sse2");
    return has;
}

// The round keys are big-endian words; the instructions want the bytes in order.
__attribute__((target("aes,sse2"))) __m128i roundKey(const std::uint32_t *rk) {
    alignas(16) std::uint8_t bytes[kBlock];
    for (int i = 0; i < 4; ++i) {
        storeBig(bytes + 4 * i, rk[i]);
    }
    return _mm_load_si128(reinterpret_cast<const __m128i *>(bytes));
}

// The same round structure as the table code, for any Nr: Nr - 1 full rounds, then the last
// round with the key after them. Decryption round keys are the equivalent inverse cipher's,
// which is what the decryption instructions take.
__attribute__((target("aes,sse2"))) void cryptBlockNi(const std::uint32_t *rk, int Nr, bool encrypt,
                                                      const std::uint8_t *in, std::uint8_t *out) {
    __m128i state =
        _mm_xor_si128(_mm_loadu_si128(reinterpret_cast<const __m128i *>(in)), roundKey(rk));
    for (int round = 1; round < Nr; ++round) {
        const __m128i key = roundKey(rk + 4 * round);
        state = encrypt ? _mm_aesenc_si128(state, key) : _mm_aesdec_si128(state, key);
    }
    const __m128i last = roundKey(rk + 4 * (Nr > 1 ? Nr : 1));
    state = encrypt ? _mm_aesenclast_si128(state, last) : _mm_aesdeclast_si128(state, last);
    _mm_storeu_si128(reinterpret_cast<__m128i *>(out), state);
}
#endif

int roundsFor(int keyBits) {
    return keyBits == 128 ? 10 : keyBits == 192 ? 12 : keyBits == 256 ? 14 : 0;
}

// ---- Modes -----------------------------------------------------------------------------

void xorBlock(std::uint8_t *target, const std::uint8_t *with) {
    for (int i = 0; i < kBlock; ++i) {
        target[i] ^= with[i];
    }
}

// The raw key, which the first words of the encryption round keys are.
void rawKey(const keyInstance *key, std::uint8_t (&out)[32]) {
    const int words = key->keyLen == 128 ? 4 : key->keyLen == 192 ? 6 : 8;
    for (int i = 0; i < words; ++i) {
        storeBig(out + 4 * i, key->ek[i]);
    }
}

// ECB or CBC over whole blocks from in to out (may be the same), the chain starting at iv. The
// chaining value is not written back; callers do that where the mode requires it.
void runBlocks(const keyInstance *key, bool encrypt, bool cbc, const std::uint8_t *iv,
               const std::uint8_t *in, std::size_t length, std::uint8_t *out) {
    if (length == 0) {
        return;
    }
    std::uint8_t raw[32];
    rawKey(key, raw);
    const bool done = pu::crypto::cipherBlocks(pu::crypto::aesCipher(key->keyLen, cbc), encrypt,
                                               raw, cbc ? iv : nullptr, in, length, out);
    std::memset(raw, 0, sizeof raw);
    if (done) {
        return;
    }
    std::uint8_t chain[kBlock];
    std::memcpy(chain, iv, kBlock);
    for (std::size_t at = 0; at < length; at += kBlock) {
        std::uint8_t block[kBlock];
        std::memcpy(block, in + at, kBlock);
        if (encrypt) {
            if (cbc) {
                xorBlock(block, chain);
            }
            rijndaelEncrypt(key->ek, key->Nr, block, out + at);
            std::memcpy(chain, out + at, kBlock);
        } else {
            rijndaelDecrypt(key->rk, key->Nr, block, out + at);
            if (cbc) {
                xorBlock(out + at, chain);
            }
            std::memcpy(chain, block, kBlock);
        }
    }
}

// One-bit cipher feedback: the chaining value is a shift register that takes in each cipher
// bit, so it is kept in the instance in both directions and a stream can go on across calls.
void runCfb1(cipherInstance *cipher, const keyInstance *key, bool encrypt, const std::uint8_t *in,
             std::size_t length, std::uint8_t *out) {
    if (length == 0) {
        return;
    }
    std::uint8_t raw[32];
    rawKey(key, raw);
    std::uint8_t shiftRegister[kBlock];
    const bool done = pu::crypto::cipherBlocks(pu::crypto::aesCfb1Cipher(key->keyLen), encrypt, raw,
                                               cipher->IV, in, length, out, shiftRegister);
    std::memset(raw, 0, sizeof raw);
    if (done) {
        std::memcpy(cipher->IV, shiftRegister, kBlock);
        return;
    }
    // OpenSSL could not run (no memory): one block encryption per bit.
    std::uint8_t *iv = cipher->IV;
    for (std::size_t bit = 0; bit < 8 * length; ++bit) {
        std::uint8_t keystream[kBlock];
        rijndaelEncrypt(key->ek, key->Nr, iv, keystream);
        const std::size_t byte = bit / 8;
        const int shift = 7 - static_cast<int>(bit % 8);
        const int inBit = (in[byte] >> shift) & 1;
        const int outBit = inBit ^ (keystream[0] >> 7);
        const int cipherBit = encrypt ? outBit : inBit;
        out[byte] = static_cast<std::uint8_t>((out[byte] & ~(1 << shift)) | (outBit << shift));
        for (int t = 0; t < kBlock - 1; ++t) {
            iv[t] = static_cast<std::uint8_t>(iv[t] << 1 | iv[t + 1] >> 7);
        }
        iv[kBlock - 1] = static_cast<std::uint8_t>(iv[kBlock - 1] << 1 | cipherBit);
    }
}

// Reads count bytes from 2 * count hexadecimal characters.
bool parseHex(const char *text, std::size_t count, std::uint8_t *out) {
    for (std::size_t i = 0; i < count; ++i) {
        const int high = uStrHexCharToInteger(static_cast<unsigned char>(text[2 * i]));
        const int low =
            high < 0 ? -1 : uStrHexCharToInteger(static_cast<unsigned char>(text[2 * i + 1]));
        if (low < 0) {
            return false;
        }
        out[i] = static_cast<std::uint8_t>(high << 4 | low);
    }
    return true;
}

bool blockMode(std::uint8_t mode) {
    return mode == U_AES_MODE_ECB || mode == U_AES_MODE_CBC;
}

} // namespace

extern "C" {

int rijndaelKeySetupEnc(uint32_t rk[], const uint8_t cipherKey[], int keyBits) {
    const int rounds = roundsFor(keyBits);
    if (rounds == 0) {
        return 0;
    }
    const int words = keyBits / 32;
    for (int i = 0; i < words; ++i) {
        rk[i] = loadBig(cipherKey + 4 * i);
    }
    std::uint32_t rcon = 1;
    for (int i = words; i < 4 * (rounds + 1); ++i) {
        std::uint32_t temp = rk[i - 1];
        if (i % words == 0) {
            temp = subWord(std::rotl(temp, 8)) ^ rcon << 24;
            rcon = xtime(static_cast<std::uint8_t>(rcon));
        } else if (words == 8 && i % words == 4) {
            temp = subWord(temp);
        }
        rk[i] = rk[i - words] ^ temp;
    }
    return rounds;
}

int rijndaelKeySetupDec(uint32_t rk[], const uint8_t cipherKey[], int keyBits) {
    const int rounds = rijndaelKeySetupEnc(rk, cipherKey, keyBits);
    // The equivalent inverse cipher: round keys in reverse order, the inner ones passed
    // through InvMixColumns so decryption rounds have the same shape as encryption rounds.
    for (int i = 0, j = 4 * rounds; i < j; i += 4, j -= 4) {
        for (int k = 0; k < 4; ++k) {
            std::swap(rk[i + k], rk[j + k]);
        }
    }
    for (int i = 4; i < 4 * rounds; ++i) {
        rk[i] = invMixColumn(rk[i]);
    }
    return rounds;
}

void rijndaelEncrypt(const uint32_t rk[], int Nr, const uint8_t pt[16], uint8_t ct[16]) {
#ifdef PU_AES_NI
    if (hasAesInstructions()) {
        cryptBlockNi(rk, Nr, true, pt, ct);
        return;
    }
#endif
    std::uint32_t s[4], t[4];
    for (int i = 0; i < 4; ++i) {
        s[i] = loadBig(pt + 4 * i) ^ rk[i];
    }
    for (int round = 1; round < Nr; ++round) {
        rk += 4;
        for (int i = 0; i < 4; ++i) {
            t[i] = te(0, s[i] >> 24) ^ te(1, s[(i + 1) & 3] >> 16) ^ te(2, s[(i + 2) & 3] >> 8) ^
                   te(3, s[(i + 3) & 3]) ^ rk[i];
        }
        std::memcpy(s, t, sizeof s);
    }
    rk += 4;
    for (int i = 0; i < 4; ++i) {
        storeBig(ct + 4 * i,
                 column(kSbox[s[i] >> 24], kSbox[(s[(i + 1) & 3] >> 16) & 0xFF],
                        kSbox[(s[(i + 2) & 3] >> 8) & 0xFF], kSbox[s[(i + 3) & 3] & 0xFF]) ^
                     rk[i]);
    }
}

void rijndaelDecrypt(const uint32_t rk[], int Nr, const uint8_t ct[16], uint8_t pt[16]) {
#ifdef PU_AES_NI
    if (hasAesInstructions()) {
        cryptBlockNi(rk, Nr, false, ct, pt);
        return;
    }
#endif
    std::uint32_t s[4], t[4];
    for (int i = 0; i < 4; ++i) {
        s[i] = loadBig(ct + 4 * i) ^ rk[i];
    }
    for (int round = 1; round < Nr; ++round) {
        rk += 4;
        for (int i = 0; i < 4; ++i) {
            t[i] = td(0, s[i] >> 24) ^ td(1, s[(i + 3) & 3] >> 16) ^ td(2, s[(i + 2) & 3] >> 8) ^
                   td(3, s[(i + 1) & 3]) ^ rk[i];
        }
        std::memcpy(s, t, sizeof s);
    }
    rk += 4;
    for (int i = 0; i < 4; ++i) {
        storeBig(pt + 4 * i,
                 column(kInverseSbox[s[i] >> 24], kInverseSbox[(s[(i + 3) & 3] >> 16) & 0xFF],
                        kInverseSbox[(s[(i + 2) & 3] >> 8) & 0xFF],
                        kInverseSbox[s[(i + 1) & 3] & 0xFF]) ^
                     rk[i]);
    }
}

int makeKey(keyInstance *key, uint8_t direction, int keyLen, const char *keyMaterial) {
    if (key == nullptr) {
        return U_AES_BAD_KEY_INSTANCE;
    }
    if (direction != U_AES_DIR_ENCRYPT && direction != U_AES_DIR_DECRYPT) {
        return U_AES_BAD_KEY_DIR;
    }
    if (roundsFor(keyLen) == 0) {
        return U_AES_BAD_KEY_MAT;
    }
    key->direction = direction;
    key->keyLen = keyLen;
    if (keyMaterial != nullptr) {
        // At most keyLen / 4 characters; a shorter text leaves zeros, which fail below.
        std::memset(key->keyMaterial, 0, sizeof key->keyMaterial);
        std::strncpy(key->keyMaterial, keyMaterial, static_cast<std::size_t>(keyLen / 4));
    }
    std::uint8_t raw[32];
    if (!parseHex(key->keyMaterial, static_cast<std::size_t>(keyLen / 8), raw)) {
        return U_AES_BAD_KEY_MAT;
    }
    key->Nr = direction == U_AES_DIR_ENCRYPT ? rijndaelKeySetupEnc(key->rk, raw, keyLen)
                                             : rijndaelKeySetupDec(key->rk, raw, keyLen);
    rijndaelKeySetupEnc(key->ek, raw, keyLen);
    std::memset(raw, 0, sizeof raw);
    return U_AES_SUCCESS;
}

int cipherInit(cipherInstance *cipher, uint8_t mode, const char *IV) {
    if (cipher == nullptr) {
        return U_AES_BAD_CIPHER_INSTANCE;
    }
    if (!blockMode(mode) && mode != U_AES_MODE_CFB1) {
        return U_AES_BAD_CIPHER_MODE;
    }
    cipher->mode = mode;
    std::uint8_t iv[kBlock] = {};
    if (IV != nullptr && !parseHex(IV, kBlock, iv)) {
        return U_AES_BAD_CIPHER_INSTANCE;
    }
    std::memcpy(cipher->IV, iv, kBlock);
    return U_AES_SUCCESS;
}

int blockEncrypt(cipherInstance *cipher, keyInstance *key, const uint8_t *input, int inputLen,
                 uint8_t *outBuffer) {
    if (cipher == nullptr || key == nullptr || key->direction == U_AES_DIR_DECRYPT) {
        return U_AES_BAD_CIPHER_STATE;
    }
    if (input == nullptr || outBuffer == nullptr || inputLen <= 0) {
        return 0;
    }
    const std::size_t length = static_cast<std::size_t>(inputLen) / kBlock * kBlock;
    if (blockMode(cipher->mode)) {
        // CBC starts from the instance's vector but leaves it as it was.
        runBlocks(key, true, cipher->mode == U_AES_MODE_CBC, cipher->IV, input, length, outBuffer);
    } else if (cipher->mode == U_AES_MODE_CFB1) {
        runCfb1(cipher, key, true, input, length, outBuffer);
    } else {
        return U_AES_BAD_CIPHER_STATE;
    }
    return static_cast<int>(length);
}

int padEncrypt(cipherInstance *cipher, keyInstance *key, const uint8_t *input, int inputOctets,
               uint8_t *outBuffer) {
    if (cipher == nullptr || key == nullptr || key->direction == U_AES_DIR_DECRYPT) {
        return U_AES_BAD_CIPHER_STATE;
    }
    if (input == nullptr || outBuffer == nullptr || inputOctets < 0) {
        return 0;
    }
    if (!blockMode(cipher->mode)) {
        return U_AES_BAD_CIPHER_STATE;
    }
    const bool cbc = cipher->mode == U_AES_MODE_CBC;
    const std::size_t whole = static_cast<std::size_t>(inputOctets) / kBlock * kBlock;
    const std::size_t rest = static_cast<std::size_t>(inputOctets) - whole;
    // Built before the whole blocks are written: outBuffer may be input itself.
    std::uint8_t last[kBlock];
    std::memcpy(last, input + whole, rest);
    std::memset(last + rest, static_cast<int>(kBlock - rest), kBlock - rest);
    runBlocks(key, true, cbc, cipher->IV, input, whole, outBuffer);
    const std::uint8_t *chain = whole > 0 ? outBuffer + whole - kBlock : cipher->IV;
    runBlocks(key, true, cbc, chain, last, kBlock, outBuffer + whole);
    return static_cast<int>(whole + kBlock);
}

int blockDecrypt(cipherInstance *cipher, keyInstance *key, const uint8_t *input, int inputLen,
                 uint8_t *outBuffer) {
    if (cipher == nullptr || key == nullptr ||
        (cipher->mode != U_AES_MODE_CFB1 && key->direction == U_AES_DIR_ENCRYPT)) {
        return U_AES_BAD_CIPHER_STATE;
    }
    if (input == nullptr || outBuffer == nullptr || inputLen <= 0) {
        return 0;
    }
    const std::size_t length = static_cast<std::size_t>(inputLen) / kBlock * kBlock;
    if (blockMode(cipher->mode)) {
        const bool cbc = cipher->mode == U_AES_MODE_CBC;
        std::uint8_t lastCipher[kBlock] = {};
        if (length > 0) {
            std::memcpy(lastCipher, input + length - kBlock, kBlock);
        }
        runBlocks(key, false, cbc, cipher->IV, input, length, outBuffer);
        if (cbc && length > 0) {
            std::memcpy(cipher->IV, lastCipher, kBlock);
        }
    } else if (cipher->mode == U_AES_MODE_CFB1) {
        runCfb1(cipher, key, false, input, length, outBuffer);
    } else {
        return U_AES_BAD_CIPHER_STATE;
    }
    return static_cast<int>(length);
}

int padDecrypt(cipherInstance *cipher, keyInstance *key, const uint8_t *input, int inputOctets,
               uint8_t *outBuffer) {
    if (cipher == nullptr || key == nullptr || key->direction == U_AES_DIR_ENCRYPT) {
        return U_AES_BAD_CIPHER_STATE;
    }
    if (input == nullptr || outBuffer == nullptr || inputOctets <= 0) {
        return 0;
    }
    if (inputOctets % kBlock != 0) {
        return U_AES_BAD_DATA;
    }
    if (!blockMode(cipher->mode)) {
        return U_AES_BAD_CIPHER_STATE;
    }
    const bool cbc = cipher->mode == U_AES_MODE_CBC;
    const std::size_t whole = static_cast<std::size_t>(inputOctets) - kBlock;
    // Saved first: outBuffer may be input itself.
    std::uint8_t lastCipher[kBlock];
    std::uint8_t chain[kBlock];
    std::memcpy(lastCipher, input + whole, kBlock);
    std::memcpy(chain, whole > 0 ? input + whole - kBlock : cipher->IV, kBlock);
    runBlocks(key, false, cbc, cipher->IV, input, whole, outBuffer);
    // Intended: the chain moves through every block but the last, so a caller who decrypts
    // the last block once more gets the same plain block again; uAesDecrypt's re-read of its
    // last piece depends on it.
    if (cbc) {
        std::memcpy(cipher->IV, chain, kBlock);
    }
    std::uint8_t last[kBlock];
    runBlocks(key, false, cbc, chain, lastCipher, kBlock, last);
    const int pad = last[kBlock - 1];
    // CBC: 1..16. ECB: 0..15. Intended: an ECB block made only of padding is refused, so ECB
    // callers keep their plain lengths off multiples of 16 or remove the padding themselves.
    const bool padInRange = cbc ? pad >= 1 && pad <= kBlock : pad < kBlock;
    if (!padInRange) {
        return U_AES_BAD_DATA;
    }
    for (int i = kBlock - pad; i < kBlock; ++i) {
        if (last[i] != pad) {
            return U_AES_BAD_DATA;
        }
    }
    std::memcpy(outBuffer + whole, last, static_cast<std::size_t>(kBlock - pad));
    return static_cast<int>(whole) + kBlock - pad;
}

} // extern "C"
