// SPDX-License-Identifier: MIT
// Log capture for tests, built on the platform's log sink: while a capture is installed the log
// level lets every line through, and the capture applies the level it replaced to stderr itself.
#include <platform_sim.h>

#include <climits>
#include <cstdio>
#include <exception>
#include <mutex>
#include <new>

namespace {

struct Capture {
    PLATFORM_LOG_SINK sink;
    void *context;
    bool quiet;
    int level; // the level in force before the first capture, restored when the last goes
};

struct CaptureState {
    std::mutex mutex; // serialises installs
    Capture *current = nullptr;
};

// Never destroyed: threads may log while the process exits.
CaptureState &captureState() {
    static auto &state = *new CaptureState;
    return state;
}

void forward(void *context, int level, const char *module, const char *message) {
    const auto *capture = static_cast<const Capture *>(context);
    capture->sink(capture->context, level, module, message);
    if (!capture->quiet && level >= capture->level) {
        std::fprintf(stderr, "%d %s: %s\n", level, module, message);
    }
}

void install(PLATFORM_LOG_SINK sink, void *context, bool quiet) {
    CaptureState &state = captureState();
    std::lock_guard lock(state.mutex);
    Capture *old = state.current;
    if (sink != nullptr) {
        int level = old != nullptr ? old->level : platformLogGetLevel();
        auto *capture = new (std::nothrow) Capture{sink, context, quiet, level};
        if (capture == nullptr) {
            return; // the old capture stays
        }
        // The sink first, then the level: no debug line slips out to stderr in between.
        platformLogSetSink(forward, capture);
        platformLogSetLevel(INT_MIN);
        state.current = capture;
    } else if (old != nullptr) {
        platformLogSetLevel(old->level);
        platformLogSetSink(nullptr, nullptr);
        state.current = nullptr;
    }
    // platformLogSetSink has waited for every call that could still read the old capture.
    delete old;
}

} // namespace

void platformSimSetLogSink(PLATFORM_LOG_SINK sink, void *context, int quiet) {
    try {
        install(sink, context, quiet != 0);
    } catch (const std::exception &) {
        // Only the mutex can throw, before anything changed.
    }
}
