// SPDX-License-Identifier: MIT
// Settings read from the environment.
#include "platform_internal.hpp"

#include <cerrno>
#include <cstdlib>

namespace pu::platform {

long readEnvInteger(const char *name, long fallback, long minimum, long maximum) {
    // Callers read each setting once, early; nothing here guards against a concurrent setenv.
    const char *text = std::getenv(name); // NOLINT(concurrency-mt-unsafe)
    if (text == nullptr) {
        return fallback;
    }
    char *end = nullptr;
    errno = 0;
    long value = std::strtol(text, &end, 10);
    bool valid = errno == 0 && end != text && *end == '\0' && value >= minimum && value <= maximum;
    return valid ? value : fallback;
}

} // namespace pu::platform
