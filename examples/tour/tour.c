/*
 * A tour of platform_utils: each section shows one family at work, as an application uses it.
 * Run it after building: build/default/examples/tour
 */
#include <platform_os.h>
#include <platform_utils.h>

#include <stdatomic.h>
#include <stdio.h>
#include <string.h>
#include <unistd.h>

static void section(const char *title) {
    printf("\n== %s ==\n", title);
}

/* ---- Platform: the power manager's heartbeat ------------------------------------------- */

static atomic_int heartbeats;

static void countHeartbeat(void) {
    atomic_fetch_add(&heartbeats, 1);
}

static void tourPlatform(void) {
    section("platform heartbeat");
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
    section("list");
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
    section("block pool");
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
    section("state machine and id maps");
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

/* ---- Sockets --------------------------------------------------------------------------- */

static void tourSockets(void) {
    section("socket pair");
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
    section("logging");
    printf("every family logs through basaltPrintLog; lines at level >= PLATFORM_LOG_LEVEL "
           "(default 2) reach stderr:\n");
    fflush(stdout);
    basaltPrintLog(PLATFORM_LOG_WARNING, "tour", "%s: a warning from the application", "tour");
    basaltPrintLog(PLATFORM_LOG_DEBUG, "tour", "a debug line, filtered out by default");
}

int main(void) {
    setvbuf(stdout, NULL, _IOLBF, 0); /* keep our lines in order with the log on stderr */
    printf("platform_utils tour\n");
    tourPlatform();
    tourList();
    tourPool();
    tourStateMachine();
    tourSockets();
    tourLogging();
    printf("\ntour finished\n");
    return 0;
}
