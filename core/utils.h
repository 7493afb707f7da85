// The library's toolbox.
#ifndef KESTRUNE_CORE_UTILS_H
#define KESTRUNE_CORE_UTILS_H

#include <cstdint>

#include "base/export.h"
#include "core/object.h"

struct TypV2KeyHeader;

// Byte order, hexadecimal, light XML, lists, mail addresses, line ends, dates. It holds no data; `InitCreate`
// and `Kill` do nothing. Texts are zero-terminated; outputs without a size are the caller's and as large as
// each operation says. Operations that return an int return 0 or a code of core/result.h.
class KESTRUNE_API TypV2Utils : public kestrune::LibraryObject<TypV2Utils> {
 public:
  virtual int InitCreate();
  virtual int Kill();

  // Turns the numbers of a key file header between the file's byte order and the host's.
  virtual void SwapHeader(TypV2KeyHeader* header);

  // 1 on a little-endian host: files are big-endian, so the operations below reverse the bytes. Else 0.
  virtual int ShouldSwapBytes();
  virtual void swapapilong(std::int32_t* value);
  virtual void swapshort(std::int16_t* value);
  virtual void swapUnsignedapilong(std::uint32_t* value);
  virtual void swapUnsignedapilong64(unsigned long long* value);
  virtual void swapapilong64(long long* value);

  // Stores the value into 8 bytes in host order when bytes are to be swapped; otherwise does nothing.
  virtual void apiulong64tochars(unsigned long long value, unsigned char* bytes);

  // `out` (4 bytes) gets the last three characters of a key file name of 4 to 44 characters. 0 when they
  // are digits and begin with '2'; else -56. -87: name missing, too short or too long. -60: no output.
  virtual int ExtractFileSuffix(const char* name, char* out);

  // Frees the elements of GetElementsFromList; the array itself stays the caller's. -62: no array.
  virtual int FreeElementsListContent(char** elements, long long count);

  // Two upper-case hexadecimal characters, high nibble first, no terminator.
  virtual void chartohex(unsigned char byte, char* out);

  // Value of a hexadecimal digit of either case; 0 for any other character.
  virtual int hextodec(char digit);

  // 2 x count characters and a terminator. With count 0 the terminator stands at index 2 (kept so).
  virtual void Hexadecimalise(const unsigned char* bytes, unsigned long long count, char* out);

  // (length + 1) / 2 bytes; an odd last digit is a high nibble with 0 below it.
  virtual void DeHexadecimalise(const char* text, unsigned char* out, unsigned long long* count);

  // First position of `sub` in `text`, or -1.
  virtual long long possubstring(const char* text, const char* sub);

  // First position p, start <= p <= length - |sub|, at which each byte equals that of `sub` or differs from
  // it by exactly 32 (the whole of the case folding, so it pairs other characters too; kept so), or -1.
  // Takes up to length x |sub| comparisons.
  virtual long long possubstringsimplenocase(const unsigned char* buffer, unsigned long long length,
                                             unsigned long long start, const char* sub);

  // Value of the n-th (from 1, at most 1000) element <tag>...</tag> of flat tagged text, searched from
  // position `start`: neither attributes, nesting nor escaping. `out` needs the value's length + 1 bytes;
  // with max 0 any length is taken. -69: no such element. -70: longer than max. -62 / -60:
  // null argument.
  virtual int ExtractSmallValueFromXMLLight(const char* xml, const char* tag, unsigned long long n, char* out,
                                            unsigned long long start, unsigned long long max);

  // Decodes the first Base64 attachment of a MIME text of `length` bytes (no terminator needed) into a new
  // buffer that the caller frees. 0 with null and 0: the attachment is not Base64 (kept so). -102: no
  // output. -200: no attachment header, no blank line behind it or no closing " --". -201: nothing between.
  virtual int ExtractFirstPJFromMime(unsigned char* text, unsigned long long length, unsigned char** out,
                                     unsigned long long* out_length);

  // The text before the first '@' (all of it without one), and the text after it. `out` has 256 bytes.
  // -62: no address. -60: no output. -108: address of 256 characters or more.
  virtual int extractprefixemail(const char* address, char* out);
  virtual int extractdomainemail(const char* address, char* out);

  // 1 if `text` ends with `suffix`, else 0; 0 for null.
  virtual int endwith(const char* text, const char* suffix);

  // 1 if the text is not empty and holds digits only, else 0.
  virtual int isnumericsstring(const char* text);

  // 1 when a mail domain belongs to the messaging service (see the deployment settings), else 0.
  virtual int isKestruneDomain(const char* domain);

  // `out` (65 bytes) gets the first 32 bytes of the SHA-512 of the first 32 characters of the password, in
  // hexadecimal, after '#', '$', '&', '*', '-', '=' and '@' became '_'. -62: no password. -61: empty.
  // -102: no output.
  virtual int BuildHexPassword(const unsigned char* password, unsigned char* out);

  // Copies `count` bytes to destination + *position, advances *position and terminates the text there, when
  // position + count < capacity; else -109. A count of 0 does nothing. -62: source or position missing.
  // -105: destination missing. -89: negative position or count.
  virtual int Concatenate(char* destination, const char* source, long long count, long long* position,
                          long long capacity);

  // Replaces each line feed by a carriage return.
  virtual void Convert0Ato0D(unsigned char* buffer, unsigned long long length);

  // Local time as "2026-01-31 23:59:59"; `out` has 64 bytes.
  virtual void GetSQLDateTime(char* out);

  // Year suffixes of key files: years since 1900 plus 100, and without it. `out` has 12 bytes.
  virtual void GetKeyFilenameExtensionV2(char* out);
  virtual void GetKeyFilenameExtensionV1(char* out);

  // The local calendar year.
  virtual long long GetCurrentYear();

  // Cuts `text` at every separator into new texts (FreeElementsListContent frees them). *count holds the
  // capacity of `elements` on entry, the elements on return. Empty elements are kept; the last one runs to
  // the end of the text and keeps a separator in last place (kept so). -53: capacity reached. -60, -59,
  // -62: elements, count, text missing. -96: no memory (the elements so far count).
  int GetElementsFromList(const char* text, char separator, char** elements, long long* count);

  // Prints bytes in rows of 32, in hexadecimal and as characters; `level` indents by 7 spaces each.
  void hexdump(const unsigned char* data, unsigned long long length);
  void hexdump2(const unsigned char* data, unsigned long long length, long level);
  void indent(long level);
};

#endif
