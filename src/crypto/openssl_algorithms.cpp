// SPDX-License-Identifier: MIT
// Process-wide fetched OpenSSL algorithms and per-thread contexts for the crypto families.
#include "crypto/openssl_algorithms.hpp"

#include <climits>
#include <memory>

namespace pu::crypto {

namespace {

// Fetched objects are never freed: threads may still hash while the process exits.
const EVP_MD *fetchDigest(const char *name) {
    return EVP_MD_fetch(nullptr, name, nullptr);
}

const EVP_CIPHER *fetchCipher(const char *name) {
    return EVP_CIPHER_fetch(nullptr, name, nullptr);
}

struct DigestContextFree {
    void operator()(EVP_MD_CTX *ctx) const { EVP_MD_CTX_free(ctx); }
};
struct CipherContextFree {
    void operator()(EVP_CIPHER_CTX *ctx) const { EVP_CIPHER_CTX_free(ctx); }
};

EVP_MD_CTX *threadDigestContext() {
    thread_local std::unique_ptr<EVP_MD_CTX, DigestContextFree> ctx(EVP_MD_CTX_new());
    return ctx.get();
}

EVP_CIPHER_CTX *threadCipherContext() {
    thread_local std::unique_ptr<EVP_CIPHER_CTX, CipherContextFree> ctx(EVP_CIPHER_CTX_new());
    return ctx.get();
}

} // namespace

const EVP_MD *sha1() {
    static const EVP_MD *const md = fetchDigest("SHA1");
    return md;
}

const EVP_MD *sha256() {
    static const EVP_MD *const md = fetchDigest("SHA2-256");
    return md;
}

const EVP_MD *md5() {
    static const EVP_MD *const md = fetchDigest("MD5");
    return md;
}

EVP_MAC *hmac() {
    static EVP_MAC *const mac = EVP_MAC_fetch(nullptr, "HMAC", nullptr);
    return mac;
}

const EVP_CIPHER *aesCipher(int keyBits, bool cbc) {
    static const EVP_CIPHER *const ecb[] = {fetchCipher("AES-128-ECB"), fetchCipher("AES-192-ECB"),
                                            fetchCipher("AES-256-ECB")};
    static const EVP_CIPHER *const chained[] = {
        fetchCipher("AES-128-CBC"), fetchCipher("AES-192-CBC"), fetchCipher("AES-256-CBC")};
    const int index = keyBits == 128 ? 0 : keyBits == 192 ? 1 : keyBits == 256 ? 2 : -1;
    if (index < 0) {
        return nullptr;
    }
    return cbc ? chained[index] : ecb[index];
}

const EVP_CIPHER *aesCfb1Cipher(int keyBits) {
    static const EVP_CIPHER *const cfb1[] = {
        fetchCipher("AES-128-CFB1"), fetchCipher("AES-192-CFB1"), fetchCipher("AES-256-CFB1")};
    const int index = keyBits == 128 ? 0 : keyBits == 192 ? 1 : keyBits == 256 ? 2 : -1;
    return index < 0 ? nullptr : cfb1[index];
}

bool digestPieces(const EVP_MD *md, std::initializer_list<std::span<const std::uint8_t>> pieces,
                  std::uint8_t *out) {
    EVP_MD_CTX *ctx = threadDigestContext();
    if (md == nullptr || ctx == nullptr || EVP_DigestInit_ex2(ctx, md, nullptr) != 1) {
        return false;
    }
    for (const auto &piece : pieces) {
        if (!piece.empty() && EVP_DigestUpdate(ctx, piece.data(), piece.size()) != 1) {
            return false;
        }
    }
    return EVP_DigestFinal_ex(ctx, out, nullptr) == 1;
}

bool cipherBlocks(const EVP_CIPHER *cipher, bool encrypt, const std::uint8_t *key,
                  const std::uint8_t *iv, const std::uint8_t *in, std::size_t length,
                  std::uint8_t *out, std::uint8_t *ivOut) {
    EVP_CIPHER_CTX *ctx = threadCipherContext();
    if (cipher == nullptr || ctx == nullptr ||
        EVP_CipherInit_ex2(ctx, cipher, key, iv, encrypt ? 1 : 0, nullptr) != 1) {
        return false;
    }
    EVP_CIPHER_CTX_set_padding(ctx, 0);
    while (length > 0) {
        // EVP counts in int; feed large buffers in pieces.
        const int piece = length > INT_MAX / 2 ? (INT_MAX / 2) & ~15 : static_cast<int>(length);
        int written = 0;
        if (EVP_CipherUpdate(ctx, out, &written, in, piece) != 1 || written != piece) {
            return false;
        }
        in += piece;
        out += piece;
        length -= static_cast<std::size_t>(piece);
    }
    return ivOut == nullptr || EVP_CIPHER_CTX_get_updated_iv(ctx, ivOut, 16) == 1;
}

} // namespace pu::crypto
