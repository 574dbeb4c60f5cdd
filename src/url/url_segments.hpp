// SPDX-License-Identifier: MIT
// Path segments of RESTful templates and request paths; nothing here is exported.
#pragma once

#include <ulist.h>

namespace pu::url {

// A segment "@name" or ":name" stands for a variable, unless a backslash follows the marker
// ("@\x" is the literal way to write such a segment).
bool isVariableSegment(const char *segment);

// Splits text, cut at its first '?', at '/' into a list of new strings (empty segments
// dropped). Returns -1 when there is no segment at all. With keepAll false the list is kept only
// when a segment is a variable; otherwise *out is null. Returns 0 otherwise.
int pathSegments(const char *text, uList **out, bool keepAll);

// Frees the strings of a segment list and the list; null is ignored.
void freeSegments(uList *segments);

} // namespace pu::url
