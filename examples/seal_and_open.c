/*
 * Seals the text in a file, takes the grey block out of the transport block, as the relay does, opens it again,
 * as the recipient does, and asks whether its sender is who signed it.
 *
 *   make_keys keys/ && seal_and_open keys/ note.txt [GREY_FILE]
 *
 * The grey block is kept in GREY_FILE; grey_to_eml makes a mail of it.
 */
#include <stdio.h>
#include <stdlib.h>
#include <string.h>

#include <kestrune/kestrune.h>

static const char kUser[] = "durand";
static const char kSigner[] = "medecin";
static const char kPassPhrase[] = "a_b_c_d";

static char* read_text(const char* path) {
  FILE* file = fopen(path, "rb");
  char* text = calloc(1, 65536);
  if (file != NULL && text != NULL) text[fread(text, 1, 65535, file)] = 0;
  if (file != NULL) fclose(file);
  return file == NULL ? (free(text), NULL) : text;
}

static int write_file(const char* path, const unsigned char* bytes, size_t length) {
  FILE* file = fopen(path, "wb");
  if (file == NULL) return 0;
  const int written = fwrite(bytes, 1, length, file) == length;
  return fclose(file) == 0 && written;
}

static int failed(const char* step, long code) {
  fprintf(stderr, "%s: %ld\n", step, code);
  return EXIT_FAILURE;
}

/* The <F> of the opened message's own routing, which is what a reader is shown; left empty when there is none. */
static void read_sender(const char* xml, char* sender) {
  char* routing = malloc(strlen(xml) + 1);
  if (routing == NULL) return;
  if (api2ExtractSmallValueFromXMLLight(xml, "ROUT", 1, routing, 0, 0) == 0) {
    (void)api2ExtractSmallValueFromXMLLight(routing, "F", 1, sender, 0, KESTRUNE_SIGNER_NAME_BYTES - 1);
  }
  free(routing);
}

int main(int argc, char** argv) {
  if (argc != 3 && argc != 4) return failed("usage: seal_and_open KEY_FOLDER/ TEXT_FILE [GREY_FILE]", 0);
  const char* folder = argv[1];
  char* text = read_text(argv[2]);
  if (text == NULL) return failed("text file", 0);

  char sign_password[] = "none"; /* the throw-away signing key has none; the library writes into this text */
  char message_id[128];
  unsigned char* block = NULL;
  unsigned long long length = 0;
  long code =
      Api2CrypterMem(text, "", kUser, kSigner, kPassPhrase, sign_password, folder, "dr.b@service.example", "",
                     "", kSigner, "Bonjour", "2026-01-31 23:59:59", &block, &length, message_id, 0);
  free(text);
  if (code != 0) return failed("sealing", code);
  printf("Sealed for %s.\n", kUser);

  unsigned char* grey = NULL;
  unsigned long long grey_length = 0;
  char signer[KESTRUNE_SIGNER_NAME_BYTES];
  code = Api2ExtractGrisFromHTTPSBlock(block, length, folder, &grey, &grey_length, signer);
  free(block);
  if (code != 0) return failed("checking the transport block", code);
  printf("The signature of %s holds.\n", signer);
  if (argc == 4 && !write_file(argv[3], grey, grey_length)) return failed("grey file", 0);

  char* xml = NULL;
  code = Api2DecrypterGrisMem(grey, grey_length, folder, kPassPhrase, &xml);
  free(grey);
  if (code != 0) return failed("opening", code);
  char sender[KESTRUNE_SIGNER_NAME_BYTES] = "";
  read_sender(xml, sender);
  /* Nothing of a message is shown under a name that is not the signer's. */
  if (!kestrune_is_sender(signer, sender)) return failed("the sender is not who signed", 0);
  printf("The sender is %s.\n", sender);
  const char* message = strstr(xml, "<TEXT>");
  if (message != NULL) printf("Opened: %.40s...\n", message);
  memset(xml, 0, strlen(xml));
  free(xml);
  return message == NULL ? EXIT_FAILURE : EXIT_SUCCESS;
}
