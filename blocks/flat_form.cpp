// The flat form of a tree: measuring, writing, reading. Its bytes: docs/flat_block.md.
#include <cstring>
#include <utility>
#include <vector>

#include "blocks/block_cell.h"
#include "blocks/flat_digest.h"
#include "blocks/tree_walk.h"
#include "blocks/utils_of_cells.h"
#include "core/entry_point.h"
#include "core/result.h"
#include "crypto/classic.h"

using namespace kestrune;

namespace {

constexpr unsigned long long kHeadBytes = 24;
constexpr unsigned long long kXmlLengthOffset = 8;
constexpr unsigned long long kSecondLengthOffset = 16;
constexpr unsigned long long kLargestNumber = ~0ULL;

// Sums stop at the top instead of wrapping: a length from outside can be anything.
unsigned long long SaturatingAdd(unsigned long long a, unsigned long long b) {
  return b > kLargestNumber - a ? kLargestNumber : a + b;
}

void PutLength(TypV2Utils* utils, unsigned long long value, unsigned char* bytes) {
  utils->swapUnsignedapilong64(&value);
  std::memcpy(bytes, &value, sizeof value);
}

unsigned long long GetLength(TypV2Utils* utils, const unsigned char* bytes) {
  unsigned long long value = 0;
  std::memcpy(&value, bytes, sizeof value);
  utils->swapUnsignedapilong64(&value);
  return value;
}

bool HasTrailer(const unsigned char* flat, unsigned long long end, const Sha512Digest& digest) {
  return equal_in_constant_time(digest.data(), flat + end, kSha512Bytes);
}

}  // namespace

// ---- Measuring -----------------------------------------------------------------------------------------

unsigned long long TypV2BlockCell::RecordBytes() const {
  return SaturatingAdd(SaturatingAdd(kHeadBytes, xml_.length()), data_.length());
}

unsigned long long TypV2BlockCell::Measure(bool with_next_blocks) const {
  unsigned long long bytes = 0;
  Walk(this, with_next_blocks, [&bytes](const TypV2BlockCell& cell) {
    bytes = SaturatingAdd(bytes, cell.RecordBytes());
    return true;
  });
  return bytes;
}

unsigned long long TypV2BlockCell::GetFlatDataLen() const {
  return Measure(true);
}

unsigned long long TypV2BlockCell::GetDataLen() const {
  return Measure(false);
}

// ---- Writing -------------------------------------------------------------------------------------------

// Writes record after record. The length of a super block's sub-blocks is put in when they are written, so
// that nothing is measured for every level above it; until then, where the super block above begins stands there.
class TypV2BlockCell::FlatWriter {
 public:
  FlatWriter(unsigned char* buffer, unsigned long long* position, unsigned long long end)
      : buffer_(buffer), position_(*position), end_(end) {}

  bool Enter(const TypV2BlockCell& cell) {
    const unsigned long long begin = position_;
    rc_ = Write(cell);
    if (rc_ != kOk) return false;
    if (cell.IsSuper()) {
      std::memcpy(buffer_ + begin + kSecondLengthOffset, &open_, sizeof open_);
      open_ = begin;
    }
    return true;
  }

  bool Leave(const TypV2BlockCell& cell) {
    if (rc_ != kOk) return false;
    if (!cell.IsSuper()) return true;
    TypV2Utils* const utils = utils_.Of(cell.creator_);
    if (utils == nullptr) {
      rc_ = kNoObject;
      return false;
    }
    unsigned char* const length = buffer_ + open_ + kSecondLengthOffset;
    const unsigned long long sub_blocks = open_ + kHeadBytes + cell.xml_.length();
    std::memcpy(&open_, length, sizeof open_);
    PutLength(utils, position_ - sub_blocks, length);
    return true;
  }

  Result rc() const { return rc_; }

