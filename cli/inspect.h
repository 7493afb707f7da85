// What `kestrune inspect` finds in a file, for people and for programs at once.
#ifndef KESTRUNE_CLI_INSPECT_H
#define KESTRUNE_CLI_INSPECT_H

#include <string>
#include <string_view>

#include "cli/failure.h"
#include "cli/key_report.h"

namespace kestrune::cli {

// The JSON library's operations are not declared as what they are: none that is used here throws on its way out.
struct Report {         // NOLINT(bugprone-exception-escape)
  std::string heading;  // "transport block, 5.2 MB"
  std::string lines;    // what is below it, each ended by a line feed
  Json json = Json::object();
  Status status = Status::kDone;

  void Say(const std::string& line) { lines += "  " + line + "\n"; }
  // Something that is not as it should be; `what` is a sentence.
  void Object(const std::string& what);
};

// The tree of a block and of the blocks in it, the first cells of each.
void InspectBlock(std::string_view block, Report& report);

}  // namespace kestrune::cli

#endif
