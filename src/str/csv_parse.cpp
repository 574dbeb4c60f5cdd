// SPDX-License-Identifier: MIT
// CSV rows: one row into a list of fields, and a text (or a chunk of a stream) row by row.
#include <ucsv.h>
#include <ulist.h>
#include <umem.h>

#include "core/list_internal.hpp"
#include "str/csv_field.hpp"
#include "str/str_internal.hpp"

#include <cstring>
#include <string_view>

namespace {

using pu::str::csv::ScannedField;
using pu::str::csv::Terminator;

bool isLineBreak(char c) {
    return c == '\r' || c == '\n';
}

// The row list of the data parser, and what happens to a finished row. The list is lock-less
// and ours alone except during the callback, so its nodes (uMalloc'd uListNode records, as the
// list makes them) are recycled between rows and linked at the builder's tail: a field then
// costs no node allocation and no walk from the head, only its own text.
class RowSink {
  public:
    RowSink(std::string_view text, uList *row, void *userArg, UStrCsvRowCallback callback)
        : text_(text), row_(row), builder_(row), userArg_(userArg), callback_(callback) {}
    ~RowSink() {
        discard(); // an unfinished row's texts
        while (spare_ != nullptr) {
            uListNode *next = spare_->next;
            uFree(spare_);
            spare_ = next;
        }
        uListUninit(row_);
    }
    RowSink(const RowSink &) = delete;
    RowSink &operator=(const RowSink &) = delete;

    // Appends the field's text; a field whose text or node cannot be made is dropped.
    void add(const ScannedField &field) {
        char *text = pu::str::csv::buildDataField(text_, field);
        if (text == nullptr) {
            return;
        }
        uListNode *node = spare_;
        if (node != nullptr) {
            spare_ = node->next;
        } else {
            node = static_cast<uListNode *>(uMalloc(sizeof(uListNode)));
            if (node == nullptr) {
                uFree(text);
                return;
            }
        }
        node->data = text;
        builder_.appendNode(node);
    }

    // Hands the row's texts to the callback, which owns them from then on. Without a callback
    // nobody could ever release them, so they are released here.
    void deliver() {
        if (row_->size <= 0) {
            return;
        }
        if (callback_ == nullptr) {
            discard();
            return;
        }
        callback_(userArg_, row_);
        recycleNodes(); // whatever nodes the callback left in the list
    }

    // Releases the texts of the row being built.
    void discard() {
        for (uListNode *node = row_->head; node != nullptr; node = node->next) {
            uFree(node->data);
        }
        recycleNodes();
    }

  private:
    void recycleNodes() {
        uListNode *node = row_->head;
        while (node != nullptr) {
            uListNode *next = node->next;
            node->next = spare_;
            spare_ = node;
            node = next;
        }
        row_->head = nullptr;
        row_->size = 0;
        builder_.restart();
    }

    std::string_view text_;
    uList *row_;
    pu::core::ListBuilder builder_;
    void *userArg_;
    UStrCsvRowCallback callback_;
    uListNode *spare_ = nullptr;
};

// At the start of a row: the position after a blank line (spaces only, then line breaks)
// beginning at pos, or pos itself when the line is not blank. atEnd is set when nothing but
// spaces is left.
std::size_t skipBlankLine(std::string_view text, std::size_t pos, bool &atEnd) {
    std::size_t p = pos;
    while (p < text.size() && text[p] == ' ') {
        ++p;
    }
    atEnd = p == text.size();
    if (atEnd || !isLineBreak(text[p])) {
        return pos;
    }
    while (p < text.size() && isLineBreak(text[p])) {
        ++p;
    }
    return p;
}

} // namespace

extern "C" {

uList *uStrParseCsvRow(const char *row) {
    if (row == nullptr) {
        return nullptr;
    }
    uList *fields = uListInit(0);
    if (fields == nullptr) {
        return nullptr;
    }
    pu::core::ListBuilder builder(fields);
    const std::string_view text = row;
    std::size_t pos = 0;
    bool afterComma = false;
    for (;;) {
        const ScannedField field = pu::str::csv::scanField(text, pos, false);
        if (field.terminator == Terminator::End && !field.started() && !afterComma) {
            break; // nothing but spaces
        }
        // An unterminated quoted field is kept as it was written, opening quote included.
        // A row missing a field would shift every later column: no memory fails the whole row.
        if (!pu::str::appendOwned(builder, field.unterminated
                                               ? pu::core::copyText(field.whole(text))
                                               : pu::str::csv::buildDataField(text, field))) {
            pu::str::discardStrings(fields);
            return nullptr;
        }
        if (field.terminator == Terminator::End) {
            break;
        }
        afterComma = true;
        pos = field.end + 1;
    }
    if (uListSize(fields) <= 0) {
        uListUninit(fields);
        return nullptr;
    }
    return fields;
}

int32_t uStrParseCsvData(const char *data, int32_t partial, void *userArg,
                         UStrCsvRowCallback rowCallback) {
    if (data == nullptr) {
        return -1;
    }
    const std::string_view text = data;
    if (text.empty()) {
        return 0;
    }
    if (text.size() > INT32_MAX) {
        return -1; // the consumed count could not be returned
    }
    uList *row = uListInit(0);
    if (row == nullptr) {
        return -1;
    }
    RowSink sink(text, row, userArg, rowCallback);
    const auto whole = static_cast<int32_t>(text.size());
    std::size_t pos = 0;
    std::size_t rowEnd = 0; // just after the last complete row
    bool rowStarted = false;
    for (;;) {
        if (!rowStarted) {
            // Blank lines give no rows.
            bool atEnd = false;
            const std::size_t next = skipBlankLine(text, pos, atEnd);
            if (atEnd) {
                break;
            }
            if (next != pos) {
                pos = rowEnd = next;
                continue;
            }
        }
        const ScannedField field = pu::str::csv::scanField(text, pos, true);
        if (field.terminator == Terminator::End) {
            if (partial != 0) {
                sink.discard(); // the caller sends this row again with the next chunk
                return static_cast<int32_t>(rowEnd);
            }
            sink.add(field);
            sink.deliver();
            return whole;
        }
        sink.add(field);
        if (field.terminator == Terminator::Comma) {
            rowStarted = true;
            pos = field.end + 1;
            continue;
        }
        sink.deliver();
        rowStarted = false;
        pos = field.end;
        while (pos < text.size() && isLineBreak(text[pos])) {
            ++pos;
        }
        rowEnd = pos;
    }
    return partial != 0 ? static_cast<int32_t>(rowEnd) : whole;
}

} // extern "C"
