// Lets the n-th system call of kestrune and kestrunesign fail, for every n and in each way that its kind knows, in
// every command.
//
//   failing_commands [--all] [NAME...]
//
// A parent sees each call of the program and of the processes that it starts, and answers the chosen one in the
// system's stead; the calls that load the program are left alone. A command that says that it is done has done
// what it does without a fault: the same files and the same output or, where those are drawn anew each time, what another
// command makes of them. One that says otherwise gives a reason and leaves the folder as it was. None crashes or
// waits for ever. Without --all, a call is chosen once for each file that it concerns, else so often that more would be the same again.
//
// Before that, a shell that does not look at what its commands tell must be found out.
#include <fcntl.h>
#include <sys/syscall.h>
#include <sys/wait.h>
#include <unistd.h>

#include <algorithm>
#include <cinttypes>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <filesystem>
#include <fstream>
#include <functional>
#include <iterator>
#include <map>
#include <regex>
#include <string>
#include <tuple>
#include <vector>

#include "campaigns/call_failures.h"
#include "campaigns/pad_use.h"
#include "campaigns/supervised_calls.h"
#include "campaigns/sweep.h"
#include "tests/support/sealed_message.h"

namespace {

using namespace kestrune::testing;
namespace fs = std::filesystem;

constexpr unsigned kDeadlineSeconds = 60;  // for one run
constexpr int kLastStatus = 2;             // of kestrune's
constexpr std::size_t kMostOfSite = 16;    // of calls that are the same, as where a key is drawn in thousands
constexpr std::size_t kPadChunks = 8;
constexpr char kTransportKey[] = "F0E1D2C3B4A5968778695A4B3C2D1E0FF0E1D2C3B4A5968778695A4B3C2D1E0F";

using Words = std::vector<std::string>;

struct Command {
  std::string name;
  Words words;

  // Whether the words can be drawn anew: then, what this command prints of them stands for them. Gets on its standard
  // input what the first one printed.
  Words proof = {};

  std::string input = "";  // on its standard input
  std::string told = "";   // stands in its output where that tells what went wrong, and it goes on
};

// ---- Running -----------------------------------------------------------------------------------------

struct Ended {
  int status = 0;  // as waitpid tells it
  std::string out, err;
  std::map<std::string, std::string> files;

  bool IsDone() const { return WIFEXITED(status) && WEXITSTATUS(status) == EXIT_SUCCESS; }
};

std::string ContentOf(const fs::path& path) {
  std::ifstream file(path, std::ios::binary);
  return {std::istreambuf_iterator<char>(file), {}};
}

// The folder in which the commands run, made anew for each of them.
class Place {
 public:
  Place() : keys_(kPadChunks) {
    ::setenv("KESTRUNE_KEYS", "keys", 1);
    ::setenv("LC_ALL", "C.UTF-8", 1);
    ::setenv("TMPDIR", (folder() / "tmp").c_str(), 1);  // what is left there is seen, too
    MakeAnew();
    const auto prepare = [this](const Words& words) {
      OrStop(RunWithout(words).IsDone(), words[1] + " cannot be tried");
    };
    prepare({KESTRUNE_PROGRAM, "seal", "-s", "medecin", "--to", "a@x.example", "--attach", "attachment",
             "--passphrase-file", "phrase", "-o", "block", "text"});
    prepare({KESTRUNE_PROGRAM, "encrypt", "--passphrase-file", "phrase", "text", "-o", "form"});
    prepare(
        {KESTRUNE_PROGRAM, "keys", "pack", Personal(), "--transport-key-file", "transport", "-o", "packed"});
    fs::copy(folder(), prepared(), fs::copy_options::recursive);
  }

  std::string Personal() const { return "keys/durand." + PersonalKeyYear(); }

  void MakeAnew() const {
    fs::remove_all(folder());
    if (fs::exists(prepared())) {
      fs::copy(prepared(), folder(), fs::copy_options::recursive);
      return;
    }
    fs::create_directories(folder() / "tmp");
    fs::copy(keys_.path(), folder() / "keys");
    for (const auto& key : fs::directory_iterator(folder() / "keys"))
      fs::permissions(key.path(), fs::perms::owner_read | fs::perms::owner_write);
    const auto write = [this](const char* name, const std::string& text) {
      std::ofstream(folder() / name, std::ios::binary) << text;
    };
    write("phrase", "a_b_c_d\n");
    write("transport", std::string(kTransportKey) + "\n");
    write("text", "Bonjour Docteur\n");
    write("attachment", std::string(10000, 'x'));
  }

