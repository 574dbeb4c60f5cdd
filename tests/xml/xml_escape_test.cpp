// SPDX-License-Identifier: MIT
// The ampersand repair: which references pass and which are repaired, and refused arguments.
// Cutting the input into chunks anywhere, repeating the repair and short outputs are the
// xml_escape fuzz target's to check.
#include <umem.h>
#include <uxmlparser.h>

#include "call_table.hpp"

#include <string>
#include <vector>

namespace {

// The input escaped in one final chunk, or the refusal code.
std::string escaped(const std::string &input) {
    uXmlParserAmpState state{};
    std::vector<char> out(4096);
    int32_t count = -1;
    const int32_t result = uXmlParserEscapeAmpersands(
        input.data(), static_cast<int32_t>(input.size()), out.data(), &count, 4096, &state, 1);
    return result != 0 ? std::to_string(result)
                       : std::string(out.data(), static_cast<std::size_t>(count));
}

TEST(XmlEscape, WellFormedReferencesPassAndEverythingElseIsRepaired) {
    for (const char *kept : {"&amp;", "&lt;", "&gt;", "&quot;", "&apos;", "&#38;", "&#X26;",
                             "&#xBEEF;", "&#x;", "&#0000000000001;"}) {
        EXPECT_EQ(escaped(std::string("a") + kept + "b"), std::string("a") + kept + "b");
    }
    // Plain text, ";" outside a candidate and bytes of every value pass untouched.
    std::string binary = ";;a;";
    for (int c = 1; c < 256; ++c) {
        binary += c != '&' ? std::string(1, static_cast<char>(c)) : "";
    }
    pu::test::checkRows({
        {"binary", escaped(binary), binary},
        PU_ROW(escaped("a&b"), "a&amp;b"),
        PU_ROW(escaped("x&"), "x&amp;"),
        PU_ROW(escaped("&nbsp;"), "&amp;nbsp;"),
        PU_ROW(escaped("&AMP;"), "&amp;AMP;"), // names are case-sensitive
        PU_ROW(escaped("&;"), "&amp;;"),       // too short to judge
        PU_ROW(escaped("&#;"), "&amp;#;"),
        PU_ROW(escaped("&#12a;"), "&amp;#12a;"),
        PU_ROW(escaped("&#x1g;"), "&amp;#x1g;"),
        PU_ROW(escaped("&amp"), "&amp;amp"),     // never closed
        PU_ROW(escaped("&&amp;"), "&amp;&amp;"), // a second "&" flushes the first candidate
        // The candidate limit is 16 bytes: a numeric reference of 17 is no longer judged.
        PU_ROW(escaped("&#00000000000001;"), "&amp;#00000000000001;"),
        PU_ROW(escaped("&abcdefghijklmno;x"), "&amp;abcdefghijklmno;x"),
    });
}

TEST(XmlEscape, BadArgumentsAreRefusedWithoutTouchingTheCount) {
    uXmlParserAmpState state{}, corrupt{};
    corrupt.pendingCount = 17; // never index past the candidate
    char out[16], *grown = nullptr;
    int32_t count = 77, room = 0;
    pu::test::checkRows({
        PU_ROW(uXmlParserEscapeAmpersands(nullptr, 1, out, &count, 16, &state, 1), 2),
        PU_ROW(uXmlParserEscapeAmpersands("a", 0, out, &count, 16, &state, 1), 2),
        PU_ROW(uXmlParserEscapeAmpersands("a", 1, out, &count, 0, &state, 1), 2),
        PU_ROW(uXmlParserEscapeAmpersands("a", 1, out, &count, 16, &corrupt, 1), 2),
        PU_ROW(count, 77),
        // The buffer-growing form reports any refusal as -1, its own and the repair's.
        PU_ROW(uXmlParserProcessXmlBufferWithAmp("a", 1, nullptr, &count, &room, &state, 1), -1),
        PU_ROW(uXmlParserProcessXmlBufferWithAmp("a", 1, &grown, &count, &room, &corrupt, 1), -1),
    });
    uFree(grown);
}

} // namespace
