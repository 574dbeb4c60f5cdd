/* SPDX-License-Identifier: MIT */
/*
 * uSocket: stateless helpers over an open socket descriptor (reads and writes that give up after
 * a time-out, reading until the peer goes quiet, lines, HTTP request bodies, option setters), and
 * connected loopback socket pairs, a UDP port check and a wait for the send queue to drain.
 *
 * The I/O helpers never open or close the descriptor they are given and take no lock; any number
 * of threads may use them on different descriptors. Time-outs are whole seconds and apply to each
 * wait separately, not to the whole call. Time-out, error and end of stream are not told apart:
 * the caller sees a short count. Descriptors that select() cannot watch (negative, or at or above
 * FD_SETSIZE) are refused at once: nothing is read or written. Log lines use the module
 * "basalt.utils.socket".
 */
#ifndef PLATFORM_UTILS_USOCKET_H
#define PLATFORM_UTILS_USOCKET_H

#include <stdint.h>

#include "uexport.h"

PU_BEGIN_DECLS

/* Receives one piece of an HTTP body, in order, at most 1024 bytes at a time (a piece may be
 * empty). Runs on the reading thread; its result is ignored. */
typedef int32_t (*uSocketDataFn)(void *context, const char *data, uint32_t length);

/* Two connected descriptors, both owned by the caller, who closes them. */
typedef struct uSocketPair {
    int32_t clientSock; /* the connecting side */
    int32_t acceptSock; /* the accepted (TCP) or first bound (UDP) side */
} uSocketPair;

/* ---- Reads and writes ------------------------------------------------------------------- */

/* Reads until length bytes have arrived, a wait of timeoutSec seconds sees nothing (0 or less:
 * no waiting at all), the peer closes, or read fails. Returns the bytes read, 0..length. */
PU_API int32_t uSocketReadWithTimeout(int32_t fd, void *buffer, int32_t length, int32_t timeoutSec);

/* uSocketReadWithTimeout with 15 s per wait. */
PU_API int32_t uSocketReadNormalData(int32_t fd, void *buffer, int32_t length);

/* Writes until length bytes are written, continuing partial writes, or a wait of timeoutSec
 * seconds finds no room, or write fails. Returns the bytes written, 0..length (0 for a negative
 * descriptor). */
PU_API int32_t uSocketWriteWithTimeout(int32_t fd, const void *data, int32_t length,
                                       int32_t timeoutSec);

/* uSocketWriteWithTimeout with 15 s per wait. */
PU_API int32_t uSocketSafeWriteData(int32_t fd, const void *data, int32_t length);

/* Reads everything that arrives until the peer closes or stays quiet (60 s for the first wait,
 * 15 s for each later one) into a buffer that grows in steps of 2048 bytes. On success stores a
 * uMalloc'd buffer (the caller frees it with uFree) holding the data and one zero byte after it
 * in *out, and returns the byte count. Returns 0, leaving *out untouched, when nothing was read or
 * memory ran out; -1 when limit (-1 = none) was reached. The limit is consulted only when the
 * buffer must grow, so a little more than limit may be returned successfully. */
PU_API int32_t uSocketReadLimitWithoutSize(int32_t fd, char **out, int32_t limit);

/* uSocketReadLimitWithoutSize without limit. */
PU_API int32_t uSocketReadWithoutSize(int32_t fd, char **out);

/* Reads one line, a byte at a time with 15 s per byte. At a line feed the line is terminated
 * (a carriage return before it is dropped) and its length returned. When size bytes are stored,
 * or the read ends early after some bytes, their count is returned WITHOUT a terminating zero.
 * Returns -1 when nothing at all was read (and for a null buffer or a size below 1). */
PU_API int32_t uSocketReadLine(int32_t fd, char *buffer, int32_t size);

/* ---- HTTP request bodies ---------------------------------------------------------------- */

/* Streams a request body to dataFn (which may be null) until a read of 10 s comes up short.
 * With a boundary of length L, the last L + 4 bytes are held back: they are dropped only when
 * they hold two bytes, the boundary text and a zero byte; otherwise they are delivered at the end.
 * A body shorter than L + 4 delivers nothing. Returns the bytes delivered; 0 when out of memory. */
PU_API int32_t uSocketReadHttpData(int32_t fd, const char *boundary, void *context,
                                   uSocketDataFn dataFn);

/* Streams contentLength bytes of a request body to dataFn (which may be null; it is also called
 * with the count 0 when a read yields nothing, which ends the body). With a boundary of length L
 * the last L + 4 bytes are not delivered: when the body before them was read completely, they are
 * read and discarded. Returns the bytes consumed from the socket; 0 when contentLength is below 1
 * or below L + 4, or when out of memory. */
PU_API int32_t uSocketReadHttpDataWithSize(int32_t fd, const char *boundary, int32_t contentLength,
                                           void *context, uSocketDataFn dataFn);

/* ---- Socket options --------------------------------------------------------------------- */

/* Sets SO_SNDBUF to size bytes. Returns 0, or -1 for a negative size or when setsockopt fails. */
PU_API int32_t uSocketSetSendBufferSize(int32_t fd, int32_t size);
/* Sets SO_RCVBUF to size bytes; results as uSocketSetSendBufferSize. */
PU_API int32_t uSocketSetRecvBufferSize(int32_t fd, int32_t size);

/* Sets SO_SNDTIMEO to whole seconds (0 means none). Returns 0, or -1 for a negative descriptor or
 * seconds, or when setsockopt fails. */
PU_API int32_t uSocketSetSendTimeout(int32_t fd, int32_t seconds);
/* Sets SO_RCVTIMEO to whole seconds; results as uSocketSetSendTimeout. */
PU_API int32_t uSocketSetRecvTimeout(int32_t fd, int32_t seconds);

/* ---- Loopback pairs, ports and the send queue ------------------------------------------- */

/* Connects two TCP sockets over 127.0.0.1, each bound to a random port in 10240..11239 (from
 * rand(), which the library does not seed). Blocks until the connection is made. On success
 * stores the client and the accepted descriptor in *pair, gives both a 60 s receive time-out and
 * returns 0; the client is non-blocking, both are the caller's to close. Returns -1 (closing
 * whatever it created, *pair untouched) on failure. */
PU_API int32_t uSocketPeer(uSocketPair *pair);

/* Like uSocketPeer with two non-blocking UDP sockets connected to each other. */
PU_API int32_t uSocketUdpPeer(uSocketPair *pair);

/* 1 when a UDP socket can be bound to port on all interfaces right now, else 0 (also for a port
 * outside 0..65535). */
PU_API int32_t uSocketPortIsUsable(int32_t port);

/* Polls the amount of data still queued for sending (unsent or unacknowledged) on fd once a
 * second and returns 0 as soon as it is 0. Returns -1 when ioctl fails, or when stallPolls + 1
 * polls in a row find the same non-zero amount as the poll before them. Blocks its caller. */
PU_API int32_t uSocketWaitSendDataConfirmed(int32_t fd, int32_t stallPolls);

PU_END_DECLS

#endif /* PLATFORM_UTILS_USOCKET_H */
