// The master key file of one year (docs/key_files.md): a pad in clear, common to the installation.
#ifndef KESTRUNE_KEYS_MASTER_KEY_H
#define KESTRUNE_KEYS_MASTER_KEY_H

#include "base/export.h"
#include "core/file_ref.h"
#include "core/key_header.h"
#include "core/object.h"
#include "core/owned.h"
#include "core/utils.h"
#include "sign/key_utils.h"

class TypV2InstanceCreator;

// Hands out runs of the master pad. A file opened for update is locked against other processes and threads
// until `Kill`; the advanced header is on stable storage before a hand-out returns. In a child made by fork, an
// object opened for update hands out nothing (-2). -96 from every operation: nothing was opened.
//
// Kept so: the checks are weaker than the personal key's. Positions are not compared with the pad, and a
// read that fails leaves zeros and does not end the call.
class KESTRUNE_API TypV2MasterKey : public kestrune::LibraryObject<TypV2MasterKey> {
 public:
  // Opens folder + name, or without a name (null) folder + "Master." + the current key year.
  //   open_mode  0: the file is never written. 1: offsets are kept in the file. 2: created or emptied. Any
  //              other: -90
  // -43: no such regular file. -9: it cannot be opened or locked. -8: no header in it. -99: a path of more
  // than 255 characters. After a failure nothing is open. 0 with nothing opened when the factory has no
  // object for it (kept so).
  virtual int InitCreate(TypV2InstanceCreator* creator, const char* folder, const char* name,
                         unsigned long long open_mode);

  // Releases everything and closes the file. 0.
  virtual int Kill();

  virtual int LoadHeader();
  virtual int WriteHeader();

  // Hands out `length` bytes of the pad, which starts again at its end; from an offset beyond the pad, all of
  // them are read there and the next run begins at 0. *out is a new buffer of length + 10000 bytes, zeros
  // behind the run, that the caller wipes and frees. *offset_out is where the run began.
  // Read only: the status of the last read (-8), *out set all the same. For update: that of writing the
  // header (-7); when it fails *out is null and the offset as before, when it succeeds a read that failed is not
  // told. -107: the pad is empty (*out set, all zeros). -96: no memory, *out null.
  virtual int GetLineaKey(unsigned char** out, unsigned long long length, unsigned long long* offset_out);

  // Where the next run begins. Kept so: no check. 0.
  virtual int SetOffsetOTPChiffrement(unsigned long long offset);

 private:
  kestrune::Result Open(const char* folder, const char* name);
  kestrune::Result ReadRun(unsigned char* to, unsigned long long length);
  kestrune::Result ReadPiece(unsigned long long offset, unsigned char* to, unsigned long long bytes);

  TypV2InstanceCreator* creator_ = nullptr;
  kestrune::Owned<TypKeyUtils> key_utils_;
  TypV2KeyHeader header_{};
  kestrune::Owned<TypV2Utils> utils_;
  kestrune::Owned<TypV2FileRef> file_;
  unsigned long long open_mode_ = 0;
};

#endif
