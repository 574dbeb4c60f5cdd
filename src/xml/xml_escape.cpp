// SPDX-License-Identifier: MIT
// The ampersand repair in front of the XML parser: every "&" that does not open a well-formed
// reference becomes "&amp;". A candidate reference may straddle two chunks, so it is carried in
// the caller's uXmlParserAmpState.
#include <platform_os.h>
#include <ustr.h>
#include <uxmlparser.h>

#include "core/log_modules.hpp"

#include <cstdint>
#include <cstdlib>
#include <cstring>
#include <limits>
#include <string_view>

namespace {

constexpr int32_t kDone = 0;
constexpr int32_t kOutputFull = 1;
constexpr int32_t kBadArgument = 2;

// The longest candidate kept open; a reference that runs longer is escaped without judging it.
constexpr int32_t kMaxPending = static_cast<int32_t>(sizeof(uXmlParserAmpState{}.pending));
constexpr std::string_view kEscapedAmp = "&amp;";
// What each "&" can grow by.
constexpr int32_t kAmpGrowth = static_cast<int32_t>(kEscapedAmp.size()) - 1;

constexpr bool isDecimal(char c) {
    return c >= '0' && c <= '9';
}

constexpr bool isHex(char c) {
    return isDecimal(c) || (c >= 'a' && c <= 'f') || (c >= 'A' && c <= 'F');
}

// "&#<decimal>;" or "&#x<hex>;" / "&#X<hex>;". A hexadecimal reference without digits ("&#x;")
// is accepted on purpose: documents in the field carry it and the parser reports it itself.
constexpr bool isNumericReference(std::string_view candidate) {
    if (candidate[1] != '#') {
        return false;
    }
    const bool hex = candidate[2] == 'x' || candidate[2] == 'X';
    const std::string_view digits = candidate.substr(hex ? 3 : 2, candidate.size() - (hex ? 4 : 3));
    for (char c : digits) {
        if (!(hex ? isHex(c) : isDecimal(c))) {
            return false;
        }
    }
    return true;
}

// candidate runs from its "&" to its ";" inclusive.
constexpr bool isWellFormedReference(std::string_view candidate) {
    if (candidate.size() < 4) {
        return false;
    }
    return candidate == "&amp;" || candidate == "&lt;" || candidate == "&gt;" ||
           candidate == "&quot;" || candidate == "&apos;" || isNumericReference(candidate);
}

static_assert(isWellFormedReference("&#x;") && isWellFormedReference("&#X1F;"));
static_assert(!isWellFormedReference("&#;") && !isWellFormedReference("&#x1g;"));

// Output with a fixed capacity. Each write either fits whole or fails, except runs of plain
// bytes, which are written byte by byte, so as much as fits is counted before a failure.
class Output {
  public:
    Output(char *data, int32_t capacity, int32_t *count)
        : data_(data), capacity_(capacity), count_(count) {}

    bool put(std::string_view bytes) {
        if (static_cast<std::size_t>(room()) < bytes.size()) {
            return false;
        }
        append(bytes.data(), static_cast<int32_t>(bytes.size()));
        return true;
    }

    bool putRun(const char *bytes, int32_t length) {
        const int32_t fitting = length < room() ? length : room();
        append(bytes, fitting);
        return fitting == length;
    }

  private:
    int32_t room() const { return capacity_ - *count_; }
    void append(const char *bytes, int32_t length) {
        std::memcpy(data_ + *count_, bytes, static_cast<std::size_t>(length));
        *count_ += length;
    }

    char *data_;
    int32_t capacity_;
    int32_t *count_;
};

class Escaper {
  public:
    Escaper(Output &out, uXmlParserAmpState &state) : out_(out), state_(state) {}

    // Runs over one chunk; false when the output filled up.
    bool run(const char *input, int32_t length) {
        const char *end = input + length;
        const char *p = input;
        while (p < end) {
            if (state_.pendingCount == 0) {
                p = copyUpToAmpersand(p, end);
                if (p == nullptr) {
                    return false;
                }
                continue;
            }
            if (!step(*p++)) {
                return false;
            }
        }
        return true;
    }

    // Writes an open candidate escaped; used at the end of the last chunk.
    bool closePending() { return state_.pendingCount == 0 || flushInvalid(); }

  private:
    // Copies plain bytes in bulk and opens a candidate at the next "&". Returns where to go on,
    // or null when the output filled up.
    const char *copyUpToAmpersand(const char *p, const char *end) {
        const auto *amp = static_cast<const char *>(std::memchr(p, '&', end - p));
        const char *runEnd = amp != nullptr ? amp : end;
        if (!out_.putRun(p, static_cast<int32_t>(runEnd - p))) {
            return nullptr;
        }
        if (amp == nullptr) {
            return end;
        }
        openCandidate();
        return amp + 1;
    }

