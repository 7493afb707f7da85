#include "tests/support/process.h"

#include <fcntl.h>
#include <gtest/gtest.h>
#include <sys/wait.h>
#include <unistd.h>

#include "tests/support/bytes.h"
#include "tests/support/temp_folder.h"

namespace kestrune::testing {

ProcessResult RunProgram(const std::vector<std::string>& words, const std::string& input,
                         const std::vector<std::string>& environment) {
  // Files instead of pipes: no program can fill one and wait for ever.
  const TempFolder folder;
  WriteFile(folder.File("in"), input);
  const pid_t child = ::fork();
  if (child == 0) {
    const char* const names[] = {"in", "out", "err"};
    for (int fd = 0; fd < 3; ++fd) {
      const int flags = O_CLOEXEC | (fd == 0 ? O_RDONLY : O_WRONLY | O_CREAT | O_TRUNC);
      ::dup2(::open(folder.File(names[fd]).c_str(), flags, 0600), fd);
    }
    for (const std::string& entry : environment) ::putenv(const_cast<char*>(entry.c_str()));
    std::vector<char*> argv;
    for (const std::string& word : words) argv.push_back(const_cast<char*>(word.c_str()));
    argv.push_back(nullptr);
    ::execvp(argv[0], argv.data());
    ::_exit(127);
  }
  int status = 0;
  EXPECT_EQ(::waitpid(child, &status, 0), child);
  return {WIFEXITED(status) ? WEXITSTATUS(status) : 128 + WTERMSIG(status),
          ToText(ReadFile(folder.File("out"))), ToText(ReadFile(folder.File("err")))};
}

std::string RunOpenssl(std::vector<std::string> words, const std::string& input) {
  words.insert(words.begin(), "openssl");
  const ProcessResult result = RunProgram(words, input);
  EXPECT_EQ(result.status, 0) << result.err;
  return result.out;
}

ProcessResult RunTool(std::vector<std::string> arguments, const std::vector<std::string>& environment) {
  arguments.insert(arguments.begin(), KESTRUNE_TOOL);
  return RunProgram(arguments, "", environment);
}

}  // namespace kestrune::testing
