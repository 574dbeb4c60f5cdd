// SPDX-License-Identifier: MIT
// uStrRemoveTruncatedUTF8Char on an exactly sized buffer: only the end changes, cleared bytes
// are zero, and an untouched string answers 0.
#include "str_fuzz_support.hpp"

extern "C" int LLVMFuzzerTestOneInput(const uint8_t *data, size_t size) {
    std::vector<char> buffer(data, data + size);
    buffer.push_back('\0');
    const std::string before(buffer.data());
    const int32_t result = uStrRemoveTruncatedUTF8Char(buffer.data());
    const std::string after(buffer.data());
    if (result == 0) {
        pu::fuzz::require(after == before, "changed but answered 0");
        return 0;
    }
    pu::fuzz::require(result == 1, "result neither 0 nor 1");
    pu::fuzz::require(after.size() < before.size(), "answered 1 without clearing");
    pu::fuzz::require(before.compare(0, after.size(), after) == 0, "changed more than the end");
    for (size_t i = after.size(); i < before.size(); ++i) {
        pu::fuzz::require(buffer[i] == '\0', "cleared byte not zero");
    }
    return 0;
}
