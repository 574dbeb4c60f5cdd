// SPDX-License-Identifier: MIT
// Internals shared by the XML parse functions and the parse map.
#pragma once

#include <expat.h>
#include <uxmlparser.h>

#include <type_traits>

namespace pu::xml {

// Our public handler types are expat's, so callers can hand over handlers written for expat.
static_assert(std::is_same_v<uXmlStartElementHandler, XML_StartElementHandler>);
static_assert(std::is_same_v<uXmlEndElementHandler, XML_EndElementHandler>);
static_assert(std::is_same_v<uXmlCharacterDataHandler, XML_CharacterDataHandler>);
static_assert(std::is_same_v<struct XML_ParserStruct *, XML_Parser>);

// Enters parser in the map for user, so that uXmlParserPause and uXmlParserStop reach it.
// False when memory runs out: the parser is then not entered.
bool registerParser(XML_Parser parser, void *user);

// Removes parser's map entry and frees it, under the map lock, so that a uXmlParserPause or
// uXmlParserStop running on another thread never reaches a freed parser.
void releaseParser(XML_Parser parser);

// Hands a parser whose parse function is returning with it suspended over to uXmlParserPause,
// which may resume it from then on (and never before: a handler's parse is still running).
void leaveSuspended(XML_Parser parser);

} // namespace pu::xml
