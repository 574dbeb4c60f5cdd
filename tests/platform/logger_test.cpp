// SPDX-License-Identifier: MIT
// The platform logger: the level from the environment and at run time, the line format and its
// newline around the line buffer, the sink, and removing a sink while others write. And every
// line the platform layer logs.
#include "call_table.hpp"
#include "test_support.hpp"

#include <platform_os.h>
#include <platform_sim.h>

#include <gtest/gtest.h>

#include <atomic>
#include <climits>
#include <cstdlib>
#include <string>
#include <thread>
#include <vector>

using testing::internal::CaptureStderr;
using testing::internal::GetCapturedStderr;

namespace {

using Lines = std::vector<std::string>;

void collect(void *context, int level, const char *module, const char *message) {
    static_cast<Lines *>(context)->push_back(std::to_string(level) + "|" + module + "|" + message);
}

// The setting is read when the logger is first used, so each row runs in a fresh process.
TEST(LoggerEnvironment, LevelSettingAcceptsOnlyWholeNumbers) {
    GTEST_FLAG_SET(death_test_style, "threadsafe");
    const struct {
        const char *text; // null: not set
        int level;
    } cases[] = {
        {nullptr, PLATFORM_LOG_WARNING},
        {"2147483647", INT_MAX},
        {"2147483648", PLATFORM_LOG_WARNING},
        {"1x", PLATFORM_LOG_WARNING},
    };
    for (const auto &c : cases) {
        EXPECT_EXIT(
            {
                c.text != nullptr ? setenv("PLATFORM_LOG_LEVEL", c.text, 1)
                                  : unsetenv("PLATFORM_LOG_LEVEL");
                std::exit(platformLogGetLevel() == c.level ? 0 : 1);
            },
            ::testing::ExitedWithCode(0), "")
            << "PLATFORM_LOG_LEVEL=" << pu::test::orNull(c.text);
    }
}

// Each row is logged twice: to stderr, then to the application's sink that replaces it. Lines
// around the 1 KiB line buffer leave it for the heap.
TEST(Logger, LevelLineFormatAndTheSinkWithoutTheNewline) {
    const std::string edge(1017, 'x'); // "3 m: " + 1017 + newline + terminator fill 1 KiB exactly
    const struct {
        int threshold, level;
        const char *module;
        std::string message, line, handed; // line: on stderr, "" when filtered
    } cases[] = {
        {PLATFORM_LOG_WARNING, 3, "m", "two\n\n", "3 m: two\n\n", "3|m|two\n"},
        {PLATFORM_LOG_WARNING, 3, nullptr, "no module", "3 : no module\n", "3||no module"},
        {PLATFORM_LOG_WARNING, 3, "m", edge, "3 m: " + edge + "\n", "3|m|" + edge},
        {PLATFORM_LOG_WARNING, 3, "m", edge + "y\n", "3 m: " + edge + "y\n", "3|m|" + edge + "y"},
        {PLATFORM_LOG_ERROR, 2, "m", "below", "", ""},
        {PLATFORM_LOG_ERROR, 3, "m", "at", "3 m: at\n", "3|m|at"},
    };
    for (const auto &c : cases) {
        SCOPED_TRACE(c.line.substr(0, 20) + " (" + std::to_string(c.message.size()) + ")");
        const int before = platformLogSetLevel(c.threshold);
        EXPECT_EQ(platformLogGetLevel(), c.threshold);
        for (bool toSink : {false, true}) {
            Lines sink;
            platformLogSetSink(toSink ? collect : nullptr, &sink);
            CaptureStderr();
            const int written = basaltPrintLog(c.level, c.module, "%s", c.message.c_str());
            EXPECT_EQ(GetCapturedStderr(), toSink ? "" : c.line);
            EXPECT_EQ(written, static_cast<int>(c.line.size()));
            EXPECT_EQ(sink, toSink && !c.handed.empty() ? Lines{c.handed} : Lines{});
        }
        EXPECT_EQ(platformLogSetLevel(before), c.threshold) << "returns the previous";
    }
    platformLogSetSink(nullptr, nullptr);
    EXPECT_EQ(basaltPrintLog(PLATFORM_LOG_ERROR, "m", nullptr), 0) << "no format, no line";
}

// A sink whose context dies right after removal: no call may reach it afterwards.
struct GuardedSink {
    std::atomic<bool> removed{false};
    std::atomic<int> calls{0}, late{0};

    static void sink(void *context, int, const char *, const char *) {
        auto *self = static_cast<GuardedSink *>(context);
        self->calls.fetch_add(1);
        std::this_thread::yield(); // widen the window in which a removal can race
        self->late += self->removed.load();
    }
};

TEST(SlowLogger, RemovingTheSinkWaitsForCallsInProgress) {
    std::atomic<bool> stop{false};
    std::atomic<int> late{0};
    pu::test::fanOut(4, [&](int t) {
        while (t > 0 && !stop.load()) {
            basaltPrintLog(PLATFORM_LOG_DEBUG, "race", "line");
        }
        for (int round = 0; t == 0 && round < 200; ++round) {
            GuardedSink guarded;
            platformSimSetLogSink(GuardedSink::sink, &guarded, 1);
            while (guarded.calls.load() < 3) {
                std::this_thread::yield();
            }
            platformSimSetLogSink(nullptr, nullptr, 0);
            guarded.removed.store(true);
            late += guarded.late.load();
        }
        stop = true;
    });
    EXPECT_EQ(late.load(), 0) << "a sink was called after its removal returned";
}

// Every line the platform layer logs, exactly: applications watch for these texts.
TEST(LogCatalogue, PlatformMessages) {
    int app = 0;
    const auto line = [](const std::string &text) { return "0 platform.os: osaSm" + text; };
    const std::string registered = pu::test::logged([&] { app = osaSmRegisterApp("cat", [] {}); });
    pu::test::checkRows({
        {"register", registered,
         line("RegisterApp: app " + std::to_string(app) + " \"cat\" registered")},
        {"active", pu::test::logged([&] { osaSmAddActiveApp(app, 2); }),
         line("AddActiveApp: app " + std::to_string(app) + " active count 2")},
        {"inactive", pu::test::logged([&] { osaSmDelActiveApp(app); }),
         line("DelActiveApp: app " + std::to_string(app) + " active count 1")},
        {"wake-up", pu::test::logged([&] { osaSmAddWakeUpTimer(app, 4000000000u); }),
         line("AddWakeUpTimer: app " + std::to_string(app) + " wake-up in 4000000000 ms")},
        {"no wake-up", pu::test::logged([&] { EXPECT_EQ(osaSmDelWakeUpTimer(app), 0); }),
         line("DelWakeUpTimer: app " + std::to_string(app) + " wake-up cancelled")},
        {"time base", pu::test::logged([] { EXPECT_EQ(osaUpdateSysTimeBase(1000, 5, 1500), 0); }),
         "0 platform.os: osaUpdateSysTimeBase: time base 1000.000005 s re-based, step 1500 ms"},
    });
}

} // namespace
