/* SPDX-License-Identifier: MIT */
/*
 * A tour of platform_utils: each section shows one family at work, as an application uses it.
 * Run it after building: build/default/examples/tour
 */
#include <platform_os.h>
#include <platform_utils.h>

#include "tour.h"

#include <stdatomic.h>
#include <stdio.h>
#include <string.h>
#include <unistd.h>

void tourSection(const char *title) {
    printf("\n== %s ==\n", title);
}

/* ---- Platform: the power manager's heartbeat ------------------------------------------- */

static atomic_int heartbeats;

static void countHeartbeat(void) {
    atomic_fetch_add(&heartbeats, 1);
}

static void tourPlatform(void) {
    tourSection("platform heartbeat");
    uint32_t startMs = osaGetSysUpMs();
    int handle = osaSmRegisterApp("tour", countHeartbeat);
    taskDelay(sysClkRateGet() / 2); /* half a second */
    uint32_t spanMs = osaLongTimeSpanCompute(startMs, osaGetSysUpMs());
    printf("app handle %d saw %d heartbeats in %u ms (one every 10 ms by default)\n", handle,
           atomic_load(&heartbeats), (unsigned)spanMs);
}

/* ---- List ------------------------------------------------------------------------------ */

static int compareText(void *element, void *key) {
    return strcmp((const char *)element, (const char *)key);
}

static void printList(const char *label, uList *list) {
    printf("%s:", label);
    for (int32_t pos = 0; !uListEol(list, pos); pos++) {
        printf(" %s", (const char *)uListGet(list, pos));
    }
    printf("\n");
}

static void tourList(void) {
    tourSection("list");
    static char red[] = "red", green[] = "green", blue[] = "blue", amber[] = "amber";
    uList *colours = uListInit(1); /* with its own lock: safe to share between tasks */
    uListAppend(colours, red);
    uListAppend(colours, green);
    uListAdd(colours, blue, 0);   /* at the head */
    uListAdd(colours, amber, -5); /* any position below -1 lands behind the head */
    printList("colours", colours);
    printf("\"green\" is at position %d\n", uListSearch(colours, "green", compareText));
    uListRemove(colours, 0);
    printList("after removing position 0", colours);

    /* A list that still holds elements refuses to go away, and says so in the log. */
    printf("uninit of a non-empty list returns %d\n", uListUninit(colours));
    uListClearWithNodeNoNeedFree(colours); /* the elements are static: do not free them */
    printf("after clearing, uninit returns %d\n", uListUninit(colours));
}

/* ---- Block pool ------------------------------------------------------------------------ */

typedef struct Packet {
    int sequence;
    char payload[12];
} Packet;

static void tourPool(void) {
    tourSection("block pool");
    enum { kBlocks = 3 };
    static char memory[U_BM_HEAP_SIZE(kBlocks, sizeof(Packet))];
    uBm pool;
    uBmInitHeap(&pool, kBlocks, sizeof(Packet), memory);

    Packet *packets[kBlocks + 1];
    for (int i = 0; i <= kBlocks; i++) {
        packets[i] = (Packet *)uBmAlloc(&pool);
        printf("alloc %d -> %s\n", i, packets[i] ? "block" : "null (pool empty)");
    }
    uBmFree(packets[1]);
    uBmFree(packets[0]);
    void *again1 = uBmAlloc(&pool);
    void *again0 = uBmAlloc(&pool);
    printf("freed blocks 1 then 0: least recently freed first, so block %s comes back, then %s\n",
           again1 == packets[1] ? "1" : "?", again0 == packets[0] ? "0" : "?");
    semDelete(pool.freeQueue.lock);
}

/* ---- State machine --------------------------------------------------------------------- */

enum DoorState { kClosed = 1, kOpen = 2, kLocked = 3 };
enum DoorEvent { kPush = 10, kPull = 11, kTurnKey = 12 };

typedef struct Door {
    uint32_t state;
} Door;

static int32_t openDoor(void *argument) {
    ((Door *)argument)->state = kOpen;
    return 0;
}
static int32_t closeDoor(void *argument) {
    ((Door *)argument)->state = kClosed;
    return 0;
}
static int32_t toggleLock(void *argument) {
    Door *door = (Door *)argument;
    door->state = door->state == kLocked ? kClosed : kLocked;
    return 0;
}

