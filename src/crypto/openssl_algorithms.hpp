// SPDX-License-Identifier: MIT
// The OpenSSL algorithms the crypto families use, fetched once per process. Fetching by name on
// every call (what EVP_sha256() and friends lead to inside each init) costs more than hashing a
// short input, so the fetched objects are kept for the life of the process.
#pragma once

#include <openssl/evp.h>

#include <cstddef>
#include <cstdint>
#include <initializer_list>
#include <span>

namespace pu::crypto {

const EVP_MD *sha1();
const EVP_MD *sha256();
const EVP_MD *md5();
EVP_MAC *hmac();

// AES in ECB or CBC mode for keys of 128, 192 or 256 bits; null for another length.
const EVP_CIPHER *aesCipher(int keyBits, bool cbc);

// AES in one-bit cipher feedback mode, likewise.
const EVP_CIPHER *aesCfb1Cipher(int keyBits);

// The digest of the concatenated pieces into out (room for the digest's size). False when
// OpenSSL fails, which only a lack of memory makes it do.
bool digestPieces(const EVP_MD *md, std::initializer_list<std::span<const std::uint8_t>> pieces,
                  std::uint8_t *out);

// Runs a cipher over whole blocks (no padding) from in to out, which may be the same buffer.
// iv may be null for ECB. With ivOut, the chaining value the run ends with is stored there (16
// bytes). A context is kept per thread and only re-keyed per call.
bool cipherBlocks(const EVP_CIPHER *cipher, bool encrypt, const std::uint8_t *key,
                  const std::uint8_t *iv, const std::uint8_t *in, std::size_t length,
                  std::uint8_t *out, std::uint8_t *ivOut = nullptr);

} // namespace pu::crypto
