// SPDX-License-Identifier: MIT
// Detached, named threads with a stack large enough for Linux and the sanitizers.
#include "platform_internal.hpp"

#include <pthread.h>

#include <algorithm>
#include <cstring>
#include <limits.h>
#include <memory>
#include <new>
#include <unistd.h>

namespace pu::platform {
namespace {

#if defined(__SANITIZE_ADDRESS__) || defined(__SANITIZE_THREAD__)
#define PU_PLATFORM_SANITIZED 1
#elif defined(__has_feature)
#if __has_feature(address_sanitizer) || __has_feature(thread_sanitizer)
#define PU_PLATFORM_SANITIZED 1
#endif
#endif

// Callers ask for the few KiB a small RTOS task needs; glibc, libstdc++ and the sanitizers'
// instrumentation need far more.
#ifdef PU_PLATFORM_SANITIZED
constexpr std::size_t kMinimumStack = std::size_t{1024} * 1024;
#else
constexpr std::size_t kMinimumStack = std::size_t{256} * 1024;
#endif

constexpr std::size_t kThreadNameMax = 15; // the kernel keeps 16 bytes with the terminator

struct ThreadLaunch {
    char name[kThreadNameMax + 1];
    void (*body)(void *);
    void *context;
};

std::size_t effectiveStackSize(std::size_t requested) noexcept {
    std::size_t size =
        std::max({requested, kMinimumStack, static_cast<std::size_t>(PTHREAD_STACK_MIN)});
    long page = sysconf(_SC_PAGESIZE);
    std::size_t pageSize = page > 0 ? static_cast<std::size_t>(page) : 4096;
    return (size + pageSize - 1) / pageSize * pageSize;
}

void *runLaunchedThread(void *raw) {
    const std::unique_ptr<ThreadLaunch> launch(static_cast<ThreadLaunch *>(raw));
    if (launch->name[0] != '\0') {
        (void)pthread_setname_np(pthread_self(), launch->name);
    }
    launch->body(launch->context);
    return nullptr;
}

} // namespace

bool startDetachedThread(const char *name, std::size_t stackSize, void (*body)(void *),
                         void *context) noexcept {
    std::unique_ptr<ThreadLaunch> launch(new (std::nothrow) ThreadLaunch{});
    if (launch == nullptr) {
        return false;
    }
    if (name != nullptr) {
        std::strncpy(launch->name, name, kThreadNameMax);
    }
    launch->body = body;
    launch->context = context;

    pthread_attr_t attributes;
    if (pthread_attr_init(&attributes) != 0) {
        return false;
    }
    bool ready = pthread_attr_setdetachstate(&attributes, PTHREAD_CREATE_DETACHED) == 0 &&
                 pthread_attr_setstacksize(&attributes, effectiveStackSize(stackSize)) == 0;
    pthread_t thread;
    bool started =
        ready && pthread_create(&thread, &attributes, runLaunchedThread, launch.get()) == 0;
    pthread_attr_destroy(&attributes);
    if (started) {
        (void)launch.release(); // the new thread owns it now
    }
    return started;
}

} // namespace pu::platform
