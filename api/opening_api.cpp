// The entry points that open a message.
#include <kestrune/kestrune.h>
#include "api/message_call.h"
#include "blocks/block_cell.h"
#include "core/entry_point.h"
#include "core/light_xml.h"
#include "core/limits.h"
#include "core/scrub.h"
#include "core/utils.h"
#include "envelope/lent_tree.h"

using namespace kestrune;

namespace {

constexpr std::size_t kTerminatorBytes = 1;
constexpr unsigned long long kExportBytesPerGreenByte = 2;
constexpr unsigned long long kExportSpareBytes = 4096;
constexpr long kWithData = 1;

// A grey block taken apart, and the personal key that it names. The green block stays where it is.
struct GreyContents {
  Owned<TypV2BlockCell> data;
  CBuffer routing;
  ScrubAtEnd<CBuffer> scrub_routing{routing, Scrub::kAllButTerminator};
  SecretCBuffer key_name;
};

Result TakeApart(MessageCall* call, TypV2Utils* utils, const unsigned char* grey, unsigned long long length,
                 GreyContents* contents) {
  Result rc = LoadLentTree(call->creator(), grey, length, &contents->data);
  if (rc != kOk) return rc;
  rc = contents->routing.ReceiveText([&](char** routing) { return contents->data->GetXMLForkCopy(routing); });
  if (rc != kOk) return rc;
  const std::size_t room = contents->routing.size() + kTerminatorBytes;
  if (!contents->key_name.Allocate(room)) return kNoObject;
  // Deliberate: without a <C> the name is empty, and the cipher finds no key for it.
  (void)ExtractFirst(utils, contents->routing.text(), "C", contents->key_name.text(), room);
  return kOk;
}

Result Decipher(MessageCall* call, const GreyContents& contents, const char* hex_password,
                Owned<TypV2BlockCell>* red) {
  TypV2BlockCell* tree = nullptr;
  const Result rc =
      call->envelope()->DeCrypterVertFlat(contents.data->GetDataForkPtr(), contents.data->GetDataForkLen(),
                                          contents.key_name.text(), hex_password, &tree);
  red->Adopt(tree);
  return rc;
}

// Trees that outlive their call belong to this factory, which has no state and no end.
TypV2InstanceCreator* LastingCreator() {
  static TypV2InstanceCreatorUnix creator;
  return &creator;
}

}  // namespace

long Api2DecrypterfileGris(const char* greyFile, const char* folder, const char* hexPassword,
                           TypV2BlockCell** red) {
  if (red == nullptr) return argument::kNoOutput;
  *red = nullptr;
  return EntryPoint([&]() -> long {
    MessageCall call;
    Owned<TypV2Utils> utils(call.creator()->newTypV2Utils());
    if (!utils) return message::kNothingDone;
    Result rc = utils.Init();
    if (rc == kOk) rc = call.Init(folder);
    CBuffer grey;
    GreyContents contents;
    if (rc == kOk) rc = ReadWholeFile(call.creator(), greyFile, 0, &grey);
    if (rc == kOk) rc = TakeApart(&call, utils.get(), grey.data(), grey.size(), &contents);
    Owned<TypV2BlockCell> tree;
    if (rc == kOk) rc = Decipher(&call, contents, hexPassword, &tree);
    if (rc != kOk) return rc;
    tree->MoveToCreator(LastingCreator());
    *red = tree.Release();
    return kOk;
  });
}

long Api2FreeRedBlock(TypV2BlockCell* tree) {
  Owned<TypV2BlockCell> owned;
  owned.Adopt(tree);
  return kOk;
}

long Api2DecrypterGrisMem(const unsigned char* grey, unsigned long long length, const char* folder,
                          const char* password, char** xml) {
  if (grey == nullptr || folder == nullptr || password == nullptr) return argument::kNoInput;
  if (xml == nullptr) return argument::kNoOutput;
  *xml = nullptr;
  return EntryPoint([&]() -> long {
    MessageCall call;
    Owned<TypV2Utils> utils(call.creator()->newTypV2Utils());
    Result rc = utils.Init();
    if (rc == kOk) rc = call.Init(folder);
    Owned<TypV2BlockCell> tree;
    unsigned long long green_length = 0;
    {
      GreyContents contents;
      if (rc == kOk) rc = TakeApart(&call, utils.get(), grey, length, &contents);
      SecretArray<limits::kHexPassword + 1> hex_password;
      (void)BuildHexPassword(reinterpret_cast<const unsigned char*>(password), hex_password.data());
      if (rc == kOk) rc = Decipher(&call, contents, hex_password.text(), &tree);
      if (rc == kOk) green_length = contents.data->GetDataForkLen();
    }
    if (rc != kOk) return rc;
    // Kept so: measured by the green block, not by the tree. Without memory the exporter answers for it.
    SecretCBuffer text;
    (void)text.Allocate(green_length * kExportBytesPerGreenByte + kExportSpareBytes);
    long long position = 0;
    rc = tree->ExportBlockAsXML(text.text(), &position, static_cast<long long>(text.size()), kWithData);
    if (rc == kOk) *xml = text.release_text();
    return rc;
  });
}
