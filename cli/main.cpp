// kestrune: signs, seals, opens and examines messages, for people and their scripts.
#include <signal.h>
#include <sys/auxv.h>
#include <sys/resource.h>
#include <unistd.h>

#include <array>
#include <climits>
#include <cstdlib>
#include <new>
#include <string_view>

#include <kestrune/kestrune.h>
#include "cli/apart.h"
#include "cli/commands.h"
#include "cli/console.h"
#include "cli/ending.h"
#include "cli/opening.h"
#include "cli/output.h"
#include "cli/text.h"

namespace kestrune::cli {
namespace {

Status Run(int argc, char** argv) {
  Program program;
  for (const auto add : kCommands) add(program);
  const Status status = program.Run(argc, argv);
  CloseStandardOutput();
  return status;
}

// Nothing that was in memory, pass phrases least of all, goes into a core file.
void ForbidCoreFiles() {
  const rlimit none{0, 0};
  (void)::setrlimit(RLIMIT_CORE, &none);
}

// What is bound when it is first called saves the vector registers on the stack, and a piece of the clear text that was
// copied last with them. The program and the library are linked so that they have nothing of the sort; the C++ library
// has, and does without where this variable is set as it is loaded.
void BindAllNames(char** argv) {
  constexpr const char* kVariable = "LD_BIND_NOW";
  const char* const set = std::getenv(kVariable);
  const bool is_ignored = ::getauxval(AT_SECURE) != 0;
  if (is_ignored || (set != nullptr && *set != 0) || ::setenv(kVariable, "1", 1) != 0) return;
  // By its own name, which the system shows and sends signals by; without one, where the file was replaced meanwhile.
  std::array<char, PATH_MAX> program{};
  if (::readlink("/proc/self/exe", program.data(), program.size() - 1) > 0)
    (void)::execv(program.data(), argv);
  (void)::execv("/proc/self/exe", argv);
}

bool IsApart(int argc, char** argv) {
  return argc == 2 && std::string_view(argv[1]) == kApartWord;
}

// What goes wrong there the program itself tells.
int OpenQuietly() {
  try {
    return OpenInThisProcess();
  } catch (const std::exception&) {
    return static_cast<int>(Status::kCouldNot);
  }
}

int Main(int argc, char** argv) {
  BindAllNames(argv);
  kestrune_use_system_random();
  ForbidCoreFiles();
  OccupyStandardDescriptors();
  if (IsApart(argc, argv)) return OpenQuietly();
  ChooseLanguage();
  WatchSignals();
  try {
    return static_cast<int>(Run(argc, argv));
  } catch (const Failure& failure) {
    Complain(failure);
    return static_cast<int>(failure.status());
  } catch (const NobodyReads&) {
    ::signal(SIGPIPE, SIG_DFL);
    (void)::raise(SIGPIPE);
  } catch (const std::bad_alloc&) {
    Complain(
        Failure(Status::kCouldNot, _("There is not enough memory. (code -96)"), _("Close other programs.")));
  } catch (const std::exception& error) {
    Complain(Failure(Status::kCouldNot, Printable(error.what())));
  }
  return static_cast<int>(Status::kCouldNot);
}

}  // namespace
}  // namespace kestrune::cli

int main(int argc, char** argv) {
  return kestrune::cli::Main(argc, argv);
}
