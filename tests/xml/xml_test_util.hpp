// SPDX-License-Identifier: MIT
// Event recording for the XML parser tests, the same handlers run on expat alone for reference,
// and documents fed through a pipe.
#pragma once

#include <expat.h>
#include <openssl/evp.h>
#include <usocket.h>
#include <uxmlparser.h>

#include "socket_test_util.hpp"

#include <array>
#include <functional>
#include <string>
#include <thread>
#include <unistd.h>
#include <vector>

#include <gtest/gtest.h>

namespace pu::test {

// The events one parse delivered, as text. Adjacent character data is merged: how expat splits
// text between calls depends on where its input was cut, which is not part of the contract.
struct XmlRecorder {
    std::vector<std::string> events;
    // Called after each start element is recorded, with its name.
    std::function<void(XmlRecorder &, const std::string &)> onStart;

    static void start(void *user, const char *name, const char **attributes) {
        auto *self = static_cast<XmlRecorder *>(user);
        std::string event = std::string("<") + name;
        for (const char **a = attributes; a != nullptr && *a != nullptr; a += 2) {
            event += std::string(" ") + a[0] + "=" + a[1];
        }
        self->events.push_back(event);
        if (self->onStart) {
            self->onStart(*self, name);
        }
    }
    static void text(void *user, const char *data, int length) {
        auto *self = static_cast<XmlRecorder *>(user);
        if (self->events.empty() || self->events.back().rfind("t:", 0) != 0) {
            self->events.emplace_back("t:");
        }
        self->events.back().append(data, static_cast<std::size_t>(length));
    }
    static void end(void *user, const char *name) {
        static_cast<XmlRecorder *>(user)->events.push_back(std::string("/") + name);
    }
};

// What expat alone delivers for doc through the same handlers; empty on a parse error.
inline std::vector<std::string> expatAlone(const std::string &doc) {
    XmlRecorder recorder;
    XML_Parser parser = XML_ParserCreate(nullptr);
    XML_SetElementHandler(parser, XmlRecorder::start, XmlRecorder::end);
    XML_SetCharacterDataHandler(parser, XmlRecorder::text);
    XML_SetUserData(parser, &recorder);
    const bool ok = XML_Parse(parser, doc.data(), static_cast<int>(doc.size()), 1) == XML_STATUS_OK;
    XML_ParserFree(parser);
    return ok ? recorder.events : std::vector<std::string>{};
}

inline int32_t parseBuf(const std::string &doc, XmlRecorder &recorder,
                        const char *trailer = nullptr) {
    return uXmlParseFromBuf(doc.c_str(), trailer, &recorder, XmlRecorder::start, XmlRecorder::text,
                            XmlRecorder::end);
}

// Runs parse on the read end of a pipe while a thread writes data in pieces of piece bytes and
// then closes the write end.
inline int32_t throughPipe(const std::string &data, std::size_t piece,
                           const std::function<int32_t(int)> &parse) {
    int ends[2];
    EXPECT_EQ(pipe(ends), 0);
    Fd reader(ends[0]);
    std::thread writer([&data, piece, fd = ends[1]] {
        for (std::size_t done = 0; done < data.size();) {
            const ssize_t written =
                write(fd, data.data() + done, std::min(piece, data.size() - done));
            if (written <= 0) {
                break;
            }
            done += static_cast<std::size_t>(written);
        }
        close(fd);
    });
    const int32_t result = parse(reader.get());
    writer.join();
    return result;
}

inline int32_t parseFd(const std::string &doc, XmlRecorder &recorder, std::size_t piece = 4096) {
    return throughPipe(doc, piece, [&](int fd) {
        return uXmlParseFromFd(fd, uSocketReadNormalData, nullptr, &recorder, XmlRecorder::start,
                               XmlRecorder::text, XmlRecorder::end);
    });
}

// A well-formed document of at least size bytes: nested elements, attributes, text, references.
inline std::string bigDocument(std::size_t size) {
    std::string doc = "<?xml version=\"1.0\"?>\n<feed xmlns:m=\"urn:m\">";
    for (int i = 0; doc.size() < size; ++i) {
        const std::string n = std::to_string(i);
        doc += "<m:item id=\"" + n + "\" kind=\"k&lt;\"><title>Item " + n +
               " &amp; more</title><link>http://host/p?a=" + n + "&amp;b=2</link></m:item>\n";
    }
    return doc + "</feed>";
}

// The digest parse through a pipe; the digest starts as 0xAA bytes, to show whether it was
// written.
using Digest = std::array<unsigned char, 16>;

inline Digest md5Of(const std::string &bytes) {
    Digest digest{};
    unsigned int length = 0;
    EVP_Digest(bytes.data(), bytes.size(), digest.data(), &length, EVP_md5(), nullptr);
    return digest;
}

struct DigestParse {
    int32_t result;
    Digest digest;
};

inline DigestParse parseWithDigest(const std::string &stream, int32_t totalLength, XmlRecorder &r,
                                   const char *trailer = nullptr,
                                   uXmlContinueFn shouldContinue = nullptr,
                                   std::size_t piece = 4096) {
    DigestParse p{};
    p.digest.fill(0xAA);
    p.result = throughPipe(stream, piece, [&](int fd) {
        return uXmlParseFromFdWithDigestAndBreak(fd, totalLength, uSocketReadNormalData, trailer,
                                                 &r, XmlRecorder::start, XmlRecorder::text,
                                                 XmlRecorder::end, p.digest.data(), shouldContinue);
    });
    return p;
}

// True when no parse is registered: a pause with nobody to fall back on fails.
inline bool parseMapEmpty() {
    static int nobody;
    return uXmlParserPause(&nobody, 1) == -1;
}

} // namespace pu::test
