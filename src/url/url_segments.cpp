// SPDX-License-Identifier: MIT
// Path segments of RESTful templates and request paths.
#include "url/url_segments.hpp"

#include <umem.h>
#include <ustr.h>

#include <cstring>

namespace pu::url {

bool isVariableSegment(const char *segment) {
    return (segment[0] == '@' || segment[0] == ':') && segment[1] != '\0' && segment[1] != '\\';
}

int pathSegments(const char *text, uList **out, bool keepAll) {
    *out = nullptr;
    char *copy = uStrGetCopy(text);
    if (copy == nullptr) {
        return -1;
    }
    char *query = std::strchr(copy, '?');
    if (query != nullptr) {
        *query = '\0';
    }
    uList *segments = uStrSep(copy, "/");
    uFree(copy);
    if (segments == nullptr) {
        return -1;
    }
    bool hasVariable = false;
    for (uListNode *node = segments->head; node != nullptr && !hasVariable; node = node->next) {
        hasVariable = isVariableSegment(static_cast<const char *>(node->data));
    }
    if (keepAll || hasVariable) {
        *out = segments;
    } else {
        freeSegments(segments);
    }
    return 0;
}

void freeSegments(uList *segments) {
    if (segments != nullptr) {
        uListSpecialClear(segments, uFree);
        uListUninit(segments);
    }
}

} // namespace pu::url
