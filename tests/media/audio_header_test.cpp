// SPDX-License-Identifier: MIT
// WAV and MP3 header checks on files made by real encoders and on hand-built headers.
#include <ufile.h>

#include "log_capture.hpp"
#include "test_support.hpp"

#include <gtest/gtest.h>

namespace {

// RIFF, WAVE, a 16-byte fmt chunk (format, channels), `skipped` empty chunks, then data.
std::string wav(int format, int channels, int skipped) {
    std::string d = std::string("RIFF\0\0\0\0WAVEfmt \x10\0\0\0", 20) + std::string(16, '\0');
    d[20] = static_cast<char>(format), d[21] = static_cast<char>(format >> 8);
    d[22] = static_cast<char>(channels);
    for (int i = 0; i < skipped; ++i) {
        d += std::string("junk\2\0\0\0\0\0", 10);
    }
    return d + std::string("data\0\0\0\0", 8);
}

TEST(WavCheck, SampleFilesAndHandBuiltHeaders) {
    pu::test::LogCapture log;
    const struct {
        std::string what, data;
        int full, tag; // uFileWavHeaderFullCheck, uFileWavHeaderTagCheck
    } cases[] = {
        {"mono.wav", pu::test::readFile("audio/mono.wav"), 0, 0},
        {"stereo.wav", pu::test::readFile("audio/stereo.wav"), 0, -1}, // tags want one channel
        {"alaw.wav", pu::test::readFile("audio/alaw.wav"), 0, -1},     // not the canonical layout
        {"list.wav", pu::test::readFile("audio/list.wav"), 0, -1},
        {"29 chunks before data", wav(1, 1, 29), 0, -1},
        {"30 chunks before data", wav(1, 1, 30), -1, -1}, // the walk gives up
        {"0 channels", wav(1, 0, 0), -1, -1},
        {"3 channels", wav(1, 3, 0), -1, -1},
        {"float format", wav(3, 1, 0), -1, 0},
        {"header only", wav(1, 1, 0).substr(0, 40), -1, -1},
        {"one byte", "R", -1, -1}, // too short for a RIFF chunk: a warning, not refused input
    };
    for (const auto &c : cases) {
        const auto *bytes = reinterpret_cast<const uint8_t *>(c.data.data());
        const int tag = c.data.size() < 44 ? -1 : uFileWavHeaderTagCheck((const uWavHeader *)bytes);
        const int full = uFileWavHeaderFullCheck(bytes, int32_t(c.data.size()));
        EXPECT_EQ(std::pair(full, tag), std::pair(c.full, c.tag)) << c.what;
    }
    EXPECT_EQ(log.countContaining("platform.utils.uFile", "too small for RIFF chunk"), 1);
    const std::string mp3 = pu::test::readFile("audio/tagged.mp3");
    EXPECT_EQ(std::tuple(uFileMp3HeaderTagCheck((const uint8_t *)mp3.data()),
                         uFileMp3HeaderTagCheck(nullptr), uFileWavHeaderTagCheck(nullptr)),
              std::tuple(0, -1, -1));
}

} // namespace
