// Draws one key for a text and prints it (Api2AesPub tells it before it looks for the certificate); with an argument,
// from the system's generator.
#include <kestrune/kestrune.h>

int main(int argc, char** /*argv*/) {
  if (argc > 1) kestrune_use_system_random();
  char form[64];
  return Api2AesPub("x", "none.pem", "/nowhere/", form, 1) == -501 ? 0 : 1;
}
