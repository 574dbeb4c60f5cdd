/* SPDX-License-Identifier: MIT */
/*
 * Sections of the tour. Each family's walk-through lives in its own tour_<family>.c and is
 * called in order from main() in tour.c.
 */
#ifndef PLATFORM_UTILS_TOUR_H
#define PLATFORM_UTILS_TOUR_H

/* Prints a section heading. */
void tourSection(const char *title);

/* XML parsing with the ampersand repair (tour_xml.c). */
void tourXml(void);

/* A daily time plan a few seconds ahead (tour_timeplan.c). */
void tourTimePlan(void);

void tourMonitor(void);
void tourInputEvent(void);
void tourIntervalPlan(void);

/* AES over a text, digests and a UUID (tour_crypto.c). */
void tourCrypto(void);

/* URL parsing, rebuilding, credential removal and queries (tour_url.c). */
void tourUrl(void);

#endif
