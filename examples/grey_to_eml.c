/*
 * Opens the grey block in a file and writes the message as a mail, which any mail program reads.
 *
 *   echo a_b_c_d | grey_to_eml message.grey keys/ message.eml martin.z.126
 *
 * The last word is the signer that Api2ExtractGrisFromHTTPSBlock handed out together with this grey block. A mail
 * that says "From:" somebody else is not written.
 * The pass phrase of the personal key comes from standard input: a command line is everybody's to see.
 */
#include <stdio.h>
#include <stdlib.h>
#include <string.h>

#include <kestrune/kestrune.h>

static int failed(const char* step, long code) {
  fprintf(stderr, "%s: %ld\n", step, code);
  return EXIT_FAILURE;
}

/* The mail is clear text. */
static void wipe_and_free(char* text) {
  volatile char* at = text;
  while (*at != 0) *at++ = 0;
  free(text);
}

static int write_text(const char* path, const char* text) {
  FILE* file = fopen(path, "wb");
  if (file == NULL) return 0;
  const int written = fputs(text, file) >= 0;
  return fclose(file) == 0 && written;
}

static long open_grey_block(const char* grey_file, const char* folder, TypV2BlockCell** red) {
  char pass_phrase[256] = "";
  char hex_password[65];
  if (fgets(pass_phrase, sizeof pass_phrase, stdin) != NULL) pass_phrase[strcspn(pass_phrase, "\n")] = 0;
  long code = BuildHexPassword((const unsigned char*)pass_phrase, (unsigned char*)hex_password);
  if (code == 0) code = Api2DecrypterfileGris(grey_file, folder, hex_password, red);
  return code;
}

/* The mail begins with "From: NAME@GATEWAY", when it has a header at all; a gateway has one at-sign. */
static int is_signed_by(const char* eml, const char* signer) {
  static const char kFrom[] = "From: ";
  if (strncmp(eml, kFrom, strlen(kFrom)) != 0) return 0;
  char sender[KESTRUNE_SIGNER_NAME_BYTES] = "";
  const char* name = eml + strlen(kFrom);
  const size_t line = strcspn(name, "\r\n");
  size_t length = 0;
  for (size_t i = 0; i < line; ++i) {
    if (name[i] == '@') length = i;
  }
  if (length >= sizeof sender) return 0;
  memcpy(sender, name, length);
  return kestrune_is_sender(signer, sender);
}

int main(int argc, char** argv) {
  if (argc != 5) return failed("usage: grey_to_eml GREY_FILE KEY_FOLDER/ EML_FILE SIGNER", 0);

  TypV2BlockCell* red = NULL;
  long code = open_grey_block(argv[1], argv[2], &red);
  if (code != 0) return failed("opening", code);

  char* eml = NULL;
  code = Api2ConvertRedBlockToEml(red, &eml); /* the tree ends here, whatever comes out */
  if (code != 0 || eml == NULL) return failed("converting", code);
  const int is_signed = is_signed_by(eml, argv[4]);
  const int written = is_signed && write_text(argv[3], eml);
  wipe_and_free(eml);
  if (!is_signed) return failed("the sender is not who signed", 0);
  return written ? EXIT_SUCCESS : failed("eml file", 0);
}
