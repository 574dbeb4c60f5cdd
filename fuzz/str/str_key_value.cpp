// SPDX-License-Identifier: MIT
// uStrKeyValueParse: both parts come back stripped and non-empty, and are released cleanly.
#include "str_fuzz_support.hpp"

#include <fuzzer/FuzzedDataProvider.h>

namespace {

void requireStripped(const char *text) {
    if (text == nullptr) {
        return;
    }
    const std::string_view view(text);
    pu::fuzz::require(!view.empty(), "empty part");
    const std::string_view blanks = "\t\n\r ";
    pu::fuzz::require(blanks.find(view.front()) == std::string_view::npos &&
                          blanks.find(view.back()) == std::string_view::npos,
                      "part not stripped");
}

} // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t *data, size_t size) {
    FuzzedDataProvider input(data, size);
    std::string sep = input.ConsumeRandomLengthString(4);
    std::string line = input.ConsumeRemainingBytesAsString();
    sep.resize(std::strlen(sep.c_str()));
    line.resize(std::strlen(line.c_str()));
    UStrKeyValue *rec = uStrKeyValueParse(line.c_str(), sep.c_str());
    if (rec != nullptr) {
        pu::fuzz::require(!sep.empty() && line.find(sep) != std::string::npos,
                          "parsed a line without its separator");
        requireStripped(rec->key);
        requireStripped(rec->value);
        pu::fuzz::require(rec->key == nullptr || line.find(rec->key) != std::string::npos,
                          "key not taken from the line");
    }
    uStrKeyValueFree(rec);
    return 0;
}
