// SPDX-License-Identifier: MIT
// The XML parser with each of its uMalloc calls failing in turn: the parse fails with its
// failure value, and leaves nothing registered for pause or stop to reach.
#include "fail_alloc.hpp"
#include "xml_test_util.hpp"

namespace {

using namespace pu::test;

const AllocCase kCases[] = {
    reportingCase("ParseFromBuf",
                  [] {
                      XmlRecorder r;
                      // The '&' makes the parse use its escape buffer.
                      const int32_t result = parseBuf("<a x='1'><b>t&amp;u</b></a>", r);
                      const std::vector<std::string> all = {"<a x=1", "<b", "t:t&u", "/b", "/a"};
                      EXPECT_EQ(r.events, result == 0 ? all : std::vector<std::string>{})
                          << "a parse that failed still ran";
                      // Nothing is left registered: a stale entry would hand a freed parser to
                      // expat here.
                      EXPECT_EQ(uXmlParserPause(&r, 1), -1);
                      uXmlParserStop(&r);
                      return result == -1;
                  }),
};

class XmlAllocFailure : public testing::TestWithParam<AllocCase> {
  protected:
    // The parse map is made by the first parse and kept: made here, so that every run of the
    // sweep allocates alike and the failure reaches each allocation of a parse.
    static void SetUpTestSuite() {
        XmlRecorder r;
        ASSERT_EQ(parseBuf("<a/>", r), 0);
    }
};

PU_ALLOC_FAILURE_SWEEP(XmlAllocFailure, kCases);

} // namespace
