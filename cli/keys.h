// The commands below `kestrune keys`.
#ifndef KESTRUNE_CLI_KEYS_H
#define KESTRUNE_CLI_KEYS_H

#include "cli/program.h"

namespace kestrune::cli {

void AddKeysCheck(Program& program, CLI::App& keys);
void AddKeysNew(Program& program, CLI::App& keys);
void AddKeysPack(Program& program, CLI::App& keys);
void AddKeysUnpack(Program& program, CLI::App& keys);

}  // namespace kestrune::cli

#endif
