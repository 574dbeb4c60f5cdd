// SPDX-License-Identifier: MIT
// Parsing a document from a string or a descriptor: the bytes go through the ampersand repair
// and then to expat, which calls the caller's handlers.
#include <platform_os.h>
#include <umem.h>
#include <uxmlparser.h>

#include "core/log_modules.hpp"
#include "xml/xml_parser.hpp"

#include <openssl/evp.h>

#include <algorithm>
#include <cstdint>
#include <cstring>
#include <limits>

namespace {

constexpr int32_t kReadBufferSize = 2048;
constexpr int32_t kEscapeBufferSize = 2457;
constexpr int kNoParse = XML_STATUS_ERROR;

int32_t clampedLength(std::size_t length) {
    // A length the escaping step cannot take fails there like an empty document.
    return length > static_cast<std::size_t>(std::numeric_limits<int32_t>::max())
               ? -1
               : static_cast<int32_t>(length);
}

// Bytes held back at the end of a stream for a trailer: the trailer and the two characters
// (a line end) after it.
int32_t trailerHold(const char *trailer) {
    if (trailer == nullptr || trailer[0] == '\0') {
        return 0;
    }
    constexpr int32_t kLongest = std::numeric_limits<int32_t>::max() - 2;
    const int32_t length = clampedLength(std::strlen(trailer));
    // A trailer too long to count holds back everything.
    return length < 0 || length > kLongest ? kLongest + 2 : length + 2;
}

// The length of text without a trailer that ends two characters before the end of the text.
int32_t lengthWithoutTrailer(const char *text, const char *trailer) {
    const int32_t length = clampedLength(std::strlen(text));
    const int32_t hold = trailerHold(trailer);
    if (hold == 0 || length < hold) {
        return length;
    }
    const int32_t start = length - hold;
    return std::memcmp(text + start, trailer, static_cast<std::size_t>(hold - 2)) == 0 ? start
                                                                                       : length;
}

// A zero-filled buffer from uMalloc, released on scope exit.
class OwnedBuffer {
  public:
    explicit OwnedBuffer(int32_t size)
        : data_(static_cast<char *>(uMalloc(static_cast<uint32_t>(size)))) {}
    ~OwnedBuffer() { uFree(data_); }
    OwnedBuffer(const OwnedBuffer &) = delete;
    OwnedBuffer &operator=(const OwnedBuffer &) = delete;

    char *data() { return data_; }
    bool allocated() const { return data_ != nullptr; }

  private:
    char *data_;
};

// Feeds one document to expat chunk by chunk through the repair, carrying an open candidate
// from each chunk to the next.
class RepairFeed {
  public:
    RepairFeed()
        : data_(static_cast<char *>(uMalloc(kEscapeBufferSize))),
          capacity_(data_ != nullptr ? kEscapeBufferSize : 0) {}
    ~RepairFeed() { uFree(data_); }
    RepairFeed(const RepairFeed &) = delete;
    RepairFeed &operator=(const RepairFeed &) = delete;

    bool allocated() const { return data_ != nullptr; }

    // Repairs the next chunk and hands it to the parser. Returns expat's status, or kNoParse with
    // escapeFailed set when the chunk could not be repaired (an empty chunk among them).
    int parse(XML_Parser parser, const char *input, int32_t length, bool final) {
        if (needsNoRepair(input, length)) {
            // The repair would copy the bytes unchanged; expat copies them anyway.
            return XML_Parse(parser, input, length, final ? 1 : 0);
        }
        if (uXmlParserProcessXmlBufferWithAmp(input, length, &data_, &count_, &capacity_, &state_,
                                              final ? 1 : 0) != 0) {
            escapeFailed = true;
            return kNoParse;
        }
        return XML_Parse(parser, data_, count_, final ? 1 : 0);
    }

    bool escapeFailed = false;

  private:
    bool needsNoRepair(const char *input, int32_t length) const {
        return state_.pendingCount == 0 && length > 0 &&
               std::memchr(input, '&', static_cast<std::size_t>(length)) == nullptr;
    }

