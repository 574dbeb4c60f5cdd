// SPDX-License-Identifier: MIT
// uStrParseCsvRow: never more fields than commas plus one, every field released cleanly.
#include "str_fuzz_support.hpp"

#include <algorithm>

extern "C" int LLVMFuzzerTestOneInput(const uint8_t *data, size_t size) {
    const std::string text(reinterpret_cast<const char *>(data), size);
    uList *list = uStrParseCsvRow(text.c_str());
    if (list == nullptr) {
        return 0;
    }
    const std::string row(text.c_str());
    const auto commas = static_cast<size_t>(std::count(row.begin(), row.end(), ','));
    const std::vector<std::string> fields = pu::fuzz::takeStrings(list);
    pu::fuzz::require(!fields.empty(), "empty list returned");
    pu::fuzz::require(fields.size() <= commas + 1, "more fields than commas allow");
    for (const std::string &field : fields) {
        pu::fuzz::require(field.size() <= row.size(), "field longer than the row");
    }
    pu::fuzz::require(uListUninit(list) == 0, "list not empty after taking its fields");
    return 0;
}
