// Throw-away keys, for trials and measurements. Real ones come from the service.
#ifndef KESTRUNE_CLI_TRIAL_KEYS_H
#define KESTRUNE_CLI_TRIAL_KEYS_H

#include <string>

#include "cli/pass_phrase.h"

namespace kestrune::cli {

// Files of a key folder, for this year.
struct TrialKeys {
  std::string signing_file, certificate_file, personal_file, master_file;  // names
  Secret signing_key, certificate, personal_key, master_key;  // contents; a terminated text, or bytes

  static constexpr std::size_t kFirstPadBytes = 4 << 20, kSecondPadBytes = 64 << 10;
};

// `phrase`: of the signing key and the personal key; "" protects the signing key not at all.
TrialKeys MakeTrialKeys(const std::string& name, const Secret& phrase,
                        std::size_t pad_bytes = TrialKeys::kFirstPadBytes);

}  // namespace kestrune::cli

#endif
