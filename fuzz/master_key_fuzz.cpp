// A master key file with any numbers in its header, cut anywhere, and what a program does with it: positions set, runs
// taken, the header written and read. A run is what the file holds, and zeros where it holds nothing; the file's header
// goes along, and nothing else in the file changes.
#include <algorithm>
#include <cstdint>

#include "fuzz/key_file_model.h"
#include "fuzz/memory_files.h"
#include "keys/master_key.h"

using namespace kestrune;
using namespace kestrune::testing;

namespace {

// No file can be positioned behind it.
constexpr std::uint64_t kFarthest = std::uint64_t{1} << 62;

class MasterKeyModel : public KeyFileModel<MasterKeyModel, TypV2MasterKey> {
 public:
  MasterKeyModel(Bytes& file, bool updates) : KeyFileModel(file, updates, new TypV2MasterKey) {}

  bool Open(MemoryFiles& files) {
    const Result rc = key_.Init(&files, "", "key", updates_ ? 1ULL : 0ULL);
    Expect((rc == kOk) == (file_.size() >= kKeyHeaderBytes));
    return rc == kOk;
  }

  void Do(std::uint64_t operation, std::uint64_t value) {
    switch (operation % 5) {
      case 0:
        Expect(key_->SetOffsetOTPChiffrement(value) == kOk);
        return Set(kFirstOffsetAt, value);
      case 1:
        return WriteHeader();
      case 2:
        return LoadHeader();
      default:
        TakeRun(value % kLongestRun);
    }
  }

  void ExpectPad(const unsigned char* bytes, std::uint64_t pad_at, std::uint64_t count) const {
    const std::uint64_t at = kMasterPadAt + pad_at;
    const std::uint64_t held = at < file_.size() ? std::min(count, file_.size() - at) : 0;
    Expect(std::equal(bytes, bytes + held, file_.data() + (held == 0 ? 0 : at)));
    static const Bytes zeros(kLongestRun);
    Expect(std::equal(bytes + held, bytes + count, zeros.data()));
  }

 private:
  void TakeRun(std::uint64_t length) {
    const std::uint64_t pad = Get(kFirstPadBytesAt);
    // A pad of some bytes is read a turn at a time, which nobody waits for.
    if (pad > 0 && pad < length / 1'000) return;
    CBuffer run;
    const Result rc = GetRun(length, run);
    Expect(run.data() != nullptr);
    Expect((rc == key::kOffset) == (pad == 0 && length > 0));
    if (rc != key::kOffset) ExpectTaken(run, Get(kFirstOffsetAt) < kFarthest);
  }
};

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  static MemoryFiles files;
  static const Bytes whole = MasterKey{PadOf(2 * kPadChunk, 4)}.File();
  Input input(data, size);
  const bool updates = input.Number(1) % 2 == 1;
  Bytes& file = files.files["key"];
  file = whole;
  Spoil(file, input, {kFirstPadBytesAt, kFirstOffsetAt, kCyclesAt, kUsedBytesAt});
  MasterKeyModel key(file, updates);
  if (key.Open(files)) key.DoAll(input);
  return 0;
}
