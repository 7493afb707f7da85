// Mail text formatting: the two functions that have no C linkage. The others are in kestrune/kestrune.h.
//
// Both work in place and do not know the size of the buffer: it must hold the largest result, which each
// contract gives for a text of L characters. The working copy is overwritten with random bytes. Null does
// nothing; without memory the text stays as it is.
#ifndef KESTRUNE_MAIL_MAIL_TEXT_H
#define KESTRUNE_MAIL_MAIL_TEXT_H

#include "base/export.h"

// Puts each address behind a comma on a continuation line of its own: CR LF and, unless a space follows the
// comma already, a space; also behind a comma in last place.
// Largest result: L + 3 * C + 1 bytes with C commas.
KESTRUNE_API void limiteemails(char* addresses);

// Puts a CR before every LF, also before one that has it already (CR LF becomes CR CR LF; kept so).
// Largest result: L + N + 1 bytes with N line feeds.
KESTRUNE_API void convertlftocrlf(char* text);

#endif
