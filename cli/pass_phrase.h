// Pass phrases: from files, descriptors and the terminal, never from the command line.
#ifndef KESTRUNE_CLI_PASS_PHRASE_H
#define KESTRUNE_CLI_PASS_PHRASE_H

#include <CLI/CLI.hpp>
#include <string>

#include "base/buffer.h"

namespace kestrune::cli {

// A terminated text that is wiped when it goes.
using Secret = SecretCBuffer;

Secret CopyOf(const Secret& secret);

// Some characters become '_' in a signing key's pass phrase before it opens the key; so keys are protected.
void AsInKeys(Secret& phrase);

// One pair of options and what they say.
class PassPhraseSource {
 public:
  // --PREFIXpassphrase-file and --PREFIXpassphrase-fd
  void AddTo(CLI::App& command, const std::string& prefix, const std::string& whose);

  bool is_given() const { return !file_.empty() || fd_ >= 0; }

  // The first line. From a file it can be read again; of a descriptor no byte behind the line is taken.
  Secret Read() const;

 private:
  std::string file_;
  int fd_ = -1;
};

// The sources that a command offers. A signing key's pass phrase is the same as the other's where it has no source of
// its own.
class PassPhrases {
 public:
  void AddTo(CLI::App& command);         // --passphrase-file, --passphrase-fd
  void AddSigningTo(CLI::App& command);  // --signing-passphrase-file, --signing-passphrase-fd

  // `key`: what is asked for on the terminal. Throws where there is neither source nor terminal.
  Secret Of(const std::string& key);
  Secret OfSigningKey(const std::string& key);
  // A new one: on the terminal it is asked for twice.
  Secret OfNew(const std::string& what);
  bool is_given() const { return source_.is_given(); }

 private:
  PassPhraseSource source_, signing_source_;
  Secret read_;  // a descriptor gives it once
};

// From the terminal, without echo. Where there is none it throws, and names what else gives it (null: a pass phrase's
// options).
Secret AskSecret(const std::string& prompt, const char* remedy = nullptr);

}  // namespace kestrune::cli

#endif
