// Blocks that were changed, exchanged or forged.
#include "tests/envelope/envelope_folder.h"

namespace kestrune::testing {
namespace {

struct Damage : ::testing::Test, EnvelopeFolder {
  Damage() { EXPECT_EQ(Seal(Letter(), &block), kOk); }
  Bytes block;
};

TEST_F(Damage, OneChangedBitAnywhereIsRefused) {
  for (std::size_t bit = 0; bit < block.size() * 8; bit += 3) {
    block[bit / 8] ^= static_cast<unsigned char>(1U << bit % 8);
    ASSERT_EQ(Open(block).rc, block::kDigestMismatch) << bit;
    block[bit / 8] ^= static_cast<unsigned char>(1U << bit % 8);
  }
}

// Right in their digests, wrong otherwise.
TEST_F(Damage, ForgedTransportBlocksAreRefused) {
  const Cell good = ReadFlatTree(block);
  const Cell grey = ReadFlatTree(good.data);
  Bytes other;
  ASSERT_EQ(Seal(Letter(), &other), kOk);
  EnvelopeFolder impostor;
  impostor.AddSigningKey("rsa3072", "medecin");
  Bytes by_impostor, inner = good.data;
  ASSERT_EQ(impostor.Seal(Letter(), &by_impostor), kOk);
  inner.back() ^= 1;
  const auto routed = [&](const std::string& xml) { return Sign(FlatLeaf("DATA", xml, grey.data)); };
  const auto named = [&](const std::string& name) {
    return FlatLeaf("AUTH", "<SIGN><N>" + name + "</N><S>AAAA</S></SIGN>", good.data);
  };
  const struct {
    const char* name;
    Bytes block;
    Result want;
    Result without_reference = -1;  // where it differs: 0
  } rows[] = {
      {"as it was", block, kOk},
      {"another grey block under the signature", FlatLeaf("AUTH", good.xml, ReadFlatTree(other).data),
       verifier::kBadSignature},
      {"another signer of the same name", by_impostor, verifier::kBadSignature},
      {"a signer without certificate", named("inconnu.z.126"), verifier::kCertificate},
      {"a signer elsewhere", named("../" + signing_key), verifier::kCertificate},
      {"a name too long", named(std::string(49, 'n')), verifier::kValueTooLong},
      {"no signature", FlatLeaf("AUTH", "", good.data), verifier::kNoBlock},
      {"no signature element", FlatLeaf("AUTH", "x", good.data), verifier::kTagMissing},
      {"no grey block", FlatLeaf("AUTH", good.xml, {}), verifier::kNoData},
      {"a signed grey block with a wrong trailer", Sign(inner), block::kDigestMismatch},
      {"a signed grey block of 63 bytes", Sign(Bytes(63)), block::kTooShort},
      {"no routing", routed(""), envelope::kNoKeyReference, kOk},
      {"no <M>", routed("<C>durand.226</C>"), utils::kTagMissing, kOk},
      {"no <C>", routed("<M></M>"), envelope::kNoKeyReference, kOk},
      {"<C> of 40", routed("<M><C>" + std::string(40, 'c') + "</C></M>"), kOk},
      {"<C> of 41", routed("<M><C>" + std::string(41, 'c') + "</C></M>"), envelope::kNoKeyReference, kOk},
      {"no green block", Sign(FlatLeaf("DATA", grey.xml, {})), kOk},
      {"cut short", Bytes(63), block::kTooShort},
      {"nothing", {}, block::kTooShort},
  };
  for (const auto& row : rows) {
    const Opened opened = Open(row.block);
    EXPECT_EQ(opened.rc, row.want) << row.name;
    EXPECT_EQ(static_cast<bool>(opened.routing), row.want == kOk) << row.name;
    if (row.without_reference != kOk) continue;
    EXPECT_EQ(Open(row.block, false).rc, kOk) << row.name;
  }
  // The signature is handed out also when it does not hold.
  EXPECT_EQ(Open(by_impostor).signature.text(), ReadFlatTree(by_impostor).xml);
  EXPECT_EQ(envelope->ExtractVertFlatFromHTTPSBlock(block.data(), block.size(), nullptr, nullptr, nullptr,
                                                    nullptr, nullptr, nullptr),
            block::kNoOutput);
  unsigned char* no_grey = nullptr;
  unsigned long long count = 0;
  EXPECT_EQ(envelope->ExtractGrisFromHTTPSBlock(nullptr, 100, &no_grey, &count, nullptr), block::kTooShort);
}

TEST_F(Damage, DecipheredTreesAreChecked) {
  const Layers layers = TakeApart(block, pads());
  const Bytes& red = layers.kest.data;
  const Bytes damaged(red.begin(), red.end() - 1);
  const struct {
    const char* name;
    Bytes kest;
    Result want;
  } rows[] = {
      {"as it was", layers.green.body, kOk},
      {"no signature", FlatLeaf("KEST", "", red), utils::kTagMissing},
      {"an empty signature", FlatLeaf("KEST", "<SIGN></SIGN>", red), kOk},
      {"a long signature", FlatLeaf("KEST", "<SIGN>" + std::string(16384, 's') + "</SIGN>", red),
       utils::kValueTooLong},
      {"no red block", FlatLeaf("KEST", layers.kest.xml, {}), block::kTooShort},
      {"a damaged red block", FlatLeaf("KEST", layers.kest.xml, damaged), block::kDigestMismatch},
      {"a damaged tree", Bytes(layers.green.body.begin(), layers.green.body.end() - 1),
       block::kDigestMismatch},
  };
  for (const auto& row : rows) {
    TypV2BlockCell* tree = nullptr;
    EXPECT_EQ(envelope->LoadRedFromUncryptedVertFlat(row.kest.data(), row.kest.size(), &tree), row.want)
        << row.name;
    EXPECT_EQ(tree != nullptr, row.want == kOk) << row.name;
    (void)Adopted(tree);
  }
}

TEST_F(Damage, DecipheringRefusesItsArgumentsInOrder) {
  const unsigned char byte = 0;
  unsigned char* out = nullptr;
  const std::tuple<const unsigned char*, unsigned long long, unsigned char**, Result> rows[] = {
      {nullptr, 0, nullptr, envelope::kNoInput},
      {&byte, 0, nullptr, argument::kEmptyInput},
      {&byte, 1000000001, nullptr, envelope::kTooLongToDecipher},
      {&byte, 1000000000, nullptr, argument::kNoOutput},
      {&byte, 1, &out, argument::kNoLengthOutput}};
  for (const auto& [green, count, to, want] : rows) {
    EXPECT_EQ(envelope->DeCrypterVertFlatToVert(green, count, "", Letter().hex_password, to, nullptr), want);
  }
}

}  // namespace
}  // namespace kestrune::testing
