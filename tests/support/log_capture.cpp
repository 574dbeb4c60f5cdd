// SPDX-License-Identifier: MIT
#include "log_capture.hpp"

#include <platform_sim.h>

namespace pu::test {

LogCapture::LogCapture() {
    platformSimSetLogSink(&LogCapture::sink, this, 1);
}

LogCapture::~LogCapture() {
    platformSimSetLogSink(nullptr, nullptr, 0);
}

void LogCapture::sink(void *context, int level, const char *module, const char *message) {
    auto *self = static_cast<LogCapture *>(context);
    std::lock_guard lock(self->mutex_);
    self->lines_.push_back({level, module ? module : "", message ? message : ""});
}

std::vector<LogLine> LogCapture::lines() const {
    std::lock_guard lock(mutex_);
    return lines_;
}

void LogCapture::clear() {
    std::lock_guard lock(mutex_);
    lines_.clear();
}

int LogCapture::count(int level, const std::string &module, const std::string &text) const {
    std::lock_guard lock(mutex_);
    int n = 0;
    for (const auto &line : lines_) {
        n += line.level == level && line.module == module && line.message == text;
    }
    return n;
}

int LogCapture::countContaining(const std::string &module, const std::string &fragment) const {
    std::lock_guard lock(mutex_);
    int n = 0;
    for (const auto &line : lines_) {
        n += line.module == module && line.message.find(fragment) != std::string::npos;
    }
    return n;
}

std::string LogCapture::dump() const {
    std::lock_guard lock(mutex_);
    std::string out;
    for (const auto &line : lines_) {
        out += std::to_string(line.level) + " " + line.module + ": " + line.message + "\n";
    }
    return out;
}

} // namespace pu::test
