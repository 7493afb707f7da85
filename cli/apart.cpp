#include "cli/apart.h"

#include <fcntl.h>
#include <poll.h>
#include <signal.h>
#include <spawn.h>
#include <sys/mman.h>
#include <sys/stat.h>
#include <sys/wait.h>

#include <array>
#include <cerrno>
#include <utility>

#include "cli/ending.h"
#include "cli/failure.h"
#include "cli/text.h"

namespace kestrune::cli {
namespace {

using std::chrono::milliseconds;
using std::chrono::steady_clock;

constexpr char kThisProgram[] = "/proc/self/exe";

[[noreturn]] void FailToStart(int error) {
  throw SystemFailure(error, _("the process that opens messages"));
}

// The lowest descriptors are the new process's own, so ours lie above them.
Descriptor Lifted(Descriptor descriptor) {
  if (!descriptor.is_open()) FailToStart(errno);
  Descriptor lifted(::fcntl(descriptor.get(), F_DUPFD_CLOEXEC, kAnswerDescriptor + 1));
  if (!lifted.is_open()) FailToStart(errno);
  return lifted;
}

struct Pipe {
  Pipe() {
    std::array<int, 2> ends{};
    if (::pipe2(ends.data(), O_CLOEXEC) != 0) FailToStart(errno);
    Descriptor first(ends[0]), second(ends[1]);
    out = Lifted(std::move(first));
    in = Lifted(std::move(second));
  }
  Descriptor out, in;
};

struct Attributes {
  Attributes() {
    ::posix_spawnattr_init(&attributes);
    sigset_t none, usual;
    sigemptyset(&none);
    sigemptyset(&usual);
    sigaddset(&usual, SIGPIPE);
    ::posix_spawnattr_setsigmask(&attributes, &none);
    ::posix_spawnattr_setsigdefault(&attributes, &usual);
    ::posix_spawnattr_setflags(&attributes, POSIX_SPAWN_SETSIGMASK | POSIX_SPAWN_SETSIGDEF);
    ::posix_spawn_file_actions_init(&actions);
  }
  Attributes(const Attributes&) = delete;
  Attributes& operator=(const Attributes&) = delete;
  ~Attributes() {
    ::posix_spawn_file_actions_destroy(&actions);
    ::posix_spawnattr_destroy(&attributes);
  }
  void Give(const Descriptor& ours, int theirs) {
    ::posix_spawn_file_actions_adddup2(&actions, ours.get(), theirs);
  }
  posix_spawnattr_t attributes;
  posix_spawn_file_actions_t actions;
};

// A child from its start to its end; ended where its owner goes first.
class Child {
 public:
  explicit Child(const Attributes& how) {
    std::array<char, sizeof kThisProgram> program{};
    std::copy(std::begin(kThisProgram), std::end(kThisProgram), program.begin());
    std::array<char, sizeof kApartWord> word{};
    std::copy(std::begin(kApartWord), std::end(kApartWord), word.begin());
    std::array<char*, 3> words = {program.data(), word.data(), nullptr};
    const auto lock = FinishUndisturbed();
    const int error =
        ::posix_spawn(&pid_, kThisProgram, &how.actions, &how.attributes, words.data(), environ);
    if (error != 0) FailToStart(error);
    RegisterChild(pid_);
  }
  Child(const Child&) = delete;
  Child& operator=(const Child&) = delete;
  ~Child() { (void)End(true); }

  // Waits for it; its exit status, -1 where a signal ended it.
  int End(bool kill) {
    if (pid_ <= 0) return -1;
    if (kill) ::kill(pid_, SIGKILL);
    siginfo_t info{};
    // Looked at first, taken away under the lock: its number is not another's while it is registered.
    while (::waitid(P_PID, static_cast<id_t>(pid_), &info, WEXITED | WNOWAIT) != 0 && errno == EINTR)
      continue;
    const auto lock = FinishUndisturbed();
    ForgetChild(pid_);
    int status = 0;
    const bool is_known = ::waitpid(std::exchange(pid_, 0), &status, 0) > 0;
    return is_known && WIFEXITED(status) ? WEXITSTATUS(status) : -1;
  }

 private:
  pid_t pid_ = 0;
};

// Hears steps until the child closes its end; false when the time is over.
bool Hear(int steps, std::chrono::seconds deadline, const std::function<void(int)>& on_step) {
  const auto end = steady_clock::now() + deadline;
  for (;;) {
    const auto left = std::chrono::ceil<milliseconds>(end - steady_clock::now());
    if (left.count() <= 0) return false;
    pollfd waited{steps, POLLIN, 0};
    constexpr milliseconds kLongestPause{1000};
    if (::poll(&waited, 1, static_cast<int>(std::min(left, kLongestPause).count())) <= 0) continue;
    unsigned char step = 0;
    const ssize_t got = ::read(steps, &step, 1);
    if (got == 0) return true;
    if (got == 1) on_step(step);
  }
}

}  // namespace

SharedBytes::SharedBytes(Descriptor memory) : memory_(std::move(memory)) {
  struct stat status {};
  if (::fstat(memory_.get(), &status) != 0) FailToStart(errno);
  size_ = static_cast<std::size_t>(status.st_size);
  if (size_ == 0) return;
  bytes_ = ::mmap(nullptr, size_, PROT_READ | PROT_WRITE, MAP_SHARED, memory_.get(), 0);
  if (bytes_ == MAP_FAILED) {
    bytes_ = nullptr;
    FailToStart(errno);
  }
}

SharedBytes::SharedBytes(SharedBytes&& other) noexcept
    : memory_(std::move(other.memory_)),
      bytes_(std::exchange(other.bytes_, nullptr)),
      size_(std::exchange(other.size_, 0)) {}

SharedBytes& SharedBytes::operator=(SharedBytes&& other) noexcept {
  std::swap(memory_, other.memory_);
  std::swap(bytes_, other.bytes_);
  std::swap(size_, other.size_);
  return *this;
}

SharedBytes::~SharedBytes() {
  if (bytes_ == nullptr) return;
  ::wipe(bytes_, size_);
  ::munmap(bytes_, size_);
}

Descriptor MakeSharedMemory() {
  return Lifted(Descriptor(::memfd_create("kestrune", MFD_CLOEXEC)));
}

void WriteShared(int memory, std::string_view bytes) {
  if (!WriteAll(memory, bytes)) FailToStart(errno);
}

Ending RunApart(const Descriptor& task, std::string_view secret, std::chrono::seconds deadline,
                const std::function<void(int)>& on_step, SharedBytes* answer) {
  Descriptor memory = MakeSharedMemory();
  Pipe secrets, steps;
  Attributes how;
  how.Give(secrets.out, kSecretDescriptor);
  how.Give(steps.in, kStepDescriptor);
  how.Give(task, kTaskDescriptor);
  how.Give(memory, kAnswerDescriptor);
  Child child(how);
  (void)secrets.out.Close();
  (void)steps.in.Close();
  // A pipe holds a pass phrase: this does not wait. Half of it would be taken for a wrong one; that the child is gone
  // already is seen below.
  if (!WriteAll(secrets.in.get(), secret) && errno != EPIPE) FailToStart(errno);
  (void)secrets.in.Close();
  const bool is_in_time = Hear(steps.out.get(), deadline, on_step);
  const int status = child.End(!is_in_time);
  SharedBytes bytes(std::move(memory));
  if (!is_in_time) return Ending::kTooLate;
  if (status != 0) return Ending::kDied;
  *answer = std::move(bytes);
  return Ending::kDone;
}

}  // namespace kestrune::cli
