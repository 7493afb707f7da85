// Keys, pass phrases and texts whose bytes are known again wherever they are left.
#ifndef KESTRUNE_CAMPAIGNS_MARKED_YARD_H
#define KESTRUNE_CAMPAIGNS_MARKED_YARD_H

#include <openssl/evp.h>

#include <cstddef>
#include <memory>
#include <string>
#include <vector>

#include "tests/support/sealed_message.h"

namespace kestrune::testing {

// Bytes that nothing else holds by accident: 8 or more.
struct Mark {
  std::string secret;
  std::string bytes;
};

// In pass phrases '#' becomes '_' on the way: what is marked is what both forms have.
inline constexpr const char *kUserPhrase = "a#PhraseDuLecteur", *kSignerPhrase = "b#PhraseDuSignataire";
inline constexpr const char* kSignerPhraseOnFile = "b_PhraseDuSignataire";

using PrivateKey = std::unique_ptr<EVP_PKEY, decltype(&EVP_PKEY_free)>;

// A key file, protected or not.
PrivateKey ReadPrivateKey(const std::string& path, const char* pass_phrase = nullptr);

// What its file and arithmetic have of it.
std::vector<Mark> MarksOf(EVP_PKEY* key);

// A folder with keys that are marked, and every text that goes in; "durand" seals and opens, "protege" and "ouvert"
// sign.
struct MarkedYard : MessageFolder {
  explicit MarkedYard(std::size_t attachment_bytes);

  const std::string hex = HexPassword("a_PhraseDuLecteur");
  const std::string letter, short_text;
  const std::string attachment;           // a file
  std::string protected_name, open_name;  // of signing keys, with letter and year
  std::vector<Mark> marks;

 private:
  void MarkPassPhrases();
  void MarkTexts();
};

}  // namespace kestrune::testing

#endif
