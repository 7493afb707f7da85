// What is refused, and what else holds a secret for a while.
#include <kestrune/kestrune.h>

#include <array>
#include <string>
#include <utility>

#include "blocks/block_cell.h"
#include "blocks/v1_structure.h"
#include "campaigns/leftover_trial.h"
#include "core/instance_creator.h"
#include "core/owned.h"
#include "core/result.h"
#include "crypto/classic.h"
#include "keys/kestrune_key.h"
#include "keys/message_cipher.h"
#include "tests/support/process.h"

namespace kestrune::testing {
namespace {

// A message on its way, and the same damaged in its middle, with trailers that are right.
struct OnItsWay {
  Bytes block, grey, damaged;
  Bytes body;  // what is under the pads
};

OnItsWay Seal(const MarkedYard& yard) {
  const Text phrase(kSignerPhrase), identifier;
  CBuffer sealed;
  sealed.Receive([&](auto** bytes, auto* length) {
    return static_cast<int>(Api2CrypterMem(yard.letter.c_str(), yard.attachment.c_str(), "durand", "protege",
                                           kUserPhrase, phrase.get(), yard.path().c_str(), "a@x.example", "",
                                           "", "", "s", "2026-05-06 10:11:12", bytes, length,
                                           identifier.get(), 0));
  });
  OnItsWay all;
  all.block.assign(sealed.data(), sealed.data() + sealed.size());
  const Layers layers = TakeApart(all.block, yard.pads());
  all.grey = layers.transport.data;
  all.body = layers.grey.data;
  all.damaged = all.grey;
  all.damaged[all.damaged.size() / 2] ^= 1;
  all.damaged.resize(all.damaged.size() - kSha512Bytes);
  SealAgain(all.damaged);
  return all;
}

void RefusedSealing(const MarkedYard& yard, Trial* trial) {
  const Text identifier, phrase(kSignerPhrase), wrong("faux");
  const auto seal = [&](const char* user, const Text& signer) {
    CBuffer block;
    return static_cast<long>(block.Receive([&](auto** bytes, auto* length) {
      return static_cast<int>(Api2CrypterMem(yard.letter.c_str(), yard.attachment.c_str(), "durand",
                                             "protege", user, signer.get(), yard.path().c_str(),
                                             "a@x.example", "", "", "", "s", "2026-05-06 10:11:12", bytes,
                                             length, identifier.get(), 0));
    }));
  };
  trial->Run("sealing with a wrong pass phrase", key::kCheckFailed, [&] { return seal("faux", phrase); });
  trial->Run("sealing with a wrong pass phrase of the signer", signer::kWrongPassword,
             [&] { return seal(kUserPhrase, wrong); });
}

void Opening(const MarkedYard& yard, const OnItsWay& sealed, Trial* trial) {
  const char* const folder = yard.path().c_str();
  kestrune_message* message = nullptr;
  const auto open = [&](const Bytes& grey, const char* phrase) {
    const long rc = kestrune_open_message(grey.data(), grey.size(), folder, phrase, &message);
    kestrune_free_message(message);
    return rc;
  };
  trial->Run("opening and freeing a message", kOk, [&] { return open(sealed.grey, kUserPhrase); });
  trial->Run("opening a message with a wrong pass phrase", key::kCheckFailed,
             [&] { return open(sealed.grey, "faux"); });
  trial->Run("opening a damaged message", block::kForkPastEnd,
             [&] { return open(sealed.damaged, kUserPhrase); });
  trial->Run("opening a damaged message as text", block::kForkPastEnd, [&] {
    SecretCBuffer xml;
    return static_cast<long>(xml.ReceiveText([&](char** out) {
      return static_cast<int>(
          Api2DecrypterGrisMem(sealed.damaged.data(), sealed.damaged.size(), folder, kUserPhrase, out));
    }));
  });
  trial->Run("opening a tree, and taking it apart", kOk, [&] {
    TypV2BlockCell* red = nullptr;
    long rc = kestrune_open_tree(sealed.grey.data(), sealed.grey.size(), folder, kUserPhrase, &red);
    if (rc == kOk) rc = kestrune_take_apart(red, folder, &message);
    kestrune_free_message(message);
    Api2FreeRedBlock(red);
    return rc;
  });
  trial->Run("an opened message as the first structure", kOk, [&] {
    TypV2BlockCell* red = nullptr;
    long rc = kestrune_open_tree(sealed.grey.data(), sealed.grey.size(), folder, kUserPhrase, &red);
    TypV2InstanceCreatorUnix creator;
    Owned<TypV1SimpleStruc> structure(creator.newTypV1SimpleStruc());
    if (rc == kOk) rc = structure.Init();
    if (rc == kOk) rc = red->ExportBlockAsV1Struct(structure.get());
    structure.Reset();
    Api2FreeRedBlock(red);
    return rc;
  });
}

void PrivateKeys(const MarkedYard& yard, Trial* trial) {
  const std::string open_key = yard.File(yard.open_name + ".key"),
                    protected_key = yard.File(yard.protected_name + ".key");
  const auto read = [](const std::string& path, const char* phrase) {
    rsa_context key;
    return static_cast<long>(x509parse_keyfile(&key, path.c_str(), phrase));
  };
  trial->Run("reading a private key", kOk, [&] { return read(open_key, nullptr); });
  trial->Run("reading a protected key", kOk, [&] { return read(protected_key, kSignerPhraseOnFile); });
  trial->Run("reading a protected key, wrong pass phrase", ERR_X509_KEY_PASSWORD_MISMATCH,
             [&] { return read(protected_key, kUserPhrase); });
  const std::string pkcs8 = yard.File("pkcs8.key");
  for (const char* way : {"-v2 des3", "-v1 PBE-SHA1-3DES"}) {
    const std::string given(way);
    const std::size_t blank = given.find(' ');
    RunOpenssl({"pkcs8", "-topk8", "-in", open_key, "-out", pkcs8, "-passout",
                std::string("pass:") + kSignerPhraseOnFile, given.substr(0, blank), given.substr(blank + 1)});
    trial->Run("reading PKCS#8, " + given, kOk, [&] { return read(pkcs8, kSignerPhraseOnFile); });
    trial->Run("reading PKCS#8 with a wrong pass phrase, " + given, ERR_X509_KEY_PASSWORD_MISMATCH,
               [&] { return read(pkcs8, kUserPhrase); });
  }
  trial->Run("writing a private key", kOk, [&] {
    rsa_context key;
    const Text pem;
    std::size_t length = kOutBytes;
    const int rc = x509parse_keyfile(&key, open_key.c_str(), nullptr);
    return static_cast<long>(rc == 0 ? rsa_write_key(&key, kSignerPhrase, pem.get(), &length) : rc);
  });
}

void Forms(const MarkedYard& yard, Trial* trial) {
  const Text form, out;
  Api2AesPub(yard.short_text.c_str(), (yard.protected_name + ".pem").c_str(), yard.path().c_str(), form.get(),
             0);
  trial->Run("deciphering for a holder, wrong pass phrase", hybrid::kKeyUnreadable,
             [&] { return Api2DeAesPriv(form.get(), "faux", yard.path().c_str(), out.get(), 0); });
  std::string damaged = form.get();
  damaged[damaged.find("<S>") + 20] ^= 1;
  trial->Run("deciphering for a holder, damaged", hybrid::kDecrypt, [&] {
    return Api2DeAesPriv(damaged.c_str(), kSignerPhrase, yard.path().c_str(), out.get(), 0);
  });
}

// The key that a pass phrase stands for, and what it opens, as a program of its own has them.
void PersonalKeys(const MarkedYard& yard, const OnItsWay& sealed, Trial* trial) {
  TypV2InstanceCreatorUnix creator;
  const char* const folder = yard.path().c_str();
  const auto open = [&](TypV2KestruneKey* key, const char* hex) {
    return static_cast<long>(key->InitCreate(&creator, "durand", 1, folder, hex, kReadExisting));
  };
  const auto take = [](TypV2KestruneKey* key) {
    SecretCBuffer run;
    SecretArray<32> password;
    unsigned long long offset = 0;
    unsigned char* bytes = nullptr;
    const long rc = key->GetLineaKey(&bytes, 5000, &offset);
    run.Adopt(bytes, 5000);
    return rc == kOk ? static_cast<long>(key->GetOTPassword(password.data(), &offset)) : rc;
  };
  trial->Run("a personal key", kOk, [&] {
    Owned<TypV2KestruneKey> key(creator.newTypV2KestruneKey());
    const long rc = open(key.get(), yard.hex.c_str());
    return rc == kOk ? take(key.get()) : rc;
  });
  const std::string wrong = HexPassword("faux");
  trial->Run("a personal key, wrong password", key::kCheckFailed, [&] {
    Owned<TypV2KestruneKey> key(creator.newTypV2KestruneKey());
    return open(key.get(), wrong.c_str());
  });
  trial->Run("a body", kOk, [&] {
    TypKestruneV2 cipher;
    SecretCBuffer clear;
    const std::string name = "durand." + PersonalKeyYear();
    long rc = cipher.InitCreate(&creator, "durand", folder, yard.hex.c_str());
    if (rc != kOk) return rc;
    rc = clear.Receive([&](auto** bytes, auto* length) {
      return cipher.Low_decrypter(sealed.body.data(), sealed.body.size(), name.c_str(), yard.hex.c_str(),
                                  bytes, length);
    });
    cipher.ZeroPassword();
    return rc;
  });
}

void MailTexts(const MarkedYard& yard, Trial* trial) {
  const std::string lines = yard.letter.substr(0, 400) + "\n" + yard.letter.substr(0, 400) + "\n";
  for (const auto& [name, function] :
       {std::pair{"limite78", &limite78}, std::pair{"limite78simple", &limite78simple},
        std::pair{"enleverlf", &enleverlf}}) {
    const Text text(lines);
    trial->Run(name, kOk, [&, call = function] { return call(text.get()), 0L; });
  }
  trial->Run("quoted printable", kOk, [&] {
    SecretCBuffer out;
    unsigned long long length = 0;
    return static_cast<long>(out.ReceiveText(
        [&](char** text) { return api2encodeQuotedPrintable(lines.c_str(), lines.size(), text, &length); }));
  });
}

}  // namespace

void OtherLeftovers(MarkedYard& yard, Trial* trial) {
  const OnItsWay sealed = Seal(yard);
  RefusedSealing(yard, trial);
  Opening(yard, sealed, trial);
  PrivateKeys(yard, trial);
  Forms(yard, trial);
  PersonalKeys(yard, sealed, trial);
  MailTexts(yard, trial);
}

}  // namespace kestrune::testing
