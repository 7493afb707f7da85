// Where the library's random numbers come from.
#include <kestrune/kestrune.h>
#include "core/random.h"

void kestrune_use_system_random(void) {
  kestrune::UseSystemRandom();
}
