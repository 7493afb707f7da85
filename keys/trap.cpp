#include "keys/trap.h"

#include <unistd.h>

namespace kestrune {

[[gnu::weak]] void SleepForEver() {
  for (;;) ::pause();
}

}  // namespace kestrune
