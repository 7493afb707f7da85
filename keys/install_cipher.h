// The cipher that carries key files from where they are made to where they are installed.
//
// An installation file (docs/installation_file.md) has a multiple of 32 bytes: the file's, filled up with spaces, and a
// trailer of 32.
#ifndef KESTRUNE_KEYS_INSTALL_CIPHER_H
#define KESTRUNE_KEYS_INSTALL_CIPHER_H

#include "base/export.h"
#include "core/object.h"

class TypV2InstanceCreator;

// Enciphers and deciphers whole files of any size in constant memory. Constructed directly (the factory has
// no slot for it), set up by `InitCreate`, used any number of times. It prints nothing.
//
// Both operations read the regular file `input_path` and create or empty `output_path` (255 characters each
// at most). `hex_key` holds the key as 64 hexadecimal characters of either case; other characters count as
// 0. They return 0 or, in this order:
//   -96   no memory, or an object could not be made
//   -32   hex_key is missing or does not give exactly 32 bytes
//   -99   the name of the input is missing or too long
//   -9    both paths lead to the same file, also through links; or the input cannot be opened
//   -100  deciphering: the input's length is not a multiple of 32
//   -99   the name of the output is missing or too long
//   -8    the input became shorter while it was read
//   -7    the output could not be created, or not be written whole or made durable
//   -98   deciphering: the digest differs (wrong key, or a damaged or cut file)
// or the platform's status (-1) from seeking and closing. A failure before the output is opened leaves an
// older output as it was; one behind it leaves none.
//
// With 0 the output is on stable storage. Deciphering writes its first 512 bytes last, when all others are there: a key
// file without its header is refused, so whatever ends the program or the machine in between, nobody seals with half
// a key.
//
// WARNING: an output that is there is overwritten. It is emptied only when nobody else has it open for update,
// as sealing has a key (the call waits, also for ever), but a failure behind that removes it, and where the program is
// killed or the power goes in between, the old content is lost. Whoever replaces a key in use installs it under another
// name of the same folder and renames it over the old one: sealing that waited goes on with the new key.
class KESTRUNE_API TypV2AESInstallKeys : public kestrune::LibraryObject<TypV2AESInstallKeys> {
 public:
  // Keeps the factory, which must outlive the object. 0.
  virtual int InitCreate(TypV2InstanceCreator* creator);
  virtual int Kill();

  // The output has the input's length rounded up to a multiple of 32, plus 32.
  virtual int Chiffrerfichier(const char* input_path, const char* output_path, const char* hex_key);

  // The output keeps the spaces (the input's length less 32): who made the file knows its real length.
  // Clear bytes are in the output file before the digest is checked; a failure empties and removes it. A new
  // file is for its owner alone (mode 0600); an existing one keeps its mode.
  virtual int DeChiffrerfichier(const char* input_path, const char* output_path, const char* hex_key);

 private:
  TypV2InstanceCreator* creator_ = nullptr;
};

#endif
