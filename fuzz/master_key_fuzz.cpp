// A master key file with any numbers in its header, cut anywhere, and what a program does with it: positions set, runs
// taken, the header written and read. A run is what the file holds, and zeros where it holds nothing; the file's header
// goes along, and nothing else in the file changes.
#include <algorithm>
#include <array>
#include <cstdint>
#include <string>

#include "core/owned.h"
#include "core/result.h"
#include "examples/key_files.h"
#include "fuzz/expect.h"
#include "fuzz/input.h"
#include "fuzz/known_key.h"
#include "fuzz/memory_files.h"
#include "keys/master_key.h"

using namespace kestrune;
using namespace kestrune::testing;

namespace {

constexpr std::array kNumbersAt = {kFirstPadBytesAt, kFirstOffsetAt, kCyclesAt, kUsedBytesAt};
constexpr std::size_t kSpareBytes = 10'000;
constexpr std::size_t kLongestRun = 9'000;
constexpr std::uint64_t kFarthest = std::uint64_t{1}
                                    << 62;  // what lies behind it no file can be positioned at

// The key beside what it should be.
class Pair {
 public:
  Pair(MemoryFiles& files, bool updates)
      : files_(files), file_(files.files["key"]), updates_(updates), header_(file_) {
    header_.resize(std::min(header_.size(), kKeyHeaderBytes));
  }

  bool Open() {
    const Result rc = key_.Init(&files_, "", "key", updates_ ? 1ULL : 0ULL);
    Expect((rc == kOk) == (file_.size() >= kKeyHeaderBytes));
    return rc == kOk;
  }

  void Do(std::uint64_t operation, std::uint64_t value) {
    switch (operation % 5) {
      case 0:
        Expect(key_->SetOffsetOTPChiffrement(value) == kOk);
        SetNumberAt(header_, kFirstOffsetAt, value);
        break;
      case 1:
        Expect((key_->WriteHeader() == kOk) == updates_);
        ExpectStored();
        break;
      case 2:
        Expect(key_->LoadHeader() == kOk);
        header_.assign(file_.begin(), file_.begin() + kKeyHeaderBytes);
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

  void TakeRun(std::uint64_t length) {
    CBuffer run;
    unsigned char* bytes = nullptr;
    unsigned long long offset = 0;
    const std::uint64_t pad = Get(kFirstPadBytesAt), from = Get(kFirstOffsetAt);
    // A pad of some bytes is read a turn at a time, which nobody waits for.
    if (pad > 0 && pad < length / 1'000) return;
    const Result rc = key_->GetLineaKey(&bytes, length, &offset);
    run.Adopt(bytes, length + kSpareBytes);
    Expect(bytes != nullptr && offset == from);
    Expect((rc == key::kOffset) == (pad == 0 && length > 0));
    if (rc == key::kOffset) return;
    for (std::uint64_t done = 0, at = from; from < kFarthest && done < length; at = 0) {
      const std::uint64_t count = from > pad ? length : std::min(length - done, pad - at);
      ExpectHeld(bytes + done, kMasterPadAt + at, count);
      done += count;
    }
    if (length > 0) SetNumberAt(header_, kFirstOffsetAt, from > pad ? 0 : After(pad, from, length));
    SetNumberAt(header_, kUsedBytesAt, Get(kUsedBytesAt) + length);
    if (updates_) SetNumberAt(header_, kCyclesAt, NumberAt(file_, kCyclesAt));
    ExpectStored();
  }

  void ExpectHeld(const unsigned char* bytes, std::uint64_t at, std::uint64_t count) const {
    const std::uint64_t held = at < file_.size() ? std::min(count, file_.size() - at) : 0;
    Expect(std::equal(bytes, bytes + held, file_.data() + (held == 0 ? 0 : at)));
    static const Bytes zeros(kLongestRun);
    Expect(std::equal(bytes + held, bytes + count, zeros.data()));
  }

  void ExpectStored() const {
    Expect(!updates_ || std::equal(header_.begin(), header_.end(), file_.begin()));
  }

  MemoryFiles& files_;
  Bytes& file_;
  const bool updates_;
  Owned<TypV2MasterKey> key_{new TypV2MasterKey};
  Bytes header_;  // as the object should hold it
};

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  static MemoryFiles files;
  static const Bytes whole = MasterKey{PadOf(2 * kPadChunk, 4)}.File();
  Input input(data, size);
  const bool updates = input.Number(1) % 2 == 1;
  Bytes& file = files.files["key"];
  file = whole;
  file.resize(file.size() - std::min<std::size_t>(input.Number(2), file.size()));
  for (const std::size_t at : kNumbersAt) {
    const std::uint64_t number = input.Number();
    if (file.size() >= kKeyHeaderBytes) SetNumberAt(file, at, number);
  }
  Pair pair(files, updates);
  if (!pair.Open()) return 0;
  const Bytes before = file;
  while (!input.empty()) {
    const std::uint64_t operation = input.Number(1);
    pair.Do(operation, ValueOf(operation, input));
  }
  pair.ExpectRestKept(before);
  return 0;
}
