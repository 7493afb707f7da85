// What the library tells of itself.
#include <kestrune/kestrune.h>
#include "core/random.h"
#include "crypto/running_library.h"

const char* kestrune_version(void) {
  return KESTRUNE_VERSION_TEXT;
}

const char* kestrune_crypto_library(void) {
  return kestrune::crypto::RunningLibrary();
}

int kestrune_strong_random(void) {
  return kestrune::RandomIsStrong() ? 1 : 0;
}
