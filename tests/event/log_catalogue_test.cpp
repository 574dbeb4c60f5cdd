// SPDX-License-Identifier: MIT
// Every exact log text of the event families, with its level and module: log filters and
// monitoring match on them, misspellings included. (The monitor's expiry report is checked with
// its figures by the monitor scenarios.)
#include "timer_harness.hpp"

#include <log_capture.hpp>
#include <test_support.hpp>

namespace pu::test {
namespace {

void quitMonitor() {
    uMonitorUninit();
    while (std::atomic_ref(gMonitorMsgQ).load() != 0 ||
           std::atomic_ref(gMonitorList).load() != nullptr) {
        std::this_thread::yield();
    }
}
template <int> void nop(const char *, void *, void *, std::uint32_t) {}
void fillBus() {
    for (int i = 0; i <= 256; ++i) { // one name more than the table holds
        uEventCare(std::to_string(i).c_str(), nop<0>, nullptr);
    }
}
void execute(std::int32_t state) {
    const uInputEventMsg msg{state, 1};
    uInputEventExecute(&msg);
}

TEST(EventLogCatalogue, EveryMessageWithItsLevelAndModule) {
    timerPowerHandle(); // input events need the timer service
    constexpr const char *ev = "basalt.utils.event", *mon = "basalt.utils.monitor",
                         *in = "basalt.utils.inputEvent";
    void (*const cb)(std::int32_t, std::uint32_t) = [](std::int32_t, std::uint32_t) {};
    using Row = std::tuple<std::function<void()>, int, const char *, const char *>;
    for (const auto &[call, level, module, text] : {
             Row{[] { uEventUninit(), uEventInit(), uEventInit(); }, 1, ev,
                 "Event is alreday init."},
             Row{[] { uEventInit(), uEventUninit(), uEventUninit(); }, 1, ev, "Event not init."},
             Row{[] { uEventCare("e", nop<0>, nullptr), uEventCare("e", nop<0>, nullptr); }, 0, ev,
                 "eventprocess has existed"},
             Row{[] { uEventCare("e", nop<0>, nullptr), uEventClear("e", nop<1>); }, 0, ev,
                 "This eventprocess didn't exist"},
             Row{[] { uEventRaise("nobody", nullptr, 0); }, 0, ev, "No module care event nobody."},
             Row{[] { uEventUninit(), fillBus(), uEventUninit(); }, 3, ev,
                 "Event hash buffer full."},
             Row{[] { uMonitorInit(), quitMonitor(); }, 1, mon, "uMonitorInit: success."},
             Row{[] { uMonitorUninit(); }, 2, mon, "uMonitorUninit: msg Queue not create."},
             Row{[] { uInputEventInit(); }, 2, in, "uInputEventInit, already init."},
             Row{[cb] { uInputEventStart(1, 0, cb); }, 2, in,
                 "uInputEventStart, argument is not valid."},
             Row{[cb] { uInputEventStart(1, 1, cb), uInputEventStop(1); }, 1, in,
                 "uInputEventStart, starting."},
             Row{[] { uInputEventExecute(nullptr); }, 2, in, "uInputEventExecute, msg is null."},
             Row{[] { execute(6); }, 2, in, "uInputEventExecute, state is incorrect."},
             Row{[] { execute(3); }, 1, in, "uInputEventExecute, executing."},
             Row{[] { execute(3); }, 2, in, "uInputEventExecute, input event do not exist."},
             Row{[] { uInputEventStop(1); }, 1, in, "uInputEventStop, stopping."},
             Row{[] { uInputEventStop(1); }, 2, in, "uInputEventStop, input event do not exist."},
             Row{[] { uInputEventUninit(), uInputEventUninit(), uInputEventInit(); }, 2, in,
                 "uInputEventUninit, not init."},
             Row{[cb] { uInputEventUninit(), uInputEventStart(1, 1, cb), uInputEventInit(); }, 2,
                 in, "uInputEventStart, not init."},
             Row{[] { uInputEventUninit(), execute(3), uInputEventInit(); }, 2, in,
                 "uInputEventExecute, not init."},
             Row{[] { uInputEventUninit(), uInputEventStop(1), uInputEventInit(); }, 2, in,
                 "uInputEventStop, not init."},
         }) {
        {
            LogCapture quiet;
            uInputEventInit();
        }
        LogCapture capture;
        call();
        EXPECT_EQ(capture.count(level, module, text), 1) << capture.dump();
    }
    LogCapture quiet;
    uEventUninit();
}

} // namespace
} // namespace pu::test
