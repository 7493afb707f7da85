// A cell's life, names, forks and links.
#include "blocks/block_cell.h"

#include <cstdlib>
#include <cstring>
#include <utility>

#include "blocks/tree_walk.h"
#include "core/instance_creator.h"
#include "core/owned.h"
#include "core/result.h"
#include "crypto/classic.h"

using namespace kestrune;

namespace {

constexpr std::size_t kSetDataNameLimit = 5;  // characters of a name, terminator counted
constexpr std::size_t kBlockNameLimit = 6;    // likewise

// Replaces a fork by a copy of `bytes`, which may lie in the fork itself; on failure it stays as it was.
Result ReplaceFork(const void* bytes, unsigned long long length, unsigned char** fork,
                   unsigned long long* fork_length) {
  unsigned char* copy = nullptr;
  if (length != 0) {
    copy = static_cast<unsigned char*>(std::malloc(length));
    if (copy == nullptr) return kNoObject;
    std::memcpy(copy, bytes, length);
  }
  SecretCBuffer old;
  old.Adopt(*fork, *fork_length);
  *fork = copy;
  *fork_length = length;
  return kOk;
}

// A terminated copy of a fork; null for none.
Result CopyAsText(const unsigned char* fork, unsigned long long length, char** out) {
  if (out == nullptr) return block::kNoOutput;
  *out = nullptr;
  if (fork == nullptr || length == 0) return kOk;
  auto* text = static_cast<char*>(std::malloc(length + 1));
  if (text == nullptr) return kNoObject;
  std::memcpy(text, fork, length);
  text[length] = 0;
  *out = text;
  return kOk;
}

}  // namespace

int TypV2BlockCell::InitCreate(TypV2InstanceCreator* creator) {
  creator_ = creator;
  next_ = nullptr;
  sub_ = nullptr;
  tail_ = nullptr;
  tail_of_ = nullptr;
  head_ = {kVersion, kLeaf, 0, {}};
  xml_length_ = 0;
  data_length_ = 0;
  data_fork_ = nullptr;
  data_is_lent_ = false;
  xml_fork_ = nullptr;
  return kOk;
}

int TypV2BlockCell::Kill() {
  ClearData();
  ClearXml();
  ForgetTails();
  KillTree(std::exchange(next_, nullptr));
  KillTree(std::exchange(sub_, nullptr));
  return kOk;
}

// Kills and deletes a chain of cells and all that is below them. A cell loses its links before its own `Kill`
// runs, which therefore ends at once. A killed cell whose sub-blocks have yet to follow waits in a list.
void TypV2BlockCell::KillTree(TypV2BlockCell* first) {
  TypV2BlockCell* waiting = nullptr;
  TypV2BlockCell* cell = first;
  for (;;) {
    while (cell != nullptr) {
      TypV2BlockCell* const next = std::exchange(cell->next_, nullptr);
      TypV2BlockCell* const sub = std::exchange(cell->sub_, nullptr);
      cell->Kill();
      if (sub == nullptr) {
        DeleteObject(cell);
      } else {
        cell->sub_ = sub;
        cell->next_ = std::exchange(waiting, cell);
      }
      cell = next;
    }
    if (waiting == nullptr) return;
    TypV2BlockCell* const parent = waiting;
    waiting = parent->next_;
    cell = parent->sub_;
    DeleteObject(parent);
  }
}

// A cell in the middle of a chain can be killed, with those behind it, while those before it live on.
void TypV2BlockCell::ForgetTails() {
  if (tail_ != nullptr) std::exchange(tail_, nullptr)->tail_of_ = nullptr;
  if (tail_of_ != nullptr) std::exchange(tail_of_, nullptr)->tail_ = nullptr;
}

void TypV2BlockCell::ClearXml() {
  // A length without a fork is left where reading the fork failed.
  if (xml_fork_ != nullptr) wipe(xml_fork_, xml_length_);
  std::free(std::exchange(xml_fork_, nullptr));
  xml_length_ = 0;
}

void TypV2BlockCell::ClearData() {
  if (data_is_lent_) data_fork_ = nullptr;
  if (data_fork_ != nullptr) wipe(data_fork_, data_length_);
  std::free(std::exchange(data_fork_, nullptr));
  data_length_ = 0;
  data_is_lent_ = false;
}

// The bytes are only ever read: nothing changes a data fork in its place.
void TypV2BlockCell::LendFork(const unsigned char* data, unsigned long long length) {
  ClearData();
  data_fork_ = length == 0 ? nullptr : const_cast<unsigned char*>(data);
  data_length_ = length;
  data_is_lent_ = length != 0;
}

int TypV2BlockCell::SetData(const char* name, const char* xml, const unsigned char* data,
                            unsigned long long length) {
  head_.super_flag = kLeaf;
  if (sub_ != nullptr) return block::kLeafAndSuper;
  if (!IsShorterThan(name, kSetDataNameLimit)) return block::kBadName;
  StoreName(name);
  if (xml != nullptr) {
    if (Result rc = ReplaceFork(xml, std::strlen(xml), &xml_fork_, &xml_length_); rc != kOk) return rc;
  }
  if (data == nullptr) return kOk;
  unsigned char* fork = data_is_lent_ ? nullptr : data_fork_;
  unsigned long long fork_length = data_is_lent_ ? 0 : data_length_;
  if (Result rc = ReplaceFork(data, length, &fork, &fork_length); rc != kOk) return rc;
  data_fork_ = fork;
  data_length_ = fork_length;
  data_is_lent_ = false;
  return kOk;
}

