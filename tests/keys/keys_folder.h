// A folder with a personal key and the master key of the current year, and files that can be made to fail.
#ifndef KESTRUNE_TESTS_KEYS_KEYS_FOLDER_H
#define KESTRUNE_TESTS_KEYS_KEYS_FOLDER_H

#include <fcntl.h>
#include <gtest/gtest.h>
#include <sys/wait.h>
#include <unistd.h>
#include <cstdlib>

#include <new>
#include <string>

#include "core/file_ref.h"
#include "core/instance_creator.h"
#include "core/owned.h"
#include "core/result.h"
#include "examples/key_files.h"
#include "tests/support/key_folder.h"
#include "tests/support/sealed_body.h"
#include "tests/support/temp_folder.h"

namespace kestrune::testing {

struct KeysFolder : TempFolder {
  PersonalKey personal;
  MasterKey master;
  std::string personal_name = "cle." + PersonalKeyYear();
  std::string master_name = "Master." + PersonalKeyYear();

  KeysFolder() { Write(); }
  void Write() const {
    WriteFile(File(personal_name), personal.File());
    WriteFile(File(master_name), master.File());
  }
  Pads pads() const { return {personal.first_pad, personal.second_pad, master.pad}; }
};

// The factory for Unix, whose files count what is read, whose writes can be made to fail, which can have been
// a byte longer when their length was asked, and whose `Kill` does not close.
struct ProbedCreator : TypV2InstanceCreatorUnix {
  bool writes_fail = false;
  bool has_files = true;
  bool shrinks = false;
  unsigned long long bytes_read = 0;

  struct File : TypV2FileRefUnix {
    ProbedCreator* creator = nullptr;
    int Read(void* buffer, unsigned long long count) override {
      creator->bytes_read += count;
      return TypV2FileRefUnix::Read(buffer, count);
    }
    int Write(const void* buffer, unsigned long long count) override {
      return creator->writes_fail ? file::kWrite : TypV2FileRefUnix::Write(buffer, count);
    }
    int GetLength(unsigned long long* length) override {
      const int rc = TypV2FileRefUnix::GetLength(length);
      *length += creator->shrinks ? 1 : 0;
      return rc;
    }
    int Kill() override { return kOk; }
  };
  TypV2FileRef* newTypV2FileRef() override {
    if (!has_files) return nullptr;
    auto* const made = new (std::nothrow) File;
    made->creator = this;
    return made;
  }
};

// Whether another process could lock the file for update now.
inline bool IsUnlocked(const std::string& path) {
  const int fd = ::open(path.c_str(), O_RDWR | O_CLOEXEC);
  struct flock lock {};
  lock.l_type = F_WRLCK;
  const bool got = ::fcntl(fd, F_OFD_SETLK, &lock) == 0;
  ::close(fd);
  return got;
}

// What a child made by fork finds.
template <class Finds>
bool InChild(Finds&& finds) {
  const pid_t child = ::fork();
  if (child == 0) ::_exit(finds() ? 0 : 1);
  int status = -1;
  ::waitpid(child, &status, 0);
  return status == 0;
}

// A key of the folder, and what it handed out last.
template <class Key>
struct KeyTest : ::testing::Test, KeysFolder {
  ProbedCreator creator;
  Key key;
  Bytes run;
  unsigned long long offset = 0;

  ~KeyTest() override { key.Kill(); }
  [[gnu::noinline]] Result Take(std::size_t length) {
    unsigned char* bytes = nullptr;
    const Result rc = key.GetLineaKey(&bytes, length, &offset);
    run.clear();
    if (bytes != nullptr) run.assign(bytes, bytes + length);
    std::free(bytes);
    return rc;
  }
};

}  // namespace kestrune::testing

#endif
