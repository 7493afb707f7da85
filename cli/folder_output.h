// Files that somebody else named, written into a folder: all of them or none.
#ifndef KESTRUNE_CLI_FOLDER_OUTPUT_H
#define KESTRUNE_CLI_FOLDER_OUTPUT_H

#include <deque>
#include <set>
#include <string>
#include <string_view>

#include "cli/output.h"

namespace kestrune::cli {

// A name made harmless: no path, no controls, no beginning that means something to a shell, at most 200 bytes.
// `otherwise` stands for one of which nothing is left.
std::string HarmlessName(std::string_view name, const std::string& otherwise);

// The names that are taken, whatever their case; gives each a number where it is.
class Names {
 public:
  std::string Take(const std::string& wanted);

 private:
  std::set<std::string> taken_;
};

// Clear text, for the owner alone.
class FolderOutput {
 public:
  // The folder is made where it is missing.
  FolderOutput(std::string path, bool force);

  // The file's name in the folder, harmless and its own.
  std::string Add(std::string_view wanted, const std::string& otherwise, std::string_view bytes);
  // Before this nothing is seen but the folder.
  void Commit();

 private:
  std::string path_;
  bool force_;
  Pending made_;  // the folder, where it was missing
  Names names_;
  std::deque<Output> files_;
};

}  // namespace kestrune::cli

#endif
