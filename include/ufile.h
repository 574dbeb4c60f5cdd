/* SPDX-License-Identifier: MIT */
/*
 * uFile: quick checks that a buffer starts with a usable WAV (RIFF/WAVE) header or an MP3 ID3
 * tag. Nothing is allocated; the WAV checks log under "platform.utils.uFile".
 */
#ifndef PLATFORM_UTILS_UFILE_H
#define PLATFORM_UTILS_UFILE_H

#include <stdint.h>

#include "uexport.h"

PU_BEGIN_DECLS

/* The canonical 44-byte WAV header, little-endian as in the file. */
typedef struct uWavHeader {
    char riffTag[4]; /* "RIFF" */
    uint32_t riffSize;
    char waveTag[4]; /* "WAVE" */
    char fmtTag[4];  /* "fmt " */
    uint32_t fmtSize;
    uint16_t audioFormat; /* 1 PCM, 6 A-law, 7 mu-law */
    uint16_t channels;
    uint32_t sampleRate;
    uint32_t byteRate;
    uint16_t blockAlign;
    uint16_t bitsPerSample;
    char dataTag[4]; /* "data" */
    uint32_t dataSize;
} uWavHeader;

/* Checks the first length bytes of a WAV file: RIFF/WAVE tags, the fmt chunk (and its extension,
 * which must lie in the buffer), then up to 30 chunks before "data" (LIST and the like are
 * skipped); then 1 or 2 channels and PCM, A-law or mu-law. Each step logs its finding. Returns 0
 * if acceptable, else -1. */
PU_API int32_t uFileWavHeaderFullCheck(const uint8_t *buffer, int32_t length);

/* Checks a canonical header only: "RIFF", "WAVE", "fmt " and "data" in their places and exactly
 * one channel (stricter than the full check on purpose). Returns 0, or -1 (also for null). */
PU_API int32_t uFileWavHeaderTagCheck(const uWavHeader *header);

/* Returns 0 when buffer starts with an ID3v2 tag ("ID3"), else -1 (also for null). A bare MPEG
 * frame header is not recognised. buffer needs at least 3 bytes. */
PU_API int32_t uFileMp3HeaderTagCheck(const uint8_t *buffer);

PU_END_DECLS

#endif /* PLATFORM_UTILS_UFILE_H */
