// Many at once: processes and threads that seal, open and install in one folder, under limits, and are killed.
//
//   crowd SECONDS
//
// Members seal as fast as they can, each writing down what it sealed; some have next to no memory and descriptors,
// one installs keys in place of another that is in use. The parent kills one after the other with SIGKILL at random
// moments and starts another in its place. In between it takes the files' locks as a stranger would and looks
// at the headers; at the end of each round it opens all that was sealed with the second reading and looks for pad
// bytes that were handed out twice. One member lives from the first round to the last: its memory and its descriptors
// are looked at. The one trap is tried as it is, too.
#include <fcntl.h>
#include <signal.h>
#include <sys/mman.h>
#include <sys/wait.h>
#include <unistd.h>

#include <algorithm>
#include <chrono>
#include <cstdio>
#include <cstring>
#include <filesystem>
#include <fstream>
#include <map>
#include <memory>
#include <random>
#include <stdexcept>
#include <thread>
#include <vector>

#include "campaigns/crowd_members.h"
#include "campaigns/pad_use.h"
#include "core/instance_creator.h"
#include "keys/message_cipher.h"
#include "tests/support/sealed_message.h"

namespace {

using namespace kestrune;
using namespace kestrune::testing;
using Clock = std::chrono::steady_clock;
using std::chrono::milliseconds;

constexpr unsigned kMortals = 3, kLogsOfMember = 2;
constexpr unsigned kDeadlineSeconds = 240;  // beyond what was asked for
constexpr std::chrono::seconds kLongestRound{20};
constexpr std::size_t kLeastKills = 10;  // in a round, on a machine however busy
constexpr std::size_t kPadBytes = std::size_t{16} << 20, kSecondPadBytes = std::size_t{1} << 20;

// The folder of one round.
struct Yard : KeyFolder {
  PersonalKey stable;
  MasterKey master;
  std::string master_path = File("Master." + PersonalKeyYear());

  explicit Yard(Shared& shared) {
    AddSigningKey("rsa1024", "medecin");
    stable.first_pad = PadOf(kPadBytes, 1);
    stable.second_pad = PadOf(kSecondPadBytes, 2);
    master.pad = PadOf(2 * kPadBytes, 3);
    WriteFile(master_path, master.File());
    for (std::size_t user = 0; user < kChangingUser; ++user) WriteFile(KeyPath(user), stable.File());
    WriteFile(KeyPath(kChangingUser), InstalledKey(shared.installed).File());
    path().copy(shared.folder.data(), shared.folder.size() - 1);
  }
  std::string KeyPath(std::size_t user) const {
    return File(std::string(kUsers[user]) + "." + PersonalKeyYear());
  }
};

// A header, read while nobody else may write it (the deadline ends a lock left behind). No pad starts again in a
// round, so offsets and counters say the same; the rest never changes. True: a quarter of the pad is left.
bool CheckHeader(const std::string& path, const Bytes& first) {
  const int fd = ::open(path.c_str(), O_RDWR | O_CLOEXEC);
  struct flock lock {};
  lock.l_type = F_WRLCK;
  OrStop(::fcntl(fd, F_OFD_SETLKW, &lock) == 0, "a lock cannot be had");
  Bytes header(kKeyHeaderBytes);
  OrStop(::pread(fd, header.data(), header.size(), 0) == static_cast<ssize_t>(header.size()), "no header");
  ::close(fd);
  const std::uint64_t offset = NumberAt(header, kFirstOffsetAt), pad = NumberAt(header, kFirstPadBytesAt);
  OrStop(offset == NumberAt(header, kUsedBytesAt), "a torn header");
  OrStop(NumberAt(header, kCyclesAt) == 0, "a pad that started again");
  for (std::size_t at : {kFirstOffsetAt, kSecondOffsetAt, kUsesAt, kUsedBytesAt}) {
    SetNumberAt(header, at, NumberAt(first, at));
  }
  OrStop(header == first, "a header with other bytes changed");
  return offset < pad / 4 * 3;
}

// Opens what members wrote down, with the keys of one round.
class Audit {
 public:
  explicit Audit(Yard& yard) : yard_(yard) { pads_.master.swap(yard.master.pad); }

  std::size_t ReadLog(const std::string& path) {
    if (!FileExists(path)) return 0;
    const Bytes log = ReadFile(path);
    std::size_t bodies = 0;
    LogEntry record{};
    for (std::size_t at = 0; log.size() - at >= sizeof record; ++bodies) {
      std::memcpy(&record, &log[at], sizeof record);
      at += sizeof record;
      if (record.bytes > log.size() - at) break;
      Open(record, Bytes(&log[at], &log[at] + record.bytes));
      at += record.bytes;
    }
    return bodies;
  }

  void OrStopIfTwice() {
    for (std::size_t user = 0; user < kChangingUser; ++user) OrStopIfTwice(kUsers[user], stable_[user]);
    for (auto& [number, use] : installed_) OrStopIfTwice("installed key " + std::to_string(number), use);
    OrStopIfTwice("master key", master_);
  }

