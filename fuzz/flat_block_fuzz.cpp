// Reads flat trees. The input is the records; it is sealed here, so that the digest never hides the parser.
// What loads is measured, flattened to the same bytes, loaded again and exported both ways.
#include <algorithm>
#include <cstddef>
#include <cstdint>
#include <cstdlib>
#include <cstring>
#include <vector>

#include "blocks/block_cell.h"
#include "blocks/v1_structure.h"
#include "core/instance_creator.h"
#include "core/owned.h"
#include "crypto/classic.h"

namespace {

using namespace kestrune;

void Require(bool holds) {
  if (!holds) std::abort();
}

void ExportXml(TypV2BlockCell* tree, std::size_t input_bytes, long flags) {
  // Room for everything, or for half of what the input is: then pieces are left out.
  for (const std::size_t capacity : {input_bytes * 4 + 64, input_bytes / 2}) {
    std::vector<char> out(capacity);
    long long position = 0;
    const Result rc = tree->ExportBlockAsXML(out.data(), &position, static_cast<long long>(capacity), flags);
    Require(rc == kOk || capacity == input_bytes / 2);
    Require(position == 0 || (position < static_cast<long long>(capacity) && out.data()[position] == 0));
  }
}

void ExportV1(const TypV2BlockCell* tree, TypV2InstanceCreator* creator) {
  Owned<TypV1SimpleStruc> structure(creator->newTypV1SimpleStruc());
  Require(structure.Init() == kOk);
  const Result rc = tree->ExportBlockAsV1Struct(structure.get());
  Require(rc == kOk || rc == block::kBase64);
  Require(structure->text_count <= TypV1SimpleStruc::kMostTexts);
}

// Nothing was lost: what is written is what was read, unless a leaf has data without XML.
void WriteAgain(const TypV2BlockCell* tree, const std::vector<unsigned char>& records) {
  std::vector<unsigned char> again(records.size());
  unsigned long long position = 0;
  Require(tree->GetFlatDataLen() == records.size());
  const Result rc = tree->PushDataInPtr(again.data(), &position, again.size());
  Require(rc == kOk ? again == records : rc == block::kNoInput);

  CBuffer flat;
  const auto flatten = [&](auto** out, auto* length) { return tree->GetFlatData(out, length, nullptr); };
  const Result whole = flat.Receive(flatten);
  if (tree->GetNextBlock() != nullptr) {
    Require(whole == block::kNoRoom || whole == block::kNoInput);
  } else {
    Require(whole == rc && (rc != kOk || std::equal(records.begin(), records.end(), flat.data())));
  }
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  TypV2InstanceCreatorUnix creator;
  const std::vector<unsigned char> records(data, data + size);
  std::vector<unsigned char> sealed = records;
  sealed.resize(size + kSha512Bytes);
  sha4(records.data(), size, sealed.data() + size, 0);

  Owned<TypV2BlockCell> tree(creator.newTypV2BlockCell());
  Require(tree.Init(&creator) == kOk);
  const Result rc = tree->LoadFlatData(sealed.data(), sealed.size());
  tree->GetFlatDataLen();
  if (rc != kOk) {
    Require(rc == block::kForkPastEnd || rc == block::kTooShort || rc == block::kBadSuperFlag);
    return 0;
  }
  WriteAgain(tree.get(), records);
  ExportV1(tree.get(), &creator);
  ExportXml(tree.get(), size, 0);
  ExportXml(tree.get(), size, 1);
  return 0;
}
