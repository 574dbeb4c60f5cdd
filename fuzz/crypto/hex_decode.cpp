// SPDX-License-Identifier: MIT
// uStrToHex on arbitrary text into an output of exactly the size given: never more bytes than
// room or pairs, and plain hexadecimal text is read whole.
#include "crypto_fuzz_support.hpp"

#include <cctype>
#include <memory>

extern "C" int LLVMFuzzerTestOneInput(const uint8_t *data, size_t size) {
    FuzzedDataProvider input(data, size);
    const uint32_t room = input.ConsumeIntegralInRange<uint32_t>(0, 300);
    const std::string text = pu::fuzz::remainingText(input);

    auto out = std::make_unique<uint8_t[]>(room);
    const int32_t n = uStrToHex(text.c_str(), out.get(), room);
    const size_t pieces = (text.size() + 1) / 2;
    pu::fuzz::require(n >= 0 && static_cast<uint32_t>(n) <= room &&
                          static_cast<size_t>(n) <= pieces,
                      "count out of range");
    bool allHex = true;
    for (char c : text) {
        allHex = allHex && std::isxdigit(static_cast<unsigned char>(c));
    }
    if (allHex) {
        pu::fuzz::require(static_cast<size_t>(n) == std::min<size_t>(pieces, room),
                          "plain hexadecimal text not read whole");
        for (int32_t i = 0; i < n; ++i) {
            const std::string pair = text.substr(2 * static_cast<size_t>(i), 2);
            pu::fuzz::require(out[static_cast<size_t>(i)] == std::stoul(pair, nullptr, 16),
                              "wrong byte");
        }
    }
    return 0;
}
