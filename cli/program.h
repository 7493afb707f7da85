// The command line: commands, their options, help, usage errors.
#ifndef KESTRUNE_CLI_PROGRAM_H
#define KESTRUNE_CLI_PROGRAM_H

#include <CLI/CLI.hpp>
#include <functional>
#include <map>
#include <string>

#include "cli/failure.h"

namespace kestrune::cli {

class Program {
 public:
  Program();
  Program(const Program&) = delete;
  Program& operator=(const Program&) = delete;

  // What a command does once its options are read.
  using Work = std::function<Status()>;

  // A command, to which the caller adds its options; `below`: that it is the second word of ("keys" of "keys list").
  // `example`: whole command lines, one in each line.
  CLI::App& Add(const char* name, const char* what, const char* example, Work work,
                CLI::App* below = nullptr);

  // Reads the command line and does what it says.
  Status Run(int argc, char** argv);

  // -k, KESTRUNE_KEYS, or the user's data folder: a folder that is there, with the separator at its end.
  std::string KeyFolder() const;
  // The same where it need not be there yet.
  std::string NewKeyFolder() const;

 private:
  struct Command {
    std::string example;
    Work work;
  };

  CLI::App& Chosen();
  void SetColourChoice() const;
  void PrintHelp(const CLI::App& command) const;
  Failure UsageFailure(const CLI::ParseError& error);

  CLI::App app_;
  std::map<const CLI::App*, Command> commands_;
  std::string key_folder_;
  std::string colour_ = "auto";
  bool quiet_ = false;
  bool version_ = false;
};

}  // namespace kestrune::cli

#endif
