/*
 * Shows whom a grey block is for, without any key: what a relay does.
 *
 *   routing message.grey [SIGNER]
 *
 * The digest of the block is checked, but a grey block is not signed: whoever carries it can change its routing.
 * Who really sent it is told by the signature of the transport block around it. SIGNER is what
 * Api2ExtractGrisFromHTTPSBlock handed out together with this grey block, "martin.z.126"; a message whose sender is
 * somebody else is refused.
 */
#include <stdio.h>
#include <stdlib.h>
#include <string.h>

#include <kestrune/kestrune.h>

/* The elements of a routing XML; nothing in it is escaped. */
static const struct {
  const char* tag;
  const char* meaning;
} kElements[] = {
    {"C", "Key that opens it"}, {"F", "Sender"},         {"R", "Reply to"},
    {"D", "Recipients"},        {"TE", "Date and time"}, {"S", "Subject (Base64)"},
};

static void print_element(const char* xml, const char* tag, const char* meaning) {
  char* value = malloc(strlen(xml) + 1); /* no value is longer than the text that it stands in */
  if (value == NULL) return;
  /* The first element of that name, searched from the beginning, of any length. */
  const int code = api2ExtractSmallValueFromXMLLight(xml, tag, 1, value, 0, 0);
  printf("%s: %s\n", meaning, code == 0 ? value : "none");
  free(value);
}

static int is_signed_by(const char* xml, const char* signer) {
  char sender[KESTRUNE_SIGNER_NAME_BYTES];
  return api2ExtractSmallValueFromXMLLight(xml, "F", 1, sender, 0, sizeof sender - 1) == 0 &&
         kestrune_is_sender(signer, sender);
}

int main(int argc, char** argv) {
  if (argc != 2 && argc != 3) {
    fprintf(stderr, "usage: routing GREY_FILE [SIGNER]\n");
    return EXIT_FAILURE;
  }

  /* Prints <ERRCODE>CODE</ERRCODE>, for programs that start this one, and hands the routing XML to us. */
  char* xml = NULL;
  const long code = Api2ExtractRoutageOnlyFromGrisBlock(argv[1], NULL, &xml, 0, 0);
  printf("\n");
  if (code != 0 || xml == NULL) {
    /* -9: no such file. -73: the block was damaged. -75: it was cut. */
    fprintf(stderr, "routing: %ld\n", code);
    return EXIT_FAILURE;
  }

  for (size_t i = 0; i < sizeof kElements / sizeof kElements[0]; ++i) {
    print_element(xml, kElements[i].tag, kElements[i].meaning);
  }
  const int is_signed = argc == 2 || is_signed_by(xml, argv[2]);
  free(xml);
  if (!is_signed) fprintf(stderr, "routing: the sender is not who signed\n");
  return is_signed ? EXIT_SUCCESS : EXIT_FAILURE;
}
