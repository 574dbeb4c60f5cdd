// SPDX-License-Identifier: MIT
// How the library writes its log lines, and the module names each family writes under. The
// three prefixes differ on purpose: applications filter on these exact strings.
#pragma once

#include <platform_os.h>

namespace pu::log {

inline constexpr const char *kList = "basalt.utils.list";
inline constexpr const char *kUidManager = "basalt.utils.uidManager";
inline constexpr const char *kStatus = "basalt.utils.status";
inline constexpr const char *kEvent = "basalt.utils.event";
inline constexpr const char *kMonitor = "basalt.utils.monitor";
inline constexpr const char *kInputEvent = "basalt.utils.inputEvent";
inline constexpr const char *kTimer = "basalt.utils.timer";
inline constexpr const char *kTimePlan = "platform.utils.timePlan";
inline constexpr const char *kIntervalPlan = "basalt.utils.intervalPlan";
inline constexpr const char *kSocket = "basalt.utils.socket";
inline constexpr const char *kAes = "basalt.utils.aes";
inline constexpr const char *kXmlParser = "utils.xmlparser";
inline constexpr const char *kFile = "platform.utils.uFile";

inline constexpr int kDebug = 0;
inline constexpr int kInfo = 1;
inline constexpr int kWarning = 2;
inline constexpr int kError = 3;

// Writes one line through the platform logger. The format and arguments go through untouched:
// tests and applications match the texts, so a wrapper must never rewrite them. Formats are
// literals at every call site; the check is lost only in this forwarding step.
template <typename... Args>
void write(int level, const char *module, const char *format, Args... args) noexcept {
#pragma GCC diagnostic push
#pragma GCC diagnostic ignored "-Wformat-security"
#pragma GCC diagnostic ignored "-Wformat-nonliteral"
    (void)basaltPrintLog(level, module, format, args...);
#pragma GCC diagnostic pop
}

template <typename... Args> void debug(const char *module, const char *format, Args... args) {
    write(kDebug, module, format, args...);
}

template <typename... Args> void info(const char *module, const char *format, Args... args) {
    write(kInfo, module, format, args...);
}

template <typename... Args> void warning(const char *module, const char *format, Args... args) {
    write(kWarning, module, format, args...);
}

template <typename... Args> void error(const char *module, const char *format, Args... args) {
    write(kError, module, format, args...);
}

} // namespace pu::log
