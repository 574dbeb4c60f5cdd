// SPDX-License-Identifier: MIT
// uAesCbcDecrypt on arbitrary text with arbitrary work size and length limit, into an output of
// exactly the documented size (limit + 1).
#include "crypto_fuzz_support.hpp"

#include <memory>

extern "C" int LLVMFuzzerTestOneInput(const uint8_t *data, size_t size) {
    FuzzedDataProvider input(data, size);
    const uint32_t workSize = input.ConsumeIntegralInRange<uint32_t>(0, 700);
    const uint32_t maxPlain = input.ConsumeIntegralInRange<uint32_t>(0, 700);
    const int32_t keyBits = 128 + 64 * input.ConsumeIntegralInRange<int32_t>(0, 2);
    const std::string iv = input.ConsumeRandomLengthString(20);
    const std::string text = pu::fuzz::remainingText(input);

    const uint8_t key[32] = {1,  2,  3,  4,  5,  6,  7,  8,  9,  10, 11, 12, 13, 14, 15, 16,
                             17, 18, 19, 20, 21, 22, 23, 24, 25, 26, 27, 28, 29, 30, 31, 32};
    auto out = std::make_unique<uint8_t[]>(maxPlain + 1);
    const int32_t n =
        uAesCbcDecrypt(key, text.c_str(), workSize, out.get(), maxPlain, iv.c_str(), keyBits);
    pu::fuzz::require(n >= 0 && static_cast<uint32_t>(n) <= maxPlain, "length out of range");
    if (n > 0) {
        pu::fuzz::require(std::strlen(reinterpret_cast<char *>(out.get())) ==
                              static_cast<size_t>(n),
                          "result is not the string length");
    }
    return 0;
}
