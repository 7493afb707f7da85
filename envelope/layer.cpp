#include "envelope/layer.h"

#include <cstring>
#include <utility>

#include "base/count.h"
#include "base/wipe.h"
#include "blocks/block_cell.h"
#include "blocks/lent_data.h"
#include "crypto/classic.h"
#include "envelope/own_class.h"

namespace kestrune {

namespace {

constexpr std::size_t kRecordHeadBytes = 24;

}  // namespace

Result Layer::Flatten(const TypV2BlockCell& tree, std::size_t xml_room) {
  Clear();
  if (!IsExactly<TypV2BlockCell>(tree)) {
    const Result rc = memory_.Receive([&](unsigned char** bytes, unsigned long long* length) {
      return tree.GetFlatData(bytes, length, nullptr);
    });
    size_ = memory_.size();
    return rc;
  }
  const unsigned long long tree_bytes = tree.GetDataLen();
  const std::size_t front = xml_room == 0 ? 0 : kRecordHeadBytes + xml_room;
  const std::size_t trailers = xml_room == 0 ? kSha512Bytes : 2 * kSha512Bytes;
  if (tree_bytes > kLargestCount - front - trailers || !memory_.Allocate(front + tree_bytes + trailers)) {
    return kNoObject;
  }
  return Write(tree, front, tree_bytes);
}

Result Layer::Enclose(TypV2BlockCell* cell, const char* name, const char* xml, const unsigned char* data,
                      unsigned long long length, std::size_t xml_room) {
  const Result rc = IsExactly<TypV2BlockCell>(*cell) ? LentData::Set(cell, name, xml, data, length)
                                                     : cell->SetData(name, xml, data, length);
  return rc == kOk ? Flatten(*cell, xml_room) : rc;
}

Result Layer::Wrap(TypV2BlockCell* cell, const char* name, const char* xml) {
  if (IsExactly<TypV2BlockCell>(*cell)) {
    if (const Result rc = LentData::Set(cell, name, xml, data(), size()); rc != kOk) return rc;
    const unsigned long long tree_bytes = cell->GetDataLen();
    const std::size_t before = tree_bytes - size();
    if (before <= begin_ && memory_.size() - begin_ - size() >= kSha512Bytes) {
      return Write(*cell, begin_ - before, tree_bytes);
    }
  }
  Layer moved;
  const Result rc = moved.Enclose(cell, name, xml, data(), size(), 0);
  if (rc == kOk) *this = std::move(moved);
  return rc;
}

// A cell around what is held finds its data in place already.
Result Layer::Write(const TypV2BlockCell& tree, std::size_t begin, std::size_t tree_bytes) {
  unsigned char* const flat = memory_.data() + begin;
  unsigned long long position = 0;
  if (const Result rc = tree.PushDataInPtr(flat, &position, tree_bytes); rc != kOk) return rc;
  digests_ = SealFlatTree(flat, tree_bytes);
  has_digest_ = true;
  begin_ = begin;
  size_ = tree_bytes + kSha512Bytes;
  return kOk;
}

void Layer::Clear() {
  memory_.Clear();
  begin_ = 0;
  size_ = 0;
  has_digest_ = false;
}

void Layer::HandOut(unsigned char** out, unsigned long long* length) {
  if (begin_ != 0) {
    std::memmove(memory_.data(), data(), size());
    // What moved away may be clear text, and its end is not the caller's.
    wipe(memory_.data() + size(), begin_);
  }
  *length = size();
  *out = memory_.release();
  Clear();
}

}  // namespace kestrune
