// SPDX-License-Identifier: MIT
// uParaUrlQuery and the value readers on arbitrary query texts, and the adders and the join on
// arbitrary keys and values: the join never exceeds 1023 characters and consumes the list.
#include "url_fuzz_support.hpp"

extern "C" int LLVMFuzzerTestOneInput(const uint8_t *data, size_t size) {
    FuzzedDataProvider input(data, size);
    const char sep = input.ConsumeIntegral<char>();
    const std::string key = pu::fuzz::consumeText(input, 80);
    const std::string value = pu::fuzz::consumeText(input, 1200);
    const std::string query = pu::fuzz::remainingText(input);

    uList *pairs = uParaUrlQuery(query.c_str());
    if (pairs != nullptr) {
        pu::fuzz::ExactBuffer found(1 + size % 16);
        if (uParaQueryValueGet(pairs, key.c_str(), found.data(),
                               static_cast<uint32_t>(found.size())) == 0) {
            found.requireTerminated("value not terminated");
        }
        uParaUrlQueryListDestroy(pairs);
    }
    uParaUrlGetInt(query.c_str(), key.c_str(), 0);
    uParaUrlGetLongUnencoded(query.c_str(), key.c_str(), 0, sep);
    uParaUrlGetBoolUnencoded(query.c_str(), key.c_str(), 0, sep);
    uFree(uParaUrlGetString(query.c_str(), key.c_str(), "d"));
    uFree(uParaUrlGetStringUnencoded(query.c_str(), key.c_str(), nullptr, sep));

    uList *list = uParaUrlInit();
    uParaUrlAddString(list, key.c_str(), value.c_str());
    uParaUrlAddStringUnencoded(list, value.c_str(), key.c_str());
    uParaUrlAddInt(list, key.c_str(), static_cast<int32_t>(size));
    uParaUrlAddBool(list, query.c_str(), 1);
    uParaUrlAddStringUnencoded(list, query.c_str(), value.c_str());
    char *joined = uParaUrlStringPtrCreateUnencoded(list, sep);
    pu::fuzz::require(joined != nullptr && std::strlen(joined) <= 1023, "join too long");
    pu::fuzz::require(uListSize(list) == 0, "join did not consume the list");
    uFree(joined);
    uParaUrlUnInit(list);
    return 0;
}
