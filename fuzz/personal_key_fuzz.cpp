// A personal key file with any numbers in its header, cut anywhere, and what a program does with it: positions set,
// runs and passwords taken, the header written and read. What is handed out is what the pads hold, each byte once; the
// file's header goes along, and nothing else in the file changes.
#include <algorithm>
#include <array>
#include <cstdint>
#include <string>

#include "core/owned.h"
#include "core/result.h"
#include "fuzz/expect.h"
#include "fuzz/input.h"
#include "fuzz/known_key.h"
#include "fuzz/memory_files.h"
#include "tests/support/sealed_body.h"

using namespace kestrune;
using namespace kestrune::testing;

namespace {

constexpr std::array kNumbersAt = {kFirstPadBytesAt, kSecondPadBytesAt, kFirstOffsetAt, kSecondOffsetAt,
                                   kCyclesAt,        kUsesAt,           kUsedBytesAt};
constexpr std::size_t kPasswordBytes = 32;
constexpr std::size_t kLongestRun = 9'000;  // more than the first pad has

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

// The key beside what it should be. Whole chunks of what the pads are divided into are the same whatever the header says.
class Pair {
 public:
  Pair(Yard& yard, Bytes& file, bool updates, TypV2KestruneKey* made)
      : yard_(yard), file_(file), updates_(updates), key_(std::move(made)), header_(file) {
    header_.resize(std::min(header_.size(), kKeyHeaderBytes));
  }

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
        break;
      case 1:
        Expect(key_->SetOffsetOTPassword(value) == kOk);
        Set(kSecondOffsetAt, value);
        break;
      case 2:
        Expect((key_->WriteHeader() == kOk) == updates_);
        ExpectStored();
        break;
      case 3:
        Expect(key_->LoadHeader() == kOk);
        header_.assign(file_.begin(), file_.begin() + kKeyHeaderBytes);
        break;
      case 4:
        TakePassword();
        break;
      default:
        TakeRun(value % kLongestRun);
    }
  }

  void ExpectRestKept(const Bytes& before) const {
    const auto kept_from = static_cast<std::ptrdiff_t>(updates_ ? kKeyHeaderBytes : 0);
    Expect(std::equal(before.begin() + kept_from, before.end(), file_.begin() + kept_from, file_.end()));
  }

 private:
  // Where `length` bytes from an offset inside a pad end, which goes on at its beginning.
  static std::uint64_t After(std::uint64_t pad, std::uint64_t from, std::uint64_t length) {
    return length < pad - from ? from + length : (length - (pad - from)) % pad;
  }
  std::uint64_t Get(std::size_t at) const { return NumberAt(header_, at); }
  void Set(std::size_t at, std::uint64_t value) { SetNumberAt(header_, at, value); }

  void TakeRun(std::uint64_t length) {
    CBuffer run;
    unsigned char* bytes = nullptr;
    unsigned long long offset = 0;
    const Result rc = key_->GetLineaKey(&bytes, length, &offset);
    run.Adopt(bytes, length);
    Expect((rc == kOk) == (bytes != nullptr));
    const std::uint64_t pad = Get(kFirstPadBytesAt), from = Get(kFirstOffsetAt);
    Expect(offset == from);
    if (rc != kOk) return;
    Expect(from < pad);
    for (std::uint64_t done = 0, at = from; PadsAreOurs() && done < length; at = 0) {
      const std::uint64_t count = std::min(length - done, pad - at);
      ExpectPad(bytes + done, at, count);
      done += count;
    }
    Set(kFirstOffsetAt, After(pad, from, length));
    Set(kUsesAt, Get(kUsesAt) + 1);
    Set(kUsedBytesAt, Get(kUsedBytesAt) + length);
    ExpectCommitted(true);
  }

  void TakePassword() {
    std::array<unsigned char, kPasswordBytes> password{};
    unsigned long long offset = 0;
    const Result rc = key_->GetOTPassword(password.data(), &offset);
    const std::uint64_t pad = Get(kSecondPadBytesAt), from = Get(kSecondOffsetAt),
                        first = Get(kFirstPadBytesAt);
    Expect(offset == from);
    if (rc != kOk) return;
    Expect(from < pad && from % kPadChunk <= kPadChunk - kPasswordBytes);
    if (PadsAreOurs()) ExpectPad(password.data(), first + from, kPasswordBytes);
    Set(kSecondOffsetAt, pad - from <= kPasswordBytes ? 0 : from + kPasswordBytes);
    ExpectCommitted(false);
  }

  // A larger IV area is followed by other bytes, and half chunks are handed out as they are.
  bool PadsAreOurs() const {
    const std::uint64_t first = Get(kFirstPadBytesAt);
    return first % kPadChunk == 0 && IvAreaBytes(first, Get(kSecondPadBytesAt)) == kPadChunk;
  }

  void ExpectPad(const unsigned char* bytes, std::uint64_t at, std::uint64_t count) const {
    Expect(at <= yard_.pads.size() && count <= yard_.pads.size() - at);
    Expect(std::equal(bytes, bytes + count, yard_.pads.data() + at));
  }

  // Kept so: a cycle may be counted by a run that ends before the end of the pad, and none but such a run counts any.
  void ExpectCommitted(bool may_count_cycles) {
    if (!updates_) return;
    const std::uint64_t cycles = NumberAt(file_, kCyclesAt);
    Expect(may_count_cycles || cycles == Get(kCyclesAt));
    Set(kCyclesAt, cycles);
    ExpectStored();
  }

  void ExpectStored() const {
    Expect(!updates_ || std::equal(header_.begin(), header_.end(), file_.begin()));
  }

  Yard& yard_;
  Bytes& file_;
  const bool updates_;
  Owned<TypV2KestruneKey> key_;
  Bytes header_;  // as the object should hold it
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
  const std::uint64_t cut = input.Number(2);
  file.resize(file.size() - std::min<std::size_t>(cut, file.size()));
  for (const std::size_t at : kNumbersAt) {
    const std::uint64_t number = input.Number();
    if (file.size() >= kKeyHeaderBytes) SetNumberAt(file, at, number);
  }
  if (!is_known) Reseal(file, yard.key.hex_password);

  Pair pair(yard, file, updates, is_known ? new KnownKey : new TypV2KestruneKey);
  if (!pair.Open()) return 0;
  const Bytes before = file;
  while (!input.empty()) {
    const std::uint64_t operation = input.Number(1);
    pair.Do(operation, ValueOf(operation, input));
  }
  pair.ExpectRestKept(before);
  return 0;
}
