// The flat form of a tree: measuring, writing, reading (docs/flat_block.md).
//
// A record:  0 version | 1 super flag | 2 name length | 3..7 name | 8..15 X | 16..23 D or S (big-endian)
//            24 XML fork, X bytes | data fork, D bytes (leaf), or the records of the sub-blocks, S bytes
//            the record of the next block, if there is one
#include <cstdlib>
#include <cstring>
#include <utility>
#include <vector>

#include "blocks/block_cell.h"
#include "blocks/flat_digest.h"
#include "blocks/tree_walk.h"
#include "core/entry_point.h"
#include "core/result.h"
#include "crypto/classic.h"

using namespace kestrune;

namespace {

constexpr unsigned long long kHeadBytes = 24;
constexpr unsigned long long kXmlLengthOffset = 8;
constexpr unsigned long long kSecondLengthOffset = 16;
constexpr unsigned long long kMostBytes = ~0ULL;

// Sums stop at the top instead of wrapping: a length from outside can be anything.
unsigned long long SaturatingAdd(unsigned long long a, unsigned long long b) {
  return b > kMostBytes - a ? kMostBytes : a + b;
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
  return std::memcmp(digest.data(), flat + end, kSha512Bytes) == 0;
}

}  // namespace

// ---- Measuring -----------------------------------------------------------------------------------------

unsigned long long TypV2BlockCell::RecordBytes() const {
  return SaturatingAdd(SaturatingAdd(kHeadBytes, xml_length_), data_length_);
}

unsigned long long TypV2BlockCell::Measure(bool with_next_blocks) const {
  unsigned long long bytes = 0;
  ForEach(this, with_next_blocks,
          [&bytes](const TypV2BlockCell& cell) { bytes = SaturatingAdd(bytes, cell.RecordBytes()); });
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
// that nothing is measured for every level above it.
class TypV2BlockCell::FlatWriter {
 public:
  FlatWriter(unsigned char* buffer, unsigned long long* position, unsigned long long end)
      : buffer_(buffer), position_(*position), end_(end) {}

  bool Enter(const TypV2BlockCell& cell) {
    rc_ = Write(cell);
    if (rc_ != kOk) return false;
    if (cell.IsSuper()) open_.push_back(position_);
    return true;
  }

  bool Leave(const TypV2BlockCell& cell) {
    if (rc_ != kOk) return false;
    if (!cell.IsSuper()) return true;
    const unsigned long long sub_blocks = open_.back();
    open_.pop_back();
    TypV2Utils* const utils = utils_.Of(cell.creator_);
    if (utils == nullptr) {
      rc_ = kNoObject;
      return false;
    }
    unsigned char* const head = buffer_ + sub_blocks - cell.xml_length_ - kHeadBytes;
    PutLength(utils, position_ - sub_blocks, head + kSecondLengthOffset);
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
    PutLength(utils, cell.xml_length_, head + kXmlLengthOffset);
    PutLength(utils, cell.data_length_, head + kSecondLengthOffset);
    position_ += kHeadBytes;
    if (cell.xml_length_ != 0) {
      if (cell.xml_fork_ == nullptr) return block::kNoXml;
      Put(cell.xml_fork_, cell.xml_length_);
    }
    if (cell.sub_ == nullptr && cell.data_length_ != 0) {
      // Deliberate: what is asked for is the XML fork, so data without XML cannot be written.
      if (cell.xml_fork_ == nullptr || cell.data_fork_ == nullptr) return block::kNoInput;
      Put(cell.data_fork_, cell.data_length_);
    }
    return kOk;
  }

  void Put(const unsigned char* bytes, unsigned long long count) {
    // Lent bytes may be where they belong already.
    if (bytes != buffer_ + position_) std::memcpy(buffer_ + position_, bytes, count);
    position_ += count;
  }

  unsigned char* const buffer_;
  unsigned long long& position_;
  const unsigned long long end_;
  Result rc_ = kOk;
  std::vector<unsigned long long> open_;  // where the sub-blocks of each open super block begin
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
  if (length > kMostBytes - kSha512Bytes) return kNoObject;
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
        cell = cell->sub_ = made.Release();
        continue;
      }
      while (position_ == end_ && !ends_above_.empty()) {
        end_ = ends_above_.back();
        ends_above_.pop_back();
        cell = const_cast<TypV2BlockCell*>(cell->up_);
      }
      if (position_ == end_) {
        *last = cell;
        return kOk;
      }
      Owned<TypV2BlockCell> made;
      if (Result rc = Make(cell->creator_, &made); rc != kOk) return rc;
      made->up_ = cell->up_;
      cell = cell->next_ = made.Release();
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
    cell->ClearXml();
    cell->ClearData();
    KillTree(std::exchange(cell->sub_, nullptr));

    const unsigned char* const head = buffer_ + position_;
    std::memcpy(&cell->head_, head, sizeof cell->head_);
    cell->xml_length_ = GetLength(utils, head + kXmlLengthOffset);
    const unsigned long long second = GetLength(utils, head + kSecondLengthOffset);
    cell->data_length_ = cell->IsSuper() ? 0 : second;
    sub_bytes_ = second;
    position_ += kHeadBytes;

    // Subtracting cannot wrap; adding forged lengths would.
    const unsigned long long left = end_ - position_;
    if (cell->xml_length_ > left || second > left - cell->xml_length_) return block::kForkPastEnd;
    if (cell->xml_length_ != 0) {
      if (Result rc = TakeFork(cell->xml_length_, &cell->xml_fork_); rc != kOk) return rc;
    }
    if (cell->data_length_ == 0) return kOk;
    if (cell->head_.super_flag != kLeaf) return block::kBadSuperFlag;
    if (!lend_) return TakeFork(cell->data_length_, &cell->data_fork_);
    cell->LendFork(buffer_ + position_, cell->data_length_);
    position_ += cell->data_length_;
    return kOk;
  }

  // The next `length` bytes, which are there, as a fork.
  Result TakeFork(unsigned long long length, unsigned char** fork) {
    *fork = static_cast<unsigned char*>(std::malloc(length));
    if (*fork == nullptr) return kNoObject;
    std::memcpy(*fork, buffer_ + position_, length);
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
