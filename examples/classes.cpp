// A program on the classes: a tree of blocks is made, flattened, loaded again, searched and exported.
//
// Every object comes from the factory, is set up by InitCreate, released by Kill and deleted. kestrune::Owned
// does the last two, on every path; kestrune::CBuffer does the same for buffers from malloc.
#include <cstdio>
#include <string_view>
#include <vector>

#include <kestrune/blocks/block_cell.h>
#include <kestrune/core/instance_creator.h>
#include <kestrune/core/owned.h>
#include <kestrune/core/result.h>

using kestrune::CBuffer;
using kestrune::kOk;
using kestrune::Owned;
using kestrune::Result;

namespace {

const unsigned char* Bytes(std::string_view text) {
  return reinterpret_cast<const unsigned char*>(text.data());
}

// The tree LETT of two leaves. What AddSubBlockWithData makes belongs to the tree.
Result MakeTree(TypV2InstanceCreator* creator, Owned<TypV2BlockCell>* tree) {
  constexpr std::string_view kText = "Bonjour Docteur";
  *tree = Owned<TypV2BlockCell>(creator->newTypV2BlockCell());
  if (const Result rc = tree->Init(creator); rc != kOk) return rc;
  if (const Result rc = (*tree)->SetBlockName("LETT"); rc != kOk) return rc;
  if (const Result rc = (*tree)->AddSubBlockWithData("HEAD", "<TO>dr.b</TO>", nullptr, 0, nullptr); rc != kOk)
    return rc;
  return (*tree)->AddSubBlockWithData("BODY", "<N>1</N>", Bytes(kText), kText.size(), nullptr);
}

// From a tree to bytes, closed by a SHA-512, and back. Whatever the bytes are, loading ends with a result.
Result ThereAndBack(TypV2InstanceCreator* creator, const TypV2BlockCell& tree, Owned<TypV2BlockCell>* copy) {
  CBuffer flat;
  Result rc = flat.Receive([&](unsigned char** bytes, unsigned long long* length) {
    return tree.GetFlatData(bytes, length, nullptr);
  });
  if (rc != kOk) return rc;
  std::printf("flat: %zu bytes\n", flat.size());

  *copy = Owned<TypV2BlockCell>(creator->newTypV2BlockCell());
  if (rc = copy->Init(creator); rc != kOk) return rc;
  if (rc = (*copy)->LoadFlatData(flat.data(), flat.size()); rc != kOk) return rc;

  flat.data()[30] ^= 1;  // one bit anywhere, and the digest tells
  Owned<TypV2BlockCell> damaged(creator->newTypV2BlockCell());
  if (rc = damaged.Init(creator); rc != kOk) return rc;
  std::printf("one bit changed: %d\n", damaged->LoadFlatData(flat.data(), flat.size()));
  return kOk;
}

// The tree as tagged text, data in Base64. Nothing is written past the capacity.
Result PrintAsXml(TypV2BlockCell* tree) {
  constexpr long kWithData = 1;
  std::vector<char> text(1024);
  long long position = 0;
  const Result rc =
      tree->ExportBlockAsXML(text.data(), &position, static_cast<long long>(text.size()), kWithData);
  if (rc == kOk) std::printf("%s\n", text.data());
  return rc;
}

Result Run() {
  TypV2InstanceCreatorUnix creator;  // declared first: it must outlive everything that it makes
  Owned<TypV2BlockCell> tree;
  if (const Result rc = MakeTree(&creator, &tree); rc != kOk) return rc;
  Owned<TypV2BlockCell> copy;
  if (const Result rc = ThereAndBack(&creator, *tree.get(), &copy); rc != kOk) return rc;

  const TypV2BlockCell* body = copy->FindSubBlock("BODY");  // still the tree's
  if (body == nullptr) return kestrune::block::kNoCell;
  std::printf("BODY: %.*s\n", static_cast<int>(body->GetDataForkLen()),
              reinterpret_cast<const char*>(body->GetDataForkPtr()));
  return PrintAsXml(copy.get());
}

}  // namespace

int main() {
  const Result rc = Run();
  if (rc != kOk) std::fprintf(stderr, "result %d\n", rc);  // kestrune-codes(7) explains it
  return rc == kOk ? 0 : 1;
}
