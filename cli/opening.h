// Opened messages: deciphered in a process apart, every signature checked.
#ifndef KESTRUNE_CLI_OPENING_H
#define KESTRUNE_CLI_OPENING_H

#include <chrono>
#include <functional>
#include <string>
#include <string_view>
#include <vector>

#include "cli/apart.h"
#include "cli/failure.h"
#include "cli/sealed_file.h"

namespace kestrune::cli {

// A text, an attachment, or the message as a whole.
struct OpenedPart {
  std::string_view data;
  std::string name;  // the sender's
  long signature = 0;
  std::string signer;
};

// What came out of a block. The views last as long as it does.
struct OpenedMessage {
  SharedBytes bytes;
  std::string routing;
  OpenedPart whole;
  std::vector<OpenedPart> texts, attachments;
  std::string_view eml, xml;
};

struct OpeningTask {
  std::string called;  // the file, in messages
  std::string folder;
  std::string_view pass_phrase;
  std::chrono::seconds deadline{};
  bool wants_eml = false;
  bool wants_xml = false;
  std::function<void(const std::string&)> on_step;  // what is being done
};

// Throws where the block does not open, or not in time.
OpenedMessage OpenApart(const SealedFile& sealed, const OpeningTask& task);

// Why not everything in it is proven to be its sender's; nothing where it is.
std::vector<Failure> DoubtsAbout(const OpenedMessage& message, const SealedFile& sealed,
                                 const std::string& called);

// The other process's main().
int OpenInThisProcess();

}  // namespace kestrune::cli

#endif
