// SPDX-License-Identifier: MIT
// padDecrypt (and blockDecrypt) on arbitrary cipher text with a fixed key, ECB and CBC, into an
// output of exactly the input's size: results stay within the input, and a success removes
// 1..16 bytes (0..15 in ECB) of the last block.
#include <uaes.h>

#include "crypto_fuzz_support.hpp"

#include <memory>

extern "C" int LLVMFuzzerTestOneInput(const uint8_t *data, size_t size) {
    FuzzedDataProvider input(data, size);
    const uint8_t mode = input.ConsumeBool() ? U_AES_MODE_CBC : U_AES_MODE_ECB;
    const int keyBits = 128 + 64 * input.ConsumeIntegralInRange<int>(0, 2);
    const std::vector<uint8_t> cipher = input.ConsumeRemainingBytes<uint8_t>();
    const int length = static_cast<int>(cipher.size());

    keyInstance key;
    cipherInstance instance;
    const char *keyText = "603deb1015ca71be2b73aef0857d77811f352c073b6108d72d9810a30914dff4";
    pu::fuzz::require(makeKey(&key, U_AES_DIR_DECRYPT, keyBits, keyText) == U_AES_SUCCESS,
                      "makeKey");
    cipherInit(&instance, mode, "000102030405060708090a0b0c0d0e0f");
    auto out = std::make_unique<uint8_t[]>(cipher.size() + 1);
    const int plain = padDecrypt(&instance, &key, cipher.data(), length, out.get());
    if (length == 0) {
        pu::fuzz::require(plain == 0, "empty input");
    } else if (length % 16 != 0) {
        pu::fuzz::require(plain == U_AES_BAD_DATA, "partial block accepted");
    } else if (plain != U_AES_BAD_DATA) {
        const int removed = length - plain;
        pu::fuzz::require(mode == U_AES_MODE_CBC ? removed >= 1 && removed <= 16
                                                 : removed >= 0 && removed <= 15,
                          "padding length out of range");
    }
    cipherInit(&instance, mode, "000102030405060708090a0b0c0d0e0f");
    const int whole = blockDecrypt(&instance, &key, cipher.data(), length, out.get());
    pu::fuzz::require(whole == length / 16 * 16, "blockDecrypt count");
    return 0;
}
