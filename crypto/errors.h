// From the library's error numbers to the classic ones. For the sources of this folder alone.
#ifndef KESTRUNE_CRYPTO_ERRORS_H
#define KESTRUNE_CRYPTO_ERRORS_H

namespace kestrune::crypto {

// Codes without a classic number stay as they are; 0 stays 0. Lack of memory at any depth is ERR_NO_MEMORY.
int ToClassicError(int library_error);

// The classic number of lack of memory, or `otherwise` for every other failure.
int NoMemoryOr(int otherwise, int library_error);

}  // namespace kestrune::crypto

#endif
