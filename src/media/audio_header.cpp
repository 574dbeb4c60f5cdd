// SPDX-License-Identifier: MIT
// Quick checks of the start of WAV (RIFF/WAVE) and MP3 (ID3v2) files.
#include <platform_os.h>
#include <ufile.h>

#include "core/log_modules.hpp"

#include <cstddef>
#include <cstdint>
#include <cstring>

namespace {

static_assert(sizeof(uWavHeader) == 44, "the canonical WAV header is 44 bytes");
static_assert(offsetof(uWavHeader, channels) == 22 && offsetof(uWavHeader, dataTag) == 36,
              "uWavHeader follows the file layout");

constexpr const char *kParseName = "uFileWavHeaderCheckFromBuffer";
constexpr const char *kCheckName = "uFileWavHeaderFullCheck";
constexpr int kMaxSkippedChunks = 30;
constexpr int32_t kRiffHeaderSize = 12;
constexpr int32_t kFmtEnd = 36; // fmt chunk header and its 16 basic bytes
constexpr int32_t kChunkHeaderSize = 8;

enum class AudioFormat : uint16_t { kPcm = 1, kALaw = 6, kMuLaw = 7 };

uint32_t loadLittle32(const uint8_t *p) {
    return uint32_t{p[0]} | uint32_t{p[1]} << 8 | uint32_t{p[2]} << 16 | uint32_t{p[3]} << 24;
}

uint16_t loadLittle16(const uint8_t *p) {
    return static_cast<uint16_t>(p[0] | p[1] << 8);
}

bool hasTag(const void *at, const char *tag) {
    return std::memcmp(at, tag, 4) == 0;
}

// What the parse learnt: the header size (offset of the data samples) and the fmt fields.
struct WavFormat {
    int32_t headerSize = 0;
    uint16_t channels = 0;
    uint16_t audioFormat = 0;
};

// Walks the chunks behind the fmt chunk to "data". False (after logging why) when the buffer
// ends first, a chunk claims more than the buffer holds, or too many chunks come first.
bool findDataChunk(const uint8_t *buffer, int32_t length, int64_t offset, WavFormat &format) {
    for (int skipped = 0;;) {
        const int64_t left = length - offset;
        if (left < kChunkHeaderSize) {
            pu::log::warning(pu::log::kFile,
                             "%s:Buffer too small for chunk header (need %lu, have %d)", kParseName,
                             static_cast<unsigned long>(kChunkHeaderSize), static_cast<int>(left));
            return false;
        }
        const uint8_t *chunk = buffer + offset;
        const uint32_t size = loadLittle32(chunk + 4);
        if (hasTag(chunk, "data")) {
            pu::log::info(pu::log::kFile, "%s:Found data chunk after %d attempts", kParseName,
                          skipped);
            format.headerSize = static_cast<int32_t>(offset + kChunkHeaderSize);
            pu::log::info(pu::log::kFile, "%s:WAV header validation passed, header size=%d\n",
                          kParseName, format.headerSize);
            return true;
        }
        ++skipped;
        pu::log::info(pu::log::kFile, "%s:Skipping non-data chunk (tag=%c%c%c%c, len=%u)",
                      kParseName, chunk[0], chunk[1], chunk[2], chunk[3], size);
        offset += kChunkHeaderSize + int64_t{size};
        if (offset > length) {
            pu::log::error(pu::log::kFile,
                           "%s:Chunk len too large (tag=%c%c%c%c, len=%u, max allowed=%d)",
                           kParseName, chunk[0], chunk[1], chunk[2], chunk[3], size,
                           static_cast<int>(left - kChunkHeaderSize));
            return false;
        }
        if (skipped == kMaxSkippedChunks) {
            pu::log::info(pu::log::kFile, "%s:Data chunk not found after %d max attempts",
                          kParseName, kMaxSkippedChunks);
            return false;
        }
    }
}

bool parseWav(const uint8_t *buffer, int32_t length, WavFormat &format) {
    if (length < kRiffHeaderSize) {
        pu::log::warning(pu::log::kFile, "%s:Buffer too small for RIFF chunk\n", kParseName);
        return false;
    }
    if (!hasTag(buffer, "RIFF") || !hasTag(buffer + 8, "WAVE")) {
        pu::log::info(pu::log::kFile, "%s:Not a RIFF/WAVE file (riff=%c%c%c%c, wave=%c%c%c%c)",
                      kParseName, buffer[0], buffer[1], buffer[2], buffer[3], buffer[8], buffer[9],
                      buffer[10], buffer[11]);
        return false;
    }
    if (length < kFmtEnd) {
        pu::log::warning(pu::log::kFile,
                         "%s:Buffer too small for fmt chunk header (need 8, have %d)", kParseName,
                         length - kRiffHeaderSize);
        return false;
    }
    // Only the place of the fmt chunk is assumed; its tag is not looked at here.
    const uint32_t fmtSize = loadLittle32(buffer + 16);
    format.audioFormat = loadLittle16(buffer + 20);
    format.channels = loadLittle16(buffer + 22);
    int64_t walkFrom = kFmtEnd;
    if (fmtSize > 16) {
        const int64_t extension = int64_t{fmtSize} - 16;
        if (length < int64_t{fmtSize} + 20) {
            pu::log::error(pu::log::kFile,
                           "%s:Buffer too small for fmt extended data (need %d, have %d)",
                           kParseName, static_cast<int>(extension), length - kFmtEnd);
            return false;
        }
        walkFrom = int64_t{fmtSize} + 20;
    }
    return findDataChunk(buffer, length, walkFrom, format);
}

bool supportedFormat(uint16_t format) {
    return format == static_cast<uint16_t>(AudioFormat::kPcm) ||
           format == static_cast<uint16_t>(AudioFormat::kALaw) ||
           format == static_cast<uint16_t>(AudioFormat::kMuLaw);
}

} // namespace

