/* SPDX-License-Identifier: MIT */
/*
 * uXmlParser: parses an XML document from a string or from a descriptor through a read function,
 * driving the caller's element and character-data handlers with expat. Before the bytes reach
 * expat, every "&" that does not begin a well-formed entity or character reference ("&amp;",
 * "&lt;", "&gt;", "&quot;", "&apos;", "&#<digits>;", "&#x<hex digits>;") is rewritten as
 * "&amp;", so loosely written documents (a URL with a query string in the text) still parse.
 *
 * A process-wide map from the caller's user pointer to the live parser lets a handler suspend,
 * resume or abort the parse that is calling it. Handlers run on the caller's thread; no library
 * lock is held while they run. Two parses that use the same user pointer at once cannot be told
 * apart by the map. Log lines use the module "utils.xmlparser".
 */
#ifndef PLATFORM_UTILS_UXMLPARSER_H
#define PLATFORM_UTILS_UXMLPARSER_H

#include <stdint.h>

#include "uexport.h"

PU_BEGIN_DECLS

/* The expat parser handle (XML_Parser). */
struct XML_ParserStruct;

/* The handler types are expat's own (XML_StartElementHandler, XML_EndElementHandler,
 * XML_CharacterDataHandler), so handlers written for expat can be passed directly. The user
 * pointer is the one given to the parse function; attributes come as a null-terminated array of
 * name, value pairs; character data is not terminated. */
typedef void (*uXmlStartElementHandler)(void *user, const char *name, const char **attributes);
typedef void (*uXmlEndElementHandler)(void *user, const char *name);
typedef void (*uXmlCharacterDataHandler)(void *user, const char *text, int length);

/* Reads up to length bytes from fd into buffer; returns the count, 0 or less at the end.
 * uSocketReadNormalData fits. */
typedef int32_t (*uXmlReadFn)(int32_t fd, void *buffer, int32_t length);

/* Asked after each chunk of uXmlParseFromFdWithDigestAndBreak; returns 0 to stop reading. */
typedef int32_t (*uXmlContinueFn)(void *user);

/* Escape state carried across chunks: a candidate reference that began with "&" and has not
 * been judged yet. Start every document with a zeroed state. */
typedef struct uXmlParserAmpState {
    char pending[16];
    int32_t pendingCount;
} uXmlParserAmpState;

/* ---- Parsing --------------------------------------------------------------------------- */

/* Parses the whole string text. A non-empty trailer found so that it ends two characters before
 * the end of the text (a trailer followed by a line end, say) is cut off with everything after
 * it. Returns 0 when the document parsed, or when a handler suspended the parse with
 * uXmlParserPause(user, 1): then the parser stays alive until uXmlParserPause(user, 0) finishes
 * it. Returns -1 for a null text or user pointer, an empty text, malformed XML, a parse aborted
 * with uXmlParserStop, or allocation failure. */
PU_API int32_t uXmlParseFromBuf(const char *text, const char *trailer, void *user,
                                uXmlStartElementHandler start, uXmlCharacterDataHandler chars,
                                uXmlEndElementHandler end);

/* Parses the document read from fd with readFn in pieces of up to 2048 bytes, until a read
 * returns less than asked. With a non-empty trailer the last strlen(trailer) + 2 bytes of the
 * stream are held back and never parsed (they are not compared with the trailer). A final read
 * that leaves no bytes to parse (a stream that ends exactly on a read boundary) fails. A suspend
 * only takes effect on the last piece (an earlier one makes the next piece fail); then 0 is
 * returned and the parser stays alive as for uXmlParseFromBuf. Returns 0, or -1 for fd below 1,
 * a null readFn or user pointer, nothing read, malformed XML or allocation failure. */
PU_API int32_t uXmlParseFromFd(int32_t fd, uXmlReadFn readFn, const char *trailer, void *user,
                               uXmlStartElementHandler start, uXmlCharacterDataHandler chars,
                               uXmlEndElementHandler end);

