/* Whose signature it was: what a receiver must ask, and the library cannot answer. */
#ifndef EXAMPLES_SIGNER_H
#define EXAMPLES_SIGNER_H

#include <string.h>

/*
 * Whether a signer, NAME.LETTER.YEAR as Api2ExtractGrisFromHTTPSBlock hands it out, is the sender that a routing
 * names in <F>. That a signature holds is not enough: it is checked with the certificate that the block itself
 * asks for, so without this question each one who has a certificate in the folder can pose as any other.
 */
static int is_sender(const char* signer, const char* from) {
  const size_t length = strlen(from);
  if (length == 0 || strncmp(signer, from, length) != 0) return 0;
  const char* rest = signer + length; /* ".z.126" and no more: "martin.x" is another sender than "martin" */
  if (rest[0] != '.' || rest[1] < 'a' || rest[1] > 'z' || rest[2] != '.' || rest[3] == 0) return 0;
  return rest[3 + strspn(rest + 3, "0123456789")] == 0;
}

#endif
