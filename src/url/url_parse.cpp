// SPDX-License-Identifier: MIT
// A URL taken apart into its eight components and put together again, and addresses split from
// their ports.
#include <platform_os.h>
#include <umem.h>
#include <uparaurl.h>
#include <ustr.h>
#include <ustrconv.h>
#include <ustrurl.h>

#include "core/checked_size.hpp"
#include "url/url_internal.hpp"

#include <arpa/inet.h>

#include <cstdio>
#include <cstring>
#include <string_view>

namespace {

// The characters a URL that failed validation keeps when it is pre-encoded for parsing; '%' and
// '#' among them, so existing escapes and the fragment mark survive.
constexpr pu::url::CharSet kKeptByPreEncoding(pu::url::kAlnumChars, "!#$%&'()*,-./:;=?@[]_~");

bool keptByPreEncoding(unsigned char c) {
    return kKeptByPreEncoding.contains(static_cast<char>(c));
}

// url into work (3 * strlen(url) + 1 bytes, zeroed), pre-encoded when the validator refuses it.
// A URL made only of kept characters comes out the same either way, so it is not validated.
void prepareForParsing(const char *url, char *work) {
    bool allKept = true;
    for (const char *p = url; *p != '\0' && allKept; ++p) {
        allKept = keptByPreEncoding(static_cast<unsigned char>(*p));
    }
    if (allKept || uParaUrlCheck(url) == 1) {
        std::strcpy(work, url);
        return;
    }
    std::size_t used = 0;
    for (const char *p = url; *p != '\0'; ++p) {
        const auto c = static_cast<unsigned char>(*p);
        if (keptByPreEncoding(c)) {
            work[used++] = static_cast<char>(c);
        } else {
            pu::url::writeEscape(work + used, c);
            used += 3;
        }
    }
}

// Splits text at its last ':' into new strings: left always, right only when there is a colon.
bool splitAtLastColon(std::string_view text, char **left, char **right) {
    const std::size_t colon = text.rfind(':');
    *left = pu::core::copyText(text.substr(0, colon));
    if (*left == nullptr) {
        return false;
    }
    if (colon != std::string_view::npos) {
        *right = pu::core::copyText(text.substr(colon + 1));
        return *right != nullptr;
    }
    return true;
}

bool isAcceptableHost(const char *host) {
    return sockIsValidAddr(host) != 0 || uParaUrlDomainCheck(host) == 1;
}

// How splitting an authority ended. Memory running out is no verdict on the host: the search
// for a valid authority must stop there rather than try a longer, wrong one.
enum class Split { Done, Invalid, NoMemory };

// "[v6]" or "[v6]:port": the host keeps its brackets (so the URL rebuilds as it was) and is
// valid when the address inside them is. A colon inside the brackets never starts the port.
Split splitBracketedHost(std::string_view text, char **host, char **port) {
    const std::size_t close = text.find(']');
    if (close == std::string_view::npos || (close + 1 < text.size() && text[close + 1] != ':')) {
        return Split::Invalid;
    }
    char inner[64] = {};
    const std::string_view address = text.substr(1, close - 1);
    if (address.size() >= sizeof(inner)) {
        return Split::Invalid;
    }
    std::memcpy(inner, address.data(), address.size());
    if (sockIsValidAddr(inner) == 0) {
        return Split::Invalid;
    }
    *host = pu::core::copyText(text.substr(0, close + 1));
    if (*host != nullptr && close + 1 < text.size()) {
        *port = pu::core::copyText(text.substr(close + 2));
        return *port != nullptr ? Split::Done : Split::NoMemory;
    }
    return *host != nullptr ? Split::Done : Split::NoMemory;
}

// Host and port from the part after the user information.
Split splitHostPart(std::string_view text, UStrUrlPara *rec) {
    if (!text.empty() && text.front() == '[') {
        return splitBracketedHost(text, &rec->host, &rec->port);
    }
    if (!splitAtLastColon(text, &rec->host, &rec->port)) {
        return Split::NoMemory;
    }
    return isAcceptableHost(rec->host) ? Split::Done : Split::Invalid;
}

void freeAndClear(char **text) {
    uFree(*text);
    *text = nullptr;
}

// Splits "user:password@host:port" into the record: the last '@' ends the user part, and each
// part is split at its last ':'. Fails, leaving no host, port, user or password behind, unless
// the host is a valid address or host name and every part could be copied.
Split splitAuthority(std::string_view authority, UStrUrlPara *rec) {
    const std::size_t at = authority.rfind('@');
    const std::string_view hostPart =
        at == std::string_view::npos ? authority : authority.substr(at + 1);
    Split result = splitHostPart(hostPart, rec);
    if (result == Split::Done && at != std::string_view::npos &&
        !splitAtLastColon(authority.substr(0, at), &rec->user, &rec->password)) {
        result = Split::NoMemory;
    }
    if (result != Split::Done) {
        freeAndClear(&rec->host);
        freeAndClear(&rec->port);
        freeAndClear(&rec->user);
        freeAndClear(&rec->password);
    }
    return result;
}

// Finds the authority at the start of rest: it ends at the first '/', '?' or '#' before which
// it holds a valid host, so an invalid host may take in a delimiter and go on; failing that it
// is the whole of rest. Sets *length to the length of the authority; Invalid when none is
// valid, NoMemory as soon as a split runs out of memory.
//
// A prefix whose host part (after its last '@') already holds a delimiter is not tried: such a
// host is only valid as "scheme://name" or with the delimiter in its port, and then the prefix
// ending at that first delimiter was valid already. This keeps long texts linear.
Split takeAuthority(std::string_view rest, UStrUrlPara *rec, std::size_t *length) {
    static constexpr pu::url::CharSet kDelimiters("/?#");
    std::size_t previous = std::string_view::npos;
    for (std::size_t end = kDelimiters.findIn(rest); end != std::string_view::npos;
         end = kDelimiters.findIn(rest, end + 1)) {
        const bool hostHoldsDelimiter =
            previous != std::string_view::npos &&
            rest.substr(previous, end - previous).find('@') == std::string_view::npos;
        if (!hostHoldsDelimiter) {
            const Split result = splitAuthority(rest.substr(0, end), rec);
            if (result != Split::Invalid) {
                *length = end;
                return result;
            }
        }
        previous = end;
    }
    *length = rest.size();
    return splitAuthority(rest, rec);
}

// A new copy of the text between the first `open` and the next `close` after it. Returns false
// when either is missing; *length receives the copied length.
bool copyBetween(std::string_view text, char open, char close, char **result, std::size_t *length) {
    const std::size_t from = text.find(open);
    if (from == std::string_view::npos) {
        return false;
    }
    const std::size_t to = text.find(close, from + 1);
    if (to == std::string_view::npos) {
        return false;
    }
    *length = to - from - 1;
    *result = pu::core::copyText(text.substr(from + 1, *length));
    return true;
}

// The path from what follows the authority: up to a '?' after the first '/', else up to a '#'
// after it, else everything after the first character when there is a '/' at all. Returns
// false when memory runs out; rest is advanced past the path in the first two cases.
bool takePath(std::string_view &rest, UStrUrlPara *rec) {
    std::size_t length = 0;
    if (copyBetween(rest, '/', '?', &rec->path, &length) ||
        copyBetween(rest, '/', '#', &rec->path, &length)) {
        if (rec->path == nullptr) {
            return false;
        }
        rest.remove_prefix(length + 1);
        return true;
    }
    if (rest.find('/') != std::string_view::npos) {
        rec->path = pu::core::copyText(rest.substr(1));
        return rec->path != nullptr;
    }
    return true;
}

// Query and fragment from what is left after the path. A '#' before any '?' starts the
// fragment, which then holds the '?'.
bool takeQueryAndFragment(std::string_view rest, UStrUrlPara *rec) {
    const std::size_t question = rest.find('?');
    const std::size_t hash = rest.find('#');
    if (question != std::string_view::npos && hash == std::string_view::npos) {
        rec->query = pu::core::copyText(rest.substr(1));
        return rec->query != nullptr;
    }
    if (question != std::string_view::npos && hash > question) {
        std::size_t length = 0;
        copyBetween(rest, '?', '#', &rec->query, &length);
        rec->fragment = pu::core::copyText(rest.substr(hash + 1));
        return rec->query != nullptr && rec->fragment != nullptr;
    }
    if (hash != std::string_view::npos) {
        rec->fragment = pu::core::copyText(rest.substr(hash + 1));
        return rec->fragment != nullptr;
    }
    return true;
}

// Fills rec from the prepared text; false when the authority is invalid or memory runs out.
bool parseInto(std::string_view text, UStrUrlPara *rec) {
    const std::size_t schemeEnd = text.find("://");
    if (schemeEnd != std::string_view::npos) {
        rec->scheme = pu::core::copyText(text.substr(0, schemeEnd));
        if (rec->scheme == nullptr) {
            return false;
        }
        text.remove_prefix(schemeEnd + 3);
    }
    std::size_t authorityLength = 0;
    if (takeAuthority(text, rec, &authorityLength) != Split::Done) {
        return false;
    }
    text.remove_prefix(authorityLength);
    return takePath(text, rec) && takeQueryAndFragment(text, rec);
}

// Appends one component, encoded and formatted through 512-byte buffers. Intended: a very long
// component is cut there, so one component cannot take over the rebuilt URL. False when it
// does not fit in out.
bool appendComponent(char *out, std::size_t size, std::size_t &used, int32_t component,
                     const char *value, const char *format) {
    constexpr int32_t kPieceSize = 512;
    char encoded[kPieceSize];
    char piece[kPieceSize];
    uStrUrlEncodeComponent(component, value, encoded, kPieceSize);
    const int written = std::snprintf(piece, sizeof(piece), format, encoded);
    const std::size_t pieceLength =
        written < 0 ? 0 : std::min(static_cast<std::size_t>(written), sizeof(piece) - 1);
    if (used + pieceLength + 1 > size) {
        return false;
    }
    std::memcpy(out + used, piece, pieceLength + 1);
    used += pieceLength;
    return true;
}

bool appendUserInfo(const UStrUrlPara *rec, char *out, std::size_t size, std::size_t &used) {
    if (rec->password != nullptr) {
        return appendComponent(out, size, used, U_STR_URL_USERINFO, rec->user, "%s:") &&
               appendComponent(out, size, used, U_STR_URL_USERINFO, rec->password, "%s@");
    }
    return appendComponent(out, size, used, U_STR_URL_USERINFO, rec->user, "%s@");
}

bool appendAll(const UStrUrlPara *rec, char *out, std::size_t size) {
    std::size_t used = 0;
    if (rec->scheme != nullptr &&
        !appendComponent(out, size, used, U_STR_URL_SCHEME, rec->scheme, "%s://")) {
        return false;
    }
    if (rec->user != nullptr && !appendUserInfo(rec, out, size, used)) {
        return false;
    }
    if (rec->host != nullptr) {
        if (!appendComponent(out, size, used, U_STR_URL_HOST, rec->host, "%s")) {
            return false;
        }
        if (rec->port != nullptr &&
            !appendComponent(out, size, used, U_STR_URL_PORT, rec->port, ":%s")) {
            return false;
        }
    }
    struct Tail {
        const char *value;
        int32_t component;
        const char *format;
    };
    const Tail tails[] = {{rec->path, U_STR_URL_PATH, "/%s"},
                          {rec->query, U_STR_URL_QUERY, "?%s"},
                          {rec->fragment, U_STR_URL_FRAGMENT, "#%s"}};
    for (const Tail &tail : tails) {
        if (tail.value != nullptr &&
            !appendComponent(out, size, used, tail.component, tail.value, tail.format)) {
            return false;
        }
    }
    return true;
}

// Whether text is an address of the family (AF_INET or AF_INET6). Addresses go through a
// 48-byte working buffer; every valid one fits.
bool isAddress(std::string_view text, int family) {
    constexpr std::size_t kWorkSize = 48;
    if (text.size() >= kWorkSize) {
        return false;
    }
    char work[kWorkSize] = {};
    std::memcpy(work, text.data(), text.size());
    in6_addr address{}; // large enough for either family
    return inet_pton(family, work, &address) == 1;
}

bool isIPv6(std::string_view text) {
    return isAddress(text, AF_INET6);
}

bool isIPv4(std::string_view text) {
    return isAddress(text, AF_INET);
}

// The low 16 bits of a decimal port that uStrIsDigit accepted (blanks around it allowed).
uint16_t portBits(const char *digits) {
    unsigned value = 0;
    for (const char *p = digits; *p != '\0'; ++p) {
        if (*p >= '0' && *p <= '9') {
            value = (value * 10U + static_cast<unsigned>(*p - '0')) & 0xFFFFU;
        }
    }
    return static_cast<uint16_t>(value);
}

// Splits text into an address view and a port; false when it is not an acceptable pair.
bool splitIpAndPort(const char *text, std::string_view *address, uint16_t *port) {
    const char *open = std::strchr(text, '[');
    const char *close = std::strchr(text, ']');
    *port = 0;
    if (open != nullptr && close != nullptr) {
        if (open > close) {
            return false;
        }
        *address = std::string_view(open + 1, static_cast<std::size_t>(close - open - 1));
        if (!isIPv6(*address)) {
            return false;
        }
        const char *colon = std::strchr(close, ':');
        if (colon != nullptr) {
            if (uStrIsDigit(colon + 1) != 1) {
                return false;
            }
            *port = portBits(colon + 1);
        }
        return true;
    }
    if (open != nullptr || close != nullptr) {
        return false;
    }
    if (isIPv6(text)) {
        *address = text;
        return true;
    }
    const char *colon = std::strchr(text, ':');
    if (colon != nullptr) {
        if (uStrIsDigit(colon + 1) != 1) {
            return false;
        }
        *port = portBits(colon + 1);
        *address = std::string_view(text, static_cast<std::size_t>(colon - text));
    } else {
        *address = text;
    }
    return isIPv4(*address);
}

} // namespace

