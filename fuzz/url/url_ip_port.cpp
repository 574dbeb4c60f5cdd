// SPDX-License-Identifier: MIT
// uStrGetIpAndPort: an accepted address is a valid IPv4 or IPv6 address, copied terminated into
// any buffer size.
#include "url_fuzz_support.hpp"

#include <arpa/inet.h>

extern "C" int LLVMFuzzerTestOneInput(const uint8_t *data, size_t size) {
    FuzzedDataProvider input(data, size);
    const auto ipSize = input.ConsumeIntegralInRange<std::size_t>(0, 64);
    const std::string text = pu::fuzz::remainingText(input);
    pu::fuzz::ExactBuffer ip(ipSize);
    uint16_t port = 0;
    if (uStrGetIpAndPort(text.c_str(), ip.data(), static_cast<uint32_t>(ipSize), &port) != 0) {
        return 0;
    }
    char full[64] = {};
    pu::fuzz::require(uStrGetIpAndPort(text.c_str(), full, sizeof(full), nullptr) == 0,
                      "answer depends on the buffer");
    in6_addr address{};
    pu::fuzz::require(inet_pton(AF_INET, full, &address) == 1 ||
                          inet_pton(AF_INET6, full, &address) == 1,
                      "accepted an invalid address");
    if (ipSize > 0) {
        ip.requireTerminated("address not terminated");
    }
    return 0;
}
