#include "core/file_ref.h"

#include <fcntl.h>
#include <gtest/gtest.h>
#include <sys/socket.h>
#include <sys/stat.h>
#include <sys/syscall.h>
#include <sys/un.h>
#include <sys/wait.h>
#include <unistd.h>

#include <cstdlib>
#include <cstring>
#include <filesystem>
#include <string>
#include <thread>

#include "core/owned.h"
#include "tests/support/bytes.h"
#include "tests/support/temp_folder.h"

namespace {
int g_syncs = 0;
bool g_sync_fails = false;
}  // namespace

// In place of the C library's: counts, and fails on demand as a broken disk does.
extern "C" int fdatasync(int fd) {
  ++g_syncs;
  return g_sync_fails ? -1 : static_cast<int>(::syscall(SYS_fdatasync, fd));
}

namespace kestrune::testing {
namespace {

Owned<TypV2FileRef> FileAt(const std::string& path) {
  Owned<TypV2FileRef> file(new TypV2FileRefUnix);
  EXPECT_EQ(file.Init(), 0);
  EXPECT_EQ(file->SetFileName(path.c_str()), 0);
  return file;
}

int OpenOnce(const std::string& path, int mode) {
  return FileAt(path)->OpenDF(mode);
}

void MakeSocket(const std::string& path) {
  sockaddr_un address{};
  address.sun_family = AF_UNIX;
  ASSERT_LT(path.size(), sizeof address.sun_path);
  std::strcpy(address.sun_path, path.c_str());
  const int fd = ::socket(AF_UNIX, SOCK_STREAM, 0);
  EXPECT_EQ(::bind(fd, reinterpret_cast<sockaddr*>(&address), sizeof address), 0);
  ::close(fd);
}

// What each kind of file answers. None of it may wait: a FIFO without a partner would, for ever.
TEST(FileRef, TakesRegularFilesAloneSaveForCreating) {
  const TempFolder folder;
  const auto file = [&](const char* name) { return folder.File(name); };
  WriteFile(file("plain"), "x");
  WriteFile(file("target"), "x");
  std::filesystem::create_symlink(file("target"), file("link"));
  std::filesystem::create_symlink(file("nowhere"), file("dangling"));
  // Through links: should deleting go wrong, only they are lost, even where the tests run as root.
  for (const char* device : {"full", "zero"}) {
    std::filesystem::create_symlink(std::string("/dev/") + device, file(device));
  }
  std::filesystem::create_directory(file("folder"));
  ASSERT_EQ(::mkfifo(file("fifo").c_str(), 0600), 0);
  MakeSocket(file("socket"));
  const struct {
    std::string path;
    int exists, read, update, create;
    bool deleted;
  } kinds[] = {
      {file("plain"), 0, 0, 0, 0, true},
      {file("link"), 0, 0, 0, 0, true},
      {file("missing"), -43, -9, -9, 0, true},
      {file("dangling"), -43, -9, -9, 0, true},
      {file("folder"), -43, -9, -9, -9, false},
      {file("fifo"), -43, -9, -9, -9, false},
      {file("socket"), -43, -9, -9, -9, false},
      {file("full"), -43, -9, -9, 0, false},
      {file("zero"), -43, -9, -9, 0, false},
      {file("no/such/path"), -43, -9, -9, -9, true},
      {"", -43, -9, -9, -9, true},
  };
  for (const auto& kind : kinds) {
    SCOPED_TRACE(kind.path);
    EXPECT_EQ(FileAt(kind.path)->Exists(), kind.exists);
    EXPECT_EQ(OpenOnce(kind.path, 0), kind.read);
    EXPECT_EQ(OpenOnce(kind.path, 1), kind.update);
    EXPECT_EQ(OpenOnce(kind.path, 2), kind.create);
    EXPECT_EQ(FileAt(kind.path)->Delete(), 0);
    EXPECT_NE(std::filesystem::exists(std::filesystem::symlink_status(kind.path)), kind.deleted);
  }
  EXPECT_TRUE(FileExists(file("target")));  // the link went, not what it led to
}

TEST(FileRef, ReadsWritesMeasuresAndCuts) {
  const TempFolder folder;
  const auto file = FileAt(folder.File("f"));
  unsigned long long length = 9;
  unsigned char* whole = nullptr;
  char buffer[16] = {};
  ASSERT_EQ(file->OpenDF(2), 0);
  EXPECT_EQ(file->OpenDF(0), 0);  // keeps the first mode: the Write below works
  EXPECT_EQ(file->GetDF(&whole, &length), 0);
  EXPECT_EQ(length, 0u);  // empty, and a buffer all the same
  EXPECT_NE(whole, nullptr);
  std::free(whole);
  EXPECT_EQ(file->Write("0123456789", 10), 0);
  EXPECT_EQ(file->SetFilePos(8), 0);
  EXPECT_EQ(file->Read(buffer, 3), -8);
  EXPECT_EQ(file->SetFilePos(2), 0);
  EXPECT_EQ(file->Write("ab", 2), 0);
  EXPECT_EQ(file->GetLength(&length), 0);
  EXPECT_EQ(length, 10u);
  EXPECT_EQ(file->Read(buffer, 1), -8);  // the position stayed at the end
  EXPECT_EQ(file->SetEOF(6), 0);
  EXPECT_EQ(file->GetDF(&whole, &length), 0);
  EXPECT_EQ(std::string(reinterpret_cast<char*>(whole), length), "01ab45");
  std::free(whole);
  // Beyond what the platform can count: its refusal, passed on.
  EXPECT_EQ(file->SetEOF(~0ULL), -1);
  EXPECT_EQ(file->SetFilePos(~0ULL), -1);
  EXPECT_EQ(file->CloseDF(), 0);
}

TEST(FileRef, UpdatesAreOnStableStorageAndFailuresAreTold) {
  const TempFolder folder;
  const std::string path = folder.File("f");
  WriteFile(path, "old");
  const struct {
    std::string path;
    int mode;
    bool sync_fails;
    int syncs, write;
  } rows[] = {{path, 1, false, 1, 0},
              {path, 1, true, 1, -7},
              {path, 2, false, 0, 0},
              {"/dev/full", 2, false, 0, -7},
              {path, 0, false, 0, -7}};
  for (const auto& row : rows) {
    const auto file = FileAt(row.path);
    g_syncs = 0;
    g_sync_fails = row.sync_fails;
    ASSERT_EQ(file->OpenDF(row.mode), 0);
    EXPECT_EQ(file->Write("x", 1), row.write);
    EXPECT_EQ(g_syncs, row.syncs);
    EXPECT_EQ(file->CloseDF(), 0);  // the closing alone
  }
  g_sync_fails = false;
}

TEST(FileRef, StaysAboveTheStandardDescriptors) {
  const TempFolder folder;
  const std::string path = folder.File("f");
  WriteFile(path, "x");
  const pid_t child = ::fork();
  if (child == 0) {
    for (const int fd : {0, 1, 2}) ::close(fd);
    Owned<TypV2FileRef> files[3];
    bool is_above = true;
    for (int mode = 0; mode < 3; ++mode) {
      files[mode] = FileAt(path);
      is_above = is_above && files[mode]->OpenDF(mode) == 0;
      for (const int fd : {0, 1, 2}) is_above = is_above && ::fcntl(fd, F_GETFD) == -1;
    }
    ::_exit(is_above ? 0 : 1);
  }
  int status = -1;
  ::waitpid(child, &status, 0);
  EXPECT_EQ(status, 0);
}

TEST(FileRef, WritesAllToAFifoThatIsReadSlowly) {
  const TempFolder folder;
  const std::string path = folder.File("fifo");
  ASSERT_EQ(::mkfifo(path.c_str(), 0600), 0);
  const Bytes content(1 << 22, 'x');  // more than a pipe holds
  std::thread reader([&] { EXPECT_EQ(ReadFile(path), content); });
  const auto file = FileAt(path);
  while (file->OpenDF(2) != 0) std::this_thread::yield();  // refused until there is a reader
  EXPECT_EQ(file->Write(content.data(), content.size()), 0);
  EXPECT_EQ(file->CloseDF(), 0);
  reader.join();
}

TEST(FileRef, NamesItsPath) {
  const auto file = FileAt("");
  const std::string longest(255, 'a');
  EXPECT_EQ(file->SetFileName(longest.c_str()), 0);
  EXPECT_EQ(file->SetFileName((longest + "a").c_str()), -99);
  char text[256] = "...";
  file->GetFullPathFilename(text);
  EXPECT_EQ(text, longest);  // a refused name changes nothing
  const std::pair<const char*, const char*> names[] = {
      {"/a/b.key", "b.key"}, {"b.key", "b.key"}, {"/a/b/", "b/"}, {"/", "/"}};
  for (const auto& [path, name] : names) {
    EXPECT_EQ(file->SetFileName(path), 0);
    file->GetFileNameWithoutPath(text);
    EXPECT_STREQ(text, name) << path;
  }
}

}  // namespace
}  // namespace kestrune::testing