 private:
  // The folder stays, as everything does that a process leaves behind that ends in this way.
  void OrStopIfTwice(const std::string& key, auto& use) const {
    const std::string twice = use.Twice();
    OrStop(twice.empty(), key + ", " + twice + ", in " + yard_.path());
  }

  void Open(const LogEntry& record, const Bytes& sealed) {
    if (record.user != kChangingUser)
      return OrStop(OpenWith(yard_.stable, record, sealed, &stable_[record.user]), "what does not open");
    for (unsigned number = record.installed;; --number) {
      if (OpenWith(KeyOf(number), record, sealed, &installed_[number])) return;
      OrStop(number > 0, "what no key opens that was ever installed");
    }
  }

  PersonalKey& KeyOf(unsigned number) {
    const auto [at, is_new] = keys_.try_emplace(number);
    if (is_new) at->second = InstalledKey(number);
    return at->second;
  }

  bool OpenWith(PersonalKey& key, const LogEntry& record, const Bytes& sealed, PersonalUse* use) {
    pads_.first.swap(key.first_pad);
    pads_.second.swap(key.second_pad);
    SealedParts parts;
    std::uint64_t bytes = sealed.size();
    const bool opens = record.is_message != 0 ? OpenMessage(sealed, &parts, &bytes)
                                              : OpenParts(sealed, pads_, &parts) && IsBody(parts.body);
    pads_.first.swap(key.first_pad);
    pads_.second.swap(key.second_pad);
    if (!opens) return false;
    use->Add(parts, bytes);
    master_.Add(parts, bytes);
    return true;
  }

  bool OpenMessage(const Bytes& block, SealedParts* parts, std::uint64_t* bytes) const {
    try {
      const Layers layers = TakeApart(block, pads_);
      *parts = layers.green;
      *bytes = layers.grey.data.size();
      return std::any_of(layers.red.cells.begin(), layers.red.cells.end(),
                         [](const Cell& cell) { return cell.name == "TEXT" && IsBody(cell.data); });
    } catch (const std::runtime_error&) {
      return false;
    }
  }

  static bool IsBody(const Bytes& bytes) { return !bytes.empty() && bytes == Bytes(bytes.size(), kBodyByte); }

  Yard& yard_;
  Pads pads_;
  std::array<PersonalUse, kChangingUser> stable_;
  std::map<unsigned, PersonalUse> installed_;
  std::map<unsigned, PersonalKey> keys_;
  MasterUse master_;
};

// What /proc tells of a process that has nothing to do at the moment.
struct Footprint {
  std::size_t kilobytes = 0, descriptors = 0;
};
Footprint FootprintOf(pid_t process) {
  const std::string proc = "/proc/" + std::to_string(process);
  Footprint found;
  std::ifstream status(proc + "/status");
  for (std::string word; status >> word;) {
    if (word == "VmRSS:") status >> found.kilobytes;
  }
  for ([[maybe_unused]] const auto& entry : std::filesystem::directory_iterator(proc + "/fd"))
    ++found.descriptors;
  return found;
}

class Crowd {
 public:
  explicit Crowd(Shared& shared) : shared_(shared), lasting_(StartMember(shared, Temper::kLasting, 0)) {}

  void Run(std::chrono::seconds how_long) {
    const auto end = Clock::now() + how_long;
    const auto round = std::min<Clock::duration>(kLongestRound, how_long / 4);
    do {
      RunRound(Clock::now() + round);
    } while (Clock::now() < end);
    ::kill(lasting_, SIGKILL);
    OrStopUnlessKilled(lasting_);
    CheckFootprints();
    std::printf(
        "%zu rounds, %zu killed, %u keys installed: %zu bodies and messages sealed, %lu opened, %lu calls "
        "refused for want of memory or descriptors; no pad byte twice, no header torn, no lock left\n",
        footprints_.size(), killed_, shared_.installed.load(), sealed_, shared_.opened.load(),
        shared_.refused.load());
    std::printf(
        "the one that lived on: %zu kB and %zu descriptors after the first round, %zu kB and %zu after the "
        "last\n",
        footprints_.front().kilobytes, footprints_.front().descriptors, footprints_.back().kilobytes,
        footprints_.back().descriptors);
  }

 private:
  struct Member {
    pid_t process;
    Temper temper;
  };

