// SPDX-License-Identifier: MIT
// Records the library's log lines through the platform's log sink, for assertions on messages.
#pragma once

#include <mutex>
#include <string>
#include <vector>

namespace pu::test {

struct LogLine {
    int level;
    std::string module;
    std::string message;
};

// Installs itself as the log sink for its lifetime (quiet: nothing reaches stderr) and keeps
// every line. Only one capture may be alive at a time.
class LogCapture {
  public:
    LogCapture();
    ~LogCapture();
    LogCapture(const LogCapture &) = delete;
    LogCapture &operator=(const LogCapture &) = delete;

    std::vector<LogLine> lines() const;
    void clear();

    // Number of lines with this level and module whose message equals text exactly.
    int count(int level, const std::string &module, const std::string &text) const;
    // Number of lines of this module whose message contains fragment.
    int countContaining(const std::string &module, const std::string &fragment) const;
    // All lines, one per row, for failure messages.
    std::string dump() const;

  private:
    static void sink(void *context, int level, const char *module, const char *message);
    mutable std::mutex mutex_;
    std::vector<LogLine> lines_;
};

} // namespace pu::test
