// Sealing and opening whole messages beside the primitives that they cannot do without, in turns within one
// run, by processor time (what other programs take meanwhile does not count, nor does waiting for the disk).
//
// Arguments: bytes of text, attachments of 1,000,000 bytes. Counters: bare_ms, the least time of the
// primitives: SHA-512 over the message five times when sealing and four times when opening (envelope/
// sealing.cpp and opening.cpp tell why), AES-CBC over the personal run and over the body, the IV area,
// reading the pads and attachments, the RSA operations and reading their keys; ratio, the operation's least
// time over it; ns_per_unit, of a byte; and peak, by how much the largest resident size grows in a process of its own,
// over the message.
#include <benchmark/benchmark.h>
#include <fcntl.h>
#include <malloc.h>
#include <sys/wait.h>
#include <unistd.h>

#include <functional>
#include <limits>
#include <string>
#include <vector>

#include <kestrune/kestrune.h>
#include "bench/measure.h"
#include "blocks/block_cell.h"
#include "core/instance_creator.h"
#include "core/owned.h"
#include "crypto/classic.h"
#include "envelope/crypto_interface.h"
#include "tests/support/sealed_message.h"

namespace {

using namespace kestrune;
using bench::Compare;
using bench::OrStop;
using testing::Bytes;

constexpr std::size_t kAttachmentBytes = 1000000;
const std::size_t kPadChunks = bench::OnlyTried() ? 1000 : 27000;  // 110 MB
constexpr int kSealingPasses = 5;
constexpr int kOpeningPasses = 4;
constexpr int kRoutingPasses = 2;
constexpr int kSealingSignatures = 2;  // of the red and the grey block; and one for each part

const testing::MessageFolder& Keys() {
  static const testing::MessageFolder folder(kPadChunks);
  return folder;
}

struct Message {
  std::string text;
  std::string attachments;
  std::size_t parts;
  std::size_t bytes;

  explicit Message(const benchmark::State& state)
      : text(static_cast<std::size_t>(state.range(0)), 'x'),
        parts(1 + static_cast<std::size_t>(state.range(1))),
        bytes(text.size() + (parts - 1) * kAttachmentBytes) {
    const std::string path = Keys().File("attachment");
    testing::WriteFile(path, Bytes(kAttachmentBytes, 'y'));
    for (std::size_t i = 1; i < parts; ++i) attachments += (i > 1 ? "|" : "") + path;
  }
};

struct Envelope {
  TypV2InstanceCreatorUnix creator;
  Owned<TypV2CryptoInterface> envelope{creator.newTypV2CryptoInterface()};

  Envelope() {
    const std::string& folder = Keys().path();
    OrStop(envelope.Init(&creator, folder.c_str(), folder.c_str()) == kOk);
  }

  CBuffer Seal(const Message& message) {
    CBuffer block;
    char password[] = "none", identifier[kMessageIdentifierBytes];
    OrStop(block.Receive([&](unsigned char** bytes, unsigned long long* length) {
      return envelope->CrypterSigner("durand", Keys().personal.hex_password.c_str(), "medecin", password, "a",
                                     "", "", nullptr, "s", "2026-01-31 23:59:59", nullptr,
                                     message.text.c_str(), message.attachments.c_str(), nullptr, bytes,
                                     length, identifier);
    }) == kOk);
    return block;
  }

