// Whole runs of the tool: its blocks beside those that the openssl command makes, each failure's exit status,
// the clock, and what a run leaves visible.
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
#include "tests/support/temp_folder.h"

namespace kestrune::testing {
namespace {

using Words = std::vector<std::string>;
using namespace std::chrono_literals;

constexpr char kTyped[] = "a-b=c#d";
constexpr char kPassPhrase[] = "a_b_c_d";

ProcessResult Sign(const KeyFolder& folder, const std::string& name, const std::string& text,
                   const std::string& password = "", const Words& environment = {}) {
  return RunTool({"-x", "-i", text, "-s", name, "-p", password, "-k", folder.path()}, environment);
}

// The block as openssl and a pair of scissors make it.
std::string OpensslBlock(const std::string& stem, const std::string& key_path, const std::string& text) {
  const Words sign = {
      "openssl", "pkeyutl", "-sign", "-inkey", key_path, "-passin", "pass:" + std::string(kPassPhrase)};
  std::string rest = RunProgram({"openssl", "base64", "-A"}, RunProgram(sign, text).out).out;
  std::string block = "<SIGN><N>" + stem + "</N>\n<S>";
  constexpr std::size_t kFirstLine = 57;
  constexpr std::size_t kLine = 60;
  for (std::size_t line = kFirstLine; rest.size() >= line; line = kLine) {
    block += rest.substr(0, line) + "\n";
    rest.erase(0, line);
  }
  return block + rest + "</S></SIGN>";
}

// The text that openssl recovers from a block with the certificate.
std::string Recovered(const std::string& block, const std::string& certificate) {
  const TempFolder folder;
  const std::size_t begin = block.find("<S>") + 3;
  const std::string base64 = block.substr(begin, block.find("</S>") - begin) + "\n";
  const Words decode = {"openssl", "base64", "-d", "-out", folder.File("signature")};
  EXPECT_EQ(RunProgram(decode, base64).status, 0);
  return RunProgram({"openssl", "pkeyutl", "-verifyrecover", "-certin", "-inkey", certificate, "-in",
                     folder.File("signature")})
      .out;
}

struct KeyKind {
  const char* data;
  std::size_t most;  // bytes of text that the key signs
};

class KeyKinds : public ::testing::TestWithParam<KeyKind> {};

TEST_P(KeyKinds, SignAsOpensslDoes) {
  const KeyFolder folder;
  const std::string stem = folder.AddSigningKey(GetParam().data, "cle");
  const ProcessResult run = Sign(folder, "cle", "signé", kTyped);
  EXPECT_EQ(run.status, 0);
  EXPECT_EQ(run.out, OpensslBlock(stem, folder.File(stem + ".key"), "signé"));

  const std::string longest(GetParam().most, 'e');
  EXPECT_EQ(Recovered(Sign(folder, "cle", longest, kTyped).out, folder.File(stem + ".pem")), longest);
  const ProcessResult refused = Sign(folder, "cle", longest + "e", kTyped);
  EXPECT_EQ(refused.out, "err = -94\n");
  EXPECT_EQ(refused.status, 162);
}

INSTANTIATE_TEST_SUITE_P(Tool, KeyKinds,
                         ::testing::Values(KeyKind{"rsa1024", 117}, KeyKind{"rsa1024-protected", 117},
                                           KeyKind{"rsa2048", 245}, KeyKind{"rsa2048-protected", 245},
                                           KeyKind{"rsa3072", 373}, KeyKind{"rsa3072-protected", 373},
                                           KeyKind{"rsa4096", 501}, KeyKind{"rsa4096-protected", 501}),
                         [](const auto& row) {
                           std::string name = row.param.data;
                           if (const auto dash = name.find('-'); dash != std::string::npos)
                             name.erase(dash, 1);
                           return name;
                         });

TEST(SigningRun, FailsWithTheLowBitsOfItsCode) {
  const KeyFolder folder;
  folder.AddSigningKey("rsa2048-protected", "sure");
  folder.AddSigningKey("ec", "courbe");
  folder.AddSigningKey("pkcs8-aes", "pkcs8");
  WriteFile(folder.File("vide.z." + CertificateYear() + ".key"), "");
  const struct {
    std::string name;
    std::string password;
    int code;
  } kRows[] = {
      {"absente", kTyped, -103},
      {"sure", "faux", -104},
      {"sure", "", -104},
      {"courbe", "", -95},
      {"pkcs8", kPassPhrase, -95},
      {"vide", "", -95},
      {std::string(39, 'n'), "", -103},
      {std::string(40, 'n'), "", -87},
      {"sure", std::string(32, 'p'), -104},
      {"sure", std::string(33, 'p'), -88},
  };
  for (const auto& row : kRows) {
    const ProcessResult run = Sign(folder, row.name, "bonjour", row.password);
    EXPECT_EQ(run.out, "err = " + std::to_string(row.code) + "\n") << row.name << " " << row.password;
    EXPECT_EQ(run.status, row.code + 256) << row.name << " " << row.password;
  }
}

TEST(SigningRun, TakesTheLetterNearestToZOfThisYearAlone) {
  const KeyFolder folder;
  folder.AddSigningKey("rsa1024", "cle", 'a');
  const std::string nearest = folder.AddSigningKey("rsa2048", "cle", 't');
  folder.AddSigningKey("rsa3072", "cle", 's');
  EXPECT_EQ(Sign(folder, "cle", "bonjour").out,
            OpensslBlock(nearest, folder.File(nearest + ".key"), "bonjour"));

  const std::string last_year = std::to_string(std::stoi(CertificateYear()) - 1);
  WriteFile(folder.File("vieille.z." + last_year + ".key"), ReadFile(DataPath("rsa2048.key")));
  EXPECT_EQ(Sign(folder, "vieille", "bonjour").out, "err = -103\n");
}

TEST(SigningRun, FollowsTheLocalClock) {
  const struct {
    const char* zone;
    const char* local_time;
    const char* year;
  } kRows[] = {
      {"UTC-14", "2028-01-01 02:00:00", "128"},  // still 2027 at Greenwich
      {"UTC+11", "2027-12-31 20:00:00", "127"},  // already 2028 there
      {"UTC0", "1989-12-31 12:00:00", "189"},   {"UTC0", "1990-01-01 12:00:00", "90"},
      {"UTC0", "2100-03-01 12:00:00", "200"},
  };
  for (const auto& row : kRows) {
    const KeyFolder folder;
    const std::string stem = std::string("cle.z.") + row.year;
    WriteFile(folder.File(stem + ".key"), ReadFile(DataPath("rsa1024.key")));
    const ProcessResult run =
        RunProgram({"faketime", "-f", std::string("@") + row.local_time, KESTRUNE_TOOL, "-x", "-i", "bonjour",
                    "-s", "cle", "-k", folder.path()},
                   "",
                   {std::string("TZ=") + row.zone,
                    // The sanitizers' runtime wants to be loaded first, as faketime does.
                    "ASAN_OPTIONS=verify_asan_link_order=0"});
    EXPECT_EQ(run.out, OpensslBlock(stem, folder.File(stem + ".key"), "bonjour"))
        << row.local_time << run.err;
  }
}

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
  for (const Words& form : {Words{"-p", secret}, Words{"-p" + secret}, Words{"-p", secret, "-p" + secret}}) {
    Words words = {"-i", "bonjour", "-s", "absente"};
    words.insert(words.end(), form.begin(), form.end());
    const std::string visible = VisibleCommandLine(words);
    EXPECT_NE(visible.find("absente"), std::string::npos);
    EXPECT_EQ(visible.find("polichinelle"), std::string::npos);
  }
}

}  // namespace
}  // namespace kestrune::testing
