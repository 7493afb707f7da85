// Running programs: the tool, and the outside witnesses.
#ifndef KESTRUNE_TESTS_SUPPORT_PROCESS_H
#define KESTRUNE_TESTS_SUPPORT_PROCESS_H

#include <string>
#include <vector>

namespace kestrune::testing {

struct ProcessResult {
  int status = -1;  // exit status, or 128 + signal
  std::string out;
  std::string err;
};

// Runs a program (looked for in PATH) with these arguments and this standard input; `environment` holds
// NAME=VALUE entries that are added to this process's own.
ProcessResult RunProgram(const std::vector<std::string>& words, const std::string& input = "",
                         const std::vector<std::string>& environment = {});

// What the openssl command prints; fails the test when it fails.
std::string RunOpenssl(std::vector<std::string> words, const std::string& input = "");

// Runs kestrunesign.
ProcessResult RunTool(std::vector<std::string> arguments, const std::vector<std::string>& environment = {});

}  // namespace kestrune::testing

#endif