  void Open(const CBuffer& block) {
    CBuffer green, routing, signature;
    char key_reference[kKeyReferenceBytes];
    char *routing_text = nullptr, *signature_text = nullptr;
    OrStop(green.Receive([&](unsigned char** bytes, unsigned long long* length) {
      return envelope->ExtractVertFlatFromHTTPSBlock(block.data(), block.size(), &routing_text, key_reference,
                                                     nullptr, bytes, length, &signature_text);
    }) == kOk);
    routing.AdoptText(routing_text);
    signature.AdoptText(signature_text);
    TypV2BlockCell* tree = nullptr;
    OrStop(envelope->DeCrypterVertFlat(green.data(), green.size(), key_reference,
                                       Keys().personal.hex_password.c_str(), &tree) == kOk);
    (void)Adopted(tree);
  }
};

void ReadPart(const std::string& path, unsigned char* to, std::size_t bytes) {
  const int fd = ::open(path.c_str(), O_RDONLY);
  OrStop(fd >= 0 && ::pread(fd, to, bytes, 0) == static_cast<ssize_t>(bytes));
  ::close(fd);
}

// Memory that is already there: entering new pages is not counted as needed.
Bytes& Memory(std::size_t bytes) {
  static Bytes memory;
  memory.resize(std::max(memory.size(), bytes));
  return memory;
}

void Digests(const unsigned char* bytes, std::size_t count, int passes) {
  unsigned char digest[kSha512Bytes];
  for (int pass = 0; pass < passes; ++pass) sha4(bytes, count, digest, 0);
}

// Both pads read, the personal run deciphered, the body enciphered or deciphered.
void Pads(std::size_t bytes, int direction) {
  const std::size_t length = (bytes + 8191) / 4096 * 4096;
  unsigned char key[32] = {}, iv[16] = {};
  aes_context aes;
  const std::size_t iv_area = testing::IvAreaBytes(Keys().personal.first_pad.size(), 4 * 4096);
  unsigned char* const memory = Memory(std::max(length, iv_area)).data();
  ReadPart(Keys().File("Master." + testing::PersonalKeyYear()), memory, length);
  ReadPart(Keys().File("durand." + testing::PersonalKeyYear()), memory, std::max(length, iv_area));
  aes_setkey_dec(&aes, key, kAes256KeyBits);
  aes_crypt_cbc(&aes, AES_DECRYPT, iv_area, iv, memory, memory);
  aes_crypt_cbc(&aes, AES_DECRYPT, length, iv, memory, memory);
  if (direction == AES_ENCRYPT) aes_setkey_enc(&aes, key, kAes256KeyBits);
  aes_crypt_cbc(&aes, direction, length, iv, memory, memory);
}

void BareSeal(const Message& message) {
  unsigned char* const memory = Memory(message.bytes).data();
  rsa_context key;
  OrStop(x509parse_keyfile(&key, Keys().File(Keys().signing_key + ".key").c_str(), "") == 0 &&
         rsa_check_privkey(&key) == 0);
  unsigned char signature[256], digest[kSha512Bytes] = {};
  for (std::size_t i = 0; i < message.parts + kSealingSignatures; ++i) {
    OrStop(rsa_pkcs1_sign(&key, RSA_PRIVATE, SIG_RSA_RAW, sizeof digest, digest, signature) == 0);
  }
  for (std::size_t i = 1; i < message.parts; ++i) {
    ReadPart(Keys().File("attachment"), memory, kAttachmentBytes);
  }
  Digests(memory, message.bytes, kSealingPasses);
  Pads(message.bytes, AES_ENCRYPT);
}

void BareOpen(const Message& message) {
  unsigned char* const memory = Memory(message.bytes).data();
  x509_cert certificate;
  OrStop(x509parse_crtfile(&certificate, Keys().Certificate().c_str()) == 0);
  unsigned char value[256] = {0, 1}, result[256];
  OrStop(rsa_public(&certificate.rsa, value, result) == 0);
  Digests(memory, message.bytes, kOpeningPasses);
  Pads(message.bytes, AES_DECRYPT);
}

// By how much a process of its own grows at most, in messages.
double Peak(std::size_t bytes, const std::function<void()>& operation) {
  int ends[2];
  OrStop(::pipe(ends) == 0);
  const pid_t child = ::fork();
  if (child == 0) {
    ::malloc_trim(0);
    const double grown = bench::PeakGrowth(operation);
    OrStop(::write(ends[1], &grown, sizeof grown) == sizeof grown);
    ::_exit(0);
  }
  double grown = 0;
  OrStop(::read(ends[0], &grown, sizeof grown) == sizeof grown);
  ::waitpid(child, nullptr, 0);
  ::close(ends[0]);
  ::close(ends[1]);
  return grown / static_cast<double>(bytes);
}

void Seal(benchmark::State& state) {
  const Message message(state);
  Envelope with;
  // Before the process has grown for other reasons.
  const double peak = Peak(message.bytes, [&] { with.Seal(message); });
  Compare(
      state, static_cast<double>(message.bytes), [&] { with.Seal(message); }, [&] { BareSeal(message); });
  state.counters["peak"] = peak;
}

void Open(benchmark::State& state) {
  const Message message(state);
  Envelope with;
  const CBuffer block = with.Seal(message);
  const double peak = Peak(message.bytes, [&] { with.Open(block); });
  Compare(
      state, static_cast<double>(message.bytes), [&] { with.Open(block); }, [&] { BareOpen(message); });
  state.counters["peak"] = peak;
}

// The routing of a transport block: two passes, and a peak near 0, because no block inside it is copied.
void Routing(benchmark::State& state) {
  const Message message(state);
  Envelope with;
  const CBuffer block = with.Seal(message);
  const auto route = [&] {
    char *routing_text = nullptr, *signature_text = nullptr;
    OrStop(with.envelope->ExtractRoutageOnlyFromHTTPSBlock(block.data(), block.size(), &routing_text, nullptr,
                                                           nullptr, &signature_text) == kOk);
    std::free(routing_text);
    std::free(signature_text);
  };
  const double peak = Peak(message.bytes, route);
  Compare(state, static_cast<double>(message.bytes), route, [&] {
    x509_cert certificate;
    OrStop(x509parse_crtfile(&certificate, Keys().Certificate().c_str()) == 0);
    Digests(block.data(), message.bytes, kRoutingPasses);
  });
  state.counters["peak"] = peak;
}

// From the grey block to tagged text, which costs one pass less and the Base64 of the contents.
void OpenMem(benchmark::State& state) {
  const Message message(state);
  CBuffer grey;
  {
    const CBuffer block = Envelope().Seal(message);
    OrStop(grey.Receive([&](unsigned char** bytes, unsigned long long* length) {
      return static_cast<Result>(Api2ExtractGrisFromHTTPSBlock(
          block.data(), block.size(), Keys().path().c_str(), bytes, length, nullptr));
    }) == kOk);
  }
  const auto open = [&] {
    char* xml = nullptr;
    OrStop(Api2DecrypterGrisMem(grey.data(), grey.size(), Keys().path().c_str(), "a_b_c_d", &xml) == kOk);
    CBuffer owned;
    owned.AdoptText(xml);
  };
  const double peak = Peak(message.bytes, open);
  Compare(state, static_cast<double>(message.bytes), open, [&] {
    unsigned char* const memory = Memory(message.bytes).data();
    Digests(memory, message.bytes, kOpeningPasses - 1);
    Pads(message.bytes, AES_DECRYPT);
    static Bytes base64;
    std::size_t characters = (message.bytes + 2) / 3 * 4 + 1;
    base64.resize(std::max(base64.size(), characters));
    OrStop(base64_encode(base64.data(), &characters, memory, message.bytes) == 0);
  });
  state.counters["peak"] = peak;
}

void Sizes(benchmark::internal::Benchmark* benchmark) {
  benchmark->Args({1000, 0})->Args({1000000, 0})->Args({10000000, 0})->Args({0, 99});
  benchmark->UseManualTime()->Unit(benchmark::kMillisecond)->MinTime(bench::OnlyTried() ? 0.001 : 2);
}

}  // namespace

BENCHMARK(Seal)->Apply(Sizes);
BENCHMARK(Open)->Apply(Sizes);
BENCHMARK(Routing)->Apply(Sizes);
BENCHMARK(OpenMem)->Apply(Sizes);

int main(int argc, char** argv) {
  // Neither side gives its memory back between two turns: what a system charges for new pages depends on where
  // it runs, most of all in a virtual machine, and is not compared. --fresh_pages has it count on one side.
  if (argc > 1 && std::string(argv[1]) == "--fresh_pages") {
    ++argv;
    --argc;
  } else {
    ::mallopt(M_MMAP_MAX, 0);
    ::mallopt(M_TRIM_THRESHOLD, std::numeric_limits<int>::max());
  }
  benchmark::Initialize(&argc, argv);
  benchmark::RunSpecifiedBenchmarks();
}
