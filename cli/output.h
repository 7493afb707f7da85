// What is written: whole or not at all.
#ifndef KESTRUNE_CLI_OUTPUT_H
#define KESTRUNE_CLI_OUTPUT_H

#include <string>
#include <string_view>

#include "cli/descriptor.h"
#include "cli/ending.h"

namespace kestrune::cli {

// How an output is treated.
struct Manner {
  bool is_secret = false;    // clear text or keys: mode 0600, whatever was there before
  bool is_binary = false;    // refused on a terminal, but with `force`
  bool must_be_new = false;  // an older file of that name stays, but with `force`
  bool force = false;
};

// A file is written beside its place, made durable and renamed to it by Commit(); before that nothing of it is seen,
// and a failure or a signal leaves nothing. A device or a pipe is written to as it is, and so is standard output
// ("-"): a command makes all it has to say before the first Write().
class Output {
 public:
  Output(std::string path, Manner manner);

  void Write(std::string_view bytes);
  void Sync();  // makes it durable, so that the next step is short
  void Commit();
  void TakeBack();  // removes what was committed

 private:
  void OpenBeside();

  std::string path_;    // as the user wrote it
  std::string target_;  // behind all links; empty where bytes go straight to their place
  Manner manner_;
  mode_t mode_ = 0;
  Descriptor file_;
  Pending pending_;
};

// For what is done in one step.
void WriteOutput(const std::string& path, std::string_view bytes, Manner manner = {});

// To standard output, in the same way; text is made Printable() where that is a terminal.
void PrintText(std::string_view text);
// The same, with the end of its last line where that is missing.
void PrintLines(std::string_view text);
// The same as it is, with its colours: whoever calls has made Printable() what is not his own.
void PrintPainted(std::string_view text);
// What standard output says at its end; a full disk may show only then.
void CloseStandardOutput();

// Makes durable that a file or folder is there under its name, as far as the file system does that.
void SyncFolderOf(const std::string& path);

// Standard descriptors that are closed are taken, so that no file gets their number: what is written there fails.
void OccupyStandardDescriptors();

// A name in that folder that nobody has: ".kestrune-", process, number.
std::string TemporaryName(const std::string& folder);

}  // namespace kestrune::cli

#endif
