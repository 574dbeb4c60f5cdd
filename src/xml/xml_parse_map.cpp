// The process-wide map from a caller's user pointer to its live parser, through which a handler
// suspends, resumes or aborts the parse that is calling it.
#include <platform_os.h>
#include <ulist.h>
#include <umem.h>
#include <uxmlparser.h>

#include "core/log_modules.hpp"
#include "core/sem_lock.hpp"
#include "xml/xml_parser.hpp"

#include <atomic>
#include <cstdint>
#include <mutex>

namespace {

struct MapItem {
    XML_Parser parser;
    void *user;
};

// Both are created on first use and live for the rest of the process. The list is only touched
// under the lock; the lock handle itself is published atomically because the first callers may
// race to create it.
std::atomic<uint32_t> gMapLock{0};
uList *gMap = nullptr;

uint32_t mapLock() {
    uint32_t lock = gMapLock.load(std::memory_order_acquire);
    if (lock != 0) {
        return lock;
    }
    uint32_t created = semMCreate(0);
    if (gMapLock.compare_exchange_strong(lock, created, std::memory_order_acq_rel)) {
        return created;
    }
    (void)semDelete(created); // another thread won; use its lock
    return lock;
}

template <typename Match> int32_t findItem(Match match) {
    const int32_t size = uListSize(gMap);
    for (int32_t i = 0; i < size; ++i) {
        const auto *item = static_cast<const MapItem *>(uListGet(gMap, i));
        if (item != nullptr && match(*item)) {
            return i;
        }
    }
    return -1;
}

XML_Parser parserOfUser(void *user) {
    const int32_t pos = findItem([user](const MapItem &item) { return item.user == user; });
    if (pos < 0) {
        return nullptr;
    }
    return static_cast<MapItem *>(uListGet(gMap, pos))->parser;
}

// The parse a pause is aimed at: the user's own, or else the most recently started one.
XML_Parser pauseTarget(void *user) {
    if (XML_Parser own = parserOfUser(user)) {
        return own;
    }
    const auto *last = static_cast<const MapItem *>(uListGet(gMap, uListSize(gMap) - 1));
    return last != nullptr ? last->parser : nullptr;
}

// A parser that is parsing right now (a handler resuming its own parse) or not yet started (on
// another thread) belongs to a parse function still running, which frees it itself.
bool parseInProgress(XML_Parser parser) {
    XML_ParsingStatus status{};
    XML_GetParsingStatus(parser, &status);
    return status.parsing == XML_PARSING || status.parsing == XML_INITIALIZED;
}

void logResumeError(int32_t flag) {
    basaltPrintLog(pu::log::kError, pu::log::kXmlParser, "%s, parse xml error parserResult[%d].",
                   "uXmlParserPause", flag);
}

int32_t resume(XML_Parser parser, int32_t flag) {
    if (parseInProgress(parser)) {
        logResumeError(flag);
        return -1;
    }
    const XML_Status status = XML_ResumeParser(parser);
    if (status == XML_STATUS_SUSPENDED) {
        return 0;
    }
    pu::io::xml::releaseParser(parser);
    if (status == XML_STATUS_ERROR) {
        logResumeError(flag);
        return -1;
    }
    return 0;
}

} // namespace

namespace pu::io::xml {

void releaseParser(XML_Parser parser) {
    pu::core::SemGuard guard(mapLock());
    uXmlParserDelMapItem(parser);
    XML_ParserFree(parser);
}

} // namespace pu::io::xml

extern "C" {

void uXmlParserAddMapItem(XML_Parser parser, void *user) {
    if (parser == nullptr) {
        return;
    }
    auto *item = static_cast<MapItem *>(uMalloc(sizeof(MapItem)));
    if (item == nullptr) {
        return;
    }
    *item = {parser, user};
    pu::core::SemGuard guard(mapLock());
    if (gMap == nullptr) {
        gMap = uListInit(0);
    }
    if (gMap == nullptr || uListAppend(gMap, item) < 0) {
        uFree(item);
    }
}

void uXmlParserDelMapItem(XML_Parser parser) {
    pu::core::SemGuard guard(mapLock());
    if (gMap == nullptr) {
        return;
    }
    const int32_t pos = findItem([parser](const MapItem &item) { return item.parser == parser; });
    if (pos >= 0) {
        uFree(uListRemove(gMap, pos));
    }
}

int32_t uXmlParserPause(void *user, int32_t suspend) {
    if (user == nullptr) {
        return -1;
    }
    pu::core::SemMutex mutex(mapLock());
    std::unique_lock lock(mutex);
    if (gMap == nullptr || uListSize(gMap) <= 0) {
        return -1;
    }
    XML_Parser parser = pauseTarget(user);
    if (parser == nullptr) {
        return -1;
    }
    if (suspend != 0) {
        return XML_StopParser(parser, XML_TRUE);
    }
    // Resuming runs the caller's handlers, which must not run under the map lock.
    lock.unlock();
    return resume(parser, suspend);
}

void uXmlParserStop(void *user) {
    if (user == nullptr) {
        return;
    }
    pu::core::SemGuard guard(mapLock());
    if (gMap == nullptr) {
        return;
    }
    if (XML_Parser parser = parserOfUser(user)) {
        (void)XML_StopParser(parser, XML_FALSE);
    }
}

} // extern "C"
