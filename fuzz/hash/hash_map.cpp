// SPDX-License-Identifier: MIT
// Runs a byte-coded sequence of operations on a string map (case-sensitive or not) and an integer
// map, and checks every result against a plain model. Values are never null here, so the string
// map's value-0 rule never applies and each key has at most one item.
//
// Input: byte 0 picks the string map's case mode, then records of
//   [op] [length] [length key bytes]
// where op % 6 selects insert, look-up, exists, remove (string map) or insert, remove (integer
// map, key = the first four key bytes).
#include <uhash.h>

#include <algorithm>
#include <cstdint>
#include <cstdlib>
#include <cstring>
#include <string>
#include <unordered_map>

namespace {

void check(bool ok) {
    if (!ok) {
        std::abort();
    }
}

std::string folded(std::string key, bool folding) {
    if (folding) {
        for (char &c : key) {
            if (c >= 'A' && c <= 'Z') {
                c = static_cast<char>(c - 'A' + 'a');
            }
        }
    }
    return key;
}

void *word(std::uintptr_t value) {
    return reinterpret_cast<void *>(value);
}

int gReleases = 0;
void countRelease(void *) {
    ++gReleases;
}

} // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t *data, std::size_t size) {
    if (size == 0) {
        return 0;
    }
    const bool folding = (data[0] & 1) != 0;
    uHash *strings = uHashCreateMap(folding ? 1 : 0);
    uIntHash *ints = uIntHashMapCreate();
    std::unordered_map<std::string, void *> stringModel;
    std::unordered_map<std::int32_t, void *> intModel;
    std::uintptr_t nextValue = 1;

    std::size_t pos = 1;
    while (pos + 2 <= size) {
        const std::uint8_t op = data[pos] % 6;
        const std::size_t length = std::min<std::size_t>(data[pos + 1], size - pos - 2);
        std::string raw(reinterpret_cast<const char *>(data + pos + 2), length);
        pos += 2 + length;
        const std::string key = raw.substr(0, raw.find('\0')); // what a C string sees
        const std::string stored = folded(key, folding);
        std::int32_t intKey = 0;
        std::memcpy(&intKey, raw.data(), std::min<std::size_t>(raw.size(), sizeof(intKey)));

        switch (op) {
        case 0: {
            void *value = word(nextValue++);
            const int32_t result = uHashInsert(strings, key.c_str(), value);
            if (key.empty()) {
                check(result == -1);
            } else if (stringModel.count(stored) != 0) {
                check(result == 0);
            } else {
                check(result == 1);
                stringModel[stored] = value;
            }
            break;
        }
        case 1: {
            auto it = stringModel.find(stored);
            check(uHashGetValue(strings, key.c_str()) ==
                  (it == stringModel.end() ? nullptr : it->second));
            break;
        }
        case 2:
            check(uHashKeyExists(strings, key.c_str()) == (stringModel.count(stored) != 0 ? 1 : 0));
            break;
        case 3: {
            const int before = gReleases;
            const bool present = stringModel.erase(stored) != 0;
            check(uHashRemove(strings, key.c_str(), countRelease) == (present ? 0 : -1));
            check(gReleases == before + (present ? 1 : 0));
            break;
        }
        case 4: {
            // Every third value is null: the integer map counts such keys as present.
            void *value = nextValue % 3 == 0 ? nullptr : word(nextValue);
            ++nextValue;
            const bool fresh = intModel.emplace(intKey, value).second;
            check(uIntHashInsert(ints, intKey, value) == (fresh ? 1 : 0));
            check(uIntHashKeyExists(ints, intKey) == 1);
            check(uIntHashGetValue(ints, intKey) == intModel[intKey]);
            break;
        }
        default: {
            const bool present = intModel.erase(intKey) != 0;
            check(uIntHashRemove(ints, intKey, nullptr) == (present ? 0 : -1));
            check(uIntHashKeyExists(ints, intKey) == 0);
            break;
        }
        }
    }

    const int before = gReleases;
    uHashDestroyMap(strings, countRelease);
    check(gReleases == before + static_cast<int>(stringModel.size()));
    uIntHashDestroyMap(ints, nullptr);
    return 0;
}
