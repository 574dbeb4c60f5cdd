// SPDX-License-Identifier: MIT
// A URL taken apart into the small record of scheme, credentials, host, port, path and RTSP
// transport, and put together again.
#include <umem.h>
#include <uparaurl.h>
#include <ustr.h>

#include "url/url_form.hpp"
#include "url/url_internal.hpp"

#include <algorithm>
#include <climits>
#include <cstdio>
#include <cstring>
#include <strings.h>
#include <string_view>

namespace {

// A new copy of text, null when it is empty (an empty component is an absent one). Clears ok
// when memory runs out.
char *componentCopy(std::string_view text, bool &ok) {
    if (text.empty()) {
        return nullptr;
    }
    char *copy = pu::core::copyText(text);
    ok = ok && copy != nullptr;
    return copy;
}

bool startsWithIgnoringCase(std::string_view text, std::string_view prefix) {
    return text.size() >= prefix.size() &&
           strncasecmp(text.data(), prefix.data(), prefix.size()) == 0;
}

// Cuts a ";tcp" or ";udp" suffix (any letter case) off an RTSP URL into *transport. Other text
// after the last ';' stays where it is. Clears ok when the suffix cannot be copied.
std::string_view cutTransport(std::string_view url, char **transport, bool &ok) {
    if (!startsWithIgnoringCase(url, "rtsp")) {
        return url;
    }
    const std::size_t semicolon = url.rfind(';');
    if (semicolon == std::string_view::npos) {
        return url;
    }
    const std::string_view suffix = url.substr(semicolon);
    const bool isTransport = suffix.size() == 4 && (strncasecmp(suffix.data(), ";tcp", 4) == 0 ||
                                                    strncasecmp(suffix.data(), ";udp", 4) == 0);
    if (!isTransport) {
        return url;
    }
    *transport = componentCopy(suffix, ok);
    return url.substr(0, semicolon);
}

// Host and port: "[v6]:port" (the ']' may be missing) or "host:port"; the port by atoi.
void splitHostPort(std::string_view authority, UParaUrlInfo *rec, bool &ok) {
    std::string_view host = authority;
    std::string_view port;
    bool hasPort = false;
    const std::size_t open = authority.find('[');
    if (open != std::string_view::npos) {
        const std::size_t close = authority.find(']', open + 1);
        host =
            authority.substr(open + 1, close == std::string_view::npos ? close : close - open - 1);
        if (close != std::string_view::npos) {
            const std::size_t colon = authority.find(':', close);
            hasPort = colon != std::string_view::npos;
            port = hasPort ? authority.substr(colon + 1) : std::string_view{};
        }
    } else {
        const std::size_t colon = authority.find(':');
        hasPort = colon != std::string_view::npos;
        host = authority.substr(0, colon);
        port = hasPort ? authority.substr(colon + 1) : std::string_view{};
    }
    rec->host = componentCopy(host, ok);
    if (hasPort) {
        rec->port = pu::url::clampedAtoi(port);
    }
}

// A new form-decoded copy of text, null when it is empty.
char *decodedCopy(std::string_view text, bool &ok) {
    char *copy = componentCopy(text, ok);
    if (copy != nullptr) {
        pu::url::formDecode(copy, text.size());
    }
    return copy;
}

// "user:password@host:port": the first '@' ends the user part (a '@' at the very end does not
// count); user and password are form-decoded only when both are there.
void splitAuthority(std::string_view authority, UParaUrlInfo *rec, bool &ok) {
    const std::size_t at = authority.find('@');
    if (at == std::string_view::npos || at + 1 == authority.size()) {
        splitHostPort(authority, rec, ok);
        return;
    }
    splitHostPort(authority.substr(at + 1), rec, ok);
    const std::string_view userPart = authority.substr(0, at);
    const std::size_t colon = userPart.find(':');
    if (colon != std::string_view::npos && colon + 1 < userPart.size()) {
        rec->user = decodedCopy(userPart.substr(0, colon), ok);
        rec->password = decodedCopy(userPart.substr(colon + 1), ok);
    } else {
        rec->user = componentCopy(userPart, ok);
    }
}

// Fills rec from text; false when memory runs out.
bool parseInto(std::string_view text, UParaUrlInfo *rec) {
    bool ok = true;
    const std::size_t slashes = text.find("//");
    if (slashes != std::string_view::npos) {
        if (slashes > 1) {
            rec->scheme = componentCopy(text.substr(0, slashes - 1), ok); // without its ':'
        }
        text.remove_prefix(slashes + 2);
    }
    const std::size_t slash = text.find('/');
    splitAuthority(text.substr(0, slash), rec, ok);
    if (slash != std::string_view::npos) {
        rec->path = componentCopy(text.substr(slash + 1), ok);
    }
    return ok;
}

// Length of the composed text, terminator excluded.
std::size_t composedLength(const UParaUrlInfo *rec, bool bracketHost, char *portText,
                           std::size_t portTextSize) {
    std::size_t length = std::strlen(rec->host) + (bracketHost ? 2 : 0);
    if (rec->scheme != nullptr) {
        length += std::strlen(rec->scheme) + 3;
    }
    if (rec->user != nullptr) {
        length += std::strlen(rec->user) + 1;
        if (rec->password != nullptr) {
            length += std::strlen(rec->password) + 1;
        }
    }
    if (rec->port > 0) {
        length += static_cast<std::size_t>(std::snprintf(portText, portTextSize, ":%d", rec->port));
    }
    if (rec->path != nullptr) {
        length += std::strlen(rec->path) + 1;
    }
    return length;
}

void appendText(char *dst, std::size_t &used, std::string_view text) {
    std::memcpy(dst + used, text.data(), text.size());
    used += text.size();
}

UParaUrlInfo *parseOrNull(const char *url) {
    UParaUrlInfo *rec = nullptr;
    return uParaUrlParse(url, &rec) == 1 ? rec : nullptr;
}

} // namespace