extern "C" {

int32_t uFileWavHeaderFullCheck(const uint8_t *buffer, int32_t length) {
    if (buffer == nullptr || length < 1) {
        pu::log::error(pu::log::kFile, "%s:Invalid input", kCheckName);
        return -1;
    }
    WavFormat format;
    if (!parseWav(buffer, length, format)) {
        pu::log::error(pu::log::kFile, "%s:Failed to parse WAV header", kCheckName);
        return -1;
    }
    if (format.channels != 1 && format.channels != 2) {
        pu::log::error(pu::log::kFile, "%s:Invalid channel count: %d\n", kCheckName,
                       format.channels);
        return -1;
    }
    if (!supportedFormat(format.audioFormat)) {
        pu::log::error(pu::log::kFile, "%s:Unsupported audio format: %d\n", kCheckName,
                       format.audioFormat);
        return -1;
    }
    pu::log::info(pu::log::kFile,
                  "%s:WAV header validation passed - header size=%d bytes, channel=%d, codec "
                  "type=%d",
                  kCheckName, format.headerSize, format.channels, format.audioFormat);
    return 0;
}

int32_t uFileWavHeaderTagCheck(const uWavHeader *header) {
    if (header == nullptr) {
        return -1;
    }
    // Mono only: deliberately stricter than the full check.
    const bool tagsInPlace = hasTag(header->riffTag, "RIFF") && hasTag(header->waveTag, "WAVE") &&
                             hasTag(header->fmtTag, "fmt ") && hasTag(header->dataTag, "data");
    const auto *bytes = reinterpret_cast<const uint8_t *>(header);
    return tagsInPlace && loadLittle16(bytes + offsetof(uWavHeader, channels)) == 1 ? 0 : -1;
}

int32_t uFileMp3HeaderTagCheck(const uint8_t *buffer) {
    if (buffer == nullptr) {
        return -1;
    }
    return buffer[0] == 'I' && buffer[1] == 'D' && buffer[2] == '3' ? 0 : -1;
}

} // extern "C"
