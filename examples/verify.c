/*
 * Reads a signature block from standard input, checks it with the signer's certificate, and prints who signed
 * what.
 *
 *   verify certificates/ <block
 *
 * The certificate is the file NAME.pem of the folder, NAME being the name in the block. It is trusted because it
 * lies there, so the folder must be one that only you can write into.
 */
#include <stdio.h>
#include <stdlib.h>
#include <string.h>

#include <kestrune/kestrune.h>

enum {
  kInputBytes = 16384, /* a block has fewer than 2000 bytes; other text may stand around it */
  kAnswerBytes = 1100  /* holds every answer */
};

/* Prints what stands between a tag and the text that ends it. */
static void print_part(const char* label, const char* from, const char* tag, const char* end) {
  const char* begin = strstr(from, tag) + strlen(tag);
  printf("%s%.*s\n", label, (int)(end - begin), begin);
}

int main(int argc, char** argv) {
  if (argc != 2) {
    fprintf(stderr, "usage: verify CERTIFICATE_FOLDER/ <BLOCK\n");
    return EXIT_FAILURE;
  }

  char input[kInputBytes];
  input[fread(input, 1, sizeof input - 1, stdin)] = 0;
  if (getchar() != EOF) {
    fprintf(stderr, "verifying: more text than a block comes in\n");
    return EXIT_FAILURE;
  }

  char answer[kAnswerBytes];
  const int code = Api2ExtractFromSignature(input, argv[1], answer, 0);
  if (code != 0) {
    fprintf(stderr, "verifying: %d: %s\n", code, kestrune_code_text("Api2ExtractFromSignature", code, NULL));
    return EXIT_FAILURE;
  }

  /* <ERR>0</ERR><N>NAME</N><DT>TEXT</DT>; the text may hold tags of its own, so it ends where the answer does. */
  print_part("Signed by ", answer, "<N>", strstr(answer, "</N>"));
  print_part("", answer, "<DT>", answer + strlen(answer) - strlen("</DT>"));
  return EXIT_SUCCESS;
}
