// Sealing and opening beside the bare primitives that they cannot do without, in turns within one run.
//
// Counters: bare_ms is the least time of reading both runs from the page cache, deciphering
// the IV area, AES-CBC over the personal run and over the body, three XORs of the body's length and, when
// sealing, the three durable header writes; ratio is that of the operation over it.
#include <benchmark/benchmark.h>
#include <fcntl.h>
#include <unistd.h>

#include <memory>
#include <string>
#include <vector>

#include "bench/measure.h"
#include "core/instance_creator.h"
#include "core/owned.h"
#include "crypto/classic.h"
#include "examples/key_files.h"
#include "keys/kestrune_key.h"
#include "keys/message_cipher.h"
#include "tests/support/key_folder.h"

namespace {

using namespace kestrune;
using bench::Least;
using bench::OrStop;
using bench::Seconds;
using testing::Bytes;

constexpr std::size_t kMegabyte = 1000000;
const std::size_t kPadBytes = bench::OnlyTried() ? 4 << 20 : 128 << 20;
const std::size_t kFirstPadAt = 512 + (kPadBytes / 4096 + 4) * 16;
constexpr int kTurns = 9;

struct Keys : testing::TempFolder {
  testing::PersonalKey personal;
  std::string personal_name = "cle." + testing::PersonalKeyYear();
  std::string master_name = "Master." + testing::PersonalKeyYear();
  Keys() {
    personal.first_pad.resize(kPadBytes, 7);
    testing::WriteFile(File(personal_name), personal.File());
    testing::MasterKey master;
    master.pad.resize(kPadBytes, 9);
    testing::WriteFile(File(master_name), master.File());
    ::sync();
  }
};

const Keys& TheKeys() {
  static const Keys keys;
  return keys;
}

struct BareFile {
  int fd;
  explicit BareFile(const std::string& name) : fd(::open(TheKeys().File(name).c_str(), O_RDWR)) {
    OrStop(fd >= 0);
  }
  ~BareFile() { ::close(fd); }
  void Read(void* to, std::size_t bytes, std::size_t at) const {
    OrStop(::pread(fd, to, bytes, static_cast<off_t>(at)) == static_cast<ssize_t>(bytes));
  }
  void RewriteHeader() const {
    char header[512];
    Read(header, sizeof header, 0);
    OrStop(::pwrite(fd, header, sizeof header, 0) == sizeof header && ::fdatasync(fd) == 0);
  }
};

void Xor(unsigned char* out, const unsigned char* in, std::size_t bytes) {
  for (std::size_t i = 0; i < bytes; ++i) out[i] ^= in[i];
  benchmark::ClobberMemory();
}

enum class Memory { kNew, kWarm };

void Bare(const unsigned char* body, std::size_t bytes, int direction, Memory memory) {
  const std::size_t length = (bytes + 96) / 4096 * 4096 + 4096;
  const BareFile personal(TheKeys().personal_name), master(TheKeys().master_name);
  unsigned char key[32] = {}, iv[16] = {};
  std::vector<unsigned char> ivs(kFirstPadAt - 512);
  aes_context aes;
  personal.Read(ivs.data(), ivs.size(), 512);
  aes_setkey_dec(&aes, key, 256);
  aes_crypt_cbc(&aes, AES_DECRYPT, ivs.size(), iv, ivs.data(), ivs.data());

  static std::unique_ptr<unsigned char[]> run, mask;
  static std::size_t held = 0;
  if (memory == Memory::kNew || held < length) {
    run.reset(new unsigned char[length]);
    mask.reset(new unsigned char[length]);
    held = length;
  }
  personal.Read(run.get(), length, kFirstPadAt);
  master.Read(mask.get(), length, 4608);
  aes_crypt_cbc(&aes, AES_DECRYPT, length, iv, run.get(), run.get());
  Xor(run.get(), mask.get(), bytes);
  Xor(run.get(), body, bytes);
  Xor(run.get(), mask.get(), bytes);
  if (direction == AES_ENCRYPT) aes_setkey_enc(&aes, key, 256);
  aes_crypt_cbc(&aes, direction, length, iv, run.get(), run.get());
  if (direction == AES_ENCRYPT) {
    master.RewriteHeader();
    personal.RewriteHeader();
    personal.RewriteHeader();
  }
}

// Memory at the peak of the operation, the caller's own body counted, without the IV area, in bodies.
template <class Operation>
double Peak(std::size_t bytes, Operation&& operation) {
  return 1 + (bench::PeakGrowth(operation) - static_cast<double>(kFirstPadAt)) / static_cast<double>(bytes);
}

template <class Operation>
void Compare(benchmark::State& state, const unsigned char* body, std::size_t bytes, int direction,
             Operation&& operation) {
  std::vector<double> own, bare, warm;
  state.counters["peak_bodies"] = Peak(bytes, operation);
  for (auto _ : state) {
    own.push_back(Seconds(operation));
    bare.push_back(Seconds([&] { Bare(body, bytes, direction, Memory::kNew); }));
    warm.push_back(Seconds([&] { Bare(body, bytes, direction, Memory::kWarm); }));
    state.SetIterationTime(own.back());
  }
  state.counters["bare_ms"] = Least(bare) * 1e3;
  state.counters["ratio"] = Least(own) / Least(bare);
  state.counters["ratio_warm"] = Least(own) / Least(warm);
  state.counters["ns_per_byte"] = Least(own) * 1e9 / static_cast<double>(bytes);
}

struct Cipher {
  TypV2InstanceCreatorUnix creator;
  TypKestruneV2Unix cipher;
  Cipher() {
    OrStop(cipher.InitCreate(&creator, "cle", TheKeys().path().c_str(),
                             TheKeys().personal.hex_password.c_str()) == 0);
  }
  ~Cipher() { cipher.Kill(); }
};

void Seal(benchmark::State& state) {
  Cipher with;
  const Bytes body(static_cast<std::size_t>(state.range(0)) * kMegabyte, 'x');
  Compare(state, body.data(), body.size(), AES_ENCRYPT, [&] {
    CBuffer out;
    OrStop(out.Receive([&](auto** bytes, auto* length) {
      return with.cipher.Low_crypter(body.data(), body.size(), bytes, length);
    }) == 0);
  });
}

void Open(benchmark::State& state) {
  Cipher with;
  const Bytes body(static_cast<std::size_t>(state.range(0)) * kMegabyte, 'x');
  CBuffer sealed;
  OrStop(sealed.Receive([&](auto** bytes, auto* length) {
    return with.cipher.Low_crypter(body.data(), body.size(), bytes, length);
  }) == 0);
  Compare(state, body.data(), body.size(), AES_DECRYPT, [&] {
    CBuffer out;
    OrStop(out.Receive([&](auto** bytes, auto* length) {
      return with.cipher.Low_decrypter(sealed.data(), sealed.size(), TheKeys().personal_name.c_str(),
                                       TheKeys().personal.hex_password.c_str(), bytes, length);
    }) == 0);
  });
}

void Sizes(benchmark::internal::Benchmark* benchmark) {
  for (const int megabytes : {1, 10, 100}) benchmark->Arg(megabytes);
  benchmark->Iterations(bench::Turns(kTurns))->UseManualTime()->Unit(benchmark::kMillisecond);
}

BENCHMARK(Seal)->Apply(Sizes);
BENCHMARK(Open)->Apply(Sizes);

}  // namespace

BENCHMARK_MAIN();
