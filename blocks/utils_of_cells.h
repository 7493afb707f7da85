// The toolbox that the operations on a tree use.
#ifndef KESTRUNE_BLOCKS_UTILS_OF_CELLS_H
#define KESTRUNE_BLOCKS_UTILS_OF_CELLS_H

#include "core/instance_creator.h"
#include "core/owned.h"
#include "core/utils.h"

namespace kestrune {

// The toolbox that the factory of a cell makes. The cells of a tree share their factory, so one toolbox
// serves the whole walk; a cell with another factory gets that one's.
class UtilsOfCells {
 public:
  // Null when the factory refuses.
  TypV2Utils* Of(TypV2InstanceCreator* creator) {
    if (creator == creator_ && utils_) return utils_.get();
    creator_ = creator;
    utils_ = Owned<TypV2Utils>(creator == nullptr ? nullptr : creator->newTypV2Utils());
    if (utils_.Init() != kOk) utils_ = Owned<TypV2Utils>();
    return utils_.get();
  }

 private:
  TypV2InstanceCreator* creator_ = nullptr;
  Owned<TypV2Utils> utils_;
};

}  // namespace kestrune

#endif
