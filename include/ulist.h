/* SPDX-License-Identifier: MIT */
/*
 * uList: an ordered chain of caller-owned element pointers, addressed by position from 0,
 * optionally guarded by a recursive mutex of its own.
 *
 * Every positional access walks from the head; lists in this library are short. The list owns
 * its header and nodes, never its elements, except where a release function is passed.
 * Elements are never null, so a null result from uListGet or uListRemove always means that
 * there is no such position.
 */
#ifndef PLATFORM_UTILS_ULIST_H
#define PLATFORM_UTILS_ULIST_H

#include <stdint.h>

#include "uexport.h"

PU_BEGIN_DECLS

typedef struct uListNode {
    struct uListNode *next; /* following node, null at the end */
    void *data;             /* the element, owned by the caller */
} uListNode;

typedef struct uList {
    uint32_t lock;   /* platform mutex id, 0 for a list without a lock */
    int32_t size;    /* number of nodes */
    uListNode *head; /* first node, null when empty */
} uList;

/* Releases one element (uListRemoveAndFree, uListSpecialClear). */
typedef void (*uListFreeFn)(void *element);
/* Three-way comparator in the manner of strcmp: 0 means element matches key (uListSearch). */
typedef int (*uListCompareFn)(void *element, void *key);
/* Predicate: non-zero means the two elements are equal (uListEqual). */
typedef int (*uListEqualFn)(void *elementOfA, void *elementOfB);

/* Creates an empty list, with its own recursive mutex when withLock is non-zero. Returns null
 * only when the header cannot be allocated. Release it with uListUninit once empty. */
PU_API uList *uListInit(int32_t withLock);

/* Releases an empty list and its lock and returns 0; 0 for null too. A list that still has nodes
 * is left untouched and usable, the misuse is logged at level 3 and -1 is returned. */
PU_API int32_t uListUninit(uList *list);

/* Number of elements, or -1 for a null list. Reads without the lock. */
PU_API int32_t uListSize(uList *list);

/* 1 when pos is not a valid position (null list, negative pos, pos >= size), else 0. No lock. */
PU_API int32_t uListEol(uList *list, int32_t pos);

/* Inserts element so that it lands at pos: -1 or pos >= size appends; 0 makes it the head;
 * 1 <= pos < size puts it at pos; any pos below -1 puts it at position 1, behind the head (or
 * makes it the only element of an empty list). Returns the new size, or -1 for a null list or
 * element, or when the node cannot be allocated (the list is then unchanged). */
PU_API int32_t uListAdd(uList *list, void *element, int32_t pos);

/* uListAdd(list, element, -1). */
PU_API int32_t uListAppend(uList *list, void *element);

/* Unlinks the element at pos and returns it (the caller keeps ownership), or null when pos is
 * not a valid position. */
PU_API void *uListRemove(uList *list, int32_t pos);

/* Removes the element at pos and releases it with freeFn, or with uFree when freeFn is null.
 * Returns the size after the call. list must not be null. */
PU_API int32_t uListRemoveAndFree(uList *list, int32_t pos, uListFreeFn freeFn);

/* The element at pos, or null when pos is not a valid position. */
PU_API void *uListGet(uList *list, int32_t pos);

/* The first element, or null for a null or empty list. No lock. */
PU_API void *uListFirst(uList *list);

/* First position holding exactly this pointer, or -1. Holds the lock over the whole scan. */
PU_API int32_t uListPosGetByElement(uList *list, void *element);

/* First position whose element matches key: compare(element, key) == 0, or pointer identity when
 * compare is null. -1 for a null list or key, or when nothing matches. Each access locks on its
 * own; hold your own lock around the call when the list may change meanwhile. */
PU_API int32_t uListSearch(uList *list, void *key, uListCompareFn compare);

/* 1 when both lists are null, or have the same size and equal(a[i], b[i]) is non-zero for every
 * i; 0 otherwise. Without equal, elements are compared as NUL-terminated strings. */
PU_API int32_t uListEqual(uList *a, uList *b, uListEqualFn equal);

/* Empties the list under its lock, then, with the lock given, releases every element in list
 * order with freeFn (uFree when null). The list stays usable. Returns 0. */
PU_API int32_t uListSpecialClear(uList *list, uListFreeFn freeFn);

/* Empties the list without releasing its elements. Returns 0. */
PU_API int32_t uListClearWithNodeNoNeedFree(uList *list);

PU_END_DECLS

#endif /* PLATFORM_UTILS_ULIST_H */
