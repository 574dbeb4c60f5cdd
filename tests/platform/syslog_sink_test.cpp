// SPDX-License-Identifier: MIT
// The syslog sink: levels to priorities, "<module>: <message>", and the message never used as a
// format. The executable's syslog wins over the C library's for the platform layer, as any
// platform function does; fortified builds call __syslog_chk instead.
#include <platform_os.h>

#include <gtest/gtest.h>

#include <cstdarg>
#include <cstdio>
#include <string>
#include <syslog.h>
#include <utility>
#include <vector>

namespace {

std::vector<std::pair<int, std::string>> syslogged;

void record(int priority, const char *format, va_list arguments) {
    char text[256];
    std::vsnprintf(text, sizeof text, format, arguments);
    syslogged.emplace_back(priority, text);
}

} // namespace

extern "C" __attribute__((visibility("default"))) void syslog(int priority, const char *format,
                                                              ...) {
    va_list arguments;
    va_start(arguments, format);
    record(priority, format, arguments);
    va_end(arguments);
}

extern "C" __attribute__((visibility("default"))) void __syslog_chk(int priority, int,
                                                                    const char *format, ...) {
    va_list arguments;
    va_start(arguments, format);
    record(priority, format, arguments);
    va_end(arguments);
}

namespace {

TEST(SyslogSink, MapsLevelsToPrioritiesAndNeverFormatsTheMessage) {
    const std::pair<int, int> rows[] = {{-1, LOG_DEBUG},
                                        {PLATFORM_LOG_INFO, LOG_INFO},
                                        {PLATFORM_LOG_WARNING, LOG_WARNING},
                                        {7, LOG_ERR}};
    for (const auto &[level, priority] : rows) {
        syslogged.clear();
        platformLogSyslogSink(nullptr, level, "mod", "50% done %s");
        EXPECT_EQ(syslogged,
                  (std::vector<std::pair<int, std::string>>{{priority, "mod: 50% done %s"}}))
            << "level " << level;
    }
}

} // namespace
