// SPDX-License-Identifier: MIT
// MD5, SHA-256 and HMAC-SHA-256 wrappers, and lower-case hexadecimal text of bytes and back.
#include <udigest.h>
#include <ustrconv.h>

#include "crypto/openssl_algorithms.hpp"

#include <openssl/core_names.h>
#include <openssl/params.h>

#include <cstdint>
#include <cstring>
#include <memory>
#include <span>

namespace {

constexpr std::uint32_t kMd5Size = 16;
constexpr std::uint32_t kSha256Size = 32;
constexpr std::uint32_t kHmacKeyMinimum = 32;

constexpr char kHexDigits[] = "0123456789abcdef";

// Two lower-case digits per byte, as "%02x" writes them, without a terminator.
void writeHex(const std::uint8_t *bytes, std::size_t count, char *text) {
    for (std::size_t i = 0; i < count; ++i) {
        text[2 * i] = kHexDigits[bytes[i] >> 4];
        text[2 * i + 1] = kHexDigits[bytes[i] & 0x0F];
    }
}

struct MacContextFree {
    void operator()(EVP_MAC_CTX *ctx) const { EVP_MAC_CTX_free(ctx); }
};

// An HMAC-SHA-256 context per thread, re-keyed by each call: setting the digest by name costs
// more than the MAC of a short message.
EVP_MAC_CTX *threadHmacContext() {
    thread_local const std::unique_ptr<EVP_MAC_CTX, MacContextFree> ctx = [] {
        std::unique_ptr<EVP_MAC_CTX, MacContextFree> made(EVP_MAC_CTX_new(pu::crypto::hmac()));
        char digestName[] = "SHA2-256";
        const OSSL_PARAM params[] = {
            OSSL_PARAM_construct_utf8_string(OSSL_MAC_PARAM_DIGEST, digestName, 0),
            OSSL_PARAM_construct_end()};
        if (made && EVP_MAC_CTX_set_params(made.get(), params) != 1) {
            made.reset();
        }
        return made;
    }();
    return ctx.get();
}

} // namespace

extern "C" {

int32_t uDigestToStr(const uint8_t *digest, char *text, int32_t size) {
    // Intended: 40, not 33, as the header states; a smaller buffer gets nothing.
    if (digest == nullptr || text == nullptr || size < 40) {
        return 0;
    }
    writeHex(digest, kMd5Size, text);
    text[2 * kMd5Size] = '\0';
    return 1;
}

int32_t uHexToStr(const uint8_t *bytes, int32_t count, char *text, int32_t size) {
    if (bytes == nullptr || text == nullptr || size < 1 ||
        static_cast<int64_t>(size) <= 2 * static_cast<int64_t>(count)) {
        return 0;
    }
    const std::size_t written = count > 0 ? static_cast<std::size_t>(count) : 0;
    writeHex(bytes, written, text);
    text[2 * written] = '\0';
    return 1;
}

int32_t uStrToHex(const char *hex, uint8_t *output, uint32_t size) {
    if (hex == nullptr || output == nullptr || *hex == '\0' || size == 0) {
        return 0;
    }
    const std::size_t length = std::strlen(hex);
    uint32_t stored = 0;
    for (std::size_t at = 0; at < length && stored < size; at += 2) {
        // Intended: each piece goes through uStrTol, so the library's one set of number rules
        // (blanks stripped, a sign allowed) applies per pair.
        const char piece[3] = {hex[at], at + 1 < length ? hex[at + 1] : '\0', '\0'};
        long value = 0;
        if (uStrTol(piece, &value, 16) != 0) {
            break;
        }
        output[stored++] = static_cast<uint8_t>(value);
    }
    return static_cast<int32_t>(stored);
}

int32_t uDigestSha256it(const uint8_t *data, uint32_t length, uint8_t *output,
                        uint32_t outputSize) {
    if (data == nullptr || output == nullptr || outputSize < kSha256Size) {
        return -1;
    }
    pu::crypto::digestPieces(pu::crypto::sha256(), {std::span(data, length)}, output);
    return 0;
}

void uDigestMD5(const uint8_t *data, uint32_t length, uint8_t *output, uint32_t outputSize) {
    if (data == nullptr || length == 0 || output == nullptr || outputSize < kMd5Size) {
        return;
    }
    pu::crypto::digestPieces(pu::crypto::md5(), {std::span(data, length)}, output);
}

int32_t uDigestCalculateHex(const uint8_t *data, uint32_t length, char *text, int32_t size) {
    // 32 hexadecimal digits and the terminator.
    if (data == nullptr || text == nullptr || size < static_cast<int32_t>(2 * kMd5Size + 1)) {
        return -1;
    }
    uint8_t digest[kMd5Size] = {};
    uDigestMD5(data, length, digest, sizeof digest);
    writeHex(digest, kMd5Size, text);
    text[2 * kMd5Size] = '\0';
    return 0;
}

int32_t uDigestHmacSha256it(const uint8_t *data, uint32_t length, const uint8_t *key,
                            uint32_t keyLength, uint8_t *output, uint32_t *outputLength) {
    if (data == nullptr || output == nullptr || outputLength == nullptr ||
        *outputLength < kSha256Size || key == nullptr || keyLength < kHmacKeyMinimum) {
        return -1;
    }
    EVP_MAC_CTX *ctx = threadHmacContext();
    if (ctx == nullptr) {
        return -1;
    }
    // With a valid key these cannot fail short of memory, which the context above has already
    // met; their results are not looked at.
    EVP_MAC_init(ctx, key, keyLength, nullptr);
    EVP_MAC_update(ctx, data, length);
    size_t written = 0;
    EVP_MAC_final(ctx, output, &written, *outputLength);
    *outputLength = static_cast<uint32_t>(written);
    return 0;
}

} // extern "C"
