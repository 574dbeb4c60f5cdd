// SPDX-License-Identifier: MIT
// uStrParseCsvData: the text parsed in chunks (each call with partial set, the unconsumed rest
// carried in front of the next chunk, a last call without partial) gives exactly the rows of
// one whole parse; every field is released by the callback.
#include "str_fuzz_support.hpp"

#include <fuzzer/FuzzedDataProvider.h>

namespace {

using Rows = std::vector<std::vector<std::string>>;

void collect(void *userArg, uList *fields) {
    pu::fuzz::require(uListSize(fields) > 0, "callback for a row without fields");
    static_cast<Rows *>(userArg)->push_back(pu::fuzz::takeStrings(fields));
}

} // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t *data, size_t size) {
    FuzzedDataProvider input(data, size);
    std::vector<size_t> chunkSizes;
    const size_t chunkCount = input.ConsumeIntegralInRange<size_t>(1, 4);
    for (size_t i = 0; i < chunkCount; ++i) {
        chunkSizes.push_back(input.ConsumeIntegralInRange<size_t>(1, 64));
    }
    std::string text = input.ConsumeRemainingBytesAsString();
    text.resize(std::strlen(text.c_str()));

    Rows whole;
    const int32_t parsed = uStrParseCsvData(text.c_str(), 0, &whole, collect);
    pu::fuzz::require(parsed == static_cast<int32_t>(text.size()), "whole parse not whole");

    Rows chunked;
    std::string carry;
    size_t offset = 0;
    for (size_t i = 0; offset < text.size(); ++i) {
        const size_t take = chunkSizes[i % chunkSizes.size()];
        const std::string buffer = carry + text.substr(offset, take);
        offset += take;
        const int32_t consumed = uStrParseCsvData(buffer.c_str(), 1, &chunked, collect);
        pu::fuzz::require(consumed >= 0 && static_cast<size_t>(consumed) <= buffer.size(),
                          "consumed outside the buffer");
        carry = buffer.substr(static_cast<size_t>(consumed));
    }
    uStrParseCsvData(carry.c_str(), 0, &chunked, collect);
    pu::fuzz::require(chunked == whole, "chunked rows differ from the whole parse");

    // Without a callback the rows are dropped and released.
    uStrParseCsvData(text.c_str(), 0, nullptr, nullptr);
    uStrParseCsvData(text.c_str(), 1, nullptr, nullptr);
    return 0;
}
