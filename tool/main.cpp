// kestrunesign: signs a short text and prints the signature block.
#include <unistd.h>

#include <array>
#include <cstddef>
#include <cstdint>
#include <cstdio>
#include <cstring>

#include <kestrune/kestrune.h>
#include "base/wipe.h"
#include "core/owned.h"
#include "core/result.h"
#include "kestrune_settings.h"
#include "tool/getopt2.h"

namespace {

using namespace kestrune;

constexpr std::size_t kArgumentBytes = 2048;
constexpr std::size_t kOutputBytes = 16384;
constexpr char kOptions[] = "i:s:p:k:vx";
constexpr int kOutputFailure = 1;  // exit status when all went well but the output could not be written

struct Arguments {
  std::array<char, kArgumentBytes> input{};
  std::array<char, kArgumentBytes> key_name{};
  SecretArray<kArgumentBytes> password;
  std::array<char, kArgumentBytes> folder{};
  bool verbose = false;
  bool xml_output = false;
  bool seen = false;
};

// The password's key takes part in nothing further; making it is what -p does.
void PreparePassword(const Arguments& arguments) {
  SecretArray<kArgumentBytes> hex_password;
  (void)BuildHexPassword(arguments.password.data(), hex_password.data());
}

Result TakeText(char* buffer, const char* argument, Result code_when_too_long) {
  if (argument == nullptr) return kOk;
  if (!IsShorterThan(argument, kArgumentBytes)) return code_when_too_long;
  std::strcpy(buffer, argument);
  return kOk;
}

// Every user of the machine can read the vector while the program runs.
void BlankInVector(char* argument) {
  if (argument != nullptr) wipe(argument, std::strlen(argument));
}

// An argument that begins with '-' is refused, and its word read on as options. It was meant as an argument all the
// same, of -p perhaps, so it is blanked as soon as the parser has left the word.
class RefusedArgument {
 public:
  ~RefusedArgument() { BlankInVector(argument_); }

  void Note(int option, char* argument) {
    if (tool::optind != word_) {
      BlankInVector(argument_);
      argument_ = nullptr;
    }
    if (option != '?' || argument == nullptr || argument_ != nullptr) return;
    argument_ = argument;
    word_ = tool::optind;
  }

 private:
  char* argument_ = nullptr;
  int word_ = 0;
};

Result ActOn(int option, char* argument, Arguments& arguments) {
  Result rc = kOk;
  switch (option) {
    case 'i':
      return TakeText(arguments.input.data(), argument, signer::kTooLong);
    case 's':
      return TakeText(arguments.key_name.data(), argument, signer::kKeyName);
    case 'k':
      return TakeText(arguments.folder.data(), argument, signer::kFolder);
    case 'p':
      rc = TakeText(arguments.password.text(), argument, signer::kPassword);
      BlankInVector(argument);
      if (rc == kOk) PreparePassword(arguments);
      return rc;
    case 'v':
      arguments.verbose = true;
      return kOk;
    case 'x':
      arguments.xml_output = true;
      return kOk;
    case '?':
      std::printf("\nWrong choice\n");
      return kOk;
    default:
      return kOk;
  }
}

Result ReadArguments(int argc, char** argv, Arguments& arguments) {
  RefusedArgument refused;
  for (;;) {
    char* argument = nullptr;
    const int option = tool::getopt2(argc, argv, kOptions, &argument);
    if (option == -1 && argument == nullptr) return kOk;
    arguments.seen = true;
    if (const Result rc = ActOn(option, argument, arguments); rc != kOk) return rc;
    refused.Note(option, argument);
  }
}

void PrintUsage() {
  std::printf("\nmainKestruneSign version: 2.02 - 2017-10-11 - %s\n", settings::kMakersMark);
  std::printf("Outil de signatureKestrune V2\n\n");
  std::printf(
      "usage : kestrunesign -i 'data_a_chiffrer_avec_clef_signature' -s nom_clef_signature -p motdepasse -k "
      "signkeyfolderpath (/ à la fin du chemin) [-v] [-x (afficher en xml)]\n");
}

void PrintArguments(const Arguments& arguments) {
  std::printf("Input Args:\n");
  std::printf("input : %s\n", arguments.input.data());
  std::printf("clef signature : %s\n", arguments.key_name.data());
  std::printf("motdepasse : %s\n", arguments.password.text());
  std::printf("signkeyfolderpath : %s\n", arguments.folder.data());
  std::printf("verbose : %d\n", arguments.verbose ? 1 : 0);
  std::printf("xmloutput human : %d\n", arguments.xml_output ? 1 : 0);
}

Result Sign(Arguments& arguments) {
  std::array<char, kOutputBytes> block{};
  const Result rc =
      Api2GetSignatureXMLLight(arguments.input.data(), arguments.key_name.data(), arguments.password.text(),
                               arguments.folder.data(), block.data());
  if (rc == kOk && arguments.xml_output) std::printf("%s", block.data());
  if (rc != kOk || arguments.verbose) std::printf("err = %d\n", rc);
  return rc;
}

Result Run(int argc, char** argv) {
  Arguments arguments;
  if (const Result rc = ReadArguments(argc, argv, arguments); rc != kOk) {
    std::printf("err = %d\n", rc);
    return rc;
  }
  if (!arguments.seen) {
    PrintUsage();
    return kOk;
  }
  if (arguments.verbose) PrintArguments(arguments);
  return Sign(arguments);
}

// With -v the password passes through standard output's buffer, so that is one that can be wiped.
std::array<char, BUFSIZ> output_buffer;

void OpenOutput() {
  const int mode = ::isatty(STDOUT_FILENO) == 1 ? _IOLBF : _IOFBF;
  (void)std::setvbuf(stdout, output_buffer.data(), mode, output_buffer.size());
}

// False when something of what was printed could not be written.
bool CloseOutput() {
  const bool written = std::fflush(stdout) == 0 && std::ferror(stdout) == 0;
  wipe(output_buffer.data(), output_buffer.size());
  return written;
}

}  // namespace

int main(int argc, char** argv) {
  OpenOutput();
  const Result rc = Run(argc, argv);
  return CloseOutput() || rc != kOk ? rc : kOutputFailure;
}
