// The power goes at every moment of sealing, installing and rewriting.
//
//   power_loss [SECONDS]
//
// A child does the work, its writes and syncs recorded. Then each disk that a power loss can leave behind any call is
// laid out: what was synced is on it, of the rest any part, torn at sectors, changes of names too. On each, what was
// promised before must hold: no pad byte is handed out twice, no key is used that is neither the old nor the new one
// whole, what was told as done is there, and nothing is lost of which there was only one. Once for each kind of work and
// again, with other parts drawn, until the time is over.
#include <kestrune/kestrune.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <chrono>
#include <cstdio>
#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <memory>
#include <set>

#include "campaigns/file_recording.h"
#include "campaigns/pad_use.h"
#include "campaigns/supervised_calls.h"
#include "core/instance_creator.h"
#include "core/owned.h"
#include "core/result.h"
#include "keys/install_cipher.h"
#include "keys/message_cipher.h"
#include "tests/keys/keys_folder.h"

namespace {

using namespace kestrune;
using namespace kestrune::testing;

constexpr char kTransportKey[] = "00112233445566778899aabbccddeeff00112233445566778899aabbccddeeff";
const std::string kOtherPassword(64, 'B');
const Bytes kBody(100, 'x');

struct Work {
  std::string name;
  std::shared_ptr<KeysFolder> folder;  // as it is before
  std::function<int()> run;            // in the child: 0, and what it promises is promised

