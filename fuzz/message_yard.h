// Fixed keys and an envelope for the fuzz targets of messages. One target, one source: the trap's replacement
// stands here.
#ifndef KESTRUNE_FUZZ_MESSAGE_YARD_H
#define KESTRUNE_FUZZ_MESSAGE_YARD_H

#include <cstdint>
#include <string>

#include "blocks/block_cell.h"
#include "core/instance_creator.h"
#include "core/owned.h"
#include "core/result.h"
#include "envelope/crypto_interface.h"
#include "keys/trap.h"
#include "sign/signature.h"
#include "tests/support/sealed_message.h"

using namespace kestrune;
using namespace kestrune::testing;

void kestrune::SleepForEver() {}

struct MessageYard : MessageFolder {
  TypV2InstanceCreatorUnix creator;
  Owned<TypV2CryptoInterface> envelope{creator.newTypV2CryptoInterface()};
  Owned<TypApiV2Signature> signer{creator.newTypApiV2Signature()};
  char password[5] = "none";

  MessageYard() {
    // The saved inputs name the keys of one year.
    WriteFile(File("durand.226"), personal.File());
    WriteFile(File("Master.226"), master.File());
    WriteFile(File("medecin.z.126.pem"), ReadFile(DataPath("rsa2048.pem")));
    (void)envelope.Init(&creator, path().c_str(), path().c_str());
    AddSigningKey("rsa1024", "rapide");  // a short key, for many signatures
    (void)signer.Init(&creator, "rapide", path().c_str(), password);
  }

  Bytes Sign(const Bytes& grey) {
    CBuffer block;
    (void)block.Receive([&](unsigned char** bytes, unsigned long long* length) {
      return envelope->GetPourHTTPS(signer.get(), grey.data(), grey.size(), bytes, length);
    });
    return Bytes(block.data(), block.data() + block.size());
  }

  void OpenTransport(const Bytes& block) {
    CBuffer green, routing, signature;
    char *routing_text = nullptr, *signature_text = nullptr;
    char key_reference[kKeyReferenceBytes] = "", signer_name[kSignerNameBytes] = "";
    const Result rc = green.Receive([&](unsigned char** bytes, unsigned long long* length) {
      return envelope->ExtractVertFlatFromHTTPSBlock(block.data(), block.size(), &routing_text, key_reference,
                                                     signer_name, bytes, length, &signature_text);
    });
    routing.AdoptText(routing_text);
    signature.AdoptText(signature_text);
    if (rc != kOk) return;
    TypV2BlockCell* tree = nullptr;
    (void)envelope->DeCrypterVertFlat(green.data(), green.size(), key_reference,
                                      personal.hex_password.c_str(), &tree);
    (void)Adopted(tree);
  }

  void LoadRed(const Bytes& kest) {
    TypV2BlockCell* tree = nullptr;
    (void)envelope->LoadRedFromUncryptedVertFlat(kest.data(), kest.size(), &tree);
    (void)Adopted(tree);
  }
};

#endif
