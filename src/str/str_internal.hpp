// SPDX-License-Identifier: MIT
// Helpers shared by the string, conversion and CSV sources; nothing here is exported.
#pragma once

#include <ulist.h>
#include <umem.h>

#include "core/checked_size.hpp"
#include "core/list_internal.hpp"

#include <cstddef>
#include <cstdint>
#include <cstring>
#include <string_view>

namespace pu::str {

// The blanks uStrStripCrlf removes: tab, line feed, carriage return, space. Vertical tab and
// form feed are deliberately not blanks here.
inline constexpr std::string_view kCrlfBlanks = "\t\n\r ";
// The blanks uStrStripSpace removes.
inline constexpr std::string_view kSpaceBlanks = "\t ";

// text without the leading and trailing characters of blanks.
constexpr std::string_view trimmed(std::string_view text, std::string_view blanks) {
    const auto first = text.find_first_not_of(blanks);
    if (first == std::string_view::npos) {
        return {};
    }
    const auto last = text.find_last_not_of(blanks);
    return text.substr(first, last - first + 1);
}

// Appends text, a new uMalloc string, to a list being built. A text that could not be made, or
// whose node cannot be, fails the append (and is released): a list missing an element would
// shift every later one.
inline bool appendOwned(pu::core::ListBuilder &list, char *text) {
    if (text != nullptr && list.append(text) < 0) {
        uFree(text);
        return false;
    }
    return text != nullptr;
}

// Releases a list of uMalloc strings that could not be completed, allocating nothing.
inline void discardStrings(uList *list) {
    while (uListEol(list, 0) == 0) {
        uFree(uListRemove(list, 0));
    }
    uListUninit(list);
}

// Builds a text inside a fixed buffer of size bytes that starts zeroed: appends are cut so that
// the text never exceeds size-1 characters, which is what the bounded copies do piece by piece.
class BoundedText {
  public:
    BoundedText(char *buffer, std::size_t size) : buffer_(buffer), size_(size) {}

    void append(std::string_view piece) {
        const std::size_t room = roomLeft();
        const std::size_t take = piece.size() < room ? piece.size() : room;
        std::memcpy(buffer_ + length_, piece.data(), take);
        length_ += take;
    }
    void append(char c) {
        if (roomLeft() > 0) {
            buffer_[length_++] = c;
        }
    }
    bool full() const { return roomLeft() == 0; }
    std::size_t length() const { return length_; }

  private:
    std::size_t roomLeft() const { return size_ - 1 - length_; }
    char *buffer_;
    std::size_t size_;
    std::size_t length_ = 0;
};

// A copy of text trimmed of kCrlfBlanks, in an inline buffer when short: the strict number
// parsers work on such a copy. Empty when the text is blank or memory runs out (ok() tells).
class TrimmedCopy {
  public:
    explicit TrimmedCopy(const char *text);
    ~TrimmedCopy();
    TrimmedCopy(const TrimmedCopy &) = delete;
    TrimmedCopy &operator=(const TrimmedCopy &) = delete;

    bool ok() const { return data_ != nullptr; }
    const char *c_str() const { return data_; }
    std::size_t size() const { return size_; }

  private:
    char inline_[64] = {};
    char *data_ = nullptr;
    std::size_t size_ = 0;
};

inline TrimmedCopy::TrimmedCopy(const char *text) {
    if (text == nullptr) {
        return;
    }
    const std::string_view view = trimmed(text, kCrlfBlanks);
    if (view.empty()) {
        return;
    }
    if (view.size() < sizeof(inline_)) {
        std::memcpy(inline_, view.data(), view.size());
        data_ = inline_;
    } else {
        data_ = pu::core::copyText(view);
    }
    size_ = data_ == nullptr ? 0 : view.size();
}

inline TrimmedCopy::~TrimmedCopy() {
    if (data_ != inline_) {
        uFree(data_);
    }
}

} // namespace pu::str
