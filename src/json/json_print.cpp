// SPDX-License-Identifier: MIT
// The two display printers added to cJSON: formatted text with strings left unescaped, and
// formatted text kept on one line. Both walk the tree through cJSON's public item layout and
// allocate through cJSON's hooks, so their texts are released like cJSON's own.
#include <upara.h>

#include <array>
#include <climits>
#include <cstdlib>
#include <cstring>
#include <string_view>

namespace pu::json {

namespace {

enum class Style { Unescaped, OneLine };

// What cJSON writes after a backslash for a byte of a string, 0 for a byte written as it is.
// Quote and backslash are looked up separately because the unescaped style keeps them raw.
constexpr auto kEscapeLetters = [] {
    struct Table {
        char letter[256];
    } table{};
    for (int c = 0; c < 32; ++c) {
        table.letter[c] = 'u';
    }
    constexpr std::string_view kShortEscapes = "\b\f\n\r\t\"\\";
    constexpr std::string_view kLetters = "bfnrt\"\\";
    for (std::size_t i = 0; i < kShortEscapes.size(); ++i) {
        table.letter[static_cast<unsigned char>(kShortEscapes[i])] = kLetters[i];
    }
    return table;
}();

constexpr char kHexDigits[] = "0123456789abcdef";

// A growing output buffer, started from cJSON's hooks. It grows the way cJSON's printer does, to
// twice what is needed.
class Output {
  public:
    Output() = default;
    Output(const Output &) = delete;
    Output &operator=(const Output &) = delete;
    ~Output() { cJSON_free(data_); }

    bool start(std::size_t length) {
        data_ = static_cast<char *>(cJSON_malloc(length));
        length_ = data_ != nullptr ? length : 0;
        return data_ != nullptr;
    }

    // Room for required bytes and a terminator at the write position, or null when memory runs
    // out (the buffer stays as it was).
    char *reserve(std::size_t required) {
        if (required > INT_MAX - offset_ - 1) {
            return nullptr;
        }
        const std::size_t needed = offset_ + required + 1;
        if (needed <= length_) {
            return data_ + offset_;
        }
        const std::size_t grown = needed > INT_MAX / 2 ? std::size_t{INT_MAX} : needed * 2;
        // realloc, as cJSON's own printer grows with its default hooks: printed texts must be
        // malloc blocks anyway, since callers release them with uFree.
        auto *bigger = static_cast<char *>(std::realloc(data_, grown));
        if (bigger == nullptr) {
            return nullptr;
        }
        data_ = bigger;
        length_ = grown;
        return data_ + offset_;
    }

    bool append(std::string_view text) {
        char *out = reserve(text.size());
        if (out == nullptr) {
            return false;
        }
        std::memcpy(out, text.data(), text.size());
        offset_ += text.size();
        return true;
    }

    bool append(char c) {
        char *out = reserve(1);
        if (out == nullptr) {
            return false;
        }
        *out = c;
        ++offset_;
        return true;
    }

    void advance(std::size_t written) { offset_ += written; }

    // Hands the terminated buffer over to the caller.
    char *release() {
        data_[offset_] = '\0';
        char *text = data_;
        data_ = nullptr;
        return text;
    }

