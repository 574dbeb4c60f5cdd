// SPDX-License-Identifier: MIT
#include "test_support.hpp"

#include <fstream>
#include <iterator>

namespace pu::test {

std::string readFile(const std::string &relativePath) {
    const std::string path = std::string(PU_TEST_DATA_DIR) + "/" + relativePath;
    std::ifstream in(path, std::ios::binary);
    EXPECT_TRUE(in.good()) << "cannot read " << path;
    return {std::istreambuf_iterator<char>(in), std::istreambuf_iterator<char>()};
}

} // namespace pu::test
