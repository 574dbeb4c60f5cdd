/* SPDX-License-Identifier: MIT */
/* A user's program: built against the installed package, it uses both libraries. */
#include <platform_utils.h>
#include <platform_os.h>

#include <stdio.h>
#include <string.h>

int main(void) {
    uList *list = uListInit(1);
    static char a[] = "alpha", b[] = "beta";
    uListAppend(list, a);
    uListAdd(list, b, 0);
    const char *first = (const char *)uListGet(list, 0);
    int ok = uListSize(list) == 2 && strcmp(first, "beta") == 0;
    uListClearWithNodeNoNeedFree(list);
    ok = ok && uListUninit(list) == 0;
    ok = ok && sysClkRateGet() == 100;
    /* cJSON itself comes with the package: its parser and our additions over its tree. */
    cJSON *tree = cJSON_Parse("{\"n\":5,\"s\":\"x\"}");
    char *line = cJSON_Print_Oneline(tree);
    ok = ok && cJSON_GetInt(tree, "n", 0) == 5 && line != NULL &&
         strcmp(line, "{ \"n\":\t5, \"s\":\t\"x\" }") == 0;
    uFree(line);
    cJSON_Delete(tree);
    printf("consumer: %s\n", ok ? "ok" : "FAILED");
    return ok ? 0 : 1;
}