 private:
  Result Write(const TypV2BlockCell& cell) {
    TypV2Utils* const utils = utils_.Of(cell.creator_);
    if (utils == nullptr) return kNoObject;
    if (position_ > end_ || end_ - position_ < cell.RecordBytes()) return block::kNoRoom;
    unsigned char* const head = buffer_ + position_;
    std::memcpy(head, &cell.head_, sizeof cell.head_);
    PutLength(utils, cell.xml_.length(), head + kXmlLengthOffset);
    PutLength(utils, cell.data_.length(), head + kSecondLengthOffset);
    position_ += kHeadBytes;
    if (cell.xml_.length() != 0) {
      if (!cell.xml_.HasBytes()) return block::kNoXml;
      Put(cell.xml_);
    }
    if (cell.sub_ == nullptr && cell.data_.length() != 0) {
      // Deliberate: data without XML cannot be written, every block of a message carries it.
      if (!cell.xml_.HasBytes() || !cell.data_.HasBytes()) return block::kNoInput;
      Put(cell.data_);
    }
    return kOk;
  }

  void Put(const Fork& fork) {
    // Lent bytes may be where they belong already.
    if (fork.data() != buffer_ + position_) std::memcpy(buffer_ + position_, fork.data(), fork.length());
    position_ += fork.length();
  }

  unsigned char* const buffer_;
  unsigned long long& position_;
  const unsigned long long end_;
  Result rc_ = kOk;
  unsigned long long open_ = 0;  // where the super block at hand begins
  UtilsOfCells utils_;
};

int TypV2BlockCell::PushDataInPtr(unsigned char* buffer, unsigned long long* position,
                                  unsigned long long end) const {
  if (buffer == nullptr || position == nullptr) return block::kNoInput;
  return EntryPoint([&]() -> Result {
    FlatWriter writer(buffer, position, end);
    Walk(
        this, true, [&writer](const TypV2BlockCell& cell) { return writer.Enter(cell); },
        [&writer](const TypV2BlockCell& cell) { return writer.Leave(cell); });
    return writer.rc();
  });
}

int TypV2BlockCell::GetFlatData(unsigned char** out, unsigned long long* out_length,
                                unsigned char* digest_out) const {
  if (out == nullptr || out_length == nullptr) return block::kNoOutput;
  *out = nullptr;
  *out_length = 0;
  const unsigned long long length = GetDataLen();
  if (length > kLargestNumber - kSha512Bytes) return kNoObject;
  SecretCBuffer flat;
  if (!flat.Allocate(length + kSha512Bytes)) return kNoObject;
  unsigned long long position = 0;
  if (Result rc = PushDataInPtr(flat.data(), &position, length); rc != kOk) return rc;
  if (position > length) return block::kNoRoom;  // a subclass wrote more than it had measured
  unsigned char* const trailer = flat.data() + position;
  sha4(flat.data(), length, trailer, 0);
  if (digest_out != nullptr) std::memcpy(digest_out, trailer, kSha512Bytes);
  *out = flat.release();
  *out_length = length + kSha512Bytes;
  return kOk;
}

// ---- Reading -------------------------------------------------------------------------------------------

// Reads record after record. Cells are linked as soon as they are made, so that the way back up is found; a
// chain that is not read to its end is cut off again.
class TypV2BlockCell::FlatReader {
 public:
  FlatReader(const unsigned char* buffer, unsigned long long* position, unsigned long long end, bool lend)
      : buffer_(buffer), position_(*position), end_(end), lend_(lend) {}

  Result Read(TypV2BlockCell* first) {
    // New next blocks come before those that the cell already has.
    TypV2BlockCell* const old_next = std::exchange(first->next_, nullptr);
    TypV2BlockCell* last = first;
    const Result rc = EntryPoint([&]() -> Result { return ReadAll(first, &last); });
    if (rc != kOk) {
      const bool in_sub_blocks = first->next_ == nullptr && !ends_above_.empty();
      KillTree(std::exchange(in_sub_blocks ? first->sub_ : first->next_, nullptr));
      last = first;
    }
    last->next_ = old_next;
    if (old_next != nullptr) old_next->prev_ = last;
    return rc;
  }

