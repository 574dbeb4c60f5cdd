// SPDX-License-Identifier: MIT
// Interval plans: every operation from every state against a model of the states, ids and
// refused input.
#include "timer_harness.hpp"

#include <log_capture.hpp>

#include <map>
#include <mutex>
#include <string>

namespace pu::test {
namespace {

using Operation = std::int32_t (*)(std::int32_t);
constexpr Operation kStart = uIntervalPlanStart, kDel = uIntervalPlanDel,
                    kPause = uIntervalPlanPause, kResume = uIntervalPlanResume,
                    kComplete = uIntervalPlanComplete;

std::mutex mutex;
std::map<std::int32_t, std::string> codes; // callback codes per plan, in order

void record(std::int32_t code, std::int32_t id) {
    std::lock_guard lock(mutex);
    codes[id] += static_cast<char>('0' + code);
}

// The callback codes since the last call.
std::string newCodes(std::int32_t id) {
    platformSimWaitPoolsIdle();
    std::lock_guard lock(mutex);
    return std::exchange(codes[id], "");
}

// Each operation waits for its callback: callbacks queued back to back may run in any order.
// Gives "+" or "-" for accepted or refused, then the codes it called back with.
std::string settled(Operation op, std::int32_t id) {
    const std::string result = op(id) == 0 ? "+" : "-"; // before the codes it causes
    return result + newCodes(id);
}

class IntervalPlans : public PlanTest {
  protected:
    void TearDown() override {
        LogCapture quiet; // waiting plans' timers go with their plans, not with uninit
        for (std::int32_t id = 1; id <= 100; ++id) {
            uIntervalPlanDel(id);
        }
        platformSimWaitPoolsIdle();
        PlanTest::TearDown();
    }
};

enum State { Added, Running, RunPaused, Waiting, WaitPaused, LastRun };

// A plan of 3 runs (1 for LastRun) 10 s apart, driven to the state.
std::int32_t planIn(State state) {
    const std::int32_t id = uIntervalPlanAdd(state == LastRun ? 1 : 3, 10, record);
    const std::vector<Operation> path[] = {
        {}, {kStart}, {kStart, kPause}, {kStart, kComplete}, {kStart, kComplete, kPause}, {kStart}};
    for (Operation op : path[state]) {
        settled(op, id);
    }
    return id;
}

// What the state does from here: codes after the wait, then resume's result and codes, then
// delete's, then whether the plan still exists. Destroys the plan.
std::string fingerprint(std::int32_t id) {
    advance(10'000);
    std::string out = newCodes(id) + "/";
    out += settled(kResume, id) + "/";
    out += settled(kDel, id) + "/";
    LogCapture log;
    uIntervalPlanResume(id);
    const bool gone = log.countContaining("basalt.utils.intervalPlan", "invaild task") == 1;
    return out + (gone ? "" : "e");
}

TEST_F(IntervalPlans, EveryOperationFromEveryState) {
    // What each state does afterwards (see fingerprint), worked out from its contract; A added,
    // R running, P a paused run, W waiting, Q a paused wait, G gone.
    const std::map<std::string, char> kStateOf = {{"/-/-/e", 'A'},  {"/-/+1/", 'R'},
                                                  {"/+2/+1/", 'P'}, {"0/-/+1/", 'W'},
                                                  {"/+/+1/", 'Q'},  {"/-/-/", 'G'}};
    const Operation ops[] = {kStart, kDel, kPause, kResume, kComplete};
    // Cells: accepted (+) or refused (-), the callback codes, and the state afterwards.
    const char *const kModel[][5] = {
        // Start, Del, Pause, Resume, Complete
        {"+0>R", "->A", "->A", "->A", "->A"},   // Added: cannot even be deleted
        {"->R", "+1>G", "+3>P", "->R", "+4>W"}, // Running
        {"->P", "+1>G", "->P", "+2>R", "->P"},  // RunPaused
        {"+0>R", "+1>G", "+>Q", "->W", "->W"},  // Waiting
        {"->Q", "+1>G", "->Q", "+>W", "->Q"},   // WaitPaused
        {"->R", "+1>G", "+3>P", "->R", "+1>G"}, // LastRun: the last completion finishes
    };
    for (int state = Added; state <= LastRun; ++state) {
        for (int op = 0; op < 5; ++op) {
            const std::int32_t id = planIn(static_cast<State>(state));
            const std::string got = settled(ops[op], id) + ">";
            const auto next = kStateOf.find(fingerprint(id));
            EXPECT_EQ(got + (next != kStateOf.end() ? next->second : '?'), kModel[state][op])
                << "state " << state << " x operation " << op;
            settled(kDel, id);
        }
    }
}

TEST_F(IntervalPlans, RefusedInputAndIds) {
    LogCapture quiet;
    EXPECT_EQ(std::vector({uIntervalPlanAdd(-1, 1, record), uIntervalPlanAdd(1, -1, record),
                           uIntervalPlanAdd(1, 2'147'484, record)}), // longer than a timer can wait
              std::vector({-1, -1, -1}));
    // Ids 1 to 100; a freed id comes back when the search wraps round.
    std::vector<std::int32_t> ids;
    for (std::int32_t id; (id = uIntervalPlanAdd(1, 0, record)) > 0;) {
        ids.push_back(id);
    }
    EXPECT_EQ(ids.size(), 100U);
    settled(kStart, ids[5]), settled(kComplete, ids[5]);
    EXPECT_EQ(uIntervalPlanAdd(1, 0, record), ids[5]);
    EXPECT_EQ(uIntervalPlanAdd(1, 0, record), -1);
}

// Uninit leaves waiting plans' timers armed: one that fires finds no plan, or a new plan that
// was given its id, which it then starts.
TEST_F(IntervalPlans, TimersOutliveTheService) {
    const std::int32_t id = uIntervalPlanAdd(2, 1, record), other = uIntervalPlanAdd(2, 2, record);
    for (std::int32_t plan : {id, other}) {
        settled(kStart, plan), settled(kComplete, plan);
    }
    uIntervalPlanUninit();
    LogCapture quiet;
    advance(1000); // the first timer fires into nothing
    EXPECT_EQ(newCodes(id), "");
    ASSERT_EQ(uIntervalPlanInit(), 0);
    EXPECT_EQ(std::vector({uIntervalPlanAdd(1, 1, record), uIntervalPlanAdd(1, 1, record)}),
              std::vector({id, other}));
    advance(1000); // the second timer starts the new plan that has its id
    EXPECT_EQ(newCodes(id) + "/" + newCodes(other), "/0");
}

} // namespace
} // namespace pu::test