  void RunRound(Clock::time_point end) {
    Yard yard(shared_);
    logs_ = kLogsOfMember;  // the first ones are the lasting member's
    std::vector<Member> members;
    for (unsigned i = 0; i < kMortals; ++i) members.push_back(Start(Temper::kMortal));
    for (const Temper temper : {Temper::kPoor, Temper::kInstaller}) members.push_back(Start(temper));
    shared_.is_open = true;
    const Bytes personal = HeaderOf(yard.KeyPath(0)), master = HeaderOf(yard.master_path);
    const std::size_t least = killed_ + kLeastKills;
    do {
      std::this_thread::sleep_for(std::chrono::microseconds(random_() % 30000));
      Member& member = members[random_() % members.size()];
      ::kill(member.process, SIGKILL);
      OrStopUnlessKilled(member.process);
      OrStop(::waitpid(lasting_, nullptr, WNOHANG) == 0, "the lasting member ended by itself");
      ++killed_;
      member = Start(member.temper);
    } while (IsPadLeft(yard, personal, master) && (killed_ < least || Clock::now() < end));
    shared_.is_open = false;
    for (const Member& member : members) ::kill(member.process, SIGKILL);
    for (const Member& member : members) OrStopUnlessKilled(member.process);
    while (shared_.at_work != 0) std::this_thread::sleep_for(milliseconds(1));
    (void)IsPadLeft(yard, personal, master);
    footprints_.push_back(FootprintOf(lasting_));
    Audit audit(yard);
    for (unsigned log = 0; log < logs_; ++log) sealed_ += audit.ReadLog(LogPath(yard.path(), log));
    audit.OrStopIfTwice();
    OrStop(sealed_ > 0, "nothing was sealed");
  }

  Member Start(Temper temper) {
    const Member started{StartMember(shared_, temper, logs_), temper};
    logs_ += kLogsOfMember;
    return started;
  }

  static Bytes HeaderOf(const std::string& path) {
    Bytes header = ReadFile(path);
    header.resize(kKeyHeaderBytes);
    for (std::size_t at : {kFirstOffsetAt, kSecondOffsetAt, kUsesAt, kUsedBytesAt})
      SetNumberAt(header, at, 0);
    return header;
  }

  static bool IsPadLeft(const Yard& yard, const Bytes& personal, const Bytes& master) {
    bool is_left = CheckHeader(yard.master_path, master);
    for (std::size_t user = 0; user < kChangingUser; ++user)
      is_left = CheckHeader(yard.KeyPath(user), personal) && is_left;
    return is_left;
  }

  static void OrStopUnlessKilled(pid_t process) {
    int status = 0;
    OrStop(::waitpid(process, &status, 0) == process && WIFSIGNALED(status) && WTERMSIG(status) == SIGKILL,
           "a member ended by itself");
  }

  // After the first rounds nothing grows any more, but for what the C library keeps in reserve.
  void CheckFootprints() const {
    constexpr std::size_t kReserve = 4096;  // kB
    const auto half = footprints_.begin() + static_cast<std::ptrdiff_t>(footprints_.size() / 2);
    const auto is_smaller = [](const Footprint& a, const Footprint& b) { return a.kilobytes < b.kilobytes; };
    OrStop(kIsSanitized || std::max_element(half, footprints_.end(), is_smaller)->kilobytes <=
                               std::max_element(footprints_.begin(), half, is_smaller)->kilobytes + kReserve,
           "memory that grows");
    OrStop(
        std::all_of(footprints_.begin(), footprints_.end(),
                    [&](const Footprint& found) { return found.descriptors == footprints_[0].descriptors; }),
        "descriptors left open");
  }

  Shared& shared_;
  const pid_t lasting_;
  std::minstd_rand random_{std::random_device{}()};
  unsigned logs_ = 0;
  std::size_t killed_ = 0, sealed_ = 0;
  std::vector<Footprint> footprints_;
};

// The trap as it is: it sleeps, its files closed, and a signal does not let it go.
void CheckTrap() {
  const MessageFolder yard;
  const Bytes sealed = SealParts(PartsOf({}), yard.pads());
  const std::string key_name = "durand." + PersonalKeyYear();
  const pid_t child = ::fork();
  if (child == 0) {
    ::signal(SIGUSR1, [](int) {});
    TypV2InstanceCreatorUnix creator;
    TypKestruneV2Unix cipher;
    cipher.InitCreate(&creator, "durand", yard.path().c_str(), "");
    unsigned char* out = nullptr;
    unsigned long long length = 0;
    cipher.Low_decrypter(sealed.data(), sealed.size(), key_name.c_str(), yard.personal.hex_password.c_str(),
                         &out, &length);
    ::_exit(0);
  }
  const std::string proc = "/proc/" + std::to_string(child);
  for (int i = 0; i < 3; ++i) {
    std::this_thread::sleep_for(milliseconds(300));
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
  const auto seconds = argc > 1 ? static_cast<unsigned>(std::strtoul(argv[1], nullptr, 10)) : 3U;
  ::alarm(kDeadlineSeconds + seconds);
  if (::access("/dev/shm", W_OK) == 0) ::setenv("TMPDIR", "/dev/shm", 1);  // more of them meet
  CheckTrap();
  void* const memory =
      ::mmap(nullptr, sizeof(Shared), PROT_READ | PROT_WRITE, MAP_SHARED | MAP_ANONYMOUS, -1, 0);
  OrStop(memory != MAP_FAILED, "no memory");
  Crowd(*new (memory) Shared{}).Run(std::chrono::seconds(seconds));
  return 0;
}
