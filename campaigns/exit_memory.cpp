#include "campaigns/exit_memory.h"

#include <fcntl.h>
#include <pty.h>
#include <sys/ioctl.h>
#include <sys/ptrace.h>
#include <sys/wait.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <csignal>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <fstream>
#include <iterator>
#include <sstream>

#include "tests/support/bytes.h"
#include "tests/support/temp_folder.h"

namespace kestrune::testing {
namespace {

constexpr std::size_t kMostOfRegion = std::size_t{64} << 20;
constexpr std::size_t kShownBytes = 24;

void OrStop(bool holds, const char* what) {
  if (holds) return;
  std::perror(what);
  std::exit(EXIT_FAILURE);
}

// ---- Looking ---------------------------------------------------------------------------------------

struct Region {
  std::size_t begin = 0, end = 0;
  std::string name;
};

std::vector<Region> WritableRegions(pid_t process) {
  std::ifstream maps("/proc/" + std::to_string(process) + "/maps");
  std::vector<Region> regions;
  for (std::string line; std::getline(maps, line);) {
    std::istringstream words(line);
    Region region;
    std::string range, rights, skipped;
    words >> range >> rights >> skipped >> skipped >> skipped >> region.name;
    std::sscanf(range.c_str(), "%zx-%zx", &region.begin, &region.end);
    if (rights[1] == 'w') regions.push_back(region);
  }
  return regions;
}

// Where the arguments and the environment lie.
Region WordsOf(pid_t process) {
  constexpr int kArgumentsField = 48;  // of those behind the name, which may hold anything
  std::ifstream stat("/proc/" + std::to_string(process) + "/stat");
  const std::string all((std::istreambuf_iterator<char>(stat)), {});
  std::istringstream fields(all.substr(all.rfind(')') + 1));
  std::vector<std::string> values((std::istream_iterator<std::string>(fields)), {});
  const auto at = [&](int field) { return std::stoul(values.at(static_cast<std::size_t>(field - 3))); };
  return {at(kArgumentsField), at(kArgumentsField + 3), ""};
}

// Printable bytes around a find, so that it is recognised.
std::string Around(const std::string& bytes, std::size_t at) {
  const std::size_t begin = at < kShownBytes ? 0 : at - kShownBytes;
  std::string shown = bytes.substr(begin, 3 * kShownBytes);
  std::replace_if(
      shown.begin(), shown.end(), [](char c) { return c < ' ' || c > '~'; }, '.');
  return shown;
}

class Look {
 public:
  Look(pid_t process, const std::vector<Mark>& marks, AtExit* at_exit)
      : memory_(::open(("/proc/" + std::to_string(process) + "/mem").c_str(), O_RDONLY | O_CLOEXEC)),
        marks_(marks),
        at_exit_(at_exit) {
    OrStop(memory_ >= 0, "a process's memory");
    const Region words = WordsOf(process);

    for (const Region& region : WritableRegions(process)) Search(region, words);
    ::close(memory_);
    ++at_exit->processes;
  }

 private:
  void Search(const Region& region, const Region& words) {
    std::string bytes(std::min(region.end - region.begin, kMostOfRegion), 0);
    const ssize_t got = ::pread(memory_, bytes.data(), bytes.size(), static_cast<off_t>(region.begin));
    if (got <= 0) return;  // the kernel's own
    bytes.resize(static_cast<std::size_t>(got));
    if (words.begin >= region.begin && words.end <= region.end) {
      bytes.replace(words.begin - region.begin, words.end - words.begin, words.end - words.begin, 0);
    }
    at_exit_->bytes += bytes.size();
    for (const Mark& mark : marks_) {
      const std::size_t at = bytes.find(mark.bytes);
      if (at == std::string::npos) continue;
      char place[64];
      std::snprintf(place, sizeof place, " at %#zx of ", at);
      at_exit_->found.push_back("<" + mark.secret + ">" + place +
                                (region.name.empty() ? "memory" : region.name) + ": " + Around(bytes, at));
    }
  }

