// SPDX-License-Identifier: MIT
// uParaUrlGetVariablesFromRestfulUrl: every pair names a variable of the template and carries
// a value made of URL segments; lists are never handed out empty.
#include "url_fuzz_support.hpp"

extern "C" int LLVMFuzzerTestOneInput(const uint8_t *data, size_t size) {
    FuzzedDataProvider input(data, size);
    const std::string templ = pu::fuzz::consumeText(input, 256);
    const std::string url = pu::fuzz::remainingText(input);
    uList *pairs = reinterpret_cast<uList *>(&input);
    const int32_t result = uParaUrlGetVariablesFromRestfulUrl(url.c_str(), templ.c_str(), &pairs);
    if (result != 0) {
        return 0;
    }
    if (pairs == nullptr) {
        return 0;
    }
    pu::fuzz::require(uListSize(pairs) > 0, "empty list handed out");
    for (uListNode *node = pairs->head; node != nullptr; node = node->next) {
        const auto *pair = static_cast<const UParaUrlPair *>(node->data);
        pu::fuzz::require(pair->key != nullptr && pair->key[0] != '\0', "pair without a name");
        pu::fuzz::require(templ.find(pair->key) != std::string::npos, "name not in the template");
        pu::fuzz::require(pair->value != nullptr && pair->value[0] != '\0', "empty value");
    }
    uParaUrlQueryListDestroy(pairs);
    return 0;
}
