// Result codes: 0 is success, every failure is negative. Numbers repeat between subsystems, names do not: each stands in
// the namespace of its subsystem, signer::kNoKeyFile for one. core/result_codes.inc has them all, and what they mean.
#ifndef KESTRUNE_CORE_RESULT_H
#define KESTRUNE_CORE_RESULT_H

namespace kestrune {

using Result = int;

#define KESTRUNE_CODE_OF_ALL(name, number, ...) inline constexpr Result name = number;
#define KESTRUNE_CODE(subsystem, name, number, ...) \
  namespace subsystem {                             \
  inline constexpr Result name = number;            \
  }
#include "core/result_codes.inc"

}  // namespace kestrune

#endif
