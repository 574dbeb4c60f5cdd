// SPDX-License-Identifier: MIT
// uFileWavHeaderFullCheck on arbitrary buffers of exactly their length (ASan sees any read
// beyond it); an accepted buffer has RIFF/WAVE tags, 1 or 2 channels and a supported format.
#include "crypto_fuzz_support.hpp"

#include <memory>

// Every step logs; the lines are of no interest here.
extern "C" int LLVMFuzzerInitialize(int *, char ***) {
    pu::fuzz::silenceLog();
    return 0;
}

extern "C" int LLVMFuzzerTestOneInput(const uint8_t *data, size_t size) {
    if (size > 1 << 20) {
        return 0;
    }
    auto buffer = std::make_unique<uint8_t[]>(size);
    std::memcpy(buffer.get(), data, size);
    const int32_t result =
        uFileWavHeaderFullCheck(size > 0 ? buffer.get() : data, static_cast<int32_t>(size));
    if (result == 0) {
        pu::fuzz::require(size >= 44 && std::memcmp(data, "RIFF", 4) == 0 &&
                              std::memcmp(data + 8, "WAVE", 4) == 0,
                          "accepted without the RIFF/WAVE tags");
        const int channels = data[22] | data[23] << 8;
        const int format = data[20] | data[21] << 8;
        pu::fuzz::require(channels == 1 || channels == 2, "channel count");
        pu::fuzz::require(format == 1 || format == 6 || format == 7, "audio format");
    }
    return 0;
}
