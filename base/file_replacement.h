// A new content that takes an old one's place whole, or not at all.
#ifndef KESTRUNE_BASE_FILE_REPLACEMENT_H
#define KESTRUNE_BASE_FILE_REPLACEMENT_H

#include <array>
#include <climits>
#include <cstddef>

#include "base/regular_file.h"

namespace kestrune {

// Makes durable that the file at `path`, or that behind it where it is a link, is there under its name. True also where
// the system lets nobody do that: in a folder that may not be read.
[[nodiscard]] bool SyncFolderOf(const char* path);

// Writes beside a regular file, in a file of its own with the same mode and owner (".kestrune-", process,
// number), and renames that over it. Until then the old content is untouched; what was not put in its place is
// removed. Only a process that is killed in between leaves the file beside it.
class FileReplacement {
 public:
  FileReplacement() = default;
  FileReplacement(const FileReplacement&) = delete;
  FileReplacement& operator=(const FileReplacement&) = delete;
  ~FileReplacement();

  // The file at `path`, or that behind it where it is a link, which stays one. Other names (hard links) of the
  // file keep the old content. False: it is no regular file that could be changed, or nothing can be made
  // beside it that is the same to others.
  [[nodiscard]] bool Begin(const char* path);
  [[nodiscard]] bool Write(const void* bytes, std::size_t count);

  // Makes the content durable, then puts it in place.
  [[nodiscard]] bool Commit();

 private:
  bool FindFolder(const char* path);
  bool MakeFile();

  std::array<char, PATH_MAX> path_;  // without links, cut into folder and name
  const char* name_ = nullptr;
  FileDescriptor folder_;
  FileDescriptor file_;
  std::array<char, 64> temporary_{};  // the name of what is to be removed; empty without one
};

}  // namespace kestrune

#endif
