// Makes messages that no honest program makes, and the keys that open them:
//   forge FOLDER
// with medecin's and intrus's signing keys in it; the pass phrase of durand's key is a_b_c_d.
#include <cstdio>
#include <cstring>
#include <functional>
#include <utility>

#include "base/buffer.h"
#include "core/instance_creator.h"
#include "core/owned.h"
#include "core/result.h"
#include "envelope/crypto_interface.h"
#include "examples/key_files.h"
#include "sign/signature.h"
#include "tests/support/bytes.h"
#include "tests/support/sealed_body.h"

namespace kestrune::testing {
namespace {

const PersonalKey kPersonal;
const MasterKey kMaster;

// An envelope whose holder signs as himself and names another sender, and describes attachments as he likes.
struct Forger : TypV2CryptoInterfaceUnix {
  const char* names = "";           // of the attachments, each ended by a '|'
  bool changes_attachment = false;  // behind its signature
  const char* outer_sender = nullptr;
  const char* inner_sender = nullptr;

  int GetDF(TypApiV2Signature* signer, const char* number, unsigned char** data, unsigned long long* length,
            char* xml) override {
    CBuffer content;
    if (!content.Allocate(8)) return kNoObject;
    std::memcpy(content.data(), "attached", 8);
    char signature[kSignatureXmlBytes];
    if (const Result rc = signer->GetSignatureXMLLight(content.data(), 8, signature, 1); rc != kOk) return rc;
    const char* name = names;
    for (int i = *number - '0'; i > 0; --i) name = std::strchr(name, '|') + 1;
    const std::string base64 = ToBase64({name, std::strcspn(name, "|")});
    std::snprintf(xml, kAttachmentXmlBytes, "<AT><N>%s</N></AT>%s", base64.c_str(), signature);
    if (changes_attachment) content.data()[0] = 'A';
    *length = 8;
    *data = content.release();
    return kOk;
  }
  int GetServiceXMLRoutage(char** xml, const char* key, const char* sender, const char* to, const char* cc,
                           const char* bcc, const char* reply, const char* subject, const char* te,
                           const char* ready) override {
    return TypV2CryptoInterfaceUnix::GetServiceXMLRoutage(
        xml, key, inner_sender != nullptr ? inner_sender : sender, to, cc, bcc, reply, subject, te, ready);
  }
  int GetBasicServiceXML(char** xml, const char* key, const char* sender, const char* to, const char* cc,
                         const char* bcc, const char* reply, const char* subject, const char* te) override {
    return TypV2CryptoInterfaceUnix::GetBasicServiceXML(
        xml, key, outer_sender != nullptr ? outer_sender : sender, to, cc, bcc, reply, subject, te);
  }
};

bool Forge(const std::string& folder, const char* file, const char* signer, const char* attachments,
           const std::function<void(Forger&)>& with) {
  TypV2InstanceCreatorUnix creator;
  auto* forger = new Forger;
  with(*forger);
  Owned<TypV2CryptoInterface> envelope(std::move(forger));
  if (envelope.Init(&creator, folder.c_str(), folder.c_str()) != kOk) return false;
  char password[] = "none", identifier[kMessageIdentifierBytes];
  CBuffer block;
  const Result rc = block.Receive([&](unsigned char** out, unsigned long long* length) {
    return envelope->CrypterSigner("durand", kPersonal.hex_password.c_str(), signer, password, "a@b", "", "",
                                   nullptr, "s", "2026-01-31 23:59:59", nullptr, "\x1b[31mred", attachments,
                                   nullptr, out, length, identifier);
  });
  WriteFile(folder + "../" + file, std::string_view(block.text(), block.size()));
  return rc == kOk;
}

// A grey block of which nothing is left when it is deciphered.
void ForgeTrap(const std::string& folder) {
  SealedParts parts = PartsOf(Bytes(1, 'x'), 20);
  parts.r1[0] = 255;
  const std::string routing = "<M><C>durand." + PersonalKeyYear() + "</C><F>medecin</F></M>";
  const std::string green =
      ToText(SealParts(parts, {kPersonal.first_pad, kPersonal.second_pad, kMaster.pad}));
  WriteFile(folder + "../trap.grey", Sealed(Record("DATA", 0, routing, green)));
}

}  // namespace
}  // namespace kestrune::testing

int main(int argc, char** argv) {
  using namespace kestrune::testing;
  if (argc != 2) return 2;
  const std::string folder = std::string(argv[1]) + "/";
  WriteFile(folder + "durand." + PersonalKeyYear(), kPersonal.File());
  WriteFile(folder + "Master." + PersonalKeyYear(), kMaster.File());
  ForgeTrap(folder);
  const char* const names = "../../.profile|a/b\\..|report.pdf|Report.PDF|-rf|\x1b[2J\xff.txt||message.txt|";
  return Forge(folder, "names.tr", "medecin", "0|1|2|3|4|5|6|7", [&](Forger& f) { f.names = names; }) &&
                 Forge(folder, "changed.tr", "medecin", "0",
                       [](Forger& f) {
                         f.names = "scan.pdf|";
                         f.changes_attachment = true;
                       }) &&
                 Forge(folder, "posed.tr", "intrus", nullptr,
                       [](Forger& f) { f.inner_sender = f.outer_sender = "medecin"; }) &&
                 Forge(folder, "inside.tr", "intrus", nullptr, [](Forger& f) { f.inner_sender = "medecin"; })
             ? 0
             : 1;
}
