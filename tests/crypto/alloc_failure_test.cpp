// SPDX-License-Identifier: MIT
// Codecs and AES wrappers with each of their uMalloc calls failing in turn: the documented
// failure value, work buffers released, the next call succeeding.
#include "fail_alloc.hpp"

#include <uaes.h>
#include <ub64.h>

#include <gtest/gtest.h>

#include <cstring>

namespace {

using pu::test::reportingCase;

const char *const kKey = "603deb1015ca71be2b73aef0857d77811f352c073b6108d72d9810a30914dff4";
const uint8_t kPlain[] = "alloc sweep";

const pu::test::AllocCase kCases[] = {
    reportingCase("Base64UrlDecode",
                  [] {
                      uint8_t out[32] = {};
                      const int32_t n = uB64_debase64url("MDEyMzQ1Njc4OWFiY2RlZg", out, sizeof out);
                      EXPECT_TRUE(n == -1 || std::memcmp(out, "0123456789abcdef", 16) == 0);
                      return n == -1;
                  }),
    reportingCase("AesWrapRoundTrip",
                  [] {
                      uint8_t wrapped[64] = {}, back[64] = {};
                      const int32_t n = uAesEncrypt(kKey, kPlain, sizeof kPlain, wrapped);
                      const int32_t m = n == 0 ? 0 : uAesDecrypt(kKey, wrapped, n, back);
                      EXPECT_TRUE(m == 0 || (m == 12 && std::memcmp(back, kPlain, 12) == 0));
                      return m == 0;
                  }),
    reportingCase("AesCbcRoundTrip",
                  [] {
                      char text[128] = {};
                      uint8_t back[64] = {};
                      const int32_t n = uAesCbcEncrypt(kPlain, kPlain, 11, text, 128, "iv", 128);
                      const int32_t m =
                          n == 0 ? 0 : uAesCbcDecrypt(kPlain, text, 64, back, 32, "iv", 128);
                      EXPECT_TRUE(m == 0 || std::strcmp((const char *)back, "alloc sweep") == 0);
                      return m == 0;
                  }),
};

class CryptoAllocFailure : public testing::TestWithParam<pu::test::AllocCase> {};

PU_ALLOC_FAILURE_SWEEP(CryptoAllocFailure, kCases);

} // namespace
