// A platform's own classes are asked for every operation, and for what may run short.
#include <cstring>
#include <memory>

#include "core/file_ref.h"
#include "envelope/letter.h"
#include "sign/key_utils.h"
#include "sign/signature_verify.h"
#include "tests/envelope/envelope_folder.h"

namespace kestrune::testing {
namespace {

// What was asked, one line for each call: the operation and the texts that it was given.
std::string g_asked;

void Note(const char* operation, std::initializer_list<const char*> texts = {}) {
  g_asked += operation;
  for (const char* text : texts) g_asked += std::string(" ") + (text == nullptr ? "-" : text);
  g_asked += "\n";
}

struct AskedEnvelope : TypV2CryptoInterfaceUnix {
  using Base = TypV2CryptoInterfaceUnix;
  int ExtractVertFlatFromHTTPSBlock(const unsigned char* block, unsigned long long length, char** routing,
                                    char* key, char* signer, unsigned char** green, unsigned long long* count,
                                    char** signature) override {
    Note("ExtractVertFlatFromHTTPSBlock");
    return Base::ExtractVertFlatFromHTTPSBlock(block, length, routing, key, signer, green, count, signature);
  }
  int GetRouge(TypApiV2Signature* signer, const char* key, const char* password, const char* sender,
               const char* sign_password, const char* to, const char* cc, const char* bcc, const char* reply,
               const char* subject, const char* te, const char* ready, const char* text, const char* files,
               TypV2BlockPJ* pj, unsigned char** red, unsigned long long* count, char* signature) override {
    Note("GetRouge",
         {key, password, sender, sign_password, to, cc, bcc, reply, subject, te, ready, text, files});
    return Base::GetRouge(signer, key, password, sender, sign_password, to, cc, bcc, reply, subject, te,
                          ready, text, files, pj, red, count, signature);
  }
  int GetVert(const char* key, const char* password, const char* signature, const unsigned char* red,
              unsigned long long length, unsigned char** green, unsigned long long* count) override {
    Note("GetVert", {key, password});
    return Base::GetVert(key, password, signature, red, length, green, count);
  }
  // Changes what it made, without giving it another place.
  int GetGris(const char* key, const char* sender, const char* to, const char* cc, const char* bcc,
              const char* reply, const char* subject, const char* te, const unsigned char* green,
              unsigned long long length, unsigned char** grey, unsigned long long* count) override {
    Note("GetGris", {key, sender, to, cc, bcc, reply, subject, te});
    const Result rc = Base::GetGris(key, sender, to, cc, bcc, reply, subject, te, green, length, grey, count);
    if (rc == kOk) (*grey)[*count - 1] ^= 1;
    return rc;
  }
  int GetPourHTTPS(TypApiV2Signature* signer, const unsigned char* grey, unsigned long long length,
                   unsigned char** block, unsigned long long* count) override {
    Note("GetPourHTTPS");
    return Base::GetPourHTTPS(signer, grey, length, block, count);
  }
  void GetLastMessageID(char* out) override {
    Note("GetLastMessageID");
    Base::GetLastMessageID(out);
  }
  int GetServiceXMLRoutage(char** xml, const char* key, const char* sender, const char* to, const char* cc,
                           const char* bcc, const char* reply, const char* subject, const char* te,
                           const char* ready) override {
    Note("GetServiceXMLRoutage", {key, sender, to, cc, bcc, reply, subject, te, ready});
    return Base::GetServiceXMLRoutage(xml, key, sender, to, cc, bcc, reply, subject, te, ready);
  }
  int GetBasicServiceXML(char** xml, const char* key, const char* sender, const char* to, const char* cc,
                         const char* bcc, const char* reply, const char* subject, const char* te) override {
    Note("GetBasicServiceXML", {key, sender, to, cc, bcc, reply, subject, te});
    return Base::GetBasicServiceXML(xml, key, sender, to, cc, bcc, reply, subject, te);
  }
  int Low_GetBasicServiceXML(char** xml, const char* key, const char* sender, const char* to, const char* cc,
                             const char* bcc, const char* reply, const char* subject, const char* te,
                             const char* id, long merge, const char* ready) override {
    Note("Low_GetBasicServiceXML",
         {key, sender, to, cc, bcc, reply, subject, te, id, merge == 0 ? "0" : "1", ready});
    return Base::Low_GetBasicServiceXML(xml, key, sender, to, cc, bcc, reply, subject, te, id, merge, ready);
  }
  void GetIDMessage(char* out, const char* sender, const char* to, const char* cc, const char* bcc,
                    const char* subject) override {
    Note("GetIDMessage", {sender, to, cc, bcc, subject});
    std::strcpy(out, "ID");
  }
  int GetDF(TypApiV2Signature* signer, const char* path, unsigned char** data, unsigned long long* length,
            char* xml) override {
    Note("GetDF", {path});
    return Base::GetDF(signer, path, data, length, xml);
  }
};

struct AskedSigner : TypApiV2Signature {
  int GetSignatureXMLLight(const unsigned char* data, std::uint32_t length, char* out, long mode) override {
    Note("GetSignatureXMLLight");
    return TypApiV2Signature::GetSignatureXMLLight(data, length, out, mode);
  }
  int LoadPrivateKey() override {
    Note("LoadPrivateKey");
    return TypApiV2Signature::LoadPrivateKey();
  }
  int Signer(const unsigned char* data, std::uint32_t length, unsigned char* out,
             std::uint32_t* count) override {
    Note("Signer");
    return TypApiV2Signature::Signer(data, length, out, count);
  }
  int SignDigestSHA512(const unsigned char* digest, std::uint32_t length, unsigned char* out,
                       std::uint32_t* count) override {
    Note("SignDigestSHA512");
    return TypApiV2Signature::SignDigestSHA512(digest, length, out, count);
  }
  int DigestSHA512(const unsigned char* data, std::uint32_t length, unsigned char* out,
                   std::uint32_t* count) override {
    Note("DigestSHA512");
    return TypApiV2Signature::DigestSHA512(data, length, out, count);
  }
};

struct AskedVerifier : TypApiV2SignatureVerify {
  int DigestSHA512(const unsigned char* data, std::uint32_t length, unsigned char* out,
                   std::uint32_t* count) override {
    Note("verify DigestSHA512");
    return TypApiV2SignatureVerify::DigestSHA512(data, length, out, count);
  }
  int LoadPublicKey(const char* file_name) override {
    Note("LoadPublicKey", {file_name});
    return TypApiV2SignatureVerify::LoadPublicKey(file_name);
  }
};

struct AskedCell : TypV2BlockCell {
  int SetData(const char* name, const char* xml, const unsigned char* data,
              unsigned long long length) override {
    if (data != nullptr) Note("SetData", {name});
    return TypV2BlockCell::SetData(name, xml, data, length);
  }
  int GetFlatData(unsigned char** out, unsigned long long* count, unsigned char* digest) const override {
    Note("GetFlatData");
    return TypV2BlockCell::GetFlatData(out, count, digest);
  }
  int LoadFlatData(const unsigned char* flat, unsigned long long length) override {
    Note("LoadFlatData");
    return TypV2BlockCell::LoadFlatData(flat, length);
  }
};

struct Platform : TypV2InstanceCreatorUnix {
  TypApiV2Signature* newTypApiV2Signature() override { return new AskedSigner; }
  TypApiV2SignatureVerify* newTypApiV2SignatureVerify() override { return new AskedVerifier; }
  TypV2CryptoInterface* newTypV2CryptoInterface() override { return new AskedEnvelope; }
};

struct PlatformOfCells : TypV2InstanceCreatorUnix {
  TypV2BlockCell* newTypV2BlockCell() override { return new AskedCell; }
};

TEST(Platforms, SealingAndOpeningAskEveryOperation) {
  Platform platform;
  EnvelopeFolder folder(&platform);
  const std::string file = folder.File("file");
  WriteFile(file, "content");
  Letter letter;
  letter.reply_to = "reply";
  letter.ready = "<X/>";
  letter.subject = "subject";
  letter.text = "text";
  letter.attachments = file.c_str();
  Bytes block;
  std::string identifier;
  g_asked.clear();
  ASSERT_EQ(folder.Seal(letter, &block, &identifier), kOk);
  EXPECT_EQ(identifier, "ID");
  const std::string to = "a@x.example b@x.example c@x.example", rest = " reply subject 2026-05-06 10:11:12";
  const std::string who = " durand medecin " + to + rest, password = Letter::kHexPassword;
  const std::string signature =
      "GetSignatureXMLLight\nSigner\nLoadPrivateKey\nDigestSHA512\nSignDigestSHA512\n";
  EXPECT_EQ(g_asked, "GetRouge durand " + password + " medecin none " + to + rest + " <X/> text " + file +
                         "\nGetServiceXMLRoutage" + who + " <X/>\nGetIDMessage medecin " + to +
                         " subject\nLow_GetBasicServiceXML" + who + " ID 0 <X/>\n" + signature + "GetDF " +
                         file + "\n" + signature + signature + "GetVert durand " + password + "\nGetGris" +
                         who + "\nGetBasicServiceXML" + who + "\nLow_GetBasicServiceXML" + who +
                         " ID 1 \nGetPourHTTPS\n" + signature + "GetLastMessageID\n");
  // The signature is of the grey block as the subclass left it.
  const Cell transport = ReadFlatTree(block);
  EXPECT_TRUE(SignatureHolds(transport.xml, transport.data, folder.Certificate()));

  char *routing = nullptr, *found = nullptr;
  g_asked.clear();
  EXPECT_EQ(folder.envelope->ExtractRoutageOnlyFromHTTPSBlock(block.data(), block.size(), &routing, nullptr,
                                                              nullptr, &found),
            block::kDigestMismatch);
  std::free(found);
  EXPECT_EQ(g_asked, "ExtractVertFlatFromHTTPSBlock\nverify DigestSHA512\nLoadPublicKey " +
                         folder.signing_key + ".pem\n");
}

TEST(Platforms, APlatformsCellsAreAsked) {
  PlatformOfCells platform;
  EnvelopeFolder folder(&platform);
  Bytes block;
  g_asked.clear();
  ASSERT_EQ(folder.Seal(Letter(), &block), kOk);
  EXPECT_EQ(g_asked.substr(g_asked.find("GetFlatData")),
            "GetFlatData\nSetData KEST\nGetFlatData\nSetData DATA\nGetFlatData\nSetData AUTH\nGetFlatData\n");
  g_asked.clear();
  EXPECT_EQ(folder.Open(block).rc, kOk);
  EXPECT_EQ(g_asked, "LoadFlatData\nLoadFlatData\n");
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

struct PlatformOfSigners : TypV2InstanceCreatorUnix {
  TypApiV2Signature* newTypApiV2Signature() override { return new UnevenSigner; }
};

TEST(Platforms, LayersFitWhateverTheSignaturesTake) {
  PlatformOfSigners platform;
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

// Refuses one object of one class.
struct Scarce : TypV2InstanceCreatorUnix {
  int of = -1, nth = 0;
  template <class T>
  T* Give(int which, T* made) {
    if (which != of || nth-- != 0) return made;
    DeleteObject(made);
    return nullptr;
  }
  using Unix = TypV2InstanceCreatorUnix;
  TypV2FileRef* newTypV2FileRef() override { return Give(0, Unix::newTypV2FileRef()); }
  TypV2Utils* newTypV2Utils() override { return Give(1, Unix::newTypV2Utils()); }
  TypKeyUtils* newTypKeyUtils() override { return Give(2, Unix::newTypKeyUtils()); }
  TypV2BlockCell* newTypV2BlockCell() override { return Give(3, Unix::newTypV2BlockCell()); }
};

TEST(Platforms, AMessageForWhichAnObjectIsMissingIsNotSealed) {
  Scarce factory;
  EnvelopeFolder folder(&factory);
  WriteFile(folder.File("one"), "1");
  const std::string files = folder.File("one") + "|" + folder.File("one");
  Letter letter;
  letter.attachments = files.c_str();
  TypV2CryptoInterface base;  // its identifiers take an object, too
  ASSERT_EQ(base.InitCreate(&factory, folder.path().c_str(), folder.path().c_str()), kOk);
  const std::unique_ptr<TypV2CryptoInterface, void (*)(TypV2CryptoInterface*)> end(
      &base, [](TypV2CryptoInterface* it) { it->Kill(); });
  char password[] = "none", identifier[kMessageIdentifierBytes];
  const kestrune::Letter plain{.key_name = letter.key_name,
                               .hex_password = letter.hex_password,
                               .sender = letter.sender,
                               .signing_password = password,
                               .to = letter.to,
                               .subject = letter.subject,
                               .te = letter.te,
                               .text = letter.text,
                               .attachments = letter.attachments};
  for (const int of : {0, 1, 2, 3}) {
    for (TypV2CryptoInterface* const envelope : {folder.envelope.get(), &base}) {
      for (int nth = 0;; ++nth) {
        factory.of = of;
        factory.nth = nth;
        CBuffer block;
        const Result rc = block.Receive([&](unsigned char** bytes, unsigned long long* length) {
          return LetterSlots(envelope).CrypterSigner(plain, bytes, length, identifier);
        });
        if (factory.nth >= 0) {
          EXPECT_TRUE(rc == kOk && nth > 2) << of;
          break;
        }
        ASSERT_EQ(rc, kNoObject) << of << " " << nth;
        ASSERT_FALSE(block);
      }
    }
  }
}

TEST(Platforms, TheCellIsMadeBeforeRoutingAndSignature) {
  Scarce factory;
  EnvelopeFolder folder(&factory);
  Owned<TypApiV2Signature> nobody(factory.newTypApiV2Signature());
  char password[] = "none";
  ASSERT_EQ(nobody.Init(&factory, "nobody", folder.path().c_str(), password), kOk);
  const unsigned char byte = 0;
  unsigned char* out = nullptr;
  unsigned long long length = 0;
  for (const bool is_missing : {true, false}) {
    factory.of = is_missing ? 3 : -1;
    factory.nth = 0;
    EXPECT_EQ(folder.envelope->GetGris("k", "s", "", "", "", "", "", "", &byte, 1, &out, &length),
              is_missing ? kNoObject : envelope::kNoRecipient);
    factory.nth = 0;
    EXPECT_EQ(folder.envelope->GetPourHTTPS(nobody.get(), &byte, 1, &out, &length),
              is_missing ? kNoObject : signer::kNoKeyFile);
  }
}

}  // namespace
}  // namespace kestrune::testing
