// SPDX-License-Identifier: MIT
// Runs a family's fuzz targets once over their seed corpora inside the family's test program,
// so the invariants the targets check guard every ordinary test run, not only fuzzing.
#pragma once

#include <cstddef>
#include <cstdint>

namespace pu::test {

struct FuzzTarget {
    const char *name; // corpus folder under fuzz/corpus/
    int (*testOne)(const std::uint8_t *data, std::size_t size);
    int (*initialize)(int *argc, char ***argv); // null when the target has none
};

// Replays every file of every target's corpus; a broken invariant aborts, which fails the test.
void replayCorpora(const FuzzTarget *targets, std::size_t count);

} // namespace pu::test
