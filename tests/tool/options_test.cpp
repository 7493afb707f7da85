// Command lines driven through the real binary: exit status, standard output and standard error to the byte.
#include <gtest/gtest.h>

#include <string>
#include <vector>

#include "kestrune_settings.h"
#include "tests/support/key_folder.h"
#include "tests/support/process.h"

namespace kestrune::testing {
namespace {

using Words = std::vector<std::string>;

// In words and expected texts, "@F" stands for the key folder, "@T" for the tool's path, "@B" for the block
// of the text "bonjour" under the key "cle".
struct CommandLine {
  const char* name;
  Words words;
  int status;
  std::string out;
  std::string err;
};

std::string Replaced(std::string text, const std::string& token, const std::string& value) {
  for (std::size_t at = 0; (at = text.find(token, at)) != std::string::npos; at += value.size()) {
    text.replace(at, token.size(), value);
  }
  return text;
}

std::string Echo(const std::string& input, const std::string& name, const std::string& password, int xml) {
  return "Input Args:\ninput : " + input + "\nclef signature : " + name + "\nmotdepasse : " + password +
         "\nsignkeyfolderpath : @F\nverbose : 1\nxmloutput human : " + std::to_string(xml) + "\n";
}

Words Key(const Words& more) {
  Words words = {"-s", "cle", "-k", "@F"};
  words.insert(words.end(), more.begin(), more.end());
  return words;
}

const std::string kUsage =
    std::string("\nmainKestruneSign version: 2.02 - 2017-10-11 - ") + settings::kMakersMark +
    "\nOutil de signatureKestrune V2\n\nusage : kestrunesign -i 'data_a_chiffrer_avec_clef_signature' -s "
    "nom_clef_signature -p motdepasse -k signkeyfolderpath (/ à la fin du chemin) [-v] [-x (afficher en "
    "xml)]\n";
const std::string kWrong = "\nWrong choice\n";
const std::string kNoKey = "err = -103\n";
constexpr int kNoKeyStatus = 153;  // the low 8 bits of -103

std::string Illegal(char letter) {
  return std::string("\n@T: illegal option -- ") + letter;
}

class Options : public ::testing::TestWithParam<CommandLine> {};

TEST_P(Options, AreReadAsEver) {
  const KeyFolder folder;
  folder.AddSigningKey("rsa2048", "cle");
  const std::string block =
      RunTool({"-x", "-i", "bonjour", "-s", "cle", "-k", folder.path()}).out;  // its bytes: signing_run_test
  ASSERT_EQ(block.substr(0, 9), "<SIGN><N>");
  const auto filled = [&](const std::string& text) {
    return Replaced(Replaced(Replaced(text, "@F", folder.path()), "@T", KESTRUNE_TOOL), "@B", block);
  };
  Words words;
  for (const std::string& word : GetParam().words) words.push_back(filled(word));
  const ProcessResult run = RunTool(words);
  EXPECT_EQ(run.out, filled(GetParam().out));
  EXPECT_EQ(run.err, filled(GetParam().err));
  EXPECT_EQ(run.status, GetParam().status);
}

INSTANTIATE_TEST_SUITE_P(
    Tool, Options,
    ::testing::Values(
        CommandLine{"None", {}, 0, kUsage, ""},  //
        CommandLine{"LoneWord", {"foo"}, kNoKeyStatus, kNoKey, ""},
        CommandLine{"EmptyWord", {""}, kNoKeyStatus, kNoKey, ""},
        CommandLine{"Silent", Key({"-i", "bonjour"}), 0, "", ""},
        CommandLine{"Verbose", Key({"-v", "-i", "bonjour", "-p", "a-b"}), 0,
                    Echo("bonjour", "cle", "a-b", 0) + "err = 0\n", ""},
        CommandLine{"AttachedAndGrouped",
                    {"-vx", "-ibonjour", "-scle", "-pmot", "-k@F"},
                    0,
                    Echo("bonjour", "cle", "mot", 1) + "@Berr = 0\n",
                    ""},
        CommandLine{"ArgumentAfterAGroup", Key({"-xi", "bonjour"}), 0, "@B", ""},
        CommandLine{"WordsBetween", Key({"un", "-x", "deux", "-i", "bonjour", "trois"}), 0, "@B", ""},
        CommandLine{"RepeatedLastWins", Key({"-x", "-i", "bonsoir", "-i", "bonjour"}), 0, "@B", ""},
        CommandLine{"EmptyArgument", Key({"-v", "-p", "mot", "-p", "", "-i", "bonjour"}), 0,
                    Echo("bonjour", "cle", "", 0) + "err = 0\n", ""},
        CommandLine{"UnknownLetter", Key({"-z", "-x", "-i", "bonjour"}), 0, kWrong + "@B", Illegal('z')},
        CommandLine{"UnknownInAGroup", Key({"-yxz", "-i", "bonjour"}), 0, kWrong + kWrong + "@B",
                    Illegal('y') + Illegal('z')},
        CommandLine{"ColonIsALetterOfTheString", Key({"-:x", "-i", "bonjour"}), 0, "@B", ""},
        CommandLine{"LoneDash", Key({"-", "-x", "-i", "bonjour"}), 0, "@B", ""},
        CommandLine{"TwoDashes", Key({"--", "-x", "-i", "bonjour"}), 0, kWrong + "@B", Illegal('-')},
        CommandLine{"LongOption", Key({"--x", "-i", "bonjour"}), 0, kWrong + "@B", Illegal('-')},
        CommandLine{"DashInAGroup", Key({"-v-x", "-i", "bonjour"}), 0,
                    Echo("bonjour", "cle", "", 1) + "@Berr = 0\n", ""},
        CommandLine{"OptionAsArgument", {"-i", "-s", "cle"}, kNoKeyStatus, kWrong + kNoKey, Illegal('i')},
        CommandLine{"OptionAsArgumentReadOn", Key({"-i", "-vx", "-i", "bonjour"}), 0, kWrong + "@B",
                    Illegal('i')},
        CommandLine{"DashAsArgument", Key({"-p", "-", "-x", "-i", "bonjour"}), 0, kWrong + "@B",
                    Illegal('p')},
        CommandLine{"OffsetBeyondTheNextWord", Key({"-vxp", "-v", "-i", "bonjour"}), 0,
                    kWrong + Echo("bonjour", "cle", "", 1) + "@Berr = 0\n", Illegal('p')},
        CommandLine{"AttachedDash", Key({"-p-x", "-i", "bonjour"}), 0, kWrong + "@B", Illegal('p')},
        CommandLine{"MissingArgument", Key({"-x", "-i", "bonjour", "-p"}), 0, "@B", ""},
        CommandLine{"MissingArgumentOfAGroup", Key({"-i", "bonjour", "-xs"}), 0, "@B", ""},
        CommandLine{"LongestText", Key({"-v", "-i", std::string(2047, 'a')}), 162,
                    Echo(std::string(2047, 'a'), "cle", "", 0) + "err = -94\n", ""},
        CommandLine{"LongestName", Key({"-v", "-s", std::string(2047, 'a')}), 169,
                    Echo("", std::string(2047, 'a'), "", 0) + "err = -87\n", ""},
        CommandLine{"LongestPassword", Key({"-v", "-p", std::string(2047, 'a')}), 168,
                    Echo("", "cle", std::string(2047, 'a'), 0) + "err = -88\n", ""},
        CommandLine{"LongestFolder", {"-x", "-k", std::string(2047, '/')}, kNoKeyStatus, kNoKey, ""},
        CommandLine{"TextTooLong", Key({"-v", "-i", std::string(2048, 'a'), "-z"}), 163, "err = -93\n", ""},
        CommandLine{"NameTooLong", Key({"-v", "-s", std::string(2048, 'a')}), 169, "err = -87\n", ""},
        CommandLine{"PasswordTooLong", Key({"-v", "-p" + std::string(2048, 'a')}), 168, "err = -88\n", ""},
        CommandLine{"FolderTooLong", Key({"-v", "-k", std::string(100000, 'a')}), 170, "err = -86\n", ""}),
    [](const auto& row) { return std::string(row.param.name); });

}  // namespace
}  // namespace kestrune::testing
