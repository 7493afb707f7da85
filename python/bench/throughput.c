/* What throughput.py compares with: throughput KEY_FOLDER/ BYTES ROUNDS prints the least seconds of sealing, checking, opening. */
#include <stdio.h>
#include <stdlib.h>
#include <string.h>
#include <time.h>

#include <kestrune/kestrune.h>

static double now(void) {
  struct timespec at;
  clock_gettime(CLOCK_PROCESS_CPUTIME_ID, &at);
  return (double)at.tv_sec + (double)at.tv_nsec / 1e9;
}

static void keep_least(double* least, double from) {
  const double took = now() - from;
  if (took < *least) *least = took;
}

int main(int argc, char** argv) {
  if (argc != 4) return 2;
  const size_t bytes = strtoul(argv[2], NULL, 10);
  char* text = malloc(bytes + 1);
  if (text == NULL) return 1;
  memset(text, 'a', bytes);
  text[bytes] = 0;
  kestrune_use_system_random();
  double seal = 1e9, check = 1e9, open = 1e9;
  for (int round = atoi(argv[3]); round > 0; --round) {
    char signing[] = "none", id[128], signer[KESTRUNE_SIGNER_NAME_BYTES];
    unsigned char *block = NULL, *grey = NULL;
    unsigned long long length = 0, grey_length = 0;
    kestrune_message* message = NULL;
    double from = now();
    if (Api2CrypterMem(text, "", "durand", "medecin", "a_b_c_d", signing, argv[1], "b", "", "", "medecin",
                       "s", "2031-01-31 23:59:59", &block, &length, id, 0) != 0)
      return 1;
    keep_least(&seal, from);
    from = now();
    if (Api2ExtractGrisFromHTTPSBlock(block, length, argv[1], &grey, &grey_length, signer) != 0) return 1;
    keep_least(&check, from);
    from = now();
    if (kestrune_open_message(grey, grey_length, argv[1], "a_b_c_d", &message) != 0) return 1;
    kestrune_free_message(message);
    keep_least(&open, from);
    free(block);
    free(grey);
  }
  free(text);
  printf("%.9f %.9f %.9f\n", seal, check, open);
  return 0;
}
