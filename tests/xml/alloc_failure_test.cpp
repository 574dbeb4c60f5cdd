// SPDX-License-Identifier: MIT
// The XML parser with each of its uMalloc calls failing in turn: the parse fails with its
// failure value, and leaves nothing registered for pause or stop to reach.
#include "fail_alloc.hpp"

#include <uxmlparser.h>

#include <gtest/gtest.h>

#include <string>

namespace {

using pu::test::AllocCase;
using pu::test::reportingCase;

struct XmlSeen {
    std::string text;
    int elements = 0;
};

void onStart(void *user, const char *, const char **) {
    ++static_cast<XmlSeen *>(user)->elements;
}
void onChars(void *user, const char *text, int length) {
    static_cast<XmlSeen *>(user)->text.append(text, static_cast<std::size_t>(length));
}
void onEnd(void *, const char *) {}

const AllocCase kCases[] = {
    reportingCase("ParseFromBuf",
                  [] {
                      XmlSeen seen;
                      // The '&' makes the parse use its escape buffer.
                      const int32_t result = uXmlParseFromBuf(
                          "<a x='1'><b>t&amp;u</b></a>", nullptr, &seen, onStart, onChars, onEnd);
                      if (result == 0) {
                          EXPECT_EQ(seen.elements, 2);
                          EXPECT_EQ(seen.text, "t&u");
                      } else {
                          EXPECT_EQ(seen.elements, 0) << "a parse that failed still ran";
                      }
                      // Nothing is left registered: a stale entry would hand a freed parser to
                      // expat here.
                      EXPECT_EQ(uXmlParserPause(&seen, 1), -1);
                      uXmlParserStop(&seen);
                      return result == -1;
                  }),
};

class XmlAllocFailure : public testing::TestWithParam<AllocCase> {
  protected:
    // The parse map is made by the first parse and kept: made here, so that every run of the
    // sweep allocates alike and the failure reaches each allocation of a parse.
    static void SetUpTestSuite() {
        XmlSeen seen;
        ASSERT_EQ(uXmlParseFromBuf("<a/>", nullptr, &seen, onStart, onChars, onEnd), 0);
    }
};

PU_ALLOC_FAILURE_SWEEP(XmlAllocFailure, kCases);

} // namespace
