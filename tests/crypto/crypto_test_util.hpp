// SPDX-License-Identifier: MIT
// Helpers for the crypto tests: hexadecimal, bytes, and OpenSSL's EVP interface as the
// independent oracle for AES.
#pragma once

#include <openssl/evp.h>

#include "call_table.hpp"
#include "test_support.hpp"

#include <cstdint>
#include <memory>
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
    std::string out;
    for (std::size_t i = 0; i < length; ++i) {
        out += {"0123456789abcdef"[data[i] >> 4], "0123456789abcdef"[data[i] & 15]};
    }
    return out;
}
inline std::string toHex(const Bytes &data) {
    return toHex(data.data(), data.size());
}
inline Bytes asBytes(const std::string &text) {
    return Bytes(text.begin(), text.end());
}
inline Bytes cat(Bytes a, const Bytes &b) {
    a.insert(a.end(), b.begin(), b.end());
    return a;
}

// AES encryption through OpenSSL: mode "cbc", "ecb" or "cfb1", the key length choosing the
// variant; standard padding unless pad is false.
inline Bytes openssl(const Bytes &key, const Bytes &iv, const Bytes &in, bool pad = true,
                     const std::string &mode = "cbc") {
    const std::string name = "aes-" + std::to_string(key.size() * 8) + "-" + mode;
    std::unique_ptr<EVP_CIPHER_CTX, void (*)(EVP_CIPHER_CTX *)> ctx(EVP_CIPHER_CTX_new(),
                                                                    EVP_CIPHER_CTX_free);
    Bytes out(in.size() + 32);
    int n = 0, tail = 0;
    EVP_EncryptInit_ex(ctx.get(), EVP_get_cipherbyname(name.c_str()), nullptr, key.data(),
                       iv.data());
    EVP_CIPHER_CTX_set_padding(ctx.get(), pad ? 1 : 0);
    EVP_EncryptUpdate(ctx.get(), out.data(), &n, in.data(), static_cast<int>(in.size()));
    EXPECT_EQ(EVP_EncryptFinal_ex(ctx.get(), out.data() + n, &tail), 1) << "OpenSSL refused it";
    out.resize(static_cast<std::size_t>(n + tail));
    return out;
}

} // namespace pu::test
