// SPDX-License-Identifier: MIT
// WAV and MP3 header checks on files made by real encoders and on patched headers. Accepted
// buffers with bad tags, channels or formats are the wav_header fuzz target's to find.
#include <ufile.h>

#include "call_table.hpp"
#include "test_support.hpp"

using namespace pu::test;

// Both checks of a buffer as "<full> <tag>"; the tag check reads a whole 44-byte header.
static std::string checks(const std::string &d) {
    const auto *b = reinterpret_cast<const uint8_t *>(d.data());
    const int tag = d.size() < 44 ? -1 : uFileWavHeaderTagCheck((const uWavHeader *)b);
    return std::to_string(uFileWavHeaderFullCheck(b, int32_t(d.size()))) + " " +
           std::to_string(tag);
}

TEST(WavCheck, SampleFilesAndPatchedHeaders) {
    // mono.wav's data chunk starts at byte 36.
    const std::string mono = readFile("audio/mono.wav"), mp3 = readFile("audio/tagged.mp3");
    checkRows({
        {"stereo.wav", checks(readFile("audio/stereo.wav")), "0 -1"}, // tags want one channel
        {"alaw.wav", checks(readFile("audio/alaw.wav")), "0 -1"},     // not the canonical layout
        {"29 empty chunks first", checks(std::string(mono).insert(36, 29 * 8, '\0')), "0 -1"},
        {"30: the walk gives up", checks(std::string(mono).insert(36, 30 * 8, '\0')), "-1 -1"},
        {"float format", checks(std::string(mono).replace(20, 1, "\3")), "-1 0"},
        {"one byte: a warning only", logged([] { EXPECT_EQ(checks("R"), "-1 -1"); }),
         "2 platform.utils.uFile: uFileWavHeaderCheckFromBuffer:Buffer too small for RIFF chunk\n"
         "3 platform.utils.uFile: uFileWavHeaderFullCheck:Failed to parse WAV header"},
        {"mp3", uFileMp3HeaderTagCheck((const uint8_t *)mp3.data()), 0},
        {"null", uFileMp3HeaderTagCheck(nullptr) + uFileWavHeaderTagCheck(nullptr), -2},
    });
}
