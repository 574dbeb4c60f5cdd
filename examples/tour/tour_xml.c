/* SPDX-License-Identifier: MIT */
/* The XML section of the tour: a loosely written document (a bare "&" in a URL) still parses,
 * and a handler suspends the parse and the application resumes it. */
#include <platform_utils.h>

#include "tour.h"

#include <stdio.h>
#include <string.h>

struct XmlTour {
    char link[128];
    int inLink;
    int elements;
};

static void xmlStart(void *user, const char *name, const char **attributes) {
    struct XmlTour *tour = user;
    tour->elements++;
    tour->inLink = strcmp(name, "link") == 0;
    if (tour->inLink) {
        tour->link[0] = '\0';
    }
    for (const char **a = attributes; *a != NULL; a += 2) {
        printf("  <%s> attribute %s=\"%s\"\n", name, a[0], a[1]);
    }
    if (strcmp(name, "pause-here") == 0) {
        /* A handler may suspend its own parse; the parse function then returns 0 at once. */
        printf("  suspending at <%s>: %d\n", name, (int)uXmlParserPause(user, 1));
    }
}

static void xmlText(void *user, const char *text, int length) {
    struct XmlTour *tour = user;
    if (tour->inLink) {
        /* Text may come in several pieces; keep what fits. */
        size_t used = strlen(tour->link);
        size_t room = sizeof tour->link - 1 - used;
        size_t n = (size_t)length < room ? (size_t)length : room;
        memcpy(tour->link + used, text, n);
        tour->link[used + n] = '\0';
    }
}

static void xmlEnd(void *user, const char *name) {
    struct XmlTour *tour = user;
    if (strcmp(name, "link") == 0) {
        printf("  <link> text: %s\n", tour->link);
        tour->inLink = 0;
    }
}

void tourXml(void) {
    tourSection("XML parsing");
    /* Neither "&" below is a reference; expat alone would reject the document. */
    const char *doc = "<item title=\"Q&A\">"
                      "<link>http://device.local/cgi?cmd=status&amp;verbose=1&page=2</link>"
                      "<pause-here/><done/></item>\r\n--end\r\n";
    struct XmlTour tour = {{0}, 0, 0};
    int32_t result = uXmlParseFromBuf(doc, "--end", &tour, xmlStart, xmlText, xmlEnd);
    printf("parse returned %d after %d elements (suspended)\n", (int)result, tour.elements);
    result = uXmlParserPause(&tour, 0);
    printf("resume returned %d; %d elements in all; the \"--end\" trailer was cut off\n",
           (int)result, tour.elements);

    uXmlParserAmpState state;
    memset(&state, 0, sizeof state);
    char out[64];
    int32_t count = 0;
    const char *piece = "a&b &lt; &#x26; &nbsp;";
    uXmlParserEscapeAmpersands(piece, (int32_t)strlen(piece), out, &count, sizeof out, &state, 1);
    printf("repair of \"%s\": \"%.*s\"\n", piece, (int)count, out);
}
