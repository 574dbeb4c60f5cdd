/* SPDX-License-Identifier: MIT */
/* An idle process that has started every family: the services with their tasks and pools, a
 * status entry, a JSON tree, a URL, a digest, a UUID and an XML parse. It reports ready on
 * stdout and then sleeps until killed, so its resident memory can be read. */
#include <platform_os.h>
#include <platform_utils.h>

#include <stdio.h>
#include <string.h>
#include <unistd.h>

static void nothing(void *argument) {
    (void)argument;
}

int main(void) {
    uEventInit();
    uTimerInit(64);
    uTimePlanInit();
    uIntervalPlanInit();
    uMonitorInit();
    uInputEventInit();
    uAsyncCall(nothing, NULL);
    setSystemStatus("idle.ready", 1);
    uList *list = uListInit(1);
    cJSON *tree = uParaCreateObject();
    char url[64] = "http://host/a b";
    uStrUrlEncodeWithRfc(url, sizeof url);
    uint8_t md5[16];
    uDigestMD5((const uint8_t *)"idle", 4, md5, sizeof md5);
    uUuid uuid;
    uUuidGenerateV5("idle", 4, &uuid);
    int user = 0;
    uXmlParseFromBuf("<a>idle</a>", NULL, &user, NULL, NULL, NULL);
    printf("ready\n");
    fflush(stdout);
    for (;;) {
        pause();
    }
    uParaFree(tree);
    uListUninit(list);
    return 0;
}
