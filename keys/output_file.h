// A file that is either written whole or not left behind.
#ifndef KESTRUNE_KEYS_OUTPUT_FILE_H
#define KESTRUNE_KEYS_OUTPUT_FILE_H

#include <cstddef>

#include "base/file_lock.h"
#include "core/file_ref.h"
#include "core/instance_creator.h"
#include "core/limits.h"
#include "core/owned.h"
#include "core/result.h"

namespace kestrune {

// Who may read a file that did not exist before; one that is there keeps its mode.
enum class Readers : mode_t {
  kAsUsual = 0666,    // whomever the umask lets
  kOwnerAlone = 0600  // for keys and clear text
};

// An existing file is emptied under its update lock alone: whoever updates it has finished before, and whoever
// waits for it sees afterwards what became of it. The lock is taken here and not by the opening in mode 2,
// which must not wait, on a device or a pipe least of all; and only for files of the system's own kind, since
// a platform that keeps them elsewhere protects them itself.
class OutputFile {
 public:
  explicit OutputFile(Readers readers) : readers_(readers) {}
  OutputFile(const OutputFile&) = delete;
  OutputFile& operator=(const OutputFile&) = delete;
  ~OutputFile() {
    if (is_open()) Discard();
    file_.Reset();
    ReleaseUpdateLock(lock_);
  }

  // Touches no file. -99: the name is missing or too long.
  [[nodiscard]] Result Name(TypV2InstanceCreator* creator, const char* path) {
    file_ = Owned<TypV2FileRef>(creator->newTypV2FileRef());
    if (const Result rc = file_.Init(); rc != kOk) return rc;
    return file_->SetFileName(path);
  }

  // Creates or empties the file. -9: it cannot be locked or opened; each Write then fails, and so does Finish.
  Result Open() {
    bool is_new = false;
    if (!Claim(&is_new)) return file::kOpen;
    const Result rc = file_->OpenDF(kCreateOrEmpty);
    if (rc != kOk && is_new) file_->Delete();
    return rc;
  }

  [[nodiscard]] Result Write(const unsigned char* bytes, std::size_t count) {
    return file_->Write(bytes, count);
  }

  // Closes the file after work that ended with `rc`; a failure, also that of closing, removes it.
  [[nodiscard]] Result Finish(Result rc) {
    if (!is_open()) return rc == kOk ? file::kWrite : rc;
    if (rc != kOk) {
      Discard();
      return rc;
    }
    rc = file_->CloseDF();
    if (rc != kOk) file_->Delete();
    return rc;
  }

 private:
  bool is_open() const { return file_ && file_->IsOpend() == kOk; }

  // Creates the file, or locks the one that is there. False: that one may not be emptied. What is no regular
  // file is nobody's to claim.
  bool Claim(bool* is_new) {
    if (dynamic_cast<TypV2FileRefUnix*>(file_.get()) == nullptr) return true;
    char path[limits::kPath + 1] = {};
    file_->GetFullPathFilename(path);
    struct stat found;
    *is_new = ::stat(path, &found) != 0;
    const bool is_ours = OpenForUpdate(path, &lock_, static_cast<mode_t>(readers_)).valid();
    return is_ours || *is_new || !S_ISREG(found.st_mode);
  }

  void Discard() {
    // Emptied too: where the path is a link, removing it leaves the file behind it.
    file_->SetEOF(0);
    file_->CloseDF();
    file_->Delete();
  }

  const Readers readers_;
  UpdateLock lock_ = 0;  // given back last, when the file is whole or gone
  Owned<TypV2FileRef> file_;
};

}  // namespace kestrune

#endif
