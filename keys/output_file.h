// A file that is either written whole or not left behind.
#ifndef KESTRUNE_KEYS_OUTPUT_FILE_H
#define KESTRUNE_KEYS_OUTPUT_FILE_H

#include <cstddef>

#include "base/buffer.h"
#include "base/file_lock.h"
#include "core/file_ref.h"
#include "core/instance_creator.h"
#include "core/owned.h"
#include "core/result.h"

namespace kestrune {

// Who may read a file that did not exist before; one that is there keeps its mode.
enum class Readers : mode_t {
  kAsUsual = 0666,    // whomever the umask lets
  kOwnerAlone = 0600  // for keys and clear text
};

// When the first sector is written. A key file without its header is none: with it last, whatever ends the program or
// the machine in between, nobody seals with a pad of which a part is missing, or is the pad that was there before.
enum class FirstSector { kInTurn, kLast };

// An existing file is emptied under its update lock alone: whoever updates it has finished before, and whoever
// waits for it sees afterwards what became of it. The lock is taken here and not by the opening in mode 2,
// which must not wait, on a device or a pipe least of all; and only for files of the system's own kind, since
// a platform that keeps them elsewhere protects them itself. The same files are on stable storage when Finish
// returns 0.
class OutputFile {
 public:
  explicit OutputFile(Readers readers, FirstSector first_sector = FirstSector::kInTurn)
      : readers_(readers), first_sector_(first_sector) {}
  OutputFile(const OutputFile&) = delete;
  OutputFile& operator=(const OutputFile&) = delete;
  ~OutputFile();

  // Touches no file. -99: the name is missing or too long.
  [[nodiscard]] Result Name(TypV2InstanceCreator* creator, const char* path);

  // Creates or empties the file. -9: it cannot be locked or opened; each Write then fails, and so does Finish.
  Result Open();

  [[nodiscard]] Result Write(const unsigned char* bytes, std::size_t count);

  // Closes the file after work that ended with `rc`; a failure, also that of closing, removes it.
  [[nodiscard]] Result Finish(Result rc);

 private:
  static constexpr std::size_t kSectorBytes = 512;

  bool is_open() const { return file_ && file_->IsOpend() == kOk; }
  bool Claim();
  std::size_t HoldBack(const unsigned char* bytes, std::size_t count);
  Result WriteHeldBack();
  Result Sync() const;
  Result SyncName() const;
  void Discard();

  const Readers readers_;
  const FirstSector first_sector_;
  bool is_new_ = false;
  UpdateLock lock_ = 0;     // given back last, when the file is whole or gone
  FileDescriptor claimed_;  // the locked file; none where it is not of the system's own kind
  SecretArray<kSectorBytes> held_back_;
  std::size_t held_back_bytes_ = 0;
  Owned<TypV2FileRef> file_;
};

}  // namespace kestrune

#endif