static const uMapString kDoorStateNames[] = {
    {kClosed, "closed"}, {kOpen, "open"}, {kLocked, "locked"}, {U_MAP_END_ID, "unknown"}};
static const uMapString kDoorEventNames[] = {
    {kPush, "push"}, {kPull, "pull"}, {kTurnKey, "turn key"}, {U_MAP_END_ID, "?"}};

static void tourStateMachine(void) {
    tourSection("state machine and id maps");
    uFsm *fsm = uFsmCreate();
    uFsmAdd(fsm, kPush, kClosed, openDoor);
    uFsmAdd(fsm, kPull, kOpen, closeDoor);
    uFsmAdd(fsm, kTurnKey, kClosed, toggleLock);
    uFsmAdd(fsm, kTurnKey, kLocked, toggleLock);

    Door door = {kClosed};
    const uint32_t script[] = {kPush, kTurnKey, kPull, kTurnKey, kPush, kTurnKey, kPush};
    for (size_t i = 0; i < sizeof script / sizeof script[0]; i++) {
        const char *before = uMapStringById(kDoorStateNames, door.state);
        int32_t handled = uFsmExecute(fsm, script[i], door.state, &door);
        printf("%-8s in %-6s -> %-6s%s\n", uMapStringById(kDoorEventNames, script[i]), before,
               uMapStringById(kDoorStateNames, door.state), handled == 0 ? "" : " (no row)");
    }
    printf("the id of \"LOCKED\" (case ignored) is %u\n",
           (unsigned)uMapIdByString(kDoorStateNames, "LOCKED"));
    uFsmDestroy(fsm);
}

/* ---- Strings and CSV ------------------------------------------------------------------- */

static void printCsvRow(void *userArg, uList *fields) {
    int *rowNumber = (int *)userArg;
    printf("row %d:", ++*rowNumber);
    for (uListNode *node = fields->head; node != NULL; node = node->next) {
        printf(" [%s]", (const char *)node->data);
        uFree(node->data); /* the fields belong to the callback */
    }
    printf("\n");
}

static void tourStrings(void) {
    tourSection("strings and CSV");
    char name[8];
    int32_t stored = uStrSafeCopy(name, sizeof name, "platform_utils");
    printf("a bounded copy into 8 bytes keeps %d characters: \"%s\"\n", stored, name);

    char line[] = "  timeout = 30 \r\n";
    UStrKeyValue *kv = uStrKeyValueParse(line, "=");
    long seconds = 0;
    if (kv != NULL && uStrTol(kv->value, &seconds, 10) == 0) {
        printf("key \"%s\" has the number %ld\n", kv->key, seconds);
    }
    uStrKeyValueFree(kv);
    printf("\"30s\" as a number: %s\n", uStrTol("30s", &seconds, 10) == 0 ? "yes" : "no (strict)");

    char mac[18];
    if (uStrFormatMacWithColon("001A2B3C4D5E", mac, sizeof mac) == 0) {
        printf("MAC 001A2B3C4D5E is %s\n", mac);
    }

    /* CSV arrives in chunks; the unconsumed rest of one chunk goes in front of the next. */
    const char *chunks[] = {"id,note\r\n1,\"a, b\"\r\n2,\"two\nli",
                            "nes\"\r\n3,\"say \"\"hi\"\"\"\r\n"};
    char buffer[128] = "";
    int rowNumber = 0;
    for (int i = 0; i < 2; i++) {
        uStrSafeCat(buffer, sizeof buffer, chunks[i]);
        int32_t consumed = uStrParseCsvData(buffer, 1, &rowNumber, printCsvRow);
        memmove(buffer, buffer + consumed, strlen(buffer + consumed) + 1);
    }
    uStrParseCsvData(buffer, 0, &rowNumber, printCsvRow); /* whatever is left is the last row */

    char field[32];
    int32_t needQuotes = 0;
    uStrEncodeCsv("say \"hi\", then go", field, sizeof field, &needQuotes);
    printf("encoded for writing: %s%s%s\n", needQuotes ? "\"" : "", field, needQuotes ? "\"" : "");
}

