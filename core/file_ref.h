// The library's only door to files.
#ifndef KESTRUNE_CORE_FILE_REF_H
#define KESTRUNE_CORE_FILE_REF_H

#include <cstdint>
#include <cstdio>

#include "base/export.h"
#include "core/limits.h"
#include "core/object.h"

namespace kestrune {

// How a file is opened; also how a key object opens its file.
enum OpenMode {
  kReadExisting = 0,
  kUpdateExisting = 1,
  kCreateOrEmpty = 2,
};

}  // namespace kestrune

// A named file. The base class is the platform's interface and answers -101 to everything that needs a
// file; TypV2FileRefUnix implements it. Results are 0, a code of core/result.h (namespace file), or the
// platform's own status (-1) from seeking, truncating, closing and removing.
class KESTRUNE_API TypV2FileRef : public kestrune::LibraryObject<TypV2FileRef> {
 public:
  virtual int InitCreate();

  // Closes the file if it is still open.
  virtual int Kill();

  // Mode 0 (kReadExisting): read an existing file. 1 (kUpdateExisting): update an existing file. 2
  // (kCreateOrEmpty): create or empty, read and write. Opening an open file does nothing and keeps its mode.
  // -9: cannot be opened. -96: no memory to open it with. -1: another mode.
  //
  // Modes 0 and 1 take regular files (through links) and never wait for one to appear. Mode 2 opens whatever
  // the system lets be opened without waiting, devices too, and a FIFO that somebody is reading. No
  // file gets one of the descriptors 0 to 2.
  //
  // In mode 1 the file is locked against other processes and threads until it is closed (they wait their turn,
  // and begin anew where the path leads to another file by then), and each Write is on stable storage when it
  // returns. The lock stops neither readers, nor the thread that has it from opening the file once more, nor
  // mode 2, which takes none. Another thread may use and close the file, but the lock counts as the opening
  // thread's: the other one would wait for itself if it opened the file once more.
  //
  // In a child made by fork, a file that the parent opened in mode 1 is not open. In modes 0 and 2 both have it
  // open and share one position, as with any stream.
  virtual int OpenDF(int mode);

  // Length in bytes; the position is at the end afterwards. 0 and the status when the file has none.
  virtual int GetLength(unsigned long long* length);
  virtual int SetFilePos(unsigned long long position);
  virtual int SetEOF(unsigned long long length);

  // All `count` bytes, or -8 / -7.
  virtual int Read(void* buffer, unsigned long long count);
  virtual int Write(const void* buffer, unsigned long long count);

  // The closing alone: 0 also after a failed Write, and when the file was not open. -1: it failed.
  virtual int CloseDF();

  // The whole open file in a new buffer, which the caller frees. -60, -59: an output is missing. -2: not
  // open. -96: no memory. -8: shorter than its length said. The outputs are null and 0 on failure.
  virtual int GetDF(unsigned char** data, unsigned long long* length);

  // 0 when the path names a regular file that can be read, else -43.
  virtual int Exists();

  // Removes the file; 0 also when there is no regular file that could be changed.
  virtual int Delete();

  // 0 when open, else -2.
  virtual int IsOpend();

  // At most 255 characters, else -99 (also for null).
  virtual int SetFileName(const char* path);

  // What follows the last separator that is not in last place; the whole path without one. `name` has 256
  // bytes.
  virtual void GetFileNameWithoutPath(char* name);
  virtual void GetFullPathFilename(char* path);

  // One character, no terminator (the base class writes an empty text).
  virtual void GetPathSeperator(char* separator);

  // The platform's status as a result code: the same number, widened.
  virtual int OSToPrivateError(std::int16_t status);
};

// Files through C streams. The members' destructors have nothing to do: Kill closes.
class KESTRUNE_API TypV2FileRefUnix : public TypV2FileRef {
 public:
  int InitCreate() override;
  int Kill() override;
  int OpenDF(int mode) override;
  int GetLength(unsigned long long* length) override;
  int SetFilePos(unsigned long long position) override;
  int SetEOF(unsigned long long length) override;
  int Read(void* buffer, unsigned long long count) override;
  int Write(const void* buffer, unsigned long long count) override;
  int CloseDF() override;
  int GetDF(unsigned char** data, unsigned long long* length) override;
  int Exists() override;
  int Delete() override;
  int IsOpend() override;
  int SetFileName(const char* path) override;
  void GetFullPathFilename(char* path) override;
  void GetPathSeperator(char* separator) override;

 private:
  bool is_open() const;
  int OpenForUpdate();
  int CreateOrEmpty();
  int Adopt(int fd, const char* stream_mode);

  std::FILE* stream_ = nullptr;
  char path_[kestrune::limits::kPath + 1] = {};
  std::int16_t open_flag_ = 0;
  unsigned long long lock_ = 0;  // mode 1: the lock held, and every Write reaches stable storage
};

#endif
