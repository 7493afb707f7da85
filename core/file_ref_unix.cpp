// Files through C streams.
//
// No stream keeps a copy of what went through it: keys and pads pass here.
#include <fcntl.h>
#include <unistd.h>

#include <cerrno>
#include <cstring>
#include <string_view>

#include "base/file_lock.h"
#include "base/regular_file.h"
#include "base/uninterrupted.h"
#include "core/file_ref.h"
#include "core/owned.h"
#include "core/result.h"

using namespace kestrune;

namespace {

constexpr mode_t kNewFileMode = 0666;  // less the process's umask, as for every stream opened with "w+b"

// Reads or writes all `count` bytes, whatever signals arrive meanwhile: to a stream each is an error.
template <class Byte, class Transfer>
bool ThroughStream(std::FILE* stream, Byte* bytes, std::size_t count, Transfer transfer) {
  for (std::size_t done = 0;;) {
    errno = 0;
    done += transfer(bytes + done, 1, count - done, stream);
    if (done == count) return true;
    if (errno != EINTR || std::ferror(stream) == 0) return false;
    std::clearerr(stream);
  }
}

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
  CloseDF();  // what a child of fork inherited
  switch (mode) {
    case kReadExisting:
      return Adopt(OpenRegularFile(path_, O_RDONLY).release(), "rb");
    case kUpdateExisting:
      return OpenForUpdate();
    case kCreateOrEmpty:
      return CreateOrEmpty();
    default:
      return file::kUnknownMode;
  }
}

// The lock tells in which process the file was opened: a child of fork does not have it. Were the child to go
// on, it would hand out the same bytes as its parent and move the position that both share.
bool TypV2FileRefUnix::is_open() const {
  return open_flag_ == 1 && (lock_ == 0 || HoldsUpdateLock(lock_));
}

int TypV2FileRefUnix::OpenForUpdate() {
  UpdateLock lock = 0;
  errno = 0;
  FileDescriptor file = kestrune::OpenForUpdate(path_, &lock);
  if (!file.valid()) return errno == ENOMEM ? kNoObject : file::kOpen;
  const int rc = Adopt(file.release(), "r+b");
  if (rc == kOk) {
    lock_ = lock;
  } else {
    ReleaseUpdateLock(lock);
  }
  return rc;
}

int TypV2FileRefUnix::CreateOrEmpty() {
  struct stat found;
  // Opened both ways, a FIFO without a reader would swallow what is written; opened one way, it is refused.
  const bool is_fifo = ::stat(path_, &found) == 0 && S_ISFIFO(found.st_mode);
  FileDescriptor file =
      OpenDescriptor(path_, O_CREAT | O_TRUNC | (is_fifo ? O_WRONLY : O_RDWR), kNewFileMode);
  // Opening must not wait, but writing to a pipeline that is read slowly must not lose anything.
  const int flags = file.valid() ? ::fcntl(file.get(), F_GETFL) : -1;
  if (flags < 0 || ::fcntl(file.get(), F_SETFL, flags & ~O_NONBLOCK) != 0) return file::kOpen;
  return Adopt(file.release(), is_fifo ? "wb" : "w+b");
}

// Makes a stream of a descriptor, which is closed if that fails.
int TypV2FileRefUnix::Adopt(int fd, const char* stream_mode) {
  FileDescriptor file(fd);
  if (!file.valid()) return file::kOpen;
  stream_ = ::fdopen(file.get(), stream_mode);
  // Told apart: a caller may leave out a file that is not there, but not one for which there was no memory.
  if (stream_ == nullptr) return errno == ENOMEM ? kNoObject : file::kOpen;
  (void)file.release();
  std::setvbuf(stream_, nullptr, _IONBF, 0);
  open_flag_ = 1;
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
  return ThroughStream(stream_, static_cast<unsigned char*>(buffer), count, std::fread) ? kOk : file::kRead;
}

int TypV2FileRefUnix::Write(const void* buffer, unsigned long long count) {
  if (!is_open()) return file::kWrite;
  bool written = ThroughStream(stream_, static_cast<const unsigned char*>(buffer), count, std::fwrite) &&
                 std::fflush(stream_) == 0;
  if (written && lock_ != 0) written = Uninterrupted([&] { return ::fdatasync(::fileno(stream_)); }) == 0;
  return written ? kOk : file::kWrite;
}

int TypV2FileRefUnix::CloseDF() {
  if (open_flag_ != 1) return kOk;
  const int status = std::fclose(stream_);
  stream_ = nullptr;
  open_flag_ = 0;
  if (lock_ != 0) ReleaseUpdateLock(lock_);
  lock_ = 0;
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
  if (!IsShorterThan(path, sizeof path_)) return file::kBadName;
  std::strcpy(path_, path);
  return kOk;
}

void TypV2FileRefUnix::GetFullPathFilename(char* path) {
  std::strcpy(path, path_);
}

void TypV2FileRefUnix::GetPathSeperator(char* separator) {
  *separator = '/';
}
