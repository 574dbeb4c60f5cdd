// SPDX-License-Identifier: MIT
// The library's one allocator: zero-filled, from the C heap so realloc and free accept it.
#include <umem.h>

#include <cstdlib>

extern "C" {

void *uMalloc(uint32_t size) {
    return std::calloc(size, 1);
}

void uFree(void *ptr) {
    std::free(ptr);
}

} // extern "C"
