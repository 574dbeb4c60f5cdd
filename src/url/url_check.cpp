// SPDX-License-Identifier: MIT
// URL and host-name validation, and RESTful path templates.
#include <umem.h>
#include <uparaurl.h>
#include <ustr.h>

#include "core/checked_size.hpp"
#include "core/list_internal.hpp"
#include "url/url_fast_check.hpp"
#include "url/url_patterns.hpp"
#include "url/url_segments.hpp"
#include "url/url_internal.hpp"

#include <algorithm>
#include <array>
#include <cstdint>
#include <cstring>
#include <limits>
#include <new>
#include <optional>
#include <string_view>
#include <unordered_map>

namespace {

// The seven URL patterns and the all-digits pattern, compiled once for the process on first
// use (the function-local static makes that thread-safe) and never freed. regexec on a compiled
// pattern may be called from several threads at once. Only match or no match is ever asked, so
// they are compiled without sub-match recording, which does not change what matches.
class UrlPatterns {
  public:
    static const UrlPatterns &instance() {
        static const UrlPatterns patterns;
        return patterns;
    }

    // A pattern that failed to compile matches nothing, as a failed per-call compilation would.
    bool matches(std::size_t index, const char *text) const {
        return compiled_[index] && regexec(&patterns_[index], text, 0, nullptr, 0) == 0;
    }
    bool allDigitsMatches(const char *text) const { return matches(kAllDigits, text); }

  private:
    static constexpr std::size_t kAllDigits = pu::url::kUrlPatterns.size();

    UrlPatterns() {
        for (std::size_t i = 0; i <= kAllDigits; ++i) {
            const char *source =
                i == kAllDigits ? pu::url::kAllDigitsPattern : pu::url::kUrlPatterns[i];
            compiled_[i] =
                regcomp(&patterns_[i], source, REG_EXTENDED | REG_NEWLINE | REG_NOSUB) == 0;
        }
    }

