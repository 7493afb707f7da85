// A message body of any content, opened with fixed keys. The first byte chooses: the input is the body as it
// is, or what lies under the enciphering and the masks, so that every field is reached. The trap lets go.
#include <cstdint>
#include <string>

#include "core/instance_creator.h"
#include "core/owned.h"
#include "core/result.h"
#include "examples/key_files.h"
#include "keys/message_cipher.h"
#include "keys/trap.h"
#include "tests/support/sealed_body.h"
#include "tests/support/temp_folder.h"

using namespace kestrune;
using namespace kestrune::testing;

void kestrune::SleepForEver() {}

namespace {

struct Yard : TempFolder {
  PersonalKey personal;
  MasterKey master;
  Pads pads{personal.first_pad, personal.second_pad, master.pad};
  Yard() {
    WriteFile(File("cle.226"), personal.File());
    WriteFile(File("Master.226"), master.File());
  }
};

// The input as offsets (their low two bytes) and what the runs lie over.
Bytes Enciphered(const std::uint8_t* data, std::size_t size, const Pads& pads) {
  SealedParts parts;
  parts.password_offset = std::uint64_t{data[0]} * 32 % 4096;
  parts.run_offset = std::uint64_t{data[1]} << 8 | data[2];
  parts.master_offset = std::uint64_t{data[3]} << 8 | data[4];
  parts.r1.assign(data + 5, data + size);
  parts.r1.insert(parts.r1.begin() + 1, (16 - parts.r1.size() % 16) % 16, 0);  // whole AES blocks
  return SealParts(parts, pads);
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  static const Yard yard;
  if (size < 1) return 0;
  const bool under = (data[0] & 1) != 0 && size > 6;
  const Bytes body = under ? Enciphered(data + 1, size - 1, yard.pads) : Bytes(data + 1, data + size);
  const unsigned char none = 0;
  TypV2InstanceCreatorUnix creator;
  Owned<TypKestruneV2> cipher(creator.newTypKestruneV2());
  if (cipher.Init(&creator, "", yard.path().c_str(), "") != kOk) return 0;
  CBuffer opened;
  (void)opened.Receive([&](auto** bytes, auto* length) {
    return cipher->Low_decrypter(body.empty() ? &none : body.data(), body.size(), "cle.226",
                                 yard.personal.hex_password.c_str(), bytes, length);
  });
  return 0;
}
