// SPDX-License-Identifier: MIT
// Time plan strings: any start and end text, repeat type and date, and date range. The period
// calculation never fails other than with -1, a time of day lands within a day of today, and
// every repeating step moves strictly forward.
#include "str_fuzz_support.hpp"

#include <fuzzer/FuzzedDataProvider.h>

#include <cstdlib>
#include <ctime>

namespace {

constexpr time_t kNow = 1795428000; // 2026-11-23 10:00:00 UTC
constexpr time_t kDay = 86400;

void fill(FuzzedDataProvider &input, char *field, size_t size) {
    const std::string text = input.ConsumeRandomLengthString(size - 1);
    std::strncpy(field, text.c_str(), size - 1);
}

} // namespace

#ifdef PU_FUZZ_REPLAY
// Replayed inside the time suite, whose harness already owns time(): set its clock instead.
namespace pu::test {
void setWallClock(std::time_t now);
}
#else
// The library reads the wall clock through time(): a fixed one keeps runs reproducible.
extern "C" __attribute__((visibility("default"))) time_t time(time_t *out) {
    if (out != nullptr) {
        *out = kNow;
    }
    return kNow;
}
#endif

extern "C" int LLVMFuzzerInitialize(int *, char ***) {
    setenv("TZ", "UTC0", 1);
    tzset();
    setenv("PLATFORM_LOG_LEVEL", "4", 1); // the refusals log; keep the output readable
#ifdef PU_FUZZ_REPLAY
    pu::test::setWallClock(kNow);
#endif
    return 0;
}

extern "C" int LLVMFuzzerTestOneInput(const uint8_t *data, size_t size) {
    FuzzedDataProvider input(data, size);
    uTimePlanInfo info{};
    info.repeatType = input.ConsumeIntegralInRange<uint32_t>(0, 5);
    info.repeatDate = input.ConsumeIntegralInRange<uint32_t>(0, 40);
    fill(input, info.startTime, sizeof info.startTime);
    fill(input, info.endTime, sizeof info.endTime);
    fill(input, info.startDate, sizeof info.startDate);

    time_t start = -2;
    time_t end = -2;
    const int32_t result = timePlanTimeCalculation(&info, &start, &end);
    pu::fuzz::require(result == 0 || result == -1, "calculation result");
    if (result != 0) {
        pu::fuzz::require(start == -2 && end == -2, "failure wrote its outputs");
    } else {
        pu::fuzz::require(start != -1 && end != -1, "success with an error time");
    }

    const time_t today = uTimePlanTimeStringParse(info.startTime, 1);
    if (today != -1) {
        // 00:00:00 today up to 24:59:59, the latest a time of day can name.
        pu::fuzz::require(today >= kNow - 10 * 3600 && today < kNow + 15 * 3600, "time of day");
    }
    const time_t first = uTimePlanTimeCompose(info.startTime, info.repeatType, info.repeatDate);
    if (first != -1 && info.repeatType >= 1 && info.repeatType <= 3) {
        pu::fuzz::require(first >= kNow - 10 * 3600 && first < kNow + 500 * kDay, "composed");
        pu::fuzz::require(timePlanNextTimeGet(first, info.repeatType) > first, "step not forward");
    }
    (void)timePlanDateParse(info.startDate);
    (void)timePlanDateCompare(first, today);
    return 0;
}
