#include "envelope/lent_tree.h"

#include "blocks/block_cell.h"
#include "blocks/lent_data.h"
#include "core/instance_creator.h"
#include "envelope/own_class.h"

namespace kestrune {

namespace {

Result Load(TypV2InstanceCreator* creator, const unsigned char* flat, unsigned long long length,
            const FlatDigests* digests, Owned<TypV2BlockCell>* tree) {
  *tree = Owned<TypV2BlockCell>(creator->newTypV2BlockCell());
  if (const Result rc = tree->Init(creator); rc != kOk) return rc;
  TypV2BlockCell* const cell = tree->get();
  if (!IsExactly<TypV2BlockCell>(*cell)) return cell->LoadFlatData(flat, length);
  if (digests != nullptr) return LentData::Load(cell, flat, length, *digests);
  return LentData::Load(cell, flat, length, DigestFlatTree(flat, flat == nullptr ? 0 : length));
}

}  // namespace

Result LoadLentTree(TypV2InstanceCreator* creator, const unsigned char* flat, unsigned long long length,
                    Owned<TypV2BlockCell>* tree) {
  return Load(creator, flat, length, nullptr, tree);
}

Result LoadLentTree(TypV2InstanceCreator* creator, const unsigned char* flat, unsigned long long length,
                    const FlatDigests& digests, Owned<TypV2BlockCell>* tree) {
  return Load(creator, flat, length, &digests, tree);
}

}  // namespace kestrune