  private:
    char *data_ = nullptr;
    std::size_t length_ = 0;
    std::size_t offset_ = 0;
};

template <Style style> class Printer {
  public:
    explicit Printer(Output &out) : out_(out) {}

    bool value(const cJSON *item) {
        switch (item->type & 0xFF) {
        case cJSON_NULL:
            return out_.append("null");
        case cJSON_False:
            return out_.append("false");
        case cJSON_True:
            return out_.append("true");
        case cJSON_Number:
            return number(item);
        case cJSON_Raw:
            return item->valuestring != nullptr && out_.append(item->valuestring);
        case cJSON_String:
            return string(item->valuestring);
        case cJSON_Array:
            return array(item);
        case cJSON_Object:
            return object(item);
        default:
            return false; // an invalid item makes the whole print fail, as in cJSON
        }
    }

  private:
    static constexpr bool kKeepQuotes = style == Style::Unescaped;
    // Longer than any number cJSON prints ("%1.17g" of a double, or "null").
    static constexpr int kNumberRoom = 64;

    static constexpr char escapeLetter(unsigned char c) {
        if (kKeepQuotes && (c == '"' || c == '\\')) {
            return 0;
        }
        return kEscapeLetters.letter[c];
    }

    // Bytes a character adds when escaped: 0, 1 for a letter escape, 5 for \u00XX.
    static constexpr auto kExtraBytes = [] {
        std::array<unsigned char, 256> extra{};
        for (std::size_t c = 0; c < extra.size(); ++c) {
            const char letter = escapeLetter(static_cast<unsigned char>(c));
            extra[c] = letter == 0 ? 0 : (letter == 'u' ? 5 : 1);
        }
        return extra;
    }();

    // cJSON prints the number itself, into our buffer, so the digits are exactly its own.
    bool number(const cJSON *item) {
        char *out = out_.reserve(kNumberRoom);
        if (out == nullptr ||
            !cJSON_PrintPreallocated(const_cast<cJSON *>(item), out, kNumberRoom, 0)) {
            return false;
        }
        out_.advance(std::strlen(out));
        return true;
    }

    bool string(const char *text) {
        if (text == nullptr) {
            return out_.append("\"\"");
        }
        const auto *bytes = reinterpret_cast<const unsigned char *>(text);
        std::size_t length = 0;
        std::size_t extra = 0;
        for (; bytes[length] != 0; ++length) {
            extra += kExtraBytes[bytes[length]];
        }
        char *out = out_.reserve(length + extra + 2);
        if (out == nullptr) {
            return false;
        }
        *out++ = '"';
        if (extra == 0) {
            std::memcpy(out, text, length);
            out += length;
        } else {
            for (std::size_t i = 0; i < length; ++i) {
                const unsigned char c = bytes[i];
                if (kExtraBytes[c] == 0) {
                    *out++ = static_cast<char>(c);
                    continue;
                }
                *out++ = '\\';
                *out++ = escapeLetter(c);
                if (kExtraBytes[c] == 5) {
                    *out++ = '0';
                    *out++ = '0';
                    *out++ = kHexDigits[c >> 4];
                    *out++ = kHexDigits[c & 0xF];
                }
            }
        }
        *out++ = '"';
        out_.advance(length + extra + 2);
        return true;
    }

    bool array(const cJSON *item) {
        if (!out_.append('[')) {
            return false;
        }
        // An array counts as a level, so objects inside it indent one tab deeper.
        ++depth_;
        for (const cJSON *element = item->child; element != nullptr; element = element->next) {
            if (!value(element) || (element->next != nullptr && !out_.append(", "))) {
                return false;
            }
        }
        --depth_;
        return out_.append(']');
    }

    bool indent(std::size_t tabs) {
        char *out = out_.reserve(tabs);
        if (out == nullptr) {
            return false;
        }
        std::memset(out, '\t', tabs);
        out_.advance(tabs);
        return true;
    }

    // Unescaped: cJSON's layout, one member per line indented by depth. One line: each of those
    // line breaks becomes a single space and the indentation goes, so "{\n}" reads "{ }".
    bool object(const cJSON *item) {
        constexpr char kBreak = style == Style::OneLine ? ' ' : '\n';
        if (!out_.append('{') || !out_.append(kBreak)) {
            return false;
        }
        ++depth_;
        for (const cJSON *member = item->child; member != nullptr; member = member->next) {
            if ((style == Style::Unescaped && !indent(depth_)) || !string(member->string) ||
                !out_.append(":\t") || !value(member) ||
                (member->next != nullptr && !out_.append(',')) || !out_.append(kBreak)) {
                return false;
            }
        }
        --depth_;
        return (style == Style::OneLine || indent(depth_)) && out_.append('}');
    }

    Output &out_;
    std::size_t depth_ = 0;
};

template <Style style> char *print(const cJSON *item) {
    // cJSON's printers start from the same size.
    constexpr std::size_t kInitialSize = 256;
    Output out;
    if (item == nullptr || !out.start(kInitialSize) || !Printer<style>(out).value(item)) {
        return nullptr;
    }
    return out.release();
}

} // namespace

} // namespace pu::json

extern "C" {

char *cJSON_PrintUnescape(const cJSON *item) {
    return pu::json::print<pu::json::Style::Unescaped>(item);
}

// The working buffer is returned as it is, without shrinking it to the text: intended.
char *cJSON_Print_Oneline(const cJSON *item) {
    return pu::json::print<pu::json::Style::OneLine>(item);
}

} // extern "C"
