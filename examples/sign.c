/*
 * Signs a short text and prints the signature block.
 *
 *   echo a_b_c_d | sign keys/ martin "Bonjour Docteur" >block
 *
 * The signing key is the file martin.LETTER.YEAR.key of the folder (YEAR: this year less 1900). Its pass phrase
 * comes from standard input: a command line is everybody's to see.
 */
#include <stdio.h>
#include <stdlib.h>
#include <string.h>

#include <kestrune/kestrune.h>

/* Holds the block of the largest key, 8192 bits; for keys of up to 4096 bits, 800 bytes do. */
enum { kBlockBytes = 2000 };

/* Unlike a plain memset, these writes are not removed although nobody reads the text any more. */
static void wipe(char* text, size_t size) {
  volatile char* at = text;
  while (size-- > 0) *at++ = 0;
}

int main(int argc, char** argv) {
  if (argc != 4) {
    fprintf(stderr, "usage: sign KEY_FOLDER/ KEY_NAME TEXT <PASS_PHRASE\n");
    return EXIT_FAILURE;
  }

  /* A pass phrase has at most 32 characters; a longer line is refused by the library (-88), not cut. */
  char pass_phrase[64] = "";
  if (fgets(pass_phrase, sizeof pass_phrase, stdin) != NULL) pass_phrase[strcspn(pass_phrase, "\n")] = 0;

  /* The library writes into the pass phrase ('-' and others become '_') and leaves the wiping to us. */
  char block[kBlockBytes];
  const int code = Api2GetSignatureXMLLight(argv[3], argv[2], pass_phrase, argv[1], block);
  wipe(pass_phrase, sizeof pass_phrase);

  if (code != 0) {
    fprintf(stderr, "signing: %d: %s\n", code, kestrune_code_text("Api2GetSignatureXMLLight", code, NULL));
    return EXIT_FAILURE;
  }
  return puts(block) < 0 ? EXIT_FAILURE : EXIT_SUCCESS;
}
