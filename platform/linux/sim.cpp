// Simulation controls that span several parts of the layer: manual mode and manual heartbeats.
#include "platform_internal.hpp"

#include <platform_sim.h>

#include <mutex>

namespace pu::platform {
namespace {

struct PassHook {
    std::mutex mutex;
    PLATFORM_SIM_PASS_BEGIN_FN begin = nullptr;
    PLATFORM_SIM_PASS_WAIT_FN wait = nullptr;
};

PassHook &passHook() {
    static auto &hook = *new PassHook;
    return hook;
}

} // namespace
} // namespace pu::platform

using namespace pu::platform;

void platformSimSetManual(int manual) {
    guarded(0, [&] {
        // Heartbeats stop before the clock switches and resume after it switches back, so no
        // real pass ever sees the simulated clock.
        if (manual != 0) {
            pauseRealHeartbeats(true);
            setManualUpTime(true);
        } else {
            setManualUpTime(false);
            pauseRealHeartbeats(false);
        }
        return 0;
    });
}

int platformSimIsManual(void) {
    return isManualUpTime() ? 1 : 0;
}

void platformSimSetPassHook(PLATFORM_SIM_PASS_BEGIN_FN begin, PLATFORM_SIM_PASS_WAIT_FN wait) {
    guarded(0, [&] {
        PassHook &hook = passHook();
        std::lock_guard lock(hook.mutex);
        hook.begin = begin;
        hook.wait = wait;
        return 0;
    });
}

void platformSimHeartbeat(void) {
    guarded(0, [] {
        PLATFORM_SIM_PASS_BEGIN_FN begin = nullptr;
        PLATFORM_SIM_PASS_WAIT_FN wait = nullptr;
        {
            PassHook &hook = passHook();
            std::lock_guard lock(hook.mutex);
            begin = hook.begin;
            wait = hook.wait;
        }
        std::uint64_t token = begin != nullptr ? begin() : 0;
        callHeartbeats();
        if (wait != nullptr) {
            wait(token);
        }
        waitPoolsIdle();
        return 0;
    });
}
