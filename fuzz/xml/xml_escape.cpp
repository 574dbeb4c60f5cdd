// SPDX-License-Identifier: MIT
// uXmlParserEscapeAmpersands: cutting the input into chunks anywhere gives the same output as
// escaping it whole; escaping the output again changes nothing; a short output never overruns.
#include <uxmlparser.h>

#include <fuzzer/FuzzedDataProvider.h>

#include <cstdlib>
#include <string>
#include <vector>

namespace {

// Room for every byte to grow fourfold plus a candidate carried in from the previous chunk.
int32_t roomFor(std::size_t length) {
    return static_cast<int32_t>(length * 5 + 32);
}

std::string escapeChunks(const std::string &text, const std::vector<std::size_t> &cuts) {
    uXmlParserAmpState state{};
    std::string out;
    std::size_t from = 0;
    for (std::size_t i = 0; i <= cuts.size(); ++i) {
        const std::size_t to = i < cuts.size() ? cuts[i] : text.size();
        const bool last = i == cuts.size();
        if (to == from) {
            continue; // repeated cuts; empty chunks are refused
        }
        std::vector<char> buffer(static_cast<std::size_t>(roomFor(to - from)));
        int32_t count = 0;
        const int32_t result = uXmlParserEscapeAmpersands(
            text.data() + from, static_cast<int32_t>(to - from), buffer.data(), &count,
            static_cast<int32_t>(buffer.size()), &state, last ? 1 : 0);
        if (result != 0) {
            std::abort();
        }
        out.append(buffer.data(), static_cast<std::size_t>(count));
        from = to;
    }
    return out;
}

} // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t *data, size_t size) {
    FuzzedDataProvider input(data, size);
    const std::size_t cutCount = input.ConsumeIntegralInRange<std::size_t>(0, 8);
    const int32_t shortCapacity = input.ConsumeIntegralInRange<int32_t>(1, 64);
    std::vector<uint8_t> seeds = input.ConsumeBytes<uint8_t>(cutCount * 2);
    const std::string text = input.ConsumeRemainingBytesAsString();
    if (text.empty()) {
        return 0;
    }
    std::vector<std::size_t> cuts;
    std::size_t at = 0;
    for (std::size_t i = 0; i + 1 < seeds.size(); i += 2) {
        at += (static_cast<std::size_t>(seeds[i]) << 8 | seeds[i + 1]) % (text.size() / 2 + 1);
        if (at >= text.size()) {
            break;
        }
        cuts.push_back(at);
    }

    const std::string whole = escapeChunks(text, {});
    if (escapeChunks(text, cuts) != whole || escapeChunks(whole, {}) != whole) {
        std::abort();
    }

    // A short output: 1 when it fills, never a byte past the capacity.
    std::vector<char> small(static_cast<std::size_t>(shortCapacity) + 8, '\x5a');
    uXmlParserAmpState state{};
    int32_t count = -1;
    const int32_t result =
        uXmlParserEscapeAmpersands(text.data(), static_cast<int32_t>(text.size()), small.data(),
                                   &count, shortCapacity, &state, 1);
    if (result > 1 || count < 0 || count > shortCapacity ||
        (result == 0 && whole.compare(0, std::string::npos, small.data(), count) != 0) ||
        small[static_cast<std::size_t>(shortCapacity)] != '\x5a') {
        std::abort();
    }
    return 0;
}
