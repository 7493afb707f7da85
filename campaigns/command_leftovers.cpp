// What kestrune and kestrunesign leave behind of secrets: each command is run with marked ones and looked at in its last
// moment, when nothing of them may be left in its memory.
//
//   command_leftovers [NAME]      commands whose name begins so
#include <kestrune/kestrune.h>

#include <cstdio>
#include <cstdlib>
#include <functional>
#include <string>
#include <vector>

#include "campaigns/exit_memory.h"
#include "campaigns/marked_yard.h"

namespace {

using namespace kestrune::testing;

constexpr std::size_t kAttachmentBytes = 20000;
constexpr std::size_t kSignatureBytes = 20000;
constexpr int kSkipped = 77;
constexpr char kTransportKey[] = "F0E1D2C3B4A5968778695A4B3C2D1E0FF0E1D2C3B4A5968778695A4B3C2D1E0F";

struct Row {
  std::string name;
  Command command;
  int status = 0;
  std::function<std::vector<Mark>()> learn = {};
};

struct CommandYard : MarkedYard {
  CommandYard() : MarkedYard(kAttachmentBytes) {
    WriteFile(File("phrase"), std::string(kUserPhrase) + "\n");
    WriteFile(File("signer"), std::string(kSignerPhraseOnFile) + "\n");
    WriteFile(File("wrong"), "un mot de passe faux\n");
    WriteFile(File("transport"), std::string(kTransportKey) + "\n");
    std::string phrase(kSignerPhrase), signed_text(kSignatureBytes, '\0');
    (void)Api2GetSignatureXMLLight(short_text.c_str(), "protege", phrase.data(), path().c_str(),
                                   signed_text.data());
    WriteFile(File("signed"), signed_text.c_str());
    marks.push_back({"transport key", std::string(kTransportKey).substr(8, 24)});
    marks.push_back({"transport key, binary", ToText(FromHex(kTransportKey)).substr(0, 16)});
    ::setenv("KESTRUNE_KEYS", path().c_str(), 1);
  }