  int memory_;
  const std::vector<Mark>& marks_;
  AtExit* at_exit_;
};

// Not one thread of several, whose memory is still used.
bool IsWholeProcess(pid_t thread) {
  std::ifstream status("/proc/" + std::to_string(thread) + "/status");
  for (std::string word; status >> word;) {
    if (word == "Tgid:" && status >> word) return word == std::to_string(thread);
  }
  return false;
}

// ---- Running ---------------------------------------------------------------------------------------

[[noreturn]] void Become(const Command& command, const TempFolder& folder, const char* terminal) {
  const char* const names[] = {"in", "out", "err"};
  for (int fd = 0; fd < 3; ++fd) {
    const int flags = fd == 0 ? O_RDONLY : O_WRONLY | O_CREAT | O_TRUNC;
    ::dup2(::open(folder.File(names[fd]).c_str(), flags | O_CLOEXEC, 0600), fd);
  }
  ::setsid();
  if (terminal != nullptr) {
    const int fd = ::open(terminal, O_RDWR | O_CLOEXEC);  // becomes the session's
    ::ioctl(fd, TIOCSCTTY, 0);
    ::dup2(fd, STDOUT_FILENO);
  }
  std::vector<char*> argv;
  for (const std::string& word : command.words) argv.push_back(const_cast<char*>(word.c_str()));
  argv.push_back(nullptr);
  ::ptrace(PTRACE_TRACEME, 0, nullptr, nullptr);
  ::raise(SIGSTOP);
  ::execv(argv[0], argv.data());
  ::_exit(127);
}

// A terminal at whose other end the words are typed as soon as they are asked for.
class Terminal {
 public:
  explicit Terminal(const std::string& typed) : typed_(typed) {
    if (typed.empty()) return;
    int other = -1;
    char name[64];
    OrStop(::openpty(&end_, &other, name, nullptr, nullptr) == 0, "a terminal");
    name_ = name;
    other_ = other;
    ::fcntl(end_, F_SETFL, O_NONBLOCK);
  }
  Terminal(const Terminal&) = delete;
  Terminal& operator=(const Terminal&) = delete;
  ~Terminal() {
    ::close(end_);
    ::close(other_);
  }
  const char* name() const { return typed_.empty() ? nullptr : name_.c_str(); }

  void TypeWhenAsked() {
    char asked[4096];
    const ssize_t got = ::read(end_, asked, sizeof asked);
    if (got <= 0) return;
    shown_.append(asked, static_cast<std::size_t>(got));
    if (!is_typed_) is_typed_ = ::write(end_, typed_.data(), typed_.size()) > 0;
  }
  const std::string& shown() const { return shown_; }

 private:
  std::string typed_, name_, shown_;
  int end_ = -1, other_ = -1;
  bool is_typed_ = false;
};

int StatusOf(int status) {
  return WIFEXITED(status) ? WEXITSTATUS(status) : 128 + WTERMSIG(status);
}

}  // namespace

AtExit LookAtExit(const Command& command, std::vector<Mark> marks,
                  const std::function<std::vector<Mark>()>& learn) {
  const TempFolder folder;
  WriteFile(folder.File("in"), command.input);
  Terminal terminal(command.typed);
  const pid_t child = ::fork();
  if (child == 0) Become(command, folder, terminal.name());
  int status = 0;
  OrStop(::waitpid(child, &status, 0) == child && WIFSTOPPED(status), "a command that can be looked at");
  OrStop(::ptrace(PTRACE_SETOPTIONS, child, nullptr,
                  PTRACE_O_TRACEEXIT | PTRACE_O_TRACEFORK | PTRACE_O_TRACEVFORK | PTRACE_O_TRACECLONE |
                      PTRACE_O_TRACEEXEC | PTRACE_O_EXITKILL) == 0,
         "following a command");
  ::ptrace(PTRACE_CONT, child, nullptr, nullptr);

  AtExit at_exit;
  for (;;) {
    const pid_t stopped = ::waitpid(-1, &status, __WALL | (command.typed.empty() ? 0 : WNOHANG));
    if (stopped < 0) break;
    if (stopped == 0) {
      terminal.TypeWhenAsked();
      ::usleep(1000);
      continue;
    }
    if (!WIFSTOPPED(status)) {
      if (stopped == child) at_exit.status = StatusOf(status);
      continue;
    }
    const int event = status >> 16;
    if (event == PTRACE_EVENT_EXIT && IsWholeProcess(stopped)) {
      if (learn && stopped == child) {
        const std::vector<Mark> more = learn();
        marks.insert(marks.end(), more.begin(), more.end());
      }
      Look(stopped, marks, &at_exit);
    }
    const int signal = WSTOPSIG(status);
    const bool is_own = event == 0 && signal != SIGSTOP && signal != SIGTRAP;
    ::ptrace(PTRACE_CONT, stopped, nullptr, is_own ? signal : 0);
  }
  at_exit.out = command.typed.empty() ? ToText(ReadFile(folder.File("out"))) : terminal.shown();
  at_exit.err = ToText(ReadFile(folder.File("err")));
  return at_exit;
}

bool CanLook() {
  const pid_t child = ::fork();
  if (child == 0) ::_exit(::ptrace(PTRACE_TRACEME, 0, nullptr, nullptr) == 0 ? 0 : 1);
  int status = 0;
  return ::waitpid(child, &status, 0) == child && WIFEXITED(status) && WEXITSTATUS(status) == 0;
}

}  // namespace kestrune::testing