extern "C" {

int32_t uParaUrlParse(const char *url, UParaUrlInfo **out) {
    if (url == nullptr || url[0] == '\0' || out == nullptr) {
        return 0;
    }
    char *transport = nullptr;
    bool copied = true;
    const std::string_view text = cutTransport(url, &transport, copied);
    if (!copied) {
        return 0; // a record without its transport would name another stream
    }
    pu::url::ScratchText work(text.size() + 1);
    if (!work.ok()) {
        uFree(transport);
        return 0;
    }
    std::memcpy(work.data(), text.data(), text.size());
    work.data()[text.size()] = '\0';
    if (uParaUrlCheck(work.data()) != 1) {
        uFree(transport);
        return 0;
    }
    auto *rec = static_cast<UParaUrlInfo *>(uMalloc(sizeof(UParaUrlInfo)));
    if (rec == nullptr) {
        uFree(transport);
        return 0;
    }
    rec->transport = transport;
    if (!parseInto(std::string_view(work.data(), text.size()), rec)) {
        uParaUrlFree(rec);
        return 0;
    }
    *out = rec;
    return 1;
}

int32_t uParaUrlCompose(const UParaUrlInfo *rec, char *dst, int32_t size) {
    if (rec == nullptr || rec->host == nullptr || dst == nullptr || size <= 0) {
        return -1;
    }
    // An IPv6 host is written back in brackets, so that the text parses again.
    const bool bracketHost = std::strchr(rec->host, ':') != nullptr;
    char portText[16] = {};
    const std::size_t length = composedLength(rec, bracketHost, portText, sizeof(portText));
    if (length + 1 > static_cast<std::size_t>(size)) {
        return -1;
    }
    std::size_t used = 0;
    if (rec->scheme != nullptr) {
        appendText(dst, used, rec->scheme);
        appendText(dst, used, "://");
    }
    if (rec->user != nullptr) {
        appendText(dst, used, rec->user);
        if (rec->password != nullptr) {
            appendText(dst, used, ":");
            appendText(dst, used, rec->password);
        }
        appendText(dst, used, "@");
    }
    appendText(dst, used, bracketHost ? "[" : "");
    appendText(dst, used, rec->host);
    appendText(dst, used, bracketHost ? "]" : "");
    appendText(dst, used, portText);
    if (rec->path != nullptr) {
        appendText(dst, used, rec->path[0] == '/' ? "" : "/");
        appendText(dst, used, rec->path);
    }
    dst[used] = '\0';
    return 0;
}

void uParaUrlFree(UParaUrlInfo *rec) {
    if (rec == nullptr) {
        return;
    }
    for (char *field :
         {rec->scheme, rec->host, rec->path, rec->user, rec->password, rec->transport}) {
        uFree(field);
    }
    uFree(rec);
}

int32_t uParaUrlReplaceUrlPath(char *url, uint32_t size, const char *newPath) {
    if (url == nullptr) {
        return -1;
    }
    UParaUrlInfo *rec = parseOrNull(url);
    if (rec == nullptr) {
        return -1;
    }
    uFree(rec->path);
    rec->path = uStrGetCopy(newPath);
    // Composed aside first: the record is made from url, and a failure must leave url as it was.
    const auto capacity = static_cast<int32_t>(std::min<uint32_t>(size, INT32_MAX));
    pu::url::ScratchText composed(static_cast<std::size_t>(capacity > 0 ? capacity : 1));
    if (composed.ok() && uParaUrlCompose(rec, composed.data(), capacity) == 0) {
        std::memcpy(url, composed.data(), std::strlen(composed.data()) + 1);
    }
    uParaUrlFree(rec);
    return 0;
}

int32_t uParaUrlRemoveUserAndPasswd(const char *url, char *dst, uint32_t size) {
    UParaUrlInfo *rec = parseOrNull(url);
    if (rec == nullptr) {
        return -1;
    }
    uFree(rec->user);
    uFree(rec->password);
    rec->user = nullptr;
    rec->password = nullptr;
    uParaUrlCompose(rec, dst, static_cast<int32_t>(std::min<uint32_t>(size, INT32_MAX)));
    uParaUrlFree(rec);
    return 0;
}

void uStrParseHostAndPort(const char *url, char *host, uint32_t hostSize, uint32_t *port) {
    if (url == nullptr || host == nullptr || url[0] == '\0') {
        return;
    }
    UParaUrlInfo *rec = parseOrNull(url);
    if (rec == nullptr) {
        return;
    }
    // The count is only a limit: hostSize bounds the copy, so a clamped length copies the same.
    const std::size_t hostLength = rec->host != nullptr ? std::strlen(rec->host) : 0;
    uStrnSafeCopy(host, hostSize, rec->host != nullptr ? rec->host : "",
                  static_cast<uint32_t>(std::min<std::size_t>(hostLength, UINT32_MAX)));
    if (port != nullptr) {
        *port = static_cast<uint32_t>(rec->port);
    }
    uParaUrlFree(rec);
}

int32_t uStrIsValidIPOrDomain(const char *text) {
    UParaUrlInfo *rec = parseOrNull(text);
    if (rec == nullptr) {
        return 0;
    }
    const bool bare = rec->scheme == nullptr && rec->path == nullptr && rec->user == nullptr &&
                      rec->password == nullptr && rec->port == 0;
    uParaUrlFree(rec);
    return bare ? 1 : 0;
}

} // extern "C"
