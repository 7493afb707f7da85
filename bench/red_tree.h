// Opened messages, made by hand.
#ifndef KESTRUNE_BENCH_RED_TREE_H
#define KESTRUNE_BENCH_RED_TREE_H

#include <cstdlib>
#include <string>
#include <string_view>

#include <kestrune/kestrune.h>
#include "blocks/block_cell.h"
#include "core/instance_creator.h"
#include "core/owned.h"
#include "tests/support/routing.h"

namespace kestrune::testing {

// A tree "RED"; what is not given away is freed with it.
class RedTree {
 public:
  RedTree() {
    if (tree_.Init(&creator_) == kOk) tree_->SetBlockName("RED");
  }

  // Appends a block to the tree, or below one of its blocks.
  RedTree& Add(const char* name, const std::string& xml, std::string_view data,
               TypV2BlockCell* parent = nullptr, TypV2BlockCell** added = nullptr) {
    TypV2BlockCell* above = parent == nullptr ? tree_.get() : parent;
    const auto* bytes = reinterpret_cast<const unsigned char*>(data.data());
    if (above->AddSubBlockWithData(name, xml.c_str(), bytes, data.size(), added) != kOk) std::abort();
    return *this;
  }

  TypV2BlockCell* get() { return tree_.get(); }
  TypV2BlockCell* release() { return tree_.release(); }

  // The mail; empty when the conversion left none.
  std::string Convert() {
    char* eml = nullptr;
    if (Api2ConvertRedBlockToEml(release(), &eml) != kOk || eml == nullptr) return "";
    std::string mail = eml;
    std::free(eml);
    return mail;
  }

 private:
  static inline TypV2InstanceCreatorUnix creator_;
  Owned<TypV2BlockCell> tree_{creator_.newTypV2BlockCell()};
};

}  // namespace kestrune::testing

#endif
