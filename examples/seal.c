/*
 * Seals a text and files into a transport block, which is what goes to the relay.
 *
 *   make_keys keys/ && seal -r dr.b@service.example -s Bonjour -a scan.pdf keys/ note.txt note.block
 *
 * Every file is looked at before: sealing uses up pads of the keys, and leaves out what it cannot read.
 */
#define _XOPEN_SOURCE 700
#include <stdio.h>
#include <stdlib.h>
#include <string.h>
#include <sys/stat.h>
#include <time.h>
#include <unistd.h>

#include <kestrune/kestrune.h>

static const char kUser[] = "durand"; /* whose personal key seals, and opens */
static const char kSigner[] = "medecin";
static const char kPassPhrase[] = "a_b_c_d";
enum { kLongestAttachment = 1000000, kListBytes = 65536, kDateBytes = 20, kIdBytes = 128 };

static int failed(const char* what, const char* why) {
  fprintf(stderr, "%s: %s\n", what, why);
  return EXIT_FAILURE;
}

static int failed_with(const char* function, long code) {
  fprintf(stderr, "%s: %ld: %s\n", function, code, kestrune_code_text(function, code, NULL));
  return EXIT_FAILURE;
}

/* New; null when it cannot be read, or holds a zero byte, behind which nothing would be sealed. */
static char* read_text(const char* path) {
  struct stat status;
  FILE* file = stat(path, &status) == 0 && S_ISREG(status.st_mode) ? fopen(path, "rb") : NULL; /* no pipes */
  if (file == NULL) return NULL;
  const size_t length = (size_t)status.st_size;
  char* text = calloc(1, length + 1);
  const int whole =
      text != NULL && fread(text, 1, length, file) == length && strlen(text) == length && length > 0;
  fclose(file);
  return whole ? text : (free(text), NULL);
}

/* '|' stands between the paths of the list. */
static int add_attachment(char* list, const char* path) {
  struct stat status;
  if (strchr(path, '|') != NULL || strlen(list) + strlen(path) + 2 > kListBytes) return 0;
  if (access(path, R_OK) != 0 || stat(path, &status) != 0 || !S_ISREG(status.st_mode)) return 0;
  if (status.st_size > kLongestAttachment) return 0;
  if (list[0] != 0) strcat(list, "|");
  strcat(list, path);
  return 1;
}

int main(int argc, char** argv) {
  const char *recipient = "dr.b@service.example", *subject = "Bonjour";
  static char attachments[kListBytes];
  char date[kDateBytes];
  const time_t now = time(NULL);
  struct tm moment = *localtime(&now);
  for (int option; (option = getopt(argc, argv, "r:s:d:a:")) != -1;) {
    if (option == 'r') {
      recipient = optarg;
    } else if (option == 's') {
      subject = optarg;
    } else if (option == 'd') { /* no date is refused by the library */
      const char* end = strptime(optarg, "%Y-%m-%d %H:%M:%S", &moment);
      if (end == NULL || *end != 0) return failed(optarg, "no date like 2026-01-31 23:59:59");
    } else if (option != 'a') {
      argc = 0;
    } else if (!add_attachment(attachments, optarg)) {
      return failed(optarg, "no file to read, or more than 1 MB, or a '|' in its name");
    }
  }
  if (argc - optind != 3)
    return failed(
        "usage",
        "seal [-r RECIPIENT,...] [-s SUBJECT] [-d DATE] [-a FILE]... KEY_FOLDER/ TEXT_FILE BLOCK_FILE");
  const char *folder = argv[optind], *text_file = argv[optind + 1], *block_file = argv[optind + 2];
  char* text = read_text(text_file);
  if (text == NULL) return failed(text_file, "no file to read, or no text");
  strftime(date, sizeof date, "%Y-%m-%d %H:%M:%S", &moment);
  FILE* output = fopen(block_file, "wbx"); /* a new one, made before pads are used up */
  if (output == NULL) return free(text), failed(block_file, "is there, or cannot be written");

  /* Two processes that seal in the same second would otherwise draw the same message identifier. */
  kestrune_use_system_random();
  char sign_password[] = "none"; /* the throw-away signing key has none; the library writes into this text */
  char message_id[kIdBytes];
  unsigned char* block = NULL;
  unsigned long long length = 0;
  const long code = Api2CrypterMem(text, attachments, kUser, kSigner, kPassPhrase, sign_password, folder,
                                   recipient, "", "", kSigner, subject, date, &block, &length, message_id, 0);
  free(text);
  const int is_written = code == 0 && fwrite(block, 1, length, output) == length;
  const int is_whole = fclose(output) == 0 && is_written;
  free(block);
  if (!is_whole) remove(block_file);
  if (code != 0) return failed_with("Api2CrypterMem", code);
  if (!is_whole) return failed(block_file, "cannot be written");
  printf("Sealed for %s: %s\n", kUser, message_id);
  return EXIT_SUCCESS;
}
