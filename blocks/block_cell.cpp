// A cell's life, names, forks and links.
#include "blocks/block_cell.h"

#include <cstdlib>
#include <cstring>
#include <utility>

#include "blocks/tree_walk.h"
#include "core/entry_point.h"
#include "core/instance_creator.h"
#include "core/owned.h"
#include "core/result.h"

using namespace kestrune;

namespace {

constexpr std::size_t kSetDataNameLimit = 5;  // characters of a name, terminator counted
constexpr std::size_t kBlockNameLimit = 6;    // likewise

// A terminated copy of a fork; null for none.
Result CopyAsText(const Fork& fork, char** out) {
  if (out == nullptr) return block::kNoOutput;
  *out = nullptr;
  if (!fork.HasBytes()) return kOk;
  auto* text = static_cast<char*>(std::malloc(fork.length() + 1));
  if (text == nullptr) return kNoObject;
  std::memcpy(text, fork.data(), fork.length());
  text[fork.length()] = 0;
  *out = text;
  return kOk;
}

}  // namespace

int TypV2BlockCell::InitCreate(TypV2InstanceCreator* creator) {
  creator_ = creator;
  next_ = nullptr;
  sub_ = nullptr;
  up_ = nullptr;
  prev_ = nullptr;
  head_ = {kVersion, kLeaf, 0, {}};
  xml_.Clear();
  data_.Clear();
  return kOk;
}

// A cell in the middle of a chain can be killed, with those behind it, while those before it live on.
int TypV2BlockCell::Kill() {
  data_.Clear();
  xml_.Clear();
  if (next_ != nullptr) FirstOfChain()->prev_ = this;
  KillTree(std::exchange(next_, nullptr));
  KillTree(std::exchange(sub_, nullptr));
  return kOk;
}

// Kills and deletes a chain of cells and all that is below them: the rest of a cell's chain, then its
// sub-blocks. A cell loses its links before its own `Kill` runs, which therefore ends at once.
void TypV2BlockCell::KillTree(TypV2BlockCell* first) {
  TypV2BlockCell* waiting = nullptr;  // a chain of sub-blocks; its first cell has the one met before in prev_
  while (first != nullptr) {
    TypV2BlockCell* const cell = first;
    if (TypV2BlockCell* const sub = std::exchange(cell->sub_, nullptr); sub != nullptr) {
      sub->prev_ = std::exchange(waiting, sub);
    }
    first = std::exchange(cell->next_, nullptr);
    if (first == nullptr && waiting != nullptr) {
      first = waiting;
      waiting = std::exchange(first->prev_, nullptr);
    }
    cell->up_ = nullptr;
    cell->prev_ = nullptr;
    cell->Kill();
    DeleteObject(cell);
  }
}

int TypV2BlockCell::SetData(const char* name, const char* xml, const unsigned char* data,
                            unsigned long long length) {
  head_.super_flag = kLeaf;
  if (sub_ != nullptr) return block::kLeafAndSuper;
  if (!IsShorterThan(name, kSetDataNameLimit)) return block::kBadName;
  StoreName(name);
  if (xml != nullptr && !xml_.Copy(xml, std::strlen(xml))) return kNoObject;
  if (data != nullptr && !data_.Copy(data, length)) return kNoObject;
  return kOk;
}

int TypV2BlockCell::LendData(const char* name, const char* xml, const unsigned char* data,
                             unsigned long long length) {
  if (Result rc = SetData(name, xml, nullptr, 0); rc != kOk) return rc;
  if (data != nullptr) data_.Lend(data, length);
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

// The type is the interface's.
unsigned char* TypV2BlockCell::GetDataForkPtr() const {
  return const_cast<unsigned char*>(data_.data());
}

unsigned long long TypV2BlockCell::GetDataForkLen() const {
  return data_.length();
}

unsigned long long TypV2BlockCell::GetXMLForkLen() const {
  return xml_.length();
}

int TypV2BlockCell::GetTextFromData(char** out) const {
  return CopyAsText(data_, out);
}

int TypV2BlockCell::GetXMLForkCopy(char** out) const {
  return CopyAsText(xml_, out);
}

int TypV2BlockCell::GetDataForkCopy(unsigned char** out, unsigned long long* out_length) const {
  if (out == nullptr || out_length == nullptr) return block::kNoOutput;
  *out = nullptr;
  *out_length = 0;
  if (!data_.HasBytes()) return kOk;
  auto* copy = static_cast<unsigned char*>(std::malloc(data_.length()));
  if (copy == nullptr) return kNoObject;
  std::memcpy(copy, data_.data(), data_.length());
  *out = copy;
  *out_length = data_.length();
  return kOk;
}

// ---- Links ---------------------------------------------------------------------------------------------

// Every sub-block knows its parent, so that no walk has to note its way. The first of a chain knows a cell at
// or before its end; in a chain without a parent, those behind it reach the first one step by step.
TypV2BlockCell* TypV2BlockCell::FirstOfChain() {
  if (up_ != nullptr) return up_->sub_;
  TypV2BlockCell* cell = this;
  while (!cell->IsFirstOfChain()) cell = cell->prev_;
  return cell;
}

TypV2BlockCell* TypV2BlockCell::EndOfChain() {
  TypV2BlockCell* const first = up_ != nullptr ? up_->sub_ : this;
  TypV2BlockCell* end = first->prev_ != nullptr && first->IsFirstOfChain() ? first->prev_ : this;
  while (end->next_ != nullptr) end = end->next_;
  return end;
}

int TypV2BlockCell::addsubblock(TypV2BlockCell* child) {
  if (child == nullptr) return block::kNoCell;
  if (data_.data() != nullptr || data_.length() != 0) return block::kLeafAndSuper;
  head_.super_flag = kSuper;
  if (sub_ != nullptr) return sub_->addnextblock(child);
  sub_ = child;
  child->prev_ = HangChain(child, this);
  return kOk;
}

int TypV2BlockCell::addnextblock(TypV2BlockCell* child) {
  if (child == nullptr) return block::kNoCell;
  TypV2BlockCell* const end = EndOfChain();
  TypV2BlockCell* const new_end = HangChain(child, up_);
  if (up_ != nullptr) {
    up_->sub_->prev_ = new_end;
  } else if (IsFirstOfChain()) {
    prev_ = new_end;
  }
  end->next_ = child;
  child->prev_ = end;
  return kOk;
}

// Tells a chain its parent, if it gets one; each cell gets one once. Gives a cell at or before its end.
TypV2BlockCell* TypV2BlockCell::HangChain(TypV2BlockCell* first, TypV2BlockCell* parent) {
  TypV2BlockCell* end = first->prev_ == nullptr ? first : first->prev_;
  if (parent == nullptr) return end;
  for (TypV2BlockCell* cell = first; cell != nullptr; cell = cell->next_) {
    cell->up_ = parent;
    end = cell;
  }
  return end;
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
  return EntryPoint([&]() -> Result {
    Owned<TypV2BlockCell> cell(creator_->newTypV2BlockCell());
    if (Result rc = cell.Init(creator_); rc != kOk) return rc;
    if (Result rc = fill(cell.get()); rc != kOk) return rc;
    if (Result rc = addsubblock(cell.get()); rc != kOk) return rc;
    TypV2BlockCell* const added = cell.release();
    if (out != nullptr) *out = added;
    return kOk;
  });
}

void TypV2BlockCell::MoveToCreator(TypV2InstanceCreator* creator) {
  Walk(this, true, [creator](TypV2BlockCell& cell) {
    cell.creator_ = creator;
    return true;
  });
}
