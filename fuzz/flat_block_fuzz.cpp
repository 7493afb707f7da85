// Reads flat trees. The input is the records; it is sealed here, so that the digest never hides the parser.
// The second reading takes and refuses the same. What loads is measured, flattened to the same bytes and exported both ways.
#include <algorithm>
#include <cstddef>
#include <cstdint>
#include <cstring>
#include <stdexcept>
#include <string_view>
#include <vector>

#include "blocks/block_cell.h"
#include "blocks/v1_structure.h"
#include "core/instance_creator.h"
#include "core/owned.h"
#include "crypto/classic.h"
#include "fuzz/expect.h"
#include "tests/support/sealed_message.h"

namespace {

using namespace kestrune;
using testing::Bytes;
using testing::Expect;

// Both readings of the cells side by side.
void ExpectSame(const TypV2BlockCell* cell, const std::vector<testing::Cell>& cells) {
  for (const testing::Cell& want : cells) {
    Expect(cell != nullptr);
    char name[6] = "?";
    (void)cell->GetBlockName(name);
    CBuffer xml;
    Expect(xml.ReceiveText([&](char** text) { return cell->GetXMLForkCopy(text); }) == kOk);
    const unsigned char* const data = cell->GetDataForkPtr();
    Expect(want.name.c_str() == std::string_view(name) && cell->GetXMLForkLen() == want.xml.size());
    Expect(want.xml.empty() || std::memcmp(xml.data(), want.xml.data(), want.xml.size()) == 0);
    Expect(Bytes(data, data + cell->GetDataForkLen()) == want.data);
    ExpectSame(cell->GetSubBlock(), want.cells);
    cell = cell->GetNextBlock();
  }
  Expect(cell == nullptr);
}

// What the library's reading should have ended with.
Result CodeOf(std::string_view refusal) {
  if (refusal == "short record") return block::kTooShort;
  return refusal == "forks past end" ? block::kForkPastEnd : block::kBadSuperFlag;
}

void ReadAgain(const Bytes& records, Result rc, const TypV2BlockCell* tree) {
  try {
    const std::vector<testing::Cell> cells = testing::ReadRecords(records, 0, records.size());
    Expect(rc == kOk);
    ExpectSame(tree, cells);
  } catch (const std::runtime_error& refusal) {
    Expect(rc == CodeOf(refusal.what()));
  }
}

void ExportXml(TypV2BlockCell* tree, std::size_t input_bytes, long flags) {
  // Room for everything, or for half of what the input is: then pieces are left out.
  for (const std::size_t capacity : {input_bytes * 4 + 64, input_bytes / 2}) {
    std::vector<char> out(capacity);
    long long position = 0;
    const Result rc = tree->ExportBlockAsXML(out.data(), &position, static_cast<long long>(capacity), flags);
    Expect(rc == kOk || capacity == input_bytes / 2);
    Expect(position == 0 || (position < static_cast<long long>(capacity) && out.data()[position] == 0));
  }
}

void ExportV1(const TypV2BlockCell* tree, TypV2InstanceCreator* creator) {
  Owned<TypV1SimpleStruc> structure(creator->newTypV1SimpleStruc());
  Expect(structure.Init() == kOk);
  const Result rc = tree->ExportBlockAsV1Struct(structure.get());
  Expect(rc == kOk || rc == block::kBase64);
  Expect(structure->text_count <= TypV1SimpleStruc::kMostTexts);
  if (rc == kOk) Expect(structure->GetTotalDataSize() <= tree->GetFlatDataLen());
}

// Nothing was lost: what is written is what was read, unless a leaf has data without XML.
void WriteAgain(const TypV2BlockCell* tree, const Bytes& records) {
  Bytes again(records.size());
  unsigned long long position = 0;
  Expect(tree->GetFlatDataLen() == records.size());
  const Result rc = tree->PushDataInPtr(again.data(), &position, again.size());
  Expect(rc == kOk ? again == records : rc == block::kNoInput);

  CBuffer flat;
  const auto flatten = [&](auto** out, auto* length) { return tree->GetFlatData(out, length, nullptr); };
  const Result whole = flat.Receive(flatten);
  if (tree->GetNextBlock() != nullptr) {
    Expect(whole == block::kNoRoom || whole == block::kNoInput);
  } else {
    Expect(whole == rc && (rc != kOk || std::equal(records.begin(), records.end(), flat.data())));
  }
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  TypV2InstanceCreatorUnix creator;
  const Bytes records(data, data + size);
  Bytes sealed = records;
  sealed.resize(size + kSha512Bytes);
  sha4(records.data(), size, sealed.data() + size, 0);

  Owned<TypV2BlockCell> tree(creator.newTypV2BlockCell());
  Expect(tree.Init(&creator) == kOk);
  const Result rc = tree->LoadFlatData(sealed.data(), sealed.size());
  tree->GetFlatDataLen();
  ReadAgain(records, rc, tree.get());
  if (rc != kOk) return 0;
  WriteAgain(tree.get(), records);
  ExportV1(tree.get(), &creator);
  ExportXml(tree.get(), size, 0);
  ExportXml(tree.get(), size, 1);
  return 0;
}
