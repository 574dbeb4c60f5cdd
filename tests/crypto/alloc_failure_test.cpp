// SPDX-License-Identifier: MIT
// Codecs and AES wrappers with each of their uMalloc calls failing in turn: the documented failure
// value, work buffers released, the next call succeeding.
#include "fail_alloc.hpp"

#include <uaes.h>
#include <ub64.h>

#include <gtest/gtest.h>

#include <cstring>
#include <vector>

namespace {

using pu::test::AllocCase;
using pu::test::reportingCase;

const char *const kKeyHex = "603deb1015ca71be2b73aef0857d77811f352c073b6108d72d9810a30914dff4";
const uint8_t kRawKey[32] = {1, 2, 3, 4, 5, 6, 7, 8, 9, 10, 11, 12, 13, 14, 15, 16};

const AllocCase kCases[] = {
    reportingCase("Base64UrlDecode",
                  [] {
                      uint8_t out[32] = {};
                      const int32_t n = uB64_debase64url("MDEyMzQ1Njc4OWFiY2RlZg", out, sizeof out);
                      if (n >= 0) {
                          EXPECT_EQ(n, 16);
                          EXPECT_EQ(std::memcmp(out, "0123456789abcdef", 16), 0);
                      }
                      return n == -1;
                  }),
    reportingCase("AesEncryptDecrypt",
                  [] {
                      const char plain[] = "alloc sweep";
                      std::vector<uint8_t> wrapped(sizeof plain + 32);
                      const int32_t n =
                          uAesEncrypt(kKeyHex, reinterpret_cast<const uint8_t *>(plain),
                                      sizeof plain, wrapped.data());
                      if (n == 0) {
                          return true;
                      }
                      EXPECT_EQ(n, 32); // one padded block and the vector
                      std::vector<uint8_t> back(wrapped.size());
                      const int32_t m = uAesDecrypt(kKeyHex, wrapped.data(), n, back.data());
                      if (m > 0) {
                          EXPECT_EQ(m, static_cast<int32_t>(sizeof plain));
                          EXPECT_STREQ(reinterpret_cast<const char *>(back.data()), plain);
                      }
                      return m <= 0;
                  }),
    reportingCase("AesCbcRoundTrip",
                  [] {
                      const char plain[] = "alloc sweep";
                      char text[128] = {};
                      const int32_t n =
                          uAesCbcEncrypt(kRawKey, reinterpret_cast<const uint8_t *>(plain),
                                         sizeof plain - 1, text, sizeof text, "iv", 256);
                      if (n == 0) {
                          return true;
                      }
                      uint8_t back[64] = {};
                      const int32_t m = uAesCbcDecrypt(kRawKey, text, 64, back, 32, "iv", 256);
                      if (m > 0) {
                          EXPECT_STREQ(reinterpret_cast<const char *>(back), plain);
                      }
                      return m == 0;
                  }),
};

class IoAllocFailure : public testing::TestWithParam<AllocCase> {};

PU_ALLOC_FAILURE_SWEEP(IoAllocFailure, kCases);

} // namespace
