/* SPDX-License-Identifier: MIT */
/* An application that defines its own basaltPrintLog must receive the library's log lines:
 * the platform operations are reached through the dynamic linker, so this definition wins. */
#include <platform_utils.h>

#include <stdarg.h>
#include <stdio.h>
#include <string.h>

static int calls;
static char lastModule[64];
static char lastMessage[256];
static int lastLevel = -1;

int basaltPrintLog(int level, const char *module, const char *format, ...) {
    va_list args;
    va_start(args, format);
    vsnprintf(lastMessage, sizeof lastMessage, format, args);
    va_end(args);
    snprintf(lastModule, sizeof lastModule, "%s", module);
    lastLevel = level;
    calls++;
    return 0;
}

int main(void) {
    static char element[] = "kept";
    uList *list = uListInit(1);
    uListAppend(list, element);
    if (uListUninit(list) != -1) {
        fprintf(stderr, "uListUninit of a non-empty list did not fail\n");
        return 1;
    }
    if (calls != 1 || lastLevel != 3 || strcmp(lastModule, "basalt.utils.list") != 0 ||
        strcmp(lastMessage, "uListUninit: Uninit list that has nodes not free!") != 0) {
        fprintf(stderr, "logger not interposed: calls=%d level=%d module=%s message=%s\n", calls,
                lastLevel, lastModule, lastMessage);
        return 1;
    }
    uListClearWithNodeNoNeedFree(list);
    uListUninit(list);
    printf("interpose: ok\n");
    return 0;
}
