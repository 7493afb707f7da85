// What the targets of key files have in common: a file with any numbers in its header, cut anywhere, and beside the key
// that is open on it the header that it should have.
#ifndef KESTRUNE_FUZZ_KEY_FILE_MODEL_H
#define KESTRUNE_FUZZ_KEY_FILE_MODEL_H

#include <algorithm>
#include <cstdint>

#include "base/buffer.h"
#include "core/owned.h"
#include "core/result.h"
#include "examples/key_files.h"
#include "fuzz/expect.h"
#include "fuzz/input.h"
#include "fuzz/known_key.h"

namespace kestrune::testing {

inline constexpr std::size_t kLongestRun = 9'000;  // more than the first pads have

// A position or a length: any number, a small one, or one near the end of a chunk, where faults are.
inline std::uint64_t ValueOf(std::uint64_t operation, Input& input) {
  if (operation < 128) return input.Number();
  if (operation < 192) return input.Number(2);
  const std::uint64_t chunks = input.Number(1) % 4;
  return chunks * kPadChunk + static_cast<std::uint64_t>(static_cast<std::int8_t>(input.Number(1)));
}

// Each kind of key has its operations (Do) and what its first pad holds from a position on (ExpectPad). Not virtual: the
// sanitizer would look at the object in every call, which costs a tenth of the runs.
template <class Kind, class Key>
class KeyFileModel {
 public:
  KeyFileModel(Bytes& file, bool updates, Key* made)
      : file_(file), updates_(updates), key_(std::move(made)), header_(file) {
    header_.resize(std::min(file.size(), kKeyHeaderBytes));
  }

  // What is left of the input are operations on the open key. Of the file they change the header at most.
  void DoAll(Input& input) {
    const Bytes before = file_;
    while (!input.empty()) {
      const std::uint64_t operation = input.Number(1);
      static_cast<Kind*>(this)->Do(operation, ValueOf(operation, input));
    }
    const auto kept_from = static_cast<std::ptrdiff_t>(updates_ ? kKeyHeaderBytes : 0);
    Expect(std::equal(before.begin() + kept_from, before.end(), file_.begin() + kept_from, file_.end()));
  }

 protected:
  std::uint64_t Get(std::size_t at) const { return NumberAt(header_, at); }
  void Set(std::size_t at, std::uint64_t value) { SetNumberAt(header_, at, value); }

  void WriteHeader() {
    Expect((key_->WriteHeader() == kOk) == updates_);
    ExpectStored();
  }

  void LoadHeader() {
    Expect(key_->LoadHeader() == kOk);
    header_.assign(file_.begin(), file_.begin() + kKeyHeaderBytes);
  }

  Result GetRun(std::uint64_t length, CBuffer& run) {
    unsigned char* bytes = nullptr;
    unsigned long long offset = 0;
    const Result rc = key_->GetLineaKey(&bytes, length, &offset);
    run.Adopt(bytes, length);
    Expect(offset == Get(kFirstOffsetAt));
    return rc;
  }

  // A run goes on at the beginning of its pad. Behind the pad it does not come to an end.
  void ExpectTaken(const CBuffer& run, bool is_known) {
    const std::uint64_t pad = Get(kFirstPadBytesAt);
    std::uint64_t at = Get(kFirstOffsetAt), count = 0;
    for (std::uint64_t done = 0; done < run.size(); done += count) {
      count = at > pad ? run.size() : std::min(run.size() - done, pad - at);
      if (is_known) static_cast<const Kind*>(this)->ExpectPad(run.data() + done, at, count);
      at = at > pad || count == pad - at ? 0 : at + count;
    }
    Set(kFirstOffsetAt, at);
    Set(kUsedBytesAt, Get(kUsedBytesAt) + run.size());
    // Kept so: a cycle may be counted by a run that ends before the end of the pad.
    if (updates_) Set(kCyclesAt, NumberAt(file_, kCyclesAt));
    ExpectStored();
  }

  void ExpectStored() const {
    Expect(!updates_ || std::equal(header_.begin(), header_.end(), file_.begin()));
  }

  Bytes& file_;
  const bool updates_;
  Owned<Key> key_;

 private:
  Bytes header_;  // as the object should hold it
};

}  // namespace kestrune::testing

#endif
