#include "base/wipe.h"

#include <cstring>

void wipe(void* bytes, std::size_t count) {
  if (count != 0) ::explicit_bzero(bytes, count);
}
