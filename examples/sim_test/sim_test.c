/* SPDX-License-Identifier: MIT */
/*
 * A deterministic test of application code that uses timers: a request that gives up after five
 * seconds unless it is answered. libplatform_sim drives the up-time and the heartbeats, so the
 * test decides to the millisecond when the time-out fires, and runs in no time at all.
 * Build it against the installed library:
 *   cc sim_test.c $(pkg-config --cflags --libs platform_sim) -o sim_test
 */
#include <platform_sim.h>
#include <platform_utils.h>

#include <stdio.h>

/* ---- The application code under test --------------------------------------------------------- */

enum { REQUEST_TIMEOUT_MS = 5000 };

struct request {
    uint32_t timer;
    int answered;
    int timedOut;
};

static void requestTimedOut(void *arg) {
    ((struct request *)arg)->timedOut = 1;
}

static void requestStart(struct request *r) {
    r->answered = 0;
    r->timedOut = 0;
    r->timer = uTimerAdd(requestTimedOut, r, REQUEST_TIMEOUT_MS);
}

static void requestAnswer(struct request *r) {
    uTimerDel(r->timer);
    r->answered = 1;
}

/* ---- The test -----------------------------------------------------------------------------------
 */

static int passed, failed;

#define CHECK(condition)                                                                           \
    do {                                                                                           \
        if (condition) {                                                                           \
            passed++;                                                                              \
        } else {                                                                                   \
            failed++;                                                                              \
            printf("%s:%d: check failed: %s\n", __FILE__, __LINE__, #condition);                   \
        }                                                                                          \
    } while (0)

/* Moves the simulated clock on and runs the timer pass that follows: every callback due by then
 * has finished when it returns. */
static void elapse(uint32_t ms) {
    platformSimAdvanceMs(ms);
    platformSimHeartbeat();
}

static void ignoreLine(void *context, int level, const char *module, const char *message) {
    (void)context, (void)level, (void)module, (void)message;
}

int main(void) {
    platformSimSetLogSink(ignoreLine, NULL, 1); /* keep the library's lines out of the output */
    platformSimSetManual(1);                    /* before the timer service starts */
    platformSimSetUpTime(1000, 0);
    uTimerInit(16);

    struct request r;
    requestStart(&r);
    CHECK(r.timer != 0);
    elapse(REQUEST_TIMEOUT_MS - 1);
    CHECK(!r.timedOut); /* one millisecond early */
    elapse(1);
    CHECK(r.timedOut); /* exactly on time */

    requestStart(&r);
    elapse(3000);
    requestAnswer(&r);
    elapse(REQUEST_TIMEOUT_MS);
    CHECK(r.answered && !r.timedOut); /* an answered request never times out */

    platformSimSetLogSink(NULL, NULL, 0);
    printf("sim_test: %d passed, %d failed\n", passed, failed);
    return failed == 0 ? 0 : 1;
}
