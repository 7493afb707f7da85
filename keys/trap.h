// Where a malformed body ends.
#ifndef KESTRUNE_KEYS_TRAP_H
#define KESTRUNE_KEYS_TRAP_H

namespace kestrune {

// Sleeps and never returns, whatever signals arrive. The definition is weak: a program that must go on (a
// test, a fuzz target) defines its own in its place; if that one returns, the operation returns its code.
void SleepForEver();

}  // namespace kestrune

#endif
