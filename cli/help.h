// Help and usage errors in the user's language; the parser's own are in English alone.
#ifndef KESTRUNE_CLI_HELP_H
#define KESTRUNE_CLI_HELP_H

#include <CLI/CLI.hpp>
#include <string>

namespace kestrune::cli {

// "kestrune keys list"
std::string WordsOf(const CLI::App& command);

// The whole help of a command or of the program, for descriptor `fd`.
std::string HelpOf(const CLI::App& command, const std::string& example, int fd);

// What is wrong with a command line, in a sentence.
std::string UsageError(const CLI::ParseError& error);

}  // namespace kestrune::cli

#endif
