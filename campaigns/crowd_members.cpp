#include "campaigns/crowd_members.h"

#include <fcntl.h>
#include <kestrune/kestrune.h>
#include <sys/prctl.h>
#include <sys/resource.h>
#include <sys/uio.h>
#include <unistd.h>

#include <csignal>
#include <cstdio>
#include <fstream>
#include <new>
#include <random>
#include <thread>

#include "campaigns/pad_use.h"
#include "core/instance_creator.h"
#include "core/owned.h"
#include "keys/install_cipher.h"
#include "keys/message_cipher.h"

namespace kestrune::testing {
namespace {

constexpr rlim_t kDescriptors = 64, kMemory = rlim_t{1} << 30;
constexpr unsigned kThreads = 2;
constexpr std::size_t kMostBytes = 3000, kMostBytesOfLarge = 300000;
constexpr unsigned kOneOfLarge = 50;  // so many bodies are small ones
constexpr useconds_t kPause = 1000;
constexpr char kTransportKey[] = "00112233445566778899aabbccddeeff00112233445566778899aabbccddeeff";

std::size_t AddressSpace() {
  std::size_t pages = 0;
  std::ifstream("/proc/self/statm") >> pages;
  return pages * static_cast<std::size_t>(::sysconf(_SC_PAGESIZE));
}

void Limit(int what, rlim_t most) {
  const rlimit limit{most, most};
  OrStop(::setrlimit(static_cast<__rlimit_resource>(what), &limit) == 0, "a limit cannot be set");
}

void LimitMemory(rlim_t most) {
  if (!kIsSanitized) Limit(RLIMIT_AS, most);
}

// One that seals, writes down what it sealed, and opens it.
class Sealer {
 public:
  Sealer(Shared& shared, bool is_poor, unsigned number)
      : shared_(shared), is_poor_(is_poor), number_(number), random_(std::random_device{}()) {}

  void Step() {
    const std::string folder = shared_.folder.data();
    const auto draw = [this](std::size_t count) { return static_cast<std::uint32_t>(random_() % count); };
    LogEntry record{draw(kUsers.size()), draw(2), 0, 0};
    if (!IsPadLeft(folder + kUsers[record.user]) || !IsPadLeft(folder + "Master")) {
      ::usleep(kPause);
      return;
    }
    const int log = ::open(LogPath(folder, number_).c_str(), O_WRONLY | O_CREAT | O_APPEND | O_CLOEXEC, 0600);
    if (!Holds(log >= 0 ? kOk : file::kOpen, "a log")) return;
    const bool is_large = record.user != kChangingUser && draw(kOneOfLarge) == 0;
    const std::string body(1 + draw(is_large ? kMostBytesOfLarge : kMostBytes), kBodyByte);
    CBuffer sealed;
    const long rc = record.is_message != 0 ? SealMessage(folder, kUsers[record.user], body, &sealed)
                                           : SealBody(folder, kUsers[record.user], body, &sealed);
    record.installed = shared_.installed;
    // The key that changes may be half installed, or left so by one who was killed at it.
    if (rc == kOk || (record.user != kChangingUser && Holds(rc, "sealing"))) Write(log, record, sealed);
    ::close(log);
    if (rc == kOk && record.is_message != 0 && record.user != kChangingUser) Open(folder, sealed);
    if (is_poor_ || random_() % kOneOfLarge == 0) ListKeys(folder);
  }

 private:
  // A quarter of each pad, enough for all that are at work. Whoever sees less seals no more: who looks at the headers
  // may have to wait long for his turn, and no pad may start again in a round. True also without a header to be read.
  static bool IsPadLeft(const std::string& key) {
    Bytes header(kKeyHeaderBytes);
    const int fd = ::open((key + "." + PersonalKeyYear()).c_str(), O_RDONLY | O_CLOEXEC);
    const bool is_read = ::pread(fd, header.data(), header.size(), 0) == static_cast<ssize_t>(header.size());
    ::close(fd);
    return !is_read || (IsQuarterLeft(header, kFirstOffsetAt, kFirstPadBytesAt) &&
                        IsQuarterLeft(header, kSecondOffsetAt, kSecondPadBytesAt));
  }
  static bool IsQuarterLeft(const Bytes& header, std::size_t offset_at, std::size_t bytes_at) {
    return NumberAt(header, bytes_at) == 0 ||
           NumberAt(header, offset_at) < NumberAt(header, bytes_at) / 4 * 3;
  }

  // Only lack of memory and descriptors excuses a failure.
  bool Holds(long rc, const char* what) {
    if (rc == kOk) return true;
    OrStop(is_poor_, std::string(what) + ": code " + std::to_string(rc));
    ++shared_.refused;
    ::usleep(kPause);
    return false;
  }

  static long SealMessage(const std::string& folder, const char* user, const std::string& body,
                          CBuffer* out) {
    std::array<char, 128> identifier{};
    std::array<char, 8> no_password{"none"};
    return out->Receive([&](auto** bytes, auto* length) {
      return static_cast<int>(Api2CrypterMem(
          body.c_str(), "", user, "medecin", kPassPhrase, no_password.data(), folder.c_str(), "a@x.example",
          "", "", "", "s", "2026-05-06 10:11:12", bytes, length, identifier.data(), 0));
    });
  }

