// SPDX-License-Identifier: MIT
// uStrReplaceXml: the result is the fully escaped text cut to size-1 characters (an entity at
// the end may be cut short), and nothing is written past size.
#include "str_fuzz_support.hpp"

#include <fuzzer/FuzzedDataProvider.h>

namespace {

std::string escaped(const std::string &text, int32_t quoteMode) {
    std::string out;
    for (char c : text) {
        switch (c) {
        case '&':
            out += "&amp;";
            break;
        case '<':
            out += "&lt;";
            break;
        case '>':
            out += "&gt;";
            break;
        case '"':
            out += quoteMode == 1 ? "&quot;" : "\"";
            break;
        case '\'':
            out += quoteMode == 1 ? "&apos;" : "'";
            break;
        default:
            out += c;
        }
    }
    return out;
}

} // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t *data, size_t size) {
    FuzzedDataProvider input(data, size);
    const int32_t bufferSize = input.ConsumeIntegralInRange<int32_t>(1, 300);
    const int32_t quoteMode = input.ConsumeIntegralInRange<int32_t>(0, 2);
    std::string text = input.ConsumeRemainingBytesAsString();
    text = text.substr(0, std::min(std::strlen(text.c_str()), static_cast<size_t>(bufferSize - 1)));

    std::vector<char> buffer(static_cast<size_t>(bufferSize) + 1, 'X');
    std::memcpy(buffer.data(), text.c_str(), text.size() + 1);
    uStrReplaceXml(buffer.data(), bufferSize, quoteMode);
    pu::fuzz::require(buffer.back() == 'X', "wrote past size");
    pu::fuzz::requireTerminated(buffer.data(), static_cast<size_t>(bufferSize), "not terminated");
    pu::fuzz::require(std::string(buffer.data()) ==
                          escaped(text, quoteMode).substr(0, static_cast<size_t>(bufferSize - 1)),
                      "differs from the escaped text");
    return 0;
}
