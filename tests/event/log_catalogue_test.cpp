// SPDX-License-Identifier: MIT
// Every exact log text of the event families, with its level and module: log filters and
// monitoring match on them, misspellings included. (The monitor's expiry report is checked with
// its figures by the monitor scenarios.)
#include "timer_harness.hpp"

#include <call_table.hpp>

namespace pu::test {
namespace {

template <int> void nop(const char *, void *, void *, std::uint32_t) {}
void onInput(std::int32_t, std::uint32_t) {}
int execute(std::int32_t state) {
    const uInputEventMsg msg{state, 1};
    return (uInputEventExecute(&msg), 0);
}
// Runs call with the input events shut down, and starts them again.
int uninitialised(const std::function<void()> &call) {
    return (uInputEventUninit(), call(), uInputEventInit(), 0);
}

TEST(EventLogCatalogue, EveryMessageWithItsLevelAndModule) {
    timerPowerHandle(); // input events need the timer service
    constexpr const char *ev = "basalt.utils.event", *mon = "basalt.utils.monitor",
                         *in = "basalt.utils.inputEvent";
    const auto fillBus = [] { // one name more than the table holds
        for (int i = 0; i <= 256; ++i) {
            uEventCare(std::to_string(i).c_str(), nop<0>, nullptr);
        }
        return 0;
    };
    const auto quitMonitor = [] {
        for (uMonitorUninit(); std::atomic_ref(gMonitorMsgQ).load() != 0 ||
                               std::atomic_ref(gMonitorList).load() != nullptr;) {
            std::this_thread::yield();
        }
        return 0;
    };
    {
        LogCapture quiet;
        uEventUninit(), uInputEventInit();
    }
    checkLogRows({
        PU_LOG_ROW((uEventInit(), uEventInit()), 1, ev, "Event is alreday init."),
        PU_LOG_ROW((uEventUninit(), uEventUninit()), 1, ev, "Event not init."),
        PU_LOG_ROW((uEventCare("e", nop<0>, nullptr), uEventCare("e", nop<0>, nullptr)), 0, ev,
                   "eventprocess has existed"),
        PU_LOG_ROW(uEventClear("e", nop<1>), 0, ev, "This eventprocess didn't exist"),
        PU_LOG_ROW(uEventRaise("nobody", nullptr, 0), 0, ev, "No module care event nobody."),
        PU_LOG_ROW((uEventUninit(), fillBus()), 3, ev, "Event hash buffer full."),
        PU_LOG_ROW((uMonitorInit(), quitMonitor()), 1, mon, "uMonitorInit: success."),
        PU_LOG_ROW(uMonitorUninit(), 2, mon, "uMonitorUninit: msg Queue not create."),
        PU_LOG_ROW(uInputEventInit(), 2, in, "uInputEventInit, already init."),
        PU_LOG_ROW(uInputEventStart(1, 0, onInput), 2, in,
                   "uInputEventStart, argument is not valid."),
        PU_LOG_ROW(uInputEventStart(1, 1, onInput), 1, in, "uInputEventStart, starting."),
        PU_LOG_ROW(uInputEventStop(1), 1, in, "uInputEventStop, stopping."),
        PU_LOG_ROW(uInputEventStop(1), 2, in, "uInputEventStop, input event do not exist."),
        PU_LOG_ROW(uInputEventExecute(nullptr), 2, in, "uInputEventExecute, msg is null."),
        PU_LOG_ROW(execute(6), 2, in, "uInputEventExecute, state is incorrect."),
        PU_LOG_ROW(execute(3), 1, in, "uInputEventExecute, executing."),
        PU_LOG_ROW(execute(3), 2, in, "uInputEventExecute, input event do not exist."),
        PU_LOG_ROW(uninitialised([] { uInputEventUninit(); }), 2, in,
                   "uInputEventUninit, not init."),
        PU_LOG_ROW(uninitialised([] { uInputEventStart(1, 1, onInput); }), 2, in,
                   "uInputEventStart, not init."),
        PU_LOG_ROW(uninitialised([] { execute(3); }), 2, in, "uInputEventExecute, not init."),
        PU_LOG_ROW(uninitialised([] { uInputEventStop(1); }), 2, in, "uInputEventStop, not init."),
    });
    LogCapture quiet;
    uEventUninit();
}

} // namespace
} // namespace pu::test
