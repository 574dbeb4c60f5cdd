// Linking and unlinking next to a node the caller already holds, for families that walk a
// uList under their own lock and should not walk it a second time to change it.
#pragma once

#include <ulist.h>

#include <cstdint>

namespace pu::core {

// Links element after prev, or at the head when prev is null. The caller holds the list's lock
// (or its own lock over a list without one) and prev is a node of list. Returns the new size, or
// -1 for a null element or when the node cannot be allocated (the list is then unchanged).
std::int32_t listInsertAfter(uList *list, uListNode *prev, void *element);

// Unlinks the node after prev, or the head when prev is null, and returns its element (null when
// there is no such node). Same locking as listInsertAfter.
void *listRemoveAfter(uList *list, uListNode *prev);

} // namespace pu::core
