// The commands: each in a source of its own, which declares its options and does its work.
#ifndef KESTRUNE_CLI_COMMANDS_H
#define KESTRUNE_CLI_COMMANDS_H

#include "cli/program.h"

namespace kestrune::cli {

void AddSign(Program& program);
void AddVerify(Program& program);
void AddSeal(Program& program);
void AddOpen(Program& program);
void AddRoute(Program& program);
void AddEncrypt(Program& program);
void AddDecrypt(Program& program);
void AddInspect(Program& program);
void AddKeys(Program& program);
void AddExplain(Program& program);
void AddBench(Program& program);

// In the order of the help.
inline constexpr void (*kCommands[])(Program&) = {AddSign,  AddVerify,  AddSeal,    AddOpen,
                                                  AddRoute, AddEncrypt, AddDecrypt, AddInspect,
                                                  AddKeys,  AddExplain, AddBench};

}  // namespace kestrune::cli

#endif
