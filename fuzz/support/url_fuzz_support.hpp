// SPDX-License-Identifier: MIT
// Helpers shared by the URL fuzz targets.
#pragma once

#include "str_fuzz_support.hpp"

#include <fuzzer/FuzzedDataProvider.h>

#include <vector>

namespace pu::fuzz {

// A heap buffer of exactly size bytes, so that any write past it is caught by the sanitizer.
class ExactBuffer {
  public:
    explicit ExactBuffer(std::size_t size) : bytes_(size == 0 ? 1 : size, 'Q'), size_(size) {}
    char *data() { return size_ == 0 ? nullptr : bytes_.data(); }
    std::size_t size() const { return size_; }
    void requireTerminated(const char *what) const {
        pu::fuzz::requireTerminated(bytes_.data(), size_, what);
    }

  private:
    std::vector<char> bytes_;
    std::size_t size_;
};

// A NUL-free text from the provider (NUL cuts C strings anyway).
inline std::string consumeText(FuzzedDataProvider &input, std::size_t maxLength) {
    std::string text = input.ConsumeRandomLengthString(maxLength);
    text.resize(std::strlen(text.c_str()));
    return text;
}

inline std::string remainingText(FuzzedDataProvider &input) {
    std::string text = input.ConsumeRemainingBytesAsString();
    text.resize(std::strlen(text.c_str()));
    return text;
}

} // namespace pu::fuzz
