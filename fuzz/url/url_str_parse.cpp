// SPDX-License-Identifier: MIT
// uStrUrlParse, uStrUrlParaToStr and uStrUrlParaFree: a failed parse leaves nothing, a rebuild
// stays inside its buffer and is terminated, and a record rebuilt whole parses again.
#include "url_fuzz_support.hpp"

extern "C" int LLVMFuzzerTestOneInput(const uint8_t *data, size_t size) {
    FuzzedDataProvider input(data, size);
    const auto outSize = input.ConsumeIntegralInRange<std::size_t>(0, 600);
    const std::string url = pu::fuzz::remainingText(input);
    UStrUrlPara *rec = reinterpret_cast<UStrUrlPara *>(&input);
    if (uStrUrlParse(url.c_str(), &rec) != 0) {
        pu::fuzz::require(rec == nullptr, "failed parse left a record");
        return 0;
    }
    pu::fuzz::require(rec != nullptr && rec->host != nullptr, "parse without a host");
    pu::fuzz::ExactBuffer out(outSize);
    const int32_t result = uStrUrlParaToStr(rec, out.data(), static_cast<uint32_t>(outSize));
    if (outSize > 0) {
        out.requireTerminated("rebuild not terminated");
    }
    if (result == 0 && outSize > 0) {
        UStrUrlPara *again = nullptr;
        if (uStrUrlParse(out.data(), &again) == 0) {
            pu::fuzz::require(again->host != nullptr, "re-parse without a host");
        }
        uStrUrlParaFree(again);
    }
    uStrUrlParaFree(rec);
    return 0;
}
