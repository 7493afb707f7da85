// Opened messages, made by hand.
#ifndef KESTRUNE_BENCH_RED_TREE_H
#define KESTRUNE_BENCH_RED_TREE_H

#include <cstdlib>
#include <string>
#include <string_view>

#include "api/kestrune.h"
#include "blocks/block_cell.h"
#include "core/instance_creator.h"
#include "core/owned.h"

namespace kestrune::testing {

// The elements of a routing XML; an empty one is left out.
struct Routing {
  std::string sender = "cle1";
  std::string to = "r1@ailleurs.example";
  std::string copies = "";
  std::string reply_to = "";
  std::string date = "2024-05-15 09:05:00";
  std::string subject = "Qm9uam91cg==";  // Bonjour
  std::string identifier = "ID1";

  std::string Xml() const {
    return "<M><C>cle1.224</C>" + Element("F", sender) + Element("R", reply_to) + Element("I", identifier) +
           Element("TE", date) + Element("D", to) + Element("CC", copies) + Element("S", subject) + "</M>";
  }

 private:
  static std::string Element(const std::string& tag, const std::string& value) {
    return value.empty() ? "" : "<" + tag + ">" + value + "</" + tag + ">";
  }
};

inline std::string AttachmentXml(const std::string& base64_name) {
  return "<AT><N>" + base64_name + "</N></AT><SIGN><S>xyz</S></SIGN>";
}

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
  TypV2BlockCell* Release() { return tree_.Release(); }

  // The mail; empty when the conversion left none.
  std::string Convert() {
    char* eml = nullptr;
    if (Api2ConvertRedBlockToEml(Release(), &eml) != kOk || eml == nullptr) return "";
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
