// SPDX-License-Identifier: MIT
// The power manager's recorded state, one field at a time, for assertions in tests.
#include <platform_sim.h>

namespace {

// The recorded state of handle, or the state of an application that never did anything (no
// wake-up armed, nothing counted) for an unknown handle.
PLATFORM_SM_APP_STATE appState(int handle) {
    PLATFORM_SM_APP_STATE state{};
    if (osaSmGetAppState(handle, &state) != 0) {
        state = PLATFORM_SM_APP_STATE{};
        state.wakeUpDelayMs = -1;
    }
    return state;
}

} // namespace

int64_t platformSimWakeUpDelay(int handle) {
    return appState(handle).wakeUpDelayMs;
}

uint32_t platformSimWakeUpArmCount(int handle) {
    return appState(handle).wakeUpArms;
}

uint32_t platformSimWakeUpCancelCount(int handle) {
    return appState(handle).wakeUpCancels;
}

int platformSimActiveAppCount(int handle) {
    return appState(handle).activeCount;
}

int platformSimActiveAppPeak(int handle) {
    return appState(handle).activePeak;
}
