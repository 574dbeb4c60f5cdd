// SPDX-License-Identifier: MIT
// uB64_pton_strictly in both modes on arbitrary text, into buffers of exactly the room given:
// a strict success must re-encode to the text without its blanks, lenient decoding must agree
// with it, and counting without output must give the same count.
#include "crypto_fuzz_support.hpp"

#include <cctype>
#include <memory>

extern "C" int LLVMFuzzerTestOneInput(const uint8_t *data, size_t size) {
    FuzzedDataProvider input(data, size);
    const uint32_t room = input.ConsumeIntegralInRange<uint32_t>(0, 600);
    const std::string text = pu::fuzz::remainingText(input);

    auto strictOut = std::make_unique<uint8_t[]>(room);
    auto lenientOut = std::make_unique<uint8_t[]>(room);
    const int32_t strict = uB64_pton_strictly(text.c_str(), strictOut.get(), room, 1);
    const int32_t lenient = uB64_pton_strictly(text.c_str(), lenientOut.get(), room, 0);
    const int32_t counted = uB64_pton_strictly(text.c_str(), nullptr, 0, 1);
    pu::fuzz::require(strict >= -1 && lenient >= -1 && strict <= static_cast<int32_t>(room),
                      "count out of range");
    if (strict < 0) {
        return 0;
    }
    pu::fuzz::require(counted == strict, "counting alone differs");
    pu::fuzz::require(lenient == strict, "lenient decoding differs on valid text");
    pu::fuzz::require(std::memcmp(strictOut.get(), lenientOut.get(), strict) == 0,
                      "lenient bytes differ");

    std::string canonical;
    for (char c : text) {
        if (!std::isspace(static_cast<unsigned char>(c))) {
            canonical += c;
        }
    }
    std::string again(canonical.size() + 1, '\0');
    const int32_t n = uB64_ntop(strictOut.get(), static_cast<uint32_t>(strict), again.data(),
                                static_cast<uint32_t>(again.size()));
    pu::fuzz::require(n == static_cast<int32_t>(canonical.size()) &&
                          again.compare(0, canonical.size(), canonical) == 0,
                      "strict decoding accepted a text that does not re-encode to itself");
    return 0;
}
