// SPDX-License-Identifier: MIT
// The version this library was built as, from the header generated with it.
#include <uversion.h>

extern "C" {

unsigned int uVersionGet(void) {
    return PU_VERSION;
}

const char *uVersionStringGet(void) {
    return PU_VERSION_STRING;
}

} // extern "C"
