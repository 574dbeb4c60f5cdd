// SPDX-License-Identifier: MIT
// Interval plans: every operation from every state against a model of the states, counting,
// the kept rest of a paused wait, ids, refused input, and timers that outlive the service.
#include "timer_harness.hpp"

#include <log_capture.hpp>

#include <algorithm>
#include <array>
#include <map>
#include <string>

namespace pu::test {
namespace {

constexpr const char *kModule = "basalt.utils.intervalPlan";
using Operation = std::int32_t (*)(std::int32_t);

std::mutex mutex;
std::map<std::int32_t, std::string> codes; // callback codes per plan, in order

void record(std::int32_t code, std::int32_t id) {
    std::lock_guard lock(mutex);
    codes[id] += static_cast<char>('0' + code);
}

// The callback codes since the last call; each operation waits for its callback, since callbacks
// queued back to back may run in any order.
std::string newCodes(std::int32_t id) {
    platformSimWaitPoolsIdle();
    std::lock_guard lock(mutex);
    return std::exchange(codes[id], "");
}

std::int32_t settled(Operation op, std::int32_t id) {
    const std::int32_t result = op(id);
    platformSimWaitPoolsIdle();
    return result;
}

enum State { Added, Running, RunPaused, Waiting, WaitPaused, LastRun, Gone };
const char *const kStateNames[] = {"Added",      "Running", "RunPaused", "Waiting",
                                   "WaitPaused", "LastRun", "Gone"};

class IntervalPlans : public TimerTest {
  protected:
    void SetUp() override {
        TimerTest::SetUp();
        ASSERT_EQ(uIntervalPlanInit(), 0);
    }
    void TearDown() override {
        LogCapture quiet; // waiting plans' timers go with their plans, not with uninit
        for (std::int32_t id = 1; id <= 100; ++id) {
            uIntervalPlanDel(id);
        }
        platformSimWaitPoolsIdle();
        uIntervalPlanUninit();
    }

    // A plan of 3 runs (1 for LastRun) 10 s apart, driven to the state.
    static std::int32_t planIn(State state) {
        const std::int32_t id = uIntervalPlanAdd(state == LastRun ? 1 : 3, 10, record);
        const std::vector<Operation> path[] = {
            {},
            {uIntervalPlanStart},
            {uIntervalPlanStart, uIntervalPlanPause},
            {uIntervalPlanStart, uIntervalPlanComplete},
            {uIntervalPlanStart, uIntervalPlanComplete, uIntervalPlanPause},
            {uIntervalPlanStart},
            {uIntervalPlanStart, uIntervalPlanDel}};
        for (Operation op : path[state]) {
            settled(op, id);
        }
        newCodes(id);
        return id;
    }

