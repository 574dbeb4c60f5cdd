// SPDX-License-Identifier: MIT
// uStrListGet into exactly sized slots: every slot stays terminated, the count never exceeds the
// slots, and counting without slots gives the same number.
#include "str_fuzz_support.hpp"

#include <fuzzer/FuzzedDataProvider.h>

extern "C" int LLVMFuzzerTestOneInput(const uint8_t *data, size_t size) {
    FuzzedDataProvider input(data, size);
    const int32_t count = input.ConsumeIntegralInRange<int32_t>(0, 12);
    const int32_t slotSize = input.ConsumeIntegralInRange<int32_t>(1, 24);
    const char *separators[] = {",", "\"", "::", " ", "\n", "ab"};
    const char *sep = separators[input.ConsumeIntegralInRange<size_t>(0, 5)];
    const std::string text = input.ConsumeRemainingBytesAsString();

    std::vector<char> slots(static_cast<size_t>(count * slotSize) + 1, 'X');
    char *slotArea = count > 0 ? slots.data() : nullptr;
    const uint32_t fields = uStrListGet(text.c_str(), slotArea, count, slotSize, sep);
    pu::fuzz::require(fields <= static_cast<uint32_t>(count), "more fields than slots");
    // An empty text returns before the slots are zeroed.
    for (int32_t i = 0; i < count && text.c_str()[0] != '\0'; ++i) {
        pu::fuzz::requireTerminated(slots.data() + i * slotSize, static_cast<size_t>(slotSize),
                                    "slot not terminated");
    }
    pu::fuzz::require(slots.back() == 'X', "wrote past the slots");
    pu::fuzz::require(uStrListGet(text.c_str(), nullptr, count, slotSize, sep) == fields,
                      "counting differs from filling");
    return 0;
}
