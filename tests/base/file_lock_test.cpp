#include <fcntl.h>
#include <gtest/gtest.h>
#include <poll.h>
#include <signal.h>
#include <sys/wait.h>
#include <unistd.h>

#include <functional>
#include <string>

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