  // A run in which no call fails.
  Ended RunWithout(const Words& words, const std::string& input = "") const {
    return RunWith(words, input, [](const SystemCall&) { return Answer{}; });
  }

  Ended RunWith(const Words& words, const std::string& input,
                const std::function<Answer(const SystemCall&)>& answer) const {
    const fs::path in = fs::path(streams_.path()) / "in", out = fs::path(streams_.path()) / "out",
                   err = fs::path(streams_.path()) / "err";
    std::ofstream(in, std::ios::binary) << input;
    SupervisedChild child(FailingCallNumbers(), [&] {
      ::alarm(kDeadlineSeconds);
      if (::chdir(folder().c_str()) != 0) return EXIT_FAILURE;
      constexpr int kNew = O_WRONLY | O_CREAT | O_TRUNC | O_CLOEXEC;
      if (::dup2(::open(in.c_str(), O_RDONLY | O_CLOEXEC), STDIN_FILENO) < 0 ||
          ::dup2(::open(out.c_str(), kNew, 0600), STDOUT_FILENO) < 0 ||
          ::dup2(::open(err.c_str(), kNew, 0600), STDERR_FILENO) < 0) {
        return EXIT_FAILURE;
      }
      std::vector<char*> arguments;
      for (const std::string& word : words) arguments.push_back(const_cast<char*>(word.c_str()));
      arguments.push_back(nullptr);
      ::execv(arguments[0], arguments.data());
      return EXIT_FAILURE;
    });
    Ended run;
    run.status = child.Run(answer);
    run.out = ContentOf(out);
    run.err = ContentOf(err);
    for (const auto& entry : fs::recursive_directory_iterator(folder())) {
      if (entry.is_regular_file()) run.files[fs::relative(entry.path(), folder())] = ContentOf(entry.path());
    }
    return run;
  }

 private:
  fs::path folder() const { return fs::path(yard_.path()) / "work"; }
  fs::path prepared() const { return fs::path(yard_.path()) / "prepared"; }

  TempFolder yard_, streams_;
  MessageFolder keys_;
};

// ---- Choosing calls ----------------------------------------------------------------------------------

// A call of two processes that take turns as it comes: known again by what it does, and as the how-manieth of its like.
struct Seen {
  Kind kind = Kind::kOpen;
  int number = 0;
  std::string path;

  bool operator==(const Seen&) const = default;
  bool operator<(const Seen& other) const {
    return std::tie(kind, number, path) < std::tie(other.kind, other.number, other.path);
  }
};

// Whether the loader made it, which ends a program in its own way.
bool IsOfLoader(const SystemCall& call) {
  std::ifstream maps("/proc/" + std::to_string(call.thread) + "/maps");
  for (std::string line; std::getline(maps, line);) {
    std::uint64_t begin = 0, end = 0;
    if (std::sscanf(line.c_str(), "%" SCNx64 "-%" SCNx64, &begin, &end) != 2 || call.instruction < begin ||
        call.instruction >= end)
      continue;
    return fs::path(line.substr(line.rfind(' ') + 1)).filename().string().starts_with("ld");
  }
  return false;
}

// Processes and pipes are numbered anew in each run.
std::string WithoutNumbers(const std::string& path) {
  static const std::regex number("[0-9]+");
  return std::regex_replace(path, number, "#");
}

class Chooser {
 public:
  explicit Chooser(std::string program) : program_(std::move(program)) {}

  // The call after `before` others that are the same.
  void Choose(const Seen* chosen, std::size_t before, const Failure& failure) {
    chosen_ = chosen;
    before_ = before;
    failure_ = failure;
    failed_ = 0;
    silenced_ = false;
    of_loader_.clear();
    seen_.clear();
  }

  Answer operator()(const SystemCall& call) {
    Kind kind{};
    std::error_code failed;
    if (!KindOf(call, &kind) ||
        fs::read_symlink("/proc/" + std::to_string(call.thread) + "/exe", failed) != program_)
      return {};
    const auto [known, is_new] = of_loader_.try_emplace({call.thread, call.instruction});
    if (is_new) known->second = IsOfLoader(call);
    if (known->second) return {};
    const bool has_path = call.number == SYS_openat || call.number == SYS_newfstatat;
    seen_.push_back(
        {kind, call.number, WithoutNumbers(has_path ? call.Text(1) : call.PathOf(call.Descriptor()))});
    if (chosen_ == nullptr || failed_ == failure_.times) return {};
    if (failed_ == 0 ? seen_.back() != *chosen_ || before_-- > 0 : kind != chosen_->kind) return {};
    ++failed_;
    silenced_ |= kind == Kind::kWrite && call.Descriptor() == STDERR_FILENO;
    if (!failure_.is_half) return Instead(failure_.result);
    return call.number == SYS_read || call.number == SYS_write ? Instead(call.MakeHalf()) : Answer{};
  }

