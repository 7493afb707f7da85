// Files that never leave memory, for targets of classes that take their files from a factory: the system's own cost
// more than what is read in them.
#ifndef KESTRUNE_FUZZ_MEMORY_FILES_H
#define KESTRUNE_FUZZ_MEMORY_FILES_H

#include <algorithm>
#include <cstdint>
#include <cstring>
#include <map>
#include <new>
#include <string>

#include "core/file_ref.h"
#include "core/instance_creator.h"
#include "core/limits.h"
#include "core/result.h"
#include "tests/support/bytes.h"

namespace kestrune::testing {

// The factory, and the files by their paths.
struct MemoryFiles : TypV2InstanceCreatorUnix {
  std::map<std::string, Bytes, std::less<>> files;

  bool Has(std::string_view path) const { return files.find(path) != files.end(); }

  // Nobody may take away a file that is open.
  struct File : TypV2FileRef {
    MemoryFiles* all = nullptr;
    Bytes* content = nullptr;  // of the open file
    bool is_read_only = false;
    std::size_t position = 0;
    char path[limits::kPath + 1] = {};

    int InitCreate() override { return kOk; }
    int Kill() override { return CloseDF(); }
    int OpenDF(int mode) override {
      if (content != nullptr) return kOk;
      auto found = all->files.find(std::string_view(path));
      if (mode == kCreateOrEmpty) {
        found = all->files.insert_or_assign(path, Bytes()).first;
      } else if (found == all->files.end()) {
        return file::kOpen;
      }
      content = &found->second;
      is_read_only = mode == kReadExisting;
      position = 0;
      return kOk;
    }
    int GetLength(unsigned long long* length) override {
      *length = 0;
      if (content == nullptr) return file::kNotOpen;
      *length = position = content->size();
      return kOk;
    }
    int SetFilePos(unsigned long long to) override {
      if (content == nullptr) return file::kNotOpen;
      if (static_cast<std::int64_t>(to) < 0) return -1;
      position = to;
      return kOk;
    }
    int SetEOF(unsigned long long length) override {
      if (content == nullptr) return file::kNotOpen;
      content->resize(length);
      return kOk;
    }
    int Read(void* buffer, unsigned long long count) override {
      if (content == nullptr) return file::kRead;
      const std::size_t held = position < content->size() ? content->size() - position : 0;
      const std::size_t taken = std::min<std::size_t>(count, held);
      if (taken > 0) std::memcpy(buffer, content->data() + position, taken);
      position += taken;
      return taken == count ? kOk : file::kRead;
    }
    int Write(const void* buffer, unsigned long long count) override {
      if (content == nullptr || is_read_only) return file::kWrite;
      if (position + count > content->size()) content->resize(position + count);
      if (count > 0) std::memcpy(content->data() + position, buffer, count);
      position += count;
      return kOk;
    }
    int CloseDF() override {
      content = nullptr;
      return kOk;
    }
    int Exists() override { return all->Has(path) ? kOk : file::kMissing; }
    int Delete() override {
      all->files.erase(path);
      return kOk;
    }
    int IsOpend() override { return content != nullptr ? kOk : file::kNotOpen; }
    int SetFileName(const char* name) override {
      if (name == nullptr || std::strlen(name) >= sizeof path) return file::kBadName;
      std::strcpy(path, name);
      return kOk;
    }
    void GetFullPathFilename(char* out) override { std::strcpy(out, path); }
    void GetPathSeperator(char* separator) override { *separator = '/'; }
    int OSToPrivateError(std::int16_t status) override { return status; }
  };

  TypV2FileRef* newTypV2FileRef() override {
    auto* const made = new (std::nothrow) File;
    if (made != nullptr) made->all = this;
    return made;
  }
};

}  // namespace kestrune::testing

#endif
