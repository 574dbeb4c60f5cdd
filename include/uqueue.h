/* SPDX-License-Identifier: MIT */
/*
 * uQm: an intrusive first-in first-out queue, and uBm: a block pool built on it.
 *
 * The queue links caller-owned elements through the pointer-sized word immediately before each
 * element, so it never allocates. The pool carves caller memory into equal blocks, each preceded
 * by two pointer-sized words (its owning pool, then its queue link), so allocation and release
 * are constant-time and release needs no pool argument.
 */
#ifndef PLATFORM_UTILS_UQUEUE_H
#define PLATFORM_UTILS_UQUEUE_H

#include <stddef.h>
#include <stdint.h>

#include "uexport.h"

PU_BEGIN_DECLS

typedef struct uQm {
    uint32_t lock;  /* platform mutex id, 0 for no locking */
    void *head;     /* first element, null when empty */
    void *tail;     /* last element, null when empty */
    uint16_t count; /* queued elements; informational only, it wraps */
} uQm;

typedef struct uBm {
    uint32_t blockCount; /* number of blocks */
    uint32_t blockSize;  /* usable bytes per block */
    uint32_t reservedA;  /* set to blockCount at initialisation, kept for the pool's users */
    uint32_t reservedB;  /* likewise */
    uQm freeQueue;       /* the free blocks */
} uBm;

/* Bytes of bookkeeping before each block's data: the owner word and the link word. */
#define U_BM_BLOCK_OVERHEAD (2 * sizeof(void *))

/* Bytes a memory area needs for blockCount blocks of blockSize bytes. */
#define U_BM_HEAP_SIZE(blockCount, blockSize)                                                      \
    ((size_t)(blockCount) * ((size_t)(blockSize) + U_BM_BLOCK_OVERHEAD))

/* Prepares an empty queue with its own mutex. Every queue and pool operation ignores a null
 * queue, pool or element (uQmDeq and uBmAlloc then return null). */
PU_API void uQmInit(uQm *queue);

/* Appends element at the tail; element must be preceded by a pointer-sized link word. */
PU_API void uQmEnq(uQm *queue, void *element);

/* Removes and returns the head element, or null when the queue is empty. The emptiness test is
 * made before the lock is taken; the count may then drift below the real number when two tasks
 * race for the last element (it is informational). */
PU_API void *uQmDeq(uQm *queue);

/* Lays a pool of blockCount blocks of blockSize bytes over memory, which must hold
 * U_BM_HEAP_SIZE(blockCount, blockSize) bytes and outlive the pool. Blocks are handed out in
 * address order at first, then least recently freed first. blockSize is not rounded: data areas
 * are aligned only as far as memory and blockSize make them. */
PU_API void uBmInitHeap(uBm *pool, uint32_t blockCount, uint32_t blockSize, void *memory);

/* A free block's data area, or null when none is free. */
PU_API void *uBmAlloc(uBm *pool);

/* Returns a block to the pool that owns it; null is ignored. Foreign pointers and double frees
 * are not detected. */
PU_API void uBmFree(void *block);

PU_END_DECLS

#endif /* PLATFORM_UTILS_UQUEUE_H */
