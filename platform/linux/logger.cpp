// SPDX-License-Identifier: MIT
// The platform logger: formats a line and writes it to the application's sink or to stderr.
#include "platform_internal.hpp"

#include <atomic>
#include <condition_variable>
#include <cstdarg>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <mutex>
#include <syslog.h>

namespace pu::platform {
namespace {

constexpr int kDefaultLogLevel = PLATFORM_LOG_WARNING;

// The lowest level written out: PLATFORM_LOG_LEVEL until platformLogSetLevel changes it.
std::atomic<int> &outputThreshold() {
    static std::atomic<int> threshold{static_cast<int>(
        readEnvInteger("PLATFORM_LOG_LEVEL", kDefaultLogLevel, INT32_MIN, INT32_MAX))};
    return threshold;
}

// The installed sink. Calls run with the mutex released; each counts itself in inFlight of its
// epoch's parity so that replacing the sink can wait for the calls to the old one.
struct SinkState {
    std::mutex mutex;
    std::condition_variable drained;
    PLATFORM_LOG_SINK sink = nullptr;
    void *context = nullptr;
    bool replacing = false;
    std::uint64_t epoch = 0;
    int inFlight[2] = {0, 0};
    std::atomic<bool> installed{false}; // lets the common case skip the mutex
};

// Never destroyed: threads may log while the process exits.
SinkState &sinkState() {
    static auto &state = *new SinkState;
    return state;
}

thread_local int sinkCallDepth = 0;

struct SinkCall {
    PLATFORM_LOG_SINK sink = nullptr;
    void *context = nullptr;
    int parity = 0;
};

SinkCall enterSink() {
    SinkState &state = sinkState();
    if (!state.installed.load(std::memory_order_acquire)) {
        return {};
    }
    std::lock_guard lock(state.mutex);
    if (state.sink == nullptr) {
        return {};
    }
    int parity = static_cast<int>(state.epoch & 1);
    ++state.inFlight[parity];
    return {state.sink, state.context, parity};
}

void leaveSink(const SinkCall &call) {
    SinkState &state = sinkState();
    std::lock_guard lock(state.mutex);
    if (--state.inFlight[call.parity] == 0) {
        state.drained.notify_all();
    }
}

void installSink(PLATFORM_LOG_SINK sink, void *context) {
    SinkState &state = sinkState();
    std::unique_lock lock(state.mutex);
    state.drained.wait(lock, [&] { return !state.replacing; });
    state.replacing = true;
    state.sink = sink;
    state.context = sink != nullptr ? context : nullptr;
    int oldParity = static_cast<int>(state.epoch & 1);
    ++state.epoch;
    state.installed.store(sink != nullptr, std::memory_order_release);
    // A sink that replaces itself cannot wait for its own call to return.
    if (sinkCallDepth == 0) {
        state.drained.wait(lock, [&] { return state.inFlight[oldParity] == 0; });
    }
    state.replacing = false;
    state.drained.notify_all();
}

// The line "<level> <module>: <message>", in a stack buffer when it fits.
class LineBuffer {
  public:
    LineBuffer() = default;
    LineBuffer(const LineBuffer &) = delete;
    LineBuffer &operator=(const LineBuffer &) = delete;
    ~LineBuffer() { std::free(heap_); }

    // Formats the line; false when memory is short or the format is bad.
    bool format(int level, const char *module, const char *format, va_list arguments) {
        int prefix = std::snprintf(nullptr, 0, "%d %s: ", level, module);
        va_list copy;
        va_copy(copy, arguments);
        int message = std::vsnprintf(nullptr, 0, format, copy);
        va_end(copy);
        if (prefix < 0 || message < 0) {
            return false;
        }
        prefix_ = static_cast<std::size_t>(prefix);
        length_ = prefix_ + static_cast<std::size_t>(message);
        // Room for the terminator and for the newline that write() may add.
        if (length_ + 2 > sizeof stack_) {
            heap_ = static_cast<char *>(std::malloc(length_ + 2));
            if (heap_ == nullptr) {
                return false;
            }
            data_ = heap_;
        }
        std::snprintf(data_, prefix_ + 1, "%d %s: ", level, module);
        std::vsnprintf(data_ + prefix_, length_ - prefix_ + 1, format, arguments);
        return true;
    }

    bool endsWithNewline() const noexcept {
        return length_ > prefix_ && data_[length_ - 1] == '\n';
    }

    // Hands the message, one trailing newline removed, to sink.
    void deliver(const SinkCall &call, int level, const char *module) {
        bool newline = endsWithNewline();
        if (newline) {
            data_[length_ - 1] = '\0';
        }
        ++sinkCallDepth;
        call.sink(call.context, level, module, data_ + prefix_);
        --sinkCallDepth;
        if (newline) {
            data_[length_ - 1] = '\n';
        }
    }

    // The length of the line with its newline, as write() writes it.
    int lineLength() const noexcept {
        return static_cast<int>(length_ + (endsWithNewline() ? 0 : 1));
    }

    // Writes the whole line, with its newline, in one call so threads do not interleave.
    int write(FILE *stream) {
        if (!endsWithNewline()) {
            data_[length_++] = '\n';
            data_[length_] = '\0';
        }
        return static_cast<int>(std::fwrite(data_, 1, length_, stream));
    }

  private:
    char stack_[1024];
    char *heap_ = nullptr;
    char *data_ = stack_;
    std::size_t prefix_ = 0;
    std::size_t length_ = 0;
};

int printLog(int level, const char *module, const char *format, va_list arguments) {
    if (format == nullptr || level < outputThreshold().load(std::memory_order_relaxed)) {
        return 0; // the common debug line: nobody wants it, so do not format it
    }
    LineBuffer line;
    if (!line.format(level, module != nullptr ? module : "", format, arguments)) {
        return 0;
    }
    SinkCall call = enterSink();
    if (call.sink != nullptr) {
        line.deliver(call, level, module != nullptr ? module : "");
        leaveSink(call);
        return line.lineLength();
    }
    return line.write(stderr);
}

} // namespace
} // namespace pu::platform

using namespace pu::platform;

int basaltPrintLog(int level, const char *module, const char *format, ...) {
    va_list arguments;
    va_start(arguments, format);
    int written = guarded(0, [&] { return printLog(level, module, format, arguments); });
    va_end(arguments);
    return written;
}

void platformLogSetSink(PLATFORM_LOG_SINK sink, void *context) {
    guarded(0, [&] {
        installSink(sink, context);
        return 0;
    });
}

int platformLogSetLevel(int level) {
    return outputThreshold().exchange(level, std::memory_order_relaxed);
}

int platformLogGetLevel(void) {
    return outputThreshold().load(std::memory_order_relaxed);
}

void platformLogSyslogSink(void *context, int level, const char *module, const char *message) {
    (void)context;
    int priority = level <= PLATFORM_LOG_DEBUG     ? LOG_DEBUG
                   : level == PLATFORM_LOG_INFO    ? LOG_INFO
                   : level == PLATFORM_LOG_WARNING ? LOG_WARNING
                                                   : LOG_ERR;
    syslog(priority, "%s: %s", module != nullptr ? module : "", message != nullptr ? message : "");
}
