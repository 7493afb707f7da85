// Sealed messages as they lie in files: transport blocks and grey blocks.
#ifndef KESTRUNE_CLI_SEALED_FILE_H
#define KESTRUNE_CLI_SEALED_FILE_H

#include <functional>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include "base/buffer.h"
#include "cli/failure.h"
#include "cli/input.h"

namespace kestrune::cli {

// What stands in clear, and who vouches for it.
struct SealedFile {
  bool is_transport = false;
  std::string signer;   // whose transport signature held; "" for a grey block
  std::string routing;  // of the grey block
  std::optional<Failure>
      doubt;  // why the sender is not known to be who the routing says; never of a grey block

  // The grey block itself: the file's own bytes, or what was taken out of the transport block.
  const unsigned char* data() const { return grey ? grey.data() : file.data(); }
  std::size_t size() const { return grey ? grey.size() : file.size(); }

  Content file;
  CBuffer grey;
};

// Reads a file and looks at all that needs no pass phrase. `folder` is asked for the certificates where a signature
// is to be checked. Throws where there is no intact block.
SealedFile ReadSealedFile(const std::string& path, const std::function<std::string()>& folder);

// The first element of that name in a routing XML; "" where there is none.
std::string_view Element(std::string_view xml, std::string_view tag);

// What a routing says.
struct Routing {
  explicit Routing(std::string_view xml);

  std::string sender, key, identifier, date, subject;  // the subject decoded
  std::vector<std::string> recipients, copies;
};

}  // namespace kestrune::cli

#endif
