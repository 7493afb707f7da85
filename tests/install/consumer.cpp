// A program on the classes: finds the library with find_package, makes objects through the factory.
#include "core/object.h"

#include <cstdio>
#include <cstring>

#include <kestrune/blocks/block_cell.h>
#include <kestrune/core/instance_creator.h>
#include <kestrune/core/owned.h>
#include <kestrune/core/utils.h>

int main() {
  TypV2InstanceCreatorUnix creator;
  kestrune::Owned<TypV2Utils> utils(creator.newTypV2Utils());
  kestrune::Owned<TypV2BlockCell> cell(creator.newTypV2BlockCell());
  if (utils.Init() != kestrune::kOk || cell.Init(&creator) != kestrune::kOk) return 1;
  if (cell->SetData("TEXT", "ab", reinterpret_cast<const unsigned char*>("xyz"), 3) != kestrune::kOk)
    return 1;
  kestrune::CBuffer flat;
  const kestrune::Result rc = flat.Receive([&](unsigned char** bytes, unsigned long long* size) {
    return cell->GetFlatData(bytes, size, nullptr);
  });
  if (rc != kestrune::kOk) return 1;
  char head[49];
  utils->Hexadecimalise(flat.data(), 24, head);
  std::printf("%zu %s\n", flat.size(), head);
  return Object{}.status;
}
