/* A program in C that somebody else would write: it finds the library with pkg-config and needs one header. */
#include <kestrune/kestrune.h>
#include <stdio.h>

int main(void) {
  char hex[65];
  int rc = BuildHexPassword((const unsigned char*)"a-b", (unsigned char*)hex);
  if (rc != 0) {
    return 1;
  }
  printf("%s\n", hex);
  return 0;
}