  static long SealBody(const std::string& folder, const char* user, const std::string& body, CBuffer* out) {
    static const std::string hex_password = HexPassword(kPassPhrase);
    TypV2InstanceCreatorUnix creator;
    Owned<TypKestruneV2> cipher(creator.newTypKestruneV2());
    if (const Result rc = cipher.Init(&creator, user, folder.c_str(), hex_password.c_str()); rc != kOk)
      return rc;
    return out->Receive([&](auto** bytes, auto* length) {
      return cipher->Low_crypter(reinterpret_cast<const unsigned char*>(body.data()), body.size(), bytes,
                                 length);
    });
  }

  static void Write(int log, LogEntry record, const CBuffer& sealed) {
    record.bytes = static_cast<std::uint32_t>(sealed.size());
    const std::array<iovec, 2> pieces{iovec{&record, sizeof record},
                                      iovec{const_cast<unsigned char*>(sealed.data()), sealed.size()}};
    const auto bytes = static_cast<ssize_t>(sizeof record + sealed.size());
    OrStop(::writev(log, pieces.data(), pieces.size()) == bytes, "a log cannot be written");
  }

  void Open(const std::string& folder, const CBuffer& sealed) {
    CBuffer grey, xml;
    const long extracted = grey.Receive([&](auto** bytes, auto* length) {
      return static_cast<int>(Api2ExtractGrisFromHTTPSBlock(sealed.data(), sealed.size(), folder.c_str(),
                                                            bytes, length, nullptr));
    });
    if (!Holds(extracted, "a message whose signature does not hold")) return;
    const long opened = xml.ReceiveText([&](char** out) {
      return static_cast<int>(
          Api2DecrypterGrisMem(grey.data(), grey.size(), folder.c_str(), kPassPhrase, out));
    });
    if (Holds(opened, "a message that does not open")) ++shared_.opened;
  }

  void ListKeys(const std::string& folder) {
    kestrune_key_folder* list = nullptr;
    const long rc = kestrune_list_keys(folder.c_str(), &list);
    if (Holds(rc, "listing")) OrStop(list->keys >= kUsers.size(), "a key that is not listed");
    kestrune_free_key_folder(list);
  }

  Shared& shared_;
  const bool is_poor_;
  const unsigned number_;
  std::minstd_rand random_;
};

[[noreturn]] void SealForEver(Shared& shared, Temper temper, unsigned number) {
  Sealer sealer(shared, temper == Temper::kPoor, number);
  for (;;) {
    if (temper == Temper::kLasting) {
      ++shared.at_work;
      if (!shared.is_open) {
        --shared.at_work;
        ::usleep(10000);
        continue;
      }
    }
    try {
      sealer.Step();
    } catch (const std::bad_alloc&) {  // of this program's own memory
      OrStop(temper == Temper::kPoor, "no memory");
    }
    if (temper == Temper::kLasting) --shared.at_work;
  }
}

// By turns beside the key, from where it is renamed over it, and over the key itself, which waits for its lock.
[[noreturn]] void InstallForEver(Shared& shared) {
  TypV2InstanceCreatorUnix creator;
  TypV2AESInstallKeys cipher;
  cipher.InitCreate(&creator);
  const std::string folder = shared.folder.data();
  const std::string clear = folder + "clear", packed = folder + "packed", beside = folder + "beside",
                    key = folder + kUsers[kChangingUser] + "." + PersonalKeyYear();
  std::minstd_rand random(std::random_device{}());
  for (;;) {
    const unsigned number = ++shared.installed;
    WriteFile(clear, InstalledKey(number).File());
    OrStop(cipher.Chiffrerfichier(clear.c_str(), packed.c_str(), kTransportKey) == kOk, "packing");
    const bool is_renamed = number % 2 == 0;
    OrStop(cipher.DeChiffrerfichier(packed.c_str(), is_renamed ? beside.c_str() : key.c_str(),
                                    kTransportKey) == kOk,
           "installing");
    if (is_renamed) OrStop(::rename(beside.c_str(), key.c_str()) == 0, "renaming");
    ::usleep(20000 + static_cast<useconds_t>(random() % 100000));
  }
}

[[noreturn]] void Work(Shared& shared, Temper temper, unsigned member) {
  if (temper == Temper::kInstaller) InstallForEver(shared);
  std::minstd_rand random(std::random_device{}());
  if (temper == Temper::kPoor) {
    Limit(RLIMIT_NOFILE, kIsSanitized ? kDescriptors : 4 + random() % 8);
    LimitMemory(AddressSpace() + random() % (1U << 20));
    SealForEver(shared, temper, member);
  }
  Limit(RLIMIT_NOFILE, kDescriptors);
  LimitMemory(AddressSpace() + kMemory);
  for (unsigned thread = 1; thread < kThreads; ++thread)
    std::thread(SealForEver, std::ref(shared), temper, member + thread).detach();
  SealForEver(shared, temper, member);
}

}  // namespace

PersonalKey InstalledKey(unsigned number) {
  constexpr std::uint64_t kSeeds = 1000;
  PersonalKey key;
  key.first_pad = PadOf(std::size_t{2} << 20, kSeeds + 2 * number);
  key.second_pad = PadOf(std::size_t{64} << 10, kSeeds + 2 * number + 1);
  return key;
}

std::string LogPath(const std::string& folder, unsigned member) {
  return folder + "log" + std::to_string(member);
}

pid_t StartMember(Shared& shared, Temper temper, unsigned member) {
  const pid_t child = ::fork();
  OrStop(child >= 0, "no process can be made");
  if (child == 0) {
    ::prctl(PR_SET_PDEATHSIG, SIGKILL);
    Work(shared, temper, member);
  }
  return child;
}

}  // namespace kestrune::testing
