// A message as a stranger could have sealed it with stolen keys: the first byte chooses whether the input is what the
// routing and the red block hold, what is under the cipher, or the grey block itself. The entry points agree with each
// other, and with the second reading on how many texts and attachments there are. The message cipher's trap lets go.
#include <algorithm>
#include <cstdint>
#include <cstdlib>
#include <stdexcept>
#include <string>
#include <string_view>
#include <vector>

#include <kestrune/kestrune.h>
#include "core/result.h"
#include "fuzz/expect.h"
#include "fuzz/input.h"
#include "fuzz/message_folder.h"
#include "tests/support/sealed_message.h"

using namespace kestrune;
using namespace kestrune::testing;

namespace {

Bytes SealedAround(std::string records) {
  return ToBytes(Sealed(records));
}

Bytes GreyAround(const Bytes& kest, const FuzzFolder& yard) {
  return FlatLeaf("DATA", "<M><C>durand.226</C></M>", SealParts(PartsOf(kest), yard.pads));
}

std::size_t CountCells(const std::vector<Cell>& cells, std::string_view name) {
  std::size_t count = 0;
  for (const Cell& cell : cells)
    count += (cell.name.c_str() == name ? 1U : 0U) + CountCells(cell.cells, name);
  return count;
}

void ExpectSame(const kestrune_part& part, const kestrune_part& other) {
  Expect(part.length == other.length && std::string(part.name) == other.name &&
         std::equal(part.data, part.data + part.length, other.data));
  Expect(part.signature == other.signature && part.by_sender == other.by_sender);
}

void ExpectSame(const kestrune_message& message, const kestrune_message& other) {
  Expect(std::string(message.routing) == other.routing && message.texts == other.texts &&
         message.attachments == other.attachments);
  for (auto i = 0ULL; i < message.texts; ++i) ExpectSame(message.text[i], other.text[i]);
  for (auto i = 0ULL; i < message.attachments; ++i) ExpectSame(message.attachment[i], other.attachment[i]);
}

// By all ways there are; the message, for kestrune_free_message.
kestrune_message* Open(const Bytes& grey, const FuzzFolder& yard) {
  kestrune_message* message = nullptr;
  const long rc =
      kestrune_open_message(grey.data(), grey.size(), yard.path().c_str(), FuzzFolder::kPassPhrase, &message);
  Expect((rc == kOk) == (message != nullptr));
  TypV2BlockCell* red = nullptr;
  Expect(kestrune_open_tree(grey.data(), grey.size(), yard.path().c_str(), FuzzFolder::kPassPhrase, &red) ==
         rc);
  Expect((red == nullptr) == (message == nullptr));
  char* xml = nullptr;
  if (kestrune_grey_routing(grey.data(), grey.size(), &xml) != kOk) Expect(message == nullptr);
  std::free(xml);
  if (red == nullptr) return nullptr;
  kestrune_message* again = nullptr;
  Expect(kestrune_take_apart(red, yard.path().c_str(), &again) == kOk);
  ExpectSame(*message, *again);
  kestrune_free_message(again);
  Expect(Api2FreeRedBlock(red) == kOk);
  return message;
}

void OpenAround(const std::string& signature, const std::string& records, const FuzzFolder& yard) {
  const Bytes kest = FlatLeaf("KEST", signature, SealedAround(records));
  kestrune_message* const message = Open(GreyAround(kest, yard), yard);
  std::vector<Cell> cells;
  try {
    cells = ReadRecords(ToBytes(records), 0, records.size());
  } catch (const std::runtime_error&) {
  }
  Expect(message == nullptr || !cells.empty());
  if (message == nullptr) return;
  Expect(message->texts == CountCells(cells, "TEXT") && message->attachments == CountCells(cells, "PJ"));
  kestrune_free_message(message);
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  static FuzzFolder yard;
  Input input(data, size);
  switch (input.Number(1) % 4) {
    case 0: {
      const std::string signature = input.Text();
      OpenAround(signature, input.Rest(), yard);
      break;
    }
    case 1: {
      // Signed by the sender, as far as he has said who he is.
      const std::string records = Record("", 1, "", input.Rest());
      OpenAround(yard.key.Sign(Sealed(records)), records, yard);
      break;
    }
    case 2:
      kestrune_free_message(Open(GreyAround(ToBytes(input.Rest()), yard), yard));
      break;
    default:
      kestrune_free_message(Open(SealedAround(input.Rest()), yard));
  }
  return 0;
}
