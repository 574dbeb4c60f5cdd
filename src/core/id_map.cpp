// SPDX-License-Identifier: MIT
// Id maps: linear scans over caller tables ended by a row whose id is U_MAP_END_ID.
#include <umap.h>

#include <cstdint>

#include <strings.h>

namespace {

// The first row whose id is wanted, or the terminator: either way its second field is the
// answer, so a table states its own "not found" value.
template <typename Row> const Row &rowWithIdOrEnd(const Row *table, std::uint32_t id) {
    const Row *row = table;
    while (row->id != id && row->id != U_MAP_END_ID) {
        ++row;
    }
    return *row;
}

// The id of the first row before the terminator whose second field matches, else U_MAP_END_ID.
template <typename Row, typename Matches>
std::uint32_t idOfFirstMatch(const Row *table, Matches matches) {
    for (const Row *row = table; row->id != U_MAP_END_ID; ++row) {
        if (matches(*row)) {
            return row->id;
        }
    }
    return U_MAP_END_ID;
}

} // namespace

extern "C" {

void *uMapAddrById(const uMapAddr *table, uint32_t id) {
    return table == nullptr ? nullptr : rowWithIdOrEnd(table, id).addr;
}

int32_t uMapValueById(const uMapValue *table, uint32_t id) {
    return table == nullptr ? -1 : rowWithIdOrEnd(table, id).value;
}

const char *uMapStringById(const uMapString *table, uint32_t id) {
    return table == nullptr ? "" : rowWithIdOrEnd(table, id).text;
}

unsigned char uMapCharById(const uMapChar *table, uint32_t id) {
    return table == nullptr ? 0 : rowWithIdOrEnd(table, id).ch;
}

uint32_t uMapIdByAddr(const uMapAddr *table, const void *addr) {
    if (table == nullptr) {
        return U_MAP_END_ID;
    }
    return idOfFirstMatch(table, [addr](const uMapAddr &row) { return row.addr == addr; });
}

uint32_t uMapIdByValue(const uMapValue *table, int32_t value) {
    if (table == nullptr) {
        return U_MAP_END_ID;
    }
    return idOfFirstMatch(table, [value](const uMapValue &row) { return row.value == value; });
}

uint32_t uMapIdByString(const uMapString *table, const char *text) {
    if (table == nullptr || text == nullptr) {
        return U_MAP_END_ID;
    }
    return idOfFirstMatch(table, [text](const uMapString &row) {
        return row.text != nullptr && strcasecmp(row.text, text) == 0;
    });
}

uint32_t uMapIdByChar(const uMapChar *table, unsigned char ch) {
    if (table == nullptr) {
        return U_MAP_END_ID;
    }
    return idOfFirstMatch(table, [ch](const uMapChar &row) { return row.ch == ch; });
}

int32_t uMapValueSetById(uMapValue *table, uint32_t id, int32_t value) {
    if (table == nullptr) {
        return -1;
    }
    for (uMapValue *row = table; row->id != U_MAP_END_ID; ++row) {
        if (row->id == id) {
            row->value = value;
            return 0;
        }
    }
    return -1;
}

} // extern "C"
