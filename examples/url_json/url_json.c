/* SPDX-License-Identifier: MIT */
/*
 * Parameters: a device's settings arrive as a URL with a query and leave as JSON.
 * Build it against the installed library:
 *   cc url_json.c $(pkg-config --cflags --libs platform_utils) -o url_json
 */
#include <platform_utils.h>

#include <stdio.h>

static const char *orNone(const char *text) {
    return text != NULL ? text : "(none)";
}

int main(void) {
    const char *request =
        "http://admin:pw@192.168.1.64:8080/config?name=hall+east&volume=7&dhcp=true";
    if (!uParaUrlCheck(request)) {
        printf("not a URL we accept\n");
        return 1;
    }

    /* The URL's parts; every string is the record's, freed with it. */
    UStrUrlPara *url = NULL;
    if (uStrUrlParse(request, &url) != 0) {
        return 1;
    }
    printf("host %s, port %s, path %s\n", orNone(url->host), orNone(url->port), orNone(url->path));

    /* The query as a list of decoded pairs ('+' becomes a space). */
    uList *pairs = uParaUrlQuery(url->query);
    char name[64] = "";
    uParaQueryValueGet(pairs, "NAME", name, sizeof name); /* keys match ignoring case */
    uParaUrlQueryListDestroy(pairs);

    /* The same values straight from the query text, typed. */
    const int32_t volume = uParaUrlGetInt(url->query, "volume", 5);
    const int32_t dhcp = uParaUrlGetBool(url->query, "dhcp", 0);
    uStrUrlParaFree(url);

    /* Into JSON: the adders create the object on first use and replace members by name. */
    cJSON *settings = NULL;
    uParaAddString(&settings, "name", name);
    uParaAddInt(&settings, "volume", volume);
    uParaAddBool(&settings, "dhcp", dhcp);
    char *json = cJSON_Print_Oneline(settings);
    printf("settings: %s\n", orNone(json));

    /* And back out of the text along a path of keys. */
    printf("volume read back: %d\n", (int)uParaGetInt(json, -1, 1, "volume"));
    uFree(json);
    uParaFree(settings);

    /* Credentials never go into a log. */
    char safe[256];
    if (uParaUrlRemoveUserAndPasswd(request, safe, sizeof safe) == 0) {
        printf("logged as: %s\n", safe);
    }

    /* A reply query: spaces become '+', but '&' and '=' inside a value are kept as they are,
     * so keep them out of values. The join consumes the list. */
    uList *reply = uParaUrlInit();
    uParaUrlAddString(reply, "status", "saved and applied");
    uParaUrlAddInt(reply, "volume", volume);
    char *query = uParaUrlStringPtrCreate(reply);
    printf("reply: %s\n", orNone(query));
    uFree(query);
    uParaUrlUnInit(reply);
    return 0;
}
