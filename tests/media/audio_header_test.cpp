// SPDX-License-Identifier: MIT
// WAV and MP3 header checks on files made by real encoders and on hand-built headers.
#include <ufile.h>

#include "log_capture.hpp"

#include <cstdint>
#include <cstring>
#include <filesystem>
#include <fstream>
#include <string>
#include <vector>

#include <gtest/gtest.h>

namespace {
constexpr const char *kFile = "platform.utils.uFile";
constexpr const char *kParse = "uFileWavHeaderCheckFromBuffer";
constexpr const char *kCheck = "uFileWavHeaderFullCheck";

std::vector<uint8_t> readFile(const char *name) {
    const auto path = std::filesystem::path(PU_TEST_DATA_DIR) / "audio" / name;
    std::ifstream in(path, std::ios::binary);
    EXPECT_TRUE(in.good()) << path;
    return {std::istreambuf_iterator<char>(in), std::istreambuf_iterator<char>()};
}

int32_t fullCheck(const std::vector<uint8_t> &data) {
    return uFileWavHeaderFullCheck(data.data(), static_cast<int32_t>(data.size()));
}

int32_t tagCheck(const std::vector<uint8_t> &data) {
    uWavHeader header;
    std::memcpy(&header, data.data(), sizeof header);
    return uFileWavHeaderTagCheck(&header);
}

void putLittle(std::vector<uint8_t> &data, std::size_t at, uint32_t value, int bytes) {
    for (int i = 0; i < bytes; ++i) {
        data[at + static_cast<std::size_t>(i)] = static_cast<uint8_t>(value >> (8 * i));
    }
}

void appendChunk(std::vector<uint8_t> &data, const char *tag, uint32_t size) {
    data.insert(data.end(), tag, tag + 4);
    for (int i = 0; i < 4; ++i) {
        data.push_back(static_cast<uint8_t>(size >> (8 * i)));
    }
    data.insert(data.end(), size, 0);
}

// RIFF, WAVE and a 16-byte fmt chunk: 36 bytes, no data chunk yet.
std::vector<uint8_t> wavStart(uint16_t format = 1, uint16_t channels = 1) {
    std::vector<uint8_t> data(36, 0);
    std::memcpy(data.data(), "RIFF", 4);
    std::memcpy(data.data() + 8, "WAVEfmt ", 8);
    putLittle(data, 16, 16, 4);
    putLittle(data, 20, format, 2);
    putLittle(data, 22, channels, 2);
    putLittle(data, 24, 8000, 4);
    return data;
}

// The logger hands lines to the capture without their trailing newline, so the messages that
// end in one are compared without it.
TEST(WavCheck, FilesFromARealEncoder) {
    pu::test::LogCapture log;
    const struct {
        const char *file;
        int headerSize, channels, codec;
        bool mono;
    } files[] = {{"mono.wav", 44, 1, 1, true},
                 {"stereo.wav", 44, 2, 1, false},
                 {"alaw.wav", 58, 1, 6, true},
                 {"mulaw.wav", 58, 1, 7, true},
                 {"list.wav", 78, 1, 1, true}};
    for (const auto &f : files) {
        SCOPED_TRACE(f.file);
        log.clear();
        const auto data = readFile(f.file);
        EXPECT_EQ(fullCheck(data), 0) << log.dump();
        EXPECT_EQ(log.count(1, kFile,
                            std::string(kCheck) + ":WAV header validation passed - header size=" +
                                std::to_string(f.headerSize) +
                                " bytes, channel=" + std::to_string(f.channels) +
                                ", codec type=" + std::to_string(f.codec)),
                  1)
            << log.dump();
        // The tag check wants the canonical layout and one channel.
        EXPECT_EQ(tagCheck(data), f.mono && f.headerSize == 44 ? 0 : -1);
    }
    // A-law and mu-law have an extended fmt chunk and a fact chunk; list.wav a LIST chunk.
    log.clear();
    fullCheck(readFile("list.wav"));
    EXPECT_EQ(
        log.count(1, kFile, std::string(kParse) + ":Skipping non-data chunk (tag=LIST, len=26)"), 1)
        << log.dump();
    EXPECT_EQ(log.count(1, kFile, std::string(kParse) + ":Found data chunk after 1 attempts"), 1);
    EXPECT_EQ(
        log.count(1, kFile, std::string(kParse) + ":WAV header validation passed, header size=78"),
        1);

    EXPECT_EQ(uFileMp3HeaderTagCheck(readFile("tagged.mp3").data()), 0);
    EXPECT_EQ(uFileMp3HeaderTagCheck(readFile("untagged.mp3").data()), -1);
    EXPECT_EQ(uFileMp3HeaderTagCheck(readFile("mono.wav").data()), -1);
    EXPECT_EQ(uFileMp3HeaderTagCheck(nullptr), -1);
}

TEST(WavCheck, DataRightAfterFmtAndTheChunkLimit) {
    pu::test::LogCapture log;
    auto data = wavStart();
    appendChunk(data, "data", 4);
    EXPECT_EQ(fullCheck(data), 0);
    EXPECT_EQ(log.count(1, kFile, std::string(kParse) + ":Found data chunk after 0 attempts"), 1);
    EXPECT_EQ(
        log.count(1, kFile, std::string(kParse) + ":WAV header validation passed, header size=44"),
        1);
    // The data chunk's own size does not matter; a buffer ending after its header is enough.
    data.resize(44);
    EXPECT_EQ(fullCheck(data), 0);

    // 29 chunks before data are skipped, 30 are too many.
    for (int skipped : {29, 30}) {
        log.clear();
        auto many = wavStart();
        for (int i = 0; i < skipped; ++i) {
            appendChunk(many, "junk", 2);
        }
        appendChunk(many, "data", 0);
        EXPECT_EQ(fullCheck(many), skipped == 29 ? 0 : -1);
        EXPECT_EQ(log.countContaining(kFile, "Skipping non-data chunk (tag=junk, len=2)"), skipped);
        EXPECT_EQ(log.count(1, kFile,
                            std::string(kParse) + ":Data chunk not found after 30 max attempts"),
                  skipped == 30 ? 1 : 0);
        EXPECT_EQ(log.count(3, kFile, std::string(kCheck) + ":Failed to parse WAV header"),
                  skipped == 30 ? 1 : 0);
    }
}

TEST(WavCheck, TruncatedAndMalformedBuffersSayWhy) {
    pu::test::LogCapture log;
    const std::string check = kCheck, parse = kParse;
    const std::string failed = check + ":Failed to parse WAV header";

    EXPECT_EQ(uFileWavHeaderFullCheck(nullptr, 100), -1);
    EXPECT_EQ(uFileWavHeaderFullCheck(wavStart().data(), 0), -1);
    EXPECT_EQ(log.count(3, kFile, check + ":Invalid input"), 2);
    EXPECT_EQ(log.count(3, kFile, failed), 0);

    auto data = wavStart();
    EXPECT_EQ(uFileWavHeaderFullCheck(data.data(), 11), -1);
    EXPECT_EQ(log.count(2, kFile, parse + ":Buffer too small for RIFF chunk"), 1);
    EXPECT_EQ(uFileWavHeaderFullCheck(data.data(), 35), -1);
    EXPECT_EQ(
        log.count(2, kFile, parse + ":Buffer too small for fmt chunk header (need 8, have 23)"), 1);
    // Ends before the next chunk header.
    data.resize(40);
    EXPECT_EQ(fullCheck(data), -1);
    EXPECT_EQ(log.count(2, kFile, parse + ":Buffer too small for chunk header (need 8, have 4)"),
              1);
    EXPECT_EQ(log.count(3, kFile, failed), 3);

    auto wrong = wavStart();
    std::memcpy(wrong.data() + 8, "AVI ", 4);
    EXPECT_EQ(fullCheck(wrong), -1);
    EXPECT_EQ(log.count(1, kFile, parse + ":Not a RIFF/WAVE file (riff=RIFF, wave=AVI )"), 1);

    // A chunk that claims more than the buffer holds.
    auto large = wavStart();
    appendChunk(large, "LIST", 10);
    putLittle(large, 40, 100, 4);
    EXPECT_EQ(fullCheck(large), -1);
    EXPECT_EQ(
        log.count(3, kFile, parse + ":Chunk len too large (tag=LIST, len=100, max allowed=10)"), 1);
    // An extended fmt chunk must lie within the buffer.
    auto extended = wavStart();
    putLittle(extended, 16, 18, 4);
    extended.resize(37);
    EXPECT_EQ(fullCheck(extended), -1);
    EXPECT_EQ(
        log.count(3, kFile, parse + ":Buffer too small for fmt extended data (need 2, have 1)"), 1);
    // A huge fmt size does not wrap around.
    putLittle(extended, 16, 0xFFFFFFF0u, 4);
    EXPECT_EQ(fullCheck(extended), -1);
    EXPECT_EQ(log.count(3, kFile, failed), 7);
}

TEST(WavCheck, ChannelsAndFormatsAfterAGoodParse) {
    pu::test::LogCapture log;
    const std::string check = kCheck;
    for (uint16_t channels : {0, 3}) {
        auto data = wavStart(1, channels);
        appendChunk(data, "data", 0);
        EXPECT_EQ(fullCheck(data), -1);
        EXPECT_EQ(
            log.count(3, kFile, check + ":Invalid channel count: " + std::to_string(channels)), 1);
    }
    for (uint16_t format : {uint16_t{3}, uint16_t{0xFFFE}}) {
        auto data = wavStart(format, 2);
        appendChunk(data, "data", 0);
        EXPECT_EQ(fullCheck(data), -1);
        EXPECT_EQ(
            log.count(3, kFile, check + ":Unsupported audio format: " + std::to_string(format)), 1);
    }
    // These refusals come after the parse succeeded: no parse failure is reported.
    EXPECT_EQ(log.countContaining(kFile, "Failed to parse"), 0);
}

TEST(WavCheck, TagCheckWantsEveryTagAndOneChannel) {
    auto data = wavStart();
    appendChunk(data, "data", 0);
    EXPECT_EQ(tagCheck(data), 0);
    for (std::size_t at : {0u, 8u, 12u, 36u}) {
        auto broken = data;
        broken[at + 3] ^= 0x20;
        EXPECT_EQ(tagCheck(broken), -1) << at;
    }
    auto stereo = wavStart(1, 2);
    appendChunk(stereo, "data", 0);
    EXPECT_EQ(tagCheck(stereo), -1);
    EXPECT_EQ(fullCheck(stereo), 0);
    EXPECT_EQ(uFileWavHeaderTagCheck(nullptr), -1);
}

} // namespace
