// Module names under which each family writes its log lines. The three prefixes differ on
// purpose: applications filter on these exact strings.
#pragma once

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

} // namespace pu::log
