// Cells, their flat form, their exports.
#include <array>
#include <memory>

#include "blocks/block_cell.h"
#include "blocks/v1_structure.h"
#include "campaigns/operation.h"
#include "core/instance_creator.h"
#include "tests/support/bytes.h"
#include "tests/support/tree.h"

namespace kestrune::testing {
namespace {

// A message with all that an export knows: forks of both kinds, a cell in a cell, an attachment's name.
Cell Message() {
  Cell red = NewCell("RED");
  TypV2BlockCell* const text = Add(red.get(), "TEXT", "<S>x</S>", "bonjour");
  (void)text;
  Add(red.get(), "PJ", "<AT><N>" + ToBase64("note.txt") + "</N></AT>", "contenu");
  Add(Add(red.get(), "SUP"), "XMLS", "<A>1</A>", "fond");
  return red;
}

std::string TextOf(const CBuffer& bytes) {
  return std::string(bytes.data(), bytes.data() + bytes.size());
}

std::string Everything(const TypV1SimpleStruc& structure) {
  std::string all;
  for (unsigned long long i = 0; i < structure.text_count; ++i) {
    all += reinterpret_cast<const char*>(structure.texts[i]);
    all += '|';
  }
  for (unsigned long long i = 0; i < structure.attachment_count; ++i) {
    all += structure.attachment_names[i];
    all.append(structure.attachment_data[i], structure.attachment_data[i] + structure.attachment_lengths[i]);
    all += '|';
  }
  return all;
}

}  // namespace

std::vector<Operation> BlockOperations() {
  static TypV2InstanceCreatorUnix creator;
  const auto message = std::make_shared<Cell>(Message());
  const std::string flat = Flatten(*message);
  return {
      {"TypV2BlockCell, building",
       [] {
         Cell root;
         const long rc = Watch([&] {
           root = Cell(creator.newTypV2BlockCell());
           if (const Result failed = root.Init(&creator); failed != kOk) return failed;
           if (const Result failed = root->SetBlockName("ROOT"); failed != kOk) return failed;
           const auto* const data = reinterpret_cast<const unsigned char*>("data");
           if (const Result failed = root->AddSubBlockWithData("A", "<x>", data, 4, nullptr); failed != kOk)
             return failed;
           return root->AddSubBlockWithData("B", "<y>", data, 4, nullptr);
         });
         return Outcome{rc, rc == kOk ? Flatten(root) : ""};
       }},
      {"TypV2BlockCell::GetFlatData",
       [=] {
         CBuffer out;
         const long rc = Watch([&] {
           return out.Receive(
               [&](auto** bytes, auto* length) { return (*message)->GetFlatData(bytes, length, nullptr); });
         });
         return Outcome{rc, TextOf(out)};
       }},
      {"TypV2BlockCell::PushDataInPtr",
       [=] {
         std::string out(flat.size(), 0);
         unsigned long long position = 0;
         const long rc = Watch([&] {
           return (*message)->PushDataInPtr(reinterpret_cast<unsigned char*>(out.data()), &position,
                                            out.size());
         });
         return Outcome{rc, rc == kOk ? out : ""};
       }},
      {"TypV2BlockCell::LoadFlatData",
       [=] {
         Cell root;
         const long rc = Watch([&] {
           root = Cell(creator.newTypV2BlockCell());
           if (const Result failed = root.Init(&creator); failed != kOk) return failed;
           return root->LoadFlatData(reinterpret_cast<const unsigned char*>(flat.data()), flat.size());
         });
         return Outcome{rc, rc == kOk ? Describe(root.get()) : ""};
       }},
      {"TypV2BlockCell, copies of forks",
       [=] {
         const TypV2BlockCell* const text = (*message)->FindSubBlock("TEXT");
         CBuffer data, xml, both;
         const long rc = Watch([&] {
           Result failed =
               data.Receive([&](auto** bytes, auto* length) { return text->GetDataForkCopy(bytes, length); });
           if (failed == kOk) failed = xml.ReceiveText([&](char** out) { return text->GetXMLForkCopy(out); });
           if (failed == kOk)
             failed = both.ReceiveText([&](char** out) { return text->GetTextFromData(out); });
           return failed;
         });
         return Outcome{rc, rc == kOk ? TextOf(data) + TextOf(xml) + TextOf(both) : ""};
       }},
      {"TypV2BlockCell::ExportBlockAsV1Struct",
       [=] {
         Owned<TypV1SimpleStruc> structure(creator.newTypV1SimpleStruc());
         if (structure.Init() != kOk) return Outcome{kSpoiled, ""};
         const long rc = Watch([&] { return (*message)->ExportBlockAsV1Struct(structure.get()); });
         return Outcome{rc, rc == kOk ? Everything(*structure.get()) : ""};
       }},
      {"TypV2BlockCell::ExportBlockAsXML",
       [=] {
         const Cell cell = Loaded(flat);  // the export may change the cells
         std::string out(4096, 0);
         long long position = 0;
         const long rc = Watch([&] {
           return cell->ExportBlockAsXML(out.data(), &position, static_cast<long long>(out.size()), 1);
         });
         return Outcome{rc, rc == kOk ? std::string(out.c_str()) : ""};
       }},
      {"TypV2BlockCell::DisplayBlockInfoFull",
       [=] {
         return Outcome{Watch([&] {
                          (*message)->DisplayBlockInfoFull(0, 2);
                          return kOk;
                        }),
                        ""};
       }},
      {"TypV1SimpleStruc",
       [] {
         Owned<TypV1SimpleStruc> structure;
         const auto* const bytes = reinterpret_cast<const unsigned char*>("contenu");
         const long rc = Watch([&] {
           structure = Owned<TypV1SimpleStruc>(creator.newTypV1SimpleStruc());
           if (const Result failed = structure.Init(); failed != kOk) return failed;
           if (const Result failed = structure->addtexte(bytes, 7); failed != kOk) return failed;
           if (const Result failed = structure->addpj(bytes, "nom", 7, kTypeAttachment); failed != kOk)
             return failed;
           return structure->addpj(bytes, nullptr, 7, kTypeAttachment);
         });
         return Outcome{rc, rc == kOk ? Everything(*structure.get()) : ""};
       }},
  };
}

}  // namespace kestrune::testing
