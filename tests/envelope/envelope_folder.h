// An envelope over a folder of keys, and a message to seal with it.
#ifndef KESTRUNE_TESTS_ENVELOPE_ENVELOPE_FOLDER_H
#define KESTRUNE_TESTS_ENVELOPE_ENVELOPE_FOLDER_H

#include <gtest/gtest.h>

#include <string>

#include "blocks/block_cell.h"
#include "core/instance_creator.h"
#include "core/owned.h"
#include "core/result.h"
#include "envelope/crypto_interface.h"
#include "sign/signature.h"
#include "tests/support/sealed_message.h"

namespace kestrune::testing {

inline Bytes ToBytes(const CBuffer& buffer) {
  return Bytes(buffer.data(), buffer.data() + buffer.size());
}

// The arguments of CrypterSigner.
struct Letter {
  static inline const std::string kHexPassword = HexPassword("a_b_c_d");
  const char *key_name = "durand", *hex_password = kHexPassword.c_str();
  const char *sender = "medecin", *signing_password = "none";
  const char *to = "a@x.example", *cc = "b@x.example", *bcc = "c@x.example", *reply_to = nullptr;
  const char *subject = "Résultats d'analyse", *te = "2026-05-06 10:11:12", *ready = nullptr;
  const char *text = "Cher confrère,\nl'été dernier, à Noël : \"cœur\" <b>&</b>", *attachments = nullptr;
};

struct EnvelopeFolder : MessageFolder {
  EnvelopeFolder() { Use(&unix_creator); }
  explicit EnvelopeFolder(TypV2InstanceCreator* creator) { Use(creator); }
  void Use(TypV2InstanceCreator* creator) {
    envelope = Owned<TypV2CryptoInterface>(creator->newTypV2CryptoInterface());
    EXPECT_EQ(envelope.Init(creator, path().c_str(), path().c_str()), kOk);
  }

  Result Seal(const Letter& letter, Bytes* block, std::string* identifier = nullptr) {
    CBuffer sealed;
    char made[kMessageIdentifierBytes] = "";
    std::string password = letter.signing_password;
    const Result rc = sealed.Receive([&](auto** bytes, auto* length) {
      return envelope->CrypterSigner(letter.key_name, letter.hex_password, letter.sender, password.data(),
                                     letter.to, letter.cc, letter.bcc, letter.reply_to, letter.subject,
                                     letter.te, letter.ready, letter.text, letter.attachments, nullptr, bytes,
                                     length, made);
    });
    *block = ToBytes(sealed);
    if (identifier != nullptr) *identifier = made;
    return rc;
  }

  // The transport block around any grey block, signed by the sender.
  Bytes Sign(const Bytes& grey) {
    Owned<TypApiV2Signature> signer(unix_creator.newTypApiV2Signature());
    char password[] = "none";
    EXPECT_EQ(signer.Init(&unix_creator, "medecin", path().c_str(), password), kOk);
    CBuffer block;
    const Result rc = block.Receive([&](auto** bytes, auto* length) {
      return envelope->GetPourHTTPS(signer.get(), grey.data(), grey.size(), bytes, length);
    });
    EXPECT_EQ(rc, kOk);
    return ToBytes(block);
  }

  // What opening a transport block gives.
  struct Opened {
    Result rc;
    CBuffer routing, green, signature;
    char key_reference[kKeyReferenceBytes] = "", signer[kSignerNameBytes] = "";
  };
  Opened Open(const Bytes& block, bool with_reference = true) {
    Opened opened;
    char *routing = nullptr, *signature = nullptr;
    opened.rc = opened.green.Receive([&](auto** bytes, auto* length) {
      return envelope->ExtractVertFlatFromHTTPSBlock(block.data(), block.size(), &routing,
                                                     with_reference ? opened.key_reference : nullptr,
                                                     opened.signer, bytes, length, &signature);
    });
    opened.routing.AdoptText(routing);
    opened.signature.AdoptText(signature);
    return opened;
  }

  TypV2InstanceCreatorUnix unix_creator;
  Owned<TypV2CryptoInterface> envelope;
};

}  // namespace kestrune::testing

#endif
