#include <fcntl.h>
#include <gtest/gtest.h>
#include <poll.h>
#include <signal.h>
#include <sys/wait.h>
#include <unistd.h>

#include <atomic>
#include <chrono>
#include <cstdio>
#include <functional>
#include <future>
#include <string>
#include <thread>

#include "core/file_ref.h"
#include "core/owned.h"
#include "tests/support/bytes.h"
#include "tests/support/temp_folder.h"

namespace kestrune::testing {
namespace {

constexpr int kWaitsMs = 200;      // long enough to see that somebody waits
constexpr int kArrivesMs = 20000;  // short enough to notice that nobody comes

Owned<TypV2FileRef> Opened(const std::string& path, int mode) {
  Owned<TypV2FileRef> file(new TypV2FileRefUnix);
  EXPECT_EQ(file.Init(), 0);
  EXPECT_EQ(file->SetFileName(path.c_str()), 0);
  EXPECT_EQ(file->OpenDF(mode), 0);
  return file;
}

// Another process, which does `work`, tells that it is done and stays until it is killed.
class OtherProcess {
 public:
  explicit OtherProcess(const std::function<void()>& work) {
    int ends[2];
    EXPECT_EQ(::pipe(ends), 0);
    done_ = ends[0];
    child_ = ::fork();
    if (child_ == 0) {
      work();
      (void)!::write(ends[1], "x", 1);
      for (;;) ::pause();
    }
    ::close(ends[1]);
  }
  OtherProcess(const OtherProcess&) = delete;
  OtherProcess& operator=(const OtherProcess&) = delete;
  ~OtherProcess() {
    Kill();
    ::close(done_);
  }
  bool IsDoneWithin(int ms) const {
    pollfd wait{done_, POLLIN, 0};
    return ::poll(&wait, 1, ms) == 1 && (wait.revents & POLLIN) != 0;
  }
  void Kill() {
    if (child_ == 0) return;
    ::kill(child_, SIGKILL);
    ::waitpid(child_, nullptr, 0);
    child_ = 0;
  }

