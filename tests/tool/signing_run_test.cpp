// What a run of the tool leaves visible, and what it says when nobody hears it.
#include <fcntl.h>
#include <gtest/gtest.h>
#include <signal.h>
#include <sys/wait.h>
#include <unistd.h>

#include <chrono>
#include <cstdlib>
#include <string>
#include <thread>
#include <vector>

#include "tests/support/bytes.h"
#include "tests/support/key_folder.h"
#include "tests/support/process.h"

namespace kestrune::testing {
namespace {

using Words = std::vector<std::string>;
using namespace std::chrono_literals;

TEST(SigningRun, TellsWhenItsOutputIsLost) {
  const KeyFolder folder;
  folder.AddSigningKey("rsa1024", "cle");
  const struct {
    const char* redirection;
    const char* options;
    int status;
  } kRows[] = {
      {">/dev/full", "-x", 1},
      {">&-", "-x", 1},
      {">/dev/full", "-vx", 1},
      {">/dev/full", "", 0},
      {">&-", "", 0},                    // nothing to write, nothing lost
      {">/dev/full", "-kabsent/", 153},  // the run's own failure says more
  };
  for (const auto& row : kRows) {
    // What shifts the clock opens a file of its own, which then takes the place of standard output.
    if (std::getenv("FAKETIME") != nullptr && std::string(row.redirection) == ">&-") continue;
    const std::string command =
        std::string("exec \"$0\" -i bonjour -s cle -k \"$1\" ") + row.options + " " + row.redirection;
    EXPECT_EQ(RunProgram({"sh", "-c", command, KESTRUNE_TOOL, folder.path()}).status, row.status) << command;
  }
}

// Runs the tool into a pipe that nobody empties, so that it stands still at its end, and returns what
// everybody then reads of its command line.
std::string VisibleCommandLine(Words words) {
  int ends[2];
  EXPECT_EQ(::pipe2(ends, O_CLOEXEC | O_NONBLOCK), 0);
  const std::string filler(4096, ' ');
  while (::write(ends[1], filler.data(), filler.size()) > 0) continue;
  ::fcntl(ends[1], F_SETFL, 0);
  words.insert(words.begin(), KESTRUNE_TOOL);
  const pid_t child = ::fork();
  if (child == 0) {
    ::dup2(ends[1], STDOUT_FILENO);
    std::vector<char*> argv;
    for (std::string& word : words) argv.push_back(word.data());
    argv.push_back(nullptr);
    ::execv(argv[0], argv.data());
    ::_exit(127);
  }
  const std::string process = "/proc/" + std::to_string(child);
  std::string visible;
  for (int i = 0; i < 1000; ++i) {
    std::this_thread::sleep_for(10ms);
    visible = ToText(ReadFile(process + "/cmdline"));
    // Asleep: it waits for the pipe.
    if (ToText(ReadFile(process + "/stat")).find(") S ") != std::string::npos) break;
  }
  EXPECT_EQ(::waitpid(child, nullptr, WNOHANG), 0) << "it ended before it was looked at";
  ::kill(child, SIGKILL);
  ::waitpid(child, nullptr, 0);
  ::close(ends[0]);
  ::close(ends[1]);
  return visible;
}

TEST(SigningRun, BlanksThePassPhraseInTheCommandLine) {
  const std::string secret = "secret-de-polichinelle";
  // One that begins with '-' is none, but was meant as one; in the last row it is read on as -p and "olichinelle".
  for (const Words& form : {Words{"-p", secret}, Words{"-p" + secret}, Words{"-p", secret, "-p" + secret},
                            Words{"-p", "-" + secret}, Words{"-p-" + secret, "-p", "-" + secret},
                            Words{"-p", "-" + secret, "-v"}}) {
    Words words = {"-i", "bonjour", "-s", "absente"};
    words.insert(words.end(), form.begin(), form.end());
    const std::string visible = VisibleCommandLine(words);
    EXPECT_NE(visible.find("absente"), std::string::npos);
    EXPECT_EQ(visible.find("polichinelle"), std::string::npos);
  }
}

}  // namespace
}  // namespace kestrune::testing
