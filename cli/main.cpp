// kestrune: signs, seals, opens and examines messages, for people and their scripts.
#include <signal.h>
#include <sys/resource.h>
#include <unistd.h>

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
