// SPDX-License-Identifier: MIT
// Every log line of the crypto family, word for word: callers match on these texts.
#include <uaes.h>

#include "crypto_test_util.hpp"
#include "fail_alloc.hpp"

#include <gtest/gtest.h>

namespace {

using namespace pu::test;

TEST(CryptoLog, Catalogue) {
    const char *key = "603deb1015ca71be2b73aef0857d77811f352c073b6108d72d9810a30914dff4";
    const char *aes = "basalt.utils.aes";
    uint8_t b[64] = {};
    const Bytes badPad = asBytes(pattern(48, 9)); // decrypts to bytes that are no padding
    const auto failingAlloc = [](auto call) {
        FailAlloc fault(1);
        return call();
    };
    checkLogRows({
        PU_LOG_ROW(uAesEncrypt(key, nullptr, 4, b), 3, aes, "uAesEncrypt Parameter is null."),
        PU_LOG_ROW(uAesEncrypt("00ff", b, 4, b), 3, aes, "uAesEncrypt make key error."),
        PU_LOG_ROW(failingAlloc([&] { return uAesEncrypt(key, b, 4, b); }), 3, aes,
                   "uAesEncrypt malloc error."),
        PU_LOG_ROW(uAesDecrypt(key, b, 32, nullptr), 3, aes, "uAesDecrypt Parameter is null."),
        PU_LOG_ROW(uAesDecrypt(key, b, 16, b), 3, aes, "uAesDecrypt The data is invalid."),
        PU_LOG_ROW(uAesDecrypt(key, b, 40, b), 3, aes, "uAesDecrypt The data is invalid."),
        PU_LOG_ROW(uAesDecrypt("00ff", b, 32, b), 3, aes, "uAesDecrypt key error"),
        PU_LOG_ROW(failingAlloc([&] { return uAesDecrypt(key, b, 32, b); }), 3, aes,
                   "uAesDecrypt malloc error."),
        PU_LOG_ROW(uAesDecrypt(key, badPad.data(), 48, b), 3, aes, "The data is invalid."),
    });
}

} // namespace
