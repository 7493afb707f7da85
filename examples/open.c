/*
 * Opens the grey block in a file and shows who wrote it and what is in it, when he who wrote it signed it.
 *
 *   echo a_b_c_d | open message.grey keys/
 *
 * The pass phrase of the personal key comes from standard input: a command line is everybody's to see. SECONDS is
 * the deadline, 60 when none is given.
 */
#define _POSIX_C_SOURCE 200809L
#include <signal.h>
#include <stdio.h>
#include <stdlib.h>
#include <string.h>
#include <sys/stat.h>
#include <unistd.h>

#include <kestrune/kestrune.h>

enum { kPassPhraseBytes = 256, kDeadlineInSeconds = 60 };

static int failed(const char* what, const char* why) {
  fprintf(stderr, "%s: %s\n", what, why);
  return EXIT_FAILURE;
}

static int failed_with(const char* function, long code) {
  fprintf(stderr, "%s: %ld: %s\n", function, code, kestrune_code_text(function, code, NULL));
  return EXIT_FAILURE;
}

static unsigned char* read_file(const char* path, size_t* length) {
  struct stat status;
  FILE* file = stat(path, &status) == 0 && S_ISREG(status.st_mode) ? fopen(path, "rb") : NULL; /* no pipes */
  if (file == NULL) return NULL;
  *length = (size_t)status.st_size;
  unsigned char* bytes = malloc(*length + 1);
  const int whole = bytes != NULL && fread(bytes, 1, *length, file) == *length;
  fclose(file);
  return whole ? bytes : (free(bytes), NULL);
}

/* What the sender wrote may hold anything, also what a terminal would obey. */
static void print_safely(const void* bytes, unsigned long long length) {
  for (const unsigned char* at = bytes; length > 0; --length, ++at) {
    putchar((*at < ' ' && *at != '\n' && *at != '\t') || *at == 127 ? '?' : *at);
  }
}

static void show(const kestrune_message* message) {
  printf("Written by %s:\n", message->red.signer);
  for (size_t i = 0; i < message->texts; ++i) print_safely(message->text[i].data, message->text[i].length);
  for (size_t i = 0; i < message->attachments; ++i) {
    const kestrune_part* file = &message->attachment[i];
    printf("Attached, %llu bytes: ", file->length);
    print_safely(file->name, strlen(file->name)); /* to be read, never to be opened as it is */
    printf("\n");
  }
}

/* Opening a forged block, or one for another key of the same name, may sleep for ever. */
static void out_of_time(int signal_number) {
  static const char kText[] = "opening: out of time\n";
  (void)signal_number;
  (void)!write(STDERR_FILENO, kText, sizeof kText - 1);
  _exit(EXIT_FAILURE);
}

int main(int argc, char** argv) {
  if (argc != 3 && argc != 4) return failed("usage", "open GREY_FILE KEY_FOLDER/ [SECONDS] <PASS_PHRASE");
  size_t length = 0;
  unsigned char* grey = read_file(argv[1], &length);
  if (grey == NULL) return failed(argv[1], "cannot be read");
  /* What checks a signature takes out a transport block's grey one; it alone is opened here. */
  if (kestrune_block_kind(grey, length) != KESTRUNE_GREY_BLOCK) return failed(argv[1], "no grey block");
  char pass_phrase[kPassPhraseBytes] = "";
  if (fgets(pass_phrase, sizeof pass_phrase, stdin) != NULL) pass_phrase[strcspn(pass_phrase, "\n")] = 0;

  kestrune_message* message = NULL;
  signal(SIGALRM, out_of_time);
  alarm(argc == 4 ? (unsigned)strtoul(argv[3], NULL, 10) : kDeadlineInSeconds);
  const long code = kestrune_open_message(grey, length, argv[2], pass_phrase, &message);
  alarm(0);
  for (volatile char* at = pass_phrase; *at != 0; ++at) *at = 0;
  free(grey);
  if (code != 0) return failed_with("kestrune_open_message", code);
  /* Nothing is shown under the name of one who has not signed the whole. */
  const int is_senders = message->red.signature == 0 && message->red.by_sender;
  if (is_senders) show(message);
  kestrune_free_message(message);
  return is_senders ? EXIT_SUCCESS : failed("message", "not signed by its sender");
}
