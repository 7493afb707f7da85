// The real binary: exit status, standard output and standard error to the byte, and what it leaves visible.
#include <gtest/gtest.h>

#include <cstdlib>
#include <string>
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

// Runs a program into a pipe that nobody empties, so that it stands still at its end (it sleeps), and prints what
// everybody then reads of its command line.
constexpr char kShowCommandLine[] = R"(
  mkfifo "$0" && exec 3<>"$0" && head -c 65536 /dev/zero >&3 && rm "$0"
  "$@" >&3 &
  for i in $(seq 1000); do sleep 0.01; grep -q ') S ' /proc/$!/stat && break; done
  tr '\0' ' ' < /proc/$!/cmdline
  kill -9 $!)";

TEST(SigningRun, BlanksThePassPhraseInTheCommandLine) {
  const TempFolder folder;
  for (const Words& form : ReadRows(kRows, "pass phrases")) {
    Words words = {"sh",      "-c", kShowCommandLine, folder.File("pipe"), KESTRUNE_TOOL, "-i",
                   "bonjour", "-s", "absente"};
    words.insert(words.end(), form.begin(), form.end());
    const std::string visible = RunProgram(words).out;
    EXPECT_NE(visible.find("absente"), std::string::npos);
    EXPECT_EQ(visible.find("polichinelle"), std::string::npos);
  }
}

}  // namespace
}  // namespace kestrune::testing
