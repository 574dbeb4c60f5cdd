// SPDX-License-Identifier: MIT
// Streams arbitrary bytes through a local socket into the HTTP body readers and the line reader,
// and checks what they deliver against what was sent.
#include <usocket.h>

#include <algorithm>
#include <cstddef>
#include <cstdint>
#include <cstring>
#include <string>
#include <sys/socket.h>
#include <unistd.h>

namespace {

constexpr std::size_t kMaxBody = 16384; // stays within a local socket's buffer
constexpr std::size_t kNoBoundary = 19;

void check(bool condition) {
    if (!condition) {
        __builtin_trap();
    }
}

int32_t collect(void *context, const char *data, uint32_t length) {
    check(length <= 1024);
    static_cast<std::string *>(context)->append(data, length);
    return 0;
}

// A connected local pair holding body and end of stream on the reading side.
struct Stream {
    int fds[2] = {-1, -1};
    explicit Stream(const std::string &body) {
        check(socketpair(AF_UNIX, SOCK_STREAM, 0, fds) == 0);
        check(write(fds[1], body.data(), body.size()) == static_cast<ssize_t>(body.size()));
        shutdown(fds[1], SHUT_WR);
    }
    ~Stream() {
        close(fds[0]);
        close(fds[1]);
    }
    int reader() const { return fds[0]; }
};

void checkReadHttpData(const std::string &body, const char *boundary) {
    Stream stream(body);
    std::string got;
    const int32_t delivered = uSocketReadHttpData(stream.reader(), boundary, &got, collect);
    check(static_cast<std::size_t>(delivered) == got.size());
    check(body.compare(0, got.size(), got) == 0);
    if (boundary == nullptr) {
        check(got.size() == body.size());
        return;
    }
    const std::size_t length = std::strlen(boundary), tail = length + 4;
    if (body.size() < tail) {
        check(got.empty());
    } else if (got.size() != body.size()) {
        // Dropped only when the tail holds the text and its zero from its third byte on.
        check(got.size() == body.size() - tail);
        check(std::memcmp(body.data() + got.size() + 2, boundary, length + 1) == 0);
    }
}

void checkReadHttpDataWithSize(const std::string &body, const char *boundary,
                               int32_t contentLength) {
    Stream stream(body);
    std::string got;
    const int32_t consumed =
        uSocketReadHttpDataWithSize(stream.reader(), boundary, contentLength, &got, collect);
    check(consumed >= 0 && consumed <= std::max(contentLength, 0) &&
          static_cast<std::size_t>(consumed) <= body.size());
    check(got.size() <= static_cast<std::size_t>(consumed));
    check(body.compare(0, got.size(), got) == 0);
}

void checkReadLines(const std::string &body, int32_t size) {
    Stream stream(body);
    std::string line(static_cast<std::size_t>(size) + 1, '\0');
    int32_t length;
    std::size_t lines = 0;
    while ((length = uSocketReadLine(stream.reader(), line.data(), size)) >= 0) {
        check(length <= size);
        // A terminated line holds no line feed; its terminator sits right after it.
        if (length < size && line[static_cast<std::size_t>(length)] == '\0') {
            check(std::memchr(line.data(), '\n', static_cast<std::size_t>(length)) == nullptr);
        }
        check(++lines <= body.size());
    }
}

} // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t *data, std::size_t size) {
    if (size < 2 || size > kMaxBody) {
        return 0;
    }
    const std::size_t boundaryLength = std::min<std::size_t>(data[0] % 20, size - 2);
    const bool withBoundary = data[0] % 20 != kNoBoundary;
    const std::string boundaryText(reinterpret_cast<const char *>(data) + 1, boundaryLength);
    const char *boundary = withBoundary ? boundaryText.c_str() : nullptr;
    const std::uint8_t lengthByte = data[1 + boundaryLength];
    const std::string body(reinterpret_cast<const char *>(data) + 2 + boundaryLength,
                           size - 2 - boundaryLength);

    checkReadHttpData(body, boundary);
    checkReadHttpDataWithSize(body, boundary, static_cast<int32_t>(lengthByte * 61) - 100);
    checkReadLines(body, lengthByte % 40 + 1);
    return 0;
}
