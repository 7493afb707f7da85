// The flat entry point of verification.
#include <array>
#include <cstdio>
#include <cstring>

#include <kestrune/kestrune.h>
#include "core/entry_point.h"
#include "core/instance_creator.h"
#include "core/owned.h"
#include "core/result.h"
#include "core/trace.h"
#include "sign/signature_verify.h"

using namespace kestrune;

namespace {

// What a block told. The texts are terminated, and empty where the block told nothing.
struct Recovered {
  std::array<char, TypApiV2SignatureVerify::kNameOutputBytes> name{};
  SecretArray<TypApiV2SignatureVerify::kDataOutputBytes> data;
  unsigned long long length = 0;
};

Result Recover(TypApiV2SignatureVerify* verifier, const char* block, Recovered* recovered) {
  const Result rc = verifier->VerifyXMLSignBlockAuthentificationData(
      block, recovered->name.data(), recovered->data.data(), &recovered->length);
  if (rc != kOk) return rc;
  // As a text it would end at the zero, and what stands behind would have gone unseen.
  if (std::memchr(recovered->data.data(), 0, recovered->length) == nullptr) return kOk;
  recovered->data.Wipe();
  recovered->length = 0;
  return verifier::kBadSignature;
}

void WriteAnswer(Result rc, const Recovered& recovered, char* answer) {
  if (rc != kOk) {
    std::sprintf(answer, "<ERR>%d</ERR>", rc);
  } else {
    std::sprintf(answer, "<ERR>0</ERR><N>%s</N><DT>%s</DT>", recovered.name.data(), recovered.data.text());
  }
}

void Tell(const Trace& trace, Result rc, const Recovered& recovered) {
  trace.Print("err VerifyXMLSignBlockAuthentificationData = %d\n", rc);
  trace.Print("Signature trouvee : %s\n", recovered.name.data());
  trace.Print("Contenu du block signature : %s\n", recovered.data.text());
  trace.Print("taille du contenu du block signature : %d\n", static_cast<int>(recovered.length));
}

}  // namespace

int Api2ExtractFromSignature(const char* block, const char* folder, char* answer, long verbose) {
  return EntryPoint([&]() -> Result {
    if (answer == nullptr) return argument::kNoOutput;
    *answer = 0;
    TypV2InstanceCreatorUnix creator;
    Owned<TypApiV2SignatureVerify> verifier(creator.newTypApiV2SignatureVerify());
    if (const Result rc = verifier.Init(&creator, folder); rc != kOk) return rc;
    Recovered recovered;
    const Result rc = Recover(verifier.get(), block, &recovered);
    WriteAnswer(rc, recovered, answer);
    Tell(TraceWhenOne(verbose), rc, recovered);
    return rc;
  });
}