  // What is wrong on a disk, laid out in another folder, when this was told before; "" when nothing is.
  std::function<std::string(const std::string& folder, const std::vector<std::string>& told)> fault;
};

// What a file holds; "" too when it is not there.
std::string ContentOf(const std::string& path) {
  std::ifstream file(path, std::ios::binary);
  return {std::istreambuf_iterator<char>(file), {}};
}

void Tell(const std::string& folder, const CBuffer& bytes) {
  std::ofstream(folder + Recording::kTellTale, std::ios::app)
      .write(reinterpret_cast<const char*>(bytes.data()), static_cast<std::streamsize>(bytes.size()))
      .flush();
}

int SealIn(const std::string& folder, CBuffer* sealed) {
  TypV2InstanceCreatorUnix creator;
  Owned<TypKestruneV2> cipher(creator.newTypKestruneV2());
  if (const Result rc = cipher.Init(&creator, "cle", folder.c_str(), PersonalKey().hex_password.c_str());
      rc != kOk)
    return rc;
  return sealed->Receive([&](auto** bytes, auto* length) {
    return cipher->Low_crypter(kBody.data(), kBody.size(), bytes, length);
  });
}

// ---- Sealing -----------------------------------------------------------------------------------------

// Messages told before the power went, and those that are sealed when it is back.
Work Sealing() {
  constexpr int kMessages = 6;
  const auto yard = std::make_shared<KeysFolder>();
  return {"sealing", yard,
          [=] {
            for (int i = 0; i < kMessages; ++i) {
              CBuffer sealed;
              if (SealIn(yard->path(), &sealed) != kOk) return EXIT_FAILURE;
              Tell(yard->path(), sealed);
            }
            return EXIT_SUCCESS;
          },
          [=](const std::string& folder, const std::vector<std::string>& told) -> std::string {
            PersonalUse personal;
            MasterUse master;
            const auto opens = [&](const Bytes& sealed) {
              SealedParts parts;
              if (!OpenParts(sealed, yard->pads(), &parts) || parts.body != kBody) return false;
              personal.Add(parts, sealed.size());
              master.Add(parts, sealed.size());
              return true;
            };
            for (const std::string& sealed : told) {
              if (sealed.size() > kBody.size() && !opens(ToBytes(sealed)))
                return "a message that does not open";
            }
            for (int i = 0; i < 2; ++i) {
              CBuffer sealed;
              if (const Result rc = SealIn(folder, &sealed); rc != kOk)
                return "sealing is refused: code " + std::to_string(rc);
              if (!opens(Bytes(sealed.data(), sealed.data() + sealed.size())))
                return "what is sealed does not open";
            }
            const std::string twice = personal.Twice();
            return twice.empty() ? master.Twice() : twice;
          }};
}

// ---- Installing --------------------------------------------------------------------------------------

// What an operation of the installation cipher does with a file of the folder.
int Install(const std::string& from, const std::string& to, bool is_packing = false) {
  TypV2InstanceCreatorUnix creator;
  TypV2AESInstallKeys cipher;
  cipher.InitCreate(&creator);
  return is_packing ? cipher.Chiffrerfichier(from.c_str(), to.c_str(), kTransportKey)
                    : cipher.DeChiffrerfichier(from.c_str(), to.c_str(), kTransportKey);
}

bool IsDone(const std::vector<std::string>& told) {
  return !told.empty() && told.back() == "0";
}

// A key in place of none or of another. Who seals finds it whole, or the old one, or is refused.
Work Installing(bool is_master, bool is_over_another) {
  const auto yard = std::make_shared<KeysFolder>();
  const std::string name = is_master ? yard->master_name : yard->personal_name;
  const std::string old_key = is_over_another ? ToText(ReadFile(yard->File(name))) : "";
  PersonalKey personal;
  personal.first_pad = PadOf(40 * kPadChunk, 11);
  personal.second_pad = PadOf(4 * kPadChunk, 12);
  personal.seed = 13;
  MasterKey master;
  master.pad = PadOf(40 * kPadChunk, 14);
  const std::string new_key = ToText(is_master ? master.File() : personal.File());
  WriteFile(yard->File("clear"), new_key);
  OrStop(Install(yard->File("clear"), yard->File("packed"), true) == kOk, "packing");
  std::filesystem::remove(yard->File("clear"));
  if (!is_over_another) std::filesystem::remove(yard->File(name));
  return {std::string("installing a ") + (is_master ? "master" : "personal") + " key" +
              (is_over_another ? " over another" : ""),
          yard, [=] { return Install(yard->File("packed"), yard->File(name)); },
          [=](const std::string& folder, const std::vector<std::string>& told) -> std::string {
            const std::string found = ContentOf(folder + name);
            if (IsDone(told) && found != new_key) return "what was told as installed is not there whole";
            CBuffer sealed;
            const Result rc = SealIn(folder, &sealed);
            if (rc == kOk) return found == new_key || found == old_key ? "" : "half a key is sealed with";
            const std::set<long> refusals = {file::kOpen, file::kMissing, file::kRead, key::kCheckFailed,
                                             key::kOffset};
            return refusals.count(rc) > 0 ? "" : "code " + std::to_string(rc);
          }};
}

// ---- Files that are whole or not there ---------------------------------------------------------------

// Files as they were before, and as they are when the work is done. On the way there, each is one of the two
// (`is_whole_before`), or anything.
Work Rewriting(const std::string& name, std::shared_ptr<KeysFolder> yard,
               const std::vector<std::string>& files, bool is_whole_before, const std::function<int()>& run) {
  std::map<std::string, std::string> before;
  for (const std::string& file : files) before[file] = ContentOf(yard->File(file));
  return {name, yard, run,
          [=](const std::string& folder, const std::vector<std::string>& told) -> std::string {
            for (const auto& [file, old_content] : before) {
              const std::string found = ContentOf(folder + file);
              const std::string new_content = ContentOf(yard->File(file));
              OrStop(!new_content.empty(), file + " was not made");
              if (found == new_content) continue;
              if (IsDone(told)) return file + ", told as written, is not there whole";
              if (is_whole_before && found != old_content)
                return file + " is neither the old nor the new one";
            }
            return "";
          }};
}

std::vector<Work> Ciphering() {
  const auto make = [](bool is_in_place) {
    const auto yard = std::make_shared<KeysFolder>();
    std::string form(2000, 0);
    Api2Aes("Le patient va bien.", yard->personal.hex_password.c_str(), 0, form.data(), 0);
    WriteFile(yard->File("form"), form.c_str());
    return Rewriting(is_in_place ? "another password in place" : "another password beside", yard,
                     {is_in_place ? "form" : "other"}, is_in_place, [=] {
                       return Api2AesFile(yard->File("form").c_str(),
                                          yard->File(is_in_place ? "form" : "other").c_str(),
                                          yard->personal.hex_password.c_str(), kOtherPassword.c_str(), 2, 0);
                     });
  };
  const auto yard = std::make_shared<KeysFolder>();
  return {make(true), make(false), Rewriting("packing", yard, {"packed"}, false, [=] {
            return Install(yard->File(yard->personal_name), yard->File("packed"), true);
          })};
}

// ---- The program for people --------------------------------------------------------------------------

#ifdef KESTRUNE_CLI
[[noreturn]] void Become(std::vector<std::string> words) {
  words.insert(words.begin(), KESTRUNE_CLI);
  std::vector<char*> arguments;
  for (std::string& word : words) arguments.push_back(word.data());
  arguments.push_back(nullptr);
  if (std::freopen("/dev/null", "w", stderr) == nullptr) std::_Exit(EXIT_FAILURE);
  ::execv(KESTRUNE_CLI, arguments.data());
  std::_Exit(EXIT_FAILURE);
}

std::vector<Work> Programs() {
  const auto yard = [] {
    auto made = std::make_shared<KeysFolder>();
    WriteFile(made->File("transport"), kTransportKey);
    WriteFile(made->File("phrase"), "a_b_c_d\n");
    WriteFile(made->File("old"), MasterKey().File());
    WriteFile(made->File("clear"), PersonalKey().File());
    OrStop(Install(made->File("clear"), made->File("packed"), true) == kOk, "packing");
    return made;
  };
  const auto run = [](const std::shared_ptr<KeysFolder>& folder, std::vector<std::string> words) {
    return [=]() -> int {
      OrStop(::chdir(folder->path().c_str()) == 0, "no folder");
      Become(words);
    };
  };
  std::vector<Work> all;
  const std::string signing = "keys/made/anna.z." + CertificateYear();
  all.push_back(Rewriting("keys new", yard(),
                          {signing + ".key", signing + ".pem", "keys/made/anna." + PersonalKeyYear(),
                           "keys/made/Master." + PersonalKeyYear()},
                          true, {}));
  all.back().run =
      run(all.back().folder, {"-k", "keys/made", "keys", "new", "anna", "--passphrase-file", "phrase"});
  all.push_back(Rewriting("keys pack", yard(), {"out"}, true, {}));
  all.back().run =
      run(all.back().folder, {"keys", "pack", "clear", "-o", "out", "--transport-key-file", "transport"});
  for (const std::string target : {"cle.new", "old"}) {
    all.push_back(Rewriting("keys unpack to " + target, yard(), {target}, true, {}));
    all.back().run = run(all.back().folder, {"keys", "unpack", "packed", "-o", target, "--transport-key-file",
                                             "transport", "--force"});
  }
  return all;
}
#endif

// ---- All of it ---------------------------------------------------------------------------------------

std::vector<Work> AllWork() {
  std::vector<Work> all = Ciphering();
  all.push_back(Sealing());
  for (const bool is_master : {false, true}) {
    for (const bool is_over_another : {false, true}) all.push_back(Installing(is_master, is_over_another));
  }
#ifdef KESTRUNE_CLI
  for (const Work& work : Programs()) all.push_back(work);
#endif
  return all;
}

void LayOut(const Disk& disk, const std::string& folder) {
  std::filesystem::remove_all(folder);
  std::filesystem::create_directory(folder);
  for (const auto& [name, content] : disk.Visible()) {
    std::filesystem::create_directories(std::filesystem::path(folder + name).parent_path());
    WriteFile(folder + name, content);
  }
}

// What was recorded of a kind of work, and what was found in it.
class Trial {
 public:
  explicit Trial(Work work) : work_(std::move(work)), recording_(work_.folder->path(), work_.run) {
    OrStop(recording_.events().back().data == "0", work_.name + " does not succeed");
  }