    char *data_;
    int32_t capacity_;
    int32_t count_ = 0;
    uXmlParserAmpState state_{};
};

// A parser wired to the caller's handlers and entered in the map, or null. A parse that could
// not be entered is not run: its handlers could neither pause nor stop it.
XML_Parser openParser(void *user, XML_StartElementHandler start, XML_CharacterDataHandler chars,
                      XML_EndElementHandler end) {
    XML_Parser parser = XML_ParserCreate(nullptr);
    if (parser == nullptr) {
        return nullptr;
    }
    XML_SetElementHandler(parser, start, end);
    XML_SetCharacterDataHandler(parser, chars);
    XML_SetUserData(parser, user);
    if (!pu::xml::registerParser(parser, user)) {
        XML_ParserFree(parser);
        return nullptr;
    }
    return parser;
}

// A suspended parser stays alive (and in the map) for uXmlParserPause to resume.
void closeParser(XML_Parser parser, int lastStatus) {
    if (lastStatus == XML_STATUS_SUSPENDED) {
        pu::xml::leaveSuspended(parser);
    } else {
        pu::xml::releaseParser(parser);
    }
}

bool descriptorArgumentsValid(const char *function, int32_t fd, uXmlReadFn readFn, void *user) {
    if (fd < 1 || readFn == nullptr || user == nullptr) {
        pu::log::error(pu::log::kXmlParser, "%s: param error.", function);
        return false;
    }
    return true;
}

// A read that reports an error counts as the end of the stream.
int32_t readSome(uXmlReadFn readFn, int32_t fd, char *buffer, int32_t wanted) {
    return std::max(readFn(fd, buffer, wanted), 0);
}

// Totals past 2 GiB saturate; only their sign matters.
int32_t addSaturated(int32_t total, int32_t count) {
    const int64_t sum = int64_t{total} + count;
    return static_cast<int32_t>(std::clamp<int64_t>(sum, std::numeric_limits<int32_t>::min(),
                                                    std::numeric_limits<int32_t>::max()));
}

// What one descriptor parse needs: both buffers and the parser. valid() tells whether it all
// came up; the failure has been logged by then.
class DescriptorParse {
  public:
    DescriptorParse(const char *function, void *user, XML_StartElementHandler start,
                    XML_CharacterDataHandler chars, XML_EndElementHandler end)
        : read_(kReadBufferSize) {
        if (!read_.allocated() || !escaped_.allocated()) {
            pu::log::error(pu::log::kXmlParser, "%s: buf uMalloc error.", function);
            return;
        }
        parser_ = openParser(user, start, chars, end);
        if (parser_ == nullptr) {
            pu::log::error(pu::log::kXmlParser, "%s: xml parse create failed.", function);
        }
    }
    ~DescriptorParse() {
        if (parser_ != nullptr) {
            // A parse that failed after a suspension has nobody left to resume it.
            closeParser(parser_, escapeFailed() ? kNoParse : lastStatus_);
        }
    }
    DescriptorParse(const DescriptorParse &) = delete;
    DescriptorParse &operator=(const DescriptorParse &) = delete;

    bool valid() const { return parser_ != nullptr; }
    char *buffer() { return read_.data(); }
    int lastStatus() const { return lastStatus_; }
    bool escapeFailed() const { return escaped_.escapeFailed; }

    // Repairs and parses one piece. lastStatus() stays the result of the last piece expat saw.
    int parse(const char *input, int32_t length, bool final) {
        const int status = escaped_.parse(parser_, input, length, final);
        if (!escaped_.escapeFailed) {
            lastStatus_ = status;
        }
        return status;
    }

    // Returns -1 after logging, when the parse failed or read nothing; else 0.
    int32_t result(const char *function, int32_t totalRead, bool failed) const {
        if (failed || totalRead <= 0) {
            pu::log::error(pu::log::kXmlParser,
                           "%s: Parse xml error totalRead[%d] or parserResult[%d].", function,
                           totalRead, lastStatus_);
            return -1;
        }
        return 0;
    }

  private:
    OwnedBuffer read_;
    RepairFeed escaped_;
    XML_Parser parser_ = nullptr;
    int lastStatus_ = kNoParse;
};

// An MD5 over the bytes handed to the repair, finished only when the parse succeeds.
class Md5 {
  public:
    Md5() : context_(EVP_MD_CTX_new()) {
        if (context_ != nullptr && EVP_DigestInit_ex(context_, EVP_md5(), nullptr) != 1) {
            EVP_MD_CTX_free(context_);
            context_ = nullptr;
        }
    }
    ~Md5() { EVP_MD_CTX_free(context_); }
    Md5(const Md5 &) = delete;
    Md5 &operator=(const Md5 &) = delete;

    bool started() const { return context_ != nullptr; }
    void add(const char *bytes, int32_t length) {
        (void)EVP_DigestUpdate(context_, bytes, static_cast<std::size_t>(length));
    }
    void finish(unsigned char *digest) { (void)EVP_DigestFinal_ex(context_, digest, nullptr); }

  private:
    EVP_MD_CTX *context_;
};

// The read plan of the digest parse: each piece is read afresh, the trailer is held back from
// the end of the declared length.
class DigestReadPlan {
  public:
    DigestReadPlan(int32_t totalLength, const char *trailer)
        : known_(totalLength > 0), remaining_(known_ ? totalLength : 0),
          hold_(trailerHold(trailer)) {}

    int32_t nextRequest() const {
        return known_ ? std::min(remaining_, kReadBufferSize) : kReadBufferSize;
    }
    bool requestIsLast(int32_t request) const { return known_ && request == remaining_; }

    // Books a request and returns how many of the count bytes read go on to the parser. With an
    // unknown length nothing is ever unrequested, so the first piece loses the held bytes
    // (intended: it strips the trailer of a document that fits in one piece).
    int32_t usable(int32_t request, int32_t count) {
        if (known_) {
            remaining_ -= request;
        }
        if (remaining_ < hold_) {
            count -= hold_ - remaining_;
            hold_ = remaining_;
        }
        return count;
    }

  private:
    bool known_;
    int32_t remaining_;
    int32_t hold_;
};

} // namespace

