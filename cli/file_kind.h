// What a file is, by its beginning, its size and its name. Nothing of it is trusted.
#ifndef KESTRUNE_CLI_FILE_KIND_H
#define KESTRUNE_CLI_FILE_KIND_H

#include <string>
#include <string_view>

#include <kestrune/kestrune.h>

namespace kestrune::cli {

enum class What {
  kUnknown,
  kEmpty,
  kBlock,
  kPads,            // a personal or master key
  kPrivateKey,      // PEM or DER
  kCertificate,     // the same
  kSignature,       // a signature block
  kUnderPassword,   // a short text, <IV> and <AE>
  kForCertificate,  // a short text, <AESPUB>
  kInstallation,    // perhaps: bytes that look random, of the right length
};

struct FileKind {
  What what = What::kUnknown;
  // Bytes that belong to it: fewer than it has where blanks fill it up.
  unsigned long long bytes = 0;
  // Of pads: what the header says; `state` as kestrune_list_keys().
  kestrune_key key{};

  bool is_key() const { return what == What::kPads || what == What::kPrivateKey; }
};

// Throws what the system says. Of a key file the header alone is read.
FileKind KindOfFile(const std::string& path);
// The same of what is in memory; `name` is what it is or shall be called.
FileKind KindOfContent(std::string_view content, const std::string& name);

// Whether these are the first bytes of a private key in DER under a pass phrase (RFC 5958's EncryptedPrivateKeyInfo).
bool IsProtectedDer(std::string_view text);

// NAME.2YY, NAME.key, NAME.pem
bool IsKeyName(const std::string& file_name);
bool IsPadName(const std::string& file_name);

}  // namespace kestrune::cli

#endif
