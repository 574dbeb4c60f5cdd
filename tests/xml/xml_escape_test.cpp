// SPDX-License-Identifier: MIT
// The ampersand repair: which references pass, how candidates cross chunk boundaries, full
// output, and the growing buffer step.
#include <umem.h>
#include <uxmlparser.h>

#include "log_capture.hpp"

#include <cstring>
#include <string>
#include <vector>

#include <gtest/gtest.h>

namespace {

constexpr const char *kModule = "utils.xmlparser";

struct Escaped {
    int32_t result;
    std::string output;
};

// Escapes input as one chunk per piece (final on the last), concatenating the output.
Escaped escapePieces(const std::vector<std::string> &pieces, int32_t capacity = 4096) {
    uXmlParserAmpState state{};
    Escaped all{0, {}};
    for (std::size_t i = 0; i < pieces.size(); ++i) {
        std::vector<char> out(static_cast<std::size_t>(capacity));
        int32_t count = -1;
        all.result = uXmlParserEscapeAmpersands(pieces[i].data(),
                                                static_cast<int32_t>(pieces[i].size()), out.data(),
                                                &count, capacity, &state, i + 1 == pieces.size());
        all.output.append(out.data(), static_cast<std::size_t>(count));
        if (all.result != 0) {
            break;
        }
    }
    return all;
}

std::string escapeWhole(const std::string &input) {
    Escaped e = escapePieces({input});
    EXPECT_EQ(e.result, 0) << input;
    return e.output;
}

TEST(XmlEscape, WellFormedReferencesPassAndEverythingElseIsRepaired) {
    for (const char *kept : {"&amp;", "&lt;", "&gt;", "&quot;", "&apos;", "&#38;", "&#x26;",
                             "&#X26;", "&#xBEEF;", "&#1;", "&#x;", "&#X;", "&#0000000000001;"}) {
        EXPECT_EQ(escapeWhole(std::string("a") + kept + "b"), std::string("a") + kept + "b");
    }
    const std::pair<const char *, const char *> repaired[] = {
        {"a&b", "a&amp;b"},
        {"&", "&amp;"},
        {"x&", "x&amp;"},
        {"&nbsp;", "&amp;nbsp;"},
        {"&AMP;", "&amp;AMP;"}, // names are case-sensitive
        {"&;", "&amp;;"},       // too short to judge
        {"&a;", "&amp;a;"},
        {"&#;", "&amp;#;"},
        {"&#12a;", "&amp;#12a;"},
        {"&#x1g;", "&amp;#x1g;"},
        {"&#-1;", "&amp;#-1;"},
        {"&amp", "&amp;amp"},     // never closed
        {"&&amp;", "&amp;&amp;"}, // a second "&" flushes the first candidate
        {"&a&b;c", "&amp;a&amp;b;c"},
        {"?a=1&b=2;c", "?a=1&amp;b=2;c"},
        // The candidate limit is 16 bytes: a numeric reference of 17 is no longer judged.
        {"&#00000000000001;", "&amp;#00000000000001;"},
        {"&abcdefghijklmnopq", "&amp;abcdefghijklmnopq"},
        {"&abcdefghijklmno;x", "&amp;abcdefghijklmno;x"},
    };
    for (const auto &[input, expected] : repaired) {
        EXPECT_EQ(escapeWhole(input), expected) << input;
    }
    // Plain text, ";" outside a candidate and bytes of every value pass untouched.
    std::string binary;
    for (int c = 1; c < 256; ++c) {
        if (c != '&') {
            binary += static_cast<char>(c);
        }
    }
    EXPECT_EQ(escapeWhole(binary), binary);
    EXPECT_EQ(escapeWhole(";;a;"), ";;a;");
}

TEST(XmlEscape, CandidateIsCarriedUntilTheFinalChunk) {
    uXmlParserAmpState state{};
    char out[64];
    int32_t count = -1;
    ASSERT_EQ(uXmlParserEscapeAmpersands("x&am", 4, out, &count, sizeof out, &state, 0), 0);
    EXPECT_EQ(std::string(out, count), "x");
    EXPECT_EQ(state.pendingCount, 3);
    ASSERT_EQ(uXmlParserEscapeAmpersands("p;y", 3, out, &count, sizeof out, &state, 0), 0);
    EXPECT_EQ(std::string(out, count), "&amp;y");
    EXPECT_EQ(state.pendingCount, 0);

    // Without the final flag an open candidate is never written; with it, it comes out escaped.
    ASSERT_EQ(uXmlParserEscapeAmpersands("&#12", 4, out, &count, sizeof out, &state, 0), 0);
    EXPECT_EQ(count, 0);
    ASSERT_EQ(uXmlParserEscapeAmpersands("3", 1, out, &count, sizeof out, &state, 1), 0);
    EXPECT_EQ(std::string(out, count), "&amp;#123");
    EXPECT_EQ(state.pendingCount, 0);

    // A candidate that reaches 16 bytes is written out by the byte after it, final or not.
    ASSERT_EQ(
        uXmlParserEscapeAmpersands("&abcdefghijklmnop", 17, out, &count, sizeof out, &state, 0), 0);
    EXPECT_EQ(std::string(out, count), "&amp;abcdefghijklmnop");
}

TEST(XmlEscape, EverySplitGivesTheSameOutputAsTheWhole) {
    const std::string inputs[] = {
        "<a href=\"http://h/p?x=1&y=2&amp;z=3\">&lt;&#38;&#x26;&#x;&nbsp;&&amp;</a>",
        "&#0000000000001;&#00000000000001;&abcdefghijklmno;&abcdefghijklmnopq;&",
        "&quot;&apos;&gt;&;&#;&#X1f;;&a",
    };
    for (const std::string &input : inputs) {
        const std::string whole = escapeWhole(input);
        const std::size_t n = input.size();
        for (std::size_t i = 1; i < n; ++i) {
            ASSERT_EQ(escapePieces({input.substr(0, i), input.substr(i)}).output, whole)
                << input << " split at " << i;
            for (std::size_t j = i + 1; j < n; ++j) {
                ASSERT_EQ(
                    escapePieces({input.substr(0, i), input.substr(i, j - i), input.substr(j)})
                        .output,
                    whole)
                    << input << " split at " << i << " and " << j;
            }
        }
        std::vector<std::string> bytes;
        for (char c : input) {
            bytes.emplace_back(1, c);
        }
        EXPECT_EQ(escapePieces(bytes).output, whole) << "byte by byte: " << input;
    }
}

TEST(XmlEscape, FullOutputKeepsWhatWasWrittenCounted) {
    // Plain bytes without any "&" go whole or not at all.
    EXPECT_EQ(escapePieces({"abcdef"}, 5).result, 1);
    EXPECT_EQ(escapePieces({"abcdef"}, 5).output, "");
    EXPECT_EQ(escapePieces({"abcdef"}, 6).output, "abcdef");

    // Before a reference the plain bytes that fit are counted; the reference itself is all or
    // nothing, and so is the "&amp;" of a repair.
    EXPECT_EQ(escapePieces({"abc&lt;"}, 5).result, 1);
    EXPECT_EQ(escapePieces({"abc&lt;"}, 5).output, "abc");
    EXPECT_EQ(escapePieces({"abc&lt;"}, 7).output, "abc&lt;");
    EXPECT_EQ(escapePieces({"abcdefgh&x"}, 4).output, "abcd");
    EXPECT_EQ(escapePieces({"a&b"}, 5).output, "a");
    EXPECT_EQ(escapePieces({"a&b"}, 6).output, "a&amp;");
    EXPECT_EQ(escapePieces({"a&b"}, 6).result, 1);
    EXPECT_EQ(escapePieces({"a&b"}, 7).output, "a&amp;b");
    // The final flush needs room too.
    EXPECT_EQ(escapePieces({"ab&"}, 6).result, 1);
    EXPECT_EQ(escapePieces({"ab&"}, 7).result, 0);
}

TEST(XmlEscape, BadArgumentsAreRefusedWithoutTouchingTheCount) {
    uXmlParserAmpState state{};
    char out[16];
    int32_t count = 77;
    EXPECT_EQ(uXmlParserEscapeAmpersands(nullptr, 1, out, &count, 16, &state, 1), 2);
    EXPECT_EQ(uXmlParserEscapeAmpersands("a", 0, out, &count, 16, &state, 1), 2);
    EXPECT_EQ(uXmlParserEscapeAmpersands("a", -1, out, &count, 16, &state, 1), 2);
    EXPECT_EQ(uXmlParserEscapeAmpersands("a", 1, nullptr, &count, 16, &state, 1), 2);
    EXPECT_EQ(uXmlParserEscapeAmpersands("a", 1, out, nullptr, 16, &state, 1), 2);
    EXPECT_EQ(uXmlParserEscapeAmpersands("a", 1, out, &count, 0, &state, 1), 2);
    EXPECT_EQ(uXmlParserEscapeAmpersands("a", 1, out, &count, -5, &state, 1), 2);
    EXPECT_EQ(uXmlParserEscapeAmpersands("a", 1, out, &count, 16, nullptr, 1), 2);
    state.pendingCount = 17; // corrupt state: never index past the candidate
    EXPECT_EQ(uXmlParserEscapeAmpersands("a", 1, out, &count, 16, &state, 1), 2);
    EXPECT_EQ(count, 77);
}

TEST(XmlEscape, BufferStepGrowsForEveryAmpersandAndACarriedCandidate) {
    pu::test::LogCapture log;
    uXmlParserAmpState state{};
    int32_t capacity = 4;
    auto *buffer = static_cast<char *>(uMalloc(static_cast<uint32_t>(capacity)));
    int32_t count = -1;
    // 5 bytes with two "&": room for 5 + 4 * 2.
    ASSERT_EQ(uXmlParserProcessXmlBufferWithAmp("a&b&c", 5, &buffer, &count, &capacity, &state, 1),
              0);
    EXPECT_EQ(capacity, 13);
    EXPECT_EQ(std::string(buffer, count), "a&amp;b&amp;c");
    // Large enough already: no change.
    ASSERT_EQ(uXmlParserProcessXmlBufferWithAmp("&x", 2, &buffer, &count, &capacity, &state, 1), 0);
    EXPECT_EQ(capacity, 13);

    // An open candidate carried in from the previous chunk can come out escaped in this one.
    ASSERT_EQ(uXmlParserProcessXmlBufferWithAmp("&abcdefghijklmn", 15, &buffer, &count, &capacity,
                                                &state, 0),
              0);
    ASSERT_EQ(state.pendingCount, 15);
    ASSERT_EQ(uXmlParserProcessXmlBufferWithAmp("o", 1, &buffer, &count, &capacity, &state, 1), 0);
    EXPECT_EQ(std::string(buffer, count), "&amp;abcdefghijklmno");

    // Empty input is refused before anything else, silently; a failing escape is logged.
    EXPECT_EQ(uXmlParserProcessXmlBufferWithAmp("a", 0, &buffer, &count, &capacity, &state, 1), -1);
    EXPECT_EQ(uXmlParserProcessXmlBufferWithAmp(nullptr, 3, &buffer, &count, &capacity, &state, 1),
              -1);
    EXPECT_TRUE(log.lines().empty()) << log.dump();
    EXPECT_EQ(uXmlParserProcessXmlBufferWithAmp("a", 1, &buffer, &count, &capacity, nullptr, 1),
              -1);
    EXPECT_EQ(log.count(3, kModule, "uXmlParserProcessXmlBufferWithAmp: parser fail, reason=[2]."),
              1)
        << log.dump();
    uFree(buffer);
}

} // namespace
