/* A program in C that somebody else would write: it needs one header. */
#include <kestrune/kestrune.h>
#include <stdio.h>
#include <string.h>

int main(void) {
  char hex[65];
  if (BuildHexPassword((const unsigned char*)"a-b", (unsigned char*)hex) != 0) return 1;
  if (strcmp(kestrune_version(), KESTRUNE_VERSION_TEXT) != 0) return 1;
  printf("%s %d %s %d\n", hex, KESTRUNE_VERSION, kestrune_crypto_library(), kestrune_strong_random());
  return 0;
}
