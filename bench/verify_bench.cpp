// Verifying one signature block, beside what nobody can verify it without: parsing the signer's certificate
// and one public operation with its key. The bare primitives read the same file and nothing else.
//
// Compare the times of one key size; whole ones are at most 1.2 times the bare ones.
#include <benchmark/benchmark.h>

#include <array>
#include <string>

#include "core/instance_creator.h"
#include "core/owned.h"
#include "crypto/classic.h"
#include "sign/signature.h"
#include "sign/signature_verify.h"
#include "tests/support/key_folder.h"

namespace {

using kestrune::Owned;
using kestrune::testing::KeyFolder;

constexpr long kDigestMode = 1;
constexpr long kTextMode = 0;
const std::string kData(64, 'd');

const unsigned char* Data() {
  return reinterpret_cast<const unsigned char*>(kData.data());
}

// A folder with one signer, and a block of his.
struct Signed {
  explicit Signed(const benchmark::State& state, long mode) {
    stem = folder.AddSigningKey("rsa" + std::to_string(state.range(0)), "cle");
    Owned<TypApiV2Signature> signer(creator.newTypApiV2Signature());
    char password[] = "";
    valid =
        signer.Init(&creator, "cle", folder.path().c_str(), password) == 0 &&
        signer->GetSignatureXMLLight(Data(), static_cast<unsigned>(kData.size()), block.data(), mode) == 0;
  }

  KeyFolder folder;
  TypV2InstanceCreatorUnix creator;
  std::string stem;
  std::string block = std::string(2000, '\0');
  bool valid = false;
};

bool Recovers(TypApiV2SignatureVerify& verifier, const Signed& made, char* name) {
  std::array<unsigned char, TypApiV2SignatureVerify::kDataOutputBytes> text;
  unsigned long long length = 0;
  return verifier.VerifyXMLSignBlockAuthentificationData(made.block.c_str(), name, text.data(), &length) == 0;
}

bool Checks(TypApiV2SignatureVerify& verifier, const Signed& made, char* name) {
  return verifier.VerifySignAndIntegrityDataFromXMLSignBlock(made.block.c_str(), Data(), kData.size(),
                                                             name) == 0;
}

template <long kMode>
void BM_VerifyBlock(benchmark::State& state) {
  Signed made(state, kMode);
  for (auto _ : state) {
    Owned<TypApiV2SignatureVerify> verifier(made.creator.newTypApiV2SignatureVerify());
    std::array<char, TypApiV2SignatureVerify::kNameOutputBytes> name;
    const auto verify = kMode == kDigestMode ? Checks : Recovers;
    if (!made.valid || verifier.Init(&made.creator, made.folder.path().c_str()) != 0 ||
        !verify(*verifier.get(), made, name.data())) {
      state.SkipWithError("the block does not verify");
    }
  }
}

void BM_BareCertificateAndPublicOperation(benchmark::State& state) {
  Signed made(state, kTextMode);
  const std::string path = made.folder.File(made.stem + ".pem");
  std::array<unsigned char, kRsaMostBytes> input{};
  std::array<unsigned char, kRsaMostBytes> output;
  input[1] = 1;  // a value of full length, below every modulus
  for (auto _ : state) {
    x509_cert certificate;
    int rc = x509parse_crtfile(&certificate, path.c_str());
    if (rc == 0) rc = rsa_public(&certificate.rsa, input.data(), output.data());
    benchmark::DoNotOptimize(output);
    if (rc != 0) state.SkipWithError("the certificate or the operation failed");
  }
}

void KeySizes(benchmark::internal::Benchmark* benchmark) {
  benchmark->Arg(1024)->Arg(2048)->Arg(4096)->Unit(benchmark::kMicrosecond);
}

BENCHMARK(BM_BareCertificateAndPublicOperation)->Apply(KeySizes);
BENCHMARK(BM_VerifyBlock<kDigestMode>)->Apply(KeySizes)->Name("BM_VerifyBlockDigest");
BENCHMARK(BM_VerifyBlock<kTextMode>)->Apply(KeySizes)->Name("BM_VerifyBlockText");

}  // namespace

BENCHMARK_MAIN();
