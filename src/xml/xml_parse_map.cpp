// SPDX-License-Identifier: MIT
// The process-wide map from a caller's user pointer to its live parser, through which a handler
// suspends, resumes or aborts the parse that is calling it.
#include <platform_os.h>
#include <ulist.h>
#include <umem.h>
#include <uxmlparser.h>

#include "core/lazy.hpp"
#include "core/log_modules.hpp"
#include "core/sem_lock.hpp"
#include "xml/xml_parser.hpp"

#include <atomic>
#include <cstdint>

namespace {

// Who may drive the parser. Only a parse function that has returned with the parser suspended
// gives it up; a resume claims it for as long as it runs, so that exactly one caller resumes it
// and a parser still in use by a running parse is never resumed or freed from elsewhere.
enum class Owner : uint8_t {
    Parse,    // a parse function (or whoever registered it) is running it
    Nobody,   // suspended and returned: free to be resumed
    Resuming, // claimed by the uXmlParserPause that is resuming it
};

struct MapItem {
    XML_Parser parser;
    void *user;
    Owner owner;
};

// Both are created on first use and live for the rest of the process. The list is only touched
// under the lock; the lock handle itself is published atomically because the first callers may
// race to create it.
std::atomic<uint32_t> gMapLock{0};
uList *gMap = nullptr;

uint32_t mapLock() {
    return pu::core::createMutexOnce(gMapLock);
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

MapItem *itemAt(int32_t pos) {
    return pos < 0 ? nullptr : static_cast<MapItem *>(uListGet(gMap, pos));
}

MapItem *itemOfUser(void *user) {
    return itemAt(findItem([user](const MapItem &item) { return item.user == user; }));
}

MapItem *itemOfParser(XML_Parser parser) {
    return itemAt(findItem([parser](const MapItem &item) { return item.parser == parser; }));
}

// The parse a pause is aimed at: the user's own, or else the most recently started one.
MapItem *pauseTarget(void *user) {
    if (MapItem *own = itemOfUser(user)) {
        return own;
    }
    return itemAt(uListSize(gMap) - 1);
}

void setOwner(XML_Parser parser, Owner owner) {
    pu::core::SemGuard guard(mapLock());
    if (gMap == nullptr) {
        return;
    }
    if (MapItem *item = itemOfParser(parser)) {
        item->owner = owner;
    }
}

void logResumeError(int32_t flag) {
    pu::log::error(pu::log::kXmlParser, "%s, parse xml error parserResult[%d].", "uXmlParserPause",
                   flag);
}

// Runs a parser this caller has claimed. It goes back to nobody when suspended again; otherwise
// the parse is over and the claimant, its only owner now, frees it.
int32_t resumeClaimed(XML_Parser parser, int32_t flag) {
    const XML_Status status = XML_ResumeParser(parser);
    if (status == XML_STATUS_SUSPENDED) {
        setOwner(parser, Owner::Nobody);
        return 0;
    }
    pu::xml::releaseParser(parser);
    if (status == XML_STATUS_ERROR) {
        logResumeError(flag);
        return -1;
    }
    return 0;
}

constexpr int32_t kBusy = -2;

// Caller holds the map lock. Stops the target parse (suspend) and returns the result, or claims a
// suspended parser for the caller to resume and sets claimed. kBusy when the parser is still
// running (a handler resuming its own parse, another thread's parse) or being resumed by someone
// else: its owner finishes and frees it.
int32_t stopOrClaim(void *user, int32_t suspend, XML_Parser &claimed) {
    if (gMap == nullptr || uListSize(gMap) <= 0) {
        return -1;
    }
    MapItem *target = pauseTarget(user);
    if (target == nullptr) {
        return -1;
    }
    if (suspend != 0) {
        return XML_StopParser(target->parser, XML_TRUE);
    }
    if (target->owner != Owner::Nobody) {
        return kBusy;
    }
    target->owner = Owner::Resuming;
    claimed = target->parser;
    return 0;
}

} // namespace

namespace pu::xml {

void releaseParser(XML_Parser parser) {
    pu::core::SemGuard guard(mapLock());
    uXmlParserDelMapItem(parser);
    XML_ParserFree(parser);
}

void leaveSuspended(XML_Parser parser) {
    setOwner(parser, Owner::Nobody);
}

bool registerParser(XML_Parser parser, void *user) {
    if (parser == nullptr) {
        return false;
    }
    auto *item = static_cast<MapItem *>(uMalloc(sizeof(MapItem)));
    if (item == nullptr) {
        return false;
    }
    *item = {parser, user, Owner::Parse};
    pu::core::SemGuard guard(mapLock());
    if (gMap == nullptr) {
        gMap = uListInit(0);
    }
    if (gMap == nullptr || uListAppend(gMap, item) < 0) {
        uFree(item);
        return false;
    }
    return true;
}

} // namespace pu::xml

extern "C" {

void uXmlParserAddMapItem(XML_Parser parser, void *user) {
    (void)pu::xml::registerParser(parser, user);
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
    XML_Parser claimed = nullptr;
    int32_t result = -1;
    {
        pu::core::SemGuard guard(mapLock());
        result = stopOrClaim(user, suspend, claimed);
    }
    if (claimed != nullptr) {
        // Resuming runs the caller's handlers, which must not run under the map lock.
        return resumeClaimed(claimed, suspend);
    }
    if (result == kBusy) {
        logResumeError(suspend);
        return -1;
    }
    return result;
}

void uXmlParserStop(void *user) {
    if (user == nullptr) {
        return;
    }
    pu::core::SemGuard guard(mapLock());
    if (gMap == nullptr) {
        return;
    }
    if (const MapItem *item = itemOfUser(user)) {
        (void)XML_StopParser(item->parser, XML_FALSE);
    }
}

} // extern "C"
