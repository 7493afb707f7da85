/*
 * Opens the grey block in a file and writes the message as a mail, which any mail program reads.
 *
 *   echo a_b_c_d | grey_to_eml message.grey keys/ message.eml
 *
 * A message that its sender has not signed as a whole is not written: the mail would say "From:" somebody else.
 * The pass phrase of the personal key comes from standard input: a command line is everybody's to see. SECONDS is
 * the deadline, 60 when none is given.
 */
#define _POSIX_C_SOURCE 200809L
#include <fcntl.h>
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

static void wipe(char* text, size_t length) {
  volatile char* at = text;
  while (length-- > 0) *at++ = 0;
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

/* A mail is clear text: a new file, its owner's alone. One that is there already is not written over. */
static int write_mail(const char* path, const char* eml) {
  const int descriptor = open(path, O_WRONLY | O_CREAT | O_EXCL, S_IRUSR | S_IWUSR);
  FILE* file = descriptor < 0 ? NULL : fdopen(descriptor, "wb");
  if (file == NULL) return 0;
  const int written = fputs(eml, file) >= 0;
  return fclose(file) == 0 && written;
}

/* Opening a forged block, or one for another key of the same name, may sleep for ever. */
static void out_of_time(int signal_number) {
  static const char kText[] = "opening: out of time\n";
  (void)signal_number;
  (void)!write(STDERR_FILENO, kText, sizeof kText - 1);
  _exit(EXIT_FAILURE);
}

/* Once to ask who signed it, once for the tree of which mails are made. */
static int open_and_convert(const unsigned char* grey, size_t length, const char* folder,
                            const char* pass_phrase, char** eml) {
  kestrune_message* message = NULL;
  long code = kestrune_open_message(grey, length, folder, pass_phrase, &message);
  if (code != 0) return failed_with("kestrune_open_message", code);
  const int is_senders = message->red.signature == 0 && message->red.by_sender;
  kestrune_free_message(message);
  if (!is_senders) return failed("message", "not signed by its sender");

  TypV2BlockCell* red = NULL;
  code = kestrune_open_tree(grey, length, folder, pass_phrase, &red);
  if (code != 0) return failed_with("kestrune_open_tree", code);
  code = Api2ConvertRedBlockToEml(red, eml); /* the tree ends here, whatever comes out */
  if (code != 0) return failed_with("Api2ConvertRedBlockToEml", code);
  return *eml != NULL ? EXIT_SUCCESS : failed("message", "no routing in it");
}

int main(int argc, char** argv) {
  if (argc != 4 && argc != 5)
    return failed("usage", "grey_to_eml GREY_FILE KEY_FOLDER/ EML_FILE [SECONDS] <PASS_PHRASE");
  size_t length = 0;
  unsigned char* grey = read_file(argv[1], &length);
  if (grey == NULL) return failed(argv[1], "cannot be read");
  char pass_phrase[kPassPhraseBytes] = "";
  if (fgets(pass_phrase, sizeof pass_phrase, stdin) != NULL) pass_phrase[strcspn(pass_phrase, "\n")] = 0;

  char* eml = NULL;
  signal(SIGALRM, out_of_time);
  alarm(argc == 5 ? (unsigned)strtoul(argv[4], NULL, 10) : kDeadlineInSeconds);
  int status = open_and_convert(grey, length, argv[2], pass_phrase, &eml);
  alarm(0);
  wipe(pass_phrase, sizeof pass_phrase);
  free(grey);
  if (status == EXIT_SUCCESS && !write_mail(argv[3], eml))
    status = failed(argv[3], "is there, or cannot be written");
  if (eml != NULL) wipe(eml, strlen(eml));
  free(eml);
  return status;
}
