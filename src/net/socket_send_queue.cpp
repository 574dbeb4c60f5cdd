// SPDX-License-Identifier: MIT
// Waiting until what was written to a socket has left it and been acknowledged.
#include <platform_os.h>
#include <usocket.h>

#include "core/log_modules.hpp"

#include <cstdint>
#include <sys/ioctl.h>

extern "C" {

int32_t uSocketWaitSendDataConfirmed(int32_t fd, int32_t stallPolls) {
    int last = 0;
    std::int32_t stalls = 0;
    for (;;) {
        int queued = 0;
        // TIOCOUTQ (0x5411) on a socket: bytes not yet sent or not yet acknowledged.
        if (ioctl(fd, TIOCOUTQ, &queued) < 0) {
            pu::log::error(pu::log::kSocket, "%s: ioctl error", "uSocketWaitSendDataConfirmed");
            return -1;
        }
        if (queued <= 0) {
            return 0;
        }
        if (queued == last) {
            if (stalls >= stallPolls) {
                return -1;
            }
            ++stalls;
        } else {
            stalls = 0;
        }
        taskDelay(sysClkRateGet());
        last = queued;
    }
}

} // extern "C"
