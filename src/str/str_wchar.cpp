// SPDX-License-Identifier: MIT
// Locale-aware case conversion through the replaceable operator pair gWcharOpHook.
#include <umem.h>
#include <ustr.h>

#include "core/checked_size.hpp"

#include <atomic>
#include <clocale>
#include <cstdlib>
#include <cstring>
#include <cwctype>

namespace {

using WideMap = std::wint_t (*)(std::wint_t);

// Owns a uMalloc block for the duration of a conversion.
struct Block {
    void *ptr;
    ~Block() { uFree(ptr); }
};

int wcharConvert(const char *src, char *dst, uint32_t dstSize, WideMap map) {
    if (src == nullptr || dst == nullptr) {
        return -1;
    }
    if (std::setlocale(LC_CTYPE, "") == nullptr) {
        return -1;
    }
    const std::size_t capacity = std::strlen(src) + 1;
    Block decoded{pu::core::allocate(pu::core::checkedMul(capacity, sizeof(wchar_t)))};
    auto *wide = static_cast<wchar_t *>(decoded.ptr);
    if (wide == nullptr) {
        return -1;
    }
    const std::size_t count = std::mbstowcs(wide, src, capacity);
    if (count == static_cast<std::size_t>(-1)) {
        return -1;
    }
    Block mappedBlock{
        pu::core::allocate(pu::core::checkedMul(pu::core::checkedAdd(count, 1), sizeof(wchar_t)))};
    auto *mapped = static_cast<wchar_t *>(mappedBlock.ptr);
    if (mapped == nullptr) {
        return -1;
    }
    for (std::size_t i = 0; i < count; ++i) {
        mapped[i] = static_cast<wchar_t>(map(static_cast<std::wint_t>(wide[i])));
    }
    mapped[count] = L'\0';
    const std::size_t written = std::wcstombs(dst, mapped, dstSize);
    if (written == static_cast<std::size_t>(-1) || written >= dstSize) {
        return -1; // no room for the terminator
    }
    dst[written] = '\0';
    return 0;
}

int builtinToUppercase(const char *src, char *dst, uint32_t dstSize) {
    return wcharConvert(src, dst, dstSize, [](std::wint_t c) { return std::towupper(c); });
}

int builtinToLowercase(const char *src, char *dst, uint32_t dstSize) {
    return wcharConvert(src, dst, dstSize, [](std::wint_t c) { return std::towlower(c); });
}

// The hook is read without a lock; relaxed atomic access keeps a late registration from being a
// data race while leaving what callers observe unchanged.
UStrWcharConvertFn loadHook(UStrWcharConvertFn &slot) {
    return std::atomic_ref<UStrWcharConvertFn>(slot).load(std::memory_order_relaxed);
}

void storeHook(UStrWcharConvertFn &slot, UStrWcharConvertFn fn) {
    std::atomic_ref<UStrWcharConvertFn>(slot).store(fn, std::memory_order_relaxed);
}

} // namespace

extern "C" {

UStrWcharOps gWcharOpHook = {builtinToUppercase, builtinToLowercase};

void uStrRegisterWcharOperator(const UStrWcharOps *ops) {
    if (ops == nullptr) {
        return;
    }
    storeHook(gWcharOpHook.toUppercase, ops->toUppercase);
    storeHook(gWcharOpHook.toLowercase, ops->toLowercase);
}

int32_t uStrToUppercase(const char *src, char *dst, uint32_t dstSize) {
    const UStrWcharConvertFn op = loadHook(gWcharOpHook.toUppercase);
    return op == nullptr ? -1 : op(src, dst, dstSize);
}

int32_t uStrToLowercase(const char *src, char *dst, uint32_t dstSize) {
    const UStrWcharConvertFn op = loadHook(gWcharOpHook.toLowercase);
    return op == nullptr ? -1 : op(src, dst, dstSize);
}

} // extern "C"