  const std::vector<Seen>& seen() const { return seen_; }
  bool has_failed() const { return failed_ > 0; }
  bool is_silenced() const { return silenced_; }  // no reason can be given

 private:
  const std::string program_;
  const Seen* chosen_ = nullptr;
  std::size_t before_ = 0;
  Failure failure_;
  unsigned failed_ = 0;
  bool silenced_ = false;
  std::map<std::pair<pid_t, std::uint64_t>, bool> of_loader_;  // by thread and instruction
  std::vector<Seen> seen_;
};

// ---- What is found -----------------------------------------------------------------------------------

class Trial {
 public:
  Trial(const Command& command, const Place& place, bool quiet)
      : command_(command), place_(place), chooser_(fs::canonical(command.words[0])), findings_(quiet) {}

  int Run(bool every_one) {
    place_.MakeAnew();
    before_ = place_.RunWithout({"/bin/true"}).files;
    clean_ = RunOnce();
    const std::vector<Seen> seen = chooser_.seen();
    calls_ = seen.size();
    std::map<Seen, std::size_t> sites;
    for (index_ = 0; index_ < std::ssize(seen); ++index_) {
      chosen_ = &seen[static_cast<std::size_t>(index_)];
      same_ = sites[*chosen_]++;
      if (same_ >= (every_one ? kMostOfSite : 1)) continue;
      for (const Failure& failure : FailuresOf(chosen_->kind)) {
        failure_ = failure;
        const Ended run = RunOnce();
        ++faults_;
        if (chooser_.has_failed()) {
          Check(run);
        } else {
          Found("is not made any more");
        }
      }
    }
    return findings_.count();
  }
  std::size_t places() const { return calls_; }
  std::size_t faults() const { return faults_; }

 private:
  // What is drawn anew is replaced by what the proof says of it.
  Ended RunOnce() {
    place_.MakeAnew();
    chooser_.Choose(chosen_, same_, failure_);
    Ended run = place_.RunWith(command_.words, command_.input, std::ref(chooser_));
    if (command_.proof.empty() || !run.IsDone()) return run;
    const Ended proof = place_.RunWithout(command_.proof, run.out);
    run.out = std::to_string(proof.status) + ": " + proof.out;
    for (auto& [name, content] : run.files) {
      const auto before = before_.find(name);
      if (before == before_.end() || content != before->second) content.clear();
    }
    return run;
  }

  void Check(const Ended& run) {
    if (!WIFEXITED(run.status)) return Found("ended by signal " + std::to_string(WTERMSIG(run.status)));
    const int status = WEXITSTATUS(run.status);
    // What it cannot print, kestrunesign tells by its status alone.
    const bool is_of_tool = command_.words[0] != KESTRUNE_PROGRAM;
    if (is_of_tool && chosen_->kind == Kind::kWrite && status != 0) return;
    if (failure_.is_unseen) {
      if (run.status != clean_.status) return Found("status " + std::to_string(status) + ", " + run.err);
      if (command_.proof.empty() && run.err != clean_.err) Found("says " + run.err);
    }
    if (run.status == clean_.status) {
      const bool is_told = !command_.told.empty() && run.out.find(command_.told) != std::string::npos;
      if (run.out != clean_.out && !is_told) Found("done with another output: " + run.out + run.err);
      if (const std::string other = Differing(run.files, clean_.files); !other.empty())
        Found("done, with " + other);
      return;
    }
    if (!is_of_tool && status > kLastStatus) Found("status " + std::to_string(status));
    if (run.err.empty() && run.out.empty() && !chooser_.is_silenced()) Found("gives no reason");
    // A name that cannot be taken away stays.
    if (chosen_->kind == Kind::kChange) return;
    if (const std::string other = Differing(run.files, before_); !other.empty())
      Found("failed, with " + other);
  }

  // Sealing uses keys up, also where it fails afterwards.
  static std::string Differing(const std::map<std::string, std::string>& files,
                               const std::map<std::string, std::string>& others) {
    for (const auto& [name, content] : files) {
      const auto other = others.find(name);
      if (other == others.end()) return name + " left";
      const bool is_key = name.starts_with("keys/") && name.ends_with(PersonalKeyYear());
      if (is_key ? content.size() != other->second.size() : content != other->second)
        return name + " changed";
    }
    for (const auto& [name, content] : others) {
      if (!files.contains(name)) return name + " missing";
    }
    return "";
  }

