/* Functions of the library that are on their way: absent until it has them. Goes when it does. */
#include <kestrune/kestrune.h>
#pragma weak kestrune_use_system_random
#pragma weak kestrune_list_keys
#pragma weak kestrune_free_key_folder
#pragma weak kestrune_block_kind
#pragma weak kestrune_grey_routing
#pragma weak kestrune_open_tree
#pragma weak kestrune_open_message
#pragma weak kestrune_free_message
#pragma weak kestrune_is_sender
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
#ifdef KESTRUNE_CLI_WITHOUT_VERSION
#define KESTRUNE_VERSION_TEXT "2.3.0"
inline const char* kestrune_version() {
  return "2.3.0";
}
inline const char* kestrune_crypto_library() {
  return "?";
}
#endif