    std::array<regex_t, kAllDigits + 1> patterns_{};
    std::array<bool, kAllDigits + 1> compiled_{};
};

// Patterns 0 to 3 (addresses) accept at once; a host-name pattern counts only when the last
// label is not all digits. The all-digits answer depends on the text alone, so it is asked once.
bool isAcceptableUrl(const char *url) {
    if (pu::url::provablyAcceptableUrl(url)) {
        return true; // the common shapes, without running the patterns
    }
    const UrlPatterns &patterns = UrlPatterns::instance();
    constexpr std::size_t kFirstHostNamePattern = 4;
    constexpr std::size_t kFilePattern = 6;
    // Patterns 0 to 5 match whole lines built from a few character classes; a text of one line
    // holding a character outside all of them (a '#', a space, a byte above 0x7E) can only match
    // the file pattern, which is not anchored at its end. With newline sensitivity, a text of
    // several lines may match on any one of them, so those take every pattern.
    static constexpr pu::url::CharSet kOutsideLinePatterns = [] {
        pu::url::CharSet outside("");
        for (int c = 1; c < 256; ++c) {
            outside.set(static_cast<char>(c));
        }
        for (const std::string_view kept :
             {pu::url::kAlnumChars, std::string_view("!_~=;,:&'%`{}*?^.()|-\\"),
              std::string_view(".,?'/+&%$_=~@!()*;:-[]\n")}) {
            for (const char c : kept) {
                outside.clear(c);
            }
        }
        return outside;
    }();
    const bool oneLine = std::strchr(url, '\n') == nullptr;
    const std::size_t first =
        oneLine && kOutsideLinePatterns.findIn(url) != std::string_view::npos ? kFilePattern : 0;
    // The two IPv6 patterns need a '[', which is cheap to rule out first.
    const bool mayHoldIPv6 = std::strchr(url, '[') != nullptr;
    for (std::size_t i = first; i < kFirstHostNamePattern; ++i) {
        const bool isIPv6Pattern = i == 2 || i == 3;
        if ((!isIPv6Pattern || mayHoldIPv6) && patterns.matches(i, url)) {
            return true;
        }
    }
    int allDigits = -1; // not asked yet
    for (std::size_t i = std::max(first, kFirstHostNamePattern); i < pu::url::kUrlPatterns.size();
         ++i) {
        if (!patterns.matches(i, url)) {
            continue;
        }
        if (allDigits < 0) {
            allDigits = patterns.allDigitsMatches(url) ? 1 : 0;
        }
        if (allDigits == 0) {
            return true;
        }
    }
    return false;
}

// Characters a variable may stand for in a request path.
constexpr const char *kSegmentPattern = R"re([-a-zA-Z0-9_\.~]+)re";
// An optional query string after the path.
constexpr const char *kQuerySuffix =
    R"re((\?[-a-zA-Z0-9_\.~]+=[-a-zA-Z0-9_\.:~]*(&[-a-zA-Z0-9_\.~]+=[-a-zA-Z0-9_\.:~]*)*)*$)re";
constexpr const char *kPathPrefix = "^/*";

// Appends text to the growing pattern; false when memory runs out.
bool appendText(char **buffer, uint32_t *capacity, const char *text) {
    return uStrDynamicCat(buffer, capacity, text) == 0;
}

// The expression text for a template: "^/*", the path with each variable replaced by the
// segment pattern (literal segments inserted unescaped, so a template may use expression
// syntax in them), the query suffix.
char *comparablePattern(const char *templ) {
    uList *segments = nullptr;
    const bool hasVariables =
        pu::url::pathSegments(templ, &segments, false) == 0 && segments != nullptr;
    char *pattern = nullptr;
    uint32_t capacity = 0;
    bool ok = appendText(&pattern, &capacity, kPathPrefix);
    if (hasVariables) {
        for (uListNode *node = segments->head; ok && node != nullptr; node = node->next) {
            const char *segment = static_cast<const char *>(node->data);
            ok = appendText(&pattern, &capacity, "/") &&
                 appendText(&pattern, &capacity,
                            pu::url::isVariableSegment(segment) ? kSegmentPattern : segment);
        }
        pu::url::freeSegments(segments);
    } else {
        ok = ok && appendText(&pattern, &capacity, templ);
    }
    ok = ok && appendText(&pattern, &capacity, kQuerySuffix);
    if (!ok) {
        uFree(pattern);
        return nullptr;
    }
    return pattern;
}

// Literal segments go into the expression unescaped, and glibc's compiler takes exponential time
// or memory on stacked, nested or bounded repetitions ("/*++++++++" from the leading "^/*",
// "((a+)+)+", "(a{99}){99}"). No route needs them, so a template is refused when it holds a '{',
// a repetition right after another (or at its very start), more than eight '+' or more than
// eight '('.
bool hasRepetitionBomb(std::string_view templ) {
    constexpr std::size_t kMaxPlus = 8;
    constexpr std::size_t kMaxGroups = 8;
    std::size_t plus = 0;
    std::size_t groups = 0;
    bool afterRepetition = true; // the expression starts with "^/*"
    for (const char c : templ) {
        const bool repetition = c == '+' || c == '*' || c == '?';
        if (c == '{' || (repetition && afterRepetition) || (c == '+' && ++plus > kMaxPlus) ||
            (c == '(' && ++groups > kMaxGroups)) {
            return true;
        }
        afterRepetition = repetition;
    }
    return false;
}

// The variables of one template and one path, as pairs in the order their names first appear.
// A path of n segments costs O(n) whatever the names: each name is found through a hash index
// rather than by scanning the pairs, a repeated name's value grows in place with its room
// doubled rather than being copied whole for every segment, and pairs are linked at the tail.
class VariableSet {
  public:
    explicit VariableSet(uList *pairs) : builder_(pairs) {}

    // Gives `name` the value, or joins it with ',' to the value an earlier segment of the same
    // name gave. A variable whose memory cannot be had is dropped (a join leaves the value as it
    // was), and the rest go on.
    void add(const char *name, const char *value) {
        const auto found = index_.find(name);
        if (found != index_.end()) {
            join(found->second, value);
            return;
        }
        auto *pair = static_cast<UParaUrlPair *>(uMalloc(sizeof(UParaUrlPair)));
        if (pair == nullptr) {
            return;
        }
        pair->key = pu::core::copyText(name);
        pair->value = pu::core::copyText(value);
        if (pair->key == nullptr || pair->value == nullptr || !remember(pair)) {
            urlParaQueryFree(pair);
            return;
        }
        if (builder_.append(pair) < 0) {
            index_.erase(pair->key);
            urlParaQueryFree(pair);
        }
    }

  private:
    struct Entry {
        UParaUrlPair *pair;
        std::size_t length;   // of the value
        std::size_t capacity; // bytes allocated for the value
    };

    bool remember(UParaUrlPair *pair) {
        const std::size_t length = std::strlen(pair->value);
        try {
            index_.emplace(pair->key, Entry{pair, length, length + 1});
            return true;
        } catch (const std::bad_alloc &) {
            return false;
        }
    }

