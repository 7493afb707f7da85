// Signing, verifying, key files, ciphers, files.
#include <kestrune/kestrune.h>

#include <array>
#include <cstdlib>
#include <memory>

#include "campaigns/operation.h"
#include "core/file_ref.h"
#include "core/instance_creator.h"
#include "core/random.h"
#include "core/utils.h"
#include "crypto/classic.h"
#include "keys/install_cipher.h"
#include "keys/kestrune_key.h"
#include "keys/master_key.h"
#include "keys/message_cipher.h"
#include "sign/signature.h"
#include "sign/signature_verify.h"
#include "tests/keys/keys_folder.h"
#include "tests/support/key_folder.h"
#include "tests/support/process.h"

namespace kestrune::testing {
namespace {

constexpr char kPassword[] = "a_b_c_d";
constexpr std::size_t kTextRoom = 16384;
const std::string kText = "Le patient va bien; l'ordonnance suit demain matin.";

// Key files of every kind, and what was made with them.
struct Yard : KeysFolder {
  KeyFolder signing;
  std::string signer = signing.AddSigningKey("rsa1024-protected", "medecin");
  std::string reader = signing.AddSigningKey("rsa1024", "lecteur");
  std::string certificate = reader + ".pem";
  std::string hex = personal.hex_password;
  std::string pkcs8 = File("pkcs8.key");
  std::string clear = File("clear"), form_file = File("form"), installation = File("installation"),
              output = File("output");
  std::string key_in_hex = std::string(64, 'A');
  std::string recoverable, signature, form, public_form;
  Bytes sealed;
  TypV2InstanceCreatorUnix creator;

  Yard() {
    RunOpenssl({"pkcs8", "-topk8", "-in", DataPath("rsa1024.key"), "-out", pkcs8, "-passout", "pass:a_b_c_d",
                "-v2", "des3"});
    std::string room(kTextRoom, 0), password = kPassword;
    Api2GetSignatureXMLLight(kText.c_str(), "medecin", password.data(), signing.path().c_str(), room.data());
    recoverable = room.c_str();
    Owned<TypApiV2Signature> object(creator.newTypApiV2Signature());
    if (object.Init(&creator, "medecin", signing.path().c_str(), password.data()) == kOk) {
      object->GetSignatureXMLLight(Data(), static_cast<std::uint32_t>(kText.size()), room.data(), 1);
    }
    signature = room.c_str();
    Api2Aes(kText.c_str(), hex.c_str(), 0, room.data(), 0);
    form = room.c_str();
    Api2AesPub(kText.c_str(), certificate.c_str(), signing.path().c_str(), room.data(), 0);
    public_form = room.c_str();
    WriteFile(clear, kText);
    WriteFile(form_file, form);
    TypV2AESInstallKeys cipher;
    cipher.InitCreate(&creator);
    cipher.Chiffrerfichier(clear.c_str(), installation.c_str(), key_in_hex.c_str());
    SealBody(&sealed);
  }

  static const unsigned char* Data() { return reinterpret_cast<const unsigned char*>(kText.data()); }

  long SealBody(Bytes* body) {
    Owned<TypKestruneV2> cipher;
    CBuffer out;
    const long rc = Watch([&] {
      cipher = Owned<TypKestruneV2>(creator.newTypKestruneV2());
      if (const Result failed = cipher.Init(&creator, "cle", path().c_str(), hex.c_str()); failed != kOk)
        return failed;
      return out.Receive([&](auto** bytes, auto* length) {
        return cipher->Low_crypter(Data(), kText.size(), bytes, length);
      });
    });
    body->assign(out.data(), out.data() + out.size());
    return rc;
  }