 private:
  Result ReadAll(TypV2BlockCell* first, TypV2BlockCell** last) {
    TypV2BlockCell* cell = first;
    for (;;) {
      if (Result rc = ReadRecord(cell); rc != kOk) return rc;
      if (cell->IsSuper()) {
        Owned<TypV2BlockCell> made;
        if (Result rc = Make(cell->creator_, &made); rc != kOk) return rc;
        ends_above_.push_back(end_);
        end_ = position_ + sub_bytes_;
        made->up_ = cell;
        cell = cell->sub_ = made.release();
        continue;
      }
      while (position_ == end_ && !ends_above_.empty()) {
        end_ = ends_above_.back();
        ends_above_.pop_back();
        cell->up_->sub_->prev_ = cell;
        cell = cell->up_;
      }
      if (position_ == end_) {
        *last = cell;
        return kOk;
      }
      Owned<TypV2BlockCell> made;
      if (Result rc = Make(cell->creator_, &made); rc != kOk) return rc;
      made->up_ = cell->up_;
      made->prev_ = cell;
      cell = cell->next_ = made.release();
    }
  }

  static Result Make(TypV2InstanceCreator* creator, Owned<TypV2BlockCell>* made) {
    *made = Owned<TypV2BlockCell>(creator->newTypV2BlockCell());
    return made->Init(creator);
  }

  // Reads a record's own bytes into a cell, in place of the forks and sub-blocks that it held.
  Result ReadRecord(TypV2BlockCell* cell) {
    if (position_ > end_ || end_ - position_ < kHeadBytes) return block::kTooShort;
    TypV2Utils* const utils = utils_.Of(cell->creator_);
    if (utils == nullptr) return kNoObject;
    KillTree(std::exchange(cell->sub_, nullptr));

    const unsigned char* const head = buffer_ + position_;
    std::memcpy(&cell->head_, head, sizeof cell->head_);
    const unsigned long long second = GetLength(utils, head + kSecondLengthOffset);
    cell->xml_.Announce(GetLength(utils, head + kXmlLengthOffset));
    cell->data_.Announce(cell->IsSuper() ? 0 : second);
    sub_bytes_ = second;
    position_ += kHeadBytes;

    // Subtracting cannot wrap; adding forged lengths would.
    const unsigned long long left = end_ - position_;
    if (cell->xml_.length() > left || second > left - cell->xml_.length()) return block::kForkPastEnd;
    if (Result rc = TakeFork(&cell->xml_, false); rc != kOk) return rc;
    if (cell->data_.length() == 0) return kOk;
    if (cell->head_.super_flag != kLeaf) return block::kBadSuperFlag;
    return TakeFork(&cell->data_, lend_);
  }

  // The next bytes, which are there, as the fork whose length was announced.
  Result TakeFork(Fork* fork, bool lend) {
    const unsigned char* const bytes = buffer_ + position_;
    const unsigned long long length = fork->length();
    if (lend) {
      fork->Lend(bytes, length);
    } else if (!fork->Copy(bytes, length)) {
      return kNoObject;
    }
    position_ += length;
    return kOk;
  }

  const unsigned char* const buffer_;
  unsigned long long& position_;
  unsigned long long end_;                      // of the chain at hand
  const bool lend_;                             // data forks stay in the buffer
  unsigned long long sub_bytes_ = 0;            // of the super block just read
  std::vector<unsigned long long> ends_above_;  // of the chains that the one at hand lies in
  UtilsOfCells utils_;
};

int TypV2BlockCell::LoadFromFlatData(const unsigned char* buffer, unsigned long long* position,
                                     unsigned long long end) {
  if (buffer == nullptr || position == nullptr) return block::kNoInput;
  return FlatReader(buffer, position, end, false).Read(this);
}

int TypV2BlockCell::LoadFlatData(const unsigned char* buffer, unsigned long long length) {
  if (buffer == nullptr || length < kSha512Bytes) return block::kTooShort;
  const unsigned long long end = length - kSha512Bytes;
  Sha512Digest digest;
  sha4(buffer, end, digest.data(), 0);
  if (!HasTrailer(buffer, end, digest)) return block::kDigestMismatch;
  unsigned long long position = 0;
  return LoadFromFlatData(buffer, &position, end);
}

int TypV2BlockCell::LoadLentFlatData(const unsigned char* buffer, unsigned long long length,
                                     const FlatDigests& digests) {
  if (buffer == nullptr || length < kSha512Bytes) return block::kTooShort;
  const unsigned long long end = length - kSha512Bytes;
  if (!HasTrailer(buffer, end, digests.trailer)) return block::kDigestMismatch;
  unsigned long long position = 0;
  return FlatReader(buffer, &position, end, true).Read(this);
}
