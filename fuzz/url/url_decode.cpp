// SPDX-License-Identifier: MIT
// uStrUrlDecode: never longer than its input, and a text without '%' is left as it is.
#include "url_fuzz_support.hpp"

extern "C" int LLVMFuzzerTestOneInput(const uint8_t *data, size_t size) {
    std::string text(reinterpret_cast<const char *>(data), size);
    text.resize(std::strlen(text.c_str()));
    std::vector<char> buffer(text.begin(), text.end());
    buffer.push_back('\0');
    uStrUrlDecode(buffer.data());
    pu::fuzz::require(std::strlen(buffer.data()) <= text.size(), "decoded text grew");
    if (text.find('%') == std::string::npos) {
        pu::fuzz::require(text == buffer.data(), "text without escapes changed");
    }
    return 0;
}
