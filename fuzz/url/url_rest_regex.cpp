// SPDX-License-Identifier: MIT
// uParaUrlGetComparableRegex on arbitrary templates: either -1, or an expression that can be
// run and released.
#include "url_fuzz_support.hpp"

#include <regex.h>

extern "C" int LLVMFuzzerTestOneInput(const uint8_t *data, size_t size) {
    if (size > 2048) {
        return 0; // compiling dominates; longer templates find nothing new
    }
    FuzzedDataProvider input(data, size);
    const std::string path = pu::fuzz::consumeText(input, 64);
    const std::string templ = pu::fuzz::remainingText(input);
    regex_t preg;
    if (uParaUrlGetComparableRegex(templ.c_str(), &preg) != 0) {
        return 0;
    }
    pu::fuzz::require(!templ.empty(), "compiled an empty template");
    regexec(&preg, path.c_str(), 0, nullptr, 0);
    regfree(&preg);
    return 0;
}
