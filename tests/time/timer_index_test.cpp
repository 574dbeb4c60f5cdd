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
#include <array>

namespace pu::test {
namespace {

struct Live {
    std::uint32_t id;
    std::int64_t due; // ms from the last pass
    std::uint64_t order;
};

// The "id=[..] expires=[..]" lines uTimerShow gives for the ids of live, in its order.
std::vector<std::string> shown(const std::vector<Live> &live) {
    LogCapture log;
    uTimerShow();
    std::vector<std::string> out;
    for (const LogLine &line : log.lines()) {
        const auto ours = [&](const Live &t) {
            return line.message.rfind("id=[" + std::to_string(t.id) + "]", 0) == 0;
        };
        if (std::any_of(live.begin(), live.end(), ours)) {
            out.push_back(line.message);
        }
    }
    return out;
}

std::vector<std::string> modelled(std::vector<Live> live) {
    std::sort(live.begin(), live.end(), [](const Live &a, const Live &b) {
        return a.due != b.due ? a.due < b.due : a.order > b.order;
    });
    std::vector<std::string> out;
    for (const Live &t : live) {
        out.push_back("id=[" + std::to_string(t.id) + "] expires=[" + std::to_string(t.due) + "]");
        EXPECT_EQ(uTimerRemainGet(t.id), static_cast<std::uint32_t>(t.due)) << t.id;
    }
    return out;
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
        } else if (op < 6) {
            Live &t = live[arg % live.size()];
            if (op == 4) {
                uTimerDel(t.id);
                t = live.back();
                live.pop_back();
            } else {
                uTimerRefresh(t.id, arg % 32);
                t = {t.id, arg % 32, order++};
            }
        } else {
            uTimerRun(arg % 8);
            for (Live &t : live) {
                t.due -= arg % 8;
            }
            std::erase_if(live, [](const Live &t) { return t.due < 1; });
        }
        if (i % 200 == 0) {
            ASSERT_EQ(shown(live), modelled(live)) << "after step " << i / 2;
        }
    }
    EXPECT_EQ(shown(live), modelled(live));
    for (const Live &t : live) {
        uTimerDel(t.id);
    }
}

// Sequential ids never collide in the id table, so its probe runs are tried directly: ids equal
// modulo 16 share a home slot in a table of 16, and every order of deleting them must leave the
// others findable (the backward shift must not strand an entry behind a hole).
TEST(TimerIndex, FindsEveryIdAfterAnyOrderOfDeletesInOneProbeRun) {
    std::array<std::uint32_t, 5> order{0, 1, 2, 3, 4};
    do {
        std::array<timer::TimerNode, 5> nodes{};
        // Homes 15, 15, 1, 2, 2: one run round the end of the table.
        const std::uint32_t ids[] = {15, 31, 1, 2, 18};
        timer::IdIndex index;
        ASSERT_TRUE(index.reserve(8));
        for (std::size_t i = 0; i < nodes.size(); ++i) {
            nodes[i].id = ids[i];
            index.insert(&nodes[i]);
        }
        for (std::size_t k = 0; k < order.size(); ++k) {
            index.erase(&nodes[order[k]]);
            for (std::size_t j = 0; j < order.size(); ++j) {
                const bool erased =
                    std::find(order.begin(), order.begin() + k + 1, j) != order.begin() + k + 1;
                EXPECT_EQ(index.find(ids[j]), erased ? nullptr : &nodes[j]) << "id " << ids[j];
            }
        }
    } while (std::next_permutation(order.begin(), order.end()) && !testing::Test::HasFailure());
}

} // namespace
} // namespace pu::test