  std::vector<std::string> Kestrune(std::vector<std::string> words) const {
    words.insert(words.begin(), KESTRUNE_PROGRAM);
    return words;
  }
  std::vector<std::string> With(const std::string& phrase, std::vector<std::string> words) const {
    words.insert(words.end(), {"--passphrase-file", File(phrase)});
    return Kestrune(std::move(words));
  }
  std::vector<std::string> Sign(const char* phrase) const {
    return {KESTRUNE_TOOL, "-x", "-i", "bonjour", "-s", "protege", "-p", phrase, "-k", path()};
  }
};

// What a command has just made: keys of its own.
std::vector<Mark> MarksOfNewKeys(const CommandYard& yard) {
  const std::string name = yard.File("neuf/essai");
  return MarksOf(ReadPrivateKey(name + ".z." + CertificateYear() + ".key", kSignerPhraseOnFile).get());
}

std::vector<Row> Rows(const CommandYard& yard) {
  const auto file = [&](const char* name) { return yard.File(name); };
  const std::string personal = "durand." + PersonalKeyYear();
  return {
      {"kestrunesign", {yard.Sign(kSignerPhrase)}},
      {"kestrunesign, wrong pass phrase", {yard.Sign("faux")}, 152},
      {"sign", {yard.With("signer", {"sign", "-s", "protege"}), yard.short_text}},
      {"sign, open key", {yard.Kestrune({"sign", "-s", "ouvert"}), yard.short_text}},
      {"verify", {yard.Kestrune({"verify", file("signed")})}},
      {"sign --file", {yard.With("signer", {"sign", "-s", "protege", "--file", yard.attachment})}},
      {"sign, wrong pass phrase", {yard.With("wrong", {"sign", "-s", "protege"}), yard.short_text}, 1},
      {"encrypt", {yard.With("phrase", {"encrypt", file("short"), "-o", file("form")})}},
      {"decrypt", {yard.With("phrase", {"decrypt", file("form")})}},
      {"decrypt to a file", {yard.With("phrase", {"decrypt", file("form"), "-o", file("clear")})}},
      {"decrypt, wrong pass phrase", {yard.With("wrong", {"decrypt", file("form")})}, 1},
      {"decrypt, wrong pass phrase, all the same",
       {yard.With("wrong", {"decrypt", "--force", file("form")})}},
      {"encrypt --to",
       {yard.Kestrune({"encrypt", "--to", yard.protected_name, file("short"), "-o", file("form")})}},
      {"decrypt with a private key", {yard.With("signer", {"decrypt", file("form")})}},
      {"decrypt on a terminal",
       {yard.Kestrune({"decrypt", file("form")}), "", std::string(kSignerPhraseOnFile) + "\n"}},
      {"seal",
       {yard.With("phrase",
                  {"seal", "-s", "protege", "--to", "a@x.example", "--attach", yard.attachment,
                   "--signing-passphrase-file", file("signer"), "-o", file("block"), file("text")})}},
      {"seal, wrong pass phrase",
       {yard.With("wrong",
                  {"seal", "-s", "ouvert", "--to", "a@x.example", "-o", file("unused"), file("text")})},
       1},
      {"open", {yard.With("phrase", {"open", file("block")})}},
      {"open on a terminal", {yard.Kestrune({"open", file("block")}), "", std::string(kUserPhrase) + "\n"}},
      {"open -o", {yard.With("phrase", {"open", file("block"), "-o", file("opened")})}},
      {"open --eml", {yard.With("phrase", {"open", file("block"), "--eml", file("eml")})}},
      {"open --xml", {yard.With("phrase", {"open", file("block"), "--xml", file("xml")})}},
      {"open, wrong pass phrase", {yard.With("wrong", {"open", file("block")})}, 1},
      {"open, damaged", {yard.With("phrase", {"open", file("damaged")})}, 1},
      {"open, damaged, all the same",
       {yard.With("phrase", {"open", "--accept-unverified", file("damaged")})},
       1},
      {"route", {yard.Kestrune({"route", file("block")})}},
      {"inspect",
       {yard.Kestrune({"inspect", file("block"), file("form"), file(personal.c_str()),
                       file(("Master." + PersonalKeyYear()).c_str()), yard.File(yard.open_name + ".key"),
                       yard.File(yard.protected_name + ".key")})}},
      {"explain", {yard.Kestrune({"explain", "-73"})}},
      {"keys list", {yard.Kestrune({"keys", "list"})}},
      {"keys check", {yard.Kestrune({"keys", "check"})}, 1},
      {"keys pack",
       {yard.Kestrune({"keys", "pack", file(personal.c_str()), "-o", file("packed"), "--transport-key-file",
                       file("transport")})}},
      {"keys unpack",
       {yard.Kestrune({"keys", "unpack", file("packed"), "-o", file("unpacked"), "--transport-key-file",
                       file("transport")})}},
      {"keys pack, open signing key",
       {yard.Kestrune({"keys", "pack", yard.File(yard.open_name + ".key"), "-o", file("packed"),
                       "--transport-key-file", file("transport")})}},
      {"keys new",
       {yard.With("signer", {"keys", "new", "essai", "-k", file("neuf")})},
       0,
       [&] { return MarksOfNewKeys(yard); }},
  };
}

// Each of what a message consists of, damaged in its middle.
void Damage(const CommandYard& yard) {
  Bytes block = ReadFile(yard.File("block"));
  block[block.size() / 2] ^= 1;
  WriteFile(yard.File("damaged"), block);
}

// What is left must be seen: a program that does nothing about it, and the words that are looked away from.
int CheckTheLook(const CommandYard& yard) {
  int failures = 0;
  const auto expect = [&](const Command& command, bool is_found, const char* what) {
    const AtExit at_exit = LookAtExit(command, yard.marks);
    if (at_exit.found.empty() != is_found) return;
    std::printf("FAILED: the look at %s\n", what);
    for (const std::string& found : at_exit.found) std::printf("  found %s\n", found.c_str());
    ++failures;
  };
  expect({{"/bin/sh", "-c", "read -r word; exit 0"}, kUserPhrase}, true, "a shell that read a pass phrase");
  expect({{"/bin/sh", "-c", "(read -r word; exit 0); exit 0"}, kUserPhrase}, true,
         "a process that another started");
  expect({{"/usr/bin/env", "LD_BIND_NOW=1", "/bin/true", kUserPhrase}}, false, "an argument");
  return failures;
}

}  // namespace

int main(int argc, char** argv) {
  const std::string prefix = argc > 1 ? argv[1] : "";
  if (!CanLook()) {
    std::printf("no program may look at another here\n");
    return kSkipped;
  }
  const CommandYard yard;
  int failures = CheckTheLook(yard);
  std::size_t commands = 0, processes = 0, bytes = 0;
  for (const Row& row : Rows(yard)) {
    if (row.name.starts_with("open, damaged")) Damage(yard);
    const AtExit at_exit = LookAtExit(row.command, yard.marks, row.learn);
    ++commands;
    processes += at_exit.processes;
    bytes += at_exit.bytes;
    if (!row.name.starts_with(prefix)) continue;
    if (at_exit.status != row.status) {
      std::printf("FAILED: %s ended with %d, not %d: %s\n", row.name.c_str(), at_exit.status, row.status,
                  at_exit.err.c_str());
      ++failures;
    }
    for (const std::string& found : at_exit.found) {
      std::printf("FAILED: %s left %s\n", row.name.c_str(), found.c_str());
      ++failures;
    }
  }
  std::printf("%zu commands, %zu processes, %zu MiB looked at, %d failures\n", commands, processes,
              bytes >> 20, failures);
  return failures == 0 ? EXIT_SUCCESS : EXIT_FAILURE;
}
