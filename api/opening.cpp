#include "api/opening.h"

#include <kestrune/kestrune.h>
#include "core/light_xml.h"
#include "envelope/lent_tree.h"

namespace kestrune {

void MakeHexPassword(const char* password, HexPassword* hex) {
  (void)BuildHexPassword(reinterpret_cast<const unsigned char*>(password), hex->data());
}

Result Opening::Init(const char* folder) {
  const Result rc = utils_.Init();
  return rc == kOk ? call_.Init(folder) : rc;
}

Result Opening::TakeApart(const unsigned char* grey, unsigned long long length) {
  constexpr std::size_t kTerminatorBytes = 1;
  Result rc = LoadLentTree(call_.creator(), grey, length, &data_);
  if (rc != kOk) return rc;
  rc = routing_.ReceiveText([&](char** routing) { return data_->GetXMLForkCopy(routing); });
  if (rc != kOk) return rc;
  const std::size_t room = routing_.size() + kTerminatorBytes;
  if (!key_name_.Allocate(room)) return kNoObject;
  // Deliberate: without a <C> the name is empty, and the cipher finds no key for it.
  (void)ExtractFirst(utils_.get(), routing_.text(), "C", key_name_.text(), room);
  return kOk;
}

Result Opening::TakeApartGrey(const unsigned char* grey, unsigned long long length) {
  const Result rc = TakeApart(grey, length);
  if (rc != kOk) return rc;
  return kestrune_block_kind(grey, length) == KESTRUNE_GREY_BLOCK ? kOk : envelope::kNoInput;
}

Result Opening::Decipher(const char* hex_password, Owned<TypV2BlockCell>* red) {
  TypV2BlockCell* tree = nullptr;
  const Result rc = call_.envelope()->DeCrypterVertFlat(data_->GetDataForkPtr(), data_->GetDataForkLen(),
                                                        key_name_.text(), hex_password, &tree);
  red->Adopt(tree);
  return rc;
}

Result Opening::Decipher(const char* hex_password, SecretCBuffer* kest) {
  return kest->Receive([&](unsigned char** bytes, unsigned long long* length) {
    return call_.envelope()->DeCrypterVertFlatToVert(data_->GetDataForkPtr(), data_->GetDataForkLen(),
                                                     key_name_.text(), hex_password, bytes, length);
  });
}

}  // namespace kestrune
