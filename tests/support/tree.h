// Cells and flat trees.
#ifndef KESTRUNE_TESTS_SUPPORT_TREE_H
#define KESTRUNE_TESTS_SUPPORT_TREE_H

#include <string>
#include <string_view>

#include "blocks/block_cell.h"
#include "core/instance_creator.h"
#include "core/owned.h"
#include "core/result.h"
#include "tests/support/bytes.h"

namespace kestrune::testing {

using Cell = Owned<TypV2BlockCell>;

Cell NewCell(const char* name = "", TypV2InstanceCreator* creator = nullptr);
TypV2BlockCell* Add(TypV2BlockCell* parent, const char* name, const std::string& xml = "",
                    std::string_view data = {});

Result Load(const std::string& flat, const Cell& fresh);
Cell Loaded(const std::string& flat);
std::string Flatten(const Cell& cell, Result want = kOk);
std::string Describe(const TypV2BlockCell* first);  // names, flags, forks, shape and lengths

}  // namespace kestrune::testing

#endif
