// Programs that seal with one key at the same time and are killed while they do.
//
//   killing KILLS
//
// Children seal short bodies as fast as they can, each writing what it sealed into a log of its own; the
// parent kills one after the other with SIGKILL at random moments and starts another in its place. In between
// it takes the files' locks as a stranger would and looks at the headers; at the end it opens every sealed
// body with the second reading and looks for pad bytes that were handed out twice. The one trap is tried as
// it is, too.
#include <fcntl.h>
#include <signal.h>
#include <sys/wait.h>
#include <unistd.h>

#include <algorithm>
#include <chrono>
#include <cstdio>
#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <random>
#include <string>
#include <thread>
#include <utility>
#include <vector>

#include "core/instance_creator.h"
#include "keys/message_cipher.h"
#include "tests/keys/keys_folder.h"

namespace {

using namespace kestrune;
using namespace kestrune::testing;

constexpr unsigned kProcesses = 4;
constexpr unsigned kDeadlineSeconds = 120;  // and one for each kill

using Ranges = std::vector<std::pair<std::uint64_t, std::uint64_t>>;  // beginnings and lengths

void OrStop(bool fine, const char* what) {
  if (fine) return;
  std::printf("FAILED: %s\n", what);
  std::exit(1);
}

struct Yard : KeysFolder {
  Yard() {
    personal.first_pad = PadOf(std::size_t{64} << 20, 1);
    personal.second_pad = PadOf(std::size_t{4} << 20, 2);
    master.pad = PadOf(std::size_t{64} << 20, 3);
    Write();
  }
};

// One child: seals until it is killed.
[[noreturn]] void SealForEver(const Yard& yard, const std::string& log, unsigned seed) {
  TypV2InstanceCreatorUnix creator;
  TypKestruneV2Unix cipher;
  if (cipher.InitCreate(&creator, "cle", yard.path().c_str(), yard.personal.hex_password.c_str()) != 0)
    ::_exit(2);
  const int fd = ::open(log.c_str(), O_WRONLY | O_CREAT | O_EXCL | O_APPEND, 0600);
  std::minstd_rand random(seed);
  for (;;) {
    const Bytes body(1 + random() % 2000, 'x');
    CBuffer sealed;
    if (sealed.Receive([&](auto** bytes, auto* length) {
          return cipher.Low_crypter(body.data(), body.size(), bytes, length);
        }) != 0) {
      ::_exit(3);
    }
    Bytes record(8);
    SetNumberAt(record, 0, sealed.size());
    record.insert(record.end(), sealed.data(), sealed.data() + sealed.size());
    if (::write(fd, record.data(), record.size()) != static_cast<ssize_t>(record.size())) ::_exit(4);
  }
}

std::string Log(const Yard& yard, unsigned number) {
  return yard.File("log" + std::to_string(number));
}

pid_t StartSealing(const Yard& yard, unsigned number) {
  const pid_t child = ::fork();
  if (child == 0) SealForEver(yard, Log(yard, number), number + 1);
  return child;
}

// The header, read while nobody else may write it (the deadline ends a lock left behind). Neither pad starts
// again in a run this long, so offsets and counters say the same; the rest never changes.
std::uint64_t CheckedUses(const std::string& path, const Bytes& first) {
  const int fd = ::open(path.c_str(), O_RDWR | O_CLOEXEC);
  struct flock lock {};
  lock.l_type = F_WRLCK;
  OrStop(::fcntl(fd, F_OFD_SETLKW, &lock) == 0, "a lock cannot be had");
  Bytes header(kKeyHeaderBytes);
  OrStop(::pread(fd, header.data(), header.size(), 0) == static_cast<ssize_t>(header.size()), "no header");
  ::close(fd);
  OrStop(NumberAt(header, kFirstOffsetAt) == NumberAt(header, kUsedBytesAt), "a torn header");
  OrStop(NumberAt(header, kCyclesAt) == 0, "a pad that started again: the run is too long for its pads");
  const std::uint64_t uses = NumberAt(header, kUsesAt);
  for (std::size_t at : {kFirstOffsetAt, kSecondOffsetAt, kUsesAt, kUsedBytesAt}) {
    SetNumberAt(header, at, NumberAt(first, at));
  }
  OrStop(std::equal(header.begin(), header.end(), first.begin()), "a header with other bytes changed");
  return uses;
}

void CheckOnce(Ranges ranges, const char* what) {
  std::sort(ranges.begin(), ranges.end());
  for (std::size_t i = 1; i < ranges.size(); ++i) {
    OrStop(ranges[i].first - ranges[i - 1].first >= ranges[i - 1].second, what);
  }
}

// Opens everything in the logs; a record that was cut short by a kill ends its log.
std::size_t CheckLogs(const Yard& yard, unsigned logs) {
  const Pads pads = yard.pads();
  Ranges first, second, master;
  for (unsigned number = 0; number < logs; ++number) {
    if (!FileExists(Log(yard, number))) continue;
    const Bytes log = ReadFile(Log(yard, number));
    for (std::size_t at = 0; log.size() - at >= 8;) {
      const std::uint64_t length = NumberAt(log, at);
      at += 8;
      if (length > log.size() - at) break;
      SealedParts parts;
      OrStop(OpenParts(Bytes(&log[at], &log[at] + length), pads, &parts) &&
                 parts.body == Bytes(parts.body.size(), 'x'),
             "a body that does not open");
      at += length;
      first.push_back({parts.run_offset, length});
      second.push_back({parts.password_offset, 32});
      master.push_back({parts.master_offset, length - 24});
    }
  }
  CheckOnce(first, "bytes of the first pad handed out twice");
  CheckOnce(second, "a one-time password handed out twice");
  CheckOnce(master, "bytes of the master pad handed out twice");
  return first.size();
}

void KillAndCheck(unsigned kills) {
  const Yard yard;
  const std::string personal_path = yard.File(yard.personal_name), master_path = yard.File(yard.master_name);
  const Bytes personal = ReadFile(personal_path), master = ReadFile(master_path);
  std::minstd_rand random(std::random_device{}());
  unsigned started = 0;
  std::vector<pid_t> children;
  while (started < kProcesses) children.push_back(StartSealing(yard, started++));
  for (unsigned i = 0; i < kills; ++i) {
    std::this_thread::sleep_for(std::chrono::microseconds(random() % 30000));
    pid_t& child = children[random() % kProcesses];
    ::kill(child, SIGKILL);
    int status = 0;
    OrStop(::waitpid(child, &status, 0) == child && WIFSIGNALED(status), "a child that ended by itself");
    CheckedUses(personal_path, personal);
    CheckedUses(master_path, master);
    child = StartSealing(yard, started++);
  }
  for (const pid_t child : children) ::kill(child, SIGKILL);
  while (::wait(nullptr) > 0) {
  }
  const std::size_t sealed = CheckLogs(yard, started);
  OrStop(sealed > 0 && sealed <= CheckedUses(personal_path, personal), "more bodies than hand-outs");
  std::printf("%u killed: %zu bodies sealed, no pad byte twice, no header torn, no lock left\n", started,
              sealed);
}

// The trap as it is: it sleeps, its files closed, and a signal does not let it go.
void CheckTrap() {
  const Yard yard;
  const Bytes sealed = SealParts(PartsOf({}), yard.pads());
  const pid_t child = ::fork();
  if (child == 0) {
    ::signal(SIGUSR1, [](int) {});
    TypV2InstanceCreatorUnix creator;
    TypKestruneV2Unix cipher;
    cipher.InitCreate(&creator, "cle", yard.path().c_str(), "");
    unsigned char* out = nullptr;
    unsigned long long length = 0;
    cipher.Low_decrypter(sealed.data(), sealed.size(), yard.personal_name.c_str(),
                         yard.personal.hex_password.c_str(), &out, &length);
    ::_exit(0);
  }
  const std::string proc = "/proc/" + std::to_string(child);
  for (int i = 0; i < 3; ++i) {
    std::this_thread::sleep_for(std::chrono::milliseconds(300));
    std::ifstream stat(proc + "/stat");
    std::string word;
    for (int field = 0; field < 3; ++field) stat >> word;
    OrStop(word == "S", "the trap does not sleep");
    ::kill(child, SIGUSR1);
  }
  for (const auto& entry : std::filesystem::directory_iterator(proc + "/fd")) {
    const std::string target = std::filesystem::read_symlink(entry.path());
    OrStop(target.rfind(yard.path(), 0) != 0, "a key file is open in the trap");
  }
  ::kill(child, SIGKILL);
  ::waitpid(child, nullptr, 0);
}

}  // namespace

int main(int argc, char** argv) {
  const auto kills = argc > 1 ? static_cast<unsigned>(std::strtoul(argv[1], nullptr, 10)) : 20U;
  ::alarm(kDeadlineSeconds + kills);
  CheckTrap();
  KillAndCheck(kills);
  return 0;
}
