// Bytes that the library takes from a path, or writes to one, and that shall lie on no disk.
#ifndef KESTRUNE_CLI_MEMORY_FILE_H
#define KESTRUNE_CLI_MEMORY_FILE_H

#include <string>

#include "cli/descriptor.h"
#include "cli/input.h"

namespace kestrune::cli {

// A regular file without a name, in memory; goes with this object.
class MemoryFile {
 public:
  MemoryFile();

  std::string path() const;
  void Fill(std::string_view bytes);
  Content Read() const;

 private:
  Descriptor file_;
};

// An open file's path, which is short and stays the same file's: the library takes 255 characters.
std::string PathOf(const Descriptor& file);

}  // namespace kestrune::cli

#endif
