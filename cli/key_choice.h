// Which keys of the folder a command works with.
#ifndef KESTRUNE_CLI_KEY_CHOICE_H
#define KESTRUNE_CLI_KEY_CHOICE_H

#include <CLI/CLI.hpp>
#include <memory>
#include <string>

#include <kestrune/kestrune.h>
#include "cli/pass_phrase.h"

namespace kestrune::cli {

// What lies in a key folder.
using KeyList = std::unique_ptr<kestrune_key_folder, decltype(&kestrune_free_key_folder)>;
KeyList ListKeys(const std::string& folder);

// The calendar year of today.
int ThisYear();

// A key that a command signs or seals with, chosen by its option or because it is the only one of this year.
struct ChosenKey {
  std::string name;
  std::string file;               // as it is called in questions
  bool needs_pass_phrase = true;  // as far as is known
};

// --signer
class SignerOption {
 public:
  void AddTo(CLI::App& command);
  ChosenKey Choose(const std::string& folder) const;

 private:
  std::string name_;
};

// --user
class UserOption {
 public:
  void AddTo(CLI::App& command);
  ChosenKey Choose(const std::string& folder) const;

 private:
  std::string name_;
};

}  // namespace kestrune::cli

#endif
