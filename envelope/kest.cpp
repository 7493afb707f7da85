#include "envelope/kest.h"

#include "blocks/block_cell.h"
#include "core/light_xml.h"
#include "envelope/lent_tree.h"

namespace kestrune {
namespace {

constexpr std::size_t kSignBytes = 16384;

}  // namespace

Result Kest::Load(TypV2InstanceCreator* creator, TypV2Utils* utils, const unsigned char* flat,
                  unsigned long long length) {
  Result rc = LoadLentTree(creator, flat, length, &cell_);
  if (rc != kOk) return rc;
  rc = signature_.ReceiveText([&](char** text) { return cell_->GetXMLForkCopy(text); });
  if (rc != kOk) return rc;
  SecretArray<kSignBytes> sign;
  return ExtractFirst(utils, signature_ ? signature_.text() : "", "SIGN", sign.text(), sign.size() - 1);
}

std::span<const unsigned char> Kest::red() const {
  return {cell_->GetDataForkPtr(), static_cast<std::size_t>(cell_->GetDataForkLen())};
}

}  // namespace kestrune
