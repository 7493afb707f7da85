// Fixed keys and an envelope for the fuzz targets of messages, all in memory but the certificate. One target, one source:
// the trap's replacement stands here.
#ifndef KESTRUNE_FUZZ_MESSAGE_YARD_H
#define KESTRUNE_FUZZ_MESSAGE_YARD_H

#include <cstdint>
#include <string>

#include "blocks/block_cell.h"
#include "core/owned.h"
#include "core/result.h"
#include "envelope/crypto_interface.h"
#include "fuzz/expect.h"
#include "fuzz/known_key.h"
#include "fuzz/memory_files.h"
#include "fuzz/short_key.h"
#include "keys/trap.h"
#include "sign/signature.h"
#include "sign/signature_verify.h"
#include "tests/support/sealed_message.h"

using namespace kestrune;
using namespace kestrune::testing;

void kestrune::SleepForEver() {}

// Every text has the digest of "signed", so that one signature serves for all.
struct KnownDigestVerifier : TypApiV2SignatureVerify {
  int DigestSHA512(const unsigned char*, std::uint32_t, unsigned char* digest,
                   std::uint32_t* length) override {
    static const std::string known = Sha512("signed");
    known.copy(reinterpret_cast<char*>(digest), known.size());
    *length = static_cast<std::uint32_t>(known.size());
    return kOk;
  }
};

// The saved inputs name the keys of one year.
struct MessageYard : MemoryFiles {
  PersonalKey personal;
  MasterKey master;
  TempFolder folder;
  std::string signature;
  Owned<TypV2CryptoInterface> envelope;
  std::string key_reference;  // of the last transport block; empty: none

  MessageYard() {
    files[folder.File("durand.226")] = personal.File();
    OpenIvArea(files[folder.File("durand.226")], personal.hex_password);
    files[folder.File("Master.226")] = master.File();
    ShortKey key;
    key.name = "medecin.z.126";
    signature = key.Sign("signed");
    key.WriteFiles(folder);
    envelope = Owned<TypV2CryptoInterface>(newTypV2CryptoInterface());
    Expect(envelope.Init(this, folder.path().c_str(), folder.path().c_str()) == kOk);
    Expect(OpenTransport(Sign(FlatLeaf("DATA", "<M><C>durand.226</C></M>", {1}))) == cipher::kNoInput);
  }
  TypV2KestruneKey* newTypV2KestruneKey() override { return new KnownKey; }
  TypApiV2SignatureVerify* newTypApiV2SignatureVerify() override { return new KnownDigestVerifier; }

  Bytes Sign(const Bytes& grey) const { return FlatLeaf("AUTH", signature, grey); }

  Result OpenTransport(const Bytes& block) {
    CBuffer green, routing, block_signature;
    char *routing_text = nullptr, *signature_text = nullptr;
    char reference[kKeyReferenceBytes] = "", signer_name[kSignerNameBytes] = "";
    Result rc = green.Receive([&](unsigned char** bytes, unsigned long long* length) {
      return envelope->ExtractVertFlatFromHTTPSBlock(block.data(), block.size(), &routing_text, reference,
                                                     signer_name, bytes, length, &signature_text);
    });
    key_reference = reference;
    routing.AdoptText(routing_text);
    block_signature.AdoptText(signature_text);
    Expect((rc == kOk) == (routing_text != nullptr || reference[0] != 0));
    if (rc != kOk) return rc;
    TypV2BlockCell* tree = nullptr;
    rc = envelope->DeCrypterVertFlat(green.data(), green.size(), reference, personal.hex_password.c_str(),
                                     &tree);
    (void)Adopted(tree);
    return rc;
  }

  // Both readings of a grey block give the same routing.
  void OpenGrey(const Bytes& grey) {
    CBuffer routing, again, green;
    char* text = nullptr;
    const Result rc = routing.ReceiveText(
        [&](char** xml) { return envelope->ExtractRoutageOnlyFromGrisBlock(grey.data(), grey.size(), xml); });
    const Result with_green = green.Receive([&](unsigned char** bytes, unsigned long long* length) {
      return envelope->ExtractVertFromGrisBlock(grey.data(), grey.size(), &text, bytes, length);
    });
    again.AdoptText(text);
    Expect(rc == with_green && (!routing) == (!again));
    if (routing) Expect(std::string(routing.text()) == again.text());
  }

  void LoadRed(const Bytes& kest) {
    TypV2BlockCell* tree = nullptr;
    (void)envelope->LoadRedFromUncryptedVertFlat(kest.data(), kest.size(), &tree);
    (void)Adopted(tree);
  }
};

#endif
