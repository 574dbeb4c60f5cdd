// SPDX-License-Identifier: MIT
// uAesDecrypt with a fixed key on arbitrary input, optionally behind whole 64 KiB pieces so the
// piece logic is reached, into an output of exactly the input's length.
#include "crypto_fuzz_support.hpp"

#include <memory>

// Every refusal logs at level 3; the lines are of no interest here.
extern "C" int LLVMFuzzerInitialize(int *, char ***) {
    pu::fuzz::silenceLog();
    return 0;
}

extern "C" int LLVMFuzzerTestOneInput(const uint8_t *data, size_t size) {
    FuzzedDataProvider input(data, size);
    const int pieces = input.ConsumeIntegralInRange<int>(0, 2);
    std::vector<uint8_t> wrapped(static_cast<size_t>(pieces) * 65536, 0x5A);
    const std::vector<uint8_t> tail = input.ConsumeRemainingBytes<uint8_t>();
    wrapped.insert(wrapped.end(), tail.begin(), tail.end());

    const char *key = "603deb1015ca71be2b73aef0857d77811f352c073b6108d72d9810a30914dff4";
    auto out = std::make_unique<uint8_t[]>(wrapped.size() + 1);
    const int32_t n =
        uAesDecrypt(key, wrapped.data(), static_cast<int32_t>(wrapped.size()), out.get());
    pu::fuzz::require(n >= 0 && static_cast<size_t>(n) < wrapped.size() + 1, "count out of range");
    return 0;
}
