// An RSA key with which an operation takes a small part of the usual time, and its certificate in a folder.
#ifndef KESTRUNE_FUZZ_SHORT_KEY_H
#define KESTRUNE_FUZZ_SHORT_KEY_H

#include <string>

#include "crypto/classic.h"
#include "fuzz/expect.h"
#include "tests/support/bytes.h"
#include "tests/support/temp_folder.h"

namespace kestrune::testing {

struct ShortKey {
  std::string name = "rsa640";
  rsa_context rsa;

  ShortKey() { Expect(x509parse_keyfile(&rsa, DataPath("rsa640.key").c_str(), nullptr) == 0); }

  // The key and its certificate, as DER, which is read sooner than PEM.
  void WriteFiles(const TempFolder& folder) const {
    for (const char* suffix : {".key", ".pem"}) {
      const std::string pem = ToText(ReadFile(DataPath(std::string("rsa640") + suffix)));
      const std::size_t begin = pem.find('\n') + 1;
      WriteFile(folder.File(name + suffix), FromBase64(pem.substr(begin, pem.find("-----END") - begin)));
    }
  }

  // A signature block as the message's are, of the text's digest.
  std::string Sign(const std::string& text) {
    const std::string digest = Sha512(text);
    std::string signature(rsa.len(), '\0');
    Expect(rsa_pkcs1_sign(&rsa, RSA_PRIVATE, SIG_RSA_RAW, digest.size(),
                          reinterpret_cast<const unsigned char*>(digest.data()),
                          reinterpret_cast<unsigned char*>(signature.data())) == 0);
    return "<SIGN><N>" + name + "</N><S>" + ToBase64(signature) + "</S></SIGN>";
  }
};

// A folder with that key and others, which a saved input may name too.
struct ShortKeyFolder : TempFolder {
  ShortKey key;

  ShortKeyFolder() {
    key.WriteFiles(*this);
    for (const char* other : {"rsa2048.key", "rsa2048.pem", "ec.key", "ec.pem"})
      WriteFile(File(other), ReadFile(DataPath(other)));
  }
};

}  // namespace kestrune::testing

#endif