extern "C" {

int32_t uXmlParseFromBuf(const char *text, const char *trailer, void *user,
                         uXmlStartElementHandler start, uXmlCharacterDataHandler chars,
                         uXmlEndElementHandler end) {
    constexpr const char *kName = "uXmlParseFromBuf";
    if (text == nullptr || user == nullptr) {
        pu::log::error(pu::log::kXmlParser, "%s: param error.", kName);
        return -1;
    }
    XML_Parser parser = openParser(user, start, chars, end);
    if (parser == nullptr) {
        pu::log::error(pu::log::kXmlParser, "%s: xml parse create failed.", kName);
        return -1;
    }
    const int32_t length = lengthWithoutTrailer(text, trailer);
    RepairFeed escaped;
    if (!escaped.allocated()) {
        pu::log::error(pu::log::kXmlParser, "%s: buf uMalloc error.", kName);
        // Leaves the map with the parser, so no pause or stop reaches a freed parser.
        pu::xml::releaseParser(parser);
        return -1;
    }
    const int status = escaped.parse(parser, text, length, true);
    closeParser(parser, status);
    if (status == kNoParse) {
        pu::log::error(pu::log::kXmlParser, "parse xml error parserResult[%d].", 0);
        return -1;
    }
    return 0;
}

int32_t uXmlParseFromFd(int32_t fd, uXmlReadFn readFn, const char *trailer, void *user,
                        uXmlStartElementHandler start, uXmlCharacterDataHandler chars,
                        uXmlEndElementHandler end) {
    constexpr const char *kName = "uXmlParseFromFd";
    if (!descriptorArgumentsValid(kName, fd, readFn, user)) {
        return -1;
    }
    DescriptorParse parse(kName, user, start, chars, end);
    if (!parse.valid()) {
        return -1;
    }
    // The last `hold` bytes read are always kept back at the start of the buffer, so the bytes
    // at the very end of the stream never reach the parser.
    const int32_t hold = trailerHold(trailer);
    char *buffer = parse.buffer();
    int32_t kept = 0;
    int32_t totalRead = 0;
    for (;;) {
        const int32_t wanted = kReadBufferSize - kept;
        const int32_t count = readSome(readFn, fd, buffer + kept, wanted);
        totalRead = addSaturated(totalRead, count);
        const int32_t passOn = kept + count - hold;
        const bool last = count < wanted;
        if (parse.parse(buffer, passOn, last) == kNoParse || last) {
            break;
        }
        if (hold > 0) {
            std::memmove(buffer, buffer + passOn, static_cast<std::size_t>(hold));
            kept = hold;
        }
        if (count <= 0) {
            break;
        }
    }
    return parse.result(kName, totalRead, parse.lastStatus() == kNoParse || parse.escapeFailed());
}

int32_t uXmlParseFromFdWithDigestAndBreak(int32_t fd, int32_t totalLength, uXmlReadFn readFn,
                                          const char *trailer, void *user,
                                          uXmlStartElementHandler start,
                                          uXmlCharacterDataHandler chars, uXmlEndElementHandler end,
                                          unsigned char *digest, uXmlContinueFn shouldContinue) {
    constexpr const char *kName = "uXmlParseFromFdWithDigestAndBreak";
    if (!descriptorArgumentsValid(kName, fd, readFn, user)) {
        return -1;
    }
    Md5 md5;
    if (!md5.started()) {
        pu::log::error(pu::log::kXmlParser, "%s: MD5_Init error.", kName);
        return -1;
    }
    DescriptorParse parse(kName, user, start, chars, end);
    if (!parse.valid()) {
        return -1;
    }
    DigestReadPlan plan(totalLength, trailer);
    char *buffer = parse.buffer();
    int32_t totalRead = 0;
    bool failed = false;
    for (;;) {
        std::memset(buffer, 0, kReadBufferSize);
        const int32_t wanted = plan.nextRequest();
        const int32_t count = readSome(readFn, fd, buffer, wanted);
        pu::log::debug(pu::log::kXmlParser, "%s: readLen:%d !!!.", kName, count);
        const bool last = plan.requestIsLast(wanted) || count < wanted;
        const int32_t usable = plan.usable(wanted, count);
        if (digest != nullptr && usable > 0) {
            md5.add(buffer, usable);
        }
        totalRead = addSaturated(totalRead, usable);
        const int status = parse.parse(buffer, usable, last);
        if (parse.escapeFailed()) {
            failed = true;
            break;
        }
        if (last || status == kNoParse) {
            pu::log::info(pu::log::kXmlParser, "%s: XML_Parse :%s Or Read Finished :%d !!!.", kName,
                          status == kNoParse ? "error" : "ok", last ? 1 : 0);
            failed = status == kNoParse;
            break;
        }
        if (shouldContinue != nullptr && shouldContinue(user) == 0) {
            pu::log::info(pu::log::kXmlParser, "%s: Break Parseing !!!.", kName);
            break;
        }
        if (usable <= 0) {
            break;
        }
    }
    const int32_t result = parse.result(kName, totalRead, failed);
    if (result == 0 && digest != nullptr) {
        md5.finish(digest);
    }
    return result;
}

} // extern "C"
