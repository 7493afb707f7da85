// Message bodies, sealed and opened. docs/sealed_body.md has the bytes: a head of 24, a random string R1, the body, a
// random string R2; 72 to 130 more than the body's own. As many bytes of the personal key's first pad are used up, 24
// fewer of the master pad, and 32 of the personal key's second one.
#ifndef KESTRUNE_KEYS_MESSAGE_CIPHER_H
#define KESTRUNE_KEYS_MESSAGE_CIPHER_H

#include <array>

#include "base/export.h"
#include "core/limits.h"
#include "core/object.h"
#include "core/owned.h"
#include "core/utils.h"

class TypV2InstanceCreator;
class TypV2KestruneKey;

// Seals with the keys of the current year, opens with those of the year that the key file's name tells. Each
// call makes and ends its own key objects. Memory beside the caller's input: at most three times the body,
// the IV area and less than 1 MiB. The password is wiped with the object at the latest.
class KESTRUNE_API TypKestruneV2 : public kestrune::LibraryObject<TypKestruneV2> {
 public:
  // Keeps the factory (it must outlive the object), copies the rest and seeds the random generator.
  //   key_name      personal key without year, at most 39 characters, else -87
  //   folder        where the keys are, a prefix that ends with the separator; at most 2047 characters, else
  //                 -86, which replaces -87
  //   hex_password  64 characters, else -88; empty: none is set
  virtual int InitCreate(TypV2InstanceCreator* creator, const char* key_name, const char* folder,
                         const char* hex_password);

  // Releases the helpers. 0. Kept so: the password stays until ZeroPassword or the object's end.
  virtual int Kill();

  // Exactly 64 characters, else -88 and the password held stays.
  virtual int SetPassword(const char* hex_password);

  // Wipes the password held. 0.
  virtual int ZeroPassword();

  // Seals `length` bytes under the current year's personal and master keys.
  //   in           only read; may be anything but null (-89)
  //   *out         new buffer that the caller frees, its first *out_length bytes the sealed body; null and 0
  //                on failure
  // Pad bytes taken stay taken when a later step fails. An empty body is sealed, but see Low_decrypter.
  // Codes: those of the two key files, unchanged (-43: no master key; -9, -99, -92, -8, -107, -7); -2064: so
  // long (2 GiB) that AES refuses; -96: no memory or object.
  virtual int Low_crypter(const unsigned char* in, unsigned long long length, unsigned char** out,
                          unsigned long long* out_length);

  // Opens a sealed body with the personal key file `key_file_name` (full name with its year suffix) in this
  // object's folder and `hex_password`, not the one held; both keys are only read.
  //   *out         new buffer of the body's length + 10000 bytes, zeros behind the body, that the caller
  //                wipes and frees; null and 0 on failure
  //
  // DOES NOT RETURN for a body whose random strings leave no room for a byte between them: a forged or
  // damaged one, one opened with a key of another year, and the sealed empty body. The call then sleeps for
  // ever, with every secret wiped (the password held too; `hex_password` is the caller's to care for), files
  // closed and locks released. Deliberate: who feeds it guesses learns nothing from it. A caller that must go
  // on sets a deadline of its own (a process per message, or a thread it gives up).
  //
  // -89: no input, or 24 bytes or fewer (the key files are tried before that). -87, -88: key file name (4 to
  // 44 characters) or password missing. -56: the name does not end in a year. -9: the name holds a '/', or no
  // such file. -92: wrong password. -107: an offset in the body lies outside its pad. Others: those of the
  // key files; -96: no memory or object.
  virtual int Low_decrypter(const unsigned char* in, unsigned long long length, const char* key_file_name,
                            const char* hex_password, unsigned char** out, unsigned long long* out_length);

  // Reads the header of the file that TypKeyUtils::GetKestruneKeyName names after the key, in the current
  // folder, opened for update, and closes it. Kept so: it loads no more, and `key` and `out` are not
  // used. -96: no object, or no memory for `count` bytes; else the status of opening or
  // reading.
  virtual int LoadLinearKey(TypV2KestruneKey* key, unsigned char** out, unsigned long long count);

  // Fills R1 into `buffer` (room for 58 bytes) and returns its length L.
  virtual int loadRNstring(char* buffer);

  // Fills R2 of `length` bytes (1 to 255) into `buffer`. 0.
  virtual int loadRN2string(unsigned long long length, char* buffer);

 private:
  kestrune::Result Seal(const unsigned char* in, unsigned long long length, kestrune::SecretCBuffer* out);
  kestrune::Result Open(const unsigned char* in, unsigned long long length, const char* key_file_name,
                        const char* hex_password, kestrune::SecretCBuffer* out,
                        unsigned long long* out_length);

  TypV2InstanceCreator* creator_ = nullptr;
  kestrune::Owned<TypV2Utils> utils_;
  std::array<char, kestrune::limits::kKeyName + 1> key_name_{};
  std::array<char, kestrune::limits::kFolder + 1> folder_{};
  kestrune::SecretArray<kestrune::limits::kHexPassword + 1> password_;
};

// The platform's message cipher: a type of its own, the same operations.
class KESTRUNE_API TypKestruneV2Unix : public TypKestruneV2 {};

#endif
