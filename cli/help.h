// Help and usage errors in the user's language; the parser's own are in English alone.
#ifndef KESTRUNE_CLI_HELP_H
#define KESTRUNE_CLI_HELP_H

#include <CLI/CLI.hpp>
#include <string>
#include <vector>

namespace kestrune::cli {

// "kestrune keys list"
std::string WordsOf(const CLI::App& command);

// The whole help of a command or of the program, for descriptor `fd`.
std::string HelpOf(const CLI::App& command, const std::string& example, int fd);

// What is wrong with a command line that chose `command`, in a sentence; `rest` is what nobody took.
std::string UsageError(const CLI::ParseError& error, const CLI::App& command,
                       const std::vector<std::string>& rest);

}  // namespace kestrune::cli

#endif