  void Run(std::minstd_rand& random) {
    std::vector<std::string> told;
    for (std::size_t done = 0; done <= recording_.events().size(); ++done) {
      if (done > 0 && recording_.events()[done - 1].kind == FileEvent::Kind::kTold)
        told.push_back(recording_.events()[done - 1].data);
      recording_.PowerLosses(done, random, [&](const Disk& disk) {
        LayOut(disk, folder_.File("disk/"));
        const std::string fault = work_.fault(folder_.File("disk/"), told);
        if (fault.empty() || !faults_.insert(fault).second) return;
        std::printf("FAILED: %s, the power gone behind %zu of %zu calls: %s\n", work_.name.c_str(), done,
                    recording_.events().size(), fault.c_str());
      });
    }
  }

  std::size_t calls() const { return recording_.events().size(); }
  std::size_t states() const { return recording_.states(); }
  std::size_t faults() const { return faults_.size(); }

 private:
  Work work_;
  Recording recording_;
  TempFolder folder_;
  std::set<std::string> faults_;  // each told once
};

}  // namespace

int main(int argc, char** argv) {
  using Clock = std::chrono::steady_clock;
  const auto end = Clock::now() + std::chrono::seconds(argc > 1 ? std::strtoul(argv[1], nullptr, 10) : 0);
  if (!SupervisedChild::IsPossible()) {
    std::puts("power_loss: left out, no system calls are supervised here");
    return kLeftOut;
  }
  if (::access("/dev/shm", W_OK) == 0) ::setenv("TMPDIR", "/dev/shm", 1);  // what is on a disk is known here
  std::vector<std::unique_ptr<Trial>> trials;
  for (const Work& work : AllWork()) trials.push_back(std::make_unique<Trial>(work));
  std::minstd_rand random(std::random_device{}());
  do {
    for (const auto& trial : trials) trial->Run(random);
  } while (Clock::now() < end);
  std::size_t calls = 0, states = 0, faults = 0;
  for (const auto& trial : trials) {
    calls += trial->calls();
    states += trial->states();
    faults += trial->faults();
  }
  std::printf("power_loss: %zu kinds of work, %zu calls, %zu disks, %zu findings\n", trials.size(), calls,
              states, faults);
  return faults == 0 ? EXIT_SUCCESS : EXIT_FAILURE;
}
