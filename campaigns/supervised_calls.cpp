#include "campaigns/supervised_calls.h"

#include <linux/filter.h>
#include <linux/seccomp.h>
#include <poll.h>
#include <sys/ioctl.h>
#include <sys/prctl.h>
#include <sys/socket.h>
#include <sys/syscall.h>
#include <sys/uio.h>
#include <sys/wait.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <cerrno>
#include <climits>
#include <cstddef>
#include <cstdlib>
#include <cstring>
#include <filesystem>
#include <fstream>
#include <system_error>

#include "campaigns/pad_use.h"

namespace kestrune::testing {
namespace {

long OrStopFor(long result, const char* what) {
  OrStop(result >= 0, std::string(what) + ": " + ::strerror(errno));
  return result;
}

// From now on, calls of these numbers wait. The descriptor that hears of them.
int Listen(const std::vector<int>& numbers) {
  std::vector<sock_filter> filter = {BPF_STMT(BPF_LD | BPF_W | BPF_ABS, offsetof(seccomp_data, nr))};
  for (const int number : numbers) {
    filter.push_back(BPF_JUMP(BPF_JMP | BPF_JEQ | BPF_K, static_cast<unsigned>(number), 0, 1));
    filter.push_back(BPF_STMT(BPF_RET | BPF_K, SECCOMP_RET_USER_NOTIF));
  }
  filter.push_back(BPF_STMT(BPF_RET | BPF_K, SECCOMP_RET_ALLOW));
  const sock_fprog program{static_cast<unsigned short>(filter.size()), filter.data()};
  OrStopFor(::prctl(PR_SET_NO_NEW_PRIVS, 1, 0, 0, 0), "PR_SET_NO_NEW_PRIVS");
  return static_cast<int>(
      OrStopFor(::syscall(SYS_seccomp, SECCOMP_SET_MODE_FILTER, SECCOMP_FILTER_FLAG_NEW_LISTENER, &program),
                "supervising system calls"));
}

// Another process's descriptor, as one of this process.
int DescriptorOf(pid_t process, int descriptor) {
  const int handle = static_cast<int>(OrStopFor(::syscall(SYS_pidfd_open, process, 0), "pidfd_open"));
  const int own = static_cast<int>(
      OrStopFor(::syscall(SYS_pidfd_getfd, handle, descriptor, 0), "taking a descriptor over"));
  ::close(handle);
  return own;
}

// The process that a thread belongs to.
pid_t ProcessOf(pid_t thread) {
  std::ifstream status("/proc/" + std::to_string(thread) + "/status");
  for (std::string word; status >> word;) {
    pid_t process = 0;
    if (word == "Tgid:" && status >> process) return process;
  }
  return thread;
}

std::string InProc(pid_t thread, const char* what, int descriptor) {
  return "/proc/" + std::to_string(thread) + "/" + what + "/" + std::to_string(descriptor);
}

}  // namespace

std::string SystemCall::Bytes(std::uint64_t address, std::uint64_t count) const {
  std::string bytes(count, 0);
  const iovec to{bytes.data(), count}, from{reinterpret_cast<void*>(address), count};
  const ssize_t got = ::process_vm_readv(thread, &to, 1, &from, 1, 0);
  bytes.resize(got < 0 ? 0 : static_cast<std::size_t>(got));
  return bytes;
}

std::string SystemCall::Text(int argument) const {
  // In pieces that end with a page, for the next one may not be there.
  constexpr std::uint64_t kPage = 4096;
  std::string text;
  for (std::uint64_t at = arguments[static_cast<unsigned>(argument)]; text.size() < PATH_MAX;) {
    const std::string piece = Bytes(at, kPage - at % kPage);
    const std::size_t end = piece.find('\0');
    text += piece.substr(0, end);
    if (end != std::string::npos || piece.empty()) break;
    at += piece.size();
  }
  return text;
}

std::string SystemCall::PathOf(int descriptor) const {
  std::error_code failed;
  return std::filesystem::read_symlink(InProc(thread, "fd", descriptor), failed);
}

std::uint64_t SystemCall::PositionOf(int descriptor) const {
  std::ifstream info(InProc(thread, "fdinfo", descriptor));
  std::string word;
  std::uint64_t position = 0;
  info >> word >> position;
  return position;
}

long SystemCall::MakeHalf() const {
  const std::size_t count = std::max<std::size_t>(arguments[2] / 2, 1);
  const int own = DescriptorOf(ProcessOf(thread), Descriptor());
  std::string bytes = number == SYS_write ? Bytes(arguments[1], count) : std::string(count, 0);
  const ssize_t done = number == SYS_write ? ::write(own, bytes.data(), bytes.size())
                                           : ::read(own, bytes.data(), bytes.size());
  const long result = done < 0 ? -errno : done;
  ::close(own);
  if (number == SYS_write || done <= 0) return result;
  const auto length = static_cast<std::size_t>(done);
  const iovec from{bytes.data(), length}, to{reinterpret_cast<void*>(arguments[1]), length};
  OrStopFor(::process_vm_writev(thread, &from, 1, &to, 1, 0), "writing into the child");
  return result;
}

bool SupervisedChild::IsPossible() {
  const std::uint32_t wanted = SECCOMP_RET_USER_NOTIF;
  return ::syscall(SYS_seccomp, SECCOMP_GET_ACTION_AVAIL, 0, &wanted) == 0;
}

SupervisedChild::SupervisedChild(const std::vector<int>& numbers, const std::function<int()>& work) {
  std::array<int, 2> sockets{};
  OrStopFor(::socketpair(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC, 0, sockets.data()), "socketpair");
  process_ = static_cast<pid_t>(OrStopFor(::fork(), "fork"));
  int listener = -1;
  if (process_ == 0) {
    ::close(sockets[0]);
    listener = Listen(numbers);
    (void)::send(sockets[1], &listener, sizeof listener, 0);
    (void)::recv(sockets[1], &listener, sizeof listener, 0);  // until the parent has it
    ::close(listener);
    ::close(sockets[1]);
    ::_exit(work());
  }
  ::close(sockets[1]);
  OrStop(::recv(sockets[0], &listener, sizeof listener, 0) == sizeof listener, "no supervision");
  listener_ = DescriptorOf(process_, listener);
  (void)::send(sockets[0], &listener, sizeof listener, 0);
  ::close(sockets[0]);
}

SupervisedChild::~SupervisedChild() {
  ::close(listener_);
}

int SupervisedChild::Run(const std::function<Answer(const SystemCall&)>& answer) {
  pollfd heard{listener_, POLLIN, 0};
  for (;;) {
    if (::poll(&heard, 1, -1) < 0 && errno == EINTR) continue;
    if ((heard.revents & POLLIN) == 0) break;  // nobody is left who could call
    seccomp_notif call{};
    if (::ioctl(listener_, SECCOMP_IOCTL_NOTIF_RECV, &call) != 0) continue;  // he was killed meanwhile
    SystemCall told{static_cast<pid_t>(call.pid), call.data.nr, {}, call.data.instruction_pointer};
    std::copy_n(call.data.args, told.arguments.size(), told.arguments.begin());
    const Answer given = answer(told);
    seccomp_notif_resp response{};
    response.id = call.id;
    if (given.is_made) {
      response.flags = SECCOMP_USER_NOTIF_FLAG_CONTINUE;
    } else if (given.result < 0) {
      response.error = static_cast<int>(given.result);
    } else {
      response.val = given.result;
    }
    (void)::ioctl(listener_, SECCOMP_IOCTL_NOTIF_SEND, &response);
  }
  int status = 0;
  OrStop(::waitpid(process_, &status, 0) == process_, "the child is lost");
  return status;
}

}  // namespace kestrune::testing
