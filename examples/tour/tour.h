/*
 * Sections of the tour. Each family's walk-through lives in its own tour_<family>.c and is
 * called in order from main() in tour.c.
 */
#ifndef PLATFORM_UTILS_TOUR_H
#define PLATFORM_UTILS_TOUR_H

/* Prints a section heading. */
void tourSection(const char *title);

/* URL parsing, rebuilding, credential removal and queries (tour_url.c). */
void tourUrl(void);

#endif
