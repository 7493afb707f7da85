/* What throughput.py compares with; opening, which may never return, is done in a process of its own, as in Python: throughput KEY_FOLDER/ BYTES ROUNDS prints the least seconds of sealing, checking, opening. */
#define _DEFAULT_SOURCE
#include <stdio.h>
#include <stdlib.h>
#include <string.h>
#include <sys/mman.h>
#include <sys/resource.h>
#include <sys/wait.h>
#include <time.h>
#include <unistd.h>

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

/* The text comes back in memory that both share. */
static void open_apart(const unsigned char* grey, unsigned long long length, const char* folder,
                       double* least) {
  const double from = now();
  unsigned char* const answer = mmap(NULL, length, PROT_READ | PROT_WRITE, MAP_SHARED | MAP_ANONYMOUS, -1, 0);
  const pid_t child = answer == MAP_FAILED ? -1 : fork();
  if (child < 0) exit(1);
  if (child == 0) {
    kestrune_message* message = NULL;
    if (kestrune_open_message(grey, length, folder, "a_b_c_d", &message) != 0) _exit(1);
    memcpy(answer, message->text[0].data, message->text[0].length);
    kestrune_free_message(message);
    _exit(0);
  }
  int status = 1;
  struct rusage used;
  if (wait4(child, &status, 0, &used) != child || status != 0) exit(1);
  void* const text = malloc(length);
  if (text != NULL) memcpy(text, answer, length);
  munmap(answer, length);
  free(text);
  const double child_took = (double)(used.ru_utime.tv_sec + used.ru_stime.tv_sec) +
                            (double)(used.ru_utime.tv_usec + used.ru_stime.tv_usec) / 1e6;
  keep_least(least, from - child_took);
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
    double from = now();
    if (Api2CrypterMem(text, "", "durand", "medecin", "a_b_c_d", signing, argv[1], "b", "", "", "medecin",
                       "s", "2031-01-31 23:59:59", &block, &length, id, 0) != 0)
      return 1;
    keep_least(&seal, from);
    from = now();
    if (Api2ExtractGrisFromHTTPSBlock(block, length, argv[1], &grey, &grey_length, signer) != 0) return 1;
    keep_least(&check, from);
    open_apart(grey, grey_length, argv[1], &open);
    free(block);
    free(grey);
  }
  free(text);
  printf("%.9f %.9f %.9f\n", seal, check, open);
  return 0;
}
