// What a program has in its memory when it ends: it is run, stopped in its last moment, and looked at.
#ifndef KESTRUNE_CAMPAIGNS_EXIT_MEMORY_H
#define KESTRUNE_CAMPAIGNS_EXIT_MEMORY_H

#include <cstddef>
#include <functional>
#include <string>
#include <vector>

#include "campaigns/marked_yard.h"

namespace kestrune::testing {

struct Command {
  std::vector<std::string> words;
  std::string input = "";  // standard input
  std::string typed =
      "";  // on a terminal, which is its standard output then; where this is empty it has none
};

struct AtExit {
  int status = -1;  // exit status, or 128 + signal
  std::string out, err;
  std::vector<std::string> found;  // a line for each place of a mark
  std::size_t processes = 0;       // that ended, the command's own and those that it started
  std::size_t bytes = 0;           // that were looked at
};

// Runs a command with every process that it starts. Looked at is all memory that can be written but the arguments and the
// environment, which are the user's. `learn` adds marks that the command has made, before it ends.
AtExit LookAtExit(const Command& command, std::vector<Mark> marks,
                  const std::function<std::vector<Mark>()>& learn = {});

// False where the system does not let a program look at another (an emulator, a sandbox).
bool CanLook();

}  // namespace kestrune::testing

#endif
