#include "core/file_ref.h"

#include <fcntl.h>
#include <gtest/gtest.h>
#include <sys/syscall.h>
#include <unistd.h>

#include <filesystem>
#include <string>
#include <thread>

#include "base/buffer.h"
#include "core/instance_creator.h"
#include "tests/support/bytes.h"
#include "tests/support/child.h"
#include "tests/support/file_at.h"
#include "tests/support/process.h"
#include "tests/support/rows.h"
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

constexpr char kRows[] = "core.txt";

// One file of each kind.
class FileRef : public ::testing::Test {
 protected:
  // Devices through links: should deleting go wrong, only they are lost, even where the tests run as root.
  FileRef() {
    const char kMake[] = R"(
      cd "$0"; printf x | tee plain > target; ln -s target link; ln -s nowhere dangling
      ln -s /dev/full full; ln -s /dev/zero zero; mkdir folder; mkfifo fifo
      python3 -c 'import socket; socket.socket(socket.AF_UNIX).bind("socket")')";
    EXPECT_EQ(RunProgram({"sh", "-c", kMake, folder_.path()}).status, 0);
  }
  std::string File(const std::string& name) const { return name.empty() ? "" : folder_.File(name); }
  TempFolder folder_;
};

// None of it may wait: a FIFO without a partner would, for ever.
TEST_F(FileRef, TakesRegularFilesAloneSaveForCreating) {
  for (const auto& [name, exists, read, update, create, is_gone] : Rows<6>(kRows, "kinds of files")) {
    SCOPED_TRACE(name);
    const std::string path = File(name);
    EXPECT_EQ(FileAt(path)->Exists(), Number(exists));
    EXPECT_EQ(FileAt(path)->OpenDF(0), Number(read));
    EXPECT_EQ(FileAt(path)->OpenDF(1), Number(update));
    EXPECT_EQ(FileAt(path)->OpenDF(2), Number(create));
    EXPECT_EQ(FileAt(path)->Delete(), 0);
    EXPECT_NE(std::filesystem::exists(std::filesystem::symlink_status(path)), Number<bool>(is_gone));
  }
  EXPECT_TRUE(FileExists(File("target")));  // the link went, not what it led to
}

std::string Whole(TypV2FileRef* file) {
  unsigned char* whole = nullptr;
  unsigned long long length = 9;
  EXPECT_EQ(file->GetDF(&whole, &length), 0);
  EXPECT_NE(whole, nullptr);  // also for an empty file
  CBuffer content;
  content.Adopt(whole, length);
  return std::string(whole, whole + length);
}

TEST_F(FileRef, ReadsWritesMeasuresAndCuts) {
  const auto file = FileAt(File("plain"));
  unsigned long long length = 9;
  char buffer[16] = {};
  EXPECT_EQ(file->GetLength(&length), -2);
  EXPECT_EQ(length, 0u);
  ASSERT_EQ(file->OpenDF(2), 0);
  EXPECT_EQ(file->OpenDF(0), 0);  // keeps the first mode: the Write below works
  EXPECT_EQ(Whole(file.get()), "");
  EXPECT_EQ(file->Write("0123456789", 10), 0);
  EXPECT_EQ(file->SetFilePos(8), 0);
  EXPECT_EQ(file->Read(buffer, 3), -8);
  EXPECT_EQ(file->SetFilePos(2), 0);
  EXPECT_EQ(file->Write("ab", 2), 0);
  EXPECT_EQ(file->GetLength(&length), 0);
  EXPECT_EQ(length, 10u);
  EXPECT_EQ(file->Read(buffer, 1), -8);  // the position stayed at the end
  EXPECT_EQ(file->SetEOF(6), 0);
  EXPECT_EQ(Whole(file.get()), "01ab45");
  // Beyond what the platform can count: its refusal, passed on.
  EXPECT_EQ(file->SetEOF(~0ULL), -1);
  EXPECT_EQ(file->SetFilePos(~0ULL), -1);
  EXPECT_EQ(file->CloseDF(), 0);
}

TEST_F(FileRef, UpdatesAreOnStableStorageAndFailuresAreTold) {
  for (const auto& [name, mode, fails, syncs, write] : Rows<5>(kRows, "updates")) {
    const auto file = FileAt(File(name));
    g_syncs = 0;
    g_sync_fails = Number<bool>(fails);
    ASSERT_EQ(file->OpenDF(Number(mode)), 0);
    EXPECT_EQ(file->Write("x", 1), Number(write));
    EXPECT_EQ(g_syncs, Number(syncs));
    EXPECT_EQ(file->CloseDF(), 0);  // the closing alone
  }
  g_sync_fails = false;
}

TEST_F(FileRef, StaysAboveTheStandardDescriptors) {
  EXPECT_TRUE(HoldsInAChild([&] {
    for (const int fd : {0, 1, 2}) ::close(fd);
    Owned<TypV2FileRef> files[3];
    bool is_above = true;
    for (int mode = 0; mode < 3; ++mode) {
      files[mode] = FileAt(File("plain"));
      is_above = is_above && files[mode]->OpenDF(mode) == 0;
      for (const int fd : {0, 1, 2}) is_above = is_above && ::fcntl(fd, F_GETFD) == -1;
    }
    return is_above;
  }));
}

TEST_F(FileRef, WritesAllToAFifoThatIsReadSlowly) {
  const Bytes content(1 << 22, 'x');  // more than a pipe holds
  std::thread reader([&] { EXPECT_EQ(ReadFile(File("fifo")), content); });
  const auto file = FileAt(File("fifo"));
  while (file->OpenDF(2) != 0) std::this_thread::yield();  // refused until there is a reader
  EXPECT_EQ(file->Write(content.data(), content.size()), 0);
  EXPECT_EQ(file->CloseDF(), 0);
  reader.join();
}

TEST_F(FileRef, NamesItsPath) {
  const auto file = FileAt("");
  const std::string longest(255, 'a');
  char text[256] = "...";
  EXPECT_EQ(file->SetFileName(longest.c_str()), 0);
  EXPECT_EQ(file->SetFileName((longest + "a").c_str()), -99);
  file->GetFullPathFilename(text);
  EXPECT_EQ(text, longest);  // a refused name changes nothing
  for (const auto& [path, name] : Rows<2>(kRows, "names of paths")) {
    EXPECT_EQ(file->SetFileName(path.c_str()), 0);
    file->GetFileNameWithoutPath(text);
    EXPECT_EQ(text, name) << path;
  }
}

TEST_F(FileRef, IsNotThereWithoutAPlatform) {
  EXPECT_EQ(TypV2InstanceCreator().newTypV2FileRef(), nullptr);
  TypV2FileRef file;
  unsigned char* data = nullptr;
  unsigned long long length = 0;
  for (const int code :
       {file.InitCreate(), file.OpenDF(0), file.GetLength(&length), file.SetFilePos(0), file.SetEOF(0),
        file.Read(&length, 1), file.Write("x", 1), file.CloseDF(), file.GetDF(&data, &length), file.Exists(),
        file.Delete(), file.IsOpend(), file.SetFileName("x"), file.Kill()}) {
    EXPECT_EQ(code, -101);
  }
  char text[256] = "...";
  file.GetFileNameWithoutPath(text);
  EXPECT_STREQ(text, "");
  file.GetPathSeperator(text + 1);
  EXPECT_STREQ(text + 1, "");
}

}  // namespace
}  // namespace kestrune::testing
