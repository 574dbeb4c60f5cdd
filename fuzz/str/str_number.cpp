// SPDX-License-Identifier: MIT
// uStrTol, uStrToUl and uStrToDouble: a success means the stripped text was one whole number,
// as the C library reads it; errno is never changed.
#include "str_fuzz_support.hpp"

#include <fuzzer/FuzzedDataProvider.h>

#include <cerrno>
#include <cmath>
#include <cstdlib>

namespace {

std::string stripped(const std::string &text) {
    const char *blanks = "\t\n\r ";
    const size_t first = text.find_first_not_of(blanks);
    if (first == std::string::npos) {
        return {};
    }
    return text.substr(first, text.find_last_not_of(blanks) - first + 1);
}

} // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t *data, size_t size) {
    FuzzedDataProvider input(data, size);
    const int32_t bases[] = {0, 2, 8, 10, 16, 36, 1, 37, -1};
    const int32_t base = bases[input.ConsumeIntegralInRange<size_t>(0, 8)];
    std::string text = input.ConsumeRemainingBytesAsString();
    text.resize(std::strlen(text.c_str()));
    const std::string core = stripped(text);

    errno = 1234;
    long value = 99;
    const int32_t tolResult = uStrTol(text.c_str(), &value, base);
    pu::fuzz::require(errno == 1234, "uStrTol changed errno");
    if (tolResult == 0) {
        char *end = nullptr;
        const long expected = std::strtol(core.c_str(), &end, base);
        pu::fuzz::require(!core.empty() && *end == '\0' && expected == value,
                          "uStrTol accepted what strtol does not read whole");
    } else {
        pu::fuzz::require(value == 0, "uStrTol failure left a value");
    }

    errno = 1234;
    unsigned long unsignedValue = 99;
    const int32_t ulResult = uStrToUl(text.c_str(), &unsignedValue, base);
    pu::fuzz::require(errno == 1234, "uStrToUl changed errno");
    if (ulResult == 0) {
        char *end = nullptr;
        const unsigned long expected = std::strtoul(core.c_str(), &end, base);
        pu::fuzz::require(!core.empty() && core[0] != '-' && *end == '\0' &&
                              expected == unsignedValue,
                          "uStrToUl accepted what strtoul does not read whole");
    }

    // sscanf may take a dangling exponent ("1e") that strtod leaves, but the value is the same.
    double number = 0;
    if (uStrToDouble(text.c_str(), &number) == 0) {
        const double expected = std::strtod(core.c_str(), nullptr);
        pu::fuzz::require(!core.empty() &&
                              (expected == number || (std::isnan(expected) && std::isnan(number))),
                          "uStrToDouble differs from strtod");
    }
    return 0;
}
