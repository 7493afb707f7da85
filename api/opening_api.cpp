// The entry points that open a message into its tree.
#include <kestrune/kestrune.h>
#include "api/opening.h"
#include "core/entry_point.h"

using namespace kestrune;

namespace {

constexpr unsigned long long kExportBytesPerGreenByte = 2;
constexpr unsigned long long kExportSpareBytes = 4096;
constexpr long kWithData = 1;

// Trees that outlive their call belong to this factory, which has no state and no end.
TypV2InstanceCreator* LastingCreator() {
  static TypV2InstanceCreatorUnix creator;
  return &creator;
}

void HandOut(Owned<TypV2BlockCell> tree, TypV2BlockCell** red) {
  tree->MoveToCreator(LastingCreator());
  *red = tree.release();
}

}  // namespace

long Api2DecrypterfileGris(const char* greyFile, const char* folder, const char* hexPassword,
                           TypV2BlockCell** red) {
  if (red == nullptr) return argument::kNoOutput;
  *red = nullptr;
  return EntryPoint([&]() -> long {
    Opening opening;
    if (!opening.is_made()) return message::kNothingDone;
    Result rc = opening.Init(folder);
    CBuffer grey;
    if (rc == kOk) rc = ReadWholeFile(opening.creator(), greyFile, 0, &grey);
    if (rc == kOk) rc = opening.TakeApart(grey.data(), grey.size());
    Owned<TypV2BlockCell> tree;
    if (rc == kOk) rc = opening.Decipher(hexPassword, &tree);
    if (rc == kOk) HandOut(std::move(tree), red);
    return rc;
  });
}

long kestrune_open_tree(const unsigned char* grey, unsigned long long length, const char* folder,
                        const char* password, TypV2BlockCell** red) {
  if (red != nullptr) *red = nullptr;
  if (grey == nullptr || folder == nullptr || password == nullptr) return argument::kNoInput;
  if (red == nullptr) return argument::kNoOutput;
  return EntryPoint([&]() -> long {
    Opening opening;
    Result rc = opening.Init(folder);
    if (rc == kOk) rc = opening.TakeApartGrey(grey, length);
    HexPassword hex_password;
    MakeHexPassword(password, &hex_password);
    Owned<TypV2BlockCell> tree;
    if (rc == kOk) rc = opening.Decipher(hex_password.text(), &tree);
    if (rc == kOk) HandOut(std::move(tree), red);
    return rc;
  });
}

long Api2FreeRedBlock(TypV2BlockCell* tree) {
  (void)Adopted(tree);
  return kOk;
}

long Api2DecrypterGrisMem(const unsigned char* grey, unsigned long long length, const char* folder,
                          const char* password, char** xml) {
  if (grey == nullptr || folder == nullptr || password == nullptr) return argument::kNoInput;
  if (xml == nullptr) return argument::kNoOutput;
  *xml = nullptr;
  return EntryPoint([&]() -> long {
    Opening opening;
    Result rc = opening.Init(folder);
    if (rc == kOk) rc = opening.TakeApart(grey, length);
    HexPassword hex_password;
    MakeHexPassword(password, &hex_password);
    Owned<TypV2BlockCell> tree;
    if (rc == kOk) rc = opening.Decipher(hex_password.text(), &tree);
    if (rc != kOk) return rc;
    // Kept so: measured by the green block, not by the tree. Without memory the exporter answers for it.
    SecretCBuffer text;
    (void)text.Allocate(opening.green_length() * kExportBytesPerGreenByte + kExportSpareBytes);
    long long position = 0;
    rc = tree->ExportBlockAsXML(text.text(), &position, static_cast<long long>(text.size()), kWithData);
    if (rc == kOk) *xml = text.release_text();
    return rc;
  });
}
