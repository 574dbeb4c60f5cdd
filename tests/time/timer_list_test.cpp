// SPDX-License-Identifier: MIT
// Timers on the simulated clock: ordering, delays, refresh, remaining time, callbacks that touch
// timers, the record pool, and the log of uTimerShow.
#include "timer_harness.hpp"

#include <log_capture.hpp>

#include <string>
#include <vector>

namespace pu::test {
namespace {

using ::testing::ElementsAre;
using ::testing::UnorderedElementsAre;

constexpr const char *kTimerModule = "basalt.utils.timer";

// "id=[..] expires=[..]" lines of one uTimerShow, for the ids of interest, in list order.
std::vector<std::string> listedTimers(const std::vector<std::uint32_t> &ids) {
    LogCapture capture;
    uTimerShow();
    std::vector<std::string> listed;
    for (const LogLine &line : capture.lines()) {
        for (std::uint32_t id : ids) {
            if (line.message.rfind("id=[" + std::to_string(id) + "]", 0) == 0) {
                listed.push_back(line.message);
            }
        }
    }
    return listed;
}

std::string entry(std::uint32_t id, int expires) {
    return "id=[" + std::to_string(id) + "] expires=[" + std::to_string(expires) + "]";
}

TEST_F(TimerTest, ExpiryOrderWithNewestFirstAmongEqualExpiries) {
    Timers timers;
    const std::uint32_t a = timers.add(300, 1);
    const std::uint32_t b = timers.add(100, 2);
    const std::uint32_t c = timers.add(200, 3);
    const std::uint32_t d = timers.add(200, 4); // same expiry as c, added later: goes first
    EXPECT_THAT(listedTimers({a, b, c, d}),
                ElementsAre(entry(b, 100), entry(d, 200), entry(c, 200), entry(a, 300)));
    EXPECT_EQ(uTimerRemainGet(c), 200U);
    EXPECT_EQ(uTimerRemainGet(d), 200U);

    advance(99);
    EXPECT_TRUE(Recorder::instance().fired().empty());
    advance(1);
    EXPECT_THAT(Recorder::instance().fired(), ElementsAre(2U));
    advance(100);
    EXPECT_THAT(Recorder::instance().fired(), UnorderedElementsAre(2U, 3U, 4U));
    advance(100);
    EXPECT_THAT(Recorder::instance().fired(), UnorderedElementsAre(2U, 3U, 4U, 1U));
    EXPECT_EQ(uTimerRemainGet(a), 0U); // gone once fired
}

TEST_F(TimerTest, ZeroDelayFiresAtTheNextPassAndNegativeDelaysAreRefused) {
    Timers timers;
    LogCapture capture;
    EXPECT_EQ(uTimerAdd(Recorder::callback, tag(1), -1), 0U);
    EXPECT_EQ(uTimerAddWithWakeup(Recorder::callback, tag(1), INT64_MIN), 0U);
    EXPECT_EQ(capture.countContaining(kTimerModule, ""), 0) << capture.dump();

    const std::uint32_t now = timers.add(0, 7);
    EXPECT_NE(now, 0U);
    advance(0); // even a pass that measured no time at all
    EXPECT_THAT(Recorder::instance().fired(), ElementsAre(7U));
}

TEST_F(TimerTest, DelaysUseTheLowThirtyTwoBits) {
    Timers timers;
    // Added after a 32-bit wrap, this huge delay orders (and reports) as 5 ms.
    const std::uint32_t wrapped = timers.add((std::int64_t{1} << 32) + 5, 1);
    const std::uint32_t plain = timers.add(10, 2);
    EXPECT_EQ(uTimerRemainGet(wrapped), 5U);
    EXPECT_THAT(listedTimers({wrapped, plain}), ElementsAre(entry(wrapped, 5), entry(plain, 10)));
    advance(5);
    EXPECT_THAT(Recorder::instance().fired(), ElementsAre(1U));
}

TEST_F(TimerTest, SecondsVariantsMultiplyInThirtyTwoBits) {
    Timers timers;
    // 2,147,483 s is the largest count whose product stays below 2^31.
    const std::uint32_t largest = timers.keep(uTimerAddSec(Recorder::callback, tag(1), 2147483));
    EXPECT_EQ(uTimerRemainGet(largest), 2147483000U);
    EXPECT_EQ(uTimerAddSec(Recorder::callback, tag(2), 2147484), 0U); // wraps negative
    EXPECT_EQ(uTimerAddSecWithWakeup(Recorder::callback, tag(2), 2147484), 0U);
    // 4,294,968 s * 1000 wraps all the way round to 704 ms.
    const std::uint32_t round = timers.keep(uTimerAddSec(Recorder::callback, tag(3), 4294968));
    EXPECT_EQ(uTimerRemainGet(round), 704U);

    uTimerRefreshSec(largest, 4294968);
    EXPECT_EQ(uTimerRemainGet(largest), 704U);
    uTimerRefreshSec(largest, 2147484); // negative after the wrap: ignored
    EXPECT_EQ(uTimerRemainGet(largest), 704U);
    uTimerRefreshSec(largest, 3);
    EXPECT_EQ(uTimerRemainGet(largest), 3000U);
}

TEST_F(TimerTest, RefreshKeepsTheIdAndRestartsFromTheLastPass) {
    Timers timers;
    const std::uint32_t id = timers.add(1000, 1);
    const std::uint32_t other = timers.add(600, 2);
    advance(250);
    EXPECT_EQ(uTimerRemainGet(id), 750U);
    EXPECT_EQ(uTimerRemainGet(other), 350U);

    uTimerRefresh(id, 300); // now before other
    EXPECT_EQ(uTimerRemainGet(id), 300U);
    EXPECT_EQ(uTimerRemainGet(other), 350U);
    EXPECT_THAT(listedTimers({id, other}), ElementsAre(entry(id, 300), entry(other, 350)));

    uTimerRefresh(id, -1); // ignored
    uTimerRefresh(0, 10);
    uTimerRefresh(0xFFFFFFF0U, 10); // unknown
    EXPECT_EQ(uTimerRemainGet(id), 300U);

    advance(299);
    EXPECT_TRUE(Recorder::instance().fired().empty());
    advance(1);
    EXPECT_THAT(Recorder::instance().fired(), ElementsAre(1U));
    advance(1000); // the original expiry passes without a second call
    EXPECT_THAT(Recorder::instance().fired(), ElementsAre(1U, 2U));
    EXPECT_EQ(uTimerRemainGet(0), 0U);
}

TEST_F(TimerTest, DeletingKeepsTheLaterTimersOnTime) {
    Timers timers;
    const std::uint32_t first = timers.add(100, 1);
    const std::uint32_t middle = timers.add(200, 2);
    const std::uint32_t last = timers.add(300, 3);
    uTimerDel(middle);
    uTimerDel(middle); // twice: nothing more happens
    uTimerDel(0);
    EXPECT_EQ(uTimerRemainGet(middle), 0U);
    EXPECT_EQ(uTimerRemainGet(last), 300U);
    uTimerDel(first);
    EXPECT_EQ(uTimerRemainGet(last), 300U);
    advance(300);
    EXPECT_THAT(Recorder::instance().fired(), ElementsAre(3U));
}

// Timer callbacks that work on other timers: the pool runs them, never under the timer mutex.
std::uint32_t victim = 0;
std::uint32_t moved = 0;
std::uint32_t follower = 0;

void deleteVictim(void *) {
    uTimerDel(victim);
    Recorder::callback(tag(100));
}

void moveAndFollow(void *) {
    uTimerRefresh(moved, 500);
    follower = uTimerAdd(Recorder::callback, tag(300), 50);
    Recorder::callback(tag(101));
}

TEST_F(TimerTest, CallbacksMayDeleteRefreshAndAddTimers) {
    Timers timers;
    timers.keep(uTimerAdd(deleteVictim, nullptr, 100));
    timers.keep(uTimerAdd(moveAndFollow, nullptr, 100));
    victim = timers.add(200, 200);
    moved = timers.add(150, 201);

    advance(100);
    timers.keep(follower);
    EXPECT_THAT(Recorder::instance().fired(), UnorderedElementsAre(100U, 101U));
    EXPECT_EQ(uTimerRemainGet(victim), 0U);
    EXPECT_EQ(uTimerRemainGet(moved), 500U);
    EXPECT_EQ(uTimerRemainGet(follower), 50U);

    advance(50);
    EXPECT_EQ(Recorder::instance().count(300), 1);
    advance(450);
    EXPECT_EQ(Recorder::instance().count(201), 1);
    EXPECT_EQ(Recorder::instance().count(200), 0);
    for (const std::string &name : Recorder::instance().threadNames()) {
        EXPECT_EQ(name.rfind("tPool", 0), 0U) << name; // a pool worker, never "uTimer"
    }
}

// Adds long timers until the pool is empty; returns their ids.
std::vector<std::uint32_t> exhaustPool() {
    std::vector<std::uint32_t> ids;
    for (;;) {
        const std::uint32_t id = uTimerAdd(Recorder::callback, tag(999), 3600 * 1000);
        if (id == 0) {
            return ids;
        }
        ids.push_back(id);
    }
}

TEST_F(TimerTest, ExhaustedPoolRefusesAddsAndRecovers) {
    Timers timers;
    const std::uint32_t early = timers.add(100, 1);
    std::vector<std::uint32_t> fillers;
    {
        LogCapture capture;
        fillers = exhaustPool();
        ASSERT_GE(fillers.size(), static_cast<std::size_t>(kTestPoolBlocks - 50));
        const std::string expected =
            "timer malloc failed! timerListSize=" + std::to_string(fillers.size() + 1);
        EXPECT_EQ(capture.count(3, kTimerModule, expected), 1) << capture.dump();
    }
    for (std::uint32_t id : fillers) {
        timers.keep(id);
    }
    // Refresh needs a spare record first, so it leaves the timer alone.
    uTimerRefresh(early, 40);
    EXPECT_EQ(uTimerRemainGet(early), 100U);

    advance(100); // queued timers go on firing, and their records come back
    EXPECT_THAT(Recorder::instance().fired(), ElementsAre(1U));
    const std::uint32_t again = timers.add(10, 2);
    EXPECT_NE(again, 0U);
    EXPECT_EQ(timers.add(10, 3), 0U);
    uTimerDel(fillers.back());
    EXPECT_NE(timers.add(10, 4), 0U);
    advance(10);
    EXPECT_THAT(Recorder::instance().fired(), UnorderedElementsAre(1U, 2U, 4U));

    // Everything goes back: the pool holds as many records as before.
    timers.clear();
    std::vector<std::uint32_t> refill = exhaustPool();
    EXPECT_EQ(refill.size(), fillers.size() + 1);
    for (std::uint32_t id : refill) {
        uTimerDel(id);
    }
}

TEST_F(TimerTest, ShowAndRepeatedInitLog) {
    Timers timers;
    const std::uint32_t id = timers.add(42, 1);
    LogCapture capture;
    uTimerInit(5000);
    EXPECT_EQ(capture.count(1, kTimerModule, "uTimer is already initialized."), 1)
        << capture.dump();
    uTimerShow();
    EXPECT_EQ(capture.countContaining(kTimerModule, "uTimerShow: tick=["), 1);
    EXPECT_EQ(capture.count(1, kTimerModule, entry(id, 42)), 1) << capture.dump();
}

} // namespace
} // namespace pu::test
