// Draws one key for a text and prints it (Api2AesPub tells it before it looks for the certificate).
#include <kestrune/kestrune.h>

int main() {
  char form[64];
  return Api2AesPub("x", "none.pem", "/nowhere/", form, 1) == -501 ? 0 : 1;
}
