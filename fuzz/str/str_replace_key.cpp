// SPDX-License-Identifier: MIT
// uStrReplaceKey and uStrCaseReplaceKey against a plain reference: every non-overlapping match
// from the left replaced, the result cut to size-1, never a byte written past size.
#include "str_fuzz_support.hpp"

#include <fuzzer/FuzzedDataProvider.h>

#include <cctype>

namespace {

bool matchesAt(const std::string &text, size_t pos, const std::string &key, bool caseSensitive) {
    if (pos + key.size() > text.size()) {
        return false;
    }
    for (size_t i = 0; i < key.size(); ++i) {
        const auto a = static_cast<unsigned char>(text[pos + i]);
        const auto b = static_cast<unsigned char>(key[i]);
        if (caseSensitive ? a != b : std::tolower(a) != std::tolower(b)) {
            return false;
        }
    }
    return true;
}

std::string reference(const std::string &text, const std::string &key, const std::string &with,
                      bool caseSensitive, size_t size) {
    std::string out;
    size_t pos = 0;
    while (pos < text.size()) {
        if (matchesAt(text, pos, key, caseSensitive)) {
            out += with;
            pos += key.size();
        } else {
            out += text[pos++];
        }
    }
    return out.substr(0, size - 1);
}

void check(const std::string &text, const std::string &key, const std::string &with, int32_t size,
           bool caseSensitive) {
    std::vector<char> buffer(static_cast<size_t>(size) + 1, 'X');
    std::memcpy(buffer.data(), text.c_str(), text.size() + 1);
    if (caseSensitive) {
        uStrReplaceKey(buffer.data(), size, key.c_str(), with.c_str());
    } else {
        uStrCaseReplaceKey(buffer.data(), size, key.c_str(), with.c_str());
    }
    pu::fuzz::require(buffer.back() == 'X', "wrote past size");
    pu::fuzz::requireTerminated(buffer.data(), static_cast<size_t>(size), "not terminated");
    if (!key.empty()) {
        pu::fuzz::require(std::string(buffer.data()) ==
                              reference(text, key, with, caseSensitive, static_cast<size_t>(size)),
                          "differs from the reference");
    } else {
        pu::fuzz::require(std::string(buffer.data()) == text, "empty key changed the text");
    }
}

} // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t *data, size_t size) {
    FuzzedDataProvider input(data, size);
    const int32_t bufferSize = input.ConsumeIntegralInRange<int32_t>(1, 300);
    std::string key = input.ConsumeRandomLengthString(6);
    std::string with = input.ConsumeRandomLengthString(12);
    key.resize(std::strlen(key.c_str()));
    with.resize(std::strlen(with.c_str()));
    std::string text = input.ConsumeRemainingBytesAsString();
    text = text.substr(0, std::min(std::strlen(text.c_str()), static_cast<size_t>(bufferSize - 1)));
    check(text, key, with, bufferSize, true);
    check(text, key, with, bufferSize, false);
    return 0;
}