    // What the state does from here: codes after the wait, then resume's result and codes, then
    // delete's, then whether the plan still exists. Destroys the plan.
    static std::string fingerprint(std::int32_t id) {
        advance(10'000);
        std::string out = newCodes(id) + "/";
        for (Operation op : {uIntervalPlanResume, uIntervalPlanDel}) {
            out += settled(op, id) == 0 ? "+" : "-";
            out += newCodes(id) + "/";
        }
        LogCapture log;
        uIntervalPlanResume(id);
        return out + (log.count(2, kModule, "uIntervalPlanResume, invaild task!") == 0 ? "e" : "");
    }
};

TEST_F(IntervalPlans, EveryOperationFromEveryState) {
    // Fingerprints of the states, worked out from their contract.
    // What each state does afterwards (see fingerprint), worked out from its contract; A added,
    // R running, P a paused run, W waiting, Q a paused wait, G gone.
    const std::map<char, std::string> kFingerprint = {{'A', "/-/-/e"},  {'R', "/-/+1/"},
                                                      {'P', "/+2/+1/"}, {'W', "0/-/+1/"},
                                                      {'Q', "/+/+1/"},  {'G', "/-/-/"}};
    const Operation ops[] = {uIntervalPlanStart, uIntervalPlanDel, uIntervalPlanPause,
                             uIntervalPlanResume, uIntervalPlanComplete};
    // Cells: accepted (+) or refused (-), the callback codes, and the state afterwards.
    const struct {
        State from;
        const char *cells[5]; // Start, Del, Pause, Resume, Complete
    } kModel[] = {
        {Added, {"+0>R", "->A", "->A", "->A", "->A"}},
        {Running, {"->R", "+1>G", "+3>P", "->R", "+4>W"}},
        {RunPaused, {"->P", "+1>G", "->P", "+2>R", "->P"}},
        {Waiting, {"+0>R", "+1>G", "+>Q", "->W", "->W"}},
        {WaitPaused, {"->Q", "+1>G", "->Q", "+>W", "->Q"}},
        {LastRun, {"->R", "+1>G", "+3>P", "->R", "+1>G"}}, // the last completion finishes
    };
    const auto stateOf = [&](const std::string &print) {
        for (const auto &[letter, known] : kFingerprint) {
            if (known == print) {
                return std::string(1, letter);
            }
        }
        return "?" + print;
    };
    for (const auto &row : kModel) {
        for (std::size_t op = 0; op < 5; ++op) {
            const std::int32_t id = planIn(row.from);
            std::string got = settled(ops[op], id) == 0 ? "+" : "-";
            got += newCodes(id) + ">";
            got += stateOf(fingerprint(id));
            EXPECT_EQ(got, row.cells[op]) << kStateNames[row.from] << " x operation " << op;
            settled(uIntervalPlanDel, id);
        }
    }
    for (State state : {Added, Running, RunPaused, Waiting, WaitPaused, Gone}) {
        EXPECT_EQ(stateOf(fingerprint(planIn(state))), std::string(1, "ARPWQLG"[state]));
    }
}

TEST_F(IntervalPlans, CountsAndWaits) {
    using Act = std::function<void(std::int32_t)>;
    const struct {
        const char *what;
        std::int32_t count, interval;
        std::vector<Act> steps;
        std::vector<std::string> codes; // after each step
    } rows[] = {
        {"count 0 finishes at the first completion",
         0,
         1,
         {[](std::int32_t id) { settled(uIntervalPlanComplete, id); }},
         {"01"}},
        {"count 2: the timer starts the second run",
         2,
         10,
         {[](std::int32_t id) { settled(uIntervalPlanComplete, id), advance(9999); },
          [](std::int32_t) { advance(1); },
          [](std::int32_t id) { settled(uIntervalPlanComplete, id), advance(20'000); }},
         {"04", "0", "1"}},
        {"a paused wait keeps its rest to the millisecond",
         3,
         10,
         {[](std::int32_t id) {
              settled(uIntervalPlanComplete, id), advance(2500), settled(uIntervalPlanPause, id);
              advance(60'000), settled(uIntervalPlanResume, id), advance(7499);
          },
          [](std::int32_t) { advance(1); }},
         {"04", "0"}},
        {"a manual start cancels the wait",
         3,
         10,
         {[](std::int32_t id) { settled(uIntervalPlanComplete, id), advance(5000); },
          [](std::int32_t id) {
              settled(uIntervalPlanStart, id), settled(uIntervalPlanComplete, id);
          },
          [](std::int32_t) { advance(5000); }, [](std::int32_t) { advance(5000); }},
         {"04", "04", "", "0"}},
        // A wait of 0 s has nothing left when paused: resuming logs and the plan stays paused.
        {"a paused wait with nothing left stays paused",
         2,
         0,
         {[](std::int32_t id) {
              settled(uIntervalPlanComplete, id), settled(uIntervalPlanPause, id);
          },
          [](std::int32_t id) {
              LogCapture log;
              EXPECT_EQ(settled(uIntervalPlanResume, id), 0);
              EXPECT_EQ(settled(uIntervalPlanResume, id), 0); // still paused
              EXPECT_EQ(log.countContaining(kModule, "invaild lastTimerRemainTime:0!"), 2);
              advance(1000);
          }},
         {"04", ""}},
    };
    for (const auto &r : rows) {
        SCOPED_TRACE(r.what);
        const std::int32_t id = uIntervalPlanAdd(r.count, r.interval, record);
        settled(uIntervalPlanStart, id);
        std::vector<std::string> got;
        for (const Act &step : r.steps) {
            step(id);
            got.push_back(newCodes(id));
        }
        EXPECT_EQ(got, r.codes);
        settled(uIntervalPlanDel, id);
        newCodes(id);
    }
}

TEST_F(IntervalPlans, RefusedInputAndIds) {
    LogCapture log;
    EXPECT_EQ(uIntervalPlanAdd(1, 1, nullptr), -1);
    EXPECT_EQ(uIntervalPlanAdd(-1, 1, record), -1);
    EXPECT_EQ(uIntervalPlanAdd(1, -1, record), -1);
    EXPECT_EQ(uIntervalPlanAdd(1, 2'147'484, record), -1); // longer than a timer can wait
    EXPECT_EQ(log.countContaining(kModule, ""), 4);        // each refusal logged
    const std::int32_t longest = uIntervalPlanAdd(2, 2'147'483, record);
    settled(uIntervalPlanStart, longest), settled(uIntervalPlanComplete, longest);
    uTimerShow(); // the wait is armed for its whole length
    EXPECT_EQ(log.countContaining("basalt.utils.timer", "expires=[2147483000]"), 1);
    settled(uIntervalPlanDel, longest);
    for (Operation op : {uIntervalPlanStart, uIntervalPlanDel, uIntervalPlanPause,
                         uIntervalPlanResume, uIntervalPlanComplete}) {
        EXPECT_EQ(op(-1), -1);
        EXPECT_EQ(op(42), -1);
    }
    // Ids 1 to 100; a freed id comes back when the search wraps round.
    std::vector<std::int32_t> ids;
    for (std::int32_t id; (id = uIntervalPlanAdd(1, 0, record)) > 0;) {
        ids.push_back(id);
    }
    EXPECT_EQ(ids.size(), 100U);
    settled(uIntervalPlanStart, ids[5]), settled(uIntervalPlanComplete, ids[5]);
    EXPECT_EQ(uIntervalPlanAdd(1, 0, record), ids[5]);
    EXPECT_EQ(uIntervalPlanAdd(1, 0, record), -1);
}

// Uninit leaves waiting plans' timers armed: one that fires finds no plan, or a new plan that
// was given its id, which it then starts.
TEST_F(IntervalPlans, TimersOutliveTheService) {
    const std::int32_t id = uIntervalPlanAdd(2, 1, record);
    settled(uIntervalPlanStart, id), settled(uIntervalPlanComplete, id);
    const std::int32_t other = uIntervalPlanAdd(2, 2, record);
    settled(uIntervalPlanStart, other), settled(uIntervalPlanComplete, other);
    newCodes(id), newCodes(other);
    uIntervalPlanUninit();
    {
        LogCapture quiet;
        EXPECT_EQ(uIntervalPlanAdd(1, 1, record), -1);
        advance(1000); // the first timer fires into nothing
        EXPECT_EQ(newCodes(id), "");
    }
    ASSERT_EQ(uIntervalPlanInit(), 0);
    EXPECT_EQ(uIntervalPlanInit(), 0); // a second init changes nothing
    EXPECT_EQ(uIntervalPlanAdd(1, 1, record), id);
    EXPECT_EQ(uIntervalPlanAdd(1, 1, record), other);
    advance(1000); // the second timer starts the new plan that has its id
    EXPECT_EQ(newCodes(id), "");
    EXPECT_EQ(newCodes(other), "0");
}

} // namespace
} // namespace pu::test
