/*
 * What a relay asks of blocks before it hands them on: whom each is for, and who sent it. A line for each, whatever
 * is wrong with others.
 *
 *   relay certificates/ a.block b.grey ...
 *
 * A transport block is signed: its signature is checked, and that the sender in its routing is who signed; then the
 * grey block in it, for its recipients, is written beside it as a.block.grey. A grey block is not signed: whoever
 * carries it can change its routing, and its line says so. No key is needed.
 */
#define _POSIX_C_SOURCE 200809L
#include <ctype.h>
#include <stdio.h>
#include <stdlib.h>
#include <string.h>
#include <sys/stat.h>

#include <kestrune/kestrune.h>

static int failed(const char* path, const char* why) {
  printf("%s: refused: %s\n", path, why);
  return 0;
}

static int failed_with(const char* path, const char* function, long code) {
  printf("%s: refused: %ld: %s\n", path, code, kestrune_code_text(function, code, NULL));
  return 0;
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

/* Beside the transport block, as "a.block.grey". */
static int write_grey(const char* path, const unsigned char* grey, size_t length) {
  char* name = malloc(strlen(path) + sizeof ".grey");
  if (name == NULL) return 0;
  FILE* file = fopen(strcat(strcpy(name, path), ".grey"), "wb");
  free(name);
  if (file == NULL) return 0;
  const int written = fwrite(grey, 1, length, file) == length;
  return fclose(file) == 0 && written;
}

/* Nothing in a routing XML is escaped: what would break the line or move a cursor becomes '?'. */
static void print_value(const char* xml, const char* tag) {
  char* value = malloc(strlen(xml) + 1); /* no value is longer than the text that it stands in */
  if (value == NULL || api2ExtractSmallValueFromXMLLight(xml, tag, 1, value, 0, 0) != 0) {
    printf("nobody");
  } else {
    for (const char* at = value; *at != 0; ++at) putchar(iscntrl((unsigned char)*at) ? '?' : *at);
  }
  free(value);
}

static void print_route(const char* path, const char* xml, const char* signer) {
  printf("%s: ", path);
  print_value(xml, "F");
  printf(" (%s) -> ", signer);
  print_value(xml, "D");
  printf(", key ");
  print_value(xml, "C");
  printf("\n");
}

static int is_signed_by_sender(const char* xml, const char* signer) {
  char sender[KESTRUNE_SIGNER_NAME_BYTES];
  return api2ExtractSmallValueFromXMLLight(xml, "F", 1, sender, 0, sizeof sender - 1) == 0 &&
         kestrune_is_sender(signer, sender);
}

static int route_grey(const char* path, const unsigned char* grey, unsigned long long length,
                      const char* signer) {
  char* xml = NULL;
  const long code = kestrune_grey_routing(grey, length, &xml);
  if (code != 0) return failed_with(path, "kestrune_grey_routing", code);
  int is_fine = 1;
  if (signer == NULL) {
    print_route(path, xml, "not signed");
  } else if (!is_signed_by_sender(xml, signer)) {
    is_fine = failed(path, "signed by another than its sender");
  } else if (!write_grey(path, grey, length)) {
    is_fine = failed(path, "its grey block could not be written");
  } else {
    print_route(path, xml, signer);
  }
  free(xml);
  return is_fine;
}

static int route_transport(const char* path, const unsigned char* block, unsigned long long length,
                           const char* folder) {
  unsigned char* grey = NULL;
  unsigned long long grey_length = 0;
  char signer[KESTRUNE_SIGNER_NAME_BYTES];
  const long code = Api2ExtractGrisFromHTTPSBlock(block, length, folder, &grey, &grey_length, signer);
  if (code != 0) return failed_with(path, "Api2ExtractGrisFromHTTPSBlock", code);
  const int is_fine = route_grey(path, grey, grey_length, signer);
  free(grey);
  return is_fine;
}

static int route(const char* path, const char* folder) {
  size_t length = 0;
  unsigned char* block = read_file(path, &length);
  if (block == NULL) return failed(path, "cannot be read");
  const int kind = kestrune_block_kind(block, length);
  const int is_fine = kind == KESTRUNE_TRANSPORT_BLOCK ? route_transport(path, block, length, folder)
                      : kind == KESTRUNE_GREY_BLOCK    ? route_grey(path, block, length, NULL)
                                                       : failed(path, "no block");
  free(block);
  return is_fine;
}

int main(int argc, char** argv) {
  if (argc < 3) {
    fprintf(stderr, "usage: relay CERTIFICATE_FOLDER/ BLOCK_FILE...\n");
    return EXIT_FAILURE;
  }
  int status = EXIT_SUCCESS;
  for (int i = 2; i < argc; ++i) {
    if (!route(argv[i], argv[1])) status = EXIT_FAILURE;
  }
  return status;
}
