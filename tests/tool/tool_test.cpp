// The real binary: exit status, standard output and standard error to the byte, and what it leaves visible.
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

#include <kestrune/kestrune.h>
#include "kestrune_settings.h"
#include "tests/support/bytes.h"
#include "tests/support/key_folder.h"
#include "tests/support/process.h"
#include "tests/support/rows.h"

namespace kestrune::testing {
namespace {

using Words = std::vector<std::string>;
constexpr char kRows[] = "tool.txt";

TEST(Options, AreReadAsEver) {
  const KeyFolder folder;
  folder.AddSigningKey("rsa2048", "cle");
  folder.AddSigningKey("rsa2048-protected", "sure");
  char block[2000], password[] = "";
  ASSERT_EQ(Api2GetSignatureXMLLight("bonjour", "cle", password, folder.path().c_str(), block), 0);
  for (Words words : ReadRows(kRows, "command lines")) {
    SCOPED_TRACE(words[0]);
    for (std::string& word : words) {
      word = Replaced(Replaced(word, "@F", folder.path()), "@T", KESTRUNE_TOOL);
      word = Replaced(Replaced(word, "@B", block), "@M", settings::kMakersMark);
    }
    const ProcessResult run = RunTool(Words(words.begin() + 4, words.end()));
    EXPECT_EQ(run.status, Number(words[1]));
    EXPECT_EQ(run.out, words[2]);
    EXPECT_EQ(run.err, words[3]);
  }
}

TEST(SigningRun, TellsWhenItsOutputIsLost) {
  const KeyFolder folder;
  folder.AddSigningKey("rsa1024", "cle");
  for (const auto& [redirection, options, status] : Rows<3>(kRows, "lost outputs")) {
    // What shifts the clock opens a file of its own, which then takes the place of standard output.
    if (std::getenv("FAKETIME") != nullptr && redirection == ">&-") continue;
    const std::string command = "exec \"$0\" -i bonjour -s cle -k \"$1\" " + options + " " + redirection;
    EXPECT_EQ(RunProgram({"sh", "-c", command, KESTRUNE_TOOL, folder.path()}).status, Number(status))
        << command;
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
    std::this_thread::sleep_for(std::chrono::milliseconds(10));
    visible = ToText(ReadFile(process + "/cmdline"));
    // Asleep: it waits for the pipe.
    if (ToText(ReadFile(process + "/stat")).find(") S ") != std::string::npos) break;
  }
  EXPECT_EQ(::waitpid(child, nullptr, WNOHANG), 0) << "it ended before it was looked at";
  ::kill(child, SIGKILL);
  ::waitpid(child, nullptr, 0);
  for (const int end : ends) ::close(end);
  return visible;
}

TEST(SigningRun, BlanksThePassPhraseInTheCommandLine) {
  for (const Words& form : ReadRows(kRows, "pass phrases")) {
    Words words = {KESTRUNE_TOOL, "-i", "bonjour", "-s", "absente"};
    words.insert(words.end(), form.begin(), form.end());
    const std::string visible = VisibleCommandLine(words);
    EXPECT_NE(visible.find("absente"), std::string::npos);
    EXPECT_EQ(visible.find("polichinelle"), std::string::npos);
  }
}

}  // namespace
}  // namespace kestrune::testing