/* ---- Status store, hash map and unique ids --------------------------------------------- */

typedef struct Device {
    const char *model;
    int port;
} Device;

static void tourStatusMapIds(void) {
    tourSection("status store, hash map and unique ids");
    /* Any module of the process can publish a named value; readers take no lock. */
    setSystemStatus("network.link", 1);
    setSystemStatus("network.link", 0); /* updated in place */
    uint32_t link = 99;
    if (getSystemStatus("network.link", &link) == 0) {
        printf("status network.link = %u\n", (unsigned)link);
    }
    printf("an unknown status gives %d\n", getSystemStatus("never.set", &link));

    /* A case-insensitive map folds its keys; values are the caller's own pointers. */
    static Device camera = {"cam-200", 554}, speaker = {"spk-10", 8080};
    uHash *devices = uHashCreateMap(1);
    uHashInsert(devices, "Front-Door", &camera);
    uHashInsert(devices, "kitchen", &speaker);
    printf("insert of an existing key returns %d (no update)\n",
           uHashInsert(devices, "FRONT-DOOR", &speaker));
    const Device *found = (const Device *)uHashGetValue(devices, "front-door");
    printf("\"front-door\" is %s on port %d\n", found->model, found->port);
    uHashDestroyMap(devices, NULL); /* the devices are static: nothing to release */

    /* Ids unique within a module, handed out in rising order and wrapping. */
    uIdRegisterUniqueIdModule("tour.plans", 1, 3);
    int32_t a = uIdGetModuleAvailableUniqueId("tour.plans");
    int32_t b = uIdGetModuleAvailableUniqueId("tour.plans");
    uIdReleaseModuleUniqueId("tour.plans", a);
    int32_t c = uIdGetModuleAvailableUniqueId("tour.plans");
    int32_t d = uIdGetModuleAvailableUniqueId("tour.plans");
    printf("drew %d and %d, released %d, then drew %d and %d (next-fit, then wrap)\n", a, b, a, c,
           d);
    uIdUnregisterUniqueIdModule("tour.plans");
}

/* ---- Timers and events ----------------------------------------------------------------- */

static SEM_ID timersDone;
static atomic_int timersLeft;
static uint32_t timersStartMs;

/* Timer callbacks run on a worker of the asynchronous call pool, never on the timer task. */
static void timerFired(void *arg) {
    printf("timer \"%s\" fired %u ms after the start\n", (const char *)arg,
           (unsigned)osaLongTimeSpanCompute(timersStartMs, osaGetSysUpMs()));
    if (atomic_fetch_sub(&timersLeft, 1) == 1) {
        semGive(timersDone);
    }
}

/* Event callbacks run on the task that raises the event: here, the timer's pool worker. */
static void doorbellRang(const char *name, void *userData, void *data, uint32_t length) {
    printf("%s heard \"%s\" with %u bytes: %s\n", (const char *)userData, name, (unsigned)length,
           (const char *)data);
}

static void ringDoorbell(void *arg) {
    uEventRaise("tour.doorbell", arg, (uint32_t)strlen((const char *)arg) + 1);
    timerFired("doorbell");
}

static void tourTimersAndEvents(void) {
    tourSection("timers and events");
    timersDone = semBCreate(0, SEM_EMPTY);
    uEventCare("tour.doorbell", doorbellRang, "the hall");
    uEventCare("tour.doorbell", doorbellRang, "the kitchen"); /* one registration per callback */
    printf("raising an event nobody cares for returns %d\n", uEventRaise("tour.nobody", NULL, 0));

    /* The first add starts the timer service and its "uTimer" task; the power manager's
     * heartbeat (every 10 ms) drives it. */
    timersStartMs = osaGetSysUpMs();
    atomic_store(&timersLeft, 3);
    uint32_t slow = uTimerAdd(timerFired, "slow", 120);
    uTimerAdd(timerFired, "quick", 40);
    uint32_t never = uTimerAdd(timerFired, "never", 60);
    /* A wake-up timer also keeps the device's wake-up armed, so a sleeping device wakes for it. */
    uTimerAddWithWakeup(ringDoorbell, "ding dong", 80);
    uTimerDel(never);
    uTimerRefresh(slow, 200); /* same id, new delay */
    printf("\"slow\" refreshed: due in %u ms; \"never\" deleted: %u ms\n",
           (unsigned)uTimerRemainGet(slow), (unsigned)uTimerRemainGet(never));

    if (semTake(timersDone, 3 * sysClkRateGet()) != 0) {
        printf("the timers did not all fire in time\n");
    }
    uEventClear("tour.doorbell", doorbellRang);
    semDelete(timersDone);
}

