// A platform's own classes are asked for every operation.
#include <algorithm>
#include <cstring>

#include "sign/signature_verify.h"
#include "tests/envelope/envelope_folder.h"
#include "tests/support/slots.h"

namespace kestrune::testing {
namespace {

int g_asked = 0;

constexpr Result kStubbed = -7777;

long Stub() {
  ++g_asked;
  return kStubbed;
}

// A class of a platform: like the library's, but with Stub in one slot.
template <class T>
struct Stubbed : T {
  explicit Stubbed(std::ptrdiff_t slot) {
    constexpr std::ptrdiff_t kPrefix = 2;  // what stands in a table before its first slot
    static void* table[64];
    void**& own = *reinterpret_cast<void***>(this);
    std::copy(own - kPrefix, own + SlotCount<T>(), table);
    table[kPrefix + slot] = reinterpret_cast<void*>(&Stub);
    own = table + kPrefix;
  }
};

struct Platform : TypV2InstanceCreatorUnix {
  std::ptrdiff_t signer = -1, verifier = -1, envelope = -1;  // the slots with a stub

  template <class T>
  static T* Make(std::ptrdiff_t slot) {
    return slot < 0 ? new T : new Stubbed<T>(slot);
  }
  TypApiV2Signature* newTypApiV2Signature() override { return Make<TypApiV2Signature>(signer); }
  TypApiV2SignatureVerify* newTypApiV2SignatureVerify() override {
    return Make<TypApiV2SignatureVerify>(verifier);
  }
  TypV2CryptoInterface* newTypV2CryptoInterface() override {
    return Make<TypV2CryptoInterfaceUnix>(envelope);
  }
};

TEST(Platforms, SealingAndOpeningAskEveryOperation) {
  EnvelopeFolder folder;
  WriteFile(folder.File("file"), "content");
  const std::string file = folder.File("file");
  Letter letter;
  letter.attachments = file.c_str();
  Bytes block, unused;
  ASSERT_EQ(folder.Seal(letter, &block), kOk);
  const auto expect_asked = [&](std::ptrdiff_t Platform::*of, auto... members) {
    for (const std::ptrdiff_t slot : {SlotOf(members)...}) {
      Platform platform;
      platform.*of = slot;
      folder.Use(&platform);
      g_asked = 0;
      folder.Seal(letter, &unused);
      char *routing = nullptr, *found = nullptr;
      folder.envelope->ExtractRoutageOnlyFromHTTPSBlock(block.data(), block.size(), &routing, nullptr,
                                                        nullptr, &found);
      std::free(routing);
      std::free(found);
      EXPECT_GT(g_asked, 0) << slot;
      folder.envelope.Reset();
    }
  };
  using E = TypV2CryptoInterface;
  using S = TypApiV2Signature;
  using V = TypApiV2SignatureVerify;
  expect_asked(&Platform::envelope, &E::GetRouge, &E::GetVert, &E::GetGris, &E::GetPourHTTPS,
               &E::GetServiceXMLRoutage, &E::GetBasicServiceXML, &E::Low_GetBasicServiceXML, &E::GetDF,
               &E::GetIDMessage, &E::GetLastMessageID, &E::ExtractVertFlatFromHTTPSBlock);
  expect_asked(&Platform::signer, &S::GetSignatureXMLLight, &S::Signer, &S::LoadPrivateKey, &S::DigestSHA512,
               &S::SignDigestSHA512);
  expect_asked(&Platform::verifier, &V::DigestSHA512, &V::LoadPublicKey);
}

// What the subclasses below were asked, one word for each call.
std::string g_trail;

struct Changing : TypV2CryptoInterfaceUnix {
  // Changes what it made, without giving it another place.
  int GetGris(const char* key, const char* sender, const char* to, const char* cc, const char* bcc,
              const char* reply, const char* subject, const char* te, const unsigned char* green,
              unsigned long long length, unsigned char** grey, unsigned long long* count) override {
    const Result rc = TypV2CryptoInterfaceUnix::GetGris(key, sender, to, cc, bcc, reply, subject, te, green,
                                                        length, grey, count);
    (*grey)[*count - 1] ^= 1;
    return rc;
  }
  void GetIDMessage(char* out, const char* sender, const char* to, const char* cc, const char* bcc,
                    const char* subject) override {
    for (const char* text : {sender, to, cc, bcc, subject}) g_trail.append(text).append(" ");
    std::strcpy(out, "ID");
  }
};

struct AskedSigner : TypApiV2Signature {
  int DigestSHA512(const unsigned char* data, std::uint32_t length, unsigned char* out,
                   std::uint32_t* count) override {
    g_trail += "digest ";
    return TypApiV2Signature::DigestSHA512(data, length, out, count);
  }
};

struct AskedCell : TypV2BlockCell {
  int SetData(const char* name, const char* xml, const unsigned char* data,
              unsigned long long length) override {
    if (data != nullptr) g_trail.append(name).append(" ");
    return TypV2BlockCell::SetData(name, xml, data, length);
  }
  int GetFlatData(unsigned char** out, unsigned long long* count, unsigned char* digest) const override {
    g_trail += "flat ";
    return TypV2BlockCell::GetFlatData(out, count, digest);
  }
  int LoadFlatData(const unsigned char* flat, unsigned long long length) override {
    g_trail += "load ";
    return TypV2BlockCell::LoadFlatData(flat, length);
  }
};

template <class Signer, class Cell, class Envelope = TypV2CryptoInterfaceUnix>
struct PlatformOf : TypV2InstanceCreatorUnix {
  TypApiV2Signature* newTypApiV2Signature() override { return new Signer; }
  TypV2BlockCell* newTypV2BlockCell() override { return new Cell; }
  TypV2CryptoInterface* newTypV2CryptoInterface() override { return new Envelope; }
};

TEST(Platforms, WhatASubclassChangesIsWhatIsSigned) {
  PlatformOf<AskedSigner, TypV2BlockCell, Changing> platform;
  EnvelopeFolder folder(&platform);
  Letter letter;
  letter.subject = "subject";
  Bytes block;
  std::string identifier;
  g_trail.clear();
  ASSERT_EQ(folder.Seal(letter, &block, &identifier), kOk);
  EXPECT_EQ(identifier, "ID");
  EXPECT_EQ(g_trail, "medecin a@x.example b@x.example c@x.example subject digest digest digest ");
  const Cell transport = ReadFlatTree(block);
  EXPECT_TRUE(SignatureHolds(transport.xml, transport.data, folder.Certificate()));
}

TEST(Platforms, CellsAreAskedForEveryLayer) {
  PlatformOf<TypApiV2Signature, AskedCell> platform;
  EnvelopeFolder folder(&platform);
  Bytes block;
  g_trail.clear();
  ASSERT_EQ(folder.Seal(Letter(), &block), kOk);
  EXPECT_EQ(g_trail.substr(g_trail.find("flat")), "flat KEST flat DATA flat AUTH flat ");
  g_trail.clear();
  EXPECT_EQ(folder.Open(block).rc, kOk);
  EXPECT_EQ(g_trail, "load load ");
  EXPECT_EQ(TakeApart(block, folder.pads()).red.cells.size(), 2U);
}

// Its signatures are longer by a number of spaces, another one for each: of the text, the red and the grey block.
std::vector<std::size_t> g_spaces;

struct UnevenSigner : TypApiV2Signature {
  int GetSignatureXMLLight(const unsigned char* data, std::uint32_t length, char* out, long mode) override {
    const Result rc = TypApiV2Signature::GetSignatureXMLLight(data, length, out, mode);
    std::strcat(out, std::string(g_spaces.front(), ' ').c_str());
    g_spaces.erase(g_spaces.begin());
    return rc;
  }
};

TEST(Platforms, LayersFitWhateverTheSignaturesTake) {
  PlatformOf<UnevenSigner, TypV2BlockCell> platform;
  EnvelopeFolder folder(&platform);
  for (const std::vector<std::size_t>& spaces :
       {std::vector<std::size_t>{0, 0, 0}, {0, 100, 0}, {0, 0, 100}, {1500, 1500, 1500}, {0, 0, 1}}) {
    g_spaces = spaces;
    Bytes block;
    ASSERT_EQ(folder.Seal(Letter(), &block), kOk);
    const Layers layers = TakeApart(block, folder.pads());
    EXPECT_TRUE(SignatureHolds(layers.transport.xml, layers.transport.data, folder.Certificate()));
    EXPECT_TRUE(SignatureHolds(layers.kest.xml, layers.kest.data, folder.Certificate()));
    EXPECT_EQ(layers.transport.xml.size() + spaces[1], layers.kest.xml.size() + spaces[2]);
  }
}

// A factory without cells. Behind them wait a routing without recipient, -63, and a signer without key, -103.
TEST(Platforms, TheCellIsMadeBeforeRoutingAndSignature) {
  struct NoCells : TypV2InstanceCreatorUnix {
    TypV2BlockCell* newTypV2BlockCell() override { return nullptr; }
  } creator;
  Owned<TypV2CryptoInterface> envelope(creator.newTypV2CryptoInterface());
  Owned<TypApiV2Signature> signer(creator.newTypApiV2Signature());
  char password[] = "";
  ASSERT_EQ(envelope.Init(&creator, "", ""), kOk);
  ASSERT_EQ(signer.Init(&creator, "nobody", "", password), kOk);
  const unsigned char bytes[] = "bytes";
  unsigned char* out = nullptr;
  unsigned long long length = 0;
  EXPECT_EQ(envelope->GetGris("k", "s", "", "", "", "", "", "", bytes, 5, &out, &length), kNoObject);
  EXPECT_EQ(envelope->GetPourHTTPS(signer.get(), bytes, 5, &out, &length), kNoObject);
}

TEST(Platforms, MayLeaveAMessageWithoutIdentifier) {
  struct NoIdentifiers : TypV2CryptoInterface {
    void GetIDMessage(char* out, const char*, const char*, const char*, const char*, const char*) override {
      *out = 0;
    }
  };
  TypV2InstanceCreatorUnix creator;
  Owned<TypV2CryptoInterface> envelope(new NoIdentifiers);
  ASSERT_EQ(envelope.Init(&creator, "", ""), kOk);
  CBuffer xml;
  ASSERT_EQ(xml.ReceiveText([&](char** out) {
    return envelope->GetServiceXMLRoutage(out, "k", "s", "a", "", "", "", "", "", "");
  }),
            kOk);
  EXPECT_NE(std::strstr(xml.text(), "<I></I>"), nullptr);
}

}  // namespace
}  // namespace kestrune::testing
