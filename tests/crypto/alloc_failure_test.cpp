// SPDX-License-Identifier: MIT
// Codecs and AES wrappers with each of their uMalloc calls failing in turn: the documented
// failure value, work buffers released, the next call succeeding.
#include "fail_alloc.hpp"

#include <uaes.h>
#include <ub64.h>

#include <cstring>

namespace {

const char *const kKey = "603deb1015ca71be2b73aef0857d77811f352c073b6108d72d9810a30914dff4";
const uint8_t kPlain[] = "alloc sweep";

// Each step runs only when the ones before it succeeded; a failure must be the refused
// allocation's, and a success must give back the input.
const pu::test::AllocCase kCases[] = {
    pu::test::reportingCase("Base64UrlThenAesWrapThenAesCbc",
                            [] {
                                uint8_t out[64] = {}, back[64] = {};
                                char text[128] = {};
                                if (uB64_debase64url("MDEyMzQ1Njc4OWFiY2RlZg", out, sizeof out) ==
                                    -1) {
                                    return true;
                                }
                                EXPECT_EQ(std::memcmp(out, "0123456789abcdef", 16), 0);
                                const int32_t n = uAesEncrypt(kKey, kPlain, sizeof kPlain, out);
                                if (n == 0 || uAesDecrypt(kKey, out, n, back) == 0) {
                                    return true;
                                }
                                EXPECT_STREQ((const char *)back, "alloc sweep");
                                if (uAesCbcEncrypt(kPlain, kPlain, 11, text, 128, "iv", 128) == 0 ||
                                    uAesCbcDecrypt(kPlain, text, 64, back, 32, "iv", 128) == 0) {
                                    return true;
                                }
                                EXPECT_STREQ((const char *)back, "alloc sweep");
                                return false;
                            }),
};

class CryptoAllocFailure : public testing::TestWithParam<pu::test::AllocCase> {};

PU_ALLOC_FAILURE_SWEEP(CryptoAllocFailure, kCases);

} // namespace
