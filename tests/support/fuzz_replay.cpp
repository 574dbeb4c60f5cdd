// SPDX-License-Identifier: MIT
#include "fuzz_replay.hpp"

#include <gtest/gtest.h>

#include <algorithm>
#include <filesystem>
#include <fstream>
#include <iterator>
#include <memory>
#include <string>
#include <vector>

namespace pu::test {

void replayCorpora(const FuzzTarget *targets, std::size_t count) {
    for (std::size_t i = 0; i < count; ++i) {
        const std::filesystem::path folder =
            std::filesystem::path(PU_FUZZ_CORPUS_DIR) / targets[i].name;
        std::vector<std::filesystem::path> files;
        for (const auto &entry : std::filesystem::directory_iterator(folder)) {
            files.push_back(entry.path());
        }
        std::sort(files.begin(), files.end());
        ASSERT_FALSE(files.empty()) << "no seeds in " << folder;
        if (targets[i].initialize != nullptr) {
            int argc = 1;
            char name[] = "replay";
            char *args[] = {name, nullptr};
            char **argv = args;
            targets[i].initialize(&argc, &argv);
        }
        for (const auto &file : files) {
            std::ifstream in(file, std::ios::binary);
            const std::vector<char> bytes{std::istreambuf_iterator<char>(in),
                                          std::istreambuf_iterator<char>()};
            // A heap copy of exactly the file's size (never null), so a read past the input is
            // caught by ASan as it is under the fuzzer.
            const auto input = std::make_unique<std::uint8_t[]>(bytes.size());
            std::copy(bytes.begin(), bytes.end(), input.get());
            targets[i].testOne(input.get(), bytes.size());
        }
    }
}

} // namespace pu::test
