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

} // namespace
