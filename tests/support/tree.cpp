#include "tests/support/tree.h"

#include <gtest/gtest.h>

namespace kestrune::testing {

Cell NewCell(const char* name, TypV2InstanceCreator* creator) {
  static TypV2InstanceCreatorUnix factory;
  Cell cell(factory.newTypV2BlockCell());
  EXPECT_EQ(cell.Init(creator == nullptr ? &factory : creator), kOk);
  EXPECT_EQ(cell->SetBlockName(name), kOk);
  return cell;
}

TypV2BlockCell* Add(TypV2BlockCell* parent, const char* name, const std::string& xml, std::string_view data) {
  TypV2BlockCell* added = nullptr;
  const auto* bytes = reinterpret_cast<const unsigned char*>(data.data());
  EXPECT_EQ(parent->AddSubBlockWithData(name, xml.c_str(), bytes, data.size(), &added), kOk);
  return added;
}

Result Load(const std::string& flat, const Cell& fresh) {
  const Bytes exact = ToBytes(flat);  // for the sanitizers
  return fresh->LoadFlatData(exact.data(), exact.size());
}

Cell Loaded(const std::string& flat) {
  Cell cell = NewCell();
  EXPECT_EQ(Load(flat, cell), kOk);
  return cell;
}

std::string Flatten(const Cell& cell, Result want) {
  CBuffer flat;
  EXPECT_EQ(flat.Receive([&](auto** out, auto* length) { return cell->GetFlatData(out, length, nullptr); }),
            want);
  return std::string(flat.data(), flat.data() + flat.size());
}

std::string Describe(const TypV2BlockCell* first) {
  std::string text;
  for (const TypV2BlockCell* cell = first; cell != nullptr; cell = cell->GetNextBlock()) {
    char name[6] = "?";
    cell->GetBlockName(name);
    char* xml = nullptr;
    EXPECT_EQ(cell->GetXMLForkCopy(&xml), kOk);
    CBuffer owner;
    owner.Adopt(xml, 0);
    text.append(cell->issuperblock() ? "*" : "-").append(name).append("<").append(xml ? xml : "");
    text.append(">").append(ToHex(cell->GetDataForkPtr(), cell->GetDataForkLen()));
    text.append("(").append(Describe(cell->GetSubBlock())).append(")");
    text.append(std::to_string(cell->GetDataLen())).append(" ");
  }
  return text;
}

}  // namespace kestrune::testing
