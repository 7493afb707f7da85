// A user's personal key file (docs/key_files.md): two one-time pads under the user's password. The first has runs
// that mask message bodies, the second one-time passwords.
#ifndef KESTRUNE_KEYS_KESTRUNE_KEY_H
#define KESTRUNE_KEYS_KESTRUNE_KEY_H

#include "base/export.h"
#include "core/file_ref.h"
#include "core/key_header.h"
#include "core/object.h"
#include "core/owned.h"
#include "core/utils.h"
#include "sign/key_utils.h"

class TypV2InstanceCreator;

// Opens a personal key file, checks the password and hands out pad bytes, each once. Made by the factory, set
// up by `InitCreate`, ended by `Kill`; what is secret is wiped with the object at the latest.
//
// A file opened for update is locked against other processes and threads from the reading of its header to
// `Kill`, and the header with the advanced offsets is on stable storage before a hand-out returns. Two objects
// of one thread on one file do not know of each other. In a child made by fork, an object opened for update
// hands out nothing (-8).
//
// Results are 0 or a code of core/result.h. A failed hand-out changes neither offsets and counters nor the
// file (save that after a failed write the file may hold the new header). -96 from every operation: nothing
// was opened.
class KESTRUNE_API TypV2KestruneKey : public kestrune::LibraryObject<TypV2KestruneKey> {
 public:
  // Opens folder + name (+ "." + the key year when with_year is 1) and checks the password.
  //   folder        a prefix: it ends with the separator. The whole path has at most 255 characters, else -99
  //                 (also when one is null)
  //   hex_password  the key in hexadecimal (TypV2Utils::BuildHexPassword); what follows 64 digits does not
  //                 count, more than 80 are -92
  //   open_mode     0: the file is never written. 1: offsets are kept in the file. 2: the file is created or
  //                 emptied, and what is read from it fails. Any other: -90
  // The factory must outlive the object, the texts need not. -9: no such regular file, or it cannot be
  // locked. -8: shorter than its header says. -92: wrong password or damaged key. After a failure nothing is
  // open. 0 with nothing opened when the factory has no object for it (kept so).
  virtual int InitCreate(TypV2InstanceCreator* creator, const char* name, long with_year, const char* folder,
                         const char* hex_password, unsigned long long open_mode);

  // Releases everything and closes the file. 0. What is left of the key goes with the object.
  virtual int Kill();

  // Where the next run begins. -107: beyond the length of the first pad - 8.
  virtual int SetOffsetOTPChiffrement(unsigned long long offset);

  // Where the next one-time password begins. Deliberate: not checked here, but by GetOTPassword.
  virtual int SetOffsetOTPassword(unsigned long long offset);

  // Hands out `length` bytes of the first pad, which starts again at its end. *out is a new buffer that the
  // caller wipes and frees, null on failure; it has room for the whole chunks that were read, and the bytes
  // behind `length` are zeros. *offset_out, set in any case, is where the bytes began.
  // -107: the pad is empty, the offset lies outside it, or a chunk's IV outside the IV area. -8: the file
  // does not hold the bytes. -7: the header could not be written or made durable. -96: no memory.
  virtual int GetLineaKey(unsigned char** out, unsigned long long length, unsigned long long* offset_out);

  // Writes the next 32 bytes of the second pad to `out`, untouched on failure. *offset_out, set in any case,
  // is where they began. Codes as above; -107 also when the 32 bytes would reach past their chunk.
  virtual int GetOTPassword(unsigned char* out, unsigned long long* offset_out);

  // The steps of opening and of handing out. Reading and positioning failures are returned as they are.
  virtual int LoadHeader();
  virtual int WriteHeader();
  virtual int LoadAndDecryptIV();

  // Deciphers the IV area in place and compares the check digest. -92: it differs.
  virtual int DecryptageIV();

  // Deciphers `chunk_count` chunks of 4096 bytes in place, the first one being number `first_chunk` of the
  // file. -107, and nothing deciphered: an IV of theirs lies outside the IV area. -91, -96: no AES object.
  virtual int DecryptageAESChunk(unsigned char* buffer, unsigned long long first_chunk,
                                 unsigned long long chunk_count);

 private:
  static constexpr std::size_t kKeyBufferBytes = 40;

  kestrune::Result Open(const char* name, long with_year, const char* folder, const char* hex_password);
  kestrune::Result OpenFile(const char* name, long with_year, const char* folder);
  kestrune::Result ReadRun(unsigned char* to, unsigned long long length, unsigned long long room);
  kestrune::Result ReadPad(unsigned long long first_byte, unsigned char* to, unsigned long long bytes,
                           unsigned long long needed);
  kestrune::Result ReadHeld(unsigned long long position, unsigned char* to, unsigned long long bytes,
                            unsigned long long needed);
  bool HasIvs(unsigned long long first_chunk, unsigned long long chunk_count) const;
  kestrune::Result Commit(const TypV2KeyHeader& advanced);
  void Release();

  TypV2InstanceCreator* creator_ = nullptr;
  TypV2KeyHeader header_{};
  kestrune::SecretCBuffer iv_area_;
  kestrune::Owned<TypV2Utils> utils_;
  kestrune::Owned<TypV2FileRef> file_;
  kestrune::Owned<TypKeyUtils> key_utils_;
  unsigned long long open_mode_ = 0;
  kestrune::SecretArray<kKeyBufferBytes> key_;
};

#endif
