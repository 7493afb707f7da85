/* The library's interface, found without a flag: see api/kestrune.h. */
#include "api/kestrune.h"
