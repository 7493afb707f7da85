#include "keys/output_file.h"

#include <algorithm>
#include <cstring>

#include "base/file_replacement.h"
#include "core/limits.h"

namespace kestrune {

OutputFile::~OutputFile() {
  if (is_open()) Discard();
  file_.Reset();
  ReleaseUpdateLock(lock_);
}

Result OutputFile::Name(TypV2InstanceCreator* creator, const char* path) {
  file_ = Owned<TypV2FileRef>(creator->newTypV2FileRef());
  if (const Result rc = file_.Init(); rc != kOk) return rc;
  return file_->SetFileName(path);
}

Result OutputFile::Open() {
  if (!Claim()) return file::kOpen;
  const Result rc = file_->OpenDF(kCreateOrEmpty);
  if (rc != kOk && is_new_) file_->Delete();
  if (rc != kOk || is_new_ || first_sector_ == FirstSector::kInTurn) return rc;
  // The old content is gone from the disk before any of the new is there.
  if (Sync() == kOk) return kOk;
  Discard();
  return file::kOpen;
}

// Creates the file, or locks the one that is there. False: that one may not be emptied. What is no regular file is
// nobody's to claim.
bool OutputFile::Claim() {
  if (dynamic_cast<TypV2FileRefUnix*>(file_.get()) == nullptr) return true;
  char path[limits::kPath + 1] = {};
  file_->GetFullPathFilename(path);
  struct stat found;
  is_new_ = ::stat(path, &found) != 0;
  claimed_ = OpenForUpdate(path, &lock_, static_cast<mode_t>(readers_));
  return claimed_.valid() || is_new_ || !S_ISREG(found.st_mode);
}

Result OutputFile::Write(const unsigned char* bytes, std::size_t count) {
  const std::size_t held = HoldBack(bytes, count);
  if (held > 0 && file_->SetFilePos(held_back_bytes_) != kOk) return file::kWrite;
  return held == count && held > 0 ? kOk : file_->Write(bytes + held, count - held);
}

// Keeps what belongs to the first sector, where that is written last; how many bytes that are.
std::size_t OutputFile::HoldBack(const unsigned char* bytes, std::size_t count) {
  if (first_sector_ == FirstSector::kInTurn || !claimed_.valid() || !is_open()) return 0;
  const std::size_t held = std::min(count, kSectorBytes - held_back_bytes_);
  std::memcpy(held_back_.data() + held_back_bytes_, bytes, held);
  held_back_bytes_ += held;
  return held;
}

Result OutputFile::WriteHeldBack() {
  if (held_back_bytes_ == 0) return kOk;
  if (const Result rc = Sync(); rc != kOk) return rc;
  if (file_->SetFilePos(0) != kOk) return file::kWrite;
  return file_->Write(held_back_.data(), held_back_bytes_);
}

Result OutputFile::Sync() const {
  return !claimed_.valid() || SyncFile(claimed_) ? kOk : file::kWrite;
}

Result OutputFile::SyncName() const {
  char path[limits::kPath + 1] = {};
  file_->GetFullPathFilename(path);
  return !claimed_.valid() || !is_new_ || SyncFolderOf(path) ? kOk : file::kWrite;
}

Result OutputFile::Finish(Result rc) {
  if (!is_open()) return rc == kOk ? file::kWrite : rc;
  if (rc == kOk) rc = WriteHeldBack();
  if (rc == kOk) rc = Sync();
  if (rc == kOk) rc = SyncName();
  if (rc != kOk) {
    Discard();
    return rc;
  }
  rc = file_->CloseDF();
  if (rc != kOk) file_->Delete();
  return rc;
}

void OutputFile::Discard() {
  // Emptied too: where the path is a link, removing it leaves the file behind it.
  file_->SetEOF(0);
  file_->CloseDF();
  file_->Delete();
}

}  // namespace kestrune