    bool step(char c) {
        if (c == '&') {
            if (!flushInvalid()) {
                return false;
            }
            openCandidate();
            return true;
        }
        if (state_.pendingCount == kMaxPending) {
            return flushTooLong(c);
        }
        state_.pending[state_.pendingCount++] = c;
        return c != ';' || judge();
    }

    bool judge() {
        if (isWellFormedReference(pending())) {
            if (!out_.put(pending())) {
                return false;
            }
            state_.pendingCount = 0;
            return true;
        }
        return flushInvalid();
    }

    // A candidate that reached the length limit is escaped together with the byte after it.
    bool flushTooLong(char c) {
        if (!flushInvalid()) {
            return false;
        }
        return out_.put(std::string_view(&c, 1));
    }

    bool flushInvalid() {
        if (!out_.put(kEscapedAmp) || !out_.put(pending().substr(1))) {
            return false;
        }
        state_.pendingCount = 0;
        return true;
    }

    void openCandidate() {
        state_.pending[0] = '&';
        state_.pendingCount = 1;
    }

    std::string_view pending() const {
        return {state_.pending, static_cast<std::size_t>(state_.pendingCount)};
    }

    Output &out_;
    uXmlParserAmpState &state_;
};

bool validState(const uXmlParserAmpState *state) {
    return state != nullptr && state->pendingCount >= 0 && state->pendingCount <= kMaxPending;
}

void logEscapeFailure(int32_t reason) {
    pu::log::error(pu::log::kXmlParser, "%s: parser fail, reason=[%d].",
                   "uXmlParserProcessXmlBufferWithAmp", reason);
}

// Room the escaped chunk can need: every "&" may grow by four bytes, and a candidate carried in
// from the previous chunk (its "&" counted there) may come out escaped as well.
int64_t escapedBound(int32_t length, int32_t ampersands, const uXmlParserAmpState *state) {
    int64_t bound = static_cast<int64_t>(length) + int64_t{kAmpGrowth} * ampersands;
    if (state != nullptr && state->pendingCount > 0) {
        bound += state->pendingCount + kAmpGrowth;
    }
    return bound;
}

bool growOutput(char **output, int32_t *capacity, int64_t needed) {
    if (needed > std::numeric_limits<int32_t>::max()) {
        return false;
    }
    // Growth by realloc is part of the contract: callers pass uMalloc'd buffers and free them
    // with uFree.
    void *grown = std::realloc(*output, static_cast<std::size_t>(needed));
    if (grown == nullptr) {
        return false;
    }
    *output = static_cast<char *>(grown);
    *capacity = static_cast<int32_t>(needed);
    return true;
}

} // namespace

extern "C" {

int32_t uXmlParserEscapeAmpersands(const char *input, int32_t inputLength, char *output,
                                   int32_t *outCount, int32_t capacity, uXmlParserAmpState *state,
                                   int32_t final) {
    if (input == nullptr || inputLength <= 0 || output == nullptr || outCount == nullptr ||
        !validState(state) || capacity <= 0) {
        return kBadArgument;
    }
    *outCount = 0;
    Output out(output, capacity, outCount);
    if (state->pendingCount == 0 && std::memchr(input, '&', inputLength) == nullptr) {
        return out.put({input, static_cast<std::size_t>(inputLength)}) ? kDone : kOutputFull;
    }
    Escaper escaper(out, *state);
    if (!escaper.run(input, inputLength)) {
        return kOutputFull;
    }
    if (final != 0 && !escaper.closePending()) {
        return kOutputFull;
    }
    return kDone;
}

int32_t uXmlParserProcessXmlBufferWithAmp(const char *input, int32_t inputLength, char **output,
                                          int32_t *outCount, int32_t *capacity,
                                          uXmlParserAmpState *state, int32_t final) {
    const int32_t ampersands = uStrCountTargetChar(input, inputLength, '&');
    if (ampersands == -1) {
        return -1;
    }
    if (output == nullptr || capacity == nullptr) {
        logEscapeFailure(kBadArgument);
        return -1;
    }
    const int64_t needed = escapedBound(inputLength, ampersands, state);
    if (*capacity < needed && !growOutput(output, capacity, needed)) {
        pu::log::error(pu::log::kXmlParser, "%s: Memory reallocation failed.",
                       "uXmlParserProcessXmlBufferWithAmp");
        return -1;
    }
    if (outCount != nullptr) {
        *outCount = 0;
    }
    const int32_t reason =
        uXmlParserEscapeAmpersands(input, inputLength, *output, outCount, *capacity, state, final);
    if (reason != kDone) {
        logEscapeFailure(reason);
        return -1;
    }
    return 0;
}

} // extern "C"