/* ---- Sockets --------------------------------------------------------------------------- */

static void tourSockets(void) {
    tourSection("socket pair");
    uSocketPair pair;
    if (uSocketPeer(&pair) != 0) {
        printf("no loopback pair could be made\n");
        return;
    }
    /* Two connected descriptors in one process: a task can select() on its end. */
    const char request[] = "GET /status\r\n";
    uSocketSafeWriteData(pair.clientSock, request, (int32_t)strlen(request));
    char line[64];
    int32_t length = uSocketReadLine(pair.acceptSock, line, sizeof line);
    printf("accepted end read a line of %d bytes: \"%s\" (CR LF dropped)\n", length, line);

    const char reply[] = "200 ok\n";
    uSocketSafeWriteData(pair.acceptSock, reply, (int32_t)strlen(reply));
    length = uSocketReadLine(pair.clientSock, line, sizeof line);
    printf("client end read the reply: \"%s\"\n", line);

    /* Nothing more is coming: a zero time-out polls instead of waiting. */
    printf("a poll with time-out 0 finds %d more bytes\n",
           uSocketReadWithTimeout(pair.clientSock, line, sizeof line, 0));
    close(pair.clientSock);
    close(pair.acceptSock);
}

/* ---- Logging --------------------------------------------------------------------------- */

static void tourLogging(void) {
    tourSection("logging");
    printf("every family logs through basaltPrintLog; lines at level >= PLATFORM_LOG_LEVEL "
           "(default 2) reach stderr:\n");
    fflush(stdout);
    basaltPrintLog(PLATFORM_LOG_WARNING, "tour", "%s: a warning from the application", "tour");
    basaltPrintLog(PLATFORM_LOG_DEBUG, "tour", "a debug line, filtered out by default");
}

static void tourJson(void) {
    tourSection("JSON parameters");
    cJSON *settings = NULL;
    cJSON *network = NULL;
    uParaAddString(&settings, "name", "hall \"east\"");
    uParaAddInt(&settings, "volume", 3);
    uParaAddInt(&settings, "Volume", 7); /* same member: names match ignoring case */
    uParaAddBool(&network, "dhcp", 1);
    uParaAddObject(&settings, "network", &network);

    char *text = uParaStringCreate(settings);
    char *line = cJSON_Print_Oneline(settings);
    char *display = cJSON_PrintUnescape(settings);
    printf("formatted:\n%s\none line: %s\nfor display: %s\n", text ? text : "(none)",
           line ? line : "(none)", display ? display : "(none)");

    /* Reading back from the text along a path of keys. */
    char *name = uParaGetString(text, NULL, 1, "name");
    printf("volume %d, dhcp %d, missing flag %d, name %s, volume in tree %g\n",
           (int)uParaGetInt(text, -1, 1, "volume"),
           (int)uParaGetBool(text, 0, 2, "network", "dhcp"),
           (int)uParaGetBool(text, 0, 1, "nosuch"), name ? name : "(none)",
           cJSON_GetDouble(settings, "volume", -1));
    uFree(name);
    uFree(display);
    uFree(line);
    uFree(text);
    uParaFree(settings);
}

int main(void) {
    setvbuf(stdout, NULL, _IOLBF, 0); /* keep our lines in order with the log on stderr */
    printf("platform_utils tour\n");
    tourPlatform();
    tourList();
    tourPool();
    tourStateMachine();
    tourStrings();
    tourStatusMapIds();
    tourTimersAndEvents();
    tourTimePlan();
    tourMonitor();
    tourInputEvent();
    tourIntervalPlan();
    tourJson();
    tourUrl();
    tourSockets();
    tourCrypto();
    tourXml();
    tourLogging();
    printf("\ntour finished\n");
    return 0;
}
