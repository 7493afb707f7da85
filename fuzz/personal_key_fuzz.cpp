// A personal key file with any numbers in its header, cut anywhere, and what a program does with it: positions set,
// runs and passwords taken, the header written and read. What is handed out is what the pads hold, each byte once; the
// file's header goes along, and nothing else in the file changes.
#include <algorithm>
#include <array>
#include <cstdint>

#include "fuzz/key_file_model.h"
#include "fuzz/memory_files.h"
#include "tests/support/sealed_body.h"

using namespace kestrune;
using namespace kestrune::testing;

namespace {

constexpr std::size_t kPasswordBytes = 32;

struct Yard {
  PersonalKey key;
  Bytes sealed, known;  // the file, and the one for KnownKey
  Bytes pads;
  MemoryFiles files;

  Yard() {
    key.first_pad.resize(2 * kPadChunk);
    key.second_pad.resize(kPadChunk);
    sealed = known = key.File();
    OpenIvArea(known, key.hex_password);
    pads = key.first_pad;
    pads.insert(pads.end(), key.second_pad.begin(), key.second_pad.end());
  }
};

// Whole chunks of what the pads are divided into are the same whatever the header says.
class PersonalKeyModel : public KeyFileModel<PersonalKeyModel, TypV2KestruneKey> {
 public:
  PersonalKeyModel(Yard& yard, Bytes& file, bool updates, TypV2KestruneKey* made)
      : KeyFileModel(file, updates, made), yard_(yard) {}

  bool Open() {
    const Result rc =
        key_.Init(&yard_.files, "key", 0L, "", yard_.key.hex_password.c_str(), updates_ ? 1ULL : 0ULL);
    Expect(rc != kOk || file_.size() >= kKeyHeaderBytes);
    return rc == kOk;
  }

  void Do(std::uint64_t operation, std::uint64_t value) {
    switch (operation % 7) {
      case 0:
        if (key_->SetOffsetOTPChiffrement(value) == kOk) Set(kFirstOffsetAt, value);
        return;
      case 1:
        Expect(key_->SetOffsetOTPassword(value) == kOk);
        return Set(kSecondOffsetAt, value);
      case 2:
        return WriteHeader();
      case 3:
        return LoadHeader();
      case 4:
        return TakePassword();
      default:
        TakeRun(value % kLongestRun);
    }
  }

  void ExpectPad(const unsigned char* bytes, std::uint64_t at, std::uint64_t count) const {
    Expect(at <= yard_.pads.size() && count <= yard_.pads.size() - at);
    Expect(std::equal(bytes, bytes + count, yard_.pads.data() + at));
  }

 private:
  void TakeRun(std::uint64_t length) {
    CBuffer run;
    const Result rc = GetRun(length, run);
    Expect((rc == kOk) == (run.data() != nullptr));
    if (rc != kOk) return;
    Expect(Get(kFirstOffsetAt) < Get(kFirstPadBytesAt));
    Set(kUsesAt, Get(kUsesAt) + 1);
    ExpectTaken(run, PadsAreOurs());
  }

  void TakePassword() {
    std::array<unsigned char, kPasswordBytes> password{};
    unsigned long long offset = 0;
    const Result rc = key_->GetOTPassword(password.data(), &offset);
    const std::uint64_t pad = Get(kSecondPadBytesAt), from = Get(kSecondOffsetAt);
    Expect(offset == from);
    if (rc != kOk) return;
    Expect(from < pad && from % kPadChunk <= kPadChunk - kPasswordBytes);
    if (PadsAreOurs()) ExpectPad(password.data(), Get(kFirstPadBytesAt) + from, kPasswordBytes);
    Set(kSecondOffsetAt, pad - from <= kPasswordBytes ? 0 : from + kPasswordBytes);
    ExpectStored();
  }

  // A larger IV area is followed by other bytes, and half chunks are handed out as they are.
  bool PadsAreOurs() const {
    const std::uint64_t first = Get(kFirstPadBytesAt);
    return first % kPadChunk == 0 && IvAreaBytes(first, Get(kSecondPadBytesAt)) == kPadChunk;
  }

  Yard& yard_;
};

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  static Yard yard;
  Input input(data, size);
  const std::uint64_t flags = input.Number(1);
  // Seldom the digest too is looked at, which takes ten times as long.
  const bool is_known = flags % 16 != 0;
  const bool updates = flags >= 128;
  Bytes& file = yard.files.files["key"];
  file = is_known ? yard.known : yard.sealed;
  Spoil(file, input,
        {kFirstPadBytesAt, kSecondPadBytesAt, kFirstOffsetAt, kSecondOffsetAt, kCyclesAt, kUsesAt,
         kUsedBytesAt});
  if (!is_known) Reseal(file, yard.key.hex_password);
  PersonalKeyModel key(yard, file, updates, is_known ? new KnownKey : new TypV2KestruneKey);
  if (key.Open()) key.DoAll(input);
  return 0;
}
