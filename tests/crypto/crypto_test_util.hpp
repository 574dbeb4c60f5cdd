// SPDX-License-Identifier: MIT
// Helpers for the crypto tests: hexadecimal literals, bytes, and OpenSSL's EVP interface as an
// independent oracle.
#pragma once

#include <openssl/evp.h>

#include "test_support.hpp"

#include <cstdint>
#include <initializer_list>
#include <stdexcept>
#include <string>
#include <type_traits>
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

// The shared deterministic pattern as bytes.
inline Bytes patternBytes(std::size_t length, std::uint32_t seed) {
    return asBytes(pattern(length, seed));
}

// AES through OpenSSL: CBC (or ECB/CFB-1 when given), the key length choosing the variant;
// standard padding unless pad is false.
inline Bytes openssl(bool encrypt, const Bytes &key, const Bytes &iv, const Bytes &in,
                     bool pad = true, char mode = 'c') {
    const int k = key.size() == 16 ? 0 : key.size() == 24 ? 1 : 2;
    const EVP_CIPHER *ciphers[3][3] = {
        {EVP_aes_128_cbc(), EVP_aes_192_cbc(), EVP_aes_256_cbc()},
        {EVP_aes_128_ecb(), EVP_aes_192_ecb(), EVP_aes_256_ecb()},
        {EVP_aes_128_cfb1(), EVP_aes_192_cfb1(), EVP_aes_256_cfb1()}};
    const EVP_CIPHER *cipher = ciphers[mode == 'c' ? 0 : mode == 'e' ? 1 : 2][k];
    EVP_CIPHER_CTX *ctx = EVP_CIPHER_CTX_new();
    Bytes out(in.size() + 32);
    int n = 0, tail = 0;
    EVP_CipherInit_ex(ctx, cipher, nullptr, key.data(), iv.empty() ? nullptr : iv.data(),
                      encrypt ? 1 : 0);
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

// One row of a call table: the call as written, what it gave and what it should give. Rows are
// evaluated in order, so a row may depend on the state the rows before it left.
struct Row {
    const char *call;
    std::string got, want;
};
inline std::string shown(const std::string &text) {
    return text;
}
inline std::string shown(const char *text) {
    return text != nullptr ? text : "(null)";
}
template <typename T>
requires std::is_integral_v<T> std::string shown(T value) {
    return std::to_string(value);
}
inline void checkRows(std::initializer_list<Row> rows) {
    for (const Row &row : rows) {
        EXPECT_EQ(row.got, row.want) << row.call;
    }
}
#define PU_ROW(call, want)                                                                         \
    { #call, ::pu::test::shown(call), ::pu::test::shown(want) }

} // namespace pu::test
