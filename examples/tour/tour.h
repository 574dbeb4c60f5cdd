/*
 * Sections of the tour. Each family's walk-through lives in its own tour_<family>.c and is
 * called in order from main() in tour.c.
 */
#ifndef PLATFORM_UTILS_TOUR_H
#define PLATFORM_UTILS_TOUR_H

/* Prints a section heading. */
void tourSection(const char *title);

/* AES over a text, digests and a UUID (tour_crypto.c). */
void tourCrypto(void);

#endif
