// A message body of any content, opened with fixed keys. The first byte chooses: the input is the body as it
// is, or what lies under the enciphering and the masks, so that every field is reached. What opens is what the second
// reading finds. The trap lets go.
#include <cstdint>
#include <string>

#include "core/owned.h"
#include "core/result.h"
#include "fuzz/expect.h"
#include "fuzz/input.h"
#include "fuzz/known_key.h"
#include "fuzz/memory_files.h"
#include "keys/message_cipher.h"
#include "keys/trap.h"
#include "tests/support/sealed_body.h"

using namespace kestrune;
using namespace kestrune::testing;

void kestrune::SleepForEver() {}

namespace {

constexpr std::size_t kPasswordBytes = 32;

struct Yard : MemoryFiles {
  PersonalKey personal;
  MasterKey master;
  Pads pads{personal.first_pad, personal.second_pad, master.pad};

  Yard() {
    files["cle.226"] = personal.File();
    OpenIvArea(files["cle.226"], personal.hex_password);
    files["Master.226"] = master.File();
  }
  TypV2KestruneKey* newTypV2KestruneKey() override { return new KnownKey; }
};

// The input as offsets (their low two bytes) and what the runs lie over.
Bytes Enciphered(Input input, const Pads& pads) {
  SealedParts parts;
  parts.password_offset = input.Number(1) * kPasswordBytes % kPadChunk;
  parts.run_offset = input.Number(2);
  parts.master_offset = input.Number(2);
  const std::string runs = input.Rest();
  parts.r1.assign(runs.begin(), runs.end());
  parts.r1.insert(parts.r1.begin() + 1, (16 - parts.r1.size() % 16) % 16, 0);  // whole AES blocks
  return SealParts(parts, pads);
}

// Kept so: a one-time password that is not there is taken for zeros, and a master pad for one that goes on behind its
// end. The second reading begins again at the first byte of each.
bool IsReadAlike(const Bytes& body, const SealedParts& parts, const Pads& pads) {
  return body.size() % 16 == 8 && parts.password_offset % kPadChunk <= kPadChunk - kPasswordBytes &&
         parts.password_offset < pads.second.size() && parts.master_offset <= pads.master.size();
}

void ExpectSame(const Bytes& body, const Pads& pads, const CBuffer& opened, bool is_open) {
  SealedParts parts;
  const bool has_room = OpenParts(body, pads, &parts) && !parts.body.empty();
  if (!IsReadAlike(body, parts, pads)) return;
  Expect(is_open == (has_room && parts.run_offset <= pads.first.size() - 8));
  if (is_open) Expect(Bytes(opened.data(), opened.data() + opened.size()) == parts.body);
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  static Yard yard;
  if (size < 1) return 0;
  const bool under = (data[0] & 1) != 0 && size > 6;
  const Bytes body = under ? Enciphered(Input(data + 1, size - 1), yard.pads) : Bytes(data + 1, data + size);
  const unsigned char none = 0;
  Owned<TypKestruneV2> cipher(yard.newTypKestruneV2());
  Expect(cipher.Init(&yard, "", "", "") == kOk);
  CBuffer opened;
  const Result rc = opened.Receive([&](auto** bytes, auto* length) {
    return cipher->Low_decrypter(body.empty() ? &none : body.data(), body.size(), "cle.226",
                                 yard.personal.hex_password.c_str(), bytes, length);
  });
  Expect(cipher->ZeroPassword() == kOk);
  constexpr std::size_t kHead = 24;
  Expect(rc != kOk || body.size() > kHead);
  if (body.size() > kHead) ExpectSame(body, yard.pads, opened, rc == kOk);
  return 0;
}
