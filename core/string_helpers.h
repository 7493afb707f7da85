// The library's text functions.
//
// The copying and appending ones carry a size that they ignore: they are unbounded, and each caller has
// compared lengths before. The size documents intent only.
#ifndef KESTRUNE_CORE_STRING_HELPERS_H
#define KESTRUNE_CORE_STRING_HELPERS_H

#include "base/export.h"

// Copies `source` with its terminator; returns `destination`.
KESTRUNE_API char* ApiV2Mystrcpy(char* destination, const char* source, unsigned long long size);
KESTRUNE_API char* ApiV2Myoldstrcpy(char* destination, const char* source);

// Appends `source` to the text in `destination`; returns `destination`.
KESTRUNE_API char* ApiV2Mystrcat(char* destination, const char* source, unsigned long long size);
KESTRUNE_API char* ApiV2Myoldstrcat(char* destination, const char* source);

// *destination becomes a copy of `source` from malloc, owned by the caller. Returns its bytes, the
// terminator counted; 0 when an argument is null (nothing stored) or there is no memory (null stored).
KESTRUNE_API unsigned long long ApiV2InitCcharstringWithConst(char** destination, const char* source);

// Overwrites the first `size` bytes of a block from malloc with zeros and frees it. Null does nothing.
KESTRUNE_API void ApiV2MyFreeClear(void* block, unsigned long long size);

// Appends `count` bytes at *position of a zeroed buffer when *position + count + 1 < capacity, and
// advances *position; otherwise does nothing and says nothing.
KESTRUNE_API void ApiV2Mystrpush(char* buffer, unsigned long long capacity, unsigned long long* position,
                                 const char* bytes, unsigned long long count);

// Lower-cases at most `length` characters in place, up to the terminator. Null does nothing.
KESTRUNE_API void lowercasecharstring(char* string, unsigned long long length);

namespace kestrune {
// The C library's lower-casing of one character; in a namespace, so that the two do not collide.
KESTRUNE_API char tolower(char character);
}  // namespace kestrune

// Cut `source` at its first ',' (or '@'): `first` gets what stands before it, `second` what follows up to
// the next one or the end. Both are terminated; each needs as much room as the source. Null arguments:
// what is there of the outputs is emptied.
KESTRUNE_API void splitvirgule(const char* source, char* first, char* second);
KESTRUNE_API void splitat(const char* source, char* first, char* second);

#endif