extern "C" {

int32_t uStrUrlParse(const char *url, UStrUrlPara **out) {
    if (url == nullptr || out == nullptr) {
        return -1;
    }
    *out = nullptr;
    const std::size_t length = std::strlen(url);
    pu::url::ScratchText work(pu::core::checkedAdd(pu::core::checkedMul(3, length), 1));
    if (!work.ok()) {
        return -1;
    }
    prepareForParsing(url, work.data());
    auto *rec = static_cast<UStrUrlPara *>(uMalloc(sizeof(UStrUrlPara)));
    if (rec == nullptr) {
        return -1;
    }
    if (!parseInto(work.data(), rec)) {
        uStrUrlParaFree(rec);
        return -1;
    }
    *out = rec;
    return 0;
}

int32_t uStrUrlParaToStr(const UStrUrlPara *rec, char *out, uint32_t size) {
    if (rec == nullptr || out == nullptr || size == 0) {
        return -1;
    }
    std::memset(out, 0, size);
    return appendAll(rec, out, size) ? 0 : -1;
}

void uStrUrlParaFree(UStrUrlPara *rec) {
    if (rec == nullptr) {
        return;
    }
    for (char *field : {rec->scheme, rec->user, rec->password, rec->host, rec->port, rec->query,
                        rec->path, rec->fragment}) {
        uFree(field);
    }
    uFree(rec);
}

int32_t uStrUrlEncodeWithRfc(char *url, uint32_t size) {
    if (url == nullptr) {
        return -1;
    }
    if (uParaUrlCheck(url) == 1) {
        return 0;
    }
    UStrUrlPara *rec = nullptr;
    if (uStrUrlParse(url, &rec) != 0) {
        return -1;
    }
    uStrUrlParaToStr(rec, url, size); // a rebuild that does not fit keeps its partial text
    uStrUrlParaFree(rec);
    return 0;
}

int32_t uStrGetIpAndPort(const char *text, char *ip, uint32_t ipSize, uint16_t *port) {
    if (text == nullptr) {
        return -1;
    }
    std::string_view address;
    uint16_t portValue = 0;
    if (!splitIpAndPort(text, &address, &portValue)) {
        return -1;
    }
    if (ip != nullptr) {
        char work[48] = {}; // every valid address fits
        std::memcpy(work, address.data(), address.size());
        uStrSafeCopy(ip, ipSize, work);
    }
    if (port != nullptr) {
        *port = portValue;
    }
    return 0;
}

} // extern "C"
