// SPDX-License-Identifier: MIT
// uB64_debase64url on arbitrary text, and uB64_base64url on arbitrary bytes: whatever decodes
// re-encodes to the same text, and encoded text decodes back exactly when its length is one the
// padding rule restores (0, 10 or 11 modulo 12).
#include "crypto_fuzz_support.hpp"

#include <cctype>
#include <memory>

extern "C" int LLVMFuzzerTestOneInput(const uint8_t *data, size_t size) {
    FuzzedDataProvider input(data, size);
    const bool fromText = input.ConsumeBool();
    const uint32_t room = input.ConsumeIntegralInRange<uint32_t>(1, 600);
    auto out = std::make_unique<uint8_t[]>(room);
    if (fromText) {
        const std::string text = pu::fuzz::remainingText(input);
        const int32_t n = uB64_debase64url(text.c_str(), out.get(), room);
        pu::fuzz::require(n >= -1 && n <= static_cast<int32_t>(room), "count out of range");
        if (n > 0) {
            std::string again(text.size() + 4, '\0');
            const int32_t length = uB64_base64url(out.get(), static_cast<uint32_t>(n), again.data(),
                                                  static_cast<uint32_t>(again.size()));
            // The decoder also takes the standard alphabet, blanks and stray padding.
            std::string expected;
            for (char c : text) {
                if (c != '=' && !std::isspace(static_cast<unsigned char>(c))) {
                    expected += c == '+' ? '-' : c == '/' ? '_' : c;
                }
            }
            pu::fuzz::require(length >= 0 && again.c_str() == expected,
                              "decoded text does not encode back to itself");
        }
        return 0;
    }
    const std::vector<uint8_t> bytes = input.ConsumeRemainingBytes<uint8_t>();
    if (bytes.empty()) {
        return 0;
    }
    std::string text(bytes.size() / 3 * 4 + 5, '\0');
    const int32_t length = uB64_base64url(bytes.data(), static_cast<uint32_t>(bytes.size()),
                                          text.data(), static_cast<uint32_t>(text.size()));
    pu::fuzz::require(length > 0, "encoding failed with enough room");
    const int32_t n = uB64_debase64url(text.c_str(), out.get(), room);
    const bool readable = length % 12 == 0 || length % 12 == 10 || length % 12 == 11;
    if (readable && bytes.size() + 1 < room) {
        pu::fuzz::require(n == static_cast<int32_t>(bytes.size()) &&
                              std::memcmp(out.get(), bytes.data(), bytes.size()) == 0,
                          "round trip lost bytes");
    }
    if (!readable) {
        pu::fuzz::require(n == -1, "a length the padding rule gets wrong was decoded");
    }
    return 0;
}
