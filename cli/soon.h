/* Functions of the library that are on their way: absent until it has them. Goes when it does. */
#include <kestrune/kestrune.h>
#ifdef KESTRUNE_CLI_WITHOUT_CODES
struct kestrune_code_meaning {
  long code;
  const char* name;
  const char* subsystem;
  const char* cause;
  const char* remedy;
};
inline const kestrune_code_meaning* kestrune_code_find(const char*, long, const char*) {
  return nullptr;
}
inline const kestrune_code_meaning* kestrune_code_list(long, unsigned long, const char*) {
  return nullptr;
}
#endif