  void Found(const std::string& what) {
    findings_.Add(command_.name + ", call " + std::to_string(index_ + 1) + " of " + std::to_string(calls_) +
                      " (number " + std::to_string(chosen_->number) + ", " + chosen_->path + "), " +
                      failure_.name,
                  what);
  }

  const Command& command_;
  const Place& place_;
  Chooser chooser_;
  Ended clean_;
  std::map<std::string, std::string> before_;
  const Seen* chosen_ = nullptr;
  std::ptrdiff_t index_ = 0;
  std::size_t same_ = 0;  // before it
  Failure failure_{.name = "", .times = 0};
  std::size_t calls_ = 0, faults_ = 0;
  Findings findings_;
};

std::vector<Command> Commands(const Place& place) {
  const auto kestrune = [](Words words) {
    words.insert(words.begin(), KESTRUNE_PROGRAM);
    return words;
  };
  const auto with_phrase = [&](Words words) {
    words.insert(words.end(), {"--passphrase-file", "phrase"});
    return kestrune(std::move(words));
  };
  const auto with_transport = [&](Words words) {
    words.insert(words.end(), {"--transport-key-file", "transport"});
    return kestrune(std::move(words));
  };
  const Words seal = {"seal", "-s", "medecin", "--to", "a@x.example", "--attach", "attachment", "text"};
  const auto seal_to = [&](const char* file) {
    Words words = seal;
    words.insert(words.end(), {"-o", file});
    return with_phrase(words);
  };
  return {
      {"kestrunesign",
       {KESTRUNE_TOOL, "-x", "-i", "bonjour", "-s", "medecin", "-k", "keys/"},
       kestrune({"verify"})},
      {"sign", kestrune({"sign", "-s", "medecin"}), kestrune({"verify"}), "Bonjour"},
      {"sign --file", kestrune({"sign", "-s", "medecin", "--file", "attachment"}),
       kestrune({"verify", "--file", "attachment"})},
      {"seal", seal_to("sealed"), with_phrase({"open", "sealed"})},
      {"seal in place of another", seal_to("block"), with_phrase({"open", "block"})},
      {"open", with_phrase({"open", "block"})},
      {"open -o", with_phrase({"open", "block", "-o", "opened"})},
      {"open --eml",
       with_phrase({"open", "block", "--eml", "eml"}),
       {"/bin/sh", "-c", "sed '/boundary/d; /^--/d' eml"}},
      {"open --xml", with_phrase({"open", "block", "--xml", "xml"})},
      {"route", kestrune({"route", "block"})},
      {"encrypt", with_phrase({"encrypt", "text", "-o", "other"}), with_phrase({"decrypt", "other"})},
      {"decrypt", with_phrase({"decrypt", "form"})},
      {"decrypt -o", with_phrase({"decrypt", "form", "-o", "clear"})},
      {"inspect", kestrune({"inspect", "block", "form", place.Personal(), "packed"})},
      {"explain", kestrune({"explain", "-73"})},
      {"keys list", kestrune({"keys", "list"}), {}, "", "(code -"},
      {"keys check", kestrune({"keys", "check"}), {}, "", "(code -"},
      {"keys pack", with_transport({"keys", "pack", place.Personal(), "-o", "carried"}),
       with_transport({"keys", "unpack", "carried", "-o", "/dev/null"})},
      {"keys unpack", with_transport({"keys", "unpack", "packed", "-o", "unpacked"})},
      {"keys new", with_phrase({"keys", "new", "essai", "-k", "new"}),
       kestrune({"keys", "check", "-k", "new"})},
  };
}

// What is printed and not looked after; a file that stays half made.
std::vector<Command> PlantedFaults() {
  return {
      {"a copy that is not looked at", {"/bin/sh", "-c", "cat text > copy; exit 0"}},
      {"half a copy that stays", {"/bin/sh", "-c", "echo > copy; read -r line < text || exit 1; echo $line"}},
  };
}

}  // namespace

int main(int argc, char** argv) {
  const Asked asked(argc, argv);
  if (!SupervisedChild::IsPossible()) {
    std::puts("failing_commands: left out, no system calls are supervised here");
    return kLeftOut;
  }
  if (::access("/dev/shm", W_OK) == 0) ::setenv("TMPDIR", "/dev/shm", 1);
  const Place place;
  const auto trial_of = [&](const Command& command, bool quiet) { return Trial(command, place, quiet); };
  if (!FindsEach(PlantedFaults(), trial_of)) return EXIT_FAILURE;
  std::vector<Command> commands = Commands(place);
  std::erase_if(commands, [&](const Command& command) { return !asked.IsFor(command.name); });
  return SweepThrough(commands, "failing_commands", "commands", "calls", asked.every_one, trial_of);
}
