// SPDX-License-Identifier: MIT
// Helpers shared by the crypto, codec and audio fuzz targets.
#pragma once

#include "str_fuzz_support.hpp"

#include <fuzzer/FuzzedDataProvider.h>
#include <platform_sim.h>

namespace pu::fuzz {

// Drops every log line: refusals log on each run and would flood stderr.
inline void silenceLog() {
    platformSimSetLogSink([](void *, int, const char *, const char *) {}, nullptr, 1);
}

// The rest of the input as a zero-terminated text (cut at its first zero byte).
inline std::string remainingText(FuzzedDataProvider &input) {
    std::string text = input.ConsumeRemainingBytesAsString();
    text.resize(std::strlen(text.c_str()));
    return text;
}

} // namespace pu::fuzz
