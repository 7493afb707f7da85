// Files through C streams.
//
// No stream keeps a copy of what went through it: keys and pads pass here.
#include <fcntl.h>
#include <unistd.h>

#include <cerrno>
#include <cstring>
#include <string_view>

#include "core/file_lock.h"
#include "core/file_ref.h"
#include "core/owned.h"
#include "core/result.h"
#include "crypto/regular_file.h"

using namespace kestrune;

namespace {

constexpr mode_t kNewFileMode = 0666;  // less the process's umask, as for every stream opened with "w+b"

enum OpenMode { kReadExisting = 0, kUpdateExisting = 1, kCreateOrEmpty = 2 };

}  // namespace

int TypV2FileRefUnix::InitCreate() {
  stream_ = nullptr;
  open_flag_ = 0;
  path_[0] = 0;
  return kOk;
}

int TypV2FileRefUnix::Kill() {
  CloseDF();
  return kOk;
}

int TypV2FileRefUnix::OpenDF(int mode) {
  if (is_open()) return kOk;
  switch (mode) {
    case kReadExisting:
      return Adopt(OpenRegularFile(path_, O_RDONLY).release(), "rb");
    case kUpdateExisting:
      return OpenForUpdate();
    case kCreateOrEmpty:
      return Adopt(
          ::open(path_, O_RDWR | O_CREAT | O_TRUNC | O_NONBLOCK | O_NOCTTY | O_CLOEXEC, kNewFileMode), "w+b");
    default:
      return file::kUnknownMode;
  }
}

int TypV2FileRefUnix::OpenForUpdate() {
  struct stat identity;
  FileDescriptor file = OpenRegularFile(path_, O_RDWR, &identity);
  if (!file.valid() || !AcquireUpdateLock(path_, identity)) return file::kOpen;
  if (const int rc = Adopt(file.release(), "r+b"); rc != kOk) {
    ReleaseUpdateLock(identity.st_dev, identity.st_ino);
    return rc;
  }
  durable_ = true;
  locked_device_ = identity.st_dev;
  locked_inode_ = identity.st_ino;
  return kOk;
}

// Makes a stream of a descriptor, which is closed if that fails.
int TypV2FileRefUnix::Adopt(int fd, const char* stream_mode) {
  FileDescriptor file(fd);
  if (!file.valid()) return file::kOpen;
  stream_ = ::fdopen(file.get(), stream_mode);
  if (stream_ == nullptr) return file::kOpen;
  (void)file.release();
  std::setvbuf(stream_, nullptr, _IONBF, 0);
  open_flag_ = 1;
  durable_ = false;
  write_failed_ = false;
  return kOk;
}

int TypV2FileRefUnix::GetLength(unsigned long long* length) {
  *length = 0;
  if (!is_open()) return file::kNotOpen;
  const int status = ::fseeko(stream_, 0, SEEK_END);
  if (status == 0) {
    const off_t position = ::ftello(stream_);
    *length = position < 0 ? 0 : static_cast<unsigned long long>(position);
  }
  return OSToPrivateError(static_cast<std::int16_t>(status));
}

int TypV2FileRefUnix::SetFilePos(unsigned long long position) {
  if (!is_open()) return file::kNotOpen;
  // A position beyond the platform's own range comes out negative and is refused by the seek.
  return OSToPrivateError(
      static_cast<std::int16_t>(::fseeko(stream_, static_cast<off_t>(position), SEEK_SET)));
}

int TypV2FileRefUnix::SetEOF(unsigned long long length) {
  if (!is_open()) return file::kNotOpen;
  return OSToPrivateError(
      static_cast<std::int16_t>(::ftruncate(::fileno(stream_), static_cast<off_t>(length))));
}

int TypV2FileRefUnix::Read(void* buffer, unsigned long long count) {
  if (!is_open()) return file::kRead;
  return std::fread(buffer, 1, count, stream_) == count ? kOk : file::kRead;
}

int TypV2FileRefUnix::Write(const void* buffer, unsigned long long count) {
  if (!is_open()) return file::kWrite;
  bool written = std::fwrite(buffer, 1, count, stream_) == count && std::fflush(stream_) == 0;
  if (written && durable_) written = ::fdatasync(::fileno(stream_)) == 0;
  if (!written) write_failed_ = true;
  return written ? kOk : file::kWrite;
}

int TypV2FileRefUnix::CloseDF() {
  if (!is_open()) return kOk;
  int status = std::fclose(stream_);
  if (write_failed_) status = file::kSystem;
  stream_ = nullptr;
  open_flag_ = 0;
  if (durable_) ReleaseUpdateLock(locked_device_, locked_inode_);
  durable_ = false;
  return OSToPrivateError(static_cast<std::int16_t>(status));
}

int TypV2FileRefUnix::GetDF(unsigned char** data, unsigned long long* length) {
  if (length == nullptr) return argument::kNoLengthOutput;
  if (data == nullptr) return argument::kNoOutput;
  *data = nullptr;
  *length = 0;
  if (!is_open()) return file::kNotOpen;
  unsigned long long size = 0;
  if (const int rc = GetLength(&size); rc != kOk) return rc;
  SecretCBuffer content;
  if (!content.Allocate(size)) return kNoObject;
  if (const int rc = SetFilePos(0); rc != kOk) return rc;
  if (const int rc = Read(content.data(), size); rc != kOk) return rc;
  *data = content.release();
  *length = size;
  return kOk;
}

int TypV2FileRefUnix::Exists() {
  return OpenRegularFile(path_, O_RDONLY).valid() ? kOk : file::kMissing;
}

int TypV2FileRefUnix::Delete() {
  if (!OpenRegularFile(path_, O_RDWR).valid()) return kOk;
  return OSToPrivateError(static_cast<std::int16_t>(std::remove(path_)));
}

int TypV2FileRefUnix::IsOpend() {
  return is_open() ? kOk : file::kNotOpen;
}

int TypV2FileRefUnix::SetFileName(const char* path) {
  if (!IsShorterThan(path, kPathBytes)) return file::kBadName;
  std::strcpy(path_, path);
  return kOk;
}

void TypV2FileRefUnix::GetFullPathFilename(char* path) {
  std::strcpy(path, path_);
}

void TypV2FileRefUnix::GetPathSeperator(char* separator) {
  *separator = '/';
}
