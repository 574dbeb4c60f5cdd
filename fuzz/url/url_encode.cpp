// SPDX-License-Identifier: MIT
// uStrUrlEncode and uStrUrlEncodeComponent at every size: output always terminated within size,
// nothing written beyond it, and a component encoding that was not cut decodes to its source.
#include "url_fuzz_support.hpp"

extern "C" int LLVMFuzzerTestOneInput(const uint8_t *data, size_t size) {
    FuzzedDataProvider input(data, size);
    const auto bufferSize = input.ConsumeIntegralInRange<std::size_t>(0, 300);
    const int32_t component = input.ConsumeIntegralInRange<int32_t>(-1, 9);
    const int32_t mode = input.ConsumeIntegral<int32_t>();
    const std::string src = pu::fuzz::remainingText(input);

    pu::fuzz::ExactBuffer dst(bufferSize);
    uStrUrlEncodeComponent(component, src.c_str(), dst.data(), static_cast<int32_t>(bufferSize));
    if (bufferSize > 0) {
        dst.requireTerminated("component encoding not terminated");
        const std::size_t length = std::strlen(dst.data());
        if (component >= 1 && component <= 7 && length + 3 < bufferSize &&
            src.find('%') == std::string::npos) {
            std::string decoded = dst.data();
            uStrUrlDecode(decoded.data());
            pu::fuzz::require(std::strcmp(decoded.c_str(), src.c_str()) == 0,
                              "uncut encoding does not decode to its source");
        }
    }

    // In place: the text must fit in the buffer it lives in.
    pu::fuzz::ExactBuffer inPlace(std::max(bufferSize, src.size() + 1));
    std::memcpy(inPlace.data(), src.c_str(), src.size() + 1);
    const auto inPlaceSize = static_cast<int32_t>(inPlace.size());
    pu::fuzz::require(uStrUrlEncode(inPlace.data(), inPlaceSize, mode) == 0, "encode failed");
    inPlace.requireTerminated("in-place encoding not terminated");
    return 0;
}
