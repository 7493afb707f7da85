// The one place where the library draws random numbers (save the blinding inside crypto/).
//
// The draws come from the C library's rand(), because what is drawn, and that a process draws the same
// after the same seed, is part of the contract. Where the program asks for it, or the library is built with
// KESTRUNE_STRONG_RANDOM, the same functions draw from the system's generator instead and seeding does nothing.
// Any thread may call these functions; all share one generator.
#ifndef KESTRUNE_CORE_RANDOM_H
#define KESTRUNE_CORE_RANDOM_H

#include <cstddef>

namespace kestrune {

// From now on the system's generator answers, in the whole process and for good.
void UseSystemRandom();
// Whether it does.
bool RandomIsStrong();

// One draw, from 0 to RAND_MAX.
int DrawRandom();

// Seeds the generator with the current time in seconds.
void SeedRandomWithTime();

// Overwrites `count` bytes with the low 8 bits of one draw each; for what held clear text and is about to
// be freed. Not removed by the optimiser.
void ScrubWithRandom(void* bytes, std::size_t count);

}  // namespace kestrune

#endif
