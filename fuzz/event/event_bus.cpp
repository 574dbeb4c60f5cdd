// SPDX-License-Identifier: MIT
// Runs a byte-coded sequence of cares, clears and raises on the event bus, with names short
// enough to collide in their probe runs and to fill the 256-slot table, and checks what holds
// whatever the slots do: a successful care is followed by a raise that finds the event and calls
// that callback exactly once, and clearing an unknown event leaves it unknown.
//
// Input: records of [op] [length] [length name bytes]; op % 4 selects care, clear, raise or
// (rarely, op % 4 == 3 with op >= 252) a full reset of the bus; op / 4 % 4 picks one of four
// callbacks.
#include <uevent.h>

#include <platform_sim.h>

#include <algorithm>
#include <cstdint>
#include <cstdlib>
#include <string>

namespace {

void check(bool ok) {
    if (!ok) {
        std::abort();
    }
}

int gCalls[4];

template <int N> void carer(const char *, void *, void *, std::uint32_t) {
    ++gCalls[N];
}

constexpr uEventCallback kCallbacks[] = {carer<0>, carer<1>, carer<2>, carer<3>};

void ignoreLine(void *, int, const char *, const char *) {}

} // namespace

// The full-table message would flood stderr; the lines are of no interest here.
extern "C" int LLVMFuzzerInitialize(int *, char ***) {
    platformSimSetLogSink(ignoreLine, nullptr, 1);
    return 0;
}

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t *data, std::size_t size) {
    std::size_t at = 0;
    while (at + 2 <= size) {
        const std::uint8_t op = data[at];
        const std::size_t length = std::min<std::size_t>(data[at + 1] % 4, size - at - 2);
        const std::string name(reinterpret_cast<const char *>(data + at + 2), length);
        at += 2 + length;
        const int pick = op / 4 % 4;
        switch (op % 4) {
        case 0:
            if (uEventCare(name.c_str(), kCallbacks[pick], nullptr) == 1) {
                const int before = gCalls[pick];
                check(uEventRaise(name.c_str(), nullptr, 0) == 1);
                check(gCalls[pick] == before + 1);
            }
            break;
        case 1:
            if (uEventClear(name.c_str(), kCallbacks[pick]) == 0) {
                check(uEventRaise(name.c_str(), nullptr, 0) == 0);
            }
            break;
        case 2:
            uEventRaise(name.c_str(), nullptr, 0);
            break;
        default:
            if (op >= 252) {
                uEventUninit();
            }
            break;
        }
    }
    uEventUninit(); // every run starts from an empty bus, and nothing may leak
    return 0;
}