int TypV2BlockCell::LendData(const char* name, const char* xml, const unsigned char* data,
                             unsigned long long length) {
  if (Result rc = SetData(name, xml, nullptr, 0); rc != kOk) return rc;
  if (data != nullptr) LendFork(data, length);
  return kOk;
}

int TypV2BlockCell::SetBlockName(const char* name) {
  if (name == nullptr) return block::kNoInput;
  if (!IsShorterThan(name, kBlockNameLimit)) return block::kNameTooLong;
  StoreName(name);
  return kOk;
}

void TypV2BlockCell::StoreName(std::string_view name) {
  std::memset(head_.name, 0, kNameBytes);
  std::memcpy(head_.name, name.data(), name.size());
  head_.name_length = static_cast<std::uint8_t>(name.size());
}

int TypV2BlockCell::GetBlockName(char* out) const {
  if (out == nullptr) return block::kNoInput;
  if (head_.name_length > kNameBytes) return block::kNameTooLong;
  std::memcpy(out, head_.name, head_.name_length);
  out[head_.name_length] = 0;
  return kOk;
}

// A stated length above 5, which can come from outside, equals no name.
bool TypV2BlockCell::HasName(std::string_view name) const {
  return head_.name_length == name.size() && name.size() <= kNameBytes &&
         std::memcmp(head_.name, name.data(), name.size()) == 0;
}

// The name as text: at most 5 bytes, and none behind a zero.
std::string_view TypV2BlockCell::PrintedName() const {
  const std::size_t most = head_.name_length < kNameBytes ? head_.name_length : kNameBytes;
  return {head_.name, ::strnlen(head_.name, most)};
}

TypV2BlockCell* TypV2BlockCell::FindSubBlock(const char* name) const {
  if (name == nullptr) return nullptr;
  TypV2BlockCell* cell = sub_;
  while (cell != nullptr && !cell->HasName(name)) cell = cell->next_;
  return cell;
}

TypV2BlockCell* TypV2BlockCell::GetNextBlock() const {
  return next_;
}

TypV2BlockCell* TypV2BlockCell::GetSubBlock() const {
  return sub_;
}

bool TypV2BlockCell::issuperblock() const {
  return IsSuper();
}

unsigned char* TypV2BlockCell::GetDataForkPtr() const {
  return data_fork_;
}

unsigned long long TypV2BlockCell::GetDataForkLen() const {
  return data_length_;
}

unsigned long long TypV2BlockCell::GetXMLForkLen() const {
  return xml_length_;
}

int TypV2BlockCell::GetTextFromData(char** out) const {
  return CopyAsText(data_fork_, data_length_, out);
}

int TypV2BlockCell::GetXMLForkCopy(char** out) const {
  return CopyAsText(xml_fork_, xml_length_, out);
}

int TypV2BlockCell::GetDataForkCopy(unsigned char** out, unsigned long long* out_length) const {
  if (out == nullptr || out_length == nullptr) return block::kNoOutput;
  *out = nullptr;
  *out_length = 0;
  if (!HasData()) return kOk;
  auto* copy = static_cast<unsigned char*>(std::malloc(data_length_));
  if (copy == nullptr) return kNoObject;
  std::memcpy(copy, data_fork_, data_length_);
  *out = copy;
  *out_length = data_length_;
  return kOk;
}

int TypV2BlockCell::addsubblock(TypV2BlockCell* child) {
  if (child == nullptr) return block::kNoCell;
  if (data_fork_ != nullptr || data_length_ != 0) return block::kLeafAndSuper;
  if (sub_ == nullptr) {
    sub_ = child;
  } else if (Result rc = sub_->addnextblock(child); rc != kOk) {
    return rc;
  }
  head_.super_flag = kSuper;
  return kOk;
}

int TypV2BlockCell::addnextblock(TypV2BlockCell* child) {
  if (child == nullptr) return block::kNoCell;
  TypV2BlockCell* last = tail_ == nullptr ? this : tail_;
  while (last->next_ != nullptr) last = last->next_;
  last->next_ = child;
  if (tail_ != nullptr) tail_->tail_of_ = nullptr;
  tail_ = child;
  child->tail_of_ = this;
  return kOk;
}

int TypV2BlockCell::AddSubBlockWithData(const char* name, const char* xml, const unsigned char* data,
                                        unsigned long long length, TypV2BlockCell** out) {
  return AddSubBlock(out, [&](TypV2BlockCell* cell) { return cell->SetData(name, xml, data, length); });
}

int TypV2BlockCell::AddSubBlockWithLentData(const char* name, const char* xml, const unsigned char* data,
                                            unsigned long long length) {
  return AddSubBlock(nullptr, [&](TypV2BlockCell* cell) { return cell->LendData(name, xml, data, length); });
}

template <class Fill>
int TypV2BlockCell::AddSubBlock(TypV2BlockCell** out, Fill&& fill) {
  if (creator_ == nullptr) return kNoObject;
  Owned<TypV2BlockCell> cell(creator_->newTypV2BlockCell());
  if (Result rc = cell.Init(creator_); rc != kOk) return rc;
  if (Result rc = fill(cell.get()); rc != kOk) return rc;
  if (Result rc = addsubblock(cell.get()); rc != kOk) return rc;
  TypV2BlockCell* const added = cell.Release();
  if (out != nullptr) *out = added;
  return kOk;
}

void TypV2BlockCell::MoveToCreator(TypV2InstanceCreator* creator) {
  ForEach(this, true, [creator](TypV2BlockCell& cell) { cell.creator_ = creator; });
}