  std::string OpenBody(const Bytes& body, bool watched, long* rc) {
    Owned<TypKestruneV2> cipher;
    SecretCBuffer out;
    const auto open = [&] {
      cipher = Owned<TypKestruneV2>(creator.newTypKestruneV2());
      if (const Result failed = cipher.Init(&creator, "cle", path().c_str(), ""); failed != kOk) {
        return static_cast<long>(failed);
      }
      return static_cast<long>(out.Receive([&](auto** bytes, auto* length) {
        return cipher->Low_decrypter(body.data(), body.size(), personal_name.c_str(), hex.c_str(), bytes,
                                     length);
      }));
    };
    *rc = watched ? Watch(open) : open();
    return std::string(out.data(), out.data() + out.size());
  }
};
using SharedYard = std::shared_ptr<Yard>;

// An entry point that writes a text into a buffer of the caller's.
template <class Call>
Outcome TextOf(Call&& call) {
  std::string room(kTextRoom, 0);
  const long rc = Watch([&] { return call(room.data()); });
  return {rc, std::string(room.c_str())};
}

std::string ContentOf(const std::string& path) {
  return FileExists(path) ? ToText(ReadFile(path)) : std::string();
}

std::vector<Operation> SigningOperations(const SharedYard& yard) {
  const auto folder = [yard] { return yard->signing.path().c_str(); };
  return {
      {"BuildHexPassword",
       [] {
         return TextOf([](char* out) {
           return BuildHexPassword(reinterpret_cast<const unsigned char*>(kPassword),
                                   reinterpret_cast<unsigned char*>(out));
         });
       }},
      {"Api2GetSignatureXMLLight",
       [=] {
         std::string password = kPassword;
         return TextOf([&](char* out) {
           return Api2GetSignatureXMLLight(kText.c_str(), "medecin", password.data(), folder(), out);
         });
       },
       {signer::kKeyUnreadable, signer::kSign}},
      {"Api2ExtractFromSignature",
       [=] {
         Outcome made = TextOf([&](char* out) {
           return Api2ExtractFromSignature(yard->recoverable.c_str(), folder(), out, 0);
         });
         if (made.output == "<ERR>" + std::to_string(made.rc) + "</ERR>")
           made.output.clear();  // an answer too
         return made;
       },
       {verifier::kCertificate, verifier::kBadSignature}},
      {"TypApiV2Signature",
       [=] {
         Owned<TypApiV2Signature> object;
         std::string password = kPassword;
         const auto sign = [&](char* out) {
           return object->GetSignatureXMLLight(Yard::Data(), static_cast<std::uint32_t>(kText.size()), out,
                                               1);
         };
         Outcome made = TextOf([&](char* out) {
           object = Owned<TypApiV2Signature>(yard->creator.newTypApiV2Signature());
           const Result rc = object.Init(&yard->creator, "medecin", folder(), password.data());
           return rc == kOk ? sign(out) : rc;
         });
         // A key that was loaded serves the next call all the same.
         std::string room(kTextRoom, 0);
         if (made.rc == signer::kSign && sign(room.data()) != kOk) made.rc = kSpoiled;
         return made;
       },
       {signer::kKeyUnreadable, signer::kSign}},
      {"TypApiV2SignatureVerify",
       [=] {
         Owned<TypApiV2SignatureVerify> object;
         return TextOf([&](char* name) {
           object = Owned<TypApiV2SignatureVerify>(yard->creator.newTypApiV2SignatureVerify());
           if (const Result rc = object.Init(&yard->creator, folder()); rc != kOk) return rc;
           const Result rc = object->VerifySignAndIntegrityDataFromXMLSignBlock(
               yard->signature.c_str(), Yard::Data(), kText.size(), name);
           if (rc != kOk) *name = 0;  // named before it is proven, as documented
           return rc;
         });
       },
       {verifier::kCertificate, verifier::kBadSignature}},
      {"TypKeyUtils::GetSignPrivateKey",
       [=] {
         Owned<TypKeyUtils> object;
         return TextOf([&](char* found) {
           object = Owned<TypKeyUtils>(yard->creator.newTypKeyUtils());
           const Result rc = object.Init(&yard->creator);
           return rc == kOk ? object->GetSignPrivateKey("medecin", folder(), found) : rc;
         });
       }},
      {"x509parse_keyfile, PKCS#8",
       [=] {
         rsa_context key;
         const long rc = Watch([&] { return x509parse_keyfile(&key, yard->pkcs8.c_str(), kPassword); });
         return Outcome{rc, std::string(key.len(), 'n')};
       },
       {ERR_NO_MEMORY, ERR_X509_KEY_INVALID}},
      {"x509parse_keyfile, another pass phrase",
       [=] {
         rsa_context key;
         const long rc = Watch([&] { return x509parse_keyfile(&key, yard->pkcs8.c_str(), "1"); });
         return Outcome{rc, std::string(key.len(), 'n')};
       },
       {ERR_NO_MEMORY, ERR_X509_KEY_INVALID},
       {},
       "",
       ERR_X509_KEY_PASSWORD_MISMATCH},
  };
}

std::vector<Operation> CipherOperations(const SharedYard& yard) {
  const auto aes_file = [yard](const std::string& input, int mode) {
    std::remove(yard->output.c_str());
    std::srand(1);  // where the initial vector comes from
    const long rc = Watch([&] {
      return Api2AesFile(input.c_str(), yard->output.c_str(), yard->hex.c_str(), yard->hex.c_str(), mode, 0);
    });
    return Outcome{rc, ContentOf(yard->output)};
  };
  const auto install = [yard](bool encipher) {
    std::remove(yard->output.c_str());
    TypV2AESInstallKeys cipher;
    cipher.InitCreate(&yard->creator);
    const std::string& input = encipher ? yard->clear : yard->installation;
    const long rc = Watch([&] {
      return encipher
                 ? cipher.Chiffrerfichier(input.c_str(), yard->output.c_str(), yard->key_in_hex.c_str())
                 : cipher.DeChiffrerfichier(input.c_str(), yard->output.c_str(), yard->key_in_hex.c_str());
    });
    return Outcome{rc, ContentOf(yard->output)};
  };
  return {
      {"Api2Aes, enciphering",
       [=] {
         std::srand(1);
         return TextOf([&](char* out) { return Api2Aes(kText.c_str(), yard->hex.c_str(), 0, out, 0); });
       }},
      {"Api2Aes, deciphering",
       [=] {
         return TextOf([&](char* out) { return Api2Aes(yard->form.c_str(), yard->hex.c_str(), 1, out, 0); });
       }},
      {"Api2AesFile, enciphering", [=] { return aes_file(yard->clear, 0); }, {file::kOpen}},
      {"Api2AesFile, deciphering", [=] { return aes_file(yard->form_file, 1); }, {file::kOpen}},
      {"Api2AesFile, another password", [=] { return aes_file(yard->form_file, 2); }, {file::kOpen}},
      {"Api2AesFile, in place",
       [=] {
         WriteFile(yard->output, yard->form);
         std::srand(1);
         const long rc = Watch([&] {
           return Api2AesFile(yard->output.c_str(), yard->output.c_str(), yard->hex.c_str(),
                              yard->key_in_hex.c_str(), 2, 0);
         });
         return Outcome{rc, (rc == kOk ? "" : "old: ") + ContentOf(yard->output)};
       },
       {file::kOpen},
       {"old: " + yard->form},
       "the old content stands, whatever fails"},
      {"Api2AesPub",
       [=] {
         Outcome made = TextOf([&](char* out) {
           return Api2AesPub(kText.c_str(), yard->certificate.c_str(), yard->signing.path().c_str(), out, 0);
         });
         if (made.rc != kOk) return made;
         // The padding is drawn: what counts is what its reader reads.
         std::string text(kTextRoom, 0);
         Api2DeAesPriv(made.output.c_str(), nullptr, yard->signing.path().c_str(), text.data(), 0);
         return Outcome{made.rc, text.c_str()};
       },
       {hybrid::kEncrypt}},
      {"Api2DeAesPriv",
       [=] {
         return TextOf([&](char* out) {
           return Api2DeAesPriv(yard->public_form.c_str(), nullptr, yard->signing.path().c_str(), out, 0);
         });
       },
       {hybrid::kKeyUnreadable, hybrid::kDecrypt}},
      {"TypV2AESInstallKeys, enciphering", [=] { return install(true); }, {file::kOpen, file::kWrite}},
      {"TypV2AESInstallKeys, deciphering", [=] { return install(false); }, {file::kOpen, file::kWrite}},
      {"TypKestruneV2::Low_crypter",
       [=] {
         yard->Write();
         Bytes body;
         Outcome made{yard->SealBody(&body), ""};
         long opened = 0;
         if (!body.empty()) made.output = yard->OpenBody(body, false, &opened);
         return made;
       },
       {file::kOpen, key::kCheckFailed}},
      {"TypKestruneV2::Low_decrypter",
       [=] {
         long rc = 0;
         const std::string body = yard->OpenBody(yard->sealed, true, &rc);
         return Outcome{rc, body};
       },
       {file::kOpen, key::kCheckFailed}},
  };
}

std::vector<Operation> KeyFileOperations(const SharedYard& yard) {
  return {
      {"TypV2KestruneKey",
       [=] {
         yard->Write();
         Owned<TypV2KestruneKey> key;
         SecretCBuffer run;
         std::array<unsigned char, 32> password{};
         const long rc = Watch([&] {
           key = Owned<TypV2KestruneKey>(yard->creator.newTypV2KestruneKey());
           if (const Result failed =
                   key.Init(&yard->creator, "cle", 1L, yard->path().c_str(), yard->hex.c_str(), 1ULL);
               failed != kOk) {
             return failed;
           }
           unsigned long long offset = 0;
           unsigned char* bytes = nullptr;
           const Result failed = key->GetLineaKey(&bytes, 5000, &offset);
           run.Adopt(bytes, 5000);
           return failed == kOk ? key->GetOTPassword(password.data(), &offset) : failed;
         });
         if (rc != kOk) return Outcome{rc, ""};
         return Outcome{rc, std::string(run.data(), run.data() + run.size()) +
                                std::string(password.begin(), password.end())};
       },
       {file::kOpen, key::kCheckFailed}},
      {"TypV2KestruneKey::InitCreate",
       [=] {
         Owned<TypV2KestruneKey> key;
         const long rc = Watch([&] {
           key = Owned<TypV2KestruneKey>(yard->creator.newTypV2KestruneKey());
           return key.Init(&yard->creator, "cle", 1L, yard->path().c_str(), yard->hex.c_str(), 0ULL);
         });
         return Outcome{rc, rc == kOk && key->LoadHeader() == kOk ? "open" : ""};
       },
       {file::kOpen, key::kCheckFailed},
       {""},
       "a factory without an object for it ends the call with 0 and nothing opened; every later call is -96"},
      {"TypV2MasterKey",
       [=] {
         yard->Write();
         Owned<TypV2MasterKey> key;
         SecretCBuffer run;
         const long rc = Watch([&] {
           key = Owned<TypV2MasterKey>(yard->creator.newTypV2MasterKey());
           if (const Result failed = key.Init(&yard->creator, yard->path().c_str(), nullptr, 1ULL);
               failed != kOk) {
             return failed;
           }
           unsigned long long offset = 0;
           unsigned char* bytes = nullptr;
           const Result failed = key->GetLineaKey(&bytes, 5000, &offset);
           run.Adopt(bytes, 5000);
           return failed;
         });
         return Outcome{rc, std::string(run.data(), run.data() + run.size())};
       },
       {file::kOpen},
       {},
       "",
       kOk,
       // Opened for update, it tells what became of the header: what could not be read is zeros.
       [](const std::string& made) { return std::to_string(made.size()); }},
      {"TypV2FileRef::GetDF",
       [=] {
         Owned<TypV2FileRef> file;
         CBuffer content;
         const long rc = Watch([&] {
           file = Owned<TypV2FileRef>(yard->creator.newTypV2FileRef());
           if (const Result failed = file.Init(); failed != kOk) return failed;
           if (const Result failed = file->SetFileName(yard->clear.c_str()); failed != kOk) return failed;
           if (const Result failed = file->OpenDF(0); failed != kOk) return failed;
           return content.Receive([&](auto** bytes, auto* length) { return file->GetDF(bytes, length); });
         });
         return Outcome{rc, std::string(content.data(), content.data() + content.size())};
       },
       {file::kOpen}},
      {"TypV2FileRef::OpenDF, for update",
       [=] {
         Owned<TypV2FileRef> file;
         return Outcome{Watch([&] {
                          file = Owned<TypV2FileRef>(yard->creator.newTypV2FileRef());
                          if (const Result failed = file.Init(); failed != kOk) return failed;
                          if (const Result failed = file->SetFileName(yard->clear.c_str()); failed != kOk)
                            return failed;
                          return file->OpenDF(1);
                        }),
                        ""};
       },
       {file::kOpen}},
      {"TypV2Utils::GetElementsFromList",
       [] {
         TypV2Utils utils;
         std::array<char*, 5> elements{};
         long long count = elements.size();
         const long rc =
             Watch([&] { return utils.GetElementsFromList("un,deux,trois", ',', elements.data(), &count); });
         std::string all;
         for (const char* element : elements) all += rc == kOk && element != nullptr ? element : "";
         utils.FreeElementsListContent(elements.data(), count);
         return Outcome{rc, all};
       }},
      {"TypV2Utils::ExtractFirstPJFromMime",
       [] {
         TypV2Utils utils;
         std::string mime = "Content-Disposition: attachment\n\nYWJjZGVm --";
         CBuffer content;
         const long rc = Watch([&] {
           return content.Receive([&](auto** bytes, auto* length) {
             return utils.ExtractFirstPJFromMime(reinterpret_cast<unsigned char*>(mime.data()), mime.size(),
                                                 bytes, length);
           });
         });
         return Outcome{rc, std::string(content.data(), content.data() + content.size())};
       }},
  };
}

}  // namespace

std::vector<Operation> KeyOperations() {
  const auto yard = std::make_shared<Yard>();
  std::vector<Operation> all = SigningOperations(yard);
  for (const auto& more : {CipherOperations(yard), KeyFileOperations(yard)})
    all.insert(all.end(), more.begin(), more.end());
  return all;
}

}  // namespace kestrune::testing
