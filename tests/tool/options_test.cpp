// Command lines driven through the real binary: exit status, standard output and standard error to the byte.
#include <gtest/gtest.h>

#include <string>
#include <vector>

#include <kestrune/kestrune.h>
#include "kestrune_settings.h"
#include "tests/support/bytes.h"
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

TEST(Options, AreReadAsEver) {
  const CommandLine rows[] = {
      {"None", {}, 0, kUsage, ""},
      {"LoneWord", {"foo"}, kNoKeyStatus, kNoKey, ""},
      {"Silent", Key({"-i", "bonjour"}), 0, "", ""},
      {"Verbose", Key({"-v", "-i", "bonjour", "-p", "a-b"}), 0,
       Echo("bonjour", "cle", "a-b", 0) + "err = 0\n", ""},
      {"AttachedAndGrouped",
       {"-vx", "-ibonjour", "-scle", "-pmot", "-k@F"},
       0,
       Echo("bonjour", "cle", "mot", 1) + "@Berr = 0\n",
       ""},
      {"ArgumentAfterAGroup", Key({"-xi", "bonjour"}), 0, "@B", ""},
      {"WordsBetween", Key({"un", "-x", "deux", "-i", "bonjour", "trois"}), 0, "@B", ""},
      {"EmptyArgument", Key({"-v", "-p", "mot", "-p", "", "-i", "bonjour"}), 0,
       Echo("bonjour", "cle", "", 0) + "err = 0\n", ""},
      {"UnknownLetter", Key({"-z", "-x", "-i", "bonjour"}), 0, kWrong + "@B", Illegal('z')},
      {"UnknownInAGroup", Key({"-yxz", "-i", "bonjour"}), 0, kWrong + kWrong + "@B",
       Illegal('y') + Illegal('z')},
      {"ColonIsALetterOfTheString", Key({"-:x", "-i", "bonjour"}), 0, "@B", ""},
      {"LoneDash", Key({"-", "-x", "-i", "bonjour"}), 0, "@B", ""},
      {"TwoDashes", Key({"--", "-x", "-i", "bonjour"}), 0, kWrong + "@B", Illegal('-')},
      {"DashInAGroup", Key({"-v-x", "-i", "bonjour"}), 0, Echo("bonjour", "cle", "", 1) + "@Berr = 0\n", ""},
      {"OptionAsArgumentReadOn", Key({"-i", "-vx", "-i", "bonjour"}), 0, kWrong + "@B", Illegal('i')},
      {"DashAsArgument", Key({"-p", "-", "-x", "-i", "bonjour"}), 0, kWrong + "@B", Illegal('p')},
      {"OffsetBeyondTheNextWord", Key({"-vxp", "-v", "-i", "bonjour"}), 0,
       kWrong + Echo("bonjour", "cle", "", 1) + "@Berr = 0\n", Illegal('p')},
      {"AttachedDash", Key({"-p-x", "-i", "bonjour"}), 0, kWrong + "@B", Illegal('p')},
      {"MissingArgument", Key({"-x", "-i", "bonjour", "-p"}), 0, "@B", ""},
      {"PassPhrase", Key({"-s", "sure", "-i", "bonjour", "-p", "a-b=c#d"}), 0, "", ""},
      {"WrongPassPhrase", Key({"-s", "sure", "-i", "bonjour", "-p", "a-b"}), 152, "err = -104\n", ""},
      {"LongestText", Key({"-v", "-i", std::string(2047, 'a')}), 162,
       Echo(std::string(2047, 'a'), "cle", "", 0) + "err = -94\n", ""},
      {"LongestName", Key({"-v", "-s", std::string(2047, 'a')}), 169,
       Echo("", std::string(2047, 'a'), "", 0) + "err = -87\n", ""},
      {"LongestPassword", Key({"-v", "-p", std::string(2047, 'a')}), 168,
       Echo("", "cle", std::string(2047, 'a'), 0) + "err = -88\n", ""},
      {"LongestFolder", {"-x", "-k", std::string(2047, '/')}, kNoKeyStatus, kNoKey, ""},
      {"TextTooLong", Key({"-v", "-i", std::string(2048, 'a'), "-z"}), 163, "err = -93\n", ""},
      {"FolderTooLong", Key({"-v", "-k", std::string(100000, 'a')}), 170, "err = -86\n", ""}};
  const KeyFolder folder;
  folder.AddSigningKey("rsa2048", "cle");
  folder.AddSigningKey("rsa2048-protected", "sure");
  char block[2000], password[] = "";
  ASSERT_EQ(Api2GetSignatureXMLLight("bonjour", "cle", password, folder.path().c_str(), block), 0);
  const auto filled = [&](const std::string& text) {
    return Replaced(Replaced(Replaced(text, "@F", folder.path()), "@T", KESTRUNE_TOOL), "@B", block);
  };
  for (const CommandLine& row : rows) {
    SCOPED_TRACE(row.name);
    Words words;
    for (const std::string& word : row.words) words.push_back(filled(word));
    const ProcessResult run = RunTool(words);
    EXPECT_EQ(run.out, filled(row.out));
    EXPECT_EQ(run.err, filled(row.err));
    EXPECT_EQ(run.status, row.status);
  }
}

}  // namespace
}  // namespace kestrune::testing