/* Like uXmlParseFromFd, but reads each piece afresh (no carry-over), stops after totalLength
 * bytes when it is above 0, computes the MD5 of the bytes handed to the parser into digest (16
 * bytes, written only on success; null for none), and after every piece that is not the last
 * asks shouldContinue (null: always continue), which stops the parse, successfully, by returning
 * 0. With a known length the trailer's strlen + 2 bytes are held back from the end of the
 * declared length; with an unknown length (0 or below) they are dropped from the end of the
 * first piece, which suits documents shorter than 2048 bytes. Returns 0, or -1 as
 * uXmlParseFromFd. */
PU_API int32_t uXmlParseFromFdWithDigestAndBreak(int32_t fd, int32_t totalLength, uXmlReadFn readFn,
                                                 const char *trailer, void *user,
                                                 uXmlStartElementHandler start,
                                                 uXmlCharacterDataHandler chars,
                                                 uXmlEndElementHandler end, unsigned char *digest,
                                                 uXmlContinueFn shouldContinue);

/* ---- Controlling a parse from its handlers --------------------------------------------- */

/* suspend non-zero: suspends the parse of user (call it from one of its handlers); returns
 * expat's result, 1 when suspended, 0 when it cannot be (not parsing, already suspended).
 * suspend 0: resumes a suspended parse, running its handlers on this thread; returns 0 when the
 * document finished or was suspended again, -1 (and frees the parser) on a parse error. Only a
 * parse whose parse function (or an earlier resume) has returned suspended can be resumed: from
 * inside the running parse, or while another thread resumes it, the result is -1 and nothing is
 * freed. When no parse belongs to user, the most recently started live parse is used instead
 * (intended). Returns -1 for a null user pointer or when no parse is live. */
PU_API int32_t uXmlParserPause(void *user, int32_t suspend);

/* Aborts the parse of user for good (call it from one of its handlers): the parse function then
 * returns -1. Does nothing for a null user pointer or when no parse belongs to user. */
PU_API void uXmlParserStop(void *user);

/* ---- The ampersand repair ---------------------------------------------------------------- */

/* Escapes input (inputLength bytes) into output (capacity bytes) and stores the bytes written in
 * *outCount. A candidate reference still open at the end of the input stays in state for the
 * next chunk unless final is non-zero, when it is written out escaped. Returns 0 when done, 1 when
 * the output is full (what was written stays counted), 2 for a null input, output, count or
 * state, a state whose pendingCount is outside 0..16, or a length or capacity of 0 or less. */
PU_API int32_t uXmlParserEscapeAmpersands(const char *input, int32_t inputLength, char *output,
                                          int32_t *outCount, int32_t capacity,
                                          uXmlParserAmpState *state, int32_t final);

/* Escapes input into *output, first growing *output with realloc (it must come from uMalloc or
 * malloc) when *capacity is below what the input can expand to, and updating *capacity.
 * Returns 0, or -1 for an empty or null input, a failed reallocation (the old buffer is kept)
 * or a failed escape. */
PU_API int32_t uXmlParserProcessXmlBufferWithAmp(const char *input, int32_t inputLength,
                                                 char **output, int32_t *outCount,
                                                 int32_t *capacity, uXmlParserAmpState *state,
                                                 int32_t final);

/* Registers parser as the live parse of user in the map (the parse functions do this). A null
 * parser is ignored. The parse counts as running, so uXmlParserPause(user, 0) does not resume
 * it. */
PU_API void uXmlParserAddMapItem(struct XML_ParserStruct *parser, void *user);

/* Removes the map entry of parser, if any (the parse functions do this when a parse ends). */
PU_API void uXmlParserDelMapItem(struct XML_ParserStruct *parser);

PU_END_DECLS

#endif /* PLATFORM_UTILS_UXMLPARSER_H */