 private:
  int done_ = -1;
  pid_t child_ = 0;
};

class UpdateLock : public ::testing::Test {
 protected:
  UpdateLock() : path_(folder_.File("key")) { WriteFile(path_, "key"); }
  std::function<void()> Holding(int mode) const {
    return [this, mode] { (void)Opened(path_, mode).Release(); };
  }
  TempFolder folder_;
  std::string path_;
};

TEST_F(UpdateLock, KeepsOthersWaitingUntilTheLastHolderCloses) {
  auto first = Opened(path_, 1);
  auto second = Opened(path_, 1);  // one process does not block itself
  const OtherProcess updater(Holding(1));
  // Closing other descriptors of the file, and one of two holders, must not let the other process in.
  EXPECT_EQ(first->Exists(), 0);
  Opened(path_, 0).Reset();
  first.Reset();
  EXPECT_FALSE(updater.IsDoneWithin(kWaitsMs));
  EXPECT_EQ(second->Write("x", 1), 0);
  EXPECT_EQ(second->CloseDF(), 0);
  EXPECT_TRUE(updater.IsDoneWithin(kArrivesMs));
}

TEST_F(UpdateLock, IsTakenInTurnsByThreads) {
  auto first = Opened(path_, 1);
  auto second = Opened(path_, 1);  // one thread does not block itself
  const auto other = std::async(std::launch::async, [&] { Opened(path_, 1).Reset(); });
  first.Reset();
  EXPECT_EQ(other.wait_for(std::chrono::milliseconds(kWaitsMs)), std::future_status::timeout);
  std::thread([&] { second.Reset(); }).join();  // whoever closes, it is given back
  EXPECT_EQ(other.wait_for(std::chrono::milliseconds(kArrivesMs)), std::future_status::ready);
}

TEST_F(UpdateLock, IsTakenAnewWhenThePathLeadsElsewhereByThen) {
  auto file = Opened(path_, 1);
  const OtherProcess waiter([&] { (void)Opened(path_, 1)->Write("N", 1); });
  EXPECT_FALSE(waiter.IsDoneWithin(kWaitsMs));
  WriteFile(folder_.File("new"), "new");
  ASSERT_EQ(std::rename(folder_.File("new").c_str(), path_.c_str()), 0);
  file.Reset();
  EXPECT_TRUE(waiter.IsDoneWithin(kArrivesMs));
  EXPECT_EQ(ToText(ReadFile(path_)), "New");
}

TEST_F(UpdateLock, DiesWithItsProcessAndStopsNoReader) {
  OtherProcess holder(Holding(1));
  ASSERT_TRUE(holder.IsDoneWithin(kArrivesMs));
  Opened(path_, 0).Reset();
  Opened(path_, 2).Reset();
  OtherProcess next(Holding(1));
  EXPECT_FALSE(next.IsDoneWithin(kWaitsMs));
  holder.Kill();
  EXPECT_TRUE(next.IsDoneWithin(kArrivesMs));
}

TEST_F(UpdateLock, LeavesAChildNoOpenFile) {
  auto file = Opened(path_, 1);
  ASSERT_EQ(file->SetFilePos(1), 0);
  const pid_t child = ::fork();
  if (child == 0) {
    char read = 0;
    unsigned char* data = nullptr;
    unsigned long long length = 0;
    const bool is_closed = file->Write("x", 1) == -7 && file->Read(&read, 1) == -8 &&
                           file->SetFilePos(0) == -2 && file->GetLength(&length) == -2 &&
                           file->SetEOF(0) == -2 && file->GetDF(&data, &length) == -2 &&
                           file->IsOpend() == -2 && file->CloseDF() == 0;
    ::_exit(is_closed && file->OpenDF(0) == 0 && file->Read(&read, 1) == 0 && read == 'k' ? 0 : 1);
  }
  int status = -1;
  ::waitpid(child, &status, 0);
  EXPECT_EQ(status, 0);
  char rest[2] = {};
  EXPECT_EQ(file->Read(rest, 2), 0);
  EXPECT_EQ(std::string(rest, 2), "ey") << "the child moved the parent's position";
}

// Also not with what a thread of its parent waits with, and whichever thread was in the middle of taking one.
TEST_F(UpdateLock, LeavesAChildOfThreadsFree) {
  auto file = Opened(path_, 1);
  std::thread waiter([&] { Opened(path_, 1).Reset(); });
  std::this_thread::sleep_for(std::chrono::milliseconds(kWaitsMs));
  const OtherProcess bystander([] {});
  file.Reset();
  waiter.join();
  EXPECT_TRUE(OtherProcess(Holding(1)).IsDoneWithin(kArrivesMs)) << "the bystander holds the waiter's lock";

  const std::string busy_path = folder_.File("busy");
  WriteFile(busy_path, "busy");
  std::atomic<bool> is_over = false;
  std::thread busy([&] {
    while (!is_over) Opened(busy_path, 1).Reset();
  });
  bool all_free = true;
  for (int i = 0; i < 50 && all_free; ++i) all_free = OtherProcess(Holding(1)).IsDoneWithin(kArrivesMs);
  is_over = true;
  busy.join();
  EXPECT_TRUE(all_free) << "a child found the table taken";
}

TEST_F(UpdateLock, IsNotInheritedByAChild) {
  auto parents = Opened(path_, 1);
  const OtherProcess bystander([] {});
  // Takes a lock of its own; closing what it inherited must not give that one back.
  OtherProcess heir([&] {
    auto own = Opened(path_, 1);
    parents.Reset();
    (void)own.Release();
  });
  EXPECT_FALSE(heir.IsDoneWithin(kWaitsMs));
  parents.Reset();
  EXPECT_TRUE(heir.IsDoneWithin(kArrivesMs)) << "the bystander still holds its parent's lock";
  const OtherProcess next(Holding(1));
  EXPECT_FALSE(next.IsDoneWithin(kWaitsMs));
}

}  // namespace
}  // namespace kestrune::testing
