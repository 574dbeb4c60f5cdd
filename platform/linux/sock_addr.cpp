// SPDX-License-Identifier: MIT
// Numeric address check for the socket helpers.
#include <platform_os.h>

#include <arpa/inet.h>
#include <netinet/in.h>

int sockIsValidAddr(const char *text) {
    if (text == nullptr) {
        return 0;
    }
    in6_addr address{}; // large enough for either family
    return inet_pton(AF_INET, text, &address) == 1 || inet_pton(AF_INET6, text, &address) == 1;
}
