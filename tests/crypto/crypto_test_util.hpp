// SPDX-License-Identifier: MIT
// Helpers for the crypto and codec tests: hexadecimal literals, reproducible data, and OpenSSL's
// EVP interface as an independent oracle.
#pragma once

#include <openssl/evp.h>

#include <cstdint>
#include <random>
#include <stdexcept>
#include <string>
#include <vector>

namespace pu::test {

using Bytes = std::vector<std::uint8_t>;

inline Bytes fromHex(const std::string &hex) {
    Bytes out;
    for (std::size_t i = 0; i + 1 < hex.size(); i += 2) {
        out.push_back(static_cast<std::uint8_t>(std::stoul(hex.substr(i, 2), nullptr, 16)));
    }
    return out;
}

inline std::string toHex(const std::uint8_t *data, std::size_t length) {
    static const char digits[] = "0123456789abcdef";
    std::string out;
    for (std::size_t i = 0; i < length; ++i) {
        out += digits[data[i] >> 4];
        out += digits[data[i] & 15];
    }
    return out;
}

inline std::string toHex(const Bytes &data) {
    return toHex(data.data(), data.size());
}

inline Bytes asBytes(const std::string &text) {
    return Bytes(text.begin(), text.end());
}

// Reproducible pseudo-random bytes.
inline Bytes pattern(std::size_t length, std::uint32_t seed) {
    std::mt19937 engine(seed);
    Bytes out(length);
    for (auto &b : out) {
        b = static_cast<std::uint8_t>(engine());
    }
    return out;
}

// AES-CBC through OpenSSL; padding as the cipher's default (PKCS#7) unless pad is false.
inline Bytes opensslCbc(bool encrypt, const Bytes &key, const Bytes &iv, const Bytes &in,
                        bool pad = true) {
    const EVP_CIPHER *cipher = key.size() == 16   ? EVP_aes_128_cbc()
                               : key.size() == 24 ? EVP_aes_192_cbc()
                                                  : EVP_aes_256_cbc();
    EVP_CIPHER_CTX *ctx = EVP_CIPHER_CTX_new();
    Bytes out(in.size() + 32);
    int n = 0, tail = 0;
    EVP_CipherInit_ex(ctx, cipher, nullptr, key.data(), iv.data(), encrypt ? 1 : 0);
    EVP_CIPHER_CTX_set_padding(ctx, pad ? 1 : 0);
    const bool ok =
        EVP_CipherUpdate(ctx, out.data(), &n, in.data(), static_cast<int>(in.size())) == 1 &&
        EVP_CipherFinal_ex(ctx, out.data() + n, &tail) == 1;
    EVP_CIPHER_CTX_free(ctx);
    if (!ok) {
        throw std::runtime_error("OpenSSL refused the input");
    }
    out.resize(static_cast<std::size_t>(n + tail));
    return out;
}

} // namespace pu::test
