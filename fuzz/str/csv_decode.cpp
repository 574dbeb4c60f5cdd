// SPDX-License-Identifier: MIT
// uStrDecodeCsv: never longer than its source, and decoding undoes encoding: the decoded text,
// encoded and enclosed in quotes, decodes to itself again.
#include "str_fuzz_support.hpp"

extern "C" int LLVMFuzzerTestOneInput(const uint8_t *data, size_t size) {
    const std::string text(reinterpret_cast<const char *>(data), size);
    char *decoded = nullptr;
    const int32_t result = uStrDecodeCsv(text.c_str(), &decoded);
    if (result != 0) {
        pu::fuzz::require(decoded == nullptr, "failure left a result");
        pu::fuzz::require(text.c_str()[0] == '\0', "failed on a non-empty text");
        return 0;
    }
    pu::fuzz::require(std::strlen(decoded) <= std::strlen(text.c_str()), "decoded grew");

    std::vector<char> encoded(2 * std::strlen(decoded) + 3, 'X');
    encoded[0] = '"';
    int32_t needQuotes = 0;
    pu::fuzz::require(uStrEncodeCsv(decoded, encoded.data() + 1,
                                    static_cast<int32_t>(encoded.size() - 2), &needQuotes) == 0,
                      "encoding failed with room for every quote doubled");
    pu::fuzz::require((needQuotes != 0) == (std::strpbrk(decoded, "\",\r\n") != nullptr),
                      "needQuotes wrong");
    std::strcat(encoded.data(), "\"");
    char *again = nullptr;
    pu::fuzz::require(uStrDecodeCsv(encoded.data(), &again) == 0, "round trip failed");
    pu::fuzz::require(std::strcmp(again, decoded) == 0, "round trip changed the text");
    uFree(again);
    uFree(decoded);
    return 0;
}