    static void join(Entry &entry, const char *value) {
        const std::size_t added = std::strlen(value);
        const pu::core::CheckedSize joined = pu::core::checkedAdd(entry.length + 1, added);
        if (!joined) {
            return;
        }
        const std::size_t length = *joined;
        if (length >= entry.capacity) {
            const pu::core::CheckedSize doubled = pu::core::checkedMul(entry.capacity, 2);
            const std::size_t capacity = std::max(length + 1, doubled.value_or(length + 1));
            auto *grown = static_cast<char *>(pu::core::allocate(capacity));
            if (grown == nullptr) {
                return;
            }
            std::memcpy(grown, entry.pair->value, entry.length);
            uFree(entry.pair->value);
            entry.pair->value = grown;
            entry.capacity = capacity;
        }
        char *end = entry.pair->value + entry.length;
        *end = ',';
        std::memcpy(end + 1, value, added + 1);
        entry.length = length;
    }

    pu::core::ListBuilder builder_;
    std::unordered_map<std::string_view, Entry> index_;
};

// Pairs the variables of the template with the URL segments at the same positions.
void collectVariables(uList *templSegments, uList *urlSegments, uList *pairs) {
    VariableSet variables(pairs);
    uListNode *urlNode = urlSegments->head;
    for (uListNode *node = templSegments->head; node != nullptr; node = node->next) {
        if (urlNode == nullptr) {
            break;
        }
        const char *segment = static_cast<const char *>(node->data);
        if (pu::url::isVariableSegment(segment)) {
            variables.add(segment + 1, static_cast<const char *>(urlNode->data));
        }
        urlNode = urlNode->next;
    }
}

// What the host-name pattern and the all-digits pattern answer together for a text made only of
// letters, digits, '-' and '.': neither a scheme, user part, literal ')' nor port can match
// there, so the text must be dot-separated labels of 1 to 63 letters, digits and inner '-',
// and is refused when there are two labels or more and the last is all digits. Null when the
// text holds other characters and the patterns must decide.
std::optional<bool> plainHostNameAnswer(std::string_view text) {
    static constexpr pu::url::CharSet kPlainNameChars(pu::url::kAlnumChars, "-.");
    if (!kPlainNameChars.holdsAll(text)) {
        return std::nullopt;
    }
    constexpr std::size_t kMaxLabel = 63;
    std::size_t labels = 0;
    bool lastAllDigits = false;
    for (std::size_t start = 0;;) {
        const std::size_t dot = text.find('.', start);
        const std::string_view label =
            text.substr(start, dot == std::string_view::npos ? dot : dot - start);
        if (label.empty() || label.size() > kMaxLabel || label.front() == '-' ||
            label.back() == '-') {
            return false;
        }
        ++labels;
        static constexpr pu::url::CharSet kDigits("0123456789");
        lastAllDigits = kDigits.holdsAll(label);
        if (dot == std::string_view::npos) {
            break;
        }
        start = dot + 1;
    }
    return !(labels >= 2 && lastAllDigits);
}

} // namespace

extern "C" {

int32_t uParaUrlCheck(const char *url) {
    return url != nullptr && isAcceptableUrl(url) ? 1 : 0;
}

int32_t uParaUrlDomainCheck(const char *name) {
    if (name == nullptr) {
        return 0;
    }
    if (const std::optional<bool> answer = plainHostNameAnswer(name)) {
        return *answer ? 1 : 0; // the common case, without running the patterns
    }
    const UrlPatterns &patterns = UrlPatterns::instance();
    return patterns.matches(pu::url::kHostNamePattern, name) && !patterns.allDigitsMatches(name)
               ? 1
               : 0;
}

int32_t uParaUrlGetComparableRegex(const char *templ, regex_t *preg) {
    if (templ == nullptr || templ[0] == '\0' || preg == nullptr || hasRepetitionBomb(templ)) {
        return -1;
    }
    char *pattern = comparablePattern(templ);
    if (pattern == nullptr) {
        return -1;
    }
    const int result = regcomp(preg, pattern, REG_EXTENDED | REG_NEWLINE);
    uFree(pattern);
    return result == 0 ? 0 : -1;
}

int32_t uParaUrlGetVariablesFromRestfulUrl(const char *url, const char *templ, uList **out) {
    if (url == nullptr || templ == nullptr || out == nullptr) {
        return -1;
    }
    *out = nullptr;
    uList *templSegments = nullptr;
    if (pu::url::pathSegments(templ, &templSegments, false) != 0) {
        return -1;
    }
    if (templSegments == nullptr) {
        return 0; // no variables
    }
    uList *urlSegments = nullptr;
    if (pu::url::pathSegments(url, &urlSegments, true) != 0) {
        pu::url::freeSegments(templSegments);
        return -1;
    }
    uList *pairs = uListInit(0);
    if (pairs != nullptr) {
        collectVariables(templSegments, urlSegments, pairs);
        if (uListSize(pairs) > 0) {
            *out = pairs;
        } else {
            uListUninit(pairs);
        }
    }
    pu::url::freeSegments(templSegments);
    pu::url::freeSegments(urlSegments);
    return 0;
}

} // extern "C"
