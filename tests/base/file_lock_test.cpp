#include <gtest/gtest.h>
#include <poll.h>
#include <signal.h>

#include <atomic>
#include <chrono>
#include <cstdio>
#include <future>
#include <string>
#include <thread>

#include "tests/support/bytes.h"
#include "tests/support/child.h"
#include "tests/support/file_at.h"
#include "tests/support/temp_folder.h"

namespace kestrune::testing {
namespace {

constexpr int kWaitsMs = 200;      // long enough to see that somebody waits
constexpr int kArrivesMs = 20000;  // short enough to notice that nobody comes

Owned<TypV2FileRef> Opened(const std::string& path, int mode = 1) {
  auto file = FileAt(path);
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
    if (child_ = ::fork(); child_ == 0) {
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
  std::function<void()> Holding() const {
    return [this] { (void)Opened(path_).release(); };
  }
  TempFolder folder_;
  std::string path_;
};

TEST_F(UpdateLock, KeepsOthersWaitingUntilTheLastHolderCloses) {
  auto first = Opened(path_);
  auto second = Opened(path_);  // one process does not block itself
  const OtherProcess updater(Holding());
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
  auto first = Opened(path_);
  auto second = Opened(path_);  // one thread does not block itself
  const auto other = std::async(std::launch::async, [&] { Opened(path_).Reset(); });
  first.Reset();
  EXPECT_EQ(other.wait_for(std::chrono::milliseconds(kWaitsMs)), std::future_status::timeout);
  std::thread([&] { second.Reset(); }).join();  // whoever closes, it is given back
  EXPECT_EQ(other.wait_for(std::chrono::milliseconds(kArrivesMs)), std::future_status::ready);
}

TEST_F(UpdateLock, IsTakenAnewWhenThePathLeadsElsewhereByThen) {
  auto file = Opened(path_);
  const OtherProcess waiter([&] { (void)Opened(path_)->Write("N", 1); });
  EXPECT_FALSE(waiter.IsDoneWithin(kWaitsMs));
  WriteFile(folder_.File("new"), "new");
  ASSERT_EQ(std::rename(folder_.File("new").c_str(), path_.c_str()), 0);
  file.Reset();
  EXPECT_TRUE(waiter.IsDoneWithin(kArrivesMs));
  EXPECT_EQ(ToText(ReadFile(path_)), "New");
}

TEST_F(UpdateLock, DiesWithItsProcessAndStopsNoReader) {
  OtherProcess holder(Holding());
  ASSERT_TRUE(holder.IsDoneWithin(kArrivesMs));
  Opened(path_, 0).Reset();
  Opened(path_, 2).Reset();
  OtherProcess next(Holding());
  EXPECT_FALSE(next.IsDoneWithin(kWaitsMs));
  holder.Kill();
  EXPECT_TRUE(next.IsDoneWithin(kArrivesMs));
}

TEST_F(UpdateLock, LeavesAChildNoOpenFile) {
  auto file = Opened(path_);
  ASSERT_EQ(file->SetFilePos(1), 0);
  EXPECT_TRUE(HoldsInAChild([&] {
    char read = 0;
    unsigned char* data = nullptr;
    unsigned long long length = 0;
    const bool is_closed = file->Write("x", 1) == -7 && file->Read(&read, 1) == -8 &&
                           file->SetFilePos(0) == -2 && file->GetLength(&length) == -2 &&
                           file->SetEOF(0) == -2 && file->GetDF(&data, &length) == -2 &&
                           file->IsOpend() == -2 && file->CloseDF() == 0;
    return is_closed && file->OpenDF(0) == 0 && file->Read(&read, 1) == 0 && read == 'k';
  }));
  char rest[2] = {};
  EXPECT_EQ(file->Read(rest, 2), 0);
  EXPECT_EQ(std::string(rest, 2), "ey") << "the child moved the parent's position";
}

// Neither its parent's lock, nor what a thread of its parent waits with.
TEST_F(UpdateLock, IsNotInheritedByAChild) {
  auto parents = Opened(path_);
  std::thread waiter([&] { Opened(path_).Reset(); });
  std::this_thread::sleep_for(std::chrono::milliseconds(kWaitsMs));
  const OtherProcess bystander([] {});
  // Takes a lock of its own; closing what it inherited must not give that one back.
  OtherProcess heir([&] {
    auto own = Opened(path_);
    parents.Reset();
    (void)own.release();
  });
  EXPECT_FALSE(heir.IsDoneWithin(kWaitsMs));
  parents.Reset();
  waiter.join();
  EXPECT_TRUE(heir.IsDoneWithin(kArrivesMs)) << "the bystander holds the parent's lock or the waiter's";
  EXPECT_FALSE(OtherProcess(Holding()).IsDoneWithin(kWaitsMs));
}

TEST_F(UpdateLock, LeavesAChildOfABusyThreadFree) {
  const std::string busy_path = folder_.File("busy");
  WriteFile(busy_path, "busy");
  std::atomic<bool> is_over = false;
  std::thread busy([&] {
    while (!is_over) Opened(busy_path).Reset();
  });
  bool all_free = true;
  for (int i = 0; i < 50 && all_free; ++i) all_free = OtherProcess(Holding()).IsDoneWithin(kArrivesMs);
  is_over = true;
  busy.join();
  EXPECT_TRUE(all_free) << "a child found the table taken";
}

}  // namespace
}  // namespace kestrune::testing
