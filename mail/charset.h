// Character sets: Windows Latin, Mac OS Roman, Unicode.
//
// convertisolatinversmacroman, copyTextUtf8ToLongStr and the table MacRomanToUnicode have plain C linkage:
// they are in kestrune/kestrune.h.
//
// A long string is an array of `long` (signed, 64 bits), one code point each, ended by a 0. A maximum counts
// elements without that 0, so a destination needs room for one more. A maximum below 0 counts as 0. Nothing
// here allocates. What is only read is no `const` here: argument types are part of a function's name for the
// linker, and programs know these names.
#ifndef KESTRUNE_MAIL_CHARSET_H
#define KESTRUNE_MAIL_CHARSET_H

#include "base/export.h"

// Replaces a Mac Roman byte from 128 to 255 by its code point; any other value stays. Null does nothing.
KESTRUNE_API void convertMacCharToUnicode(long* character);

// Converts Mac Roman text, up to its zero byte or `maximum` characters, into a long string. Returns
// `destination` (null does nothing); a null source gives an empty one.
KESTRUNE_API long* convertMacStrToUnicodeLongStr(long* destination, unsigned char* source, long maximum);

// Copies at most `maximum` elements and ends the copy. A null source gives an empty one; a null destination
// does nothing.
KESTRUNE_API void copyTextLong(long* destination, long* source, long maximum);

// Rewrites a long string in its own memory as zero-terminated UTF-8 and returns its address. An element
// below 0 or from 0x200000 becomes the byte 1; surrogates and what lies between 0x110000 and 0x1FFFFF are
// encoded like any other (kept so). Stops at 2,000,000,000 bytes. Null does nothing.
KESTRUNE_API char* convertLongStrToUtf8(long* string);

// 1 when both are null or both hold the same elements, else 0.
KESTRUNE_API int longStrEqual(long* a, long* b);

#endif
