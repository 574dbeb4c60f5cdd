// SPDX-License-Identifier: MIT
// The live timers against a plain model of their sequence: after any mix of adds (many with
// equal expiries), deletes, refreshes and passes, uTimerShow lists them in the model's order
// (earlier expiry first, the newest first among equal ones) with the model's times, and
// uTimerRemainGet agrees. Timers without a callback expire like the others.
#include "log_capture.hpp"
#include "test_support.hpp"
#include "timer_harness.hpp"

#include "time/timer_index.hpp"

#include <algorithm>

namespace pu::test {
namespace {

struct Live {
    std::uint32_t id;
    std::int64_t due; // ms from the last pass
    std::uint64_t order;
};

// Whether uTimerShow's "id=[..] expires=[..]" lines for the ids of live are the model's.
bool showsTheModel(std::vector<Live> live) {
    LogCapture log;
    uTimerShow();
    std::vector<std::string> shown, modelled;
    for (const LogLine &line : log.lines()) {
        for (const Live &t : live) {
            if (line.message.rfind("id=[" + std::to_string(t.id) + "]", 0) == 0) {
                shown.push_back(line.message);
            }
        }
    }
    std::sort(live.begin(), live.end(), [](const Live &a, const Live &b) {
        return a.due != b.due ? a.due < b.due : a.order > b.order;
    });
    for (const Live &t : live) {
        modelled.push_back("id=[" + std::to_string(t.id) + "] expires=[" + std::to_string(t.due) +
                           "]");
        EXPECT_EQ(uTimerRemainGet(t.id), static_cast<std::uint32_t>(t.due)) << t.id;
    }
    EXPECT_EQ(shown, modelled);
    return shown == modelled;
}

TEST(TimerIndex, KeepsTheModelSequenceThroughAddsDeletesRefreshesAndPasses) {
    timerPowerHandle();
    const std::string script = pattern(4000, 11);
    std::vector<Live> live;
    std::uint64_t order = 0;
    for (std::size_t i = 0; i + 1 < script.size(); i += 2) {
        const auto op = static_cast<unsigned char>(script[i]) % 8;
        const auto arg = static_cast<unsigned char>(script[i + 1]);
        if (op < 4 || live.empty()) { // delays 0-31 ms: many equal expiries
            live.push_back({uTimerAdd(nullptr, nullptr, arg % 32), arg % 32, order++});
        } else if (op == 4) {
            uTimerDel(live[arg % live.size()].id);
            live[arg % live.size()] = live.back();
            live.pop_back();
        } else if (op == 5) {
            Live &t = live[arg % live.size()];
            uTimerRefresh(t.id, arg % 32);
            t = {t.id, arg % 32, order++};
        } else {
            uTimerRun(arg % 8);
            for (Live &t : live) {
                t.due -= arg % 8;
            }
            std::erase_if(live, [](const Live &t) { return t.due < 1; });
        }
        ASSERT_TRUE(i % 200 != 0 || showsTheModel(live)) << "after step " << i / 2;
    }
    EXPECT_TRUE(showsTheModel(live));
    for (const Live &t : live) {
        uTimerDel(t.id);
    }
}

// Sequential ids never collide in the id table, so its probe runs are tried directly: ids equal
// modulo 16 share a home slot in a table of 16, and every order of deleting them must leave the
// others findable (the backward shift must not strand an entry behind a hole).
TEST(TimerIndex, FindsEveryIdAfterAnyOrderOfDeletesInOneProbeRun) {
    std::size_t order[] = {0, 1, 2, 3, 4};
    do {
        const std::uint32_t ids[] = {15, 31, 1, 2, 18}; // homes 15, 15, 1, 2, 2: round the end
        timer::TimerNode nodes[5]{};
        bool erased[5]{};
        timer::IdIndex index;
        ASSERT_TRUE(index.reserve(8));
        for (std::size_t i = 0; i < 5; ++i) {
            nodes[i].id = ids[i];
            index.insert(&nodes[i]);
        }
        for (std::size_t k : order) {
            index.erase(&nodes[k]);
            erased[k] = true;
            for (std::size_t j = 0; j < 5; ++j) {
                EXPECT_EQ(index.find(ids[j]), erased[j] ? nullptr : &nodes[j]) << "id " << ids[j];
            }
        }
    } while (std::next_permutation(order, order + 5) && !testing::Test::HasFailure());
}

} // namespace
} // namespace pu::test
