// A second reading of sealed messages, layer by layer; it knows nothing of the library.
#ifndef KESTRUNE_TESTS_SUPPORT_SEALED_MESSAGE_H
#define KESTRUNE_TESTS_SUPPORT_SEALED_MESSAGE_H

#include <string>
#include <vector>

#include "examples/key_files.h"
#include "tests/support/bytes.h"
#include "tests/support/key_folder.h"
#include "tests/support/sealed_body.h"

namespace kestrune::testing {

// A cell of a flat tree.
struct Cell {
  std::string name;  // "?": more characters are stated than a name has
  std::string xml;
  Bytes data;
  std::vector<Cell> cells;  // sub-blocks
};

// Reads a flat tree; an exception for one that is malformed or whose trailer is wrong.
Cell ReadFlatTree(const Bytes& flat);
// The records in some of its bytes, side by side.
std::vector<Cell> ReadRecords(const Bytes& flat, std::size_t at, std::size_t end);

// A flat tree of one leaf, right in itself whatever is in it; and a right trailer for what stands before it.
Bytes FlatLeaf(const std::string& name, const std::string& xml, const Bytes& data);
void SealAgain(Bytes& flat);

// Whether a signature block is a signature of these data with the key of a certificate file.
bool SignatureHolds(const std::string& block, const Bytes& data, const std::string& certificate_path);

// The layers of a transport block.
struct Layers {
  Cell transport, grey, kest, red;
  SealedParts green;
};
Layers TakeApart(const Bytes& transport, const Pads& pads);

// A folder with all that sealing and opening need: personal key "durand", master key, signing key "medecin"
// and its certificate. The pass phrase of the personal key is a_b_c_d, the signing key has none.
struct MessageFolder : KeyFolder {
  explicit MessageFolder(std::size_t pad_chunks = 16);
  void AddUser(const std::string& name) const;  // with the same pads and pass phrase
  Pads pads() const { return {personal.first_pad, personal.second_pad, master.pad}; }
  std::string Certificate() const { return File(signing_key + ".pem"); }

  PersonalKey personal;
  MasterKey master;
  std::string signing_key;  // with letter and year
};

}  // namespace kestrune::testing

#endif
